// A rule set with one rule per criterion kind, run by the program on a real
// Maildir and on a real Dovecot: each rule moves exactly its messages, a
// second run moves nothing, a preview lists the same subjects and moves
// nothing, and a completed follow-up flag is cleared on moved mail only.

#include "E2eSupport.h"

#include <gtest/gtest.h>

namespace mv::e2e {
namespace {

struct Case {
    const char* folder;  // the rule's name and destination, under Archive
    const char* column;
    const char* value;
    Mail hit;            // the one message it must move
};

// Order matters only for the read-state and age rules, which would also
// take the read or old mail of earlier rules: theirs is unread and recent.
const Case kCases[] = {
    {"From", "FromAddress", "zed@vendor.test", {.id = "from@e2e", .subject = "Hello from Zed", .from = "Zed Vendor <zed@vendor.test>"}},
    {"To", "ToAddress", "team@lists.test", {.id = "to@e2e", .subject = "For the list", .to = "Team List <team@lists.test>"}},
    {"Cc", "CcAddress", "Carol Cee", {.id = "cc@e2e", .subject = "Copied to Carol", .cc = "Carol Cee <carol@example.net>"}},
    {"Subject", "Subject", "\"quarterly figures\"", {.id = "subject@e2e", .subject = "Our quarterly figures are in"}},
    {"Body", "Message", "pineapple", {.id = "body@e2e", .subject = "Plain subject", .body = "The password is pineapple."}},
    {"Importance", "Importance", "2", {.id = "importance@e2e", .subject = "Urgent matter", .extraHeaders = "Importance: high\r\n"}},
    {"Flagged", "FlagStatus", "2", {.id = "flagged@e2e", .subject = "Flagged one", .flags = "F"}},
    {"Completed", "FlagStatus", "1", {.id = "completed@e2e", .subject = "Completed one", .keywords = {"$Completed"}}},
    {"Replied", "LastVerb", "102", {.id = "replied@e2e", .subject = "Replied one", .flags = "R"}},
    // "P" is a Maildir's own letter; a server reads the keyword.
    {"Forwarded", "LastVerb", "104", {.id = "forwarded@e2e", .subject = "Forwarded one", .flags = "P", .keywords = {"$Forwarded"}}},
    {"Read", "Status", "1", {.id = "read@e2e", .subject = "Read one", .flags = "S"}},
    {"Old", "MsgAgeID", "12", {.id = "old@e2e", .subject = "Old one", .ageDays = 800}},
};
const Mail& kCompleted = kCases[7].hit;

// Near misses that no rule may take.
const Mail kMisses[] = {
    {.id = "miss-phrase@e2e", .subject = "figures quarterly, the other way round"},
    {.id = "miss-from@e2e", .subject = "From Zed's colleague", .from = "Zoe <zoe@vendor.test>"},
    {.id = "miss-low@e2e", .subject = "Not urgent", .extraHeaders = "Importance: low\r\n"},
    {.id = "miss-young@e2e", .subject = "Twenty days old", .ageDays = 20},
};

class RunTest : public ::testing::TestWithParam<bool> {};

TEST_P(RunTest, PreviewMovesNothingThenEachRuleMovesExactlyItsMessagesAndASecondRunNothing)
{
    const bool imap = GetParam();
    if (imap && !test::DovecotServer::Available()) GTEST_SKIP() << "Dovecot is not installed";
    World world({!imap, imap, {}});
    ASSERT_EQ(world.Start(), QString());
    world.CreateFolder(QStringLiteral("Archive"));
    for (const Case& c : kCases) {
        world.CreateFolder(QStringLiteral("Archive/") + QLatin1String(c.folder));
        world.Write(QString(), c.hit);
    }
    QStringList misses;
    for (const Mail& m : kMisses) {
        world.Write(QString(), m);
        misses << m.id;
    }
    misses.sort();
    world.HandOver();
    const auto folders = world.Folders();
    QStringList rows;
    for (const Case& c : kCases) {
        const QString dst = QStringLiteral("Archive/") + QLatin1String(c.folder);
        ASSERT_TRUE(folders.contains(dst)) << dst.toStdString();
        rows << RuleRow(static_cast<int>(rows.size()) + 1, QLatin1String(c.folder), folders[QStringLiteral("Inbox")],
                        folders[dst], {{QLatin1String(c.column), QString::fromUtf8(c.value)}});
    }
    QString error;
    ASSERT_TRUE(world.Import(rows, &error)) << error.toStdString();
    const auto everything = [&world] {
        QStringList all;
        for (const StoredMail& m : world.Contents())
            if (!m.inTmp) all << m.folder + u':' + m.id + u' ' + m.flags + u' ' + m.keywords.join(u',');
        all.sort();
        return all;
    };

    const QStringList before = everything();
    const Result preview = world.Run({QStringLiteral("preview"), QStringLiteral("--all")});
    ASSERT_EQ(preview.code, 0) << preview.err.toStdString();
    for (const Case& c : kCases) {
        EXPECT_TRUE(preview.out.contains(QStringLiteral("%1: 1 would move").arg(QLatin1String(c.folder))))
            << c.folder << "\n" << preview.out.toStdString();
        EXPECT_TRUE(preview.out.contains(QStringLiteral("    ") + c.hit.subject)) << c.folder;
    }
    for (const Mail& m : kMisses) EXPECT_FALSE(preview.out.contains(m.subject)) << m.id.toStdString();
    const Result one = world.Run({QStringLiteral("preview"), QStringLiteral("Subject")});
    EXPECT_EQ(one.code, 0);
    EXPECT_TRUE(one.out.contains(kCases[3].hit.subject)) << one.out.toStdString();
    EXPECT_EQ(everything(), before) << "a preview moves nothing and keeps every flag";

    const Result first = world.Run({QStringLiteral("run")});
    ASSERT_EQ(first.code, 0) << first.out.toStdString() << first.err.toStdString();
    for (const Case& c : kCases) EXPECT_EQ(world.Ids(QStringLiteral("Archive/") + QLatin1String(c.folder)), QStringList{c.hit.id});
    EXPECT_EQ(world.Ids(QString()), misses);
    EXPECT_TRUE(first.out.contains(QStringLiteral("%1 message(s) moved").arg(std::size(kCases)))) << first.out.toStdString();
    for (const StoredMail& m : world.Contents())
        if (m.id == kCompleted.id) {
            EXPECT_EQ(m.keywords, QStringList{}) << "the completed flag is cleared on moved mail";
        }

    const Result second = world.Run({QStringLiteral("run")});
    EXPECT_EQ(second.code, 0);
    EXPECT_TRUE(second.out.contains(QStringLiteral(": 0 message(s) moved"))) << second.out.toStdString();
    for (const Case& c : kCases) EXPECT_EQ(world.Ids(QStringLiteral("Archive/") + QLatin1String(c.folder)).size(), 1) << c.folder;
}

INSTANTIATE_TEST_SUITE_P(Stores, RunTest, ::testing::Bool(), [](const auto& info) { return info.param ? "Imap" : "Maildir"; });

}  // namespace
}  // namespace mv::e2e
