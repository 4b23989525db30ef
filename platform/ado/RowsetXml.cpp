#include "RowsetXml.h"

#include "AdoConstants.h"

#include <QDateTime>
#include <QFile>
#include <QHash>
#include <QLocale>
#include <QSaveFile>
#include <QUuid>
#include <QXmlStreamReader>

#include <algorithm>
#include <cctype>
#include <limits>
#include <optional>

namespace mv::ado {

namespace {

// The namespaces are recognised by URI, never by prefix: ADO always writes
// s, dt, rs and z, but its own loader accepts any prefix.
const QString kNsSchema = QStringLiteral("uuid:BDC6E3F0-6DA3-11d1-A2A3-00AA00C14882");
const QString kNsDataType = QStringLiteral("uuid:C2F41010-65B3-11d1-A29F-00AA00C14882");
const QString kNsRowset = QStringLiteral("urn:schemas-microsoft-com:rowset");
const QString kNsRow = QStringLiteral("#RowsetSchema");

const QString kSource = QStringLiteral("MSPersist");

// ADO breaks an element's attribute list before the next attribute once the
// line has reached this many characters (tabs count one); the continuation
// line starts with tabs and one space.
constexpr int kWrapColumn = 108;

// Sizes ADO reports for columns whose provider gives no width: Jet's Memo,
// Jet's OLE Object and Jet's default Text width.
constexpr int kLongTextSize = 536870910;
constexpr int kLongBinarySize = 1073741823;
constexpr int kDefaultTextSize = 255;
constexpr int kDefaultNumericPrecision = 18;

enum class ValueKind { Text, Int, Int64, Bool, DateTime, Double, Binary, Guid };

// One row per ADO DataType: how ADO describes it in s:datatype and how its
// values are written. Read and Write both go through this table.
struct XmlType {
    int adoType;
    const char* dtType;  // dt:type
    const char* dbType;  // rs:dbtype, "" where ADO writes none
    int fixedSize;       // dt:maxLength of fixed-size types; 0 = the column's size
    int precision;       // rs:precision ADO writes; 0 = none (adNumeric: the column's)
    int scale;           // rs:scale ADO writes; -1 = none (adNumeric: the column's)
    bool fixedLength;    // rs:fixedlength='true'
    bool isLong;         // rs:long='true'
    ValueKind kind;
    qint64 min;  // range of integer kinds
    qint64 max;
};

constexpr qint64 kI64Min = std::numeric_limits<qint64>::min();
constexpr qint64 kI64Max = std::numeric_limits<qint64>::max();

const XmlType kTypes[] = {
    {adSmallInt, "i2", "", 2, 5, -1, true, false, ValueKind::Int, -32768, 32767},
    {adInteger, "int", "", 4, 10, -1, true, false, ValueKind::Int, -2147483648LL, 2147483647LL},
    {adSingle, "r4", "", 4, 7, -1, true, false, ValueKind::Double, 0, 0},
    {adDouble, "float", "", 8, 15, -1, true, false, ValueKind::Double, 0, 0},
    {adCurrency, "number", "currency", 8, 19, -1, true, false, ValueKind::Double, 0, 0},
    {adDate, "dateTime", "variantdate", 16, 0, -1, true, false, ValueKind::DateTime, 0, 0},
    {adBoolean, "boolean", "", 2, 0, -1, true, false, ValueKind::Bool, 0, 0},
    {adTinyInt, "i1", "", 1, 3, -1, true, false, ValueKind::Int, -128, 127},
    {adUnsignedTinyInt, "ui1", "", 1, 3, -1, true, false, ValueKind::Int, 0, 255},
    {adBigInt, "i8", "", 8, 19, -1, true, false, ValueKind::Int64, kI64Min, kI64Max},
    {adGUID, "uuid", "", 16, 0, -1, true, false, ValueKind::Guid, 0, 0},
    {adNumeric, "number", "numeric", 19, 0, 0, true, false, ValueKind::Double, 0, 0},
    {adDBTimeStamp, "dateTime", "timestamp", 16, 19, 0, true, false, ValueKind::DateTime, 0, 0},
    {adBinary, "bin.hex", "", 0, 0, -1, true, false, ValueKind::Binary, 0, 0},
    {adVarBinary, "bin.hex", "", 0, 0, -1, false, false, ValueKind::Binary, 0, 0},
    {adLongVarBinary, "bin.hex", "", 0, 0, -1, false, true, ValueKind::Binary, 0, 0},
    // Narrow strings carry rs:dbtype='str'; wide ones (Jet's Text and Memo) none.
    {adChar, "string", "str", 0, 0, -1, true, false, ValueKind::Text, 0, 0},
    {adVarChar, "string", "str", 0, 0, -1, false, false, ValueKind::Text, 0, 0},
    {adLongVarChar, "string", "str", 0, 0, -1, false, true, ValueKind::Text, 0, 0},
    {adWChar, "string", "", 0, 0, -1, true, false, ValueKind::Text, 0, 0},
    {adVarWChar, "string", "", 0, 0, -1, false, false, ValueKind::Text, 0, 0},
    {adLongVarWChar, "string", "", 0, 0, -1, false, true, ValueKind::Text, 0, 0},
};

// Other names for the same types that XML-Data allows and ADO reads
// (it writes only the names in kTypes).
struct TypeAlias {
    const char* alias;
    const char* dtType;
    const char* dbType;
};
const TypeAlias kAliases[] = {
    {"i4", "int", ""},
    {"r8", "float", ""},
    {"ui2", "int", ""},
    {"ui4", "i8", ""},
    {"ui8", "i8", ""},
    {"fixed.14.4", "number", "currency"},
    {"decimal", "number", "numeric"},
    {"char", "string", ""},
    {"date", "dateTime", "variantdate"},
    {"datetime.tz", "dateTime", "variantdate"},
};

const XmlType* typeByAdo(int adoType)
{
    for (const XmlType& t : kTypes)
        if (t.adoType == adoType) return &t;
    return nullptr;
}

// The table row that best matches what a file says; nullptr for an unknown dt:type.
const XmlType* typeByXml(QString dtType, QString dbType, bool fixedLength, bool isLong)
{
    for (const TypeAlias& a : kAliases) {
        if (dtType.compare(QLatin1String(a.alias), Qt::CaseInsensitive) == 0) {
            dtType = QLatin1String(a.dtType);
            if (dbType.isEmpty()) dbType = QLatin1String(a.dbType);
        }
    }
    const XmlType* best = nullptr;
    int bestScore = -1;
    for (const XmlType& t : kTypes) {
        if (dtType.compare(QLatin1String(t.dtType), Qt::CaseInsensitive) != 0) continue;
        int score = 0;
        if (dbType.compare(QLatin1String(t.dbType), Qt::CaseInsensitive) == 0) score += 4;
        if (t.isLong == isLong) score += 2;
        if (t.fixedLength == fixedLength) score += 1;
        if (score > bestScore) {
            best = &t;
            bestScore = score;
        }
    }
    return best;
}

// ---------------------------------------------------------------- values

QString formatDouble(double d)
{
    return QString::number(d, 'g', QLocale::FloatingPointShortest);
}

bool parseBool(const QString& s, bool* ok)
{
    *ok = true;
    const QString t = s.trimmed();
    if (t.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0 || t == QLatin1String("-1") ||
        t == QLatin1String("1"))
        return true;
    if (t.compare(QLatin1String("false"), Qt::CaseInsensitive) == 0 || t == QLatin1String("0")) return false;
    *ok = false;
    return false;
}

// The text ADO writes for a value; nullopt when the value does not fit.
std::optional<QString> formatValue(const XmlType& t, const QVariant& v)
{
    bool ok = true;
    switch (t.kind) {
        case ValueKind::Text:
            if (!v.canConvert<QString>()) return std::nullopt;
            return v.toString();
        case ValueKind::Int:
        case ValueKind::Int64: {
            const qlonglong n = v.toLongLong(&ok);
            if (!ok || n < t.min || n > t.max) return std::nullopt;
            return QString::number(n);
        }
        case ValueKind::Bool: {
            // Text must say true or false; QVariant would take any other text as true.
            const bool b = v.typeId() == QMetaType::QString ? parseBool(v.toString(), &ok) : v.toBool();
            if (!ok || !v.canConvert<bool>()) return std::nullopt;
            return b ? QStringLiteral("True") : QStringLiteral("False");
        }
        case ValueKind::DateTime: {
            const QDateTime dt = v.toDateTime();
            if (!dt.isValid()) return std::nullopt;
            QString s = dt.toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss"));
            if (t.adoType == adDBTimeStamp && dt.time().msec() != 0) s += dt.toString(QStringLiteral(".zzz"));
            return s;
        }
        case ValueKind::Double: {
            const double d = v.toDouble(&ok);
            if (!ok) return std::nullopt;
            return formatDouble(d);
        }
        case ValueKind::Binary:
            if (!v.canConvert<QByteArray>()) return std::nullopt;
            return QString::fromLatin1(v.toByteArray().toHex());
        case ValueKind::Guid: {
            const QUuid u(v.toString());
            if (u.isNull() && v.toString().trimmed() != QUuid().toString()) return std::nullopt;
            return u.toString(QUuid::WithBraces).toUpper();
        }
    }
    return std::nullopt;
}

QDateTime parseDateTime(const QString& s)
{
    const QString t = s.trimmed();
    static const char* const kFormats[] = {
        "yyyy-MM-dd'T'HH:mm:ss",
        "yyyy-MM-dd'T'HH:mm:ss.z",
        "yyyy-MM-dd'T'HH:mm:ss.zzz",
        "yyyy-MM-dd'T'HH:mm",
        "yyyy-MM-dd",
    };
    for (const char* f : kFormats) {
        QDateTime dt = QDateTime::fromString(t, QLatin1String(f));
        if (dt.isValid()) return dt;
    }
    return QDateTime::fromString(t, Qt::ISODateWithMs);  // with a zone offset
}

// The value a row attribute stands for; an invalid QVariant when it does not fit.
QVariant parseValue(const XmlType& t, const QString& s)
{
    bool ok = false;
    switch (t.kind) {
        case ValueKind::Text:
            return s;
        case ValueKind::Int:
        case ValueKind::Int64: {
            const qlonglong n = s.trimmed().toLongLong(&ok);
            if (!ok || n < t.min || n > t.max) return {};
            if (t.kind == ValueKind::Int) return QVariant(static_cast<int>(n));
            return QVariant(n);
        }
        case ValueKind::Bool: {
            const bool b = parseBool(s, &ok);
            return ok ? QVariant(b) : QVariant();
        }
        case ValueKind::DateTime: {
            const QDateTime dt = parseDateTime(s);
            return dt.isValid() ? QVariant(dt) : QVariant();
        }
        case ValueKind::Double: {
            const double d = QLocale::c().toDouble(s.trimmed(), &ok);
            return ok ? QVariant(d) : QVariant();
        }
        case ValueKind::Binary: {
            QByteArray hex;
            for (QChar c : s) {
                if (c.isSpace()) continue;  // ADO breaks long binary values over lines
                if (!isxdigit(c.unicode() < 0x80 ? c.unicode() : 'x')) return {};
                hex.append(static_cast<char>(c.unicode()));
            }
            if (hex.size() % 2 != 0) return {};
            return QByteArray::fromHex(hex);
        }
        case ValueKind::Guid: {
            const QUuid u(s.trimmed());
            if (u.isNull() && s.trimmed() != QUuid().toString()) return {};
            return u.toString(QUuid::WithBraces).toUpper();
        }
    }
    return {};
}

// ---------------------------------------------------------------- writer

// Attribute values as ADO escapes them: the five markup characters as entities
// and CR, LF, TAB as character references, which attribute-value
// normalisation would otherwise turn into spaces.
struct Escape {
    char16_t c;
    const char* text;
};
constexpr Escape kEscapes[] = {
    {u'&', "&amp;"},  {u'<', "&lt;"},   {u'>', "&gt;"},   {u'\'', "&apos;"},
    {u'"', "&quot;"}, {u'\r', "&#xd;"}, {u'\n', "&#xa;"}, {u'\t', "&#x9;"},
};

QString escapeAttribute(const QString& value)
{
    QString out;
    out.reserve(value.size() + 8);
    for (QChar c : value) {
        const auto* e = std::find_if(std::begin(kEscapes), std::end(kEscapes),
                                     [c](const Escape& x) { return x.c == c.unicode(); });
        if (e != std::end(kEscapes))
            out += QLatin1String(e->text);
        else
            out += c;
    }
    return out;
}

// XML 1.0 forbids the other C0 controls even as character references.
bool hasForbiddenChar(const QString& value)
{
    return std::any_of(value.begin(), value.end(),
                       [](QChar c) {
                           const char16_t u = c.unicode();
                           return (u < 0x20 && u != '\t' && u != '\n' && u != '\r') || u == 0xFFFE ||
                                  u == 0xFFFF;
                       }) ||
           !QStringView(value).isValidUtf16();  // a lone surrogate has no UTF-8 form
}

// Builds ADO's layout: single quotes, tab indentation, long attribute lists
// broken over lines. QXmlStreamWriter cannot be used here: it always writes
// double quotes and its own line breaks, and the file must match ADO's bytes.
class LayoutWriter {
public:
    void line(const QString& text)
    {
        m_out += text;
        m_out += QLatin1Char('\n');
        m_lineStart = m_out.size();
    }
    void open(const QString& indentAndTag)
    {
        m_out += indentAndTag;
        m_first = true;
    }
    void attr(const QString& name, const QString& escapedValue, const QString& continuation)
    {
        if (!m_first && m_out.size() - m_lineStart >= kWrapColumn) {
            m_out += QLatin1Char('\n');
            m_lineStart = m_out.size();
            m_out += continuation;
        } else {
            m_out += QLatin1Char(' ');
        }
        m_first = false;
        m_out += name;
        m_out += QLatin1String("='");
        m_out += escapedValue;
        m_out += QLatin1Char('\'');
    }
    void close(const QString& end) { line(end); }
    QByteArray bytes() const { return m_out.toUtf8(); }

private:
    QString m_out;
    qsizetype m_lineStart = 0;
    bool m_first = true;
};

bool isXmlName(const QString& name)
{
    if (name.isEmpty()) return false;
    const QChar first = name.front();
    if (!first.isLetter() && first != QLatin1Char('_')) return false;
    for (QChar c : name) {
        if (!c.isLetterOrNumber() && c != QLatin1Char('_') && c != QLatin1Char('-') &&
            c != QLatin1Char('.') && c.category() != QChar::Mark_NonSpacing &&
            c.category() != QChar::Mark_SpacingCombining)
            return false;
    }
    // Names starting with "xml" are reserved.
    return !name.startsWith(QLatin1String("xml"), Qt::CaseInsensitive);
}

QString boolText(bool b)
{
    return b ? QStringLiteral("true") : QStringLiteral("false");
}

[[noreturn]] void failWrite(const QString& problem)
{
    throw AdoError(kErrProviderGeneric, kSource,
                   QStringLiteral("Cannot save the recordset as XML: ") + problem);
}

// The attribute names rows use: the column's own name where it is a valid,
// unique XML name, else "c" + its zero-based position, as ADO does (the real
// name then goes into rs:name).
std::vector<QString> rowAttributeNames(const RowsetData& data)
{
    std::vector<QString> names;
    QHash<QString, int> used;
    for (size_t i = 0; i < data.columns.size(); ++i) {
        const QString& n = data.columns[i].name;
        QString xmlName = n;
        if (!isXmlName(n) || used.contains(n)) xmlName = QStringLiteral("c%1").arg(i);
        used.insert(xmlName, static_cast<int>(i));
        names.push_back(xmlName);
    }
    return names;
}

void writeColumn(LayoutWriter& w, const RowsetColumn& c, const XmlType& t, int number, const QString& xmlName)
{
    const QString cont = QStringLiteral("\t\t\t ");
    w.open(QStringLiteral("\t\t<s:AttributeType"));
    w.attr(QStringLiteral("name"), escapeAttribute(xmlName), cont);
    if (xmlName != c.name) w.attr(QStringLiteral("rs:name"), escapeAttribute(c.name), cont);
    w.attr(QStringLiteral("rs:number"), QString::number(number), cont);
    if (c.nullable) w.attr(QStringLiteral("rs:nullable"), boolText(true), cont);
    if (c.mayDefer) w.attr(QStringLiteral("rs:maydefer"), boolText(true), cont);
    if (c.writable) w.attr(QStringLiteral("rs:writeunknown"), boolText(true), cont);
    if (!c.baseTable.isEmpty()) w.attr(QStringLiteral("rs:basetable"), escapeAttribute(c.baseTable), cont);
    if (!c.baseColumn.isEmpty()) w.attr(QStringLiteral("rs:basecolumn"), escapeAttribute(c.baseColumn), cont);
    if (c.keyColumn) w.attr(QStringLiteral("rs:keycolumn"), boolText(true), cont);
    if (c.autoIncrement) w.attr(QStringLiteral("rs:autoincrement"), boolText(true), cont);
    w.line(QStringLiteral(">"));

    const bool isLong = t.isLong || c.isLong;
    int maxLength = t.fixedSize;
    if (maxLength == 0) {
        maxLength = c.definedSize;
        if (maxLength <= 0) {
            if (isLong)
                maxLength = t.kind == ValueKind::Binary ? kLongBinarySize : kLongTextSize;
            else
                maxLength = kDefaultTextSize;
        }
    }
    int precision = t.precision;
    int scale = t.scale;
    if (t.adoType == adNumeric) {
        precision = c.precision > 0 ? c.precision : kDefaultNumericPrecision;
        scale = c.scale;
    }

    w.open(QStringLiteral("\t\t\t<s:datatype"));
    w.attr(QStringLiteral("dt:type"), QLatin1String(t.dtType), cont);
    if (*t.dbType) w.attr(QStringLiteral("rs:dbtype"), QLatin1String(t.dbType), cont);
    w.attr(QStringLiteral("dt:maxLength"), QString::number(maxLength), cont);
    if (scale >= 0) w.attr(QStringLiteral("rs:scale"), QString::number(scale), cont);
    if (precision > 0) w.attr(QStringLiteral("rs:precision"), QString::number(precision), cont);
    if (isLong) w.attr(QStringLiteral("rs:long"), boolText(true), cont);
    if (t.fixedLength) w.attr(QStringLiteral("rs:fixedlength"), boolText(true), cont);
    if (!c.mayBeNull) w.attr(QStringLiteral("rs:maybenull"), boolText(false), cont);
    w.line(QStringLiteral("/>"));
    w.line(QStringLiteral("\t\t</s:AttributeType>"));
}

// ---------------------------------------------------------------- reader

struct ColumnDecl {
    RowsetColumn column;
    QString xmlName;
    const XmlType* type = nullptr;
    int number = 0;
    qint64 line = 0;
};

class Reader {
public:
    Reader(const QByteArray& xml, QString origin) : m_xml(xml), m_origin(std::move(origin)) {}

