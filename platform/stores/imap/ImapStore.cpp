#include "ImapStore.h"

#include "FetchNeeds.h"
#include "ImapConnection.h"
#include "ImapCredentials.h"
#include "ImapFetcher.h"
#include "ImapIdleWatcher.h"
#include "ImapIds.h"
#include "ImapMover.h"
#include "ModifiedUtf7.h"
#include "SearchWriter.h"
#include "platform/mapi/RestrictionEvaluator.h"
#include "platform/stores/common/FlagMapping.h"
#include "platform/stores/common/MimeProperties.h"

#include <libetpan/libetpan.h>

#include <QHash>
#include <QMap>
#include <QMetaMethod>
#include <QSet>

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

// Special-use by name, for servers that do not say (RFC 6154 names first).
struct NamedUse {
    const char* name;
    const char* use;
};
const NamedUse kNamedUses[] = {
    {"Sent", "\\Sent"},       {"Sent Items", "\\Sent"}, {"Sent Messages", "\\Sent"}, {"Drafts", "\\Drafts"},
    {"Trash", "\\Trash"},     {"Deleted Items", "\\Trash"}, {"Deleted Messages", "\\Trash"},
    {"Archive", "\\Archive"}, {"Junk", "\\Junk"},       {"Spam", "\\Junk"},
};
const char* const kSpecialUses[] = {"\\Sent", "\\Drafts", "\\Trash", "\\Archive", "\\Junk", "\\All", "\\Flagged"};

QString SpecialUseOf(const QByteArray& mailbox, const mailimap_mbx_list_flags* flags, char delimiter)
{
    if (mailbox.compare("INBOX", Qt::CaseInsensitive) == 0) return QStringLiteral("\\Inbox");
    if (flags && flags->mbf_oflags)
        for (clistiter* it = clist_begin(flags->mbf_oflags); it; it = clist_next(it)) {
            auto* of = static_cast<mailimap_mbx_list_oflag*>(clist_content(it));
            if (of->of_type != MAILIMAP_MBX_LIST_OFLAG_FLAG_EXT || !of->of_flag_ext) continue;
            const QByteArray ext = QByteArray("\\") + of->of_flag_ext;
            for (const char* use : kSpecialUses)
                if (ext.compare(use, Qt::CaseInsensitive) == 0) return QString::fromLatin1(use);
        }
    const QString leaf = ModifiedUtf7::Decode(delimiter ? mailbox.mid(mailbox.lastIndexOf(delimiter) + 1) : mailbox);
    if (delimiter && mailbox.contains(delimiter)) return {};
    for (const NamedUse& n : kNamedUses)
        if (leaf.compare(QLatin1String(n.name), Qt::CaseInsensitive) == 0) return QString::fromLatin1(n.use);
    return {};
}

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

ImapStore::ImapStore(ImapSettings settings, QObject* parent)
    : ImapStore(std::move(settings), &ImapConnection::Open, parent)
{
}

ImapStore::ImapStore(ImapSettings settings, Connector connector, QObject* parent)
    : MessageStore(parent), m_settings(std::move(settings)),
      m_reconnect(QStringLiteral("IMAP %1@%2").arg(m_settings.user, m_settings.host), m_settings.reconnectClock),
      m_storeId(ImapIds::StoreId(m_settings.user, m_settings.host, m_settings.port)), m_connector(std::move(connector)),
      m_credentials(std::make_shared<ImapCredentials>(m_settings))
{
    m_imageIdle.setSingleShot(true);
    m_imageIdle.setInterval(kImageIdleMs);
    connect(&m_imageIdle, &QTimer::timeout, this, [this] {
        m_images.clear();
        m_announced.clear();
        m_imageFields.clear();
        m_noImage.clear();
    });
}

ImapStore::~ImapStore()
{
    m_watcher.reset();  // joins the thread before anything it might reach goes
}

void ImapStore::SetLogger(logging::Logger* log)
{
    m_log = log;
    m_reconnect.SetLogger(log);
}

QByteArray ImapStore::StoreId() const { return m_storeId; }
QString ImapStore::DisplayName() const { return QStringLiteral("%1@%2").arg(m_settings.user, m_settings.host); }

int ImapStore::CommandsSent() const
{
    return m_commandsDone + (m_conn ? m_conn->commandsSent() : 0) + (m_lookahead ? m_lookahead->CommandsSent() : 0);
}

QString ImapStore::OwnAddress() const
{
    if (!m_settings.ownAddress.isEmpty()) return m_settings.ownAddress;
    return m_settings.user.contains(QLatin1Char('@')) ? m_settings.user : m_settings.user + QLatin1Char('@') + m_settings.host;
}

QDateTime ImapStore::Now() const
{
    return m_settings.clock ? m_settings.clock().toUTC() : QDateTime::currentDateTimeUtc();
}

Result<ImapConnection*> ImapStore::Connection()
{
    if (m_conn && !m_conn->broken()) return m_conn.get();
    if (m_conn) {
        m_commandsDone += m_conn->commandsSent();
        m_conn.reset();
    }
    // A server that failed is left alone for a while, and after a refused
    // login for good: every call fails at once meanwhile.
    if (Status s = m_reconnect.MayTry(); !s) return s.error();
    auto opened = m_credentials->Open([this](const QString& secret) { return m_connector(m_settings, secret); });
    if (!opened) return m_reconnect.Failed(opened.error());
    m_reconnect.Succeeded();
    m_conn = std::move(*opened);
    m_list.reset();  // folders may have come and gone while disconnected
    return m_conn.get();
}

template <class T>
Result<T> ImapStore::Retrying(const std::function<Result<T>(ImapConnection&)>& call)
{
    for (int attempt = 0;; ++attempt) {
        auto conn = Connection();
        if (!conn) return conn.error();
        Result<T> result = call(**conn);
        // Only a dropped connection is worth a second try, and only once.
        if (result || attempt > 0 || !(*conn)->broken()) return result;
    }
}

