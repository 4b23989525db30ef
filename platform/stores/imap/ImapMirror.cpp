#include "ImapMirror.h"

#include "FetchNeeds.h"
#include "ImapFetcher.h"
#include "ImapMover.h"
#include "platform/mapi/RestrictionEvaluator.h"
#include "platform/stores/common/FlagMapping.h"
#include "platform/stores/common/MessageIndexSource.h"

#include <QCryptographicHash>
#include <QDir>
#include <QtEndian>

#include <algorithm>

namespace mv::stores {

using namespace mv::mapi;

namespace {

// Records are put and written this many at a time while a folder is read
// whole, so a large folder never holds all its records as objects.
constexpr size_t kBuildChunk = 5000;

constexpr quint32 kSeen = 1;
constexpr quint32 kAnswered = 2;
constexpr quint32 kFlagged = 4;
constexpr quint32 kDraft = 8;
constexpr quint32 kDeleted = 16;
constexpr quint32 kClassOpen = 32;  // the class waits for the structure (FetchNeeds::MayHoldCalendar)
constexpr quint32 kNone = 0;

QByteArray KeyOf(quint32 uid)
{
    QByteArray key(4, Qt::Uninitialized);
    qToBigEndian(uid, key.data());
    return key;
}

quint32 UidOf(QByteArrayView key) { return key.size() == 4 ? qFromBigEndian<quint32>(key.data()) : 0; }

QByteArray Validity(quint32 uidValidity, quint64 modSeq)
{
    QByteArray v(12, Qt::Uninitialized);
    qToBigEndian(uidValidity, v.data());
    qToBigEndian(modSeq, v.data() + 4);
    return v;
}

bool ParseValidity(const QByteArray& v, quint32* uidValidity, quint64* modSeq)
{
    if (v.size() != 12) return false;
    *uidValidity = qFromBigEndian<quint32>(v.constData());
    *modSeq = qFromBigEndian<quint64>(v.constData() + 4);
    return true;
}

quint32 BitsOf(const MessageFlags& f)
{
    return (f.seen ? kSeen : kNone) | (f.answered ? kAnswered : kNone) | (f.flagged ? kFlagged : kNone) |
           (f.draft ? kDraft : kNone) | (f.deleted ? kDeleted : kNone);
}

// aux: the Message-ID field, a newline, the keywords separated by spaces.
QByteArray AuxOf(const QByteArray& messageId, const QStringList& keywords)
{
    return messageId + '\n' + keywords.join(QLatin1Char(' ')).toUtf8();
}

MessageFlags FlagsOf(quint32 bits, QByteArrayView aux)
{
    MessageFlags f;
    f.seen = bits & kSeen;
    f.answered = bits & kAnswered;
    f.flagged = bits & kFlagged;
    f.draft = bits & kDraft;
    f.deleted = bits & kDeleted;
    const qsizetype nl = aux.indexOf('\n');
    if (nl >= 0 && nl + 1 < aux.size())
        f.keywords = QString::fromUtf8(aux.sliced(nl + 1)).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return f;
}

QByteArray MessageIdOf(QByteArrayView aux)
{
    const qsizetype nl = aux.indexOf('\n');
    return (nl < 0 ? aux : aux.first(nl)).toByteArray();
}

MessageIndexFile::Props PropsOf(const PropertyMap& map)
{
    MessageIndexFile::Props out;
    out.reserve(map.size());
    for (auto it = map.constBegin(); it != map.constEnd(); ++it)
        if (it.key() != PR_ENTRYID && it.key() != PR_STORE_ENTRYID) out.emplace_back(it.key(), it.value());
    return out;
}

// A record as the evaluator sees it, with the identifiers it does not hold.
class MirrorSource final : public MessageIndexSource {
public:
    MirrorSource(const ImapFolderRef& folder, const QByteArray& storeId) : m_folder(folder), m_storeId(storeId) {}
    std::optional<QVariant> Get(PropTag tag) const override
    {
        QVariant scratch;
        if (const QVariant* own = Own(tag, scratch)) return *own;
        return MessageIndexSource::Get(tag);
    }
    const QVariant* Find(PropTag tag, QVariant& scratch) const override
    {
        if (const QVariant* own = Own(tag, scratch)) return own;
        return MessageIndexSource::Find(tag, scratch);
    }

private:
    const QVariant* Own(PropTag tag, QVariant& scratch) const
    {
        if (tag == PR_ENTRYID) scratch = ImapIds::MessageId(m_folder, UidOf(record().key()));
        else if (tag == PR_STORE_ENTRYID) scratch = m_storeId;
        else return nullptr;
        return &scratch;
    }
    const ImapFolderRef& m_folder;
    const QByteArray& m_storeId;
};

}  // namespace

ImapMirror::ImapMirror(QString folder, QByteArray storeId, RecordMaker makeRecord, Fetcher fetch)
    : m_folder(std::move(folder)), m_storeId(std::move(storeId)), m_makeRecord(std::move(makeRecord)),
      m_fetch(std::move(fetch))
{
}

ImapMirror::~ImapMirror()
{
    // What Forget left pending; a failure only means the next sync reads it again.
    for (auto& [mailbox, file] : m_files)
        if (file->hasChanges()) (void)file->Commit();
}

const QByteArrayList& ImapMirror::Fields()
{
    static const QByteArrayList fields = FetchNeeds::All().fields();
    return fields;
}

MessageIndexFile* ImapMirror::Loaded(const QByteArray& mailbox) const
{
    const auto it = m_files.find(mailbox);
    return it == m_files.end() ? nullptr : it->second.get();
}

Result<MessageIndexFile*> ImapMirror::File(const QByteArray& mailbox)
{
    if (MessageIndexFile* file = Loaded(mailbox)) return file;
    const QByteArray name = QCryptographicHash::hash(mailbox, QCryptographicHash::Sha1).toHex();
    auto opened = MessageIndexFile::Open(m_folder + QLatin1Char('/') + QString::fromLatin1(name) + QLatin1String(".mirror"));
    if (!opened) return opened.error();
    return m_files.emplace(mailbox, std::move(*opened)).first->second.get();
}

MessageIndexFile::Record ImapMirror::RecordOf(const FetchedMessage& m) const
{
    const MessageRecord made = m_makeRecord(m);
    MessageIndexFile::Record r;
    r.key = KeyOf(m.uid);
    r.aux = AuxOf(ImapMover::MessageIdField(m.header), m.flags.keywords);
    r.size = m.size;
    r.dateMs = m.internalDate.isValid() ? m.internalDate.toMSecsSinceEpoch() : 0;
    r.flags = BitsOf(m.flags) | (FetchNeeds::MayHoldCalendar(m.header) ? kClassOpen : kNone);
    r.props = PropsOf(made.props);
    for (const PropertyMap& row : made.recipients) r.recipients.push_back(PropsOf(row));
    return r;
}

Status ImapMirror::PutFetched(ImapConnection& conn, const std::vector<quint32>& uids, MessageIndexFile& file)
{
    for (size_t at = 0; at < uids.size(); at += kBuildChunk) {
        const std::vector<quint32> chunk(uids.begin() + at, uids.begin() + std::min(uids.size(), at + kBuildChunk));
        auto fetched = m_fetch(conn, chunk);
        if (!fetched) return fetched.error();
        for (const FetchedMessage& m : *fetched) file.Put(RecordOf(m));
        // Written as it goes: the validity is set only at the end, so a
        // crash meanwhile leaves a file that is read again whole.
        if (uids.size() > kBuildChunk)
            if (Status s = file.Commit(); !s) return s;
    }
    return Status::success();
}

Status ImapMirror::Rebuild(ImapConnection& conn, const ImapFolderRef& folder, MessageIndexFile& file)
{
    file.Clear();
    file.SetValidity({});
    // Asked before the first FETCH: a change during the reading has a
    // higher mod-sequence and is read by the next sync.
    auto state = conn.ReadModState(folder.mailbox);
    if (!state) return state.error();
    if (state->highestModSeq == 0) return Status::success();  // no validity: no mirror
    auto uids = conn.AllUids();
    if (!uids) return uids.error();
    if (Status s = PutFetched(conn, *uids, file); !s) return s;
    file.SetValidity(Validity(folder.uidValidity, state->highestModSeq));
    return Status::success();
}

Result<bool> ImapMirror::Sync(ImapConnection& conn, const ImapFolderRef& folder)
{
    if (!conn.Has("CONDSTORE") && !conn.Has("QRESYNC")) return false;
    auto opened = File(folder.mailbox);
    if (!opened) return opened.error();
    MessageIndexFile& file = **opened;
    quint32 uidValidity = 0;
    quint64 modSeq = 0;
    const bool valid = ParseValidity(file.validity(), &uidValidity, &modSeq) && uidValidity == folder.uidValidity &&
                       modSeq > 0;
    if (!valid) {
        if (Status s = Rebuild(conn, folder, file); !s) return s.error();
    } else {
        auto qresync = conn.EnableQresync();
        if (!qresync) return qresync.error();
        // A FETCH, not SEARCH MODSEQ, whose answer libetpan cannot read.
        const QByteArray command = "UID FETCH 1:* (UID FLAGS) (CHANGEDSINCE " + QByteArray::number(modSeq) +
                                   (*qresync ? " VANISHED)" : ")");
        if (Status s = conn.Custom(command); !s) return s.error();
        const std::vector<FetchedMessage> changed = ImapFetcher::Parse(conn.session());
        for (quint32 uid : *qresync ? conn.Vanished() : std::vector<quint32>{}) file.Remove(KeyOf(uid));
        std::vector<quint32> added;
        quint64 highest = modSeq;
        for (const FetchedMessage& m : changed) {
            if (m.modSeq == 0) return Error::temporary(QStringLiteral("the server sent a change without its mod-sequence"));
            highest = std::max(highest, m.modSeq);
            const MessageIndexFile::RecordView known = file.find(KeyOf(m.uid));
            if (known.isNull()) {
                added.push_back(m.uid);
                continue;
            }
            const MessageFlags before = FlagsOf(known.flags(), known.aux());
            if (BitsOf(before) == BitsOf(m.flags) && before.keywords == m.flags.keywords) continue;
            MessageIndexFile::Record r = known.ToRecord();
            PropertyMap props;
            for (const auto& [tag, value] : r.props) props.insert(tag, value);
            FlagMapping::ApplyFlags(m.flags, props);
            r.props = PropsOf(props);
            r.flags = BitsOf(m.flags) | (r.flags & kClassOpen);
            r.aux = AuxOf(MessageIdOf(r.aux), m.flags.keywords);
            file.Put(std::move(r));
        }
        std::sort(added.begin(), added.end());
        if (Status s = PutFetched(conn, added, file); !s) return s.error();
        // Without VANISHED an expunge leaves no trace but the count (the
        // server reports every expunge before answering the FETCH).
        if (!*qresync && quint32(file.count()) != conn.Exists()) {
            auto present = conn.AllUids();
            if (!present) return present.error();
            std::vector<QByteArray> gone;
            for (qsizetype i = 0; i < file.count(); ++i) {
                const quint32 uid = UidOf(file.at(i).key());
                if (!std::binary_search(present->begin(), present->end(), uid)) gone.push_back(KeyOf(uid));
            }
            for (const QByteArray& key : gone) file.Remove(key);
        }
        if (highest != modSeq) file.SetValidity(Validity(folder.uidValidity, highest));
    }
    if (file.hasChanges())
        if (Status s = file.Commit(); !s) return s.error();
    return !file.validity().isEmpty();
}

GatheredRows ImapMirror::Match(const ImapFolderRef& folder, const Restriction* restriction,
                               const std::vector<PropTag>& columns) const
{
    GatheredRows out;
    const MessageIndexFile* file = Loaded(folder.mailbox);
    if (!file) return out;
    MirrorSource source(folder, m_storeId);
    for (qsizetype i = 0; i < file->count(); ++i) {
        const MessageIndexFile::RecordView view = file->at(i);
        if (view.flags() & kDeleted) continue;
        source.Reset(view);
        if (restriction && !RestrictionEvaluator::Matches(*restriction, source)) continue;
        Row row;
        row.reserve(columns.size());
        for (PropTag tag : columns) {
            auto v = source.Get(tag);
            row.push_back(v ? *v : QVariant());
        }
        const quint32 uid = UidOf(view.key());
        out.rows.push_back(std::move(row));
        out.rowUids.push_back(uid);
        out.fetched.insert(uid, {MessageIdOf(view.aux()), FlagsOf(view.flags(), view.aux()), quint32(view.size()),
                                 QDateTime::fromMSecsSinceEpoch(view.dateMs(), Qt::UTC)});
    }
    return out;
}

std::vector<quint32> ImapMirror::ClassOpen(const ImapFolderRef& folder, const std::vector<quint32>& uids) const
{
    std::vector<quint32> out;
    const MessageIndexFile* file = Loaded(folder.mailbox);
    if (!file) return out;
    for (quint32 uid : uids)
        if (const auto view = file->find(KeyOf(uid)); !view.isNull() && (view.flags() & kClassOpen)) out.push_back(uid);
    return out;
}

void ImapMirror::SetClasses(const ImapFolderRef& folder, const QHash<quint32, QString>& classes)
{
    MessageIndexFile* file = Loaded(folder.mailbox);
    if (!file) return;
    for (auto it = classes.cbegin(); it != classes.cend(); ++it) {
        const auto view = file->find(KeyOf(it.key()));
        if (view.isNull()) continue;
        MessageIndexFile::Record r = view.ToRecord();
        r.flags &= ~kClassOpen;
        if (!it.value().isEmpty()) {
            auto p = std::find_if(r.props.begin(), r.props.end(), [](const auto& e) { return e.first == PR_MESSAGE_CLASS; });
            if (p == r.props.end()) r.props.emplace_back(PR_MESSAGE_CLASS, it.value());
            else p->second = it.value();
        }
        file->Put(std::move(r));
    }
}

void ImapMirror::Forget(const ImapFolderRef& folder, const std::vector<quint32>& uids)
{
    MessageIndexFile* file = Loaded(folder.mailbox);
    if (!file) return;
    for (quint32 uid : uids) file->Remove(KeyOf(uid));
}

qsizetype ImapMirror::count(const ImapFolderRef& folder) const
{
    const MessageIndexFile* file = Loaded(folder.mailbox);
    return file ? file->count() : 0;
}

qint64 ImapMirror::fileSize(const ImapFolderRef& folder) const
{
    const MessageIndexFile* file = Loaded(folder.mailbox);
    return file ? file->fileSize() : 0;
}

}  // namespace mv::stores
