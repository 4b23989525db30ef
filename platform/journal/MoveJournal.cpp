#include "MoveJournal.h"

#include <QCoreApplication>
#include <QFile>

#include <sqlite3.h>

#include <cerrno>
#include <map>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mv::journal {
namespace {

constexpr int kSchemaVersion = 2;
constexpr int kBusyTimeoutMs = 5000;
constexpr int kKeepDays = 30;
constexpr int kKeepRuns = 500;
const QString kMemory = QStringLiteral(":memory:");

const char* const kSchema = R"sql(
CREATE TABLE IF NOT EXISTS runs(
  run INTEGER PRIMARY KEY AUTOINCREMENT,
  started INTEGER NOT NULL,
  ended INTEGER,
  trigger TEXT NOT NULL,
  pid INTEGER NOT NULL,
  origin TEXT,
  undoes INTEGER NOT NULL DEFAULT 0);
CREATE TABLE IF NOT EXISTS moves(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  run INTEGER NOT NULL,
  batch INTEGER NOT NULL,
  rule_id INTEGER NOT NULL,
  rule_name TEXT NOT NULL,
  kind INTEGER NOT NULL,
  state INTEGER NOT NULL,
  src_store BLOB, src_folder BLOB, src_id BLOB,
  dst_store BLOB, dst_folder BLOB, dst_id BLOB, dst_mark BLOB,
  fp_unique BLOB, fp_message_id BLOB, fp_size INTEGER, fp_date INTEGER,
  flag_cleared INTEGER NOT NULL,
  subject TEXT, sender TEXT,
  started INTEGER NOT NULL, finished INTEGER,
  note TEXT,
  undo_of INTEGER NOT NULL DEFAULT 0);
CREATE INDEX IF NOT EXISTS moves_open ON moves(state) WHERE state = 0;
CREATE INDEX IF NOT EXISTS moves_run ON moves(run);
CREATE INDEX IF NOT EXISTS moves_rule ON moves(rule_id, finished);
CREATE INDEX IF NOT EXISTS moves_src ON moves(src_id);
CREATE INDEX IF NOT EXISTS moves_undo ON moves(undo_of) WHERE undo_of <> 0;
CREATE TABLE IF NOT EXISTS rule_runs(
  run INTEGER NOT NULL,
  rule_id INTEGER NOT NULL,
  rule_name TEXT NOT NULL,
  moved INTEGER NOT NULL,
  error TEXT);
CREATE INDEX IF NOT EXISTS rule_runs_run ON rule_runs(run);
CREATE INDEX IF NOT EXISTS rule_runs_rule ON rule_runs(rule_id, run);
)sql";

// From schema 1: the runs say what started them and what they undo; the
// rule rows and the indexes come with kSchema.
const char* const kUpgradeFrom1 = R"sql(
ALTER TABLE runs ADD COLUMN origin TEXT;
ALTER TABLE runs ADD COLUMN undoes INTEGER NOT NULL DEFAULT 0;
)sql";

const char* const kColumns =
    "id, run, batch, rule_id, rule_name, kind, state, src_store, src_folder, src_id, dst_store, dst_folder, dst_id, "
    "dst_mark, fp_unique, fp_message_id, fp_size, fp_date, flag_cleared, subject, sender, started, finished, note, "
    "undo_of";

bool IsCorrupt(int rc)
{
    const int primary = rc & 0xff;
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB || primary == SQLITE_FORMAT;
}

bool IsBusy(int rc)
{
    const int primary = rc & 0xff;
    return primary == SQLITE_BUSY || primary == SQLITE_LOCKED;
}

Error Fail(sqlite3* db, int rc, const QString& path, const QString& what)
{
    const QString detail = db ? QString::fromUtf8(sqlite3_errmsg(db)) : QString::fromUtf8(sqlite3_errstr(rc));
    if (IsBusy(rc))
        return Error::temporary(QStringLiteral("the move journal %1 is busy (%2: %3)").arg(path, what, detail), rc);
    if (IsCorrupt(rc))
        return Error::permanent(QStringLiteral("the move journal %1 is damaged (%2); it is kept as it is: move it "
                                               "away to start a new journal")
                                    .arg(path, detail),
                                rc);
    return Error::permanent(QStringLiteral("the move journal %1: %2: %3").arg(path, what, detail), rc);
}

