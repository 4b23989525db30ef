#include "RestrictionEvaluator.h"

#include "RestrictionOrder.h"

#include <QDateTime>

#include <algorithm>

namespace mv::mapi {
namespace {

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

// A case-insensitive substring search for the common case of a term in
// ASCII, folding each character as QString's own search does (simple case
// folding, so U+212A KELVIN SIGN still finds "k") but without its per-call
// set-up: rules search the same few fields of every message.
bool IsAscii(QStringView text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x80; });
}

inline char32_t Folded(char16_t c)
{
    if (c < 0x80) return (c >= u'A' && c <= u'Z') ? char32_t(c + 32) : char32_t(c);
    // Half of a surrogate pair never folds into ASCII.
    if (QChar::isSurrogate(c)) return 0xFFFFFFFFu;
    return QChar::toCaseFolded(char32_t(c));
}

bool ContainsAsciiIgnoringCase(QStringView haystack, QStringView asciiNeedle)
{
    const qsizetype n = asciiNeedle.size(), h = haystack.size();
    if (n == 0) return true;
    const char16_t* hay = reinterpret_cast<const char16_t*>(haystack.utf16());
    const char16_t* needle = reinterpret_cast<const char16_t*>(asciiNeedle.utf16());
    const char32_t first = Folded(needle[0]);
    for (qsizetype i = 0; i + n <= h; ++i) {
        if (Folded(hay[i]) != first) continue;
        qsizetype j = 1;
        while (j < n && Folded(hay[i + j]) == Folded(needle[j])) ++j;
        if (j == n) return true;
    }
    return false;
}

bool MatchContent(const Restriction& r, const QVariant& prop)
{
    if (!IsString(prop) || !IsString(r.value)) return false;
    // Views, not copies: the strings are shared between threads, and a copy
    // is an atomic reference count on a cache line both cores write.
    const QString& propText = *static_cast<const QString*>(prop.constData());
    const QString& valueText = *static_cast<const QString*>(r.value.constData());
    QString strippedHaystack, strippedNeedle;
    QStringView haystack = propText, needle = valueText;
    if (r.fuzzyLevel & FL_IGNORENONSPACE) {
        strippedHaystack = WithoutMarks(propText);
        strippedNeedle = WithoutMarks(valueText);
        haystack = strippedHaystack;
        needle = strippedNeedle;
    }
    // FL_LOOSE asks for the loosest match the store offers; here that is
    // ignoring case.
    const Qt::CaseSensitivity cs =
        (r.fuzzyLevel & (FL_IGNORECASE | FL_LOOSE)) ? Qt::CaseInsensitive : Qt::CaseSensitive;
    switch (r.fuzzyLevel & 0xFFFFu) {
    case FL_FULLSTRING: return haystack.compare(needle, cs) == 0;
    case FL_SUBSTRING:
        if (cs == Qt::CaseInsensitive && IsAscii(needle)) return ContainsAsciiIgnoringCase(haystack, needle);
        return haystack.contains(needle, cs);
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
        const int c = QString::compare(*static_cast<const QString*>(prop.constData()),
                                       *static_cast<const QString*>(value.constData()), Qt::CaseInsensitive);
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

// The property by tag, or under the other string type; nullptr when the
// message has neither.
const QVariant* FindProp(const PropertySource& message, PropTag tag, QVariant& scratch)
{
    if (const QVariant* v = message.Find(tag, scratch)) return v;
    const PropType type = PropTypeOf(tag);
    if (type != PT_STRING8 && type != PT_UNICODE) return nullptr;
    const PropTag other = (tag & 0xFFFF0000u) | (type == PT_STRING8 ? PT_UNICODE : PT_STRING8);
    return message.Find(other, scratch);
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
    case RES_EXIST: {
        QVariant scratch;
        return FindProp(message, r.propTag, scratch) != nullptr;
    }
    case RES_CONTENT: {
        const bool body = RestrictionOrder::ReadsBody(r.propTag);
        if (body) {
            if (const std::optional<bool> known = message.KnownAnswer(r)) return *known;
        }
        QVariant scratch;
        const QVariant* prop = FindProp(message, r.propTag, scratch);
        const bool answer = prop && MatchContent(r, *prop);
        if (body) message.LearnAnswer(r, answer);
        return answer;
    }
    case RES_PROPERTY: {
        QVariant scratch;
        const QVariant* prop = FindProp(message, r.propTag, scratch);
        return prop && MatchProperty(r, *prop);
    }
    case RES_BITMASK: {
        QVariant scratch;
        const QVariant* prop = FindProp(message, r.propTag, scratch);
        return prop && MatchBitmask(r, *prop);
    }
    case RES_SUBRESTRICTION:
        return message.AnySubRow(r.propTag, [&](const PropertySource& row) { return AllMatch(r.children(), row); });
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
