// The host's start-up with an Application the caller builds, as a desktop
// host does: the order of the steps around the add-in's connection, the
// schedule held still for one-off commands, and the start-ups that must
// stop with a clear code.

#include "host/Runtime.h"
#include "host/core/AddinLoader.h"
#include "host/core/HeadlessApplication.h"

#include "addin/OutAddIn.h"
#include "engine/RuleRunner.h"
#include "platform/ado/Recordset.h"
#include "platform/os/KnownFolders.h"
#include "platform/os/MessageBox.h"
#include "platform/os/Registry.h"
#include "platform/outlook/Folder.h"
#include "platform/outlook/NameSpace.h"
#include "platform/outlook/OutlookConstants.h"
#include "store/cDB.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace mv::test {
namespace {

using namespace mv::host;

// A private home: data folder, registry and install folder of the build.
// The runtime finds its folders as the program does, from XDG_*.
class RuntimeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        QStandardPaths::setTestModeEnabled(false);
        qputenv("MAILVANE_INSTALL_DIR", MV_BINARY_DIR);
        for (const char* name : {"DATA", "CONFIG", "CACHE"})
            qputenv(QByteArray("XDG_") + name + "_HOME", (home + u'/' + QString::fromLatin1(name).toLower()).toLocal8Bit());
        options.embedded = true;
        options.answerer = &answerer;
        options.registryPath = home + QStringLiteral("/registry.ini");
    }
    void TearDown() override { QStandardPaths::setTestModeEnabled(true); }

    QString DataDir() const { return home + QStringLiteral("/data/Sorquin Software/Mailvane"); }
    // Mailvane's LoadBehavior in the registry, 0 when there is none.
    quint32 LoadBehavior() const
    {
        const auto v = os::Registry(options.registryPath)
                           .ReadDword(QString::fromLatin1(kAddinsKey) + QStringLiteral("\\Mailvane.Connect"),
                                      QStringLiteral("LoadBehavior"));
        return v ? *v : 0;
    }
    QString Log() const
    {
        QFile f(DataDir() + QStringLiteral("/mv.log"));
        return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
    }

    QTemporaryDir dir;
    QString home = dir.path();
    os::ScriptedAnswerer answerer;
    RuntimeOptions options;
};

