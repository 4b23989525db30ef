#include "MaildirStore.h"

#include "MaildirFiles.h"
#include "MaildirIds.h"
#include "MaildirKeywords.h"
#include "MaildirMessageSource.h"
#include "MaildirStoreKey.h"

#include "MaildirIndexedSource.h"

#include "platform/mapi/RestrictionEvaluator.h"
#include "platform/mapi/RestrictionOrder.h"
#include "platform/stores/common/FlagMapping.h"
#include "platform/stores/common/MimeProperties.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <thread>
#include <cstdio>
#include <ctime>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mv::stores::maildir {

namespace {

constexpr int kCollisionRetries = 8;
constexpr size_t kParallelQueryMinimum = 4096;
constexpr size_t kMaxQueryThreads = 4;

// Runs work(slot, begin, end) over [0, count): split over up to
// kMaxQueryThreads threads when `parallel` and the count is large, since
// evaluation is CPU-bound and the sources are read-only. `slot` (below
// kMaxQueryThreads) picks a thread's own outputs.
template <class Work>
void SplitOverCores(size_t count, bool parallel, const Work& work)
{
    const size_t threads = !parallel || count < kParallelQueryMinimum
        ? 1
        : std::clamp<size_t>(std::thread::hardware_concurrency(), 1, kMaxQueryThreads);
    const size_t chunk = (count + threads - 1) / threads;
    std::vector<std::thread> pool;
    for (size_t t = 1; t < threads; ++t)
        pool.emplace_back([&work, t, chunk, count] { work(t, std::min(t * chunk, count), std::min((t + 1) * chunk, count)); });
    work(0, 0, std::min(chunk, count));
    for (std::thread& th : pool) th.join();
}

using MaildirFiles::ErrnoError;
using MaildirFiles::RenameNoReplace;
using MaildirFiles::SyncDir;

}  // namespace

MaildirStore::MaildirStore(const QString& root, MaildirStoreOptions options, QObject* parent)
    : mapi::MessageStore(parent),
      m_root(QFileInfo(root).canonicalFilePath().isEmpty() ? QDir::cleanPath(root)
                                                           : QFileInfo(root).canonicalFilePath()),
      m_options(std::move(options)),
      m_layout(m_options.layout ? MaildirLayout(m_root, *m_options.layout) : MaildirLayout::Detect(m_root)),
      m_storeId(StoreIdFor(m_root))
{
    const MaildirStoreKey key = MaildirStoreKey::Load(m_root);
    if (!key.key().isEmpty()) {
        m_storeId = StoreIdForKey(key.key());
        for (const QString& root : key.roots()) m_formerStoreIds << StoreIdFor(root);
    }
    if (m_options.indexPath.isEmpty()) m_options.indexPath = MaildirIndex::DefaultPathFor(m_root);
    m_quick = std::make_unique<MaildirQuickIndex>(quickIndexDir());
    if (m_options.displayName.isEmpty()) m_options.displayName = QStringLiteral("Maildir (%1)").arg(m_root);
    m_parser = [own = m_options.ownAddress](const QString& path) -> Result<std::shared_ptr<const HeaderProps>> {
        ParseOptions po;
        po.ownAddress = own;
        auto record = MimeProperties::FromFile(path, po);
        if (!record) return record.error();
        auto header = std::make_shared<HeaderProps>();
        header->props.reserve(size_t(record->props.size()));
        for (auto it = record->props.cbegin(); it != record->props.cend(); ++it)
            if (it.key() != mapi::PR_BODY) header->props.emplace_back(it.key(), it.value());
        header->recipients.reserve(record->recipients.size());
        for (const mapi::PropertyMap& row : record->recipients)
            header->recipients.emplace_back(row.constKeyValueBegin(), row.constKeyValueEnd());
        return std::shared_ptr<const HeaderProps>(std::move(header));
    };
    EnsureGMimeInitialised();
    if (m_options.watch) Watch();
}

MaildirStore::~MaildirStore()
{
    (void)FlushIndex();
}

QString MaildirStore::quickIndexDir() const
{
    QString base = m_options.indexPath;
    if (base.endsWith(QLatin1String(".sqlite"))) base.chop(7);
    return base + QStringLiteral(".folders");
}

Status MaildirStore::FlushIndex()
{
    // A folder this store changed after its last scan (its own moves) is
    // scanned once more, so that the next process finds an index that
    // matches the directories; once their times are old enough to trust,
    // which on a file system with fine times is a wait of at most 0.1 s.
    for (const auto& [path, state] : m_folders) {
        if (!state->loaded() || !m_quick->changed(path)) continue;
        const QByteArray now = MaildirFolderState::ValidityNow(state->dir());
        if (state->trustedValidity() == now) continue;
        const qint64 waitNs = MaildirFolderState::NsUntilTrusted(now);
        if (waitNs > 250000000LL) continue;  // a coarse file system: the next process scans
        if (waitNs >= 0) {
            // A millisecond more: the times must be older than the margin, not equal to it.
            const timespec pause{0, long(waitNs + 1000000)};
            ::nanosleep(&pause, nullptr);
        }
        (void)ScannedFolder(path);
    }
    return m_quick->Flush([this](const QString& folderPath) -> const MaildirFolderState* {
        auto it = m_folders.find(folderPath);
        return it == m_folders.end() ? nullptr : it->second.get();
    });
}

