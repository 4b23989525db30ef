// Protocol pieces without a server: identifiers, mailbox names, and the
// store's dialogue with a scripted fake server over a socketpair.
#include "platform/mapi/Restriction.h"
#include "platform/stores/imap/ImapConnection.h"
#include "platform/stores/imap/ImapFetcher.h"
#include "platform/stores/imap/ImapIds.h"
#include "platform/stores/imap/ImapStore.h"
#include "platform/stores/imap/ModifiedUtf7.h"

#include <libetpan/libetpan.h>

#include <QElapsedTimer>
#include <QMap>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <mutex>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

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

// A scripted IMAP server on one end of a socketpair: answers each command
// by its verb, records what it was sent, and can hang up in the middle of
// the first answer to one verb.
class FakeServer {
public:
    FakeServer(QMap<QByteArray, QByteArray> answers, QByteArray dropVerb, std::vector<QByteArray>* log, std::mutex* logMutex)
        : m_answers(std::move(answers)), m_drop(std::move(dropVerb)), m_log(log), m_logMutex(logMutex)
    {
        int fds[2];
        ::socketpair(AF_UNIX, SOCK_STREAM, 0, fds);
        m_fd = fds[0];
        clientFd = fds[1];
        m_thread = std::thread([this] { Serve(); });
    }
    ~FakeServer()
    {
        ::shutdown(m_fd, SHUT_RDWR);
        m_thread.join();
        ::close(m_fd);
    }
    int clientFd = -1;

private:
    void Write(const QByteArray& data) { (void)!::write(m_fd, data.constData(), data.size()); }
    void Serve()
    {
        Write("* OK fake ready\r\n");
        QByteArray buffer;
        char chunk[4096];
        for (;;) {
            const qsizetype eol = buffer.indexOf("\r\n");
            if (eol < 0) {
                const ssize_t n = ::read(m_fd, chunk, sizeof chunk);
                if (n <= 0) return;
                buffer.append(chunk, n);
                continue;
            }
            const QByteArray line = buffer.left(eol);
            buffer.remove(0, eol + 2);
            const QByteArray tag = line.left(line.indexOf(' '));
            const QByteArray command = line.mid(tag.size() + 1);
            {
                std::lock_guard lock(*m_logMutex);
                m_log->push_back(command);
            }
            QByteArray verb;
            for (auto it = m_answers.cbegin(); it != m_answers.cend(); ++it)
                if (command.startsWith(it.key()) && it.key().size() > verb.size()) verb = it.key();
            const QByteArray answer = m_answers.value(verb, "OK done");
            const qsizetype tagged = answer.lastIndexOf("\r\n");
            const QByteArray untagged = tagged < 0 ? QByteArray() : answer.left(tagged + 2);
            if (!m_drop.isEmpty() && verb == m_drop) {
                Write(untagged.left(untagged.size() / 2));
                ::shutdown(m_fd, SHUT_RDWR);
                return;
            }
            Write(untagged + tag + ' ' + (tagged < 0 ? answer : answer.mid(tagged + 2)) + "\r\n");
        }
    }

    QMap<QByteArray, QByteArray> m_answers;
    QByteArray m_drop;
    std::vector<QByteArray>* m_log;
    std::mutex* m_logMutex;
    int m_fd = -1;
    std::thread m_thread;
};

QByteArray FetchLine(int seq, int uid, const char* flags, const QByteArray& subject)
{
    const QByteArray header = "From: Alice <alice@example.org>\r\nSubject: " + subject + "\r\n\r\n";
    return "* " + QByteArray::number(seq) + " FETCH (UID " + QByteArray::number(uid) + " FLAGS (" + flags +
           ") INTERNALDATE \"01-Oct-2026 09:30:00 +0000\" RFC822.SIZE 120 BODY[HEADER.FIELDS (FROM SUBJECT)] {" +
           QByteArray::number(header.size()) + "}\r\n" + header +
           " BODYSTRUCTURE (\"text\" \"plain\" (\"charset\" \"utf-8\") NIL NIL \"7bit\" 10 1 NIL NIL NIL NIL))\r\n";
}

