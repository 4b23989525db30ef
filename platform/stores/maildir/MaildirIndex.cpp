#include "MaildirIndex.h"


#include <QCryptographicHash>
#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QIODevice>
#include <QStandardPaths>

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mv::stores::maildir {

namespace {

constexpr int kSchemaVersion = 1;
constexpr quint8 kBlobVersion = 2;

const char* const kStatements[] = {
    "SELECT uniq, filename, size, mtime, props FROM messages WHERE folder = ?",
    "INSERT OR REPLACE INTO messages (folder, uniq, filename, size, mtime, props) VALUES (?, ?, ?, ?, ?, ?)",
    "UPDATE messages SET filename = ?, size = ?, mtime = ? WHERE folder = ? AND uniq = ?",
    "DELETE FROM messages WHERE folder = ? AND uniq = ?",
};

void BindText(sqlite3_stmt* st, int i, const QString& s)
{
    const QByteArray utf8 = s.toUtf8();
    sqlite3_bind_text(st, i, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
}

QString ColumnText(sqlite3_stmt* st, int i)
{
    return QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(st, i)), sqlite3_column_bytes(st, i));
}

// Takes group and other bits off an existing file or directory.
void Tighten(const QString& path, mode_t mode)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat st{};
    if (::stat(name.constData(), &st) == 0 && (st.st_mode & 077) != 0) ::chmod(name.constData(), mode);
}

// Resets a statement on every path out of a call.
struct StmtGuard {
    sqlite3_stmt* st;
    ~StmtGuard()
    {
        if (st) {
            sqlite3_reset(st);
            sqlite3_clear_bindings(st);
        }
    }
};

}  // namespace

QByteArray HeaderProps::Serialize() const
{
    QByteArray blob;
    QDataStream out(&blob, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_6_4);
    out << kBlobVersion << quint32(props.size());
    for (const auto& [tag, value] : props) out << quint32(tag) << value;
    out << quint32(recipients.size());
    for (const Flat& r : recipients) {
        out << quint32(r.size());
        for (const auto& [tag, value] : r) out << quint32(tag) << value;
    }
    return blob;
}

std::shared_ptr<const HeaderProps> HeaderProps::Deserialize(const QByteArray& blob)
{
    QDataStream in(blob);
    in.setVersion(QDataStream::Qt_6_4);
    quint8 version = 0;
    quint32 n = 0;
    in >> version >> n;
    if (version != kBlobVersion || n > 4096) return nullptr;
    auto h = std::make_shared<HeaderProps>();
    h->props.reserve(n);
    for (quint32 i = 0; i < n && in.status() == QDataStream::Ok; ++i) {
        quint32 tag = 0;
        QVariant value;
        in >> tag >> value;
        h->props.emplace_back(tag, std::move(value));
    }
    quint32 r = 0;
    in >> r;
    if (r > 100000) return nullptr;
    h->recipients.resize(r);
    for (quint32 i = 0; i < r && in.status() == QDataStream::Ok; ++i) {
        quint32 fields = 0;
        in >> fields;
        if (fields > 64) return nullptr;
        for (quint32 f = 0; f < fields && in.status() == QDataStream::Ok; ++f) {
            quint32 tag = 0;
            QVariant value;
            in >> tag >> value;
            h->recipients[i].emplace_back(tag, std::move(value));
        }
    }
    if (in.status() != QDataStream::Ok) return nullptr;
    return h;
}

MaildirIndex::~MaildirIndex()
{
    Close();
}

QString MaildirIndex::DefaultPathFor(const QString& canonicalRoot)
{
    const QByteArray hash = QCryptographicHash::hash(canonicalRoot.toUtf8(), QCryptographicHash::Sha1).toHex();
    return QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + QLatin1String("/maildir-index/")
        + QString::fromLatin1(hash) + QLatin1String(".sqlite");
}

bool MaildirIndex::IsCorruption(int sqliteCode)
{
    const int primary = sqliteCode & 0xff;
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB || primary == SQLITE_FORMAT
        || primary == SQLITE_SCHEMA || primary == SQLITE_MISMATCH;
}

