#include "MaildirFixture.h"

#include "platform/mapi/Restriction.h"
#include "platform/stores/common/MimeProperties.h"
#include "platform/stores/maildir/MaildirIds.h"
#include "platform/stores/maildir/MaildirName.h"

#include <QFileInfo>
#include <QSignalSpy>

#include <atomic>

#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

using namespace mv;
using namespace mv::mapi;
using namespace mv::stores::maildir;
using namespace mv::stores::maildir::test;

namespace {

const QByteArray kInbox = FolderIdFor("");

QStringList Subjects(MaildirStore& store, const QByteArray& folder, const Restriction* r = nullptr)
{
    auto rows = store.Query(folder, r, {PR_SUBJECT});
    EXPECT_TRUE(rows.ok()) << (rows.ok() ? "" : rows.error().message.toStdString());
    QStringList out;
    if (rows.ok())
        for (const Row& row : *rows) out << row[0].toString();
    out.sort();
    return out;
}

void SetMtime(const QString& path, qint64 secs)
{
    const struct utimbuf t{secs, secs};
    ASSERT_EQ(::utime(QFile::encodeName(path).constData(), &t), 0);
}

using StoreTest = MaildirFixture;

TEST_F(StoreTest, IndexParsesOnlyNewAndChangedFiles)
{
    for (int i = 0; i < 5; ++i) Put("", QStringLiteral("cur/170000000%1.a.host:2,").arg(i), Mail(QStringLiteral("m%1").arg(i)));
    auto store = Open();
    ASSERT_EQ(Subjects(*store, kInbox).size(), 5);
    EXPECT_EQ(store->lastScan().parsed, 5);

    struct Step {
        const char* what;
        std::function<void()> change;
        int parsed, renamed, dropped;
        QStringList subjects;
    } steps[] = {
        {"nothing changed", [] {}, 0, 0, 0, {"m0", "m1", "m2", "m3", "m4"}},
        {"one new file", [&] { Put("", "new/1700000009.n.host", Mail("fresh")); }, 1, 0, 0,
         {"fresh", "m0", "m1", "m2", "m3", "m4"}},
        {"flags changed by rename", [&] {
             QFile::rename(root + "/cur/1700000001.a.host:2,", root + "/cur/1700000001.a.host:2,S");
         }, 0, 1, 0, {"fresh", "m0", "m1", "m2", "m3", "m4"}},
        {"content rewritten", [&] { Put("", "cur/1700000002.a.host:2,", Mail("m2 edited")); }, 1, 0, 0,
         {"fresh", "m0", "m1", "m2 edited", "m3", "m4"}},
        {"file removed", [&] { QFile::remove(root + "/cur/1700000003.a.host:2,"); }, 0, 0, 1,
         {"fresh", "m0", "m1", "m2 edited", "m4"}},
    };
    for (const Step& s : steps) {
        s.change();
        EXPECT_EQ(Subjects(*store, kInbox), s.subjects) << s.what;
        EXPECT_EQ(store->lastScan().parsed, s.parsed) << s.what;
        EXPECT_EQ(store->lastScan().renamed, s.renamed) << s.what;
        EXPECT_EQ(store->lastScan().dropped, s.dropped) << s.what;
    }
    // The renamed file's flags come from its current name.
    Restriction read = Restriction::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ);
    EXPECT_EQ(Subjects(*store, kInbox, &read), QStringList{"m1"});

    // The index outlives the store: a new one parses nothing.
    store = Open();
    EXPECT_EQ(Subjects(*store, kInbox).size(), 5);
    EXPECT_EQ(store->lastScan().parsed, 0);
}

TEST_F(StoreTest, UnchangedDirectoriesAreNotListedAgain)
{
    Put("", "cur/1700000000.a.host:2,", Mail("old"));
    for (const char* sub : {"/cur", "/new"}) SetMtime(root + sub, 1700000000);
    auto store = Open();
    Subjects(*store, kInbox);
    EXPECT_FALSE(store->lastScan().skipped);
    Subjects(*store, kInbox);
    EXPECT_TRUE(store->lastScan().skipped);
    Put("", "new/1700000001.b.host", Mail("arrived"));
    EXPECT_EQ(Subjects(*store, kInbox), (QStringList{"arrived", "old"}));
    EXPECT_FALSE(store->lastScan().skipped);
}

struct QueryCase {
    const char* name;
    std::function<Restriction()> restriction;
    QStringList subjects;
    int bodyReads;
};

