#include "SafeMailItem.h"

namespace mv::outlook {

QVariant SafeMailItem::Fields(mapi::PropTag tag) const
{
    return m_item ? m_item->Fields(tag) : QVariant();
}

std::vector<Recipient> SafeMailItem::Recipients() const
{
    return m_item ? m_item->Recipients() : std::vector<Recipient>{};
}

QString SafeMailItem::SenderName() const { return m_item ? m_item->SenderName() : QString(); }
QString SafeMailItem::SenderEmailAddress() const { return m_item ? m_item->SenderEmailAddress() : QString(); }
QString SafeMailItem::To() const { return m_item ? m_item->To() : QString(); }
QString SafeMailItem::CC() const { return m_item ? m_item->CC() : QString(); }
QString SafeMailItem::Body() const { return m_item ? m_item->Body() : QString(); }

}  // namespace mv::outlook
