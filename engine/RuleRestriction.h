#pragma once
// Turns a rule's criteria into children of the root AND, one child per set
// criterion, in a fixed order: age, subject, sender, recipients, copy
// recipients, body, read state, follow-up flag, importance, last verb.
// The order matters to nobody's result but keeps SEARCH text and logs
// stable, so it is kept exactly.

#include "RuleRecord.h"

#include "platform/mapi/Restriction.h"

#include <QDateTime>

#include <optional>

namespace mv::engine {

// `cutOffUtc` is the age window's cut-off (see AgeWindow), or nullopt when
// the rule has no age criterion.
void AddRuleCriteria(const RuleRecord& rule, const std::optional<QDateTime>& cutOffUtc,
                     mapi::Restriction& root);

}  // namespace mv::engine
