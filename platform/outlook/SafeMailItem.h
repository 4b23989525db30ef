#pragma once
// The object created by ProgID "SQSafeLib.SafeMailItem": property access to
// an item without a security prompt. Item already gives that access, so this
// only holds the item it is pointed at.

#include "Item.h"

namespace mv::outlook {

class SafeMailItem {
public:
    // Not owned; must outlive its use here. nullptr clears.
    void SetItem(const Item* item) { m_item = item; }
    const Item* GetItem() const { return m_item; }

    // Each gives an empty answer when no item is set.
    QVariant Fields(mapi::PropTag tag) const;
    std::vector<Recipient> Recipients() const;
    QString SenderName() const;
    QString SenderEmailAddress() const;
    QString To() const;
    QString CC() const;
    QString Body() const;

private:
    const Item* m_item = nullptr;
};

}  // namespace mv::outlook
