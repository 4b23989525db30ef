#pragma once
// A rule brought in from another tool, before its folders are resolved: the
// criteria already in the Rules table's own form (engine::RuleRecord), the
// folders as that tool named them, and every part of the original that has
// no place in a rule. Translators never drop anything silently: what they
// cannot map is a line in `unmapped` of the rule, or of the whole file.

#include "engine/RuleRecord.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace mv::importers {

// A folder as the other tool names it: a path ("Lists/Qt", levels joined by
// "/"), or the identifiers a stored rule holds (an empty store identifier
// means any store, as in a run). Neither: as a source the Inbox, as a
// destination none.
struct ForeignFolder {
    QString path;
    QString entryIdHex, storeIdHex;

    bool HasIds() const { return !entryIdHex.isEmpty(); }
    bool IsInbox() const { return path.isEmpty() && !HasIds(); }
};

struct ImportedRule {
    // Criteria, name, Active and (when the file names one) MsgAgeID; the
    // folder identifiers and SortID are the writer's.
    engine::RuleRecord record;
    ForeignFolder source, destination;
    // An age criterion in days ("older than N days"), resolved to a MsgAge
    // row of the target database by the writer.
    std::optional<int> olderThanDays;
    QStringList unmapped;
};

struct ImportedRules {
    std::vector<ImportedRule> rules;
    // Parts of the file that gave no rule at all ("line 12: else block").
    QStringList unmapped;

    bool Complete() const
    {
        if (!unmapped.isEmpty()) return false;
        for (const ImportedRule& r : rules)
            if (!r.unmapped.isEmpty()) return false;
        return true;
    }
};

}  // namespace mv::importers
