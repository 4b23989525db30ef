#pragma once
// A persistent copy of IMAP source folders: per folder its UIDVALIDITY and
// HIGHESTMODSEQ, and per message the UID, flags, internal date, size,
// Message-ID and the header fields rules test, in a MessageIndexFile of the
// mirror folder (one file per mailbox). Header, flag and age rules are
// answered from it by the evaluator; the server is asked only what changed.
//
// Bringing a folder up to date (Sync), on a connection with it selected:
// - a new UIDVALIDITY, or no file yet: every message is read (UID SEARCH
//   ALL, then the fields in batches), as of the HIGHESTMODSEQ STATUS gave
//   before the first FETCH, so a change made meanwhile is read next time;
// - with QRESYNC: UID FETCH 1:* (FLAGS) (CHANGEDSINCE m VANISHED) gives the
//   changed and new messages and the UIDs expunged since m;
// - with CONDSTORE only: the same without VANISHED, and UID SEARCH ALL when
//   the server's count then differs from the mirror's;
// - without mod-sequences the folder has no mirror (Sync says false) and the
//   caller queries the server as before.
// The file is written (MessageIndexFile::Commit, atomic) after each sync
// that changed something, so a run that finds nothing new writes nothing.
//
// Not thread-safe; owned by the store's thread.

#include "ImapConnection.h"
#include "ImapIds.h"
#include "ImapLookahead.h"
#include "platform/mapi/MessageStore.h"
#include "platform/stores/common/MessageIndexFile.h"

#include <functional>
#include <map>
#include <memory>

namespace mv::stores {

struct FetchedMessage;

class ImapMirror {
public:
    // How a message's record is made from its fetched fields (the query's
    // light BuildRecord, identifiers left out).
    using RecordMaker = std::function<mapi::MessageRecord(const FetchedMessage&)>;
    // Reads the fields of these UIDs (sorted), in batches.
    using Fetcher = std::function<Result<std::vector<FetchedMessage>>(ImapConnection&, const std::vector<quint32>&)>;

    // `folder`: this account's mirror files (made 0700 when missing).
    ImapMirror(QString folder, QByteArray storeId, RecordMaker makeRecord, Fetcher fetch);
    ~ImapMirror();

    // The header fields every record is made of.
    static const QByteArrayList& Fields();

    // Brings the folder's copy up to date; false when the server keeps no
    // mod-sequences for it. Errors: the connection's, and Temporary when the
    // file cannot be read or written.
    Result<bool> Sync(ImapConnection& conn, const ImapFolderRef& folder);

    // After a Sync: UIDs and rows of the messages that meet the restriction
    // (all when null), in UID order; messages marked \Deleted never do.
    GatheredRows Match(const ImapFolderRef& folder, const mapi::Restriction* restriction,
                       const std::vector<mapi::PropTag>& columns) const;
    // Of these, the UIDs whose class waits for the structure.
    std::vector<quint32> ClassOpen(const ImapFolderRef& folder, const std::vector<quint32>& uids) const;
    // Remembers classes told from the structure (written with the next sync).
    void SetClasses(const ImapFolderRef& folder, const QHash<quint32, QString>& classes);
    // These messages left the folder.
    void Forget(const ImapFolderRef& folder, const std::vector<quint32>& uids);

    // Records and file bytes of a folder's copy (benchmarks, tests).
    qsizetype count(const ImapFolderRef& folder) const;
    qint64 fileSize(const ImapFolderRef& folder) const;

private:
    Result<MessageIndexFile*> File(const QByteArray& mailbox);
    MessageIndexFile* Loaded(const QByteArray& mailbox) const;
    Status Rebuild(ImapConnection& conn, const ImapFolderRef& folder, MessageIndexFile& file);
    // Reads these UIDs and puts their records.
    Status PutFetched(ImapConnection& conn, const std::vector<quint32>& uids, MessageIndexFile& file);
    MessageIndexFile::Record RecordOf(const FetchedMessage& m) const;

    QString m_folder;
    QByteArray m_storeId;
    RecordMaker m_makeRecord;
    Fetcher m_fetch;
    std::map<QByteArray, std::unique_ptr<MessageIndexFile>> m_files;  // by mailbox
};

}  // namespace mv::stores
