#pragma once
// Message-age windows: a MsgAge row (interval letter, signed count) turns
// into a cut-off instant; messages delivered strictly before it match.
//
// Date arithmetic is done on "naive" local date-times, held as QDateTime in
// Qt::UTC so that no daylight-saving rule shifts them behind our back; the
// last step moves the value towards UTC the way the add-in always has.

#include <QDateTime>
#include <QString>

#include <optional>

namespace mv::engine {

// The interval letters of date arithmetic: "yyyy", "q", "m", "y", "d", "w",
// "ww", "h", "n", "s". Months and years keep the day of month where it
// exists, else the month's last day. nullopt for an unknown letter.
std::optional<QDateTime> DateAdd(const QString& interval, int count, const QDateTime& naive);

// Moves a cut-off to its calendar boundary (the count is not used):
// "n","h": unchanged; "d": that day 23:59:59; "ww": the day (weekStart -
// weekday) days away at 00:01:00; "m": the month's last day at 00:01:00;
// "yyyy": January 1 at 00:01:00; anything else: the zero date
// (1899-12-30 00:00:00). weekStart and weekdays count 1 = Sunday ... 7 = Saturday.
QDateTime AlignBoundry(const QDateTime& naive, const QString& interval, int count, int weekStart);

// The local zone's offset from UTC in seconds, from the system's bias
// figures (minutes, positive west of UTC): -(bias + standardBias) * 60 in
// standard time, -(bias + daylightBias) * 60 in daylight time.
long TimeZoneOffsetSeconds(long bias, long standardBias, long daylightBias, bool inDaylight);

// Shifts a naive local cut-off "towards UTC" by the absolute offset. East of
// UTC this lands twice the offset after the true instant; that is how the
// add-in has always matched, and rules written against it rely on it.
QDateTime ShiftTowardsUtc(const QDateTime& naive, long offsetSeconds);

struct AgeSettings {
    bool alignTime = false;  // AlignTime = 1
    int weekStart = 1;       // 1 = Sunday ... 7 = Saturday
    long offsetSeconds = 0;  // TimeZoneOffsetSeconds at the moment of the run
};

// The cut-off for a window, as a UTC QDateTime to compare delivery times
// with; nullopt when the interval letter is unknown.
std::optional<QDateTime> CutOff(const QDateTime& nowLocal, const QString& timeField, int timeDiff,
                                const AgeSettings& settings);

// A local wall-clock time as a naive value (same digits, Qt::UTC).
QDateTime Naive(const QDateTime& local);

}  // namespace mv::engine
