// One rule's execution on a real rule database: age windows, the kinds of
// item a rule moves, flags, open items, batching and failures.

#include "EngineFixture.h"

#include "platform/mapi/MapiUtils.h"
#include "platform/outlook/SafeLib.h"

using namespace mv;
using namespace mv::engine;
using namespace mv::engine::test;
using Call = stores::MemoryStore::Call;

namespace {

QDateTime Utc(int d, int h, int mi = 0, int s = 0) { return QDateTime(QDate(2026, 11, d), QTime(h, mi, s), Qt::UTC); }

// The Inbox the criteria run on ("now" is 14 November 10:00 UTC): a delivery
// report and a meeting request are movable items too. Each rule column on
// its own is run end to end by the e2e suite; what stays here is the age
// window against the alignment setting and an empty subject's name.
std::vector<Msg> Corpus()
{
    return {
        {.subject = "Budget draft", .delivered = Utc(13, 23, 59, 58)},
        {.subject = "", .delivered = Utc(14, 9, 30)},
        {.subject = "Undeliverable: Budget", .from = "Mail Delivery System <postmaster@example.com>",
         .delivered = Utc(12, 12), .contentType = "multipart/report; report-type=delivery-status; boundary=\"b1\"",
         .rawBody = "--b1\r\nContent-Type: text/plain\r\n\r\nDelivery failed.\r\n"
                    "--b1\r\nContent-Type: message/delivery-status\r\n\r\nReporting-MTA: dns; example.com\r\n\r\n"
                    "Final-Recipient: rfc822; x@example.org\r\nAction: failed\r\nStatus: 5.1.1\r\n\r\n--b1--\r\n"},
        {.subject = "Budget review meeting", .delivered = Utc(14, 7),
         .contentType = "text/calendar; method=REQUEST; charset=utf-8",
         .rawBody = "BEGIN:VCALENDAR\r\nMETHOD:REQUEST\r\nBEGIN:VEVENT\r\nSUMMARY:Budget review\r\n"
                    "END:VEVENT\r\nEND:VCALENDAR\r\n"},
    };
}

struct CriteriaCase {
    const char* name;
    RuleDef rule;
    bool align;
    QStringList expected;
};

const CriteriaCase kCriteria[] = {
    {"NoCriterionTakesEveryMovableItem", {}, true,
     {"Budget draft", "[none]", "Undeliverable: Budget", "Budget review meeting"}},
    {"OneDayAlignedToEndOfYesterday", {.msgAge = 5}, true, {"Budget draft", "Undeliverable: Budget"}},
    {"OneDayUnaligned", {.msgAge = 5}, false, {"Undeliverable: Budget"}},
};

class CriteriaTest : public EngineTest, public ::testing::WithParamInterface<CriteriaCase> {};

}  // namespace

TEST_P(CriteriaTest, PreviewListsAndRunMovesExactlyTheMatchingItems)
{
    const CriteriaCase& c = GetParam();
    for (const Msg& m : Corpus()) Add("Inbox", m);
    m_settings.alignTime = c.align ? 1 : 0;
    const int id = InsertRule(c.rule);

    const RuleOutcome preview = Execute(id, true);
    EXPECT_EQ(preview.result, kResultGoOn);
    EXPECT_EQ(Subjects("Inbox").size(), Corpus().size()) << "preview moved something";

    const RuleOutcome run = Execute(id, false);
    EXPECT_EQ(run.result, kResultGoOn);
    QStringList moved = run.subjects;
    moved.replaceInStrings(QString::fromLatin1(kEmptySubject), QStringLiteral("[none]"));
    EXPECT_EQ(Sorted(moved), Sorted(c.expected));
    EXPECT_EQ(Subjects("Archive"), Sorted(c.expected));
    EXPECT_EQ(Sorted(preview.subjects), Sorted(run.subjects)) << "preview and run disagree";
    EXPECT_EQ(run.moved, c.expected.size());
}

