#pragma once
// A message store on an IMAP account, through libetpan.
//
// One connection serves the UI thread's calls; it is opened on the first
// call and reopened on the next call after it drops. Read-only calls are
// retried once on a fresh connection; a move or an append never is: after a
// drop it returns a Temporary error and the move journal's recovery (Probe,
// Locate, then Remove or Undelete) settles what the server did.
//
// The work is split by job: ImapSession (credentials, the connection,
// retry), ImapMailboxList (folders), ImapQuery (queries, images,
// lookahead), ImapMoves (moves, appends, the journal's calls) and
// ImapFlagWriter (flag changes); this class only hands each call on.

#include "ImapFlagWriter.h"
#include "ImapMailboxList.h"
#include "ImapMoves.h"
#include "ImapQuery.h"
#include "ImapSession.h"
#include "platform/mapi/MessageStore.h"

#include <memory>

namespace mv::logging {
class Logger;
}

namespace mv::stores {

class ImapIdleWatcher;

class ImapStore : public mapi::MessageStore {
    Q_OBJECT
public:
    using Connector = ImapSession::Connector;

    explicit ImapStore(ImapSettings settings, QObject* parent = nullptr);
    // `connector` opens connections (tests put a scripted stream behind it).
    ImapStore(ImapSettings settings, Connector connector, QObject* parent = nullptr);
    ~ImapStore() override;

    QByteArray StoreId() const override;
    QString DisplayName() const override;

    Result<std::vector<mapi::FolderInfo>> Folders() override;
    Result<mapi::FolderInfo> Folder(const QByteArray& folderId) override;
    Result<QByteArray> CreateFolder(const QByteArray& parentId, const QString& name) override;
    Result<std::vector<mapi::Row>> Query(const QByteArray& folderId, const mapi::Restriction* restriction,
                                         const std::vector<mapi::PropTag>& columns) override;
    Result<mapi::MessageRecord> Item(const QByteArray& messageId) override;
    Result<QByteArray> RawMessage(const QByteArray& messageId) override;
    Result<QByteArray> Move(const QByteArray& messageId, const QByteArray& destFolderId) override;
    Result<std::vector<QByteArray>> MoveMany(const std::vector<QByteArray>& messageIds,
                                             const QByteArray& destFolderId) override;
    Status SetFlagStatus(const QByteArray& messageId, int flagStatus) override;
    // One FETCH of the flags and one STORE per distinct change.
    Status SetFlagStatusMany(const std::vector<QByteArray>& messageIds, int flagStatus) override;
    Result<QByteArray> Append(const QByteArray& folderId, const mapi::NewMessage& message) override;
    void Anticipate(const QByteArray& folderId, const mapi::Restriction& restriction,
                    const std::vector<mapi::PropTag>& columns) override;

    // The move journal's calls (ImapMover does the work). Fingerprints
    // costs no round trip for messages the last query listed; Remove and
    // Undelete are safe to send again and are retried once after a drop;
    // AppendMany never is.
    Result<std::vector<mapi::NewMessage>> Export(const std::vector<QByteArray>& messageIds) override;
    Result<std::vector<QByteArray>> AppendMany(const QByteArray& folderId,
                                               const std::vector<mapi::NewMessage>& messages) override;
    Result<std::vector<mapi::Fingerprint>> Fingerprints(const std::vector<QByteArray>& messageIds) override;
    Result<std::vector<mapi::Presence>> Probe(const std::vector<QByteArray>& messageIds) override;
    Status Remove(const std::vector<QByteArray>& messageIds) override;
    Status Undelete(const std::vector<QByteArray>& messageIds) override;
    Result<QByteArray> ArrivalMark(const QByteArray& folderId) override;
    Result<std::vector<QByteArray>> Locate(const QByteArray& folderId, const QByteArray& mark,
                                           const std::vector<mapi::Fingerprint>& fingerprints) override;

    // Keeps a persistent mirror of the queried folders in this folder
    // (empty: none, the default). Set before the first call.
    void SetMirrorFolder(const QString& folder);

    // Where failures to connect and messages left \Deleted are reported.
    // Borrowed; may be null (nothing is logged). Set before the first call.
    void SetLogger(logging::Logger* log);

    // Commands sent since the store was made (benchmarks, tests).
    int CommandsSent() const;
    // Folder id of a mailbox by its wire name ("INBOX", "Archive").
    Result<QByteArray> FolderIdOf(const QByteArray& mailbox);
    // Starts watching INBOX now (also started when MessagesArrived gets its first receiver).
    void StartWatching();

protected:
    void connectNotify(const QMetaMethod& signal) override;

private:
    ImapSession m_session;
    const QByteArray m_storeId;  // asked for every row
    ImapMailboxList m_list;
    ImapQuery m_query;
    ImapMoves m_moves;
    ImapFlagWriter m_flags;
    std::unique_ptr<ImapIdleWatcher> m_watcher;
};

}  // namespace mv::stores
