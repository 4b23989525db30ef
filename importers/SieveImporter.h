#pragma once
// Rules from a Sieve script (RFC 5228 with "fileinto"). Each "if" or
// "elsif" whose action is fileinto becomes one rule from the Inbox to that
// folder; its test may be "header" or "address" with ":contains" on
// subject, from, to or cc, alone or in "allof" / "anyof". Everything else
// (other tests, match types and actions, "else", commands outside an "if")
// is reported, per rule or for the file.

#include "ImportedRule.h"

#include "platform/common/Error.h"

namespace mv::importers {

class SieveImporter {
public:
    // A Permanent error when the script does not parse; else the rules and
    // what did not map.
    static Result<ImportedRules> FromScript(const QString& script);
};

}  // namespace mv::importers
