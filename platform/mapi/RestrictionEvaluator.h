#pragma once
// Evaluates a restriction against one message, with the semantics every
// store shares (see docs/stores.md):
// - a restriction on a property the message lacks is false (RES_EXIST asks
//   for presence; RELOP_NE on a missing property is false too);
// - RES_CONTENT with FL_SUBSTRING|FL_IGNORECASE is a case-insensitive
//   substring test; an empty term matches every message that has the property;
// - RES_SUBRESTRICTION is true when some row of the sub-object satisfies it;
// - an empty AND is true, an empty OR is false.

#include "PropertySource.h"
#include "Restriction.h"

namespace mv::mapi {

class RestrictionEvaluator {
public:
    static bool Matches(const Restriction& restriction, const PropertySource& message);
};

}  // namespace mv::mapi
