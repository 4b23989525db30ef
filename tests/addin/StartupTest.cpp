// Start-up and shut-down over real database files: where the database
// comes from, what a failed connection shows, a host without a window, and
// the application's events.

#include "AddInFixture.h"

#include "addin/frmMain.h"
#include "platform/office/CommandBars.h"

#include <QDir>
#include <QFile>

#include <sqlite3.h>

namespace mv::test {
namespace {

// Tags a database file so a test can tell which one ended up where.
void Mark(const QString& path, const QString& name)
{
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.toUtf8().constData(), &db), SQLITE_OK);
    const QByteArray sql = QStringLiteral("CREATE TABLE IF NOT EXISTS Marker(name TEXT); DELETE FROM Marker;"
                                          "INSERT INTO Marker VALUES('%1');").arg(name).toUtf8();
    EXPECT_EQ(sqlite3_exec(db, sql.constData(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
}

QString MarkerOf(const QString& path)
{
    if (!QFile::exists(path)) return QStringLiteral("(missing)");
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.toUtf8().constData(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return QStringLiteral("(unreadable)");
    }
    QString out = QStringLiteral("template");
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT name FROM Marker", -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW)
        out = QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0)));
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return out;
}

const QString kBox1 = QStringLiteral("Connection 1 to Mailvane Database failed!\r\nPlease conatct Sorquin Support");
const QString kBox2 = QStringLiteral("Connection 2 to Mailvane Database failed!\r\nPlease conatct Sorquin Support");

TEST_F(AddInTest, CleanProfileCreatesFoldersCopiesTemplateAndComesUp)
{
    addin::OutAddIn& addIn = Start();
    EXPECT_TRUE(QFileInfo(DataDir()).isDir());
    EXPECT_EQ(MarkerOf(DataDir() + QStringLiteral("/mv.mdb")), "template");
    EXPECT_TRUE(QFile::exists(DataDir() + QStringLiteral("/mv.log")));
    ASSERT_NE(addIn.DB1(), nullptr);
    ASSERT_NE(addIn.DB2(), nullptr);
    EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(u'|').toStdString();
    EXPECT_EQ(addIn.ProgId(), "Mailvane.Connect");
    EXPECT_EQ(addIn.EntryPoint(), "N/A");
    EXPECT_FALSE(addIn.Unloaded());
    ASSERT_NE(addIn.MainForm(), nullptr);
    EXPECT_TRUE(addIn.MainForm()->tmrCron.isActive());
    EXPECT_NE(addIn.MapiUtils(), nullptr);
    EXPECT_NE(addIn.SafeItem(), nullptr);
    EXPECT_NE(addIn.Runner(), nullptr);
    EXPECT_EQ(Trail(), QStringList{"InitHandler: Adding new Explorer to collection"});
    EXPECT_EQ(addIn.ExplorerKeys(), std::vector<std::int16_t>{0});
    EXPECT_NE(m_app->ActiveExplorer()->CommandBars()->Item("Mailvane"), nullptr);
}

struct PlacementCase {
    const char* name;
    const char* inInstall;  // marker of InstallDir/mv.mdb, nullptr: none
    const char* inData;     // marker of DataDir/mv.mdb, nullptr: none
    const char* expected;
};

class PlacementTest : public AddInTest, public ::testing::WithParamInterface<PlacementCase> {};

TEST_P(PlacementTest, DatabaseComesFromTheRightPlaceAndIsNeverReplaced)
{
    const PlacementCase& c = GetParam();
    const QString installDb = InstallDir() + QStringLiteral("/mv.mdb");
    const QString dataDb = DataDir() + QStringLiteral("/mv.mdb");
    if (c.inInstall) {
        CopyTemplate(installDb);
        Mark(installDb, QString::fromLatin1(c.inInstall));
    }
    if (c.inData) {
        ASSERT_TRUE(QDir().mkpath(DataDir()));
        CopyTemplate(dataDb);
        Mark(dataDb, QString::fromLatin1(c.inData));
    }
    Start();
    EXPECT_EQ(MarkerOf(dataDb), c.expected);
    EXPECT_TRUE(m_answerer.shown().empty());

    // The next start finds the data-folder copy and copies nothing, even
    // when the installation folder now holds another database.
    m_connect->OnDisconnection(outlook::ext_dm_HostShutdown);
    CopyTemplate(installDb + QStringLiteral(".new"));
    QFile::remove(installDb);
    QFile::rename(installDb + QStringLiteral(".new"), installDb);
    Mark(installDb, QStringLiteral("later"));
    m_app = std::make_unique<host::HeadlessApplication>(m_stores, m_clipboard);
    Start();
    EXPECT_EQ(MarkerOf(dataDb), c.expected);
    EXPECT_EQ(MarkerOf(installDb), "later");
}

