// The namespace over real stores: identifiers through hex and back, lookups
// that must fail, moves and flag changes that must reach the store. Each
// case runs over the memory store and over a Maildir in a temporary folder.

#include "platform/mapi/MapiUtils.h"
#include "platform/outlook/MapiTable.h"
#include "platform/outlook/SafeLib.h"
#include "platform/outlook/SafeMailItem.h"
#include "platform/outlook/SafeMapiUtils.h"
#include "platform/outlook/store/StoreFolder.h"
#include "platform/outlook/store/StoreItem.h"
#include "platform/outlook/store/StoreNameSpace.h"
#include "platform/stores/imap/ImapStore.h"
#include "platform/stores/maildir/MaildirStore.h"
#include "platform/stores/memory/MemoryStore.h"
#include "tests/support/dovecot/DovecotServer.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace mv::test {
namespace {

using namespace mv::outlook;
using namespace mv::mapi;

QByteArray Message(const QString& subject, const QString& from = QStringLiteral("Ann Lee <ann@example.org>"))
{
    return QStringLiteral("From: %1\r\nTo: Bob <bob@example.org>\r\nCc: Cat <cat@example.org>\r\n"
                          "Subject: %2\r\nDate: Mon, 2 Mar 2026 10:00:00 +0000\r\nMessage-ID: <%3@example.org>\r\n"
                          "Content-Type: text/plain\r\n\r\nBody of %2\r\n")
        .arg(from, subject, QString::number(qHash(subject)))
        .toUtf8();
}

enum class Backend { Memory, Maildir, Imap };

class NameSpaceTest : public ::testing::TestWithParam<Backend> {
protected:
    void SetUp() override
    {
        if (GetParam() == Backend::Memory) {
            m_store = std::make_unique<stores::MemoryStore>();
        } else if (GetParam() == Backend::Imap) {
            if (!DovecotServer::Available()) GTEST_SKIP() << "dovecot is not installed";
            m_server = std::make_unique<DovecotServer>();
            QString error;
            ASSERT_TRUE(m_server->Start(&error)) << error.toStdString();
            stores::ImapSettings settings;
            settings.host = QStringLiteral("127.0.0.1");
            settings.port = m_server->Port();
            settings.tls = stores::TlsMode::None;
            settings.user = DovecotServer::User();
            settings.password = DovecotServer::Password();
            settings.timeoutSeconds = 10;
            m_store = std::make_unique<stores::ImapStore>(settings);
            for (const char* name : {"Sent", "Archive", "Trash", "Drafts"})
                ASSERT_TRUE(m_store->CreateFolder({}, QString::fromLatin1(name)).ok()) << name;
        } else {
            ASSERT_TRUE(m_dir.isValid());
            const QString root = m_dir.path() + "/Mail";
            for (const char* folder : {"", "/.Sent", "/.Archive", "/.Trash", "/.Drafts"})
                for (const char* sub : {"/cur", "/new", "/tmp"}) ASSERT_TRUE(QDir().mkpath(root + folder + sub));
            stores::maildir::MaildirStoreOptions options;
            options.indexPath = m_dir.path() + "/index.sqlite";
            options.watch = false;
            m_store = std::make_unique<stores::maildir::MaildirStore>(root, options);
        }
        m_ns = std::make_unique<StoreNameSpace>(std::vector<MessageStore*>{m_store.get()});
        m_inbox = m_ns->GetDefaultFolder(olFolderInbox);
        ASSERT_TRUE(m_inbox);
    }

    QByteArray Deliver(const QString& subject, const QByteArray& folderId = {})
    {
        NewMessage m;
        m.rfc822 = Message(subject);
        auto id = m_store->Append(folderId.isEmpty() ? m_inbox->BinaryEntryID() : folderId, m);
        EXPECT_TRUE(id.ok()) << (id.ok() ? "" : id.error().message.toStdString());
        return id.ok() ? *id : QByteArray();
    }

    std::unique_ptr<Folder> Archive() { return StoreNameSpace::SpecialFolder(*m_store, "\\Archive", "Archive"); }

    // Entry ids of a folder's messages as the engine reads them: through the
    // table object, as hex.
    QStringList EntryIds(const Folder& folder)
    {
        MapiTable table;
        EXPECT_TRUE(table.SetItems(folder));
        table.SetColumns({PR_ENTRYID, PR_STORE_ENTRYID, PR_MESSAGE_CLASS});
        table.GoToFirstRow();
        QStringList ids;
        SafeMapiUtils utils;
        for (;;) {
            auto row = table.GetNextRow();
            EXPECT_TRUE(row.ok());
            if (!row.ok() || row->empty()) break;
            ids << utils.HrGetHexFromBinary((*row)[0].toByteArray());
        }
        return ids;
    }

