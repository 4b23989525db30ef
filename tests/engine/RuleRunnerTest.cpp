#include "EngineFixture.h"

#include "platform/mapi/MapiUtils.h"
#include "platform/stores/memory/MemoryStore.h"

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

QString MissingQuestion(const QString& rule, bool source)
{
    return QStringLiteral("The %1 Folder for rule: %2 can not be found.\r\nContinue procesing rules?")
        .arg(source ? "Source" : "Destination", rule);
}

class RunnerTest : public EngineTest {
protected:
    void AddMail(const QString& subject, QDateTime delivered = {})
    {
        Msg m;
        m.subject = subject;
        m.delivered = delivered;
        Add("Inbox", m);
    }
    int Rule(const QString& name, const QString& subject, int msgAge = 13, QString src = "Inbox",
             QString dst = "Archive", int active = -1)
    {
        RuleDef r;
        r.name = name;
        r.subject = subject;
        r.msgAge = msgAge;
        r.src = src;
        r.dst = dst;
        r.active = active;
        return InsertRule(r);
    }
    RunReport Drive(const QString& driver)
    {
        if (driver == "Run15MinuteRules") return m_runner->Run15MinuteRules();
        if (driver == "RunImmediateRules") return m_runner->RunImmediateRules();
        return m_runner->RunAllRules();
    }
};

// --- which rules each driver runs ---------------------------------------------

struct SelectionCase {
    const char* driver;
    QStringList moved;
};

class SelectionTest : public RunnerTest, public ::testing::WithParamInterface<SelectionCase> {};

TEST_P(SelectionTest, DriverRunsItsWindowsOnly)
{
    AddMail("any", {});
    AddMail("quarter", {});
    AddMail("three days", QDateTime(QDate(2026, 11, 1), QTime(9, 0), Qt::UTC));
    AddMail("inactive", {});
    Rule("Any time", "any", 13);
    Rule("15 minutes", "quarter", 14);
    Rule("3 days", "three days", 15);
    Rule("Switched off", "inactive", 13, "Inbox", "Archive", 0);

    const RunReport report = Drive(GetParam().driver);
    EXPECT_EQ(report.end, RunEnd::Completed);
    EXPECT_EQ(Subjects("Archive"), Sorted(GetParam().moved));
    EXPECT_EQ(report.TotalMoved(), GetParam().moved.size());
}

INSTANTIATE_TEST_SUITE_P(Drivers, SelectionTest,
                         ::testing::Values(SelectionCase{"Run15MinuteRules", {"any", "quarter"}},
                                           SelectionCase{"RunImmediateRules", {"any"}},
                                           SelectionCase{"RunAllRules", {"any", "quarter", "three days"}}),
                         [](const auto& info) { return std::string(info.param.driver); });

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
    AddMail("m");
    Rule("NoSource", "m", 13, "", "Archive");
    Rule("NoDestination", "m", 13, "Inbox", "");
    Rule("Fine", "m", 13);
    for (int a : c.answers) m_answerer.Queue(a);

    const RunReport report = m_runner->RunAllRules();
    QStringList expected;
    for (const QString& q : c.questions)
        expected << MissingQuestion(q.section(':', 0, 0), q.section(':', 1) == "S");
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

// --- status form, cancel, stop on a failed rule --------------------------------

TEST_F(RunnerTest, StatusFormFollowsTheRun)
{
    AddMail("a");
    AddMail("b");
    Rule("A", "a");
    Rule("B", "b");
    m_runner->RunAllRules();
    EXPECT_EQ(m_statusCalls, QStringList({"show", "rule:A", "progress:1/2", "rule:B", "progress:2/2", "hide"}));
}

TEST_F(RunnerTest, WithoutStatusPopsNoFormAndTheSameMoves)
{
    AddMail("a");
    Rule("A", "a");
    m_settings.statusPops = 0;
    m_statusFormMissing = true;  // would be an error if it were asked for
    const RunReport report = m_runner->RunAllRules();
    EXPECT_TRUE(m_statusCalls.isEmpty());
    EXPECT_EQ(report.TotalMoved(), 1);
}

TEST_F(RunnerTest, CancelStopsAfterTheRunningRule)
{
    for (const char* s : {"a", "b", "c"}) AddMail(s);
    Rule("A", "a");
    Rule("B", "b");
    Rule("C", "c");
    // The user presses Cancel while the first rule runs: the flag is seen
    // once that rule is done.
    m_onPump = [this]() {
        if (m_statusCalls.endsWith("rule:A")) m_cancel = true;
    };
    const RunReport report = m_runner->RunAllRules();
    EXPECT_EQ(report.end, RunEnd::Cancelled);
    EXPECT_EQ(RuleNames(report), QStringList{"A"});
    EXPECT_EQ(Subjects("Inbox"), Sorted({"b", "c"}));
    EXPECT_EQ(m_statusCalls.last(), "hide");
}