    RowsetData run()
    {
        if (!nextStartElement()) fail(QStringLiteral("the file holds no XML element"));
        if (m_xml.name() != QLatin1String("xml") || !m_xml.namespaceUri().isEmpty())
            fail(QStringLiteral("the root element is <%1>, not <xml>: this is not a saved recordset")
                     .arg(m_xml.qualifiedName()));
        readRoot();
        // Anything after the root must still be well-formed.
        while (!m_xml.atEnd()) m_xml.readNext();
        checkXmlError();
        if (!m_schemaSeen) fail(QStringLiteral("the file has no rowset schema (s:Schema)"));
        return std::move(m_data);
    }

private:
    [[noreturn]] void fail(const QString& problem, qint64 line = -1) const
    {
        if (line < 0) line = m_xml.lineNumber();
        QString where = m_origin.isEmpty() ? QStringLiteral("Rowset XML") : m_origin;
        throw AdoError(kErrProviderGeneric, kSource,
                       QStringLiteral("%1, line %2: %3").arg(where, QString::number(line), problem));
    }

    void checkXmlError() const
    {
        if (!m_xml.hasError()) return;
        if (m_xml.error() == QXmlStreamReader::PrematureEndOfDocumentError)
            fail(QStringLiteral("the file ends early (truncated): %1").arg(m_xml.errorString()));
        fail(QStringLiteral("not well-formed XML: %1").arg(m_xml.errorString()));
    }