Result<quint32> ImapStore::UidValidity(ImapConnection& conn, const QByteArray& mailbox, quint32* uidNext)
{
    mailimap_status_att_list* atts = mailimap_status_att_list_new_empty();
    mailimap_status_att_list_add(atts, MAILIMAP_STATUS_ATT_UIDVALIDITY);
    if (uidNext) mailimap_status_att_list_add(atts, MAILIMAP_STATUS_ATT_UIDNEXT);
    mailimap_mailbox_data_status* status = nullptr;
    conn.CountCommand();
    const int r = mailimap_status(conn.session(), mailbox.constData(), atts, &status);
    mailimap_status_att_list_free(atts);
    if (Status s = conn.Check(r, "STATUS"); !s) {
        if (s.error().kind == ErrorKind::Permanent)
            return Error::notFound(QStringLiteral("IMAP folder %1 does not exist").arg(ModifiedUtf7::Decode(mailbox)));
        return s.error();
    }
    quint32 uidValidity = 0;
    for (clistiter* it = clist_begin(status->st_info_list); it; it = clist_next(it)) {
        auto* info = static_cast<mailimap_status_info*>(clist_content(it));
        if (info->st_att == MAILIMAP_STATUS_ATT_UIDVALIDITY) uidValidity = info->st_value;
        if (uidNext && info->st_att == MAILIMAP_STATUS_ATT_UIDNEXT) *uidNext = info->st_value;
    }
    mailimap_mailbox_data_status_free(status);
    return uidValidity;
}

Result<quint32> ImapStore::SelectChecked(ImapConnection& conn, const ImapFolderRef& folder)
{
    auto uv = conn.Select(folder.mailbox);
    if (!uv) return uv;
    if (*uv != folder.uidValidity)
        return Error::notFound(QStringLiteral("IMAP folder %1 was recreated (UIDVALIDITY %2, was %3)")
                                   .arg(ModifiedUtf7::Decode(folder.mailbox))
                                   .arg(*uv)
                                   .arg(folder.uidValidity));
    return uv;
}

Result<FolderInfo> ImapStore::Describe(ImapConnection& conn, const QByteArray& mailbox, char delimiter, int,
                                       const QString& specialUse)
{
    mailimap_status_att_list* atts = mailimap_status_att_list_new_empty();
    mailimap_status_att_list_add(atts, MAILIMAP_STATUS_ATT_MESSAGES);
    mailimap_status_att_list_add(atts, MAILIMAP_STATUS_ATT_UNSEEN);
    mailimap_status_att_list_add(atts, MAILIMAP_STATUS_ATT_UIDVALIDITY);
    mailimap_status_att_list_add(atts, MAILIMAP_STATUS_ATT_UIDNEXT);
    mailimap_mailbox_data_status* status = nullptr;
    conn.CountCommand();
    const int r = mailimap_status(conn.session(), mailbox.constData(), atts, &status);
    mailimap_status_att_list_free(atts);
    if (Status s = conn.Check(r, "STATUS"); !s) {
        if (s.error().kind == ErrorKind::Permanent)
            return Error::notFound(QStringLiteral("IMAP folder %1 does not exist").arg(ModifiedUtf7::Decode(mailbox)));
        return s.error();
    }
    FolderInfo info;
    quint32 uidValidity = 0, uidNext = 0;
    for (clistiter* it = clist_begin(status->st_info_list); it; it = clist_next(it)) {
        auto* si = static_cast<mailimap_status_info*>(clist_content(it));
        if (si->st_att == MAILIMAP_STATUS_ATT_MESSAGES) info.total = static_cast<int>(si->st_value);
        if (si->st_att == MAILIMAP_STATUS_ATT_UNSEEN) info.unread = static_cast<int>(si->st_value);
        if (si->st_att == MAILIMAP_STATUS_ATT_UIDVALIDITY) uidValidity = si->st_value;
        if (si->st_att == MAILIMAP_STATUS_ATT_UIDNEXT) uidNext = si->st_value;
    }
    mailimap_mailbox_data_status_free(status);
    if (uidNext) m_uidNext.insert(FolderKey({mailbox, uidValidity}), uidNext);
    info.entryId = ImapIds::FolderId(mailbox, uidValidity);
    const QString path = ModifiedUtf7::Decode(mailbox);
    const QChar sep = QLatin1Char(delimiter ? delimiter : '/');
    info.path = QString(path).replace(sep, QLatin1Char('/'));
    info.name = path.section(sep, -1);
    if (mailbox.compare("INBOX", Qt::CaseInsensitive) == 0) info.name = info.path = QStringLiteral("Inbox");
    info.specialUse = specialUse;
    if (delimiter && mailbox.contains(delimiter)) {
        const QByteArray parent = mailbox.left(mailbox.lastIndexOf(delimiter));
        auto parentUv = UidValidity(conn, parent);
        if (parentUv) info.parentId = ImapIds::FolderId(parent, *parentUv);
        else if (parentUv.error().kind != ErrorKind::NotFound) return parentUv.error();
    }
    return info;
}

