// The namespace over memory stores: identifiers through hex and back,
// lookups that must fail, moves and flag changes that must reach the store,
// and failures staged on demand. The stores' own behaviour is the
// conformance suite's.

#include "platform/mapi/MapiUtils.h"
#include "platform/outlook/MapiTable.h"
#include "platform/outlook/SafeLib.h"
#include "platform/outlook/SafeMailItem.h"
#include "platform/outlook/SafeMapiUtils.h"
#include "platform/outlook/store/StoreFolder.h"
#include "platform/outlook/store/StoreItem.h"
#include "platform/outlook/store/StoreNameSpace.h"
#include "platform/stores/memory/MemoryStore.h"
#include "tests/support/QtPrinters.h"

#include <gtest/gtest.h>

namespace mv::test {
namespace {

using namespace mv::outlook;
using namespace mv::mapi;
using Call = stores::MemoryStore::Call;

QString Hex(const QByteArray& bytes) { return MapiUtils::HrGetHexFromBinary(bytes); }

// Store A (the default one, whose Inbox is `inbox`) and store B.
class NameSpaceTest : public ::testing::Test {
protected:
    std::unique_ptr<Item> Deliver(const QString& subject, stores::MemoryStore* store = nullptr, QStringList keywords = {})
    {
        store = store ? store : &a;
        NewMessage m;
        m.rfc822 = QStringLiteral("From: Ann Lee <ann@example.org>\r\nTo: Bob <bob@example.org>\r\nCc: Cat <cat@example.org>\r\n"
                                  "Subject: %1\r\nDate: Mon, 2 Mar 2026 10:00:00 +0000\r\nMessage-ID: <%2@example.org>\r\n"
                                  "Content-Type: text/plain\r\n\r\nBody of %1\r\n")
                       .arg(subject, QString::number(qHash(subject)))
                       .toUtf8();
        m.flags.keywords = keywords;
        auto id = store->Append(store->InboxId(), m);
        EXPECT_TRUE(id.ok());
        return ns.GetItemFromID(Hex(*id), Hex(store->StoreId()));
    }
    // Entry ids of a folder's messages as the engine reads them: through the table object, as hex.
    static QStringList EntryIds(const Folder& folder)
    {
        MapiTable table;
        EXPECT_TRUE(table.SetItems(folder));
        table.SetColumns({PR_ENTRYID, PR_STORE_ENTRYID, PR_MESSAGE_CLASS});
        table.GoToFirstRow();
        QStringList ids;
        for (auto row = table.GetNextRow(); row.ok() && !row->empty(); row = table.GetNextRow())
            ids << SafeMapiUtils().HrGetHexFromBinary((*row)[0].toByteArray());
        return ids;
    }

    stores::MemoryStore a{{.name = QStringLiteral("A"), .ownAddress = {}, .clock = {}}};
    stores::MemoryStore b{{.name = QStringLiteral("B"), .ownAddress = {}, .clock = {}}};
    StoreNameSpace ns{std::vector<MessageStore*>{&a, &b}};
    std::unique_ptr<Folder> inbox = ns.GetDefaultFolder(olFolderInbox);
    std::unique_ptr<Folder> archive = StoreNameSpace::SpecialFolder(a, "\\Archive", "Archive");
};

TEST_F(NameSpaceTest, IdentifiersRoundTripThroughHexAndFoldersFormATree)
{
    Deliver("Quarterly report");
    const QString storeHex = inbox->StoreID();
    EXPECT_EQ(storeHex, Hex(a.StoreId()).toUpper());
    auto again = ns.GetFolderFromID(inbox->EntryID(), storeHex);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->BinaryEntryID(), inbox->BinaryEntryID());
    EXPECT_EQ(again->Store(), &a);
    // Lower-case hex is what a hand-edited database may hold; it names the same folder.
    EXPECT_TRUE(ns.GetFolderFromID(inbox->EntryID().toLower(), storeHex.toLower()));

    const QStringList ids = EntryIds(*inbox);
    ASSERT_EQ(ids.size(), 1);
    auto item = ns.GetItemFromID(ids[0], storeHex);
    ASSERT_TRUE(item);
    EXPECT_EQ((QStringList{item->EntryID(), item->StoreID(), item->Subject(), item->SenderName(), item->SenderEmailAddress()}),
              (QStringList{ids[0], storeHex, "Quarterly report", "Ann Lee", "ann@example.org"}));
    EXPECT_TRUE(item->CC().contains("Cat") && item->Body().contains("Body of Quarterly report") && item->UnRead());
    EXPECT_EQ(item->Recipients().size(), 2u);

