// Jet DDL on SQLite: statement translation, ALTER COLUMN by rebuilding the
// table, and the catalog's column append.

#include "AdoTestDb.h"

#include "platform/ado/Catalog.h"
#include "platform/ado/JetSql.h"

#include <random>

#include <gtest/gtest.h>

namespace mv::ado::test {
namespace {

TEST(TranslateTest, GivesSqliteText)
{
    const std::pair<const char*, const char*> cases[] = {
        {"SELECT * From [Rules] WHERE [RuleID]=3;", "SELECT * From \"Rules\" WHERE \"RuleID\"=3"},
        {"UPDATE [Rules] SET RuleName='[x] y'", "UPDATE \"Rules\" SET RuleName='[x] y'"},
        {"UPDATE [Rules] SET Active=True WHERE Active=false", "UPDATE \"Rules\" SET Active=-1 WHERE Active=0"},
        {"SELECT 'True'", "SELECT 'True'"},
        {"SELECT * FROM Rules WHERE RuleName=\"it's\"", "SELECT * FROM Rules WHERE RuleName='it''s'"},
        {"SELECT * FROM T WHERE d < #12/31/2023 23:59:00#", "SELECT * FROM T WHERE d < '2023-12-31 23:59:00'"},
        {"ALTER TABLE [Rules] ADD COLUMN [Note] Text(20) NOT NULL DEFAULT 'x'",
         "ALTER TABLE \"Rules\" ADD COLUMN \"Note\" VARCHAR(20) NOT NULL DEFAULT 'x' COLLATE NOCASE"},
        {"CREATE TABLE [A] ([ID] Counter, [N] Memo WITH COMPRESSION, CONSTRAINT [PK] PRIMARY KEY ([ID]))",
         "CREATE TABLE \"A\" (\"ID\" INTEGER PRIMARY KEY AUTOINCREMENT, \"N\" LONGTEXT COLLATE NOCASE)"},
    };
    for (const auto& [jet, sqlite] : cases) {
        const JetStatement st = JetSql::Translate(QString::fromUtf8(jet));
        EXPECT_EQ(st.kind, JetStatement::Kind::Plain) << jet;
        EXPECT_EQ(st.sql, QString::fromUtf8(sqlite));
    }
}

TEST(TranslateTest, RecognisesIdentityAndAlterColumn)
{
    EXPECT_EQ(JetSql::Translate(QStringLiteral(" select  @@IDENTITY ; ")).kind, JetStatement::Kind::Identity);
    const JetStatement alter = JetSql::Translate(QStringLiteral("ALTER TABLE [Rules] ALTER COLUMN [Subject] Memo"));
    EXPECT_EQ(alter.kind, JetStatement::Kind::AlterColumn);
    EXPECT_EQ(alter.table, QStringLiteral("Rules"));
    EXPECT_EQ(alter.column, QStringLiteral("Subject"));
    EXPECT_EQ(alter.sqliteType, QStringLiteral("LONGTEXT"));
    for (const char* bad : {"SELECT 'open", "SELECT [open", "SELECT #1/1/2020", "SELECT #not a date#",
                            "ALTER TABLE [T] ADD c Widget", "ALTER TABLE [T] ADD COLUMN c", "ALTER TABLE [T] ADD COLUMN",
                            "ALTER TABLE [T] ALTER COLUMN c Counter", "  ; "})
        EXPECT_THROW(JetSql::Translate(QString::fromLatin1(bad)), AdoError) << bad;
}

TEST(TranslateTest, ArbitraryTextGivesTextOrAnErrorNeverACrash)
{
    // Pieces of Jet SQL shuffled by a fixed seed: the translator must answer
    // every one with a statement or an AdoError, and never read out of bounds.
    const QStringList pieces = {"ALTER", "TABLE", "ADD", "COLUMN", "CREATE", "(", ")", ",", "[a]", "[b", "'x'",
                                "'", "#1/2/2020#", "#", "Text(5)", "Counter", "PRIMARY", "KEY", "CONSTRAINT",
                                "WITH", "COMPRESSION", "SELECT", "@", "@@Identity", "True", "?", ";", "\"q\"", "1.5e",
                                "NOT", "NULL", "DEFAULT", "-1", "Memo", " ", "ALTER COLUMN"};
    std::mt19937 random(20261122);
    for (int i = 0; i < 3000; ++i) {
        QString sql;
        const int n = int(random() % 12);
        for (int k = 0; k < n; ++k) sql += pieces[int(random() % pieces.size())] + QLatin1Char(' ');
        try {
            JetSql::Translate(sql);
        } catch (const AdoError&) {
        }
    }
}

class AlterColumnTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        db.connection.Execute(QStringLiteral(
            "CREATE TABLE [Rules] ([RuleID] Counter, [RuleName] Text(150) NOT NULL DEFAULT 'unnamed', "
            "[Subject] Text(255), [SortID] Integer DEFAULT 7, [Active] Integer NOT NULL DEFAULT -1)"));
        db.connection.Execute(QStringLiteral("CREATE INDEX [BySort] ON [Rules] ([SortID])"));
        for (int i = 1; i <= 5; ++i)
            db.connection.Execute(QStringLiteral("INSERT INTO [Rules] (RuleName, Subject, SortID) VALUES ('r%1', '0%1', %1)").arg(i));
        db.connection.Execute(QStringLiteral("DELETE FROM [Rules] WHERE RuleID >= 4"));  // the counter stays at 5
    }
    int Count(const char* sql) { return db.Open(QString::fromLatin1(sql))->RecordCount(); }
    int SubjectType() { return db.Open(QStringLiteral("SELECT Subject FROM Rules"))->Fields(0).Type(); }

