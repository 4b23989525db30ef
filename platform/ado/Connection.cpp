#include "Connection.h"

#include "JetSql.h"
#include "ParameterBinder.h"
#include "Recordset.h"
#include "RowsetReader.h"
#include "Sqlite.h"
#include "TableRebuild.h"

#include <QFile>
#include <QFileInfo>

#include <unistd.h>

#include <climits>
#include <map>

namespace mv::ado {

namespace {

constexpr size_t kStatementCacheSize = 64;
constexpr int kApplicationId = 0x4D564442;  // "MVDB" in the header, so `file` and tools can tell ours

[[noreturn]] void Closed()
{
    throw AdoError(kErrObjectClosed, kProviderSource, QStringLiteral("Operation is not allowed when the object is closed."));
}

// Reads the file's first bytes ourselves, so that nothing but a real SQLite
// database ever reaches SQLite (which would happily turn an empty file into one).
void CheckFile(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists())
        throw AdoError(kErrFileNotFound, kProviderSource, QStringLiteral("Could not find file '%1'.").arg(path));
    if (!info.isFile())
        throw AdoError(kErrNotADatabase, kProviderSource,
                       QStringLiteral("'%1' is not a Mailvane (SQLite) database: it is not a file.").arg(path));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw AdoError(kErrReadOnly, kProviderSource,
                       QStringLiteral("Cannot read the database '%1': %2").arg(path, file.errorString()));
    const QByteArray head = file.read(100);
    static const QByteArray sqliteMagic("SQLite format 3\0", 16);
    if (head.startsWith(sqliteMagic)) return;
    QString why;
    if (head.isEmpty()) why = QStringLiteral(" (the file is empty)");
    else if (head.mid(4, 15) == "Standard Jet DB" || head.mid(4, 15) == "Standard ACE DB")
        why = QStringLiteral(" (it is a Jet database file; it must be converted before Mailvane can use it)");
    throw AdoError(kErrNotADatabase, kProviderSource,
                   QStringLiteral("'%1' is not a Mailvane (SQLite) database%2. The file was not changed.").arg(path, why));
}

struct CachedStatement {
    JetStatement jet;
    sqlite::StmtPtr stmt;  // for Plain statements
};

// Resets a cached statement after use whatever happened, so it holds no lock.
class ResetGuard {
public:
    explicit ResetGuard(sqlite3_stmt* st) : m_st(st) {}
    ~ResetGuard()
    {
        sqlite3_reset(m_st);
        sqlite3_clear_bindings(m_st);
    }
    ResetGuard(const ResetGuard&) = delete;
    ResetGuard& operator=(const ResetGuard&) = delete;

private:
    sqlite3_stmt* m_st;
};

}  // namespace

struct Connection::Impl {
    sqlite::DbPtr db;
    std::map<QString, CachedStatement> cache;  // declared after db: statements are finalized first
    QString connectionString;
    QString dataSource;
    int busyTimeout = 2000;
    std::shared_ptr<const void> lifetime = std::make_shared<int>(0);

    CachedStatement& Prepared(const QString& jet)
    {
        auto it = cache.find(jet);
        if (it != cache.end()) return it->second;
        CachedStatement entry;
        entry.jet = JetSql::Translate(jet);
        if (entry.jet.kind == JetStatement::Kind::Plain)
            entry.stmt = sqlite::Prepare(db.get(), entry.jet.sql, SQLITE_PREPARE_PERSISTENT);
        if (cache.size() >= kStatementCacheSize) cache.clear();
        return cache.emplace(jet, std::move(entry)).first->second;
    }
};

Connection::Connection() : d(std::make_unique<Impl>()) {}

Connection::~Connection()
{
    Close();
}

QString Connection::ConnectionString() const
{
    return d->connectionString;
}

void Connection::SetConnectionString(const QString& text)
{
    d->connectionString = text;
}

