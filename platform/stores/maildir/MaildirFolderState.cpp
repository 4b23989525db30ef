#include "MaildirFolderState.h"

#include "MaildirKeywords.h"
#include "MaildirName.h"

#include "platform/stores/common/FlagMapping.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <thread>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace mv::stores::maildir {

namespace {

constexpr qint64 kNsPerSec = 1000000000LL;

qint64 MtimeNs(const struct stat& st)
{
    return qint64(st.st_mtim.tv_sec) * kNsPerSec + st.st_mtim.tv_nsec;
}

qint64 NowNs()
{
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return qint64(ts.tv_sec) * kNsPerSec + ts.tv_nsec;
}

qint64 DirMtime(const QString& dir)
{
    struct stat st{};
    if (::stat(QFile::encodeName(dir).constData(), &st) != 0) return -1;
    return MtimeNs(st);
}

struct Listed {
    QString relName;
    QString unique;
    qint64 size;
    qint64 mtimeNs;
};

// readdir + fstatat: QDir's per-entry QFileInfo costs several times more on
// folders of 100,000 messages.
Status ListDir(const QString& dir, const char* sub, std::vector<Listed>& out)
{
    const QByteArray path = QFile::encodeName(dir) + '/' + sub;
    DIR* d = ::opendir(path.constData());
    if (!d) {
        if (errno == ENOENT) return Status::success();
        return Error::temporary(QStringLiteral("Cannot list %1: %2").arg(QFile::decodeName(path), qt_error_string(errno)),
                                errno);
    }
    const int fd = ::dirfd(d);
    const QString prefix = QLatin1String(sub) + QLatin1Char('/');
    while (dirent* e = ::readdir(d)) {
        if (e->d_name[0] == '.') continue;
        if (e->d_type != DT_REG && e->d_type != DT_UNKNOWN && e->d_type != DT_LNK) continue;
        struct stat st{};
        if (::fstatat(fd, e->d_name, &st, 0) != 0 || !S_ISREG(st.st_mode)) continue;  // gone, or not a message
        const QString name = QFile::decodeName(e->d_name);
        out.push_back({prefix + name, MaildirName::Parse(name).unique, qint64(st.st_size), MtimeNs(st)});
    }
    ::closedir(d);
    return Status::success();
}

struct ParseJob {
    const Listed* listed;
    std::shared_ptr<const HeaderProps> header;
    ErrorKind failure = ErrorKind::Permanent;
    bool ok = false;
};

void ParseAll(ParseJob* jobs, size_t count, const QString& dir, const HeaderParser& parser)
{
    std::atomic<size_t> next{0};
    auto work = [&] {
        for (size_t i; (i = next.fetch_add(1)) < count;) {
            auto r = parser(dir + QLatin1Char('/') + jobs[i].listed->relName);
            if (r.ok()) {
                jobs[i].header = std::move(r).value();
                jobs[i].ok = true;
            } else {
                jobs[i].failure = r.error().kind;
            }
        }
    };
    const unsigned threads = count < 64 ? 1u : std::min(4u, std::max(1u, std::thread::hardware_concurrency()));
    std::vector<std::thread> pool;
    for (unsigned t = 1; t < threads; ++t) pool.emplace_back(work);
    work();
    for (std::thread& t : pool) t.join();
}

// Directory times newer than this, relative to a scan, are not trusted:
// a change in the same clock tick as the scan would otherwise be missed.
// Whole seconds (no nanoseconds) mean a coarse file system: two seconds
// covers FAT's. Finer ones stamp from a clock that ticks in milliseconds.
qint64 TrustMarginNs(qint64 mtimeNs)
{
    return mtimeNs % kNsPerSec == 0 ? 2 * kNsPerSec : kNsPerSec / 10;
}

// cur/, new/ and dovecot-keywords times as the quick index stores them.
struct DirTimes {
    qint64 cur, fresh, keywords;
};

QByteArray ValidityOf(const DirTimes& t)
{
    return QByteArray(reinterpret_cast<const char*>(&t), sizeof t);
}

}  // namespace

void MaildirFolderState::Derive(CachedMessage& m)
{
    const MaildirName name = MaildirName::Parse(m.file.relName.section(QLatin1Char('/'), 1));
    int structureBits = 0;
    if (m.file.header) {
        for (const auto& [tag, value] : m.file.header->props)
            if (tag == mapi::PR_MESSAGE_FLAGS) structureBits = value.toInt();
    }
    const QString key = name.info + QLatin1Char('|') + QString::number(structureBits);
    auto it = m_flagStates.constFind(key);
    if (it == m_flagStates.constEnd()) {
        auto state = std::make_shared<FlagState>();
        state->flags = FlagMapping::FromMaildirInfo(name.info, m_keywords);
        mapi::PropertyMap map;
        // Structure bits the parser found (attachments) survive the flag bits.
        map.insert(mapi::PR_MESSAGE_FLAGS, structureBits);
        FlagMapping::ApplyFlags(state->flags, map);
        state->props.assign(map.constKeyValueBegin(), map.constKeyValueEnd());
        it = m_flagStates.insert(key, std::move(state));
    }
    m.flagState = *it;
    m.delivered = MaildirName::DeliveryTime(m.file.unique);
    if (!m.delivered.isValid())
        m.delivered = QDateTime::fromMSecsSinceEpoch(m.file.mtimeNs / 1000000, Qt::UTC);
}