    // Moves to the next start element at any depth; false at the end.
    bool nextStartElement()
    {
        while (!m_xml.atEnd()) {
            if (m_xml.readNext() == QXmlStreamReader::StartElement) return true;
        }
        checkXmlError();
        return false;
    }

    // Moves to the next child start element of the current element; false at its end.
    bool nextChild()
    {
        while (!m_xml.atEnd()) {
            const auto token = m_xml.readNext();
            if (token == QXmlStreamReader::StartElement) return true;
            if (token == QXmlStreamReader::EndElement) return false;
        }
        checkXmlError();
        fail(QStringLiteral("the file ends early (truncated)"));
    }

    void skip()
    {
        m_xml.skipCurrentElement();
        checkXmlError();
    }

    bool is(const QString& ns, QLatin1String local) const
    {
        return m_xml.name() == local && m_xml.namespaceUri().compare(ns, Qt::CaseInsensitive) == 0;
    }

    void readRoot()
    {
        while (nextChild()) {
            if (is(kNsSchema, QLatin1String("Schema"))) {
                if (m_schemaSeen) fail(QStringLiteral("the file has a second schema"));
                readSchema();
            } else if (is(kNsRowset, QLatin1String("data"))) {
                if (!m_schemaSeen) fail(QStringLiteral("the data come before any rowset schema (s:Schema)"));
                readData(DataMode::Rows);
            } else {
                skip();
            }
        }
    }

