#include "ImapFlagWriter.h"

#include "ImapFetcher.h"
#include "platform/stores/common/FlagMapping.h"

#include <QMap>

#include <algorithm>

namespace mv::stores {

using namespace mv::mapi;

namespace {

// The UID STORE arguments that take `now` to the flag status: only the
// difference, so other clients' flags stay as they are.
QByteArrayList FlagChanges(const MessageFlags& now, int flagStatus)
{
    const MessageFlags wanted = FlagMapping::WithFlagStatus(now, flagStatus);
    QByteArrayList add, remove;
    if (wanted.flagged != now.flagged) (wanted.flagged ? add : remove) << "\\Flagged";
    for (const QString& k : wanted.keywords)
        if (!now.keywords.contains(k, Qt::CaseInsensitive)) add << k.toUtf8();
    for (const QString& k : now.keywords)
        if (!wanted.keywords.contains(k, Qt::CaseInsensitive)) remove << k.toUtf8();
    QByteArrayList changes;
    if (!add.isEmpty()) changes << "+FLAGS.SILENT (" + add.join(' ') + ')';
    if (!remove.isEmpty()) changes << "-FLAGS.SILENT (" + remove.join(' ') + ')';
    return changes;
}

}  // namespace

Status ImapFlagWriter::SetFlagStatusMany(const std::vector<QByteArray>& messageIds, int flagStatus)
{
    if (flagStatus < 0 || flagStatus > 2)
        return Error::permanent(QStringLiteral("flag status %1 is not 0, 1 or 2").arg(flagStatus));
    // By folder, in the order first met.
    std::vector<std::pair<ImapFolderRef, std::vector<quint32>>> byFolder;
    for (const QByteArray& id : messageIds) {
        const auto ref = ImapIds::ParseMessage(id);
        if (!ref) return Error::notFound(QStringLiteral("not an IMAP message identifier"));
        auto it = std::find_if(byFolder.begin(), byFolder.end(), [&](const auto& f) { return f.first == ref->folder; });
        if (it == byFolder.end()) it = byFolder.insert(byFolder.end(), {ref->folder, {}});
        it->second.push_back(ref->uid);
    }
    for (const auto& [folder, uids] : byFolder) {
        auto done = m_session.Retrying<bool>([&](ImapConnection& conn) -> Result<bool> {
            if (auto uv = ImapSession::SelectChecked(conn, folder); !uv) return uv.error();
            // The flags the last query fetched serve when it fetched every
            // one of these (a rule's batch right after its query); a
            // message gone since is one a UID STORE passes over.
            std::vector<FetchedMessage> current;
            const bool known = std::all_of(uids.begin(), uids.end(),
                                           [&](quint32 u) { return m_query.Queried(folder, u) != nullptr; });
            if (known) {
                for (quint32 uid : uids) {
                    FetchedMessage m;
                    m.uid = uid;
                    m.flags = m_query.Queried(folder, uid)->flags;
                    current.push_back(std::move(m));
                }
            } else {
                if (Status s = conn.Custom("UID FETCH " + ImapFetcher::UidSet(uids) + " (UID FLAGS)"); !s)
                    return s.error();
                current = ImapFetcher::Parse(conn.session());
            }
            // Messages wanting the same change share one STORE.
            QMap<QByteArray, std::vector<quint32>> stores;
            for (const FetchedMessage& m : current) {
                if (m.flags.deleted) continue;
                for (const QByteArray& change : FlagChanges(m.flags, flagStatus)) stores[change].push_back(m.uid);
            }
            for (auto it = stores.constBegin(); it != stores.constEnd(); ++it)
                if (Status s = conn.Custom("UID STORE " + ImapFetcher::UidSet(it.value()) + ' ' + it.key());
                    !s)
                    return s.error();
            // Only once stored: a retry after a drop must still see the
            // flags as they were, or it would find nothing left to store.
            if (known)
                for (const FetchedMessage& m : current)
                    m_query.Queried(folder, m.uid)->flags = FlagMapping::WithFlagStatus(m.flags, flagStatus);
            return true;
        });
        if (!done) return done.error();
    }
    return Status::success();
}

Status ImapFlagWriter::SetFlagStatus(const QByteArray& messageId, int flagStatus)
{
    const auto ref = ImapIds::ParseMessage(messageId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP message identifier"));
    if (flagStatus < 0 || flagStatus > 2) return Error::permanent(QStringLiteral("flag status %1 is not 0, 1 or 2").arg(flagStatus));
    auto done = m_session.Retrying<bool>([&](ImapConnection& conn) -> Result<bool> {
        if (auto uv = ImapSession::SelectChecked(conn, ref->folder); !uv) return uv.error();
        const QByteArray uid = QByteArray::number(ref->uid);
        if (Status s = conn.Custom("UID FETCH " + uid + " (UID FLAGS)"); !s) return s.error();
        const auto fetched = ImapFetcher::Parse(conn.session());
        if (fetched.empty() || fetched.front().flags.deleted)
            return Error::notFound(QStringLiteral("the message is no longer there"));
        for (const QByteArray& change : FlagChanges(fetched.front().flags, flagStatus))
            if (Status s = conn.Custom("UID STORE " + uid + ' ' + change); !s) return s.error();
        return true;
    });
    if (!done) return done.error();
    return Status::success();
}

}  // namespace mv::stores