class ScriptedStoreTest : public ::testing::Test {
protected:
    std::unique_ptr<ImapStore> MakeStore(QMap<QByteArray, QByteArray> answers, QByteArray dropOnce)
    {
        answers.insert("CAPABILITY", "* CAPABILITY IMAP4rev1 LITERAL+ UIDPLUS MOVE\r\nOK done");
        answers.insert("LOGOUT", "* BYE\r\nOK bye");
        if (!answers.contains("SELECT")) answers.insert("SELECT", "* 2 EXISTS\r\n* OK [UIDVALIDITY 7] ok\r\nOK [READ-WRITE] selected");
        ImapSettings settings;
        settings.user = QStringLiteral("test");
        settings.password = QStringLiteral("secret");
        settings.timeoutSeconds = 5;
        auto connector = [this, answers, dropOnce](const ImapSettings& s, const QString& password) mutable {
            servers.push_back(std::make_unique<FakeServer>(answers, dropOnce, &log, &logMutex));
            dropOnce.clear();  // only the first connection hangs up
            return ImapConnection::OpenOnStream(mailstream_socket_open(servers.back()->clientFd), s, password);
        };
        return std::make_unique<ImapStore>(settings, connector);
    }
    int Count(const QByteArray& prefix)
    {
        std::lock_guard lock(logMutex);
        return static_cast<int>(std::count_if(log.begin(), log.end(), [&](const QByteArray& c) { return c.startsWith(prefix); }));
    }

    std::mutex logMutex;
    std::vector<QByteArray> log;
    std::vector<std::unique_ptr<FakeServer>> servers;
};

TEST_F(ScriptedStoreTest, SearchDroppedMidAnswerIsRetriedAndRechecked)
{
    auto store = MakeStore({{"UID SEARCH", "* SEARCH 4 9\r\nOK searched"},
                            {"UID FETCH", FetchLine(1, 4, "\\Seen", "Budget plan") + FetchLine(2, 9, "", "Other budget") + "OK fetched"}},
                           "UID SEARCH");
    const Restriction r = Restriction::And({Restriction::Content(PR_SUBJECT, QStringLiteral("budget")),
                                            Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ)});
    auto rows = store->Query(ImapIds::FolderId("INBOX", 7), &r, {PR_ENTRYID, PR_SUBJECT});
    ASSERT_TRUE(rows.ok()) << rows.error().message.toStdString();
    // The fake server answers wider than asked (UID 4 is read): the re-check drops it.
    ASSERT_EQ(rows->size(), 1u);
    EXPECT_EQ((*rows)[0][0].toByteArray(), ImapIds::MessageId({"INBOX", 7}, 9));
    EXPECT_EQ((*rows)[0][1].toString(), QStringLiteral("Other budget"));
    EXPECT_EQ(servers.size(), 2u) << "one reconnect";
    EXPECT_EQ(Count("UID SEARCH UNDELETED SUBJECT \"budget\" UNSEEN"), 2);
    EXPECT_EQ(Count("UID FETCH 4,9 (UID FLAGS INTERNALDATE RFC822.SIZE BODY.PEEK[HEADER.FIELDS ("), 1);
}

TEST_F(ScriptedStoreTest, RefusedMoveIsPermanentAndSentOnce)
{
    auto store = MakeStore({{"STATUS", "* STATUS Archive (UIDVALIDITY 8 UIDNEXT 5)\r\nOK status"},
                            {"UID FETCH", FetchLine(1, 4, "", "Budget plan") + "OK fetched"},
                            {"UID MOVE", "NO [OVERQUOTA] quota exceeded"}},
                           {});
    auto moved = store->Move(ImapIds::MessageId({"INBOX", 7}, 4), ImapIds::FolderId("Archive", 8));
    ASSERT_FALSE(moved.ok());
    EXPECT_EQ(moved.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(moved.error().message.contains(QStringLiteral("quota exceeded"))) << moved.error().message.toStdString();
    EXPECT_EQ(Count("UID MOVE"), 1);
    EXPECT_EQ(Count("EXPUNGE"), 0);
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
