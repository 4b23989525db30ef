#pragma once
// A message of a folder answered from its MaildirQuickIndex file: header
// and flag properties in place (MessageIndexSource), identifiers and the
// delivery time from the record, the body read from the file only when a
// body term has no remembered answer. One source serves a whole query
// (Reset per record); answers it had to read the body for are collected in
// `learned` for the store to remember.

#include "MaildirQuickIndex.h"

#include "platform/stores/common/MessageIndexSource.h"

#include <optional>

namespace mv::stores::maildir {

class MaildirIndexedSource final : public MessageIndexSource {
public:
    struct Context {
        const QString& folderPath;
        const QString& dir;
        const QByteArray& storeId;
        const BodyTerms* terms = nullptr;             // null: no body memo
        std::vector<LearnedAnswer>* learned = nullptr;
        int* bodyReads = nullptr;
    };
    explicit MaildirIndexedSource(const Context& context) : m_context(context) {}

    void Reset(MessageIndexFile::RecordView record)
    {
        MessageIndexSource::Reset(record);
        m_body.reset();
    }

    std::optional<QVariant> Get(mapi::PropTag tag) const override;
    const QVariant* Find(mapi::PropTag tag, QVariant& scratch) const override;
    std::optional<bool> KnownAnswer(const mapi::Restriction& node) const override;
    void LearnAnswer(const mapi::Restriction& node, bool answer) const override;

private:
    // The property when the store answers it rather than the record.
    std::optional<std::optional<QVariant>> Own(mapi::PropTag tag) const;

    Context m_context;
    mutable std::optional<std::optional<QVariant>> m_body;  // outer: read yet; inner: readable
};

}  // namespace mv::stores::maildir
