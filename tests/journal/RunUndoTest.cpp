#include "MoverFixture.h"
#include "platform/journal/RunUndo.h"

using namespace mv;
using namespace mv::journal;

namespace {

using Fate = RunUndo::Fate;
using test::MemoryStore;

class UndoFixture : public test::MoverTest {
protected:
    // Moves the fixture's batch (m0, m1 with a completed flag cleared; m2)
    // from A's Inbox into the destination as journal run 1.
    qint64 MoveBatch(bool cross)
    {
        const qint64 run = *m_journal->BeginRun(QStringLiteral("RunAllRules"));
        const auto out = m_mover->Move({run, 1, QStringLiteral("Rule")}, m_a, m_a.InboxId(), Dst(cross),
                                       DstFolder(cross), Batch());
        EXPECT_TRUE(out.status.ok()) << out.status.error().message.toStdString();
        EXPECT_EQ(out.Count(MoveState::Moved), 3);
        return run;
    }

    RunUndo::Report Undo(qint64 run)
    {
        const qint64 undoRun = *m_journal->BeginRun(QStringLiteral("Undo"), QString(), run);
        return RunUndo(*m_mover).Undo(run, undoRun);
    }

    // Every message back in the Inbox exactly once, nothing left behind,
    // the cleared completed flags set again.
    void ExpectAllBack(bool cross)
    {
        EXPECT_EQ(m_a.SubjectsIn(m_a.InboxId()), (QStringList{"m0", "m1", "m2"}));
        EXPECT_TRUE(Dst(cross).SubjectsIn(DstFolder(cross)).isEmpty());
        for (const char* s : {"m0", "m1"}) EXPECT_TRUE(Completed(m_a, m_a.InboxId(), QLatin1String(s))) << s;
    }
};

class UndoTest : public UndoFixture, public ::testing::WithParamInterface<bool /*cross*/> {};

TEST_P(UndoTest, PutsEveryMessageBackOnceAndASecondUndoMovesNothing)
{
    const bool cross = GetParam();
    const qint64 run = MoveBatch(cross);
    EXPECT_EQ(*m_journal->LastUndoableRun(), run);
    const RunUndo::Report first = Undo(run);
    EXPECT_TRUE(first.status.ok()) << first.status.error().message.toStdString();
    EXPECT_EQ(first.Count(Fate::MovedBack), 3);
    ExpectAllBack(cross);
    // The undo is journaled as such and is not itself the run to undo next.
    const auto undoRows = *m_journal->UndoRowsOf(run);
    ASSERT_EQ(undoRows.size(), 3u);
    for (const MoveRow& r : undoRows) EXPECT_EQ(r.kind, MoveKind::Undo);
    EXPECT_EQ(*m_journal->LastUndoableRun(), run);

    const RunUndo::Report second = Undo(run);
    EXPECT_EQ(second.Count(Fate::AlreadyBack), 3);
    EXPECT_EQ(second.NotTakenBack(), 0);
    ExpectAllBack(cross);
}

TEST_P(UndoTest, ReportsWhatMovedOnOrWasDeletedAndTakesBackTheRest)
{
    const bool cross = GetParam();
    const qint64 run = MoveBatch(cross);
    MemoryStore& dst = Dst(cross);
    const QByteArray other = dst.FolderIdByPath(QStringLiteral("Trash"));
    auto ids = dst.Query(DstFolder(cross), nullptr, {mapi::PR_ENTRYID, mapi::PR_SUBJECT});
    QHash<QString, QByteArray> byName;
    for (const auto& row : *ids) byName.insert(row[1].toString(), row[0].toByteArray());
    // m0 moved on by a later run (through the journal), m1 deleted by another program.
    const qint64 later = *m_journal->BeginRun(QStringLiteral("RunAllRules"));
    ASSERT_TRUE(m_mover->Move({later, 2, QStringLiteral("Onward")}, dst, DstFolder(cross), dst, other,
                              {{byName.value("m0"), false, "m0", "alice@example.com"}})
                    .status.ok());
    ASSERT_TRUE(dst.Remove({byName.value("m1")}).ok());

    const RunUndo::Report report = Undo(run);
    std::map<QString, Fate> fates;
    for (const auto& i : report.items) fates[i.row.subject] = i.fate;
    EXPECT_EQ(fates, (std::map<QString, Fate>{{"m0", Fate::MovedOn}, {"m1", Fate::Gone}, {"m2", Fate::MovedBack}}));
    EXPECT_EQ(m_a.SubjectsIn(m_a.InboxId()), QStringList{"m2"});
    EXPECT_EQ(dst.SubjectsIn(other), QStringList{"m0"});
}

// A kill at each step of the move back, or (no step) flags that cannot be set
// again; then recovery and a second undo: every message back once, flagged.
class UndoKillTest : public UndoFixture,
                     public ::testing::WithParamInterface<std::tuple<std::optional<StoreMover::Step>, bool>> {};

TEST_P(UndoKillTest, KilledUndoThenRecoveryAndUndoAgainEndsWithEveryMessageBackOnce)
{
    const auto [step, cross] = GetParam();
    const qint64 run = MoveBatch(cross);
    if (step) m_mover->SetInterruption([step = *step](StoreMover::Step at) { return at == step; });
    else m_a.FailNext(MemoryStore::Call::SetFlagStatusMany, 1, Error::temporary(QStringLiteral("flags refused")));
    EXPECT_FALSE(Undo(run).status.ok());
    Reopen();  // the next process
    ASSERT_TRUE(m_mover->Recover().ok());
    const RunUndo::Report again = Undo(run);
    EXPECT_TRUE(again.status.ok()) << again.status.error().message.toStdString();
    EXPECT_EQ(again.NotTakenBack(), 0);
    ExpectAllBack(cross);
}

INSTANTIATE_TEST_SUITE_P(Stores, UndoTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "AcrossStores" : "WithinAStore"; });
INSTANTIATE_TEST_SUITE_P(Steps, UndoKillTest,
                         ::testing::Combine(::testing::Values<std::optional<StoreMover::Step>>(
                                                StoreMover::Step::Intended, StoreMover::Step::FlagsCleared,
                                                StoreMover::Step::Copied, StoreMover::Step::Removed, std::nullopt),
                                            ::testing::Bool()));

}  // namespace
