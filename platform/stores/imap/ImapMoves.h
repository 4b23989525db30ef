#pragma once
// Moves, appends and the move journal's calls on an IMAP account; the
// protocol work of each is ImapMover's, on the session's connection.
//
// UID MOVE; without MOVE, UID COPY + UID STORE \Deleted + UID EXPUNGE of
// those UIDs alone (UIDPLUS); without UIDPLUS either, the originals are
// left \Deleted and the log says so, since a plain EXPUNGE would also
// remove other clients' deleted mail. A message that is no longer in the
// source is passed over: MoveMany gives it an empty identifier and moves
// the rest, Move says NotFound. Without COPYUID the copies are found by
// their fingerprints above the destination's UIDNEXT.
//
// A move or an append is never sent twice: after a drop it returns a
// Temporary error and the journal's recovery (Probe, Locate, then Remove or
// Undelete) settles what the server did. Remove and Undelete are safe to
// send again and are retried once after a drop.
//
// What a move needs beside the UIDs is taken from the last query and the
// last look at the destination when they have it, so moving a rule's
// matches costs the one UID MOVE.

#include "ImapMailboxList.h"
#include "ImapQuery.h"
#include "ImapSession.h"
#include "platform/mapi/MessageStore.h"

#include <functional>
#include <vector>

namespace mv::stores {

class ImapMover;

class ImapMoves {
public:
    // Told the folder id after messages were appended to it.
    using Arrived = std::function<void(const QByteArray& folderId)>;
    // All borrowed; they outlive the object.
    ImapMoves(ImapSession& session, ImapMailboxList& list, ImapQuery& query, Arrived arrived)
        : m_session(session), m_list(list), m_query(query), m_arrived(std::move(arrived))
    {
    }

    Result<QByteArray> Move(const QByteArray& messageId, const QByteArray& destFolderId);
    Result<std::vector<QByteArray>> MoveMany(const std::vector<QByteArray>& messageIds, const QByteArray& destFolderId);
    Result<QByteArray> Append(const QByteArray& folderId, const mapi::NewMessage& message);
    Result<std::vector<QByteArray>> AppendMany(const QByteArray& folderId, const std::vector<mapi::NewMessage>& messages);

    Result<std::vector<mapi::NewMessage>> Export(const std::vector<QByteArray>& messageIds);
    Result<std::vector<mapi::Fingerprint>> Fingerprints(const std::vector<QByteArray>& messageIds);
    Result<std::vector<mapi::Presence>> Probe(const std::vector<QByteArray>& messageIds);
    Status Remove(const std::vector<QByteArray>& messageIds);
    Status Undelete(const std::vector<QByteArray>& messageIds);
    Result<QByteArray> ArrivalMark(const QByteArray& folderId);
    Result<std::vector<QByteArray>> Locate(const QByteArray& folderId, const QByteArray& mark,
                                           const std::vector<mapi::Fingerprint>& fingerprints);

    struct Batch {
        ImapFolderRef folder;
        std::vector<quint32> uids;
    };
    // The UIDs of messages of one folder; an error when they are of several.
    static Result<Batch> OneFolder(const std::vector<QByteArray>& messageIds);

private:
    // `call` with the batch's folder selected and brought up to date,
    // retried once on a new connection; `whenGone` when there is nothing to
    // ask or the folder is gone.
    template <class T>
    Result<T> InFolder(const std::vector<QByteArray>& messageIds, T whenGone,
                       const std::function<Result<T>(ImapMover&, const Batch&)>& call);

    ImapSession& m_session;
    ImapMailboxList& m_list;
    ImapQuery& m_query;
    Arrived m_arrived;
};

}  // namespace mv::stores
