#pragma once
// The MAPI namespace of the host: every store of the profile, folders and
// items by their hex identifiers, default folders, and the folder picker.

#include "Folder.h"
#include "Item.h"

#include "platform/mapi/MessageStore.h"

#include <QString>

#include <memory>
#include <vector>

namespace mv::outlook {

class NameSpace {
public:
    virtual ~NameSpace() = default;

    // nullptr when no store or folder has these identifiers (or the store is
    // unreachable just now).
    virtual std::unique_ptr<Folder> GetFolderFromID(const QString& entryIdHex, const QString& storeIdHex) = 0;
    virtual std::unique_ptr<Item> GetItemFromID(const QString& entryIdHex, const QString& storeIdHex) = 0;
    // A default folder (OlDefaultFolders) of the first store.
    virtual std::unique_ptr<Folder> GetDefaultFolder(int folderType) = 0;
    // Shows the host's folder picker; nullptr when cancelled or when the host
    // has no windows.
    virtual std::unique_ptr<Folder> PickFolder() = 0;

    // While held (calls nest), a folder lookup by identifier may be answered
    // from what an earlier lookup of the same hold found, so a rule run asks
    // the stores once per folder instead of once per rule and row. Default:
    // every lookup asks.
    virtual void HoldFolderLookups(bool hold) { (void)hold; }

    virtual std::vector<mapi::MessageStore*> Stores() const = 0;
    // The top-level folders of every store, for folder trees.
    virtual std::vector<std::unique_ptr<Folder>> Folders() = 0;
};

}  // namespace mv::outlook