    void readSchema()
    {
        m_schemaSeen = true;
        std::vector<ColumnDecl> decls;
        bool rowTypeSeen = false;
        while (nextChild()) {
            if (is(kNsSchema, QLatin1String("ElementType")) && !rowTypeSeen) {
                rowTypeSeen = true;
                while (nextChild()) {
                    if (is(kNsSchema, QLatin1String("AttributeType")))
                        decls.push_back(readColumn(decls.size()));
                    else
                        skip();
                }
            } else {
                skip();
            }
        }
        if (!rowTypeSeen) fail(QStringLiteral("the schema declares no row type (s:ElementType)"));
        std::stable_sort(decls.begin(), decls.end(),
                         [](const ColumnDecl& a, const ColumnDecl& b) { return a.number < b.number; });
        for (size_t i = 0; i < decls.size(); ++i) {
            if (m_attrToColumn.contains(decls[i].xmlName))
                fail(QStringLiteral("two columns are declared with the name '%1'").arg(decls[i].xmlName),
                     decls[i].line);
            m_attrToColumn.insert(decls[i].xmlName, static_cast<int>(i));
            m_data.columns.push_back(decls[i].column);
            m_types.push_back(decls[i].type);
        }
    }

    // Reads the attributes that ADO puts on s:AttributeType and s:datatype; XML-Data
    // also allows the datatype attributes on the AttributeType itself.
    struct TypeAttrs {
        QString dtType, dbType;
        QString maxLength, precision, scale;
        bool isLong = false, fixedLength = false, mayBeNull = true;
    };

