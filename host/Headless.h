#pragma once
// The headless service: the runtime with its schedule. A one-minute cycle
// timer runs the "15 minutes" and "Any Time" rules at ticks 15, 30 and 45
// and every active rule at tick 60; new or sent mail re-arms a ten-second
// mail timer whose tick runs the "Any Time" rules, so a burst of arrivals
// gives one run. With RunOnStart set, a first short cycle of eight
// one-second ticks ends in a run of every rule. Timers are off while a
// run is going, so runs never overlap.
//
// SIGTERM and SIGINT are turned into an event-loop event through a socket
// pair (a signal handler may only write(2)); the loop then stops and the
// runtime shuts down: Quit, the databases closed, the log's last lines.

#include <QObject>
#include <QTimer>

class QSocketNotifier;

namespace mv::host {

class Runtime;

class HeadlessService : public QObject {
    Q_OBJECT
public:
    explicit HeadlessService(Runtime& runtime, QObject* parent = nullptr);
    ~HeadlessService() override;

    // Installs the signal handlers and starts the timers; false when the
    // signal pipe cannot be made.
    bool Start();

    // The schedule's steps, public so tests can drive them without waiting.
    void OnMail();
    void OnCycleTick();
    void OnMailTick();

    int CycleTicks() const { return m_ticks; }
    bool MailTimerArmed() const { return m_mailTimer.isActive(); }

    static constexpr int kMailDelayMs = 10000;
    static constexpr int kCycleTickMs = 60000;
    static constexpr int kStartTickMs = 1000;
    static constexpr int kStartTicks = 8;

private:
    void OnSignal();
    template <typename Run>
    void RunWithTimersOff(const char* what, Run run);

    Runtime& m_runtime;
    QTimer m_cycleTimer;
    QTimer m_mailTimer;
    int m_ticks = 0;
    bool m_startCycle = false;
    QSocketNotifier* m_notifier = nullptr;
};

}  // namespace mv::host
