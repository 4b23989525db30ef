// The program's start-up as a user meets it: the add-in registers itself
// once, is loaded through the registry, and a start-up that cannot serve
// (the add-in switched off, a database file that is no database) ends with
// its exit code and a message, touching neither the registry nor the file.

#include "E2eSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <gtest/gtest.h>

namespace mv::e2e {
namespace {

QString RegistryFile(const World& world)
{
    return world.Environment().value(QStringLiteral("XDG_CONFIG_HOME")) +
           QStringLiteral("/Mailvane/registry.ini");
}

QString DatabaseFile(const World& world)
{
    return world.Environment().value(QStringLiteral("XDG_DATA_HOME")) +
           QStringLiteral("/Sorquin Software/Mailvane/mv.mdb");
}

QByteArray Read(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void Write(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    f.write(bytes);
}

TEST(Startup, FirstStartRegistersTheAddInAndASwitchedOffAddInStopsEveryEntryPoint)
{
    World world(Backend::Maildir);
    QString error;
    bool skip = false;
    ASSERT_TRUE(world.Start(&error, &skip)) << error.toStdString();
    const Result first = world.Run({QStringLiteral("rules")});
    ASSERT_EQ(first.code, 0) << first.err.toStdString();
    const QByteArray registry = Read(RegistryFile(world));
    EXPECT_TRUE(registry.contains("Mailvane.Connect\\LoadBehavior=3")) << registry.constData();
    EXPECT_TRUE(registry.contains("FriendlyName=Mailvane Add-In")) << registry.constData();

    // The user unchecks it in the add-ins dialog: neither a command nor the
    // service runs Mailvane, and the choice survives the next start.
    QByteArray off = registry;
    off.replace("LoadBehavior=3", "LoadBehavior=2");
    Write(RegistryFile(world), off);
    const QByteArray rules = Read(DatabaseFile(world));
    for (const QStringList& args :
         {QStringList{QStringLiteral("run")}, QStringList{QStringLiteral("--headless")}}) {
        SCOPED_TRACE(args.join(QLatin1Char(' ')).toStdString());
        const Result r = world.Run(args, 30000);
        EXPECT_EQ(r.code, 1);
        EXPECT_TRUE(r.err.contains(QStringLiteral("the add-in Mailvane.Connect is not loaded")) &&
                    r.err.contains(QStringLiteral("LoadBehavior 2")))
            << r.err.toStdString();
        EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
    }
    EXPECT_EQ(Read(RegistryFile(world)), off);
    EXPECT_EQ(Read(DatabaseFile(world)), rules);
}

TEST(Startup, DatabaseFileThatIsNoDatabaseGivesTheAddInsBoxAndExitCodeThree)
{
    World world(Backend::Maildir);
    QString error;
    bool skip = false;
    ASSERT_TRUE(world.Start(&error, &skip)) << error.toStdString();
    const QByteArray garbage = "this is no database\n";
    ASSERT_TRUE(QDir().mkpath(QFileInfo(DatabaseFile(world)).path()));
    Write(DatabaseFile(world), garbage);

    const Result r = world.Run({QStringLiteral("rules")});
    EXPECT_EQ(r.code, 3);
    EXPECT_TRUE(r.err.contains(QStringLiteral("Connection 1 to Mailvane Database failed!")))
        << r.err.toStdString();
    EXPECT_TRUE(r.err.contains(QStringLiteral("cannot open the rule database"))) << r.err.toStdString();
    EXPECT_EQ(Read(DatabaseFile(world)), garbage);
    // The shut-down trail is complete even after a failed start.
    EXPECT_TRUE(world.LogText().trimmed().endsWith(QStringLiteral("Stopped")))
        << world.LogText().toStdString();
}

}  // namespace
}  // namespace mv::e2e