    void readTypeAttrs(TypeAttrs& ta)
    {
        for (const QXmlStreamAttribute& a : m_xml.attributes()) {
            const QStringView ns = a.namespaceUri();
            const QStringView n = a.name();
            const QString v = a.value().toString();
            if (ns.compare(kNsDataType, Qt::CaseInsensitive) == 0) {
                if (n == QLatin1String("type"))
                    ta.dtType = v.trimmed();
                else if (n == QLatin1String("maxLength"))
                    ta.maxLength = v;
            } else if (ns.compare(kNsRowset, Qt::CaseInsensitive) == 0) {
                if (n == QLatin1String("dbtype"))
                    ta.dbType = v.trimmed();
                else if (n == QLatin1String("long"))
                    ta.isLong = flag(v);
                else if (n == QLatin1String("fixedlength"))
                    ta.fixedLength = flag(v);
                else if (n == QLatin1String("maybenull"))
                    ta.mayBeNull = flag(v);
                else if (n == QLatin1String("precision"))
                    ta.precision = v;
                else if (n == QLatin1String("scale"))
                    ta.scale = v;
            }
        }
    }

    static bool flag(const QString& v)
    {
        bool ok = false;
        const bool b = parseBool(v, &ok);
        return ok && b;
    }

    int number(const QString& text, const QString& what, const QString& column)
    {
        bool ok = false;
        const int n = text.trimmed().toInt(&ok);
        if (!ok || n < 0)
            fail(QStringLiteral("%1 '%2' of column '%3' is not a number").arg(what, text, column));
        return n;
    }

