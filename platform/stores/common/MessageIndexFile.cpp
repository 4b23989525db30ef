#include "MessageIndexFile.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QTimeZone>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mv::stores {

// The file, all integers little-endian as the machine writes them (the
// file is a cache of this machine, never exchanged):
//   FileHeader
//   tags     u32[tagCount]           every property tag the file uses
//   records  DiskRecord[recordCount] sorted by key
//   props    DiskProp[propCount]     each record's properties, then its rows'
//   rows     DiskRow[rowCount]
//   answers  u64[answerCount]
//   pool     entries of u32 length + data, 4-aligned; strings as UTF-16
//   u64 checksum of everything before it
namespace {

constexpr char kMagic[8] = {'M', 'V', 'I', 'D', 'X', '\r', '\n', '\x1a'};
constexpr quint32 kVersion = 1;

struct FileHeader {
    char magic[8];
    quint32 version;
    quint32 tagCount;
    quint32 recordCount;
    quint32 propCount;
    quint32 rowCount;
    quint32 answerCount;
    quint64 poolSize;
    quint32 validityRef;
    quint32 reserved;
};

struct DiskRecord {
    qint64 size;
    qint64 stamp;
    qint64 dateMs;
    quint32 flags;
    quint32 keyRef;
    quint32 auxRef;
    quint32 propBegin;
    quint32 rowBegin;
    quint32 answerBegin;
    quint16 propCount;
    quint16 rowCount;
    quint16 answerCount;
    quint16 reserved;
};
static_assert(sizeof(DiskRecord) == 56);

enum Kind : quint16 { KInt = 1, KBool, KString, KBytes, KInt64, KDateTime };

struct DiskProp {
    quint16 tagSlot;
    quint16 kind;
    quint32 value;  // KInt, KBool: the value; others: a pool reference
};

struct DiskRow {
    quint32 propBegin;
    quint32 propCount;
};

quint64 Checksum(const uchar* data, qint64 size)
{
    // Four independent lanes over 8-byte words: fast enough to check a
    // 50 MB file at every open, and any garbled word changes it.
    constexpr quint64 kPrime = 0x100000001b3ULL;
    quint64 lane[4] = {0xcbf29ce484222325ULL, 0x84222325cbf29ce4ULL, 0x9e3779b97f4a7c15ULL, 0x7f4a7c159e3779b9ULL};
    qint64 i = 0;
    for (; i + 32 <= size; i += 32) {
        for (int l = 0; l < 4; ++l) {
            quint64 w;
            std::memcpy(&w, data + i + 8 * l, 8);
            lane[l] = (lane[l] ^ w) * kPrime;
            lane[l] ^= lane[l] >> 29;
        }
    }
    quint64 h = quint64(size);
    for (; i < size; ++i) h = (h ^ data[i]) * kPrime;
    for (quint64 l : lane) h = (h ^ l) * kPrime ^ (h >> 31);
    return h;
}

}  // namespace

struct MessageIndexFile::Layout {
    const FileHeader* header = nullptr;
    const quint32* tags = nullptr;
    const DiskRecord* records = nullptr;
    const DiskProp* props = nullptr;
    const DiskRow* rows = nullptr;
    const quint64* answers = nullptr;
    const uchar* pool = nullptr;
    quint64 poolSize = 0;

