#include "ScopedEnv.h"

#include "platform/os/TimeZone.h"

#include <QFileInfo>

#include <gtest/gtest.h>

using namespace mv::os;

namespace {

struct ZoneCase {
    const char* name;
    const char* tz;
    const char* utc;  // the instant asked about, ISO in UTC
    long bias;
    long daylightBias;
    bool hasRule;
    bool inDaylight;
    long offsetSeconds;
};

class SystemZone : public ::testing::TestWithParam<ZoneCase> {};

TEST_P(SystemZone, BiasesAsTheOldApiGaveThem)
{
    const auto& c = GetParam();
    const bool named = QByteArray(c.tz).contains('/') && !QByteArray(c.tz).contains(',');
    if (named && !QFileInfo(QStringLiteral("/usr/share/zoneinfo/") + QLatin1String(c.tz)).isFile()) {
        GTEST_SKIP() << "no zoneinfo for " << c.tz;
    }
    ScopedEnv env;
    env.Set("TZ", c.tz);
    const QDateTime at = QDateTime::fromString(QLatin1String(c.utc), Qt::ISODate);
    ASSERT_TRUE(at.isValid());

    const auto info = SystemTimeZone().Information(at);
    ASSERT_TRUE(info.has_value());
    EXPECT_EQ(info->Bias, c.bias);
    EXPECT_EQ(info->StandardBias, 0);
    EXPECT_EQ(info->DaylightBias, c.daylightBias);
    EXPECT_EQ(info->hasDaylightRule, c.hasRule);
    EXPECT_EQ(info->inDaylight, c.inDaylight);
    EXPECT_EQ(UtcOffsetSeconds(*info), c.offsetSeconds);
}

INSTANTIATE_TEST_SUITE_P(
    Zones, SystemZone,
    ::testing::Values(
        // POSIX rules need no zoneinfo files.
        ZoneCase{"EasternWinter", "EST5EDT,M3.2.0,M11.1.0", "2026-01-15T12:00:00Z", 300, -60, true, false, -18000},
        ZoneCase{"EasternSummer", "EST5EDT,M3.2.0,M11.1.0", "2026-07-15T12:00:00Z", 300, -60, true, true, -14400},
        ZoneCase{"EasternSecondBeforeSpringForward", "EST5EDT,M3.2.0,M11.1.0", "2026-03-08T06:59:59Z", 300, -60, true,
                 false, -18000},
        ZoneCase{"EasternAtSpringForward", "EST5EDT,M3.2.0,M11.1.0", "2026-03-08T07:00:00Z", 300, -60, true, true,
                 -14400},
        ZoneCase{"CentralEuropeWinter", "CET-1CEST,M3.5.0,M10.5.0/3", "2026-11-22T10:00:00Z", -60, -60, true, false,
                 3600},
        ZoneCase{"CentralEuropeSummer", "CET-1CEST,M3.5.0,M10.5.0/3", "2026-06-01T10:00:00Z", -60, -60, true, true,
                 7200},
        ZoneCase{"SouthernSummerInJanuary", "AEST-10AEDT,M10.1.0,M4.1.0/3", "2026-01-15T00:00:00Z", -600, -60, true,
                 true, 39600},
        ZoneCase{"Utc", "UTC0", "2026-07-15T12:00:00Z", 0, 0, false, false, 0},
        ZoneCase{"HalfHourNoDaylight", "<+0530>-5:30", "2026-07-15T12:00:00Z", -330, 0, false, false, 19800},
        // The same through the zoneinfo database, when installed.
        ZoneCase{"NewYorkWinter", "America/New_York", "2026-01-15T12:00:00Z", 300, -60, true, false, -18000},
        ZoneCase{"NewYorkSummer", "America/New_York", "2026-07-15T12:00:00Z", 300, -60, true, true, -14400},
        ZoneCase{"BerlinWinter", "Europe/Berlin", "2026-01-15T12:00:00Z", -60, -60, true, false, 3600},
        ZoneCase{"BerlinSummer", "Europe/Berlin", "2026-07-15T12:00:00Z", -60, -60, true, true, 7200},
        ZoneCase{"PhoenixHasNoRule", "America/Phoenix", "2026-07-15T12:00:00Z", 420, 0, false, false, -25200}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(SystemZoneChange, FollowsTzChangedWhileRunning)
{
    ScopedEnv env;
    const QDateTime at = QDateTime::fromString(QStringLiteral("2026-01-15T12:00:00Z"), Qt::ISODate);
    SystemTimeZone zone;
    env.Set("TZ", "EST5EDT,M3.2.0,M11.1.0");
    EXPECT_EQ(zone.Information(at)->Bias, 300);
    env.Set("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(zone.Information(at)->Bias, -60);
}

TEST(UtcOffset, DaylightBiasCountsOnlyWithARuleInForce)
{
    // A rule-less zone's DaylightBias is ignored even when inDaylight is set.
    EXPECT_EQ(UtcOffsetSeconds({300, 0, -60, false, true}), -18000);
    EXPECT_EQ(UtcOffsetSeconds({300, 0, -60, true, true}), -14400);
    EXPECT_EQ(UtcOffsetSeconds({-60, 10, -60, true, false}), 3000);
}

}  // namespace
