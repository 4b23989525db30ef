#include "TimeZone.h"

#include <ctime>

namespace mv::os {

namespace {

constexpr std::time_t kWeek = 7 * 24 * 3600;
// Half a year either side in weeks: every daylight period lasts longer than
// a week, so a rule in force around the instant is always sampled.
constexpr int kWeeksEachSide = 27;

}  // namespace

long UtcOffsetSeconds(const TimeZoneInformation& info)
{
    const long bias = info.Bias + ((info.hasDaylightRule && info.inDaylight) ? info.DaylightBias : info.StandardBias);
    return -bias * 60;
}

std::optional<TimeZoneInformation> SystemTimeZone::Information(const QDateTime& at) const
{
    // glibc's localtime_r reads TZ only once unless told again.
    ::tzset();
    const std::time_t t = static_cast<std::time_t>(at.toSecsSinceEpoch());
    std::tm here{};
    if (!::localtime_r(&t, &here)) return std::nullopt;

    std::optional<long> standardOffset;
    std::optional<long> daylightOffset;
    (here.tm_isdst > 0 ? daylightOffset : standardOffset) = here.tm_gmtoff;

    // The nearest instants of the other kind give the other offset.
    for (int k = 1; k <= kWeeksEachSide && !(standardOffset && daylightOffset); ++k) {
        for (int sign : {1, -1}) {
            const std::time_t probe = t + sign * k * kWeek;
            std::tm tm{};
            if (!::localtime_r(&probe, &tm)) continue;
            auto& slot = tm.tm_isdst > 0 ? daylightOffset : standardOffset;
            if (!slot) slot = tm.tm_gmtoff;
        }
    }

    TimeZoneInformation info;
    if (!standardOffset) {
        // Daylight all year round: nothing to switch between, so the
        // offset in force is the standard one.
        info.Bias = -here.tm_gmtoff / 60;
        return info;
    }
    info.Bias = -*standardOffset / 60;
    info.hasDaylightRule = daylightOffset.has_value();
    if (daylightOffset) info.DaylightBias = -(*daylightOffset - *standardOffset) / 60;
    info.inDaylight = here.tm_isdst > 0;
    return info;
}

}  // namespace mv::os
