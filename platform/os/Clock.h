#pragma once
// The one source of "now". Everything that reads the time takes a Clock, so
// age windows, timers and log stamps are tested by setting or moving a
// FakeClock, never by sleeping.

#include <QDateTime>

#include <utility>

namespace mv::os {

class Clock {
public:
    virtual ~Clock() = default;
    // Local time, as the add-in's Now() has always been.
    virtual QDateTime Now() const = 0;
};

class SystemClock : public Clock {
public:
    QDateTime Now() const override { return QDateTime::currentDateTime(); }
};

// Stands still until told to move. Starts at the time given, or at
// 2026-01-01 00:00:00 local time so a default-made clock is still valid.
class FakeClock : public Clock {
public:
    FakeClock() : m_now(QDate(2026, 1, 1), QTime(0, 0)) {}
    explicit FakeClock(QDateTime start) : m_now(std::move(start)) {}

    QDateTime Now() const override { return m_now; }
    void Set(const QDateTime& now) { m_now = now; }
    void AdvanceMSecs(qint64 ms) { m_now = m_now.addMSecs(ms); }
    void AdvanceSecs(qint64 s) { m_now = m_now.addSecs(s); }

private:
    QDateTime m_now;
};

}  // namespace mv::os
