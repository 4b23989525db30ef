#pragma once
// A record of a MessageIndexFile as the restriction evaluator sees it:
// header and flag properties and recipient rows read in place, without a
// copy or an allocation per message. One source is reused for every record
// of a query (Reset); stores derive from it to answer what the index does
// not hold (identifiers, the body).

#include "MessageIndexFile.h"

#include "platform/mapi/PropertySource.h"

namespace mv::stores {

class MessageIndexSource : public mapi::PropertySource {
public:
    MessageIndexSource() = default;
    explicit MessageIndexSource(MessageIndexFile::RecordView record) : m_record(record) {}

    void Reset(MessageIndexFile::RecordView record) { m_record = record; }
    const MessageIndexFile::RecordView& record() const { return m_record; }

    std::optional<QVariant> Get(mapi::PropTag tag) const override;
    // PR_MESSAGE_RECIPIENTS rows; built only for callers that ask for maps.
    std::vector<mapi::PropertyMap> SubRows(mapi::PropTag subObject) const override;
    const QVariant* Find(mapi::PropTag tag, QVariant& scratch) const override;
    bool AnySubRow(mapi::PropTag subObject, const RowTest& test) const override;

private:
    MessageIndexFile::RecordView m_record;
};

}  // namespace mv::stores
