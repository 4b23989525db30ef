#include "EngineFixture.h"

#include "platform/mapi/MapiUtils.h"
#include "platform/outlook/SafeLib.h"
#include "platform/stores/common/FlagMapping.h"
#include "platform/stores/memory/MemoryStore.h"

#include <QDir>
#include <QFile>

using namespace mv;
using namespace mv::engine;
using namespace mv::engine::test;

namespace {

QDateTime Utc(int d, int h, int mi = 0, int s = 0)
{
    return QDateTime(QDate(2026, 11, d), QTime(h, mi, s), Qt::UTC);
}

mapi::MessageFlags Flags(bool seen, bool flagged = false, QStringList keywords = {}, bool answered = false)
{
    mapi::MessageFlags f;
    f.seen = seen;
    f.flagged = flagged;
    f.keywords = keywords;
    f.answered = answered;
    return f;
}

const QStringList kRed = {QStringLiteral("$MailFlagBit0"), QStringLiteral("$MailFlagBit2")};

// The Inbox every criterion case runs on. "Now" is 14 November 10:00 UTC.
std::vector<Msg> Corpus()
{
    std::vector<Msg> c(7);
    c[0].subject = "Budget annual report 2001";
    c[0].cc = "Carol Jones <carol@example.net>";
    c[0].body = "quarterly numbers attached";
    c[0].delivered = Utc(14, 9);
    c[1].subject = "Budget draft";
    c[1].from = "Dave Smith <dave@corp.example>";
    c[1].to = "Erin <erin@example.org>";
    c[1].body = "draft numbers";
    c[1].importance = "high";
    c[1].flags = Flags(true, true, kRed);
    c[1].delivered = Utc(13, 23, 59, 58);
    c[2].subject = "Annual party";
    c[2].cc = "frank@example.com";
    c[2].body = "party time";
    c[2].importance = "low";
    c[2].flags = Flags(true, false, {"$Completed"}, true);
    c[2].delivered = Utc(10, 8);
    c[3].subject = "Notes for Bob";
    c[3].from = "Gina <gina@example.com>";
    c[3].to = "Carol Jones <carol@example.net>";
    c[3].body = "forwarded notes";
    c[3].flags = Flags(false, false, {"$Forwarded"});
    c[3].delivered = Utc(14, 8);
    c[4].subject = "";
    c[4].flags = Flags(true);
    c[4].delivered = Utc(14, 9, 30);
    c[5].subject = "Undeliverable: Budget";
    c[5].from = "Mail Delivery System <postmaster@example.com>";
    c[5].contentType = "multipart/report; report-type=delivery-status; boundary=\"b1\"";
    c[5].rawBody =
        "--b1\r\nContent-Type: text/plain\r\n\r\nDelivery failed.\r\n"
        "--b1\r\nContent-Type: message/delivery-status\r\n\r\nReporting-MTA: dns; example.com\r\n\r\n"
        "Final-Recipient: rfc822; x@example.org\r\nAction: failed\r\nStatus: 5.1.1\r\n\r\n--b1--\r\n";
    c[5].delivered = Utc(12, 12);
    c[6].subject = "Budget review meeting";
    c[6].from = "Dave Smith <dave@corp.example>";
    c[6].contentType = "text/calendar; method=REQUEST; charset=utf-8";
    c[6].rawBody = "BEGIN:VCALENDAR\r\nMETHOD:REQUEST\r\nBEGIN:VEVENT\r\nSUMMARY:Budget review\r\n"
                   "END:VEVENT\r\nEND:VCALENDAR\r\n";
    c[6].delivered = Utc(14, 7);
    return c;
}

const char* const kAll[] = {"Budget annual report 2001", "Budget draft", "Annual party", "Notes for Bob", "[none]",
                            "Undeliverable: Budget", "Budget review meeting"};

struct CriteriaCase {
    const char* name;
    RuleDef rule;
    bool align;
    QStringList expected;
};

RuleDef With(std::function<void(RuleDef&)> f)
{
    RuleDef r;
    f(r);
    return r;
}

QStringList All()
{
    QStringList l;
    for (const char* s : kAll) l << s;
    return l;
}

std::vector<CriteriaCase> Cases()
{
    const int redCode = 10 + stores::FlagMapping::FlagIcon(Flags(true, true, kRed));
    return {
        {"NoCriterionTakesEveryMovableItem", {}, true, All()},
        {"SubjectOneWord", With([](RuleDef& r) { r.subject = "budget"; }), true,
         {"Budget annual report 2001", "Budget draft", "Undeliverable: Budget", "Budget review meeting"}},
        {"SubjectTwoWordsNeedBoth", With([](RuleDef& r) { r.subject = "budget annual"; }), true,
         {"Budget annual report 2001"}},
        {"SubjectQuotedPhrase", With([](RuleDef& r) { r.subject = "\"annual  report\" 2001"; }), true,
         {"Budget annual report 2001"}},
        {"SubjectPhraseInWrongOrder", With([](RuleDef& r) { r.subject = "\"report annual\""; }), true, {}},
        {"FromAddress", With([](RuleDef& r) { r.from = "ALICE@example.com"; }), true,
         {"Budget annual report 2001", "Annual party", "[none]"}},
        {"FromDisplayName", With([](RuleDef& r) { r.from = "dave"; }), true,
         {"Budget draft", "Budget review meeting"}},
        {"FromListAnyEntry", With([](RuleDef& r) { r.from = "gina@example.com; Mail Delivery"; }), true,
         {"Notes for Bob", "Undeliverable: Budget"}},
        {"ToNameFindsCopyRecipient", With([](RuleDef& r) { r.to = "Carol"; }), true,
         {"Budget annual report 2001", "Notes for Bob"}},
        {"ToAddressList", With([](RuleDef& r) { r.to = "erin@example.org;carol@example.net"; }), true,
         {"Budget annual report 2001", "Budget draft", "Notes for Bob"}},
        {"CcAddressAgainstDisplayLineShown", With([](RuleDef& r) { r.cc = "frank@example.com"; }), true,
         {"Annual party"}},
        {"CcAddressHiddenBehindName", With([](RuleDef& r) { r.cc = "carol@example.net"; }), true, {}},
        {"BodyWord", With([](RuleDef& r) { r.message = "numbers"; }), true,
         {"Budget annual report 2001", "Budget draft"}},
        {"Unread", With([](RuleDef& r) { r.status = 0; }), true,
         {"Budget annual report 2001", "Notes for Bob", "Undeliverable: Budget", "Budget review meeting"}},
        {"Read", With([](RuleDef& r) { r.status = 1; }), true, {"Budget draft", "Annual party", "[none]"}},
        {"FlagComplete", With([](RuleDef& r) { r.flagStatus = 1; }), true, {"Annual party"}},
        {"Flagged", With([](RuleDef& r) { r.flagStatus = 2; }), true, {"Budget draft"}},
        {"NoFlagSet", With([](RuleDef& r) { r.flagStatus = 9; }), true,
         {"Budget annual report 2001", "Notes for Bob", "[none]", "Undeliverable: Budget", "Budget review meeting"}},
        {"ColouredFlag", With([redCode](RuleDef& r) { r.flagStatus = redCode; }), true, {"Budget draft"}},
        {"ImportanceHigh", With([](RuleDef& r) { r.importance = 2; }), true, {"Budget draft"}},
        {"ImportanceLow", With([](RuleDef& r) { r.importance = 0; }), true, {"Annual party"}},
        {"Replied", With([](RuleDef& r) { r.lastVerb = 102; }), true, {"Annual party"}},
        {"Forwarded", With([](RuleDef& r) { r.lastVerb = 104; }), true, {"Notes for Bob"}},
        {"OneDayAlignedToEndOfYesterday", With([](RuleDef& r) { r.msgAge = 5; }), true,
         {"Budget draft", "Annual party", "Undeliverable: Budget"}},
        {"OneDayUnaligned", With([](RuleDef& r) { r.msgAge = 5; }), false,
         {"Annual party", "Undeliverable: Budget"}},
        {"FifteenMinutes", With([](RuleDef& r) { r.msgAge = 14; }), true, All()},
        {"AllCriteriaTogether", With([](RuleDef& r) {
             r.subject = "budget";
             r.status = 1;
             r.msgAge = 5;
         }),
         true, {"Budget draft"}},
    };
}

// Every case runs on the memory store and on a real Maildir.
class CriteriaTest : public EngineTest, public ::testing::WithParamInterface<std::tuple<CriteriaCase, bool>> {
protected:
    void SetUp() override
    {
        m_useMaildir = std::get<1>(GetParam());
        EngineTest::SetUp();
        for (const Msg& m : Corpus()) Add("Inbox", m);
    }
};

}  // namespace

