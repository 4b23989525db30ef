#pragma once
// Time-zone information in the shape the age windows were written against:
// biases in minutes west of UTC, as GetTimeZoneInformation gives them
// (UTC-5 in winter: Bias 300, StandardBias 0, DaylightBias -60).

#include <QDateTime>

#include <optional>

namespace mv::os {

struct TimeZoneInformation {
    long Bias = 0;          // minutes west of UTC of standard time
    long StandardBias = 0;  // added to Bias in standard time
    long DaylightBias = 0;  // added to Bias in daylight time; 0 without a rule
    bool hasDaylightRule = false;
    bool inDaylight = false;
};

// The local offset from UTC in seconds, east positive:
// -(Bias + StandardBias) * 60 in standard time or without a daylight rule,
// -(Bias + DaylightBias) * 60 in daylight time.
long UtcOffsetSeconds(const TimeZoneInformation& info);

class TimeZoneSource {
public:
    virtual ~TimeZoneSource() = default;
    // The zone's information as it stands at the instant `at`; nullopt when
    // it cannot be had (callers then use an offset of 0).
    virtual std::optional<TimeZoneInformation> Information(const QDateTime& at) const = 0;
};

// The C library's local zone, honouring TZ as it is at the time of the call.
class SystemTimeZone : public TimeZoneSource {
public:
    std::optional<TimeZoneInformation> Information(const QDateTime& at) const override;
};

// A zone fixed by the caller, for tests of the code that uses one.
class FixedTimeZone : public TimeZoneSource {
public:
    FixedTimeZone() = default;
    explicit FixedTimeZone(std::optional<TimeZoneInformation> info) : m_info(info) {}
    std::optional<TimeZoneInformation> Information(const QDateTime&) const override { return m_info; }
    void Set(std::optional<TimeZoneInformation> info) { m_info = info; }

private:
    std::optional<TimeZoneInformation> m_info = TimeZoneInformation{};
};

}  // namespace mv::os