class QueryTest : public MaildirFixture, public ::testing::WithParamInterface<QueryCase> {
protected:
    void SetUp() override
    {
        MaildirFixture::SetUp();
        Put("", "cur/1600000000.a.host:2,S", Mail("Budget review", "Carol <carol@corp.example>", "Bob <bob@example.org>", "numbers inside\n"));
        Put("", "cur/1700000000.b.host:2,F", Mail("Budget plan", "Dan <dan@example.net>", "Eve <eve@example.org>", "holiday plans\n"));
        Put("", "new/1750000000.c.host", Mail("Lunch", "Alice <alice@example.com>", "Bob <bob@example.org>", "numbers again\n"));
        Put("", "cur/1750000001.d.host:2,RS", Mail("Re: Lunch", "Bob <bob@example.org>", "Alice <alice@example.com>"));
        Put("", "cur/1750000002.e.host:2,ST", Mail("Deleted one"));
        Put("", "tmp/1750000003.f.host", Mail("Being delivered"));
        Put("", "cur/1750000004.g.host:2,S", Mail(kColdSubject));
    }

public:
    static inline const QString kColdSubject = QStringLiteral("K\u00e4ltetest 300 \u212a \u00c4RGER");
};

TEST_P(QueryTest, MatchesAndReadsBodiesOnlyWhenAsked)
{
    auto store = Open();
    const Restriction r = GetParam().restriction();
    EXPECT_EQ(Subjects(*store, kInbox, &r), GetParam().subjects) << r.ToString().toStdString();
    EXPECT_EQ(store->lastBodyReads(), GetParam().bodyReads);

    // A new process finds the same answers in the index it left on disk.
    store.reset();
    store = Open();
    EXPECT_EQ(Subjects(*store, kInbox, &r), GetParam().subjects) << "from the index: " << r.ToString().toStdString();
    EXPECT_EQ(store->lastScan().parsed, 0);
}

