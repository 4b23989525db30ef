#pragma once
// A compact, crash-safe index of one folder's messages, shared by the
// stores: everything a rule reads except the body, so that a process can
// answer rules without opening a message or building an object per
// message.
//
// One file per folder, chosen by the store (Maildir: one per folder under
// the cache folder; IMAP: one per source folder of the mirror). It holds
// - the folder's validity: opaque bytes the store compares before trusting
//   the records (Maildir: the directories' times; IMAP: UIDVALIDITY and
//   HIGHESTMODSEQ);
// - per message a record: the key (Maildir unique name, IMAP UID), store
//   bytes the rules never read (Maildir: the file's sub-directory and info
//   part), size, a change stamp, the received date, store flags, the header
//   properties rules test and the recipient rows, with every string pooled;
// - per message the remembered answers of body terms. A message's text does
//   not change while its key, size and stamp stay the same, so an answer is
//   dropped by Put when either of those changes.
//
// The file is read in one piece into memory that is never copied per
// message; RecordView and MessageIndexSource read records in place. Changes
// (Put, Remove, Clear, SetValidity, RememberBody) are held in memory until
// Commit, which writes them to a new file, fsyncs it and renames it over
// the old one: a crash leaves the old or the new file, never a mix. A file
// that is not an index of this version, is truncated or fails its checksum
// is never trusted: Open starts empty and says so (rebuilt()), and the
// store parses the messages again.
//
// Not thread-safe for writing. Views are valid until the next Commit,
// Clear or destruction of the index; reading views from several threads at
// once is safe while nobody writes.

#include "platform/common/Error.h"
#include "platform/mapi/PropertySource.h"
#include "platform/mapi/Restriction.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace mv::stores {

class MessageIndexFile {
public:
    using Props = std::vector<std::pair<mapi::PropTag, QVariant>>;

    // The owning form of a record, for Put. Property values may be int,
    // bool, qint64, QString, QByteArray or QDateTime (kept as UTC
    // milliseconds); other types are not stored. Strings are pooled: equal
    // strings cost their bytes once per file.
    struct Record {
        QByteArray key;       // unique within the folder; records are kept sorted by it
        QByteArray aux;       // the store's own bytes, never seen by rules
        qint64 size = 0;
        qint64 stamp = 0;     // with key and size, the message's identity (Maildir: mtime in ns; IMAP: 0)
        qint64 dateMs = 0;    // received/internal date, UTC milliseconds
        quint32 flags = 0;    // the store's flag bits
        Props props;          // header and flag properties as the evaluator reads them
        std::vector<Props> recipients;  // one row per recipient (PR_MESSAGE_RECIPIENTS)
        // Remembered body answers: the term key with its lowest bit
        // replaced by the answer. Kept by the index; stores leave it alone.
        std::vector<quint64> bodyAnswers;
    };

    // One record where it lies (the loaded file or the pending changes).
    // Cheap to copy; valid until the next Commit, Clear or the index's end.
    class RecordView {
    public:
        RecordView() = default;
        bool isNull() const { return m_index == nullptr; }
        QByteArrayView key() const;
        QByteArrayView aux() const;
        qint64 size() const;
        qint64 stamp() const;
        qint64 dateMs() const;
        quint32 flags() const;
        // A property in place: strings come back as QStrings over the
        // index's memory (no copy); nullptr when the record lacks it.
        // `scratch` holds the value and must outlive the pointer's use.
        const QVariant* Find(mapi::PropTag tag, QVariant& scratch) const;
        int recipientCount() const;
        // Property `tag` of recipient row `row`, as Find.
        const QVariant* FindInRow(int row, mapi::PropTag tag, QVariant& scratch) const;
        // The remembered answer of a body term (see BodyTermKey), if any.
        std::optional<bool> BodyAnswer(quint64 termKey) const;
        // An owning copy, to change and Put back.
        Record ToRecord() const;

    private:
        friend class MessageIndexFile;
        const MessageIndexFile* m_index = nullptr;
        const void* m_base = nullptr;     // a record of the loaded file, or
        const Record* m_pending = nullptr;  // one held until Commit
    };