Result<std::vector<FolderInfo>> ImapStore::Folders()
{
    return Retrying<std::vector<FolderInfo>>([this](ImapConnection& conn) -> Result<std::vector<FolderInfo>> {
        clist* list = nullptr;
        conn.CountCommand();
        if (Status s = conn.Check(mailimap_list(conn.session(), "", "*", &list), "LIST"); !s) return s.error();
        struct Entry { QByteArray name; char delimiter; bool selectable; QString use; };
        std::vector<Entry> entries;
        for (clistiter* it = clist_begin(list); it; it = clist_next(it)) {
            auto* mb = static_cast<mailimap_mailbox_list*>(clist_content(it));
            const bool noselect = mb->mb_flag && mb->mb_flag->mbf_type == MAILIMAP_MBX_LIST_FLAGS_SFLAG &&
                                  mb->mb_flag->mbf_sflag == MAILIMAP_MBX_LIST_SFLAG_NOSELECT;
            bool nonexistent = false;
            if (mb->mb_flag && mb->mb_flag->mbf_oflags)
                for (clistiter* o = clist_begin(mb->mb_flag->mbf_oflags); o; o = clist_next(o)) {
                    auto* of = static_cast<mailimap_mbx_list_oflag*>(clist_content(o));
                    if (of->of_flag_ext && (qstricmp(of->of_flag_ext, "NonExistent") == 0 || qstricmp(of->of_flag_ext, "Noselect") == 0))
                        nonexistent = true;
                }
            entries.push_back({QByteArray(mb->mb_name), mb->mb_delimiter, !noselect && !nonexistent,
                               SpecialUseOf(mb->mb_name, mb->mb_flag, mb->mb_delimiter)});
        }
        mailimap_list_result_free(list);
        std::vector<FolderInfo> out;
        for (const Entry& e : entries) {
            if (!e.selectable) continue;
            auto info = Describe(conn, e.name, e.delimiter, 0, e.use);
            if (!info) {
                if (info.error().kind == ErrorKind::NotFound) continue;  // deleted meanwhile
                return info.error();
            }
            out.push_back(std::move(*info));
        }
        return out;
    });
}