    AdoTestDb db;
};

TEST_F(AlterColumnTest, KeepsRowsOrderCounterDefaultsAndIndexes)
{
    // The add-in's second connection has run its queries before the first
    // one upgrades the file; its prepared statements must not keep the old columns.
    Connection second;
    second.Open(JetConnectionString(db.path));
    const QString all = QStringLiteral("SELECT * FROM Rules ORDER BY RuleID");
    EXPECT_EQ(second.Execute(all)->FieldCount(), 5);
    db.connection.Execute(QStringLiteral("ALTER TABLE [Rules] ADD LastVerb Integer"));
    db.connection.Execute(QStringLiteral("ALTER TABLE [Rules] ALTER COLUMN Subject Memo"));

    auto rs = second.Execute(all);
    QStringList names;
    for (int i = 0; i < rs->FieldCount(); ++i) names << rs->Fields(i).Name();
    EXPECT_EQ(names, QStringList({"RuleID", "RuleName", "Subject", "SortID", "Active", "LastVerb"}));
    ASSERT_EQ(rs->RecordCount(), 3);
    rs->MoveLast();
    EXPECT_EQ(rs->Value(QStringLiteral("RuleID")).toInt(), 3);
    EXPECT_EQ(rs->Value(QStringLiteral("Subject")).toString(), QStringLiteral("03"));
    EXPECT_EQ(rs->Fields(QStringLiteral("Subject")).Type(), adLongVarWChar);
    EXPECT_TRUE(rs->Data().columns[0].autoIncrement);

    // Defaults, NOT NULL and the counter after the highest number ever used.
    db.connection.Execute(QStringLiteral("INSERT INTO [Rules] (Subject) VALUES ('new')"));
    auto added = db.Open(QStringLiteral("SELECT * FROM Rules WHERE Subject='new'"));
    EXPECT_EQ(added->Value(QStringLiteral("RuleID")).toInt(), 6);
    EXPECT_EQ(added->Value(QStringLiteral("RuleName")).toString(), QStringLiteral("unnamed"));
    EXPECT_EQ(added->Value(QStringLiteral("SortID")).toInt(), 7);
    EXPECT_EQ(added->Value(QStringLiteral("Active")).toInt(), -1);
    EXPECT_THROW(db.connection.Execute(QStringLiteral("UPDATE [Rules] SET Active=NULL")), AdoError);

    EXPECT_EQ(Count("SELECT name FROM sqlite_schema WHERE type='index' AND tbl_name='Rules'"), 1);
    EXPECT_EQ(Count("SELECT name FROM sqlite_schema WHERE name LIKE 'mv_rebuild%'"), 0);

    // Rows of a table without a key keep their rowids.
    for (const char* sql : {"CREATE TABLE [Settings] ([version] Text(10), [toolbar] Integer)",
                            "INSERT INTO [Settings] VALUES ('1.0.0', 1)", "INSERT INTO [Settings] VALUES ('x', 2)",
                            "DELETE FROM [Settings] WHERE version='1.0.0'",
                            "ALTER TABLE [settings] ALTER COLUMN [Version] Memo"})
        db.connection.Execute(QString::fromLatin1(sql));
    EXPECT_EQ(db.Open(QStringLiteral("SELECT rowid, * FROM Settings"))->Fields(0).Value().toInt(), 2);
}