qint64 Millis(const QDateTime& t) { return t.isValid() ? t.toMSecsSinceEpoch() : 0; }
QDateTime FromMillis(qint64 ms) { return ms ? QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC) : QDateTime(); }

// One prepared statement; finalized however the caller leaves.
class Stmt {
public:
    Stmt(sqlite3* db, const char* sql) { m_rc = sqlite3_prepare_v2(db, sql, -1, &m_stmt, nullptr); }
    ~Stmt() { sqlite3_finalize(m_stmt); }
    Stmt(const Stmt&) = delete;
    Stmt& operator=(const Stmt&) = delete;

    int PrepareCode() const { return m_rc; }
    void Bind(int i, qint64 v) { sqlite3_bind_int64(m_stmt, i, v); }
    void Bind(int i, const QByteArray& v)
    {
        if (v.isNull()) sqlite3_bind_null(m_stmt, i);
        else sqlite3_bind_blob(m_stmt, i, v.constData(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
    }
    void Bind(int i, const QString& v)
    {
        const QByteArray utf8 = v.toUtf8();
        sqlite3_bind_text(m_stmt, i, utf8.constData(), static_cast<int>(utf8.size()), SQLITE_TRANSIENT);
    }
    int Step() { return sqlite3_step(m_stmt); }
    void Reset()
    {
        sqlite3_reset(m_stmt);
        sqlite3_clear_bindings(m_stmt);
    }
    qint64 Int(int c) const { return sqlite3_column_int64(m_stmt, c); }
    QByteArray Blob(int c) const
    {
        if (sqlite3_column_type(m_stmt, c) == SQLITE_NULL) return {};
        const void* p = sqlite3_column_blob(m_stmt, c);
        return QByteArray(static_cast<const char*>(p), sqlite3_column_bytes(m_stmt, c));
    }
    QString Text(int c) const
    {
        const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(m_stmt, c));
        return p ? QString::fromUtf8(p, sqlite3_column_bytes(m_stmt, c)) : QString();
    }

private:
    sqlite3_stmt* m_stmt = nullptr;
    int m_rc = SQLITE_OK;
};

// BEGIN IMMEDIATE ... COMMIT; rolls back when left without Commit.
class Transaction {
public:
    explicit Transaction(sqlite3* db) : m_db(db) { m_rc = sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr); }
    ~Transaction()
    {
        if (m_rc == SQLITE_OK && !m_done) sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    int BeginCode() const { return m_rc; }
    int Commit()
    {
        m_done = true;
        return sqlite3_exec(m_db, "COMMIT", nullptr, nullptr, nullptr);
    }

private:
    sqlite3* m_db;
    int m_rc;
    bool m_done = false;
};

MoveRow ReadRow(const Stmt& s)
{
    MoveRow r;
    r.id = s.Int(0);
    r.run = s.Int(1);
    r.batch = s.Int(2);
    r.ruleId = static_cast<int>(s.Int(3));
    r.ruleName = s.Text(4);
    r.kind = static_cast<MoveKind>(s.Int(5));
    r.state = static_cast<MoveState>(s.Int(6));
    r.srcStore = s.Blob(7);
    r.srcFolder = s.Blob(8);
    r.srcId = s.Blob(9);
    r.dstStore = s.Blob(10);
    r.dstFolder = s.Blob(11);
    r.dstId = s.Blob(12);
    r.dstMark = s.Blob(13);
    r.fingerprint.uniqueName = s.Blob(14);
    r.fingerprint.messageIdHeader = s.Blob(15);
    r.fingerprint.size = s.Int(16);
    r.fingerprint.internalDate = FromMillis(s.Int(17));
    r.flagCleared = s.Int(18) != 0;
    r.subject = s.Text(19);
    r.sender = s.Text(20);
    r.started = FromMillis(s.Int(21));
    r.finished = FromMillis(s.Int(22));
    r.note = s.Text(23);
    r.undoOf = s.Int(24);
    return r;
}

}  // namespace