TEST_P(CriteriaTest, MovesExactlyTheMatchingItems)
{
    const CriteriaCase& c = std::get<0>(GetParam());
    m_settings.alignTime = c.align ? 1 : 0;
    const int id = InsertRule(c.rule);
    const QStringList before = Subjects("Inbox");

    const RuleOutcome preview = Execute(id, true);
    EXPECT_EQ(preview.result, kResultGoOn);
    EXPECT_EQ(Subjects("Inbox"), before) << "preview moved something";

    const RuleOutcome run = Execute(id, false);
    EXPECT_EQ(run.result, kResultGoOn);
    QStringList moved = run.subjects;
    moved.replaceInStrings(QString::fromLatin1(kEmptySubject), QStringLiteral("[none]"));
    EXPECT_EQ(Sorted(moved), Sorted(c.expected));
    EXPECT_EQ(Subjects("Archive"), Sorted(c.expected));
    EXPECT_EQ(Sorted(preview.subjects), Sorted(run.subjects)) << "preview and run disagree";
    EXPECT_EQ(run.moved, c.expected.size());

    // Nothing is left that the rule still matches.
    const RuleOutcome again = Execute(id, false);
    EXPECT_EQ(again.result, kResultGoOn);
    EXPECT_EQ(again.moved, 0);
}

