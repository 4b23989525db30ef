#include "AgeWindow.h"

#include <QHash>

#include <cstdlib>
#include <functional>

namespace mv::engine {
namespace {

using Adder = std::function<QDateTime(const QDateTime&, int)>;

const QHash<QString, Adder>& Adders()
{
    static const QHash<QString, Adder> table = {
        {"yyyy", [](const QDateTime& d, int n) { return d.addYears(n); }},
        {"q", [](const QDateTime& d, int n) { return d.addMonths(3 * n); }},
        {"m", [](const QDateTime& d, int n) { return d.addMonths(n); }},
        {"y", [](const QDateTime& d, int n) { return d.addDays(n); }},
        {"d", [](const QDateTime& d, int n) { return d.addDays(n); }},
        {"w", [](const QDateTime& d, int n) { return d.addDays(n); }},
        {"ww", [](const QDateTime& d, int n) { return d.addDays(7LL * n); }},
        {"h", [](const QDateTime& d, int n) { return d.addSecs(3600LL * n); }},
        {"n", [](const QDateTime& d, int n) { return d.addSecs(60LL * n); }},
        {"s", [](const QDateTime& d, int n) { return d.addSecs(n); }},
    };
    return table;
}

int VbWeekday(const QDate& date)  // 1 = Sunday ... 7 = Saturday
{
    return date.dayOfWeek() % 7 + 1;
}

QDateTime At(const QDate& day, int h, int m, int s)
{
    return QDateTime(day, QTime(h, m, s), Qt::UTC);
}

}  // namespace

std::optional<QDateTime> DateAdd(const QString& interval, int count, const QDateTime& naive)
{
    const auto& adders = Adders();
    auto it = adders.constFind(interval.toLower());
    if (it == adders.constEnd()) return std::nullopt;
    return (*it)(naive, count);
}

QDateTime AlignBoundry(const QDateTime& naive, const QString& interval, int /*count*/, int weekStart)
{
    const QDate day = naive.date();
    const QString key = interval.toLower();
    if (key == "n" || key == "h") return naive;
    if (key == "d") return At(day, 23, 59, 59);
    if (key == "ww") return At(day.addDays(weekStart - VbWeekday(day)), 0, 1, 0);
    if (key == "m") return At(QDate(day.year(), day.month(), day.daysInMonth()), 0, 1, 0);
    if (key == "yyyy") return At(QDate(day.year(), 1, 1), 0, 1, 0);
    return At(QDate(1899, 12, 30), 0, 0, 0);
}

long TimeZoneOffsetSeconds(long bias, long standardBias, long daylightBias, bool inDaylight)
{
    return -(bias + (inDaylight ? daylightBias : standardBias)) * 60;
}

QDateTime ShiftTowardsUtc(const QDateTime& naive, long offsetSeconds)
{
    return naive.addSecs(std::labs(offsetSeconds));
}

QDateTime Naive(const QDateTime& local)
{
    return QDateTime(local.date(), local.time(), Qt::UTC);
}

std::optional<QDateTime> CutOff(const QDateTime& nowLocal, const QString& timeField, int timeDiff,
                                const AgeSettings& settings)
{
    auto cutOff = DateAdd(timeField, timeDiff, Naive(nowLocal));
    if (!cutOff) return std::nullopt;
    if (settings.alignTime) *cutOff = AlignBoundry(*cutOff, timeField, timeDiff, settings.weekStart);
    return ShiftTowardsUtc(*cutOff, settings.offsetSeconds);
}

}  // namespace mv::engine