MoveJournal::MoveJournal(QString path, sqlite3* db) : m_path(std::move(path)), m_db(db) {}

MoveJournal::~MoveJournal()
{
    sqlite3_close_v2(m_db);
}

bool MoveJournal::InMemory() const
{
    return m_path == kMemory;
}

Result<std::unique_ptr<MoveJournal>> MoveJournal::Open(const QString& path)
{
    const bool memory = path == kMemory;
    if (!memory) {
        // Created 0600 before SQLite sees it; SQLite gives the -wal and -shm
        // files the mode of the database file.
        const QByteArray name = QFile::encodeName(path);
        const int fd = ::open(name.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0)
            return Error::permanent(QStringLiteral("cannot open the move journal %1: %2")
                                        .arg(path, QString::fromLocal8Bit(std::strerror(errno))),
                                    errno);
        (void)::fchmod(fd, 0600);
        ::close(fd);
    }
    sqlite3* raw = nullptr;
    const int rc = sqlite3_open_v2(path.toUtf8().constData(), &raw,
                                   SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_EXRESCODE, nullptr);
    if (rc != SQLITE_OK) {
        Error e = Fail(raw, rc, path, QStringLiteral("open"));
        sqlite3_close_v2(raw);
        return e;
    }
    std::unique_ptr<MoveJournal> journal(new MoveJournal(path, raw));
    sqlite3_busy_timeout(raw, kBusyTimeoutMs);

    auto exec = [&](const char* sql, const QString& what) -> Status {
        const int r = sqlite3_exec(raw, sql, nullptr, nullptr, nullptr);
        if (r != SQLITE_OK) return Fail(raw, r, path, what);
        return Status::success();
    };
    // The first read of the header: a file that is not SQLite fails here,
    // before anything is written to it.
    int fileVersion = 0;
    {
        Stmt version(raw, "PRAGMA user_version");
        if (version.PrepareCode() != SQLITE_OK) return Fail(raw, version.PrepareCode(), path, QStringLiteral("read"));
        const int step = version.Step();
        if (step != SQLITE_ROW) return Fail(raw, step, path, QStringLiteral("read"));
        if (version.Int(0) > kSchemaVersion)
            return Error::permanent(QStringLiteral("the move journal %1 was written by a newer Mailvane (schema %2); "
                                                   "it is kept as it is")
                                        .arg(path)
                                        .arg(version.Int(0)));
        fileVersion = static_cast<int>(version.Int(0));
    }
    {
        Stmt check(raw, "PRAGMA quick_check");
        if (check.PrepareCode() != SQLITE_OK) return Fail(raw, check.PrepareCode(), path, QStringLiteral("check"));
        const int step = check.Step();
        if (step != SQLITE_ROW) return Fail(raw, step, path, QStringLiteral("check"));
        if (check.Text(0) != QLatin1String("ok"))
            return Error::permanent(QStringLiteral("the move journal %1 is damaged (%2); it is kept as it is: move it "
                                                   "away to start a new journal")
                                        .arg(path, check.Text(0)),
                                    SQLITE_CORRUPT);
    }
    if (!memory) {
        if (Status s = exec("PRAGMA journal_mode=WAL", QStringLiteral("WAL")); !s) return s.error();
    }
    if (Status s = exec("PRAGMA synchronous=FULL", QStringLiteral("synchronous")); !s) return s.error();
    {
        Transaction tx(raw);
        if (tx.BeginCode() != SQLITE_OK) return Fail(raw, tx.BeginCode(), path, QStringLiteral("schema"));
        if (fileVersion == 1) {
            if (Status s = exec(kUpgradeFrom1, QStringLiteral("upgrade")); !s) return s.error();
        }
        if (Status s = exec(kSchema, QStringLiteral("schema")); !s) return s.error();
        const QByteArray setVersion = "PRAGMA user_version=" + QByteArray::number(kSchemaVersion);
        if (Status s = exec(setVersion.constData(), QStringLiteral("schema")); !s) return s.error();
        if (const int c = tx.Commit(); c != SQLITE_OK) return Fail(raw, c, path, QStringLiteral("schema"));
    }
    return journal;
}

