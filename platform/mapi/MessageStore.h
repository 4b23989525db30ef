#pragma once
// A message store: the analogue of a MAPI store. Folders, a contents query
// that takes one restriction and a column set, items by identifier, moves
// and flag changes. Matching is the store's job.
//
// Identifiers are binary; each backend puts its own magic and version first
// so identifiers of different backends never collide. A message's identifier
// changes when it moves.
//
// Every call returns Result/Status: ErrorKind::Temporary when the same call
// may work later (connection dropped, lock held), NotFound when the folder or
// message is gone, Permanent otherwise. Calls never throw. All calls are made
// on the UI thread; a backend may use worker threads inside, but emits its
// signals on the thread the store lives in.

#include "PropTags.h"
#include "PropertySource.h"
#include "Restriction.h"
#include "platform/common/Error.h"

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <vector>

namespace mv::mapi {

struct FolderInfo {
    QByteArray entryId;
    QByteArray parentId;    // empty for top-level folders
    QString name;           // display name of this level ("Inbox", "Projects")
    QString path;           // full display path, levels joined by "/" ("Inbox/Projects")
    QString specialUse;     // "\\Inbox", "\\Sent", "\\Drafts", "\\Trash", "\\Archive", "\\Junk" or empty
    int total = -1;         // -1 when not known cheaply
    int unread = -1;
};

// Message state as stores keep it: IMAP system flags and keywords, Maildir
// letters and Dovecot keywords.
struct MessageFlags {
    bool seen = false;
    bool answered = false;
    bool flagged = false;
    bool draft = false;
    bool deleted = false;
    QStringList keywords;   // "$Forwarded", "$Completed", "$MailFlagBit0", ...
};

struct NewMessage {
    QByteArray rfc822;
    MessageFlags flags;
    QDateTime internalDate;  // UTC; invalid = now
    // A store that names its files (Maildir) uses this unique name when it
    // is set, so a move that is interrupted can be found again by it.
    QByteArray uniqueName;
};

// What finds a message again after an interrupted move: a store that keeps
// names across moves (Maildir) matches on `uniqueName`; others on the
// Message-ID, the size and the arrival time together.
struct Fingerprint {
    QByteArray uniqueName;       // Maildir: the file's unique name; empty elsewhere
    QByteArray messageIdHeader;  // the Message-ID field as written; may be empty
    qint64 size = -1;            // RFC822.SIZE: octets with CRLF line ends; -1 unknown
    QDateTime internalDate;      // UTC, whole seconds; invalid when unknown

    bool Known() const { return size >= 0 || !uniqueName.isEmpty(); }
};

// Where a message stands in its folder.
enum class Presence : quint8 {
    Absent,   // no longer in the folder
    Present,
    Deleted,  // still there, marked \Deleted (half of a copy-and-delete move)
};

using Row = std::vector<QVariant>;  // one value per requested column; invalid QVariant when absent

class MessageStore : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    ~MessageStore() override = default;

    virtual QByteArray StoreId() const = 0;
    // Identifiers earlier versions gave this store, which saved rules may
    // still name (a Maildir store's root path, before it kept a key).
    virtual QList<QByteArray> FormerStoreIds() const { return {}; }
    virtual QString DisplayName() const = 0;

    virtual Result<std::vector<FolderInfo>> Folders() = 0;
    virtual Result<FolderInfo> Folder(const QByteArray& folderId) = 0;
    virtual Result<QByteArray> CreateFolder(const QByteArray& parentId, const QString& name) = 0;

    // The matching messages of one folder, one Row per message with the
    // values of `columns` in order. `restriction` null = every message.
    // Messages being delivered (Maildir tmp/) and messages marked \Deleted are
    // never returned.
    virtual Result<std::vector<Row>> Query(const QByteArray& folderId, const Restriction* restriction,
                                           const std::vector<PropTag>& columns) = 0;

