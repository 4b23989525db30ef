#include "platform/mapi/ContentsTable.h"
#include "platform/mapi/MapiUtils.h"
#include "platform/stores/memory/MemoryStore.h"

#include <gtest/gtest.h>

#include <QTimeZone>

namespace mv::stores {
namespace {

using namespace mv::mapi;
using Call = MemoryStore::Call;

const QDateTime kClock(QDate(2026, 5, 5), QTime(8, 30, 15), QTimeZone::utc());

NewMessage Mail(const QString& subject, QDateTime date = {}, MessageFlags flags = {})
{
    const QByteArray raw = "From: Ann <ann@example.com>\r\nTo: Bo <bo@example.com>\r\nSubject: " + subject.toUtf8()
                         + "\r\n\r\nHello.\r\n";
    return NewMessage{raw, std::move(flags), std::move(date), {}};
}

class MemoryStoreTest : public ::testing::Test {
protected:
    MemoryStoreTest() : store(MemoryStoreOptions{QStringLiteral("Test"), QStringLiteral("me@example.com"), [] { return kClock; }}) {}

    QByteArray Add(const QString& subject, const QByteArray& folder = {})
    {
        Result<QByteArray> id = store.Append(folder.isEmpty() ? store.InboxId() : folder, Mail(subject));
        EXPECT_TRUE(id.ok());
        return id.ok() ? *id : QByteArray();
    }
    QStringList SubjectsIn(const QByteArray& folder)
    {
        Result<std::vector<Row>> rows = store.Query(folder, nullptr, {PR_SUBJECT});
        EXPECT_TRUE(rows.ok());
        QStringList subjects;
        if (rows.ok())
            for (const Row& r : *rows) subjects << r[0].toString();
        return subjects;
    }

