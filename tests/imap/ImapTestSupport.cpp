#include "ImapTestSupport.h"

#include <QDir>
#include <QLocale>
#include <QTcpSocket>

#include <algorithm>
#include <map>

namespace mv::test {

QByteArray BuildMail(const MailDef& def, int serial)
{
    QString text;
    text += QStringLiteral("From: %1\r\n").arg(def.from);
    if (!def.to.isEmpty()) text += QStringLiteral("To: %1\r\n").arg(def.to);
    text += QStringLiteral("Subject: %1\r\n").arg(def.subject);
    text += QStringLiteral("Date: %1\r\n").arg(QLocale::c().toString(def.date, QStringLiteral("ddd, dd MMM yyyy hh:mm:ss +0000")));
    text += QStringLiteral("Message-ID: <m%1.%2@test.example>\r\n").arg(serial).arg(def.date.toSecsSinceEpoch());
    text += QStringLiteral("MIME-Version: 1.0\r\n");
    for (const QString& h : def.extraHeaders) text += h + QStringLiteral("\r\n");
    if (!def.extraHeaders.join(QString()).contains(QStringLiteral("Content-Type"), Qt::CaseInsensitive))
        text += QStringLiteral("Content-Type: text/plain; charset=utf-8\r\n");
    text += QStringLiteral("\r\n") + def.body + QStringLiteral("\r\n");
    return text.toUtf8();
}

MailDef Mail(const QString& subject, bool seen)
{
    MailDef def;
    def.subject = subject;
    def.flags.seen = seen;
    return def;
}

QByteArray OtherClient(quint16 port, const QByteArrayList& commands)
{
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), port);
    if (!socket.waitForConnected(5000)) return {};
    QByteArray transcript;
    auto untilTagged = [&](const QByteArray& tag) {
        QByteArray line;
        do {
            while (!socket.canReadLine())
                if (!socket.waitForReadyRead(5000)) return;
            line = socket.readLine();
            transcript += line;
        } while (!tag.isEmpty() && !line.startsWith(tag + ' '));
    };
    untilTagged({});  // greeting
    QByteArrayList all = {"LOGIN test secret"};
    all += commands;
    all += "LOGOUT";
    int n = 0;
    for (const QByteArray& command : all) {
        const QByteArray tag = 'x' + QByteArray::number(++n);
        socket.write(tag + ' ' + command + "\r\n");
        untilTagged(tag);
    }
    return transcript;
}

namespace {

// Servers live until the end of the run (stopped before Qt goes away).
class Servers : public ::testing::Environment {
public:
    static std::map<QString, std::unique_ptr<DovecotServer>>& All()
    {
        static std::map<QString, std::unique_ptr<DovecotServer>> all;
        return all;
    }
    void TearDown() override { All().clear(); }
};
[[maybe_unused]] ::testing::Environment* const kServers = ::testing::AddGlobalTestEnvironment(new Servers);

}  // namespace

DovecotServer* SharedDovecot(const DovecotOptions& options, QString* error)
{
    std::unique_ptr<DovecotServer>& shared =
        Servers::All()[options.hideCapabilities.join(QLatin1Char(' ')) + (options.tls ? "+tls" : "") +
                       options.oauthIntrospectionUrl];
    if (!shared || !shared->IsRunning()) {
        shared = std::make_unique<DovecotServer>(options);
        if (!shared->Start(error)) shared.reset();
    }
    return shared.get();
}

void DovecotStoreTest::SetUp()
{
    if (!DovecotServer::Available()) GTEST_SKIP() << DovecotServer::BinaryPath().toStdString() << " is not installed";
    QString error;
    server = SharedDovecot(Options(), &error);
    ASSERT_TRUE(server) << error.toStdString();
    // The previous test's mail goes: an empty Maildir as at the start.
    QDir(server->MaildirPath()).removeRecursively();
    for (const char* sub : {"/cur", "/new", "/tmp"}) QDir().mkpath(server->MaildirPath() + QLatin1String(sub));
    server->HandMailToMailUser();
    store = MakeStore();
    auto id = store->FolderIdOf("INBOX");
    ASSERT_TRUE(id.ok()) << id.error().message.toStdString();
    inbox = *id;
}

stores::ImapSettings DovecotStoreTest::Settings(quint16 port) const
{
    stores::ImapSettings s;
    s.host = QStringLiteral("127.0.0.1");
    s.port = port ? port : server->Port();
    s.tls = stores::TlsMode::None;
    s.user = DovecotServer::User();
    s.password = DovecotServer::Password();
    s.timeoutSeconds = 10;
    s.ownAddress = QStringLiteral("test@example.com");
    s.clock = [] { return QDateTime(QDate(2026, 11, 1), QTime(12, 0), Qt::UTC); };
    return s;
}

QByteArray DovecotStoreTest::Folder(const QByteArray& mailbox)
{
    auto id = store->FolderIdOf(mailbox);
    if (id) return *id;
    auto made = store->CreateFolder({}, QString::fromUtf8(mailbox));
    EXPECT_TRUE(made.ok()) << made.error().message.toStdString();
    return made ? *made : QByteArray();
}

QByteArray DovecotStoreTest::Add(const QByteArray& folderId, const MailDef& def)
{
    mapi::NewMessage m;
    m.rfc822 = BuildMail(def, ++serial);
    m.flags = def.flags;
    m.internalDate = def.date;
    auto id = store->Append(folderId, m);
    EXPECT_TRUE(id.ok()) << id.error().message.toStdString();
    return id ? *id : QByteArray();
}

QStringList DovecotStoreTest::Subjects(const QByteArray& folderId, const mapi::Restriction* restriction,
                                       const std::vector<mapi::PropTag>& columns, stores::ImapStore* other)
{
    auto rows = (other ? other : store.get())->Query(folderId, restriction, columns);
    EXPECT_TRUE(rows.ok()) << rows.error().message.toStdString();
    const size_t at = std::find(columns.begin(), columns.end(), mapi::PR_SUBJECT) - columns.begin();
    QStringList out;
    if (rows)
        for (const mapi::Row& r : *rows) out << r[at].toString();
    out.sort();
    return out;
}

}  // namespace mv::test
