#pragma once
// Internal to the provider: "ALTER TABLE t ALTER COLUMN c type", which SQLite
// cannot do in place, done by rebuilding the table in one transaction.

#include <QString>

struct sqlite3;

namespace mv::ado {

class TableRebuild {
public:
    // Keeps the column order, every row and its rowid, defaults, NOT NULL
    // and other constraints, the table's indexes and triggers, and its
    // AUTOINCREMENT counter. On any failure nothing is changed. Throws AdoError.
    static void AlterColumn(sqlite3* db, const QString& table, const QString& column, const QString& sqliteType);
};

}  // namespace mv::ado