Error MaildirIndex::SqlError(const QString& what, int rc) const
{
    const QString detail = m_db ? QString::fromUtf8(sqlite3_errmsg(m_db)) : QString::fromUtf8(sqlite3_errstr(rc));
    const QString text = QStringLiteral("Maildir index %1: %2 (%3)").arg(what, detail, m_file);
    const int primary = rc & 0xff;
    if (primary == SQLITE_BUSY || primary == SQLITE_LOCKED) return Error::temporary(text, rc);
    return Error::permanent(text, rc);
}

void MaildirIndex::Close()
{
    for (sqlite3_stmt*& st : m_stmts) {
        sqlite3_finalize(st);
        st = nullptr;
    }
    if (m_db) sqlite3_close_v2(m_db);
    m_db = nullptr;
}

Status MaildirIndex::Exec(const char* sql)
{
    const int rc = sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr);
    if (rc != SQLITE_OK) return SqlError(QString::fromLatin1(sql), rc);
    return Status::success();
}

sqlite3_stmt* MaildirIndex::Prepared(Stmt which)
{
    if (!m_stmts[which] && m_db)
        sqlite3_prepare_v3(m_db, kStatements[which], -1, SQLITE_PREPARE_PERSISTENT, &m_stmts[which], nullptr);
    return m_stmts[which];
}

Status MaildirIndex::OpenOnce()
{
    const QString folder = QFileInfo(m_file).absolutePath();
    QDir().mkpath(folder);
    Tighten(folder, 0700);
    // Made here with 0600 so that SQLite, which gives the WAL and SHM files
    // the mode of the database, never creates a readable one.
    const int fd = ::open(QFile::encodeName(m_file).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd >= 0) ::close(fd);
    for (const char* suffix : {"", "-wal", "-shm"}) Tighten(m_file + QLatin1String(suffix), 0600);
    const int rc = sqlite3_open_v2(m_file.toUtf8().constData(), &m_db,
                                   SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc != SQLITE_OK) return SqlError(QStringLiteral("open"), rc);
    sqlite3_busy_timeout(m_db, 2000);
    if (Status s = Exec("PRAGMA journal_mode=WAL"); !s) return s;
    if (Status s = Exec("PRAGMA synchronous=NORMAL"); !s) return s;
    sqlite3_stmt* st = nullptr;
    int v = sqlite3_prepare_v2(m_db, "PRAGMA user_version", -1, &st, nullptr);
    int version = -1;
    if (v == SQLITE_OK && (v = sqlite3_step(st)) == SQLITE_ROW) version = sqlite3_column_int(st, 0);
    sqlite3_finalize(st);
    if (version < 0) return SqlError(QStringLiteral("read version"), v);
    if (version != kSchemaVersion) {
        // Another layout of the cache: start over rather than migrate.
        if (Status s = Exec("DROP TABLE IF EXISTS messages;"
                            "CREATE TABLE messages (folder TEXT NOT NULL, uniq TEXT NOT NULL,"
                            " filename TEXT NOT NULL, size INTEGER NOT NULL, mtime INTEGER NOT NULL,"
                            " props BLOB, PRIMARY KEY (folder, uniq)) WITHOUT ROWID;"
                            "PRAGMA user_version = 1;");
            !s)
            return s;
    }
    // A damaged page shows up only when read: look at the table now so that
    // the damage is found here, where rebuilding is cheap.
    if (Status s = Exec("SELECT count(*) FROM messages"); !s) return s;
    for (int i = 0; i < StmtCount; ++i) {
        if (!Prepared(static_cast<Stmt>(i))) return SqlError(QStringLiteral("prepare"), sqlite3_errcode(m_db));
    }
    return Status::success();
}

Status MaildirIndex::Open(const QString& file)
{
    Close();
    m_file = file;
    Status s = OpenOnce();
    if (s.ok()) return s;
    if (s.error().kind == ErrorKind::Temporary) {
        Close();
        return s;
    }
    return Rebuild();
}