    // Pool entry: its bytes, or empty when the reference is out of range.
    QByteArrayView Bytes(quint32 ref) const
    {
        if (quint64(ref) + 4 > poolSize) return {};
        quint32 len;
        std::memcpy(&len, pool + ref, 4);
        if (quint64(ref) + 4 + len > poolSize) return {};
        return QByteArrayView(reinterpret_cast<const char*>(pool + ref + 4), qsizetype(len));
    }
    QString String(quint32 ref) const
    {
        const QByteArrayView b = Bytes(ref);
        return QString::fromRawData(reinterpret_cast<const QChar*>(b.data()), b.size() / 2);
    }
    QVariant Value(const DiskProp& p) const
    {
        switch (p.kind) {
        case KInt: return QVariant(int(p.value));
        case KBool: return QVariant(p.value != 0);
        case KString: return QVariant(String(p.value));
        case KBytes: {
            const QByteArrayView b = Bytes(p.value);
            return QVariant(QByteArray::fromRawData(b.data(), b.size()));
        }
        case KInt64:
        case KDateTime: {
            const QByteArrayView b = Bytes(p.value);
            if (b.size() != 8) return {};
            qint64 v;
            std::memcpy(&v, b.data(), 8);
            if (p.kind == KInt64) return QVariant(v);
            return QVariant(QDateTime::fromMSecsSinceEpoch(v, Qt::UTC));
        }
        default: return {};
        }
    }
    const QVariant* FindIn(quint32 begin, quint32 count, mapi::PropTag tag, QVariant& scratch) const
    {
        for (quint32 i = begin; i < begin + count; ++i) {
            if (tags[props[i].tagSlot] != tag) continue;
            scratch = Value(props[i]);
            return scratch.isValid() ? &scratch : nullptr;
        }
        return nullptr;
    }
    MessageIndexFile::Props PropsOf(quint32 begin, quint32 count) const
    {
        MessageIndexFile::Props out;
        out.reserve(count);
        // Owning copies: the record outlives the mapping.
        for (quint32 i = begin; i < begin + count; ++i)
            out.emplace_back(tags[props[i].tagSlot], MessageIndexFile::Detached(Value(props[i])));
        return out;
    }
};

// ---- RecordView

namespace {
const DiskRecord* Disk(const void* p) { return static_cast<const DiskRecord*>(p); }
}  // namespace

QByteArrayView MessageIndexFile::RecordView::key() const
{
    if (m_pending) return m_pending->key;
    return m_index->m_layout->Bytes(Disk(m_base)->keyRef);
}

QByteArrayView MessageIndexFile::RecordView::aux() const
{
    if (m_pending) return m_pending->aux;
    return m_index->m_layout->Bytes(Disk(m_base)->auxRef);
}

qint64 MessageIndexFile::RecordView::size() const { return m_pending ? m_pending->size : Disk(m_base)->size; }
qint64 MessageIndexFile::RecordView::stamp() const { return m_pending ? m_pending->stamp : Disk(m_base)->stamp; }
qint64 MessageIndexFile::RecordView::dateMs() const { return m_pending ? m_pending->dateMs : Disk(m_base)->dateMs; }
quint32 MessageIndexFile::RecordView::flags() const { return m_pending ? m_pending->flags : Disk(m_base)->flags; }

const QVariant* MessageIndexFile::RecordView::Find(mapi::PropTag tag, QVariant& scratch) const
{
    if (m_pending) {
        for (const auto& [t, v] : m_pending->props)
            if (t == tag) return &v;
        return nullptr;
    }
    const DiskRecord* r = Disk(m_base);
    return m_index->m_layout->FindIn(r->propBegin, r->propCount, tag, scratch);
}

int MessageIndexFile::RecordView::recipientCount() const
{
    return m_pending ? int(m_pending->recipients.size()) : Disk(m_base)->rowCount;
}

const QVariant* MessageIndexFile::RecordView::FindInRow(int row, mapi::PropTag tag, QVariant& scratch) const
{
    if (row < 0 || row >= recipientCount()) return nullptr;
    if (m_pending) {
        for (const auto& [t, v] : m_pending->recipients[size_t(row)])
            if (t == tag) return &v;
        return nullptr;
    }
    const Layout& l = *m_index->m_layout;
    const DiskRow& r = l.rows[Disk(m_base)->rowBegin + quint32(row)];
    return l.FindIn(r.propBegin, r.propCount, tag, scratch);
}

std::optional<bool> MessageIndexFile::RecordView::BodyAnswer(quint64 termKey) const
{
    const quint64 wanted = termKey & ~quint64(1);
    auto look = [&](const quint64* begin, const quint64* end) -> std::optional<bool> {
        for (const quint64* a = begin; a != end; ++a)
            if ((*a & ~quint64(1)) == wanted) return (*a & 1) != 0;
        return std::nullopt;
    };
    if (m_pending) return look(m_pending->bodyAnswers.data(), m_pending->bodyAnswers.data() + m_pending->bodyAnswers.size());
    const DiskRecord* r = Disk(m_base);
    const quint64* a = m_index->m_layout->answers + r->answerBegin;
    if (auto known = look(a, a + r->answerCount)) return known;
    // Answers learnt since the file was read.
    auto it = m_index->m_pendingAnswers.find(QByteArray::fromRawData(key().data(), key().size()));
    if (it == m_index->m_pendingAnswers.end()) return std::nullopt;
    return look(it->second.data(), it->second.data() + it->second.size());
}

