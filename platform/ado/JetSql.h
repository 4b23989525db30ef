#pragma once
// Translation of the Jet SQL the system writes into SQLite SQL. Kept apart
// from the connection so every rule can be tested on its own, as text.
//
// Rules: [bracket] names -> "quoted" names; TRUE/FALSE -> -1/0 (Jet's true
// is -1); #date# literals -> 'yyyy-MM-dd HH:mm:ss' text; Jet types in CREATE
// TABLE and ALTER TABLE ... ADD -> declared types chosen for their SQLite
// affinity (see SqliteType); "SELECT @@Identity" -> the connection's last row
// id; "ALTER TABLE t ALTER COLUMN c type" is not expressible in SQLite and
// comes back as a request to rebuild the table. Column and table names are
// matched without regard to case by SQLite already.
//
// Every function throws AdoError (kErrSyntax) on text it cannot read:
// an unterminated quote, bracket or date, an unknown type name.

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

    // The declared SQLite type for a Jet type. The declared name decides
    // SQLite's affinity, so each is picked on purpose:
    //   Text, Text(n)            -> VARCHAR(n) (255 without n)   TEXT affinity
    //   Memo, LongText           -> LONGTEXT                     TEXT affinity
    //   Integer, Short, SmallInt -> SMALLINT (Jet's 16-bit)      INTEGER affinity
    //   Long, Int                -> INTEGER                      INTEGER affinity
    //   Byte                     -> TINYINT                      INTEGER affinity
    //   YesNo, Bit, Boolean      -> BOOLEAN (holds -1/0)         NUMERIC affinity
    //   Counter, AutoIncrement   -> INTEGER PRIMARY KEY AUTOINCREMENT
    //   DateTime, Date           -> DATETIME (ISO text)          NUMERIC affinity
    //   Double, Float            -> DOUBLE                       REAL affinity
    //   Single, Real             -> REAL                         REAL affinity
    //   Currency                 -> CURRENCY                     NUMERIC affinity
    //   Binary, LongBinary, OLEObject -> BLOB                    BLOB affinity
    static QString SqliteType(const QString& jetType);

    // The ADO type a Jet/SQLite declared type reads back as (adVarWChar,
    // adLongVarWChar, adInteger, adSmallInt, adBoolean, adDate, adDouble ...).
    static int AdoTypeForDeclared(const QString& declaredType);
    // ADO's DefinedSize for a declared type: n for VARCHAR(n), 536870910 for
    // long text, the byte width for numbers; 0 when unknown.
    static int DefinedSizeForDeclared(const QString& declaredType);
    // True for the declared types that read back as long (memo) text or binary.
    static bool IsLongDeclared(const QString& declaredType);

    // Returns the CREATE TABLE text `createSql` with the declared type of
    // `column` replaced by `sqliteType`, keeping every constraint, default
    // and the order of columns. Throws when the column is not in the table.
    static QString WithColumnType(const QString& createSql, const QString& column, const QString& sqliteType);
};

}  // namespace mv::ado
