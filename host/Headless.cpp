#include "Headless.h"

#include "Runtime.h"
#include "addin/OutAddIn.h"

#include <QCoreApplication>
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
    // Nothing else is safe here; the loop reads the byte.
    [[maybe_unused]] const ssize_t n = ::write(g_signalFds[0], &byte, 1);
}

}  // namespace

HeadlessService::HeadlessService(Runtime& runtime, QObject* parent) : QObject(parent), m_runtime(runtime) {}

HeadlessService::~HeadlessService()
{
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGINT, SIG_DFL);
    for (int& fd : g_signalFds) {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
}

bool HeadlessService::Start()
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_signalFds) != 0) return false;
    m_notifier = new QSocketNotifier(g_signalFds[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &HeadlessService::OnSignal);
    struct sigaction sa {};
    sa.sa_handler = OnStopSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &sa, nullptr);
    ::sigaction(SIGINT, &sa, nullptr);

    m_runtime.StartApplication();
    // What the add-in's timer form is doing, so the log shows the service
    // is scheduling (or why it is not).
    const addin::OutAddIn& addIn = m_runtime.AddIn();
    const addin::frmMain* form = addIn.MainForm();
    if (form && form->tmrCron.isActive())
        m_runtime.Trail(QStringLiteral("HeadlessService"),
                        QStringLiteral("Started: timers on%1")
                            .arg(addIn.RunOnStart() == 1 ? QStringLiteral(", run on start") : QString()));
    else
        m_runtime.Trail(QStringLiteral("HeadlessService"),
                        QStringLiteral("Started: the add-in's timers are off"));
    return true;
}

void HeadlessService::OnSignal()
{
    char byte = 0;
    [[maybe_unused]] const ssize_t n = ::read(g_signalFds[1], &byte, 1);
    m_runtime.Trail(QStringLiteral("HeadlessService"),
                    QStringLiteral("Signal %1: stopping").arg(static_cast<int>(byte)));
    // A run in progress (it pumps events, so this can be inside one) ends
    // after its current rule, as with the status form's Cancel.
    m_runtime.CancelFlag() = true;
    QCoreApplication::quit();
}

}  // namespace mv::host