    QTemporaryDir m_dir;
    std::unique_ptr<DovecotServer> m_server;  // outlives the store, which logs out on destruction
    std::unique_ptr<MessageStore> m_store;
    std::unique_ptr<StoreNameSpace> m_ns;
    std::unique_ptr<Folder> m_inbox;
};

TEST_P(NameSpaceTest, FolderAndItemIdentifiersRoundTripThroughHex)
{
    Deliver("Quarterly report");
    const QString storeHex = m_inbox->StoreID();
    EXPECT_EQ(storeHex, storeHex.toUpper());
    EXPECT_EQ(storeHex, MapiUtils::HrGetHexFromBinary(m_store->StoreId()));

    auto again = m_ns->GetFolderFromID(m_inbox->EntryID(), storeHex);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->BinaryEntryID(), m_inbox->BinaryEntryID());
    EXPECT_EQ(again->Name(), "Inbox");
    EXPECT_EQ(again->Store(), m_store.get());
    // Lower-case hex is what a hand-edited database may hold; it names the same folder.
    EXPECT_TRUE(m_ns->GetFolderFromID(m_inbox->EntryID().toLower(), storeHex.toLower()));

    const QStringList ids = EntryIds(*m_inbox);
    ASSERT_EQ(ids.size(), 1);
    auto item = m_ns->GetItemFromID(ids[0], storeHex);
    ASSERT_TRUE(item);
    EXPECT_EQ(item->EntryID(), ids[0]);
    EXPECT_EQ(item->StoreID(), storeHex);
    EXPECT_EQ(item->Subject(), "Quarterly report");
    EXPECT_EQ(item->Kind(), ItemKind::Mail);
    EXPECT_EQ(item->SenderName(), "Ann Lee");
    EXPECT_EQ(item->SenderEmailAddress(), "ann@example.org");
    EXPECT_TRUE(item->CC().contains("Cat"));
    EXPECT_TRUE(item->Body().contains("Body of Quarterly report"));
    EXPECT_TRUE(item->UnRead());
    ASSERT_EQ(item->Recipients().size(), 2u);

    SafeMailItem safe;
    EXPECT_TRUE(safe.SenderEmailAddress().isEmpty());
    safe.SetItem(item.get());
    EXPECT_EQ(safe.SenderEmailAddress(), "ann@example.org");
    EXPECT_EQ(safe.Fields(PR_SUBJECT).toString(), "Quarterly report");
}

TEST_P(NameSpaceTest, IdentifiersThatNameNothingGiveNull)
{
    Deliver("Anything");
    const QString entry = m_inbox->EntryID();
    const QString store = m_inbox->StoreID();
    const QString otherStore = MapiUtils::HrGetHexFromBinary("MVX1 no such store");
    const QString missingFolder = MapiUtils::HrGetHexFromBinary(m_inbox->BinaryEntryID() + "/Nowhere");
    const struct {
        const char* what;
        QString entry, store;
    } cases[] = {
        {"not hex", "ZZ" + entry, store},
        {"odd length", entry + "A", store},
        {"empty entry", "", store},
        {"unknown store", entry, otherStore},
        {"store id not hex", entry, "XYZ"},
        {"unknown folder", missingFolder, store},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(m_ns->GetFolderFromID(c.entry, c.store)) << c.what;
        EXPECT_FALSE(m_ns->GetItemFromID(c.entry, c.store)) << c.what;
    }
    // A folder id is no message id.
    EXPECT_FALSE(m_ns->GetItemFromID(entry, store));
}

TEST_P(NameSpaceTest, MoveActsOnTheStoreAndRenamesTheItem)
{
    Deliver("Move me");
    Deliver("Stay here");
    auto archive = Archive();
    ASSERT_TRUE(archive);
    const QStringList before = EntryIds(*m_inbox);
    ASSERT_EQ(before.size(), 2);

    std::unique_ptr<Item> item;
    for (const QString& id : before) {
        auto candidate = m_ns->GetItemFromID(id, m_inbox->StoreID());
        ASSERT_TRUE(candidate);
        if (candidate->Subject() == "Move me") item = std::move(candidate);
    }
    ASSERT_TRUE(item);
    const QString oldId = item->EntryID();
    ASSERT_TRUE(item->Move(*archive).ok());

    EXPECT_NE(item->EntryID(), oldId);
    EXPECT_FALSE(m_ns->GetItemFromID(oldId, m_inbox->StoreID()));
    EXPECT_EQ(EntryIds(*m_inbox).size(), 1);
    EXPECT_EQ(EntryIds(*archive), QStringList{item->EntryID()});
    auto moved = m_ns->GetItemFromID(item->EntryID(), item->StoreID());
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->Subject(), "Move me");
    EXPECT_EQ(archive->ItemCount(), 1);
}

