// Undo through the program: a run, `undo`, and every message back in the
// folder it was in, with the flags it had, within a Maildir, on a server and
// across stores; a second undo moves nothing. Then, on a Maildir, an undo
// after other changes reports what it could not take back and moves the
// rest, and the history and the rules' health say what happened.

#include "E2eSupport.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace mv::e2e {
namespace {

struct UndoPath {
    const char* name;
    WorldStores stores;
    Side srcSide, dstSide;
};

void PrintTo(const UndoPath& path, std::ostream* os) { *os << path.name; }

const UndoPath kPaths[] = {
    {"Maildir", {true, false, {}}, Side::Local, Side::Local},
    {"Imap", {false, true, {}}, Side::Server, Side::Server},
    {"MaildirToImap", {true, true, {}}, Side::Local, Side::Server},
};

// id -> "side:folder flags keywords" for every live message of the world.
QHash<QString, QString> Places(const World& world, const WorldStores& stores)
{
    QHash<QString, QString> places;
    for (Side side : {Side::Local, Side::Server}) {
        if (!(side == Side::Local ? stores.local : stores.server)) continue;
        for (const StoredMail& m : world.Contents(side)) {
            if (m.inTmp) continue;
            QStringList keywords = m.keywords;
            keywords.sort();
            places.insert(m.id, QStringLiteral("%1:%2 %3 %4").arg(side == Side::Local ? QStringLiteral("local") : QStringLiteral("server"),
                                                                 m.folder, m.flags, keywords.join(u',')));
        }
    }
    return places;
}

bool Contains(const Result& r, const QString& text) { return (r.out + r.err).contains(text); }

class UndoTest : public ::testing::TestWithParam<UndoPath> {};

TEST_P(UndoTest, RunThenUndoPutsEveryMessageBackAndASecondUndoMovesNothing)
{
    const UndoPath& path = GetParam();
    if (path.stores.server && !test::DovecotServer::Available()) GTEST_SKIP() << "Dovecot is not installed";
    World world(path.stores);
    ASSERT_EQ(world.Start(), QString());
    world.CreateFolder(QStringLiteral("Archive"), path.dstSide);
    for (int i = 0; i < 4; ++i)
        world.Write(QString(), {.id = QStringLiteral("bulk%1@undo.test").arg(i), .noMessageId = i == 3,
                                .subject = QStringLiteral("Bulk %1").arg(i), .from = "Bulk <bulk@undo.test>",
                                .keywords = i == 0 ? QStringList{QStringLiteral("$Completed")} : QStringList{},
                                .ageDays = 2},
                    path.srcSide);
    world.Write(QString(), {.id = QStringLiteral("stays@undo.test"), .subject = QStringLiteral("Stays")}, path.srcSide);
    world.HandOver();
    QString error;
    ASSERT_TRUE(world.Import({RuleRow(1, QStringLiteral("Bulk out"), world.Folders(path.srcSide).value("Inbox"),
                                      world.Folders(path.dstSide).value("Archive"),
                                      {{"FromAddress", "bulk@undo.test"}})},
                             &error))
        << error.toStdString();
    const auto before = Places(world, path.stores);

    Result r = world.Run({QStringLiteral("--yes"), QStringLiteral("run")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    ASSERT_EQ(world.Ids(QStringLiteral("Archive"), path.dstSide).size(), 4);

    r = world.Run({QStringLiteral("undo")});
    EXPECT_EQ(r.code, 0) << r.out.toStdString() << r.err.toStdString();
    EXPECT_TRUE(Contains(r, QStringLiteral("4 message(s) moved back"))) << r.out.toStdString();
    EXPECT_EQ(Places(world, path.stores), before);

    r = world.Run({QStringLiteral("undo")});
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(Contains(r, QStringLiteral("0 message(s) moved back, 4 already back"))) << r.out.toStdString();
    EXPECT_EQ(Places(world, path.stores), before);

    r = world.Run({QStringLiteral("history")});
    EXPECT_TRUE(Contains(r, QStringLiteral("command line")) && Contains(r, QStringLiteral("Bulk out 4")) &&
                Contains(r, QStringLiteral("undo of run 1")))
        << r.out.toStdString();
    r = world.Run({QStringLiteral("history"), QStringLiteral("1")});
    EXPECT_TRUE(Contains(r, QStringLiteral("\"Bulk 2\" from bulk@undo.test")) && Contains(r, QStringLiteral("Archive")))
        << r.out.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Paths, UndoTest, ::testing::ValuesIn(kPaths),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Undo, AfterOtherChangesReportsWhatCannotBeTakenBackAndMovesTheRest)
{
    World world({true, false, {}});
    ASSERT_EQ(world.Start(), QString());
    for (const char* f : {"Archive", "Later", "Work", "Done"}) world.CreateFolder(QLatin1String(f));
    for (int i = 0; i < 4; ++i)
        world.Write(QString(), {.id = QStringLiteral("bulk%1@undo.test").arg(i),
                                .subject = i == 2 ? QStringLiteral("onward") : QStringLiteral("Bulk %1").arg(i),
                                .from = "Bulk <bulk@undo.test>"});
    world.Write(QStringLiteral("Work"), {.id = QStringLiteral("work@undo.test"), .subject = QStringLiteral("Work"),
                                         .from = "Work <work@undo.test>"});
    const auto f = world.Folders();
    QString error;
    ASSERT_TRUE(world.Import({RuleRow(1, "Bulk out", f["Inbox"], f["Archive"], {{"FromAddress", "bulk@undo.test"}}),
                              RuleRow(2, "Work done", f["Work"], f["Done"], {{"FromAddress", "work@undo.test"}}),
                              RuleRow(3, "Onward", f["Archive"], f["Later"], {{"Subject", "onward"}}, false)},
                             &error))
        << error.toStdString();
    ASSERT_EQ(world.Run({QStringLiteral("--yes"), QStringLiteral("run")}).code, 0);

    // A later run moves one on, another program deletes one, the folder
    // one came from is deleted.
    ASSERT_EQ(world.Run({QStringLiteral("rules"), QStringLiteral("enable"), QStringLiteral("Onward")}).code, 0);
    ASSERT_EQ(world.Run({QStringLiteral("--yes"), QStringLiteral("run")}).code, 0);
    const QString archive = world.Path(QStringLiteral("Mail/.Archive/cur"));
    for (const QString& name : QDir(archive).entryList(QDir::Files)) {
        QFile file(archive + u'/' + name);
        if (file.open(QIODevice::ReadOnly) && file.readAll().contains("<bulk1@undo.test>")) QFile::remove(file.fileName());
    }
    ASSERT_TRUE(QDir(world.Path(QStringLiteral("Mail/.Work"))).removeRecursively());

    const Result r = world.Run({QStringLiteral("undo"), QStringLiteral("--run"), QStringLiteral("1")});
    EXPECT_EQ(r.code, 1);
    for (const char* expected : {"\"onward\" from bulk@undo.test: moved on since", "\"Bulk 1\" from bulk@undo.test: deleted",
                                 "\"Work\" from work@undo.test: folder gone", "2 message(s) moved back, 0 already back, 3 not"})
        EXPECT_TRUE(Contains(r, QLatin1String(expected))) << expected << "\n" << r.out.toStdString();
    EXPECT_EQ(world.Ids(QString()), (QStringList{"bulk0@undo.test", "bulk3@undo.test"}));
    EXPECT_EQ(world.Ids(QStringLiteral("Later")), QStringList{"bulk2@undo.test"});
    EXPECT_EQ(world.Ids(QStringLiteral("Done")), QStringList{"work@undo.test"});

    // The rule whose folder is gone shows it in its health, and the log
    // says what each run was.
    (void)world.Run({QStringLiteral("--yes"), QStringLiteral("run")});
    const Result rules = world.Run({QStringLiteral("rules")});
    EXPECT_TRUE(Contains(rules, QStringLiteral("last error: source folder not found"))) << rules.out.toStdString();
    EXPECT_TRUE(world.LogText().contains(QStringLiteral("(command line): 5 message(s) moved by 2 rule(s), completed")))
        << world.LogText().toStdString();
    EXPECT_TRUE(world.LogText().contains(QStringLiteral("(undo of run 1): 2 message(s) moved back")))
        << world.LogText().toStdString();
}

}  // namespace
}  // namespace mv::e2e
