// Mail events from an IMAP account, against a private Dovecot: arrivals in
// INBOX seen through IDLE raise NewMail, an append to Sent raises ItemSend.

#include "host/core/HeadlessApplication.h"

#include "platform/stores/imap/ImapStore.h"
#include "tests/support/dovecot/DovecotServer.h"

#include <QDeadlineTimer>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

namespace mv::test {
namespace {

using namespace mv::host;

TEST(HeadlessApplicationImap, IdleArrivalAndSentAppendRaiseEvents)
{
    if (!DovecotServer::Available()) GTEST_SKIP() << "dovecot is not installed";
    DovecotServer server;
    QString error;
    ASSERT_TRUE(server.Start(&error)) << error.toStdString();

    stores::ImapSettings settings;
    settings.host = QStringLiteral("127.0.0.1");
    settings.port = server.Port();
    settings.tls = stores::TlsMode::None;
    settings.user = DovecotServer::User();
    settings.password = DovecotServer::Password();
    settings.timeoutSeconds = 10;

    StoreSet set;
    set.Add(std::make_unique<stores::ImapStore>(settings));
    mapi::MessageStore& store = *set.Stores().front();
    auto sent = store.CreateFolder({}, QStringLiteral("Sent"));
    ASSERT_TRUE(sent.ok()) << sent.error().message.toStdString();

    os::MemoryClipboard clipboard;
    HeadlessApplication app(set, clipboard);
    QSignalSpy newMail(&app, &outlook::Application::NewMail);
    QStringList sentSubjects;
    QObject::connect(&app, &outlook::Application::ItemSend,
                     [&](outlook::Item* item, bool&) { sentSubjects << (item ? item->Subject() : QString()); });
    app.Open();

    // Another client delivers to INBOX; this store learns of it through IDLE.
    stores::ImapStore other(settings);
    auto inbox = other.FolderIdOf("INBOX");
    ASSERT_TRUE(inbox.ok());
    mapi::NewMessage m;
    // The watcher logs in and starts IDLE on its own thread; deliver until it
    // reports, as a mail server would keep delivering.
    QDeadlineTimer patience(60000);  // a loaded test machine may take its time to log in
    for (int attempt = 0; !patience.hasExpired() && newMail.isEmpty(); ++attempt) {
        m.rfc822 = QStringLiteral("From: a@example.org\r\nSubject: via IDLE %1\r\n\r\nhi\r\n").arg(attempt).toUtf8();
        ASSERT_TRUE(other.Append(*inbox, m).ok());
        newMail.wait(2000);
    }
    ASSERT_FALSE(newMail.isEmpty()) << "no NewMail after INBOX deliveries; server log:\n"
                                    << server.LogText().toStdString();
    EXPECT_TRUE(sentSubjects.isEmpty());

    m.rfc822 = "From: test@example.org\r\nTo: b@example.org\r\nSubject: my reply\r\n\r\nhi\r\n";
    ASSERT_TRUE(store.Append(*sent, m).ok());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !sentSubjects.isEmpty(); }, 5000))
        << "no ItemSend after the append to Sent; server log:\n" << server.LogText().toStdString();
    EXPECT_EQ(sentSubjects.value(0).toStdString(), "my reply");
    app.Stop();
}

}  // namespace
}  // namespace mv::test
