#include "StoreFolder.h"

#include "platform/mapi/MapiUtils.h"

namespace mv::outlook {

using mapi::MapiUtils;

StoreFolder::StoreFolder(mapi::MessageStore& store, mapi::FolderInfo info) : m_store(store), m_info(std::move(info)) {}

QString StoreFolder::EntryID() const
{
    return MapiUtils::HrGetHexFromBinary(m_info.entryId);
}

QString StoreFolder::StoreID() const
{
    return MapiUtils::HrGetHexFromBinary(m_store.StoreId());
}

QString StoreFolder::FolderPath() const
{
    QString levels = m_info.path.isEmpty() ? m_info.name : m_info.path;
    return QStringLiteral("\\\\") + m_store.DisplayName() + QLatin1Char('\\') + levels.replace(QLatin1Char('/'), QLatin1Char('\\'));
}

std::vector<std::unique_ptr<Folder>> StoreFolder::Folders()
{
    std::vector<std::unique_ptr<Folder>> children;
    auto all = m_store.Folders();
    if (!all) return children;
    for (mapi::FolderInfo& info : *all)
        if (info.parentId == m_info.entryId && info.entryId != m_info.entryId)
            children.push_back(std::make_unique<StoreFolder>(m_store, std::move(info)));
    return children;
}

mapi::FolderInfo StoreFolder::Fresh()
{
    auto info = m_store.Folder(m_info.entryId);
    return info ? *info : m_info;
}

int StoreFolder::UnReadItemCount()
{
    const mapi::FolderInfo info = Fresh();
    if (info.unread >= 0) return info.unread;
    // The store could not tell cheaply: count the unread rows.
    const auto unread = mapi::Restriction::Bitmask(mapi::BMR_EQZ, mapi::PR_MESSAGE_FLAGS, mapi::MSGFLAG_READ);
    auto rows = m_store.Query(m_info.entryId, &unread, {mapi::PR_ENTRYID});
    return rows ? static_cast<int>(rows->size()) : 0;
}

int StoreFolder::ItemCount()
{
    const mapi::FolderInfo info = Fresh();
    if (info.total >= 0) return info.total;
    auto rows = m_store.Query(m_info.entryId, nullptr, {mapi::PR_ENTRYID});
    return rows ? static_cast<int>(rows->size()) : 0;
}

}  // namespace mv::outlook
