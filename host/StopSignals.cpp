#include "StopSignals.h"

#include <QSocketNotifier>

#include <sys/socket.h>
#include <unistd.h>
#include <csignal>

namespace mv::host {

namespace {

int g_signalFds[2] = {-1, -1};

extern "C" void OnStopSignal(int signo)
{
    const char byte = static_cast<char>(signo);
    [[maybe_unused]] const ssize_t n = ::write(g_signalFds[0], &byte, 1);
}

}  // namespace

StopSignals::~StopSignals()
{
    if (!m_notifier) return;
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGINT, SIG_DFL);
    for (int& fd : g_signalFds) {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
}

bool StopSignals::Install()
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_signalFds) != 0) return false;
    m_notifier = new QSocketNotifier(g_signalFds[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &StopSignals::OnReadable);
    struct sigaction sa {};
    sa.sa_handler = OnStopSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &sa, nullptr);
    ::sigaction(SIGINT, &sa, nullptr);
    return true;
}

void StopSignals::OnReadable()
{
    char byte = 0;
    if (::read(g_signalFds[1], &byte, 1) == 1) Q_EMIT Received(static_cast<int>(byte));
}

}  // namespace mv::host
