#include "ImapMover.h"

#include "ImapFetcher.h"
#include "platform/stores/common/ModifiedUtf7.h"
#include "platform/logging/Logger.h"
#include "platform/stores/common/MessageFingerprint.h"
#include "platform/stores/common/MimeProperties.h"

#include <libetpan/libetpan.h>

#include <QHash>
#include <QtEndian>

#include <algorithm>

namespace mv::stores {

using namespace mv::mapi;

namespace {

constexpr size_t kExportBatch = 100;   // whole messages per FETCH
constexpr size_t kHeaderBatch = 5000;  // fingerprints per FETCH
constexpr int kLogWarning = 2;
const QByteArray kMarkMagic = "MVA1";

struct SetDeleter {
    void operator()(mailimap_set* s) const { if (s) mailimap_set_free(s); }
};
using SetPtr = std::unique_ptr<mailimap_set, SetDeleter>;

SetPtr MakeSet(std::vector<quint32> uids)
{
    std::sort(uids.begin(), uids.end());
    uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
    SetPtr set(mailimap_set_new_empty());
    for (size_t i = 0; i < uids.size();) {
        size_t j = i;
        while (j + 1 < uids.size() && uids[j + 1] == uids[j] + 1) ++j;
        if (j == i) mailimap_set_add_single(set.get(), uids[i]);
        else mailimap_set_add_interval(set.get(), uids[i], uids[j]);
        i = j + 1;
    }
    return set;
}

// libetpan's sets in order: COPYUID's source and destination UIDs pair up.
std::vector<quint32> Expand(const mailimap_set* set)
{
    std::vector<quint32> out;
    if (!set || !set->set_list) return out;
    for (clistiter* it = clist_begin(set->set_list); it; it = clist_next(it)) {
        auto* item = static_cast<mailimap_set_item*>(clist_content(it));
        for (quint32 u = item->set_first; u <= item->set_last && u != 0; ++u) out.push_back(u);
    }
    return out;
}

template <class F>
Status InBatches(const std::vector<quint32>& uids, size_t batch, F each)
{
    for (size_t at = 0; at < uids.size(); at += batch) {
        const std::vector<quint32> part(uids.begin() + at, uids.begin() + std::min(uids.size(), at + batch));
        if (Status s = each(part); !s) return s;
    }
    return {};
}

QByteArray Squeezed(const QByteArray& id)
{
    QByteArray out;
    for (char c : id)
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n') out += c;
    return out;
}

mailimap_flag_list* FlagList(const MessageFlags& f)
{
    mailimap_flag_list* flags = mailimap_flag_list_new_empty();
    if (f.seen) mailimap_flag_list_add(flags, mailimap_flag_new_seen());
    if (f.answered) mailimap_flag_list_add(flags, mailimap_flag_new_answered());
    if (f.flagged) mailimap_flag_list_add(flags, mailimap_flag_new_flagged());
    if (f.draft) mailimap_flag_list_add(flags, mailimap_flag_new_draft());
    if (f.deleted) mailimap_flag_list_add(flags, mailimap_flag_new_deleted());
    for (const QString& k : f.keywords)
        mailimap_flag_list_add(flags, mailimap_flag_new_flag_keyword(strdup(k.toUtf8().constData())));
    return flags;
}

}  // namespace

ImapMover::ImapMover(ImapConnection& conn, logging::Logger* log, QString server)
    : m_conn(conn), m_log(log), m_server(std::move(server))
{
}

void ImapMover::Log(int level, const QString& text) const
{
    if (m_log) m_log->Write(level, QStringLiteral("IMAP"), text);
}

QByteArray ImapMover::Mark(quint32 uidValidity, quint32 uidNext)
{
    QByteArray out = kMarkMagic;
    out.resize(12);
    qToBigEndian(uidValidity, out.data() + 4);
    qToBigEndian(uidNext, out.data() + 8);
    return out;
}

bool ImapMover::ParseMark(const QByteArray& mark, quint32* uidValidity, quint32* uidNext)
{
    if (mark.size() != 12 || !mark.startsWith(kMarkMagic)) return false;
    *uidValidity = qFromBigEndian<quint32>(mark.constData() + 4);
    *uidNext = qFromBigEndian<quint32>(mark.constData() + 8);
    return true;
}

QByteArray ImapMover::MessageIdField(const QByteArray& header)
{
    return MimeProperties::HeaderField(header, "Message-ID").simplified();
}

QByteArray ImapMover::WithCrlf(const QByteArray& bytes)
{
    QByteArray out;
    out.reserve(bytes.size() + bytes.size() / 40);
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == '\n' && (i == 0 || bytes[i - 1] != '\r')) out += '\r';
        out += bytes[i];
    }
    return out;
}

