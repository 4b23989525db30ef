#include "ParameterBinder.h"

#include "AdoConstants.h"
#include "AdoError.h"

#include <QDateTime>

#include <sqlite3.h>

#include <limits>

namespace mv::ado {

namespace {

enum class Kind { Text, Integer, Boolean, Real, Date, Binary, ByValue };

Kind KindOf(int adoType)
{
    switch (adoType) {
    case adVarWChar: case adLongVarWChar: case adVarChar: case adLongVarChar: case adChar: case adWChar:
    case adGUID: case 8 /* adBSTR */:
        return Kind::Text;
    case adSmallInt: case adInteger: case adTinyInt: case adUnsignedTinyInt: case adBigInt:
    case 18: case 19: case 21: /* unsigned small, int, big */
        return Kind::Integer;
    case adBoolean: return Kind::Boolean;
    case adSingle: case adDouble: case adCurrency: case adNumeric: case 14 /* adDecimal */: return Kind::Real;
    case adDate: case 133: case 134: case adDBTimeStamp: return Kind::Date;
    case adBinary: case adVarBinary: case adLongVarBinary: return Kind::Binary;
    default: return Kind::ByValue;
    }
}

// The range an integer parameter type can carry; ADO refuses the rest.
std::pair<qlonglong, qlonglong> RangeOf(int adoType)
{
    switch (adoType) {
    case adSmallInt: return {std::numeric_limits<qint16>::min(), std::numeric_limits<qint16>::max()};
    case adInteger: return {std::numeric_limits<qint32>::min(), std::numeric_limits<qint32>::max()};
    case adTinyInt: return {-128, 127};
    case adUnsignedTinyInt: return {0, 255};
    case 18: return {0, 65535};
    case 19: return {0, std::numeric_limits<quint32>::max()};
    default: return {std::numeric_limits<qlonglong>::min(), std::numeric_limits<qlonglong>::max()};
    }
}

[[noreturn]] void Mismatch(const Parameter& p, int index, const QString& why)
{
    throw AdoError(kErrTypeMismatch, kProviderSource,
                   QStringLiteral("Parameter %1 ('%2', type %3): %4").arg(index).arg(p.Name).arg(p.Type).arg(why));
}

void Check(int rc, const Parameter& p, int index)
{
    if (rc != SQLITE_OK) Mismatch(p, index, QString::fromUtf8(sqlite3_errstr(rc)));
}

void BindText(sqlite3_stmt* st, int index, const QString& text, const Parameter& p)
{
    const QByteArray utf8 = text.toUtf8();
    Check(sqlite3_bind_text64(st, index, utf8.constData(), utf8.size(), SQLITE_TRANSIENT, SQLITE_UTF8), p, index);
}

void BindInteger(sqlite3_stmt* st, int index, const Parameter& p)
{
    const QVariant& v = p.Value;
    qlonglong n = 0;
    if (v.typeId() == QMetaType::Bool) {
        n = v.toBool() ? -1 : 0;  // VB's CInt(True)
    } else {
        bool ok = false;
        n = v.toLongLong(&ok);
        if (!ok) {
            const double d = v.toDouble(&ok);
            if (!ok || d != d) Mismatch(p, index, QStringLiteral("'%1' is not a number").arg(v.toString()));
            n = qRound64(d);
        }
    }
    const auto [lo, hi] = RangeOf(p.Type);
    if (n < lo || n > hi) Mismatch(p, index, QStringLiteral("%1 is out of range (overflow)").arg(n));
    Check(sqlite3_bind_int64(st, index, n), p, index);
}

void BindBoolean(sqlite3_stmt* st, int index, const Parameter& p)
{
    const QVariant& v = p.Value;
    bool truth = false;
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString().trimmed();
        if (s.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0) truth = true;
        else if (s.compare(QLatin1String("false"), Qt::CaseInsensitive) == 0) truth = false;
        else {
            bool ok = false;
            truth = s.toDouble(&ok) != 0;
            if (!ok) Mismatch(p, index, QStringLiteral("'%1' is not a truth value").arg(s));
        }
    } else {
        truth = v.toBool() || (v.canConvert<double>() && v.toDouble() != 0);
    }
    Check(sqlite3_bind_int64(st, index, truth ? -1 : 0), p, index);
}

void BindReal(sqlite3_stmt* st, int index, const Parameter& p)
{
    bool ok = false;
    const double d = p.Value.toDouble(&ok);
    if (!ok) Mismatch(p, index, QStringLiteral("'%1' is not a number").arg(p.Value.toString()));
    Check(sqlite3_bind_double(st, index, d), p, index);
}

void BindDate(sqlite3_stmt* st, int index, const Parameter& p)
{
    const QString text = ParameterBinder::DateText(p.Value);
    if (text.isEmpty()) Mismatch(p, index, QStringLiteral("'%1' is not a date").arg(p.Value.toString()));
    BindText(st, index, text, p);
}

void BindBinary(sqlite3_stmt* st, int index, const Parameter& p)
{
    const QByteArray bytes = p.Value.toByteArray();
    Check(sqlite3_bind_blob64(st, index, bytes.constData(), bytes.size(), SQLITE_TRANSIENT), p, index);
}

void BindByValue(sqlite3_stmt* st, int index, const Parameter& p)
{
    switch (p.Value.typeId()) {
    case QMetaType::Bool: Check(sqlite3_bind_int64(st, index, p.Value.toBool() ? -1 : 0), p, index); return;
    case QMetaType::Int: case QMetaType::UInt: case QMetaType::LongLong: case QMetaType::Short:
    case QMetaType::UShort: case QMetaType::Long: case QMetaType::Char: case QMetaType::UChar:
        Check(sqlite3_bind_int64(st, index, p.Value.toLongLong()), p, index);
        return;
    case QMetaType::ULongLong: case QMetaType::ULong: BindInteger(st, index, p); return;
    case QMetaType::Double: case QMetaType::Float: BindReal(st, index, p); return;
    case QMetaType::QDateTime: case QMetaType::QDate: BindDate(st, index, p); return;
    case QMetaType::QByteArray: BindBinary(st, index, p); return;
    default: BindText(st, index, p.Value.toString(), p); return;
    }
}

}  // namespace

