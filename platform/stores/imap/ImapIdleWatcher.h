#pragma once
// Watches INBOX for new mail on its own connection and thread: IDLE, woken
// by the server, re-issued every 25 minutes (servers drop idle clients after
// 30, RFC 2177), reconnecting after errors with the pauses, log lines and
// stop after a refused login of ImapReconnect (its own). Stop()
// returns within a fraction of a second; the destructor calls it.

#include "ImapCredentials.h"
#include "ImapReconnect.h"
#include "ImapSettings.h"

#include <QThread>

#include <atomic>
#include <memory>

namespace mv::stores {

class ImapIdleWatcher : public QThread {
    Q_OBJECT
public:
    // `credentials` is shared with the store; `log` is borrowed, may be
    // null, and is written from the watcher's thread.
    ImapIdleWatcher(ImapSettings settings, std::shared_ptr<ImapCredentials> credentials, logging::Logger* log = nullptr,
                    QObject* parent = nullptr);
    ~ImapIdleWatcher() override;

    void Stop();

Q_SIGNALS:
    // Emitted on the watcher's thread; connect with a queued connection.
    void Arrived(quint32 uidValidity);

protected:
    void run() override;

private:
    bool Pause(int milliseconds);  // false when asked to stop meanwhile

    ImapSettings m_settings;
    std::shared_ptr<ImapCredentials> m_credentials;
    std::atomic<bool> m_stop{false};
    ImapReconnect m_reconnect;  // used on the watcher's thread only
};

}  // namespace mv::stores
