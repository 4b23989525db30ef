#include "RuleList.h"

#include "platform/ado/AdoConstants.h"
#include "platform/ado/Command.h"
#include "platform/ado/Recordset.h"
#include "store/VbConvert.h"
#include "store/cDB.h"

#include <algorithm>

namespace mv::forms {

namespace {

void AddParameter(ado::Command& cmd, const char* name, int type, long size, const QVariant& value)
{
    cmd.AppendParameter(cmd.CreateParameter(QString::fromLatin1(name), type, ado::adParamInput, size, value));
}

bool IsTrue(const QVariant& v)
{
    return v.isValid() && !v.isNull() && v.toInt() != 0;
}

}  // namespace

bool RuleList::Load(store::cDB& db)
{
    m_rows.clear();
    std::unique_ptr<ado::Recordset> rs;
    if (!db.CreateRS(rs, QStringLiteral("SELECT * From Rules ORDER By SortID")) || !rs) return false;
    const int total = db.RecordCount(*rs);
    for (int i = 1; i <= total; ++i) {
        const QVariant name = rs->Value(QStringLiteral("RuleName"));
        m_rows.push_back({rs->Value(QStringLiteral("RuleID")).toInt(), name.isNull() ? QString() : name.toString(),
                          IsTrue(rs->Value(QStringLiteral("Active")))});
        (void)db.MoveDB(store::dbNext, *rs);
    }
    rs->Close();
    return true;
}

bool RuleList::Save(store::cDB& db) const
{
    bool ok = true;
    int position = 0;
    for (const RuleListRow& row : m_rows) {
        ++position;
        ok = SaveRow(db, store::CInt(position), row.active, store::CInt(row.ruleId)) && ok;
    }
    return ok;
}

bool RuleList::Move(int from, int to)
{
    const int count = static_cast<int>(m_rows.size());
    if (from == to || to < 1 || to > count || from < 1 || from > count) return false;
    RuleListRow row = std::move(m_rows[from - 1]);
    m_rows.erase(m_rows.begin() + (from - 1));
    m_rows.insert(m_rows.begin() + (to - 1), std::move(row));
    return true;
}

int RuleList::PositionOf(int ruleId) const
{
    const auto it = std::find_if(m_rows.begin(), m_rows.end(), [&](const RuleListRow& r) { return r.ruleId == ruleId; });
    return it == m_rows.end() ? 0 : static_cast<int>(it - m_rows.begin()) + 1;
}

bool RuleList::SaveRow(store::cDB& db, std::int16_t position, bool active, std::int16_t ruleId)
{
    ado::Command cmd;
    cmd.SetCommandType(ado::adCmdText);
    cmd.SetCommandText(QStringLiteral("UPDATE [Rules] SET Active=?, SortID=? WHERE [RuleID]=?"));
    AddParameter(cmd, "Active", ado::adBoolean, 10, active);
    AddParameter(cmd, "SortID", ado::adInteger, 10, int(position));
    // Binds by position: the third one is the RuleID.
    AddParameter(cmd, "SortID", ado::adInteger, 10, int(ruleId));
    return db.ExecuteSQL(QString(), &cmd);
}

bool RuleList::Delete(store::cDB& db, std::int16_t ruleId)
{
    return db.ExecuteSQL(QStringLiteral("DELETE FROM [Rules] WHERE RuleID=") + QString::number(ruleId));
}

}  // namespace mv::forms
