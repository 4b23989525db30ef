#include "ImapReconnect.h"

#include "ImapConnection.h"
#include "platform/logging/Logger.h"

#include <algorithm>

namespace mv::stores {

namespace {
constexpr int kLogError = 4;
constexpr int kLogInfo = 3;
}  // namespace

ImapReconnect::ImapReconnect(QString what, Clock clock) : m_what(std::move(what)), m_clock(std::move(clock)) {}

QDateTime ImapReconnect::Now() const { return m_clock ? m_clock() : QDateTime::currentDateTimeUtc(); }

void ImapReconnect::Log(int level, const QString& text) const
{
    if (m_log) m_log->Write(level, QStringLiteral("IMAP"), text);
}

qint64 ImapReconnect::PauseMs() const
{
    if (m_stopped) return -1;
    if (!m_next.isValid()) return 0;
    return std::max<qint64>(0, Now().msecsTo(m_next));
}

Status ImapReconnect::MayTry() const
{
    if (m_stopped) return m_stopError;
    const qint64 wait = PauseMs();
    if (wait == 0) return {};
    return Error::temporary(QStringLiteral("%1 is not tried again before %2 (%3 failure(s) in a row, the last: %4)")
                                .arg(m_what, m_next.toString(Qt::ISODate))
                                .arg(m_failures)
                                .arg(m_lastError));
}

Error ImapReconnect::Failed(const Error& error)
{
    ++m_failures;
    m_lastError = error.message;
    if (ImapConnection::IsLoginRefused(error)) {
        m_stopped = true;
        m_stopError = Error::permanent(QStringLiteral("%1: %2; no further logins are tried until the profile changes "
                                                      "or the service restarts")
                                           .arg(m_what, error.message),
                                       error.code);
        Log(kLogError, m_stopError.message);
        return m_stopError;
    }
    const qint64 pause = std::min(kLongestPauseMs, kFirstPauseMs << std::min(m_failures - 1, 20));
    m_next = Now().addMSecs(pause);
    if (error.message != m_lastLogged) {
        m_lastLogged = error.message;
        Log(kLogError, QStringLiteral("%1: %2; trying again in %3 s, then less often").arg(m_what, error.message).arg(pause / 1000));
    }
    return error;
}

void ImapReconnect::Succeeded()
{
    if (m_failures > 0) Log(kLogInfo, QStringLiteral("%1: connected again after %2 failure(s)").arg(m_what).arg(m_failures));
    m_failures = 0;
    m_next = {};
    m_lastLogged.clear();
}

}  // namespace mv::stores
