// The Maildir store's own behaviour: the index, files on disk, renames. The
// query and move semantics every store shares run in tests/conformance.

#include "MaildirFixture.h"

#include "platform/stores/common/MimeProperties.h"

#include <QSignalSpy>

#include <atomic>

using namespace mv;
using namespace mv::stores::maildir;
using namespace mv::stores::maildir::test;

namespace {

using StoreTest = MaildirFixture;
using R = Restriction;

TEST_F(StoreTest, IndexParsesOnlyNewAndChangedFiles)
{
    for (int i = 0; i < 5; ++i) Put("", QStringLiteral("cur/170000000%1.a.host:2,").arg(i), Mail(QStringLiteral("m%1").arg(i)));
    auto store = Open();
    struct Step {
        const char* what;
        std::function<void()> change;
        int parsed, renamed, dropped;
        QStringList subjects;
    } steps[] = {
        {"first scan", [] {}, 5, 0, 0, {"m0", "m1", "m2", "m3", "m4"}},
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
    R read = R::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ);
    EXPECT_EQ(Subjects(*store, kInbox, &read), QStringList{"m1"});
}

TEST_F(StoreTest, UnchangedDirectoriesAreNotListedAgain)
{
    Put("", "cur/1700000000.a.host:2,", Mail("old"));
    for (const char* sub : {"/cur", "/new"}) SetMtime(root + sub, 1700000000);
    auto store = Open();
    Subjects(*store, kInbox);
    Subjects(*store, kInbox);
    EXPECT_TRUE(store->lastScan().skipped);
    Put("", "new/1700000001.b.host", Mail("arrived"));
    EXPECT_EQ(Subjects(*store, kInbox), (QStringList{"arrived", "old"}));
    EXPECT_FALSE(store->lastScan().skipped);
}

// What only files can tell (new/ is unread, tmp/ and T are hidden, the size
// is the file's) answers the same from a new process's index, and bodies are
// read only when a term needs them.
TEST_F(StoreTest, QueriesAnswerFromTheIndexAndReadBodiesOnlyWhenAsked)
{
    Put("", "cur/1600000000.a.host:2,S", Mail("Budget review", "Carol <carol@corp.example>", "Bob <bob@example.org>", "numbers inside\n"));
    Put("", "cur/1700000000.b.host:2,F", Mail("Budget plan", "Dan <dan@example.net>", "Eve <eve@example.org>", "holiday plans\n"));
    Put("", "new/1750000000.c.host", Mail("Lunch", "Alice <alice@example.com>", "Bob <bob@example.org>", "numbers again\n"));
    Put("", "cur/1750000002.e.host:2,ST", Mail("Deleted one"));
    Put("", "tmp/1750000003.f.host", Mail("Being delivered"));
    const QStringList all = {"Budget plan", "Budget review", "Lunch"};
    const struct {
        const char* name;
        R restriction;
        QStringList subjects;
        int bodyReads;
    } cases[] = {
        {"Everything", R(RES_AND), all, 0},
        {"Unread", R::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ), {"Budget plan", "Lunch"}, 0},
        {"SizeOfTheFile", R::Property(RELOP_GT, PR_MESSAGE_SIZE, 150), all, 0},
        {"BodyTermReadsEveryBody", R::Content(PR_BODY, "numbers"), {"Budget review", "Lunch"}, 3},
        {"BodyAfterSubjectReadsOnlyCandidates",
         R::And({R::Content(PR_SUBJECT, "budget"), R::Content(PR_BODY, "NUMBERS")}), {"Budget review"}, 2},
    };
    for (bool fromIndex : {false, true}) {
        auto store = Open();
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.name) + (fromIndex ? " from the index" : " from the files"));
            EXPECT_EQ(Subjects(*store, kInbox, &c.restriction), c.subjects);
            // A later store reads no body again: the answers are remembered.
            EXPECT_EQ(store->lastBodyReads(), fromIndex ? 0 : c.bodyReads);
        }
        if (fromIndex) {
            EXPECT_EQ(store->lastScan().parsed, 0);
        }
    }
}

