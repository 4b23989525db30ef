#pragma once
// Follow-up flag changes on IMAP messages. Only the difference from the
// message's flags is stored, so other clients' flags stay as they are;
// messages wanting the same change share one UID STORE.
//
// Errors: Permanent for a flag status outside 0..2, NotFound for a foreign
// identifier or (SetFlagStatus) a message that is gone; the connection's
// errors otherwise. Retried once after a drop: a STORE of a difference is
// safe to send again.

#include "ImapQuery.h"
#include "ImapSession.h"

#include <vector>

namespace mv::stores {

class ImapFlagWriter {
public:
    // Both borrowed; they outlive the writer.
    ImapFlagWriter(ImapSession& session, ImapQuery& query) : m_session(session), m_query(query) {}

    Status SetFlagStatus(const QByteArray& messageId, int flagStatus);
    // One FETCH of the flags (none when the last query fetched them) and
    // one STORE per distinct change.
    Status SetFlagStatusMany(const std::vector<QByteArray>& messageIds, int flagStatus);

private:
    ImapSession& m_session;
    ImapQuery& m_query;
};

}  // namespace mv::stores
