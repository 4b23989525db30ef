#pragma once
// The account's mailboxes: the list (names, separators, special use, read
// once per connection), folder descriptions (STATUS), creation, and the
// UIDNEXT last seen of each folder. A UIDNEXT only grows, so an old value
// stays a safe lower bound for finding copies.
//
// Errors: NotFound for a mailbox that is missing or was recreated under
// another UIDVALIDITY; the connection's errors otherwise.

#include "ImapSession.h"
#include "platform/mapi/MessageStore.h"

#include <QHash>

#include <optional>
#include <vector>

namespace mv::stores {

class ImapMailboxList {
public:
    // `session` is borrowed and outlives the list.
    explicit ImapMailboxList(ImapSession& session) : m_session(session) {}

    Result<std::vector<mapi::FolderInfo>> Folders();
    Result<mapi::FolderInfo> Folder(const QByteArray& folderId);
    Result<QByteArray> CreateFolder(const QByteArray& parentId, const QString& name);
    // Folder id of a mailbox by its wire name ("INBOX", "Archive").
    Result<QByteArray> FolderIdOf(const QByteArray& mailbox);

    void SawUidNext(const ImapFolderRef& folder, quint32 uidNext);
    quint32 UidNextSeen(const ImapFolderRef& folder) const;  // 0: not known
    void ForgetUidNext(const ImapFolderRef& folder);

private:
    struct ListEntry {
        QByteArray name;
        char delimiter = 0;
        QString specialUse;
        bool selectable = true;
    };
    Result<mapi::FolderInfo> Describe(ImapConnection& conn, const QByteArray& mailbox, char delimiter,
                                      const QString& specialUse);
    // LIST "" "*", in the server's order; also kept in m_list.
    Result<std::vector<ListEntry>> ReadList(ImapConnection& conn);

    ImapSession& m_session;
    std::optional<QHash<QByteArray, ListEntry>> m_list;
    int m_listGeneration = -1;  // the session's connection m_list was read on
    QHash<QByteArray, quint32> m_uidNext;  // by ImapIds::FolderKey
};

}  // namespace mv::stores
