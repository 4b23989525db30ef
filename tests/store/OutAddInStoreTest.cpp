// The add-in's own use of the rule store: settings, rule order and the
// default rule, export and import of rules, and the start-up placement of
// the database file.

#include "StoreFixture.h"

#include "addin/OutAddIn.h"
#include "platform/os/Clock.h"
#include "platform/outlook/Folder.h"

#include <QDir>
#include <QFile>

namespace mv::test {
namespace {

class FakeFolder : public outlook::Folder {
public:
    FakeFolder(QString entry, QString store, QString name)
        : m_entry(std::move(entry)), m_store(std::move(store)), m_name(std::move(name)) {}
    QString EntryID() const override { return m_entry; }
    QString StoreID() const override { return m_store; }
    QString Name() const override { return m_name; }

private:
    QString m_entry, m_store, m_name;
};

class AddInStoreTest : public StoreTest {
protected:
    void Start(const QString& fixture)
    {
        m_path = CopyDatabase(fixture);
        m_addIn = std::make_unique<addin::OutAddIn>(m_report, nullptr, m_progIds, m_clock, m_dir.path());
        ASSERT_TRUE(m_addIn->OpenDatabases(m_path));
        ASSERT_TRUE(Reports().isEmpty()) << Reports().join(u'\n').toStdString();
    }
    QString RuleCount() const { return Query(m_path, QStringLiteral("SELECT count(*) FROM Rules")); }

