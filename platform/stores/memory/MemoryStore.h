#pragma once
// The MessageStore interface over messages held in memory, for tests of the
// engine and everything above it. It parses what it is given with the same
// MimeProperties and FlagMapping as the real stores and answers restrictions
// with the shared evaluator, so it is the reference the conformance suite
// holds the other backends to.
//
// Created with the folders Inbox, Sent, Drafts, Trash and Archive.
// Identifiers: "MVM1", a kind byte ('S' store, 'F' folder, 'M' message), the
// store name in UTF-8, a NUL, then the folder number and, for a message, its
// serial, each 4 bytes big-endian. Serials are never reused, so a moved
// message gets a new identifier and the old one is NotFound.
//
// Failure injection: FailNext(call, n, error) makes the next n calls of that
// kind return `error` without doing anything; FailAt(call, n, error) lets
// n - 1 calls of that kind through and fails the nth. Calls a default
// implementation makes on the store's own calls (AppendMany -> Append,
// SetFlagStatusMany -> SetFlagStatus) count as their own kind too, so a
// batch can fail half-way.
//
// Moves across stores: with `keepsUniqueNames` the store keeps the unique
// name an append brings and finds messages again by it, as Maildir does;
// without, it ignores names and finds them by Message-ID, size and arrival
// time, as IMAP does. The arrival mark is the next serial.

#include "platform/mapi/MessageStore.h"

#include <functional>
#include <map>

namespace mv::stores {

struct MemoryStoreOptions {
    QString name = QStringLiteral("Memory");  // display name; part of every identifier
    QString ownAddress;                       // PR_RCVD_REPRESENTING_* fallback
    std::function<QDateTime()> clock;         // internal date of appends without one; default: system UTC now
    bool keepsUniqueNames = false;            // see above
};

class MemoryStore : public mapi::MessageStore {
    Q_OBJECT
public:
    enum class Call {
        Folders, Folder, CreateFolder, Query, Item, RawMessage, Move, MoveMany, SetFlagStatus, SetFlagStatusMany,
        Append, Export, AppendMany, Fingerprints, Probe, Remove, Undelete, ArrivalMark, Locate
    };

    using Options = MemoryStoreOptions;

    explicit MemoryStore(Options options = {}, QObject* parent = nullptr);

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
    Status SetFlagStatusMany(const std::vector<QByteArray>& messageIds, int flagStatus) override;
    Result<QByteArray> Append(const QByteArray& folderId, const mapi::NewMessage& message) override;

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

    // Test helpers.
    QByteArray FolderIdByPath(const QString& path) const;  // "Inbox/Projects"; empty when none
    QByteArray InboxId() const { return FolderIdByPath(QStringLiteral("Inbox")); }
    Result<mapi::MessageFlags> Flags(const QByteArray& messageId) const;
    // Marks a message \Deleted (or takes the mark off), as half of an IMAP
    // copy-and-delete move leaves it.
    Status SetDeleted(const QByteArray& messageId, bool deleted);
    // Subjects of the messages in a folder, \Deleted ones with " [deleted]".
    QStringList SubjectsIn(const QByteArray& folderId) const;
    void FailNext(Call call, int count, Error error);
    void FailAt(Call call, int nth, Error error);
    int CallCount(Call call) const;

private:
    struct Message {
        QByteArray raw;
        mapi::MessageFlags flags;
        QDateTime internalDate;
        QByteArray uniqueName;  // only with keepsUniqueNames
        mapi::MessageRecord record;
    };
    struct FolderData {
        quint32 parent = 0;  // 0: top level
        QString name;
        QString specialUse;
        std::map<quint32, Message> messages;  // by serial, so in arrival order
    };
    struct MessageRef {
        quint32 folder = 0;
        quint32 serial = 0;
    };

    std::optional<Error> Enter(Call call);
    QByteArray MakeId(char kind, quint32 folder, std::optional<quint32> serial = std::nullopt) const;
    std::optional<quint32> ParseFolderId(const QByteArray& id) const;
    std::optional<MessageRef> ParseMessageId(const QByteArray& id) const;
    const Message* FindMessage(const QByteArray& messageId) const;
    Message* FindMessage(const QByteArray& messageId);
    Error NoMessage(const QByteArray& messageId) const;
    QString PathOf(quint32 folder) const;
    mapi::FolderInfo InfoOf(quint32 folder) const;
    quint32 AddFolder(quint32 parent, const QString& name, const QString& specialUse);
    void StampIds(quint32 folder, quint32 serial, Message& message) const;
    mapi::Fingerprint FingerprintOf(const Message& message) const;

    Options m_options;
    std::map<quint32, FolderData> m_folders;  // by folder number, from 1
    quint32 m_nextFolder = 1;
    quint32 m_nextSerial = 1;
    struct Injection {
        int skip = 0;       // calls let through first
        int remaining = 0;  // calls then failed
        Error error;
    };
    std::map<Call, Injection> m_failures;
    std::map<Call, int> m_calls;
};

}  // namespace mv::stores
