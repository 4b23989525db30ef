#include "ImapStore.h"

#include "ImapIdleWatcher.h"
#include "ImapIds.h"

#include <QMetaMethod>

namespace mv::stores {

using namespace mv::mapi;

ImapStore::ImapStore(ImapSettings settings, QObject* parent)
    : ImapStore(std::move(settings), &ImapConnection::Open, parent)
{
}

ImapStore::ImapStore(ImapSettings settings, Connector connector, QObject* parent)
    : MessageStore(parent), m_session(std::move(settings), std::move(connector)),
      m_storeId(ImapIds::StoreId(m_session.settings().user, m_session.settings().host, m_session.settings().port)),
      m_list(m_session), m_query(m_session, m_storeId),
      m_moves(m_session, m_list, m_query, [this](const QByteArray& folderId) { Q_EMIT MessagesArrived(folderId); }),
      m_flags(m_session, m_query)
{
}

ImapStore::~ImapStore()
{
    m_watcher.reset();  // joins the thread before anything it might reach goes
}

void ImapStore::SetLogger(logging::Logger* log) { m_session.SetLogger(log); }
void ImapStore::SetMirrorFolder(const QString& folder) { m_query.SetMirrorFolder(folder); }

QByteArray ImapStore::StoreId() const { return m_storeId; }
QString ImapStore::DisplayName() const { return m_session.DisplayName(); }

int ImapStore::CommandsSent() const { return m_session.CommandsSent() + m_query.LookaheadCommands(); }

Result<std::vector<FolderInfo>> ImapStore::Folders() { return m_list.Folders(); }
Result<FolderInfo> ImapStore::Folder(const QByteArray& folderId) { return m_list.Folder(folderId); }
Result<QByteArray> ImapStore::FolderIdOf(const QByteArray& mailbox) { return m_list.FolderIdOf(mailbox); }
Result<QByteArray> ImapStore::CreateFolder(const QByteArray& parentId, const QString& name)
{
    return m_list.CreateFolder(parentId, name);
}

Result<std::vector<Row>> ImapStore::Query(const QByteArray& folderId, const Restriction* restriction,
                                          const std::vector<PropTag>& columns)
{
    return m_query.Query(folderId, restriction, columns);
}

Result<MessageRecord> ImapStore::Item(const QByteArray& messageId) { return m_query.Item(messageId); }
Result<QByteArray> ImapStore::RawMessage(const QByteArray& messageId) { return m_query.RawMessage(messageId); }

void ImapStore::Anticipate(const QByteArray& folderId, const Restriction& restriction,
                           const std::vector<PropTag>& columns)
{
    m_query.Anticipate(folderId, restriction, columns);
}

Result<QByteArray> ImapStore::Move(const QByteArray& messageId, const QByteArray& destFolderId)
{
    return m_moves.Move(messageId, destFolderId);
}

Result<std::vector<QByteArray>> ImapStore::MoveMany(const std::vector<QByteArray>& messageIds,
                                                    const QByteArray& destFolderId)
{
    return m_moves.MoveMany(messageIds, destFolderId);
}

Result<QByteArray> ImapStore::Append(const QByteArray& folderId, const NewMessage& message)
{
    return m_moves.Append(folderId, message);
}

Result<std::vector<QByteArray>> ImapStore::AppendMany(const QByteArray& folderId, const std::vector<NewMessage>& messages)
{
    return m_moves.AppendMany(folderId, messages);
}

Result<std::vector<NewMessage>> ImapStore::Export(const std::vector<QByteArray>& messageIds)
{
    return m_moves.Export(messageIds);
}

Result<std::vector<Fingerprint>> ImapStore::Fingerprints(const std::vector<QByteArray>& messageIds)
{
    return m_moves.Fingerprints(messageIds);
}

Result<std::vector<Presence>> ImapStore::Probe(const std::vector<QByteArray>& messageIds)
{
    return m_moves.Probe(messageIds);
}

Status ImapStore::Remove(const std::vector<QByteArray>& messageIds) { return m_moves.Remove(messageIds); }
Status ImapStore::Undelete(const std::vector<QByteArray>& messageIds) { return m_moves.Undelete(messageIds); }
Result<QByteArray> ImapStore::ArrivalMark(const QByteArray& folderId) { return m_moves.ArrivalMark(folderId); }

Result<std::vector<QByteArray>> ImapStore::Locate(const QByteArray& folderId, const QByteArray& mark,
                                                  const std::vector<Fingerprint>& fingerprints)
{
    return m_moves.Locate(folderId, mark, fingerprints);
}

Status ImapStore::SetFlagStatus(const QByteArray& messageId, int flagStatus)
{
    return m_flags.SetFlagStatus(messageId, flagStatus);
}

Status ImapStore::SetFlagStatusMany(const std::vector<QByteArray>& messageIds, int flagStatus)
{
    return m_flags.SetFlagStatusMany(messageIds, flagStatus);
}

void ImapStore::StartWatching()
{
    if (m_watcher) return;
    m_watcher = std::make_unique<ImapIdleWatcher>(m_session.settings(), m_session.credentials(), m_session.logger());
    connect(m_watcher.get(), &ImapIdleWatcher::Arrived, this,
            [this](quint32 uidValidity) { Q_EMIT MessagesArrived(ImapIds::FolderId("INBOX", uidValidity)); },
            Qt::QueuedConnection);
    m_watcher->start();
}

void ImapStore::connectNotify(const QMetaMethod& signal)
{
    if (signal == QMetaMethod::fromSignal(&MessageStore::MessagesArrived)) StartWatching();
}

}  // namespace mv::stores