QByteArray MaildirStore::StoreId() const
{
    return m_storeId;
}

QString MaildirStore::DisplayName() const
{
    return m_options.displayName;
}

Status MaildirStore::EnsureIndex()
{
    if (m_index.isOpen()) return Status::success();
    m_folders.clear();
    return m_index.Open(m_options.indexPath);
}

Result<MaildirFolderState*> MaildirStore::ScannedFolder(const QString& folderPath)
{
    const auto dir = m_layout.DirOf(folderPath);
    if (!dir) return Error::notFound(QStringLiteral("The Maildir folder \"%1\" does not exist.").arg(folderPath));
    if (Status s = EnsureIndex(); !s) return s.error();
    auto& slot = m_folders[folderPath];
    if (!slot) slot = std::make_unique<MaildirFolderState>(folderPath, *dir);
    Status s = slot->Scan(m_index, m_parser, m_lastScan);
    if (!s && MaildirIndex::IsCorruption(s.error().code)) {
        // The index is only a cache: start it again and scan from the files.
        if (Status r = m_index.Rebuild(); !r) return r.error();
        for (auto& [path, state] : m_folders) state->Invalidate();
        s = slot->Scan(m_index, m_parser, m_lastScan);
    }
    if (!s) return s.error();
    m_quick->MarkChanged(folderPath);
    return slot.get();
}

mapi::FolderInfo MaildirStore::InfoOf(const LayoutFolder& folder)
{
    mapi::FolderInfo info;
    info.entryId = FolderIdFor(folder.path);
    if (folder.hasParent) info.parentId = FolderIdFor(folder.parentPath);
    info.name = folder.name;
    info.path = folder.displayPath;
    info.specialUse = folder.specialUse;
    // From the directory listings: the file names carry the S and T flags,
    // so counting opens no message and never trusts a stale index.
    if (auto counts = MaildirFiles::Count(folder.dir)) {
        info.total = counts->total;
        info.unread = counts->unread;
    }
    return info;
}

Result<std::vector<mapi::FolderInfo>> MaildirStore::Folders()
{
    if (!QFileInfo(m_root).isDir())
        return Error::notFound(QStringLiteral("The Maildir folder %1 does not exist.").arg(m_root));
    std::vector<mapi::FolderInfo> out;
    for (const LayoutFolder& f : m_layout.List()) out.push_back(InfoOf(f));
    return out;
}

Result<mapi::FolderInfo> MaildirStore::Folder(const QByteArray& folderId)
{
    const auto path = ParseFolderId(folderId);
    if (!path) return Error::notFound(QStringLiteral("Not a folder of this Maildir store."));
    const auto folder = m_layout.Describe(*path);
    if (!folder) return Error::notFound(QStringLiteral("The Maildir folder \"%1\" does not exist.").arg(*path));
    return InfoOf(*folder);
}

Result<QByteArray> MaildirStore::CreateFolder(const QByteArray& parentId, const QString& name)
{
    QString parentPath;
    if (!parentId.isEmpty()) {
        const auto parsed = ParseFolderId(parentId);
        if (!parsed) return Error::notFound(QStringLiteral("Not a folder of this Maildir store."));
        parentPath = *parsed;
    }
    auto created = m_layout.Create(parentPath, name);
    if (!created) return created.error();
    return FolderIdFor(*created);
}

