#include "VbConvert.h"

#include "platform/ado/AdoError.h"

#include <cmath>
#include <limits>

namespace mv::store {
namespace {

const QString kSource = QStringLiteral("Mailvane");

[[noreturn]] void Raise(long number, const char* description)
{
    throw ado::AdoError(number, kSource, QString::fromLatin1(description));
}

// Rounds half to even, as the runtime's integer conversions do.
long long ToWhole(const QVariant& value)
{
    if (!value.isValid() || value.isNull()) Raise(kErrInvalidUseOfNull, "Invalid use of Null");
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool() ? -1 : 0;
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Long:
        return value.toLongLong();
    default:
        break;
    }
    bool ok = false;
    const double d = value.typeId() == QMetaType::QString ? value.toString().trimmed().toDouble(&ok)
                                                          : value.toDouble(&ok);
    if (!ok || !std::isfinite(d)) Raise(kErrTypeMismatch, "Type mismatch");
    if (std::fabs(d) > 9.0e18) Raise(kErrOverflow, "Overflow");
    return static_cast<long long>(std::nearbyint(d));
}

}  // namespace

std::int16_t CInt(const QVariant& value)
{
    const long long v = ToWhole(value);
    if (v < std::numeric_limits<std::int16_t>::min() || v > std::numeric_limits<std::int16_t>::max())
        Raise(kErrOverflow, "Overflow");
    return static_cast<std::int16_t>(v);
}

std::int32_t CLng(const QVariant& value)
{
    const long long v = ToWhole(value);
    if (v < std::numeric_limits<std::int32_t>::min() || v > std::numeric_limits<std::int32_t>::max())
        Raise(kErrOverflow, "Overflow");
    return static_cast<std::int32_t>(v);
}

QString CStr(const QVariant& value)
{
    if (!value.isValid() || value.isNull()) Raise(kErrInvalidUseOfNull, "Invalid use of Null");
    return value.toString();
}

std::int16_t AddInt(std::int16_t a, std::int16_t b)
{
    const int sum = int(a) + int(b);
    if (sum < std::numeric_limits<std::int16_t>::min() || sum > std::numeric_limits<std::int16_t>::max())
        Raise(kErrOverflow, "Overflow");
    return static_cast<std::int16_t>(sum);
}

}  // namespace mv::store
