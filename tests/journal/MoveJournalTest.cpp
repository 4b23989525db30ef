#include "platform/journal/MoveJournal.h"

#include "tests/support/QtPrinters.h"

#include <QFile>

#include <sqlite3.h>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace mv;
using namespace mv::journal;

namespace {

class MoveJournalTest : public ::testing::Test {
protected:
    QString Path() const { return m_dir.filePath(QStringLiteral("moves.db")); }
    std::unique_ptr<MoveJournal> OpenOk()
    {
        auto j = MoveJournal::Open(Path());
        EXPECT_TRUE(j.ok()) << (j ? "" : j.error().message.toStdString());
        return j ? std::move(*j) : nullptr;
    }
    QTemporaryDir m_dir;
};

MoveRow Row(const char* subject)
{
    MoveRow r;
    r.ruleId = 7;
    r.ruleName = QStringLiteral("Archive old");
    r.kind = MoveKind::CrossStore;
    r.srcStore = QByteArray("S\0rc", 4);  // binary, with a NUL
    r.srcFolder = "F1";
    r.srcId = "M1";
    r.dstStore = "D";
    r.dstFolder = "F2";
    r.dstMark = QByteArray("\x00\x00\x00\x05", 4);
    r.fingerprint = {"1700000000.M1P2Q3.host", "<a@b>", 1234, QDateTime(QDate(2026, 11, 1), QTime(8, 0), Qt::UTC)};
    r.flagCleared = true;
    r.subject = QString::fromUtf8(subject);
    r.sender = QStringLiteral("alice@example.com");
    return r;
}

// What the journal keeps of a row it was told to intend.
QStringList Kept(const MoveRow& r)
{
    return {QString::number(r.ruleId), r.ruleName, QString::number(int(r.kind)), r.srcStore.toHex(), r.srcFolder,
            r.srcId, r.dstStore, r.dstFolder, r.dstMark.toHex(), r.fingerprint.uniqueName, r.fingerprint.messageIdHeader,
            QString::number(r.fingerprint.size), r.fingerprint.internalDate.toString(Qt::ISODate),
            r.flagCleared ? "cleared" : "kept", r.subject, r.sender};
}

}  // namespace

TEST_F(MoveJournalTest, IntendedRowsSurviveReopenAndFinishSettlesThem)
{
    qint64 run = 0;
    {
        auto j = OpenOk();
        ASSERT_TRUE(j);
        run = *j->BeginRun(QStringLiteral("RunAllRules"));
        std::vector<MoveRow> rows = {Row("one"), Row("zwei \xc3\xbc")};
        for (MoveRow& r : rows) r.run = run;
        ASSERT_TRUE(j->Intend(rows).ok());
        EXPECT_EQ(rows[0].batch, rows[1].batch);
        EXPECT_NE(rows[0].id, rows[1].id);
    }
    EXPECT_EQ(QFile::permissions(Path()) & ~(QFile::ReadUser | QFile::WriteUser),
              QFile::ReadOwner | QFile::WriteOwner);

    auto j = OpenOk();
    ASSERT_TRUE(j);
    auto open = j->Unfinished();
    ASSERT_TRUE(open.ok());
    ASSERT_EQ(open->size(), 2u);
    EXPECT_EQ(open->at(1).run, run);
    EXPECT_EQ(Kept(open->at(1)), Kept(Row("zwei \xc3\xbc")));

    std::vector<MoveRow> done = *open;
    done[0].state = MoveState::Moved;
    done[0].dstId = "M9";
    done[1].state = MoveState::Vanished;
    ASSERT_TRUE(j->Finish(done).ok());
    ASSERT_TRUE(j->EndRun(run).ok());
    EXPECT_TRUE(j->Unfinished()->empty());
    const auto ofRun = *j->RowsOfRun(run);
    ASSERT_EQ(ofRun.size(), 2u);
    EXPECT_EQ(ofRun[0].dstId, QByteArray("M9"));
    EXPECT_EQ(ofRun[1].state, MoveState::Vanished);
    EXPECT_EQ(j->RowsOfRule(7, QDateTime::currentDateTimeUtc().addSecs(-60))->size(), 2u);

    // Pruning keeps the newest runs however old they are.
    ASSERT_TRUE(j->Prune(QDateTime::currentDateTimeUtc().addDays(400)).ok());
    EXPECT_EQ(j->RowsOfRun(run)->size(), 2u);
}

