// Runs and the move journal: moves across stores, recovery before the first
// rule, the run lock, a journal that cannot be used, unattended runs and
// cancelling between batches.

#include "EngineFixture.h"

#include "platform/stores/common/FlagMapping.h"
#include "platform/stores/memory/MemoryStore.h"

using namespace mv;
using namespace mv::engine;
using namespace mv::engine::test;
using journal::MoveState;

namespace {

class JournalRunTest : public EngineTest {
protected:
    QByteArray AddMail(const QString& subject, bool completed = false)
    {
        Msg m;
        m.subject = subject;
        if (completed) m.flags.keywords << QStringLiteral("$Completed");
        return Add("Inbox", m);
    }
    int RuleTo(const QString& name, const QString& subject, bool other, QString src = "Inbox")
    {
        RuleDef r;
        r.name = name;
        r.subject = subject;
        r.src = src;
        r.dstOther = other;
        return InsertRule(r);
    }
    bool Completed(mapi::MessageStore& store, const QString& folder, const QString& subject)
    {
        auto& memory = static_cast<stores::MemoryStore&>(store);
        auto rows = store.Query(memory.FolderIdByPath(folder), nullptr, {mapi::PR_ENTRYID, mapi::PR_SUBJECT});
        for (const auto& row : *rows)
            if (row[1].toString() == subject)
                return stores::FlagMapping::HasKeyword(*memory.Flags(row[0].toByteArray()), "$Completed");
        ADD_FAILURE() << "no " << subject.toStdString() << " in " << folder.toStdString();
        return false;
    }
    std::vector<journal::MoveRow> Rows(qint64 run)
    {
        auto rows = m_journal->RowsOfRun(run);
        EXPECT_TRUE(rows.ok());
        return rows ? *rows : std::vector<journal::MoveRow>{};
    }
    bool Logged(const QString& part)
    {
        for (const QString& t : m_log.texts())
            if (t.contains(part)) return true;
        return false;
    }
};

TEST_F(JournalRunTest, CrossStoreRuleMovesThroughTheJournal)
{
    AddMail("done", true);
    AddMail("plain");
    RuleTo("To the other store", "", true);

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
    const auto rows = Rows(runs[0].run);
    ASSERT_EQ(rows.size(), 2u);
    for (const auto& r : rows) {
        EXPECT_EQ(r.state, MoveState::Moved);
        EXPECT_EQ(r.kind, journal::MoveKind::CrossStore);
        EXPECT_EQ(r.ruleName, "To the other store");
        EXPECT_EQ(r.sender, "alice@example.com");
    }
    EXPECT_TRUE(rows[0].flagCleared);
}

TEST_F(JournalRunTest, FailedCrossStoreBatchLeavesTheMailWithItsFlag)
{
    AddMail("done", true);
    AddMail("plain");
    RuleTo("Across", "", true);
    static_cast<stores::MemoryStore&>(Other()).FailAt(stores::MemoryStore::Call::Append, 2,
                                                      Error::temporary("connection dropped"));
    const RuleOutcome run = Execute(1, false);
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.moved, 1);
    EXPECT_EQ(TakeReports().size(), 1);
    EXPECT_EQ(Subjects("Inbox"), QStringList{"plain"});
    EXPECT_EQ(Subjects(Other(), "Archive"), QStringList{"done"});
    EXPECT_TRUE(m_journal->Unfinished()->empty());
}

TEST_F(JournalRunTest, RunSettlesWhatADeadProcessLeftBeforeItsRules)
{
    const QByteArray id = AddMail("done", true);
    // A process died after clearing the flag, before the move.
    m_mover->SetInterruption([](journal::StoreMover::Step s) { return s == journal::StoreMover::Step::FlagsCleared; });
    auto& memory = static_cast<stores::MemoryStore&>(Store());
    (void)m_mover->Move({0, 9, "Old"}, Store(), memory.InboxId(), Store(), memory.FolderIdByPath("Archive"),
                        {{id, true, "done", {}}});
    m_mover->SetInterruption({});
    ASSERT_EQ(m_journal->Unfinished()->size(), 1u);
    // The rule takes completed mail only: it finds the message only once the
    // flag is back.
    RuleDef def;
    def.flagStatus = 1;
    InsertRule(def);

    const RunReport report = m_runner->RunAllRules();
    EXPECT_EQ(report.TotalMoved(), 1);
    EXPECT_EQ(Subjects("Archive"), QStringList{"done"});
    EXPECT_TRUE(Subjects("Inbox").isEmpty());
    EXPECT_EQ(Rows(0).at(0).state, MoveState::RolledBack);
    EXPECT_EQ(Rows(report.journalRun).at(0).state, MoveState::Moved);
}

TEST_F(JournalRunTest, RunThatCannotHaveTheLockDoesNothing)
{
    AddMail("a");
    RuleTo("A", "", false);
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
    AddMail("a");
    RuleTo("A", "", false);
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
    AddMail("m");
    RuleTo("NoSource", "m", false, "");
    RuleTo("Failing", "m", false);
    RuleTo("Fine", "m", false);
    static_cast<stores::MemoryStore&>(Store()).FailNext(stores::MemoryStore::Call::Query, 1,
                                                        Error::temporary("server went away"));
    m_runner->SetOptions({true});

    const RunReport report = m_runner->RunAllRules();
    EXPECT_EQ(report.end, RunEnd::RuleFailed);
    ASSERT_EQ(report.rules.size(), 2u);
    EXPECT_EQ(report.rules[1].ruleName, "Fine");
    EXPECT_EQ(Subjects("Archive"), QStringList{"m"});
    EXPECT_EQ(TakeReports().size(), 1);  // the failed rule's error; no question
    EXPECT_TRUE(Logged("The Source Folder for rule: NoSource can not be found. (folder 4D564D3146FFFFFFFF of store "));
    EXPECT_TRUE(Logged("going on with the next rule"));
    EXPECT_TRUE(Logged("Failing failed; going on with the next rule"));
}

TEST_F(JournalRunTest, CancelStopsARuleBetweenBatches)
{
    for (int i = 0; i < 5; ++i) AddMail(QStringLiteral("m%1").arg(i), true);
    const int id = RuleTo("Big", "", false);
    ExecuteOptions o;
    o.batchLimit = 2;
    int pauses = 0;
    o.betweenBatches = [&] { return ++pauses == 1; };
    const RuleOutcome run = Execute(id, false, o);
    EXPECT_EQ(run.result, kResultGoOn);
    EXPECT_TRUE(run.cancelled);
    EXPECT_EQ(run.moved, 2);
    EXPECT_EQ(Subjects("Inbox").size(), 3);
    for (const QString& s : Subjects("Inbox")) EXPECT_TRUE(Completed(Store(), "Inbox", s)) << s.toStdString();
    EXPECT_TRUE(m_journal->Unfinished()->empty());
}

}  // namespace
