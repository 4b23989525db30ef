#pragma once
// The folder tree of a folder window: one top-level row per store of the
// profile (its display name), its folders below as the store nests them.
// A folder with unread mail shows the count beside its name, in bold.
//
// Reload() rebuilds the tree; UpdateCounts() only refreshes the counts, so
// a view keeps its selection and expansion, and tells whether the folders
// themselves changed (then a Reload() is due). The stores must outlive the
// model or the next Reload().

#include <QByteArray>
#include <QStandardItemModel>

#include <functional>
#include <vector>

namespace mv::mapi {
class MessageStore;
}

namespace mv::host::desktop {

class FolderTreeModel final : public QStandardItemModel {
    Q_OBJECT
public:
    using StoreList = std::function<std::vector<mapi::MessageStore*>()>;
    static constexpr int FolderIdRole = Qt::UserRole + 1;  // empty on a store's row
    static constexpr int StoreRole = Qt::UserRole + 2;     // the store, as a QObject*
    static constexpr int NameRole = Qt::UserRole + 3;      // the folder's name without the count
    static constexpr int UnreadRole = Qt::UserRole + 4;
    static constexpr int PathRole = Qt::UserRole + 5;  // "Inbox/Projects"

    explicit FolderTreeModel(StoreList stores, QObject* parent = nullptr);

    void Reload();
    // False when a store now has folders the tree lacks, or lacks some it shows.
    [[nodiscard]] bool UpdateCounts();

    // The row of a folder; invalid when the tree does not hold it.
    QModelIndex IndexOf(const mapi::MessageStore* store, const QByteArray& folderId) const;
    // The row of "<path>" in the first store that has it ("Inbox", "Archive/Projects").
    QModelIndex IndexOfPath(const QString& path) const;
    static mapi::MessageStore* StoreAt(const QModelIndex& index);

private:
    void SetCount(QStandardItem* item, int unread);
    void ForEachFolder(const std::function<void(QStandardItem*)>& visit) const;

    StoreList m_stores;
};

}  // namespace mv::host::desktop