QString Connection::DataSourceOf(const QString& cs)
{
    const qsizetype n = cs.size();
    qsizetype i = 0;
    while (i < n) {
        const qsizetype eq = cs.indexOf(QLatin1Char('='), i);
        const qsizetype semi = cs.indexOf(QLatin1Char(';'), i);
        if (eq < 0) break;
        if (semi >= 0 && semi < eq) {  // a part without a value
            i = semi + 1;
            continue;
        }
        const QString key = cs.mid(i, eq - i).trimmed();
        qsizetype j = eq + 1;
        while (j < n && cs[j] == QLatin1Char(' ')) ++j;
        QString value;
        if (j < n && (cs[j] == QLatin1Char('"') || cs[j] == QLatin1Char('\''))) {
            const QChar quote = cs[j];
            for (++j; j < n; ++j) {
                if (cs[j] == quote) {
                    if (j + 1 < n && cs[j + 1] == quote) { value += quote; ++j; continue; }
                    ++j;
                    break;
                }
                value += cs[j];
            }
            const qsizetype end = cs.indexOf(QLatin1Char(';'), j);
            i = end < 0 ? n : end + 1;
        } else {
            const qsizetype end = cs.indexOf(QLatin1Char(';'), j);
            value = cs.mid(j, (end < 0 ? n : end) - j);
            i = end < 0 ? n : end + 1;
        }
        if (key.compare(QLatin1String("Data Source"), Qt::CaseInsensitive) == 0 ||
            key.compare(QLatin1String("DBQ"), Qt::CaseInsensitive) == 0)
            return value.trimmed();
    }
    return {};
}

void Connection::CreateDatabase(const QString& path)
{
    if (QFileInfo::exists(path))
        throw AdoError(kErrProviderGeneric, kProviderSource,
                       QStringLiteral("Cannot create the database '%1': the file already exists.").arg(path));
    sqlite3* raw = nullptr;
    const int rc = sqlite3_open_v2(path.toUtf8().constData(), &raw,
                                   SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_EXRESCODE, nullptr);
    sqlite::DbPtr db(raw);
    if (rc != SQLITE_OK) throw sqlite::Error(db.get(), rc, QStringLiteral("Cannot create the database '%1'").arg(path));
    // A new SQLite file stays empty until something is written; the header
    // must exist for Open to recognise the file.
    sqlite::Exec(db.get(), QStringLiteral("PRAGMA application_id = %1").arg(kApplicationId));
}

