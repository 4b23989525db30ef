#pragma once
// The conversions the add-in applies to database values, with the errors the
// original runtime raised: a null is "Invalid use of Null" (94), text that is
// no number is "Type mismatch" (13), a value out of range is "Overflow" (6).
// They throw ado::AdoError so one handler catches both kinds of failure.

#include <QString>
#include <QVariant>

#include <cstdint>

namespace mv::store {

inline constexpr long kErrOverflow = 6;
inline constexpr long kErrTypeMismatch = 13;
inline constexpr long kErrInvalidUseOfNull = 94;

std::int16_t CInt(const QVariant& value);
std::int32_t CLng(const QVariant& value);
QString CStr(const QVariant& value);
// 16-bit addition that raises Overflow instead of wrapping.
std::int16_t AddInt(std::int16_t a, std::int16_t b);

}  // namespace mv::store