Result<std::vector<mapi::Row>> MaildirStore::Query(const QByteArray& folderId, const mapi::Restriction* restriction,
                                                   const std::vector<mapi::PropTag>& columns)
{
    const auto path = ParseFolderId(folderId);
    if (!path) return Error::notFound(QStringLiteral("Not a folder of this Maildir store."));
    if (restriction) {
        if (Status s = mapi::RestrictionEvaluator::CheckSupported(*restriction); !s) return s.error();
    }
    // Cheap terms first, so that a body is read only for what the others leave.
    std::optional<mapi::Restriction> reordered;
    if (restriction) reordered = mapi::RestrictionOrder::CheapFirst(*restriction);
    restriction = reordered ? &*reordered : nullptr;
    const BodyTerms terms = restriction ? BodyTerms::Of(*restriction) : BodyTerms();
    if (auto quick = QuickQuery(*path, restriction, terms, columns)) return std::move(*quick);

    auto folder = ScannedFolder(*path);
    if (!folder) return folder.error();
    const MaildirFolderState& state = **folder;
    std::vector<const CachedMessage*> candidates;
    candidates.reserve(state.messages().size());
    for (const CachedMessage* message : state.ordered())
        if (!message->flags().deleted) candidates.push_back(message);
    const MessageIndexFile* known = terms.empty() ? nullptr : m_quick->Any(*path);

    // Rows are assembled in order after the evaluation.
    std::vector<char> matched(candidates.size(), restriction ? 0 : 1);
    std::atomic<int> bodyReads{0};
    std::vector<std::vector<LearnedAnswer>> learned(kMaxQueryThreads);
    if (restriction) {
        auto work = [&](size_t slot, size_t begin, size_t end) {
            int reads = 0;
            for (size_t i = begin; i < end; ++i) {
                // The entries are scattered over the heap and each is read
                // once per rule: ask for the next ones while this one is
                // evaluated, one hop at a time: entry, header, header list.
                if (i + 12 < end) __builtin_prefetch(candidates[i + 12]);
                if (i + 8 < end) __builtin_prefetch(candidates[i + 8]->file.header.get());
                if (i + 4 < end) {
                    if (const HeaderProps* h = candidates[i + 4]->file.header.get())
                        __builtin_prefetch(h->props.data());
                }
                MaildirMessageSource source(*candidates[i], state, m_storeId, &reads);
                if (!terms.empty()) source.UseAnswers(&terms, known, &learned[slot]);
                matched[i] = mapi::RestrictionEvaluator::Matches(*restriction, source) ? 1 : 0;
            }
            bodyReads += reads;
        };
        SplitOverCores(candidates.size(), true, work);
    }
    m_lastBodyReads = bodyReads;
    for (auto& answers : learned) m_quick->Learn(*path, std::move(answers));

    std::vector<mapi::Row> rows;
    for (size_t i = 0; i < candidates.size(); ++i) {
        if (!matched[i]) continue;
        const MaildirMessageSource source(*candidates[i], state, m_storeId);
        mapi::Row row;
        row.reserve(columns.size());
        for (const mapi::PropTag tag : columns) row.push_back(source.Get(tag).value_or(QVariant()));
        rows.push_back(std::move(row));
    }
    return rows;
}

std::optional<std::vector<mapi::Row>> MaildirStore::QuickQuery(const QString& folderPath,
                                                               const mapi::Restriction* restriction,
                                                               const BodyTerms& terms,
                                                               const std::vector<mapi::PropTag>& columns)
{
    if (auto it = m_folders.find(folderPath); it != m_folders.end() && it->second->loaded()) return std::nullopt;
    const auto dir = m_layout.DirOf(folderPath);
    if (!dir) return std::nullopt;
    const MessageIndexFile* file = m_quick->Current(folderPath, *dir);
    if (!file) return std::nullopt;

    const size_t count = size_t(file->count());
    std::vector<char> matched(count, 0);
    std::atomic<int> bodyReads{0};
    std::vector<std::vector<LearnedAnswer>> learned(kMaxQueryThreads);
    auto work = [&](size_t slot, size_t begin, size_t end) {
        int reads = 0;
        MaildirIndexedSource source({folderPath, *dir, m_storeId, terms.empty() ? nullptr : &terms, &learned[slot], &reads});
        for (size_t i = begin; i < end; ++i) {
            const MessageIndexFile::RecordView record = file->at(qsizetype(i));
            if (record.flags() & kIndexFlagTrashed) continue;
            source.Reset(record);
            matched[i] = !restriction || mapi::RestrictionEvaluator::Matches(*restriction, source) ? 1 : 0;
        }
        bodyReads += reads;
    };
    SplitOverCores(count, restriction != nullptr, work);

    m_lastScan = {};
    m_lastScan.skipped = true;
    m_lastBodyReads = bodyReads;
    for (auto& answers : learned) m_quick->Learn(folderPath, std::move(answers));

    std::vector<mapi::Row> rows;
    MaildirIndexedSource source({folderPath, *dir, m_storeId});
    for (size_t i = 0; i < count; ++i) {
        if (!matched[i]) continue;
        source.Reset(file->at(qsizetype(i)));
        mapi::Row row;
        row.reserve(columns.size());
        for (const mapi::PropTag tag : columns) row.push_back(source.Get(tag).value_or(QVariant()));
        rows.push_back(std::move(row));
    }
    return rows;
}

Result<MaildirStore::Located> MaildirStore::Find(const QByteArray& messageId)
{
    const auto key = ParseMessageId(messageId);
    if (!key) return Error::notFound(QStringLiteral("Not a message of this Maildir store."));
    Result<MaildirFolderState*> folder = Error::notFound(QString());
    const auto known = m_folders.find(key->folder);
    if (m_inBatch && m_scannedForBatch.contains(key->folder) && known != m_folders.end() &&
        known->second->loaded()) {
        folder = known->second.get();
    } else {
        folder = ScannedFolder(key->folder);
        if (m_inBatch && folder) m_scannedForBatch.insert(key->folder);
    }
    if (!folder) return folder.error();
    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto& messages = (*folder)->messages();
        const auto it = messages.find(key->unique);
        if (it == messages.end()) break;
        if (QFileInfo::exists((*folder)->dir() + QLatin1Char('/') + it->second.file.relName))
            return Located{*folder, &it->second};
        // Renamed behind our back within the same clock tick: look again.
        (*folder)->Invalidate();
        if (auto again = ScannedFolder(key->folder); !again) return again.error();
    }
    return Error::notFound(QStringLiteral("The message %1 is no longer in the folder.").arg(key->unique));
}