void Connection::Open(const QString& connectionString, const QString&, const QString&, int)
{
    if (d->db)
        throw AdoError(kErrObjectOpen, kProviderSource, QStringLiteral("Operation is not allowed when the object is open."));
    if (!connectionString.isEmpty()) d->connectionString = connectionString;
    const QString path = DataSourceOf(d->connectionString);
    if (path.isEmpty())
        throw AdoError(kErrProviderGeneric, kProviderSource,
                       QStringLiteral("The connection string names no database file (Data Source): \"%1\"")
                           .arg(d->connectionString));
    CheckFile(path);

    sqlite3* raw = nullptr;
    // READWRITE without CREATE: SQLite must never make a file here.
    const int rc = sqlite3_open_v2(path.toUtf8().constData(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_EXRESCODE, nullptr);
    sqlite::DbPtr db(raw);
    if (rc != SQLITE_OK) throw sqlite::Error(db.get(), rc, QStringLiteral("Cannot open the database '%1'").arg(path));
    sqlite3_busy_timeout(db.get(), d->busyTimeout);

    // Reading the schema proves the file is a database and not locked away.
    sqlite::Exec(db.get(), QStringLiteral("SELECT count(*) FROM sqlite_schema"));
    if (sqlite3_db_readonly(db.get(), "main") == 1)
        throw AdoError(kErrReadOnly, kProviderSource,
                       QStringLiteral("The database '%1' is read-only; Mailvane needs to write to it. "
                                      "Check the file's permissions.").arg(path));
    const QString folder = QFileInfo(path).absolutePath();
    if (::access(QFile::encodeName(folder).constData(), W_OK) != 0)
        throw AdoError(kErrReadOnly, kProviderSource,
                       QStringLiteral("The folder '%1' of the database cannot be written; SQLite keeps its journal "
                                      "beside the database. Check the folder's permissions.").arg(folder));
    d->db = std::move(db);
    d->dataSource = path;
}

void Connection::Close()
{
    d->cache.clear();
    d->db.reset();
    d->dataSource.clear();
}

int Connection::State() const
{
    return d->db ? adStateOpen : adStateClosed;
}

std::unique_ptr<Recordset> Connection::Execute(const QString& sql, int options)
{
    return Execute(sql, {}, options);
}

std::unique_ptr<Recordset> Connection::Execute(const QString& sql, const std::vector<Parameter>& parameters, int options)
{
    if (!d->db) Closed();
    sqlite3* db = d->db.get();
    const bool noRecords = options != adOptionUnspecified && (options & adExecuteNoRecords);
    CachedStatement& entry = d->Prepared(sql);

    switch (entry.jet.kind) {
    case JetStatement::Kind::Identity: {
        if (!parameters.empty()) ParameterBinder::Bind(nullptr, parameters, sql);
        if (noRecords) return nullptr;
        RowsetData data;
        RowsetColumn column;
        column.name = QStringLiteral("Expr1000");
        column.type = adInteger;
        column.definedSize = 4;
        column.nullable = false;
        column.writable = false;
        data.columns.push_back(column);
        const long long id = LastInsertId();
        data.rows.push_back({id >= INT_MIN && id <= INT_MAX ? QVariant(int(id)) : QVariant(qlonglong(id))});
        auto rs = std::make_unique<Recordset>();
        rs->OpenData(std::move(data), this, sql);
        return rs;
    }
    case JetStatement::Kind::AlterColumn: {
        if (!parameters.empty()) ParameterBinder::Bind(nullptr, parameters, sql);
        // The rebuild inserts rows; @@Identity must still answer for the caller's last insert.
        const sqlite3_int64 lastId = sqlite3_last_insert_rowid(db);
        TableRebuild::AlterColumn(db, entry.jet.table, entry.jet.column, entry.jet.sqliteType);
        sqlite3_set_last_insert_rowid(db, lastId);
        // Cached statements named the old table; SQLite re-prepares them, but
        // dropping them keeps nothing stale around.
        d->cache.clear();
        return noRecords ? nullptr : std::make_unique<Recordset>();
    }
    case JetStatement::Kind::Plain: break;
    }

    sqlite3_stmt* st = entry.stmt.get();
    ResetGuard guard(st);
    ParameterBinder::Bind(st, parameters, sql);
    if (noRecords || sqlite3_column_count(st) == 0) {
        while (sqlite::Step(db, st, sql) == SQLITE_ROW) {}
        return noRecords ? nullptr : std::make_unique<Recordset>();
    }
    RowsetData data = RowsetReader::Read(db, st, sql);
    auto rs = std::make_unique<Recordset>();
    rs->SetCursorLocation(adUseClient);
    rs->OpenData(std::move(data), this, sql);
    return rs;
}

long long Connection::LastInsertId() const
{
    return d->db ? sqlite3_last_insert_rowid(d->db.get()) : 0;
}

QString Connection::DataSource() const
{
    return d->dataSource;
}

sqlite3* Connection::Handle() const
{
    return d->db.get();
}

std::weak_ptr<const void> Connection::Lifetime() const
{
    return d->lifetime;
}

void Connection::SetBusyTimeout(int ms)
{
    d->busyTimeout = ms;
    if (d->db) sqlite3_busy_timeout(d->db.get(), ms);
}

int Connection::BusyTimeout() const
{
    return d->busyTimeout;
}

}  // namespace mv::ado