TEST_F(RuntimeTest, CallersApplicationIsOpenedBeforeTheAddInConnectsAndStoppedAfterItDisconnects)
{
    QStringList steps;
    Runtime* runtime = nullptr;
    HeadlessApplication* app = nullptr;
    ApplicationSteps own = HeadlessSteps();
    own.create = [&](StoreSet& stores, os::Clipboard& clipboard) -> std::unique_ptr<outlook::Application> {
        steps << QStringLiteral("create");
        auto made = std::make_unique<HeadlessApplication>(stores, clipboard);
        app = made.get();
        return made;
    };
    own.open = [&](outlook::Application&) {
        steps << QStringLiteral("open");
        app->Open();
    };
    own.start = [&](outlook::Application&) {
        // Startup reaches an add-in that is up, with its timer form loaded.
        steps << (runtime->AddIn().MainForm() ? QStringLiteral("start, add-in up") : QStringLiteral("start"));
        app->Start();
    };
    own.stop = [&](outlook::Application&) {
        steps << (runtime->Loader().Connected().isEmpty() ? QStringLiteral("stop, add-in gone")
                                                          : QStringLiteral("stop"));
        app->Stop();
    };
    Runtime rt(options, own);
    runtime = &rt;
    ASSERT_EQ(rt.Start(), kExitOk) << answerer.texts().join(QStringLiteral(" | ")).toStdString();
    EXPECT_EQ(steps, QStringList({"create", "open"}));

    // The add-in came up over the caller's Application, as InitHandler does.
    addin::OutAddIn& addIn = rt.AddIn();
    EXPECT_EQ(addIn.Application(), app);
    EXPECT_EQ(addIn.DataDir(), DataDir());
    ASSERT_NE(app->Explorer(), nullptr);
    EXPECT_NE(app->Explorer()->CommandBars()->Item(QStringLiteral("Mailvane")), nullptr);
    EXPECT_TRUE(addIn.MainForm()->tmrCron.isActive());
    EXPECT_TRUE(answerer.shown().empty()) << answerer.texts().join(QStringLiteral(" | ")).toStdString();
    EXPECT_EQ(rt.Runner().RunAllRules().end, engine::RunEnd::Completed);
    EXPECT_EQ(LoadBehavior(), 3u);

    QSignalSpy startup(app, &outlook::Application::Startup);
    rt.StartApplication();
    rt.StartApplication();
    EXPECT_EQ(startup.count(), 1);
    // New mail arms the add-in's mail timer; a scheduling host lets it run.
    Q_EMIT app->NewMail();
    addIn.MainForm()->tmrMail.setInterval(1);  // instead of ten seconds
    QTest::qWait(300);
    EXPECT_EQ(Log().count(QStringLiteral("RunImmediateRules: Top Entry point")), 1);

    rt.Shutdown();
    rt.Shutdown();
    EXPECT_EQ(steps, QStringList({"create", "open", "start, add-in up", "stop, add-in gone"}));
    const QString log = Log();
    const auto connected = log.indexOf(QStringLiteral("Add-in connected: Mailvane.Connect"));
    EXPECT_GT(connected, log.indexOf(QStringLiteral("InitHandler: Adding new Explorer to collection")));
    EXPECT_GT(log.indexOf(QStringLiteral("Database closed")), connected);
    EXPECT_TRUE(log.trimmed().endsWith(QStringLiteral("Stopped"))) << log.toStdString();
}

// "Run on start" is read from the database before the timer form loads,
// and the form's short first cycle runs every rule under the host's loop.
TEST_F(RuntimeTest, RunOnStartMovesMatchingMailAboutEightSecondsAfterStartup)
{
    {
        Runtime rt(options);
        ASSERT_EQ(rt.Start(), kExitOk);
        outlook::NameSpace* ns = rt.AddIn().NameSpace();
        ASSERT_NE(ns, nullptr);
        const auto inbox = ns->GetDefaultFolder(outlook::olFolderInbox);
        std::unique_ptr<outlook::Folder> archive;
        for (auto& folder : ns->Folders())
            if (folder->Name() == QLatin1String("Archive")) archive = std::move(folder);
        ASSERT_TRUE(inbox && archive);
        ASSERT_TRUE(
            rt.AddIn().CreateDefaultRule(QStringLiteral("Read mail"), inbox.get(), archive.get(), 13, 0));
        // The insert leaves Active out: the blank database's default makes the rule run.
        std::unique_ptr<ado::Recordset> rs;
        ASSERT_TRUE(rt.AddIn().DB1()->CreateRS(rs, QStringLiteral("SELECT Active FROM Rules")));
        EXPECT_EQ(rs->Value(QStringLiteral("Active")).toInt(), -1);
        rt.AddIn().SetRunOnStart(1);
        ASSERT_TRUE(rt.AddIn().SaveSettings());
    }
    const QString mail = DataDir() + QStringLiteral("/Mail");
    QFile read(mail + QStringLiteral("/cur/1700000000.read.test:2,S"));
    ASSERT_TRUE(read.open(QIODevice::WriteOnly) && read.write("Subject: read one\r\n\r\nHello\r\n") > 0);
    read.close();
    auto archived = [&] { return QDir(mail + QStringLiteral("/.Archive/cur")).entryList(QDir::Files).size(); };

    Runtime rt(options);
    ASSERT_EQ(rt.Start(), kExitOk);
    addin::frmMain* form = rt.AddIn().MainForm();
    ASSERT_NE(form, nullptr);
    EXPECT_EQ(form->MinuteTotal(), addin::frmMain::kStartupTicks);
    rt.StartApplication();
    QElapsedTimer t;
    t.start();
    EXPECT_TRUE(QTest::qWaitFor([&] { return archived() > 0; }, 20000)) << Log().toStdString();
    EXPECT_EQ(archived(), 1);
    EXPECT_GE(t.elapsed(), 7000) << "the first cycle is eight one-second ticks";
    EXPECT_EQ(form->MinuteTotal(), addin::frmMain::kCycleTicks) << "then the hourly cycle";
    EXPECT_TRUE(form->tmrCron.isActive());
}