Result<mapi::MessageRecord> MaildirStore::Item(const QByteArray& messageId)
{
    auto located = Find(messageId);
    if (!located) return located.error();
    const MaildirMessageSource source(*located->message, *located->folder, m_storeId);
    ParseOptions po;
    po.withBody = true;
    po.ownAddress = m_options.ownAddress;
    auto record = MimeProperties::FromFile(source.FilePath(), po);
    if (!record) return record.error();
    for (const auto& [tag, value] : located->message->flagProps()) record->props.insert(tag, value);
    for (const mapi::PropTag tag : {mapi::PR_ENTRYID, mapi::PR_STORE_ENTRYID, mapi::PR_PARENT_ENTRYID,
                                    mapi::PR_MESSAGE_DELIVERY_TIME, mapi::PR_MESSAGE_SIZE})
        record->props.insert(tag, *source.Get(tag));
    return std::move(record).value();
}

Result<QByteArray> MaildirStore::RawMessage(const QByteArray& messageId)
{
    auto located = Find(messageId);
    if (!located) return located.error();
    QFile file(located->folder->dir() + QLatin1Char('/') + located->message->file.relName);
    if (!file.open(QIODevice::ReadOnly))
        return Error::temporary(QStringLiteral("Cannot read %1: %2").arg(file.fileName(), file.errorString()));
    return file.readAll();
}

Result<QString> MaildirStore::RenameInto(const QString& from, const QString& toDir, MaildirName name,
                                         OnCollision onCollision, AcrossFileSystems across)
{
    const QByteArray source = QFile::encodeName(from);
    for (int attempt = 0; attempt < kCollisionRetries; ++attempt) {
        const QString relName = QLatin1String("cur/") + name.FileName();
        const int err = RenameNoReplace(source, QFile::encodeName(toDir + QLatin1Char('/') + relName));
        if (err == 0) return relName;
        if (err == EEXIST || err == ENOTEMPTY) {
            if (onCollision == OnCollision::Refuse)
                return Error::permanent(
                    QStringLiteral("The folder %1 already holds a message named %2.").arg(toDir, name.unique), err);
            // Another message already has this unique name there: never
            // replace it; this one gets a new name with the same delivery time.
            name.unique = MaildirName::NewUnique(MaildirName::DeliveryTime(name.unique));
            continue;
        }
        if (err == EXDEV && across == AcrossFileSystems::Copy) return CopyInto(from, toDir, name);
        if (err == ENOENT) return Error::notFound(QStringLiteral("The message %1 vanished before it could be moved.").arg(from), err);
        return ErrnoError(QStringLiteral("Cannot move %1").arg(from), err);
    }
    return Error::temporary(QStringLiteral("No free name for %1 in %2.").arg(from, toDir));
}

// The order keeps the message in at least one folder at every instant: the
// copy is complete and durable in the destination before the source goes,
// and both carry the same unique name meanwhile, so whoever finds both
// (a crash in between) knows they are one message. (A destination that
// already holds the name gets a fresh one, as a rename would.)
Result<QString> MaildirStore::CopyInto(const QString& from, const QString& toDir, const MaildirName& name)
{
    auto tmp = MaildirFiles::CopyToTmp(from, toDir);
    if (!tmp) return tmp.error();
    // tmp/ and cur/ of one folder: a second EXDEV would mean a tmp/ on yet
    // another file system, which no copy can fix.
    auto relName = RenameInto(*tmp, toDir, name, OnCollision::FreshName, AcrossFileSystems::Refuse);
    if (!relName) {
        ::unlink(QFile::encodeName(*tmp).constData());
        return relName.error();
    }
    const QString copy = toDir + QLatin1Char('/') + *relName;
    SyncDir(toDir + QLatin1String("/cur"));
    if (::unlink(QFile::encodeName(from).constData()) != 0 && errno != ENOENT) {
        const int err = errno;
        // The source stays; the copy goes, so the message is in one folder.
        ::unlink(QFile::encodeName(copy).constData());
        SyncDir(toDir + QLatin1String("/cur"));
        return ErrnoError(QStringLiteral("Cannot remove %1 after copying it to %2").arg(from, toDir), err);
    }
    SyncDir(QFileInfo(from).absolutePath());
    return relName;
}