    os::FakeClock m_clock;
    QString m_path;
    std::unique_ptr<addin::OutAddIn> m_addIn;
};

// --- Settings ----------------------------------------------------------------

TEST_F(AddInStoreTest, LoadThenSaveWritesEverySettingAndMarksInit)
{
    Start(QStringLiteral("template"));
    const auto& a = *m_addIn;
    EXPECT_EQ((std::vector<int>{a.WeekStart(), a.Toolbar(), a.Menubar(), a.RunOnStart(), a.tbTop, a.tbLeft, a.tbRow,
                                a.tbPos, a.init, a.StatusPops(), a.AlignTime()}),
              (std::vector<int>{2, 1, 1, 0, 0, 0, 0, 1, 0, 1, 1}))
        << "the template's values load";
    // The options dialog's tests cover the other settings through SaveSettings.
    m_addIn->SetWeekStart(6);
    m_addIn->tbTop = 12;
    m_addIn->tbLeft = -3;
    m_addIn->tbRow = 2;
    m_addIn->tbPos = 4;
    EXPECT_TRUE(m_addIn->SaveSettings());
    EXPECT_EQ(m_addIn->init, 1);
    EXPECT_EQ(Query(m_path, QStringLiteral("SELECT WeekStart, toolbar, menubar, runOnStart, tbTop, tbLeft, tbRow, "
                                           "tbPos, init, statusPopups, alignTime, version, raMsgAge FROM Settings")),
              QStringLiteral("6|1|1|0|12|-3|2|4|1|1|1|1.8.0|1"));
}

TEST_F(AddInStoreTest, PropertyChangeWithoutSaveLeavesTheFileAlone)
{
    Start(QStringLiteral("template"));
    m_addIn->CloseDatabases();
    const QByteArray before = FileBytes(m_path);
    ASSERT_TRUE(m_addIn->OpenDatabases(m_path));
    m_addIn->SetToolbar(0);
    m_addIn->SetWeekStart(7);
    m_addIn->tbTop = 99;
    m_addIn->CloseDatabases();
    EXPECT_EQ(FileBytes(m_path), before);
}

TEST_F(AddInStoreTest, BadValueStopsLoadingButKeepsWhatWasRead)
{
    Start(QStringLiteral("template"));
    ASSERT_TRUE(m_addIn->DB1()->ExecuteSQL(
        QStringLiteral("UPDATE [Settings] SET WeekStart=5, toolbar=0, tbRow=NULL, init=1, statusPopups=0")));
    m_addIn->LoadSettings();
    EXPECT_EQ(m_addIn->WeekStart(), 5);
    EXPECT_EQ(m_addIn->Toolbar(), 0);
    EXPECT_EQ(m_addIn->init, 0) << "fields after the null are not read";
    EXPECT_EQ(m_addIn->StatusPops(), 1);
    EXPECT_EQ(Reports(), QStringList{os::ErrorReport::ProcedureErrorText(
                             94, QStringLiteral("Invalid use of Null"),
                             QStringLiteral("LoadSettings of Class Module OutAddIn"))});
}

// --- Rule order and the default rule ---------------------------------------------

TEST_F(AddInStoreTest, MaxSortIdByContents)
{
    struct Case {
        const char* name;
        std::vector<int> sortIds;
        int expected;
        bool reported;
    } const cases[] = {
        {"empty table", {}, 0, false},
        {"gaps are not filled", {1, 4, 9}, 9, false},
        {"negative only", {-5}, -5, false},
        {"the largest 16-bit value", {32767}, 32767, false},
        {"beyond 16 bits overflows", {40000}, 0, true},
    };
    Start(QStringLiteral("template"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        m_answerer.clear();
        ASSERT_TRUE(m_addIn->DB1()->ExecuteSQL(QStringLiteral("DELETE FROM [Rules]")));
        for (int s : c.sortIds)
            ASSERT_TRUE(m_addIn->DB1()->ExecuteSQL(
                QStringLiteral("INSERT INTO [Rules] ([RuleName], [SortID]) VALUES ('r', %1)").arg(s)));
        EXPECT_EQ(m_addIn->GetMaxSortID(), c.expected);
        EXPECT_EQ(Reports().size(), c.reported ? 1 : 0);
    }
}

TEST_F(AddInStoreTest, DefaultRuleGoesToTheEndWithFixedCriteria)
{
    Start(QStringLiteral("v150"));  // SortIDs 1, 4, 9
    const FakeFolder inbox(QStringLiteral("00AA01"), QStringLiteral("00BB01"), QStringLiteral("Inbox"));
    const FakeFolder archive(QStringLiteral("00AA09"), QStringLiteral("00BB02"), QStringLiteral("Archive"));
    ASSERT_TRUE(m_addIn->CreateDefaultRule(QStringLiteral("Tom's rule"), &inbox, &archive, 14, 2));
    const auto id = m_addIn->DB1()->NewID();
    EXPECT_EQ(Query(m_path, QStringLiteral("SELECT * FROM Rules WHERE RuleID = %1").arg(id)),
              QStringLiteral("%1|Tom's rule|||||3|1|2|14|00AA01|00BB01|00AA09|00BB02|0|10|0|").arg(id));
    EXPECT_TRUE(Reports().isEmpty());
}

TEST_F(AddInStoreTest, DefaultRuleThatCannotBePlacedInsertsNothing)
{
    Start(QStringLiteral("template"));
    const FakeFolder f(QStringLiteral("01"), QStringLiteral("02"), QStringLiteral("F"));
    EXPECT_FALSE(m_addIn->CreateDefaultRule(QStringLiteral("no destination"), &f, nullptr, 13, 0));
    EXPECT_EQ(RuleCount(), QStringLiteral("0"));
    EXPECT_EQ(Reports().size(), 1);

    m_answerer.clear();
    ASSERT_TRUE(m_addIn->DB1()->ExecuteSQL(QStringLiteral("INSERT INTO [Rules] ([RuleName], [SortID]) VALUES ('last', 32767)")));
    EXPECT_FALSE(m_addIn->CreateDefaultRule(QStringLiteral("one too many"), &f, &f, 13, 0));
    EXPECT_EQ(RuleCount(), QStringLiteral("1"));
    EXPECT_EQ(Reports(), QStringList{os::ErrorReport::ProcedureErrorText(
                             6, QStringLiteral("Overflow"), QStringLiteral("CreateDefaultRule of Class Module OutAddIn"))});
}

// --- Export and import ------------------------------------------------------------

const QString kRuleFields = QStringLiteral(
    "RuleName, FromAddress, ToAddress, CcAddress, Subject, Importance, Status, FlagStatus, MsgAgeID, SrcEntryID, "
    "SrcStoreID, DstEntryID, DstStoreID, Active, SortID, LastVerb, Message");

TEST_F(AddInStoreTest, ExportThenImportDoublesEveryRuleFieldByField)
{
    Start(QStringLiteral("v150"));
    const QString before = Query(m_path, QStringLiteral("SELECT %1 FROM Rules ORDER BY RuleID").arg(kRuleFields));
    const QString file = TempPath(QStringLiteral("rules.xml"));
    ASSERT_TRUE(m_addIn->ExportRulesTo(QStringLiteral("  ") + file + QStringLiteral(" ")));
    ASSERT_TRUE(m_addIn->ImportRulesFrom(file));
    EXPECT_EQ(Reports(), (QStringList{QStringLiteral("Rules Exported Successfully"),
                                      QStringLiteral("Rules Imported Successfully")}));
    EXPECT_EQ(Query(m_path, QStringLiteral("SELECT %1 FROM Rules WHERE RuleID > 3 ORDER BY RuleID").arg(kRuleFields)),
              before);
    EXPECT_EQ(Query(m_path, QStringLiteral("SELECT group_concat(RuleID) FROM Rules")), QStringLiteral("1,2,3,4,5,6"));
}

TEST_F(AddInStoreTest, EmptyExportImportsNothingAndSucceeds)
{
    Start(QStringLiteral("template"));
    const QString file = TempPath(QStringLiteral("empty.xml"));
    ASSERT_TRUE(m_addIn->ExportRulesTo(file));
    EXPECT_TRUE(FileBytes(file).contains("s:AttributeType"));
    EXPECT_TRUE(m_addIn->ImportRulesFrom(file));
    EXPECT_EQ(RuleCount(), QStringLiteral("0"));
}

// A file in ADO's layout naming `columns` in this order, with `rows` as
// given or else one rule whose text columns hold their own name, numbers 1.
QByteArray RulesFile(const QStringList& columns, const QByteArray& rows = {})
{
    const QStringList numbers = {"RuleID", "Importance", "Status", "FlagStatus", "MsgAgeID", "Active", "SortID", "LastVerb"};
    QByteArray xml = "<xml xmlns:s='uuid:BDC6E3F0-6DA3-11d1-A2A3-00AA00C14882'\n"
                     "\txmlns:dt='uuid:C2F41010-65B3-11d1-A29F-00AA00C14882'\n"
                     "\txmlns:rs='urn:schemas-microsoft-com:rowset'\n\txmlns:z='#RowsetSchema'>\n"
                     "<s:Schema id='RowsetSchema'>\n\t<s:ElementType name='row' content='eltOnly'>\n";
    QByteArray row = "\t<z:row";
    int number = 0;
    for (const QString& c : columns) {
        const bool isNumber = numbers.contains(c);
        xml += "\t\t<s:AttributeType name='" + c.toUtf8() + "' rs:number='" + QByteArray::number(++number) +
               "' rs:nullable='true'>\n\t\t\t<s:datatype " +
               (isNumber ? "dt:type='i2' dt:maxLength='2'" : "dt:type='string' dt:maxLength='536870910' rs:long='true'") +
               "/>\n\t\t</s:AttributeType>\n";
        row += " " + c.toUtf8() + "='" + (isNumber ? QByteArray("1") : c.toUtf8()) + "'";
    }
    return xml + "\t\t<s:extends type='rs:rowbase'/>\n\t</s:ElementType>\n</s:Schema>\n<rs:data>\n" +
           (rows.isEmpty() ? row + "/>\n" : rows) + "</rs:data>\n</xml>\n";
}

const QStringList kTableColumns = (QStringLiteral("RuleID, ") + kRuleFields).split(QStringLiteral(", "));

// Rows as ADO writes them, by hand: both quote styles, character references,
// attributes in another order, a CR LF in a memo and nulls left out.
TEST_F(AddInStoreTest, HandWrittenFileInAdoLayoutImports)
{
    Start(QStringLiteral("template"));
    const QString file = TempPath(QStringLiteral("hand.xml"));
    WriteBytes(file, RulesFile(kTableColumns, R"(	<z:row RuleID='7' RuleName="Tom O'Neil &amp; Co" FromAddress='tom@example.com;&#x22;Tom&#x22; &lt;t@x.y&gt;' ToAddress=''
		 CcAddress='' Subject='"quarterly report" Grüße' Importance='2' Status='0' FlagStatus='2'
		 MsgAgeID='14' SrcEntryID='0000AA' SrcStoreID='0000BB' DstEntryID='0000CC' DstStoreID='0000BB' Active='-1'
		 SortID='3'/>
	<z:row SortID='5' Active='0' RuleID='8' RuleName='日本語のルール' FromAddress='' ToAddress='' CcAddress='' Subject=''
		 Importance='3' Status='2' FlagStatus='0' MsgAgeID='13' SrcEntryID='01' SrcStoreID='02' DstEntryID='03'
		 DstStoreID='02' LastVerb='104' Message='first line&#xD;&#xA;second line'/>
)"));
    ASSERT_TRUE(m_addIn->ImportRulesFrom(file)) << Reports().join(u'\n').toStdString();
    EXPECT_EQ(Query(m_path, QStringLiteral("SELECT %1 FROM Rules ORDER BY RuleID").arg(kRuleFields)),
              QStringLiteral("Tom O'Neil & Co|tom@example.com;\"Tom\" <t@x.y>|||\"quarterly report\" Grüße|2|0|2|14|"
                             "0000AA|0000BB|0000CC|0000BB|-1|3|NULL|\n"
                             "日本語のルール|||||3|2|0|13|01|02|03|02|0|5|104|first line\r\nsecond line"));
}

TEST_F(AddInStoreTest, FileWhoseColumnsAreNotTheTablesIsRefusedBeforeAnyInsert)
{
    const QStringList& table = kTableColumns;
    QStringList swapped = table, withoutSubject = table, withoutMessage = table, extra = table;
    swapped.swapItemsAt(table.indexOf("SrcEntryID"), table.indexOf("DstEntryID"));
    withoutSubject.removeOne("Subject");
    withoutMessage.removeLast();
    extra << "Notes";
    const struct {
        const char* name;
        QStringList columns;
        const char* mismatch;  // empty: the file imports
    } cases[] = {
        {"the table's columns", table, ""},
        {"source and destination swapped", swapped, R"(column 11 should be "SrcEntryID" but is "DstEntryID")"},
        {"a column missing", withoutSubject, R"(column 6 should be "Subject" but is "Importance")"},
        {"the last column missing", withoutMessage, R"(column 18 should be "Message" but the file has only 17 columns)"},
        {"an extra column", extra, R"(column 19 is "Notes" but the table has only 18 columns)"},
    };
    Start(QStringLiteral("v150"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        m_answerer.clear();
        const QString file = TempPath(QStringLiteral("%1.xml").arg(QLatin1String(c.name)));
        WriteBytes(file, RulesFile(c.columns));
        const bool imported = m_addIn->ImportRulesFrom(file);
        if (*c.mismatch == 0) {
            EXPECT_TRUE(imported) << Reports().join(u'\n').toStdString();
            EXPECT_EQ(Query(m_path, QStringLiteral("SELECT RuleName, SrcEntryID, DstEntryID, Message FROM Rules "
                                                   "WHERE RuleID > 3")),
                      QStringLiteral("RuleName|SrcEntryID|DstEntryID|Message"));
            ASSERT_TRUE(m_addIn->DB1()->ExecuteSQL(QStringLiteral("DELETE FROM Rules WHERE RuleID > 3")));
            continue;
        }
        EXPECT_FALSE(imported);
        EXPECT_EQ(RuleCount(), QStringLiteral("3"));
        EXPECT_EQ(Reports(), QStringList{os::ErrorReport::ProcedureErrorText(
                                 ado::kErrProviderGeneric,
                                 QStringLiteral("The file's columns are not those of the Rules table: %1. "
                                                "Nothing was imported.")
                                     .arg(QString::fromUtf8(c.mismatch)),
                                 QStringLiteral("Import of Class Module cDB"))});
    }
}

TEST_F(AddInStoreTest, BrokenFilesFailAndInsertNothing)
{
    Start(QStringLiteral("v150"));
    const QString good = TempPath(QStringLiteral("good.xml"));
    ASSERT_TRUE(m_addIn->ExportRulesTo(good));
    const QByteArray xml = FileBytes(good);
    struct Case {
        const char* name;
        QByteArray bytes;
    } const cases[] = {
        {"truncated in the rows", xml.left(xml.size() - 60)},
        {"truncated in the schema", xml.left(xml.indexOf("rs:data") / 2)},
        {"not XML", QByteArray("RuleName,FromAddress\nnews,a@b.c\n")},
        {"XML but no rowset", QByteArray("<?xml version='1.0'?><rules><rule name='x'/></rules>")},
        {"empty file", QByteArray()},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        m_answerer.clear();
        const QString file = TempPath(QStringLiteral("broken.xml"));
        WriteBytes(file, c.bytes);
        EXPECT_FALSE(m_addIn->ImportRulesFrom(file));
        EXPECT_EQ(RuleCount(), QStringLiteral("3"));
        ASSERT_EQ(Reports().size(), 1);
        EXPECT_TRUE(Reports().first().endsWith(QLatin1String("in procedure Import of Class Module cDB")));
        EXPECT_EQ(FileBytes(file), c.bytes) << "the file is only read";
    }
    m_answerer.clear();
    EXPECT_FALSE(m_addIn->ImportRulesFrom(TempPath(QStringLiteral("missing.xml"))));
    EXPECT_EQ(Reports().size(), 1);
}

TEST_F(AddInStoreTest, RowThatCannotBeInsertedStopsTheImportKeepingEarlierRows)
{
    Start(QStringLiteral("v150"));
    const QString file = TempPath(QStringLiteral("rules.xml"));
    ASSERT_TRUE(m_addIn->ExportRulesTo(file));
    // A unique index makes the second imported row collide with a rule there.
    ASSERT_TRUE(m_addIn->DB1()->ExecuteSQL(QStringLiteral("CREATE UNIQUE INDEX ux ON Rules (SortID)")));
    ASSERT_TRUE(m_addIn->DB1()->ExecuteSQL(QStringLiteral("UPDATE [Rules] SET SortID = SortID + 100 WHERE SortID = 1")));
    m_answerer.clear();
    EXPECT_FALSE(m_addIn->ImportRulesFrom(file));
    EXPECT_EQ(RuleCount(), QStringLiteral("4"));
    ASSERT_EQ(Reports().size(), 2);
    EXPECT_TRUE(Reports().at(0).endsWith(QLatin1String("in procedure ExecuteSQL, Contact Sorquin Support")));
    EXPECT_EQ(Reports().at(1), QStringLiteral("There was a problem importing the data.\n\n"
                                              "If this problem persists, please contact Sorquin support."));
    EXPECT_EQ(m_answerer.shown().at(1).style, os::vbExclamation);
}

// --- Placing the database at start-up ------------------------------------------------

TEST_F(AddInStoreTest, PlaceDatabaseNeverReplacesAnExistingFile)
{
    const QString install = TempPath(QStringLiteral("install"));
    const QString data = TempPath(QStringLiteral("data"));
    ASSERT_TRUE(QDir().mkpath(install + QStringLiteral("/Database")));
    ASSERT_TRUE(QDir().mkpath(data));
    ASSERT_TRUE(QFile::copy(BuiltDatabase(QStringLiteral("template")), install + QStringLiteral("/Database/_mvblank.mdb")));

    ASSERT_TRUE(addin::OutAddIn::PlaceDatabase(data, install));
    EXPECT_EQ(FileBytes(data + QStringLiteral("/mv.mdb")), FileBytes(BuiltDatabase(QStringLiteral("template"))));

    // An old database beside the program wins over the template, once.
    QFile::remove(data + QStringLiteral("/mv.mdb"));
    ASSERT_TRUE(QFile::copy(BuiltDatabase(QStringLiteral("v140")), install + QStringLiteral("/mv.mdb")));
    ASSERT_TRUE(addin::OutAddIn::PlaceDatabase(data, install));
    const QByteArray placed = FileBytes(data + QStringLiteral("/mv.mdb"));
    EXPECT_EQ(placed, FileBytes(BuiltDatabase(QStringLiteral("v140"))));
    QFile::remove(install + QStringLiteral("/mv.mdb"));
    ASSERT_TRUE(addin::OutAddIn::PlaceDatabase(data, install));
    EXPECT_EQ(FileBytes(data + QStringLiteral("/mv.mdb")), placed);

    EXPECT_FALSE(addin::OutAddIn::PlaceDatabase(TempPath(QStringLiteral("empty")), TempPath(QStringLiteral("nowhere"))));
}

TEST_F(AddInStoreTest, FailedConnectionShowsItsBoxAndKeepsBuiltInSettings)
{
    addin::OutAddIn addIn(m_report, nullptr, m_progIds, m_clock, m_dir.path());
    EXPECT_FALSE(addIn.OpenDatabases(TempPath(QStringLiteral("absent.mdb"))));
    EXPECT_EQ(Reports(), (QStringList{QStringLiteral("Connection 1 to Mailvane Database failed!\r\nPlease conatct Sorquin Support"),
                                      QStringLiteral("Connection 2 to Mailvane Database failed!\r\nPlease conatct Sorquin Support")}));
    EXPECT_EQ(m_answerer.shown().at(0).style, os::vbCritical);
    EXPECT_EQ(addIn.Toolbar(), 1);
    EXPECT_EQ(addIn.GetMaxSortID(), 0);
    EXPECT_FALSE(QFile::exists(TempPath(QStringLiteral("absent.mdb"))));
}

}  // namespace
}  // namespace mv::test