TEST_F(MoveJournalTest, DamagedFileIsReportedByNameAndKept)
{
    const QByteArray junk = QByteArray("This is not a database.\n").repeated(200);
    {
        QFile f(Path());
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(junk);
    }
    auto j = MoveJournal::Open(Path());
    ASSERT_FALSE(j.ok());
    EXPECT_EQ(j.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(j.error().message.contains(Path())) << j.error().message.toStdString();
    QFile f(Path());
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    EXPECT_EQ(f.readAll(), junk);
}

TEST_F(MoveJournalTest, RunLockExcludesASecondHolderUntilReleased)
{
    auto j = OpenOk();
    ASSERT_TRUE(j);
    auto first = j->LockRuns(std::chrono::milliseconds(0));
    ASSERT_TRUE(first.ok());
    auto second = j->LockRuns(std::chrono::milliseconds(100));
    ASSERT_FALSE(second.ok());
    EXPECT_EQ(second.error().kind, ErrorKind::Temporary);
    first = Error::temporary(QString());  // lets go
    EXPECT_TRUE(j->LockRuns(std::chrono::milliseconds(0)).ok());
}

// A journal of the first schema (no origin, no rule rows) opens upgraded:
// its runs keep their rows, their rule counts come from their moves, and
// new runs record origin and rule outcomes that the health reads.
TEST_F(MoveJournalTest, FirstSchemaIsUpgradedInPlace)
{
    {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(Path().toUtf8().constData(), &db), SQLITE_OK);
        const char* v1 =
            "CREATE TABLE runs(run INTEGER PRIMARY KEY AUTOINCREMENT, started INTEGER NOT NULL, ended INTEGER, "
            "trigger TEXT NOT NULL, pid INTEGER NOT NULL);"
            "CREATE TABLE moves(id INTEGER PRIMARY KEY AUTOINCREMENT, run INTEGER NOT NULL, batch INTEGER NOT NULL, "
            "rule_id INTEGER NOT NULL, rule_name TEXT NOT NULL, kind INTEGER NOT NULL, state INTEGER NOT NULL, "
            "src_store BLOB, src_folder BLOB, src_id BLOB, dst_store BLOB, dst_folder BLOB, dst_id BLOB, dst_mark BLOB, "
            "fp_unique BLOB, fp_message_id BLOB, fp_size INTEGER, fp_date INTEGER, flag_cleared INTEGER NOT NULL, "
            "subject TEXT, sender TEXT, started INTEGER NOT NULL, finished INTEGER, note TEXT, "
            "undo_of INTEGER NOT NULL DEFAULT 0);"
            "INSERT INTO runs VALUES (1, 1764000000000, 1764000001000, 'Run15MinuteRules', 42);"
            "INSERT INTO moves(run, batch, rule_id, rule_name, kind, state, flag_cleared, started, finished) "
            "VALUES (1, 1, 7, 'Archive old', 0, 1, 0, 1764000000000, 1764000000500);"
            "PRAGMA user_version=1;";
        ASSERT_EQ(sqlite3_exec(db, v1, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
        sqlite3_close(db);
    }
    auto j = OpenOk();
    ASSERT_TRUE(j);
    const auto old = *j->RulesOfRun(1);
    ASSERT_EQ(old.size(), 1u);
    EXPECT_EQ(old[0].moved, 1);
    EXPECT_EQ(*j->LastUndoableRun(), 1);

    const qint64 run = *j->BeginRun(QStringLiteral("RunAllRules"), QStringLiteral("on demand"));
    ASSERT_TRUE(j->RecordRules({{run, 7, QStringLiteral("Archive old"), 0, QStringLiteral("source folder not found")},
                                {run, 8, QStringLiteral("Newsletters"), 3, QString()}})
                    .ok());
    EXPECT_EQ((*j->RunOf(run))->origin, QStringLiteral("on demand"));
    const auto health = *j->Health(QDateTime::currentDateTimeUtc().addDays(-7));
    ASSERT_EQ(health.size(), 2u);
    for (const RuleHealth& h : health) {
        EXPECT_EQ(h.lastRun, run);
        EXPECT_EQ(h.lastError.isEmpty(), h.ruleId == 8);
        EXPECT_EQ(h.movedRecently, h.ruleId == 8 ? 3 : 0);
    }
}