Result<QByteArray> MaildirStore::Move(const QByteArray& messageId, const QByteArray& destFolderId)
{
    const auto destPath = ParseFolderId(destFolderId);
    if (!destPath) return Error::notFound(QStringLiteral("Not a folder of this Maildir store."));
    const auto destDir = m_layout.DirOf(*destPath);
    if (!destDir) return Error::notFound(QStringLiteral("The Maildir folder \"%1\" does not exist.").arg(*destPath));
    // The destination as last scanned: rescanning a large folder for every
    // move would cost more than the rare collision it could still miss.
    auto destIt = m_folders.find(*destPath);
    Result<MaildirFolderState*> dest = destIt != m_folders.end() && destIt->second->loaded()
        ? Result<MaildirFolderState*>(destIt->second.get())
        : ScannedFolder(*destPath);
    if (!dest) return dest.error();
    auto located = Find(messageId);
    if (!located) return located.error();
    MaildirFolderState& src = *located->folder;
    if (src.path() == *destPath) return messageId;
    const CachedMessage message = *located->message;  // copied: the cache entry goes away below

    // Keyword letters belong to each folder's own dovecot-keywords list.
    auto destKeywords = MaildirKeywords::Load(*destDir);
    if (!destKeywords) return destKeywords.error();
    QStringList keywords = *destKeywords;
    MaildirName name{message.file.unique, FlagMapping::ToMaildirInfo(message.flags(), keywords), true};
    // The same unique name with other flags is a different file name, so
    // RENAME_NOREPLACE alone would not see it: look in the folder too.
    if ((*dest)->messages().count(name.unique)) name.unique = MaildirName::NewUnique(message.delivered);
    if (keywords != *destKeywords) {
        if (Status s = MaildirKeywords::Save(*destDir, keywords); !s) return s.error();
    }

    auto relName = RenameInto(src.dir() + QLatin1Char('/') + message.file.relName, *destDir, name);
    if (!relName) {
        if (relName.error().kind == ErrorKind::NotFound) src.Invalidate();
        return relName.error();
    }
    name = MaildirName::Parse(relName->mid(4));

    // The file has moved; the index follows. A failure here only costs a
    // re-parse on the next scan.
    IndexedMessage moved = message.file;
    moved.unique = name.unique;
    moved.relName = *relName;
    {
        IndexTransaction tx(m_index);
        if (tx.status().ok() && m_index.Remove(src.path(), message.file.unique).ok()
            && m_index.Put(*destPath, moved).ok())
            (void)tx.Commit();
    }
    src.Forget(message.file.unique);
    if (auto it = m_folders.find(*destPath); it != m_folders.end()) it->second->Learn(moved);
    return MessageIdFor(*destPath, name.unique);
}

Result<std::vector<QByteArray>> MaildirStore::MoveMany(const std::vector<QByteArray>& messageIds,
                                                       const QByteArray& destFolderId)
{
    // A missing destination is refused before anything moves; after that a
    // NotFound can only be a message that left its folder: passed over with
    // an empty identifier, as the IMAP store does.
    const auto destPath = ParseFolderId(destFolderId);
    if (!destPath) return Error::notFound(QStringLiteral("Not a folder of this Maildir store."));
    if (!m_layout.DirOf(*destPath))
        return Error::notFound(QStringLiteral("The Maildir folder \"%1\" does not exist.").arg(*destPath));
    // The source is listed for the first message only; a file missing later
    // still shows at its rename (ENOENT), and Locate looks again then.
    const BatchScope batch(*this);
    std::vector<QByteArray> out;
    out.reserve(messageIds.size());
    for (const QByteArray& id : messageIds) {
        auto moved = Move(id, destFolderId);
        if (!moved && (moved.error().kind != ErrorKind::NotFound || !m_layout.DirOf(*destPath)))
            return moved.error();
        out.push_back(moved ? *moved : QByteArray());
    }
    return out;
}

MaildirStore::BatchScope::BatchScope(MaildirStore& store) : m_store(store)
{
    m_store.m_inBatch = true;
    m_store.m_scannedForBatch.clear();
}

MaildirStore::BatchScope::~BatchScope()
{
    m_store.m_inBatch = false;
    m_store.m_scannedForBatch.clear();
}

Status MaildirStore::SetFlagStatusMany(const std::vector<QByteArray>& messageIds, int flagStatus)
{
    const BatchScope batch(*this);
    for (const QByteArray& id : messageIds) {
        Status s = SetFlagStatus(id, flagStatus);
        if (!s && s.error().kind != ErrorKind::NotFound) return s;
    }
    return Status::success();
}

Status MaildirStore::SetFlagStatus(const QByteArray& messageId, int flagStatus)
{
    if (flagStatus < 0 || flagStatus > 2)
        return Error::permanent(QStringLiteral("Flag status %1 is not 0, 1 or 2.").arg(flagStatus));
    auto located = Find(messageId);
    if (!located) return located.error();
    return Relabel(*located, FlagMapping::WithFlagStatus(located->message->flags(), flagStatus));
}

