// Runs and the move journal: moves across stores, recovery before the first
// rule, the run lock, a journal that cannot be used, unattended runs and
// cancelling between batches.

#include "EngineFixture.h"

using namespace mv;
using namespace mv::engine;
using namespace mv::engine::test;
using journal::MoveState;

namespace {

class JournalRunTest : public EngineTest {
protected:
    bool Logged(const QString& part)
    {
        for (const QString& t : m_log.texts())
            if (t.contains(part)) return true;
        return false;
    }
};

TEST_F(JournalRunTest, CrossStoreRuleMovesThroughTheJournal)
{
    Mail("done", true);
    Mail("plain");
    InsertRule({.name = "To the other store", .dstOther = true});

    const RunReport report = m_runner->RunAllRules();
    EXPECT_EQ(report.end, RunEnd::Completed) << report.error.toStdString();
    EXPECT_EQ(report.TotalMoved(), 2);
    EXPECT_TRUE(Subjects("Inbox").isEmpty());
    EXPECT_EQ(Subjects(Other(), "Archive"), Sorted({"done", "plain"}));
    EXPECT_FALSE(Completed(Other(), "Archive", "done"));

    const auto runs = *m_journal->Runs(5);
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].trigger, "RunAllRules");
    EXPECT_TRUE(runs[0].ended.isValid());
    const auto rows = *m_journal->RowsOfRun(runs[0].run);
    ASSERT_EQ(rows.size(), 2u);
    for (const auto& r : rows) {
        EXPECT_EQ(r.state, MoveState::Moved);
        EXPECT_EQ(r.kind, journal::MoveKind::CrossStore);
        EXPECT_EQ(r.ruleName, "To the other store");
        EXPECT_EQ(r.sender, "alice@example.com");
    }
    EXPECT_TRUE(rows[0].flagCleared);
}

// A batch across stores that fails half way: the engine counts what moved.
TEST_F(JournalRunTest, FailedCrossStoreBatchLeavesTheMailWithItsFlag)
{
    Mail("done", true);
    Mail("plain");
    const int id = InsertRule({.dstOther = true});
    Other().FailAt(stores::MemoryStore::Call::Append, 2, Error::temporary("connection dropped"));
    const RuleOutcome run = Execute(id, false);
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.moved, 1);
    EXPECT_EQ(TakeReports().size(), 1);
    EXPECT_EQ(Subjects("Inbox"), QStringList{"plain"});
    EXPECT_EQ(Subjects(Other(), "Archive"), QStringList{"done"});
    EXPECT_TRUE(m_journal->Unfinished()->empty());
}

TEST_F(JournalRunTest, RunSettlesWhatADeadProcessLeftBeforeItsRules)
{
    const QByteArray id = Mail("done", true);
    // A process died after clearing the flag, before the move.
    m_mover->SetInterruption([](journal::StoreMover::Step s) { return s == journal::StoreMover::Step::FlagsCleared; });
    (void)m_mover->Move({0, 9, "Old"}, Store(), Store().InboxId(), Store(), Store().FolderIdByPath("Archive"),
                        {{id, true, "done", {}}});
    m_mover->SetInterruption({});
    ASSERT_EQ(m_journal->Unfinished()->size(), 1u);
    // The rule takes completed mail only: it finds the message only once the
    // flag is back.
    InsertRule({.flagStatus = 1});

    const RunReport report = m_runner->RunAllRules();
    EXPECT_EQ(report.TotalMoved(), 1);
    EXPECT_EQ(Subjects("Archive"), QStringList{"done"});
    EXPECT_TRUE(Subjects("Inbox").isEmpty());
    EXPECT_EQ(m_journal->RowsOfRun(0)->at(0).state, MoveState::RolledBack);
    EXPECT_EQ(m_journal->RowsOfRun(report.journalRun)->at(0).state, MoveState::Moved);
}

TEST_F(JournalRunTest, RunThatCannotHaveTheLockDoesNothing)
{
    Mail("a");
    InsertRule({});
    auto held = m_journal->LockRuns(std::chrono::milliseconds(0));  // another process's run
    ASSERT_TRUE(held.ok());
    m_runner->SetOptions({false, std::chrono::milliseconds(0)});

    const RunReport report = m_runner->RunAllRules();
    EXPECT_TRUE(report.busy);
    EXPECT_EQ(report.end, RunEnd::Error);
    EXPECT_TRUE(report.error.contains("moves.db.lock")) << report.error.toStdString();
    EXPECT_TRUE(TakeReports().isEmpty());
    EXPECT_TRUE(Logged("Skipped: "));
    EXPECT_EQ(Subjects("Inbox"), QStringList{"a"});
    const Status recovery = m_runner->RecoverMoves();
    ASSERT_FALSE(recovery.ok());
    EXPECT_EQ(recovery.error().kind, ErrorKind::Temporary);
}

TEST_F(JournalRunTest, JournalThatCannotBeUsedStopsRunsBeforeAnyMove)
{
    Mail("a");
    InsertRule({});
    m_exec->SetMoverError(Error::permanent("the move journal /data/moves.db is damaged"));
    const RunReport report = m_runner->RunAllRules();
    EXPECT_EQ(report.end, RunEnd::Error);
    EXPECT_TRUE(report.rules.empty());
    const QStringList reports = TakeReports();
    ASSERT_EQ(reports.size(), 1);
    EXPECT_TRUE(reports[0].contains("/data/moves.db")) << reports[0].toStdString();
    EXPECT_EQ(Subjects("Inbox"), QStringList{"a"});
}

TEST_F(JournalRunTest, UnattendedRunGoesOnPastMissingFoldersAndFailedRules)
{
    Mail("m");
    InsertRule({.name = "NoSource", .subject = "m", .src = ""});
    InsertRule({.name = "Failing", .subject = "m"});
    InsertRule({.name = "Fine", .subject = "m"});
    Store().FailNext(stores::MemoryStore::Call::Query, 1, Error::temporary("server went away"));
    m_runner->SetOptions({true});

    const RunReport report = m_runner->RunAllRules();
    EXPECT_EQ(report.end, RunEnd::RuleFailed);
    ASSERT_EQ(report.rules.size(), 2u);
    EXPECT_EQ(report.rules[1].ruleName, "Fine");
    EXPECT_EQ(Subjects("Archive"), QStringList{"m"});
    EXPECT_EQ(TakeReports().size(), 1);  // the failed rule's error; no question
    EXPECT_TRUE(Logged("The Source Folder for rule: NoSource can not be found. (folder 4D564D3146FFFFFFFF of store "));
    EXPECT_TRUE(Logged("Failing failed; going on with the next rule"));
}

TEST_F(JournalRunTest, CancelStopsARuleBetweenBatches)
{
    for (int i = 0; i < 5; ++i) Mail(QStringLiteral("m%1").arg(i), true);
    ExecuteOptions o;
    o.batchLimit = 2;
    int pauses = 0;
    o.betweenBatches = [&] { return ++pauses == 1; };
    const RuleOutcome run = Execute(InsertRule({}), false, o);
    EXPECT_EQ(run.result, kResultGoOn);
    EXPECT_TRUE(run.cancelled);
    EXPECT_EQ(run.moved, 2);
    EXPECT_EQ(Subjects("Inbox").size(), 3);
    for (const QString& s : Subjects("Inbox")) EXPECT_TRUE(Completed(Store(), "Inbox", s)) << s.toStdString();
    EXPECT_TRUE(m_journal->Unfinished()->empty());
}

}  // namespace
