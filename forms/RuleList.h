#pragma once
// The Rules Manager's list without its widgets: the rules as it loads them
// (run order, name, id, Active), the row move, and the statements with which
// Apply and Delete write the store. The manager and the command line both go
// through here, so a rule switched off, moved or deleted from either ends up
// stored alike.
//
// Errors: Load and the statements return false when the store refuses; cDB
// has then reported the failure. Save runs every row's statement even after
// one fails (the earlier rows stay written) and throws ado::AdoError
// (Overflow, 6) for a RuleID outside 16 bits, as the manager's tag does.

#include <QString>

#include <cstdint>
#include <vector>

namespace mv::store {
class cDB;
}

namespace mv::forms {

struct RuleListRow {
    int ruleId = 0;
    QString name;
    bool active = false;  // Active is true and not null
};

class RuleList {
public:
    // "SELECT * From Rules ORDER By SortID", read as the manager reads it.
    [[nodiscard]] bool Load(store::cDB& db);
    // Apply: every row's Active flag and its 1-based position as SortID.
    [[nodiscard]] bool Save(store::cDB& db) const;
    // Moves the row at `from` to `to` (1-based); false and no change when
    // either is out of range or they are equal.
    bool Move(int from, int to);
    // 1-based position of the rule, 0 when it is not in the list.
    int PositionOf(int ruleId) const;

    std::vector<RuleListRow>& Rows() { return m_rows; }
    const std::vector<RuleListRow>& Rows() const { return m_rows; }

    // One row of Apply: "UPDATE [Rules] SET Active=?, SortID=? WHERE [RuleID]=?".
    [[nodiscard]] static bool SaveRow(store::cDB& db, std::int16_t position, bool active, std::int16_t ruleId);
    // "DELETE FROM [Rules] WHERE RuleID=" + the id.
    [[nodiscard]] static bool Delete(store::cDB& db, std::int16_t ruleId);

private:
    std::vector<RuleListRow> m_rows;
};

}  // namespace mv::forms
