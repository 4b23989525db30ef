#include "ImapQuery.h"

#include "FetchNeeds.h"
#include "ImapFetcher.h"
#include "ImapMover.h"
#include "platform/mapi/RestrictionEvaluator.h"
#include "platform/stores/common/FlagMapping.h"
#include "platform/stores/common/MimeProperties.h"
#include "platform/stores/common/ModifiedUtf7.h"

#include <algorithm>
#include <future>

namespace mv::stores {

using namespace mv::mapi;

namespace {

// Header FETCHes: at most this many UIDs (bounds the memory of one answer)
// and this long a UID set (well under the 8 KB-64 KB line limits of servers).
constexpr size_t kFetchBatch = 10000;
constexpr qsizetype kMaxSetChars = 16000;
// A folder is read into an image when this many told queries will ask it
// (with the one asking now, at least four); one over this size never is
// (about 3 KB of memory per message with two fields).
constexpr int kImageAfter = 3;
constexpr quint32 kImageMost = 200000;
// An image nobody asked for this long is dropped.
constexpr int kImageIdleMs = 60000;
// More changed messages than this are read again as a whole.
constexpr size_t kMostRechecked = 2000;
constexpr size_t kBodyBatch = 100;    // whole messages per FETCH when bodies are needed

// One candidate as the evaluator sees it: the fetched record, with PR_BODY
// read from the server the first time a body term asks for it.
class Candidate final : public PropertySource {
public:
    Candidate(const MessageRecord& record, std::function<std::optional<QVariant>()> body)
        : m_record(record), m_body(std::move(body))
    {
    }
    std::optional<QVariant> Get(PropTag tag) const override
    {
        if (tag != PR_BODY || m_record.props.contains(PR_BODY)) return m_record.Get(tag);
        if (!m_loaded) {
            m_value = m_body();
            m_loaded = true;
        }
        return m_value;
    }
    std::vector<PropertyMap> SubRows(PropTag subObject) const override { return m_record.SubRows(subObject); }

private:
    const MessageRecord& m_record;
    std::function<std::optional<QVariant>()> m_body;
    mutable bool m_loaded = false;
    mutable std::optional<QVariant> m_value;
};

}  // namespace

ImapQuery::ImapQuery(ImapSession& session, QByteArray storeId) : m_session(session), m_storeId(std::move(storeId))
{
    m_imageIdle.setSingleShot(true);
    m_imageIdle.setInterval(kImageIdleMs);
    QObject::connect(&m_imageIdle, &QTimer::timeout, [this] {
        m_images.clear();
        m_announced.clear();
        m_imageFields.clear();
        m_noImage.clear();
    });
}

ImapQuery::~ImapQuery() = default;

int ImapQuery::LookaheadCommands() const { return m_lookahead ? m_lookahead->CommandsSent() : 0; }

GatheredRows::Fetched* ImapQuery::Queried(const ImapFolderRef& folder, quint32 uid)
{
    if (ImapIds::FolderKey(folder) != m_queriedFolder) return nullptr;
    const auto it = m_queried.find(uid);
    return it == m_queried.end() ? nullptr : &*it;
}

std::vector<QByteArray> ImapQuery::UidBatches(const std::vector<quint32>& uids)
{
    // Runs of consecutive UIDs cost one "a:b" each, so a dense answer goes
    // in few commands and a sparse one in more.
    std::vector<QByteArray> out;
    for (size_t at = 0; at < uids.size();) {
        size_t end = at;
        qsizetype chars = 0;
        while (end < uids.size() && end - at < kFetchBatch && chars < kMaxSetChars) {
            size_t run = end;
            while (run + 1 < uids.size() && uids[run + 1] == uids[run] + 1 && run + 1 - at < kFetchBatch)
                ++run;
            chars += QByteArray::number(uids[end]).size() + 1;
            if (run > end) chars += QByteArray::number(uids[run]).size() + 1;
            end = run + 1;
        }
        out.push_back(ImapFetcher::UidSet(std::vector<quint32>(uids.begin() + at, uids.begin() + end)));
        at = end;
    }
    return out;
}

Result<std::vector<FetchedMessage>> ImapQuery::FetchHeaders(ImapConnection& conn, const std::vector<quint32>& uids,
                                                            const FetchNeeds& needs) const
{
    auto fetched = FetchFields(conn, uids, needs.FieldList());
    if (!fetched || !needs.structure()) return fetched;
    std::vector<FetchedMessage>& out = *fetched;
    // The structure only of messages whose Content-Type leaves the class
    // open: most mail is told from that field, and parsing a structure
    // costs more than the field.
    QHash<quint32, size_t> open;
    std::vector<quint32> openUids;
    for (size_t i = 0; i < out.size(); ++i)
        if (!out[i].flags.deleted && FetchNeeds::MayHoldCalendar(out[i].header)) {
            open.insert(out[i].uid, i);
            openUids.push_back(out[i].uid);
        }
    auto classes = FetchClasses(conn, openUids);
    if (!classes) return classes.error();
    for (auto it = classes->cbegin(); it != classes->cend(); ++it)
        if (const auto at = open.constFind(it.key()); at != open.constEnd()) out[*at].messageClass = it.value();
    return fetched;
}

Result<std::vector<FetchedMessage>> ImapQuery::FetchFields(ImapConnection& conn, const std::vector<quint32>& uids,
                                                           const QByteArray& fields)
{
    std::vector<FetchedMessage> out;
    out.reserve(uids.size());
    for (const QByteArray& set : UidBatches(uids)) {
        if (Status s = conn.Custom(ImapFetcher::HeaderFetch(set, fields)); !s) return s.error();
        for (FetchedMessage& m : ImapFetcher::Parse(conn.session())) out.push_back(std::move(m));
    }
    return out;
}

MessageRecord ImapQuery::BuildRecord(const FetchedMessage& m, const ImapFolderRef& folder, bool light) const
{
    MessageRecord record;
    // A report's class is read from its Content-Type parameters by the
    // MIME parser; everything else the light way reads field by field.
    const bool report = m.messageClass.isEmpty() &&
                        MimeProperties::HeaderField(m.header, "Content-Type").toLower().contains("multipart/report");
    ParseOptions options;
    options.ownAddress = m_session.OwnAddress();
    record = light && !report ? MimeProperties::FromHeaderFields(m.header, options)
                              : MimeProperties::FromBytes(m.header, options);
    FlagMapping::ApplyFlags(m.flags, record.props);
    if (m.internalDate.isValid()) record.props[PR_MESSAGE_DELIVERY_TIME] = m.internalDate;
    record.props[PR_MESSAGE_SIZE] = static_cast<int>(m.size);
    if (!m.messageClass.isEmpty()) record.props[PR_MESSAGE_CLASS] = m.messageClass;
    record.props[PR_ENTRYID] = ImapIds::MessageId(folder, m.uid);
    record.props[PR_STORE_ENTRYID] = m_storeId;
    return record;
}

SearchKeys ImapQuery::Keys(const ImapConnection& conn, const Restriction* restriction)
{
    // OLDER counts back from the server's clock, so the real time it is.
    const SearchWriter writer({conn.Has("WITHIN"), conn.Has("LITERAL+"), QDateTime::currentDateTimeUtc()});
    return writer.Write(restriction);
}

Result<QHash<quint32, QString>> ImapQuery::FetchClasses(ImapConnection& conn, const std::vector<quint32>& uids) const
{
    QHash<quint32, QString> classes;
    std::vector<std::pair<quint32, QByteArray>> calendarParts;
    for (const QByteArray& set : UidBatches(uids)) {
        if (Status s = conn.Custom(ImapFetcher::StructureFetch(set)); !s) return s.error();
        for (FetchedMessage& m : ImapFetcher::Parse(conn.session())) {
            classes.insert(m.uid, m.messageClass);
            if (!m.calendarPart.isEmpty()) calendarParts.emplace_back(m.uid, m.calendarPart);
        }
    }
    // A calendar part that names no method in its parameters: read its text.
    for (const auto& [uid, part] : calendarParts) {
        if (Status s = conn.Custom(ImapFetcher::ContentFetch(QByteArray::number(uid), part)); !s) return s.error();
        const auto parts = ImapFetcher::Parse(conn.session());
        if (!parts.empty()) classes.insert(uid, ImapFetcher::ClassFromCalendar(parts.front().content));
    }
    return classes;
}

Result<std::vector<Row>> ImapQuery::QueryOn(ImapConnection& conn, const ImapFolderRef& folder,
                                            const Restriction* restriction, const std::vector<PropTag>& columns)
{
    const std::optional<QByteArrayList> fields = ImageFields(restriction, columns);
    // Before the SELECT: ENABLE is not valid in the selected state everywhere.
    if (m_mirror && fields)
        if (auto enabled = conn.EnableQresync(); !enabled) return enabled.error();
    if (auto uv = ImapSession::SelectChecked(conn, folder); !uv) return uv.error();
    std::optional<GatheredRows> gathered;
    // The mirror's FETCH of what changed brings the session's view up to
    // date as a NOOP would.
    if (m_mirror && fields) {
        SendAhead();
        auto fromMirror = FromMirror(conn, folder, restriction, columns);
        if (!fromMirror) return fromMirror.error();
        gathered = std::move(*fromMirror);
    }
    if (!gathered) {
        if (Status s = conn.Sync(); !s) return s.error();
        SendAhead();
    }
    const QByteArray key = ImapIds::FolderKey(folder);
    const auto image = m_images.find(key);
    if (!gathered && ImageWanted(key) && fields && (image == m_images.end() || image->second->Holds(*fields))) {
        auto fromImage = FromImage(conn, folder, restriction, columns, *fields);
        if (!fromImage) return fromImage.error();
        gathered = std::move(*fromImage);
    }
    // This was one of the told queries, or one more; once none is left the
    // image goes with its memory.
    if (fields && m_announced.value(key) > 0 && --m_announced[key] == 0) {
        m_announced.remove(key);
        m_imageFields.remove(key);
        m_images.erase(key);
    }
    if (!gathered) {
        const SearchKeys keys = Keys(conn, restriction);
        if (m_lookahead && restriction) gathered = FromLookahead(conn, folder, *restriction, columns, keys);
        if (!gathered) {
            auto fresh = Gather(conn, folder, restriction, columns, keys);
            if (!fresh) return fresh.error();
            gathered = std::move(*fresh);
        }
    }
    m_queriedFolder = key;
    m_queried = std::move(gathered->fetched);
    // With no answer waiting, no answer can name what was moved before now.
    if (m_lookahead && m_lookahead->Empty()) m_removed.clear();
    return std::move(gathered->rows);
}

std::optional<QByteArrayList> ImapQuery::ImageFields(const Restriction* restriction,
                                                    const std::vector<PropTag>& columns)
{
    // Records made from header fields and flags alone: no body term, no
    // attachment bit, no test of the class (told only for the rows).
    const FetchNeeds needs = FetchNeeds::For(restriction, columns);
    if (!needs.light() || needs.body() || FetchNeeds::For(restriction, {}).structure()) return std::nullopt;
    return needs.fields();
}

bool ImapQuery::ImageWanted(const QByteArray& folderKey) const
{
    if (m_noImage.contains(folderKey)) return false;
    return m_images.count(folderKey) || m_announced.value(folderKey) >= kImageAfter;
}

void ImapQuery::SendAhead()
{
    std::vector<LookaheadJob> told = std::move(m_told);
    m_told.clear();
    for (LookaheadJob& job : told) {
        if ((m_mirror || ImageWanted(ImapIds::FolderKey({job.mailbox, job.uidValidity}))) &&
            ImageFields(&job.restriction, job.columns))
            continue;
        if (!m_lookahead) {
            m_lookahead = std::make_unique<ImapLookahead>(
                [connector = m_session.connector(), settings = m_session.settings(),
                 credentials = m_session.credentials()] {
                    return credentials->Open([&](const QString& secret) { return connector(settings, secret); });
                },
                [this](ImapConnection& conn, const LookaheadJob& job) {
                    return Gather(conn, {job.mailbox, job.uidValidity}, &job.restriction, job.columns, job.keys);
                });
        }
        m_lookahead->Enqueue(std::move(job));
    }
}

Result<std::optional<GatheredRows>> ImapQuery::FromImage(ImapConnection& conn, const ImapFolderRef& folder,
                                                         const Restriction* restriction,
                                                         const std::vector<PropTag>& columns,
                                                         const QByteArrayList& fields)
{
    const QByteArray key = ImapIds::FolderKey(folder);
    auto it = m_images.find(key);
    if (it != m_images.end()) {
        auto current = Refresh(conn, folder, *it->second);
        if (!current) {
            m_images.erase(it);  // half brought up to date
            return current.error();
        }
        if (!*current) {
            m_images.erase(it);
            it = m_images.end();
        }
    }
    if (it == m_images.end()) {
        // Asked before the first FETCH: a change during the reading has a
        // higher mod-sequence and is read again by the next query.
        auto state = conn.ReadModState(folder.mailbox);
        if (!state) return state.error();
        if (state->highestModSeq == 0 || state->messages > kImageMost) {
            m_noImage.insert(key);
            return std::optional<GatheredRows>();
        }
        // The fields every told query reads, this one's, and what the
        // class and the moves need.
        QByteArrayList read = m_imageFields.value(key);
        for (const QByteArray& f : fields + QByteArrayList{"Content-Type", "Message-ID"})
            if (!read.contains(f)) read << f;
        auto image = std::make_unique<ImapFolderImage>(state->highestModSeq, std::move(read));
        auto uids = conn.AllUids();
        if (!uids) return uids.error();
        if (Status s = PutInImage(conn, folder, *uids, *image); !s) return s.error();
        it = m_images.emplace(key, std::move(image)).first;
    }
    m_imageIdle.start();
    ImapFolderImage& image = *it->second;
    const std::vector<quint32> uids = image.Match(restriction);
    if (FetchNeeds::For(nullptr, columns).structure()) {
        auto classes = FetchClasses(conn, image.ClassOpen(uids));
        if (!classes) return classes.error();
        for (auto c = classes->cbegin(); c != classes->cend(); ++c) image.SetClass(c.key(), c.value());
    }
    return std::optional<GatheredRows>(image.Rows(uids, columns));
}

void ImapQuery::SetMirrorFolder(const QString& folder)
{
    if (folder.isEmpty()) {
        m_mirror.reset();
        return;
    }
    const QByteArray fields = ImapMirror::Fields().join(' ');
    m_mirror = std::make_unique<ImapMirror>(
        folder, m_storeId, [this](const FetchedMessage& m) { return BuildRecord(m, {}, true); },
        [fields](ImapConnection& conn, const std::vector<quint32>& uids) { return FetchFields(conn, uids, fields); });
}

Result<std::optional<GatheredRows>> ImapQuery::FromMirror(ImapConnection& conn, const ImapFolderRef& folder,
                                                          const Restriction* restriction,
                                                          const std::vector<PropTag>& columns)
{
    auto synced = m_mirror->Sync(conn, folder);
    if (!synced) return synced.error();
    if (!*synced) return std::optional<GatheredRows>();
    GatheredRows rows = m_mirror->Match(folder, restriction, columns);
    if (FetchNeeds::For(nullptr, columns).structure()) {
        const std::vector<quint32> open = m_mirror->ClassOpen(folder, rows.rowUids);
        if (!open.empty()) {
            auto classes = FetchClasses(conn, open);
            if (!classes) return classes.error();
            // Remembered: a message's structure never changes under its UID.
            m_mirror->SetClasses(folder, *classes);
            rows = m_mirror->Match(folder, restriction, columns);
        }
    }
    return std::optional<GatheredRows>(std::move(rows));
}

Status ImapQuery::PutInImage(ImapConnection& conn, const ImapFolderRef& folder, const std::vector<quint32>& uids,
                             ImapFolderImage& image) const
{
    using Built = std::vector<std::pair<quint32, ImapFolderImage::Entry>>;
    auto build = [this, folder](std::vector<FetchedMessage> batch) {
        Built out;
        out.reserve(batch.size());
        for (const FetchedMessage& m : batch) {
            ImapFolderImage::Entry entry;
            entry.record = BuildRecord(m, folder, true);
            entry.flags = m.flags;
            entry.messageId = ImapMover::MessageIdField(m.header);
            entry.classOpen = FetchNeeds::MayHoldCalendar(m.header);
            out.emplace_back(m.uid, std::move(entry));
        }
        return out;
    };
    std::future<Built> building;
    auto collect = [&] {
        for (auto& [uid, entry] : building.get()) image.Put(uid, std::move(entry));
    };
    const QByteArray fields = image.fields().join(' ');
    for (const QByteArray& set : UidBatches(uids)) {
        if (Status s = conn.Custom(ImapFetcher::HeaderFetch(set, fields)); !s) {
            if (building.valid()) building.wait();
            return s;
        }
        std::vector<FetchedMessage> batch = ImapFetcher::Parse(conn.session());
        if (building.valid()) collect();
        building = std::async(std::launch::async, build, std::move(batch));
    }
    if (building.valid()) collect();
    return {};
}

Result<bool> ImapQuery::Refresh(ImapConnection& conn, const ImapFolderRef& folder, ImapFolderImage& image) const
{
    // Flags changed, or came in (delivered, moved in, appended): read
    // again. (A FETCH, not SEARCH MODSEQ, whose answer libetpan cannot
    // read.) The image is then as of the highest mod-sequence named: a
    // message changed after the server's answer has a higher one.
    // Once QRESYNC is on (the lookahead's check turns it on), expunges are
    // told as VANISHED and no longer lower the count used below.
    const bool qresync = conn.qresync();
    if (Status s = conn.Custom("UID FETCH 1:* (UID) (CHANGEDSINCE " + QByteArray::number(image.modSeq()) +
                               (qresync ? " VANISHED)" : ")"));
        !s)
        return s.error();
    for (quint32 uid : qresync ? conn.Vanished() : std::vector<quint32>{}) image.Erase(uid);
    std::vector<quint32> changed;
    quint64 modSeq = image.modSeq();
    for (const FetchedMessage& m : ImapFetcher::Parse(conn.session())) {
        if (m.modSeq == 0) return false;  // cannot tell how far this answer goes
        changed.push_back(m.uid);
        modSeq = std::max(modSeq, m.modSeq);
    }
    if (changed.size() > kMostRechecked) return false;
    std::sort(changed.begin(), changed.end());
    for (quint32 uid : changed) image.Erase(uid);  // one expunged meanwhile does not come back
    if (Status s = PutInImage(conn, folder, changed, image); !s) return s.error();
    image.setModSeq(modSeq);
    // Without VANISHED an expunge leaves no mod-sequence to find. The server
    // reports every expunge to the session before answering a UID FETCH, so
    // the count tells that one went (this store's own moves are taken out
    // as made).
    if (!qresync && image.size() != conn.Exists()) {
        auto present = conn.AllUids();
        if (!present) return present.error();
        image.KeepOnly(*present);
    }
    return true;
}

std::optional<GatheredRows> ImapQuery::FromLookahead(ImapConnection& conn, const ImapFolderRef& folder,
                                                     const Restriction& restriction,
                                                     const std::vector<PropTag>& columns, const SearchKeys& keys)
{
    std::optional<LookaheadAnswer> answer =
        m_lookahead->Take({folder.mailbox, folder.uidValidity, keys, restriction, columns});
    if (!answer) return std::nullopt;
    // Every message whose flags changed, or that came in, since the lookahead
    // read the folder's HIGHESTMODSEQ has a higher mod-sequence: those are
    // checked here. (A FETCH, not SEARCH MODSEQ, whose answer libetpan
    // cannot read.)
    // With QRESYNC the same FETCH names what was expunged since, by anyone.
    auto qresync = conn.EnableQresync();
    if (!qresync) return std::nullopt;
    if (!conn.Custom("UID FETCH 1:* (UID) (CHANGEDSINCE " + QByteArray::number(answer->modSeq) +
                     (*qresync ? " VANISHED)" : ")")))
        return std::nullopt;
    std::vector<quint32> changed;
    for (const FetchedMessage& m : ImapFetcher::Parse(conn.session())) changed.push_back(m.uid);
    std::vector<quint32> vanished = *qresync ? conn.Vanished() : std::vector<quint32>{};
    std::sort(vanished.begin(), vanished.end());
    if (changed.size() > kMostRechecked) return std::nullopt;
    std::sort(changed.begin(), changed.end());
    GatheredRows again;
    if (!changed.empty()) {
        SearchKeys within = keys;
        within.text = "UID " + ImapFetcher::UidSet(changed) + (keys.text == "ALL" ? QByteArray() : ' ' + keys.text);
        auto checked = Gather(conn, folder, &restriction, columns, within);
        if (!checked) return std::nullopt;
        again = std::move(*checked);
    }
    const auto removed = m_removed.constFind(ImapIds::FolderKey(folder));
    auto stale = [&](quint32 uid) {
        return (removed != m_removed.constEnd() && removed->contains(uid)) ||
               std::binary_search(changed.begin(), changed.end(), uid) ||
               std::binary_search(vanished.begin(), vanished.end(), uid);
    };
    // Both lists are in UID order; so is the merge.
    GatheredRows& before = answer->gathered;
    GatheredRows out;
    size_t a = 0, b = 0;
    while (a < before.rows.size() || b < again.rows.size()) {
        const bool takeAgain =
            a == before.rows.size() || (b < again.rows.size() && again.rowUids[b] < before.rowUids[a]);
        if (takeAgain) {
            out.rowUids.push_back(again.rowUids[b]);
            out.rows.push_back(std::move(again.rows[b++]));
        } else if (const quint32 uid = before.rowUids[a]; !stale(uid)) {
            out.rowUids.push_back(uid);
            out.rows.push_back(std::move(before.rows[a++]));
        } else {
            ++a;
        }
    }
    out.fetched = std::move(again.fetched);
    for (auto it = before.fetched.cbegin(); it != before.fetched.cend(); ++it)
        if (!stale(it.key())) out.fetched.insert(it.key(), it.value());
    return out;
}

Result<GatheredRows> ImapQuery::Gather(ImapConnection& conn, const ImapFolderRef& folder, const Restriction* restriction,
                                       const std::vector<PropTag>& columns, const SearchKeys& keys) const
{
    if (Status s = conn.Custom(SearchWriter::Command(keys)); !s) return s.error();
    std::vector<quint32> uids = conn.SearchResult();
    std::sort(uids.begin(), uids.end());
    // What is fetched follows what is read: the columns, and the
    // restriction's properties only when the search answer is re-checked.
    const FetchNeeds needs = FetchNeeds::For(restriction && !keys.exact ? restriction : nullptr, columns);
    auto fetched = FetchHeaders(conn, uids, needs);
    if (!fetched) return fetched.error();

    GatheredRows out;
    std::vector<Row>& rows = out.rows;
    std::optional<Error> bodyError;
    // Bodies are read only when the check reaches a body term, and then for
    // a run of candidates at once: one FETCH per batch, not per message.
    QHash<quint32, std::optional<QVariant>> bodies;
    auto loadBodies = [&](size_t from) {
        std::vector<quint32> batch;
        for (size_t k = from; k < fetched->size() && batch.size() < kBodyBatch; ++k)
            if (!bodies.contains((*fetched)[k].uid)) batch.push_back((*fetched)[k].uid);
        if (Status s = conn.Custom(ImapFetcher::ContentFetch(ImapFetcher::UidSet(batch))); !s) {
            bodyError = s.error();
            return;
        }
        ParseOptions options;
        options.withBody = true;
        for (const FetchedMessage& part : ImapFetcher::Parse(conn.session()))
            bodies.insert(part.uid, MimeProperties::FromBytes(part.content, options).Get(PR_BODY));
        for (quint32 uid : batch)
            if (!bodies.contains(uid)) bodies.insert(uid, std::nullopt);  // gone meanwhile
    };
    for (size_t index = 0; index < fetched->size(); ++index) {
        const FetchedMessage& m = (*fetched)[index];
        if (m.flags.deleted) continue;
        const MessageRecord record = BuildRecord(m, folder, needs.light());
        out.fetched.insert(m.uid, {ImapMover::MessageIdField(m.header), m.flags, m.size, m.internalDate});
        const Candidate candidate(record, [&, uid = m.uid, index]() -> std::optional<QVariant> {
            if (!bodies.contains(uid)) loadBodies(index);
            std::optional<QVariant> body = bodies.value(uid);
            bodies.remove(uid);  // each is asked for once; keep memory flat
            return body;
        });
        if (restriction && !keys.exact && !RestrictionEvaluator::Matches(*restriction, candidate)) {
            if (bodyError) return *bodyError;
            continue;
        }
        if (bodyError) return *bodyError;
        Row row;
        row.reserve(columns.size());
        for (PropTag tag : columns) {
            auto v = candidate.Get(tag);
            row.push_back(v ? *v : QVariant());
        }
        if (bodyError) return *bodyError;
        rows.push_back(std::move(row));
        out.rowUids.push_back(m.uid);
    }
    return out;
}

Result<std::vector<Row>> ImapQuery::Query(const QByteArray& folderId, const Restriction* restriction,
                                          const std::vector<PropTag>& columns)
{
    const auto ref = ImapIds::ParseFolder(folderId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    // Refused before anything is sent, as every store refuses it.
    if (restriction)
        if (Status s = RestrictionEvaluator::CheckSupported(*restriction); !s) return s.error();
    return m_session.Retrying<std::vector<Row>>(
        [&](ImapConnection& conn) { return QueryOn(conn, *ref, restriction, columns); });
}

Result<MessageRecord> ImapQuery::Item(const QByteArray& messageId)
{
    const auto ref = ImapIds::ParseMessage(messageId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP message identifier"));
    return m_session.Retrying<MessageRecord>([&](ImapConnection& conn) -> Result<MessageRecord> {
        if (auto uv = ImapSession::SelectChecked(conn, ref->folder); !uv) return uv.error();
        if (Status s = conn.Custom(ImapFetcher::ContentFetch(QByteArray::number(ref->uid))); !s) return s.error();
        const auto parts = ImapFetcher::Parse(conn.session());
        if (parts.empty() || parts.front().flags.deleted)
            return Error::notFound(QStringLiteral("the message is no longer in %1").arg(ModifiedUtf7::Decode(ref->folder.mailbox)));
        const FetchedMessage& m = parts.front();
        ParseOptions options;
        options.withBody = true;
        options.ownAddress = m_session.OwnAddress();
        MessageRecord record = MimeProperties::FromBytes(m.content, options);
        FlagMapping::ApplyFlags(m.flags, record.props);
        if (m.internalDate.isValid()) record.props[PR_MESSAGE_DELIVERY_TIME] = m.internalDate;
        record.props[PR_MESSAGE_SIZE] = static_cast<int>(m.size);
        record.props[PR_ENTRYID] = messageId;
        record.props[PR_STORE_ENTRYID] = m_storeId;
        return record;
    });
}

Result<QByteArray> ImapQuery::RawMessage(const QByteArray& messageId)
{
    const auto ref = ImapIds::ParseMessage(messageId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP message identifier"));
    return m_session.Retrying<QByteArray>([&](ImapConnection& conn) -> Result<QByteArray> {
        if (auto uv = ImapSession::SelectChecked(conn, ref->folder); !uv) return uv.error();
        if (Status s = conn.Custom(ImapFetcher::ContentFetch(QByteArray::number(ref->uid))); !s) return s.error();
        const auto parts = ImapFetcher::Parse(conn.session());
        if (parts.empty()) return Error::notFound(QStringLiteral("the message is no longer there"));
        return parts.front().content;
    });
}

void ImapQuery::Forget(const ImapFolderRef& folder, const std::vector<quint32>& uids)
{
    if (m_mirror) m_mirror->Forget(folder, uids);
    const QByteArray key = ImapIds::FolderKey(folder);
    QSet<quint32>* removed = m_lookahead ? &m_removed[key] : nullptr;
    const auto image = m_images.find(key);
    for (quint32 uid : uids) {
        if (removed) removed->insert(uid);  // a lookahead's answer may still name it
        if (image != m_images.end()) image->second->Erase(uid);
        if (key == m_queriedFolder) m_queried.remove(uid);
    }
}

void ImapQuery::Anticipate(const QByteArray& folderId, const Restriction& restriction,
                           const std::vector<PropTag>& columns)
{
    // Only with a connection up (its capabilities write the search) and a
    // server that can tell what changed after the answer was made.
    ImapConnection* conn = m_session.current();
    if (!conn || conn->broken() || !conn->Has("CONDSTORE")) return;
    const auto ref = ImapIds::ParseFolder(folderId);
    if (!ref || !RestrictionEvaluator::CheckSupported(restriction)) return;
    // Counted now, handed on with the next query: by then the run has told
    // all it will, and the folders an image will answer are known.
    if (const auto fields = ImageFields(&restriction, columns)) {
        const QByteArray key = ImapIds::FolderKey(*ref);
        ++m_announced[key];
        QByteArrayList& all = m_imageFields[key];
        for (const QByteArray& f : *fields)
            if (!all.contains(f)) all << f;
    }
    m_told.push_back({ref->mailbox, ref->uidValidity, Keys(*conn, &restriction), restriction, columns});
    if (m_told.size() > 16) m_told.erase(m_told.begin());
}

}  // namespace mv::stores
