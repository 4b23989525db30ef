#pragma once
// What a restriction is evaluated against: one message's properties, and
// the rows of its sub-objects (recipients). Stores implement it over their
// own records so that expensive properties (the body) are read only when a
// restriction asks for them.

#include "PropTags.h"

#include <QHash>
#include <QVariant>

#include <optional>
#include <vector>

namespace mv::mapi {

using PropertyMap = QHash<PropTag, QVariant>;

class PropertySource {
public:
    virtual ~PropertySource() = default;
    // nullopt when the message lacks the property.
    virtual std::optional<QVariant> Get(PropTag tag) const = 0;
    // Rows of a sub-object table (PR_MESSAGE_RECIPIENTS); empty when none.
    virtual std::vector<PropertyMap> SubRows(PropTag subObject) const = 0;
};

// A message's properties held in full: the memory store's records, the
// Maildir index rows, the IMAP re-check's fetched envelopes.
struct MessageRecord final : PropertySource {
    PropertyMap props;
    std::vector<PropertyMap> recipients;  // PR_DISPLAY_NAME, PR_EMAIL_ADDRESS, PR_ADDRTYPE, PR_RECIPIENT_TYPE

    std::optional<QVariant> Get(PropTag tag) const override {
        auto it = props.constFind(tag);
        if (it == props.constEnd()) return std::nullopt;
        return *it;
    }
    std::vector<PropertyMap> SubRows(PropTag subObject) const override {
        return subObject == PR_MESSAGE_RECIPIENTS ? recipients : std::vector<PropertyMap>{};
    }
};

}  // namespace mv::mapi
