#include "FetchNeeds.h"

#include "platform/stores/common/MimeProperties.h"

namespace mv::stores {

using namespace mv::mapi;

namespace {

constexpr std::initializer_list<const char*> kAllFields = {"From",         "To",           "Cc",
                                                           "Bcc",          "Subject",      "Importance",
                                                           "X-Priority",   "Delivered-To", "X-Original-To",
                                                           "Content-Type", "Message-ID"};

}  // namespace

FetchNeeds FetchNeeds::All()
{
    FetchNeeds needs;
    needs.AddFields(kAllFields);
    needs.m_structure = true;
    needs.m_attachmentBit = true;
    return needs;
}

FetchNeeds FetchNeeds::For(const Restriction* restriction, const std::vector<PropTag>& columns)
{
    FetchNeeds needs;
    needs.AddFields({"Message-ID"});
    for (PropTag tag : columns) needs.Add(tag);
    if (restriction) needs.Walk(*restriction);
    return needs;
}

void FetchNeeds::AddFields(std::initializer_list<const char*> names)
{
    for (const char* name : names)
        if (!m_fields.contains(name)) m_fields << name;
}

void FetchNeeds::Walk(const Restriction& r)
{
    switch (r.kind) {
        case RES_AND:
        case RES_OR:
        case RES_NOT:
            for (const Restriction& child : r.children()) Walk(child);
            return;
        case RES_SUBRESTRICTION:
            // The recipient rows come from these three fields whatever the
            // terms inside look at.
            if (PropIdOf(r.propTag) == PropIdOf(PR_MESSAGE_RECIPIENTS))
                AddFields({"To", "Cc", "Bcc"});
            else
                AddFields(kAllFields);
            return;
        case RES_BITMASK:
            // The read and unsent bits come from the flags; only the
            // attachment bit needs the message parsed.
            if (PropIdOf(r.propTag) == PropIdOf(PR_MESSAGE_FLAGS) && !(r.mask & MSGFLAG_HASATTACH)) return;
            Add(r.propTag);
            return;
        default:
            if (PropIdOf(r.propTag) == PropIdOf(PR_BODY)) m_body = true;
            Add(r.propTag);
    }
}

void FetchNeeds::Add(PropTag tag)
{
    switch (PropIdOf(tag)) {
        // From the flags, the date, the size or the identifiers: no field.
        case PropIdOf(PR_ENTRYID):
        case PropIdOf(PR_STORE_ENTRYID):
        case PropIdOf(PR_MESSAGE_DELIVERY_TIME):
        case PropIdOf(PR_MESSAGE_SIZE):
        case PropIdOf(PR_FLAG_STATUS):
        case PropIdOf(PR_FLAG_ICON):
        case PropIdOf(PR_LAST_VERB_EXECUTED):
        case PropIdOf(PR_BODY):  // fetched on its own when a term reaches it
            return;
        case PropIdOf(PR_MESSAGE_FLAGS):  // read bit from the flags, attachment bit from the type
            AddFields({"Content-Type"});
            m_attachmentBit = true;
            return;
        case PropIdOf(PR_MESSAGE_CLASS):
            AddFields({"Content-Type"});
            m_structure = true;
            return;
        case PropIdOf(PR_SUBJECT):
            AddFields({"Subject"});
            return;
        case PropIdOf(PR_INTERNET_MESSAGE_ID):
            return;  // always there
        case PropIdOf(PR_IMPORTANCE):
            AddFields({"Importance", "X-Priority"});
            return;
        case PropIdOf(PR_SENT_REPRESENTING_NAME):
        case PropIdOf(PR_SENT_REPRESENTING_EMAIL_ADDRESS):
        case PropIdOf(PR_SENT_REPRESENTING_ADDRTYPE):
            AddFields({"From"});
            return;
        case PropIdOf(PR_RCVD_REPRESENTING_NAME):
        case PropIdOf(PR_RCVD_REPRESENTING_EMAIL_ADDRESS):
        case PropIdOf(PR_RCVD_REPRESENTING_ADDRTYPE):
            AddFields({"Delivered-To", "X-Original-To"});
            return;
        case PropIdOf(PR_DISPLAY_TO):
            AddFields({"To"});
            return;
        case PropIdOf(PR_DISPLAY_CC):
            AddFields({"Cc"});
            return;
        default:
            AddFields(kAllFields);
            m_structure = true;
            m_attachmentBit = true;
    }
}

bool FetchNeeds::MayHoldCalendar(const QByteArray& headerBlock)
{
    const QByteArray field = MimeProperties::HeaderField(headerBlock, "Content-Type");
    if (field.isNull()) return false;  // no Content-Type: text/plain
    const QByteArray whole = field.toLower();
    QByteArray type = whole;
    if (const qsizetype semi = type.indexOf(';'); semi >= 0) type.truncate(semi);
    type = type.trimmed();
    if (type.isEmpty() || type == "text/calendar") return true;  // the method may be in the text
    // The two report types are told from the field's parameters.
    if (type == "multipart/report")
        return !whole.contains("delivery-status") && !whole.contains("disposition-notification");
    return type.startsWith("multipart/");
}

}  // namespace mv::stores