Status MaildirStore::Relabel(const Located& located, const mapi::MessageFlags& flags)
{
    MaildirFolderState& folder = *located.folder;
    const CachedMessage message = *located.message;
    QStringList keywords = folder.keywords();
    const QString info = FlagMapping::ToMaildirInfo(flags, keywords);
    if (keywords != folder.keywords()) {
        if (Status s = MaildirKeywords::Save(folder.dir(), keywords); !s) return s;
    }
    const QString relName = QLatin1String("cur/") + MaildirName{message.file.unique, info, true}.FileName();
    if (relName == message.file.relName) return Status::success();
    const int err = RenameNoReplace(QFile::encodeName(folder.dir() + QLatin1Char('/') + message.file.relName),
                                    QFile::encodeName(folder.dir() + QLatin1Char('/') + relName));
    if (err == ENOENT) {
        folder.Invalidate();
        return Error::notFound(QStringLiteral("The message %1 vanished.").arg(message.file.unique), err);
    }
    if (err == EEXIST)
        return Error::permanent(QStringLiteral("Two files hold the message %1.").arg(message.file.unique), err);
    if (err != 0) return ErrnoError(QStringLiteral("Cannot rename %1").arg(message.file.relName), err);
    IndexedMessage renamed = message.file;
    renamed.relName = relName;
    (void)m_index.Rename(folder.path(), renamed.unique, renamed.relName, renamed.size, renamed.mtimeNs);
    folder.Learn(renamed);
    return Status::success();
}

Result<QByteArray> MaildirStore::Append(const QByteArray& folderId, const mapi::NewMessage& message)
{
    auto ids = AppendMany(folderId, {message});
    if (!ids) return ids.error();
    return ids->front();
}

Result<std::vector<QByteArray>> MaildirStore::AppendMany(const QByteArray& folderId,
                                                         const std::vector<mapi::NewMessage>& messages)
{
    const auto path = ParseFolderId(folderId);
    if (!path) return Error::notFound(QStringLiteral("Not a folder of this Maildir store."));
    const auto dir = m_layout.DirOf(*path);
    if (!dir) return Error::notFound(QStringLiteral("The Maildir folder \"%1\" does not exist.").arg(*path));
    // Listed once for the batch: a chosen unique name must not exist under
    // any flags, which RENAME_NOREPLACE alone cannot see.
    std::optional<QSet<QString>> there;
    std::vector<QByteArray> ids;
    ids.reserve(messages.size());
    for (const mapi::NewMessage& message : messages) {
        if (!message.uniqueName.isEmpty() && !there) {
            auto listed = MaildirFiles::ListUniques(*dir);
            if (!listed) return listed.error();
            there = std::move(*listed);
        }
        auto id = AppendOne(*path, *dir, message, there ? &*there : nullptr);
        if (!id) return id.error();
        ids.push_back(std::move(*id));
    }
    return ids;
}

Result<QByteArray> MaildirStore::AppendOne(const QString& folderPath, const QString& dir,
                                           const mapi::NewMessage& message, QSet<QString>* uniquesThere)
{
    const QDateTime delivered = message.internalDate.isValid() ? message.internalDate.toUTC()
                                                                : QDateTime::currentDateTimeUtc();
    MaildirName name{MaildirName::NewUnique(delivered), {}, true};
    if (!message.uniqueName.isEmpty()) {
        if (!MaildirFiles::IsValidUnique(message.uniqueName))
            return Error::permanent(QStringLiteral("\"%1\" is not a valid Maildir unique name.")
                                        .arg(QString::fromUtf8(message.uniqueName)));
        name.unique = QString::fromUtf8(message.uniqueName);
        if (uniquesThere && uniquesThere->contains(name.unique))
            return Error::permanent(
                QStringLiteral("The folder %1 already holds a message named %2.").arg(dir, name.unique));
    }
    auto keywordsLoaded = MaildirKeywords::Load(dir);
    if (!keywordsLoaded) return keywordsLoaded.error();
    QStringList keywords = *keywordsLoaded;
    name.info = FlagMapping::ToMaildirInfo(message.flags, keywords);
    if (keywords != *keywordsLoaded) {
        if (Status s = MaildirKeywords::Save(dir, keywords); !s) return s.error();
    }

    // Delivery protocol: write into tmp/, fsync, then rename into place, so
    // no reader ever sees half a message.
    // Under the chosen name, so a recovery can clear what a killed append left in tmp/.
    auto tmp = MaildirFiles::WriteTmp(dir, message.rfc822, delivered, QString::fromUtf8(message.uniqueName));
    if (!tmp) return tmp.error();
    auto relName = RenameInto(*tmp, dir, name,
                              message.uniqueName.isEmpty() ? OnCollision::FreshName : OnCollision::Refuse,
                              AcrossFileSystems::Refuse);
    if (!relName) {
        ::unlink(QFile::encodeName(*tmp).constData());
        return relName.error();
    }
    SyncDir(dir + QLatin1String("/cur"));
    const QString unique = MaildirName::Parse(relName->mid(4)).unique;
    if (uniquesThere) uniquesThere->insert(unique);
    return MessageIdFor(folderPath, unique);
}

