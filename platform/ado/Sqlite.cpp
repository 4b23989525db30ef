#include "Sqlite.h"

namespace mv::ado::sqlite {

namespace {

QString FileOf(sqlite3* db)
{
    const char* name = db ? sqlite3_db_filename(db, "main") : nullptr;
    return name ? QString::fromUtf8(name) : QString();
}

}  // namespace

AdoError Error(sqlite3* db, int rc, const QString& what, const QString& sql, bool preparing)
{
    const int primary = rc & 0xff;
    QString engine = db ? QString::fromUtf8(sqlite3_errmsg(db)) : QString::fromUtf8(sqlite3_errstr(rc));
    QString text = what + QStringLiteral(": ") + engine + QStringLiteral(" (SQLite error %1)").arg(rc);
    if (!sql.isEmpty()) text += QStringLiteral(" in \"%1\"").arg(sql);

    switch (primary) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return AdoError(kErrLocked, kProviderSource,
                        QStringLiteral("The database '%1' is locked by another program; try again later. ").arg(FileOf(db)) + text,
                        true);
    case SQLITE_READONLY:
        return AdoError(kErrReadOnly, kProviderSource,
                        QStringLiteral("The database '%1' cannot be written. ").arg(FileOf(db)) + text);
    case SQLITE_CONSTRAINT:
        return AdoError(kErrIntegrity, kProviderSource, text);
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
        return AdoError(kErrNotADatabase, kProviderSource,
                        QStringLiteral("'%1' is not a Mailvane (SQLite) database or is damaged. ").arg(FileOf(db)) + text);
    case SQLITE_MISMATCH:
        return AdoError(kErrTypeMismatch, kProviderSource, text);
    case SQLITE_ERROR:
        return AdoError(preparing ? kErrSyntax : kErrProviderGeneric, kProviderSource, text);
    default:
        return AdoError(kErrProviderGeneric, kProviderSource, text);
    }
}

StmtPtr Prepare(sqlite3* db, const QString& sql, unsigned flags)
{
    const QByteArray utf8 = sql.toUtf8();
    sqlite3_stmt* raw = nullptr;
    const char* tail = nullptr;
    const int rc = sqlite3_prepare_v3(db, utf8.constData(), static_cast<int>(utf8.size()), flags, &raw, &tail);
    StmtPtr st(raw);
    if (rc != SQLITE_OK) throw Error(db, rc, QStringLiteral("Cannot prepare the statement"), sql, true);
    for (const char* p = tail; p && *p; ++p) {
        if (*p != ';' && *p != ' ' && *p != '\t' && *p != '\r' && *p != '\n')
            throw AdoError(kErrSyntax, kProviderSource,
                           QStringLiteral("Characters found after end of SQL statement in \"%1\"").arg(sql));
    }
    if (!st) throw AdoError(kErrSyntax, kProviderSource, QStringLiteral("The SQL statement is empty"));
    return st;
}

int Step(sqlite3* db, sqlite3_stmt* st, const QString& sql)
{
    const int rc = sqlite3_step(st);
    if (rc == SQLITE_ROW || rc == SQLITE_DONE) return rc;
    throw Error(db, rc, QStringLiteral("The statement failed"), sql);
}

void Exec(sqlite3* db, const QString& sql)
{
    StmtPtr st = Prepare(db, sql);
    while (Step(db, st.get(), sql) == SQLITE_ROW) {}
}

QString ColumnText(sqlite3_stmt* st, int col)
{
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(st, col));
    return text ? QString::fromUtf8(text, sqlite3_column_bytes(st, col)) : QString();
}

QString QuoteName(const QString& name)
{
    QString quoted = name;
    quoted.replace(QLatin1Char('"'), QStringLiteral("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

Transaction::Transaction(sqlite3* db) : m_db(db), m_nested(sqlite3_get_autocommit(db) == 0)
{
    // IMMEDIATE takes the write lock now, so a busy database fails before
    // any work is done rather than halfway through.
    Exec(m_db, m_nested ? QStringLiteral("SAVEPOINT mv_provider") : QStringLiteral("BEGIN IMMEDIATE"));
}

Transaction::~Transaction()
{
    if (m_done) return;
    if (m_nested) {
        sqlite3_exec(m_db, "ROLLBACK TO mv_provider", nullptr, nullptr, nullptr);
        sqlite3_exec(m_db, "RELEASE mv_provider", nullptr, nullptr, nullptr);
    } else {
        sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void Transaction::Commit()
{
    Exec(m_db, m_nested ? QStringLiteral("RELEASE mv_provider") : QStringLiteral("COMMIT"));
    m_done = true;
}

}  // namespace mv::ado::sqlite
