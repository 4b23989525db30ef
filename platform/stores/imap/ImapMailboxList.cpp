#include "ImapMailboxList.h"

#include "platform/stores/common/ModifiedUtf7.h"
#include "platform/stores/common/FolderUseByName.h"

#include <libetpan/libetpan.h>

namespace mv::stores {

using namespace mv::mapi;

namespace {

const char* const kSpecialUses[] = {"\\Sent", "\\Drafts", "\\Trash", "\\Archive", "\\Junk", "\\All", "\\Flagged"};

QString SpecialUseOf(const QByteArray& mailbox, const mailimap_mbx_list_flags* flags, char delimiter)
{
    if (mailbox.compare("INBOX", Qt::CaseInsensitive) == 0) return QStringLiteral("\\Inbox");
    if (flags && flags->mbf_oflags)
        for (clistiter* it = clist_begin(flags->mbf_oflags); it; it = clist_next(it)) {
            auto* of = static_cast<mailimap_mbx_list_oflag*>(clist_content(it));
            if (of->of_type != MAILIMAP_MBX_LIST_OFLAG_FLAG_EXT || !of->of_flag_ext) continue;
            const QByteArray ext = QByteArray("\\") + of->of_flag_ext;
            for (const char* use : kSpecialUses)
                if (ext.compare(use, Qt::CaseInsensitive) == 0) return QString::fromLatin1(use);
        }
    // Only a top-level folder's name tells its use.
    if (delimiter && mailbox.contains(delimiter)) return {};
    return FolderUseByName::UseOf(ModifiedUtf7::Decode(mailbox));
}

}  // namespace

Result<FolderInfo> ImapMailboxList::Describe(ImapConnection& conn, const QByteArray& mailbox, char delimiter,
                                             const QString& specialUse)
{
    auto values = ImapSession::StatusOf(conn, mailbox,
                                        {MAILIMAP_STATUS_ATT_MESSAGES, MAILIMAP_STATUS_ATT_UNSEEN,
                                         MAILIMAP_STATUS_ATT_UIDVALIDITY, MAILIMAP_STATUS_ATT_UIDNEXT});
    if (!values) return values.error();
    FolderInfo info;
    info.total = static_cast<int>((*values)[MAILIMAP_STATUS_ATT_MESSAGES]);
    info.unread = static_cast<int>((*values)[MAILIMAP_STATUS_ATT_UNSEEN]);
    const quint32 uidValidity = (*values)[MAILIMAP_STATUS_ATT_UIDVALIDITY];
    const quint32 uidNext = (*values)[MAILIMAP_STATUS_ATT_UIDNEXT];
    if (uidNext) m_uidNext.insert(ImapIds::FolderKey({mailbox, uidValidity}), uidNext);
    info.entryId = ImapIds::FolderId(mailbox, uidValidity);
    const QString path = ModifiedUtf7::Decode(mailbox);
    const QChar sep = QLatin1Char(delimiter ? delimiter : '/');
    info.path = QString(path).replace(sep, QLatin1Char('/'));
    info.name = path.section(sep, -1);
    if (mailbox.compare("INBOX", Qt::CaseInsensitive) == 0) info.name = info.path = QStringLiteral("Inbox");
    info.specialUse = specialUse;
    if (delimiter && mailbox.contains(delimiter)) {
        const QByteArray parent = mailbox.left(mailbox.lastIndexOf(delimiter));
        auto parentUv = ImapSession::UidValidity(conn, parent);
        if (parentUv) info.parentId = ImapIds::FolderId(parent, *parentUv);
        else if (parentUv.error().kind != ErrorKind::NotFound) return parentUv.error();
    }
    return info;
}

Result<std::vector<FolderInfo>> ImapMailboxList::Folders()
{
    return m_session.Retrying<std::vector<FolderInfo>>([this](ImapConnection& conn) -> Result<std::vector<FolderInfo>> {
        auto entries = ReadList(conn);
        if (!entries) return entries.error();
        std::vector<FolderInfo> out;
        for (const ListEntry& e : *entries) {
            if (!e.selectable) continue;
            auto info = Describe(conn, e.name, e.delimiter, e.specialUse);
            if (!info) {
                if (info.error().kind == ErrorKind::NotFound) continue;  // deleted meanwhile
                return info.error();
            }
            out.push_back(std::move(*info));
        }
        return out;
    });
}

Result<FolderInfo> ImapMailboxList::Folder(const QByteArray& folderId)
{
    const auto ref = ImapIds::ParseFolder(folderId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    return m_session.Retrying<FolderInfo>([&](ImapConnection& conn) -> Result<FolderInfo> {
        if (m_listGeneration != m_session.generation()) m_list.reset();
        // A mailbox missing from the list read earlier may be new: read again.
        if (!m_list || !m_list->contains(ref->mailbox))
            if (auto entries = ReadList(conn); !entries) return entries.error();
        const auto it = m_list->constFind(ref->mailbox);
        if (it == m_list->constEnd())
            return Error::notFound(
                QStringLiteral("IMAP folder %1 does not exist").arg(ModifiedUtf7::Decode(ref->mailbox)));
        const ListEntry entry = *it;
        auto info = Describe(conn, ref->mailbox, entry.delimiter, entry.specialUse);
        if (!info && info.error().kind == ErrorKind::NotFound) m_list.reset();  // the list is out of date
        if (info && info->entryId != folderId)
            return Error::notFound(QStringLiteral("IMAP folder %1 was recreated").arg(ModifiedUtf7::Decode(ref->mailbox)));
        return info;
    });
}

Result<std::vector<ImapMailboxList::ListEntry>> ImapMailboxList::ReadList(ImapConnection& conn)
{
    clist* list = nullptr;
    conn.CountCommand();
    if (Status s = conn.Check(mailimap_list(conn.session(), "", "*", &list), "LIST"); !s) return s.error();
    std::vector<ListEntry> entries;
    for (clistiter* it = clist_begin(list); it; it = clist_next(it)) {
        auto* mb = static_cast<mailimap_mailbox_list*>(clist_content(it));
        bool selectable = !(mb->mb_flag && mb->mb_flag->mbf_type == MAILIMAP_MBX_LIST_FLAGS_SFLAG &&
                            mb->mb_flag->mbf_sflag == MAILIMAP_MBX_LIST_SFLAG_NOSELECT);
        if (mb->mb_flag && mb->mb_flag->mbf_oflags)
            for (clistiter* o = clist_begin(mb->mb_flag->mbf_oflags); o; o = clist_next(o)) {
                auto* of = static_cast<mailimap_mbx_list_oflag*>(clist_content(o));
                if (of->of_flag_ext && (qstricmp(of->of_flag_ext, "NonExistent") == 0 || qstricmp(of->of_flag_ext, "Noselect") == 0))
                    selectable = false;
            }
        entries.push_back({QByteArray(mb->mb_name), mb->mb_delimiter,
                           SpecialUseOf(mb->mb_name, mb->mb_flag, mb->mb_delimiter), selectable});
    }
    mailimap_list_result_free(list);
    QHash<QByteArray, ListEntry> byName;
    for (const ListEntry& e : entries) byName.insert(e.name, e);
    m_list = std::move(byName);
    m_listGeneration = m_session.generation();
    return entries;
}

Result<QByteArray> ImapMailboxList::FolderIdOf(const QByteArray& mailbox)
{
    return m_session.Retrying<QByteArray>([&](ImapConnection& conn) -> Result<QByteArray> {
        auto uv = ImapSession::UidValidity(conn, mailbox);
        if (!uv) return uv.error();
        return ImapIds::FolderId(mailbox, *uv);
    });
}

Result<QByteArray> ImapMailboxList::CreateFolder(const QByteArray& parentId, const QString& name)
{
    std::optional<ImapFolderRef> parent;
    if (!parentId.isEmpty()) {
        parent = ImapIds::ParseFolder(parentId);
        if (!parent) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    }
    if (name.isEmpty()) return Error::permanent(QStringLiteral("a folder needs a name"));
    auto conn = m_session.Connection();
    if (!conn) return conn.error();
    ImapConnection& c = **conn;
    clist* list = nullptr;
    c.CountCommand();
    if (Status s = c.Check(mailimap_list(c.session(), "", "", &list), "LIST"); !s) return s.error();
    char delimiter = '/';
    if (list && clist_begin(list))
        delimiter = static_cast<mailimap_mailbox_list*>(clist_content(clist_begin(list)))->mb_delimiter;
    mailimap_list_result_free(list);
    if (delimiter && name.contains(QLatin1Char(delimiter)))
        return Error::permanent(QStringLiteral("folder name \"%1\" contains the separator \"%2\"").arg(name, QString(QLatin1Char(delimiter))));
    if (parent) {
        auto uv = ImapSession::UidValidity(c, parent->mailbox);
        if (!uv) return uv.error();
        if (*uv != parent->uidValidity) return Error::notFound(QStringLiteral("the parent folder was recreated"));
    }
    const QByteArray mailbox = (parent ? parent->mailbox + delimiter : QByteArray()) + ModifiedUtf7::Encode(name);
    c.CountCommand();
    if (Status s = c.Check(mailimap_create(c.session(), mailbox.constData()), "CREATE"); !s) return s.error();
    auto uv = ImapSession::UidValidity(c, mailbox);
    if (!uv) return uv.error();
    return ImapIds::FolderId(mailbox, *uv);
}

void ImapMailboxList::SawUidNext(const ImapFolderRef& folder, quint32 uidNext)
{
    if (uidNext) m_uidNext.insert(ImapIds::FolderKey(folder), uidNext);
}

quint32 ImapMailboxList::UidNextSeen(const ImapFolderRef& folder) const
{
    return m_uidNext.value(ImapIds::FolderKey(folder));
}

void ImapMailboxList::ForgetUidNext(const ImapFolderRef& folder)
{
    m_uidNext.remove(ImapIds::FolderKey(folder));
}

}  // namespace mv::stores
