#pragma once
// The hidden timer form: tmrCron counts one-minute ticks of the hourly cycle
// (15-minute rules at ticks 15, 30 and 45, every rule at the end of the
// cycle), with a short first cycle of one-second ticks when RunOnStart is 1;
// tmrMail is the ten-second debounce after mail arrives or is sent. The
// runs go through ScheduleTarget; tests call the tick slots directly.

#include <QObject>
#include <QTimer>

#include <cstdint>

namespace mv::os {
class ErrorReport;
}

namespace mv::addin {

class ScheduleTarget {
public:
    virtual ~ScheduleTarget() = default;
    virtual std::int16_t RunOnStart() const = 0;
    virtual void Run15MinuteRules() = 0;
    virtual void RunImmediateRules() = 0;
    virtual void RunAllRules() = 0;
    // What starts the next run, in words (the history's "hourly", "start-up").
    virtual void SetRunOrigin(const QString& origin) { (void)origin; }
    virtual void UpdateSettings() = 0;
};

class frmMain : public QObject {
    Q_OBJECT
public:
    static constexpr int kCronInterval = 60000;
    static constexpr int kStartupInterval = 1000;
    static constexpr std::int16_t kCycleTicks = 60;
    static constexpr std::int16_t kStartupTicks = 8;
    static constexpr std::int16_t kQuarterTicks = 15;
    static constexpr int kMailInterval = 10000;

    // Both timers start disabled; Form_Load starts the cycle.
    frmMain(ScheduleTarget& target, os::ErrorReport& report, QObject* parent = nullptr);

    void Form_Load();
    // A mail event: disable, set the interval, enable again.
    void RestartMailTimer();

    std::int16_t MinuteCount() const { return m_minuteCount; }
    void SetMinuteCount(std::int16_t v) { m_minuteCount = v; }
    std::int16_t MinuteTotal() const { return m_minuteTotal; }
    void SetMinuteTotal(std::int16_t v) { m_minuteTotal = v; }

    QTimer tmrCron;
    QTimer tmrMail;

public Q_SLOTS:
    void tmrCron_Timer();
    void tmrMail_Timer();

private:
    ScheduleTarget& m_target;
    os::ErrorReport& m_report;
    std::int16_t m_minuteCount = 0;
    std::int16_t m_minuteTotal = 0;
};

}  // namespace mv::addin
