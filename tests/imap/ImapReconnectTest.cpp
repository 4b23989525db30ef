// Failed connects: pauses that double up to a ceiling, one log line per
// change of state, no more logins after a refused one, and a time limit.
#include "ImapTestSupport.h"

#include "platform/stores/imap/ImapConnection.h"
#include "platform/stores/imap/ImapIdleWatcher.h"

#include <QElapsedTimer>
#include <QTcpServer>

using namespace mv;
using namespace mv::test;

namespace {

class ImapReconnectTest : public DovecotStoreTest {
protected:
    // A store whose connects go through `opens` and whose clock is `now`.
    std::unique_ptr<stores::ImapStore> Counted(stores::ImapSettings settings)
    {
        settings.reconnectClock = [this] { return now; };
        auto store = std::make_unique<stores::ImapStore>(
            settings, [this](const stores::ImapSettings& s, const QString& password) {
                if (++opens <= failFirst) return Result<std::unique_ptr<stores::ImapConnection>>(
                    Error::temporary(S("cannot connect (refused by the test)")));
                return stores::ImapConnection::Open(s, password);
            });
        store->SetLogger(&log);
        return store;
    }

    QDateTime now = QDateTime(QDate(2026, 11, 1), QTime(12, 0), Qt::UTC);
    int opens = 0;
    int failFirst = 0;  // connects that fail before the real ones
    logging::MemoryLogger log;
};

// Failed connects are tried less often up to a ceiling and logged once;
// the connect that works again is logged too.
TEST_F(ImapReconnectTest, FailuresAreTriedLessOftenAndLoggedOnce)
{
    failFirst = 10;
    auto flaky = Counted(Settings());
    // Seconds after each failure until the next try; the last stays.
    const int pauses[] = {5, 10, 20, 40, 80, 160, 320, 640, 900, 900};
    for (int pause : pauses) {
        auto failed = flaky->Folders();
        ASSERT_FALSE(failed.ok());
        EXPECT_EQ(failed.error().kind, ErrorKind::Temporary);
        const int tried = opens;
        now = now.addSecs(pause - 1);
        auto waiting = flaky->Folders();
        EXPECT_EQ(opens, tried) << "tried again within " << pause << " s";
        EXPECT_EQ(waiting.error().kind, ErrorKind::Temporary);
        EXPECT_TRUE(waiting.error().message.contains(S("not tried again"))) << waiting.error().message.toStdString();
        now = now.addSecs(1);
    }
    EXPECT_EQ(opens, 10);
    auto folders = flaky->Folders();
    ASSERT_TRUE(folders.ok()) << folders.error().message.toStdString();
    ASSERT_EQ(log.texts().size(), 2) << log.texts().join(S("\n")).toStdString();
    EXPECT_TRUE(log.texts().back().contains(S("connected again"))) << log.texts().back().toStdString();
}

TEST_F(ImapReconnectTest, RefusedLoginStopsEveryFurtherTry)
{
    auto settings = Settings();
    settings.password = S("wrong");
    auto refused = Counted(settings);
    auto first = refused->Folders();
    ASSERT_FALSE(first.ok());
    EXPECT_EQ(first.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(first.error().message.contains(S("test"))) << "names the user";
    EXPECT_FALSE(first.error().message.contains(S("wrong"))) << "never the password";
    now = now.addDays(1);
    auto later = refused->Folders();
    ASSERT_FALSE(later.ok());
    EXPECT_EQ(later.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(later.error().message.contains(S("until the profile changes"))) << later.error().message.toStdString();
    EXPECT_EQ(opens, 1);
    EXPECT_EQ(log.texts().size(), 1);

    // A store made anew (changed profile, restart) logs in again.
    auto fresh = Counted(Settings());
    EXPECT_TRUE(fresh->Folders().ok());
}

// The new-mail watcher reports as the store does: a refused login ends its
// thread with one log line; an unreachable server is logged once and not
// tried again before its pause is over (the clock here stands still).
TEST_F(ImapReconnectTest, WatcherLogsOnceAndStopsAfterARefusedLogin)
{
    auto settings = Settings();
    settings.reconnectClock = [this] { return now; };
    settings.password = S("wrong");
    stores::ImapIdleWatcher refused(settings, std::make_shared<stores::ImapCredentials>(settings), &log);
    refused.start();
    EXPECT_TRUE(refused.wait(10000)) << "the watcher kept trying";
    ASSERT_EQ(log.texts().size(), 1);
    EXPECT_TRUE(log.texts().front().contains(S("until the profile changes"))) << log.texts().front().toStdString();

    logging::MemoryLogger deadLog;
    auto deadSettings = Settings(FreeLocalPort());
    deadSettings.reconnectClock = [this] { return now; };
    stores::ImapIdleWatcher unreachable(deadSettings, std::make_shared<stores::ImapCredentials>(deadSettings),
                                        &deadLog);
    unreachable.start();
    QThread::msleep(1500);
    QElapsedTimer timer;
    timer.start();
    unreachable.Stop();
    EXPECT_LT(timer.elapsed(), 1000);
    ASSERT_EQ(deadLog.texts().size(), 1);
    EXPECT_TRUE(deadLog.texts().front().contains(S("new-mail watcher"))) << deadLog.texts().front().toStdString();
}

// A server that accepts the connection (the kernel does) and never greets.
TEST_F(ImapReconnectTest, SilentServerDoesNotHangTheCaller)
{
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    auto settings = Settings(silent.serverPort());
    settings.timeoutSeconds = 1;
    stores::ImapStore store(settings);
    QElapsedTimer timer;
    timer.start();
    auto folders = store.Folders();
    ASSERT_FALSE(folders.ok());
    EXPECT_EQ(folders.error().kind, ErrorKind::Temporary);
    EXPECT_LT(timer.elapsed(), 5000);
}

}  // namespace
