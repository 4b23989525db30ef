#pragma once
// Translation of the Jet SQL the system writes into SQLite SQL. Kept apart
// from the connection so every rule can be tested on its own, as text.
//
// Rules: [bracket] names -> "quoted" names; Jet types (Text(n), Memo,
// LongText, Integer, Long, Short, Byte, YesNo, Counter, AutoIncrement,
// DateTime, Double) -> SQLite affinities; "SELECT @@Identity" -> the
// connection's last row id; "ALTER TABLE t ALTER COLUMN c type" is not
// expressible in SQLite and comes back as a request to rebuild the table.
// Column names are matched without regard to case by SQLite already.

#include <QString>

namespace mv::ado {

struct JetStatement {
    enum class Kind {
        Plain,        // run `sql` as it is
        Identity,     // answer with the last insert row id
        AlterColumn,  // rebuild `table` with `column` changed to `sqliteType`
    };
    Kind kind = Kind::Plain;
    QString sql;        // SQLite text for Plain
    QString table;      // for AlterColumn
    QString column;     // for AlterColumn
    QString sqliteType; // for AlterColumn
};

class JetSql {
public:
    static JetStatement Translate(const QString& jet);
    // "Memo" -> "TEXT", "Integer" -> "INTEGER", "Text(50)" -> "TEXT", ...
    static QString SqliteType(const QString& jetType);
    // The ADO type a Jet/SQLite declared type reads back as (adVarWChar,
    // adLongVarWChar, adInteger, adSmallInt, adBoolean, adDate, adDouble).
    static int AdoTypeForDeclared(const QString& declaredType);
};

}  // namespace mv::ado
