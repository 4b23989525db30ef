#pragma once
// A mail folder of the host's object model. The rule store keeps a folder as
// its entry identifier and its store identifier, both upper-case
// hexadecimal text; the engine and the windows also reach the store behind
// it, its subfolders and its counts.
//
// Only the first three members must be given: the rest have answers that
// suit a folder with no store behind it (a test's stand-in), so such a
// folder stays cheap to write.

#include <QByteArray>
#include <QString>

#include <memory>
#include <vector>

namespace mv::mapi {
class MessageStore;
}

namespace mv::outlook {

class Folder {
public:
    virtual ~Folder() = default;
    virtual QString EntryID() const = 0;
    virtual QString StoreID() const = 0;
    virtual QString Name() const = 0;

    // The store holding the folder; nullptr when none stands behind it. The
    // store outlives every Folder made from it.
    virtual mapi::MessageStore* Store() const { return nullptr; }
    // The entry identifier as the store knows it (EntryID() decoded).
    virtual QByteArray BinaryEntryID() const { return QByteArray::fromHex(EntryID().toLatin1()); }
    // "\\<store>\\<level>\\<level>" as the host shows a folder's place.
    virtual QString FolderPath() const { return Name(); }
    // Direct subfolders, in the store's order; empty when none (or the store
    // cannot be reached just now).
    virtual std::vector<std::unique_ptr<Folder>> Folders() { return {}; }
    // Counts as the store reports them; 0 when it cannot tell.
    virtual int UnReadItemCount() { return 0; }
    virtual int ItemCount() { return 0; }
};

}  // namespace mv::outlook