// The data folder, the cache and the files that hold rules and subjects
// are made the user's alone on a fresh start, and tightened on a later one.
// These are one-off commands' starts: the schedule is held still, and new
// mail runs nothing.
TEST_F(RuntimeTest, DataFilesAreReadableByTheUserOnlyAndAOneOffStartRunsNoMail)
{
    options.schedule = false;
    const auto mode = [](const QString& path) {
        struct stat st {};
        return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_mode & 07777 : 01000;
    };
    const QString cache = os::CacheDir();
    ASSERT_TRUE(cache.startsWith(home + QStringLiteral("/cache/"))) << cache.toStdString();
    const struct {
        QString path;
        mode_t wide;
        mode_t own;
    } paths[] = {
        {DataDir(), 0755, 0700},
        {cache, 0755, 0700},
        {DataDir() + QStringLiteral("/mv.mdb"), 0644, 0600},
        {DataDir() + QStringLiteral("/mv.log"), 0644, 0600},
    };
    for (const bool widened : {false, true}) {
        SCOPED_TRACE(widened ? "widened by hand" : "fresh");
        for (const auto& p : paths) ASSERT_TRUE(!widened || ::chmod(QFile::encodeName(p.path).constData(), p.wide) == 0);
        Runtime rt(options);
        ASSERT_EQ(rt.Start(), kExitOk) << answerer.texts().join(QStringLiteral(" | ")).toStdString();
        EXPECT_FALSE(rt.AddIn().MainForm()->tmrCron.isActive());
        Q_EMIT rt.Application().NewMail();
        rt.AddIn().MainForm()->tmrMail.setInterval(1);
        QTest::qWait(300);
        EXPECT_EQ(Log().count(QStringLiteral("RunImmediateRules: Top Entry point")), 0);
        for (const auto& p : paths) EXPECT_EQ(mode(p.path), p.own) << p.path.toStdString();
        const qsizetype note = Log().indexOf(QStringLiteral("Made readable by the user only: "));
        EXPECT_EQ(note >= 0, widened) << Log().toStdString();
        if (widened) {
            const QString line = Log().mid(note).section(QLatin1Char('\n'), 0, 0);
            for (const auto& p : paths)
                EXPECT_TRUE(line.contains(QStringLiteral("%1 0%2 -> 0%3").arg(p.path).arg(p.wide, 0, 8).arg(p.own, 0, 8)))
                    << line.toStdString();
        }
    }
}

// A host whose Application opens no window leaves the add-in idle: the start
// stops instead. The command line's failed starts are in tests/e2e/CliTest.cpp.
TEST_F(RuntimeTest, ApplicationWithoutAnExplorerStopsTheStartAndCreatesNoDatabase)
{
    ApplicationSteps steps = HeadlessSteps();
    steps.open = [](outlook::Application&) {};
    {
        Runtime rt(options, steps);
        EXPECT_EQ(rt.Start(), kExitRunFailed);
    }
    EXPECT_TRUE(answerer.shown().empty()) << answerer.texts().join(QStringLiteral(" | ")).toStdString();
    EXPECT_FALSE(QFile::exists(DataDir() + QStringLiteral("/mv.mdb")));
    EXPECT_EQ(LoadBehavior(), 3u);
    EXPECT_TRUE(Log().trimmed().endsWith(QStringLiteral("Stopped"))) << Log().toStdString();
}

}  // namespace
}  // namespace mv::test
