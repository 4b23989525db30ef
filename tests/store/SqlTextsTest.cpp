// Every statement the add-in sends to the Rules, Settings and MsgAge tables,
// word for word, run in order through cDB on one real file that starts at
// release 1.0.0's layout: first the upgrade statements, then the statements
// of the running add-in on the upgraded file. Each case checks its effect
// with SQLite directly.

#include "StoreFixture.h"

namespace mv::test {
namespace {

struct SqlCase {
    const char* sql;
    std::vector<QVariant> params;  // empty: plain text through ExecuteSQL or CreateRS
    int rows;                      // -1: a statement; otherwise the rows a query returns
    const char* check = nullptr;   // SQLite query run afterwards
    const char* expect = nullptr;  // its expected result
};

const QVariant kNull;
QVariant S(const char* s) { return QString::fromUtf8(s); }

const std::vector<SqlCase>& Cases()
{
    static const std::vector<SqlCase> cases = {
        // The upgrade chain's statements.
        {"ALTER TABLE [settings] ADD raRuleName integer", {}, -1},
        {"ALTER TABLE [settings] ADD raFrom integer", {}, -1},
        {"ALTER TABLE [settings] ADD raTo integer", {}, -1},
        {"ALTER TABLE [settings] ADD raCc integer", {}, -1},
        {"ALTER TABLE [settings] ADD raSubject integer", {}, -1},
        {"ALTER TABLE [settings] ADD raImportance integer", {}, -1},
        {"ALTER TABLE [settings] ADD raStatus integer", {}, -1},
        {"ALTER TABLE [settings] ADD raMsgAge integer", {}, -1},
        {"ALTER TABLE [settings] ADD statusPopups integer", {}, -1,
         "SELECT group_concat(name) FROM pragma_table_info('Settings') WHERE cid >= 10",
         "raRuleName,raFrom,raTo,raCc,raSubject,raImportance,raStatus,raMsgAge,statusPopups"},
        {"INSERT INTO [MsgAge] VALUES(13, 'x', 0)", {}, -1},
        {"INSERT INTO [MsgAge] VALUES(14, 'n', -15)", {}, -1},
        {"INSERT INTO [MsgAge] VALUES(15, 'd', -3)", {}, -1},
        {"INSERT INTO [MsgAge] VALUES(16, 'd', -4)", {}, -1},
        {"INSERT INTO [MsgAge] VALUES(17, 'd', -5)", {}, -1,
         "SELECT group_concat(MsgAgeID || timeField || timeDiff, ' ') FROM MsgAge WHERE MsgAgeID > 12",
         "13x0 14n-15 15d-3 16d-4 17d-5"},
        {"UPDATE [settings] SET version='1.2.0', raRuleName=0, raFrom=1, raTo=1, raCC=0, raSubject=1, "
         "raImportance=1, raStatus=1, raMsgAge=1, statusPopups=1",
         {}, -1,
         "SELECT version, raRuleName, raFrom, raTo, raCc, raSubject, raImportance, raStatus, raMsgAge, "
         "statusPopups FROM Settings",
         "1.2.0|0|1|1|0|1|1|1|1|1"},
        {"UPDATE [settings] SET version='1.2.0'", {}, -1, "SELECT version FROM Settings", "1.2.0"},
        {"ALTER TABLE [Rules] ALTER COLUMN FromAddress Memo", {}, -1},
        {"ALTER TABLE [Rules] ALTER COLUMN ToAddress Memo", {}, -1},
        {"ALTER TABLE [Rules] ALTER COLUMN CcAddress Memo", {}, -1,
         "SELECT group_concat(FromAddress, ';') FROM Rules", "news@example.com;list@example.org;obrien@example.ie;"},
        {"UPDATE [settings] SET version='1.3.0'", {}, -1, "SELECT version FROM Settings", "1.3.0"},
        {"ALTER TABLE [Rules] ALTER COLUMN Subject Memo", {}, -1,
         "SELECT Subject FROM Rules WHERE RuleID = 2", "\"status report\" Q3"},
        {"ALTER TABLE [Rules] ADD LastVerb Integer", {}, -1},
        // (the Message column comes from AppendField between these two; see the test)
        {"UPDATE [Rules] SET LastVerb=0, Message=''", {}, -1,
         "SELECT group_concat(LastVerb || '[' || Message || ']') FROM Rules", "0[],0[],0[]"},
        {"UPDATE [settings] SET version='1.4.0'", {}, -1},
        {"ALTER TABLE [settings] ADD alignTime integer", {}, -1},
        {"INSERT INTO [MsgAge] VALUES(18, 'm', -6)", {}, -1},
        {"INSERT INTO [MsgAge] VALUES(19, 'yyyy', -1)", {}, -1},
        {"INSERT INTO [MsgAge] VALUES(20, 'yyyy', -2)", {}, -1,
         "SELECT count(*), max(MsgAgeID) FROM MsgAge", "20|20"},
        {"UPDATE [settings] SET version='1.5.0', alignTime=1", {}, -1, "SELECT version, alignTime FROM Settings",
         "1.5.0|1"},
        {"UPDATE [settings] SET version='1.8.0'", {}, -1},

        // Settings, read and written.
        {"SELECT version From Settings", {}, 1},
        {"SELECT * From Settings", {}, 1},
        {"UPDATE [Settings] SET [WeekStart]=?, [toolbar]=?, [menubar]=?, [runOnStart]=?, [tbTop]=?, [tbLeft]=?, "
         "[tbRow]=?, [tbPos]=?, [init]=?, [statusPopups]=?, [alignTime]=?",
         {3, 0, 1, 1, 44, 55, 1, 2, 1, 0, 1}, -1,
         "SELECT WeekStart, toolbar, menubar, runOnStart, tbTop, tbLeft, tbRow, tbPos, init, statusPopups, alignTime "
         "FROM Settings",
         "3|0|1|1|44|55|1|2|1|0|1"},
        {"SELECT * From [settings]", {}, 1},
        {"UPDATE [settings] SET [raRuleName]=?, [raFrom]=?, [raTo]=?, [raCc]=?, [raSubject]=?, [raImportance]=?, "
         "[raStatus]=?, [raMsgAge]=?",
         {3, 0, 0, 1, 0, 0, 2, 17}, -1,
         "SELECT raRuleName, raFrom, raTo, raCc, raSubject, raImportance, raStatus, raMsgAge FROM Settings",
         "3|0|0|1|0|0|2|17"},

        // Rules: ordering, inserts of every kind, lists, run-driver selections.
        {"SELECT MAX(SortID) As MaxID From Rules", {}, 1},
        {"INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], "
         "[Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [SortID], "
         "[LastVerb], [Message])VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ",
         {S("default"), S(""), S(""), S(""), S(""), 3, 1, 0, 13, S("E1"), S("S1"), S("E2"), S("S1"), 10, 0, S("")}, -1,
         "SELECT RuleID, Active, SortID FROM Rules WHERE RuleName = 'default'", "4|0|10"},
        {"INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], "
         "[Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [Active], "
         "[SortID], [LastVerb], [Message])VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ",
         {S("imported"), S("a@b.c"), S(""), S(""), S("x"), 2, 0, 1, 14, S("E1"), S("S1"), S("E3"), S("S1"), -1, 11,
          104, S("line1\r\nline2")},
         -1, "SELECT Active, LastVerb, Message FROM Rules WHERE RuleID = 5", "-1|104|line1\r\nline2"},
        {"INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], "
         "[Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [LastVerb], "
         "[Message])VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ",
         {S("edited"), S(""), S("me@x.y"), S(""), S(""), 3, 2, 0, 5, S("E1"), S("S1"), S("E4"), S("S1"), 0, kNull},
         -1, "SELECT RuleID, Active, SortID, Message FROM Rules WHERE RuleName = 'edited'", "6|0|NULL|NULL"},
        {"INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], "
         "[Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [Active], "
         "[SortID]) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ",
         {S("Copy of Newsletters"), S("news@example.com"), S(""), S(""), S(""), 3, 2, 0, 13, S("E1"), S("S1"),
          S("E2"), S("S1"), -1, 12},
         -1, "SELECT RuleID, LastVerb FROM Rules WHERE SortID = 12", "7|NULL"},
        {"SELECT * From Rules ORDER By SortID", {}, 7},
        {"SELECT * From Rules ORDER By RuleName", {}, 7},
        {"Select * from Rules", {}, 7},
        {"SELECT * From [Rules] WHERE RuleID=2", {}, 1},
        {"SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.MsgAgeID = "
         "MsgAge.MsgAgeID AND Rules.RuleID=2",
         {}, 1},
        {"SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.Active = -1 And "
         "Rules.MsgAgeID = MsgAge.MsgAgeID ORDER BY Rules.SortID;",
         {}, 4},
        {"SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.Active = -1 And "
         "Rules.MsgAgeID = MsgAge.MsgAgeID AND Rules.MsgAgeID IN (13,14) ORDER BY Rules.SortID;",
         {}, 3},
        {"SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.Active = -1 And "
         "Rules.MsgAgeID = MsgAge.MsgAgeID AND Rules.MsgAgeID = 13 ORDER BY Rules.SortID;",
         {}, 2},
        {"UPDATE [Rules] SET RuleName='Renamed in place' WHERE RuleID=6", {}, -1,
         "SELECT RuleName FROM Rules WHERE RuleID = 6", "Renamed in place"},
        {"UPDATE [Rules] SET Active=?, SortID=? WHERE [RuleID]=?", {-1, 2, 2}, -1,
         "SELECT Active, SortID FROM Rules WHERE RuleID = 2", "-1|2"},
        {"UPDATE [Rules] SET [RuleName]=?, [FromAddress]=?, [ToAddress]=?, [CcAddress]=?, [Subject]=?, "
         "[Importance]=?, [Status]=?, [FlagStatus]=?, [MsgAgeID]=?, [SrcEntryID]=?, [SrcStoreID]=?, [DstEntryID]=?, "
         "[DstStoreID]=?, [LastVerb]=?, [Message]=? WHERE [RuleID]=?",
         {S("Übersicht 2"), S("x@y.z"), S(""), S(""), S("\"two words\""), 1, 2, 6, 19, S("E9"), S("S9"), S("E8"),
          S("S9"), 102, S("body words"), 3},
         -1, "SELECT RuleName, FlagStatus, MsgAgeID, Message FROM Rules WHERE RuleID = 3",
         "Übersicht 2|6|19|body words"},
        {"DELETE FROM [Rules] WHERE RuleID=6", {}, -1, "SELECT count(*) FROM Rules", "6"},
        {"SELECT @@Identity", {}, 1},
    };
    return cases;
}

class SqlTextsTest : public StoreTest {};

TEST_F(SqlTextsTest, EveryStatementRunsAsWrittenOnARealFile)
{
    const QString path = CopyDatabase(QStringLiteral("v100"));
    auto db = Open(path);
    for (const SqlCase& c : Cases()) {
        const QString sql = QString::fromUtf8(c.sql);
        SCOPED_TRACE(c.sql);
        if (c.rows >= 0) {
            std::unique_ptr<ado::Recordset> rs;
            ASSERT_TRUE(db->CreateRS(rs, sql)) << db->LastErrorDescription().toStdString();
            EXPECT_EQ(rs->RecordCount(), c.rows);
        } else if (c.params.empty()) {
            ASSERT_TRUE(db->ExecuteSQL(sql)) << db->LastErrorDescription().toStdString();
        } else {
            auto cmd = Prepared(sql, c.params);
            ASSERT_TRUE(db->ExecuteSQL(QString(), cmd.get())) << db->LastErrorDescription().toStdString();
        }
        if (c.check) {
            EXPECT_EQ(Query(path, QString::fromUtf8(c.check)), QString::fromUtf8(c.expect));
        }
        if (QByteArray(c.sql) == "ALTER TABLE [Rules] ADD LastVerb Integer") {
            ASSERT_TRUE(db->AppendField(QStringLiteral("Rules"), QStringLiteral("Message"), ado::adLongVarWChar, true));
        }
    }
    EXPECT_EQ(Query(path, QStringLiteral("SELECT group_concat(name) FROM pragma_table_info('Rules')")),
              QStringLiteral("RuleID,RuleName,FromAddress,ToAddress,CcAddress,Subject,Importance,Status,FlagStatus,"
                             "MsgAgeID,SrcEntryID,SrcStoreID,DstEntryID,DstStoreID,Active,SortID,LastVerb,Message"));
    EXPECT_TRUE(Reports().isEmpty()) << Reports().join(u'\n').toStdString();
}

}  // namespace
}  // namespace mv::test