TEST_F(StoreTest, DeliveryTimeFromTheFileTimeWhenTheNameHasNone)
{
    SetMtime(Put("", "cur/msg-without-time:2,", Mail("mtime")), 1650000000);
    auto store = Open();
    const QByteArray id = IdOf(*store, kInbox, "mtime");
    EXPECT_EQ(store->Item(id)->Get(PR_MESSAGE_DELIVERY_TIME)->toDateTime(),
              QDateTime::fromSecsSinceEpoch(1650000000, Qt::UTC));
    EXPECT_EQ(*store->RawMessage(id), Mail("mtime"));
}

TEST_F(StoreTest, MoveKeepsUniqueNameFlagsAndIndexAndRemapsKeywordLetters)
{
    MakeMaildir(root + "/.Archive");
    WriteFile(root + "/dovecot-keywords", "0 Work\n1 $Completed\n2 $MailFlagBit0\n");
    WriteFile(root + "/.Archive/dovecot-keywords", "0 Other\n1 $Completed\n");
    Put("", "cur/1700000000.a.host:2,FS", Mail("flagged"));
    Put("", "new/1700000001.b.host", Mail("new one"));
    Put("", "tmp/1700000002.c.host", Mail("in delivery"));
    Put("", "cur/1700000003.d.host:2,Sab", Mail("tagged"));
    auto store = Open();
    auto moved = store->MoveMany(
        {IdOf(*store, kInbox, "flagged"), IdOf(*store, kInbox, "new one"), IdOf(*store, kInbox, "tagged")}, kArchive);
    ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
    const QStringList files = Files(".Archive");
    ASSERT_EQ(files.size(), 3);
    EXPECT_EQ(files.mid(0, 2), (QStringList{"1700000000.a.host:2,FS", "1700000001.b.host:2,"}));
    EXPECT_TRUE(Files("").isEmpty());
    EXPECT_TRUE(Files("", "new").isEmpty());
    EXPECT_EQ(Files("", "tmp"), QStringList{"1700000002.c.host"});
    // Keyword letters follow the destination's list, which learns the new names.
    const QString info = MaildirName::Parse(files[2]).info;
    EXPECT_TRUE(info.contains('S') && info.contains('b') && info.contains('c') && !info.contains('a')) << info.toStdString();
    QFile kw(root + "/.Archive/dovecot-keywords");
    ASSERT_TRUE(kw.open(QIODevice::ReadOnly));
    EXPECT_EQ(kw.readAll(), "0 Other\n1 $Completed\n2 Work\n");
    // The index moved with the files: nothing to parse in the destination.
    EXPECT_EQ(Subjects(*store, kArchive), (QStringList{"flagged", "new one", "tagged"}));
    EXPECT_EQ(store->lastScan().parsed, 0);
    R complete = R::Property(RELOP_EQ, PR_FLAG_STATUS, 1);
    EXPECT_EQ(Subjects(*store, kArchive, &complete), QStringList{"tagged"});
}

TEST_F(StoreTest, CollisionInDestinationNeverOverwrites)
{
    Put("", "cur/1700000000.same.host:2,S", Mail("mover"));
    Put(".Archive", "cur/1700000000.same.host:2,", Mail("resident"));
    auto store = Open();
    auto moved = store->Move(IdOf(*store, kInbox, "mover"), kArchive);
    ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
    EXPECT_NE(ParseMessageId(*moved)->unique, "1700000000.same.host");
    EXPECT_EQ(Subjects(*store, kArchive), (QStringList{"mover", "resident"}));
    QFile resident(root + "/.Archive/cur/1700000000.same.host:2,");
    ASSERT_TRUE(resident.open(QIODevice::ReadOnly));
    EXPECT_EQ(resident.readAll(), Mail("resident"));
    // The delivery time survives the new name.
    EXPECT_EQ(store->Item(*moved)->Get(PR_MESSAGE_DELIVERY_TIME)->toDateTime().toSecsSinceEpoch(), 1700000000);
}

