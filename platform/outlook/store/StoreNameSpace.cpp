#include "StoreNameSpace.h"

#include "StoreFolder.h"
#include "StoreItem.h"

#include "platform/mapi/MapiUtils.h"
#include "platform/outlook/OutlookConstants.h"

#include <algorithm>

namespace mv::outlook {

using mapi::MapiUtils;
using mapi::MessageStore;

namespace {

// Default folders: the special use a store marks, and the name used when a
// store marks none.
struct DefaultFolder {
    int type;
    const char* specialUse;
    const char* name;
};
constexpr DefaultFolder kDefaultFolders[] = {
    {olFolderInbox, "\\Inbox", "Inbox"},       {olFolderSentMail, "\\Sent", "Sent"},
    {olFolderDrafts, "\\Drafts", "Drafts"},    {olFolderDeletedItems, "\\Trash", "Trash"},
    {olFolderJunk, "\\Junk", "Junk"},          {olFolderOutbox, "", "Outbox"},
};

}  // namespace

StoreNameSpace::StoreNameSpace(StoreList stores, FolderPicker* picker) : m_stores(std::move(stores)), m_picker(picker)
{
}

StoreNameSpace::StoreNameSpace(std::vector<MessageStore*> stores, FolderPicker* picker)
    : StoreNameSpace(StoreList([stores] { return stores; }), picker)
{
}

void StoreNameSpace::HoldFolderLookups(bool hold)
{
    m_holds = std::max(0, m_holds + (hold ? 1 : -1));
    if (m_holds == 0) m_known.clear();
}

std::unique_ptr<Folder> StoreNameSpace::GetFolderFromID(const QString& entryIdHex, const QString& storeIdHex)
{
    if (m_holds == 0) return LookUpFolder(entryIdHex, storeIdHex);
    // Hex case does not change the identifiers.
    const QString key = entryIdHex.toUpper() + QLatin1Char('/') + storeIdHex.toUpper();
    if (auto it = m_known.constFind(key); it != m_known.constEnd())
        return it->store ? std::make_unique<StoreFolder>(*it->store, it->info) : nullptr;
    std::unique_ptr<Folder> found = LookUpFolder(entryIdHex, storeIdHex);
    KnownFolder known;
    if (auto* folder = dynamic_cast<StoreFolder*>(found.get())) {
        known.store = folder->Store();
        known.info = folder->Info();
    }
    m_known.insert(key, known);
    return found;
}

std::unique_ptr<Folder> StoreNameSpace::LookUpFolder(const QString& entryIdHex, const QString& storeIdHex)
{
    const auto entryId = MapiUtils::HexToBinary(entryIdHex);
    const auto storeId = MapiUtils::HexToBinary(storeIdHex);
    if (!entryId || entryId->isEmpty() || !storeId) return nullptr;
    // No store named: look in each, as MAPI does with a null store id.
    std::vector<MessageStore*> candidates;
    if (storeId->isEmpty())
        candidates = m_stores();
    else if (MessageStore* store = StoreById(*storeId))
        candidates.push_back(store);
    for (MessageStore* store : candidates) {
        auto info = store->Folder(*entryId);
        if (info) return std::make_unique<StoreFolder>(*store, std::move(*info));
    }
    return nullptr;
}

std::unique_ptr<Item> StoreNameSpace::GetItemFromID(const QString& entryIdHex, const QString& storeIdHex)
{
    const auto entryId = MapiUtils::HexToBinary(entryIdHex);
    const auto storeId = MapiUtils::HexToBinary(storeIdHex);
    if (!entryId || entryId->isEmpty() || !storeId) return nullptr;
    std::vector<MessageStore*> candidates;
    if (storeId->isEmpty())
        candidates = m_stores();
    else if (MessageStore* store = StoreById(*storeId))
        candidates.push_back(store);
    for (MessageStore* store : candidates) {
        auto item = StoreItem::Fetch(*store, *entryId);
        if (item) return std::move(*item);
    }
    return nullptr;
}

std::unique_ptr<Folder> StoreNameSpace::SpecialFolder(MessageStore& store, const QString& specialUse,
                                                      const QString& fallbackName)
{
    auto folders = store.Folders();
    if (!folders) return nullptr;
    const mapi::FolderInfo* byName = nullptr;
    for (const mapi::FolderInfo& info : *folders) {
        if (!specialUse.isEmpty() && info.specialUse.compare(specialUse, Qt::CaseInsensitive) == 0)
            return std::make_unique<StoreFolder>(store, info);
        // A top-level folder of that name wins over a nested one.
        if (!fallbackName.isEmpty() && info.name.compare(fallbackName, Qt::CaseInsensitive) == 0
            && (!byName || (!byName->parentId.isEmpty() && info.parentId.isEmpty())))
            byName = &info;
    }
    return byName ? std::make_unique<StoreFolder>(store, *byName) : nullptr;
}

std::unique_ptr<Folder> StoreNameSpace::GetDefaultFolder(int folderType)
{
    const auto stores = m_stores();
    if (stores.empty() || !stores.front()) return nullptr;
    for (const DefaultFolder& d : kDefaultFolders)
        if (d.type == folderType)
            return SpecialFolder(*stores.front(), QString::fromLatin1(d.specialUse), QString::fromLatin1(d.name));
    return nullptr;
}

std::unique_ptr<Folder> StoreNameSpace::PickFolder()
{
    return m_picker ? m_picker->Pick(*this) : nullptr;
}

std::vector<std::unique_ptr<Folder>> StoreNameSpace::Folders()
{
    std::vector<std::unique_ptr<Folder>> top;
    for (MessageStore* store : m_stores()) {
        if (!store) continue;
        auto folders = store->Folders();
        if (!folders) continue;  // unreachable just now: its folders are missing from the tree
        for (mapi::FolderInfo& info : *folders)
            if (info.parentId.isEmpty()) top.push_back(std::make_unique<StoreFolder>(*store, std::move(info)));
    }
    return top;
}

}  // namespace mv::outlook