Result<FolderInfo> ImapStore::Folder(const QByteArray& folderId)
{
    const auto ref = ImapIds::ParseFolder(folderId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    return Retrying<FolderInfo>([&](ImapConnection& conn) -> Result<FolderInfo> {
        // A mailbox missing from the list read earlier may be new: read again.
        if (!m_list || !m_list->contains(ref->mailbox))
            if (Status s = ReadList(conn); !s) return s.error();
        const auto it = m_list->constFind(ref->mailbox);
        if (it == m_list->constEnd())
            return Error::notFound(
                QStringLiteral("IMAP folder %1 does not exist").arg(ModifiedUtf7::Decode(ref->mailbox)));
        const ListEntry entry = *it;
        auto info = Describe(conn, ref->mailbox, entry.delimiter, 0, entry.specialUse);
        if (!info && info.error().kind == ErrorKind::NotFound) m_list.reset();  // the list is out of date
        if (info && info->entryId != folderId)
            return Error::notFound(QStringLiteral("IMAP folder %1 was recreated").arg(ModifiedUtf7::Decode(ref->mailbox)));
        return info;
    });
}

QByteArray ImapStore::FolderKey(const ImapFolderRef& folder)
{
    return folder.mailbox + '/' + QByteArray::number(folder.uidValidity);
}

Status ImapStore::ReadList(ImapConnection& conn)
{
    clist* list = nullptr;
    conn.CountCommand();
    if (Status s = conn.Check(mailimap_list(conn.session(), "", "*", &list), "LIST"); !s) return s;
    QHash<QByteArray, ListEntry> entries;
    for (clistiter* it = clist_begin(list); it; it = clist_next(it)) {
        auto* mb = static_cast<mailimap_mailbox_list*>(clist_content(it));
        ListEntry e;
        e.delimiter = mb->mb_delimiter;
        e.specialUse = SpecialUseOf(mb->mb_name, mb->mb_flag, mb->mb_delimiter);
        entries.insert(QByteArray(mb->mb_name), e);
    }
    mailimap_list_result_free(list);
    m_list = std::move(entries);
    return Status::success();
}

Result<QByteArray> ImapStore::FolderIdOf(const QByteArray& mailbox)
{
    return Retrying<QByteArray>([&](ImapConnection& conn) -> Result<QByteArray> {
        auto uv = UidValidity(conn, mailbox);
        if (!uv) return uv.error();
        return ImapIds::FolderId(mailbox, *uv);
    });
}

Result<QByteArray> ImapStore::CreateFolder(const QByteArray& parentId, const QString& name)
{
    std::optional<ImapFolderRef> parent;
    if (!parentId.isEmpty()) {
        parent = ImapIds::ParseFolder(parentId);
        if (!parent) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    }
    if (name.isEmpty()) return Error::permanent(QStringLiteral("a folder needs a name"));
    auto conn = Connection();
    if (!conn) return conn.error();
    ImapConnection& c = **conn;
    clist* list = nullptr;
    c.CountCommand();
    if (Status s = c.Check(mailimap_list(c.session(), "", "", &list), "LIST"); !s) return s.error();
    char delimiter = '/';
    if (list && clist_begin(list))
        delimiter = static_cast<mailimap_mailbox_list*>(clist_content(clist_begin(list)))->mb_delimiter;
    mailimap_list_result_free(list);
    if (delimiter && name.contains(QLatin1Char(delimiter)))
        return Error::permanent(QStringLiteral("folder name \"%1\" contains the separator \"%2\"").arg(name, QString(QLatin1Char(delimiter))));
    if (parent) {
        auto uv = UidValidity(c, parent->mailbox);
        if (!uv) return uv.error();
        if (*uv != parent->uidValidity) return Error::notFound(QStringLiteral("the parent folder was recreated"));
    }
    const QByteArray mailbox = (parent ? parent->mailbox + delimiter : QByteArray()) + ModifiedUtf7::Encode(name);
    c.CountCommand();
    if (Status s = c.Check(mailimap_create(c.session(), mailbox.constData()), "CREATE"); !s) return s.error();
    auto uv = UidValidity(c, mailbox);
    if (!uv) return uv.error();
    return ImapIds::FolderId(mailbox, *uv);
}

std::vector<QByteArray> ImapStore::UidBatches(const std::vector<quint32>& uids)
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

Result<std::vector<FetchedMessage>> ImapStore::FetchHeaders(ImapConnection& conn, const std::vector<quint32>& uids,
                                                            const FetchNeeds& needs) const
{
    std::vector<FetchedMessage> out;
    out.reserve(uids.size());
    const QByteArray fields = needs.FieldList();
    for (const QByteArray& set : UidBatches(uids)) {
        if (Status s = conn.Custom(ImapFetcher::HeaderFetch(set, fields)); !s) return s.error();
        for (FetchedMessage& m : ImapFetcher::Parse(conn.session())) out.push_back(std::move(m));
    }
    if (!needs.structure()) return out;
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
    return out;
}

MessageRecord ImapStore::BuildRecord(const FetchedMessage& m, const ImapFolderRef& folder, bool light) const
{
    MessageRecord record;
    // A report's class is read from its Content-Type parameters by the
    // MIME parser; everything else the light way reads field by field.
    const bool report = m.messageClass.isEmpty() &&
                        MimeProperties::HeaderField(m.header, "Content-Type").toLower().contains("multipart/report");
    ParseOptions options;
    options.ownAddress = OwnAddress();
    record = light && !report ? MimeProperties::FromHeaderFields(m.header, options)
                              : MimeProperties::FromBytes(m.header, options);
    FlagMapping::ApplyFlags(m.flags, record.props);
    if (m.internalDate.isValid()) record.props[PR_MESSAGE_DELIVERY_TIME] = m.internalDate;
    record.props[PR_MESSAGE_SIZE] = static_cast<int>(m.size);
    if (!m.messageClass.isEmpty()) record.props[PR_MESSAGE_CLASS] = m.messageClass;
    record.props[PR_ENTRYID] = ImapIds::MessageId(folder, m.uid);
    record.props[PR_STORE_ENTRYID] = StoreId();
    return record;
}

SearchKeys ImapStore::Keys(const ImapConnection& conn, const Restriction* restriction)
{
    // OLDER counts back from the server's clock, so the real time it is.
    const SearchWriter writer({conn.Has("WITHIN"), conn.Has("LITERAL+"), QDateTime::currentDateTimeUtc()});
    return writer.Write(restriction);
}

Result<QHash<quint32, QString>> ImapStore::FetchClasses(ImapConnection& conn, const std::vector<quint32>& uids) const
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

Result<std::vector<Row>> ImapStore::QueryOn(ImapConnection& conn, const ImapFolderRef& folder,
                                            const Restriction* restriction, const std::vector<PropTag>& columns)
{
    if (auto uv = SelectChecked(conn, folder); !uv) return uv.error();
    if (Status s = conn.Sync(); !s) return s.error();
    SendAhead();
    std::optional<GatheredRows> gathered;
    const QByteArray key = FolderKey(folder);
    const std::optional<QByteArrayList> fields = ImageFields(restriction, columns);
    const auto image = m_images.find(key);
    if (ImageWanted(key) && fields && (image == m_images.end() || image->second->Holds(*fields))) {
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

std::optional<QByteArrayList> ImapStore::ImageFields(const Restriction* restriction,
                                                    const std::vector<PropTag>& columns)
{
    // Records made from header fields and flags alone: no body term, no
    // attachment bit, no test of the class (told only for the rows).
    const FetchNeeds needs = FetchNeeds::For(restriction, columns);
    if (!needs.light() || needs.body() || FetchNeeds::For(restriction, {}).structure()) return std::nullopt;
    return needs.fields();
}

bool ImapStore::ImageWanted(const QByteArray& folderKey) const
{
    if (m_noImage.contains(folderKey)) return false;
    return m_images.count(folderKey) || m_announced.value(folderKey) >= kImageAfter;
}

void ImapStore::SendAhead()
{
    std::vector<LookaheadJob> told = std::move(m_told);
    m_told.clear();
    for (LookaheadJob& job : told) {
        if (ImageWanted(FolderKey({job.mailbox, job.uidValidity})) && ImageFields(&job.restriction, job.columns))
            continue;
        if (!m_lookahead) {
            m_lookahead = std::make_unique<ImapLookahead>(
                [connector = m_connector, settings = m_settings, credentials = m_credentials] {
                    return credentials->Open([&](const QString& secret) { return connector(settings, secret); });
                },
                [this](ImapConnection& conn, const LookaheadJob& job) {
                    return Gather(conn, {job.mailbox, job.uidValidity}, &job.restriction, job.columns, job.keys);
                });
        }
        m_lookahead->Enqueue(std::move(job));
    }
}

Result<std::optional<GatheredRows>> ImapStore::FromImage(ImapConnection& conn, const ImapFolderRef& folder,
                                                         const Restriction* restriction,
                                                         const std::vector<PropTag>& columns,
                                                         const QByteArrayList& fields)
{
    const QByteArray key = FolderKey(folder);
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
        if (Status s = conn.Custom("UID SEARCH ALL"); !s) return s.error();
        std::vector<quint32> uids = conn.SearchResult();
        std::sort(uids.begin(), uids.end());
        if (Status s = PutInImage(conn, folder, uids, *image); !s) return s.error();
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

Status ImapStore::PutInImage(ImapConnection& conn, const ImapFolderRef& folder, const std::vector<quint32>& uids,
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

Result<bool> ImapStore::Refresh(ImapConnection& conn, const ImapFolderRef& folder, ImapFolderImage& image) const
{
    // Flags changed, or came in (delivered, moved in, appended): read
    // again. (A FETCH, not SEARCH MODSEQ, whose answer libetpan cannot
    // read.) The image is then as of the highest mod-sequence named: a
    // message changed after the server's answer has a higher one.
    if (Status s = conn.Custom("UID FETCH 1:* (UID) (CHANGEDSINCE " + QByteArray::number(image.modSeq()) + ')'); !s)
        return s.error();
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
    // An expunge leaves no mod-sequence to find. The server reports every
    // expunge to the session before answering a UID FETCH, so the count
    // tells that one went (this store's own moves are taken out as made).
    if (image.size() != conn.Exists()) {
        if (Status s = conn.Custom("UID SEARCH ALL"); !s) return s.error();
        std::vector<quint32> present = conn.SearchResult();
        std::sort(present.begin(), present.end());
        image.KeepOnly(present);
    }
    return true;
}

std::optional<GatheredRows> ImapStore::FromLookahead(ImapConnection& conn, const ImapFolderRef& folder,
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
    if (!conn.Custom("UID FETCH 1:* (UID) (CHANGEDSINCE " + QByteArray::number(answer->modSeq) + ')'))
        return std::nullopt;
    std::vector<quint32> changed;
    for (const FetchedMessage& m : ImapFetcher::Parse(conn.session())) changed.push_back(m.uid);
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
    const auto removed = m_removed.constFind(FolderKey(folder));
    auto stale = [&](quint32 uid) {
        return (removed != m_removed.constEnd() && removed->contains(uid)) ||
               std::binary_search(changed.begin(), changed.end(), uid);
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

Result<GatheredRows> ImapStore::Gather(ImapConnection& conn, const ImapFolderRef& folder, const Restriction* restriction,
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

Result<std::vector<Row>> ImapStore::Query(const QByteArray& folderId, const Restriction* restriction,
                                          const std::vector<PropTag>& columns)
{
    const auto ref = ImapIds::ParseFolder(folderId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    // Refused before anything is sent, as every store refuses it.
    if (restriction)
        if (Status s = RestrictionEvaluator::CheckSupported(*restriction); !s) return s.error();
    return Retrying<std::vector<Row>>(
        [&](ImapConnection& conn) { return QueryOn(conn, *ref, restriction, columns); });
}

Result<MessageRecord> ImapStore::Item(const QByteArray& messageId)
{
    const auto ref = ImapIds::ParseMessage(messageId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP message identifier"));
    return Retrying<MessageRecord>([&](ImapConnection& conn) -> Result<MessageRecord> {
        if (auto uv = SelectChecked(conn, ref->folder); !uv) return uv.error();
        if (Status s = conn.Custom(ImapFetcher::ContentFetch(QByteArray::number(ref->uid))); !s) return s.error();
        const auto parts = ImapFetcher::Parse(conn.session());
        if (parts.empty() || parts.front().flags.deleted)
            return Error::notFound(QStringLiteral("the message is no longer in %1").arg(ModifiedUtf7::Decode(ref->folder.mailbox)));
        const FetchedMessage& m = parts.front();
        ParseOptions options;
        options.withBody = true;
        options.ownAddress = OwnAddress();
        MessageRecord record = MimeProperties::FromBytes(m.content, options);
        FlagMapping::ApplyFlags(m.flags, record.props);
        if (m.internalDate.isValid()) record.props[PR_MESSAGE_DELIVERY_TIME] = m.internalDate;
        record.props[PR_MESSAGE_SIZE] = static_cast<int>(m.size);
        record.props[PR_ENTRYID] = messageId;
        record.props[PR_STORE_ENTRYID] = StoreId();
        return record;
    });
}

Result<QByteArray> ImapStore::RawMessage(const QByteArray& messageId)
{
    const auto ref = ImapIds::ParseMessage(messageId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP message identifier"));
    return Retrying<QByteArray>([&](ImapConnection& conn) -> Result<QByteArray> {
        if (auto uv = SelectChecked(conn, ref->folder); !uv) return uv.error();
        if (Status s = conn.Custom(ImapFetcher::ContentFetch(QByteArray::number(ref->uid))); !s) return s.error();
        const auto parts = ImapFetcher::Parse(conn.session());
        if (parts.empty()) return Error::notFound(QStringLiteral("the message is no longer there"));
        return parts.front().content;
    });
}

Result<ImapStore::Batch> ImapStore::OneFolder(const std::vector<QByteArray>& messageIds)
{
    Batch batch;
    for (const QByteArray& id : messageIds) {
        const auto ref = ImapIds::ParseMessage(id);
        if (!ref) return Error::notFound(QStringLiteral("not an IMAP message identifier"));
        if (!batch.uids.empty() &&
            (batch.folder.mailbox != ref->folder.mailbox || batch.folder.uidValidity != ref->folder.uidValidity))
            return Error::permanent(QStringLiteral("the messages of one call must be of one folder"));
        batch.folder = ref->folder;
        batch.uids.push_back(ref->uid);
    }
    return batch;
}

template <class T>
Result<T> ImapStore::InFolder(const std::vector<QByteArray>& messageIds, T whenGone,
                              const std::function<Result<T>(ImapMover&, const Batch&)>& call)
{
    auto batch = OneFolder(messageIds);
    if (!batch) return batch.error();
    if (batch->uids.empty()) return whenGone;
    return Retrying<T>([&](ImapConnection& conn) -> Result<T> {
        auto uv = SelectChecked(conn, batch->folder);
        // A folder that is gone or was recreated holds none of them.
        if (!uv) return uv.error().kind == ErrorKind::NotFound ? Result<T>(whenGone) : Result<T>(uv.error());
        if (Status s = conn.Sync(); !s) return s.error();
        ImapMover mover(conn, m_log, m_settings.host);
        return call(mover, *batch);
    });
}

Result<std::vector<NewMessage>> ImapStore::Export(const std::vector<QByteArray>& messageIds)
{
    return InFolder<std::vector<NewMessage>>(messageIds, std::vector<NewMessage>(messageIds.size()),
                                             [](ImapMover& mover, const Batch& b) { return mover.Export(b.uids); });
}

Result<std::vector<Fingerprint>> ImapStore::Fingerprints(const std::vector<QByteArray>& messageIds)
{
    // What the last query fetched serves, so a rule's move asks nothing more.
    if (auto batch = OneFolder(messageIds); batch && !batch->uids.empty() && FolderKey(batch->folder) == m_queriedFolder &&
                                            std::all_of(batch->uids.begin(), batch->uids.end(),
                                                        [&](quint32 u) { return m_queried.contains(u); })) {
        std::vector<Fingerprint> out;
        for (quint32 uid : batch->uids) {
            const GatheredRows::Fetched& f = m_queried[uid];
            out.push_back({{}, f.messageId, qint64(f.size), f.internalDate});
        }
        return out;
    }
    return InFolder<std::vector<Fingerprint>>(messageIds, std::vector<Fingerprint>(messageIds.size()),
                                              [](ImapMover& mover, const Batch& b) { return mover.Fingerprints(b.uids); });
}

Result<std::vector<Presence>> ImapStore::Probe(const std::vector<QByteArray>& messageIds)
{
    return InFolder<std::vector<Presence>>(messageIds, std::vector<Presence>(messageIds.size(), Presence::Absent),
                                           [](ImapMover& mover, const Batch& b) { return mover.Probe(b.uids); });
}

Status ImapStore::Remove(const std::vector<QByteArray>& messageIds)
{
    // Safe to send again after a drop: it names these UIDs and no others.
    auto done = InFolder<bool>(messageIds, true, [this](ImapMover& mover, const Batch& b) -> Result<bool> {
        if (Status s = mover.Remove(b.uids, b.folder.mailbox); !s) return s.error();
        Forget(b.folder, b.uids);
        return true;
    });
    if (!done) return done.error();
    return Status::success();
}

Status ImapStore::Undelete(const std::vector<QByteArray>& messageIds)
{
    auto done = InFolder<bool>(messageIds, true, [](ImapMover& mover, const Batch& b) -> Result<bool> {
        if (Status s = mover.Undelete(b.uids); !s) return s.error();
        return true;
    });
    if (!done) return done.error();
    return Status::success();
}

Result<QByteArray> ImapStore::ArrivalMark(const QByteArray& folderId)
{
    const auto ref = ImapIds::ParseFolder(folderId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    // Asked of the server every time: a UIDNEXT remembered from before this
    // store's own appends would put earlier batches' copies after the mark,
    // and a message without Message-ID could then be taken for a copy of
    // another with the same size and date.
    return Retrying<QByteArray>([&](ImapConnection& conn) -> Result<QByteArray> {
        quint32 uidNext = 0;
        auto uv = UidValidity(conn, ref->mailbox, &uidNext);
        if (!uv) return uv.error();
        if (*uv != ref->uidValidity)
            return Error::notFound(QStringLiteral("IMAP folder %1 was recreated").arg(ModifiedUtf7::Decode(ref->mailbox)));
        m_uidNext.insert(FolderKey(*ref), uidNext);
        return ImapMover::Mark(*uv, uidNext);
    });
}

Result<std::vector<QByteArray>> ImapStore::Locate(const QByteArray& folderId, const QByteArray& mark,
                                                  const std::vector<Fingerprint>& fingerprints)
{
    const auto ref = ImapIds::ParseFolder(folderId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    return Retrying<std::vector<QByteArray>>([&](ImapConnection& conn) -> Result<std::vector<QByteArray>> {
        auto uv = conn.Select(ref->mailbox);
        if (!uv) return uv.error();
        if (Status s = conn.Sync(); !s) return s.error();
        // A mark of another UIDVALIDITY says nothing of today's UIDs: the
        // whole folder is looked at.
        quint32 markValidity = 0, from = 1;
        if (!ImapMover::ParseMark(mark, &markValidity, &from) || markValidity != *uv) from = 1;
        ImapMover mover(conn, m_log, m_settings.host);
        auto found = mover.Locate(from, fingerprints);
        if (!found) return found.error();
        std::vector<QByteArray> out;
        for (quint32 uid : *found) out.push_back(uid ? ImapIds::MessageId({ref->mailbox, *uv}, uid) : QByteArray());
        return out;
    });
}

void ImapStore::Forget(const ImapFolderRef& folder, const std::vector<quint32>& uids)
{
    const QByteArray key = FolderKey(folder);
    QSet<quint32>* removed = m_lookahead ? &m_removed[key] : nullptr;
    const auto image = m_images.find(key);
    for (quint32 uid : uids) {
        if (removed) removed->insert(uid);  // a lookahead's answer may still name it
        if (image != m_images.end()) image->second->Erase(uid);
        if (key == m_queriedFolder) m_queried.remove(uid);
    }
}

Result<std::vector<QByteArray>> ImapStore::MoveUids(const std::vector<QByteArray>& messageIds,
                                                    const QByteArray& destFolderId, std::vector<bool>& gone)
{
    gone.assign(messageIds.size(), false);
    if (messageIds.empty()) return std::vector<QByteArray>{};
    const auto dest = ImapIds::ParseFolder(destFolderId);
    if (!dest) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    auto batch = OneFolder(messageIds);
    if (!batch) return batch.error();
    const ImapFolderRef& source = batch->folder;
    if (source.mailbox == dest->mailbox && source.uidValidity == dest->uidValidity) return messageIds;

    // A move is never sent twice: after a drop nobody knows what the server
    // did, and the journal's recovery finds out from the folders.
    auto opened = Connection();
    if (!opened) return opened.error();
    ImapConnection& conn = **opened;
    if (auto uv = SelectChecked(conn, source); !uv) return uv.error();
    // Without UIDPLUS no COPYUID names the copies: they are found by their
    // fingerprints above the destination's UIDNEXT.
    std::vector<Fingerprint> fingerprints;
    QByteArray mark;
    if (!conn.Has("UIDPLUS")) {
        auto known = ArrivalMark(destFolderId);
        if (!known) return known.error();
        mark = *known;
        auto prints = Fingerprints(messageIds);
        if (!prints) return prints.error();
        fingerprints = std::move(*prints);
        if (auto uv = SelectChecked(conn, source); !uv) return uv.error();
    }
    ImapMover mover(conn, m_log, m_settings.host);
    auto moved = mover.Move(batch->uids, source, *dest);
    if (!moved) {
        if (!conn.broken()) return moved.error();
        return Error::temporary(QStringLiteral("the connection to %1 dropped during a move from %2 to %3; it is not "
                                               "sent again: the move journal's recovery settles it (%4)")
                                    .arg(m_settings.host, ModifiedUtf7::Decode(source.mailbox),
                                         ModifiedUtf7::Decode(dest->mailbox), moved.error().message));
    }
    Forget(source, batch->uids);
    const QByteArray destKey = FolderKey(*dest);
    std::vector<QByteArray> out(batch->uids.size());
    if (moved->copyUid) {
        quint32 next = m_uidNext.value(destKey);
        for (size_t i = 0; i < out.size(); ++i) {
            const quint32 uid = moved->newUids[i];
            if (uid) out[i] = ImapIds::MessageId(*dest, uid);
            next = std::max(next, uid + 1);
        }
        if (next) m_uidNext.insert(destKey, next);
    } else {
        m_uidNext.remove(destKey);
        if (!mark.isEmpty()) {
            auto found = Locate(destFolderId, mark, fingerprints);
            if (!found) return found.error();
            out = std::move(*found);
        }
    }
    for (size_t i = 0; i < out.size(); ++i) gone[i] = out[i].isEmpty();
    return out;
}

Result<std::vector<QByteArray>> ImapStore::MoveMany(const std::vector<QByteArray>& messageIds,
                                                    const QByteArray& destFolderId)
{
    std::vector<bool> gone;
    return MoveUids(messageIds, destFolderId, gone);
}

Result<QByteArray> ImapStore::Move(const QByteArray& messageId, const QByteArray& destFolderId)
{
    std::vector<bool> gone;
    auto moved = MoveUids({messageId}, destFolderId, gone);
    if (!moved) return moved.error();
    if (gone.front()) {
        const auto ref = ImapIds::ParseMessage(messageId);
        return Error::notFound(QStringLiteral("the message is no longer in %1; nothing was moved")
                                   .arg(ModifiedUtf7::Decode(ref->folder.mailbox)));
    }
    return moved->front();
}
Status ImapStore::SetFlagStatusMany(const std::vector<QByteArray>& messageIds, int flagStatus)
{
    if (flagStatus < 0 || flagStatus > 2)
        return Error::permanent(QStringLiteral("flag status %1 is not 0, 1 or 2").arg(flagStatus));
    // By folder, in the order first met.
    std::vector<std::pair<ImapFolderRef, std::vector<quint32>>> byFolder;
    for (const QByteArray& id : messageIds) {
        const auto ref = ImapIds::ParseMessage(id);
        if (!ref) return Error::notFound(QStringLiteral("not an IMAP message identifier"));
        auto it = std::find_if(byFolder.begin(), byFolder.end(), [&](const auto& f) {
            return f.first.mailbox == ref->folder.mailbox && f.first.uidValidity == ref->folder.uidValidity;
        });
        if (it == byFolder.end()) it = byFolder.insert(byFolder.end(), {ref->folder, {}});
        it->second.push_back(ref->uid);
    }
    for (const auto& [folder, uids] : byFolder) {
        auto done = Retrying<bool>([&](ImapConnection& conn) -> Result<bool> {
            if (auto uv = SelectChecked(conn, folder); !uv) return uv.error();
            // The flags the last query fetched serve when it fetched every
            // one of these (a rule's batch right after its query); a
            // message gone since is one a UID STORE passes over.
            std::vector<FetchedMessage> current;
            const bool known =
                FolderKey(folder) == m_queriedFolder &&
                std::all_of(uids.begin(), uids.end(), [&](quint32 u) { return m_queried.contains(u); });
            if (known) {
                for (quint32 uid : uids) {
                    FetchedMessage m;
                    m.uid = uid;
                    m.flags = m_queried.value(uid).flags;
                    current.push_back(std::move(m));
                }
            } else {
                if (Status s = conn.Custom("UID FETCH " + ImapFetcher::UidSet(uids) + " (UID FLAGS)"); !s)
                    return s.error();
                current = ImapFetcher::Parse(conn.session());
            }
            // Messages wanting the same change share one STORE; only the
            // difference is stored, so other clients' flags stay.
            QMap<QByteArray, std::vector<quint32>> stores;
            for (const FetchedMessage& m : current) {
                if (known) m_queried[m.uid].flags = FlagMapping::WithFlagStatus(m.flags, flagStatus);
                if (m.flags.deleted) continue;
                const MessageFlags wanted = FlagMapping::WithFlagStatus(m.flags, flagStatus);
                QByteArrayList add, remove;
                if (wanted.flagged != m.flags.flagged) (wanted.flagged ? add : remove) << "\\Flagged";
                for (const QString& k : wanted.keywords)
                    if (!m.flags.keywords.contains(k, Qt::CaseInsensitive)) add << k.toUtf8();
                for (const QString& k : m.flags.keywords)
                    if (!wanted.keywords.contains(k, Qt::CaseInsensitive)) remove << k.toUtf8();
                if (!add.isEmpty()) stores["+FLAGS.SILENT (" + add.join(' ') + ')'].push_back(m.uid);
                if (!remove.isEmpty()) stores["-FLAGS.SILENT (" + remove.join(' ') + ')'].push_back(m.uid);
            }
            for (auto it = stores.constBegin(); it != stores.constEnd(); ++it)
                if (Status s = conn.Custom("UID STORE " + ImapFetcher::UidSet(it.value()) + ' ' + it.key());
                    !s)
                    return s.error();
            return true;
        });
        if (!done) return done.error();
    }
    return Status::success();
}

Status ImapStore::SetFlagStatus(const QByteArray& messageId, int flagStatus)
{
    const auto ref = ImapIds::ParseMessage(messageId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP message identifier"));
    if (flagStatus < 0 || flagStatus > 2) return Error::permanent(QStringLiteral("flag status %1 is not 0, 1 or 2").arg(flagStatus));
    auto done = Retrying<bool>([&](ImapConnection& conn) -> Result<bool> {
        if (auto uv = SelectChecked(conn, ref->folder); !uv) return uv.error();
        const QByteArray uid = QByteArray::number(ref->uid);
        if (Status s = conn.Custom("UID FETCH " + uid + " (UID FLAGS)"); !s) return s.error();
        const auto fetched = ImapFetcher::Parse(conn.session());
        if (fetched.empty() || fetched.front().flags.deleted)
            return Error::notFound(QStringLiteral("the message is no longer there"));
        // Store only the difference, so other clients' flags stay as they are.
        const MessageFlags now = fetched.front().flags;
        const MessageFlags wanted = FlagMapping::WithFlagStatus(now, flagStatus);
        QByteArrayList add, remove;
        if (wanted.flagged != now.flagged) (wanted.flagged ? add : remove) << "\\Flagged";
        for (const QString& k : wanted.keywords)
            if (!now.keywords.contains(k, Qt::CaseInsensitive)) add << k.toUtf8();
        for (const QString& k : now.keywords)
            if (!wanted.keywords.contains(k, Qt::CaseInsensitive)) remove << k.toUtf8();
        if (!add.isEmpty())
            if (Status s = conn.Custom("UID STORE " + uid + " +FLAGS.SILENT (" + add.join(' ') + ')'); !s) return s.error();
        if (!remove.isEmpty())
            if (Status s = conn.Custom("UID STORE " + uid + " -FLAGS.SILENT (" + remove.join(' ') + ')'); !s) return s.error();
        return true;
    });
    if (!done) return done.error();
    return Status::success();
}

Result<std::vector<QByteArray>> ImapStore::AppendMany(const QByteArray& folderId, const std::vector<NewMessage>& messages)
{
    const auto ref = ImapIds::ParseFolder(folderId);
    if (!ref) return Error::notFound(QStringLiteral("not an IMAP folder identifier"));
    if (messages.empty()) return std::vector<QByteArray>{};
    // Never retried: an APPEND sent twice is a message twice.
    auto conn = Connection();
    if (!conn) return conn.error();
    ImapConnection& c = **conn;
    quint32 uidNext = 0;
    auto uv = UidValidity(c, ref->mailbox, &uidNext);
    if (!uv) return uv.error();
    if (*uv != ref->uidValidity)
        return Error::notFound(QStringLiteral("IMAP folder %1 was recreated").arg(ModifiedUtf7::Decode(ref->mailbox)));
    ImapMover mover(c, m_log, m_settings.host);
    std::vector<quint32> uids;
    std::vector<Fingerprint> unnamed(messages.size());  // of those the server gave no UID
    bool anyUnnamed = false;
    for (size_t i = 0; i < messages.size(); ++i) {
        NewMessage m = messages[i];
        if (!m.internalDate.isValid()) m.internalDate = Now();
        auto uid = mover.Append(*ref, m);
        if (!uid) {
            if (i > 0) Q_EMIT MessagesArrived(folderId);
            return uid.error();
        }
        uids.push_back(*uid);
        if (!*uid) {
            unnamed[i] = ImapMover::FingerprintOf(ImapMover::WithCrlf(m.rfc822), m.internalDate);
            anyUnnamed = true;
        }
    }
    if (anyUnnamed) {
        if (auto sel = SelectChecked(c, *ref); !sel) return sel.error();
        auto found = mover.Locate(uidNext, unnamed);
        if (!found) return found.error();
        for (size_t i = 0; i < uids.size(); ++i)
            if (!uids[i]) uids[i] = (*found)[i];
    }
    std::vector<QByteArray> out;
    for (quint32 uid : uids) out.push_back(uid ? ImapIds::MessageId(*ref, uid) : QByteArray());
    Q_EMIT MessagesArrived(folderId);
    return out;
}

Result<QByteArray> ImapStore::Append(const QByteArray& folderId, const NewMessage& message)
{
    auto ids = AppendMany(folderId, {message});
    if (!ids) return ids.error();
    return ids->front();
}

void ImapStore::Anticipate(const QByteArray& folderId, const Restriction& restriction,
                           const std::vector<PropTag>& columns)
{
    // Only with a connection up (its capabilities write the search) and a
    // server that can tell what changed after the answer was made.
    if (!m_conn || m_conn->broken() || !m_conn->Has("CONDSTORE")) return;
    const auto ref = ImapIds::ParseFolder(folderId);
    if (!ref || !RestrictionEvaluator::CheckSupported(restriction)) return;
    // Counted now, handed on with the next query: by then the run has told
    // all it will, and the folders an image will answer are known.
    if (const auto fields = ImageFields(&restriction, columns)) {
        const QByteArray key = FolderKey(*ref);
        ++m_announced[key];
        QByteArrayList& all = m_imageFields[key];
        for (const QByteArray& f : *fields)
            if (!all.contains(f)) all << f;
    }
    m_told.push_back({ref->mailbox, ref->uidValidity, Keys(*m_conn, &restriction), restriction, columns});
    if (m_told.size() > 16) m_told.erase(m_told.begin());
}

void ImapStore::StartWatching()
{
    if (m_watcher) return;
    m_watcher = std::make_unique<ImapIdleWatcher>(m_settings, m_credentials, m_log);
    connect(m_watcher.get(), &ImapIdleWatcher::Arrived, this,
            [this](quint32 uidValidity) { Q_EMIT MessagesArrived(ImapIds::FolderId("INBOX", uidValidity)); },
            Qt::QueuedConnection);
    m_watcher->start();
}

void ImapStore::connectNotify(const QMetaMethod& signal)
{
    if (signal == QMetaMethod::fromSignal(&MessageStore::MessagesArrived)) StartWatching();
}

}  // namespace mv::stores