    ColumnDecl readColumn(size_t position)
    {
        ColumnDecl d;
        d.line = m_xml.lineNumber();
        d.number = static_cast<int>(position) + 1;
        RowsetColumn& c = d.column;
        c.nullable = false;
        c.writable = false;
        QString numberText;
        for (const QXmlStreamAttribute& a : m_xml.attributes()) {
            const QStringView ns = a.namespaceUri();
            const QStringView n = a.name();
            const QString v = a.value().toString();
            if (ns.isEmpty() && n == QLatin1String("name")) {
                d.xmlName = v;
            } else if (ns.compare(kNsRowset, Qt::CaseInsensitive) == 0) {
                if (n == QLatin1String("name"))
                    c.name = v;
                else if (n == QLatin1String("number"))
                    numberText = v;
                else if (n == QLatin1String("nullable"))
                    c.nullable = flag(v);
                else if (n == QLatin1String("maydefer"))
                    c.mayDefer = flag(v);
                else if (n == QLatin1String("write") || n == QLatin1String("writeunknown"))
                    c.writable = c.writable || flag(v);
                else if (n == QLatin1String("basetable"))
                    c.baseTable = v;
                else if (n == QLatin1String("basecolumn"))
                    c.baseColumn = v;
                else if (n == QLatin1String("keycolumn"))
                    c.keyColumn = flag(v);
                else if (n == QLatin1String("autoincrement"))
                    c.autoIncrement = flag(v);
            }
        }
        if (d.xmlName.isEmpty()) fail(QStringLiteral("a column of the schema has no name"));
        if (c.name.isEmpty()) c.name = d.xmlName;
        if (!numberText.isEmpty()) d.number = number(numberText, QStringLiteral("rs:number"), c.name);

        TypeAttrs ta;
        readTypeAttrs(ta);
        while (nextChild()) {
            if (is(kNsSchema, QLatin1String("datatype"))) readTypeAttrs(ta);
            skip();
        }
        if (ta.dtType.isEmpty()) ta.dtType = QStringLiteral("string");  // the XML-Data default
        d.type = typeByXml(ta.dtType, ta.dbType, ta.fixedLength, ta.isLong);
        if (!d.type)
            fail(QStringLiteral("column '%1' has the unknown data type '%2'").arg(c.name, ta.dtType), d.line);

        c.type = d.type->adoType;
        c.isLong = ta.isLong;
        c.mayBeNull = ta.mayBeNull;
        if (!ta.maxLength.isEmpty()) {
            const int size = number(ta.maxLength, QStringLiteral("dt:maxLength"), c.name);
            c.definedSize = size;
        }
        if (c.type == adNumeric) {
            if (!ta.precision.isEmpty())
                c.precision = number(ta.precision, QStringLiteral("rs:precision"), c.name);
            if (!ta.scale.isEmpty()) c.scale = number(ta.scale, QStringLiteral("rs:scale"), c.name);
        }
        return d;
    }

