#include "ImapMoves.h"

#include "ImapMover.h"
#include "platform/stores/common/ModifiedUtf7.h"

#include <algorithm>

namespace mv::stores {

using namespace mv::mapi;

Result<ImapMoves::Batch> ImapMoves::OneFolder(const std::vector<QByteArray>& messageIds)
{
    Batch batch;
    for (const QByteArray& id : messageIds) {
        const auto ref = ImapIds::ParseMessage(id);
        if (!ref) return Error::notFound(QStringLiteral("not an IMAP message identifier"));
        if (!batch.uids.empty() && batch.folder != ref->folder)
            return Error::permanent(QStringLiteral("the messages of one call must be of one folder"));
        batch.folder = ref->folder;
        batch.uids.push_back(ref->uid);
    }
    return batch;
}

template <class T>
Result<T> ImapMoves::InFolder(const std::vector<QByteArray>& messageIds, T whenGone,
                              const std::function<Result<T>(ImapMover&, const Batch&)>& call)
{
    auto batch = OneFolder(messageIds);
    if (!batch) return batch.error();
    if (batch->uids.empty()) return whenGone;
    return m_session.Retrying<T>([&](ImapConnection& conn) -> Result<T> {
        auto uv = ImapSession::SelectChecked(conn, batch->folder);
        // A folder that is gone or was recreated holds none of them.
        if (!uv) return uv.error().kind == ErrorKind::NotFound ? Result<T>(whenGone) : Result<T>(uv.error());
        if (Status s = conn.Sync(); !s) return s.error();
        ImapMover mover(conn, m_session.logger(), m_session.settings().host);
        return call(mover, *batch);
    });
}

Result<std::vector<NewMessage>> ImapMoves::Export(const std::vector<QByteArray>& messageIds)
{
    return InFolder<std::vector<NewMessage>>(messageIds, std::vector<NewMessage>(messageIds.size()),
                                             [](ImapMover& mover, const Batch& b) { return mover.Export(b.uids); });
}

Result<std::vector<Fingerprint>> ImapMoves::Fingerprints(const std::vector<QByteArray>& messageIds)
{
    // What the last query fetched serves, so a rule's move asks nothing more.
    if (auto batch = OneFolder(messageIds); batch && !batch->uids.empty()) {
        std::vector<Fingerprint> out;
        for (quint32 uid : batch->uids) {
            const GatheredRows::Fetched* f = m_query.Queried(batch->folder, uid);
            if (!f) break;
            out.push_back({{}, f->messageId, qint64(f->size), f->internalDate});
        }
        if (out.size() == batch->uids.size()) return out;
    }
    return InFolder<std::vector<Fingerprint>>(messageIds, std::vector<Fingerprint>(messageIds.size()),
                                              [](ImapMover& mover, const Batch& b) { return mover.Fingerprints(b.uids); });
}

Result<std::vector<Presence>> ImapMoves::Probe(const std::vector<QByteArray>& messageIds)
{
    return InFolder<std::vector<Presence>>(messageIds, std::vector<Presence>(messageIds.size(), Presence::Absent),
                                           [](ImapMover& mover, const Batch& b) { return mover.Probe(b.uids); });
}

Status ImapMoves::Remove(const std::vector<QByteArray>& messageIds)
{
    // Safe to send again after a drop: it names these UIDs and no others.
    auto done = InFolder<bool>(messageIds, true, [this](ImapMover& mover, const Batch& b) -> Result<bool> {
        if (Status s = mover.Remove(b.uids, b.folder.mailbox); !s) return s.error();
        m_query.Forget(b.folder, b.uids);
        return true;
    });
    if (!done) return done.error();
    return Status::success();
}

Status ImapMoves::Undelete(const std::vector<QByteArray>& messageIds)
{
    auto done = InFolder<bool>(messageIds, true, [](ImapMover& mover, const Batch& b) -> Result<bool> {
        if (Status s = mover.Undelete(b.uids); !s) return s.error();
        return true;
    });
    if (!done) return done.error();
    return Status::success();
}

Result<QByteArray> ImapMoves::ArrivalMark(const QByteArray& folderId)
{
    const auto ref = ImapIds::ParseFolder(folderId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    // Asked of the server every time: a UIDNEXT remembered from before this
    // store's own appends would put earlier batches' copies after the mark,
    // and a message without Message-ID could then be taken for a copy of
    // another with the same size and date.
    return m_session.Retrying<QByteArray>([&](ImapConnection& conn) -> Result<QByteArray> {
        auto uidNext = ImapSession::UidNextChecked(conn, *ref);
        if (!uidNext) return uidNext.error();
        m_list.SawUidNext(*ref, *uidNext);
        return ImapMover::Mark(ref->uidValidity, *uidNext);
    });
}

Result<std::vector<QByteArray>> ImapMoves::Locate(const QByteArray& folderId, const QByteArray& mark,
                                                  const std::vector<Fingerprint>& fingerprints)
{
    const auto ref = ImapIds::ParseFolder(folderId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    return m_session.Retrying<std::vector<QByteArray>>([&](ImapConnection& conn) -> Result<std::vector<QByteArray>> {
        auto uv = conn.Select(ref->mailbox);
        if (!uv) return uv.error();
        if (Status s = conn.Sync(); !s) return s.error();
        // A mark of another UIDVALIDITY says nothing of today's UIDs: the
        // whole folder is looked at.
        quint32 markValidity = 0, from = 1;
        if (!ImapMover::ParseMark(mark, &markValidity, &from) || markValidity != *uv) from = 1;
        ImapMover mover(conn, m_session.logger(), m_session.settings().host);
        auto found = mover.Locate(from, fingerprints);
        if (!found) return found.error();
        std::vector<QByteArray> out;
        for (quint32 uid : *found) out.push_back(uid ? ImapIds::MessageId({ref->mailbox, *uv}, uid) : QByteArray());
        return out;
    });
}

Result<std::vector<QByteArray>> ImapMoves::MoveMany(const std::vector<QByteArray>& messageIds,
                                                    const QByteArray& destFolderId)
{
    if (messageIds.empty()) return std::vector<QByteArray>{};
    const auto dest = ImapIds::ParseFolder(destFolderId);
    if (!dest) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    auto batch = OneFolder(messageIds);
    if (!batch) return batch.error();
    const ImapFolderRef& source = batch->folder;
    if (source == *dest) return messageIds;

    // A move is never sent twice: after a drop nobody knows what the server
    // did, and the journal's recovery finds out from the folders.
    auto opened = m_session.Connection();
    if (!opened) return opened.error();
    ImapConnection& conn = **opened;
    if (auto uv = ImapSession::SelectChecked(conn, source); !uv) return uv.error();
    // Without UIDPLUS no COPYUID names the copies: they are found by their
    // fingerprints above the destination's UIDNEXT.
    std::vector<Fingerprint> fingerprints;
    QByteArray mark;
    if (!conn.Has("UIDPLUS")) {
        auto known = ArrivalMark(destFolderId);
        if (!known) return known.error();
        mark = *known;
        auto prints = Fingerprints(messageIds);
        if (!prints) return prints.error();
        fingerprints = std::move(*prints);
        if (auto uv = ImapSession::SelectChecked(conn, source); !uv) return uv.error();
    }
    ImapMover mover(conn, m_session.logger(), m_session.settings().host);
    auto moved = mover.Move(batch->uids, source, *dest);
    if (!moved) {
        if (!conn.broken()) return moved.error();
        return Error::temporary(QStringLiteral("the connection to %1 dropped during a move from %2 to %3; it is not "
                                               "sent again: the move journal's recovery settles it (%4)")
                                    .arg(m_session.settings().host, ModifiedUtf7::Decode(source.mailbox),
                                         ModifiedUtf7::Decode(dest->mailbox), moved.error().message));
    }
    m_query.Forget(source, batch->uids);
    std::vector<QByteArray> out(batch->uids.size());
    if (moved->copyUid) {
        quint32 next = m_list.UidNextSeen(*dest);
        for (size_t i = 0; i < out.size(); ++i) {
            const quint32 uid = moved->newUids[i];
            if (uid) out[i] = ImapIds::MessageId(*dest, uid);
            next = std::max(next, uid + 1);
        }
        m_list.SawUidNext(*dest, next);
    } else {
        m_list.ForgetUidNext(*dest);
        if (!mark.isEmpty()) {
            auto found = Locate(destFolderId, mark, fingerprints);
            if (!found) return found.error();
            out = std::move(*found);
        }
    }
    return out;
}

Result<QByteArray> ImapMoves::Move(const QByteArray& messageId, const QByteArray& destFolderId)
{
    auto moved = MoveMany({messageId}, destFolderId);
    if (!moved) return moved.error();
    if (moved->front().isEmpty()) {
        const auto ref = ImapIds::ParseMessage(messageId);
        return Error::notFound(QStringLiteral("the message is no longer in %1; nothing was moved")
                                   .arg(ModifiedUtf7::Decode(ref->folder.mailbox)));
    }
    return moved->front();
}

Result<std::vector<QByteArray>> ImapMoves::AppendMany(const QByteArray& folderId, const std::vector<NewMessage>& messages)
{
    const auto ref = ImapIds::ParseFolder(folderId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    if (messages.empty()) return std::vector<QByteArray>{};
    // Never retried: an APPEND sent twice is a message twice.
    auto conn = m_session.Connection();
    if (!conn) return conn.error();
    ImapConnection& c = **conn;
    auto uidNext = ImapSession::UidNextChecked(c, *ref);
    if (!uidNext) return uidNext.error();
    ImapMover mover(c, m_session.logger(), m_session.settings().host);
    std::vector<quint32> uids;
    std::vector<Fingerprint> unnamed(messages.size());  // of those the server gave no UID
    bool anyUnnamed = false;
    for (size_t i = 0; i < messages.size(); ++i) {
        NewMessage m = messages[i];
        if (!m.internalDate.isValid()) m.internalDate = m_session.Now();
        auto uid = mover.Append(*ref, m);
        if (!uid) {
            if (i > 0) m_arrived(folderId);
            return uid.error();
        }
        uids.push_back(*uid);
        if (!*uid) {
            unnamed[i] = ImapMover::FingerprintOf(ImapMover::WithCrlf(m.rfc822), m.internalDate);
            anyUnnamed = true;
        }
    }
    if (anyUnnamed) {
        if (auto sel = ImapSession::SelectChecked(c, *ref); !sel) return sel.error();
        auto found = mover.Locate(*uidNext, unnamed);
        if (!found) return found.error();
        for (size_t i = 0; i < uids.size(); ++i)
            if (!uids[i]) uids[i] = (*found)[i];
    }
    std::vector<QByteArray> out;
    for (quint32 uid : uids) out.push_back(uid ? ImapIds::MessageId(*ref, uid) : QByteArray());
    m_arrived(folderId);
    return out;
}

Result<QByteArray> ImapMoves::Append(const QByteArray& folderId, const NewMessage& message)
{
    auto ids = AppendMany(folderId, {message});
    if (!ids) return ids.error();
    return ids->front();
}

}  // namespace mv::stores