INSTANTIATE_TEST_SUITE_P(Criteria, CriteriaTest, ::testing::Combine(::testing::ValuesIn(Cases()), ::testing::Bool()),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) +
                                    (std::get<1>(info.param) ? "_Maildir" : "_Memory");
                         });

// --- flags, open items, batching -------------------------------------------

class RowLoopTest : public EngineTest, public ::testing::WithParamInterface<bool> {
protected:
    ExecuteOptions Options() const
    {
        ExecuteOptions o;
        o.batchMoves = GetParam();
        return o;
    }
    mapi::MessageFlags FlagsOf(const QString& folder, const QString& subject)
    {
        auto rows = Store().Query(FolderId(folder), nullptr, {mapi::PR_ENTRYID, mapi::PR_SUBJECT});
        for (const auto& row : *rows)
            if (row[1].toString() == subject) return *static_cast<stores::MemoryStore&>(Store()).Flags(row[0].toByteArray());
        ADD_FAILURE() << "no message " << subject.toStdString() << " in " << folder.toStdString();
        return {};
    }
};

TEST_P(RowLoopTest, CompletedFlagClearedOnMovedMailKeptInPreview)
{
    Msg done;
    done.subject = "done";
    done.flags = Flags(true, false, {"$Completed"});
    Add("Inbox", done);
    const int id = InsertRule({});

    EXPECT_EQ(Execute(id, true, Options()).subjects, QStringList{"done"});
    EXPECT_TRUE(stores::FlagMapping::HasKeyword(FlagsOf("Inbox", "done"), "$Completed"));

    const RuleOutcome run = Execute(id, false, Options());
    EXPECT_EQ(run.flagsCleared, 1);
    EXPECT_FALSE(stores::FlagMapping::HasKeyword(FlagsOf("Archive", "done"), "$Completed"));
}

