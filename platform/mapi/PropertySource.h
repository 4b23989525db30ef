#pragma once
// What a restriction is evaluated against: one message's properties, and
// the rows of its sub-objects (recipients). Stores implement it over their
// own records so that expensive properties (the body) are read only when a
// restriction asks for them.

#include "PropTags.h"

#include <QHash>
#include <QVariant>

#include <functional>
#include <optional>
#include <vector>

namespace mv::mapi {

class Restriction;
using PropertyMap = QHash<PropTag, QVariant>;

class PropertySource {
public:
    virtual ~PropertySource() = default;
    // nullopt when the message lacks the property.
    virtual std::optional<QVariant> Get(PropTag tag) const = 0;
    // Rows of a sub-object table (PR_MESSAGE_RECIPIENTS); empty when none.
    virtual std::vector<PropertyMap> SubRows(PropTag subObject) const = 0;

    // What the evaluator calls, once per term and message, so they avoid
    // copies where a source can: Find points at the value the source holds
    // (or at `scratch`, filled from Get), nullptr when the property is
    // missing; AnySubRow hands each sub-object row to `test` as a source of
    // its own, stopping at the first one that passes.
    using RowTest = std::function<bool(const PropertySource& row)>;
    virtual const QVariant* Find(PropTag tag, QVariant& scratch) const
    {
        std::optional<QVariant> v = Get(tag);
        if (!v) return nullptr;
        scratch = std::move(*v);
        return &scratch;
    }
    virtual bool AnySubRow(PropTag subObject, const RowTest& test) const;

    // Answers of body terms a store remembers between runs: the evaluator
    // asks KnownAnswer before reading the body for a content term on it, and
    // tells LearnAnswer what it found when it had to read. The defaults
    // remember nothing.
    virtual std::optional<bool> KnownAnswer(const Restriction&) const { return std::nullopt; }
    virtual void LearnAnswer(const Restriction&, bool) const {}
};

// One row of a sub-object table held as a PropertyMap.
class PropertyMapSource final : public PropertySource {
public:
    explicit PropertyMapSource(const PropertyMap& row) : m_row(row) {}
    std::optional<QVariant> Get(PropTag tag) const override
    {
        auto it = m_row.constFind(tag);
        if (it == m_row.constEnd()) return std::nullopt;
        return *it;
    }
    std::vector<PropertyMap> SubRows(PropTag) const override { return {}; }
    const QVariant* Find(PropTag tag, QVariant&) const override
    {
        auto it = m_row.constFind(tag);
        return it == m_row.constEnd() ? nullptr : &*it;
    }
    bool AnySubRow(PropTag, const RowTest&) const override { return false; }

private:
    const PropertyMap& m_row;
};

inline bool PropertySource::AnySubRow(PropTag subObject, const RowTest& test) const
{
    for (const PropertyMap& row : SubRows(subObject))
        if (test(PropertyMapSource(row))) return true;
    return false;
}

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
    const QVariant* Find(PropTag tag, QVariant&) const override
    {
        auto it = props.constFind(tag);
        return it == props.constEnd() ? nullptr : &*it;
    }
    bool AnySubRow(PropTag subObject, const RowTest& test) const override
    {
        if (subObject != PR_MESSAGE_RECIPIENTS) return false;
        for (const PropertyMap& row : recipients)
            if (test(PropertyMapSource(row))) return true;
        return false;
    }
};

}  // namespace mv::mapi
