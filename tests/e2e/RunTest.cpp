// A rule set with one rule per criterion kind, run by the program on a real
// Maildir and on a real Dovecot: each rule moves exactly its messages, a
// second run moves nothing, a preview lists the same subjects and moves
// nothing, and a completed follow-up flag is cleared on moved mail only.

#include "E2eSupport.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>

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

// The rules command and the Rules Manager's actions, one step after another on
// one database: what each step prints, and the run order and states that
// `rules` lists afterwards.
struct RulesStep {
    const char* name;
    QStringList args;
    int code;
    QStringList printed;  // fragments of stdout + stderr
    const char* order;    // "name:state, ..." in run order afterwards
};

QString Order(const QString& listing)
{
    static const QRegularExpression row(QStringLiteral(R"(^\s+\d+\s+\d+\s+(active|off)\s+.*?\S\s{2,}(.+?)( \[.*\])?$)"));
    QStringList order;
    for (const QString& line : listing.split(QLatin1Char('\n'))) {
        const auto m = row.match(line);
        if (m.hasMatch()) order << m.captured(2) + u':' + m.captured(1);
    }
    return order.join(QStringLiteral(", "));
}

TEST(CliRules, ListShowEnableDisableMoveDeleteAndVersion)
{
    World world(Backend::Maildir);
    QString error;
    bool skip = false;
    ASSERT_TRUE(world.Start(&error, &skip)) << error.toStdString();
    for (const char* f : {"Archive", "Archive/Old", "Archive/Plain", "Archive/Replies"})
        world.CreateFolder(QLatin1String(f));
    world.Write(QString(), M("plain", "A plain one"));
    QString storeId;
    const auto ids = world.FolderIds(&storeId);
    const auto rule = [](const char* name, QHash<QString, QString> criteria, bool active) {
        return RuleDef{QLatin1String(name), QStringLiteral("Archive/") + QLatin1String(name),
                       std::move(criteria), active};
    };
    const RuleDef defs[] = {
        rule("Old", {{QStringLiteral("MsgAgeID"), QStringLiteral("7")}, {QStringLiteral("Status"), QStringLiteral("0")},
                     {QStringLiteral("FlagStatus"), QStringLiteral("2")}}, true),
        rule("Plain", {{QStringLiteral("Subject"), QStringLiteral("plain")}}, false),
        rule("Replies", {{QStringLiteral("Importance"), QStringLiteral("2")}, {QStringLiteral("LastVerb"), QStringLiteral("102")}},
             true),
    };
    QStringList rows;
    for (const RuleDef& d : defs) rows << RuleRow(static_cast<int>(rows.size()) + 1, d, ids, storeId);
    ASSERT_TRUE(world.Import(rows, &error)) << error.toStdString();

    const QString version = QStringLiteral("mailvane %1.%2.%3\n").arg(MV_VERSION_MAJOR).arg(MV_VERSION_MINOR).arg(MV_VERSION_PATCH);
    const RulesStep steps[] = {
        {"List", {"rules"}, 0, {"Older than 1 week", "[Unread, Flagged]", "Any Time", "[High importance, Replied to]"},
         "Old:active, Plain:off, Replies:active"},
        {"Show", {"rules", "show", "Old"}, 0,
         {"Active:       yes", "Position:     1 of 3", ": Inbox\n", ": Archive/Old\n", "Age:          Older than 1 week",
          "Read state:   Unread", "Flag:         Flagged", "Importance:   Don't Care", "Subject:      Don't Care"},
         "Old:active, Plain:off, Replies:active"},
        {"EnableByName", {"rules", "enable", "Plain"}, 0, {"Plain is now active"}, "Old:active, Plain:active, Replies:active"},
        {"EnabledRuleRuns", {"run"}, 0, {": 1 message(s) moved"}, "Old:active, Plain:active, Replies:active"},
        {"DisableById", {"rules", "disable", "1"}, 0, {"Old is now off"}, "Old:off, Plain:active, Replies:active"},
        {"MoveToFirst", {"rules", "move", "Replies", "--to", "1"}, 0, {"Replies is at position 1 of 3"},
         "Replies:active, Old:off, Plain:active"},
        {"MoveOutOfRange", {"rules", "move", "Replies", "--to", "4"}, 2, {"from 1 to 3"},
         "Replies:active, Old:off, Plain:active"},
        {"DeleteWithoutTerminal", {"rules", "delete", "Plain"}, 2, {"no terminal", "--yes"},
         "Replies:active, Old:off, Plain:active"},
        {"DeleteAnsweredNo", {"rules", "delete", "Plain", "--no"}, 0, {"Plain kept"}, "Replies:active, Old:off, Plain:active"},
        {"DeleteAnsweredYes", {"--yes", "rules", "delete", "Plain"}, 0, {"Plain deleted"}, "Replies:active, Old:off"},
        {"UnknownAction", {"rules", "rename", "Old"}, 2, {"unknown action"}, "Replies:active, Old:off"},
        {"NoSuchRule", {"rules", "enable", "Plain"}, 2, {"no rule named"}, "Replies:active, Old:off"},
        {"Version", {"--version"}, 0, {version}, "Replies:active, Old:off"},
    };
    for (const RulesStep& step : steps) {
        SCOPED_TRACE(step.name);
        const Result r = world.Run(step.args);
        EXPECT_EQ(r.code, step.code) << r.err.toStdString();
        const QString printed = r.out + r.err;
        for (const QString& p : step.printed) EXPECT_TRUE(printed.contains(p)) << p.toStdString() << "\n" << printed.toStdString();
        EXPECT_FALSE(printed.contains(storeId)) << "folders are named, not given as identifiers";
        const Result listing = world.Run({QStringLiteral("rules")});
        EXPECT_EQ(Order(listing.out), QLatin1String(step.order)) << listing.out.toStdString();
    }
    EXPECT_EQ(world.Ids(QStringLiteral("Archive/Plain")), QStringList{QStringLiteral("plain@e2e.test")});
}

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
