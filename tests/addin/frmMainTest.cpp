// The hidden timer form, driven tick by tick: which runs happen at which
// tick, and that the cycle timer is off while a run is in progress.

#include "addin/frmMain.h"

#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"

#include "tests/support/QtPrinters.h"

#include <gtest/gtest.h>

namespace mv::test {
namespace {

using addin::frmMain;

class RecordingTarget : public addin::ScheduleTarget {
public:
    std::int16_t runOnStart = 0;
    frmMain* form = nullptr;
    int tick = 0;
    QStringList events;
    bool cronActiveDuringRun = false;

    std::int16_t RunOnStart() const override { return runOnStart; }
    void Run15MinuteRules() override { Record("15min"); }
    void RunImmediateRules() override { Record("immediate"); }
    void RunAllRules() override { Record("all"); }
    void UpdateSettings() override { Record("update"); }

private:
    void Record(const char* what)
    {
        events << QStringLiteral("%1:%2").arg(tick).arg(QLatin1String(what));
        if (form && form->tmrCron.isActive()) cronActiveDuringRun = true;
    }
};

class FormTest : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_FALSE(m_target.cronActiveDuringRun) << "a run started with the cycle timer on"; }
    os::ScriptedAnswerer m_answerer;
    os::ErrorReport m_report{m_answerer};
    RecordingTarget m_target;
    frmMain m_form{m_target, m_report};
};

struct CycleCase {
    const char* name;
    std::int16_t runOnStart;
    int firstInterval;
    int firstTotal;
    int ticks;
    QStringList expected;
};

class CycleTest : public FormTest, public ::testing::WithParamInterface<CycleCase> {};

TEST_P(CycleTest, RunsFallOnTheirTicks)
{
    const CycleCase& c = GetParam();
    m_target.runOnStart = c.runOnStart;
    m_target.form = &m_form;
    EXPECT_FALSE(m_form.tmrCron.isActive()) << "disabled before load";
    EXPECT_FALSE(m_form.tmrMail.isActive());

    m_form.Form_Load();
    EXPECT_TRUE(m_form.tmrCron.isActive());
    EXPECT_EQ(m_form.tmrCron.interval(), c.firstInterval);
    EXPECT_EQ(m_form.MinuteTotal(), c.firstTotal);
    EXPECT_EQ(m_form.MinuteCount(), 0);

    for (m_target.tick = 1; m_target.tick <= c.ticks; ++m_target.tick) m_form.tmrCron_Timer();
    EXPECT_EQ(m_target.events, c.expected);
    // Whatever the start, the form ends up in the hourly cycle.
    EXPECT_TRUE(m_form.tmrCron.isActive());
    EXPECT_EQ(m_form.tmrCron.interval(), frmMain::kCronInterval);
    EXPECT_EQ(m_form.MinuteTotal(), 60);
    EXPECT_TRUE(m_answerer.shown().empty());
}

INSTANTIATE_TEST_SUITE_P(
    frmMain, CycleTest,
    ::testing::Values(
        CycleCase{"RunOnStart1", 1, 1000, 8, 68,
                  {"8:all", "8:update", "23:15min", "38:15min", "53:15min", "68:all", "68:update"}},
        CycleCase{"RunOnStart0", 0, 60000, 60, 75,
                  {"15:15min", "30:15min", "45:15min", "60:all", "60:update", "75:15min"}},
        // Only exactly 1 asks for the start-up run.
        CycleCase{"RunOnStartMinus1", -1, 60000, 60, 60,
                  {"15:15min", "30:15min", "45:15min", "60:all", "60:update"}},
        CycleCase{"RunOnStart2", 2, 60000, 60, 14, {}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(FormTest, BurstOfMailEventsGivesOneImmediateRun)
{
    m_target.form = &m_form;
    m_form.Form_Load();
    for (int i = 0; i < 5; ++i) {
        m_form.RestartMailTimer();
        EXPECT_TRUE(m_form.tmrMail.isActive());
        EXPECT_EQ(m_form.tmrMail.interval(), frmMain::kMailInterval);
        EXPECT_GT(m_form.tmrMail.remainingTime(), 9000) << "each event re-arms the full ten seconds";
    }
    EXPECT_TRUE(m_target.events.isEmpty());

    m_form.tmrMail_Timer();
    EXPECT_EQ(m_target.events, QStringList{"0:immediate"});
    EXPECT_FALSE(m_form.tmrMail.isActive()) << "fires once per burst";
    EXPECT_TRUE(m_form.tmrCron.isActive());
    EXPECT_EQ(m_form.MinuteCount(), 0) << "a mail run does not advance the cycle";
}

TEST_F(FormTest, CountOverflowIsReportedAndRunsNothing)
{
    m_form.Form_Load();
    m_form.SetMinuteTotal(32767);
    m_form.SetMinuteCount(32767);
    m_form.tmrCron_Timer();
    EXPECT_EQ(m_answerer.texts(), QStringList{"Error 6 (Overflow) in procedure tmrCron_Timer of Form frmMain"});
    EXPECT_TRUE(m_target.events.isEmpty());
}

}  // namespace
}  // namespace mv::test
