// The client-side cursor: field lookup, column schema, values by declared
// type, Move*, bookmarks, Find, Resync and saving to a file.

#include "AdoTestDb.h"

#include <random>

#include <gtest/gtest.h>

namespace mv::ado::test {
namespace {

class RulesFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        db.CreateCurrentRules();
        for (const char* sql : {
                 "CREATE TABLE [MsgAge] ([MsgAgeID] Long PRIMARY KEY, [timeField] Text(10), [timeDiff] Integer)",
                 "INSERT INTO [MsgAge] VALUES(13, 'x', 0)", "INSERT INTO [MsgAge] VALUES(14, 'n', -15)",
                 "INSERT INTO [Rules] (RuleName, Subject, SortID, MsgAgeID, Active) VALUES ('Alpha', 'report', 1, 13, -1)",
                 "INSERT INTO [Rules] (RuleName, Subject, SortID, MsgAgeID, Active) VALUES ('beta', NULL, 4, 14, 0)",
                 "INSERT INTO [Rules] (RuleName, Subject, SortID, MsgAgeID, Active) VALUES ('Gamma O''Hara', 'x', 9, 13, True)",
                 "INSERT INTO [Rules] (RuleName, Subject, SortID, MsgAgeID, Active) VALUES ('delta', 'Report', 16, 14, False)"})
            db.connection.Execute(QString::fromLatin1(sql), adExecuteNoRecords);
        rs = db.Open(QStringLiteral("SELECT * From Rules ORDER By SortID"));
    }
    QString Name(Recordset& r) const { return r.Value(QStringLiteral("RuleName")).toString(); }

    AdoTestDb db;
    std::unique_ptr<Recordset> rs;
};

TEST_F(RulesFixture, FieldsAreFoundByNameWithoutRegardToCase)
{
    for (const char* name : {"RuleName", "rulename", "RULENAME", "ruleNAME"}) {
        EXPECT_EQ(rs->Value(QString::fromLatin1(name)).toString(), QStringLiteral("Alpha")) << name;
        EXPECT_EQ(rs->Fields(QString::fromLatin1(name)).Name(), QStringLiteral("RuleName")) << name;
    }
    EXPECT_EQ(rs->Fields(1).DefinedSize(), 150);
    EXPECT_THROW(rs->Fields(QStringLiteral("[RuleName]")), AdoError);  // brackets belong to SQL, not to lookups
    try {
        rs->Fields(QStringLiteral("RuleNam"));
        FAIL();
    } catch (const AdoError& e) {
        EXPECT_EQ(e.Number(), kErrItemNotFound);
        EXPECT_TRUE(e.Description().contains(QLatin1String("RuleNam")));
    }
    EXPECT_THROW(rs->Fields(18), AdoError);
    EXPECT_THROW(rs->Fields(-1), AdoError);
}

// The rule table's own columns write ADO's file byte for byte (tests/rowsetxml);
// here a current-layout column, a join and a computed column.
TEST_F(RulesFixture, ColumnSchemaIsWhatTheRowsetXmlNeeds)
{
    const char* join = "SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.MsgAgeID = "
                       "MsgAge.MsgAgeID ORDER BY Rules.SortID;";
    const struct {
        const char* sql;
        const char* column;
        int type, definedSize;
        bool isLong, key, autoIncrement, nullable;
        const char* baseTable;
    } cases[] = {
        {"Select * from Rules", "Importance", adSmallInt, 2, false, false, false, true, "Rules"},
        {join, "timeField", adVarWChar, 10, false, false, false, true, "MsgAge"},
        {join, "MsgAgeID", adSmallInt, 2, false, false, false, true, "Rules"},
        {"SELECT MAX(SortID) As MaxID From Rules", "MaxID", adInteger, 4, false, false, false, true, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.column);
        auto r = db.Open(QString::fromLatin1(c.sql));
        const int index = r->Data().columnIndex(QString::fromLatin1(c.column));
        ASSERT_GE(index, 0);
        const RowsetColumn& col = r->Data().columns[size_t(index)];
        EXPECT_EQ(col.type, c.type);
        EXPECT_EQ(col.definedSize, c.definedSize);
        EXPECT_EQ(col.isLong, c.isLong);
        EXPECT_EQ(col.keyColumn, c.key);
        EXPECT_EQ(col.autoIncrement, c.autoIncrement);
        EXPECT_EQ(col.nullable, c.nullable);
        EXPECT_EQ(col.mayBeNull, c.nullable);
        EXPECT_EQ(col.baseTable, QString::fromLatin1(c.baseTable));
        EXPECT_EQ(col.baseColumn, *c.baseTable ? QString::fromLatin1(c.column) : QString());
        EXPECT_EQ(col.writable, *c.baseTable != 0);
        EXPECT_EQ(col.mayDefer, *c.baseTable != 0);
    }
}