    MemoryStore store;
};

TEST_F(MemoryStoreTest, StartsWithTheStandardFolders)
{
    Result<std::vector<FolderInfo>> folders = store.Folders();
    ASSERT_TRUE(folders.ok());
    QStringList seen;
    for (const FolderInfo& f : *folders) {
        seen << f.path + QLatin1Char('=') + f.specialUse;
        EXPECT_TRUE(f.parentId.isEmpty());
        EXPECT_EQ(f.total, 0);
    }
    EXPECT_EQ(seen, QStringList({"Inbox=\\Inbox", "Sent=\\Sent", "Drafts=\\Drafts", "Trash=\\Trash", "Archive=\\Archive"}));
}

TEST_F(MemoryStoreTest, NestedFolderHasPathAndParent)
{
    Result<QByteArray> projects = store.CreateFolder(store.InboxId(), QStringLiteral("Projects"));
    ASSERT_TRUE(projects.ok());
    Result<QByteArray> deeper = store.CreateFolder(*projects, QStringLiteral("2026"));
    ASSERT_TRUE(deeper.ok());
    Result<FolderInfo> info = store.Folder(*deeper);
    ASSERT_TRUE(info.ok());
    EXPECT_EQ(info->path, QStringLiteral("Inbox/Projects/2026"));
    EXPECT_EQ(info->name, QStringLiteral("2026"));
    EXPECT_EQ(info->parentId, *projects);
    EXPECT_EQ(store.FolderIdByPath(QStringLiteral("inbox/projects/2026")), *deeper);
}

struct BadFolder {
    const char* name;
    bool parentIsBogus;
    QString folderName;
    ErrorKind kind;
};
void PrintTo(const BadFolder& c, std::ostream* os) { *os << c.name; }

class CreateFolderErrors : public MemoryStoreTest, public ::testing::WithParamInterface<BadFolder> {};

TEST_P(CreateFolderErrors, RefusedWithoutChange)
{
    const BadFolder& c = GetParam();
    const size_t before = store.Folders()->size();
    Result<QByteArray> r = store.CreateFolder(c.parentIsBogus ? QByteArray("MVM1Fnope") : QByteArray(), c.folderName);
    ASSERT_FALSE(r.ok());
    EXPECT_EQ(r.error().kind, c.kind);
    EXPECT_FALSE(r.error().message.isEmpty());
    EXPECT_EQ(store.Folders()->size(), before);
}

INSTANTIATE_TEST_SUITE_P(Table, CreateFolderErrors,
                         ::testing::Values(BadFolder{"Empty", false, "", ErrorKind::Permanent},
                                           BadFolder{"Blank", false, "  ", ErrorKind::Permanent},
                                           BadFolder{"Slash", false, "a/b", ErrorKind::Permanent},
                                           BadFolder{"DuplicateIgnoringCase", false, "ARCHIVE", ErrorKind::Permanent},
                                           BadFolder{"UnknownParent", true, "Fine", ErrorKind::NotFound}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(MemoryStoreTest, IdentifiersCarryMagicAndNeverCrossStores)
{
    const QByteArray id = Add(QStringLiteral("one"));
    EXPECT_TRUE(id.startsWith("MVM1"));
    EXPECT_TRUE(store.StoreId().startsWith("MVM1"));
    EXPECT_EQ(MapiUtils::HexToBinary(MapiUtils::HrGetHexFromBinary(id)), id);

    MemoryStore other(MemoryStoreOptions{QStringLiteral("Other"), {}, {}});
    EXPECT_NE(other.InboxId(), store.InboxId());
    EXPECT_NE(other.StoreId(), store.StoreId());
    Result<MessageRecord> foreign = other.Item(id);
    ASSERT_FALSE(foreign.ok());
    EXPECT_EQ(foreign.error().kind, ErrorKind::NotFound);
    Result<std::vector<Row>> foreignFolder = other.Query(store.InboxId(), nullptr, {PR_SUBJECT});
    ASSERT_FALSE(foreignFolder.ok());
    EXPECT_EQ(foreignFolder.error().kind, ErrorKind::NotFound);
    // Truncated and padded identifiers name nothing.
    EXPECT_FALSE(store.Item(id.chopped(1)).ok());
    EXPECT_FALSE(store.Item(id + "x").ok());
}

TEST_F(MemoryStoreTest, AppendStampsPropertiesFromParserFlagsAndDate)
{
    MessageFlags flags;
    flags.seen = true;
    flags.flagged = true;
    flags.keywords = {QStringLiteral("$MailFlagBit2")};
    const QDateTime withMillis = QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5, 678), QTimeZone(3600));
    Result<QByteArray> id = store.Append(store.InboxId(), Mail(QStringLiteral("Dated"), withMillis, flags));
    ASSERT_TRUE(id.ok());
    Result<MessageRecord> item = store.Item(*id);
    ASSERT_TRUE(item.ok());
    EXPECT_EQ(item->Get(PR_SUBJECT)->toString(), QStringLiteral("Dated"));
    EXPECT_EQ(item->Get(PR_SENT_REPRESENTING_EMAIL_ADDRESS)->toString(), QStringLiteral("ann@example.com"));
    EXPECT_EQ(item->Get(PR_BODY)->toString().trimmed(), QStringLiteral("Hello."));
    EXPECT_EQ(item->Get(PR_MESSAGE_DELIVERY_TIME)->toDateTime(),
              QDateTime(QDate(2026, 1, 2), QTime(2, 4, 5), QTimeZone::utc()));
    EXPECT_EQ(item->Get(PR_MESSAGE_DELIVERY_TIME)->toDateTime().timeSpec(), Qt::UTC);
    EXPECT_EQ(item->Get(PR_FLAG_STATUS)->toInt(), 2);
    EXPECT_EQ(item->Get(PR_FLAG_ICON)->toInt(), 5);
    EXPECT_EQ(item->Get(PR_MESSAGE_FLAGS)->toInt() & MSGFLAG_READ, MSGFLAG_READ);
    EXPECT_EQ(item->Get(PR_ENTRYID)->toByteArray(), *id);
    EXPECT_EQ(item->Get(PR_STORE_ENTRYID)->toByteArray(), store.StoreId());
    EXPECT_EQ(item->Get(PR_RCVD_REPRESENTING_EMAIL_ADDRESS)->toString(), QStringLiteral("me@example.com"));

    Result<QByteArray> undated = store.Append(store.InboxId(), Mail(QStringLiteral("Undated")));
    ASSERT_TRUE(undated.ok());
    EXPECT_EQ(store.Item(*undated)->Get(PR_MESSAGE_DELIVERY_TIME)->toDateTime(), kClock);
}

TEST_F(MemoryStoreTest, AppendRefusesBadInput)
{
    Result<QByteArray> empty = store.Append(store.InboxId(), NewMessage{});
    ASSERT_FALSE(empty.ok());
    EXPECT_EQ(empty.error().kind, ErrorKind::Permanent);
    Result<QByteArray> nowhere = store.Append(QByteArray("MVM1Fnowhere"), Mail(QStringLiteral("x")));
    ASSERT_FALSE(nowhere.ok());
    EXPECT_EQ(nowhere.error().kind, ErrorKind::NotFound);
    EXPECT_TRUE(SubjectsIn(store.InboxId()).isEmpty());
}

TEST_F(MemoryStoreTest, ArrivalSignalOnlyForInboxAndSent)
{
    QList<QByteArray> arrived;
    QObject::connect(&store, &MessageStore::MessagesArrived, [&](const QByteArray& folder) { arrived << folder; });
    const QByteArray sent = store.FolderIdByPath(QStringLiteral("Sent"));
    Add(QStringLiteral("a"));
    const QByteArray archived = Add(QStringLiteral("b"), store.FolderIdByPath(QStringLiteral("Archive")));
    Add(QStringLiteral("c"), sent);
    Add(QStringLiteral("d"), store.FolderIdByPath(QStringLiteral("Drafts")));
    EXPECT_EQ(arrived, QList<QByteArray>({store.InboxId(), sent}));
    // A move into the INBOX is not an arrival.
    ASSERT_TRUE(store.Move(archived, store.InboxId()).ok());
    EXPECT_EQ(arrived.size(), 2);
}

TEST_F(MemoryStoreTest, MoveToSameFolderKeepsIdentifier)
{
    const QByteArray id = Add(QStringLiteral("stay"));
    Result<QByteArray> moved = store.Move(id, store.InboxId());
    ASSERT_TRUE(moved.ok());
    EXPECT_EQ(*moved, id);
    EXPECT_EQ(SubjectsIn(store.InboxId()), QStringList{QStringLiteral("stay")});
}

TEST_F(MemoryStoreTest, MoveManyStopsAtFirstErrorLeavingTheRest)
{
    const QByteArray a = Add(QStringLiteral("a"));
    const QByteArray b = Add(QStringLiteral("b"));
    const QByteArray c = Add(QStringLiteral("c"));
    const QByteArray archive = store.FolderIdByPath(QStringLiteral("Archive"));
    ASSERT_TRUE(store.Move(b, archive).ok());  // b's identifier is now stale

    Result<std::vector<QByteArray>> r = store.MoveMany({a, b, c}, store.FolderIdByPath(QStringLiteral("Trash")));
    ASSERT_FALSE(r.ok());
    EXPECT_EQ(r.error().kind, ErrorKind::NotFound);
    EXPECT_EQ(SubjectsIn(store.FolderIdByPath(QStringLiteral("Trash"))), QStringList{QStringLiteral("a")});
    EXPECT_EQ(SubjectsIn(store.InboxId()), QStringList{QStringLiteral("c")});
}

struct Injection {
    const char* name;
    Call call;
    std::function<bool(MemoryStore&, const QByteArray& message)> attempt;  // true when the call succeeded
};
void PrintTo(const Injection& c, std::ostream* os) { *os << c.name; }

class FailureInjection : public MemoryStoreTest, public ::testing::WithParamInterface<Injection> {};

TEST_P(FailureInjection, NextCallsFailThenWorkAgain)
{
    const Injection& c = GetParam();
    const QByteArray id = Add(QStringLiteral("target"));
    const QStringList before = SubjectsIn(store.InboxId());
    store.FailNext(c.call, 2, Error::temporary(QStringLiteral("injected"), 42));
    const int callsBefore = store.CallCount(c.call);
    EXPECT_FALSE(c.attempt(store, id));
    EXPECT_FALSE(c.attempt(store, id));
    EXPECT_EQ(store.CallCount(c.call), callsBefore + 2);
    EXPECT_EQ(SubjectsIn(store.InboxId()), before) << "a failed call changes nothing";
    EXPECT_EQ(store.Flags(id)->keywords, QStringList()) << "a failed call changes nothing";
    EXPECT_TRUE(c.attempt(store, id));
}

INSTANTIATE_TEST_SUITE_P(
    Calls, FailureInjection,
    ::testing::Values(
        Injection{"Query", Call::Query, [](MemoryStore& s, const QByteArray&) { return s.Query(s.InboxId(), nullptr, {}).ok(); }},
        Injection{"Move", Call::Move,
                  [](MemoryStore& s, const QByteArray& id) { return s.Move(id, s.InboxId()).ok(); }},
        Injection{"MoveMany", Call::MoveMany,
                  [](MemoryStore& s, const QByteArray& id) { return s.MoveMany({id}, s.InboxId()).ok(); }},
        Injection{"SetFlagStatus", Call::SetFlagStatus,
                  [](MemoryStore& s, const QByteArray& id) { return s.SetFlagStatus(id, 1).ok(); }},
        Injection{"Item", Call::Item, [](MemoryStore& s, const QByteArray& id) { return s.Item(id).ok(); }},
        Injection{"Append", Call::Append,
                  [](MemoryStore& s, const QByteArray&) { return s.Append(s.FolderIdByPath("Trash"), Mail("x")).ok(); }},
        Injection{"Folder", Call::Folder, [](MemoryStore& s, const QByteArray&) { return s.Folder(s.InboxId()).ok(); }}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(MemoryStoreTest, InjectedErrorIsReturnedAsGiven)
{
    store.FailNext(Call::Query, 1, Error::temporary(QStringLiteral("server gone"), 7));
    Result<std::vector<Row>> r = store.Query(store.InboxId(), nullptr, {});
    ASSERT_FALSE(r.ok());
    EXPECT_EQ(r.error().kind, ErrorKind::Temporary);
    EXPECT_EQ(r.error().message, QStringLiteral("server gone"));
    EXPECT_EQ(r.error().code, 7);
}

// --- The contents table the engine drives.

TEST_F(MemoryStoreTest, TableRowsSurviveMovesWhileReading)
{
    for (const char* s : {"keep", "move 1", "move 2", "move 3"}) Add(QString::fromLatin1(s));
    ContentsTable table(store, store.InboxId());
    table.Filter().AddChild(Restriction::Content(PR_SUBJECT, QStringLiteral("move")));
    table.SetColumns({PR_ENTRYID, PR_SUBJECT, PR_FLAG_ICON, 0x0037001F});
    table.GoToFirstRow();
    QStringList read;
    const QByteArray trash = store.FolderIdByPath(QStringLiteral("Trash"));
    for (Result<Row> row = table.GetNextRow(); row.ok() && !row->empty(); row = table.GetNextRow()) {
        ASSERT_EQ(row->size(), 4u);
        EXPECT_FALSE(row->at(2).isValid()) << "an absent property is an invalid value";
        EXPECT_EQ(row->at(3).toString(), row->at(1).toString()) << "the Unicode tag reads the same subject";
        read << row->at(1).toString();
        ASSERT_TRUE(store.Move(row->at(0).toByteArray(), trash).ok());
    }
    EXPECT_EQ(read, QStringList({"move 1", "move 2", "move 3"}));
    EXPECT_EQ(store.CallCount(Call::Query), 1);
    // Starting over asks the store again and sees the folder as it is now.
    table.GoToFirstRow();
    Result<Row> again = table.GetNextRow();
    ASSERT_TRUE(again.ok());
    EXPECT_TRUE(again->empty());
    EXPECT_EQ(store.CallCount(Call::Query), 2);
}

TEST_F(MemoryStoreTest, TableReportsStoreErrorsAndRetries)
{
    Add(QStringLiteral("only"));
    ContentsTable table(store, store.InboxId());
    table.SetColumns({PR_SUBJECT});
    store.FailNext(Call::Query, 1, Error::temporary(QStringLiteral("busy")));
    Result<Row> failed = table.GetNextRow();
    ASSERT_FALSE(failed.ok());
    EXPECT_EQ(failed.error().kind, ErrorKind::Temporary);
    Result<Row> row = table.GetNextRow();
    ASSERT_TRUE(row.ok());
    EXPECT_EQ(row->at(0).toString(), QStringLiteral("only"));
}

TEST_F(MemoryStoreTest, TableRefusesUnsupportedRestriction)
{
    Add(QStringLiteral("only"));
    ContentsTable table(store, store.InboxId());
    table.SetColumns({PR_SUBJECT});
    table.Filter().AddChild(RES_COMPAREPROPS);
    Result<Row> row = table.GetNextRow();
    ASSERT_FALSE(row.ok());
    EXPECT_EQ(row.error().kind, ErrorKind::Permanent);
}

TEST_F(MemoryStoreTest, DeletedMessagesAreNeverListed)
{
    MessageFlags deleted;
    deleted.deleted = true;
    ASSERT_TRUE(store.Append(store.InboxId(), Mail(QStringLiteral("gone"), {}, deleted)).ok());
    Add(QStringLiteral("here"));
    EXPECT_EQ(SubjectsIn(store.InboxId()), QStringList{QStringLiteral("here")});
    EXPECT_EQ(store.Folder(store.InboxId())->total, 1);
    EXPECT_EQ(store.Folder(store.InboxId())->unread, 1);
}

}  // namespace
}  // namespace mv::stores