Status MaildirIndex::Rebuild()
{
    Close();
    ++m_rebuilds;
    for (const char* suffix : {"", "-wal", "-shm", "-journal"}) QFile::remove(m_file + QLatin1String(suffix));
    Status s = OpenOnce();
    if (!s) {
        Close();
        return Error::permanent(QStringLiteral("The Maildir index cannot be rebuilt: %1").arg(s.error().message),
                                s.error().code);
    }
    return s;
}

Status MaildirIndex::Load(const QString& folder, const std::function<void(IndexedMessage&&)>& sink)
{
    sqlite3_stmt* st = Prepared(SelectFolder);
    if (!st) return Error::permanent(QStringLiteral("The Maildir index is not open."));
    StmtGuard guard{st};
    BindText(st, 1, folder);
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
        IndexedMessage m;
        m.unique = ColumnText(st, 0);
        m.relName = ColumnText(st, 1);
        m.size = sqlite3_column_int64(st, 2);
        m.mtimeNs = sqlite3_column_int64(st, 3);
        const QByteArray blob = QByteArray::fromRawData(static_cast<const char*>(sqlite3_column_blob(st, 4)),
                                                        sqlite3_column_bytes(st, 4));
        m.header = HeaderProps::Deserialize(blob);  // null: parsed again by the scan
        sink(std::move(m));
    }
    if (rc != SQLITE_DONE) return SqlError(QStringLiteral("read"), rc);
    return Status::success();
}

Status MaildirIndex::Begin()
{
    if (!m_db) return Error::permanent(QStringLiteral("The Maildir index is not open."));
    return Exec("BEGIN IMMEDIATE");
}

Status MaildirIndex::Commit()
{
    return Exec("COMMIT");
}

void MaildirIndex::Rollback()
{
    if (m_db) sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
}

Status MaildirIndex::Put(const QString& folder, const IndexedMessage& message)
{
    sqlite3_stmt* st = Prepared(Insert);
    if (!st) return Error::permanent(QStringLiteral("The Maildir index is not open."));
    StmtGuard guard{st};
    BindText(st, 1, folder);
    BindText(st, 2, message.unique);
    BindText(st, 3, message.relName);
    sqlite3_bind_int64(st, 4, message.size);
    sqlite3_bind_int64(st, 5, message.mtimeNs);
    const QByteArray blob = message.header ? message.header->Serialize() : QByteArray();
    sqlite3_bind_blob(st, 6, blob.constData(), int(blob.size()), SQLITE_TRANSIENT);
    const int rc = sqlite3_step(st);
    if (rc != SQLITE_DONE) return SqlError(QStringLiteral("write"), rc);
    return Status::success();
}

Status MaildirIndex::Rename(const QString& folder, const QString& unique, const QString& relName, qint64 size,
                            qint64 mtimeNs)
{
    sqlite3_stmt* st = Prepared(UpdateName);
    if (!st) return Error::permanent(QStringLiteral("The Maildir index is not open."));
    StmtGuard guard{st};
    BindText(st, 1, relName);
    sqlite3_bind_int64(st, 2, size);
    sqlite3_bind_int64(st, 3, mtimeNs);
    BindText(st, 4, folder);
    BindText(st, 5, unique);
    const int rc = sqlite3_step(st);
    if (rc != SQLITE_DONE) return SqlError(QStringLiteral("write"), rc);
    return Status::success();
}

Status MaildirIndex::Remove(const QString& folder, const QString& unique)
{
    sqlite3_stmt* st = Prepared(Delete);
    if (!st) return Error::permanent(QStringLiteral("The Maildir index is not open."));
    StmtGuard guard{st};
    BindText(st, 1, folder);
    BindText(st, 2, unique);
    const int rc = sqlite3_step(st);
    if (rc != SQLITE_DONE) return SqlError(QStringLiteral("write"), rc);
    return Status::success();
}

}  // namespace mv::stores::maildir
