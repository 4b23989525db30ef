#pragma once
// The per-store index: one SQLite file in the cache folder with, per folder
// and unique name, the current file name, size, mtime and the message's
// header properties (everything but the body). It is only a cache: a file
// that cannot be used is deleted and built again from the messages.
//
// Not thread-safe; the store uses it from one thread.

#include "platform/common/Error.h"
#include "platform/mapi/PropertySource.h"

#include <QString>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace mv::stores::maildir {

// Header properties of one message as parsed from its file; shared between
// the index cache and the sources handed to the evaluator.
struct HeaderProps {
    std::vector<std::pair<mapi::PropTag, QVariant>> props;  // flat: a dozen entries, cheaper than a hash
    // One flat list per recipient: a QHash per recipient would cost most
    // of a kilobyte each, times every recipient of 100,000 messages.
    using Flat = std::vector<std::pair<mapi::PropTag, QVariant>>;
    std::vector<Flat> recipients;
    // A recipient row without PR_ADDRTYPE has this one: the cache leaves
    // out what every row would repeat.
    static inline const QVariant kRecipientAddrType = QStringLiteral("SMTP");

    QByteArray Serialize() const;
    static std::shared_ptr<const HeaderProps> Deserialize(const QByteArray& blob);  // null when unreadable
};

struct IndexedMessage {
    QString unique;
    QString relName;   // "cur/<file name>" or "new/<file name>"
    qint64 size = 0;
    qint64 mtimeNs = 0;
    std::shared_ptr<const HeaderProps> header;
};

class MaildirIndex {
public:
    MaildirIndex() = default;
    ~MaildirIndex();
    MaildirIndex(const MaildirIndex&) = delete;
    MaildirIndex& operator=(const MaildirIndex&) = delete;

    // QStandardPaths::CacheLocation + "/maildir-index/<sha1 of root>.sqlite".
    static QString DefaultPathFor(const QString& canonicalRoot);

    // Opens or creates the file; a corrupt or foreign file is deleted and
    // created anew. Fails only when no usable index can be had. The index
    // holds senders and subjects: its folder is made 0700 and the file with
    // its WAL and SHM 0600, tightened here when they are wider.
    Status Open(const QString& file);
    // Deletes the file and starts empty (after a corruption found later).
    Status Rebuild();
    bool isOpen() const { return m_db != nullptr; }
    const QString& file() const { return m_file; }
    int rebuilds() const { return m_rebuilds; }

    // Hands the folder's rows to `sink` one at a time, so that the caller
    // can compact each before the next is read.
    Status Load(const QString& folder, const std::function<void(IndexedMessage&&)>& sink);

    Status Begin();
    Status Commit();
    void Rollback();

    Status Put(const QString& folder, const IndexedMessage& message);
    Status Rename(const QString& folder, const QString& unique, const QString& relName, qint64 size, qint64 mtimeNs);
    Status Remove(const QString& folder, const QString& unique);

    // A result code of SQLite that means the file itself is bad.
    static bool IsCorruption(int sqliteCode);

private:
    enum Stmt { SelectFolder, Insert, UpdateName, Delete, StmtCount };
    Status OpenOnce();
    void Close();
    Status Exec(const char* sql);
    Error SqlError(const QString& what, int rc) const;
    sqlite3_stmt* Prepared(Stmt which);

    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_stmts[StmtCount] = {};
    QString m_file;
    int m_rebuilds = 0;
};

// RAII: rolls back unless committed.
class IndexTransaction {
public:
    explicit IndexTransaction(MaildirIndex& index) : m_index(index), m_status(index.Begin()) {}
    ~IndexTransaction()
    {
        if (m_status.ok() && !m_done) m_index.Rollback();
    }
    const Status& status() const { return m_status; }
    Status Commit()
    {
        m_done = true;
        return m_status.ok() ? m_index.Commit() : m_status;
    }

private:
    MaildirIndex& m_index;
    Status m_status;
    bool m_done = false;
};

}  // namespace mv::stores::maildir
