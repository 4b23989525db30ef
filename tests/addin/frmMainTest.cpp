// The hidden timer form, driven tick by tick: which runs happen at which
// tick, and that the cycle timer is off while a run is in progress.

#include "addin/frmMain.h"

#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"

#include <QStringList>

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

struct CycleCase {
    const char* name;
    std::int16_t runOnStart;
    int firstInterval;
    int firstTotal;
    int ticks;
    QStringList expected;
};

class CycleTest : public ::testing::TestWithParam<CycleCase> {};

TEST_P(CycleTest, RunsFallOnTheirTicks)
{
    const CycleCase& c = GetParam();
    os::ScriptedAnswerer answerer;
    os::ErrorReport report(answerer);
    RecordingTarget target;
    target.runOnStart = c.runOnStart;
    frmMain form(target, report);
    target.form = &form;
    EXPECT_FALSE(form.tmrCron.isActive()) << "disabled before load";
    EXPECT_FALSE(form.tmrMail.isActive());

    form.Form_Load();
    EXPECT_TRUE(form.tmrCron.isActive());
    EXPECT_EQ(form.tmrCron.interval(), c.firstInterval);
    EXPECT_EQ(form.MinuteTotal(), c.firstTotal);
    EXPECT_EQ(form.MinuteCount(), 0);

    for (target.tick = 1; target.tick <= c.ticks; ++target.tick) form.tmrCron_Timer();
    EXPECT_EQ(target.events, c.expected);
    EXPECT_FALSE(target.cronActiveDuringRun) << "a run started with the cycle timer still on";
    // Whatever the start, the form ends up in the hourly cycle.
    EXPECT_TRUE(form.tmrCron.isActive());
    EXPECT_EQ(form.tmrCron.interval(), frmMain::kCronInterval);
    EXPECT_EQ(form.MinuteTotal(), 60);
    EXPECT_TRUE(answerer.shown().empty());
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

TEST(frmMainMail, BurstOfMailEventsGivesOneImmediateRun)
{
    os::ScriptedAnswerer answerer;
    os::ErrorReport report(answerer);
    RecordingTarget target;
    frmMain form(target, report);
    target.form = &form;
    form.Form_Load();

    for (int i = 0; i < 5; ++i) {
        form.RestartMailTimer();
        EXPECT_TRUE(form.tmrMail.isActive());
        EXPECT_EQ(form.tmrMail.interval(), frmMain::kMailInterval);
        EXPECT_GT(form.tmrMail.remainingTime(), 9000) << "each event re-arms the full ten seconds";
    }
    EXPECT_TRUE(target.events.isEmpty());

    form.tmrMail_Timer();
    EXPECT_EQ(target.events, QStringList{"0:immediate"});
    EXPECT_FALSE(target.cronActiveDuringRun);
    EXPECT_FALSE(form.tmrMail.isActive()) << "fires once per burst";
    EXPECT_TRUE(form.tmrCron.isActive());
    EXPECT_EQ(form.MinuteCount(), 0) << "a mail run does not advance the cycle";
}

TEST(frmMainErrors, CountOverflowIsReportedAndRunsNothing)
{
    os::ScriptedAnswerer answerer;
    os::ErrorReport report(answerer);
    RecordingTarget target;
    frmMain form(target, report);
    form.Form_Load();
    form.SetMinuteTotal(32767);
    form.SetMinuteCount(32767);
    form.tmrCron_Timer();
    ASSERT_EQ(answerer.texts().size(), 1);
    EXPECT_EQ(answerer.texts().front(), "Error 6 (Overflow) in procedure tmrCron_Timer of Form frmMain");
    EXPECT_TRUE(target.events.isEmpty());
}

}  // namespace
}  // namespace mv::test
