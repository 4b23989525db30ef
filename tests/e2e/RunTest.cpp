// A rule set with one rule per criterion kind, run by the program on a real
// Maildir and on a real Dovecot: each rule moves exactly its messages, a
// second run moves nothing, a preview lists the same subjects and moves
// nothing, and a completed follow-up flag is cleared on moved mail only.

#include "E2eSupport.h"

#include <QFile>
#include <QProcess>

#include <gtest/gtest.h>

namespace mv::e2e {
namespace {

struct Case {
    const char* folder;  // the rule's destination, under Archive
    RuleDef rule;
    Mail hit;            // the one message it must move
};

Mail M(const char* id, const char* subject)
{
    Mail m;
    m.id = QString::fromLatin1(id) + QStringLiteral("@e2e.test");
    m.subject = QString::fromLatin1(subject);
    return m;
}

// One rule per criterion kind. Order matters only for the read-state and
// age rules, which would also take the read or old mail of earlier rules:
// the earlier rules' messages are unread and recent.
std::vector<Case> Cases()
{
    std::vector<Case> cases;
    auto add = [&](const char* folder, QHash<QString, QString> criteria, Mail hit) {
        cases.push_back({folder, {QString::fromLatin1(folder), QStringLiteral("Archive/") + QLatin1String(folder),
                                  std::move(criteria)}, std::move(hit)});
    };
    Mail m = M("from", "Hello from Zed");
    m.from = QStringLiteral("Zed Vendor <zed@vendor.test>");
    add("From", {{QStringLiteral("FromAddress"), QStringLiteral("zed@vendor.test")}}, m);
    m = M("to", "For the list");
    m.to = QStringLiteral("Team List <team@lists.test>");
    add("To", {{QStringLiteral("ToAddress"), QStringLiteral("team@lists.test")}}, m);
    m = M("cc", "Copied to Carol");
    m.cc = QStringLiteral("Carol Cee <carol@example.net>");
    add("Cc", {{QStringLiteral("CcAddress"), QStringLiteral("Carol Cee")}}, m);
    add("Subject", {{QStringLiteral("Subject"), QStringLiteral("\"quarterly figures\"")}},
        M("subject", "Our quarterly figures are in"));
    m = M("body", "Plain subject");
    m.body = QStringLiteral("The password for today is pineapple.");
    add("Body", {{QStringLiteral("Message"), QStringLiteral("pineapple")}}, m);
    m = M("importance", "Urgent matter");
    m.extraHeaders = QStringLiteral("Importance: high\r\n");
    add("Importance", {{QStringLiteral("Importance"), QStringLiteral("2")}}, m);
    m = M("flagged", "Flagged one");
    m.flags = QStringLiteral("F");
    add("Flagged", {{QStringLiteral("FlagStatus"), QStringLiteral("2")}}, m);
    m = M("completed", "Completed one");
    m.keywords = QStringList{QStringLiteral("$Completed")};
    add("Completed", {{QStringLiteral("FlagStatus"), QStringLiteral("1")}}, m);
    m = M("replied", "Replied one");
    m.flags = QStringLiteral("R");
    add("Replied", {{QStringLiteral("LastVerb"), QStringLiteral("102")}}, m);
    m = M("forwarded", "Forwarded one");
    m.flags = QStringLiteral("P");  // a Maildir's own letter; a server reads the keyword
    m.keywords = QStringList{QStringLiteral("$Forwarded")};
    add("Forwarded", {{QStringLiteral("LastVerb"), QStringLiteral("104")}}, m);
    m = M("read", "Read one");
    m.flags = QStringLiteral("S");
    add("Read", {{QStringLiteral("Status"), QStringLiteral("1")}}, m);
    m = M("old", "Old one");
    m.ageDays = 800;
    add("Old", {{QStringLiteral("MsgAgeID"), QStringLiteral("12")}}, m);
    return cases;
}

// Near misses that no rule may take.
std::vector<Mail> Misses()
{
    Mail a = M("miss-phrase", "figures quarterly, the other way round");
    Mail b = M("miss-from", "From Zed's colleague");
    b.from = QStringLiteral("Zoe <zoe@vendor.test>");
    Mail c = M("miss-low", "Not urgent");
    c.extraHeaders = QStringLiteral("Importance: low\r\n");
    Mail d = M("miss-young", "Twenty days old");
    d.ageDays = 20;
    return {a, b, c, d};
}

class RunTest : public ::testing::TestWithParam<Backend> {
protected:
    void SetUp() override
    {
        m_world = std::make_unique<World>(GetParam());
        QString error;
        bool skip = false;
        if (!m_world->Start(&error, &skip)) {
            if (skip) GTEST_SKIP() << error.toStdString();
            FAIL() << error.toStdString();
        }
        m_world->CreateFolder(QStringLiteral("Archive"));
        for (const Case& c : Cases()) {
            m_world->CreateFolder(QStringLiteral("Archive/") + QLatin1String(c.folder));
            m_world->Write(QString(), c.hit);
        }
        for (const Mail& m : Misses()) m_world->Write(QString(), m);
        m_world->HandOver();
        QString storeId;
        const auto ids = m_world->FolderIds(&storeId);
        ASSERT_FALSE(storeId.isEmpty());
        QStringList rows;
        int sort = 1;
        for (const Case& c : Cases()) {
            ASSERT_TRUE(ids.contains(c.rule.dst)) << c.rule.dst.toStdString();
            rows << RuleRow(sort++, c.rule, ids, storeId);
        }
        ASSERT_TRUE(m_world->Import(rows, &error)) << error.toStdString();
    }