Fingerprint ImapMover::FingerprintOf(const QByteArray& wireBytes, const QDateTime& internalDate)
{
    return MessageFingerprint::Of(wireBytes, internalDate);
}

Result<std::vector<NewMessage>> ImapMover::Export(const std::vector<quint32>& uids)
{
    QHash<quint32, NewMessage> byUid;
    const Status s = InBatches(uids, kExportBatch, [&](const std::vector<quint32>& part) -> Status {
        if (Status f = m_conn.Custom(ImapFetcher::ContentFetch(ImapFetcher::UidSet(part))); !f) return f;
        for (FetchedMessage& m : ImapFetcher::Parse(m_conn.session())) {
            NewMessage n;
            n.rfc822 = std::move(m.content);
            n.flags = m.flags;
            n.flags.deleted = false;  // half of an interrupted move; the copy stays
            n.internalDate = m.internalDate;
            byUid.insert(m.uid, std::move(n));
        }
        return {};
    });
    if (!s) return s.error();
    std::vector<NewMessage> out;
    out.reserve(uids.size());
    for (quint32 uid : uids) out.push_back(byUid.value(uid));
    return out;
}

Result<std::vector<Fingerprint>> ImapMover::Fingerprints(const std::vector<quint32>& uids)
{
    QHash<quint32, Fingerprint> byUid;
    const Status s = InBatches(uids, kHeaderBatch, [&](const std::vector<quint32>& part) -> Status {
        if (Status f = m_conn.Custom(ImapFetcher::HeaderFetch(ImapFetcher::UidSet(part), "Message-ID")); !f) return f;
        for (const FetchedMessage& m : ImapFetcher::Parse(m_conn.session()))
            byUid.insert(m.uid, {{}, MessageIdField(m.header), m.size, m.internalDate});
        return {};
    });
    if (!s) return s.error();
    std::vector<Fingerprint> out;
    out.reserve(uids.size());
    for (quint32 uid : uids) out.push_back(byUid.value(uid));
    return out;
}

Result<std::vector<Presence>> ImapMover::Probe(const std::vector<quint32>& uids)
{
    std::vector<Presence> out(uids.size(), Presence::Absent);
    if (uids.empty()) return out;
    const QByteArray set = ImapFetcher::UidSet(uids);
    for (const Presence state : {Presence::Present, Presence::Deleted}) {
        const QByteArray which = state == Presence::Present ? " UNDELETED" : " DELETED";
        if (Status s = m_conn.Custom("UID SEARCH UID " + set + which); !s) return s.error();
        const std::vector<quint32> found = m_conn.SearchResult();
        for (size_t i = 0; i < uids.size(); ++i)
            if (std::find(found.begin(), found.end(), uids[i]) != found.end()) out[i] = state;
    }
    return out;
}

Status ImapMover::Remove(const std::vector<quint32>& uids, const QByteArray& mailbox)
{
    if (uids.empty()) return {};
    const QByteArray set = ImapFetcher::UidSet(uids);
    if (Status s = m_conn.Custom("UID STORE " + set + " +FLAGS.SILENT (\\Deleted)"); !s) return s;
    if (!m_conn.Has("UIDPLUS")) {
        Log(kLogWarning, QStringLiteral("%1 has no UIDPLUS, so no UID EXPUNGE: %2 message(s) (UIDs %3) are left marked "
                                        "\\Deleted in %4, not expunged, because a plain EXPUNGE would also remove "
                                        "other clients' deleted mail")
                             .arg(m_server)
                             .arg(uids.size())
                             .arg(QString::fromLatin1(set), ModifiedUtf7::Decode(mailbox)));
        return {};
    }
    return m_conn.Custom("UID EXPUNGE " + set);
}

Status ImapMover::Undelete(const std::vector<quint32>& uids)
{
    if (uids.empty()) return {};
    return m_conn.Custom("UID STORE " + ImapFetcher::UidSet(uids) + " -FLAGS.SILENT (\\Deleted)");
}

Result<std::vector<quint32>> ImapMover::Locate(quint32 fromUid, const std::vector<Fingerprint>& fingerprints)
{
    std::vector<quint32> out(fingerprints.size(), 0);
    if (std::none_of(fingerprints.begin(), fingerprints.end(), [](const Fingerprint& f) { return f.size >= 0; }))
        return out;
    const QByteArray from = QByteArray::number(std::max<quint32>(fromUid, 1));
    if (Status s = m_conn.Custom(ImapFetcher::HeaderFetch(from + ":*", "Message-ID")); !s) return s.error();
    std::vector<FetchedMessage> candidates;
    for (FetchedMessage& m : ImapFetcher::Parse(m_conn.session()))
        // "n:*" names the last message even when it is below n.
        if (m.uid >= fromUid && !m.flags.deleted) candidates.push_back(std::move(m));
    std::sort(candidates.begin(), candidates.end(), [](const auto& a, const auto& b) { return a.uid < b.uid; });
    std::vector<bool> taken(candidates.size(), false);
    for (size_t i = 0; i < fingerprints.size(); ++i) {
        const Fingerprint& f = fingerprints[i];
        if (f.size < 0) continue;
        const QByteArray id = Squeezed(f.messageIdHeader);
        for (size_t c = 0; c < candidates.size(); ++c) {
            const FetchedMessage& m = candidates[c];
            if (taken[c] || qint64(m.size) != f.size) continue;
            if (f.internalDate.isValid() && m.internalDate.toSecsSinceEpoch() != f.internalDate.toSecsSinceEpoch())
                continue;
            if (Squeezed(MessageIdField(m.header)) != id) continue;
            taken[c] = true;
            out[i] = m.uid;
            break;
        }
    }
    return out;
}

