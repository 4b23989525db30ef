#include "ImapIdleWatcher.h"

#include "ImapConnection.h"

#include <libetpan/libetpan.h>

#include <QDeadlineTimer>

#include <poll.h>

namespace mv::stores {

namespace {
constexpr int kPollMs = 200;                 // how quickly Stop() is noticed
constexpr int kReIdleMs = 25 * 60 * 1000;
}  // namespace

ImapIdleWatcher::ImapIdleWatcher(ImapSettings settings, std::shared_ptr<ImapCredentials> credentials,
                                 logging::Logger* log, QObject* parent)
    : QThread(parent), m_settings(std::move(settings)), m_credentials(std::move(credentials)),
      m_reconnect(QStringLiteral("IMAP %1@%2 (new-mail watcher)").arg(m_settings.user, m_settings.host),
                  m_settings.reconnectClock)
{
    m_reconnect.SetLogger(log);
}

ImapIdleWatcher::~ImapIdleWatcher() { Stop(); }

void ImapIdleWatcher::Stop()
{
    m_stop = true;
    wait();
}

bool ImapIdleWatcher::Pause(int milliseconds)
{
    QDeadlineTimer deadline(milliseconds);
    while (!m_stop && !deadline.hasExpired()) QThread::msleep(kPollMs);
    return !m_stop;
}

void ImapIdleWatcher::run()
{
    while (!m_stop) {
        const qint64 pause = m_reconnect.PauseMs();
        if (pause < 0) break;  // login refused: logged, no more tries
        if (pause > 0 && !Pause(static_cast<int>(pause))) break;
        auto opened =
            m_credentials->Open([this](const QString& secret) { return ImapConnection::Open(m_settings, secret); });
        Result<quint32> selected = opened ? (*opened)->Select("INBOX") : Result<quint32>(opened.error());
        if (!selected) {
            m_reconnect.Failed(selected.error());
            continue;
        }
        m_reconnect.Succeeded();
        ImapConnection& conn = **opened;
        mailimap* s = conn.session();
        const bool idle = conn.Has("IDLE");
        uint32_t exists = s->imap_selection_info->sel_exists;
        while (!m_stop && !conn.broken()) {
            // Without IDLE, a NOOP every half minute does the same job.
            if (idle && !conn.Check(mailimap_idle(s), "IDLE")) break;
            QDeadlineTimer renew(idle ? kReIdleMs : 30000);
            // An EXISTS that came in the same read as the continuation already
            // sits in libetpan's buffer, where poll() on the socket cannot see it.
            bool woken = idle && s->imap_stream && s->imap_stream->read_buffer_len > 0;
            while (!m_stop && !renew.hasExpired() && !woken) {
                if (!idle) {
                    QThread::msleep(kPollMs);
                    continue;
                }
                pollfd pfd{mailimap_idle_get_fd(s), POLLIN, 0};
                woken = ::poll(&pfd, 1, kPollMs) > 0;
            }
            if (!(idle ? conn.Check(mailimap_idle_done(s), "DONE") : conn.Check(mailimap_noop(s), "NOOP"))) break;
            if (s->imap_response_info && s->imap_response_info->rsp_expunged)
                exists -= std::min<uint32_t>(exists, clist_count(s->imap_response_info->rsp_expunged));
            const uint32_t now = s->imap_selection_info->sel_exists;
            if (now > exists) Q_EMIT Arrived(*selected);
            exists = now;
        }
    }
}

}  // namespace mv::stores
