#pragma once
// One indexed message as the restriction evaluator sees it. Header
// properties come from the index, flags from the file name, identifiers and
// the delivery time from the store. PR_BODY is read from the file only when
// the evaluator asks for it, at most once per source, and not kept: body
// terms are rare in rules and a body cache would cost more memory than the
// re-read costs time.

#include "MaildirFolderState.h"
#include "MaildirQuickIndex.h"

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

    // Body answers remembered in the folder's quick index (`known`, may be
    // null) are used for this message while its size and mtime are the
    // ones they were found under; answers read here go to `learned`.
    void UseAnswers(const BodyTerms* terms, const MessageIndexFile* known, std::vector<LearnedAnswer>* learned)
    {
        m_terms = terms;
        m_known = known;
        m_learned = learned;
    }
    std::optional<bool> KnownAnswer(const mapi::Restriction& node) const override;
    void LearnAnswer(const mapi::Restriction& node, bool answer) const override;

private:
    // A property the index or the file name holds, without a copy.
    const QVariant* Held(mapi::PropTag tag) const;
    // The unique name as the quick index keys it.
    const QByteArray& Key() const;

    const CachedMessage& m_message;
    const MaildirFolderState& m_folder;
    const QByteArray& m_storeId;
    int* m_bodyReads;
    const BodyTerms* m_terms = nullptr;
    const MessageIndexFile* m_known = nullptr;
    std::vector<LearnedAnswer>* m_learned = nullptr;
    mutable QByteArray m_key;
    // The message's record in `m_known` (null when absent or of another
    // size or mtime), once a body term asked.
    mutable std::optional<MessageIndexFile::RecordView> m_knownRecord;
    mutable std::optional<std::optional<QVariant>> m_body;  // outer: read yet; inner: present
};

}  // namespace mv::stores::maildir
