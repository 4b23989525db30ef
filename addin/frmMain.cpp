#include "frmMain.h"

#include "engine/RuleRunner.h"
#include "platform/os/ErrorReport.h"

#include <limits>
#include <stdexcept>

namespace mv::addin {

namespace {
constexpr long kErrOverflow = 6;
}

frmMain::frmMain(ScheduleTarget& target, os::ErrorReport& report, QObject* parent)
    : QObject(parent), m_target(target), m_report(report)
{
    setObjectName(QStringLiteral("frmMain"));
    tmrCron.setObjectName(QStringLiteral("tmrCron"));
    tmrMail.setObjectName(QStringLiteral("tmrMail"));
    connect(&tmrCron, &QTimer::timeout, this, &frmMain::tmrCron_Timer);
    connect(&tmrMail, &QTimer::timeout, this, &frmMain::tmrMail_Timer);
}

void frmMain::Form_Load()
{
    m_minuteCount = 0;
    if (m_target.RunOnStart() != 1) {
        m_minuteTotal = kCycleTicks;
        tmrCron.setInterval(kCronInterval);
    } else {
        m_minuteTotal = kStartupTicks;
        tmrCron.setInterval(kStartupInterval);
    }
    tmrCron.start();
}

void frmMain::RestartMailTimer()
{
    tmrMail.stop();
    tmrMail.setInterval(kMailInterval);
    tmrMail.start();
}

void frmMain::tmrCron_Timer()
{
    // An error ends the tick where it happened: a timer disabled before a
    // failing run stays disabled, as the handler leaves it.
    try {
        if (m_minuteCount == std::numeric_limits<std::int16_t>::max()) throw std::overflow_error("Overflow");
        ++m_minuteCount;
        if (m_minuteCount >= m_minuteTotal) {
            tmrCron.stop();
            tmrCron.setInterval(0);
            m_minuteCount = 0;
            m_target.SetRunOrigin(m_minuteTotal == kCycleTicks ? engine::origin::kHourly : engine::origin::kStartUp);
            m_target.RunAllRules();
            m_target.UpdateSettings();
            tmrCron.setInterval(kCronInterval);
            m_minuteTotal = kCycleTicks;
            tmrCron.start();
        } else if (m_minuteCount % kQuarterTicks == 0 && m_minuteTotal == kCycleTicks) {
            tmrCron.stop();
            m_target.Run15MinuteRules();
            tmrCron.start();
        }
    } catch (const std::overflow_error&) {
        m_report.ShowProcedureError(kErrOverflow, QStringLiteral("Overflow"),
                                    QStringLiteral("tmrCron_Timer of Form frmMain"));
    } catch (const std::exception& e) {
        m_report.ShowProcedureError(static_cast<long>(0x80004005), QString::fromLocal8Bit(e.what()),
                                    QStringLiteral("tmrCron_Timer of Form frmMain"));
    }
}

void frmMain::tmrMail_Timer()
{
    tmrCron.stop();
    tmrMail.stop();
    m_target.RunImmediateRules();
    tmrCron.start();
}

}  // namespace mv::addin
