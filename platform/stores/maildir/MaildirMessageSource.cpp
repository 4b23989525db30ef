#include "MaildirMessageSource.h"

#include "MaildirIds.h"

#include "platform/stores/common/MimeProperties.h"

namespace mv::stores::maildir {

QString MaildirMessageSource::FilePath() const
{
    return m_folder.dir() + QLatin1Char('/') + m_message.file.relName;
}

std::optional<QVariant> MaildirMessageSource::Get(mapi::PropTag tag) const
{
    switch (tag) {
    case mapi::PR_ENTRYID:
        return QVariant(MessageIdFor(m_folder.path(), m_message.file.unique));
    case mapi::PR_STORE_ENTRYID:
        return QVariant(m_storeId);
    case mapi::PR_PARENT_ENTRYID:
        return QVariant(FolderIdFor(m_folder.path()));
    case mapi::PR_MESSAGE_DELIVERY_TIME:
        return QVariant(m_message.delivered);
    case mapi::PR_MESSAGE_SIZE:
        return QVariant(int(std::min<qint64>(m_message.file.size, INT_MAX)));
    case mapi::PR_BODY:
        if (!m_body) {
            if (m_bodyReads) ++*m_bodyReads;
            auto body = MimeProperties::BodyFromFile(FilePath());
            // A body that cannot be read matches no body term; the headers still do.
            m_body = body.ok() ? std::optional<QVariant>(QVariant(*body)) : std::nullopt;
        }
        return *m_body;
    default:
        break;
    }
    if (const QVariant* held = Held(tag)) return *held;
    return std::nullopt;
}

const QVariant* MaildirMessageSource::Held(mapi::PropTag tag) const
{
    for (const auto& [t, value] : m_message.flagProps())
        if (t == tag) return &value;
    if (m_message.file.header) {
        for (const auto& [t, value] : m_message.file.header->props)
            if (t == tag) return &value;
    }
    return nullptr;
}

const QVariant* MaildirMessageSource::Find(mapi::PropTag tag, QVariant& scratch) const
{
    switch (tag) {
    case mapi::PR_ENTRYID:
    case mapi::PR_STORE_ENTRYID:
    case mapi::PR_PARENT_ENTRYID:
    case mapi::PR_MESSAGE_DELIVERY_TIME:
    case mapi::PR_MESSAGE_SIZE:
    case mapi::PR_BODY:
        return PropertySource::Find(tag, scratch);
    default:
        return Held(tag);
    }
}

const QByteArray& MaildirMessageSource::Key() const
{
    if (m_key.isNull()) m_key = m_message.file.unique.toUtf8();
    return m_key;
}

std::optional<bool> MaildirMessageSource::KnownAnswer(const mapi::Restriction& node) const
{
    if (!m_terms || !m_known) return std::nullopt;
    // Looked up once per message, however many body terms the rule has.
    if (!m_knownRecord) {
        m_knownRecord = m_known->find(Key());
        const MessageIndexFile::RecordView& r = *m_knownRecord;
        if (!r.isNull() && (r.size() != m_message.file.size || r.stamp() != m_message.file.mtimeNs))
            m_knownRecord = MessageIndexFile::RecordView();
    }
    if (m_knownRecord->isNull()) return std::nullopt;
    return m_knownRecord->BodyAnswer(m_terms->KeyOf(node));
}

void MaildirMessageSource::LearnAnswer(const mapi::Restriction& node, bool answer) const
{
    if (!m_terms || !m_learned || !m_body || !*m_body) return;
    m_learned->push_back({Key(), m_message.file.size, m_message.file.mtimeNs, m_terms->KeyOf(node), answer});
}

namespace {

// One recipient of the index's flat lists, seen by the evaluator as a row.
class FlatRowSource final : public mapi::PropertySource {
public:
    explicit FlatRowSource(const HeaderProps::Flat& row) : m_row(row) {}
    std::optional<QVariant> Get(mapi::PropTag tag) const override
    {
        QVariant unused;
        const QVariant* v = Find(tag, unused);
        return v ? std::optional<QVariant>(*v) : std::nullopt;
    }
    std::vector<mapi::PropertyMap> SubRows(mapi::PropTag) const override { return {}; }
    const QVariant* Find(mapi::PropTag tag, QVariant&) const override
    {
        for (const auto& [t, value] : m_row)
            if (t == tag) return &value;
        return tag == mapi::PR_ADDRTYPE ? &HeaderProps::kRecipientAddrType : nullptr;
    }
    bool AnySubRow(mapi::PropTag, const RowTest&) const override { return false; }

private:
    const HeaderProps::Flat& m_row;
};

}  // namespace

bool MaildirMessageSource::AnySubRow(mapi::PropTag subObject, const RowTest& test) const
{
    if (subObject != mapi::PR_MESSAGE_RECIPIENTS || !m_message.file.header) return false;
    for (const HeaderProps::Flat& row : m_message.file.header->recipients)
        if (test(FlatRowSource(row))) return true;
    return false;
}

std::vector<mapi::PropertyMap> MaildirMessageSource::SubRows(mapi::PropTag subObject) const
{
    if (subObject != mapi::PR_MESSAGE_RECIPIENTS || !m_message.file.header) return {};
    std::vector<mapi::PropertyMap> rows;
    rows.reserve(m_message.file.header->recipients.size());
    for (const HeaderProps::Flat& flat : m_message.file.header->recipients) {
        mapi::PropertyMap& row = rows.emplace_back();
        row.reserve(qsizetype(flat.size()));
        row.insert(mapi::PR_ADDRTYPE, HeaderProps::kRecipientAddrType);
        for (const auto& [tag, value] : flat) row.insert(tag, value);
    }
    return rows;
}

}  // namespace mv::stores::maildir
