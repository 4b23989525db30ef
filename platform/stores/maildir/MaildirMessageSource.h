#pragma once
// One indexed message as the restriction evaluator sees it. Header
// properties come from the index, flags from the file name, identifiers and
// the delivery time from the store. PR_BODY is read from the file only when
// the evaluator asks for it, at most once per source, and not kept: body
// terms are rare in rules and a body cache would cost more memory than the
// re-read costs time.

#include "MaildirFolderState.h"

#include "platform/mapi/PropertySource.h"

#include <optional>

namespace mv::stores::maildir {

class MaildirMessageSource final : public mapi::PropertySource {
public:
    MaildirMessageSource(const CachedMessage& message, const MaildirFolderState& folder, const QByteArray& storeId,
                         int* bodyReads = nullptr)
        : m_message(message), m_folder(folder), m_storeId(storeId), m_bodyReads(bodyReads)
    {
    }

    std::optional<QVariant> Get(mapi::PropTag tag) const override;
    std::vector<mapi::PropertyMap> SubRows(mapi::PropTag subObject) const override;
    const QVariant* Find(mapi::PropTag tag, QVariant& scratch) const override;
    bool AnySubRow(mapi::PropTag subObject, const RowTest& test) const override;

    QString FilePath() const;

private:
    // A property the index or the file name holds, without a copy.
    const QVariant* Held(mapi::PropTag tag) const;

    const CachedMessage& m_message;
    const MaildirFolderState& m_folder;
    const QByteArray& m_storeId;
    int* m_bodyReads;
    mutable std::optional<std::optional<QVariant>> m_body;  // outer: read yet; inner: present
};

}  // namespace mv::stores::maildir