const QueryCase kQueries[] = {
    {"Everything", [] { return Restriction(RES_AND); },
     {"Budget plan", "Budget review", QueryTest::kColdSubject, "Lunch", "Re: Lunch"}, 0},
    {"SubjectWord", [] { return Restriction::Content(PR_SUBJECT, "budget"); }, {"Budget plan", "Budget review"}, 0},
    {"SenderAddress", [] { return Restriction::Content(PR_SENT_REPRESENTING_EMAIL_ADDRESS, "corp.example"); },
     {"Budget review"}, 0},
    {"RecipientName", [] {
         return Restriction::Sub(PR_MESSAGE_RECIPIENTS, Restriction::Content(PR_DISPLAY_NAME, "eve"));
     }, {"Budget plan"}, 0},
    {"Unread", [] { return Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ); },
     {"Budget plan", "Lunch"}, 0},
    {"Flagged", [] { return Restriction::Property(RELOP_EQ, PR_FLAG_STATUS, 2); }, {"Budget plan"}, 0},
    {"Replied", [] { return Restriction::Property(RELOP_EQ, PR_LAST_VERB_EXECUTED, 102); }, {"Re: Lunch"}, 0},
    {"OlderThan", [] {
         return Restriction::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME,
                                      QDateTime::fromSecsSinceEpoch(1710000000, Qt::UTC));
     }, {"Budget plan", "Budget review"}, 0},
    {"RecipientAddressAndTypeOnOneRow", [] {
         return Restriction::Sub(PR_MESSAGE_RECIPIENTS, Restriction::And({Restriction::Content(PR_ADDRTYPE, "smtp"),
                                                                           Restriction::Content(PR_EMAIL_ADDRESS, "eve@")}));
     }, {"Budget plan"}, 0},
    {"SizeOfTheFile", [] { return Restriction::Property(RELOP_GT, PR_MESSAGE_SIZE, 150); },
     {"Budget plan", "Budget review", QueryTest::kColdSubject, "Lunch", "Re: Lunch"}, 0},
    // Case folding of text outside ASCII, on either side of the search.
    {"AsciiTermFindsKelvinSign", [] { return Restriction::Content(PR_SUBJECT, "300 K "); }, {QueryTest::kColdSubject}, 0},
    {"NonAsciiTermIgnoresCase", [] { return Restriction::Content(PR_SUBJECT, "\u00e4rger"); }, {QueryTest::kColdSubject}, 0},
    {"AsciiTermMissesLetterWithMark", [] { return Restriction::Content(PR_SUBJECT, "kalte"); }, {}, 0},
    {"BodyTermReadsEveryBody", [] { return Restriction::Content(PR_BODY, "numbers"); }, {"Budget review", "Lunch"}, 5},
    {"BodyAfterSubjectReadsOnlyCandidates", [] {
         return Restriction::And({Restriction::Content(PR_SUBJECT, "budget"), Restriction::Content(PR_BODY, "NUMBERS")});
     }, {"Budget review"}, 2},
};
INSTANTIATE_TEST_SUITE_P(Maildir, QueryTest, ::testing::ValuesIn(kQueries),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(StoreTest, UnsupportedRestrictionIsRefused)
{
    Put("", "cur/1.a.host:2,", Mail("x"));
    auto store = Open();
    Restriction r = Restriction::Property(RELOP_RE, PR_SUBJECT, "x");
    auto rows = store->Query(kInbox, &r, {PR_SUBJECT});
    ASSERT_FALSE(rows.ok());
    EXPECT_EQ(rows.error().kind, ErrorKind::Permanent);
    EXPECT_EQ(store->Query(FolderIdFor(".Missing"), nullptr, {}).error().kind, ErrorKind::NotFound);
}

TEST_F(StoreTest, ColumnsCarryIdentifiersAndDeliveryTime)
{
    Put("", "cur/1700000000.a.host:2,S", Mail("named"));
    const QString noTime = Put("", "cur/msg-without-time:2,", Mail("mtime"));
    SetMtime(noTime, 1650000000);
    auto store = Open();
    auto rows = store->Query(kInbox, nullptr, {PR_ENTRYID, PR_STORE_ENTRYID, PR_MESSAGE_CLASS, PR_SUBJECT,
                                               PR_MESSAGE_DELIVERY_TIME, PR_BODY});
    ASSERT_TRUE(rows.ok());
    ASSERT_EQ(rows->size(), 2u);
    QHash<QString, Row> bySubject;
    for (const Row& row : *rows) bySubject.insert(row[3].toString(), row);
    EXPECT_EQ(bySubject["named"][4].toDateTime(), QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
    EXPECT_EQ(bySubject["mtime"][4].toDateTime(), QDateTime::fromSecsSinceEpoch(1650000000, Qt::UTC));
    EXPECT_EQ(bySubject["named"][1].toByteArray(), store->StoreId());
    EXPECT_EQ(bySubject["named"][2].toString(), "IPM.Note");
    EXPECT_EQ(bySubject["named"][5].toString().trimmed(), "Hello.");

    auto item = store->Item(bySubject["named"][0].toByteArray());
    ASSERT_TRUE(item.ok());
    EXPECT_EQ(item->Get(PR_SUBJECT)->toString(), "named");
    EXPECT_EQ(item->Get(PR_MESSAGE_FLAGS)->toInt() & MSGFLAG_READ, MSGFLAG_READ);
    EXPECT_EQ(item->recipients.size(), 1u);
    auto raw = store->RawMessage(bySubject["mtime"][0].toByteArray());
    ASSERT_TRUE(raw.ok());
    EXPECT_EQ(*raw, Mail("mtime"));
}

TEST_F(StoreTest, MoveKeepsUniqueNameAndFlags)
{
    MakeMaildir(root + "/.Archive");
    Put("", "cur/1700000000.a.host:2,FS", Mail("flagged"));
    Put("", "new/1700000001.b.host", Mail("new one"));
    Put("", "tmp/1700000002.c.host", Mail("in delivery"));
    auto store = Open();
    auto rows = store->Query(kInbox, nullptr, {PR_ENTRYID, PR_SUBJECT});
    ASSERT_TRUE(rows.ok());
    ASSERT_EQ(rows->size(), 2u);
    std::vector<QByteArray> ids;
    for (const Row& row : *rows) ids.push_back(row[0].toByteArray());
    auto moved = store->MoveMany(ids, FolderIdFor(".Archive"));
    ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
    EXPECT_EQ(ParseMessageId((*moved)[0])->folder, ".Archive");

    EXPECT_EQ(Files(".Archive"), (QStringList{"1700000000.a.host:2,FS", "1700000001.b.host:2,"}));
    EXPECT_TRUE(Files("").isEmpty());
    EXPECT_TRUE(Files("", "new").isEmpty());
    EXPECT_EQ(Files("", "tmp"), QStringList{"1700000002.c.host"});
    // The index moved with the files: nothing to parse in the destination.
    EXPECT_EQ(Subjects(*store, FolderIdFor(".Archive")), (QStringList{"flagged", "new one"}));
    EXPECT_EQ(store->lastScan().parsed, 0);
    EXPECT_TRUE(Subjects(*store, kInbox).isEmpty());
    // The old id is gone; the new one works.
    EXPECT_EQ(store->Move(ids[0], kInbox).error().kind, ErrorKind::NotFound);
    EXPECT_TRUE(store->Item((*moved)[0]).ok());
}

TEST_F(StoreTest, MoveRemapsKeywordLettersToTheDestinationList)
{
    MakeMaildir(root + "/.Archive");
    WriteFile(root + "/dovecot-keywords", "0 Work\n1 $Completed\n2 $MailFlagBit0\n");
    WriteFile(root + "/.Archive/dovecot-keywords", "0 Other\n1 $Completed\n");
    Put("", "cur/1700000000.a.host:2,Sab", Mail("tagged"));
    auto store = Open();
    auto rows = store->Query(kInbox, nullptr, {PR_ENTRYID});
    ASSERT_EQ(rows->size(), 1u);
    auto moved = store->Move((*rows)[0][0].toByteArray(), FolderIdFor(".Archive"));
    ASSERT_TRUE(moved.ok());
    const QStringList files = Files(".Archive");
    ASSERT_EQ(files.size(), 1);
    const QString info = MaildirName::Parse(files[0]).info;
    EXPECT_TRUE(info.contains('S') && info.contains('b') && info.contains('c') && !info.contains('a')) << info.toStdString();
    QFile kw(root + "/.Archive/dovecot-keywords");
    ASSERT_TRUE(kw.open(QIODevice::ReadOnly));
    EXPECT_EQ(kw.readAll(), "0 Other\n1 $Completed\n2 Work\n");
    Restriction complete = Restriction::Property(RELOP_EQ, PR_FLAG_STATUS, 1);
    EXPECT_EQ(Subjects(*store, FolderIdFor(".Archive"), &complete), QStringList{"tagged"});
}

TEST_F(StoreTest, CollisionInDestinationNeverOverwrites)
{
    MakeMaildir(root + "/.Archive");
    Put("", "cur/1700000000.same.host:2,S", Mail("mover"));
    Put(".Archive", "cur/1700000000.same.host:2,", Mail("resident"));
    auto store = Open();
    auto rows = store->Query(kInbox, nullptr, {PR_ENTRYID});
    ASSERT_EQ(rows->size(), 1u);
    auto moved = store->Move((*rows)[0][0].toByteArray(), FolderIdFor(".Archive"));
    ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
    EXPECT_NE(ParseMessageId(*moved)->unique, "1700000000.same.host");
    EXPECT_EQ(Subjects(*store, FolderIdFor(".Archive")), (QStringList{"mover", "resident"}));
    QFile resident(root + "/.Archive/cur/1700000000.same.host:2,");
    ASSERT_TRUE(resident.open(QIODevice::ReadOnly));
    EXPECT_EQ(resident.readAll(), Mail("resident"));
    // The delivery time survives the new name.
    auto item = store->Item(*moved);
    ASSERT_TRUE(item.ok());
    EXPECT_EQ(item->Get(PR_MESSAGE_DELIVERY_TIME)->toDateTime().toSecsSinceEpoch(), 1700000000);
}

TEST_F(StoreTest, VanishedMessagesAreNotFound)
{
    MakeMaildir(root + "/.Archive");
    const QString a = Put("", "cur/1700000000.a.host:2,", Mail("a"));
    Put("", "cur/1700000001.b.host:2,", Mail("b"));
    auto store = Open();
    auto rows = store->Query(kInbox, nullptr, {PR_ENTRYID, PR_SUBJECT});
    ASSERT_EQ(rows->size(), 2u);
    QFile::remove(a);  // someone else moved it meanwhile
    const QByteArray id = (*rows)[0][1].toString() == "a" ? (*rows)[0][0].toByteArray() : (*rows)[1][0].toByteArray();
    EXPECT_EQ(store->Move(id, FolderIdFor(".Archive")).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store->SetFlagStatus(id, 2).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store->Item(id).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(Subjects(*store, kInbox), QStringList{"b"});
}

TEST_F(StoreTest, FileVanishingDuringScanLeavesTheRest)
{
    for (int i = 0; i < 4; ++i) Put("", QStringLiteral("cur/170000000%1.a.host:2,").arg(i), Mail(QStringLiteral("m%1").arg(i)));
    auto store = Open();
    std::atomic<int> calls{0};
    const QString victim = root + "/cur/1700000003.a.host:2,";
    store->SetHeaderParser([&](const QString& path) -> Result<std::shared_ptr<const HeaderProps>> {
        if (calls++ == 0) QFile::remove(path == victim ? root + "/cur/1700000000.a.host:2," : victim);
        auto r = stores::MimeProperties::FromFile(path);
        if (!r) return r.error();
        auto h = std::make_shared<HeaderProps>();
        for (auto it = r->props.cbegin(); it != r->props.cend(); ++it) h->props.emplace_back(it.key(), it.value());
        return std::shared_ptr<const HeaderProps>(h);
    });
    EXPECT_EQ(Subjects(*store, kInbox).size(), 3);
    EXPECT_EQ(store->lastScan().unreadable, 0);
}

TEST_F(StoreTest, UnreadableFileIsSkippedAndTheRestAnswered)
{
    Put("", "cur/1700000000.a.host:2,", Mail("readable"));
    const QString locked = Put("", "cur/1700000001.b.host:2,", Mail("locked"));
    ASSERT_EQ(::chmod(QFile::encodeName(locked).constData(), 0), 0);
    auto store = Open();
    // Root reads anything: drop to another file-system identity for the query.
    const bool asRoot = ::geteuid() == 0;
    if (asRoot) {
        MakeMaildir(root + "/.Other");
        ASSERT_TRUE(store->Query(FolderIdFor(".Other"), nullptr, {}).ok());  // opens the index while still allowed to
        ::chmod(QFile::encodeName(m_tmp.path()).constData(), 0755);
        for (const QString& d : {root, root + "/cur", root + "/new", root + "/tmp"})
            ::chmod(QFile::encodeName(d).constData(), 0777);
        ::chmod(QFile::encodeName(QFileInfo(indexPath).absolutePath()).constData(), 0777);
        ::setfsuid(65534);
        if (::setfsuid(65534) != 65534) GTEST_SKIP() << "cannot change the file-system user";
    }
    const QStringList subjects = Subjects(*store, kInbox);
    const int unreadable = store->lastScan().unreadable;
    if (asRoot) ::setfsuid(0);
    EXPECT_EQ(subjects, QStringList{"readable"});
    EXPECT_EQ(unreadable, 1);
    // Readable again: the next run takes it.
    ::chmod(QFile::encodeName(locked).constData(), 0644);
    EXPECT_EQ(Subjects(*store, kInbox), (QStringList{"locked", "readable"}));
}

TEST_F(StoreTest, LargeMessageIsIndexedFromItsHeaders)
{
    QByteArray body;
    const QByteArray line(76, 'x');
    body.reserve(50 * 1024 * 1024 + 100);
    while (body.size() < 50 * 1024 * 1024) body += line + '\n';
    body += "needle at the end\n";
    auto store = Open();
    auto id = store->Append(kInbox, NewMessage{Mail("huge", "Alice <alice@example.com>", "Bob <bob@example.org>", body), {}, {}, {}});
    ASSERT_TRUE(id.ok()) << id.error().message.toStdString();
    Restriction subject = Restriction::Content(PR_SUBJECT, "huge");
    EXPECT_EQ(Subjects(*store, kInbox, &subject), QStringList{"huge"});
    Restriction needle = Restriction::Content(PR_BODY, "needle at the end");
    EXPECT_EQ(Subjects(*store, kInbox, &needle), QStringList{"huge"});
    auto rows = store->Query(kInbox, nullptr, {PR_MESSAGE_SIZE});
    ASSERT_EQ(rows->size(), 1u);
    EXPECT_GT((*rows)[0][0].toInt(), 50 * 1024 * 1024);
}

TEST_F(StoreTest, CorruptIndexIsRebuilt)
{
    Put("", "cur/1700000000.a.host:2,", Mail("a"));
    Put("", "cur/1700000001.b.host:2,", Mail("b"));
    {
        auto store = Open();
        EXPECT_EQ(Subjects(*store, kInbox).size(), 2);
    }
    for (const char* junk : {"this is not a database at all", ""}) {
        QFile::remove(indexPath + "-wal");
        QFile::remove(indexPath + "-shm");
        QByteArray bytes(8192, 'z');
        bytes.replace(0, qsizetype(strlen(junk)), junk);
        WriteFile(indexPath, bytes);
        auto store = Open();
        EXPECT_EQ(Subjects(*store, kInbox), (QStringList{"a", "b"}));
        EXPECT_EQ(store->indexRebuilds(), 1);
        EXPECT_EQ(store->lastScan().parsed, 2);
    }
}

TEST_F(StoreTest, IndexThatCannotBeCreatedIsAnError)
{
    Put("", "cur/1700000000.a.host:2,", Mail("a"));
    WriteFile(m_tmp.path() + "/blocker", "a file where a directory should be");
    indexPath = m_tmp.path() + "/blocker/index.sqlite";
    auto rows = Open()->Query(kInbox, nullptr, {PR_SUBJECT});
    ASSERT_FALSE(rows.ok());
    EXPECT_EQ(rows.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(rows.error().message.contains("index")) << rows.error().message.toStdString();
}

TEST_F(StoreTest, SetFlagStatusRenamesWithinCur)
{
    struct Case {
        const char* start;
        int status;
        const char* expectedInfo;
    } cases[] = {
        {"cur/1700000000.a.host:2,S", 2, "FS"},
        {"cur/1700000001.b.host:2,FS", 0, "S"},
        {"new/1700000002.c.host", 2, "F"},
        {"cur/1700000003.d.host:2,F", 1, "a"},  // $Completed gets the first free letter
    };
    for (const Case& c : cases) Put("", QString::fromUtf8(c.start), Mail(QString::fromUtf8(c.start)));
    auto store = Open();
    for (const Case& c : cases) {
        const QString unique = MaildirName::Parse(QString::fromUtf8(c.start).section('/', 1)).unique;
        ASSERT_TRUE(store->SetFlagStatus(MessageIdFor("", unique), c.status).ok()) << c.start;
        EXPECT_TRUE(QFileInfo::exists(root + "/cur/" + unique + ":2," + c.expectedInfo)) << c.start;
        Restriction r = Restriction::And({Restriction::Content(PR_SUBJECT, unique),
                                          Restriction::Property(RELOP_EQ, PR_FLAG_STATUS, c.status)});
        EXPECT_EQ(Subjects(*store, kInbox, &r).size(), 1) << c.start;
        EXPECT_EQ(store->lastScan().parsed, 0) << c.start;
    }
    EXPECT_FALSE(store->SetFlagStatus(MessageIdFor("", "1700000000.a.host"), 7).ok());
}

TEST_F(StoreTest, AppendDeliversThroughTmp)
{
    MakeMaildir(root + "/.Sent");
    auto store = Open();
    MessageFlags flags;
    flags.seen = true;
    const QDateTime at = QDateTime::fromSecsSinceEpoch(1690000000, Qt::UTC);
    auto id = store->Append(FolderIdFor(".Sent"), NewMessage{Mail("sent"), flags, at, {}});
    ASSERT_TRUE(id.ok());
    EXPECT_TRUE(Files(".Sent", "tmp").isEmpty());
    const QStringList files = Files(".Sent");
    ASSERT_EQ(files.size(), 1);
    EXPECT_EQ(MaildirName::Parse(files[0]).info, "S");
    auto item = store->Item(*id);
    ASSERT_TRUE(item.ok());
    EXPECT_EQ(item->Get(PR_MESSAGE_DELIVERY_TIME)->toDateTime(), at);
    EXPECT_EQ(store->Append(FolderIdFor(".Nope"), NewMessage{Mail("x"), {}, {}, {}}).error().kind, ErrorKind::NotFound);
}

TEST_F(StoreTest, NewMailInInboxIsSignalled)
{
    Put("", "cur/1700000000.a.host:2,", Mail("old"));
    auto store = Open(true);
    QSignalSpy spy(store.get(), &MessageStore::MessagesArrived);
    // A flag change renames a known message: not an arrival.
    QFile::rename(root + "/cur/1700000000.a.host:2,", root + "/cur/1700000000.a.host:2,S");
    Put("", "new/1700000001.b.host", Mail("new"));
    ASSERT_TRUE(spy.wait(5000));
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(spy.at(0).at(0).toByteArray(), kInbox);
}

}  // namespace
