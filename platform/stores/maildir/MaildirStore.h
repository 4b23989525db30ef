#pragma once
// The embedded default store: a Maildir tree on the local disk (Maildir++ or
// the file-system layout, see MaildirLayout), with a SQLite index in the
// cache folder so that a run parses only new or changed files.
//
// Moves and flag changes are rename(2) calls that never replace a file.
// Only where a folder sits on another file system (a symlink to another
// disk) is a message copied: into the destination's tmp/, synced, renamed
// into cur/ under the same unique name, and only then unlinked from the
// source, so it is never in neither folder. Files in tmp/ that the store
// did not write are never touched. The store is used from the thread it
// lives in; parsing may use worker threads inside Query.
//
// The store's identifier comes from the key file at its root
// (MaildirStoreKey) and survives moving the data folder; identifiers that
// earlier versions made from the root path are listed in formerStoreIds.
//
// For the move journal: a message keeps its unique name across moves, so
// Fingerprint::uniqueName finds it again; Probe answers Deleted for a file
// with the T (trashed) flag, which only other clients set; Remove unlinks
// the files; Undelete takes T off; ArrivalMark is empty.

#include "MaildirFolderState.h"
#include "MaildirIndex.h"
#include "MaildirLayout.h"
#include "MaildirName.h"
#include "MaildirQuickIndex.h"

#include "platform/mapi/MessageStore.h"

#include <QHash>
#include <QSet>

#include <functional>
#include <map>
#include <memory>
#include <optional>

class QFileSystemWatcher;

namespace mv::stores::maildir {

struct MaildirStoreOptions {
    QString indexPath;                           // empty: MaildirIndex::DefaultPathFor(root)
    std::optional<MaildirLayout::Kind> layout;   // empty: detect
    QString displayName;                         // empty: "Maildir (<root>)"
    QString ownAddress;                          // for PR_RCVD_REPRESENTING_* when headers lack it
    bool watch = true;                           // MessagesArrived from INBOX and Sent
};

class MaildirStore final : public mapi::MessageStore {
    Q_OBJECT
public:
    explicit MaildirStore(const QString& root, MaildirStoreOptions options = {}, QObject* parent = nullptr);
    ~MaildirStore() override;

    QByteArray StoreId() const override;
    QList<QByteArray> FormerStoreIds() const override { return m_formerStoreIds; }
    QString DisplayName() const override;

    Result<std::vector<mapi::FolderInfo>> Folders() override;
    Result<mapi::FolderInfo> Folder(const QByteArray& folderId) override;
    Result<QByteArray> CreateFolder(const QByteArray& parentId, const QString& name) override;

    Result<std::vector<mapi::Row>> Query(const QByteArray& folderId, const mapi::Restriction* restriction,
                                         const std::vector<mapi::PropTag>& columns) override;
    Result<mapi::MessageRecord> Item(const QByteArray& messageId) override;
    Result<QByteArray> RawMessage(const QByteArray& messageId) override;

    Result<QByteArray> Move(const QByteArray& messageId, const QByteArray& destFolderId) override;
    // A message that has left its folder gets an empty identifier and the
    // rest still move; a missing destination is NotFound and moves nothing.
    Result<std::vector<QByteArray>> MoveMany(const std::vector<QByteArray>& messageIds,
                                             const QByteArray& destFolderId) override;
    // Flag changes of several messages; the folder is listed once.
    Status SetFlagStatusMany(const std::vector<QByteArray>& messageIds, int flagStatus) override;
    Status SetFlagStatus(const QByteArray& messageId, int flagStatus) override;
    // With a uniqueName, the file gets exactly that name; a name that is not
    // a valid unique name, or that the folder already holds, is refused
    // (Permanent) and nothing is written.
    Result<QByteArray> Append(const QByteArray& folderId, const mapi::NewMessage& message) override;

    Result<std::vector<mapi::NewMessage>> Export(const std::vector<QByteArray>& messageIds) override;
    Result<std::vector<QByteArray>> AppendMany(const QByteArray& folderId,
                                               const std::vector<mapi::NewMessage>& messages) override;
    Result<std::vector<mapi::Fingerprint>> Fingerprints(const std::vector<QByteArray>& messageIds) override;
    Result<std::vector<mapi::Presence>> Probe(const std::vector<QByteArray>& messageIds) override;
    Status Remove(const std::vector<QByteArray>& messageIds) override;
    Status Undelete(const std::vector<QByteArray>& messageIds) override;
    // By unique name in cur/ or new/; a fingerprint without one by its
    // delivery time, size and Message-ID (those it knows). `mark` is unused.
    Result<std::vector<QByteArray>> Locate(const QByteArray& folderId, const QByteArray& mark,
                                           const std::vector<mapi::Fingerprint>& fingerprints) override;