std::shared_ptr<const HeaderProps> MaildirFolderState::Intern(std::shared_ptr<const HeaderProps> header)
{
    if (!header) return header;
    auto copy = std::make_shared<HeaderProps>(*header);
    header.reset();
    auto intern = [this](QVariant& v) {
        if (v.typeId() != QMetaType::QString) return;
        const QString s = v.toString();
        auto it = m_strings.constFind(s);
        if (it == m_strings.constEnd()) it = m_strings.insert(s);
        v = QVariant(*it);
    };
    // The size is the file's, answered from the listing: a second copy per
    // message costs 4 MB on 100,000 messages.
    std::erase_if(copy->props, [](const auto& p) { return p.first == mapi::PR_MESSAGE_SIZE; });
    for (auto& [tag, value] : copy->props) {
        // Subjects and message ids rarely repeat: pooling them only costs.
        if (tag != mapi::PR_SUBJECT && tag != mapi::PR_INTERNET_MESSAGE_ID) intern(value);
    }
    copy->props.shrink_to_fit();
    for (HeaderProps::Flat& row : copy->recipients) {
        // Every parsed recipient is an SMTP one; the rows answer that
        // themselves (see HeaderProps::kRecipientAddrType).
        std::erase_if(row, [](const auto& p) {
            return p.first == mapi::PR_ADDRTYPE && p.second == HeaderProps::kRecipientAddrType;
        });
        for (auto& [tag, value] : row) intern(value);
        row.shrink_to_fit();
    }
    copy->recipients.shrink_to_fit();
    return copy;
}

Status MaildirFolderState::LoadKeywords()
{
    const qint64 mtime = DirMtime(m_dir + QLatin1String("/dovecot-keywords"));
    if (mtime == m_keywordsMtime) return Status::success();
    auto list = MaildirKeywords::Load(m_dir);
    if (!list) return list.error();
    m_keywords = *list;
    m_keywordsMtime = mtime;
    m_flagStates.clear();
    for (auto& [unique, m] : m_messages) Derive(m);
    return Status::success();
}

QByteArray MaildirFolderState::trustedValidity() const
{
    if (!m_loaded || m_curMtime == 0) return {};
    return ValidityOf({m_curMtime, m_newMtime, m_keywordsMtime});
}

QByteArray MaildirFolderState::ValidityNow(const QString& dir)
{
    return ValidityOf({DirMtime(dir + QLatin1String("/cur")), DirMtime(dir + QLatin1String("/new")),
                       DirMtime(dir + QLatin1String("/dovecot-keywords"))});
}

qint64 MaildirFolderState::NsUntilTrusted(const QByteArray& validity)
{
    DirTimes t{};
    if (validity.size() != sizeof t) return 0;
    std::memcpy(&t, validity.constData(), sizeof t);
    const qint64 now = NowNs();
    qint64 wait = -1;
    for (const qint64 mtime : {t.cur, t.fresh})
        if (mtime >= 0) wait = std::max(wait, mtime + TrustMarginNs(mtime) - now);
    return wait;
}

const std::vector<const CachedMessage*>& MaildirFolderState::ordered() const
{
    if (!m_orderedValid) {
        m_ordered.clear();
        m_ordered.reserve(m_messages.size());
        for (const auto& [unique, message] : m_messages) m_ordered.push_back(&message);
        m_orderedValid = true;
    }
    return m_ordered;
}

void MaildirFolderState::Forget(const QString& unique)
{
    m_orderedValid = false;
    m_messages.erase(unique);
}

void MaildirFolderState::Learn(const IndexedMessage& file)
{
    if (!m_loaded) return;  // the index row is there; the first scan loads it
    m_orderedValid = false;
    CachedMessage m;
    m.file = file;
    Derive(m);
    m_messages[file.unique] = std::move(m);
}

