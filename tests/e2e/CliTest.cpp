// The program's commands on a Maildir profile: the rules command step by
// step, preview and run, usage and data errors with their exit codes,
// start-ups that cannot serve, and the headless service from the first
// arrival to SIGTERM. Each criterion kind is the engine's and the
// conformance suite's; runs over IMAP are the kill test's.

#include "E2eSupport.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTest>
#include <QThread>

#include <gtest/gtest.h>

namespace mv::e2e {
namespace {

// The rules command and the Rules Manager's actions, one step after another on
// one database: what each step prints, and the run order and states that
// `rules` lists afterwards (null: not listed again, as nothing changes).
struct RulesStep {
    const char* name;
    QStringList args;
    int code;
    QStringList printed;  // fragments of stdout + stderr
    const char* order;    // "name:state, ..." in run order afterwards
};

QString Order(const QString& listing)
{
    static const QRegularExpression row(QStringLiteral(R"(^\s+\d+\s+\d+\s+(active|off)\s+.*?\S\s{2,}(.+?)( \[.*\])?$)"));
    QStringList order;
    for (const QString& line : listing.split(QLatin1Char('\n')))
        if (const auto m = row.match(line); m.hasMatch()) order << m.captured(2) + u':' + m.captured(1);
    return order.join(QStringLiteral(", "));
}

QByteArray Read(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

TEST(Cli, RulesActionsUsageErrorsAndStartupsThatCannotServe)
{
    World world({true, false, {}});
    ASSERT_EQ(world.Start(), QString());
    for (const char* f : {"Archive", "Archive/Old", "Archive/Plain", "Archive/Replies"}) world.CreateFolder(QLatin1String(f));
    world.Write(QString(), {.id = "plain@e2e", .subject = "A plain one"});
    const auto folders = world.Folders();
    int sortId = 0;
    const auto rule = [&](const char* name, QHash<QString, QString> criteria, bool active) {
        return RuleRow(++sortId, QLatin1String(name), folders[QStringLiteral("Inbox")],
                       folders[QStringLiteral("Archive/") + QLatin1String(name)], criteria, active);
    };
    QString error;
    ASSERT_TRUE(world.Import({rule("Old", {{"MsgAgeID", "7"}, {"Status", "0"}, {"FlagStatus", "2"}}, true),
                              rule("Plain", {{"Subject", "plain"}}, false),
                              rule("Replies", {{"Importance", "2"}, {"LastVerb", "102"}}, true)},
                             &error))
        << error.toStdString();

    const QString version = QStringLiteral("mailvane %1.%2.%3\n").arg(MV_VERSION_MAJOR).arg(MV_VERSION_MINOR).arg(MV_VERSION_PATCH);
    const RulesStep steps[] = {
        {"List", {"rules"}, 0, {"Older than 1 week", "[Unread, Flagged]", "Any Time", "[High importance, Replied to]"},
         "Old:active, Plain:off, Replies:active"},
        {"Show", {"rules", "show", "Old"}, 0,
         {"Active:       yes", "Position:     1 of 3", ": Inbox\n", ": Archive/Old\n", "Age:          Older than 1 week",
          "Read state:   Unread", "Flag:         Flagged", "Importance:   Don't Care", "Subject:      Don't Care"},
         nullptr},
        {"EnableByName", {"rules", "enable", "Plain"}, 0, {"Plain is now active"}, "Old:active, Plain:active, Replies:active"},
        {"PreviewAll", {"preview", "--all"}, 0, {"Plain: 1 would move\n    A plain one", "Old: 0 would move"}, nullptr},
        {"PreviewOne", {"preview", "Plain"}, 0, {"A plain one", "1 message(s) would move"}, nullptr},
        {"EnabledRuleRuns", {"run"}, 0, {": 1 message(s) moved"}, "Old:active, Plain:active, Replies:active"},
        {"SecondRunMovesNothing", {"run"}, 0, {": 0 message(s) moved"}, nullptr},
        {"DisableById", {"rules", "disable", "1"}, 0, {"Old is now off"}, "Old:off, Plain:active, Replies:active"},
        {"MoveToFirst", {"rules", "move", "Replies", "--to", "1"}, 0, {"Replies is at position 1 of 3"},
         "Replies:active, Old:off, Plain:active"},
        {"MoveOutOfRange", {"rules", "move", "Replies", "--to", "4"}, 2, {"from 1 to 3"}, "Replies:active, Old:off, Plain:active"},
        {"DeleteWithoutTerminal", {"rules", "delete", "Plain"}, 2, {"no terminal", "--yes"},
         "Replies:active, Old:off, Plain:active"},
        {"DeleteAnsweredNo", {"rules", "delete", "Plain", "--no"}, 0, {"Plain kept"}, "Replies:active, Old:off, Plain:active"},
        {"DeleteAnsweredYes", {"--yes", "rules", "delete", "Plain"}, 0, {"Plain deleted"}, "Replies:active, Old:off"},
        {"UnknownAction", {"rules", "rename", "Old"}, 2, {"unknown action"}, "Replies:active, Old:off"},
        {"NoSuchRule", {"rules", "enable", "Plain"}, 2, {"no rule named"}, "Replies:active, Old:off"},
        {"Version", {"--version"}, 0, {version}, nullptr},
        // Usage and data errors give their exit code and a message, and leave the rules as they were.
        {"NoCommandNoDisplay", {}, 2, {}, nullptr},
        {"UnknownCommand", {"frobnicate"}, 2, {}, nullptr},
        {"UnknownOption", {"--frob", "rules"}, 2, {}, nullptr},
        {"TooManyArguments", {"rules", "extra"}, 2, {}, nullptr},
        {"UnknownRunOption", {"run", "--sometimes"}, 2, {}, nullptr},
        {"NoSuchRuleToPreview", {"preview", "No such rule"}, 2, {}, nullptr},
        {"ImportOfMissingFile", {"import", "/nonexistent/rules.xml"}, 1, {}, nullptr},
        {"HeadlessWithCommand", {"--headless", "rules"}, 2, {}, "Replies:active, Old:off"},
    };
    for (const RulesStep& step : steps) {
        SCOPED_TRACE(step.name);
        const Result r = world.Run(step.args);
        EXPECT_EQ(r.code, step.code) << r.err.toStdString();
        if (step.code != 0) {
            EXPECT_FALSE(r.err.isEmpty());
        }
        const QString printed = r.out + r.err;
        for (const QString& p : step.printed) EXPECT_TRUE(printed.contains(p)) << p.toStdString() << "\n" << printed.toStdString();
        EXPECT_FALSE(printed.contains(folders[QStringLiteral("Inbox")].storeId)) << "folders are named, not given as identifiers";
        if (step.order) {
            EXPECT_EQ(Order(world.Run({QStringLiteral("rules")}).out), QLatin1String(step.order));
        }
    }
    EXPECT_EQ(world.Ids(QStringLiteral("Archive/Plain")), QStringList{QStringLiteral("plain@e2e")});

    // The add-in registered itself at the first start and is loaded through
    // the registry; a start-up that cannot serve (the add-in switched off, a
    // database file that is no database, a misspelt profile) ends with its
    // exit code and a message, touching neither the registry nor the file.
    const QString registryFile = world.Path(QStringLiteral("config/Mailvane/registry.ini"));
    const QString databaseFile = world.Path(QStringLiteral("data/Sorquin Software/Mailvane/mv.mdb"));
    const auto write = [](const QString& path, const QByteArray& bytes) {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
        f.write(bytes);
    };
    const QByteArray registry = Read(registryFile);
    EXPECT_TRUE(registry.contains("Mailvane.Connect\\LoadBehavior=3")) << registry.constData();
    EXPECT_TRUE(registry.contains("FriendlyName=Mailvane Add-In")) << registry.constData();

    // The user unchecks it in the add-ins dialog: neither a command nor the
    // service runs Mailvane, and the choice survives the next start.
    QByteArray off = registry;
    write(registryFile, off.replace("LoadBehavior=3", "LoadBehavior=2"));
    const QByteArray rules = Read(databaseFile);
    for (const QString& arg : {QStringLiteral("run"), QStringLiteral("--headless")}) {
        SCOPED_TRACE(arg.toStdString());
        const Result r = world.Run({arg}, 30000);
        EXPECT_EQ(r.code, 1);
        EXPECT_TRUE(r.err.contains(QStringLiteral("the add-in Mailvane.Connect is not loaded")) &&
                    r.err.contains(QStringLiteral("LoadBehavior 2")))
            << r.err.toStdString();
        EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
    }
    EXPECT_EQ(Read(registryFile), off);
    EXPECT_EQ(Read(databaseFile), rules);

    write(registryFile, registry);
    const QByteArray garbage = "this is no database\n";
    write(databaseFile, garbage);
    Result r = world.Run({QStringLiteral("rules")});
    EXPECT_EQ(r.code, 3);
    EXPECT_TRUE(r.err.contains(QStringLiteral("Connection 1 to Mailvane Database failed!"))) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains(QStringLiteral("cannot open the rule database"))) << r.err.toStdString();
    EXPECT_EQ(Read(databaseFile), garbage);
    // The shut-down trail is complete even after a failed start.
    EXPECT_TRUE(world.LogText().trimmed().endsWith(QStringLiteral("Stopped"))) << world.LogText().toStdString();

    write(world.ProfilePath(), "[Local]\ntype=maildir\npth=/tmp\n");
    r = world.Run({QStringLiteral("rules")});
    EXPECT_EQ(r.code, 5);
    EXPECT_TRUE(r.err.contains(QStringLiteral("pth"))) << r.err.toStdString();
}

// A burst of matching mail dropped into INBOX/new is moved by one run about
// ten seconds after it arrives, and SIGTERM stops the service with the
// database closed.
TEST(Cli, HeadlessMovesABurstInOneRunTenSecondsLaterAndSigtermClosesTheDatabase)
{
    World world({true, false, {}});
    ASSERT_EQ(world.Start(), QString());
    world.CreateFolder(QStringLiteral("Archive"));
    const auto folders = world.Folders();
    QString error;
    ASSERT_TRUE(world.Import({RuleRow(1, QStringLiteral("Dropped mail"), folders[QStringLiteral("Inbox")],
                                      folders[QStringLiteral("Archive")], {{"FromAddress", "drop@e2e.test"}})},
                             &error))
        << error.toStdString();

    QProcess service;
    service.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    world.Launch(service, {QStringLiteral("--headless")});
    ASSERT_TRUE(service.waitForStarted());
    ASSERT_TRUE(QTest::qWaitFor([&] { return world.LogText().contains(QStringLiteral("Started: timers on")); }, 30000))
        << world.LogText().toStdString();

    QElapsedTimer sinceFirst;
    sinceFirst.start();
    for (int i = 0; i < 3; ++i) {
        world.Write(QString(), {.id = QStringLiteral("drop%1@e2e.test").arg(i), .subject = QStringLiteral("dropped %1").arg(i),
                                .from = "Dropper <drop@e2e.test>", .toNew = true});
        QThread::msleep(500);
    }
    ASSERT_TRUE(QTest::qWaitFor([&] { return world.Ids(QStringLiteral("Archive")).size() == 3; }, 40000)) << world.LogText().toStdString();
    const qint64 took = sinceFirst.elapsed();
    // Ten seconds after the last arrival of the burst, not before.
    EXPECT_GE(took, 10000);
    EXPECT_LT(took, 25000);
    EXPECT_TRUE(world.Ids(QString()).isEmpty());
    // One run of the add-in's mail timer took the whole burst.
    EXPECT_EQ(world.LogText().count(QStringLiteral("RunImmediateRules: Top Entry point")), 1) << world.LogText().toStdString();
    EXPECT_TRUE(world.LogText().contains(QStringLiteral("RunImmediateRules: Dropped mail: 3 moved"))) << world.LogText().toStdString();

    service.terminate();  // SIGTERM
    ASSERT_TRUE(service.waitForFinished(30000));
    EXPECT_EQ(service.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(service.exitCode(), 0);
    const QString log = world.LogText();
    const auto signal = log.indexOf(QStringLiteral("Signal 15: stopping"));
    EXPECT_GE(signal, 0) << log.toStdString();
    EXPECT_GT(log.lastIndexOf(QStringLiteral("Database closed")), signal) << log.toStdString();
    EXPECT_TRUE(log.trimmed().endsWith(QStringLiteral("Stopped"))) << log.toStdString();
}

}  // namespace
}  // namespace mv::e2e
