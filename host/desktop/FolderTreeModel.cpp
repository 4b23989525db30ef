#include "FolderTreeModel.h"

#include "platform/mapi/MessageStore.h"
#include "platform/mapi/Restriction.h"
#include "platform/outlook/store/StoreFolder.h"

#include <QHash>

namespace mv::host::desktop {

namespace {

int UnreadOf(mapi::MessageStore& store, const mapi::FolderInfo& info)
{
    // The store could not tell cheaply: the folder counts with a query.
    return info.unread >= 0 ? info.unread : outlook::StoreFolder(store, info).UnReadItemCount();
}

// Counted, not taken from the store's summary: a Maildir store's summary
// says 0 for a folder it has not read yet. Reading it here also makes the
// later cheap counts right.
int CountUnread(mapi::MessageStore& store, const mapi::FolderInfo& info)
{
    const auto unread = mapi::Restriction::Bitmask(mapi::BMR_EQZ, mapi::PR_MESSAGE_FLAGS, mapi::MSGFLAG_READ);
    auto rows = store.Query(info.entryId, &unread, {mapi::PR_ENTRYID});
    return rows ? static_cast<int>(rows->size()) : UnreadOf(store, info);
}

}  // namespace

FolderTreeModel::FolderTreeModel(StoreList stores, QObject* parent)
    : QStandardItemModel(parent), m_stores(std::move(stores))
{
}

void FolderTreeModel::Reload()
{
    clear();
    for (mapi::MessageStore* store : m_stores()) {
        auto* storeItem = new QStandardItem(store->DisplayName());
        storeItem->setEditable(false);
        storeItem->setData(QVariant::fromValue<QObject*>(store), StoreRole);
        storeItem->setData(store->DisplayName(), NameRole);
        appendRow(storeItem);
        auto folders = store->Folders();
        if (!folders) {
            // An unreachable store still shows, so the user sees which one failed.
            storeItem->setToolTip(folders.error().message);
            storeItem->setEnabled(false);
            continue;
        }
        // Parents come before their children in no guaranteed order: place
        // each folder once its parent is placed.
        QHash<QByteArray, QStandardItem*> placed;
        std::vector<const mapi::FolderInfo*> pending;
        for (const mapi::FolderInfo& info : *folders) pending.push_back(&info);
        bool progress = true;
        while (!pending.empty() && progress) {
            progress = false;
            std::vector<const mapi::FolderInfo*> later;
            for (const mapi::FolderInfo* info : pending) {
                QStandardItem* parentItem =
                    info->parentId.isEmpty() ? storeItem : placed.value(info->parentId);
                if (!parentItem) {
                    later.push_back(info);
                    continue;
                }
                auto* item = new QStandardItem(info->name);
                item->setEditable(false);
                item->setData(info->entryId, FolderIdRole);
                item->setData(QVariant::fromValue<QObject*>(store), StoreRole);
                item->setData(info->name, NameRole);
                item->setData(info->path, PathRole);
                parentItem->appendRow(item);
                placed.insert(info->entryId, item);
                SetCount(item, CountUnread(*store, *info));
                progress = true;
            }
            pending = std::move(later);
        }
    }
}

bool FolderTreeModel::UpdateCounts()
{
    // One folder list per store, not one question per folder: an IMAP
    // store answers each question with a round trip.
    QHash<QObject*, QHash<QByteArray, mapi::FolderInfo>> fresh;
    for (mapi::MessageStore* store : m_stores()) {
        auto folders = store->Folders();
        if (!folders) continue;  // unreachable just now: keep what is shown
        auto& byId = fresh[store];
        for (mapi::FolderInfo& info : *folders) byId.insert(info.entryId, std::move(info));
    }
    bool same = true;
    QHash<QObject*, int> shown;
    ForEachFolder([&](QStandardItem* item) {
        QObject* store = item->data(StoreRole).value<QObject*>();
        auto storeIt = fresh.constFind(store);
        if (storeIt == fresh.constEnd()) return;
        ++shown[store];
        auto it = storeIt->constFind(item->data(FolderIdRole).toByteArray());
        if (it == storeIt->constEnd()) {
            same = false;  // deleted or renamed
            return;
        }
        SetCount(item, UnreadOf(*qobject_cast<mapi::MessageStore*>(store), *it));
    });
    for (auto it = fresh.constBegin(); it != fresh.constEnd(); ++it)
        if (shown.value(it.key()) != it->size()) same = false;  // a folder was made
    return same;
}

void FolderTreeModel::SetCount(QStandardItem* item, int unread)
{
    if (item->data(UnreadRole).isValid() && item->data(UnreadRole).toInt() == unread) return;
    const QString name = item->data(NameRole).toString();
    item->setData(unread, UnreadRole);
    item->setText(unread > 0 ? QStringLiteral("%1 (%2)").arg(name).arg(unread) : name);
    QFont font = item->font();
    font.setBold(unread > 0);
    item->setFont(font);
}

void FolderTreeModel::ForEachFolder(const std::function<void(QStandardItem*)>& visit) const
{
    std::function<void(QStandardItem*)> walk = [&](QStandardItem* parent) {
        for (int r = 0; r < parent->rowCount(); ++r) {
            QStandardItem* child = parent->child(r);
            visit(child);
            walk(child);
        }
    };
    for (int r = 0; r < rowCount(); ++r) walk(item(r));
}

QModelIndex FolderTreeModel::IndexOf(const mapi::MessageStore* store, const QByteArray& folderId) const
{
    QModelIndex found;
    ForEachFolder([&](QStandardItem* item) {
        if (!found.isValid() && item->data(FolderIdRole).toByteArray() == folderId &&
            item->data(StoreRole).value<QObject*>() == store)
            found = item->index();
    });
    return found;
}

QModelIndex FolderTreeModel::IndexOfPath(const QString& path) const
{
    QModelIndex found;
    ForEachFolder([&](QStandardItem* item) {
        if (!found.isValid() && item->data(PathRole).toString().compare(path, Qt::CaseInsensitive) == 0)
            found = item->index();
    });
    return found;
}

mapi::MessageStore* FolderTreeModel::StoreAt(const QModelIndex& index)
{
    return qobject_cast<mapi::MessageStore*>(index.data(StoreRole).value<QObject*>());
}

}  // namespace mv::host::desktop