Status MaildirFolderState::Scan(MaildirIndex& index, const HeaderParser& parser, ScanStats& stats)
{
    stats = {};
    if (!m_loaded) {
        m_orderedValid = false;
        m_messages.clear();
        // Interned row by row: 100,000 rows in their read form at once
        // would be the process's peak.
        const Status loaded = index.Load(m_path, [this](IndexedMessage&& row) {
            CachedMessage m;
            m.file = std::move(row);
            m.file.header = Intern(std::move(m.file.header));
            m_messages.emplace(m.file.unique, std::move(m));
        });
        if (!loaded) {
            m_messages.clear();
            return loaded;
        }
        m_loaded = true;
        m_curMtime = m_newMtime = 0;
        m_keywordsMtime = -2;  // derive flags below in any case
    }
    if (Status s = LoadKeywords(); !s) return s;

    const qint64 scanStart = NowNs();
    const qint64 curMtime = DirMtime(m_dir + QLatin1String("/cur"));
    const qint64 newMtime = DirMtime(m_dir + QLatin1String("/new"));
    if (curMtime < 0) return Error::notFound(QStringLiteral("The folder %1 is gone.").arg(m_dir));
    if (m_curMtime != 0 && curMtime == m_curMtime && newMtime == m_newMtime) {
        stats.skipped = true;
        return Status::success();
    }
    m_orderedValid = false;

    std::vector<Listed> listed;
    listed.reserve(m_messages.size() + 64);
    for (const char* sub : {"cur", "new"}) {
        if (Status s = ListDir(m_dir, sub, listed); !s) return s;
    }
    stats.listed = int(listed.size());

    QSet<QString> seen;
    seen.reserve(qsizetype(listed.size()));
    std::vector<ParseJob> jobs;
    std::vector<const Listed*> renames;
    for (const Listed& l : listed) {
        if (seen.contains(l.unique)) continue;  // the same message in cur/ and new/: the first one counts
        seen.insert(l.unique);
        const auto it = m_messages.find(l.unique);
        if (it != m_messages.end() && it->second.file.header && it->second.file.size == l.size
            && it->second.file.mtimeNs == l.mtimeNs) {
            if (it->second.file.relName != l.relName) renames.push_back(&l);
            continue;
        }
        jobs.push_back({&l, nullptr});
    }
    // In batches, interning each batch at once: a parsed message holds far
    // more memory than its interned form, and 100,000 of them at a time
    // would cost hundreds of megabytes.
    constexpr size_t kBatch = 2048;
    for (size_t begin = 0; begin < jobs.size(); begin += kBatch) {
        ParseAll(jobs.data() + begin, std::min(kBatch, jobs.size() - begin), m_dir, parser);
        for (size_t i = begin; i < std::min(begin + kBatch, jobs.size()); ++i)
            if (jobs[i].ok) jobs[i].header = Intern(std::move(jobs[i].header));
    }

    IndexTransaction tx(index);
    if (!tx.status().ok()) return tx.status();
    for (const Listed* l : renames) {
        if (Status s = index.Rename(m_path, l->unique, l->relName, l->size, l->mtimeNs); !s) return s;
    }
    std::vector<const ParseJob*> parsed;
    for (const ParseJob& job : jobs) {
        if (!job.ok) {
            // A file that vanished meanwhile was moved by someone else; one
            // that cannot be read is left out, and its index row with it.
            seen.remove(job.listed->unique);
            if (job.failure != ErrorKind::NotFound) ++stats.unreadable;
            continue;
        }
        IndexedMessage m{job.listed->unique, job.listed->relName, job.listed->size, job.listed->mtimeNs, job.header};
        if (Status s = index.Put(m_path, m); !s) return s;
        parsed.push_back(&job);
    }
    std::vector<QString> gone;
    for (const auto& [unique, m] : m_messages)
        if (!seen.contains(unique)) gone.push_back(unique);
    for (const QString& unique : gone) {
        if (Status s = index.Remove(m_path, unique); !s) return s;
    }
    if (Status s = tx.Commit(); !s) return s;

    // The index is written: now the cache may follow it.
    for (const QString& unique : gone) m_messages.erase(unique);
    for (const Listed* l : renames) {
        CachedMessage& m = m_messages[l->unique];
        m.file.relName = l->relName;
        Derive(m);
    }
    for (const ParseJob* job : parsed) {
        CachedMessage m;
        m.file = {job->listed->unique, job->listed->relName, job->listed->size, job->listed->mtimeNs, job->header};
        Derive(m);
        m_messages[m.file.unique] = std::move(m);
    }
    stats.parsed = int(parsed.size());
    stats.renamed = int(renames.size());
    stats.dropped = int(gone.size());

    const bool trusted = scanStart - curMtime > TrustMarginNs(curMtime) && scanStart - newMtime > TrustMarginNs(newMtime)
        && stats.unreadable == 0;
    m_curMtime = trusted ? curMtime : 0;
    m_newMtime = trusted ? newMtime : 0;
    return Status::success();
}

}  // namespace mv::stores::maildir