TEST_P(NameSpaceTest, FlagStatusReachesTheStoreOnlyOnSave)
{
    Deliver("Follow up");
    const QString id = EntryIds(*m_inbox).value(0);
    auto item = m_ns->GetItemFromID(id, m_inbox->StoreID());
    ASSERT_TRUE(item);
    ASSERT_EQ(item->FlagStatus(), olNoFlag);

    for (int status : {olFlagMarked, olFlagComplete, olNoFlag}) {
        item->SetFlagStatus(status);
        auto unsaved = m_ns->GetItemFromID(item->EntryID(), item->StoreID());
        ASSERT_TRUE(unsaved);
        EXPECT_NE(unsaved->FlagStatus(), status) << "stored before Save, status " << status;
        ASSERT_TRUE(item->Save().ok());
        auto saved = m_ns->GetItemFromID(item->EntryID(), item->StoreID());
        ASSERT_TRUE(saved) << "status " << status;
        EXPECT_EQ(saved->FlagStatus(), status);
        EXPECT_EQ(saved->Fields(PR_FLAG_STATUS).toInt(), status);
    }
}

TEST_P(NameSpaceTest, FolderTreeAndCounts)
{
    auto archive = Archive();
    ASSERT_TRUE(archive);
    auto child = m_store->CreateFolder(archive->BinaryEntryID(), "2025");
    ASSERT_TRUE(child.ok());
    Deliver("One");
    Deliver("Two");

    QStringList top;
    for (const auto& f : m_ns->Folders()) top << f->Name();
    EXPECT_TRUE(top.contains("Inbox"));
    EXPECT_TRUE(top.contains("Archive"));
    EXPECT_FALSE(top.contains("2025"));

    const auto children = archive->Folders();
    ASSERT_EQ(children.size(), 1u);
    EXPECT_EQ(children[0]->Name(), "2025");
    EXPECT_TRUE(children[0]->FolderPath().endsWith("\\Archive\\2025")) << children[0]->FolderPath().toStdString();
    EXPECT_TRUE(children[0]->FolderPath().startsWith("\\\\"));
    EXPECT_TRUE(children[0]->Folders().empty());

    EXPECT_EQ(EntryIds(*m_inbox).size(), 2);
    EXPECT_EQ(m_inbox->ItemCount(), 2);
    EXPECT_EQ(m_inbox->UnReadItemCount(), 2);
    auto sent = m_ns->GetDefaultFolder(olFolderSentMail);
    ASSERT_TRUE(sent);
    EXPECT_EQ(sent->Name(), "Sent");
    EXPECT_FALSE(m_ns->GetDefaultFolder(9999));
}

INSTANTIATE_TEST_SUITE_P(Stores, NameSpaceTest, ::testing::Values(Backend::Memory, Backend::Maildir, Backend::Imap),
                         [](const auto& info) {
                             switch (info.param) {
                             case Backend::Memory: return "Memory";
                             case Backend::Maildir: return "Maildir";
                             case Backend::Imap: return "Imap";
                             }
                             return "Unknown";
                         });

// Cases only the memory store can stage: failures on demand, a second store.
class MemoryNameSpaceTest : public ::testing::Test {
protected:
    static stores::MemoryStoreOptions Named(const char* name)
    {
        stores::MemoryStoreOptions options;
        options.name = QString::fromLatin1(name);
        return options;
    }
    stores::MemoryStore a{Named("A")};
    stores::MemoryStore b{Named("B")};
    StoreNameSpace ns{std::vector<MessageStore*>{&a, &b}};

    std::unique_ptr<Item> DeliverTo(stores::MemoryStore& store)
    {
        NewMessage m;
        m.rfc822 = Message("Hello");
        auto id = store.Append(store.InboxId(), m);
        EXPECT_TRUE(id.ok());
        return ns.GetItemFromID(MapiUtils::HrGetHexFromBinary(*id), MapiUtils::HrGetHexFromBinary(store.StoreId()));
    }
};