    SafeMailItem safe;
    EXPECT_TRUE(safe.SenderEmailAddress().isEmpty());
    safe.SetItem(item.get());
    EXPECT_EQ(safe.SenderEmailAddress(), "ann@example.org");
    EXPECT_EQ(safe.Fields(PR_SUBJECT).toString(), "Quarterly report");

    ASSERT_TRUE(a.CreateFolder(archive->BinaryEntryID(), "2025").ok());
    Deliver("Two");
    QStringList top;
    for (const auto& f : ns.Folders()) top << f->Name();
    EXPECT_TRUE(top.contains("Archive") && !top.contains("2025")) << top.join(u',').toStdString();
    const auto children = archive->Folders();
    ASSERT_EQ(children.size(), 1u);
    EXPECT_TRUE(children[0]->FolderPath().startsWith("\\\\") && children[0]->FolderPath().endsWith("\\Archive\\2025"))
        << children[0]->FolderPath().toStdString();
    EXPECT_TRUE(children[0]->Folders().empty());
    EXPECT_EQ(inbox->UnReadItemCount(), 2);
    EXPECT_EQ(ns.GetDefaultFolder(olFolderSentMail)->Name(), "Sent");
    EXPECT_FALSE(ns.GetDefaultFolder(9999));
}

TEST_F(NameSpaceTest, IdentifiersFindOnlyTheirOwnStoreAndNothingElse)
{
    auto inB = Deliver("In B", &b);
    ASSERT_TRUE(inB);
    const QString entry = inbox->EntryID(), store = inbox->StoreID();
    const struct {
        const char* what;
        QString entry, store;
    } cases[] = {
        {"not hex", "ZZ" + entry, store},
        {"odd length", entry + "A", store},
        {"empty entry", "", store},
        {"unknown store", entry, Hex("MVX1 no such store")},
        {"store id not hex", entry, "XYZ"},
        {"unknown folder", Hex(inbox->BinaryEntryID() + "/Nowhere"), store},
        {"the other store's id", inB->EntryID(), store},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(ns.GetFolderFromID(c.entry, c.store)) << c.what;
        EXPECT_FALSE(ns.GetItemFromID(c.entry, c.store)) << c.what;
    }
    EXPECT_FALSE(ns.GetItemFromID(entry, store)) << "a folder id is no message id";
    // An empty store id searches every store, as MAPI does.
    auto found = ns.GetItemFromID(inB->EntryID(), "");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->StoreID(), inB->StoreID());

    // An unreachable store gives null, and the next call reaches it again.
    a.FailNext(Call::Folder, 1, Error::temporary("connection dropped"));
    EXPECT_FALSE(ns.GetFolderFromID(entry, store));
    EXPECT_TRUE(ns.GetFolderFromID(entry, store));
}

TEST_F(NameSpaceTest, MoveAndSaveActOnTheStoreAndAMoveNeverCrossesStores)
{
    auto item = Deliver("Move me");
    Deliver("Stay here");
    ASSERT_TRUE(item && archive);
    auto archiveB = StoreNameSpace::SpecialFolder(b, "\\Archive");
    const QString oldId = item->EntryID();
    EXPECT_FALSE(item->Move(*archiveB).ok());
    EXPECT_EQ(item->EntryID(), oldId);
    EXPECT_EQ(a.CallCount(Call::Move), 0);

    ASSERT_TRUE(item->Move(*archive).ok());
    EXPECT_FALSE(ns.GetItemFromID(oldId, inbox->StoreID()));
    EXPECT_EQ(EntryIds(*inbox).size(), 1);
    EXPECT_EQ(EntryIds(*archive), QStringList{item->EntryID()});
    EXPECT_EQ(ns.GetItemFromID(item->EntryID(), item->StoreID())->Subject(), "Move me");

    // The flag status reaches the store on Save only, and a failed Save stays pending.
    ASSERT_EQ(item->FlagStatus(), olNoFlag);
    ASSERT_TRUE(item->Save().ok());
    EXPECT_EQ(a.CallCount(Call::SetFlagStatus), 0) << "a save without a change writes nothing";
    for (int status : {olFlagMarked, olFlagComplete, olNoFlag}) {
        item->SetFlagStatus(status);
        EXPECT_NE(ns.GetItemFromID(item->EntryID(), item->StoreID())->FlagStatus(), status) << "stored before Save";
        ASSERT_TRUE(item->Save().ok());
        EXPECT_EQ(ns.GetItemFromID(item->EntryID(), item->StoreID())->Fields(PR_FLAG_STATUS).toInt(), status);
    }
    a.FailNext(Call::SetFlagStatus, 1, Error::temporary("locked"));
    item->SetFlagStatus(olFlagMarked);
    EXPECT_FALSE(item->Save().ok());
    EXPECT_TRUE(item->Save().ok()) << "the next Save tries again";
    EXPECT_EQ(ns.GetItemFromID(item->EntryID(), item->StoreID())->FlagStatus(), olFlagMarked);
}

