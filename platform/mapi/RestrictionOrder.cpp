#include "RestrictionOrder.h"

#include <algorithm>
#include <vector>

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

Restriction RestrictionOrder::CheapFirst(const Restriction& r)
{
    Restriction out = r;
    out.children().clear();
    std::vector<std::pair<Cost, Restriction>> children;
    children.reserve(r.children().size());
    for (const Restriction& child : r.children()) {
        Restriction reordered = CheapFirst(child);
        const Cost cost = CostOf(reordered);
        children.emplace_back(cost, std::move(reordered));
    }
    if (r.kind == RES_AND || r.kind == RES_OR || r.kind == RES_SUBRESTRICTION)
        std::stable_sort(children.begin(), children.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& [cost, child] : children) out.AddChild(std::move(child));
    return out;
}

}  // namespace mv::mapi