Result<std::optional<MaildirStore::Located>> MaildirStore::FindIfThere(const QByteArray& messageId,
                                                                       Listings& listings)
{
    const auto key = ParseMessageId(messageId);
    if (!key) return Error::permanent(QStringLiteral("Not a message of this Maildir store."));
    auto located = Find(messageId);
    if (located) return std::optional<Located>(*located);
    if (located.error().kind != ErrorKind::NotFound) return located.error();
    // Not among the parsed messages. A file that is there all the same
    // could not be read: "gone" would make the journal settle a move
    // wrongly, so it is an error to retry.
    const auto dir = m_layout.DirOf(key->folder);
    if (!dir) return std::optional<Located>();
    auto it = listings.find(key->folder);
    if (it == listings.end()) {
        auto listed = MaildirFiles::ListUniques(*dir);
        if (!listed) return listed.error();
        it = listings.emplace(key->folder, std::move(*listed)).first;
    }
    if (it->second.contains(key->unique))
        return Error::temporary(QStringLiteral("The message %1 in %2 cannot be read.").arg(key->unique, *dir));
    return std::optional<Located>();
}

Status MaildirStore::ForEachFound(const std::vector<QByteArray>& messageIds,
                                  const std::function<Status(const std::optional<Located>&)>& visit)
{
    const BatchScope batch(*this);
    Listings listings;
    for (const QByteArray& id : messageIds) {
        auto found = FindIfThere(id, listings);
        if (!found) return found.error();
        if (Status s = visit(*found); !s) return s;
    }
    return Status::success();
}

Result<std::vector<mapi::NewMessage>> MaildirStore::Export(const std::vector<QByteArray>& messageIds)
{
    std::vector<mapi::NewMessage> out;
    out.reserve(messageIds.size());
    Status s = ForEachFound(messageIds, [&](const std::optional<Located>& found) -> Status {
        out.emplace_back();
        if (!found) return Status::success();
        QFile file(found->folder->dir() + QLatin1Char('/') + found->message->file.relName);
        if (!file.open(QIODevice::ReadOnly)) {
            if (!file.exists()) return Status::success();  // moved away since the listing
            return Error::temporary(QStringLiteral("Cannot read %1: %2").arg(file.fileName(), file.errorString()));
        }
        mapi::NewMessage& m = out.back();
        m.rfc822 = file.readAll();
        m.flags = found->message->flags();
        m.internalDate = found->message->delivered;
        m.uniqueName = found->message->file.unique.toUtf8();
        return Status::success();
    });
    if (!s) return s.error();
    return out;
}

Result<mapi::Fingerprint> MaildirStore::FingerprintOf(const Located& located)
{
    auto fp = MaildirFiles::ReadFingerprint(located.folder->dir() + QLatin1Char('/') + located.message->file.relName);
    if (!fp) return fp.error();
    fp->uniqueName = located.message->file.unique.toUtf8();
    fp->internalDate = QDateTime::fromSecsSinceEpoch(located.message->delivered.toSecsSinceEpoch(), Qt::UTC);
    return fp;
}

Result<std::vector<mapi::Fingerprint>> MaildirStore::Fingerprints(const std::vector<QByteArray>& messageIds)
{
    std::vector<mapi::Fingerprint> out;
    out.reserve(messageIds.size());
    Status s = ForEachFound(messageIds, [&](const std::optional<Located>& found) -> Status {
        out.emplace_back();
        if (!found) return Status::success();
        auto fp = FingerprintOf(*found);
        if (fp) out.back() = std::move(*fp);
        else if (fp.error().kind != ErrorKind::NotFound) return fp.error();
        return Status::success();
    });
    if (!s) return s.error();
    return out;
}

Result<std::vector<mapi::Presence>> MaildirStore::Probe(const std::vector<QByteArray>& messageIds)
{
    std::vector<mapi::Presence> out;
    out.reserve(messageIds.size());
    Status s = ForEachFound(messageIds, [&](const std::optional<Located>& found) -> Status {
        if (!found) out.push_back(mapi::Presence::Absent);
        else out.push_back(found->message->flags().deleted ? mapi::Presence::Deleted : mapi::Presence::Present);
        return Status::success();
    });
    if (!s) return s.error();
    return out;
}

Status MaildirStore::Remove(const std::vector<QByteArray>& messageIds)
{
    QSet<QString> touched;
    Status result = ForEachFound(messageIds, [&](const std::optional<Located>& found) -> Status {
        if (!found) return Status::success();
        MaildirFolderState& folder = *found->folder;
        const IndexedMessage file = found->message->file;
        if (::unlink(QFile::encodeName(folder.dir() + QLatin1Char('/') + file.relName).constData()) != 0
            && errno != ENOENT)
            return ErrnoError(QStringLiteral("Cannot remove %1").arg(file.relName), errno);
        touched.insert(folder.dir() + QLatin1Char('/') + file.relName.section(QLatin1Char('/'), 0, 0));
        (void)m_index.Remove(folder.path(), file.unique);  // a stale row is dropped by the next scan
        folder.Forget(file.unique);
        return Status::success();
    });
    // What was removed before an error is gone for good: make that durable too.
    for (const QString& dir : touched) SyncDir(dir);
    return result;
}

Status MaildirStore::Undelete(const std::vector<QByteArray>& messageIds)
{
    return ForEachFound(messageIds, [&](const std::optional<Located>& found) -> Status {
        if (!found || !found->message->flags().deleted) return Status::success();
        mapi::MessageFlags flags = found->message->flags();
        flags.deleted = false;
        Status s = Relabel(*found, flags);
        if (!s && s.error().kind != ErrorKind::NotFound) return s;
        return Status::success();
    });
}