TEST_F(NameSpaceTest, HeldLookupsAndRowItemsAskTheStoreOnlyOnce)
{
    const QString entry = inbox->EntryID(), store = inbox->StoreID();
    const QString missing = Hex(a.InboxId() + "x");
    ns.HoldFolderLookups(true);
    ns.HoldFolderLookups(true);  // holds nest
    const int before = a.CallCount(Call::Folder);
    for (int i = 0; i < 3; ++i) {
        auto folder = ns.GetFolderFromID(entry, store);
        ASSERT_TRUE(folder);
        EXPECT_EQ(folder->BinaryEntryID(), a.InboxId());
        EXPECT_FALSE(ns.GetFolderFromID(missing, store));
    }
    EXPECT_EQ(a.CallCount(Call::Folder) - before, 2) << "one lookup per folder, found or not";
    ns.HoldFolderLookups(false);
    a.FailNext(Call::Folder, 1, Error::temporary("connection dropped"));
    EXPECT_TRUE(ns.GetFolderFromID(entry, store)) << "still held once";
    ns.HoldFolderLookups(false);
    a.FailNext(Call::Folder, 1, Error::temporary("connection dropped"));
    EXPECT_FALSE(ns.GetFolderFromID(entry, store)) << "released: the store is asked again";

    // An item from a table row fetches only what the row lacks.
    Deliver("From the row", &a, {QStringLiteral("$Completed")});
    const int fetched = a.CallCount(Call::Item);
    MapiTable table;
    ASSERT_TRUE(table.SetItems(*inbox));
    table.SetColumns({PR_ENTRYID, PR_SUBJECT});
    table.GoToFirstRow();
    auto row = table.GetNextRow();
    ASSERT_TRUE(row.ok());
    ASSERT_EQ(row->size(), 2u) << "only the columns asked for";
    auto item = table.RowItem();
    ASSERT_TRUE(item);
    EXPECT_EQ(item->EntryID(), Hex((*row)[0].toByteArray()));
    EXPECT_EQ(item->FlagStatus(), olFlagComplete);
    EXPECT_EQ(a.CallCount(Call::Item), fetched);
    // The body was not in the row: fetched once, on demand.
    EXPECT_TRUE(item->Body().startsWith(QStringLiteral("Body of From the row")));
    EXPECT_EQ(item->SenderEmailAddress(), QStringLiteral("ann@example.org"));
    EXPECT_EQ(a.CallCount(Call::Item), fetched + 1);
    // Save and Move act on the store as for a fetched item.
    item->SetFlagStatus(olNoFlag);
    ASSERT_TRUE(item->Save().ok());
    ASSERT_TRUE(item->Move(*archive).ok());
    EXPECT_EQ(ns.GetItemFromID(item->EntryID(), item->StoreID())->FlagStatus(), olNoFlag);
    EXPECT_FALSE(table.GetNextRow()->size());
    EXPECT_FALSE(table.RowItem()) << "no current row";
}

TEST(KindOfMessageClass, FirstMatchingMarkerWins)
{
    const std::pair<const char*, ItemKind> cases[] = {
        {"IPM.Note", ItemKind::Mail},          {"ipm.note.smime", ItemKind::Mail},
        {"REPORT.IPM.Note.NDR", ItemKind::Report}, {"Report.IPM.Note.IPNRN", ItemKind::Report},
        {"IPM.Schedule.Meeting.Request", ItemKind::Meeting}, {"REPORT.IPM.Schedule.Meeting.Resp.Pos", ItemKind::Meeting},
        {"IPM.Appointment", ItemKind::Other},  {"IPM.Post", ItemKind::Other}, {"", ItemKind::Other},
    };
    for (const auto& [messageClass, kind] : cases) EXPECT_EQ(KindOfMessageClass(messageClass), kind) << messageClass;
}

TEST(SafeLibRegistration, ObjectsAreCreatedByProgIdAndAnUnboundTableIsHarmless)
{
    ProgIdRegistry registry;
    RegisterSafeLib(registry);
    auto table = registry.Create<MapiTable>("sqsafelib.mapitable");
    ASSERT_TRUE(table);
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
}

}  // namespace
}  // namespace mv::test