    const MaildirLayout& layout() const { return m_layout; }
    const QString& indexPath() const { return m_options.indexPath; }
    // What the last scan did (files parsed, dropped ...) and how many bodies
    // the last Query read: for tests, the benchmark and the log.
    const ScanStats& lastScan() const { return m_lastScan; }
    int lastBodyReads() const { return m_lastBodyReads; }
    int indexRebuilds() const { return m_index.rebuilds(); }
    // Writes what the compact per-folder index learnt (the folders this
    // store scanned or changed, body answers); the destructor does it too.
    // The files are a cache: an error here loses no mail.
    Status FlushIndex();
    // Where the compact per-folder index files are: beside the SQLite index.
    QString quickIndexDir() const;
    // Replaces the parser (tests count or fail parses through it).
    void SetHeaderParser(HeaderParser parser) { m_parser = std::move(parser); }

private:
    struct Located {
        MaildirFolderState* folder;
        const CachedMessage* message;
    };
    Status EnsureIndex();
    Result<MaildirFolderState*> ScannedFolder(const QString& folderPath);
    // The answer from the folder's compact index when its directories did
    // not change since it was written; nullopt otherwise.
    std::optional<std::vector<mapi::Row>> QuickQuery(const QString& folderPath, const mapi::Restriction* restriction,
                                                     const BodyTerms& terms, const std::vector<mapi::PropTag>& columns);
    Result<Located> Find(const QByteArray& messageId);
    // Unique names in cur/ and new/ by folder path, listed once per call.
    using Listings = std::map<QString, QSet<QString>>;
    // Find, with a message that is gone as nullopt rather than an error; a
    // file that is there but unreadable is Temporary.
    Result<std::optional<Located>> FindIfThere(const QByteArray& messageId, Listings& listings);
    // FindIfThere for each id in order, in one batch; stops at the first
    // error, its own or `visit`'s.
    Status ForEachFound(const std::vector<QByteArray>& messageIds,
                        const std::function<Status(const std::optional<Located>&)>& visit);
    Result<mapi::Fingerprint> FingerprintOf(const Located& located);
    // Renames the message's file to carry `flags`; the index follows.
    Status Relabel(const Located& located, const mapi::MessageFlags& flags);
    Result<QByteArray> AppendOne(const QString& folderPath, const QString& dir, const mapi::NewMessage& message,
                                 QSet<QString>* uniquesThere);
    // Folders scanned once for the MoveMany under way: each of its moves
    // changes the directory, which would otherwise make every Locate list
    // the whole folder again.
    QSet<QString> m_scannedForBatch;
    bool m_inBatch = false;
    class BatchScope {
    public:
        explicit BatchScope(MaildirStore& store);
        ~BatchScope();

    private:
        MaildirStore& m_store;
    };
    mapi::FolderInfo InfoOf(const LayoutFolder& folder);
    enum class OnCollision { FreshName, Refuse };
    enum class AcrossFileSystems { Copy, Refuse };
    // Renames `from` into <toDir>/cur/ as `name`; returns "cur/<file name>".
    // A name that is taken gets a fresh unique name or is an error; EXDEV
    // copies (CopyInto) or is an error.
    Result<QString> RenameInto(const QString& from, const QString& toDir, MaildirName name,
                               OnCollision onCollision = OnCollision::FreshName,
                               AcrossFileSystems across = AcrossFileSystems::Copy);
    Result<QString> CopyInto(const QString& from, const QString& toDir, const MaildirName& name);
    void Watch();
    void OnDirectoryChanged(const QString& path);

    QString m_root;
    MaildirStoreOptions m_options;
    MaildirLayout m_layout;
    QByteArray m_storeId;
    QList<QByteArray> m_formerStoreIds;
    MaildirIndex m_index;
    std::unique_ptr<MaildirQuickIndex> m_quick;
    HeaderParser m_parser;
    std::map<QString, std::unique_ptr<MaildirFolderState>> m_folders;
    ScanStats m_lastScan;
    int m_lastBodyReads = 0;
    QFileSystemWatcher* m_watcher = nullptr;
    QHash<QString, QString> m_watchedFolder;       // watched directory -> folder path
    QHash<QString, QSet<QString>> m_knownNames;    // folder path -> unique names last seen
};

}  // namespace mv::stores::maildir