INSTANTIATE_TEST_SUITE_P(Criteria, CriteriaTest, ::testing::ValuesIn(kCriteria),
                         [](const auto& info) { return std::string(info.param.name); });

class RowLoopTest : public EngineTest, public ::testing::WithParamInterface<bool> {};

TEST_P(RowLoopTest, FlagsClearedOpenItemsLeftMissingDestinationSkipped)
{
    ExecuteOptions o;
    o.batchMoves = GetParam();
    Mail("done", true);
    m_open.insert(mapi::MapiUtils::HrGetHexFromBinary(Mail("open one")));
    Mail("closed one");

    // The Rules Manager's preview lists the open item; the run leaves it.
    const int id = InsertRule({});
    EXPECT_EQ(Sorted(Execute(id, true, o).subjects), Sorted({"done", "open one", "closed one"}));
    EXPECT_TRUE(Completed(Store(), "Inbox", "done")) << "a preview clears no flag";
    const int queries = Store().CallCount(Call::Query);
    const RuleOutcome run = Execute(id, false, o);
    EXPECT_EQ(run.moved, 2);
    EXPECT_EQ(run.skippedOpen, 1);
    // What a rule costs a store does not grow with what it moves: one query,
    // items opened from their rows, one move for the batch.
    EXPECT_EQ(Store().CallCount(Call::Query) - queries, 1);
    EXPECT_EQ(Store().CallCount(Call::Item), 0);
    EXPECT_EQ(Store().CallCount(o.batchMoves ? Call::MoveMany : Call::Move), o.batchMoves ? 1 : 2);
    EXPECT_EQ(run.flagsCleared, 1);
    EXPECT_FALSE(Completed(Store(), "Archive", "done"));
    EXPECT_EQ(Subjects("Inbox"), QStringList{"open one"});

    m_open.clear();
    const RuleOutcome nowhere = Execute(InsertRule({.dst = ""}), false, o);
    EXPECT_EQ(nowhere.result, kResultGoOn);
    EXPECT_EQ(nowhere.skippedNoDestination, 1);
    EXPECT_EQ(Execute(id, false, o).moved, 1);
    EXPECT_EQ(Subjects("Archive"), Sorted({"done", "open one", "closed one"}));
}

INSTANTIATE_TEST_SUITE_P(Moves, RowLoopTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Batched" : "OneByOne"; });

struct InjectionCase {
    const char* name;
    Call call;
    bool batched;
    bool itemsFromRows = true;
};

class FailureTest : public EngineTest, public ::testing::WithParamInterface<InjectionCase> {};

TEST_P(FailureTest, PlatformFailureEndsTheRuleWithResultZeroAndGivesFlagsBack)
{
    const InjectionCase& c = GetParam();
    Mail("one", true);
    Mail("two", true);
    const int id = InsertRule({});
    Store().FailNext(c.call, 1, Error::temporary("connection dropped"));

    ExecuteOptions o;
    o.batchMoves = c.batched;
    o.itemsFromRows = c.itemsFromRows;
    const RuleOutcome run = Execute(id, false, o);
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.moved, 0);
    EXPECT_TRUE(run.error.endsWith(") in procedure ExecuteRule")) << run.error.toStdString();
    EXPECT_EQ(TakeReports(), QStringList{run.error});
    EXPECT_EQ(Subjects("Inbox"), Sorted({"one", "two"}));
    for (const char* s : {"one", "two"}) EXPECT_TRUE(Completed(Store(), "Inbox", s)) << s;

    // The rows left behind are taken by the next run.
    EXPECT_EQ(Execute(id, false, o).result, kResultGoOn);
    EXPECT_EQ(Subjects("Archive"), Sorted({"one", "two"}));
}

