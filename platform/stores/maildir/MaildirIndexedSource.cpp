#include "MaildirIndexedSource.h"

#include "MaildirIds.h"

#include "platform/stores/common/MimeProperties.h"

#include <QDateTime>

namespace mv::stores::maildir {

std::optional<std::optional<QVariant>> MaildirIndexedSource::Own(mapi::PropTag tag) const
{
    const MessageIndexFile::RecordView& r = record();
    switch (tag) {
    case mapi::PR_ENTRYID:
        return QVariant(MessageIdFor(m_context.folderPath, QString::fromUtf8(r.key())));
    case mapi::PR_STORE_ENTRYID:
        return QVariant(m_context.storeId);
    case mapi::PR_PARENT_ENTRYID:
        return QVariant(FolderIdFor(m_context.folderPath));
    case mapi::PR_MESSAGE_DELIVERY_TIME:
        return QVariant(QDateTime::fromMSecsSinceEpoch(r.dateMs(), Qt::UTC));
    case mapi::PR_MESSAGE_SIZE:
        return QVariant(int(std::min<qint64>(r.size(), INT_MAX)));
    case mapi::PR_BODY:
        if (!m_body) {
            if (m_context.bodyReads) ++*m_context.bodyReads;
            const QString path = m_context.dir + QLatin1Char('/') + MaildirQuickIndex::RelNameOf(r.aux(), r.key());
            auto body = MimeProperties::BodyFromFile(path);
            // A body that cannot be read matches no body term; the headers still do.
            m_body = body.ok() ? std::optional<QVariant>(QVariant(*body)) : std::nullopt;
        }
        return *m_body;
    default:
        return std::nullopt;
    }
}

std::optional<QVariant> MaildirIndexedSource::Get(mapi::PropTag tag) const
{
    if (auto own = Own(tag)) return *own;
    return MessageIndexSource::Get(tag);
}

const QVariant* MaildirIndexedSource::Find(mapi::PropTag tag, QVariant& scratch) const
{
    switch (tag) {
    case mapi::PR_MESSAGE_DELIVERY_TIME:
        // Every age rule asks: made in place, no copy through Get.
        scratch = QVariant(QDateTime::fromMSecsSinceEpoch(record().dateMs(), Qt::UTC));
        return &scratch;
    case mapi::PR_ENTRYID:
    case mapi::PR_STORE_ENTRYID:
    case mapi::PR_PARENT_ENTRYID:
    case mapi::PR_MESSAGE_SIZE:
    case mapi::PR_BODY:
        return PropertySource::Find(tag, scratch);
    default:
        return MessageIndexSource::Find(tag, scratch);
    }
}

std::optional<bool> MaildirIndexedSource::KnownAnswer(const mapi::Restriction& node) const
{
    if (!m_context.terms) return std::nullopt;
    return record().BodyAnswer(m_context.terms->KeyOf(node));
}

void MaildirIndexedSource::LearnAnswer(const mapi::Restriction& node, bool answer) const
{
    // Only answers from a body that was read: an unreadable file may be
    // readable next time.
    if (!m_context.terms || !m_context.learned || !m_body || !*m_body) return;
    m_context.learned->push_back(
        {record().key().toByteArray(), record().size(), record().stamp(), m_context.terms->KeyOf(node), answer});
}

}  // namespace mv::stores::maildir