TEST_F(MemoryNameSpaceTest, UnreachableStoreGivesNull)
{
    auto item = DeliverTo(a);
    ASSERT_TRUE(item);
    const QString inbox = MapiUtils::HrGetHexFromBinary(a.InboxId());
    a.FailNext(stores::MemoryStore::Call::Folder, 1, Error::temporary("connection dropped"));
    EXPECT_FALSE(ns.GetFolderFromID(inbox, item->StoreID()));
    EXPECT_TRUE(ns.GetFolderFromID(inbox, item->StoreID())) << "the next call reaches the store again";
    a.FailNext(stores::MemoryStore::Call::Item, 1, Error::temporary("connection dropped"));
    EXPECT_FALSE(ns.GetItemFromID(item->EntryID(), item->StoreID()));
}

TEST_F(MemoryNameSpaceTest, IdentifiersFindTheirOwnStore)
{
    auto inB = DeliverTo(b);
    ASSERT_TRUE(inB);
    // An empty store id searches every store, as MAPI does.
    auto found = ns.GetItemFromID(inB->EntryID(), "");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->StoreID(), inB->StoreID());
    // The right entry with the other store's id names nothing.
    EXPECT_FALSE(ns.GetItemFromID(inB->EntryID(), MapiUtils::HrGetHexFromBinary(a.StoreId())));
    EXPECT_EQ(ns.GetDefaultFolder(olFolderInbox)->StoreID(), MapiUtils::HrGetHexFromBinary(a.StoreId()));
}

TEST_F(MemoryNameSpaceTest, MoveToAnotherStoreIsRefusedAndMovesNothing)
{
    auto item = DeliverTo(a);
    ASSERT_TRUE(item);
    auto archiveB = StoreNameSpace::SpecialFolder(b, "\\Archive");
    ASSERT_TRUE(archiveB);
    const QString before = item->EntryID();
    const Status s = item->Move(*archiveB);
    EXPECT_FALSE(s.ok());
    EXPECT_EQ(item->EntryID(), before);
    EXPECT_TRUE(ns.GetItemFromID(before, item->StoreID()));
    EXPECT_EQ(a.CallCount(stores::MemoryStore::Call::Move), 0);
}

TEST_F(MemoryNameSpaceTest, SaveWithoutChangeDoesNotWrite)
{
    auto item = DeliverTo(a);
    ASSERT_TRUE(item);
    ASSERT_TRUE(item->Save().ok());
    EXPECT_EQ(a.CallCount(stores::MemoryStore::Call::SetFlagStatus), 0);
    a.FailNext(stores::MemoryStore::Call::SetFlagStatus, 1, Error::temporary("locked"));
    item->SetFlagStatus(olFlagMarked);
    EXPECT_FALSE(item->Save().ok());
    // The failed write is still pending: the next Save tries again.
    EXPECT_TRUE(item->Save().ok());
    EXPECT_EQ(ns.GetItemFromID(item->EntryID(), item->StoreID())->FlagStatus(), olFlagMarked);
}

TEST_F(MemoryNameSpaceTest, HeldLookupsAskTheStoreOncePerFolder)
{
    auto item = DeliverTo(a);
    ASSERT_TRUE(item);
    const QString inbox = MapiUtils::HrGetHexFromBinary(a.InboxId());
    const QString missing = MapiUtils::HrGetHexFromBinary(a.InboxId() + "x");
    ns.HoldFolderLookups(true);
    ns.HoldFolderLookups(true);  // holds nest
    const int before = a.CallCount(stores::MemoryStore::Call::Folder);
    for (int i = 0; i < 3; ++i) {
        auto folder = ns.GetFolderFromID(inbox, item->StoreID());
        ASSERT_TRUE(folder);
        EXPECT_EQ(folder->Store(), &a);
        EXPECT_EQ(folder->BinaryEntryID(), a.InboxId());
        EXPECT_FALSE(ns.GetFolderFromID(missing, item->StoreID()));
    }
    EXPECT_EQ(a.CallCount(stores::MemoryStore::Call::Folder) - before, 2)
        << "one lookup per folder, found or not";
    ns.HoldFolderLookups(false);
    a.FailNext(stores::MemoryStore::Call::Folder, 1, Error::temporary("connection dropped"));
    EXPECT_TRUE(ns.GetFolderFromID(inbox, item->StoreID())) << "still held once";
    ns.HoldFolderLookups(false);
    a.FailNext(stores::MemoryStore::Call::Folder, 1, Error::temporary("connection dropped"));
    EXPECT_FALSE(ns.GetFolderFromID(inbox, item->StoreID())) << "released: the store is asked again";
}

