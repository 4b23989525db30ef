#pragma once
// The message list of one folder: a row per message, read from the folder's
// contents table, with the columns a folder window shows (follow-up flag,
// read state, From, Subject, Received). Display text for the view, and a
// sort key per column under Qt::UserRole so a proxy sorts dates as dates.
//
// The model keeps a snapshot: Load() reads the folder again. The store must
// outlive the model or the next Load().

#include "platform/common/Error.h"

#include <QAbstractTableModel>
#include <QByteArray>
#include <QDateTime>

#include <vector>

namespace mv::mapi {
class MessageStore;
}

namespace mv::host::desktop {

class MessageListModel final : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { ColFlag, ColRead, ColFrom, ColSubject, ColReceived, ColumnCount };
    static constexpr int SortRole = Qt::UserRole;
    static constexpr int EntryIdRole = Qt::UserRole + 1;  // the message's binary identifier

    struct Message {
        QByteArray entryId;
        int flagStatus = 0;
        bool unread = false;
        QString from;
        QString subject;
        QDateTime received;
    };

    using QAbstractTableModel::QAbstractTableModel;

    // Reads `folderId` of `store`; on error the list is left empty and the
    // error returned. A null store empties the list.
    [[nodiscard]] Status Load(mapi::MessageStore* store, const QByteArray& folderId);
    void Clear();

    mapi::MessageStore* Store() const { return m_store; }
    const QByteArray& FolderId() const { return m_folderId; }
    const std::vector<Message>& Messages() const { return m_rows; }
    int UnreadCount() const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    mapi::MessageStore* m_store = nullptr;
    QByteArray m_folderId;
    std::vector<Message> m_rows;
};

}  // namespace mv::host::desktop
