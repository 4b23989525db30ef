#pragma once
// A message store on an IMAP account, through libetpan.
//
// One connection serves the UI thread's calls; it is opened on the first
// call and reopened on the next call after it drops. Read-only calls are
// retried once on a fresh connection; a move or an append never is: after a
// drop it returns a Temporary error and the move journal's recovery (Probe,
// Locate, then Remove or Undelete) settles what the server did.
//
// Matching: the restriction becomes one UID SEARCH (SearchWriter), the
// candidates' flags, date and the header fields the check and the columns
// read (FetchNeeds) are fetched in batches, and, unless the search answer
// is exact, the restriction is checked on the resulting records, so the
// answer is the one the other backends give. The structure is fetched only
// for messages whose class the Content-Type field leaves open, PR_BODY only
// when the check reaches a body term.
//
// Moves (ImapMover): UID MOVE; without MOVE, UID COPY + UID STORE \Deleted +
// UID EXPUNGE of those UIDs alone (UIDPLUS); without UIDPLUS either, the
// originals are left \Deleted and the log says so, since a plain EXPUNGE
// would also remove other clients' deleted mail. A message that is no
// longer in the source is passed over: MoveMany gives it an empty
// identifier and moves the rest, Move says NotFound. Without COPYUID the
// copies are found by their fingerprints above the destination's UIDNEXT.
//
// What a move needs beside the UIDs is taken from the last query of the
// folder and the last look at the destination when they have it, so moving
// a rule's matches costs the one UID MOVE. The mailbox list (names,
// separators, special use) is read once per connection.
//
// Anticipate: on a server with CONDSTORE, the next rules' queries are
// told ahead. When several will ask the same folder, it is read once into
// an ImapFolderImage and they are matched there, the image brought up to
// date before each (STATUS, then CHANGEDSINCE); other queries run ahead on
// a second connection (ImapLookahead), and the query then asks only what
// changed since. Either way the answer is the one a query would have had.

#include "ImapConnection.h"
#include "ImapFolderImage.h"
#include "ImapIds.h"
#include "ImapLookahead.h"
#include "ImapReconnect.h"
#include "ImapSettings.h"
#include "platform/mapi/MessageStore.h"

#include <QHash>
#include <QSet>
#include <QTimer>

#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace mv::logging {
class Logger;
}

