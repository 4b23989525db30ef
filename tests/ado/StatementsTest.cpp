// Every statement the rule store, the engine and the forms send, run
// literally through the provider against a database that starts at the
// 1.0.0 layout and is upgraded by the same statements on the way.

#include "AdoTestDb.h"

#include "platform/ado/Catalog.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

namespace mv::ado::test {
namespace {

// The parameters a caller binds for `sql`: one per "?", named after the
// column it fills, typed and sized as the callers do (text 202 with a fixed
// width or len+1, identifiers 201 with len+1, integers 3 with size 10).
std::vector<Parameter> ParametersFor(const QString& sql)
{
    QStringList names;
    static const QRegularExpression insert(QStringLiteral(R"(INSERT INTO \[Rules\] \(([^)]*)\))"));
    static const QRegularExpression assign(QStringLiteral(R"(\[?(\w+)\]?=\?)"));
    if (auto m = insert.match(sql); m.hasMatch()) {
        for (QString n : m.captured(1).split(QLatin1Char(','))) names << n.remove(QRegularExpression(QStringLiteral("[\\[\\] ]")));
    } else {
        for (auto it = assign.globalMatch(sql); it.hasNext();) names << it.next().captured(1);
    }
    std::vector<Parameter> out;
    for (const QString& n : names) {
        Parameter p;
        p.Name = n;
        p.Direction = adParamInput;
        if (n == QLatin1String("RuleName")) { p.Type = adVarWChar; p.Size = 150; p.Value = QStringLiteral("O'Brien's rule"); }
        else if (n == QLatin1String("Subject")) { p.Type = adVarWChar; p.Size = 255; p.Value = QStringLiteral("\"weekly report\" 0123"); }
        else if (n.endsWith(QLatin1String("Address")) || n == QLatin1String("Message")) {
            const QString v = n == QLatin1String("Message") ? QString() : QStringLiteral("a@example.org;b@example.org");
            p.Type = adVarWChar; p.Size = v.size() + 1; p.Value = v;
        } else if (n.endsWith(QLatin1String("EntryID")) || n.endsWith(QLatin1String("StoreID"))) {
            const QString v = QStringLiteral("0000000038A1BB1005E5101AA1BB08002B2A56C20000") + n;
            p.Type = adLongVarWChar - 2;  // 201, as the callers give it
            p.Size = v.size() + 1; p.Value = v;
        } else {
            p.Type = adInteger; p.Size = 10;
            // The imported rule carries Active 1, which is not "active" (-1).
            const int active = sql.contains(QLatin1String("[Message]")) && sql.contains(QLatin1String("[Active]")) ? 1 : -1;
            p.Value = n == QLatin1String("Active") ? active : n == QLatin1String("MsgAgeID") ? 13 : 1;
        }
        out.push_back(p);
    }
    return out;
}

struct Step {
    const char* sql;
    const char* suffix;  // what the caller concatenates, if anything
    int rows;            // rows expected back; -1: no recordset expected
};

// In the order a 1.0.0 file meets them: the upgrade chain, then settings,
// rule creation, listing, running, editing, export and deletion.
const Step kSteps[] = {
    {"SELECT version From Settings", "", 1},
    {"ALTER TABLE [settings] ADD raRuleName integer", "", -1},
    {"ALTER TABLE [settings] ADD raFrom integer", "", -1},
    {"ALTER TABLE [settings] ADD raTo integer", "", -1},
    {"ALTER TABLE [settings] ADD raCc integer", "", -1},
    {"ALTER TABLE [settings] ADD raSubject integer", "", -1},
    {"ALTER TABLE [settings] ADD raImportance integer", "", -1},
    {"ALTER TABLE [settings] ADD raStatus integer", "", -1},
    {"ALTER TABLE [settings] ADD raMsgAge integer", "", -1},
    {"ALTER TABLE [settings] ADD statusPopups integer", "", -1},
    {"INSERT INTO [MsgAge] VALUES(13, 'x', 0)", "", -1},
    {"INSERT INTO [MsgAge] VALUES(14, 'n', -15)", "", -1},
    {"INSERT INTO [MsgAge] VALUES(15, 'd', -3)", "", -1},
    {"INSERT INTO [MsgAge] VALUES(16, 'd', -4)", "", -1},
    {"INSERT INTO [MsgAge] VALUES(17, 'd', -5)", "", -1},
    {"UPDATE [settings] SET version='1.2.0', raRuleName=0, raFrom=1, raTo=1, raCC=0, raSubject=1, raImportance=1, raStatus=1, raMsgAge=1, statusPopups=1", "", -1},
    {"UPDATE [settings] SET version='1.2.0'", "", -1},
    // A rule written before the address columns became memos.
    {"INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], [Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [Active], [SortID]) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ", "", -1},
    {"ALTER TABLE [Rules] ALTER COLUMN FromAddress Memo", "", -1},
    {"ALTER TABLE [Rules] ALTER COLUMN ToAddress Memo", "", -1},
    {"ALTER TABLE [Rules] ALTER COLUMN CcAddress Memo", "", -1},
    {"UPDATE [settings] SET version='1.3.0'", "", -1},
    {"ALTER TABLE [Rules] ALTER COLUMN Subject Memo", "", -1},
    {"ALTER TABLE [Rules] ADD LastVerb Integer", "", -1},
    {nullptr, "", -1},  // the catalog appends Message here
    {"UPDATE [Rules] SET LastVerb=0, Message=''", "", -1},
    {"UPDATE [settings] SET version='1.4.0'", "", -1},
    {"ALTER TABLE [settings] ADD alignTime integer", "", -1},
    {"INSERT INTO [MsgAge] VALUES(18, 'm', -6)", "", -1},
    {"INSERT INTO [MsgAge] VALUES(19, 'yyyy', -1)", "", -1},
    {"INSERT INTO [MsgAge] VALUES(20, 'yyyy', -2)", "", -1},
    {"UPDATE [settings] SET version='1.5.0', alignTime=1", "", -1},
    {"UPDATE [settings] SET version='1.8.0'", "", -1},
    {"SELECT * From Settings", "", 1},
    {"UPDATE [Settings] SET [WeekStart]=?, [toolbar]=?, [menubar]=?, [runOnStart]=?, [tbTop]=?, [tbLeft]=?, [tbRow]=?, [tbPos]=?, [init]=?, [statusPopups]=?, [alignTime]=?", "", -1},
    {"SELECT * From [settings]", "", 1},
    {"UPDATE [settings] SET [raRuleName]=?, [raFrom]=?, [raTo]=?, [raCc]=?, [raSubject]=?, [raImportance]=?, [raStatus]=?, [raMsgAge]=?", "", -1},
    {"SELECT MAX(SortID) As MaxID From Rules", "", 1},
    {"INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], [Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [SortID], [LastVerb], [Message])VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ", "", -1},
    {"INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], [Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [LastVerb], [Message])VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ", "", -1},
    {"INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], [Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [Active], [SortID], [LastVerb], [Message])VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ", "", -1},
    {"SELECT @@Identity", "", 1},
    {"SELECT * From Rules ORDER By SortID", "", 4},
    {"SELECT * From Rules ORDER By RuleName", "", 4},
    {"SELECT * From [Rules] WHERE RuleID=", "1", 1},
    {"SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.Active = -1 And Rules.MsgAgeID = MsgAge.MsgAgeID ORDER BY Rules.SortID;", "", 3},
    {"SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.Active = -1 And Rules.MsgAgeID = MsgAge.MsgAgeID AND Rules.MsgAgeID IN (13,14) ORDER BY Rules.SortID;", "", 3},
    {"SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.Active = -1 And Rules.MsgAgeID = MsgAge.MsgAgeID AND Rules.MsgAgeID = 13 ORDER BY Rules.SortID;", "", 3},
    {"SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.MsgAgeID = MsgAge.MsgAgeID AND Rules.RuleID=", "2", 1},
    {"UPDATE [Rules] SET [RuleName]=?, [FromAddress]=?, [ToAddress]=?, [CcAddress]=?, [Subject]=?, [Importance]=?, [Status]=?, [FlagStatus]=?, [MsgAgeID]=?, [SrcEntryID]=?, [SrcStoreID]=?, [DstEntryID]=?, [DstStoreID]=?, [LastVerb]=?, [Message]=? WHERE [RuleID]=?", "", -1},
    {"UPDATE [Rules] SET Active=?, SortID=? WHERE [RuleID]=?", "", -1},
    {"UPDATE [Rules] SET RuleName='", "Renamed' WHERE RuleID=3", -1},
    {"Select * from Rules", "", 4},
    {"DELETE FROM [Rules] WHERE RuleID=", "4", -1},
    {"SELECT * From Rules ORDER By SortID", "", 3},
};

TEST(StatementsTest, EveryStatementRunsAsWrittenFromTheOldestLayout)
{
    AdoTestDb db;
    db.CreateVersion100Layout();
    for (const Step& step : kSteps) {
        if (!step.sql) {
            Catalog catalog;
            catalog.SetActiveConnection(&db.connection);
            Column message;
            message.Name = QStringLiteral("Message");
            message.Type = adLongVarWChar;
            message.ParentCatalog = &catalog;
            message.Properties.insert(QStringLiteral("Jet OLEDB:Allow Zero Length"), true);
            ASSERT_NO_THROW(catalog.AppendColumn(QStringLiteral("Rules"), message, adVarWChar, 0));
            continue;
        }
        const QString sql = QString::fromUtf8(step.sql) + QString::fromUtf8(step.suffix);
        SCOPED_TRACE(sql.toStdString());
        Command cmd;
        cmd.SetActiveConnection(&db.connection);
        cmd.SetCommandType(adCmdText);
        cmd.SetCommandText(sql);
        for (Parameter& p : ParametersFor(sql)) cmd.AppendParameter(p);
        try {
            if (step.rows < 0) {
                EXPECT_EQ(cmd.Execute(adExecuteNoRecords), nullptr);
            } else {
                Recordset rs;
                rs.SetCursorLocation(adUseClient);
                rs.Open(cmd, adOpenDynamic, adLockBatchOptimistic);
                ASSERT_EQ(rs.State(), adStateOpen);
                EXPECT_EQ(rs.RecordCount(), step.rows);
            }
        } catch (const AdoError& e) {
            ADD_FAILURE() << e.Description().toStdString();
        }
    }

    // What the chain and the statements left behind.
    auto settings = db.Open(QStringLiteral("SELECT * From Settings"));
    EXPECT_EQ(settings->Value(QStringLiteral("Version")).toString(), QStringLiteral("1.8.0"));
    EXPECT_EQ(settings->Value(QStringLiteral("raCC")).toInt(), 1);  // bound by the Smart Add update
    EXPECT_EQ(settings->Value(QStringLiteral("AlignTime")).toInt(), 1);
    EXPECT_EQ(settings->Value(QStringLiteral("Toolbar")).toInt(), 1);

    auto rules = db.Open(QStringLiteral("SELECT * From Rules ORDER By RuleID"));
    ASSERT_EQ(rules->FieldCount(), 18);
    const char* order[] = {"RuleID", "RuleName", "FromAddress", "ToAddress", "CcAddress", "Subject",
                           "Importance", "Status", "FlagStatus", "MsgAgeID", "SrcEntryID", "SrcStoreID",
                           "DstEntryID", "DstStoreID", "Active", "SortID", "LastVerb", "Message"};
    for (int i = 0; i < 18; ++i) EXPECT_EQ(rules->Fields(i).Name(), QLatin1String(order[i]));
    EXPECT_EQ(rules->Fields(QStringLiteral("FromAddress")).Type(), adLongVarWChar);
    EXPECT_EQ(rules->Fields(QStringLiteral("Subject")).Type(), adLongVarWChar);
    // The rule written before the upgrade kept its values through the rebuilds.
    EXPECT_EQ(rules->Value(QStringLiteral("RuleID")).toInt(), 1);
    EXPECT_EQ(rules->Value(QStringLiteral("Subject")).toString(), QStringLiteral("\"weekly report\" 0123"));
    EXPECT_EQ(rules->Value(QStringLiteral("Message")).toString(), QString());
    EXPECT_TRUE(rules->Value(QStringLiteral("Message")).isValid());
    EXPECT_EQ(rules->Value(QStringLiteral("LastVerb")).toInt(), 1);  // set by the full update
    rules->MoveNext();
    EXPECT_EQ(rules->Value(QStringLiteral("Active")).toInt(), -1);  // the column default
    rules->MoveNext();
    EXPECT_EQ(rules->Value(QStringLiteral("RuleName")).toString(), QStringLiteral("Renamed"));

    auto ages = db.Open(QStringLiteral("SELECT * FROM MsgAge WHERE MsgAgeID >= 13 ORDER BY MsgAgeID"));
    EXPECT_EQ(ages->RecordCount(), 8);
}

}  // namespace
}  // namespace mv::ado::test
