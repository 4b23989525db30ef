// What the memory store does beyond the queries, moves and flag changes that
// tests/conformance runs through every store (and the failures tests/engine
// injects): folders, arrival signals and the contents table over it.

#include "platform/mapi/ContentsTable.h"
#include "platform/stores/memory/MemoryStore.h"

#include "tests/support/QtPrinters.h"

#include <gtest/gtest.h>

#include <QTimeZone>

namespace mv::stores {
namespace {

using namespace mv::mapi;
using Call = MemoryStore::Call;

const QDateTime kClock(QDate(2026, 5, 5), QTime(8, 30, 15), QTimeZone::utc());

NewMessage Mail(const QString& subject, QDateTime date = {})
{
    const QByteArray raw = "From: Ann <ann@example.com>\r\nTo: Bo <bo@example.com>\r\nSubject: " + subject.toUtf8()
                         + "\r\n\r\nHello.\r\n";
    return NewMessage{raw, {}, std::move(date), {}};
}

class MemoryStoreTest : public ::testing::Test {
protected:
    MemoryStoreTest()
        : store(MemoryStoreOptions{QStringLiteral("Test"), QStringLiteral("me@example.com"), [] { return kClock; }})
    {
    }
    QByteArray Add(const QString& subject, const QString& folder = QStringLiteral("Inbox"))
    {
        Result<QByteArray> id = store.Append(store.FolderIdByPath(folder), Mail(subject));
        EXPECT_TRUE(id.ok());
        return id.ok() ? *id : QByteArray();
    }
    QStringList SubjectsIn(const QString& folder)
    {
        Result<std::vector<Row>> rows = store.Query(store.FolderIdByPath(folder), nullptr, {PR_SUBJECT});
        EXPECT_TRUE(rows.ok());
        QStringList subjects;
        for (const Row& r : rows.ok() ? *rows : std::vector<Row>{}) subjects << r[0].toString();
        return subjects;
    }

    MemoryStore store;
};

TEST_F(MemoryStoreTest, StandardFoldersAndRefusedNames)
{
    QStringList seen;
    const auto folders = store.Folders();
    for (const FolderInfo& f : *folders) seen << f.path + QLatin1Char('=') + f.specialUse;
    EXPECT_EQ(seen, QStringList({"Inbox=\\Inbox", "Sent=\\Sent", "Drafts=\\Drafts", "Trash=\\Trash", "Archive=\\Archive"}));

    // Nested folders run in tests/outlook.
    Result<QByteArray> projects = store.CreateFolder(store.InboxId(), QStringLiteral("Projects"));
    ASSERT_TRUE(projects.ok());
    EXPECT_EQ(store.FolderIdByPath(QStringLiteral("inbox/PROJECTS")), *projects);

    const size_t before = store.Folders()->size();
    for (const char* bad : {"", "  ", "a/b", "ARCHIVE"}) {
        Result<QByteArray> r = store.CreateFolder({}, QString::fromUtf8(bad));
        ASSERT_FALSE(r.ok()) << bad;
        EXPECT_EQ(r.error().kind, ErrorKind::Permanent) << bad;
        EXPECT_FALSE(r.error().message.isEmpty());
    }
    EXPECT_EQ(store.CreateFolder("MVM1Fnope", QStringLiteral("Fine")).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store.Folders()->size(), before);
}

TEST_F(MemoryStoreTest, AppendStampsDateOwnAddressAndRefusesBadInput)
{
    const QDateTime withMillis = QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5, 678), QTimeZone(3600));
    Result<QByteArray> id = store.Append(store.InboxId(), Mail(QStringLiteral("Dated"), withMillis));
    ASSERT_TRUE(id.ok());
    Result<MessageRecord> item = store.Item(*id);
    ASSERT_TRUE(item.ok());
    EXPECT_EQ(item->Get(PR_MESSAGE_DELIVERY_TIME)->toDateTime(),
              QDateTime(QDate(2026, 1, 2), QTime(2, 4, 5), QTimeZone::utc()));
    EXPECT_EQ(item->Get(PR_BODY)->toString().trimmed(), QStringLiteral("Hello."));
    EXPECT_EQ(item->Get(PR_RCVD_REPRESENTING_EMAIL_ADDRESS)->toString(), QStringLiteral("me@example.com"));
    EXPECT_EQ(store.Item(Add(QStringLiteral("Undated")))->Get(PR_MESSAGE_DELIVERY_TIME)->toDateTime(), kClock);