    // Pending changes: rows inside rs:insert are rows; rs:update holds the
    // original row in rs:original followed by the changed values; rows
    // inside rs:delete are gone.
    enum class DataMode { Rows, Skip };

    // The change elements are only ever one level deep; deeper ones are
    // skipped so that a hostile file cannot drive the recursion.
    void readData(DataMode mode, bool nested = false)
    {
        while (nextChild()) {
            if (is(kNsRow, QLatin1String("row"))) {
                std::vector<QVariant> row(m_data.columns.size());
                readRow(row);
                if (mode == DataMode::Rows) m_data.rows.push_back(std::move(row));
            } else if (nested) {
                skip();
            } else if (is(kNsRowset, QLatin1String("insert"))) {
                readData(mode, true);
            } else if (is(kNsRowset, QLatin1String("delete"))) {
                readData(DataMode::Skip, true);
            } else if (is(kNsRowset, QLatin1String("update"))) {
                readUpdate(mode);
            } else {
                skip();
            }
        }
    }

    void readUpdate(DataMode mode)
    {
        std::vector<QVariant> row(m_data.columns.size());
        bool any = false;
        while (nextChild()) {
            if (is(kNsRowset, QLatin1String("original"))) {
                while (nextChild()) {
                    if (is(kNsRow, QLatin1String("row"))) {
                        readRow(row);
                        any = true;
                    } else {
                        skip();
                    }
                }
            } else if (is(kNsRow, QLatin1String("row"))) {
                readRow(row);
                any = true;
            } else {
                skip();
            }
        }
        if (any && mode == DataMode::Rows) m_data.rows.push_back(std::move(row));
    }

    void readRow(std::vector<QVariant>& row)
    {
        const qint64 line = m_xml.lineNumber();
        for (const QXmlStreamAttribute& a : m_xml.attributes()) {
            if (!a.namespaceUri().isEmpty()) continue;  // rs:forcenull and the like
            const QString name = a.name().toString();
            const auto it = m_attrToColumn.constFind(name);
            if (it == m_attrToColumn.constEnd())
                fail(QStringLiteral("the row value '%1' belongs to no column of the schema").arg(name), line);
            const int col = *it;
            const XmlType& t = *m_types[col];
            const QString text = a.value().toString();
            QVariant v = parseValue(t, text);
            if (!v.isValid()) {
                QString shown = text.size() > 40 ? text.left(40) + QStringLiteral("...") : text;
                fail(QStringLiteral("the value '%1' of column '%2' is not a valid %3")
                         .arg(shown, m_data.columns[col].name, QLatin1String(t.dtType)),
                     line);
            }
            row[col] = std::move(v);
        }
        skip();
    }

