// The add-in's own use of the rule store: settings, rule order and the
// default rule, and import of rules (the Rules Manager's tests run the
// export-import round trip; tests/addin the placement of the file).

#include "StoreFixture.h"

#include "addin/OutAddIn.h"
#include "platform/os/Clock.h"
#include "platform/outlook/Folder.h"


namespace mv::test {
namespace {

struct FakeFolder : outlook::Folder {
    FakeFolder(QString e, QString s, QString n) : entry(std::move(e)), store(std::move(s)), name(std::move(n)) {}
    QString EntryID() const override { return entry; }
    QString StoreID() const override { return store; }
    QString Name() const override { return name; }
    QString entry, store, name;
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

TEST_F(AddInStoreTest, LoadThenSaveWritesEverySettingAndMarksInitAndABadValueStopsLoading)
{
    Start(QStringLiteral("template"));
    const QByteArray before = FileBytes(m_path);
    const auto& a = *m_addIn;
    EXPECT_EQ((std::vector<int>{a.WeekStart(), a.Toolbar(), a.Menubar(), a.RunOnStart(), a.tbTop, a.tbLeft, a.tbRow,
                                a.tbPos, a.init, a.StatusPops(), a.AlignTime()}),
              (std::vector<int>{2, 1, 1, 0, 0, 0, 0, 1, 0, 1, 1}))
        << "the template's values load";
    // The options dialog's tests cover the other settings through SaveSettings.
    m_addIn->SetWeekStart(6);
    m_addIn->SetToolbar(0);
    m_addIn->tbTop = 12;
    m_addIn->tbLeft = -3;
    m_addIn->tbRow = 2;
    m_addIn->tbPos = 4;
    EXPECT_EQ(FileBytes(m_path), before) << "a property change alone writes nothing";
    EXPECT_TRUE(m_addIn->SaveSettings());
    EXPECT_EQ(m_addIn->init, 1);
    EXPECT_EQ(Query(m_path, QStringLiteral("SELECT WeekStart, toolbar, menubar, runOnStart, tbTop, tbLeft, tbRow, "
                                           "tbPos, init, statusPopups, alignTime, version, raMsgAge FROM Settings")),
              QStringLiteral("6|0|1|0|12|-3|2|4|1|1|1|1.8.0|1"));

    // A bad value stops loading but keeps what was read.
    ASSERT_TRUE(m_addIn->DB1()->ExecuteSQL(
        QStringLiteral("UPDATE [Settings] SET WeekStart=5, toolbar=1, tbRow=NULL, init=0, statusPopups=0")));
    m_addIn->LoadSettings();
    EXPECT_EQ(m_addIn->WeekStart(), 5);
    EXPECT_EQ(m_addIn->Toolbar(), 1);
    EXPECT_EQ(m_addIn->init, 1) << "fields after the null are not read";
    EXPECT_EQ(m_addIn->StatusPops(), 1);
    EXPECT_EQ(Reports(), QStringList{os::ErrorReport::ProcedureErrorText(
                             94, QStringLiteral("Invalid use of Null"),
                             QStringLiteral("LoadSettings of Class Module OutAddIn"))});
}

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

TEST_F(AddInStoreTest, DefaultRuleGoesToTheEndWithFixedCriteriaOrInsertsNothing)
{
    Start(QStringLiteral("v150"));  // SortIDs 1, 4, 9
    const FakeFolder inbox(QStringLiteral("00AA01"), QStringLiteral("00BB01"), QStringLiteral("Inbox"));
    const FakeFolder archive(QStringLiteral("00AA09"), QStringLiteral("00BB02"), QStringLiteral("Archive"));
    ASSERT_TRUE(m_addIn->CreateDefaultRule(QStringLiteral("Tom's rule"), &inbox, &archive, 14, 2));
    const auto id = m_addIn->DB1()->NewID();
    EXPECT_EQ(Query(m_path, QStringLiteral("SELECT * FROM Rules WHERE RuleID = %1").arg(id)),
              QStringLiteral("%1|Tom's rule|||||3|1|2|14|00AA01|00BB01|00AA09|00BB02|0|10|0|").arg(id));
    EXPECT_TRUE(Reports().isEmpty());

    EXPECT_FALSE(m_addIn->CreateDefaultRule(QStringLiteral("no destination"), &inbox, nullptr, 13, 0));
    EXPECT_EQ(RuleCount(), QStringLiteral("4"));
    EXPECT_EQ(Reports().size(), 1);

    m_answerer.clear();
    ASSERT_TRUE(m_addIn->DB1()->ExecuteSQL(QStringLiteral("INSERT INTO [Rules] ([RuleName], [SortID]) VALUES ('last', 32767)")));
    EXPECT_FALSE(m_addIn->CreateDefaultRule(QStringLiteral("one too many"), &inbox, &archive, 13, 0));
    EXPECT_EQ(RuleCount(), QStringLiteral("5"));
    EXPECT_EQ(Reports(), QStringList{os::ErrorReport::ProcedureErrorText(
                             6, QStringLiteral("Overflow"), QStringLiteral("CreateDefaultRule of Class Module OutAddIn"))});
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

// A file in ADO's layout naming `columns` in this order, with one rule whose
// text columns hold their own name, numbers 1.
QByteArray RulesFile(const QStringList& columns)
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
           row + "/>\n</rs:data>\n</xml>\n";
}

const QStringList kTableColumns = {"RuleID",     "RuleName",   "FromAddress", "ToAddress",  "CcAddress", "Subject",
                                   "Importance", "Status",     "FlagStatus",  "MsgAgeID",   "SrcEntryID", "SrcStoreID",
                                   "DstEntryID", "DstStoreID", "Active",      "SortID",     "LastVerb",  "Message"};

TEST_F(AddInStoreTest, FileWhoseColumnsAreNotTheTablesIsRefusedBeforeAnyInsert)
{
    const QStringList& table = kTableColumns;
    QStringList swapped = table, withoutMessage = table, extra = table;
    swapped.swapItemsAt(table.indexOf("SrcEntryID"), table.indexOf("DstEntryID"));
    withoutMessage.removeLast();
    extra << "Notes";
    const struct {
        const char* name;
        QStringList columns;
        const char* mismatch;
    } cases[] = {
        {"source and destination swapped", swapped, R"(column 11 should be "SrcEntryID" but is "DstEntryID")"},
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
        {"not XML", QByteArray("RuleName,FromAddress\nnews,a@b.c\n")},
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

}  // namespace
}  // namespace mv::test
