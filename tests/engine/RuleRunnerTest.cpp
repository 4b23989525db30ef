// The run drivers: which rules each runs, their own errors, missing
// folders, the status form, cancel and the report; rule and whole-run
// preview; runs and the move journal (moves across stores, recovery before
// the first rule, the run lock, a journal that cannot be used, unattended
// runs, cancelling between batches).

#include "EngineFixture.h"

#include "platform/mapi/MapiUtils.h"

using namespace mv;
using namespace mv::engine;
using namespace mv::engine::test;
using journal::MoveState;

namespace {

QStringList RuleNames(const RunReport& report)
{
    QStringList names;
    for (const RuleOutcome& r : report.rules) names << r.ruleName;
    return names;
}

class RunnerTest : public EngineTest {
protected:
    RunReport Drive(const QString& driver)
    {
        if (driver == "Run15MinuteRules") return m_runner->Run15MinuteRules();
        if (driver == "RunImmediateRules") return m_runner->RunImmediateRules();
        return m_runner->RunAllRules();
    }
};

enum class Break { Nothing, Database, Schema, StatusForm, MainForm };

struct DriverCase {
    const char* name;
    const char* driver;
    Break broken;
    QStringList moved;  // without an error
    long number = 0;    // the error, added to kErrBase
    const char* text = "";
};

class DriverTest : public RunnerTest, public ::testing::WithParamInterface<DriverCase> {};

TEST_P(DriverTest, RunsItsWindowsOrReportsUnderItsName)
{
    const DriverCase& c = GetParam();
    for (const char* s : {"any", "quarter", "inactive"}) Mail(s);
    Add("Inbox", {.subject = "three days", .delivered = QDateTime(QDate(2026, 11, 1), QTime(9, 0), Qt::UTC)});
    InsertRule({.name = "Any time", .subject = "any", .msgAge = 13});
    InsertRule({.name = "15 minutes", .subject = "quarter", .msgAge = 14});
    InsertRule({.name = "3 days", .subject = "three days", .msgAge = 15});
    InsertRule({.name = "Switched off", .subject = "inactive", .active = 0});
    m_cancel = true;  // Cancel pressed while no run was going on: forgotten
    switch (c.broken) {
        case Break::Nothing: break;
        case Break::Database: m_dbMissing = true; break;
        case Break::Schema: ASSERT_TRUE(m_db->ExecuteSQL("DROP TABLE MsgAge")); break;
        case Break::StatusForm: m_statusFormMissing = true; break;
        case Break::MainForm: m_mainFormExists = false; break;
    }

    const RunReport report = Drive(c.driver);
    EXPECT_EQ(Subjects("Archive"), Sorted(c.moved));
    EXPECT_EQ(report.TotalMoved(), c.moved.size());
    if (c.broken == Break::Nothing) {
        EXPECT_EQ(report.end, RunEnd::Completed);
        return;
    }
    EXPECT_EQ(report.end, RunEnd::Error);
    EXPECT_EQ(TakeReports(), QStringList{os::ErrorReport::ProcedureErrorText(kErrBase + c.number, c.text,
                                                                            QStringLiteral("OutAddIn.") + c.driver)});
    if (!m_statusCalls.isEmpty()) {
        EXPECT_EQ(m_statusCalls.last(), "hide");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Drivers, DriverTest,
    ::testing::Values(
        DriverCase{"Quarter", "Run15MinuteRules", Break::Nothing, {"any", "quarter"}},
        DriverCase{"Immediate", "RunImmediateRules", Break::Nothing, {"any"}},
        DriverCase{"All", "RunAllRules", Break::Nothing, {"any", "quarter", "three days"}},
        DriverCase{"AllNoDatabase", "RunAllRules", Break::Database, {}, 1000,
                   "Invalid database connection object. Contact Sorquin Support."},
        DriverCase{"AllNoRecordset", "RunAllRules", Break::Schema, {}, 1001,
                   "Failed to create Recordset object. Contact Sorquin Support."},
        DriverCase{"AllNoStatusForm", "RunAllRules", Break::StatusForm, {}, 1002,
                   "Invalid Status Form object. Contact Sorquin Support."},
        DriverCase{"QuarterNoStatusForm", "Run15MinuteRules", Break::StatusForm, {}, 1002,
                   "Failed to create Status Form object. Contact Sorquin Support."},
        DriverCase{"ImmediateNoMainForm", "RunImmediateRules", Break::MainForm, {}, 1000,
                   "Invalid Main Form object. Contact Sorquin Support."},
        DriverCase{"ImmediateNoDatabase", "RunImmediateRules", Break::Database, {}, 1001,
                   "Invalid database connection object. Contact Sorquin Support."},
        DriverCase{"ImmediateNoRecordset", "RunImmediateRules", Break::Schema, {}, 1002,
                   "Failed to create Recordset object 1. Contact Sorquin Support."},
        DriverCase{"ImmediateNoStatusForm", "RunImmediateRules", Break::StatusForm, {}, 1004,
                   "Invalid Status Form object. Contact Sorquin Support."}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(RunnerTest, MissingFolderAsksOncePerFolderAndObeys)
{
    Mail("m");
    InsertRule({.name = "NoSource", .subject = "m", .src = ""});
    InsertRule({.name = "NoDestination", .subject = "m", .dst = ""});
    InsertRule({.name = "Fine", .subject = "m"});
    const struct {
        const char* name;
        std::vector<int> answers;
        QStringList questions;  // rule name + ":S" / ":D"
        QStringList ran;
        RunEnd end;
    } cases[] = {
        {"NoStopsAtOnce", {7}, {"NoSource:S"}, {}, RunEnd::UserStopped},
        {"NoToTheSecondStopsThere", {6, 7}, {"NoSource:S", "NoDestination:D"}, {}, RunEnd::UserStopped},
        {"YesToBothRunsTheRest", {6, 6}, {"NoSource:S", "NoDestination:D"}, {"Fine"}, RunEnd::Completed}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (int a : c.answers) m_answerer.Queue(a);
        const RunReport report = m_runner->RunAllRules();
        QStringList expected;
        for (const QString& q : c.questions)
            expected << QStringLiteral(
                            "The %1 Folder for rule: %2 can not be found.\r\nContinue procesing rules?")
                            .arg(q.endsWith(":S") ? "Source" : "Destination", q.section(':', 0, 0));
        EXPECT_EQ(m_answerer.texts(), expected);
        EXPECT_EQ(RuleNames(report), c.ran);
        EXPECT_EQ(report.end, c.end);
        m_answerer.clear();
    }
}

TEST_F(RunnerTest, StatusFormAndReportFollowTheRun)
{
    Mail("a1");
    Mail("a2");
    InsertRule({.name = "A", .subject = "a"});
    InsertRule({.name = "Nothing", .subject = "zzz"});
    const RunReport report = m_runner->RunAllRules();
    EXPECT_EQ(m_statusCalls, QStringList({"show", "rule:A", "progress:1/2", "rule:Nothing", "progress:2/2", "hide"}));
    EXPECT_EQ(report.Lines(true), QStringList({"A: 2 moved", "  a1", "  a2", "Nothing: 0 moved"}));
    EXPECT_TRUE(m_log.texts().contains("A: 2 moved"));

    // Without status pops no form is asked for (it would be an error).
    Mail("a3");
    m_settings.statusPops = 0;
    m_statusFormMissing = true;
    m_statusCalls.clear();
    EXPECT_EQ(m_runner->RunAllRules().TotalMoved(), 1);
    EXPECT_TRUE(m_statusCalls.isEmpty());
}

// Cancel pressed while the first rule runs is seen once that rule is done;
// a failed rule ends the run at once.
class StopTest : public RunnerTest, public ::testing::WithParamInterface<bool> {};

TEST_P(StopTest, CancelOrAFailedRuleEndsTheRunAfterIt)
{
    const bool cancel = GetParam();
    for (const char* s : {"a", "b", "c"}) {
        Mail(s);
        InsertRule({.name = QString(s).toUpper(), .subject = s});
    }
    if (cancel)
        m_onPump = [this]() { m_cancel = m_cancel || m_statusCalls.endsWith("rule:A"); };
    else
        Store().FailNext(stores::MemoryStore::Call::Query, 1, Error::temporary("server went away"));
    const RunReport report = m_runner->RunAllRules();
    EXPECT_EQ(report.end, cancel ? RunEnd::Cancelled : RunEnd::RuleFailed);
    EXPECT_EQ(RuleNames(report), QStringList{"A"});
    EXPECT_EQ(Subjects("Inbox"), cancel ? Sorted({"b", "c"}) : Sorted({"a", "b", "c"}));
    EXPECT_EQ(m_statusCalls.last(), "hide");
    EXPECT_EQ(TakeReports().size(), cancel ? 0 : 1);
    if (!cancel) {
        EXPECT_EQ(report.Lines(), QStringList{"A: 0 moved (error)"});
    }
}

INSTANTIATE_TEST_SUITE_P(Runs, StopTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Cancel" : "FailedRule"; });

class RecordingPreviewForm : public PreviewForm {
public:
    void SetCaption(const QString&) override {}
    void SetLines(const QStringList& l) override { lines = l; }
    void ShowModal() override { ++shown; }
    QStringList lines;
    int shown = 0;
};

// What the Rules Manager's preview shows is the forms tests' business; here
// the flag it keeps, the pointer, an unknown rule and a missing source.
TEST_F(RunnerTest, OneRuleListsWithoutChanging)
{
    Mail("budget one", true);
    RecordingPreviewForm form, none, gone;
    m_runner->PreviewRule(InsertRule({.subject = "budget"}), form);
    EXPECT_EQ(form.lines, QStringList{"budget one"});
    EXPECT_TRUE(Completed(Store(), "Inbox", "budget one"));
    EXPECT_EQ(m_statusCalls, QStringList({"pointer:11", "pointer:0"}));
    m_runner->PreviewRule(4242, none);
    EXPECT_EQ(none.shown, 0);

    m_runner->PreviewRule(InsertRule({.name = "Gone", .src = ""}), gone);
    EXPECT_EQ(gone.shown, 0);
    EXPECT_EQ(TakeReports(), QStringList{"The Source Folder for rule: Gone can not be found."});
}

// The whole-run preview must list, rule by rule, what RunAllRules then
// moves: a rule sees what earlier rules took away or brought in, and the
// completed flag the first rule clears on the way.
TEST_F(RunnerTest, WholeRunPreviewMatchesTheRun)
{
    Mail("budget annual");
    Mail("budget q3", true);
    Mail("annual party");
    Mail("lunch");
    m_open.insert(mapi::MapiUtils::HrGetHexFromBinary(Mail("budget open")));
    Mail("annual old", false, "Archive");
    InsertRule({.name = "Budget to Archive", .subject = "budget"});
    InsertRule({.name = "Rest to Trash", .dst = "Trash"});
    InsertRule({.name = "Annual from Archive", .subject = "annual", .src = "Archive", .dst = "Drafts"});
    InsertRule({.name = "Completed", .flagStatus = 1, .src = "Archive", .dst = "Trash"});
    InsertRule({.name = "Gone", .src = "", .dst = "Trash"});

    const std::vector<RulePreview> preview = m_runner->PreviewAllRules();
    EXPECT_TRUE(m_answerer.shown().empty()) << "a preview asks nothing";
    QList<QStringList> lists;
    for (const RulePreview& p : preview) lists << Sorted(p.subjects);
    EXPECT_EQ(lists, (QList<QStringList>{{"budget annual", "budget q3"},
                                         {"annual party", "lunch"},
                                         {"annual old", "budget annual"},
                                         {},
                                         {}}));
    EXPECT_FALSE(preview.back().problem.isEmpty());
    EXPECT_EQ(Subjects("Inbox").size(), 5) << "the preview moved something";

    m_answerer.Queue(6);
    const RunReport run = m_runner->RunAllRules();
    m_answerer.clear();
    ASSERT_EQ(run.rules.size(), 4u);
    for (size_t i = 0; i < run.rules.size(); ++i)
        EXPECT_EQ(Sorted(run.rules[i].subjects), Sorted(preview[i].subjects))
            << run.rules[i].ruleName.toStdString();
    EXPECT_EQ(Subjects("Inbox"), QStringList{"budget open"});
    EXPECT_EQ(Subjects("Archive"), QStringList{"budget q3"});
}

// A batch across stores that fails half way: the engine counts what moved,
// the mail left keeps its flag, and the next run takes it.
TEST_F(RunnerTest, CrossStoreRuleMovesThroughTheJournal)
{
    Mail("done", true);
    Mail("plain", true);
    InsertRule({.name = "To the other store", .dstOther = true});
    Other().FailAt(stores::MemoryStore::Call::Append, 2, Error::temporary("connection dropped"));
    const RunReport failed = m_runner->RunAllRules();
    EXPECT_EQ(failed.end, RunEnd::RuleFailed);
    EXPECT_EQ(failed.TotalMoved(), 1);
    EXPECT_EQ(TakeReports().size(), 1);
    EXPECT_EQ(Subjects("Inbox"), QStringList{"plain"});
    EXPECT_TRUE(Completed(Store(), "Inbox", "plain"));
    EXPECT_TRUE(m_journal->Unfinished()->empty());

    const RunReport report = m_runner->RunAllRules();
    EXPECT_EQ(report.end, RunEnd::Completed) << report.error.toStdString();
    EXPECT_TRUE(Subjects("Inbox").isEmpty());
    EXPECT_EQ(Subjects(Other(), "Archive"), Sorted({"done", "plain"}));
    EXPECT_FALSE(Completed(Other(), "Archive", "plain"));
    const auto runs = *m_journal->Runs(5);
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_EQ(runs[0].trigger, "RunAllRules");
    EXPECT_TRUE(runs[0].ended.isValid());
    const auto rows = *m_journal->RowsOfRun(report.journalRun);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].state, MoveState::Moved);
    EXPECT_EQ(rows[0].kind, journal::MoveKind::CrossStore);
    EXPECT_EQ(rows[0].ruleName, "To the other store");
    EXPECT_EQ(rows[0].sender, "alice@example.com");
    EXPECT_TRUE(rows[0].flagCleared);
}

TEST_F(RunnerTest, RunSettlesWhatADeadProcessLeftBeforeItsRules)
{
    const QByteArray id = Mail("done", true);
    // A process died after clearing the flag, before the move.
    m_mover->SetInterruption(
        [](journal::StoreMover::Step s) { return s == journal::StoreMover::Step::FlagsCleared; });
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

TEST_F(RunnerTest, RunThatCannotHaveTheLockDoesNothing)
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
    EXPECT_TRUE(m_log.texts().join(u'\n').contains("Skipped: "));
    EXPECT_EQ(Subjects("Inbox"), QStringList{"a"});
    const Status recovery = m_runner->RecoverMoves();
    ASSERT_FALSE(recovery.ok());
    EXPECT_EQ(recovery.error().kind, ErrorKind::Temporary);
}

TEST_F(RunnerTest, JournalThatCannotBeUsedStopsRunsBeforeAnyMove)
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

TEST_F(RunnerTest, UnattendedRunGoesOnPastMissingFoldersAndFailedRules)
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
    EXPECT_TRUE(m_log.texts().join(u'\n').contains(
        "The Source Folder for rule: NoSource can not be found. (folder 4D564D3146FFFFFFFF of store "));
    EXPECT_TRUE(m_log.texts().join(u'\n').contains("Failing failed; going on with the next rule"));
}

TEST_F(RunnerTest, CancelStopsARuleBetweenBatches)
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
