#include "ImapFolderImage.h"

#include "platform/mapi/RestrictionEvaluator.h"

#include <algorithm>

namespace mv::stores {

using namespace mv::mapi;

bool ImapFolderImage::Holds(const QByteArrayList& fields) const
{
    return std::all_of(fields.begin(), fields.end(), [&](const QByteArray& f) { return m_fields.contains(f); });
}

void ImapFolderImage::KeepOnly(const std::vector<quint32>& present)
{
    std::erase_if(m_entries, [&](const auto& e) { return !std::binary_search(present.begin(), present.end(), e.first); });
}

std::vector<quint32> ImapFolderImage::Match(const Restriction* restriction) const
{
    std::vector<quint32> out;
    for (const auto& [uid, entry] : m_entries) {
        if (entry.flags.deleted) continue;
        if (restriction && !RestrictionEvaluator::Matches(*restriction, entry.record)) continue;
        out.push_back(uid);
    }
    return out;
}

std::vector<quint32> ImapFolderImage::ClassOpen(const std::vector<quint32>& uids) const
{
    std::vector<quint32> out;
    for (quint32 uid : uids)
        if (auto it = m_entries.find(uid); it != m_entries.end() && it->second.classOpen) out.push_back(uid);
    return out;
}

void ImapFolderImage::SetClass(quint32 uid, const QString& messageClass)
{
    auto it = m_entries.find(uid);
    if (it == m_entries.end()) return;
    it->second.record.props.insert(PR_MESSAGE_CLASS, messageClass);
    it->second.classOpen = false;
}

GatheredRows ImapFolderImage::Rows(const std::vector<quint32>& uids, const std::vector<PropTag>& columns) const
{
    GatheredRows out;
    out.rows.reserve(uids.size());
    out.rowUids.reserve(uids.size());
    for (quint32 uid : uids) {
        const auto it = m_entries.find(uid);
        if (it == m_entries.end()) continue;
        const Entry& entry = it->second;
        Row row;
        row.reserve(columns.size());
        for (PropTag tag : columns) row.push_back(entry.record.Get(tag).value_or(QVariant()));
        out.rows.push_back(std::move(row));
        out.rowUids.push_back(uid);
        out.fetched.insert(uid, {entry.messageId, entry.flags,
                                 entry.record.Get(mapi::PR_MESSAGE_SIZE).value_or(QVariant(0)).toUInt(),
                                 entry.record.Get(mapi::PR_MESSAGE_DELIVERY_TIME).value_or(QVariant()).toDateTime()});
    }
    return out;
}

}  // namespace mv::stores
