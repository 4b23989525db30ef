#include "RestrictionEvaluator.h"

#include <QDateTime>

#include <algorithm>

namespace mv::mapi {
namespace {

// A recipient row seen as a message, so that the children of a
// sub-restriction are evaluated by the same code as top-level nodes.
class RowSource final : public PropertySource {
public:
    explicit RowSource(const PropertyMap& row) : m_row(row) {}
    std::optional<QVariant> Get(PropTag tag) const override
    {
        auto it = m_row.constFind(tag);
        if (it == m_row.constEnd()) return std::nullopt;
        return *it;
    }
    std::vector<PropertyMap> SubRows(PropTag) const override { return {}; }

private:
    const PropertyMap& m_row;
};

bool IsIntegral(const QVariant& v)
{
    switch (v.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
        return true;
    default:
        return false;
    }
}

bool IsString(const QVariant& v) { return v.typeId() == QMetaType::QString; }

// Diacritics are non-spacing marks after canonical decomposition.
QString WithoutMarks(const QString& text)
{
    QString decomposed = text.normalized(QString::NormalizationForm_D);
    decomposed.removeIf([](QChar c) { return c.category() == QChar::Mark_NonSpacing; });
    return decomposed;
}

bool MatchContent(const Restriction& r, const QVariant& prop)
{
    if (!IsString(prop) || !IsString(r.value)) return false;
    QString haystack = prop.toString();
    QString needle = r.value.toString();
    if (r.fuzzyLevel & FL_IGNORENONSPACE) {
        haystack = WithoutMarks(haystack);
        needle = WithoutMarks(needle);
    }
    // FL_LOOSE asks for the loosest match the store offers; here that is
    // ignoring case.
    const Qt::CaseSensitivity cs =
        (r.fuzzyLevel & (FL_IGNORECASE | FL_LOOSE)) ? Qt::CaseInsensitive : Qt::CaseSensitive;
    switch (r.fuzzyLevel & 0xFFFFu) {
    case FL_FULLSTRING: return QString::compare(haystack, needle, cs) == 0;
    case FL_SUBSTRING: return haystack.contains(needle, cs);
    case FL_PREFIX: return haystack.startsWith(needle, cs);
    default: return false;
    }
}

template <class T>
int ThreeWay(const T& a, const T& b)
{
    return a < b ? -1 : (b < a ? 1 : 0);
}

// -1/0/1, or nullopt when the two values are not of comparable types.
std::optional<int> Compare(const QVariant& prop, const QVariant& value)
{
    if (IsIntegral(prop) && IsIntegral(value)) return ThreeWay(prop.toLongLong(), value.toLongLong());
    if (IsString(prop) && IsString(value)) {
        const int c = QString::compare(prop.toString(), value.toString(), Qt::CaseInsensitive);
        return ThreeWay(c, 0);
    }
    if (prop.typeId() == QMetaType::QDateTime && value.typeId() == QMetaType::QDateTime) {
        const QDateTime a = prop.toDateTime(), b = value.toDateTime();
        if (!a.isValid() || !b.isValid()) return std::nullopt;
        return ThreeWay(a.toMSecsSinceEpoch(), b.toMSecsSinceEpoch());
    }
    if (prop.typeId() == QMetaType::QByteArray && value.typeId() == QMetaType::QByteArray)
        return ThreeWay(prop.toByteArray(), value.toByteArray());
    return std::nullopt;
}

bool MatchProperty(const Restriction& r, const QVariant& prop)
{
    const std::optional<int> c = Compare(prop, r.value);
    if (!c) return false;
    switch (r.relop) {
    case RELOP_LT: return *c < 0;
    case RELOP_LE: return *c <= 0;
    case RELOP_GT: return *c > 0;
    case RELOP_GE: return *c >= 0;
    case RELOP_EQ: return *c == 0;
    case RELOP_NE: return *c != 0;
    default: return false;  // RELOP_RE and unknown relations
    }
}

bool MatchBitmask(const Restriction& r, const QVariant& prop)
{
    if (!IsIntegral(prop)) return false;
    const bool anySet = (static_cast<std::uint64_t>(prop.toLongLong()) & r.mask) != 0;
    switch (r.relop) {
    case BMR_EQZ: return !anySet;
    case BMR_NEZ: return anySet;
    default: return false;
    }
}

bool AllMatch(const std::list<Restriction>& children, const PropertySource& message)
{
    return std::all_of(children.begin(), children.end(),
                       [&](const Restriction& c) { return RestrictionEvaluator::Matches(c, message); });
}

bool IsValidPropertyValue(const QVariant& v)
{
    if (IsIntegral(v) || IsString(v) || v.typeId() == QMetaType::QByteArray) return true;
    return v.typeId() == QMetaType::QDateTime && v.toDateTime().isValid();
}

}  // namespace

std::optional<QVariant> RestrictionEvaluator::Lookup(const PropertySource& message, PropTag tag)
{
    if (auto v = message.Get(tag)) return v;
    const PropType type = PropTypeOf(tag);
    if (type != PT_STRING8 && type != PT_UNICODE) return std::nullopt;
    const PropTag other = (tag & 0xFFFF0000u) | (type == PT_STRING8 ? PT_UNICODE : PT_STRING8);
    return message.Get(other);
}

bool RestrictionEvaluator::Matches(const Restriction& r, const PropertySource& message)
{
    switch (r.kind) {
    case RES_AND:
        return AllMatch(r.children(), message);
    case RES_OR:
        return std::any_of(r.children().begin(), r.children().end(),
                           [&](const Restriction& c) { return Matches(c, message); });
    case RES_NOT:
        return r.children().size() == 1 && !Matches(r.children().front(), message);
    case RES_EXIST:
        return Lookup(message, r.propTag).has_value();
    case RES_CONTENT: {
        const auto prop = Lookup(message, r.propTag);
        return prop && MatchContent(r, *prop);
    }
    case RES_PROPERTY: {
        const auto prop = Lookup(message, r.propTag);
        return prop && MatchProperty(r, *prop);
    }
    case RES_BITMASK: {
        const auto prop = Lookup(message, r.propTag);
        return prop && MatchBitmask(r, *prop);
    }
    case RES_SUBRESTRICTION: {
        const std::vector<PropertyMap> rows = message.SubRows(r.propTag);
        return std::any_of(rows.begin(), rows.end(),
                           [&](const PropertyMap& row) { return AllMatch(r.children(), RowSource(row)); });
    }
    case RES_COMPAREPROPS:
    case RES_SIZE:
        return false;
    }
    return false;
}

std::optional<QString> RestrictionEvaluator::FindUnsupported(const Restriction& r)
{
    const auto why = [&](const QString& text) {
        return std::optional<QString>(text + QStringLiteral(": ") + r.ToString());
    };
    switch (r.kind) {
    case RES_AND:
    case RES_OR:
    case RES_SUBRESTRICTION:
        break;
    case RES_NOT:
        if (r.children().size() != 1) return why(QStringLiteral("NOT needs exactly one child"));
        break;
    case RES_EXIST:
        return std::nullopt;
    case RES_CONTENT: {
        const std::uint32_t how = r.fuzzyLevel & 0xFFFFu;
        if (how != FL_FULLSTRING && how != FL_SUBSTRING && how != FL_PREFIX)
            return why(QStringLiteral("unknown fuzzy level"));
        if (!IsString(r.value)) return why(QStringLiteral("content value is not text"));
        return std::nullopt;
    }
    case RES_PROPERTY:
        if (r.relop < RELOP_LT || r.relop > RELOP_NE) return why(QStringLiteral("unsupported relation"));
        if (!IsValidPropertyValue(r.value)) return why(QStringLiteral("property value of no comparable type"));
        return std::nullopt;
    case RES_BITMASK:
        if (r.relop != BMR_EQZ && r.relop != BMR_NEZ) return why(QStringLiteral("unknown bitmask relation"));
        return std::nullopt;
    case RES_COMPAREPROPS:
    case RES_SIZE:
    default:
        return why(QStringLiteral("unsupported restriction kind"));
    }
    for (const Restriction& child : r.children())
        if (auto inner = FindUnsupported(child)) return inner;
    return std::nullopt;
}

Status RestrictionEvaluator::CheckSupported(const Restriction& restriction)
{
    if (auto why = FindUnsupported(restriction))
        return Error::permanent(QStringLiteral("Unsupported restriction (%1)").arg(*why));
    return Status::success();
}

}  // namespace mv::mapi
