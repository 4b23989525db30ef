#pragma once
// Reorders a restriction so that cheap terms are evaluated before dear
// ones: within every AND and OR (and the ANDed children of a
// SUBRESTRICTION), children are sorted by what they cost a store to
// answer, stably, so terms of equal cost keep the order they were written
// in. The answer never changes: the evaluator's AND and OR have no side
// effects and do not depend on the order of their children, and a missing
// property makes a term false wherever it stands. What changes is how much
// is read: a body term is reached only for messages the other terms leave.

#include "Restriction.h"

namespace mv::mapi {

class RestrictionOrder {
public:
    // Relative costs: flags, dates and sizes < header strings < recipient
    // rows < the body. A composite costs what its dearest term costs.
    enum Cost { Cheap = 0, Header = 1, Recipients = 2, Body = 3 };

    static Cost CostOf(const Restriction& restriction);
    // A reordered copy.
    static Restriction CheapFirst(const Restriction& restriction);
    // Whether a term reads the message text (the body properties).
    static bool ReadsBody(PropTag tag);
};

}  // namespace mv::mapi