Result<std::unique_ptr<RunLock>> MoveJournal::LockRuns(std::chrono::milliseconds wait) const
{
    if (InMemory()) return RunLock::None();
    return RunLock::Acquire(m_path + QStringLiteral(".lock"), wait);
}

Result<qint64> MoveJournal::BeginRun(const QString& trigger, const QString& origin, qint64 undoes)
{
    Stmt s(m_db, "INSERT INTO runs(started, trigger, pid, origin, undoes) VALUES (?, ?, ?, ?, ?)");
    if (s.PrepareCode() != SQLITE_OK) return Fail(m_db, s.PrepareCode(), m_path, QStringLiteral("begin run"));
    s.Bind(1, Millis(QDateTime::currentDateTimeUtc()));
    s.Bind(2, trigger);
    s.Bind(3, QCoreApplication::applicationPid());
    s.Bind(4, origin);
    s.Bind(5, undoes);
    if (const int rc = s.Step(); rc != SQLITE_DONE) return Fail(m_db, rc, m_path, QStringLiteral("begin run"));
    return sqlite3_last_insert_rowid(m_db);
}

Status MoveJournal::EndRun(qint64 run)
{
    Stmt s(m_db, "UPDATE runs SET ended = ? WHERE run = ?");
    if (s.PrepareCode() != SQLITE_OK) return Fail(m_db, s.PrepareCode(), m_path, QStringLiteral("end run"));
    s.Bind(1, Millis(QDateTime::currentDateTimeUtc()));
    s.Bind(2, run);
    if (const int rc = s.Step(); rc != SQLITE_DONE) return Fail(m_db, rc, m_path, QStringLiteral("end run"));
    return Status::success();
}

Status MoveJournal::Intend(std::vector<MoveRow>& rows)
{
    if (rows.empty()) return Status::success();
    const QString what = QStringLiteral("write intended moves");
    Transaction tx(m_db);
    if (tx.BeginCode() != SQLITE_OK) return Fail(m_db, tx.BeginCode(), m_path, what);
    qint64 batch = 1;
    {
        Stmt next(m_db, "SELECT COALESCE(MAX(batch), 0) + 1 FROM moves");
        if (next.PrepareCode() != SQLITE_OK || next.Step() != SQLITE_ROW)
            return Fail(m_db, sqlite3_errcode(m_db), m_path, what);
        batch = next.Int(0);
    }
    Stmt s(m_db,
           "INSERT INTO moves(run, batch, rule_id, rule_name, kind, state, src_store, src_folder, src_id, dst_store, "
           "dst_folder, dst_mark, fp_unique, fp_message_id, fp_size, fp_date, flag_cleared, subject, sender, started, "
           "undo_of) VALUES (?,?,?,?,?,0,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)");
    if (s.PrepareCode() != SQLITE_OK) return Fail(m_db, s.PrepareCode(), m_path, what);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (MoveRow& r : rows) {
        s.Bind(1, r.run);
        s.Bind(2, batch);
        s.Bind(3, r.ruleId);
        s.Bind(4, r.ruleName);
        s.Bind(5, static_cast<qint64>(r.kind));
        s.Bind(6, r.srcStore);
        s.Bind(7, r.srcFolder);
        s.Bind(8, r.srcId);
        s.Bind(9, r.dstStore);
        s.Bind(10, r.dstFolder);
        s.Bind(11, r.dstMark);
        s.Bind(12, r.fingerprint.uniqueName);
        s.Bind(13, r.fingerprint.messageIdHeader);
        s.Bind(14, r.fingerprint.size);
        s.Bind(15, Millis(r.fingerprint.internalDate));
        s.Bind(16, r.flagCleared ? 1 : 0);
        s.Bind(17, r.subject);
        s.Bind(18, r.sender);
        s.Bind(19, Millis(now));
        s.Bind(20, r.undoOf);
        if (const int rc = s.Step(); rc != SQLITE_DONE) return Fail(m_db, rc, m_path, what);
        s.Reset();
        r.id = sqlite3_last_insert_rowid(m_db);
        r.batch = batch;
        r.state = MoveState::Intended;
        r.started = now;
    }
    if (const int rc = tx.Commit(); rc != SQLITE_OK) return Fail(m_db, rc, m_path, what);
    return Status::success();
}