// The declared type decides what SQLite stores and the value read back:
// text stays text (a memo holding "0123" must not turn into 123), and True
// is the -1 that the rule queries test.
TEST(StoredValueTest, DeclaredTypeGivesStorageAndValue)
{
    const struct {
        const char* jetType;
        const char* literal;
        const char* stored;  // SQLite's typeof() and quote()
        QVariant expected;
    } cases[] = {
        {"Memo", "'0123'", "text '0123'", QStringLiteral("0123")},
        {"Text(50)", "'0123'", "text '0123'", QStringLiteral("0123")},
        {"Text", "'007'", "text '007'", QStringLiteral("007")},
        {"Integer", "'12'", "integer 12", 12},
        {"Long", "'-70000'", "integer -70000", -70000},
        {"YesNo", "True", "integer -1", true},
        {"YesNo", "False", "integer 0", false},
        {"DateTime", "#2024-03-01 10:20:30#", "text '2024-03-01 10:20:30'", QDateTime(QDate(2024, 3, 1), QTime(10, 20, 30))},
        {"DateTime", "#3/1/2024#", "text '2024-03-01 00:00:00'", QDateTime(QDate(2024, 3, 1), QTime(0, 0))},
        {"Double", "'1.5'", "real 1.5", 1.5},
        {"Memo", "NULL", "null NULL", QVariant()},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.jetType) + " " + c.literal);
        AdoTestDb db;
        db.connection.Execute(QStringLiteral("CREATE TABLE [T] ([v] %1)").arg(QLatin1String(c.jetType)));
        db.connection.Execute(QStringLiteral("INSERT INTO [T] VALUES (%1)").arg(QLatin1String(c.literal)));
        auto rs = db.Open(QStringLiteral("SELECT v, typeof(v) || ' ' || quote(v) FROM T"));
        const QVariant v = rs->Fields(0).Value();
        EXPECT_EQ(v.typeId(), c.expected.typeId()) << v.typeName();
        EXPECT_EQ(v, c.expected);
        EXPECT_EQ(rs->Fields(1).Value().toString(), QLatin1String(c.stored));
    }
}

TEST_F(RulesFixture, MovesStopAtTheEndsAsAdoDoesAndAnEmptySetIsAtBoth)
{
    EXPECT_EQ(rs->RecordCount(), 4);
    rs->MovePrevious();
    EXPECT_TRUE(rs->IsBOF() && !rs->IsEOF());
    EXPECT_THROW(rs->MovePrevious(), AdoError);
    EXPECT_THROW(rs->GetBookmark(), AdoError);
    try {
        Name(*rs);
        FAIL();
    } catch (const AdoError& e) {
        EXPECT_EQ(e.Number(), kErrNoCurrentRecord);
    }
    rs->MoveLast();
    rs->MoveNext();
    EXPECT_TRUE(rs->IsEOF());
    EXPECT_THROW(rs->MoveNext(), AdoError);

    rs->SetBookmark(2);
    for (long bad : {0L, 5L, -1L}) EXPECT_THROW(rs->SetBookmark(bad), AdoError) << bad;
    EXPECT_EQ(rs->GetBookmark(), 2);  // a refused bookmark does not move the cursor

    auto none = db.Open(QStringLiteral("SELECT * From [Rules] WHERE RuleID=99"));
    EXPECT_TRUE(none->IsBOF() && none->IsEOF());
    EXPECT_EQ(none->FieldCount(), 18);
    EXPECT_THROW(none->MoveFirst(), AdoError);
    EXPECT_NO_THROW(none->Find(QStringLiteral("RuleID = 1")));
}