MessageIndexFile::Record MessageIndexFile::RecordView::ToRecord() const
{
    if (m_pending) return *m_pending;
    const Layout& l = *m_index->m_layout;
    const DiskRecord* r = Disk(m_base);
    Record out;
    out.key = key().toByteArray();
    out.aux = aux().toByteArray();
    out.size = r->size;
    out.stamp = r->stamp;
    out.dateMs = r->dateMs;
    out.flags = r->flags;
    out.props = l.PropsOf(r->propBegin, r->propCount);
    for (quint32 i = 0; i < r->rowCount; ++i) {
        const DiskRow& row = l.rows[r->rowBegin + i];
        out.recipients.push_back(l.PropsOf(row.propBegin, row.propCount));
    }
    out.bodyAnswers.assign(l.answers + r->answerBegin, l.answers + r->answerBegin + r->answerCount);
    auto it = m_index->m_pendingAnswers.find(out.key);
    if (it != m_index->m_pendingAnswers.end())
        out.bodyAnswers.insert(out.bodyAnswers.end(), it->second.begin(), it->second.end());
    return out;
}

// ---- Opening and loading

MessageIndexFile::MessageIndexFile(QString path) : m_path(std::move(path)) {}

MessageIndexFile::~MessageIndexFile()
{
    Unload();
}

void MessageIndexFile::Unload()
{
    if (m_bytes) ::munmap(const_cast<uchar*>(m_bytes), size_t(m_size));
    m_bytes = nullptr;
    m_size = 0;
    m_layout.reset();
}

