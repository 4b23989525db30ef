#pragma once
// Internal to the provider: RAII holders for SQLite handles and statements,
// and the one place where SQLite result codes become AdoErrors.

#include "AdoError.h"

#include <QString>

#include <sqlite3.h>

#include <memory>

namespace mv::ado::sqlite {

struct DbCloser {
    void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct StmtFinalizer {
    void operator()(sqlite3_stmt* st) const { sqlite3_finalize(st); }
};
using DbPtr = std::unique_ptr<sqlite3, DbCloser>;
using StmtPtr = std::unique_ptr<sqlite3_stmt, StmtFinalizer>;

// Builds the error for result code `rc`. Busy and locked are temporary;
// prepare failures are syntax errors; constraint and read-only failures get
// their own numbers so callers can tell them apart.
AdoError Error(sqlite3* db, int rc, const QString& what, const QString& sql = {}, bool preparing = false);

// Prepares exactly one statement; text after it other than blanks and ";"
// is refused rather than silently ignored.
StmtPtr Prepare(sqlite3* db, const QString& sql, unsigned flags = 0);

// Steps once; returns SQLITE_ROW or SQLITE_DONE, throws on anything else.
int Step(sqlite3* db, sqlite3_stmt* st, const QString& sql);

// Prepares and runs a statement that returns no rows of interest.
void Exec(sqlite3* db, const QString& sql);

QString ColumnText(sqlite3_stmt* st, int col);
QString QuoteName(const QString& name);

// Rolls back unless committed; used by the provider's multi-statement work.
// Outside a transaction it takes the write lock at once (BEGIN IMMEDIATE);
// inside one the caller opened with "BEGIN", it nests as a savepoint.
class Transaction {
public:
    explicit Transaction(sqlite3* db);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void Commit();

private:
    sqlite3* m_db;
    bool m_nested = false;
    bool m_done = false;
};

}  // namespace mv::ado::sqlite