Result<std::vector<QByteArray>> MaildirStore::Locate(const QByteArray& folderId, const QByteArray& mark,
                                                     const std::vector<mapi::Fingerprint>& fingerprints)
{
    (void)mark;  // unique names and delivery times say more than an arrival mark could
    const auto path = ParseFolderId(folderId);
    if (!path) return Error::notFound(QStringLiteral("Not a folder of this Maildir store."));
    const auto dir = m_layout.DirOf(*path);
    if (!dir) return Error::notFound(QStringLiteral("The Maildir folder \"%1\" does not exist.").arg(*path));
    std::vector<QByteArray> out(fingerprints.size());
    QSet<QString> given;
    // A unique name is the message's identity: found by the listing alone,
    // and never guessed from other fields when it is not there.
    auto uniques = MaildirFiles::ListUniques(*dir);
    if (!uniques) return uniques.error();
    bool needContents = false;
    for (size_t i = 0; i < fingerprints.size(); ++i) {
        const mapi::Fingerprint& fp = fingerprints[i];
        if (fp.uniqueName.isEmpty()) {
            needContents = needContents || fp.Known();
            continue;
        }
        const QString unique = QString::fromUtf8(fp.uniqueName);
        if (uniques->contains(unique) && !given.contains(unique)) {
            given.insert(unique);
            out[i] = MessageIdFor(*path, unique);
        } else if (!unique.contains(QLatin1Char('/'))) {
            // Not delivered: what an interrupted append of it wrote to tmp/
            // is only litter now (runs hold the run lock, so no live writer
            // uses this name).
            ::unlink(QFile::encodeName(*dir + QLatin1String("/tmp/") + unique).constData());
        }
    }
    if (!needContents) return out;

    auto folder = ScannedFolder(*path);
    if (!folder) return folder.error();
    std::map<QString, mapi::Fingerprint> read;  // each file read at most once
    for (size_t i = 0; i < fingerprints.size(); ++i) {
        const mapi::Fingerprint& fp = fingerprints[i];
        if (!fp.uniqueName.isEmpty() || !fp.Known()) continue;
        for (const CachedMessage* m : (*folder)->ordered()) {
            if (given.contains(m->file.unique)) continue;
            if (fp.internalDate.isValid() && m->delivered.toSecsSinceEpoch() != fp.internalDate.toSecsSinceEpoch())
                continue;
            auto it = read.find(m->file.unique);
            if (it == read.end()) {
                auto got = FingerprintOf(Located{*folder, m});
                if (!got) continue;  // gone or unreadable: not this one
                it = read.emplace(m->file.unique, std::move(*got)).first;
            }
            if (fp.size >= 0 && it->second.size != fp.size) continue;
            if (!fp.messageIdHeader.isEmpty() && it->second.messageIdHeader != fp.messageIdHeader) continue;
            given.insert(m->file.unique);
            out[i] = MessageIdFor(*path, m->file.unique);
            break;
        }
    }
    return out;
}

void MaildirStore::Watch()
{
    m_watcher = new QFileSystemWatcher(this);
    std::vector<QString> folders{QString()};
    if (auto sent = m_layout.FindSpecial(QStringLiteral("\\Sent"))) folders.push_back(*sent);
    for (const QString& folder : folders) {
        const auto dir = m_layout.DirOf(folder);
        if (!dir) continue;
        QSet<QString>& names = m_knownNames[folder];
        for (const char* sub : {"new", "cur"}) {
            const QString watched = *dir + QLatin1Char('/') + QLatin1String(sub);
            m_watchedFolder.insert(watched, folder);
            m_watcher->addPath(watched);
            for (const QString& f : QDir(watched).entryList(QDir::Files)) names.insert(MaildirName::Parse(f).unique);
        }
    }
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, this, &MaildirStore::OnDirectoryChanged);
}

void MaildirStore::OnDirectoryChanged(const QString& changed)
{
    const auto folderIt = m_watchedFolder.constFind(changed);
    if (folderIt == m_watchedFolder.constEnd()) return;
    const QString folder = *folderIt;
    const auto dir = m_layout.DirOf(folder);
    if (!dir) return;
    // Flag renames and moves out change the directory too; only a unique
    // name not seen before is an arrival.
    QSet<QString> now;
    for (const char* sub : {"new", "cur"}) {
        for (const QString& f : QDir(*dir + QLatin1Char('/') + QLatin1String(sub)).entryList(QDir::Files))
            now.insert(MaildirName::Parse(f).unique);
    }
    QSet<QString>& known = m_knownNames[folder];
    bool arrived = false;
    for (const QString& unique : now) {
        if (!known.contains(unique)) {
            arrived = true;
            break;
        }
    }
    known = std::move(now);
    if (arrived) Q_EMIT MessagesArrived(FolderIdFor(folder));
}

}  // namespace mv::stores::maildir
