#include "Restriction.h"

#include <QDateTime>
#include <QStringList>

namespace mv::mapi {

Restriction Restriction::Content(PropTag tag, const QString& text, std::uint32_t fuzzy)
{
    Restriction r(RES_CONTENT);
    r.propTag = tag;
    r.fuzzyLevel = fuzzy;
    r.value = text;
    return r;
}

Restriction Restriction::Property(Relop relop, PropTag tag, const QVariant& value)
{
    Restriction r(RES_PROPERTY);
    r.relop = relop;
    r.propTag = tag;
    r.value = value;
    return r;
}

Restriction Restriction::Bitmask(BitmaskRelop relop, PropTag tag, std::uint32_t mask)
{
    Restriction r(RES_BITMASK);
    r.relop = relop;
    r.propTag = tag;
    r.mask = mask;
    return r;
}

Restriction Restriction::Exist(PropTag tag)
{
    Restriction r(RES_EXIST);
    r.propTag = tag;
    return r;
}

Restriction Restriction::And(std::list<Restriction> children)
{
    Restriction r(RES_AND);
    r.m_children = std::move(children);
    return r;
}

Restriction Restriction::Or(std::list<Restriction> children)
{
    Restriction r(RES_OR);
    r.m_children = std::move(children);
    return r;
}

Restriction Restriction::Not(Restriction child)
{
    Restriction r(RES_NOT);
    r.m_children.push_back(std::move(child));
    return r;
}

Restriction Restriction::Sub(PropTag subObject, Restriction child)
{
    Restriction r(RES_SUBRESTRICTION);
    r.propTag = subObject;
    r.m_children.push_back(std::move(child));
    return r;
}

bool Restriction::operator==(const Restriction& other) const
{
    // Every field counts, even those a kind does not use: two trees that
    // print alike but differ anywhere are not the same tree.
    return kind == other.kind && propTag == other.propTag && fuzzyLevel == other.fuzzyLevel
        && relop == other.relop && mask == other.mask && value == other.value
        && m_children == other.m_children;
}

namespace {

QString ValueText(const QVariant& value)
{
    if (!value.isValid()) return QStringLiteral("<none>");
    switch (value.typeId()) {
    case QMetaType::QString:
        return QLatin1Char('"') + value.toString() + QLatin1Char('"');
    case QMetaType::QDateTime:
        return value.toDateTime().toUTC().toString(Qt::ISODate);
    case QMetaType::QByteArray:
        return QStringLiteral("0x") + QString::fromLatin1(value.toByteArray().toHex().toUpper());
    default:
        return value.toString();
    }
}

QString RelopText(int relop)
{
    static const char* const kText[] = {"<", "<=", ">", ">=", "==", "!=", "=~"};
    if (relop >= 0 && relop < static_cast<int>(std::size(kText))) return QString::fromLatin1(kText[relop]);
    return QStringLiteral("relop%1").arg(relop);
}

QString ContentOperator(std::uint32_t fuzzy)
{
    QString op;
    switch (fuzzy & 0xFFFFu) {
    case FL_FULLSTRING: op = QStringLiteral("=="); break;
    case FL_SUBSTRING: op = QStringLiteral("~"); break;
    case FL_PREFIX: op = QStringLiteral("^="); break;
    default: op = QStringLiteral("fuzzy%1").arg(fuzzy & 0xFFFFu); break;
    }
    // The case-sensitive forms are the unusual ones, so they are the marked ones.
    if (!(fuzzy & (FL_IGNORECASE | FL_LOOSE))) op += QStringLiteral(" (case)");
    if (fuzzy & FL_IGNORENONSPACE) op += QStringLiteral(" (nonspace)");
    return op;
}

QString ChildrenText(const std::list<Restriction>& children)
{
    QStringList parts;
    for (const Restriction& child : children) parts << child.ToString();
    return parts.join(QStringLiteral(", "));
}

}  // namespace

QString Restriction::ToString() const
{
    const QString tag = PropTagName(propTag);
    switch (kind) {
    case RES_AND: return QStringLiteral("AND(%1)").arg(ChildrenText(m_children));
    case RES_OR: return QStringLiteral("OR(%1)").arg(ChildrenText(m_children));
    case RES_NOT: return QStringLiteral("NOT(%1)").arg(ChildrenText(m_children));
    case RES_CONTENT:
        return QStringLiteral("CONTENT(%1 %2 %3)").arg(tag, ContentOperator(fuzzyLevel), ValueText(value));
    case RES_PROPERTY:
        return QStringLiteral("PROPERTY(%1 %2 %3)").arg(tag, RelopText(relop), ValueText(value));
    case RES_BITMASK:
        return QStringLiteral("BITMASK(%1 & 0x%2 %3 0)")
            .arg(tag, QString::number(mask, 16).toUpper(), relop == BMR_EQZ ? QStringLiteral("==") : QStringLiteral("!="));
    case RES_EXIST: return QStringLiteral("EXIST(%1)").arg(tag);
    case RES_SUBRESTRICTION:
        return QStringLiteral("SUB(%1: %2)").arg(tag, ChildrenText(m_children));
    case RES_COMPAREPROPS: return QStringLiteral("COMPAREPROPS(%1)").arg(tag);
    case RES_SIZE: return QStringLiteral("SIZE(%1)").arg(tag);
    }
    return QStringLiteral("KIND%1(%2)").arg(static_cast<int>(kind)).arg(tag);
}

}  // namespace mv::mapi
