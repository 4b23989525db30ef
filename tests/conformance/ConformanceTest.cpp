// One suite, every backend: the same messages and the same restrictions give
// the same rows, and the same moves leave the same folders.

#include "ConformanceBackend.h"
#include "HandWrittenSet.h"

#include "platform/mapi/ContentsTable.h"
#include "platform/stores/memory/MemoryStore.h"
#include "tests/support/QtPrinters.h"
#include "platform/corpus/CorpusGenerator.h"

#include <gtest/gtest.h>

#include <QTimeZone>

#include <map>
#include <ostream>

namespace mv::mapi {
void PrintTo(const Restriction& r, std::ostream* os) { *os << r.ToString().toStdString(); }
}  // namespace mv::mapi

namespace mv::conformance {

void PrintTo(const NamedCase& c, std::ostream* os) { *os << c.name; }

namespace {

using namespace mv::mapi;
using R = Restriction;

const std::vector<PropTag> kColumns = {PR_ENTRYID,     PR_SUBJECT,   PR_MESSAGE_DELIVERY_TIME, PR_MESSAGE_FLAGS,
                                       PR_FLAG_STATUS, PR_FLAG_ICON, PR_LAST_VERB_EXECUTED,    PR_IMPORTANCE};
enum Column { kEntryId, kSubject, kDelivered, kMessageFlags, kFlagStatus, kFlagIcon, kLastVerb, kImportance };

// What must agree between backends; identifiers differ by design.
QString RowKey(const Row& row)
{
    const auto number = [&](Column c) { return row[c].isValid() ? row[c].toString() : QStringLiteral("-"); };
    return QStringLiteral("%1 | %2 | read=%3 status=%4 icon=%5 verb=%6 importance=%7")
        .arg(row[kSubject].toString(), row[kDelivered].toDateTime().toUTC().toString(Qt::ISODate),
             QString::number(row[kMessageFlags].toInt() & MSGFLAG_READ), number(kFlagStatus), number(kFlagIcon),
             number(kLastVerb), number(kImportance));
}

QStringList Sorted(QStringList list)
{
    list.sort();
    return list;
}

QStringList Subjects(const std::vector<Row>& rows)
{
    QStringList subjects;
    for (const Row& row : rows) subjects << row[kSubject].toString();
    return Sorted(subjects);
}

QStringList Keys(const std::vector<Row>& rows)
{
    QStringList keys;
    for (const Row& row : rows) keys << RowKey(row);
    return Sorted(keys);
}

std::vector<QByteArray> Ids(const std::vector<Row>& rows)
{
    std::vector<QByteArray> ids;
    for (const Row& row : rows) ids.push_back(row[kEntryId].toByteArray());
    return ids;
}

const ConformanceBackend* FindBackend(const QString& name)
{
    for (const ConformanceBackend& b : Backends())
        if (b.name == name) return &b;
    return nullptr;
}

std::vector<QString> BackendNames()
{
    std::vector<QString> names;
    for (const ConformanceBackend& b : Backends()) names.push_back(b.name);
    return names;
}

corpus::CorpusOptions CorpusSettings()
{
    corpus::CorpusOptions options;
    options.seed = 20261101;
    options.count = 150;
    return options;
}

std::vector<NewMessage> CorpusMessages()
{
    std::vector<NewMessage> messages;
    for (const corpus::GeneratedMessage& g : corpus::CorpusGenerator::Generate(CorpusSettings()))
        messages.push_back(g.message);
    return messages;
}

enum class DataSet { HandWritten, Corpus };

std::unique_ptr<Fixture> MakeSeeded(const QString& backend, DataSet set)
{
    const ConformanceBackend* b = FindBackend(backend);
    std::unique_ptr<Fixture> fixture = b ? b->make() : nullptr;
    if (!fixture) return nullptr;
    const Status seeded = fixture->Seed(set == DataSet::HandWritten ? HandWrittenMessages() : CorpusMessages());
    EXPECT_TRUE(seeded.ok()) << (seeded.ok() ? std::string() : seeded.error().message.toStdString());
    return seeded.ok() ? std::move(fixture) : nullptr;
}

// Queries do not change a store, so the query suites share one seeded
// fixture per backend and data set; the move and flag suites make their own.
class SharedFixtures : public ::testing::Environment {
public:
    static Fixture* Get(const QString& backend, DataSet set)
    {
        auto key = std::make_pair(backend, set);
        auto it = Cache().find(key);
        if (it == Cache().end()) it = Cache().emplace(key, MakeSeeded(backend, set)).first;
        return it->second.get();
    }
    void TearDown() override { Cache().clear(); }

private:
    static std::map<std::pair<QString, DataSet>, std::unique_ptr<Fixture>>& Cache()
    {
        static std::map<std::pair<QString, DataSet>, std::unique_ptr<Fixture>> cache;
        return cache;
    }
};

[[maybe_unused]] ::testing::Environment* const kSharedFixtures = ::testing::AddGlobalTestEnvironment(new SharedFixtures);

std::vector<Row> QueryOk(Fixture& fx, const QByteArray& folder, const Restriction* restriction)
{
    Result<std::vector<Row>> rows = fx.Store().Query(folder, restriction, kColumns);
    EXPECT_TRUE(rows.ok()) << (rows.ok() ? std::string() : rows.error().message.toStdString());
    return rows.ok() ? std::move(rows).value() : std::vector<Row>{};
}

QByteArray IdOf(Fixture& fx, const QString& subject)
{
    for (const Row& row : QueryOk(fx, fx.inbox, nullptr))
        if (row[kSubject].toString() == subject) return row[kEntryId].toByteArray();
    ADD_FAILURE() << "no message " << subject.toStdString();
    return {};
}

std::string CaseTestName(const QString& backend, const std::string& name)
{
    return backend.toStdString() + "_" + name;
}

// The hand-written set: each case names the subjects it must return.

using QueryParam = std::tuple<QString, NamedCase>;
class HandWrittenQuery : public ::testing::TestWithParam<QueryParam> {};

TEST_P(HandWrittenQuery, ReturnsExpectedSubjects)
{
    const auto& [backend, c] = GetParam();
    Fixture* fx = SharedFixtures::Get(backend, DataSet::HandWritten);
    if (!fx) GTEST_SKIP() << "backend " << backend.toStdString() << " is not available here";
    SCOPED_TRACE(c.restriction.ToString().toStdString());
    EXPECT_EQ(Subjects(QueryOk(*fx, fx->inbox, &c.restriction)), Sorted(c.expected));
}

INSTANTIATE_TEST_SUITE_P(Stores, HandWrittenQuery,
                         ::testing::Combine(::testing::ValuesIn(BackendNames()), ::testing::ValuesIn(RestrictionCases())),
                         [](const auto& info) {
                             return CaseTestName(std::get<0>(info.param), std::get<1>(info.param).name);
                         });

class HandWrittenStore : public ::testing::TestWithParam<QString> {
protected:
    void SetUp() override
    {
        m_fx = MakeSeeded(GetParam(), DataSet::HandWritten);
        if (!m_fx) GTEST_SKIP() << "backend " << GetParam().toStdString() << " is not available here";
    }
    std::vector<Row> Query(const QByteArray& folder, const Restriction* r = nullptr) { return QueryOk(*m_fx, folder, r); }
    QByteArray IdOf(const QString& subject) { return conformance::IdOf(*m_fx, subject); }
    std::unique_ptr<Fixture> m_fx;
};

TEST_P(HandWrittenStore, NoRestrictionListsEveryVisibleMessageWithItsProperties)
{
    const std::vector<Row> rows = Query(m_fx->inbox);
    EXPECT_EQ(Subjects(rows), Sorted(VisibleSubjects()));
    for (const Row& row : rows) {
        EXPECT_FALSE(row[kEntryId].toByteArray().isEmpty());
        EXPECT_EQ(row[kDelivered].toDateTime().timeSpec(), Qt::UTC) << row[kSubject].toString().toStdString();
        EXPECT_TRUE(row[kFlagStatus].isValid()) << "flag status is always present";
        EXPECT_TRUE(row[kImportance].isValid());
    }
    // Exact values of one message, end to end.
    const QByteArray weekend = IdOf(QStringLiteral("Weekend plans"));
    Result<MessageRecord> item = m_fx->Store().Item(weekend);
    ASSERT_TRUE(item.ok());
    EXPECT_EQ(item->Get(PR_MESSAGE_DELIVERY_TIME)->toDateTime(),
              QDateTime(QDate(2026, 11, 1), QTime(11, 0), QTimeZone::utc()));
    EXPECT_EQ(item->Get(PR_FLAG_ICON)->toInt(), 2);
    EXPECT_EQ(item->Get(PR_LAST_VERB_EXECUTED)->toInt(), 102);
    EXPECT_EQ(item->Get(PR_DISPLAY_CC)->toString(), QStringLiteral("Dave Brown; Frank"));
    EXPECT_EQ(item->Get(PR_ENTRYID)->toByteArray(), weekend);
    EXPECT_EQ(item->Get(PR_STORE_ENTRYID)->toByteArray(), m_fx->Store().StoreId());
    EXPECT_EQ(item->recipients.size(), 3u);
    Result<QByteArray> raw = m_fx->Store().RawMessage(weekend);
    ASSERT_TRUE(raw.ok());
    EXPECT_TRUE(raw->contains("Subject: Weekend plans"));
}

// Moves: every match goes to Dest exactly once, nothing else moves.

struct MoveCase {
    std::string restrictionCase;
    bool oneByOneThroughTable;  // the engine's way: read the table and move each row while reading
};

const NamedCase& CaseNamed(const std::string& name)
{
    static const std::vector<NamedCase> cases = RestrictionCases();
    for (const NamedCase& c : cases)
        if (c.name == name) return c;
    throw std::logic_error("no restriction case " + name);
}

using MoveParam = std::tuple<QString, MoveCase>;
class MoveCases : public ::testing::TestWithParam<MoveParam> {};

TEST_P(MoveCases, MatchesEndUpInDestExactlyOnce)
{
    const auto& [backend, move] = GetParam();
    std::unique_ptr<Fixture> fx = MakeSeeded(backend, DataSet::HandWritten);
    if (!fx) GTEST_SKIP() << "backend " << backend.toStdString() << " is not available here";
    const NamedCase& c = CaseNamed(move.restrictionCase);
    MessageStore& store = fx->Store();

    std::vector<QByteArray> oldIds, newIds;
    if (move.oneByOneThroughTable) {
        ContentsTable table(store, fx->inbox);
        table.Filter() = c.restriction;
        table.SetColumns({PR_ENTRYID, PR_SUBJECT});
        table.GoToFirstRow();
        for (;;) {
            Result<Row> row = table.GetNextRow();
            ASSERT_TRUE(row.ok()) << row.error().message.toStdString();
            if (row->empty()) break;
            oldIds.push_back(row->at(0).toByteArray());
            Result<QByteArray> moved = store.Move(oldIds.back(), fx->dest);
            ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
            newIds.push_back(*moved);
        }
    } else {
        oldIds = Ids(QueryOk(*fx, fx->inbox, &c.restriction));
        Result<std::vector<QByteArray>> moved = store.MoveMany(oldIds, fx->dest);
        ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
        newIds = *moved;
    }
    ASSERT_EQ(newIds.size(), static_cast<size_t>(c.expected.size()));

    QStringList rest = VisibleSubjects();
    for (const QString& s : c.expected) rest.removeOne(s);
    EXPECT_EQ(Subjects(QueryOk(*fx, fx->dest, nullptr)), Sorted(c.expected));
    EXPECT_EQ(Subjects(QueryOk(*fx, fx->inbox, nullptr)), Sorted(rest));
    EXPECT_TRUE(QueryOk(*fx, fx->archive, nullptr).empty());
    EXPECT_TRUE(QueryOk(*fx, fx->inbox, &c.restriction).empty()) << "a second run finds nothing left to move";
    // The restriction still selects exactly the moved messages in Dest.
    EXPECT_EQ(Subjects(QueryOk(*fx, fx->dest, &c.restriction)), Sorted(c.expected));

    for (size_t i = 0; i < newIds.size(); ++i) {
        Result<MessageRecord> moved = store.Item(newIds[i]);
        ASSERT_TRUE(moved.ok());
        EXPECT_EQ(moved->Get(PR_ENTRYID)->toByteArray(), newIds[i]);
        if (newIds[i] != oldIds[i]) {
            Result<MessageRecord> stale = store.Item(oldIds[i]);
            ASSERT_FALSE(stale.ok()) << "the old identifier must not still name the message";
            EXPECT_EQ(stale.error().kind, ErrorKind::NotFound);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Stores, MoveCases,
    ::testing::Combine(::testing::ValuesIn(BackendNames()),
                       ::testing::Values(MoveCase{"SubjectOneWord", false}, MoveCase{"RecipientOnlyOnCcMatchesTo", false},
                                         MoveCase{"FlagNoneSet", false}, MoveCase{"EmptyAndIsEverything", false},
                                         MoveCase{"SubjectAndUnreadNone", false}, MoveCase{"Read", true},
                                         MoveCase{"LastVerbReplied", true})),
    [](const auto& info) {
        const MoveCase& m = std::get<1>(info.param);
        return CaseTestName(std::get<0>(info.param), m.restrictionCase + (m.oneByOneThroughTable ? "_ByTable" : "_Many"));
    });

// Flag changes are seen by the next query.

struct FlagChange {
    const char* name;
    const char* subject;
    int newStatus;
    int expectedIcon;  // 0: none
};

using FlagParam = std::tuple<QString, FlagChange>;
class FlagChanges : public ::testing::TestWithParam<FlagParam> {};

TEST_P(FlagChanges, NextQuerySeesTheNewStatus)
{
    const auto& [backend, change] = GetParam();
    std::unique_ptr<Fixture> fx = MakeSeeded(backend, DataSet::HandWritten);
    if (!fx) GTEST_SKIP() << "backend " << backend.toStdString() << " is not available here";
    const QString subject = QString::fromUtf8(change.subject);

    // Before and after, per status, as the three flag criteria see them.
    std::map<int, QStringList> expected = {{1, CaseNamed("FlagComplete").expected},
                                           {2, CaseNamed("FlagFollowUp").expected},
                                           {0, CaseNamed("FlagNoneSet").expected}};
    const QByteArray id = IdOf(*fx, subject);
    ASSERT_FALSE(id.isEmpty());
    for (auto& [status, subjects] : expected) subjects.removeAll(subject);
    expected[change.newStatus] << subject;

    const auto verb = [&] {
        Result<MessageRecord> item = fx->Store().Item(id);
        return item ? item->Get(PR_LAST_VERB_EXECUTED).value_or(QVariant(0)).toInt() : -1;
    };
    const int verbBefore = verb();
    const Status set = fx->Store().SetFlagStatus(id, change.newStatus);
    ASSERT_TRUE(set.ok()) << set.error().message.toStdString();
    EXPECT_EQ(verb(), verbBefore) << "other flags and keywords stay";

    EXPECT_EQ(Subjects(QueryOk(*fx, fx->inbox, &CaseNamed("FlagComplete").restriction)), Sorted(expected[1]));
    EXPECT_EQ(Subjects(QueryOk(*fx, fx->inbox, &CaseNamed("FlagFollowUp").restriction)), Sorted(expected[2]));
    EXPECT_EQ(Subjects(QueryOk(*fx, fx->inbox, &CaseNamed("FlagNoneSet").restriction)), Sorted(expected[0]));
    const Restriction icon = R::Exist(PR_FLAG_ICON);
    EXPECT_EQ(Subjects(QueryOk(*fx, fx->inbox, &icon)).contains(subject), change.expectedIcon != 0);
    if (change.expectedIcon) {
        const Restriction colour = R::Property(RELOP_EQ, PR_FLAG_ICON, change.expectedIcon);
        EXPECT_TRUE(Subjects(QueryOk(*fx, fx->inbox, &colour)).contains(subject));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Stores, FlagChanges,
    ::testing::Combine(::testing::ValuesIn(BackendNames()),
                       ::testing::Values(FlagChange{"ClearCompleted", "Server outage report", 0, 0},
                                         FlagChange{"FlagUnflagged", "Budget review for Q3", 2, 6},
                                         FlagChange{"FlagForwarded", "Re: Budget review for Q3", 2, 6},
                                         FlagChange{"CompleteColouredFlag", "Weekend plans", 1, 0},
                                         FlagChange{"ClearColouredFlag", "Invoice 2001 overdue", 0, 0},
                                         FlagChange{"FlagCompletedKeepsNoStaleColour", "Quarterly NUMBERS annual", 2, 4})),
    [](const auto& info) { return CaseTestName(std::get<0>(info.param), std::get<1>(info.param).name); });

// Refused calls say why and change nothing.
TEST_P(HandWrittenStore, RefusedCallsChangeNothing)
{
    MessageStore& store = m_fx->Store();
    const Restriction unsupported = R::And({R::Content(PR_SUBJECT, "budget"), Restriction(RES_SIZE)});
    EXPECT_EQ(store.Query(m_fx->inbox, &unsupported, kColumns).error().kind, ErrorKind::Permanent);
    const QByteArray bogus = m_fx->inbox + QByteArray("-no-such-folder");
    EXPECT_EQ(store.Query(bogus, nullptr, kColumns).error().kind, ErrorKind::NotFound);

    const QByteArray outage = IdOf(QStringLiteral("Server outage report"));
    EXPECT_EQ(store.SetFlagStatus(outage, 9).error().kind, ErrorKind::Permanent);
    const Restriction complete = R::Property(RELOP_EQ, PR_FLAG_STATUS, 1);
    EXPECT_TRUE(Subjects(Query(m_fx->inbox, &complete)).contains(QStringLiteral("Server outage report")));

    // A moved message is not found by its old identifier.
    const QByteArray id = IdOf(QStringLiteral("Meeting notes"));
    ASSERT_TRUE(store.Move(id, m_fx->archive).ok());
    EXPECT_EQ(store.Move(id, m_fx->dest).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store.SetFlagStatus(id, 2).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(Subjects(Query(m_fx->archive)), QStringList{QStringLiteral("Meeting notes")});
    EXPECT_TRUE(Query(m_fx->dest).empty());
}

INSTANTIATE_TEST_SUITE_P(Stores, HandWrittenStore, ::testing::ValuesIn(BackendNames()),
                         [](const auto& info) { return info.param.toStdString(); });

// The generated corpus: every backend returns what the memory store returns.

// Cases built from what the generator draws on, so that they hit.
std::vector<NamedCase> SampleCases()
{
    std::vector<NamedCase> cases;
    const QStringList words = corpus::CorpusGenerator::SampleSubjectWords();
    const QStringList names = corpus::CorpusGenerator::SampleNames();
    const QStringList addresses = corpus::CorpusGenerator::SampleAddresses();
    const auto content = [](PropTag tag, const QString& term) { return R::Content(tag, term); };
    for (int i = 0; i < std::min<int>(3, words.size()); ++i) {
        cases.push_back({"SampleWord" + std::to_string(i), content(PR_SUBJECT, words[i]), {}});
        cases.push_back({"SampleBodyWord" + std::to_string(i), content(PR_BODY, words[i]), {}});
    }
    if (words.size() >= 2)
        cases.push_back({"SampleTwoWords", R::And({content(PR_SUBJECT, words[0]), content(PR_SUBJECT, words[1])}), {}});
    for (int i = 0; i < std::min<int>(2, names.size()); ++i) {
        const QString first = names[i].section(QLatin1Char(' '), 0, 0);
        cases.push_back({"SampleSenderName" + std::to_string(i), content(PR_SENT_REPRESENTING_NAME, first), {}});
        cases.push_back({"SampleRecipientName" + std::to_string(i),
                         R::Sub(PR_MESSAGE_RECIPIENTS, content(PR_DISPLAY_NAME, first)), {}});
        cases.push_back({"SampleCcName" + std::to_string(i), content(PR_DISPLAY_CC, first), {}});
    }
    for (int i = 0; i < std::min<int>(2, addresses.size()); ++i) {
        cases.push_back({"SampleSenderAddress" + std::to_string(i),
                         content(PR_SENT_REPRESENTING_EMAIL_ADDRESS, addresses[i]), {}});
        cases.push_back({"SampleRecipientAddress" + std::to_string(i),
                         R::Sub(PR_MESSAGE_RECIPIENTS, content(PR_EMAIL_ADDRESS, addresses[i])), {}});
    }
    const QDateTime now = CorpusSettings().now;
    cases.push_back({"CorpusOlderThanOneYear", R::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, now.addYears(-1)), {}});
    cases.push_back({"CorpusOlderThanThirtyDays", R::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, now.addDays(-30)), {}});
    return cases;
}

// The hand-written cases too: on the corpus most of their text terms find
// nothing, which still catches a backend that matches too much.
std::vector<NamedCase> CorpusCases()
{
    std::vector<NamedCase> cases = RestrictionCases();
    for (NamedCase& c : SampleCases()) cases.push_back(std::move(c));
    return cases;
}

QStringList ReferenceKeys(const Restriction& r)
{
    static std::unique_ptr<Fixture> reference = [] {
        auto fx = std::make_unique<stores::MemoryStore>(stores::MemoryStoreOptions{QStringLiteral("Reference"), {}, {}});
        struct Holder final : Fixture {
            std::unique_ptr<stores::MemoryStore> store;
            MessageStore& Store() override { return *store; }
        };
        auto holder = std::make_unique<Holder>();
        holder->inbox = fx->InboxId();
        holder->store = std::move(fx);
        EXPECT_TRUE(holder->Seed(CorpusMessages()).ok());
        return std::unique_ptr<Fixture>(std::move(holder));
    }();
    return Keys(QueryOk(*reference, reference->inbox, &r));
}

class CorpusQuery : public ::testing::TestWithParam<QueryParam> {};

TEST_P(CorpusQuery, SameRowsAsMemoryStore)
{
    const auto& [backend, c] = GetParam();
    Fixture* fx = SharedFixtures::Get(backend, DataSet::Corpus);
    if (!fx) GTEST_SKIP() << "backend " << backend.toStdString() << " is not available here";
    SCOPED_TRACE(c.restriction.ToString().toStdString());
    EXPECT_EQ(Keys(QueryOk(*fx, fx->inbox, &c.restriction)), ReferenceKeys(c.restriction));
}

INSTANTIATE_TEST_SUITE_P(Stores, CorpusQuery,
                         ::testing::Combine(::testing::ValuesIn(BackendNames()), ::testing::ValuesIn(CorpusCases())),
                         [](const auto& info) {
                             return CaseTestName(std::get<0>(info.param), std::get<1>(info.param).name);
                         });

// Equal rows prove little if a case selects all or nothing.
TEST(CorpusSampleCases, EachSelectsAProperSubset)
{
    const int total = ReferenceKeys(R::And({})).size();
    EXPECT_EQ(total, CorpusSettings().count);
    for (const NamedCase& c : SampleCases()) {
        const int n = ReferenceKeys(c.restriction).size();
        EXPECT_GT(n, 0) << c.name;
        EXPECT_LT(n, total) << c.name;
    }
}

}  // namespace
}  // namespace mv::conformance
