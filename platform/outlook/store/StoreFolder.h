#pragma once
// A Folder over one folder of a mapi::MessageStore. Its description is read
// when the folder is made; the counts and subfolders ask the store each time.

#include "platform/outlook/Folder.h"

#include "platform/mapi/MessageStore.h"

namespace mv::outlook {

class StoreFolder final : public Folder {
public:
    // `store` must outlive the folder.
    StoreFolder(mapi::MessageStore& store, mapi::FolderInfo info);

    QString EntryID() const override;
    QString StoreID() const override;
    QString Name() const override { return m_info.name; }

    mapi::MessageStore* Store() const override { return &m_store; }
    QByteArray BinaryEntryID() const override { return m_info.entryId; }
    QString FolderPath() const override;
    std::vector<std::unique_ptr<Folder>> Folders() override;
    int UnReadItemCount() override;
    int ItemCount() override;

    const mapi::FolderInfo& Info() const { return m_info; }

private:
    // The store's current description, falling back to the one from creation.
    mapi::FolderInfo Fresh();

    mapi::MessageStore& m_store;
    mapi::FolderInfo m_info;
};

}  // namespace mv::outlook