    QXmlStreamReader m_xml;
    QString m_origin;
    RowsetData m_data;
    std::vector<const XmlType*> m_types;
    QHash<QString, int> m_attrToColumn;
    bool m_schemaSeen = false;
};

}  // namespace

RowsetData RowsetXml::Read(const QByteArray& xml)
{
    if (xml.trimmed().isEmpty())
        throw AdoError(kErrProviderGeneric, kSource,
                       QStringLiteral("Rowset XML, line 1: the data are empty"));
    return Reader(xml, QString()).run();
}

RowsetData RowsetXml::ReadFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw AdoError(kErrProviderGeneric, kSource,
                       QStringLiteral("Cannot open the file '%1': %2").arg(path, file.errorString()));
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw AdoError(kErrProviderGeneric, kSource,
                       QStringLiteral("Cannot read the file '%1': %2").arg(path, file.errorString()));
    if (bytes.trimmed().isEmpty())
        throw AdoError(kErrProviderGeneric, kSource,
                       QStringLiteral("%1, line 1: the file is empty").arg(path));
    return Reader(bytes, path).run();
}

QByteArray RowsetXml::Write(const RowsetData& data)
{
    std::vector<const XmlType*> types;
    for (const RowsetColumn& c : data.columns) {
        const XmlType* t = typeByAdo(c.type);
        if (!t)
            failWrite(QStringLiteral("column '%1' has the data type %2, which has no XML form")
                          .arg(c.name, QString::number(c.type)));
        if (hasForbiddenChar(c.name))
            failWrite(QStringLiteral("column name '%1' holds a control character").arg(c.name));
        types.push_back(t);
    }
    const std::vector<QString> xmlNames = rowAttributeNames(data);
    const bool updatable = std::any_of(data.columns.begin(), data.columns.end(), [](const RowsetColumn& c) {
        return c.writable && !c.baseTable.isEmpty();
    });

    LayoutWriter w;
    w.line(QStringLiteral("<xml xmlns:s='%1'").arg(kNsSchema));
    w.line(QStringLiteral("\txmlns:dt='%1'").arg(kNsDataType));
    w.line(QStringLiteral("\txmlns:rs='%1'").arg(kNsRowset));
    w.line(QStringLiteral("\txmlns:z='%1'>").arg(kNsRow));
    w.line(QStringLiteral("<s:Schema id='RowsetSchema'>"));
    w.line(QStringLiteral("\t<s:ElementType name='row' content='eltOnly'%1>")
               .arg(updatable ? QStringLiteral(" rs:updatable='true'") : QString()));
    for (size_t i = 0; i < data.columns.size(); ++i)
        writeColumn(w, data.columns[i], *types[i], static_cast<int>(i) + 1, xmlNames[i]);
    w.line(QStringLiteral("\t\t<s:extends type='rs:rowbase'/>"));
    w.line(QStringLiteral("\t</s:ElementType>"));
    w.line(QStringLiteral("</s:Schema>"));
    w.line(QStringLiteral("<rs:data>"));
    const QString cont = QStringLiteral("\t\t ");
    for (size_t r = 0; r < data.rows.size(); ++r) {
        const auto& row = data.rows[r];
        if (row.size() != data.columns.size())
            failWrite(QStringLiteral("row %1 has %2 values for %3 columns")
                          .arg(r + 1)
                          .arg(row.size())
                          .arg(data.columns.size()));
        w.open(QStringLiteral("\t<z:row"));
        for (size_t c = 0; c < row.size(); ++c) {
            if (!row[c].isValid() || row[c].isNull()) continue;  // a null is an absent attribute
            const std::optional<QString> text = formatValue(*types[c], row[c]);
            if (!text || hasForbiddenChar(*text))
                failWrite(QStringLiteral("row %1: the value '%2' does not fit column '%3' (%4)")
                              .arg(r + 1)
                              .arg(row[c].toString().left(40), data.columns[c].name,
                                   QLatin1String(types[c]->dtType)));
            w.attr(xmlNames[c], escapeAttribute(*text), cont);
        }
        w.line(QStringLiteral("/>"));
    }
    w.line(QStringLiteral("</rs:data>"));
    QByteArray out = w.bytes();
    out.append("</xml>");
    return out;
}

void RowsetXml::WriteFile(const RowsetData& data, const QString& path)
{
    const QByteArray bytes = Write(data);  // a bad value fails before the file is touched
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw AdoError(kErrProviderGeneric, kSource,
                       QStringLiteral("Cannot create the file '%1': %2").arg(path, file.errorString()));
    if (file.write(bytes) != bytes.size() || !file.commit())
        throw AdoError(kErrProviderGeneric, kSource,
                       QStringLiteral("Cannot write the file '%1': %2").arg(path, file.errorString()));
}

}  // namespace mv::ado
