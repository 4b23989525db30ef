#pragma once
// A rule as the engine reads it: one row of Rules joined with its MsgAge
// row. Nulls stay visible (std::nullopt / null QString) because "unset"
// means null or a value outside the criterion's range, never a default.

#include <QString>

#include <optional>

namespace mv::ado {
class Recordset;
}

namespace mv::engine {

// The values that mean "no criterion".
inline constexpr int kImportanceDontCare = 3;
inline constexpr int kStatusDontCare = 2;
inline constexpr int kFlagDontCare = 0;
inline constexpr int kFlagNoneSet = 9;
inline constexpr int kFlagColourBase = 10;
inline constexpr int kLastVerbDontCare = 0;
inline constexpr int kLastVerbReplied = 102;
inline constexpr int kLastVerbForwarded = 104;
inline constexpr int kMsgAgeAnyTime = 13;
inline constexpr int kMsgAge15Minutes = 14;

struct RuleRecord {
    std::optional<int> ruleId;
    QString ruleName;
    QString srcEntryId, srcStoreId, dstEntryId, dstStoreId;
    QString fromAddress, toAddress, ccAddress, subject, message;
    std::optional<int> importance, status, flagStatus, lastVerb, msgAgeId;
    std::optional<QString> timeField;
    std::optional<int> timeDiff;
    std::optional<int> active, sortId;

    // Reads the current row by field name; fields the query did not select
    // stay unset. Throws mv::ado::AdoError at BOF/EOF.
    static RuleRecord FromRecordset(const ado::Recordset& rs);

    bool HasAgeCriterion() const
    {
        return timeField && timeDiff && msgAgeId && *msgAgeId != kMsgAgeAnyTime;
    }
};

}  // namespace mv::engine
