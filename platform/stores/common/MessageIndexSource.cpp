#include "MessageIndexSource.h"

namespace mv::stores {

namespace {

// One recipient row of a record, as a source of its own.
class RowSource final : public mapi::PropertySource {
public:
    RowSource(const MessageIndexFile::RecordView& record, int row) : m_record(record), m_row(row) {}
    std::optional<QVariant> Get(mapi::PropTag tag) const override
    {
        QVariant scratch;
        const QVariant* v = Find(tag, scratch);
        return v ? std::optional<QVariant>(MessageIndexFile::Detached(*v)) : std::nullopt;
    }
    std::vector<mapi::PropertyMap> SubRows(mapi::PropTag) const override { return {}; }
    const QVariant* Find(mapi::PropTag tag, QVariant& scratch) const override
    {
        return m_record.FindInRow(m_row, tag, scratch);
    }
    bool AnySubRow(mapi::PropTag, const RowTest&) const override { return false; }

private:
    const MessageIndexFile::RecordView& m_record;
    int m_row;
};

}  // namespace

std::optional<QVariant> MessageIndexSource::Get(mapi::PropTag tag) const
{
    QVariant scratch;
    const QVariant* v = m_record.Find(tag, scratch);
    if (!v) return std::nullopt;
    // A string over the index's memory would not outlive the mapping.
    return MessageIndexFile::Detached(*v);
}

const QVariant* MessageIndexSource::Find(mapi::PropTag tag, QVariant& scratch) const
{
    return m_record.Find(tag, scratch);
}

bool MessageIndexSource::AnySubRow(mapi::PropTag subObject, const RowTest& test) const
{
    if (subObject != mapi::PR_MESSAGE_RECIPIENTS) return false;
    const int n = m_record.recipientCount();
    for (int i = 0; i < n; ++i)
        if (test(RowSource(m_record, i))) return true;
    return false;
}

std::vector<mapi::PropertyMap> MessageIndexSource::SubRows(mapi::PropTag subObject) const
{
    std::vector<mapi::PropertyMap> out;
    if (subObject != mapi::PR_MESSAGE_RECIPIENTS) return out;
    const MessageIndexFile::Record copy = m_record.ToRecord();
    for (const auto& row : copy.recipients) {
        mapi::PropertyMap& map = out.emplace_back();
        for (const auto& [tag, v] : row) map.insert(tag, v);
    }
    return out;
}

}  // namespace mv::stores
