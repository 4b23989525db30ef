#pragma once
// An Item over one message of a mapi::MessageStore: its properties are
// fetched once, when the item is made (MessageStore::Item), or, for an item
// opened from a contents-table row (FromRow), taken from the row and fetched
// only when something the row did not hold is asked for. Save and Move act on
// the store at once.

#include "platform/outlook/Item.h"

#include "platform/mapi/MessageStore.h"

namespace mv::outlook {

class StoreItem final : public Item {
public:
    // `store` must outlive the item.
    StoreItem(mapi::MessageStore& store, QByteArray messageId, mapi::MessageRecord record);
    // Fetches the message; a store error as such.
    static Result<std::unique_ptr<StoreItem>> Fetch(mapi::MessageStore& store, const QByteArray& messageId);
    // An item from the values a contents table already read (`props` must
    // hold PR_FLAG_STATUS); nothing is asked of the store until a property
    // outside `props` is read.
    static std::unique_ptr<StoreItem> FromRow(mapi::MessageStore& store, QByteArray messageId,
                                              mapi::PropertyMap props);

    QString EntryID() const override;
    QString StoreID() const override;
    QString MessageClass() const override;
    ItemKind Kind() const override;
    QString Subject() const override;

    int FlagStatus() const override { return m_flagStatus; }
    void SetFlagStatus(int status) override { m_flagStatus = status; }
    // Stores the flag status when it differs from the stored one.
    Status Save() override;
    // Within the item's own store only: a destination in another store (or
    // with no store) is refused and nothing moves.
    Status Move(const Folder& destination) override;

    QVariant Fields(mapi::PropTag tag) const override;
    std::vector<Recipient> Recipients() const override;
    QString SenderName() const override;
    QString SenderEmailAddress() const override;
    QString To() const override;
    QString CC() const override;
    QString Body() const override;
    int Importance() const override;
    bool UnRead() const override;

    const QByteArray& MessageId() const { return m_messageId; }
    mapi::MessageStore& Store() const { return m_store; }

    // False while only a row's values are held.
    bool Complete() const { return m_complete; }

private:
    QString Text(mapi::PropTag tag) const;
    // The whole record, fetched once for a row's item; the row's values
    // stand when the fetch fails (the message may have moved meanwhile).
    const mapi::MessageRecord& Record(mapi::PropTag tag) const;
    const mapi::MessageRecord& Record() const;

    mapi::MessageStore& m_store;
    QByteArray m_messageId;
    mutable mapi::MessageRecord m_record;
    mutable bool m_complete = true;
    int m_flagStatus = 0;        // as the caller set it
    int m_storedFlagStatus = 0;  // as the store has it
};

}  // namespace mv::outlook
