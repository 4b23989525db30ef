#include "RestrictionOrder.h"

#include <algorithm>

namespace mv::mapi {

bool RestrictionOrder::ReadsBody(PropTag tag)
{
    return PropIdOf(tag) == PropIdOf(PR_BODY);
}

RestrictionOrder::Cost RestrictionOrder::CostOf(const Restriction& r)
{
    switch (r.kind) {
    case RES_AND:
    case RES_OR:
    case RES_NOT: {
        Cost dearest = Cheap;
        for (const Restriction& child : r.children()) dearest = std::max(dearest, CostOf(child));
        return dearest;
    }
    case RES_SUBRESTRICTION:
        return Recipients;
    case RES_CONTENT:
    case RES_PROPERTY:
    case RES_EXIST:
    case RES_BITMASK:
        if (ReadsBody(r.propTag)) return Body;
        switch (PropTypeOf(r.propTag)) {
        case PT_STRING8:
        case PT_UNICODE:
        case PT_BINARY:
            return Header;
        default:
            return Cheap;
        }
    case RES_COMPAREPROPS:
    case RES_SIZE:
        break;
    }
    return Cheap;
}

namespace {

void SortCheapFirst(Restriction& r)
{
    for (Restriction& child : r.children()) SortCheapFirst(child);
    // list::sort is stable: terms of equal cost keep their written order.
    if (r.kind == RES_AND || r.kind == RES_OR || r.kind == RES_SUBRESTRICTION)
        r.children().sort([](const Restriction& a, const Restriction& b) {
            return RestrictionOrder::CostOf(a) < RestrictionOrder::CostOf(b);
        });
}

}  // namespace

Restriction RestrictionOrder::CheapFirst(const Restriction& r)
{
    Restriction out = r;
    SortCheapFirst(out);
    return out;
}

}  // namespace mv::mapi
