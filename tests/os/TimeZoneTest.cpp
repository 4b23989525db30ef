#include "ScopedEnv.h"

#include "platform/os/TimeZone.h"

#include <gtest/gtest.h>

using namespace mv::os;

namespace {

TEST(SystemTimeZone, BiasesAsTheOldApiGaveThem)
{
    const struct {
        const char* tz;
        const char* utc;
        long bias, daylightBias;
        bool hasRule, inDaylight;
        long offset;
    } cases[] = {
        {"America/New_York", "2026-01-15T12:00:00Z", 300, -60, true, false, -18000},
        {"America/New_York", "2026-07-15T12:00:00Z", 300, -60, true, true, -14400},
        {"Europe/Berlin", "2026-11-22T10:00:00Z", -60, -60, true, false, 3600},
        {"Europe/Berlin", "2026-07-15T12:00:00Z", -60, -60, true, true, 7200},
        {"America/Phoenix", "2026-07-15T12:00:00Z", 420, 0, false, false, -25200},
        // POSIX rules: the second either side of spring-forward, the southern
        // hemisphere, a half-hour zone and UTC.
        {"EST5EDT,M3.2.0,M11.1.0", "2026-03-08T06:59:59Z", 300, -60, true, false, -18000},
        {"EST5EDT,M3.2.0,M11.1.0", "2026-03-08T07:00:00Z", 300, -60, true, true, -14400},
        {"AEST-10AEDT,M10.1.0,M4.1.0/3", "2026-01-15T00:00:00Z", -600, -60, true, true, 39600},
        {"<+0530>-5:30", "2026-07-15T12:00:00Z", -330, 0, false, false, 19800},
        {"UTC0", "2026-07-15T12:00:00Z", 0, 0, false, false, 0},
    };
    ScopedEnv env;
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.tz) + " at " + c.utc);
        env.Set("TZ", c.tz);
        const auto info = SystemTimeZone().Information(QDateTime::fromString(QLatin1String(c.utc), Qt::ISODate));
        ASSERT_TRUE(info.has_value());
        EXPECT_EQ(info->Bias, c.bias);
        EXPECT_EQ(info->StandardBias, 0);
        EXPECT_EQ(info->DaylightBias, c.daylightBias);
        EXPECT_EQ(info->hasDaylightRule, c.hasRule);
        EXPECT_EQ(info->inDaylight, c.inDaylight);
        EXPECT_EQ(UtcOffsetSeconds(*info), c.offset);
    }
}

TEST(SystemTimeZone, DaylightBiasCountsOnlyWithARuleInForce)
{
    EXPECT_EQ(UtcOffsetSeconds({300, 0, -60, false, true}), -18000);
    EXPECT_EQ(UtcOffsetSeconds({-60, 10, -60, true, false}), 3000);
}

}  // namespace
