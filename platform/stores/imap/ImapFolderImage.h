#pragma once
// A folder's messages as records, read once and brought up to date before
// each query, so that a run of many rules on one large folder is matched
// here rather than by one server search per rule.
//
// A search of 50,000 subjects costs the server about as much as sending
// the header fields of those 50,000 messages once; from the third rule on,
// the image is cheaper, and every rule after that costs the server only
// the question of what changed (ImapStore keeps it current by
// mod-sequence). Records are made exactly as a query makes them and
// checked by the same evaluator, so an answer from the image is the one a
// query gives.
//
// Not thread-safe; owned by the store's thread.

#include "ImapLookahead.h"
#include "platform/mapi/MessageStore.h"
#include "platform/mapi/Restriction.h"

#include <map>
#include <vector>

namespace mv::stores {

class ImapFolderImage {
public:
    struct Entry {
        mapi::MessageRecord record;
        mapi::MessageFlags flags;
        QByteArray messageId;
        bool classOpen = false;  // the class waits for the structure (FetchNeeds::MayHoldCalendar)
    };

    // `fields`: the header fields read of every message.
    ImapFolderImage(quint64 modSeq, QByteArrayList fields) : m_modSeq(modSeq), m_fields(std::move(fields)) {}

    const QByteArrayList& fields() const { return m_fields; }
    // Every one of these fields was read.
    bool Holds(const QByteArrayList& fields) const;

    // What the image shows is the folder as of this mod-sequence.
    quint64 modSeq() const { return m_modSeq; }
    void setModSeq(quint64 modSeq) { m_modSeq = modSeq; }

    void Put(quint32 uid, Entry entry) { m_entries.insert_or_assign(uid, std::move(entry)); }
    void Erase(quint32 uid) { m_entries.erase(uid); }
    // Drops every message whose UID is not in `present` (sorted).
    void KeepOnly(const std::vector<quint32>& present);
    // Messages held, those marked \Deleted included (a STATUS counts them).
    size_t size() const { return m_entries.size(); }

    // UIDs of the messages that meet the restriction (all when null), in
    // UID order; messages marked \Deleted never do.
    std::vector<quint32> Match(const mapi::Restriction* restriction) const;
    // Of these, the ones whose class is still open.
    std::vector<quint32> ClassOpen(const std::vector<quint32>& uids) const;
    void SetClass(quint32 uid, const QString& messageClass);
    // The rows of these messages with these columns.
    GatheredRows Rows(const std::vector<quint32>& uids, const std::vector<mapi::PropTag>& columns) const;

private:
    quint64 m_modSeq = 0;
    QByteArrayList m_fields;
    std::map<quint32, Entry> m_entries;
};

}  // namespace mv::stores