    EXPECT_EQ(store.Append(store.InboxId(), NewMessage{}).error().kind, ErrorKind::Permanent);
    EXPECT_EQ(store.Append("MVM1Fnowhere", Mail(QStringLiteral("x"))).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(SubjectsIn("Inbox"), QStringList({"Dated", "Undated"}));
}

TEST_F(MemoryStoreTest, ArrivalSignalOnlyForInboxAndSent)
{
    QList<QByteArray> arrived;
    QObject::connect(&store, &MessageStore::MessagesArrived, [&](const QByteArray& folder) { arrived << folder; });
    Add(QStringLiteral("a"));
    const QByteArray archived = Add(QStringLiteral("b"), QStringLiteral("Archive"));
    Add(QStringLiteral("c"), QStringLiteral("Sent"));
    Add(QStringLiteral("d"), QStringLiteral("Drafts"));
    EXPECT_EQ(arrived, QList<QByteArray>({store.InboxId(), store.FolderIdByPath(QStringLiteral("Sent"))}));
    // A move into the INBOX is not an arrival.
    ASSERT_TRUE(store.Move(archived, store.InboxId()).ok());
    EXPECT_EQ(arrived.size(), 2);
}

TEST_F(MemoryStoreTest, MoveToSameFolderKeepsIdAndMoveManyStopsAtFirstError)
{
    const QByteArray a = Add(QStringLiteral("a"));
    const QByteArray b = Add(QStringLiteral("b"));
    const QByteArray c = Add(QStringLiteral("c"));
    EXPECT_EQ(*store.Move(a, store.InboxId()), a);
    ASSERT_TRUE(store.Move(b, store.FolderIdByPath(QStringLiteral("Archive"))).ok());  // b's id is now stale
    Result<std::vector<QByteArray>> r = store.MoveMany({a, b, c}, store.FolderIdByPath(QStringLiteral("Trash")));
    ASSERT_FALSE(r.ok());
    EXPECT_EQ(r.error().kind, ErrorKind::NotFound);
    EXPECT_EQ(SubjectsIn("Trash"), QStringList{QStringLiteral("a")});
    EXPECT_EQ(SubjectsIn("Inbox"), QStringList{QStringLiteral("c")});
}

TEST_F(MemoryStoreTest, TableQueriesOnceUntilRewoundOrFailedAndReadsAbsentAsInvalid)
{
    for (const char* s : {"keep", "move 1", "move 2"}) Add(QString::fromLatin1(s));
    ContentsTable table(store, store.InboxId());
    table.Filter().AddChild(Restriction::Content(PR_SUBJECT, QStringLiteral("move")));
    table.SetColumns({PR_ENTRYID, PR_SUBJECT, PR_FLAG_ICON, 0x0037001F});
    table.GoToFirstRow();
    QStringList read;
    for (Result<Row> row = table.GetNextRow(); row.ok() && !row->empty(); row = table.GetNextRow()) {
        ASSERT_EQ(row->size(), 4u);
        EXPECT_FALSE(row->at(2).isValid()) << "an absent property is an invalid value";
        EXPECT_EQ(row->at(3).toString(), row->at(1).toString()) << "the Unicode tag reads the same subject";
        read << row->at(1).toString();
        ASSERT_TRUE(store.Move(row->at(0).toByteArray(), store.FolderIdByPath(QStringLiteral("Trash"))).ok());
    }
    EXPECT_EQ(read, QStringList({"move 1", "move 2"}));
    EXPECT_EQ(store.CallCount(Call::Query), 1);
    // Starting over asks the store again and sees the folder as it is now.
    table.GoToFirstRow();
    EXPECT_TRUE(table.GetNextRow()->empty());
    EXPECT_EQ(store.CallCount(Call::Query), 2);
    // A store error is reported, and the next call asks again.
    store.FailNext(Call::Query, 1, Error::temporary(QStringLiteral("busy")));
    table.GoToFirstRow();
    EXPECT_EQ(table.GetNextRow().error().kind, ErrorKind::Temporary);
    EXPECT_TRUE(table.GetNextRow()->empty());
    EXPECT_EQ(store.CallCount(Call::Query), 4);
}

}  // namespace
}  // namespace mv::stores