Status MoveJournal::Finish(const std::vector<MoveRow>& rows)
{
    if (rows.empty()) return Status::success();
    const QString what = QStringLiteral("write finished moves");
    Transaction tx(m_db);
    if (tx.BeginCode() != SQLITE_OK) return Fail(m_db, tx.BeginCode(), m_path, what);
    Stmt s(m_db, "UPDATE moves SET state = ?, dst_id = ?, note = ?, finished = ? WHERE id = ?");
    if (s.PrepareCode() != SQLITE_OK) return Fail(m_db, s.PrepareCode(), m_path, what);
    const qint64 now = Millis(QDateTime::currentDateTimeUtc());
    for (const MoveRow& r : rows) {
        s.Bind(1, static_cast<qint64>(r.state));
        s.Bind(2, r.dstId);
        s.Bind(3, r.note);
        s.Bind(4, r.state == MoveState::Intended ? 0 : now);
        s.Bind(5, r.id);
        if (const int rc = s.Step(); rc != SQLITE_DONE) return Fail(m_db, rc, m_path, what);
        s.Reset();
    }
    if (const int rc = tx.Commit(); rc != SQLITE_OK) return Fail(m_db, rc, m_path, what);
    return Status::success();
}

namespace {

template <class Bind>
Result<std::vector<MoveRow>> Select(sqlite3* db, const QString& path, const QByteArray& where, Bind bind)
{
    const QByteArray sql = QByteArray("SELECT ") + kColumns + " FROM moves " + where;
    Stmt s(db, sql.constData());
    if (s.PrepareCode() != SQLITE_OK) return Fail(db, s.PrepareCode(), path, QStringLiteral("read moves"));
    bind(s);
    std::vector<MoveRow> rows;
    int rc;
    while ((rc = s.Step()) == SQLITE_ROW) rows.push_back(ReadRow(s));
    if (rc != SQLITE_DONE) return Fail(db, rc, path, QStringLiteral("read moves"));
    return rows;
}

}  // namespace

Result<std::vector<MoveRow>> MoveJournal::Unfinished()
{
    return Select(m_db, m_path, "WHERE state = 0 ORDER BY id", [](Stmt&) {});
}

Result<std::vector<MoveRow>> MoveJournal::RowsOfRun(qint64 run)
{
    return Select(m_db, m_path, "WHERE run = ? ORDER BY id", [run](Stmt& s) { s.Bind(1, run); });
}

Result<std::vector<MoveRow>> MoveJournal::RowsOfRule(int ruleId, const QDateTime& since)
{
    return Select(m_db, m_path, "WHERE rule_id = ? AND state <> 0 AND finished >= ? ORDER BY finished DESC, id DESC",
                  [&](Stmt& s) {
                      s.Bind(1, ruleId);
                      s.Bind(2, Millis(since));
                  });
}

namespace {

const char* const kRunColumns = "run, started, ended, trigger, pid, origin, undoes";

RunRow ReadRun(const Stmt& s)
{
    RunRow r;
    r.run = s.Int(0);
    r.started = FromMillis(s.Int(1));
    r.ended = FromMillis(s.Int(2));
    r.trigger = s.Text(3);
    r.pid = s.Int(4);
    r.origin = s.Text(5);
    r.undoes = s.Int(6);
    return r;
}

}  // namespace

Result<std::vector<RunRow>> MoveJournal::Runs(int limit)
{
    const QByteArray sql = QByteArray("SELECT ") + kRunColumns + " FROM runs ORDER BY run DESC LIMIT ?";
    Stmt s(m_db, sql.constData());
    if (s.PrepareCode() != SQLITE_OK) return Fail(m_db, s.PrepareCode(), m_path, QStringLiteral("read runs"));
    s.Bind(1, limit);
    std::vector<RunRow> runs;
    int rc;
    while ((rc = s.Step()) == SQLITE_ROW) runs.push_back(ReadRun(s));
    if (rc != SQLITE_DONE) return Fail(m_db, rc, m_path, QStringLiteral("read runs"));
    return runs;
}

