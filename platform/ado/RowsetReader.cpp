#include "RowsetReader.h"

#include "AdoConstants.h"
#include "JetSql.h"
#include "Sqlite.h"

#include <QDateTime>

#include <limits>

namespace mv::ado {

namespace {

QVariant IntegerValue(sqlite3_int64 v)
{
    if (v >= std::numeric_limits<int>::min() && v <= std::numeric_limits<int>::max()) return QVariant(int(v));
    return QVariant(qlonglong(v));
}

QVariant DateValue(const QString& text)
{
    for (const auto* format : {"yyyy-MM-dd HH:mm:ss", "yyyy-MM-ddTHH:mm:ss", "yyyy-MM-dd HH:mm:ss.zzz", "yyyy-MM-dd"}) {
        QDateTime dt = QDateTime::fromString(text, QLatin1String(format));
        if (dt.isValid()) return dt;
    }
    return text;  // not a date we wrote: hand it over as it is rather than lose it
}

// The type of a computed column, from the values it produced.
void TypeFromValues(RowsetColumn& c, const std::vector<std::vector<QVariant>>& rows, size_t col)
{
    int type = 0;
    int longest = 0;
    for (const auto& row : rows) {
        const QVariant& v = row[col];
        if (!v.isValid()) continue;
        switch (v.typeId()) {
        case QMetaType::Int: if (type == 0) type = adInteger; break;
        case QMetaType::LongLong: if (type == 0 || type == adInteger) type = adBigInt; break;
        case QMetaType::Double: type = adDouble; break;
        case QMetaType::QByteArray: type = adLongVarBinary; break;
        default: type = adVarWChar; longest = std::max(longest, int(v.toString().size())); break;
        }
    }
    if (type == 0) type = adVarWChar;  // all null: nothing says otherwise
    if (type == adVarWChar && longest > 255) {
        type = adLongVarWChar;
        c.isLong = true;
    }
    static const std::pair<int, const char*> declaredFor[] = {{adInteger, "INTEGER"},   {adBigInt, "BIGINT"},
                                                              {adDouble, "DOUBLE"},     {adVarWChar, "VARCHAR"},
                                                              {adLongVarWChar, "LONGTEXT"}, {adLongVarBinary, "BLOB"}};
    c.type = type;
    for (const auto& [t, declared] : declaredFor)
        if (t == type) c.definedSize = JetSql::DefinedSizeForDeclared(QLatin1String(declared));
}

}  // namespace

QVariant RowsetReader::Value(sqlite3_stmt* st, int col, int adoType)
{
    switch (sqlite3_column_type(st, col)) {
    case SQLITE_NULL: return QVariant();
    case SQLITE_INTEGER: {
        const sqlite3_int64 v = sqlite3_column_int64(st, col);
        if (adoType == adBoolean) return QVariant(v != 0);
        return IntegerValue(v);
    }
    case SQLITE_FLOAT: return QVariant(sqlite3_column_double(st, col));
    case SQLITE_BLOB: {
        const auto* data = static_cast<const char*>(sqlite3_column_blob(st, col));
        return QByteArray(data, sqlite3_column_bytes(st, col));
    }
    default: {
        QString text = sqlite::ColumnText(st, col);
        if (adoType == adDate) return DateValue(text);
        return text;
    }
    }
}

RowsetColumn RowsetReader::Column(sqlite3* db, sqlite3_stmt* st, int col)
{
    RowsetColumn c;
    c.name = QString::fromUtf8(sqlite3_column_name(st, col));
    const char* decl = sqlite3_column_decltype(st, col);
    const char* table = sqlite3_column_table_name(st, col);
    const char* origin = sqlite3_column_origin_name(st, col);
    const char* dbName = sqlite3_column_database_name(st, col);
    if (decl) {
        const QString declared = QString::fromUtf8(decl);
        c.type = JetSql::AdoTypeForDeclared(declared);
        c.definedSize = JetSql::DefinedSizeForDeclared(declared);
        c.isLong = JetSql::IsLongDeclared(declared);
    }
    if (table && origin) {
        c.baseTable = QString::fromUtf8(table);
        c.baseColumn = QString::fromUtf8(origin);
        int notNull = 0, primaryKey = 0, autoInc = 0;
        if (sqlite3_table_column_metadata(db, dbName, table, origin, nullptr, nullptr, &notNull, &primaryKey,
                                          &autoInc) == SQLITE_OK) {
            c.nullable = !notNull && !primaryKey;
            c.mayBeNull = c.nullable;
            c.keyColumn = primaryKey != 0;
            c.autoIncrement = autoInc != 0;
        }
        // What Jet reports for every column of a base table, the counter included.
        c.mayDefer = true;
        c.writable = true;
    } else {
        c.writable = false;
    }
    return c;
}

RowsetData RowsetReader::Read(sqlite3* db, sqlite3_stmt* st, const QString& sql)
{
    // Step before reading the column schema: a cached statement whose tables
    // changed since it was prepared (ALTER, another connection's upgrade) is
    // prepared again by its first step, and only then are its columns right.
    int rc = sqlite::Step(db, st, sql);
    RowsetData data;
    const int count = sqlite3_column_count(st);
    data.columns.reserve(count);
    for (int i = 0; i < count; ++i) data.columns.push_back(Column(db, st, i));
    std::vector<int> types(count);
    for (int i = 0; i < count; ++i) types[i] = data.columns[i].type;
    for (; rc == SQLITE_ROW; rc = sqlite::Step(db, st, sql)) {
        std::vector<QVariant> row;
        row.reserve(count);
        for (int i = 0; i < count; ++i) row.push_back(Value(st, i, types[i]));
        data.rows.push_back(std::move(row));
    }
    for (int i = 0; i < count; ++i)
        if (data.columns[i].type == 0) TypeFromValues(data.columns[i], data.rows, i);
    return data;
}

}  // namespace mv::ado
