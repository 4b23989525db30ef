#pragma once
// An ADO Connection over one SQLite database file. It accepts the Jet SQL the
// rule store writes (bracket names, Jet types, ALTER COLUMN, @@Identity, -1
// for true) and translates it through JetSql before SQLite sees it.
//
// Opening never creates a file: a missing file, a file that is not SQLite,
// or one that cannot be written (read-only file or folder) fails at Open
// with an AdoError and the file is left exactly as it was. A lock held by
// another process is reported as a temporary AdoError after the busy wait.
//
// Recordsets keep a pointer to the connection that made them for Resync,
// and a token that tells them when the connection object is gone.

#include "AdoConstants.h"
#include "AdoError.h"
#include "Parameter.h"

#include <QString>

#include <memory>
#include <vector>

struct sqlite3;

namespace mv::ado {

class Recordset;

class Connection {
public:
    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    QString ConnectionString() const;
    void SetConnectionString(const QString& text);

    // The Jet connection string is parsed for "Data Source" (or the ODBC
    // "DBQ"); other keys are accepted and ignored. Throws AdoError.
    void Open(const QString& connectionString = {}, const QString& user = {},
              const QString& password = {}, int options = -1);
    void Close();  // harmless when closed
    int State() const;  // adStateClosed / adStateOpen

    // Runs one statement. A row-returning statement gives an open client-side
    // Recordset; any other gives a closed one. Throws AdoError.
    std::unique_ptr<Recordset> Execute(const QString& sql, int options = adOptionUnspecified);
    // The same with one Parameter per "?" mark, in order (what Command runs).
    // With adExecuteNoRecords in `options` both return nullptr.
    std::unique_ptr<Recordset> Execute(const QString& sql, const std::vector<Parameter>& parameters,
                                       int options = adOptionUnspecified);

    // The row id of the last insert on this connection ("SELECT @@Identity").
    long long LastInsertId() const;

    // The file this connection has open; empty when closed.
    QString DataSource() const;

    // For the provider's own classes (Command, Recordset, Catalog); null when closed.
    sqlite3* Handle() const;
    // Expires when this Connection object is destroyed.
    std::weak_ptr<const void> Lifetime() const;

    // Milliseconds a statement waits for another process's lock before it
    // fails as temporary. Default 2000.
    void SetBusyTimeout(int ms);
    int BusyTimeout() const;

    // The file named by "Data Source" (or "DBQ") in a connection string,
    // trimmed and unquoted; empty when there is none.
    static QString DataSourceOf(const QString& connectionString);

    // Creates a new, empty database file for Open to use (the template
    // builder and tests need one). Refuses to touch an existing file.
    // Throws AdoError.
    static void CreateDatabase(const QString& path);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

}  // namespace mv::ado
