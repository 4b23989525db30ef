#pragma once
// Internal to the provider: reads a prepared statement's rows and column
// metadata into a RowsetData in one pass.

#include "RowsetData.h"

#include <QString>

struct sqlite3;
struct sqlite3_stmt;

namespace mv::ado {

class RowsetReader {
public:
    // Steps `st` to its end. Column types come from the declared types of
    // the base columns; computed columns take the type of their values.
    // Throws AdoError.
    static RowsetData Read(sqlite3* db, sqlite3_stmt* st, const QString& sql);

    // The QVariant for one value of a column of ADO type `adoType`.
    static QVariant Value(sqlite3_stmt* st, int col, int adoType);

    // Fills a column's schema from the statement (before or after stepping).
    static RowsetColumn Column(sqlite3* db, sqlite3_stmt* st, int col);
};

}  // namespace mv::ado