TEST_F(RulesFixture, FindLandsOnTheMatchingRowOrAnEnd)
{
    const long kBof = 0, kEof = 5;
    const struct {
        const char* criteria;
        long from;  // bookmark to stand on
        long skip;
        int direction;
        long found;  // bookmark found, kBof or kEof
    } cases[] = {
        {"RuleName = 'BETA'", 1, 0, adSearchForward, 2},          // text ignores case
        {"RuleName = 'Alpha'", 1, 0, adSearchForward, 1},         // the current row counts
        {"RuleName = 'Gamma O''Hara'", 1, 0, adSearchForward, 3},
        {"[SortID] <> 1", 1, 0, adSearchForward, 2},
        {"RuleName LIKE 'g*'", 1, 0, adSearchForward, 3},
        {"RuleName like '%TA'", 1, 0, adSearchForward, 2},
        {"Subject LIKE '*epor*'", 2, 0, adSearchForward, 4},
        {"SortID > 4", 1, 0, adSearchForward, 3},
        {"SortID >= 4", 1, 0, adSearchForward, 2},
        {"SortID = '9'", 1, 0, adSearchForward, 3},
        {"SortID <= 4", 4, 0, adSearchBackward, 2},
        {"Subject <> 'report'", 1, 0, adSearchForward, 3},        // a null never matches
        {"SortID < 0", 4, 0, adSearchBackward, kBof},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.criteria);
        rs->SetBookmark(c.from);
        rs->Find(QString::fromUtf8(c.criteria), c.skip, c.direction);
        EXPECT_EQ(rs->IsBOF(), c.found == kBof);
        EXPECT_EQ(rs->IsEOF(), c.found == kEof);
        if (c.found != kBof && c.found != kEof) {
            EXPECT_EQ(rs->GetBookmark(), c.found);
        }
    }

    // After the last match: EOF, and a bookmark restores the row.
    rs->MoveLast();
    const auto mark = rs->GetBookmark();
    rs->Find(QStringLiteral("Active = -1"), 1, adSearchForward);
    ASSERT_TRUE(rs->IsEOF());
    rs->SetBookmark(mark);
    EXPECT_EQ(Name(*rs), QStringLiteral("delta"));
    rs->Find(QStringLiteral("Active = -1"), 0, adSearchForward, 1);  // from a start bookmark
    EXPECT_EQ(rs->GetBookmark(), 1);
}

TEST_F(RulesFixture, BadCriteriaAreRefusedWithoutMoving)
{
    for (const char* bad : {"RuleName", "RuleName = ", "RuleName = 'abc", "RuleName = 'a' AND SortID = 2",
                            "RuleName == 'a'", "NoSuchColumn = 1", "SortID = four", "SortID LIKE 4",
                            "Created < #yesterday#", ""}) {
        rs->SetBookmark(2);
        EXPECT_THROW(rs->Find(QString::fromUtf8(bad)), AdoError) << bad;
        EXPECT_EQ(rs->GetBookmark(), 2);
    }
    // At an end there is no row to start from.
    rs->MoveLast();
    rs->MoveNext();
    EXPECT_THROW(rs->Find(QStringLiteral("SortID = 1")), AdoError);
}

TEST_F(RulesFixture, ArbitraryCriteriaFindOrFailCleanly)
{
    const QStringList pieces = {"RuleName", "[SortID]", "[Sort", "=", "<>", "<", ">=", "LIKE", "like", "'a*'",
                                "'", "''", "'O''Hara'", "#2024-01-01#", "#", "12", "-3.5", "*", "%", " ", "AND"};
    std::mt19937 random(7);
    for (int i = 0; i < 2000; ++i) {
        QString criteria;
        const int n = int(random() % 6);
        for (int k = 0; k < n; ++k) criteria += pieces[int(random() % pieces.size())];
        rs->MoveFirst();
        try {
            rs->Find(criteria, long(random() % 3), random() % 2 ? adSearchForward : adSearchBackward);
        } catch (const AdoError&) {
        }
    }
}

