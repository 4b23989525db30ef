#include "FindCriteria.h"

#include "AdoError.h"

#include <cstring>

namespace mv::ado {

namespace {

[[noreturn]] void Bad(const QString& criteria, const QString& why)
{
    throw AdoError(kErrInvalidArgument, kProviderSource,
                   QStringLiteral("Invalid Find criterion \"%1\": %2").arg(criteria, why));
}

QDateTime ParseDate(const QString& text)
{
    for (const auto* f : {"yyyy-MM-dd HH:mm:ss", "yyyy-MM-ddTHH:mm:ss", "yyyy-MM-dd", "M/d/yyyy H:mm:ss",
                          "M/d/yyyy h:mm:ss AP", "M/d/yyyy"}) {
        const QDateTime dt = QDateTime::fromString(text.trimmed(), QLatin1String(f));
        if (dt.isValid()) return dt;
    }
    return {};
}

bool IsNumeric(const QVariant& v)
{
    switch (v.typeId()) {
    case QMetaType::Int: case QMetaType::LongLong: case QMetaType::Double: case QMetaType::Bool:
    case QMetaType::UInt: case QMetaType::ULongLong: case QMetaType::Short: case QMetaType::Float:
        return true;
    default:
        return false;
    }
}

double NumberOf(const QVariant& v, bool* ok)
{
    if (v.typeId() == QMetaType::Bool) {
        *ok = true;
        return v.toBool() ? -1 : 0;  // Jet's true
    }
    return v.toString().trimmed().toDouble(ok);
}

}  // namespace

FindCriteria FindCriteria::Parse(const QString& criteria)
{
    FindCriteria c;
    const QString s = criteria.trimmed();
    qsizetype i = 0;
    const qsizetype n = s.size();
    if (n == 0) Bad(criteria, QStringLiteral("it is empty"));
    if (s[0] == QLatin1Char('[')) {
        const qsizetype close = s.indexOf(QLatin1Char(']'));
        if (close < 0) Bad(criteria, QStringLiteral("unterminated [name]"));
        c.m_column = s.mid(1, close - 1);
        i = close + 1;
    } else {
        while (i < n && !s[i].isSpace() && !QStringLiteral("=<>").contains(s[i])) ++i;
        c.m_column = s.left(i);
    }
    if (c.m_column.isEmpty()) Bad(criteria, QStringLiteral("no column name"));
    while (i < n && s[i].isSpace()) ++i;

    static const std::pair<const char*, Op> ops[] = {{"<=", Op::Le}, {">=", Op::Ge}, {"<>", Op::Ne},
                                                     {"=", Op::Eq},  {"<", Op::Lt},  {">", Op::Gt}};
    bool found = false;
    for (const auto& [text, op] : ops) {
        if (s.mid(i).startsWith(QLatin1String(text))) {
            c.m_op = op;
            i += qsizetype(strlen(text));
            found = true;
            break;
        }
    }
    if (!found && s.mid(i, 4).compare(QLatin1String("LIKE"), Qt::CaseInsensitive) == 0 &&
        (i + 4 >= n || s[i + 4].isSpace() || s[i + 4] == QLatin1Char('\''))) {
        c.m_op = Op::Like;
        i += 4;
        found = true;
    }
    if (!found) Bad(criteria, QStringLiteral("expected one of = <> < > <= >= LIKE after the column name"));
    const QString value = s.mid(i).trimmed();
    if (value.isEmpty()) Bad(criteria, QStringLiteral("no value"));

    if (value.startsWith(QLatin1Char('\''))) {
        QString text;
        qsizetype j = 1;
        for (;; ++j) {
            if (j >= value.size()) Bad(criteria, QStringLiteral("unterminated 'text'"));
            if (value[j] == QLatin1Char('\'')) {
                if (j + 1 < value.size() && value[j + 1] == QLatin1Char('\'')) { text += QLatin1Char('\''); ++j; continue; }
                break;
            }
            text += value[j];
        }
        if (j + 1 != value.size()) Bad(criteria, QStringLiteral("only one criterion is allowed"));
        c.m_kind = Kind::Text;
        c.m_text = text;
    } else if (value.startsWith(QLatin1Char('#'))) {
        if (value.size() < 2 || !value.endsWith(QLatin1Char('#'))) Bad(criteria, QStringLiteral("unterminated #date#"));
        c.m_date = ParseDate(value.mid(1, value.size() - 2));
        if (!c.m_date.isValid()) Bad(criteria, QStringLiteral("%1 is not a date").arg(value));
        c.m_kind = Kind::Date;
    } else {
        bool ok = false;
        c.m_number = value.toDouble(&ok);
        if (!ok) Bad(criteria, QStringLiteral("%1 is not a number, a 'text' or a #date#").arg(value));
        c.m_kind = Kind::Number;
        c.m_text = value;
    }
    if (c.m_op == Op::Like) {
        if (c.m_kind != Kind::Text) Bad(criteria, QStringLiteral("LIKE needs a 'text' pattern"));
        QString rx;
        for (QChar ch : c.m_text) {
            if (ch == QLatin1Char('*') || ch == QLatin1Char('%')) rx += QStringLiteral(".*");
            else rx += QRegularExpression::escape(QString(ch));
        }
        c.m_like = QRegularExpression(QRegularExpression::anchoredPattern(rx),
                                      QRegularExpression::CaseInsensitiveOption |
                                          QRegularExpression::DotMatchesEverythingOption);
    }
    return c;
}

bool FindCriteria::Holds(int order) const
{
    switch (m_op) {
    case Op::Eq: return order == 0;
    case Op::Ne: return order != 0;
    case Op::Lt: return order < 0;
    case Op::Gt: return order > 0;
    case Op::Le: return order <= 0;
    case Op::Ge: return order >= 0;
    case Op::Like: return false;
    }
    return false;
}

bool FindCriteria::Matches(const QVariant& value) const
{
    if (!value.isValid() || value.isNull()) return false;
    if (m_op == Op::Like) return m_like.match(value.toString()).hasMatch();

    switch (m_kind) {
    case Kind::Number: {
        bool ok = false;
        const double v = NumberOf(value, &ok);
        if (!ok) return false;
        return Holds(v < m_number ? -1 : v > m_number ? 1 : 0);
    }
    case Kind::Date: {
        const QDateTime v = value.typeId() == QMetaType::QDateTime ? value.toDateTime() : ParseDate(value.toString());
        if (!v.isValid()) return false;
        return Holds(v < m_date ? -1 : v > m_date ? 1 : 0);
    }
    case Kind::Text:
        if (IsNumeric(value)) {  // a number column searched with a quoted number
            bool ok = false;
            const double want = m_text.trimmed().toDouble(&ok);
            bool have = false;
            const double v = NumberOf(value, &have);
            if (ok && have) return Holds(v < want ? -1 : v > want ? 1 : 0);
        }
        return Holds(value.toString().compare(m_text, Qt::CaseInsensitive));
    }
    return false;
}

}  // namespace mv::ado
