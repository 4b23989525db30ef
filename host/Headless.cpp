#include "Headless.h"

#include "Runtime.h"
#include "addin/OutAddIn.h"
#include "core/HeadlessApplication.h"
#include "engine/RuleRunner.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

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

HeadlessService::HeadlessService(Runtime& runtime, QObject* parent) : QObject(parent), m_runtime(runtime)
{
    m_cycleTimer.setTimerType(Qt::CoarseTimer);
    m_mailTimer.setSingleShot(true);
    m_mailTimer.setInterval(kMailDelayMs);
    connect(&m_cycleTimer, &QTimer::timeout, this, &HeadlessService::OnCycleTick);
    connect(&m_mailTimer, &QTimer::timeout, this, &HeadlessService::OnMailTick);
    outlook::Application* app = &m_runtime.Application();
    connect(app, &outlook::Application::NewMail, this, &HeadlessService::OnMail);
    connect(app, &outlook::Application::ItemSend, this, [this](outlook::Item*, bool&) { OnMail(); });
}

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

    m_runtime.Application().Start();
    m_startCycle = m_runtime.AddIn().RunOnStart() != 0;
    m_cycleTimer.start(m_startCycle ? kStartTickMs : kCycleTickMs);
    m_runtime.Trail(QStringLiteral("HeadlessService"),
                    QStringLiteral("Started: timers on%1").arg(m_startCycle ? QStringLiteral(", run on start") : QString()));
    return true;
}

void HeadlessService::OnMail()
{
    // Re-arming is the debounce: a burst of arrivals gives one run.
    m_mailTimer.start();
    m_runtime.Trail(QStringLiteral("HeadlessService"), QStringLiteral("New mail: mail timer armed"));
}

template <typename Run>
void HeadlessService::RunWithTimersOff(const char* what, Run run)
{
    const bool cycle = m_cycleTimer.isActive();
    m_cycleTimer.stop();
    m_runtime.Trail(QStringLiteral("HeadlessService"), QStringLiteral("Run: %1").arg(QLatin1String(what)));
    const engine::RunReport report = run();
    for (const QString& line : report.Lines(false))
        m_runtime.Trail(QStringLiteral("HeadlessService"), line);
    m_runtime.Trail(QStringLiteral("HeadlessService"),
                    QStringLiteral("Run done: %1: %2 moved").arg(QLatin1String(what)).arg(report.TotalMoved()));
    if (cycle) m_cycleTimer.start();
}

void HeadlessService::OnCycleTick()
{
    engine::RuleRunner& runner = m_runtime.Runner();
    if (m_startCycle) {
        if (++m_ticks < kStartTicks) return;
        m_startCycle = false;
        m_ticks = 0;
        m_cycleTimer.setInterval(kCycleTickMs);
        RunWithTimersOff("RunAllRules", [&] { return runner.RunAllRules(); });
        return;
    }
    ++m_ticks;
    if (m_ticks == 15 || m_ticks == 30 || m_ticks == 45) {
        RunWithTimersOff("Run15MinuteRules", [&] { return runner.Run15MinuteRules(); });
    } else if (m_ticks >= 60) {
        m_ticks = 0;
        RunWithTimersOff("RunAllRules", [&] { return runner.RunAllRules(); });
    }
}

void HeadlessService::OnMailTick()
{
    RunWithTimersOff("RunImmediateRules", [this] { return m_runtime.Runner().RunImmediateRules(); });
}

void HeadlessService::OnSignal()
{
    char byte = 0;
    [[maybe_unused]] const ssize_t n = ::read(g_signalFds[1], &byte, 1);
    m_runtime.Trail(QStringLiteral("HeadlessService"),
                    QStringLiteral("Signal %1: stopping").arg(static_cast<int>(byte)));
    m_cycleTimer.stop();
    m_mailTimer.stop();
    QCoreApplication::quit();
}

}  // namespace mv::host
