#include "StoreItem.h"

#include "platform/mapi/MapiUtils.h"
#include "platform/outlook/Folder.h"

namespace mv::outlook {

using namespace mv::mapi;

StoreItem::StoreItem(MessageStore& store, QByteArray messageId, MessageRecord record)
    : m_store(store), m_messageId(std::move(messageId)), m_record(std::move(record))
{
    m_flagStatus = m_storedFlagStatus = m_record.Get(PR_FLAG_STATUS).value_or(QVariant(0)).toInt();
}

Result<std::unique_ptr<StoreItem>> StoreItem::Fetch(MessageStore& store, const QByteArray& messageId)
{
    auto record = store.Item(messageId);
    if (!record) return record.error();
    return std::make_unique<StoreItem>(store, messageId, std::move(*record));
}

std::unique_ptr<StoreItem> StoreItem::FromRow(MessageStore& store, QByteArray messageId, PropertyMap props)
{
    MessageRecord record;
    record.props = std::move(props);
    auto item = std::make_unique<StoreItem>(store, std::move(messageId), std::move(record));
    item->m_complete = false;
    return item;
}

const MessageRecord& StoreItem::Record() const
{
    if (!m_complete) {
        m_complete = true;
        if (auto fetched = m_store.Item(m_messageId)) {
            const PropertyMap rowProps = m_record.props;
            m_record = std::move(*fetched);
            // What this object already holds or changed wins over the fetch.
            m_record.props.insert(PR_ENTRYID, m_messageId);
            m_record.props.insert(PR_FLAG_STATUS, m_storedFlagStatus);
            for (auto it = rowProps.constBegin(); it != rowProps.constEnd(); ++it)
                if (!m_record.props.contains(it.key())) m_record.props.insert(it.key(), it.value());
        }
    }
    return m_record;
}

const MessageRecord& StoreItem::Record(PropTag tag) const
{
    return m_complete || m_record.props.contains(tag) ? m_record : Record();
}

QString StoreItem::EntryID() const
{
    return MapiUtils::HrGetHexFromBinary(m_messageId);
}

QString StoreItem::StoreID() const
{
    return MapiUtils::HrGetHexFromBinary(m_store.StoreId());
}

QString StoreItem::Text(PropTag tag) const
{
    return Record(tag).Get(tag).value_or(QVariant()).toString();
}

QString StoreItem::MessageClass() const { return Text(PR_MESSAGE_CLASS); }
ItemKind StoreItem::Kind() const { return KindOfMessageClass(MessageClass()); }
QString StoreItem::Subject() const { return Text(PR_SUBJECT); }

Status StoreItem::Save()
{
    if (m_flagStatus == m_storedFlagStatus) return Status::success();
    if (Status s = m_store.SetFlagStatus(m_messageId, m_flagStatus); !s) return s;
    m_storedFlagStatus = m_flagStatus;
    m_record.props.insert(PR_FLAG_STATUS, m_flagStatus);
    return Status::success();
}

Status StoreItem::Move(const Folder& destination)
{
    if (destination.Store() != &m_store)
        return Error::permanent(QStringLiteral("cannot move \"%1\" to the folder \"%2\" of another store")
                                    .arg(Subject(), destination.Name()));
    auto moved = m_store.Move(m_messageId, destination.BinaryEntryID());
    if (!moved) return moved.error();
    m_messageId = *moved;
    m_record.props.insert(PR_ENTRYID, m_messageId);
    m_record.props.insert(PR_PARENT_ENTRYID, destination.BinaryEntryID());
    return Status::success();
}

QVariant StoreItem::Fields(PropTag tag) const
{
    if (tag == PR_ENTRYID) return m_messageId;
    if (tag == PR_STORE_ENTRYID) return m_store.StoreId();
    if (tag == PR_FLAG_STATUS) return m_flagStatus;
    return Record(tag).Get(tag).value_or(QVariant());
}

std::vector<Recipient> StoreItem::Recipients() const
{
    std::vector<Recipient> list;
    const MessageRecord& record = Record();
    list.reserve(record.recipients.size());
    for (const PropertyMap& row : record.recipients) {
        Recipient r;
        r.address = row.value(PR_EMAIL_ADDRESS).toString();
        r.name = row.value(PR_DISPLAY_NAME).toString();
        if (r.name.isEmpty()) r.name = r.address;
        r.type = row.value(PR_RECIPIENT_TYPE, MAPI_TO).toInt();
        list.push_back(std::move(r));
    }
    return list;
}

QString StoreItem::SenderName() const { return Text(PR_SENT_REPRESENTING_NAME); }
QString StoreItem::SenderEmailAddress() const { return Text(PR_SENT_REPRESENTING_EMAIL_ADDRESS); }
QString StoreItem::To() const { return Text(PR_DISPLAY_TO); }
QString StoreItem::CC() const { return Text(PR_DISPLAY_CC); }
QString StoreItem::Body() const { return Text(PR_BODY); }

int StoreItem::Importance() const
{
    return Record(PR_IMPORTANCE).Get(PR_IMPORTANCE).value_or(QVariant(IMPORTANCE_NORMAL)).toInt();
}

bool StoreItem::UnRead() const
{
    return (Record(PR_MESSAGE_FLAGS).Get(PR_MESSAGE_FLAGS).value_or(QVariant(0)).toInt() & MSGFLAG_READ) == 0;
}

}  // namespace mv::outlook
