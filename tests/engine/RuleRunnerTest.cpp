// The run drivers: which rules each runs, their own errors, missing
// folders, the status form, cancel and the report.

#include "EngineFixture.h"

using namespace mv;
using namespace mv::engine;
using namespace mv::engine::test;

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

// --- one table over the three drivers: the rules each runs, its errors -------

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
    const bool immediate = QLatin1String(c.driver) == "RunImmediateRules";
    const logging::MemoryLogger::Line entry{3, "RunImmediateRules", "Top Entry point"};
    EXPECT_EQ(!m_log.lines().empty() && m_log.lines().front() == entry, immediate);
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

// --- missing folders ----------------------------------------------------------

struct MissingCase {
    const char* name;
    std::vector<int> answers;
    QStringList questions;  // rule name + ":S" / ":D"
    QStringList ran;
    RunEnd end;
};

class MissingFolderTest : public RunnerTest, public ::testing::WithParamInterface<MissingCase> {};

TEST_P(MissingFolderTest, AsksOncePerFolderAndObeys)
{
    const MissingCase& c = GetParam();
    Mail("m");
    InsertRule({.name = "NoSource", .subject = "m", .src = ""});
    InsertRule({.name = "NoDestination", .subject = "m", .dst = ""});
    InsertRule({.name = "Fine", .subject = "m"});
    for (int a : c.answers) m_answerer.Queue(a);

    const RunReport report = m_runner->RunAllRules();
    QStringList expected;
    for (const QString& q : c.questions)
        expected << QStringLiteral("The %1 Folder for rule: %2 can not be found.\r\nContinue procesing rules?")
                        .arg(q.endsWith(":S") ? "Source" : "Destination", q.section(':', 0, 0));
    EXPECT_EQ(m_answerer.texts(), expected);
    for (const auto& box : m_answerer.shown()) {
        EXPECT_EQ(box.style, 52);
        EXPECT_EQ(box.title, "Mailvane");
    }
    EXPECT_EQ(RuleNames(report), c.ran);
    EXPECT_EQ(report.end, c.end);
    m_answerer.clear();
}

INSTANTIATE_TEST_SUITE_P(
    Questions, MissingFolderTest,
    ::testing::Values(
        MissingCase{"YesToBothRunsTheRest", {6, 6}, {"NoSource:S", "NoDestination:D"}, {"Fine"}, RunEnd::Completed},
        MissingCase{"NoStopsAtOnce", {7}, {"NoSource:S"}, {}, RunEnd::UserStopped},
        MissingCase{"NoToTheSecondStopsThere", {6, 7}, {"NoSource:S", "NoDestination:D"}, {}, RunEnd::UserStopped}),
    [](const auto& info) { return std::string(info.param.name); });

// --- status form, report, cancel, stop on a failed rule -----------------------

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

}  // namespace