namespace mv::stores {

class FetchNeeds;
class ImapCredentials;
class ImapIdleWatcher;
class ImapMover;
struct FetchedMessage;

class ImapStore : public mapi::MessageStore {
    Q_OBJECT
public:
    using Connector = std::function<Result<std::unique_ptr<ImapConnection>>(const ImapSettings&, const QString& password)>;

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
    Result<ImapConnection*> Connection();
    template <class T>
    Result<T> Retrying(const std::function<Result<T>(ImapConnection&)>& call);
    Result<quint32> SelectChecked(ImapConnection& conn, const ImapFolderRef& folder);
    Result<quint32> UidValidity(ImapConnection& conn, const QByteArray& mailbox, quint32* uidNext = nullptr);
    Result<mapi::FolderInfo> Describe(ImapConnection& conn, const QByteArray& mailbox, char delimiter, int flagsType,
                                      const QString& specialUse);
    // UID sets of up to kFetchBatch UIDs that stay short enough for one line.
    static std::vector<QByteArray> UidBatches(const std::vector<quint32>& uids);
    Result<std::vector<FetchedMessage>> FetchHeaders(ImapConnection& conn, const std::vector<quint32>& uids,
                                                     const FetchNeeds& needs) const;
    // The class of each of these messages from its structure (and the text
    // of a calendar part that names no method), by UID.
    Result<QHash<quint32, QString>> FetchClasses(ImapConnection& conn, const std::vector<quint32>& uids) const;
    // `light`: the record is made from the fetched fields alone (FetchNeeds::light).
    mapi::MessageRecord BuildRecord(const FetchedMessage& m, const ImapFolderRef& folder, bool light) const;
    Result<std::vector<mapi::Row>> QueryOn(ImapConnection& conn, const ImapFolderRef& folder,
                                           const mapi::Restriction* restriction, const std::vector<mapi::PropTag>& columns);
    static SearchKeys Keys(const ImapConnection& conn, const mapi::Restriction* restriction);
    // Search, fetch and check on a connection with the folder selected. Safe
    // on the lookahead's thread: it reads only what never changes.
    Result<GatheredRows> Gather(ImapConnection& conn, const ImapFolderRef& folder, const mapi::Restriction* restriction,
                                const std::vector<mapi::PropTag>& columns, const SearchKeys& keys) const;
    // The lookahead's answer brought up to date, or nothing (then query).
    std::optional<GatheredRows> FromLookahead(ImapConnection& conn, const ImapFolderRef& folder,
                                              const mapi::Restriction& restriction,
                                              const std::vector<mapi::PropTag>& columns, const SearchKeys& keys);
    // Hands the told queries to the lookahead, but those a folder image will answer.
    void SendAhead();
    // The fields the image must hold for the query, or nothing when an image cannot answer it.
    static std::optional<QByteArrayList> ImageFields(const mapi::Restriction* restriction,
                                                     const std::vector<mapi::PropTag>& columns);
    bool ImageWanted(const QByteArray& folderKey) const;
    // The answer from the folder's image, made or brought up to date first;
    // nothing when the folder cannot have one. `fields`: what the query reads.
    Result<std::optional<GatheredRows>> FromImage(ImapConnection& conn, const ImapFolderRef& folder,
                                                  const mapi::Restriction* restriction,
                                                  const std::vector<mapi::PropTag>& columns,
                                                  const QByteArrayList& fields);
    // Reads these messages (sorted UIDs) into the image; the records of
    // one batch are made while the next is fetched.
    Status PutInImage(ImapConnection& conn, const ImapFolderRef& folder, const std::vector<quint32>& uids,
                      ImapFolderImage& image) const;
    // Brings the image to the folder's state: false when too much changed.
    Result<bool> Refresh(ImapConnection& conn, const ImapFolderRef& folder, ImapFolderImage& image) const;
    struct Batch {
        ImapFolderRef folder;
        std::vector<quint32> uids;
    };
    // The UIDs of messages of one folder; an error when they are of several.
    static Result<Batch> OneFolder(const std::vector<QByteArray>& messageIds);
    // `call` with the batch's folder selected and brought up to date,
    // retried once on a new connection; `whenGone` when there is nothing to
    // ask or the folder is gone.
    template <class T>
    Result<T> InFolder(const std::vector<QByteArray>& messageIds, T whenGone,
                       const std::function<Result<T>(ImapMover&, const Batch&)>& call);
    // Moves; `gone[i]` is set for a message that was no longer in the source.
    Result<std::vector<QByteArray>> MoveUids(const std::vector<QByteArray>& messageIds,
                                             const QByteArray& destFolderId, std::vector<bool>& gone);
    // These messages left the folder: out of the image and the last query's answer.
    void Forget(const ImapFolderRef& folder, const std::vector<quint32>& uids);
    struct ListEntry {
        char delimiter = 0;
        QString specialUse;
        bool selectable = true;
    };
    // LIST "" "*" into m_list.
    Status ReadList(ImapConnection& conn);
    static QByteArray FolderKey(const ImapFolderRef& folder);
    QString OwnAddress() const;
    QDateTime Now() const;

    ImapSettings m_settings;
    logging::Logger* m_log = nullptr;
    // Failed connects: pause, and stop after a refused login.
    ImapReconnect m_reconnect;
    const QByteArray m_storeId;  // asked for every row
    Connector m_connector;
    std::unique_ptr<ImapConnection> m_conn;
    // The password or token, shared with the look-ahead and the watcher.
    std::shared_ptr<ImapCredentials> m_credentials;
    std::unique_ptr<ImapIdleWatcher> m_watcher;
    int m_commandsDone = 0;  // of connections already closed
    // Per connection: the mailbox list; the UIDNEXT last seen of a folder
    // (by FolderKey: it only grows, so an old value stays a safe lower
    // bound); the Message-IDs and flags of the messages the last query
    // fetched.
    std::optional<QHash<QByteArray, ListEntry>> m_list;
    QHash<QByteArray, quint32> m_uidNext;
    QByteArray m_queriedFolder;
    QHash<quint32, GatheredRows::Fetched> m_queried;
    // UIDs this store moved out of a folder (by FolderKey): a lookahead's
    // answer may still name them.
    QHash<QByteArray, QSet<quint32>> m_removed;
    // Queries told ahead and not yet handed on; how many told queries an
    // image could answer wait for each folder (by FolderKey); the images;
    // folders that cannot have one (no mod-sequences, too large). All go
    // when no image was used for a while.
    std::vector<LookaheadJob> m_told;
    QHash<QByteArray, int> m_announced;
    QHash<QByteArray, QByteArrayList> m_imageFields;  // what the told queries read
    std::map<QByteArray, std::unique_ptr<ImapFolderImage>> m_images;
    QSet<QByteArray> m_noImage;
    QTimer m_imageIdle;
    // Last, so that its thread stops before anything it reads goes.
    std::unique_ptr<ImapLookahead> m_lookahead;
};

}  // namespace mv::stores
