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
    const RuleOutcome again = Execute(id, false);  // nothing is left that the rule still matches
    EXPECT_EQ(again.result, kResultGoOn);
    EXPECT_EQ(again.moved, 0);
}

INSTANTIATE_TEST_SUITE_P(Criteria, CriteriaTest, ::testing::ValuesIn(kCriteria),
                         [](const auto& info) { return std::string(info.param.name); });

// --- flags, open items, batching -------------------------------------------

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
    const RuleOutcome run = Execute(id, false, o);
    EXPECT_EQ(run.moved, 2);
    EXPECT_EQ(run.skippedOpen, 1);
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

// --- failures ---------------------------------------------------------------

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

TEST_F(EngineTest, ItemFailureAfterSomeRowsKeepsEarlierMoves)
{
    for (const char* s : {"a", "b", "c"}) Mail(s);
    const int id = InsertRule({});
    // Rows a and b are fetched, c fails: a and b are moved before the report,
    // exactly as moving one by one would have left them.
    int calls = 0;
    m_exec->SetOpenItemTest([&](const QString&) {
        if (++calls == 2) Store().FailNext(Call::Item, 1, Error::temporary("gone"));
        return false;
    });
    ExecuteOptions fetching;
    fetching.itemsFromRows = false;
    const RuleOutcome run = Execute(id, false, fetching);
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.moved, 2);
    EXPECT_EQ(Subjects("Inbox"), QStringList{"c"});
    EXPECT_EQ(TakeReports().size(), 1);
}

// A message taken away by another program after the query: the rest of the
// batch moves, the rule ends normally and nothing is reported.
TEST_F(EngineTest, MessageGoneBeforeTheBatchMovesIsPassedOver)
{
    QByteArray ids[4];
    for (int i = 0; i < 4; ++i) ids[i] = Mail(QStringLiteral("m%1").arg(i), i == 3);
    const int id = InsertRule({});
    // The open-item test runs once per row, before the move: there the
    // second message goes, as another mail program would take it.
    int rows = 0;
    m_exec->SetOpenItemTest([&](const QString&) {
        if (++rows == 2) {
            EXPECT_TRUE(Store().Remove({ids[1]}).ok());
        }
        return false;
    });
    const RuleOutcome run = Execute(id, false);
    EXPECT_EQ(run.result, kResultGoOn) << run.error.toStdString();
    EXPECT_EQ(run.moved, 3);
    EXPECT_EQ(run.vanished, 1);
    EXPECT_EQ(run.flagsCleared, 1);
    EXPECT_EQ(Sorted(run.subjects), Sorted({"m0", "m2", "m3"}));
    EXPECT_TRUE(TakeReports().isEmpty());
    EXPECT_EQ(Subjects("Archive"), Sorted({"m0", "m2", "m3"}));
    EXPECT_TRUE(Subjects("Inbox").isEmpty());
}

// --- set-up errors ----------------------------------------------------------

struct SetupCase {
    const char* name;
    std::function<void(ProgIdRegistry&, store::cDB&, RuleDef&)> arrange;
    QString expected;  // empty: any one report
};

class SetupErrorTest : public EngineTest, public ::testing::WithParamInterface<SetupCase> {};

TEST_P(SetupErrorTest, ReportedAndResultStaysZero)
{
    Mail("x");
    RuleDef def;
    GetParam().arrange(m_progIds, *m_db, def);
    bool preview = false;
    std::int16_t result = 99;
    m_exec->ExecuteRule(*RuleRow(InsertRule(def)), preview, result);
    EXPECT_EQ(result, 0);
    const QStringList reports = TakeReports();
    ASSERT_EQ(reports.size(), 1);
    if (!GetParam().expected.isEmpty()) {
        EXPECT_EQ(reports[0], GetParam().expected);
    }
    EXPECT_EQ(Subjects("Inbox"), QStringList{"x"});
}

INSTANTIATE_TEST_SUITE_P(
    Errors, SetupErrorTest,
    ::testing::Values(
        SetupCase{"SourceFolderGone", [](ProgIdRegistry&, store::cDB&, RuleDef& r) { r.src = ""; },
                  "Error -2147220504 (Failed to create Folder object. Contact Sorquin Support.) in procedure "
                  "ExecuteRule"},
        SetupCase{"NoTableComponent",
                  [](ProgIdRegistry& ids, store::cDB&, RuleDef&) { ids.Unregister(outlook::kMapiTableProgId); },
                  "Error -2147220503 (Failed to create Table object. Contact Sorquin Support.) in procedure "
                  "ExecuteRule"},
        // An unknown interval letter is an error, not a match-all.
        SetupCase{"UnknownIntervalLetter",
                  [](ProgIdRegistry&, store::cDB& db, RuleDef& r) {
                      ASSERT_TRUE(db.ExecuteSQL("INSERT INTO MsgAge VALUES (30, 'q2', -1)"));
                      r.msgAge = 30;
                  },
                  {}}),
    [](const auto& info) { return std::string(info.param.name); });