    // Every property of one message (PR_BODY included) and its recipient rows.
    virtual Result<MessageRecord> Item(const QByteArray& messageId) = 0;
    // The message as RFC 5322 bytes, for display.
    virtual Result<QByteArray> RawMessage(const QByteArray& messageId) = 0;

    // Moves one message; returns its identifier in the destination. A move
    // is atomic: afterwards the message is in exactly one of the two folders.
    virtual Result<QByteArray> Move(const QByteArray& messageId, const QByteArray& destFolderId) = 0;
    // Moves several messages of one source folder, in as few round trips as
    // the backend allows. Returns the new identifiers in order; on error, the
    // messages not yet moved are still in the source.
    virtual Result<std::vector<QByteArray>> MoveMany(const std::vector<QByteArray>& messageIds,
                                                     const QByteArray& destFolderId);

    // Follow-up flag as PR_FLAG_STATUS: 0 none (clears \Flagged and
    // $Completed), 1 complete ($Completed, not \Flagged), 2 flagged.
    virtual Status SetFlagStatus(const QByteArray& messageId, int flagStatus) = 0;
    // The same for several messages of one folder, in as few round trips as
    // the backend allows. Messages no longer there are passed over.
    virtual Status SetFlagStatusMany(const std::vector<QByteArray>& messageIds, int flagStatus);

    virtual Result<QByteArray> Append(const QByteArray& folderId, const NewMessage& message) = 0;

    // --- What the move journal needs (moves across stores, recovery) ---
    //
    // Each call takes messages of one folder. A message that is gone is not
    // an error: it gets an empty value in its place (Export: empty rfc822,
    // Fingerprints: a fingerprint that is not Known()).

    // The messages as another store's Append takes them.
    virtual Result<std::vector<NewMessage>> Export(const std::vector<QByteArray>& messageIds);
    // Appends in order; returns the new identifiers. On error, the messages
    // before the failing one are in the folder. Default: Append one by one.
    virtual Result<std::vector<QByteArray>> AppendMany(const QByteArray& folderId,
                                                       const std::vector<NewMessage>& messages);
    virtual Result<std::vector<Fingerprint>> Fingerprints(const std::vector<QByteArray>& messageIds);
    virtual Result<std::vector<Presence>> Probe(const std::vector<QByteArray>& messageIds);
    // Removes exactly these messages for good (IMAP: \Deleted, then UID
    // EXPUNGE of these UIDs). Never touches another message.
    virtual Status Remove(const std::vector<QByteArray>& messageIds);
    // Takes \Deleted off these messages again. Default: nothing to do.
    virtual Status Undelete(const std::vector<QByteArray>& messageIds);
    // An opaque mark of the folder's present end: Locate finds only what
    // arrived after it (IMAP: UIDVALIDITY and UIDNEXT). Default: empty, and
    // Locate then looks at the whole folder.
    virtual Result<QByteArray> ArrivalMark(const QByteArray& folderId);
    // For each fingerprint, a message of the folder that arrived after
    // `mark` and matches it, each message given at most once; empty where
    // none does.
    virtual Result<std::vector<QByteArray>> Locate(const QByteArray& folderId, const QByteArray& mark,
                                                   const std::vector<Fingerprint>& fingerprints);

    // A hint: this query of `folderId` is likely to come next. A store that
    // can start on it early does; the later Query answers as it would have.
    virtual void Anticipate(const QByteArray& folderId, const Restriction& restriction,
                            const std::vector<PropTag>& columns)
    {
        (void)folderId, (void)restriction, (void)columns;
    }

Q_SIGNALS:
    // New messages appeared in a folder (INBOX arrivals, Sent appends).
    void MessagesArrived(const QByteArray& folderId);
};

// The store of `stores` whose StoreId() is `storeId`, else the one that had
// it formerly; nullptr when none.
MessageStore* FindStore(const std::vector<MessageStore*>& stores, const QByteArray& storeId);

}  // namespace mv::mapi