// A file that cannot be read costs only itself, like one that vanishes
// between the listing and its parse; the scan counts it and tries again.
TEST_F(StoreTest, VanishedAndUnreadableFilesAreLeftOutAndTheRestAnswered)
{
    MakeMaildir(root + "/.Archive");
    for (int i = 0; i < 5; ++i) Put("", QStringLiteral("cur/170000000%1.a.host:2,").arg(i), Mail(QStringLiteral("m%1").arg(i)));
    auto store = Open();
    std::atomic<int> calls{0};
    std::atomic<bool> locked{true};
    store->SetHeaderParser([&](const QString& path) -> Result<std::shared_ptr<const HeaderProps>> {
        if (calls++ == 0) QFile::remove(root + "/cur/170000000" + (path.contains("1700000003") ? "0" : "3") + ".a.host:2,");
        if (locked && path.contains("1700000004")) return Error::permanent(QStringLiteral("Permission denied"));
        auto r = stores::MimeProperties::FromFile(path);
        if (!r) return r.error();
        auto h = std::make_shared<HeaderProps>();
        for (auto it = r->props.cbegin(); it != r->props.cend(); ++it) h->props.emplace_back(it.key(), it.value());
        return std::shared_ptr<const HeaderProps>(h);
    });
    EXPECT_EQ(Subjects(*store, kInbox).size(), 3);
    EXPECT_EQ(store->lastScan().unreadable, 1);
    locked = false;
    EXPECT_EQ(Subjects(*store, kInbox).size(), 4);
    // Someone else moves one after the scan.
    const QByteArray id = IdOf(*store, kInbox, "m1");
    QFile::remove(root + "/cur/1700000001.a.host:2,");
    EXPECT_EQ(store->Move(id, kArchive).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store->SetFlagStatus(id, 2).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store->Item(id).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(Subjects(*store, kInbox).size(), 3);
}

TEST_F(StoreTest, CorruptIndexIsRebuiltAndOneThatCannotBeMadeIsAnError)
{
    Put("", "cur/1700000000.a.host:2,", Mail("a"));
    Put("", "cur/1700000001.b.host:2,", Mail("b"));
    EXPECT_EQ(Subjects(*Open(), kInbox).size(), 2);
    QFile::remove(indexPath + "-wal");
    QFile::remove(indexPath + "-shm");
    WriteFile(indexPath, "this is not a database at all" + QByteArray(8192, 'z'));
    // Without the compact index, which would answer without the SQLite file.
    QDir(m_tmp.path() + "/cache/index.folders").removeRecursively();
    {
        auto store = Open();
        EXPECT_EQ(Subjects(*store, kInbox), (QStringList{"a", "b"}));
        EXPECT_EQ(store->indexRebuilds(), 1);
        EXPECT_EQ(store->lastScan().parsed, 2);
    }
    WriteFile(m_tmp.path() + "/blocker", "a file where a directory should be");
    indexPath = m_tmp.path() + "/blocker/index.sqlite";
    auto rows = Open()->Query(kInbox, nullptr, {PR_SUBJECT});
    ASSERT_FALSE(rows.ok());
    EXPECT_EQ(rows.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(rows.error().message.contains("index")) << rows.error().message.toStdString();
}

TEST_F(StoreTest, SetFlagStatusRenamesWithinCur)
{
    const struct {
        const char* start;
        int status;
        const char* expectedInfo;
    } cases[] = {
        {"cur/1700000000.a.host:2,S", 2, "FS"},
        {"cur/1700000001.b.host:2,FS", 0, "S"},
        {"new/1700000002.c.host", 2, "F"},
        {"cur/1700000003.d.host:2,F", 1, "a"},  // $Completed gets the first free letter
    };
    for (const auto& c : cases) Put("", QString::fromUtf8(c.start), Mail(QString::fromUtf8(c.start)));
    auto store = Open();
    for (const auto& c : cases) {
        const QString unique = MaildirName::Parse(QString::fromUtf8(c.start).section('/', 1)).unique;
        ASSERT_TRUE(store->SetFlagStatus(MessageIdFor("", unique), c.status).ok()) << c.start;
        EXPECT_TRUE(QFileInfo::exists(root + "/cur/" + unique + ":2," + c.expectedInfo)) << c.start;
        // The index follows the rename; the next query sees the status (tests/conformance).
        Subjects(*store, kInbox);
        EXPECT_EQ(store->lastScan().parsed, 0) << c.start;
    }
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
