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
    explicit RecordingTarget(std::int16_t start) : runOnStart(start) {}
    std::int16_t runOnStart;
    frmMain* form = nullptr;
    int tick = 0;
    QStringList events;

    std::int16_t RunOnStart() const override { return runOnStart; }
    void Run15MinuteRules() override { Record("15min"); }
    void RunImmediateRules() override { Record("immediate"); }
    void RunAllRules() override { Record("all"); }
    void UpdateSettings() override { Record("update"); }

private:
    void Record(const char* what)
    {
        events << QStringLiteral("%1:%2").arg(tick).arg(QLatin1String(what));
        EXPECT_FALSE(form && form->tmrCron.isActive()) << "a run started with the cycle timer on";
    }
};

TEST(frmMain, RunsFallOnTheirTicks)
{
    const struct {
        const char* name;
        std::int16_t runOnStart;
        int ticks;
        QStringList expected;
    } cases[] = {
        {"RunOnStart1",
         1,
         68,
         {"8:all", "8:update", "23:15min", "38:15min", "53:15min", "68:all", "68:update"}},
        {"RunOnStart0", 0, 75, {"15:15min", "30:15min", "45:15min", "60:all", "60:update", "75:15min"}},
        // Only exactly 1 asks for the start-up run.
        {"RunOnStartMinus1", -1, 60, {"15:15min", "30:15min", "45:15min", "60:all", "60:update"}},
        {"RunOnStart2", 2, 14, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        os::ScriptedAnswerer answerer;
        os::ErrorReport report{answerer};
        RecordingTarget target(c.runOnStart);
        frmMain form{target, report};
        target.form = &form;
        EXPECT_FALSE(form.tmrCron.isActive()) << "disabled before load";
        EXPECT_FALSE(form.tmrMail.isActive());
        form.Form_Load();
        EXPECT_TRUE(form.tmrCron.isActive());
        for (target.tick = 1; target.tick <= c.ticks; ++target.tick) form.tmrCron_Timer();
        EXPECT_EQ(target.events, c.expected);
        // Whatever the start, the form ends up in the hourly cycle.
        EXPECT_TRUE(form.tmrCron.isActive());
        EXPECT_EQ(form.tmrCron.interval(), frmMain::kCronInterval);
        EXPECT_EQ(form.MinuteTotal(), 60);
        EXPECT_TRUE(answerer.shown().empty());
    }
}

TEST(frmMain, CountOverflowIsReportedAndRunsNothing)
{
    os::ScriptedAnswerer answerer;
    os::ErrorReport report{answerer};
    RecordingTarget target(0);
    frmMain form{target, report};
    form.Form_Load();
    form.SetMinuteTotal(32767);
    form.SetMinuteCount(32767);
    form.tmrCron_Timer();
    EXPECT_EQ(answerer.texts(), QStringList{"Error 6 (Overflow) in procedure tmrCron_Timer of Form frmMain"});
    EXPECT_TRUE(target.events.isEmpty());
}

}  // namespace
}  // namespace mv::test