TEST_P(RowLoopTest, ItemOpenInInspectorStaysUntilClosed)
{
    Msg a, b;
    a.subject = "open one";
    b.subject = "closed one";
    const QByteArray openId = Add("Inbox", a);
    Add("Inbox", b);
    m_open.insert(mapi::MapiUtils::HrGetHexFromBinary(openId));
    const int id = InsertRule({});

    // The Rules Manager's preview lists it; the run leaves it.
    EXPECT_EQ(Sorted(Execute(id, true, Options()).subjects), Sorted({"open one", "closed one"}));
    const RuleOutcome run = Execute(id, false, Options());
    EXPECT_EQ(run.skippedOpen, 1);
    EXPECT_EQ(Subjects("Inbox"), QStringList{"open one"});

    m_open.clear();
    EXPECT_EQ(Execute(id, false, Options()).moved, 1);
    EXPECT_EQ(Subjects("Archive"), Sorted({"open one", "closed one"}));
}

TEST_P(RowLoopTest, MissingDestinationSkipsEveryRow)
{
    Msg a;
    a.subject = "stays";
    Add("Inbox", a);
    RuleDef def;
    def.dst = "";
    const RuleOutcome run = Execute(InsertRule(def), false, Options());
    EXPECT_EQ(run.result, kResultGoOn);
    EXPECT_EQ(run.skippedNoDestination, 1);
    EXPECT_EQ(Subjects("Inbox"), QStringList{"stays"});
}

INSTANTIATE_TEST_SUITE_P(Moves, RowLoopTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Batched" : "OneByOne"; });

// --- failures ---------------------------------------------------------------

struct InjectionCase {
    const char* name;
    stores::MemoryStore::Call call;
    bool batched;
    bool itemsFromRows = true;
};

class FailureTest : public EngineTest, public ::testing::WithParamInterface<InjectionCase> {};

TEST_P(FailureTest, PlatformFailureEndsTheRuleWithResultZero)
{
    const InjectionCase& c = GetParam();
    for (const char* s : {"one", "two"}) {
        Msg m;
        m.subject = s;
        m.flags = Flags(true, false, {"$Completed"});
        Add("Inbox", m);
    }
    const int id = InsertRule({});
    static_cast<stores::MemoryStore&>(Store()).FailNext(c.call, 1, Error::temporary("connection dropped"));

    ExecuteOptions o;
    o.batchMoves = c.batched;
    o.itemsFromRows = c.itemsFromRows;
    const RuleOutcome run = Execute(id, false, o);
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.moved, 0);
    EXPECT_TRUE(run.error.endsWith(") in procedure ExecuteRule")) << run.error.toStdString();
    EXPECT_EQ(TakeReports(), QStringList{run.error});
    EXPECT_EQ(Subjects("Inbox"), Sorted({"one", "two"}));

    // The rows left behind are taken by the next run.
    const RuleOutcome next = Execute(id, false, o);
    EXPECT_EQ(next.result, kResultGoOn);
    EXPECT_EQ(Subjects("Archive"), Sorted({"one", "two"}));
}