Result<quint32> ImapMover::Append(const ImapFolderRef& folder, const NewMessage& message)
{
    const QByteArray wire = WithCrlf(message.rfc822);
    mailimap_flag_list* flags = FlagList(message.flags);
    const QDateTime when = message.internalDate.toUTC();
    mailimap_date_time* date = mailimap_date_time_new(when.date().day(), when.date().month(), when.date().year(),
                                                      when.time().hour(), when.time().minute(), when.time().second(), 0);
    uint32_t newValidity = 0, newUid = 0;
    m_conn.CountCommand();
    const int r = m_conn.Has("UIDPLUS")
                      ? mailimap_uidplus_append(m_conn.session(), folder.mailbox.constData(), flags, date,
                                                wire.constData(), static_cast<size_t>(wire.size()), &newValidity,
                                                &newUid)
                      : mailimap_append(m_conn.session(), folder.mailbox.constData(), flags, date, wire.constData(),
                                        static_cast<size_t>(wire.size()));
    mailimap_flag_list_free(flags);
    mailimap_date_time_free(date);
    m_conn.ForgetSelection();  // the selected mailbox may have changed under the APPEND
    if (Status s = m_conn.Check(r, "APPEND"); !s) return s.error();
    return newValidity == folder.uidValidity ? quint32(newUid) : 0u;
}

Result<ImapMover::Moved> ImapMover::Move(const std::vector<quint32>& uids, const ImapFolderRef& source,
                                         const ImapFolderRef& dest)
{
    const bool move = m_conn.Has("MOVE");
    uint32_t uidValidity = 0;
    mailimap_set* srcResult = nullptr;
    mailimap_set* dstResult = nullptr;
    SetPtr set = MakeSet(uids);
    SetPtr srcOwner, dstOwner;
    for (int attempt = 0;; ++attempt) {
        m_conn.CountCommand();
        const int r = move ? mailimap_uidplus_uid_move(m_conn.session(), set.get(), dest.mailbox.constData(),
                                                       &uidValidity, &srcResult, &dstResult)
                           : mailimap_uidplus_uid_copy(m_conn.session(), set.get(), dest.mailbox.constData(),
                                                       &uidValidity, &srcResult, &dstResult);
        srcOwner.reset(srcResult);
        dstOwner.reset(dstResult);
        Status s = m_conn.Check(r, move ? "UID MOVE" : "UID COPY");
        if (s) break;
        // A server refuses a set naming a message another session removed
        // and not yet reported ([EXPUNGEISSUED], Dovecot: "no longer
        // exist"); nothing moved.
        // Once the removal is reported the set passes it over.
        const QString said = s.error().message;
        const bool expunged = said.contains(QLatin1String("EXPUNGEISSUED"), Qt::CaseInsensitive) ||
                              said.contains(QLatin1String("no longer exist"), Qt::CaseInsensitive);
        if (m_conn.broken() || attempt > 0 || !expunged) return s.error();
        m_conn.CountCommand();
        if (Status n = m_conn.Check(mailimap_noop(m_conn.session()), "NOOP"); !n) return n.error();
    }
    Moved out;
    out.newUids.assign(uids.size(), 0);
    const std::vector<quint32> from = Expand(srcResult), to = Expand(dstResult);
    QHash<quint32, quint32> newUid;
    if (uidValidity == dest.uidValidity && dstResult && from.size() == to.size()) {
        for (size_t i = 0; i < from.size(); ++i) newUid.insert(from[i], to[i]);
        out.copyUid = true;
    }
    for (size_t i = 0; i < uids.size(); ++i) out.newUids[i] = newUid.value(uids[i]);
    if (!move) {
        // Only what was copied goes: with COPYUID the server named it; a
        // message it did not name had left already.
        std::vector<quint32> copied;
        if (out.copyUid) copied = from;
        else copied = uids;
        if (Status s = Remove(copied, source.mailbox); !s) return s.error();
    }
    return out;
}

}  // namespace mv::stores
