// The headless service as a child process on a Maildir profile: a burst of
// matching mail dropped into INBOX/new is moved by one run about ten
// seconds after it arrives, and SIGTERM stops it with the database closed.

#include "E2eSupport.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

namespace mv::e2e {
namespace {

// Polls `done` while the child runs; the child's timing is what is tested,
// so this waits for the child, not for a clock of our own.
bool WaitFor(const std::function<bool()>& done, int timeoutMs)
{
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < timeoutMs) {
        if (done()) return true;
        QThread::msleep(100);
    }
    return done();
}

// Delivers as an MTA does: written in tmp/, renamed into new/.
void Deliver(World& world, const QString& id)
{
    const QString root = world.MaildirRoot();
    const QString name = QStringLiteral("%1.%2.e2e").arg(QDateTime::currentSecsSinceEpoch()).arg(id);
    QFile f(root + QStringLiteral("/tmp/") + name);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("From: Dropper <drop@e2e.test>\r\nTo: bob@example.org\r\nSubject: dropped " + id.toUtf8() +
            "\r\nMessage-ID: <" + id.toUtf8() + ">\r\n\r\nbody\r\n");
    f.close();
    ASSERT_TRUE(QFile::rename(f.fileName(), root + QStringLiteral("/new/") + name));
}

TEST(Headless, BurstOfNewMailIsMovedByOneRunAboutTenSecondsLaterAndSigtermClosesTheDatabase)
{
    World world(Backend::Maildir);
    QString error;
    bool skip = false;
    ASSERT_TRUE(world.Start(&error, &skip)) << error.toStdString();
    world.CreateFolder(QStringLiteral("Archive"));
    QString storeId;
    const auto ids = world.FolderIds(&storeId);
    RuleDef rule{QStringLiteral("Dropped mail"), QStringLiteral("Archive"),
                  {{QStringLiteral("FromAddress"), QStringLiteral("drop@e2e.test")}}};
    ASSERT_TRUE(world.Import({RuleRow(1, rule, ids, storeId)}, &error)) << error.toStdString();

    QProcess service;
    service.setProcessEnvironment(world.Environment());
    service.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    service.start(world.Program(), world.BaseArgs() << QStringLiteral("--headless"));
    ASSERT_TRUE(service.waitForStarted());
    ASSERT_TRUE(WaitFor([&] { return world.LogText().contains(QStringLiteral("Started: timers on")); }, 30000))
        << world.LogText().toStdString();

    QElapsedTimer sinceFirst;
    sinceFirst.start();
    for (int i = 0; i < 3; ++i) {
        Deliver(world, QStringLiteral("drop%1@e2e.test").arg(i));
        QThread::msleep(500);
    }
    ASSERT_TRUE(WaitFor([&] { return world.Ids(QStringLiteral("Archive")).size() == 3; }, 40000))
        << world.LogText().toStdString();
    const qint64 took = sinceFirst.elapsed();
    // Ten seconds after the last arrival of the burst, not before.
    EXPECT_GE(took, 10000);
    EXPECT_LT(took, 25000);
    EXPECT_TRUE(world.Ids(QString()).isEmpty());
    // One run of the add-in's mail timer took the whole burst.
    EXPECT_EQ(world.LogText().count(QStringLiteral("RunImmediateRules: Top Entry point")), 1)
        << world.LogText().toStdString();
    EXPECT_TRUE(world.LogText().contains(QStringLiteral("RunImmediateRules: Dropped mail: 3 moved")))
        << world.LogText().toStdString();

    service.terminate();  // SIGTERM
    ASSERT_TRUE(service.waitForFinished(30000));
    EXPECT_EQ(service.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(service.exitCode(), 0);
    const QString log = world.LogText();
    const auto signal = log.indexOf(QStringLiteral("Signal 15: stopping"));
    const auto closed = log.lastIndexOf(QStringLiteral("Database closed"));
    EXPECT_GE(signal, 0) << log.toStdString();
    EXPECT_GT(closed, signal) << log.toStdString();
    EXPECT_TRUE(log.trimmed().endsWith(QStringLiteral("Stopped"))) << log.toStdString();
}

}  // namespace
}  // namespace mv::e2e
