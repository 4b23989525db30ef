#pragma once
// When a connection to a server may be tried again after failing, and what
// the log is told. A failed connect, TLS start or check, or login starts a
// pause of 5 s that doubles with each failure in a row up to 15 minutes. A
// refused login (NO [AUTHENTICATIONFAILED], or LOGIN refused) stops every
// further try: a wrong password does not get better by itself, and servers
// lock accounts that keep trying. The stop lasts as long as this object,
// which the store or watcher makes anew when the profile changes or the
// service starts.
//
// The log gets one line per change of state: a failure unlike the one
// before, the stop, and the first success after failures; a pause that
// merely grows is not logged again.
//
// Not thread-safe: each connection's owner has its own. The clock is
// injectable for tests.

#include "platform/common/Error.h"

#include <QDateTime>
#include <QString>

#include <functional>

namespace mv::logging {
class Logger;
}

namespace mv::stores {

class ImapReconnect {
public:
    using Clock = std::function<QDateTime()>;
    static constexpr qint64 kFirstPauseMs = 5 * 1000;
    static constexpr qint64 kLongestPauseMs = 15 * 60 * 1000;

    // `what` names the connection in messages ("IMAP test@host").
    explicit ImapReconnect(QString what, Clock clock = {});
    void SetLogger(logging::Logger* log) { m_log = log; }

    // Success when a try may be made now. Otherwise an error to give the
    // caller at once: Temporary while paused, Permanent once stopped.
    Status MayTry() const;
    // The outcome of a try. Failed returns the error to give the caller.
    Error Failed(const Error& error);
    void Succeeded();
    // Milliseconds until a try may be made (0: now); -1 once stopped.
    qint64 PauseMs() const;
    bool stopped() const { return m_stopped; }

private:
    QDateTime Now() const;
    void Log(int level, const QString& text) const;

    QString m_what;
    Clock m_clock;
    logging::Logger* m_log = nullptr;
    int m_failures = 0;  // in a row
    QDateTime m_next;    // no try before this
    QString m_lastLogged;
    QString m_lastError;
    Error m_stopError;
    bool m_stopped = false;
};

}  // namespace mv::stores
