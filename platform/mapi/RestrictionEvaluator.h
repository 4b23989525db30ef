#pragma once
// Evaluates a restriction against one message, with the semantics every
// store shares (see docs/stores.md):
// - a restriction on a property the message lacks is false (RES_EXIST asks
//   for presence; RELOP_NE on a missing property is false too);
// - RES_CONTENT with FL_SUBSTRING|FL_IGNORECASE is a case-insensitive
//   substring test; an empty term matches every message that has the property;
// - RES_PROPERTY compares like with like (integers, strings without regard
//   to case, UTC instants, binaries); a value of another type is false;
// - RES_SUBRESTRICTION is true when some row of the sub-object satisfies it;
// - an empty AND is true, an empty OR is false;
// - kinds the stores do not answer (RES_COMPAREPROPS, RES_SIZE, RELOP_RE,
//   malformed nodes) are false here; a store's Query refuses such a tree
//   up front with CheckSupported instead of answering it wrongly.

#include "PropertySource.h"
#include "Restriction.h"
#include "platform/common/Error.h"

#include <QString>

#include <optional>

namespace mv::mapi {

class RestrictionEvaluator {
public:
    static bool Matches(const Restriction& restriction, const PropertySource& message);

    // A description of the first node no store can answer faithfully, or
    // nullopt when the whole tree is supported.
    static std::optional<QString> FindUnsupported(const Restriction& restriction);
    // The same as a status: a Permanent error naming the node, for Query.
    static Status CheckSupported(const Restriction& restriction);

    // A property by tag; a string tag also finds the value stored under the
    // other string type (PT_STRING8 / PT_UNICODE), as MAPI stores do.
    static std::optional<QVariant> Lookup(const PropertySource& message, PropTag tag);
};

}  // namespace mv::mapi
