// cDB on real SQLite files: apostrophes, connection strings, identities,
// closed connections, cursor moves and searches, export, and the failure of
// each ADO object creation in turn. Bad and locked files are refused by the
// provider (tests/ado), which cDB only passes on.

#include "StoreFixture.h"

namespace mv::test {
namespace {

using store::cDB;

TEST(ConnectionStringTest, KindsBuildTheirExactText)
{
    struct Case {
        int kind;
        const char* path;
        const char* user;
        const char* password;
        const char* dir;
        const char* expected;
    } const cases[] = {
        {4, "C:\\x\\mv.mdb", "admin", "", "",
         "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=C:\\x\\mv.mdb;Jet OLEDB:Database Password=;"
         "Jet OLEDB:Engine Type=5;"},
        {4, "  /home/u/mv.mdb  ", "admin", "secret", "/opt",
         "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=/home/u/mv.mdb;Jet OLEDB:Database Password=;"
         "Jet OLEDB:Engine Type=5;"},
        {3, " /d/mv.mdb ", " admin ", "pw", " /opt/mv/ ",
         "Driver={Microsoft Access Driver (*.mdb)};DBQ=/d/mv.mdb;DefaultDir=/opt/mv/;UID=admin;PWD=;pw"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(cDB::BuildConnectionString(c.kind, QString::fromUtf8(c.path), QString::fromUtf8(c.user),
                                             QString::fromUtf8(c.password), QString::fromUtf8(c.dir)),
                  QString::fromUtf8(c.expected))
            << "kind " << c.kind << " path " << c.path;
}

class CDbTest : public StoreTest {};

TEST_F(CDbTest, ApostropheDoublesEveryQuoteInPlace)
{
    cDB db(m_progIds, m_report, QString());
    for (const auto& [in, out] : std::initializer_list<std::pair<const char*, const char*>>{
             {"O'Brien's", "O''Brien''s"}, {"plain", "plain"}, {"''", "''''"}, {"", ""},
             {"Zoë's café", "Zoë''s café"}}) {
        QString text = QString::fromUtf8(in);
        EXPECT_EQ(db.Apostrophe(text), QString::fromUtf8(out)) << in;
        EXPECT_EQ(text, QString::fromUtf8(out)) << "the argument is rewritten as well";
    }
}


TEST_F(CDbTest, InitDbDefaultsTheDirectoryAndFailsOnAnUnknownKind)
{
    cDB odbc(m_progIds, m_report, QStringLiteral("/opt/mailvane"));
    (void)odbc.InitDB(TempPath(QStringLiteral("none.mdb")), QStringLiteral("admin"), QString(), QStringLiteral("  "),
                      store::kConnectOdbc);
    EXPECT_TRUE(odbc.ConnectionString().contains(QLatin1String(";DefaultDir=/opt/mailvane/;")));

    cDB other(m_progIds, m_report, m_dir.path());
    EXPECT_FALSE(other.InitDB(CopyDatabase(QStringLiteral("template")), QStringLiteral("admin"), QString(), QString(), 7));
    EXPECT_TRUE(other.ConnectionString().isEmpty());
    EXPECT_TRUE(Reports().isEmpty()) << "InitDB leaves the message to its caller";
}

TEST_F(CDbTest, NewIdFollowsPreparedInsertsOnlyAndAClosedConnectionReopensOnlyForCreateRs)
{
    const QString path = CopyDatabase(QStringLiteral("v140"));
    auto db = Open(path);
    EXPECT_EQ(db->NewID(), 0);

    ASSERT_TRUE(db->ExecuteSQL(QStringLiteral("INSERT INTO [Rules] ([RuleName], [SortID]) VALUES ('plain', 20)")));
    EXPECT_EQ(db->NewID(), 0) << "a text insert leaves the identity alone";

    auto cmd = Prepared(QStringLiteral("INSERT INTO [Rules] ([RuleName], [SortID]) VALUES (?, ?)"),
                        {QStringLiteral("prepared"), 21});
    ASSERT_TRUE(db->ExecuteSQL(QString(), cmd.get()));
    EXPECT_EQ(QString::number(db->NewID()),
              Query(path, QStringLiteral("SELECT RuleID FROM Rules WHERE RuleName = 'prepared'")));

    const auto id = db->NewID();
    ASSERT_TRUE(db->ExecuteSQL(QStringLiteral("INSERT INTO [Rules] ([RuleName]) VALUES ('later')")));
    EXPECT_EQ(db->NewID(), id);
    EXPECT_TRUE(Reports().isEmpty()) << Reports().join(u'\n').toStdString();

    db->Connection()->Close();
    EXPECT_FALSE(db->ExecuteSQL(QStringLiteral("DELETE FROM [Rules]")));
    EXPECT_EQ(db->LastErrorNumber(), store::kErrDb1001);
    EXPECT_EQ(Reports(), QStringList{os::ErrorReport::ProcedureErrorText(
                             store::kErrDb1001, QStringLiteral("Database connection is closed"),
                             QStringLiteral("ExecuteSQL, Contact Sorquin Support"))});
    std::unique_ptr<ado::Recordset> rs;
    ASSERT_TRUE(db->CreateRS(rs, QStringLiteral("SELECT * From Rules")));
    EXPECT_EQ(db->Connection()->State(), ado::adStateOpen);
    EXPECT_EQ(rs->RecordCount(), 6);
}

class CursorTest : public StoreTest {
protected:
    void SetUp() override
    {
        m_path = CopyDatabase(QStringLiteral("v140"));  // SortIDs 1, 4, 9; Active -1, 0, -1
        m_db = Open(m_path);
        ASSERT_TRUE(m_db->CreateRS(m_rs, QStringLiteral("SELECT * From Rules ORDER By SortID")));
    }
    int Sort() const { return m_rs->Value(QStringLiteral("SortID")).toInt(); }

    QString m_path;
    std::unique_ptr<cDB> m_db;
    std::unique_ptr<ado::Recordset> m_rs;
};

TEST_F(CursorTest, FindDbByDirectionAndRecordCount)
{
    struct Case {
        const char* name;
        int startSort;  // row to stand on first
        int direction;
        const char* criteria;
        bool found;
        int endSort;
    } const cases[] = {
        {"first match from the top", 9, store::dbFirst, "Active = -1", true, 1},
        {"last match from the bottom", 1, store::dbLast, "Active = -1", true, 9},
        {"next skips the current row", 1, store::dbNext, "Active = -1", true, 9},
        {"previous skips the current row", 9, store::dbPrevious, "Active = -1", true, 1},
        {"next on the last row restores it", 9, store::dbNext, "SortID > 0", false, 9},
        {"no match anywhere restores the row", 4, store::dbFirst, "SortID = 77", false, 4},
        {"unknown direction does nothing", 4, 9, "SortID = 1", true, 4},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        m_rs->MoveFirst();
        while (Sort() != c.startSort) m_rs->MoveNext();
        EXPECT_EQ(m_db->FindDB(c.direction, QString::fromUtf8(c.criteria), *m_rs), c.found);
        ASSERT_FALSE(m_rs->IsEOF() || m_rs->IsBOF());
        EXPECT_EQ(Sort(), c.endSort);
        EXPECT_EQ(m_db->RecordCount(*m_rs), 3);
        EXPECT_EQ(Sort(), c.endSort) << "counting keeps the position";
    }
}

TEST_F(CursorTest, MoveDbStopsOnTheEndRowsAndResyncs)
{
    ASSERT_TRUE(m_db->MoveDB(store::dbLast, *m_rs));
    EXPECT_FALSE(m_db->MoveDB(store::dbNext, *m_rs));
    EXPECT_FALSE(m_rs->IsEOF());
    EXPECT_EQ(Sort(), 9);

    ASSERT_TRUE(m_db->MoveDB(store::dbFirst, *m_rs));
    EXPECT_FALSE(m_db->MoveDB(store::dbPrevious, *m_rs));
    EXPECT_FALSE(m_rs->IsBOF());
    EXPECT_EQ(Sort(), 1);

    ASSERT_TRUE(m_db->MoveDB(store::dbNext, *m_rs));
    EXPECT_EQ(Sort(), 4);
    EXPECT_TRUE(m_db->MoveDB(42, *m_rs));
    EXPECT_EQ(Sort(), 4);

    // A change made behind the recordset's back shows after the next move.
    ASSERT_TRUE(m_db->ExecuteSQL(QStringLiteral("UPDATE [Rules] SET RuleName='renamed' WHERE SortID=1")));
    ASSERT_TRUE(m_db->MoveDB(store::dbFirst, *m_rs));
    EXPECT_EQ(m_rs->Value(QStringLiteral("RuleName")).toString(), QStringLiteral("renamed"));
}

TEST_F(CDbTest, ExportReplacesAnExistingFileButKeepsItWhenTheQueryFails)
{
    auto db = Open(CopyDatabase(QStringLiteral("v140")));
    const QString out = TempPath(QStringLiteral("rules.xml"));
    WriteBytes(out, "old contents that are much longer than nothing at all");
    ASSERT_TRUE(db->Export(QStringLiteral("Select * from Rules"), out));
    const QByteArray written = FileBytes(out);
    EXPECT_TRUE(written.contains("urn:schemas-microsoft-com:rowset"));
    EXPECT_FALSE(written.contains("old contents"));

    EXPECT_FALSE(db->Export(QStringLiteral("Select * from NoSuchTable"), out));
    EXPECT_EQ(FileBytes(out), written);
    ASSERT_EQ(Reports().size(), 1);
    EXPECT_TRUE(Reports().first().endsWith(QLatin1String("in procedure Export of Class Module cDB")));
}

enum class Op { InitDB, CreateRS, ExecuteSQL, ExecutePrepared, Import, AppendField };

// Makes the registry hand out no object for `progId`.
template <class T>
void Break(ProgIdRegistry& ids, const char* progId)
{
    ids.Register<T>(QString::fromLatin1(progId), [] { return std::unique_ptr<T>(); });
}

TEST_F(CDbTest, FailedObjectCreationGivesTheTabledErrorAndTheDefaultResult)
{
    const char* const kExec = "ExecuteSQL, Contact Sorquin Support";
    const char* const kImport = "Import of Class Module cDB";
    const struct {
        const char* progId;  // "ADODB.Command" fails with "Failed to create Command object."
        void (*brk)(ProgIdRegistry&, const char*);
        Op op;
        long number;
        const char* reportLabel;  // nullptr: the operation only returns its default
    } cases[] = {
        {"ADODB.Connection", Break<ado::Connection>, Op::InitDB, store::kErrDb1000, nullptr},
        {"ADODB.Recordset", Break<ado::Recordset>, Op::CreateRS, store::kErrDb1002, nullptr},
        {"ADODB.Command", Break<ado::Command>, Op::CreateRS, store::kErrDb1003, nullptr},
        {"ADODB.Command", Break<ado::Command>, Op::ExecuteSQL, store::kErrDb1002, kExec},
        {"ADODB.Command", Break<ado::Command>, Op::ExecutePrepared, store::kErrDb1002, kExec},
        {"ADODB.Recordset", Break<ado::Recordset>, Op::Import, store::kErrDb1002, kImport},
        {"ADODB.Command", Break<ado::Command>, Op::Import, store::kErrDb1001, kImport},
        {"ADOX.Catalog", Break<ado::Catalog>, Op::AppendField, store::kErrDb1000, "AppendField"},
        {"ADOX.Table", Break<ado::Table>, Op::AppendField, store::kErrDb1001, "AppendField"},
        {"ADOX.Column", Break<ado::Column>, Op::AppendField, store::kErrDb1002, "AppendField"},
    };
    const QString path = CopyDatabase(QStringLiteral("v140"));
    const auto everything = [&] {
        return Query(path, QStringLiteral("SELECT * FROM Rules")) + Columns(path, QStringLiteral("Rules")) +
               Query(path, QStringLiteral("SELECT * FROM Settings"));
    };
    const QString before = everything();
    // An export to import, made before anything is broken.
    const QString xml = TempPath(QStringLiteral("rules.xml"));
    ASSERT_TRUE(Open(path)->Export(QStringLiteral("Select * from Rules"), xml));

    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.progId) + " op " + std::to_string(int(c.op)));
        store::RegisterAdoProgIds(m_progIds);  // mends what the last case broke
        m_answerer.clear();
        c.brk(m_progIds, c.progId);

        cDB db(m_progIds, m_report, m_dir.path());
        bool result = db.InitDB(path, QStringLiteral("admin"), QString(), QString(), store::kConnectJet);
        ASSERT_TRUE(result || c.op == Op::InitDB);
        std::unique_ptr<ado::Recordset> rs;
        auto cmd = Prepared(QStringLiteral("UPDATE [Rules] SET Active=?"), {0});
        if (c.op == Op::CreateRS) result = db.CreateRS(rs, QStringLiteral("SELECT * From Rules"));
        if (c.op == Op::ExecuteSQL) result = db.ExecuteSQL(QStringLiteral("UPDATE [Rules] SET Active=0"));
        if (c.op == Op::ExecutePrepared) result = db.ExecuteSQL(QString(), cmd.get());
        if (c.op == Op::Import) result = db.Import(xml);
        if (c.op == Op::AppendField)
            result = db.AppendField(QStringLiteral("Rules"), QStringLiteral("Extra"), ado::adLongVarWChar, true);
        EXPECT_FALSE(result);
        EXPECT_EQ(rs, nullptr);
        EXPECT_EQ(db.NewID(), 0);
        const QString description =
            QStringLiteral("Failed to create %1 object.").arg(QString::fromLatin1(c.progId).section(u'.', 1));
        EXPECT_EQ(db.LastErrorNumber(), c.number);
        EXPECT_EQ(db.LastErrorDescription(), description);
        if (c.reportLabel) {
            EXPECT_EQ(Reports(), QStringList{os::ErrorReport::ProcedureErrorText(c.number, description,
                                                                                 QString::fromUtf8(c.reportLabel))});
        } else {
            EXPECT_TRUE(Reports().isEmpty()) << Reports().join(u'\n').toStdString();
        }
        db.KillDB();
        EXPECT_EQ(everything(), before) << "nothing else happened";
    }
}

}  // namespace
}  // namespace mv::test
