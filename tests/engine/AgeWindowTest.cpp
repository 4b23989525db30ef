#include "engine/AgeWindow.h"

#include <gtest/gtest.h>

using namespace mv::engine;

namespace {

QDateTime N(int y, int mo, int d, int h = 0, int mi = 0, int s = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s), Qt::UTC);
}

}  // namespace

TEST(AgeWindow, CutOffInUtcZone)
{
    const struct {
        const char* name;
        QDateTime now;
        QString field;
        int diff;
        bool align;
        int weekStart;
        QDateTime expected;
    } cases[] = {
        {"DayAlignedToEndOfDay", N(2026, 11, 14, 10), "d", -1, true, 1, N(2026, 11, 13, 23, 59, 59)},
        {"DayUnaligned", N(2026, 11, 14, 10), "d", -1, false, 1, N(2026, 11, 13, 10)},
        {"MinutesIgnoreAlignment", N(2026, 11, 14, 10), "n", -15, true, 1, N(2026, 11, 14, 9, 45)},
        {"MonthAlignsToLastDay", N(2026, 11, 14, 10), "m", -1, true, 1, N(2026, 10, 31, 0, 1)},
        {"YearAlignsToJanuaryFirst", N(2026, 11, 14, 10), "yyyy", -1, true, 1, N(2025, 1, 1, 0, 1)},
        {"WeekStartMonday", N(2026, 10, 14, 10), "ww", -1, true, 2, N(2026, 10, 5, 0, 1)},
        {"WeekStartFridayLiesLaterInTheWeek", N(2026, 10, 14, 10), "ww", -1, true, 6, N(2026, 10, 9, 0, 1)},
        {"MonthEndClamps", N(2026, 3, 31, 8), "m", -1, false, 1, N(2026, 2, 28, 8)},
        {"HoursAcrossMidnight", N(2026, 11, 14, 1), "h", -2, false, 1, N(2026, 11, 13, 23)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto cut = CutOff(c.now, c.field, c.diff, {c.align, c.weekStart, 0});
        ASSERT_TRUE(cut.has_value());
        EXPECT_EQ(*cut, c.expected) << cut->toString(Qt::ISODate).toStdString();
    }
}

TEST(TimeZoneShift, BothSidesOfUtcMoveTheCutOffLater)
{
    // UTC-5 in standard time: bias 300 minutes.
    const long west = TimeZoneOffsetSeconds(300, 0, -60, false);
    EXPECT_EQ(west, -18000);
    EXPECT_EQ(ShiftTowardsUtc(N(2026, 1, 10, 9), west), N(2026, 1, 10, 14));

    // UTC+1: 09:00 becomes 10:00, not 08:00; kept on purpose.
    const long east = TimeZoneOffsetSeconds(-60, 0, -60, false);
    EXPECT_EQ(east, 3600);
    EXPECT_EQ(ShiftTowardsUtc(N(2026, 1, 10, 9), east), N(2026, 1, 10, 10));

    // Daylight time uses the daylight bias.
    EXPECT_EQ(TimeZoneOffsetSeconds(-60, 0, -60, true), 7200);
}

TEST(AgeWindow, UnknownIntervalGivesNoCutOffAndAlignGivesZeroDate)
{
    EXPECT_FALSE(CutOff(N(2026, 1, 1), "x", -1, {}).has_value());
    EXPECT_EQ(AlignBoundry(N(2026, 1, 1), "s", -1, 1), N(1899, 12, 30));
}