TEST_F(MemoryNameSpaceTest, RowItemUsesTheRowAndFetchesOnlyWhatItLacks)
{
    NewMessage m;
    m.rfc822 = Message("From the row");
    m.flags.keywords << QStringLiteral("$Completed");
    ASSERT_TRUE(a.Append(a.InboxId(), m).ok());
    auto inbox = StoreNameSpace::SpecialFolder(a, "\\Inbox");
    ASSERT_TRUE(inbox);
    MapiTable table;
    ASSERT_TRUE(table.SetItems(*inbox));
    table.SetColumns({PR_ENTRYID, PR_SUBJECT});
    table.GoToFirstRow();
    auto row = table.GetNextRow();
    ASSERT_TRUE(row.ok());
    ASSERT_EQ(row->size(), 2u) << "only the columns asked for";
    auto item = table.RowItem();
    ASSERT_TRUE(item);
    EXPECT_EQ(item->EntryID(), MapiUtils::HrGetHexFromBinary((*row)[0].toByteArray()));
    EXPECT_EQ(item->Subject(), QStringLiteral("From the row"));
    EXPECT_EQ(item->FlagStatus(), olFlagComplete);
    EXPECT_EQ(a.CallCount(stores::MemoryStore::Call::Item), 0);
    // The body was not in the row: fetched once, on demand.
    EXPECT_TRUE(item->Body().startsWith(QStringLiteral("Body of From the row")));
    EXPECT_EQ(item->SenderEmailAddress(), QStringLiteral("ann@example.org"));
    EXPECT_EQ(a.CallCount(stores::MemoryStore::Call::Item), 1);
    // Save and Move act on the store as for a fetched item.
    item->SetFlagStatus(olNoFlag);
    ASSERT_TRUE(item->Save().ok());
    auto archive = StoreNameSpace::SpecialFolder(a, "\\Archive");
    ASSERT_TRUE(archive);
    ASSERT_TRUE(item->Move(*archive).ok());
    auto moved = ns.GetItemFromID(item->EntryID(), item->StoreID());
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->FlagStatus(), olNoFlag);
    EXPECT_FALSE(table.GetNextRow()->size());
    EXPECT_FALSE(table.RowItem()) << "no current row";
}

TEST(KindOfMessageClass, FirstMatchingMarkerWins)
{
    const struct {
        const char* messageClass;
        ItemKind kind;
    } cases[] = {
        {"IPM.Note", ItemKind::Mail},
        {"ipm.note.smime", ItemKind::Mail},
        {"REPORT.IPM.Note.NDR", ItemKind::Report},
        {"Report.IPM.Note.IPNRN", ItemKind::Report},
        {"IPM.Schedule.Meeting.Request", ItemKind::Meeting},
        {"IPM.Schedule.Meeting.Canceled", ItemKind::Meeting},
        {"REPORT.IPM.Schedule.Meeting.Resp.Pos", ItemKind::Meeting},
        {"IPM.Appointment", ItemKind::Other},
        {"IPM.Contact", ItemKind::Other},
        {"IPM.Post", ItemKind::Other},
        {"", ItemKind::Other},
    };
    for (const auto& c : cases) EXPECT_EQ(KindOfMessageClass(c.messageClass), c.kind) << c.messageClass;
}

TEST(SafeLibRegistration, ObjectsAreCreatedByProgIdAndAnUnboundTableIsHarmless)
{
    ProgIdRegistry registry;
    EXPECT_FALSE(registry.Create<MapiTable>(kMapiTableProgId));
    RegisterSafeLib(registry);
    auto table = registry.Create<MapiTable>("sqsafelib.mapitable");
    auto utils = registry.Create<SafeMapiUtils>(kMapiUtilsProgId);
    auto safe = registry.Create<SafeMailItem>(kSafeMailItemProgId);
    ASSERT_TRUE(table && utils && safe);

    EXPECT_EQ(table->Filter(), nullptr);
    table->SetColumns({PR_ENTRYID});
    table->GoToFirstRow();
    EXPECT_FALSE(table->GetNextRow().ok());

    // A folder with no store behind it (as a rule's folder from a test) cannot bind.
    struct Bare : Folder {
        QString EntryID() const override { return "00"; }
        QString StoreID() const override { return "00"; }
        QString Name() const override { return "Bare"; }
    } bare;
    EXPECT_FALSE(table->SetItems(bare));
    EXPECT_EQ(utils->HrGetHexFromBinary(QByteArray("\x0a\xff", 2)), "0AFF");
    utils->Cleanup();
    utils->Cleanup();
    EXPECT_EQ(utils->Cleanups(), 2);
}

}  // namespace
}  // namespace mv::test
