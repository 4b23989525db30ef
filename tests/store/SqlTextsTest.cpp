// Every statement the running add-in sends to the Rules and Settings tables,
// word for word, run in order through cDB on one real file of release 1.5.0
// (UpgradeTest runs the upgrade statements on every older release). Each case
// checks its effect with SQLite directly.

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
    const QString path = CopyDatabase(QStringLiteral("v150"));
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
    }
    EXPECT_TRUE(Reports().isEmpty()) << Reports().join(u'\n').toStdString();
}

}  // namespace
}  // namespace mv::test
