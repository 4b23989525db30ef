#include "RuleRecord.h"

#include "platform/ado/Recordset.h"

#include <QVariant>

namespace mv::engine {
namespace {

QVariant FieldValue(const ado::Recordset& rs, const char* name)
{
    if (rs.Data().columnIndex(QLatin1String(name)) < 0) return {};
    return rs.Fields(QLatin1String(name)).Value();
}

std::optional<int> IntField(const ado::Recordset& rs, const char* name)
{
    const QVariant v = FieldValue(rs, name);
    if (!v.isValid() || v.isNull()) return std::nullopt;
    bool ok = false;
    const int n = v.toInt(&ok);
    if (!ok) return std::nullopt;
    return n;
}

QString TextField(const ado::Recordset& rs, const char* name)
{
    const QVariant v = FieldValue(rs, name);
    return (v.isValid() && !v.isNull()) ? v.toString() : QString();
}

}  // namespace

RuleRecord RuleRecord::FromRecordset(const ado::Recordset& rs)
{
    RuleRecord r;
    r.ruleId = IntField(rs, "RuleID");
    r.ruleName = TextField(rs, "RuleName");
    r.srcEntryId = TextField(rs, "SrcEntryID");
    r.srcStoreId = TextField(rs, "SrcStoreID");
    r.dstEntryId = TextField(rs, "DstEntryID");
    r.dstStoreId = TextField(rs, "DstStoreID");
    r.fromAddress = TextField(rs, "FromAddress");
    r.toAddress = TextField(rs, "ToAddress");
    r.ccAddress = TextField(rs, "CcAddress");
    r.subject = TextField(rs, "Subject");
    r.message = TextField(rs, "Message");
    r.importance = IntField(rs, "Importance");
    r.status = IntField(rs, "Status");
    r.flagStatus = IntField(rs, "FlagStatus");
    r.lastVerb = IntField(rs, "LastVerb");
    r.msgAgeId = IntField(rs, "MsgAgeID");
    const QVariant tf = FieldValue(rs, "timeField");
    if (tf.isValid() && !tf.isNull()) r.timeField = tf.toString();
    r.timeDiff = IntField(rs, "timeDiff");
    r.active = IntField(rs, "Active");
    r.sortId = IntField(rs, "SortID");
    return r;
}

}  // namespace mv::engine