    std::unique_ptr<World> m_world;
};

TEST_P(RunTest, EachRuleMovesExactlyItsMessagesAndASecondRunNothing)
{
    const Result first = m_world->Run({QStringLiteral("run")});
    ASSERT_EQ(first.code, 0) << first.out.toStdString() << first.err.toStdString();
    for (const Case& c : Cases())
        EXPECT_EQ(m_world->Ids(c.rule.dst), QStringList{c.hit.id}) << c.folder;
    QStringList misses;
    for (const Mail& m : Misses()) misses << m.id;
    misses.sort();
    EXPECT_EQ(m_world->Ids(QString()), misses);
    EXPECT_TRUE(first.out.contains(QStringLiteral("%1 message(s) moved").arg(Cases().size()))) << first.out.toStdString();
    EXPECT_EQ(m_world->Keywords(QStringLiteral("Archive/Completed"), Cases()[7].hit.id), QStringList{})
        << "the completed flag is cleared on moved mail";

    const Result second = m_world->Run({QStringLiteral("run")});
    EXPECT_EQ(second.code, 0);
    EXPECT_TRUE(second.out.contains(QStringLiteral(": 0 message(s) moved"))) << second.out.toStdString();
    for (const Case& c : Cases()) EXPECT_EQ(m_world->Ids(c.rule.dst).size(), 1) << c.folder;
}

TEST_P(RunTest, PreviewListsTheSameSubjectsAndMovesNothing)
{
    const auto before = m_world->AllIds();
    const Result preview = m_world->Run({QStringLiteral("preview"), QStringLiteral("--all")});
    ASSERT_EQ(preview.code, 0) << preview.err.toStdString();
    for (const Case& c : Cases()) {
        EXPECT_TRUE(preview.out.contains(QStringLiteral("%1: 1 would move").arg(QLatin1String(c.folder))))
            << c.folder << "\n" << preview.out.toStdString();
        EXPECT_TRUE(preview.out.contains(QStringLiteral("    ") + c.hit.subject)) << c.folder;
    }
    for (const Mail& m : Misses()) EXPECT_FALSE(preview.out.contains(m.subject)) << m.id.toStdString();
    EXPECT_EQ(m_world->AllIds(), before);
    EXPECT_EQ(m_world->Keywords(QString(), Cases()[7].hit.id), QStringList{QStringLiteral("$Completed")})
        << "a preview keeps the completed flag";

    const Result one = m_world->Run({QStringLiteral("preview"), QStringLiteral("Subject")});
    EXPECT_EQ(one.code, 0);
    EXPECT_TRUE(one.out.contains(Cases()[3].hit.subject)) << one.out.toStdString();
    EXPECT_EQ(m_world->AllIds(), before);
}

INSTANTIATE_TEST_SUITE_P(Stores, RunTest, ::testing::Values(Backend::Maildir, Backend::Imap),
                         [](const auto& info) { return info.param == Backend::Maildir ? "Maildir" : "Imap"; });

// Usage and data errors give their exit code and leave the rules as they were.
struct ErrorCase {
    const char* name;
    QStringList args;
    int code;
};

class CliErrorTest : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(CliErrorTest, ExitCode)
{
    World world(Backend::Maildir);
    QString error;
    bool skip = false;
    ASSERT_TRUE(world.Start(&error, &skip)) << error.toStdString();
    const Result r = world.Run(GetParam().args);
    EXPECT_EQ(r.code, GetParam().code) << r.out.toStdString() << r.err.toStdString();
    EXPECT_FALSE(r.err.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Cli, CliErrorTest,
    ::testing::Values(ErrorCase{"NoCommandNoDisplay", {}, 2}, ErrorCase{"UnknownCommand", {"frobnicate"}, 2},
                      ErrorCase{"UnknownOption", {"--frob", "rules"}, 2},
                      ErrorCase{"TooManyArguments", {"rules", "extra"}, 2},
                      ErrorCase{"UnknownRunOption", {"run", "--sometimes"}, 2},
                      ErrorCase{"NoSuchRule", {"preview", "No such rule"}, 2},
                      ErrorCase{"ImportOfMissingFile", {"import", "/nonexistent/rules.xml"}, 1},
                      ErrorCase{"HeadlessWithCommand", {"--headless", "rules"}, 2}),
    [](const auto& info) { return info.param.name; });

TEST(CliProfile, BadProfileIsExitFiveAndNamesTheKey)
{
    QTemporaryDir dir;
    QFile f(dir.filePath(QStringLiteral("p.ini")));
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("[Local]\ntype=maildir\npth=/tmp\n");
    f.close();
    World world(Backend::Maildir);
    QString error;
    bool skip = false;
    ASSERT_TRUE(world.Start(&error, &skip));
    QProcess p;
    p.setProcessEnvironment(world.Environment());
    p.start(world.Program(), {QStringLiteral("--profile"), f.fileName(), QStringLiteral("rules")});
    ASSERT_TRUE(p.waitForFinished(30000));
    EXPECT_EQ(p.exitCode(), 5);
    EXPECT_TRUE(QString::fromUtf8(p.readAllStandardError()).contains(QStringLiteral("pth")));
}

}  // namespace
}  // namespace mv::e2e
