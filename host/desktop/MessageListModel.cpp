#include "MessageListModel.h"

#include "platform/mapi/ContentsTable.h"
#include "platform/mapi/PropTags.h"

#include <QFont>
#include <QLocale>

#include <algorithm>

namespace mv::host::desktop {

namespace {

// Column order of the contents table read by Load.
enum Field { FEntryId, FFlagStatus, FMessageFlags, FSenderName, FSenderAddress, FSubject, FReceived };

const std::vector<mapi::PropTag> kColumns = {mapi::PR_ENTRYID,
                                             mapi::PR_FLAG_STATUS,
                                             mapi::PR_MESSAGE_FLAGS,
                                             mapi::PR_SENT_REPRESENTING_NAME,
                                             mapi::PR_SENT_REPRESENTING_EMAIL_ADDRESS,
                                             mapi::PR_SUBJECT,
                                             mapi::PR_MESSAGE_DELIVERY_TIME};

QString FlagText(int flagStatus)
{
    switch (flagStatus) {
        case mapi::FLAG_STATUS_MARKED:
            return QStringLiteral("\u2691");  // a flag
        case mapi::FLAG_STATUS_COMPLETE:
            return QStringLiteral("\u2713");  // a tick
        default:
            return {};
    }
}

QString FlagToolTip(int flagStatus)
{
    switch (flagStatus) {
        case mapi::FLAG_STATUS_MARKED:
            return QStringLiteral("Flagged for follow up");
        case mapi::FLAG_STATUS_COMPLETE:
            return QStringLiteral("Completed");
        default:
            return {};
    }
}

}  // namespace

Status MessageListModel::Load(mapi::MessageStore* store, const QByteArray& folderId)
{
    std::vector<Message> rows;
    Status status;
    if (store) {
        mapi::ContentsTable table(*store, folderId);
        table.SetColumns(kColumns);
        table.GoToFirstRow();
        for (;;) {
            auto row = table.GetNextRow();
            if (!row) {
                status = row.error();
                rows.clear();
                break;
            }
            if (row->empty()) break;
            const mapi::Row& r = *row;
            Message m;
            m.entryId = r[FEntryId].toByteArray();
            m.flagStatus = r[FFlagStatus].toInt();
            m.unread = (r[FMessageFlags].toInt() & mapi::MSGFLAG_READ) == 0;
            const QString name = r[FSenderName].toString();
            m.from = name.isEmpty() ? r[FSenderAddress].toString() : name;
            m.subject = r[FSubject].toString();
            m.received = r[FReceived].toDateTime();
            rows.push_back(std::move(m));
        }
    }
    beginResetModel();
    m_store = store;
    m_folderId = folderId;
    m_rows = std::move(rows);
    endResetModel();
    return status;
}

void MessageListModel::Clear()
{
    beginResetModel();
    m_store = nullptr;
    m_folderId.clear();
    m_rows.clear();
    endResetModel();
}

int MessageListModel::UnreadCount() const
{
    return static_cast<int>(
        std::count_if(m_rows.begin(), m_rows.end(), [](const Message& m) { return m.unread; }));
}

int MessageListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

int MessageListModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant MessageListModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount()) return {};
    const Message& m = m_rows[static_cast<size_t>(index.row())];
    if (role == EntryIdRole) return m.entryId;
    if (role == Qt::FontRole && m.unread) {
        QFont bold;
        bold.setBold(true);
        return bold;
    }
    switch (index.column()) {
        case ColFlag:
            if (role == Qt::DisplayRole) return FlagText(m.flagStatus);
            if (role == Qt::ToolTipRole) return FlagToolTip(m.flagStatus);
            if (role == SortRole) return m.flagStatus;
            break;
        case ColRead:
            if (role == Qt::DisplayRole) return m.unread ? QStringLiteral("\u25CF") : QString();  // a dot
            if (role == Qt::ToolTipRole) return m.unread ? QStringLiteral("Unread") : QStringLiteral("Read");
            if (role == SortRole) return m.unread ? 1 : 0;
            break;
        case ColFrom:
            if (role == Qt::DisplayRole || role == Qt::ToolTipRole) return m.from;
            if (role == SortRole) return m.from.toCaseFolded();
            break;
        case ColSubject:
            if (role == Qt::DisplayRole || role == Qt::ToolTipRole) return m.subject;
            if (role == SortRole) return m.subject.toCaseFolded();
            break;
        case ColReceived:
            if (role == Qt::DisplayRole)
                return QLocale().toString(m.received.toLocalTime(), QLocale::ShortFormat);
            if (role == SortRole) return m.received;
            break;
        default:
            break;
    }
    return {};
}

QVariant MessageListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal) return {};
    static const char* const kTitles[] = {"Flag", "Read", "From", "Subject", "Received"};
    if ((role == Qt::DisplayRole || role == Qt::ToolTipRole) && section >= 0 && section < ColumnCount)
        return QString::fromLatin1(kTitles[section]);
    return {};
}

}  // namespace mv::host::desktop