INSTANTIATE_TEST_SUITE_P(
    Injection, FailureTest,
    ::testing::Values(InjectionCase{"QueryFails", stores::MemoryStore::Call::Query, true},
                      InjectionCase{"ItemFetchFails", stores::MemoryStore::Call::Item, true, false},
                      InjectionCase{"OneByOneSaveFails", stores::MemoryStore::Call::SetFlagStatus, false},
                      InjectionCase{"SaveFails", stores::MemoryStore::Call::SetFlagStatus, true},
                      InjectionCase{"MoveFails", stores::MemoryStore::Call::Move, false},
                      InjectionCase{"BatchMoveFails", stores::MemoryStore::Call::MoveMany, true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(EngineTest, FailedBatchGivesBackCompletedFlags)
{
    Msg m;
    m.subject = "done";
    m.flags = Flags(true, false, {"$Completed"});
    const QByteArray id = Add("Inbox", m);
    auto& memory = static_cast<stores::MemoryStore&>(Store());
    memory.FailNext(stores::MemoryStore::Call::MoveMany, 1, Error::temporary("connection dropped"));
    EXPECT_EQ(Execute(InsertRule({}), false).result, 0);
    TakeReports();
    EXPECT_TRUE(stores::FlagMapping::HasKeyword(*memory.Flags(id), "$Completed"));
}

TEST_F(EngineTest, ItemFailureAfterSomeRowsKeepsEarlierMoves)
{
    for (const char* s : {"a", "b", "c"}) {
        Msg m;
        m.subject = s;
        Add("Inbox", m);
    }
    auto& memory = static_cast<stores::MemoryStore&>(Store());
    const int id = InsertRule({});
    // Rows a and b are fetched, c fails: a and b are moved before the report,
    // exactly as moving one by one would have left them.
    int calls = 0;
    m_open.clear();
    m_exec->SetOpenItemTest([&](const QString&) {
        if (++calls == 2) memory.FailNext(stores::MemoryStore::Call::Item, 1, Error::temporary("gone"));
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
// batch moves, the rule ends normally, nothing is reported, and the lookups
// of the run reach the store once per folder.
class VanishedTest : public EngineTest {
protected:
    void SetUp() override
    {
        m_useMaildir = true;
        EngineTest::SetUp();
    }
};

TEST_F(VanishedTest, MessageGoneBeforeTheBatchMovesIsPassedOver)
{
    QByteArray ids[4];
    for (int i = 0; i < 4; ++i) {
        Msg m;
        m.subject = QStringLiteral("m%1").arg(i);
        if (i == 3) m.flags = Flags(true, false, {"$Completed"});
        ids[i] = Add("Inbox", m);
    }
    const int id = InsertRule({});
    // The open-item test runs once per row, before the move: there the
    // second message's file is deleted, as another mail program would.
    int rows = 0;
    m_exec->SetOpenItemTest([&](const QString&) {
        if (++rows != 2) return false;
        for (const char* sub : {"/Mail/cur", "/Mail/new"}) {
            QDir dir(m_tmp.path() + QLatin1String(sub));
            for (const QString& name : dir.entryList(QDir::Files)) {
                QFile file(dir.filePath(name));
                if (file.open(QIODevice::ReadOnly) && file.readAll().contains("Subject: m1")) file.remove();
            }
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
    std::function<void(EngineTest&, RuleDef&)> arrange;
    QString expected;
};

class SetupErrorTest : public EngineTest, public ::testing::WithParamInterface<SetupCase> {
public:
    ProgIdRegistry& Registry() { return m_progIds; }
};

TEST_P(SetupErrorTest, ReportedAndResultStaysZero)
{
    const SetupCase& c = GetParam();
    Msg m;
    m.subject = "x";
    Add("Inbox", m);
    RuleDef def;
    c.arrange(*this, def);
    bool preview = false;
    std::int16_t result = 99;
    auto rs = RuleRow(InsertRule(def));
    m_exec->ExecuteRule(*rs, preview, result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(TakeReports(), QStringList{c.expected});
    EXPECT_EQ(Subjects("Inbox"), QStringList{"x"});
}

INSTANTIATE_TEST_SUITE_P(
    Errors, SetupErrorTest,
    ::testing::Values(
        SetupCase{"SourceFolderGone", [](EngineTest&, RuleDef& r) { r.src = ""; },
                  "Error -2147220504 (Failed to create Folder object. Contact Sorquin Support.) in procedure "
                  "ExecuteRule"},
        SetupCase{"NoTableComponent",
                  [](EngineTest& t, RuleDef&) {
                      static_cast<SetupErrorTest&>(t).Registry().Unregister(outlook::kMapiTableProgId);
                  },
                  "Error -2147220503 (Failed to create Table object. Contact Sorquin Support.) in procedure "
                  "ExecuteRule"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(EngineTest, UnknownIntervalLetterIsAnErrorNotAMatchAll)
{
    Msg m;
    m.subject = "x";
    Add("Inbox", m);
    ASSERT_TRUE(m_db->ExecuteSQL("INSERT INTO MsgAge VALUES (30, 'q2', -1)"));
    RuleDef def;
    def.msgAge = 30;
    const RuleOutcome run = Execute(InsertRule(def), false);
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(TakeReports().size(), 1);
    EXPECT_EQ(Subjects("Inbox"), QStringList{"x"});
}