// By the key of a single table, by a joined table's key, or without a key by
// position; a deleted row keeps its old values.
TEST_F(RulesFixture, ResyncRereadsByKeyOrPosition)
{
    auto join = db.Open(QStringLiteral("SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where "
                                       "Rules.MsgAgeID = MsgAge.MsgAgeID ORDER BY Rules.SortID;"));
    db.connection.Execute(QStringLiteral("CREATE TABLE [Settings] ([version] Text(10), [toolbar] Integer)"));
    db.connection.Execute(QStringLiteral("INSERT INTO [Settings] VALUES ('1.5.0', 0)"));
    auto settings = db.Open(QStringLiteral("SELECT * From Settings"));
    Connection other;
    other.Open(JetConnectionString(db.path));
    for (const char* sql : {"UPDATE [Rules] SET RuleName='Renamed', SortID=100 WHERE RuleID=1",
                            "UPDATE [Rules] SET RuleName='Changed' WHERE RuleID=2",
                            "DELETE FROM [Rules] WHERE RuleID=4", "UPDATE [MsgAge] SET timeField='h' WHERE MsgAgeID=14",
                            "UPDATE [settings] SET version='1.8.0'"})
        other.Execute(QString::fromLatin1(sql), adExecuteNoRecords);

    rs->Resync(adAffectCurrent, adResyncAllValues);
    EXPECT_EQ(Name(*rs), QStringLiteral("Renamed"));
    rs->MoveNext();
    EXPECT_EQ(Name(*rs), QStringLiteral("beta"));  // only the current row
    rs->Resync(adAffectAll);
    EXPECT_EQ(Name(*rs), QStringLiteral("Changed"));
    rs->MoveLast();
    EXPECT_EQ(Name(*rs), QStringLiteral("delta"));
    EXPECT_EQ(rs->RecordCount(), 4);

    join->SetBookmark(2);
    join->Resync(adAffectCurrent);
    EXPECT_EQ(join->Value(QStringLiteral("timeField")).toString(), QStringLiteral("h"));
    join->SetBookmark(1);
    EXPECT_EQ(join->Value(QStringLiteral("SortID")).toInt(), 1);
    join->Resync(adAffectAll);
    // The row stays where it was; its values are those of the same rule.
    EXPECT_EQ(Name(*join), QStringLiteral("Renamed"));
    EXPECT_EQ(join->Value(QStringLiteral("SortID")).toInt(), 100);

    settings->Resync(adAffectCurrent);
    EXPECT_EQ(settings->Value(QStringLiteral("Version")).toString(), QStringLiteral("1.8.0"));
}

TEST_F(RulesFixture, ResyncWithoutALiveConnectionForeignFormatsAndAClosedRecordsetAreRefused)
{
    std::unique_ptr<Recordset> orphan;
    {
        Connection other;
        other.Open(JetConnectionString(db.path));
        orphan = other.Execute(QStringLiteral("SELECT * From Rules"));
        other.Close();
        EXPECT_THROW(orphan->Resync(adAffectCurrent), AdoError);  // closed
    }
    EXPECT_THROW(orphan->Resync(adAffectCurrent), AdoError);  // destroyed
    EXPECT_EQ(Name(*orphan), QStringLiteral("Alpha"));       // rows stay readable
    // Nor has a saved file one; saving and opening run through the add-in's
    // rule export and import in tests/store.
    const QString path = db.dir.filePath(QStringLiteral("rules.xml"));
    rs->Save(path, adPersistXML);
    Recordset file;
    file.OpenFile(path);
    EXPECT_THROW(file.Resync(adAffectCurrent), AdoError);

    EXPECT_THROW(rs->Save(db.dir.filePath(QStringLiteral("x.adtg")), adPersistADTG), AdoError);
    Recordset other;
    EXPECT_THROW(other.OpenFile(path, QStringLiteral("Provider=Other")), AdoError);
    rs->Close();
    EXPECT_EQ(rs->State(), adStateClosed);
    EXPECT_THROW(rs->RecordCount(), AdoError);
    EXPECT_THROW(rs->MoveFirst(), AdoError);
    EXPECT_NO_THROW(rs->Close());
    // A statement without rows leaves the recordset closed, as ADO does.
    Recordset none;
    none.Open(QStringLiteral("UPDATE [Rules] SET LastVerb=0"), db.connection);
    EXPECT_EQ(none.State(), adStateClosed);
}

}  // namespace
}  // namespace mv::ado::test
