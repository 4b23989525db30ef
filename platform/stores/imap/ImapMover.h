#pragma once
// The IMAP side of moves and of the move journal's recovery. Every call
// works on a connection whose selected folder is the source (the caller
// selects it and checks its UIDVALIDITY) and sends UID commands only, so a
// message another client took away is passed over, never mistaken for
// another.
//
// Removing is \Deleted and then UID EXPUNGE of exactly the UIDs named. A
// server without UIDPLUS has no UID EXPUNGE: its messages are left \Deleted
// and the log says which and why, because a plain EXPUNGE would also
// remove what other clients marked \Deleted.
//
// Errors as ImapConnection gives them: Temporary when the connection
// dropped (the connection is then broken), Permanent when the server
// refused. Nothing here retries: after a drop the caller cannot know which
// commands ran, and the journal's recovery looks at the folders instead.

#include "ImapConnection.h"
#include "ImapIds.h"
#include "platform/mapi/MessageStore.h"

#include <QByteArray>
#include <QString>

#include <vector>

namespace mv::logging {
class Logger;
}

namespace mv::stores {

class ImapMover {
public:
    // Borrows the connection and the logger (may be null).
    ImapMover(ImapConnection& conn, logging::Logger* log, QString server);

    // In the order of `uids`; a message no longer there gets an empty rfc822.
    Result<std::vector<mapi::NewMessage>> Export(const std::vector<quint32>& uids);
    // In the order of `uids`; one no longer there gets an unknown fingerprint.
    Result<std::vector<mapi::Fingerprint>> Fingerprints(const std::vector<quint32>& uids);
    Result<std::vector<mapi::Presence>> Probe(const std::vector<quint32>& uids);
    Status Remove(const std::vector<quint32>& uids, const QByteArray& mailbox);
    Status Undelete(const std::vector<quint32>& uids);
    // For each fingerprint, an undeleted message of the selected folder at
    // or above `fromUid` that matches it (0 when none), each UID given once,
    // earliest first.
    Result<std::vector<quint32>> Locate(quint32 fromUid, const std::vector<mapi::Fingerprint>& fingerprints);
    // APPEND with flags and arrival time, CRLF line ends on the wire. The
    // new UID when the server names it (APPENDUID), else 0. Leaves no
    // folder selected.
    Result<quint32> Append(const ImapFolderRef& folder, const mapi::NewMessage& message);

    struct Moved {
        std::vector<quint32> newUids;  // per UID; 0 when the server did not name it
        bool copyUid = false;          // the server named the new UIDs (COPYUID)
    };
    // UID MOVE; else UID COPY, then Remove of the copied UIDs.
    Result<Moved> Move(const std::vector<quint32>& uids, const ImapFolderRef& source, const ImapFolderRef& dest);

    // The arrival mark of a folder: UIDVALIDITY and UIDNEXT.
    static QByteArray Mark(quint32 uidValidity, quint32 uidNext);
    static bool ParseMark(const QByteArray& mark, quint32* uidValidity, quint32* uidNext);
    // The Message-ID field of a header block, unfolded and trimmed; empty when none.
    static QByteArray MessageIdField(const QByteArray& header);
    // What a message appended with these bytes and date will be found by.
    static mapi::Fingerprint FingerprintOf(const QByteArray& wireBytes, const QDateTime& internalDate);
    // Bare LF line ends made CRLF, as IMAP wants them.
    static QByteArray WithCrlf(const QByteArray& bytes);

private:
    void Log(int level, const QString& text) const;

    ImapConnection& m_conn;
    logging::Logger* m_log;
    QString m_server;
};

}  // namespace mv::stores
