#include "TableRebuild.h"

#include "JetSql.h"
#include "Sqlite.h"

#include <QStringList>

namespace mv::ado {

namespace {

using sqlite::QuoteName;

struct TableInfo {
    QString name;  // as the schema spells it
    QString sql;
    QStringList columns;
    bool hasColumn = false;
    bool rowidAlias = false;  // an INTEGER PRIMARY KEY column already carries the rowid
};

TableInfo ReadTable(sqlite3* db, const QString& table, const QString& column)
{
    TableInfo info;
    const QString q = QStringLiteral("SELECT name, sql FROM sqlite_schema WHERE type = 'table' AND name = ?1 COLLATE NOCASE");
    auto st = sqlite::Prepare(db, q);
    const QByteArray name = table.toUtf8();
    sqlite3_bind_text(st.get(), 1, name.constData(), int(name.size()), SQLITE_TRANSIENT);
    if (sqlite::Step(db, st.get(), q) != SQLITE_ROW)
        throw AdoError(kErrItemNotFound, kProviderSource, QStringLiteral("The table '%1' does not exist").arg(table));
    info.name = sqlite::ColumnText(st.get(), 0);
    info.sql = sqlite::ColumnText(st.get(), 1);

    const QString pragma = QStringLiteral("PRAGMA table_info(%1)").arg(QuoteName(info.name));
    auto cols = sqlite::Prepare(db, pragma);
    int pkCount = 0;
    bool integerPk = false;
    while (sqlite::Step(db, cols.get(), pragma) == SQLITE_ROW) {
        const QString col = sqlite::ColumnText(cols.get(), 1);
        info.columns << col;
        if (col.compare(column, Qt::CaseInsensitive) == 0) info.hasColumn = true;
        if (sqlite3_column_int(cols.get(), 5) > 0) {
            ++pkCount;
            integerPk = sqlite::ColumnText(cols.get(), 2).compare(QLatin1String("INTEGER"), Qt::CaseInsensitive) == 0;
        }
    }
    info.rowidAlias = pkCount == 1 && integerPk;
    if (info.sql.contains(QLatin1String("WITHOUT ROWID"), Qt::CaseInsensitive)) info.rowidAlias = true;
    return info;
}

// The AUTOINCREMENT counter, which DROP TABLE forgets; -1 when there is none.
qlonglong ReadSequence(sqlite3* db, const QString& table)
{
    const QString has = QStringLiteral("SELECT 1 FROM sqlite_schema WHERE name = 'sqlite_sequence'");
    auto st = sqlite::Prepare(db, has);
    if (sqlite::Step(db, st.get(), has) != SQLITE_ROW) return -1;
    const QString q = QStringLiteral("SELECT seq FROM sqlite_sequence WHERE name = ?1 COLLATE NOCASE");
    auto seq = sqlite::Prepare(db, q);
    const QByteArray name = table.toUtf8();
    sqlite3_bind_text(seq.get(), 1, name.constData(), int(name.size()), SQLITE_TRANSIENT);
    return sqlite::Step(db, seq.get(), q) == SQLITE_ROW ? sqlite3_column_int64(seq.get(), 0) : -1;
}

QStringList IndexesAndTriggers(sqlite3* db, const QString& table)
{
    const QString q = QStringLiteral(
        "SELECT sql FROM sqlite_schema WHERE tbl_name = ?1 COLLATE NOCASE AND type IN ('index', 'trigger') "
        "AND sql IS NOT NULL ORDER BY type, name");
    auto st = sqlite::Prepare(db, q);
    const QByteArray name = table.toUtf8();
    sqlite3_bind_text(st.get(), 1, name.constData(), int(name.size()), SQLITE_TRANSIENT);
    QStringList out;
    while (sqlite::Step(db, st.get(), q) == SQLITE_ROW) out << sqlite::ColumnText(st.get(), 0);
    return out;
}

}  // namespace

void TableRebuild::AlterColumn(sqlite3* db, const QString& table, const QString& column, const QString& sqliteType)
{
    sqlite::Transaction tx(db);
    const TableInfo info = ReadTable(db, table, column);
    if (!info.hasColumn)
        throw AdoError(kErrItemNotFound, kProviderSource,
                       QStringLiteral("The column '%1' does not exist in the table '%2'").arg(column, info.name));

    const QString changed = JetSql::WithColumnType(info.sql, column, sqliteType);
    const QString temp = QStringLiteral("mv_rebuild_") + info.name;
    const qsizetype open = changed.indexOf(QLatin1Char('('));
    const QString createTemp = QStringLiteral("CREATE TABLE ") + QuoteName(temp) + QLatin1Char(' ') + changed.mid(open);
    const qlonglong sequence = ReadSequence(db, info.name);
    const QStringList dependents = IndexesAndTriggers(db, info.name);

    QStringList quoted;
    for (const QString& c : info.columns) quoted << QuoteName(c);
    QString columns = quoted.join(QStringLiteral(", "));
    // Keep each row's rowid too, so anything that remembered one still finds its row.
    if (!info.rowidAlias) columns = QStringLiteral("rowid, ") + columns;

    sqlite::Exec(db, createTemp);
    sqlite::Exec(db, QStringLiteral("INSERT INTO %1 (%2) SELECT %2 FROM %3").arg(QuoteName(temp), columns, QuoteName(info.name)));
    sqlite::Exec(db, QStringLiteral("DROP TABLE %1").arg(QuoteName(info.name)));
    sqlite::Exec(db, QStringLiteral("ALTER TABLE %1 RENAME TO %2").arg(QuoteName(temp), QuoteName(info.name)));
    if (sequence >= 0) {
        const QByteArray name = info.name.toUtf8();
        for (const char* text : {"DELETE FROM sqlite_sequence WHERE name = ?1",
                                 "INSERT INTO sqlite_sequence (name, seq) VALUES (?1, ?2)"}) {
            const QString sql = QLatin1String(text);
            auto st = sqlite::Prepare(db, sql);
            sqlite3_bind_text(st.get(), 1, name.constData(), int(name.size()), SQLITE_TRANSIENT);
            if (sqlite3_bind_parameter_count(st.get()) == 2) sqlite3_bind_int64(st.get(), 2, sequence);
            sqlite::Step(db, st.get(), sql);
        }
    }
    for (const QString& sql : dependents) sqlite::Exec(db, sql);
    tx.Commit();
}

}  // namespace mv::ado