TEST_F(AlterColumnTest, AFailedRebuildChangesNothingAndOneInTheCallersTransactionRollsBackWithIt)
{
    const QByteArray before = ReadBytes(db.path);
    for (const char* sql : {"ALTER TABLE [Rules] ALTER COLUMN Nothing Memo", "ALTER TABLE [Nowhere] ALTER COLUMN Subject Memo",
                            "ALTER TABLE [Rules] ALTER COLUMN RuleID Memo" /* AUTOINCREMENT needs INTEGER */})
        EXPECT_THROW(db.connection.Execute(QString::fromLatin1(sql)), AdoError) << sql;
    EXPECT_EQ(SubjectType(), adVarWChar);
    EXPECT_EQ(ReadBytes(db.path), before);

    // No transaction was left open: the caller's own goes through.
    db.connection.Execute(QStringLiteral("BEGIN"));
    db.connection.Execute(QStringLiteral("ALTER TABLE [Rules] ALTER COLUMN Subject Memo"));
    EXPECT_EQ(SubjectType(), adLongVarWChar);
    db.connection.Execute(QStringLiteral("ROLLBACK"));
    EXPECT_EQ(SubjectType(), adVarWChar);
    EXPECT_EQ(Count("SELECT * FROM Rules"), 3);
}

TEST(CatalogTest, AppendedColumnsUseTheirOwnType)
{
    const struct {
        const char* name;
        int type;
        long size;
        bool allowZeroLength;
        int definedSize;
    } cases[] = {
        {"memo allowing empty", adLongVarWChar, 0, true, 536870910},
        {"memo refusing empty", adLongVarWChar, 0, false, 536870910},
        {"short text", adVarWChar, 40, true, 40},
        {"text without size", adVarWChar, 0, true, 255},
        {"long", adInteger, 0, false, 4},
        {"integer", adSmallInt, 0, false, 2},
        {"yes/no", adBoolean, 0, false, 2},
        {"date", adDate, 0, false, 8},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        AdoTestDb db(QStringLiteral("v100"));
        Catalog catalog;
        catalog.SetActiveConnection(&db.connection);
        Column col;
        col.Name = QStringLiteral("Extra");
        col.Type = c.type;
        col.DefinedSize = c.size;
        col.ParentCatalog = &catalog;
        if (c.allowZeroLength) col.Properties.insert(QStringLiteral("Jet OLEDB:Allow Zero Length"), true);
        catalog.AppendColumn(QStringLiteral("rules"), col, adVarWChar, 0);  // the append arguments do not count

        const std::vector<Column> columns = catalog.Columns(QStringLiteral("Rules"));
        ASSERT_EQ(columns.size(), 17u);
        EXPECT_EQ(columns.back().Name, QStringLiteral("Extra"));
        EXPECT_EQ(columns.back().Type, c.type);
        EXPECT_EQ(columns.back().DefinedSize, c.definedSize);
        if (c.type == adVarWChar || c.type == adLongVarWChar) {
            EXPECT_EQ(columns.back().Properties.value(QStringLiteral("Jet OLEDB:Allow Zero Length")).toBool(),
                      c.allowZeroLength);
            const auto empty = [&] { db.connection.Execute(QStringLiteral("UPDATE [Rules] SET Extra=''")); };
            if (c.allowZeroLength) EXPECT_NO_THROW(empty());
            else EXPECT_THROW(empty(), AdoError);
        }
    }
}

TEST(CatalogTest, ListsTablesAndRefusesUnknownOnes)
{
    AdoTestDb db(QStringLiteral("v100"));
    Catalog catalog;
    EXPECT_THROW(catalog.TableNames(), AdoError);  // no connection yet
    catalog.SetActiveConnection(&db.connection);
    EXPECT_EQ(catalog.TableNames(), (std::vector<QString>{"MsgAge", "Rules", "Settings"}));
    const std::vector<Column> rules = catalog.Columns(QStringLiteral("RULES"));
    ASSERT_EQ(rules.size(), 16u);
    EXPECT_EQ(rules[0].Type, adInteger);
    EXPECT_TRUE(rules[0].Properties.value(QStringLiteral("Autoincrement")).toBool());
    EXPECT_EQ(rules[1].DefinedSize, 150);
    EXPECT_EQ(rules[14].Properties.value(QStringLiteral("Default")).toString(), QStringLiteral("0"));

    Column c;
    c.Name = QStringLiteral("x");
    c.Type = adInteger;
    EXPECT_THROW(catalog.Columns(QStringLiteral("Nowhere")), AdoError);
    EXPECT_THROW(catalog.AppendColumn(QStringLiteral("Nowhere"), c), AdoError);
    c.Type = 9999;
    EXPECT_THROW(catalog.AppendColumn(QStringLiteral("Rules"), c), AdoError);
    EXPECT_EQ(catalog.Columns(QStringLiteral("Rules")).size(), 16u);
}

}  // namespace
}  // namespace mv::ado::test