QString ParameterBinder::DateText(const QVariant& value)
{
    QDateTime dt;
    if (value.typeId() == QMetaType::QDate) dt = value.toDate().startOfDay();
    else if (value.typeId() == QMetaType::QDateTime) dt = value.toDateTime().toLocalTime();
    else {
        const QString s = value.toString().trimmed();
        for (const auto* f : {"yyyy-MM-dd HH:mm:ss", "yyyy-MM-ddTHH:mm:ss", "yyyy-MM-dd"}) {
            dt = QDateTime::fromString(s, QLatin1String(f));
            if (dt.isValid()) break;
        }
    }
    return dt.isValid() ? dt.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) : QString();
}

void ParameterBinder::Bind(sqlite3_stmt* st, const std::vector<Parameter>& parameters, const QString& sql)
{
    const int marks = sqlite3_bind_parameter_count(st);
    if (marks != static_cast<int>(parameters.size()))
        throw AdoError(kErrParameterCount, kProviderSource,
                       QStringLiteral("The statement has %1 \"?\" placeholders but %2 parameters were given: \"%3\"")
                           .arg(marks).arg(parameters.size()).arg(sql));
    for (int i = 0; i < marks; ++i) {
        const Parameter& p = parameters[static_cast<size_t>(i)];
        const int index = i + 1;
        if (p.Value.isNull() && p.Value.typeId() != QMetaType::QString) {
            sqlite3_bind_null(st, index);
            continue;
        }
        switch (KindOf(p.Type)) {
        case Kind::Text: BindText(st, index, p.Value.toString(), p); break;
        case Kind::Integer: BindInteger(st, index, p); break;
        case Kind::Boolean: BindBoolean(st, index, p); break;
        case Kind::Real: BindReal(st, index, p); break;
        case Kind::Date: BindDate(st, index, p); break;
        case Kind::Binary: BindBinary(st, index, p); break;
        case Kind::ByValue: BindByValue(st, index, p); break;
        }
    }
}

}  // namespace mv::ado