Result<std::unique_ptr<MessageIndexFile>> MessageIndexFile::Open(const QString& path)
{
    std::unique_ptr<MessageIndexFile> index(new MessageIndexFile(path));
    const QString dir = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(dir))
        return Error::temporary(QStringLiteral("Cannot make the index folder %1.").arg(dir));
    QFile::setPermissions(dir, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT) return index;
        return Error::temporary(QStringLiteral("Cannot read the index %1: %2").arg(path, qt_error_string(errno)), errno);
    }
    struct stat st{};
    if (::fstat(fd, &st) != 0 || st.st_size <= 0) {
        ::close(fd);
        index->m_rebuilt = true;
        return index;
    }
    void* map = ::mmap(nullptr, size_t(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
    ::close(fd);
    if (map == MAP_FAILED)
        return Error::temporary(QStringLiteral("Cannot map the index %1: %2").arg(path, qt_error_string(errno)), errno);
    index->m_bytes = static_cast<const uchar*>(map);
    index->m_size = st.st_size;
    if (!index->Load()) {
        index->Unload();
        index->m_rebuilt = true;
    }
    return index;
}

// Checks everything a view will rely on, so that no damaged or foreign
// file is ever read out of bounds.
bool MessageIndexFile::Load()
{
    if (m_size < qint64(sizeof(FileHeader) + 8)) return false;
    quint64 stored;
    std::memcpy(&stored, m_bytes + m_size - 8, 8);
    if (Checksum(m_bytes, m_size - 8) != stored) return false;
    const auto* h = reinterpret_cast<const FileHeader*>(m_bytes);
    if (std::memcmp(h->magic, kMagic, 8) != 0 || h->version != kVersion) return false;
    auto layout = std::make_unique<Layout>();
    layout->header = h;
    quint64 at = sizeof(FileHeader);
    const quint64 end = quint64(m_size) - 8;
    auto take = [&](quint64 bytes) -> const uchar* {
        at = (at + 7) & ~quint64(7);
        if (at + bytes > end) return nullptr;
        const uchar* p = m_bytes + at;
        at += bytes;
        return p;
    };
    const uchar* tags = take(quint64(h->tagCount) * 4);
    const uchar* records = take(quint64(h->recordCount) * sizeof(DiskRecord));
    const uchar* props = take(quint64(h->propCount) * sizeof(DiskProp));
    const uchar* rows = take(quint64(h->rowCount) * sizeof(DiskRow));
    const uchar* answers = take(quint64(h->answerCount) * 8);
    const uchar* pool = take(h->poolSize);
    if (!tags || !records || !props || !rows || !answers || !pool) return false;
    layout->tags = reinterpret_cast<const quint32*>(tags);
    layout->records = reinterpret_cast<const DiskRecord*>(records);
    layout->props = reinterpret_cast<const DiskProp*>(props);
    layout->rows = reinterpret_cast<const DiskRow*>(rows);
    layout->answers = reinterpret_cast<const quint64*>(answers);
    layout->pool = pool;
    layout->poolSize = h->poolSize;
    for (quint32 i = 0; i < h->propCount; ++i)
        if (layout->props[i].tagSlot >= h->tagCount) return false;
    for (quint32 i = 0; i < h->rowCount; ++i) {
        const DiskRow& r = layout->rows[i];
        if (quint64(r.propBegin) + r.propCount > h->propCount) return false;
    }
    for (quint32 i = 0; i < h->recordCount; ++i) {
        const DiskRecord& r = layout->records[i];
        if (quint64(r.propBegin) + r.propCount > h->propCount || quint64(r.rowBegin) + r.rowCount > h->rowCount
            || quint64(r.answerBegin) + r.answerCount > h->answerCount)
            return false;
    }
    m_layout = std::move(layout);
    return true;
}

// ---- Reading

QByteArray MessageIndexFile::validity() const
{
    if (m_pendingValidity) return *m_pendingValidity;
    if (!m_layout) return {};
    return m_layout->Bytes(m_layout->header->validityRef).toByteArray();
}

void MessageIndexFile::Merge() const
{
    if (m_mergedValid) return;
    m_merged.clear();
    m_pendingOrder.clear();
    const quint32 base = (m_layout && !m_cleared) ? m_layout->header->recordCount : 0;
    m_merged.reserve(base + m_pending.size());
    auto it = m_pending.begin();
    auto pushPending = [&](const std::optional<Record>& r) {
        if (!r) return;
        m_merged.push_back(-1 - qint64(m_pendingOrder.size()));
        m_pendingOrder.push_back(&*r);
    };
    for (quint32 i = 0; i < base; ++i) {
        const QByteArrayView key = m_layout->Bytes(m_layout->records[i].keyRef);
        while (it != m_pending.end() && QByteArrayView(it->first) < key) pushPending((it++)->second);
        if (it != m_pending.end() && QByteArrayView(it->first) == key) {
            pushPending((it++)->second);
            continue;
        }
        m_merged.push_back(qint64(i));
    }
    for (; it != m_pending.end(); ++it) pushPending(it->second);
    m_mergedValid = true;
}

qsizetype MessageIndexFile::count() const
{
    if (m_pending.empty() && !m_cleared) return m_layout ? qsizetype(m_layout->header->recordCount) : 0;
    Merge();
    return qsizetype(m_merged.size());
}

MessageIndexFile::RecordView MessageIndexFile::at(qsizetype i) const
{
    RecordView v;
    v.m_index = this;
    if (m_pending.empty() && !m_cleared) {
        v.m_base = &m_layout->records[i];
        return v;
    }
    Merge();
    const qint64 slot = m_merged[size_t(i)];
    if (slot >= 0) v.m_base = &m_layout->records[slot];
    else v.m_pending = m_pendingOrder[size_t(-1 - slot)];
    return v;
}

MessageIndexFile::RecordView MessageIndexFile::find(QByteArrayView key) const
{
    RecordView v;
    auto it = m_pending.find(QByteArray::fromRawData(key.data(), key.size()));
    if (it != m_pending.end()) {
        if (it->second) {
            v.m_index = this;
            v.m_pending = &*it->second;
        }
        return v;
    }
    if (!m_layout || m_cleared) return v;
    const DiskRecord* begin = m_layout->records;
    const DiskRecord* end = begin + m_layout->header->recordCount;
    const DiskRecord* found = std::lower_bound(begin, end, key, [this](const DiskRecord& r, QByteArrayView k) {
        return m_layout->Bytes(r.keyRef) < k;
    });
    if (found != end && m_layout->Bytes(found->keyRef) == key) {
        v.m_index = this;
        v.m_base = found;
    }
    return v;
}

// ---- Changes

void MessageIndexFile::SetValidity(const QByteArray& validity)
{
    if (validity == this->validity()) return;
    m_pendingValidity = validity;
    m_dirty = true;
}

void MessageIndexFile::Clear()
{
    m_cleared = true;
    m_pending.clear();
    m_pendingAnswers.clear();
    m_mergedValid = false;
    m_dirty = true;
}

std::vector<quint64> MessageIndexFile::AnswersOf(const RecordView& record) const
{
    if (record.m_pending) return record.m_pending->bodyAnswers;
    const DiskRecord* r = Disk(record.m_base);
    std::vector<quint64> out(m_layout->answers + r->answerBegin, m_layout->answers + r->answerBegin + r->answerCount);
    auto it = m_pendingAnswers.find(QByteArray::fromRawData(record.key().data(), record.key().size()));
    if (it != m_pendingAnswers.end()) out.insert(out.end(), it->second.begin(), it->second.end());
    return out;
}

void MessageIndexFile::Put(Record record)
{
    const RecordView old = find(record.key);
    record.bodyAnswers.clear();
    if (!old.isNull() && old.size() == record.size && old.stamp() == record.stamp)
        record.bodyAnswers = AnswersOf(old);
    m_pendingAnswers.erase(record.key);
    QByteArray key = record.key;
    m_pending[key] = std::move(record);
    m_mergedValid = false;
    m_dirty = true;
}

void MessageIndexFile::Remove(QByteArrayView keyView)
{
    const QByteArray key = keyView.toByteArray();
    if (find(key).isNull()) return;
    m_pendingAnswers.erase(key);
    m_pending[key] = std::nullopt;
    m_mergedValid = false;
    m_dirty = true;
}

void MessageIndexFile::RememberBody(QByteArrayView keyView, quint64 termKey, bool answer)
{
    const RecordView r = find(keyView);
    if (r.isNull() || r.BodyAnswer(termKey)) return;
    const quint64 entry = (termKey & ~quint64(1)) | (answer ? 1 : 0);
    const QByteArray key = keyView.toByteArray();
    auto it = m_pending.find(key);
    if (it != m_pending.end() && it->second) it->second->bodyAnswers.push_back(entry);
    else m_pendingAnswers[key].push_back(entry);
    m_dirty = true;
}

QVariant MessageIndexFile::Detached(const QVariant& value)
{
    if (value.typeId() == QMetaType::QString) {
        const QString& s = *static_cast<const QString*>(value.constData());
        return QVariant(QString(s.constData(), s.size()));
    }
    if (value.typeId() == QMetaType::QByteArray) {
        const QByteArray& b = *static_cast<const QByteArray*>(value.constData());
        return QVariant(QByteArray(b.constData(), b.size()));
    }
    return value;
}

quint64 MessageIndexFile::BodyTermKey(const mapi::Restriction& content)
{
    const bool foldCase = content.fuzzyLevel & (mapi::FL_IGNORECASE | mapi::FL_LOOSE);
    const QString term = content.value.toString();
    QCryptographicHash hash(QCryptographicHash::Sha1);
    const quint32 head[2] = {content.propTag & 0xFFFF0000u, content.fuzzyLevel};
    hash.addData(QByteArrayView(reinterpret_cast<const char*>(head), sizeof head));
    hash.addData((foldCase ? term.toCaseFolded() : term).toUtf8());
    quint64 key;
    std::memcpy(&key, hash.resultView().data(), 8);
    return key;
}

// ---- Writing

namespace {

class Writer {
public:
    QByteArray tags, records, props, rows, answers, pool;
    quint32 recordCount = 0, propCount = 0, rowCount = 0, answerCount = 0;

    quint32 Tag(mapi::PropTag tag)
    {
        auto it = m_tagSlots.constFind(tag);
        if (it != m_tagSlots.constEnd()) return *it;
        const quint32 slot = quint32(m_tagSlots.size());
        m_tagSlots.insert(tag, slot);
        tags.append(reinterpret_cast<const char*>(&tag), 4);
        return slot;
    }
    quint32 Bytes(QByteArrayView bytes)
    {
        // Looked up without a copy; only a string new to the pool is copied.
        auto it = m_pooled.constFind(QByteArray::fromRawData(bytes.data(), bytes.size()));
        if (it != m_pooled.constEnd()) return *it;
        const quint32 ref = quint32(pool.size());
        const quint32 len = quint32(bytes.size());
        pool.append(reinterpret_cast<const char*>(&len), 4);
        pool.append(bytes.data(), bytes.size());
        while (pool.size() % 4) pool.append('\0');
        m_pooled.insert(bytes.toByteArray(), ref);
        return ref;
    }
    quint32 String(const QString& s)
    {
        return Bytes(QByteArrayView(reinterpret_cast<const char*>(s.constData()), s.size() * 2));
    }
    bool Prop(mapi::PropTag tag, const QVariant& v)
    {
        DiskProp p{quint16(Tag(tag)), 0, 0};
        switch (v.typeId()) {
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::Short:
        case QMetaType::UShort:
            p.kind = KInt;
            p.value = quint32(v.toInt());
            break;
        case QMetaType::Bool:
            p.kind = KBool;
            p.value = v.toBool() ? 1 : 0;
            break;
        case QMetaType::QString:
            p.kind = KString;
            p.value = String(*static_cast<const QString*>(v.constData()));
            break;
        case QMetaType::QByteArray:
            p.kind = KBytes;
            p.value = Bytes(*static_cast<const QByteArray*>(v.constData()));
            break;
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::QDateTime: {
            const bool date = v.typeId() == QMetaType::QDateTime;
            if (date && !v.toDateTime().isValid()) return false;
            const qint64 n = date ? v.toDateTime().toMSecsSinceEpoch() : v.toLongLong();
            p.kind = date ? KDateTime : KInt64;
            p.value = Bytes(QByteArrayView(reinterpret_cast<const char*>(&n), 8));
            break;
        }
        default:
            return false;  // not stored: see Record
        }
        props.append(reinterpret_cast<const char*>(&p), sizeof p);
        ++propCount;
        return true;
    }
    quint16 Props(const MessageIndexFile::Props& list)
    {
        quint16 n = 0;
        for (const auto& [tag, v] : list)
            if (n < 0xFFFF && Prop(tag, v)) ++n;
        return n;
    }
    void Record(const MessageIndexFile::Record& r)
    {
        DiskRecord d{};
        d.size = r.size;
        d.stamp = r.stamp;
        d.dateMs = r.dateMs;
        d.flags = r.flags;
        d.keyRef = Bytes(r.key);
        d.auxRef = Bytes(r.aux);
        d.propBegin = propCount;
        d.propCount = Props(r.props);
        // Rows' properties follow the record's own.
        d.rowBegin = rowCount;
        for (const auto& row : r.recipients) {
            if (d.rowCount == 0xFFFF) break;
            DiskRow dr{propCount, 0};
            dr.propCount = Props(row);
            rows.append(reinterpret_cast<const char*>(&dr), sizeof dr);
            ++d.rowCount;
        }
        rowCount += d.rowCount;
        d.answerBegin = answerCount;
        d.answerCount = quint16(std::min<size_t>(r.bodyAnswers.size(), 0xFFFF));
        answers.append(reinterpret_cast<const char*>(r.bodyAnswers.data()), qsizetype(d.answerCount) * 8);
        answerCount += d.answerCount;
        records.append(reinterpret_cast<const char*>(&d), sizeof d);
        ++recordCount;
    }

private:
    QHash<mapi::PropTag, quint32> m_tagSlots;
    QHash<QByteArray, quint32> m_pooled;
};

void Align8(QByteArray& out)
{
    while (out.size() % 8) out.append('\0');
}

Status WriteAll(int fd, const QByteArray& data, const QString& path)
{
    qsizetype done = 0;
    while (done < data.size()) {
        const ssize_t n = ::write(fd, data.constData() + done, size_t(data.size() - done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return Error::temporary(QStringLiteral("Cannot write %1: %2").arg(path, qt_error_string(errno)), errno);
        done += n;
    }
    return Status::success();
}

}  // namespace

Status MessageIndexFile::Commit()
{
    if (!m_dirty) return Status::success();
    return WriteWith(validity(), count(), [this](qsizetype i) { return at(i).ToRecord(); });
}

Status MessageIndexFile::Rewrite(const QByteArray& validity, qsizetype count,
                                 const std::function<Record(qsizetype)>& recordAt)
{
    return WriteWith(validity, count, [&](qsizetype i) {
        Record r = recordAt(i);
        const RecordView old = find(r.key);
        if (!old.isNull() && old.size() == r.size && old.stamp() == r.stamp) {
            for (const quint64 a : AnswersOf(old)) {
                const bool known = std::any_of(r.bodyAnswers.begin(), r.bodyAnswers.end(),
                                               [a](quint64 b) { return (a & ~quint64(1)) == (b & ~quint64(1)); });
                if (!known) r.bodyAnswers.push_back(a);
            }
        }
        return r;
    });
}

Status MessageIndexFile::WriteWith(const QByteArray& validity, qsizetype n,
                                   const std::function<Record(qsizetype)>& recordAt)
{
    Writer w;
    FileHeader h{};
    std::memcpy(h.magic, kMagic, 8);
    h.version = kVersion;
    h.validityRef = w.Bytes(validity);
    QByteArray previous;
    for (qsizetype i = 0; i < n; ++i) {
        const Record r = recordAt(i);
        if (i > 0 && !(QByteArrayView(previous) < QByteArrayView(r.key)))
            return Error::permanent(QStringLiteral("Index records out of key order at %1.").arg(QString::fromUtf8(r.key)));
        previous = r.key;
        w.Record(r);
    }
    h.tagCount = quint32(w.tags.size() / 4);
    h.recordCount = w.recordCount;
    h.propCount = w.propCount;
    h.rowCount = w.rowCount;
    h.answerCount = w.answerCount;
    h.poolSize = quint64(w.pool.size());

    QByteArray out;
    out.reserve(qsizetype(sizeof h) + w.tags.size() + w.records.size() + w.props.size() + w.rows.size()
                + w.answers.size() + w.pool.size() + 64);
    out.append(reinterpret_cast<const char*>(&h), sizeof h);
    for (const QByteArray* part : {&w.tags, &w.records, &w.props, &w.rows, &w.answers, &w.pool}) {
        Align8(out);
        out.append(*part);
    }
    const quint64 sum = Checksum(reinterpret_cast<const uchar*>(out.constData()), out.size());
    out.append(reinterpret_cast<const char*>(&sum), 8);

    // Per process: two processes writing at once must not share a file.
    const QString tmp = m_path + QStringLiteral(".new.") + QString::number(::getpid());
    const QByteArray tmpName = QFile::encodeName(tmp);
    const int fd = ::open(tmpName.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return Error::temporary(QStringLiteral("Cannot write %1: %2").arg(tmp, qt_error_string(errno)), errno);
    Status s = WriteAll(fd, out, tmp);
    if (s.ok() && ::fsync(fd) != 0)
        s = Error::temporary(QStringLiteral("Cannot sync %1: %2").arg(tmp, qt_error_string(errno)), errno);
    ::close(fd);
    if (s.ok() && ::rename(tmpName.constData(), QFile::encodeName(m_path).constData()) != 0)
        s = Error::temporary(QStringLiteral("Cannot replace %1: %2").arg(m_path, qt_error_string(errno)), errno);
    if (!s.ok()) {
        ::unlink(tmpName.constData());
        return s;
    }

    // The new file is in place: map it as every later process will read it.
    const int rfd = ::open(QFile::encodeName(m_path).constData(), O_RDONLY | O_CLOEXEC);
    void* map = rfd >= 0 ? ::mmap(nullptr, size_t(out.size()), PROT_READ, MAP_PRIVATE, rfd, 0) : MAP_FAILED;
    if (rfd >= 0) ::close(rfd);
    if (map == MAP_FAILED)  // the changes stay pending; the file already holds them
        return Error::temporary(QStringLiteral("Cannot map the index %1: %2").arg(m_path, qt_error_string(errno)), errno);
    Unload();
    m_bytes = static_cast<const uchar*>(map);
    m_size = out.size();
    m_pending.clear();
    m_pendingAnswers.clear();
    m_pendingValidity.reset();
    m_cleared = false;
    m_mergedValid = false;
    m_dirty = false;
    m_rebuilt = false;
    if (!Load()) {
        Unload();
        return Error::permanent(QStringLiteral("The index %1 just written does not read back.").arg(m_path));
    }
    return Status::success();
}

}  // namespace mv::stores
