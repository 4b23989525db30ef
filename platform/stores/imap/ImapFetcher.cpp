#include "ImapFetcher.h"

#include <libetpan/libetpan.h>

#include <QRegularExpression>

#include <algorithm>

namespace mv::stores {

namespace {

QByteArray Param(const mailimap_body_fld_param* params, const char* name)
{
    if (!params || !params->pa_list) return {};
    for (clistiter* it = clist_begin(params->pa_list); it; it = clist_next(it)) {
        auto* p = static_cast<mailimap_single_body_fld_param*>(clist_content(it));
        if (p->pa_name && qstricmp(p->pa_name, name) == 0) return QByteArray(p->pa_value).trimmed();
    }
    return {};
}

QString ClassForMethod(const QByteArray& method)
{
    const QByteArray m = method.toUpper();
    if (m == "REQUEST") return QStringLiteral("IPM.Schedule.Meeting.Request");
    if (m == "CANCEL") return QStringLiteral("IPM.Schedule.Meeting.Canceled");
    if (m == "REPLY") return QStringLiteral("IPM.Schedule.Meeting.Resp.Pos");
    return {};
}

// Finds the first text/calendar part, depth first; its part number in `path`.
const mailimap_body_type_text* FindCalendar(const mailimap_body* body, const QByteArray& number, QByteArray* path)
{
    if (!body) return nullptr;
    if (body->bd_type == MAILIMAP_BODY_1PART) {
        const mailimap_body_type_1part* one = body->bd_data.bd_body_1part;
        if (one && one->bd_type == MAILIMAP_BODY_TYPE_1PART_TEXT && one->bd_data.bd_type_text &&
            qstricmp(one->bd_data.bd_type_text->bd_media_text, "calendar") == 0) {
            *path = number.isEmpty() ? QByteArray("1") : number;
            return one->bd_data.bd_type_text;
        }
        return nullptr;
    }
    const mailimap_body_type_mpart* multi = body->bd_data.bd_body_mpart;
    if (!multi || !multi->bd_list) return nullptr;
    int index = 1;
    for (clistiter* it = clist_begin(multi->bd_list); it; it = clist_next(it), ++index) {
        const QByteArray child = number.isEmpty() ? QByteArray::number(index) : number + '.' + QByteArray::number(index);
        if (auto* found = FindCalendar(static_cast<const mailimap_body*>(clist_content(it)), child, path)) return found;
    }
    return nullptr;
}

void ReadFlags(const mailimap_msg_att_dynamic* dyn, mapi::MessageFlags& flags)
{
    flags = {};
    if (!dyn || !dyn->att_list) return;
    for (clistiter* it = clist_begin(dyn->att_list); it; it = clist_next(it)) {
        auto* ff = static_cast<mailimap_flag_fetch*>(clist_content(it));
        if (ff->fl_type != MAILIMAP_FLAG_FETCH_OTHER || !ff->fl_flag) continue;
        switch (ff->fl_flag->fl_type) {
        case MAILIMAP_FLAG_SEEN: flags.seen = true; break;
        case MAILIMAP_FLAG_ANSWERED: flags.answered = true; break;
        case MAILIMAP_FLAG_FLAGGED: flags.flagged = true; break;
        case MAILIMAP_FLAG_DRAFT: flags.draft = true; break;
        case MAILIMAP_FLAG_DELETED: flags.deleted = true; break;
        case MAILIMAP_FLAG_KEYWORD: flags.keywords << QString::fromUtf8(ff->fl_flag->fl_data.fl_keyword); break;
        default: break;
        }
    }
}

}  // namespace

QByteArray ImapFetcher::HeaderFetch(const QByteArray& uidSet, const QByteArray& fields)
{
    return "UID FETCH " + uidSet + " (UID FLAGS INTERNALDATE RFC822.SIZE BODY.PEEK[HEADER.FIELDS (" + fields + ")])";
}

QByteArray ImapFetcher::StructureFetch(const QByteArray& uidSet)
{
    return "UID FETCH " + uidSet + " (UID BODYSTRUCTURE)";
}

QByteArray ImapFetcher::ContentFetch(const QByteArray& uidSet, const QByteArray& part)
{
    if (part.isEmpty()) return "UID FETCH " + uidSet + " (UID FLAGS INTERNALDATE RFC822.SIZE BODY.PEEK[])";
    return "UID FETCH " + uidSet + " (UID BODY.PEEK[" + part + "])";
}

QByteArray ImapFetcher::UidSet(std::vector<quint32> uids)
{
    std::sort(uids.begin(), uids.end());
    uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
    QByteArray out;
    for (size_t i = 0; i < uids.size();) {
        size_t j = i;
        while (j + 1 < uids.size() && uids[j + 1] == uids[j] + 1) ++j;
        if (!out.isEmpty()) out += ',';
        out += QByteArray::number(uids[i]);
        if (j > i) out += ':' + QByteArray::number(uids[j]);
        i = j + 1;
    }
    return out;
}

QDateTime ImapFetcher::ToUtc(int day, int month, int year, int hour, int min, int sec, int zone)
{
    // libetpan keeps the zone as written: +0130 is 130.
    const int sign = zone < 0 ? -1 : 1;
    const int offset = sign * ((std::abs(zone) / 100) * 3600 + (std::abs(zone) % 100) * 60);
    QDateTime t(QDate(year, month, day), QTime(hour, min, sec), Qt::UTC);
    return t.addSecs(-offset);
}

QString ImapFetcher::ClassFromCalendar(const QByteArray& calendarText)
{
    static thread_local const QRegularExpression method(QStringLiteral("^METHOD:\\s*([A-Za-z-]+)"),
                                           QRegularExpression::MultilineOption | QRegularExpression::CaseInsensitiveOption);
    const auto m = method.match(QString::fromUtf8(calendarText));
    const QString cls = m.hasMatch() ? ClassForMethod(m.captured(1).toLatin1()) : QString();
    return cls.isEmpty() ? QStringLiteral("IPM.Note") : cls;
}

QString ImapFetcher::ClassFromStructure(const mailimap_body* body, QByteArray* calendarPart)
{
    if (!body) return QStringLiteral("IPM.Note");
    if (body->bd_type == MAILIMAP_BODY_MPART && body->bd_data.bd_body_mpart &&
        qstricmp(body->bd_data.bd_body_mpart->bd_media_subtype, "report") == 0) {
        const mailimap_body_ext_mpart* ext = body->bd_data.bd_body_mpart->bd_ext_mpart;
        const QByteArray type = Param(ext ? ext->bd_parameter : nullptr, "report-type").toLower();
        if (type == "delivery-status") return QStringLiteral("REPORT.IPM.Note.NDR");
        if (type == "disposition-notification") return QStringLiteral("REPORT.IPM.Note.IPNRN");
    }
    QByteArray path;
    if (const mailimap_body_type_text* cal = FindCalendar(body, {}, &path)) {
        const QString cls = ClassForMethod(Param(cal->bd_fields ? cal->bd_fields->bd_parameter : nullptr, "method"));
        if (!cls.isEmpty()) return cls;
        if (calendarPart) *calendarPart = path;
    }
    return QStringLiteral("IPM.Note");
}

std::vector<FetchedMessage> ImapFetcher::Parse(mailimap* session)
{
    std::vector<FetchedMessage> out;
    if (!session->imap_response_info || !session->imap_response_info->rsp_fetch_list) return out;
    for (clistiter* it = clist_begin(session->imap_response_info->rsp_fetch_list); it; it = clist_next(it)) {
        auto* att = static_cast<mailimap_msg_att*>(clist_content(it));
        FetchedMessage m;
        for (clistiter* ai = clist_begin(att->att_list); ai; ai = clist_next(ai)) {
            auto* item = static_cast<mailimap_msg_att_item*>(clist_content(ai));
            if (item->att_type == MAILIMAP_MSG_ATT_ITEM_DYNAMIC) {
                ReadFlags(item->att_data.att_dyn, m.flags);
                continue;
            }
            if (item->att_type == MAILIMAP_MSG_ATT_ITEM_EXTENSION) {
                const mailimap_extension_data* ext = item->att_data.att_extension_data;
                if (ext && ext->ext_extension == &mailimap_extension_condstore &&
                    ext->ext_type == MAILIMAP_CONDSTORE_TYPE_FETCH_DATA && ext->ext_data)
                    m.modSeq = static_cast<mailimap_condstore_fetch_mod_resp*>(ext->ext_data)->cs_modseq_value;
                continue;
            }
            if (item->att_type != MAILIMAP_MSG_ATT_ITEM_STATIC || !item->att_data.att_static) continue;
            const mailimap_msg_att_static* s = item->att_data.att_static;
            switch (s->att_type) {
            case MAILIMAP_MSG_ATT_UID: m.uid = s->att_data.att_uid; break;
            case MAILIMAP_MSG_ATT_RFC822_SIZE: m.size = s->att_data.att_rfc822_size; break;
            case MAILIMAP_MSG_ATT_INTERNALDATE:
                if (const mailimap_date_time* d = s->att_data.att_internal_date)
                    m.internalDate = ToUtc(d->dt_day, d->dt_month, d->dt_year, d->dt_hour, d->dt_min, d->dt_sec, d->dt_zone);
                break;
            case MAILIMAP_MSG_ATT_BODYSTRUCTURE:
                m.messageClass = ClassFromStructure(s->att_data.att_bodystructure, &m.calendarPart);
                break;
            case MAILIMAP_MSG_ATT_BODY_SECTION: {
                const mailimap_msg_att_body_section* sec = s->att_data.att_body_section;
                if (!sec || !sec->sec_body_part) break;
                const QByteArray bytes(sec->sec_body_part, static_cast<qsizetype>(sec->sec_length));
                const mailimap_section* which = sec->sec_section;
                const bool headerFields = which && which->sec_spec &&
                                          which->sec_spec->sec_type == MAILIMAP_SECTION_SPEC_SECTION_MSGTEXT &&
                                          which->sec_spec->sec_data.sec_msgtext &&
                                          which->sec_spec->sec_data.sec_msgtext->sec_type == MAILIMAP_SECTION_MSGTEXT_HEADER_FIELDS;
                (headerFields ? m.header : m.content) = bytes;
                break;
            }
            default:
                break;
            }
        }
        if (m.uid != 0) out.push_back(std::move(m));
    }
    return out;
}

}  // namespace mv::stores