INSTANTIATE_TEST_SUITE_P(AddIn, PlacementTest,
                         ::testing::Values(PlacementCase{"Template", nullptr, nullptr, "template"},
                                           PlacementCase{"OldInstallCopyMigrated", "old", nullptr, "old"},
                                           PlacementCase{"ExistingKept", "old", "mine", "mine"},
                                           PlacementCase{"ExistingKeptNoOld", nullptr, "mine", "mine"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(AddInTest, WithoutAWindowNothingIsSetUpAndShutDownCopes)
{
    addin::OutAddIn& addIn = Start(false);
    EXPECT_FALSE(QDir(AppData() + QStringLiteral("/Sorquin Software")).exists());
    EXPECT_EQ(addIn.DB1(), nullptr);
    EXPECT_EQ(addIn.MainForm(), nullptr);
    EXPECT_EQ(addIn.MapiUtils(), nullptr);
    EXPECT_TRUE(addIn.ExplorerKeys().empty());
    EXPECT_NE(addIn.NameSpace(), nullptr) << "the host references are held";

    // Events still arrive; none of them may do anything.
    Q_EMIT m_app->NewMail();
    Q_EMIT m_app->Startup();
    bool cancel = true;
    Q_EMIT m_app->ItemSend(nullptr, cancel);
    EXPECT_FALSE(cancel);
    EXPECT_TRUE(Trail().isEmpty());
    EXPECT_TRUE(m_logLines->lines().empty());

    addIn.UnInitHandler();
    addIn.UnInitHandler();
    EXPECT_TRUE(addIn.Unloaded());
    EXPECT_TRUE(m_answerer.shown().empty());
}

struct BrokenCase {
    const char* name;
    bool removeTemplate;
    QByteArray dataBytes;  // written as DataDir/mv.mdb when not empty
};

class BrokenDatabaseTest : public AddInTest, public ::testing::WithParamInterface<BrokenCase> {};

TEST_P(BrokenDatabaseTest, BothBoxesAndStartUpGoesOn)
{
    const BrokenCase& c = GetParam();
    const QString dataDb = DataDir() + QStringLiteral("/mv.mdb");
    if (c.removeTemplate) {
        ASSERT_TRUE(QFile::remove(InstallDir() + QStringLiteral("/Database/_mvblank.mdb")));
    }
    if (!c.dataBytes.isEmpty()) {
        ASSERT_TRUE(QDir().mkpath(DataDir()));
        QFile f(dataDb);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(c.dataBytes);
    }
    addin::OutAddIn& addIn = Start();
    ASSERT_EQ(m_answerer.shown().size(), 2u) << m_answerer.texts().join(u'|').toStdString();
    EXPECT_EQ(m_answerer.shown()[0].text, kBox1);
    EXPECT_EQ(m_answerer.shown()[1].text, kBox2);
    for (const auto& box : m_answerer.shown()) {
        EXPECT_EQ(box.style, os::vbCritical | os::vbOKOnly);
        EXPECT_EQ(box.title, "Mailvane");
    }
    // Built-in settings, and the rest of start-up still ran.
    EXPECT_EQ(addIn.Toolbar(), 1);
    EXPECT_NE(addIn.MainForm(), nullptr);
    EXPECT_NE(m_app->ActiveExplorer()->CommandBars()->Item("Mailvane"), nullptr);
    // Bad input loses nothing: a foreign file is left as it was.
    if (!c.dataBytes.isEmpty()) {
        QFile f(dataDb);
        ASSERT_TRUE(f.open(QIODevice::ReadOnly));
        EXPECT_EQ(f.readAll(), c.dataBytes);
    } else {
        EXPECT_FALSE(QFile::exists(dataDb));
    }
}

INSTANTIATE_TEST_SUITE_P(
    AddIn, BrokenDatabaseTest,
    ::testing::Values(BrokenCase{"TemplateMissing", true, {}},
                      BrokenCase{"NotADatabase", false, QByteArray("Standard Jet DB\0\0 not sqlite", 28)}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(AddInTest, ShutDownTwiceIsHarmless)
{
    addin::OutAddIn& addIn = Start();
    QPointer<QTimer> cron = &addIn.MainForm()->tmrCron;
    addIn.UnInitHandler();
    EXPECT_TRUE(addIn.Unloaded());
    EXPECT_EQ(addIn.DB1(), nullptr);
    EXPECT_EQ(addIn.DB2(), nullptr);
    EXPECT_TRUE(cron.isNull()) << "the timers go with the form";
    EXPECT_EQ(addIn.Application(), nullptr);
    addIn.UnInitHandler();
    EXPECT_TRUE(addIn.Unloaded());
    // Unhooked: host events after shut-down reach nothing.
    Q_EMIT m_app->NewMail();
    m_connect->OnDisconnection(outlook::ext_dm_HostShutdown);
    EXPECT_EQ(m_connect->AddIn(), nullptr);
}

TEST_F(AddInTest, MailEventsArmTheMailTimerAndSendingIsNeverCancelled)
{
    addin::OutAddIn& addIn = Start();
    QTimer& mail = addIn.MainForm()->tmrMail;
    EXPECT_FALSE(mail.isActive());
    for (int i = 0; i < 5; ++i) {
        bool cancel = true;
        if (i % 2) Q_EMIT m_app->NewMail();
        else Q_EMIT m_app->ItemSend(nullptr, cancel);
        if (i % 2 == 0) {
            EXPECT_FALSE(cancel) << "sending always goes ahead";
        }
        EXPECT_TRUE(mail.isActive());
        EXPECT_EQ(mail.interval(), addin::frmMain::kMailInterval);
    }
    m_logLines->clear();
    addIn.MainForm()->tmrMail_Timer();
    EXPECT_EQ(Trail(), QStringList{"RunImmediateRules: Top Entry point"}) << "one run for the burst";
    EXPECT_FALSE(mail.isActive());
    EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(u'|').toStdString();
}

class RecordingPages : public outlook::PropertyPages {
public:
    void Add(const QString& page, const QString& caption) override { added << page + u'|' + caption; }
    QStringList added;
};

TEST_F(AddInTest, OptionsPageAndStartupEvent)
{
    Start();
    RecordingPages pages;
    Q_EMIT m_app->OptionsPagesAdd(&pages);
    EXPECT_EQ(pages.added, QStringList{"MailvaneProps.ctlMailvane|Mailvane"});

    m_logLines->clear();
    Q_EMIT m_app->Startup();
    EXPECT_EQ(Trail(), QStringList{"objOutlook_Startup: Adding new Explorer to collection"});
    EXPECT_EQ(AddIn().ExplorerKeys(), (std::vector<std::int16_t>{0, 1}));
}

TEST_F(AddInTest, UserRemovalDeletesTheItemsBarThenShutsDown)
{
    Start();
    office::CommandBars* bars = m_app->ActiveExplorer()->CommandBars();
    ASSERT_NE(bars->Add(QStringLiteral("Items")), nullptr);
    m_connect->OnDisconnection(outlook::ext_dm_UserClosed);
    EXPECT_EQ(bars->Item("Items"), nullptr);
    EXPECT_NE(bars->Item("Mailvane"), nullptr) << "the toolbar is not the bar removed";
    EXPECT_EQ(m_connect->AddIn(), nullptr);
}

}  // namespace
}  // namespace mv::test
