#pragma once
// Internal to the provider: one ADO Find criterion, "Column op value", parsed
// once and matched against field values.

#include <QDateTime>
#include <QRegularExpression>
#include <QString>
#include <QVariant>

namespace mv::ado {

class FindCriteria {
public:
    // Throws AdoError (kErrInvalidArgument) on anything but one criterion:
    // a name ([bracketed] or bare), one of = <> < > <= >= LIKE, and a value:
    // 'text' ('' for a quote), #date#, or a number. LIKE takes * or % as
    // "any characters".
    static FindCriteria Parse(const QString& criteria);

    const QString& Column() const { return m_column; }
    // Text compares without regard to case, as ADO does; a null never matches.
    bool Matches(const QVariant& value) const;

private:
    enum class Op { Eq, Ne, Lt, Gt, Le, Ge, Like };
    enum class Kind { Text, Number, Date };
    bool Holds(int order) const;

    QString m_column;
    Op m_op = Op::Eq;
    Kind m_kind = Kind::Text;
    QString m_text;
    double m_number = 0;
    QDateTime m_date;
    QRegularExpression m_like;
};

}  // namespace mv::ado