TEST_F(RunnerTest, FailedRuleEndsTheRun)
{
    AddMail("a");
    AddMail("b");
    Rule("A", "a");
    Rule("B", "b");
    static_cast<stores::MemoryStore&>(Store()).FailNext(stores::MemoryStore::Call::Query, 1,
                                                        Error::temporary("server went away"));
    const RunReport report = m_runner->RunAllRules();
    EXPECT_EQ(report.end, RunEnd::RuleFailed);
    EXPECT_EQ(RuleNames(report), QStringList{"A"});
    EXPECT_EQ(TakeReports().size(), 1);
    EXPECT_EQ(report.Lines(), QStringList{"A: 0 moved (error)"});
    EXPECT_EQ(Subjects("Inbox"), Sorted({"a", "b"}));
}

TEST_F(RunnerTest, ReportSaysWhatMovedAndTheLogRecordsIt)
{
    AddMail("a1");
    AddMail("a2");
    Rule("A", "a");
    Rule("Nothing", "zzz");
    const RunReport report = m_runner->RunAllRules();
    EXPECT_EQ(report.Lines(true), QStringList({"A: 2 moved", "  a1", "  a2", "Nothing: 0 moved"}));
    EXPECT_TRUE(m_log.texts().contains("A: 2 moved"));
}

TEST_F(RunnerTest, ImmediateRunLogsItsEntryAndClearsAStaleCancel)
{
    AddMail("a");
    Rule("A", "a");
    m_cancel = true;  // Cancel pressed while no run was going on
    EXPECT_EQ(m_runner->RunImmediateRules().end, RunEnd::Completed);
    EXPECT_EQ(Subjects("Archive"), QStringList{"a"});
    ASSERT_FALSE(m_log.lines().empty());
    EXPECT_EQ(m_log.lines().front(), (logging::MemoryLogger::Line{3, "RunImmediateRules", "Top Entry point"}));
}

// --- the drivers' own errors ---------------------------------------------------

struct DriverErrorCase {
    const char* name;
    const char* driver;
    std::function<void(RunnerTest&)> arrange;
    long number;
    const char* text;
};

class DriverErrorTest : public RunnerTest, public ::testing::WithParamInterface<DriverErrorCase> {
public:
    void NoDatabase() { m_dbMissing = true; }
    void NoStatusForm() { m_statusFormMissing = true; }
    void NoMainForm() { m_mainFormExists = false; }
    void BreakSchema() { ASSERT_TRUE(m_db->ExecuteSQL("DROP TABLE MsgAge")); }
};

TEST_P(DriverErrorTest, ReportedUnderTheDriversName)
{
    const DriverErrorCase& c = GetParam();
    AddMail("a");
    Rule("A", "a");
    c.arrange(*this);
    const RunReport report = Drive(c.driver);
    EXPECT_EQ(report.end, RunEnd::Error);
    const QString expected = os::ErrorReport::ProcedureErrorText(kErrBase + c.number, c.text,
                                                                 QStringLiteral("OutAddIn.") + c.driver);
    EXPECT_EQ(TakeReports(), QStringList{expected});
    EXPECT_EQ(Subjects("Inbox"), QStringList{"a"});
    if (!m_statusCalls.isEmpty()) {
        EXPECT_EQ(m_statusCalls.last(), "hide");
    }
}

#define DB_ERR [](RunnerTest& t) { static_cast<DriverErrorTest&>(t).NoDatabase(); }
#define FORM_ERR [](RunnerTest& t) { static_cast<DriverErrorTest&>(t).NoStatusForm(); }
#define MAIN_ERR [](RunnerTest& t) { static_cast<DriverErrorTest&>(t).NoMainForm(); }
#define RS_ERR [](RunnerTest& t) { static_cast<DriverErrorTest&>(t).BreakSchema(); }

INSTANTIATE_TEST_SUITE_P(
    Errors, DriverErrorTest,
    ::testing::Values(
        DriverErrorCase{"AllNoDatabase", "RunAllRules", DB_ERR, 1000,
                        "Invalid database connection object. Contact Sorquin Support."},
        DriverErrorCase{"AllNoRecordset", "RunAllRules", RS_ERR, 1001,
                        "Failed to create Recordset object. Contact Sorquin Support."},
        DriverErrorCase{"AllNoStatusForm", "RunAllRules", FORM_ERR, 1002,
                        "Invalid Status Form object. Contact Sorquin Support."},
        DriverErrorCase{"QuarterNoStatusForm", "Run15MinuteRules", FORM_ERR, 1002,
                        "Failed to create Status Form object. Contact Sorquin Support."},
        DriverErrorCase{"ImmediateNoMainForm", "RunImmediateRules", MAIN_ERR, 1000,
                        "Invalid Main Form object. Contact Sorquin Support."},
        DriverErrorCase{"ImmediateNoDatabase", "RunImmediateRules", DB_ERR, 1001,
                        "Invalid database connection object. Contact Sorquin Support."},
        DriverErrorCase{"ImmediateNoRecordset", "RunImmediateRules", RS_ERR, 1002,
                        "Failed to create Recordset object 1. Contact Sorquin Support."},
        DriverErrorCase{"ImmediateNoStatusForm", "RunImmediateRules", FORM_ERR, 1004,
                        "Invalid Status Form object. Contact Sorquin Support."}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
