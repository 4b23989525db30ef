#include "JetSql.h"

#include "AdoConstants.h"
#include "AdoError.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QStringList>

#include <vector>

namespace mv::ado {

namespace {

struct Token {
    enum Type { Space, Word, Name, String, Number, Date, Param, Punct };
    Type type;
    QString raw;    // as written
    QString value;  // Name: the bare name; String: the text; Date: between the #s
};

[[noreturn]] void Fail(const QString& text)
{
    throw AdoError(kErrSyntax, kProviderSource, text);
}

bool IsWordStart(QChar c) { return c.isLetter() || c == QLatin1Char('_'); }
bool IsWordChar(QChar c) { return c.isLetterOrNumber() || c == QLatin1Char('_') || c == QLatin1Char('$'); }

// `jet`: double quotes delimit text and #...# delimits dates, as in Jet;
// otherwise double quotes delimit names, as in the SQL SQLite stores.
std::vector<Token> Tokenize(const QString& s, bool jet)
{
    std::vector<Token> out;
    const qsizetype n = s.size();
    qsizetype i = 0;
    auto closing = [&](QChar close, bool doubled, const char* what) {
        QString value;
        qsizetype j = i + 1;
        for (;; ++j) {
            if (j >= n) Fail(QStringLiteral("Unterminated %1 in \"%2\"").arg(QLatin1String(what), s));
            if (s[j] == close) {
                if (doubled && j + 1 < n && s[j + 1] == close) { value += close; ++j; continue; }
                break;
            }
            value += s[j];
        }
        QString raw = s.mid(i, j + 1 - i);
        i = j + 1;
        return std::pair{raw, value};
    };
    while (i < n) {
        const QChar c = s[i];
        if (c.isSpace()) {
            qsizetype j = i;
            while (j < n && s[j].isSpace()) ++j;
            out.push_back({Token::Space, s.mid(i, j - i), {}});
            i = j;
        } else if (c == QLatin1Char('[')) {
            auto [raw, value] = closing(QLatin1Char(']'), false, "bracketed name");
            out.push_back({Token::Name, raw, value});
        } else if (c == QLatin1Char('`')) {
            auto [raw, value] = closing(QLatin1Char('`'), true, "quoted name");
            out.push_back({Token::Name, raw, value});
        } else if (c == QLatin1Char('"')) {
            auto [raw, value] = closing(QLatin1Char('"'), true, "quoted text");
            out.push_back({jet ? Token::String : Token::Name, raw, value});
        } else if (c == QLatin1Char('\'')) {
            auto [raw, value] = closing(QLatin1Char('\''), true, "text literal");
            out.push_back({Token::String, raw, value});
        } else if (jet && c == QLatin1Char('#')) {
            auto [raw, value] = closing(QLatin1Char('#'), false, "date literal");
            out.push_back({Token::Date, raw, value.trimmed()});
        } else if (c.isDigit() || (c == QLatin1Char('.') && i + 1 < n && s[i + 1].isDigit())) {
            qsizetype j = i;
            while (j < n && (s[j].isLetterOrNumber() || s[j] == QLatin1Char('.') ||
                             ((s[j] == QLatin1Char('+') || s[j] == QLatin1Char('-')) &&
                              (s[j - 1] == QLatin1Char('e') || s[j - 1] == QLatin1Char('E')))))
                ++j;
            out.push_back({Token::Number, s.mid(i, j - i), {}});
            i = j;
        } else if (IsWordStart(c)) {
            qsizetype j = i;
            while (j < n && IsWordChar(s[j])) ++j;
            out.push_back({Token::Word, s.mid(i, j - i), s.mid(i, j - i)});
            i = j;
        } else if (c == QLatin1Char('?')) {
            out.push_back({Token::Param, QStringLiteral("?"), {}});
            ++i;
        } else {
            static const QStringList pairs = {QStringLiteral("<="), QStringLiteral(">="), QStringLiteral("<>"),
                                              QStringLiteral("!="), QStringLiteral("||")};
            QString two = s.mid(i, 2);
            if (pairs.contains(two)) {
                out.push_back({Token::Punct, two, {}});
                i += 2;
            } else {
                out.push_back({Token::Punct, QString(c), {}});
                ++i;
            }
        }
    }
    return out;
}

QString SqlText(const QString& text)
{
    QString t = text;
    t.replace(QLatin1Char('\''), QStringLiteral("''"));
    return QLatin1Char('\'') + t + QLatin1Char('\'');
}

QString DateLiteral(const QString& inner)
{
    static const char* formats[] = {"yyyy-MM-dd HH:mm:ss", "yyyy-MM-ddTHH:mm:ss", "yyyy-MM-dd HH:mm",
                                    "yyyy-MM-dd",          "M/d/yyyy H:mm:ss",    "M/d/yyyy h:mm:ss AP",
                                    "M/d/yyyy H:mm",       "M/d/yyyy h:mm AP",    "M/d/yyyy"};
    for (const char* f : formats) {
        const QDateTime dt = QDateTime::fromString(inner, QLatin1String(f));
        if (dt.isValid()) return SqlText(dt.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")));
    }
    Fail(QStringLiteral("Syntax error in date #%1#").arg(inner));
}

QString QuoteName(const QString& name)
{
    QString q = name;
    q.replace(QLatin1Char('"'), QStringLiteral("\"\""));
    return QLatin1Char('"') + q + QLatin1Char('"');
}

QString RenderJet(const Token& t)
{
    switch (t.type) {
    case Token::Name: return QuoteName(t.value);
    case Token::String: return SqlText(t.value);
    case Token::Date: return DateLiteral(t.value);
    case Token::Word:
        if (t.value.compare(QLatin1String("TRUE"), Qt::CaseInsensitive) == 0) return QStringLiteral("-1");
        if (t.value.compare(QLatin1String("FALSE"), Qt::CaseInsensitive) == 0) return QStringLiteral("0");
        return t.raw;
    default: return t.raw;
    }
}

QString RenderJet(const std::vector<Token>& toks, size_t from, size_t to)
{
    QString out;
    for (size_t i = from; i < to && i < toks.size(); ++i) out += RenderJet(toks[i]);
    return out;
}

bool IsWord(const Token& t, const char* word)
{
    return t.type == Token::Word && t.value.compare(QLatin1String(word), Qt::CaseInsensitive) == 0;
}
bool IsPunct(const Token& t, const char* p) { return t.type == Token::Punct && t.raw == QLatin1String(p); }

// Where a column definition's constraints begin.
bool StartsConstraint(const Token& t)
{
    static const char* words[] = {"CONSTRAINT", "PRIMARY", "NOT",        "NULL",      "UNIQUE", "CHECK",
                                  "DEFAULT",    "COLLATE", "REFERENCES", "GENERATED", "AS",     "WITH"};
    for (const char* w : words)
        if (IsWord(t, w)) return true;
    return false;
}

bool StartsTableConstraint(const Token& t)
{
    return IsWord(t, "CONSTRAINT") || IsWord(t, "PRIMARY") || IsWord(t, "UNIQUE") || IsWord(t, "FOREIGN") ||
           IsWord(t, "CHECK");
}

const QString kCounter = QStringLiteral("INTEGER PRIMARY KEY AUTOINCREMENT");

// Indices of the significant (non-blank) tokens in [from, to).
std::vector<size_t> Significant(const std::vector<Token>& toks, size_t from, size_t to)
{
    std::vector<size_t> sig;
    for (size_t i = from; i < to; ++i)
        if (toks[i].type != Token::Space) sig.push_back(i);
    return sig;
}

QString NameOf(const Token& t)
{
    if (t.type == Token::Name || t.type == Token::Word) return t.value;
    Fail(QStringLiteral("Expected a name but found '%1'").arg(t.raw));
}

// Splits [from, to) at top-level commas.
std::vector<std::pair<size_t, size_t>> SplitTopLevel(const std::vector<Token>& toks, size_t from, size_t to)
{
    std::vector<std::pair<size_t, size_t>> parts;
    int depth = 0;
    size_t start = from;
    for (size_t i = from; i < to; ++i) {
        if (IsPunct(toks[i], "(")) ++depth;
        else if (IsPunct(toks[i], ")")) --depth;
        else if (depth == 0 && IsPunct(toks[i], ",")) {
            parts.emplace_back(start, i);
            start = i + 1;
        }
    }
    parts.emplace_back(start, to);
    return parts;
}

size_t MatchingParen(const std::vector<Token>& toks, size_t open)
{
    int depth = 0;
    for (size_t i = open; i < toks.size(); ++i) {
        if (IsPunct(toks[i], "(")) ++depth;
        else if (IsPunct(toks[i], ")") && --depth == 0) return i;
    }
    Fail(QStringLiteral("Unbalanced parentheses"));
}

struct ColumnDef {
    QString sql;
    QString name;
    bool counter = false;
};

// "name type [constraints]" in Jet -> SQLite.
ColumnDef TranslateColumnDef(const std::vector<Token>& toks, size_t from, size_t to)
{
    const auto sig = Significant(toks, from, to);
    if (sig.empty()) Fail(QStringLiteral("Syntax error in field definition"));
    ColumnDef def;
    def.name = NameOf(toks[sig[0]]);
    size_t k = 1;
    QString type;
    for (; k < sig.size() && !StartsConstraint(toks[sig[k]]); ++k) {
        const Token& t = toks[sig[k]];
        if (!type.isEmpty() && t.type == Token::Word && type.back().isLetterOrNumber()) type += QLatin1Char(' ');
        type += t.raw;
    }
    if (type.isEmpty()) Fail(QStringLiteral("Syntax error in field definition of '%1': no type").arg(def.name));
    const QString mapped = JetSql::SqliteType(type);
    def.counter = mapped == kCounter;
    // The constraints as written, less what SQLite cannot take.
    std::vector<bool> drop(to, false);
    for (size_t j = k; j + 1 < sig.size(); ++j) {
        const Token& t = toks[sig[j]];
        const Token& next = toks[sig[j + 1]];
        // Jet's storage hint means nothing to SQLite; the counter type already is the key.
        if ((IsWord(t, "WITH") && (IsWord(next, "COMPRESSION") || IsWord(next, "COMP"))) ||
            (def.counter && IsWord(t, "PRIMARY") && IsWord(next, "KEY"))) {
            for (size_t i = sig[j]; i <= sig[j + 1]; ++i) drop[i] = true;
            ++j;
        }
    }
    QString rest;
    for (size_t i = k < sig.size() ? sig[k] : to; i < to; ++i)
        if (!drop[i]) rest += RenderJet(toks[i]);
    rest = rest.trimmed();  // not simplified(): a quoted default keeps its blanks
    if (!rest.isEmpty()) rest.prepend(QLatin1Char(' '));
    // Jet compares and sorts text without regard to case.
    if ((mapped.startsWith(QLatin1String("VARCHAR")) || mapped == QLatin1String("LONGTEXT")) &&
        !rest.contains(QLatin1String("COLLATE"), Qt::CaseInsensitive))
        rest += QStringLiteral(" COLLATE NOCASE");
    def.sql = QuoteName(def.name) + QLatin1Char(' ') + mapped + rest;
    return def;
}

QString TranslateCreateTable(const std::vector<Token>& toks, const std::vector<size_t>& sig)
{
    // CREATE TABLE name ( defs ) rest
    if (sig.size() < 5 || !IsPunct(toks[sig[3]], "(")) Fail(QStringLiteral("Syntax error in CREATE TABLE statement"));
    const size_t open = sig[3];
    const size_t close = MatchingParen(toks, open);
    std::vector<ColumnDef> columns;
    std::vector<std::pair<size_t, size_t>> constraints;
    for (auto [a, b] : SplitTopLevel(toks, open + 1, close)) {
        const auto s = Significant(toks, a, b);
        if (s.empty()) Fail(QStringLiteral("Syntax error in CREATE TABLE statement"));
        if (StartsTableConstraint(toks[s[0]])) constraints.emplace_back(a, b);
        else columns.push_back(TranslateColumnDef(toks, a, b));
    }
    QStringList parts;
    QString counter;
    for (const auto& c : columns) {
        parts << c.sql;
        if (c.counter) counter = c.name;
    }
    for (auto [a, b] : constraints) {
        const auto s = Significant(toks, a, b);
        // "CONSTRAINT pk PRIMARY KEY (id)" on the counter column repeats what
        // the counter type already says; SQLite would refuse a second key.
        if (!counter.isEmpty()) {
            size_t p = IsWord(toks[s[0]], "CONSTRAINT") ? 2 : 0;
            if (s.size() == p + 5 && IsWord(toks[s[p]], "PRIMARY") && IsWord(toks[s[p + 1]], "KEY") &&
                IsPunct(toks[s[p + 2]], "(") && NameOf(toks[s[p + 3]]).compare(counter, Qt::CaseInsensitive) == 0)
                continue;
        }
        parts << RenderJet(toks, a, b).trimmed();
    }
    return QStringLiteral("CREATE TABLE ") + QuoteName(NameOf(toks[sig[2]])) + QStringLiteral(" (") +
           parts.join(QStringLiteral(", ")) + QLatin1Char(')') + RenderJet(toks, close + 1, toks.size());
}

struct TypeRule {
    const char* names[10];  // unused slots are null
    const char* sqlite;  // "%1" takes the size
    bool sized;
};

QString NormalizeType(const QString& type, QString* args)
{
    QString t = type.simplified().toUpper();
    t.replace(QStringLiteral(" ("), QStringLiteral("("));
    t.replace(QStringLiteral("( "), QStringLiteral("("));
    t.replace(QStringLiteral(" )"), QStringLiteral(")"));
    const qsizetype open = t.indexOf(QLatin1Char('('));
    if (open < 0) {
        if (args) args->clear();
        return t;
    }
    if (!t.endsWith(QLatin1Char(')'))) Fail(QStringLiteral("Syntax error in field type '%1'").arg(type));
    if (args) *args = t.mid(open + 1, t.size() - open - 2).remove(QLatin1Char(' '));
    return t.left(open).trimmed();
}

}  // namespace

QString JetSql::SqliteType(const QString& jetType)
{
    static const TypeRule rules[] = {
        {{"TEXT", "VARCHAR", "NVARCHAR", "CHAR", "NCHAR", "CHARACTER", "CHARACTER VARYING", "STRING", "ALPHANUMERIC"},
         "VARCHAR(%1)", true},
        {{"MEMO", "LONGTEXT", "LONGCHAR", "NOTE", "NTEXT", "CLOB"}, "LONGTEXT", false},
        {{"INTEGER", "SHORT", "SMALLINT", "INTEGER2", "INT2"}, "SMALLINT", false},
        {{"LONG", "INT", "INTEGER4", "INT4"}, "INTEGER", false},
        {{"BYTE", "TINYINT", "INTEGER1"}, "TINYINT", false},
        {{"YESNO", "BIT", "BOOLEAN", "LOGICAL", "LOGICAL1"}, "BOOLEAN", false},
        {{"COUNTER", "AUTOINCREMENT", "AUTONUMBER", "IDENTITY"}, "INTEGER PRIMARY KEY AUTOINCREMENT", false},
        {{"DATETIME", "DATE", "TIME", "TIMESTAMP"}, "DATETIME", false},
        {{"DOUBLE", "DOUBLE PRECISION", "FLOAT", "FLOAT8", "NUMBER", "IEEEDOUBLE"}, "DOUBLE", false},
        {{"SINGLE", "REAL", "FLOAT4", "IEEESINGLE"}, "REAL", false},
        {{"CURRENCY", "MONEY"}, "CURRENCY", false},
        {{"BINARY", "VARBINARY", "LONGBINARY", "OLEOBJECT", "GENERAL", "IMAGE", "BLOB"}, "BLOB", false},
        {{"GUID", "UNIQUEIDENTIFIER"}, "GUID", false},
    };
    QString args;
    const QString base = NormalizeType(jetType, &args);
    for (const auto& rule : rules) {
        for (const char* name : rule.names) {
            if (!name || base != QLatin1String(name)) continue;
            if (!rule.sized) return QLatin1String(rule.sqlite);
            int size = 255;
            if (!args.isEmpty()) {
                bool ok = false;
                size = args.toInt(&ok);
                if (!ok || size <= 0) Fail(QStringLiteral("Syntax error in field size of '%1'").arg(jetType));
            }
            return QString::fromLatin1(rule.sqlite).arg(size);
        }
    }
    if (base == QLatin1String("DECIMAL") || base == QLatin1String("NUMERIC"))
        return args.isEmpty() ? QStringLiteral("NUMERIC") : QStringLiteral("NUMERIC(%1)").arg(args);
    Fail(QStringLiteral("Syntax error in field definition: unknown type '%1'").arg(jetType.trimmed()));
}

int JetSql::AdoTypeForDeclared(const QString& declaredType)
{
    struct TypeName {
        const char* names[7];  // unused slots are null
        int type;
    };
    static const TypeName map[] = {
        {{"VARCHAR", "NVARCHAR", "CHAR", "NCHAR", "CHARACTER", "CHARACTER VARYING"}, adVarWChar},
        {{"LONGTEXT", "TEXT", "MEMO", "NTEXT", "CLOB"}, adLongVarWChar},
        {{"SMALLINT", "SHORT", "INTEGER2", "INT2"}, adSmallInt},
        {{"INTEGER", "INT", "LONG", "MEDIUMINT", "INT4"}, adInteger},
        {{"BIGINT", "INT8"}, adBigInt},
        {{"TINYINT", "BYTE"}, adUnsignedTinyInt},
        {{"BOOLEAN", "BIT", "YESNO"}, adBoolean},
        {{"DATETIME", "DATE", "TIME", "TIMESTAMP"}, adDate},
        {{"DOUBLE", "DOUBLE PRECISION", "FLOAT"}, adDouble},
        {{"REAL", "SINGLE"}, adSingle},
        {{"CURRENCY", "MONEY"}, adCurrency},
        {{"NUMERIC", "DECIMAL"}, adNumeric},
        {{"BLOB", "LONGBINARY"}, adLongVarBinary},
        {{"VARBINARY", "BINARY"}, adVarBinary},
        {{"GUID"}, adGUID},
    };
    const QString base = NormalizeType(declaredType, nullptr);
    if (base.isEmpty()) return adVariant;
    for (const auto& [names, type] : map)
        for (const char* name : names)
            if (name && base == QLatin1String(name)) return type;
    // SQLite's own affinity rules for anything else.
    if (base.contains(QLatin1String("INT"))) return adInteger;
    if (base.contains(QLatin1String("CHAR")) || base.contains(QLatin1String("CLOB")) ||
        base.contains(QLatin1String("TEXT")))
        return adLongVarWChar;
    if (base.contains(QLatin1String("BLOB"))) return adLongVarBinary;
    if (base.contains(QLatin1String("REAL")) || base.contains(QLatin1String("FLOA")) ||
        base.contains(QLatin1String("DOUB")))
        return adDouble;
    return adNumeric;
}

int JetSql::DefinedSizeForDeclared(const QString& declaredType)
{
    QString args;
    NormalizeType(declaredType, &args);
    switch (AdoTypeForDeclared(declaredType)) {
    case adVarWChar: return args.isEmpty() ? 255 : args.section(QLatin1Char(','), 0, 0).toInt();
    case adLongVarWChar: return 536870910;
    case adSmallInt: return 2;
    case adInteger: return 4;
    case adBigInt: return 8;
    case adUnsignedTinyInt: return 1;
    case adBoolean: return 2;
    case adDate: return 8;
    case adDouble: return 8;
    case adSingle: return 4;
    case adCurrency: return 8;
    case adNumeric: return 19;
    case adGUID: return 16;
    case adLongVarBinary: return 1073741823;
    case adVarBinary: return args.isEmpty() ? 510 : args.toInt();
    default: return 0;
    }
}

bool JetSql::IsLongDeclared(const QString& declaredType)
{
    const int type = AdoTypeForDeclared(declaredType);
    return type == adLongVarWChar || type == adLongVarBinary;
}

JetStatement JetSql::Translate(const QString& jet)
{
    std::vector<Token> toks = Tokenize(jet, true);
    while (!toks.empty() && (toks.back().type == Token::Space || IsPunct(toks.back(), ";"))) toks.pop_back();
    const auto sig = Significant(toks, 0, toks.size());
    JetStatement st;
    if (sig.empty()) Fail(QStringLiteral("The SQL statement is empty"));
    auto word = [&](size_t k, const char* w) { return k < sig.size() && IsWord(toks[sig[k]], w); };

    if (sig.size() == 4 && word(0, "SELECT") && IsPunct(toks[sig[1]], "@") && IsPunct(toks[sig[2]], "@") &&
        word(3, "IDENTITY")) {
        st.kind = JetStatement::Kind::Identity;
        return st;
    }
    if (word(0, "ALTER") && word(1, "TABLE") && sig.size() > 4) {
        const QString table = NameOf(toks[sig[2]]);
        if (word(3, "ALTER")) {
            size_t k = word(4, "COLUMN") ? 5 : 4;
            if (k + 1 >= sig.size()) Fail(QStringLiteral("Syntax error in ALTER TABLE statement"));
            st.kind = JetStatement::Kind::AlterColumn;
            st.table = table;
            st.column = NameOf(toks[sig[k]]);
            QString type;
            for (size_t i = sig[k + 1]; i < toks.size(); ++i) type += toks[i].raw;
            st.sqliteType = SqliteType(type);
            if (st.sqliteType == kCounter)
                Fail(QStringLiteral("Cannot change the column '%1' to an AutoNumber").arg(st.column));
            return st;
        }
        if (word(3, "ADD") && !word(4, "CONSTRAINT") && !word(4, "PRIMARY") && !word(4, "UNIQUE") &&
            !word(4, "FOREIGN")) {
            const size_t name = word(4, "COLUMN") ? 5 : 4;
            if (name + 1 >= sig.size()) Fail(QStringLiteral("Syntax error in field definition: no name or type"));
            const size_t from = sig[name];
            const ColumnDef def = TranslateColumnDef(toks, from, toks.size());
            if (def.counter) Fail(QStringLiteral("Cannot add an AutoNumber column to an existing table"));
            st.sql = QStringLiteral("ALTER TABLE ") + QuoteName(table) + QStringLiteral(" ADD COLUMN ") + def.sql;
            return st;
        }
    }
    if (word(0, "CREATE") && word(1, "TABLE")) {
        st.sql = TranslateCreateTable(toks, sig);
        return st;
    }
    st.sql = RenderJet(toks, 0, toks.size()).trimmed();
    return st;
}

QString JetSql::WithColumnType(const QString& createSql, const QString& column, const QString& sqliteType)
{
    const std::vector<Token> toks = Tokenize(createSql, false);
    size_t open = 0;
    while (open < toks.size() && !IsPunct(toks[open], "(")) ++open;
    if (open == toks.size()) Fail(QStringLiteral("Cannot read the table definition \"%1\"").arg(createSql));
    const size_t close = MatchingParen(toks, open);
    for (auto [a, b] : SplitTopLevel(toks, open + 1, close)) {
        const auto s = Significant(toks, a, b);
        if (s.empty() || StartsTableConstraint(toks[s[0]])) continue;
        if (NameOf(toks[s[0]]).compare(column, Qt::CaseInsensitive) != 0) continue;
        size_t k = 1;
        while (k < s.size() && !StartsConstraint(toks[s[k]])) ++k;
        const size_t typeEnd = k < s.size() ? s[k] : b;
        QString out;
        for (size_t i = 0; i <= s[0]; ++i) out += toks[i].raw;
        out += QLatin1Char(' ') + sqliteType + (k < s.size() ? QStringLiteral(" ") : QString());
        for (size_t i = typeEnd; i < toks.size(); ++i) out += toks[i].raw;
        return out;
    }
    throw AdoError(kErrItemNotFound, kProviderSource,
                   QStringLiteral("The column '%1' does not exist in the table").arg(column));
}

}  // namespace mv::ado