Result<std::optional<RunRow>> MoveJournal::RunOf(qint64 run)
{
    const QByteArray sql = QByteArray("SELECT ") + kRunColumns + " FROM runs WHERE run = ?";
    Stmt s(m_db, sql.constData());
    if (s.PrepareCode() != SQLITE_OK) return Fail(m_db, s.PrepareCode(), m_path, QStringLiteral("read runs"));
    s.Bind(1, run);
    const int rc = s.Step();
    if (rc == SQLITE_ROW) return std::optional<RunRow>(ReadRun(s));
    if (rc != SQLITE_DONE) return Fail(m_db, rc, m_path, QStringLiteral("read runs"));
    return std::optional<RunRow>();
}

Status MoveJournal::RecordRules(const std::vector<RuleRunRow>& rules)
{
    if (rules.empty()) return Status::success();
    const QString what = QStringLiteral("write rule outcomes");
    Transaction tx(m_db);
    if (tx.BeginCode() != SQLITE_OK) return Fail(m_db, tx.BeginCode(), m_path, what);
    Stmt s(m_db, "INSERT INTO rule_runs(run, rule_id, rule_name, moved, error) VALUES (?,?,?,?,?)");
    if (s.PrepareCode() != SQLITE_OK) return Fail(m_db, s.PrepareCode(), m_path, what);
    for (const RuleRunRow& r : rules) {
        s.Bind(1, r.run);
        s.Bind(2, r.ruleId);
        s.Bind(3, r.ruleName);
        s.Bind(4, r.moved);
        if (!r.error.isEmpty()) s.Bind(5, r.error);
        if (const int rc = s.Step(); rc != SQLITE_DONE) return Fail(m_db, rc, m_path, what);
        s.Reset();
    }
    if (const int rc = tx.Commit(); rc != SQLITE_OK) return Fail(m_db, rc, m_path, what);
    return Status::success();
}

Result<std::vector<RuleRunRow>> MoveJournal::RulesOfRun(qint64 run)
{
    // A run from before the rule rows were kept has its moves counted.
    Stmt s(m_db,
           "SELECT rule_id, rule_name, moved, error FROM rule_runs WHERE run = ?1 "
           "UNION ALL SELECT rule_id, rule_name, SUM(state = 1), NULL FROM moves WHERE run = ?1 AND kind <> 2 "
           "AND NOT EXISTS (SELECT 1 FROM rule_runs WHERE run = ?1) GROUP BY rule_id, rule_name");
    if (s.PrepareCode() != SQLITE_OK) return Fail(m_db, s.PrepareCode(), m_path, QStringLiteral("read rule outcomes"));
    s.Bind(1, run);
    std::vector<RuleRunRow> rows;
    int rc;
    while ((rc = s.Step()) == SQLITE_ROW)
        rows.push_back({run, static_cast<int>(s.Int(0)), s.Text(1), static_cast<int>(s.Int(2)), s.Text(3)});
    if (rc != SQLITE_DONE) return Fail(m_db, rc, m_path, QStringLiteral("read rule outcomes"));
    return rows;
}

Result<std::vector<RuleHealth>> MoveJournal::Health(const QDateTime& since)
{
    const QString what = QStringLiteral("read rule health");
    // One pass over the rule rows (newest run first): the first row of a
    // rule is its last run, the first with an error its last error.
    Stmt s(m_db,
           "SELECT rr.rule_id, rr.run, runs.started, rr.moved, rr.error FROM rule_runs rr JOIN runs ON runs.run = rr.run "
           "ORDER BY rr.run DESC, rr.rowid DESC");
    if (s.PrepareCode() != SQLITE_OK) return Fail(m_db, s.PrepareCode(), m_path, what);
    std::vector<RuleHealth> out;
    std::map<int, size_t> index;
    const qint64 cut = Millis(since);
    int rc;
    while ((rc = s.Step()) == SQLITE_ROW) {
        const int rule = static_cast<int>(s.Int(0));
        auto [it, added] = index.try_emplace(rule, out.size());
        if (added) {
            RuleHealth h;
            h.ruleId = rule;
            h.lastRun = s.Int(1);
            h.lastRunStarted = FromMillis(s.Int(2));
            h.movedLastRun = static_cast<int>(s.Int(3));
            out.push_back(h);
        }
        RuleHealth& h = out[it->second];
        if (h.lastRun == s.Int(1) && !added) h.movedLastRun += static_cast<int>(s.Int(3));
        if (s.Int(2) >= cut) h.movedRecently += static_cast<int>(s.Int(3));
        if (h.lastErrorRun == 0 && !s.Text(4).isEmpty()) {
            h.lastError = s.Text(4);
            h.lastErrorRun = s.Int(1);
            h.lastErrorStarted = FromMillis(s.Int(2));
        }
    }
    if (rc != SQLITE_DONE) return Fail(m_db, rc, m_path, what);
    return out;
}

