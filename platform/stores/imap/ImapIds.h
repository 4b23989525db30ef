#pragma once
// The IMAP backend's binary identifiers. Each starts with the magic "MVI1"
// (backend and version), so they never collide with another backend's.
//   store:   MVI1 user@host:port
//   folder:  MVI1 <u16 length> <mailbox name, modified UTF-7 as on the wire> <u32 UIDVALIDITY>
//   message: <folder id> <u32 UID>
// Integers are big-endian. A folder whose UIDVALIDITY changed is another
// folder as far as these identifiers go: the old ones are NotFound.

#include <QByteArray>
#include <QString>

#include <optional>

namespace mv::stores {

struct ImapFolderRef {
    QByteArray mailbox;
    quint32 uidValidity = 0;
    bool operator==(const ImapFolderRef&) const = default;
};

struct ImapMessageRef {
    ImapFolderRef folder;
    quint32 uid = 0;
};

class ImapIds {
public:
    static QByteArray StoreId(const QString& user, const QString& host, quint16 port);
    static QByteArray FolderId(const QByteArray& mailbox, quint32 uidValidity);
    static QByteArray MessageId(const ImapFolderRef& folder, quint32 uid);
    static std::optional<ImapFolderRef> ParseFolder(const QByteArray& id);
    static std::optional<ImapMessageRef> ParseMessage(const QByteArray& id);
    // A folder as a hash key in memory ("INBOX/1700000000"); never stored.
    static QByteArray FolderKey(const ImapFolderRef& folder);
};

}  // namespace mv::stores