    ~MessageIndexFile();
    MessageIndexFile(const MessageIndexFile&) = delete;
    MessageIndexFile& operator=(const MessageIndexFile&) = delete;

    // Opens `path`, or starts empty when it does not exist. A damaged or
    // foreign file starts empty too (rebuilt() is true) and is replaced at
    // the next Commit. Fails (Temporary) only when the file exists and
    // cannot be read; the folder of `path` is made (0700) when missing.
    static Result<std::unique_ptr<MessageIndexFile>> Open(const QString& path);

    const QString& path() const { return m_path; }
    bool rebuilt() const { return m_rebuilt; }

    QByteArray validity() const;
    // The records in key order, pending changes included.
    qsizetype count() const;
    RecordView at(qsizetype i) const;
    // The record with this key, or a null view.
    RecordView find(QByteArrayView key) const;

    // Pending changes, written by Commit.
    void SetValidity(const QByteArray& validity);
    // Drops every record (a new UIDVALIDITY, a folder that was replaced).
    void Clear();
    // Inserts or replaces the record with record.key. Its remembered body
    // answers are kept when size and stamp are the old ones.
    void Put(Record record);
    void Remove(QByteArrayView key);
    // Remembers a body term's answer for the record with `key`; ignored
    // when there is no such record.
    void RememberBody(QByteArrayView key, quint64 termKey, bool answer);
    bool hasChanges() const { return m_dirty; }

    // Writes the folder anew from `recordAt(0 .. count-1)`, given in key
    // order, one at a time (nothing gathered first, so a large folder costs
    // one record's memory, not all of them), with `validity`. Each key keeps
    // the body answers it has under the same size and stamp, besides those
    // its record carries. Pending changes are dropped. Keys out of order
    // are a Permanent error and write nothing. Otherwise as Commit.
    Status Rewrite(const QByteArray& validity, qsizetype count,
                   const std::function<Record(qsizetype i)>& recordAt);

    // Writes the pending changes: a new file beside the old one (0600),
    // fsynced and renamed over it. On failure the pending changes stay and
    // the old file is untouched. Does nothing without changes.
    Status Commit();

    // A stable key for a content restriction on a text property: the same
    // term with the same tag and fuzzy level gives the same key in every
    // process; case is folded first when the level ignores case.
    static quint64 BodyTermKey(const mapi::Restriction& content);

    // An owning copy of a value a view read in place (a string or bytes over
    // the file's memory); other values are returned as they are.
    static QVariant Detached(const QVariant& value);

    // Size of the loaded file in bytes (for the benchmarks and tests).
    qint64 fileSize() const { return m_size; }

private:
    explicit MessageIndexFile(QString path);
    bool Load();
    std::vector<quint64> AnswersOf(const RecordView& record) const;
    Status WriteWith(const QByteArray& validity, qsizetype count, const std::function<Record(qsizetype)>& recordAt);
    void Unload();
    void Merge() const;

    QString m_path;
    bool m_rebuilt = false;
    bool m_dirty = false;
    bool m_cleared = false;
    // The file, mapped read-only; records point into it. Commit maps the
    // new file: the old mapping stays valid until then.
    const uchar* m_bytes = nullptr;
    qint64 m_size = 0;
    struct Layout;
    std::unique_ptr<const Layout> m_layout;
    std::optional<QByteArray> m_pendingValidity;
    // Pending records by key; nullopt: removed.
    std::map<QByteArray, std::optional<Record>> m_pending;
    // Body answers for records of the loaded file that are not pending.
    std::map<QByteArray, std::vector<quint64>> m_pendingAnswers;
    // The merged order while changes are pending: >= 0 a loaded record,
    // < 0 the pending record -1 - n in m_pendingOrder.
    mutable std::vector<qint64> m_merged;
    mutable std::vector<const Record*> m_pendingOrder;
    mutable bool m_mergedValid = false;
};

}  // namespace mv::stores