Result<qint64> MoveJournal::LastUndoableRun()
{
    Stmt s(m_db, "SELECT COALESCE(MAX(run), 0) FROM moves WHERE state = 1 AND kind <> 2");
    if (s.PrepareCode() != SQLITE_OK || s.Step() != SQLITE_ROW)
        return Fail(m_db, sqlite3_errcode(m_db), m_path, QStringLiteral("read runs"));
    return s.Int(0);
}

Result<std::vector<MoveRow>> MoveJournal::UndoRowsOf(qint64 run)
{
    return Select(m_db, m_path, "WHERE undo_of IN (SELECT id FROM moves WHERE run = ?) ORDER BY id",
                  [run](Stmt& s) { s.Bind(1, run); });
}

Result<std::vector<MoveRow>> MoveJournal::MovesOf(const QByteArray& store, const QByteArray& id, qint64 afterRow)
{
    return Select(m_db, m_path, "WHERE src_id = ? AND src_store = ? AND id > ? AND state = 1 ORDER BY id",
                  [&](Stmt& s) {
                      s.Bind(1, id);
                      s.Bind(2, store);
                      s.Bind(3, afterRow);
                  });
}

Status MoveJournal::Prune(const QDateTime& now, int maxRuns)
{
    const QString what = QStringLiteral("prune");
    const qint64 cut = Millis(now.addDays(-kKeepDays));
    Transaction tx(m_db);
    if (tx.BeginCode() != SQLITE_OK) return Fail(m_db, tx.BeginCode(), m_path, what);
    // A run is kept while it is recent or among the newest; a run with rows
    // still Intended is kept whatever its age, for recovery. The runs to
    // drop are chosen once, then their rows go through the run indexes, so
    // no statement scans every move.
    std::vector<qint64> dropped;
    {
        Stmt pick(m_db,
                  "SELECT run FROM runs WHERE started < ?1 AND run NOT IN (SELECT run FROM runs ORDER BY run DESC "
                  "LIMIT ?2) AND run NOT IN (SELECT run FROM moves WHERE state = 0) ORDER BY run LIMIT ?3");
        if (pick.PrepareCode() != SQLITE_OK) return Fail(m_db, pick.PrepareCode(), m_path, what);
        pick.Bind(1, cut);
        pick.Bind(2, kKeepRuns);
        pick.Bind(3, maxRuns);
        int rc;
        while ((rc = pick.Step()) == SQLITE_ROW) dropped.push_back(pick.Int(0));
        if (rc != SQLITE_DONE) return Fail(m_db, rc, m_path, what);
    }
    if (dropped.empty()) return Status::success();
    for (const char* sql : {"DELETE FROM moves WHERE run = ?", "DELETE FROM rule_runs WHERE run = ?",
                            "DELETE FROM runs WHERE run = ?"}) {
        Stmt drop(m_db, sql);
        if (drop.PrepareCode() != SQLITE_OK) return Fail(m_db, drop.PrepareCode(), m_path, what);
        for (qint64 run : dropped) {
            drop.Bind(1, run);
            if (const int rc = drop.Step(); rc != SQLITE_DONE) return Fail(m_db, rc, m_path, what);
            drop.Reset();
        }
    }
    if (const int rc = tx.Commit(); rc != SQLITE_OK) return Fail(m_db, rc, m_path, what);
    return Status::success();
}

}  // namespace mv::journal
