#pragma once
// The MAPI namespace over a list of message stores. A hex identifier pair is
// decoded, the store found by its StoreId, and the folder or message asked
// of it; any failure on the way (bad hex, unknown store, a store that cannot
// be reached, a message gone) gives nullptr.

#include "platform/outlook/FolderPicker.h"
#include "platform/outlook/NameSpace.h"

#include <QHash>

#include <functional>
#include <optional>

namespace mv::outlook {

class StoreNameSpace final : public NameSpace {
public:
    // `stores` is asked each time, so stores added later are seen; the
    // stores and `picker` (nullptr: no picker) must outlive the namespace.
    using StoreList = std::function<std::vector<mapi::MessageStore*>()>;
    explicit StoreNameSpace(StoreList stores, FolderPicker* picker = nullptr);
    explicit StoreNameSpace(std::vector<mapi::MessageStore*> stores, FolderPicker* picker = nullptr);

    std::unique_ptr<Folder> GetFolderFromID(const QString& entryIdHex, const QString& storeIdHex) override;
    std::unique_ptr<Item> GetItemFromID(const QString& entryIdHex, const QString& storeIdHex) override;
    // Inbox by "\\Inbox", Sent by "\\Sent" then the name "Sent", and so on
    // for Drafts, Deleted Items ("\\Trash") and Junk; nullptr for other kinds.
    std::unique_ptr<Folder> GetDefaultFolder(int folderType) override;
    std::unique_ptr<Folder> PickFolder() override;
    // Held: folders found (or not found) by GetFolderFromID are remembered
    // until the last hold is released.
    void HoldFolderLookups(bool hold) override;

    std::vector<mapi::MessageStore*> Stores() const override { return m_stores(); }
    std::vector<std::unique_ptr<Folder>> Folders() override;

    void SetPicker(FolderPicker* picker) { m_picker = picker; }
    // mapi::FindStore over this namespace's stores.
    mapi::MessageStore* StoreById(const QByteArray& storeId) const { return mapi::FindStore(m_stores(), storeId); }
    // The folder of `store` with that special use (or, failing that, that
    // name without case); nullptr when none.
    static std::unique_ptr<Folder> SpecialFolder(mapi::MessageStore& store, const QString& specialUse,
                                                 const QString& fallbackName = {});

private:
    struct KnownFolder {
        mapi::MessageStore* store = nullptr;  // nullptr: no such folder
        mapi::FolderInfo info;
    };

    std::unique_ptr<Folder> LookUpFolder(const QString& entryIdHex, const QString& storeIdHex);

    StoreList m_stores;
    FolderPicker* m_picker;
    int m_holds = 0;
    QHash<QString, KnownFolder> m_known;  // by "entry/store" hex while held
};

}  // namespace mv::outlook