INSTANTIATE_TEST_SUITE_P(Injection, FailureTest,
                         ::testing::Values(InjectionCase{"QueryFails", Call::Query, true},
                                           InjectionCase{"ItemFetchFails", Call::Item, true, false},
                                           InjectionCase{"OneByOneSaveFails", Call::SetFlagStatus, false},
                                           InjectionCase{"SaveFails", Call::SetFlagStatus, true},
                                           InjectionCase{"MoveFails", Call::Move, false},
                                           InjectionCase{"BatchMoveFails", Call::MoveMany, true}),
                         [](const auto& info) { return std::string(info.param.name); });

// Mid-run, at the second row's open-item test: the connection drops before
// the third item is fetched (the rows before it stay moved, as moving one by
// one would have left them), or another program takes the second message
// (the rest of the batch moves and nothing is reported).
struct MidRunCase {
    const char* name;
    bool fetchFails;
    int result, moved, vanished;
    QStringList left;
};

class MidRunTest : public EngineTest, public ::testing::WithParamInterface<MidRunCase> {};

TEST_P(MidRunTest, EarlierRowsStayMoved)
{
    const MidRunCase& c = GetParam();
    QByteArray ids[4];
    for (int i = 0; i < 4; ++i) ids[i] = Mail(QStringLiteral("m%1").arg(i), i == 3);
    int rows = 0;
    m_exec->SetOpenItemTest([&](const QString&) {
        if (++rows == 2 && c.fetchFails) Store().FailNext(Call::Item, 1, Error::temporary("gone"));
        if (rows == 2 && !c.fetchFails) {
            EXPECT_TRUE(Store().Remove({ids[1]}).ok());
        }
        return false;
    });
    ExecuteOptions o;
    o.itemsFromRows = !c.fetchFails;
    const RuleOutcome run = Execute(InsertRule({}), false, o);
    EXPECT_EQ(run.result, c.result) << run.error.toStdString();
    EXPECT_EQ(run.moved, c.moved);
    EXPECT_EQ(run.vanished, c.vanished);
    EXPECT_EQ(Subjects("Inbox"), c.left);
    EXPECT_EQ(TakeReports().size(), c.fetchFails ? 1 : 0);
    EXPECT_EQ(Subjects("Archive").size(), c.moved);
}

INSTANTIATE_TEST_SUITE_P(Rows, MidRunTest,
                         ::testing::Values(MidRunCase{"ItemFetchFails", true, 0, 2, 0, {"m2", "m3"}},
                                           MidRunCase{"MessageGone", false, kResultGoOn, 3, 1, {}}),
                         [](const auto& info) { return std::string(info.param.name); });

// Each rule fails before it reads a row: reported, result 0, nothing moved.
TEST_F(EngineTest, SetUpErrorsAreReportedAndResultStaysZero)
{
    Mail("x");
    ASSERT_TRUE(m_db->ExecuteSQL("INSERT INTO MsgAge VALUES (30, 'q2', -1)"));
    const struct {
        const char* name;
        RuleDef rule;
        QString expected;  // empty: any one report
    } cases[] = {
        {"SourceFolderGone",
         {.src = ""},
         "Error -2147220504 (Failed to create Folder object. Contact Sorquin Support.) in procedure "
         "ExecuteRule"},
        // An unknown interval letter is an error, not a match-all.
        {"UnknownIntervalLetter", {.msgAge = 30}, {}},
        {"NoTableComponent",
         {},
         "Error -2147220503 (Failed to create Table object. Contact Sorquin Support.) in procedure "
         "ExecuteRule"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.expected.contains("Table")) m_progIds.Unregister(outlook::kMapiTableProgId);
        bool preview = false;
        std::int16_t result = 99;
        m_exec->ExecuteRule(*RuleRow(InsertRule(c.rule)), preview, result);
        EXPECT_EQ(result, 0);
        const QStringList reports = TakeReports();
        ASSERT_EQ(reports.size(), 1);
        EXPECT_TRUE(c.expected.isEmpty() || reports[0] == c.expected) << reports[0].toStdString();
        EXPECT_EQ(Subjects("Inbox"), QStringList{"x"});
    }
}
