// Start-up and shut-down over real database files: where the database
// comes from, what a failed connection shows, a host without a window, and
// the application's events.

#include "AddInFixture.h"

#include "addin/frmMain.h"
#include "platform/office/CommandBars.h"

#include <QDir>
#include <QFile>

namespace mv::test {
namespace {

// Tags a database file so a test can tell which one ended up where.
void Mark(const QString& path, const QString& name)
{
    Sql(path, QStringLiteral("CREATE TABLE IF NOT EXISTS Marker(name TEXT); DELETE FROM Marker;"
                                        "INSERT INTO Marker VALUES('%1');").arg(name));
}

QString MarkerOf(const QString& path)
{
    const QString settings = Query(path, "SELECT count(*) FROM Settings");
    if (settings.isEmpty() || settings == "(missing)") return settings.isEmpty() ? "(unreadable)" : settings;
    const QString marker = Query(path, "SELECT name FROM Marker");
    return marker.isEmpty() ? QStringLiteral("template") : marker;
}

TEST_F(AddInTest, CleanProfileCreatesFoldersCopiesTemplateAndComesUp)
{
    addin::OutAddIn& addIn = Start();  // which database it copies: PlacementTest
    EXPECT_TRUE(QFile::exists(DataDir() + QStringLiteral("/mv.log")));
    EXPECT_TRUE(addIn.DB1() && addIn.DB2());
    EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(u'|').toStdString();
    EXPECT_EQ(addIn.ProgId(), "Mailvane.Connect");
    EXPECT_EQ(addIn.EntryPoint(), "N/A");
    EXPECT_FALSE(addIn.Unloaded());
    ASSERT_NE(addIn.MainForm(), nullptr);
    EXPECT_TRUE(addIn.MainForm()->tmrCron.isActive());
    EXPECT_TRUE(addIn.MapiUtils() && addIn.SafeItem() && addIn.Runner());
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
    if (c.inInstall) {
        CopyTemplate(installDb);
        Mark(installDb, QString::fromLatin1(c.inInstall));
    }
    if (c.inData) {
        ASSERT_TRUE(QDir().mkpath(DataDir()));
        CopyTemplate(DataDb());
        Mark(DataDb(), QString::fromLatin1(c.inData));
    }
    Start();
    EXPECT_EQ(MarkerOf(DataDb()), c.expected);
    EXPECT_TRUE(m_answerer.shown().empty());

    // The next start finds the data-folder copy and copies nothing, even
    // when the installation folder now holds another database.
    m_connect->OnDisconnection(outlook::ext_dm_HostShutdown);
    QFile::remove(installDb);
    CopyTemplate(installDb);
    Mark(installDb, QStringLiteral("later"));
    m_app = std::make_unique<host::HeadlessApplication>(m_stores, m_clipboard);
    Start();
    EXPECT_EQ(MarkerOf(DataDb()), c.expected);
    EXPECT_EQ(MarkerOf(installDb), "later");
}

INSTANTIATE_TEST_SUITE_P(AddIn, PlacementTest,
                         ::testing::Values(PlacementCase{"Template", nullptr, nullptr, "template"},
                                           PlacementCase{"OldInstallCopyMigrated", "old", nullptr, "old"},
                                           PlacementCase{"ExistingKept", "old", "mine", "mine"},
                                           PlacementCase{"ExistingKeptNoOld", nullptr, "mine", "mine"}),
                         [](const auto& info) { return std::string(info.param.name); });

struct BrokenCase {
    const char* name;
    bool removeTemplate;
    QByteArray dataBytes;  // written as DataDir/mv.mdb when not empty
};

class BrokenDatabaseTest : public AddInTest, public ::testing::WithParamInterface<BrokenCase> {};

TEST_P(BrokenDatabaseTest, BothBoxesAndStartUpGoesOn)
{
    const BrokenCase& c = GetParam();
    if (c.removeTemplate) {
        ASSERT_TRUE(QFile::remove(InstallDir() + QStringLiteral("/Database/_mvblank.mdb")));
    }
    if (!c.dataBytes.isEmpty()) {
        ASSERT_TRUE(QDir().mkpath(DataDir()));
        QFile f(DataDb());
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(c.dataBytes);
    }
    addin::OutAddIn& addIn = Start();
    ASSERT_EQ(m_answerer.shown().size(), 2u) << m_answerer.texts().join(u'|').toStdString();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(m_answerer.shown()[i].text, QStringLiteral("Connection %1 to Mailvane Database failed!\r\n"
                                                             "Please conatct Sorquin Support").arg(i + 1));
        EXPECT_EQ(m_answerer.shown()[i].style, os::vbCritical | os::vbOKOnly);
        EXPECT_EQ(m_answerer.shown()[i].title, "Mailvane");
    }
    // Built-in settings, and the rest of start-up still ran.
    EXPECT_EQ(addIn.Toolbar(), 1);
    EXPECT_NE(addIn.MainForm(), nullptr);
    EXPECT_NE(m_app->ActiveExplorer()->CommandBars()->Item("Mailvane"), nullptr);
    // Bad input loses nothing: a foreign file is left as it was.
    QFile f(DataDb());
    EXPECT_EQ(f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray(), c.dataBytes);
}

INSTANTIATE_TEST_SUITE_P(
    AddIn, BrokenDatabaseTest,
    ::testing::Values(BrokenCase{"TemplateMissing", true, {}},
                      BrokenCase{"NotADatabase", false, QByteArray("Standard Jet DB\0\0 not sqlite", 28)}),
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
    EXPECT_TRUE(m_logLines->lines().empty());

    addIn.UnInitHandler();
    addIn.UnInitHandler();
    EXPECT_TRUE(addIn.Unloaded());
    EXPECT_TRUE(m_answerer.shown().empty());
}

TEST_F(AddInTest, ShutDownTwiceIsHarmless)
{
    addin::OutAddIn& addIn = Start();
    QPointer<QTimer> cron = &addIn.MainForm()->tmrCron;
    for (int i = 0; i < 2; ++i) {
        addIn.UnInitHandler();
        EXPECT_TRUE(addIn.Unloaded());
        EXPECT_EQ(addIn.DB1(), nullptr);
        EXPECT_EQ(addIn.DB2(), nullptr);
        EXPECT_TRUE(cron.isNull()) << "the timers go with the form";
        EXPECT_EQ(addIn.Application(), nullptr);
    }
    // Unhooked: host events after shut-down reach nothing.
    Q_EMIT m_app->NewMail();
    m_connect->OnDisconnection(outlook::ext_dm_HostShutdown);
    EXPECT_EQ(m_connect->AddIn(), nullptr);
}

TEST_F(AddInTest, MailEventsArmTheMailTimerAndSendingIsNeverCancelled)
{
    addin::OutAddIn& addIn = Start();
    addin::frmMain& form = *addIn.MainForm();
    EXPECT_FALSE(form.tmrMail.isActive());
    for (int i = 0; i < 5; ++i) {
        bool cancel = true;
        if (i % 2) {
            Q_EMIT m_app->NewMail();
        } else {
            Q_EMIT m_app->ItemSend(nullptr, cancel);
            EXPECT_FALSE(cancel) << "sending always goes ahead";
        }
        EXPECT_TRUE(form.tmrMail.isActive());
        EXPECT_EQ(form.tmrMail.interval(), addin::frmMain::kMailInterval);
    }
    m_logLines->clear();
    form.tmrMail_Timer();
    EXPECT_EQ(Trail(), QStringList{"RunImmediateRules: Top Entry point"}) << "one run for the burst";
    EXPECT_FALSE(form.tmrMail.isActive());
    EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(u'|').toStdString();
}

class RecordingPages : public outlook::PropertyPages {
public:
    void Add(const QString& page, const QString& caption) override { added << page + u'|' + caption; }
    QStringList added;
};

TEST_F(AddInTest, OptionsPageStartupEventAndUserRemoval)
{
    Start();
    RecordingPages pages;
    Q_EMIT m_app->OptionsPagesAdd(&pages);
    EXPECT_EQ(pages.added, QStringList{"MailvaneProps.ctlMailvane|Mailvane"});

    m_logLines->clear();
    Q_EMIT m_app->Startup();
    EXPECT_EQ(Trail(), QStringList{"objOutlook_Startup: Adding new Explorer to collection"});
    EXPECT_EQ(AddIn().ExplorerKeys(), (std::vector<std::int16_t>{0, 1}));

    // Removal by the user deletes the Items bar, not the toolbar, and shuts down.
    office::CommandBars* bars = m_app->ActiveExplorer()->CommandBars();
    ASSERT_NE(bars->Add(QStringLiteral("Items")), nullptr);
    m_connect->OnDisconnection(outlook::ext_dm_UserClosed);
    EXPECT_EQ(bars->Item("Items"), nullptr);
    EXPECT_NE(bars->Item("Mailvane"), nullptr);
    EXPECT_EQ(m_connect->AddIn(), nullptr);
}

}  // namespace
}  // namespace mv::test
