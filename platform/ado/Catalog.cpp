#include "Catalog.h"

#include "AdoConstants.h"
#include "AdoError.h"
#include "Connection.h"
#include "JetSql.h"
#include "Sqlite.h"

namespace mv::ado {

namespace {

const QString kAllowZeroLength = QStringLiteral("Jet OLEDB:Allow Zero Length");

sqlite3* OpenHandle(const Connection* connection)
{
    if (!connection || !connection->Handle())
        throw AdoError(kErrInvalidConnection, kProviderSource,
                       QStringLiteral("The catalog has no open connection."));
    return connection->Handle();
}

// The table's name as the schema spells it, and its CREATE text.
std::pair<QString, QString> FindTable(sqlite3* db, const QString& table)
{
    const QString q = QStringLiteral("SELECT name, sql FROM sqlite_schema WHERE type = 'table' AND name = ?1 COLLATE NOCASE");
    auto st = sqlite::Prepare(db, q);
    const QByteArray name = table.toUtf8();
    sqlite3_bind_text(st.get(), 1, name.constData(), int(name.size()), SQLITE_TRANSIENT);
    if (sqlite::Step(db, st.get(), q) != SQLITE_ROW)
        throw AdoError(kErrItemNotFound, kProviderSource,
                       QStringLiteral("Item cannot be found in the collection corresponding to the requested name or "
                                      "ordinal: table '%1'").arg(table));
    return {sqlite::ColumnText(st.get(), 0), sqlite::ColumnText(st.get(), 1)};
}

QString NoEmptyText(const QString& column)
{
    return QStringLiteral("CHECK (%1 <> '')").arg(sqlite::QuoteName(column));
}

// The declared type for an ADO column type.
QString DeclaredType(int type, long definedSize)
{
    switch (type) {
    case adVarWChar: case adWChar: case adVarChar: case adChar:
        return QStringLiteral("VARCHAR(%1)").arg(definedSize > 0 ? definedSize : 255);
    case adLongVarWChar: case adLongVarChar: return QStringLiteral("LONGTEXT");
    case adInteger: return QStringLiteral("INTEGER");
    case adSmallInt: return QStringLiteral("SMALLINT");
    case adTinyInt: case adUnsignedTinyInt: return QStringLiteral("TINYINT");
    case adBigInt: return QStringLiteral("BIGINT");
    case adBoolean: return QStringLiteral("BOOLEAN");
    case adDate: case 133: case 134: case adDBTimeStamp: return QStringLiteral("DATETIME");
    case adDouble: return QStringLiteral("DOUBLE");
    case adSingle: return QStringLiteral("REAL");
    case adCurrency: return QStringLiteral("CURRENCY");
    case adNumeric: return QStringLiteral("NUMERIC");
    case adGUID: return QStringLiteral("GUID");
    case adBinary: case adVarBinary: case adLongVarBinary: return QStringLiteral("BLOB");
    default:
        throw AdoError(kErrInvalidArgument, kProviderSource,
                       QStringLiteral("The column type %1 is not supported.").arg(type));
    }
}

QString Literal(const QVariant& v)
{
    switch (v.typeId()) {
    case QMetaType::Bool: return v.toBool() ? QStringLiteral("-1") : QStringLiteral("0");
    case QMetaType::Int: case QMetaType::LongLong: case QMetaType::Double: return v.toString();
    default: {
        QString text = v.toString();
        text.replace(QLatin1Char('\''), QStringLiteral("''"));
        return QLatin1Char('\'') + text + QLatin1Char('\'');
    }
    }
}

}  // namespace

std::vector<QString> Catalog::TableNames() const
{
    sqlite3* db = OpenHandle(m_connection);
    const QString q = QStringLiteral("SELECT name FROM sqlite_schema WHERE type = 'table' AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\' ORDER BY name");
    auto st = sqlite::Prepare(db, q);
    std::vector<QString> names;
    while (sqlite::Step(db, st.get(), q) == SQLITE_ROW) names.push_back(sqlite::ColumnText(st.get(), 0));
    return names;
}

std::vector<Column> Catalog::Columns(const QString& table) const
{
    sqlite3* db = OpenHandle(m_connection);
    const auto [name, createSql] = FindTable(db, table);
    const QString pragma = QStringLiteral("PRAGMA table_info(%1)").arg(sqlite::QuoteName(name));
    auto st = sqlite::Prepare(db, pragma);
    std::vector<Column> columns;
    const QByteArray tableUtf8 = name.toUtf8();
    while (sqlite::Step(db, st.get(), pragma) == SQLITE_ROW) {
        Column c;
        c.Name = sqlite::ColumnText(st.get(), 1);
        const QString declared = sqlite::ColumnText(st.get(), 2);
        c.Type = JetSql::AdoTypeForDeclared(declared);
        c.DefinedSize = JetSql::DefinedSizeForDeclared(declared);
        c.ParentCatalog = const_cast<Catalog*>(this);
        const bool primaryKey = sqlite3_column_int(st.get(), 5) > 0;
        c.Properties.insert(QStringLiteral("Nullable"), sqlite3_column_int(st.get(), 3) == 0 && !primaryKey);
        if (sqlite3_column_type(st.get(), 4) != SQLITE_NULL)
            c.Properties.insert(QStringLiteral("Default"), sqlite::ColumnText(st.get(), 4));
        int autoInc = 0;
        const QByteArray col = c.Name.toUtf8();
        sqlite3_table_column_metadata(db, nullptr, tableUtf8.constData(), col.constData(), nullptr, nullptr, nullptr,
                                      nullptr, &autoInc);
        c.Properties.insert(QStringLiteral("Autoincrement"), autoInc != 0);
        if (c.Type == adVarWChar || c.Type == adLongVarWChar)
            c.Properties.insert(kAllowZeroLength, !createSql.contains(NoEmptyText(c.Name), Qt::CaseInsensitive));
        columns.push_back(std::move(c));
    }
    return columns;
}

void Catalog::AppendColumn(const QString& table, const Column& column, int type, long definedSize)
{
    sqlite3* db = OpenHandle(m_connection);
    const QString name = FindTable(db, table).first;
    if (column.Name.trimmed().isEmpty())
        throw AdoError(kErrInvalidArgument, kProviderSource, QStringLiteral("The new column has no name."));
    // As with Jet, the column object's own type wins over the append arguments;
    // they count only when the column has none.
    const int adoType = column.Type != adEmpty ? column.Type : type;
    const long size = column.Type != adEmpty ? column.DefinedSize : definedSize;
    QString sql = QStringLiteral("ALTER TABLE %1 ADD COLUMN %2 %3")
                      .arg(sqlite::QuoteName(name), sqlite::QuoteName(column.Name), DeclaredType(adoType, size));
    const int mapped = JetSql::AdoTypeForDeclared(DeclaredType(adoType, size));
    if (mapped == adVarWChar || mapped == adLongVarWChar) {
        sql += QStringLiteral(" COLLATE NOCASE");
        // Jet's default for a new text column is to refuse empty strings.
        if (!column.Properties.value(kAllowZeroLength, false).toBool()) sql += QLatin1Char(' ') + NoEmptyText(column.Name);
    }
    if (column.Properties.contains(QStringLiteral("Default")))
        sql += QStringLiteral(" DEFAULT ") + Literal(column.Properties.value(QStringLiteral("Default")));
    if (column.Properties.contains(QStringLiteral("Nullable")) &&
        !column.Properties.value(QStringLiteral("Nullable")).toBool())
        sql += QStringLiteral(" NOT NULL");
    sqlite::Exec(db, sql);
}

}  // namespace mv::ado
