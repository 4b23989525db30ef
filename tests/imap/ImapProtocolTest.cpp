// Protocol pieces without a server: identifiers, mailbox names, UID sets,
// and a server that never greets.
#include "platform/stores/imap/ImapFetcher.h"
#include "platform/stores/imap/ImapIds.h"
#include "platform/stores/imap/ImapStore.h"
#include "platform/stores/imap/ModifiedUtf7.h"

#include <QElapsedTimer>
#include <QTcpServer>

#include <gtest/gtest.h>


using namespace mv;
using namespace mv::mapi;
using namespace mv::stores;

namespace {

struct Utf7Case {
    const char* display;
    const char* wire;
};
const Utf7Case kUtf7[] = {
    {"INBOX", "INBOX"},
    {"K\xc3\xbc" "che", "K&APw-che"},
    {"Tom & Jerry", "Tom &- Jerry"},
    {"~peter/mail/\xe5\x8f\xb0\xe5\x8c\x97/\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e", "~peter/mail/&U,BTFw-/&ZeVnLIqe-"},
};

TEST(ModifiedUtf7, RoundTripsRfcExamples)
{
    for (const Utf7Case& c : kUtf7) {
        EXPECT_EQ(ModifiedUtf7::Encode(QString::fromUtf8(c.display)), QByteArray(c.wire)) << c.wire;
        EXPECT_EQ(ModifiedUtf7::Decode(c.wire), QString::fromUtf8(c.display)) << c.wire;
    }
    EXPECT_EQ(ModifiedUtf7::Decode("broken &APw"), QStringLiteral("broken &APw")) << "an unterminated shift is kept as text";
}

TEST(ImapIds, RoundTripAndRejectForeignIdentifiers)
{
    const QByteArray folder = ImapIds::FolderId("Projekte.K&APw-che", 1700000000u);
    const QByteArray message = ImapIds::MessageId({"Projekte.K&APw-che", 1700000000u}, 42);
    ASSERT_TRUE(ImapIds::ParseFolder(folder).has_value());
    EXPECT_EQ(ImapIds::ParseFolder(folder)->mailbox, QByteArray("Projekte.K&APw-che"));
    EXPECT_EQ(ImapIds::ParseFolder(folder)->uidValidity, 1700000000u);
    ASSERT_TRUE(ImapIds::ParseMessage(message).has_value());
    EXPECT_EQ(ImapIds::ParseMessage(message)->uid, 42u);
    EXPECT_TRUE(message.startsWith(folder));

    const QByteArray rejected[] = {{}, "MVI1", folder.left(folder.size() - 1), message, "MVM1" + folder.mid(4),
                                   ImapIds::StoreId(QStringLiteral("u"), QStringLiteral("h"), 993)};
    for (const QByteArray& id : rejected) EXPECT_FALSE(ImapIds::ParseFolder(id).has_value()) << id.toHex().constData();
    EXPECT_FALSE(ImapIds::ParseMessage(folder).has_value());
    EXPECT_FALSE(ImapIds::ParseMessage(message + "x").has_value());
}

TEST(ImapFetcher, UidSetsAndZones)
{
    EXPECT_EQ(ImapFetcher::UidSet({9, 1, 2, 3, 3, 5, 10}), QByteArray("1:3,5,9:10"));
    EXPECT_EQ(ImapFetcher::ToUtc(1, 10, 2026, 10, 0, 0, 130), QDateTime(QDate(2026, 10, 1), QTime(8, 30), Qt::UTC));
    EXPECT_EQ(ImapFetcher::ToUtc(1, 10, 2026, 23, 0, 0, -500), QDateTime(QDate(2026, 10, 2), QTime(4, 0), Qt::UTC));
    EXPECT_EQ(ImapFetcher::ClassFromCalendar("BEGIN:VCALENDAR\r\nmethod: request\r\n"), QStringLiteral("IPM.Schedule.Meeting.Request"));
    EXPECT_EQ(ImapFetcher::ClassFromCalendar("BEGIN:VCALENDAR\r\nMETHOD:PUBLISH\r\n"), QStringLiteral("IPM.Note"));
}

TEST(ImapTimeout, SilentServerDoesNotHangTheCaller)
{
    QTcpServer silent;  // the kernel accepts connections; nobody greets
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    ImapSettings settings;
    settings.host = QStringLiteral("127.0.0.1");
    settings.port = silent.serverPort();
    settings.tls = TlsMode::None;
    settings.user = QStringLiteral("test");
    settings.timeoutSeconds = 1;
    ImapStore store(settings);
    QElapsedTimer timer;
    timer.start();
    auto folders = store.Folders();
    ASSERT_FALSE(folders.ok());
    EXPECT_EQ(folders.error().kind, ErrorKind::Temporary);
    EXPECT_LT(timer.elapsed(), 5000);
}

}  // namespace
