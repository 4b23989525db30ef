#include "DovecotServer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mv::test {

namespace {

// Dovecot 2.3's post-login capabilities; a hidden capability is removed from
// this list because imap_capability replaces rather than edits it.
const char* const kCapabilities =
    "IMAP4rev1 SASL-IR LOGIN-REFERRALS ID ENABLE IDLE SORT SORT=DISPLAY THREAD=REFERENCES "
    "THREAD=REFS THREAD=ORDEREDSUBJECT MULTIAPPEND URL-PARTIAL CATENATE UNSELECT CHILDREN "
    "NAMESPACE UIDPLUS LIST-EXTENDED I18NLEVEL=1 CONDSTORE QRESYNC ESEARCH ESORT SEARCHRES "
    "WITHIN CONTEXT=SEARCH LIST-STATUS BINARY MOVE SNIPPET=FUZZY PREVIEW=FUZZY PREVIEW "
    "STATUS=SIZE SAVEDATE LITERAL+ NOTIFY SPECIAL-USE";

bool WriteFile(const QString& path, const QByteArray& data, QString* error)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(data) != data.size()) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, f.errorString());
        return false;
    }
    return true;
}

}  // namespace

quint16 FreeLocalPort()
{
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost, 0)) return 0;
    return server.serverPort();
}

DovecotServer::DovecotServer(DovecotOptions options) : m_options(std::move(options))
{
    // The mail user ("nobody") must be able to reach its home below the
    // temporary folder, which is created 0700.
    ::chmod(QFile::encodeName(m_dir.path()).constData(), 0755);
    QDir root(m_dir.path());
    for (const char* sub : {"run", "state", "home/test/Maildir/cur", "home/test/Maildir/new", "home/test/Maildir/tmp"})
        root.mkpath(QString::fromLatin1(sub));
}

DovecotServer::~DovecotServer() { Stop(); }

QString DovecotServer::BinaryPath() { return QStringLiteral("/usr/sbin/dovecot"); }
bool DovecotServer::Available() { return QFileInfo(BinaryPath()).isExecutable(); }

QString DovecotServer::MaildirPath() const { return m_dir.filePath(QStringLiteral("home/test/Maildir")); }

QString DovecotServer::CertificatePath() const
{
    return m_options.tls ? m_dir.filePath(QStringLiteral("cert.pem")) : QString();
}

QByteArray DovecotServer::CertificatePem() const
{
    QFile f(CertificatePath());
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QString DovecotServer::LogText() const
{
    QFile f(m_dir.filePath(QStringLiteral("dovecot.log")));
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

bool DovecotServer::MakeCertificate(QString* error)
{
    QProcess openssl;
    openssl.start(QStringLiteral("openssl"),
                  QStringLiteral("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=localhost "
                                 "-addext subjectAltName=DNS:localhost,IP:127.0.0.1 -keyout %1 -out %2")
                      .arg(m_dir.filePath(QStringLiteral("key.pem")), m_dir.filePath(QStringLiteral("cert.pem")))
                      .split(QLatin1Char(' ')));
    if (!openssl.waitForFinished(30000) || openssl.exitCode() != 0) {
        *error = QStringLiteral("openssl could not make a test certificate: ") +
                 QString::fromLocal8Bit(openssl.readAllStandardError()) + openssl.errorString();
        return false;
    }
    return true;
}

bool DovecotServer::WriteConfig(QString* error)
{
    const QString root = m_dir.path();
    if (!WriteFile(m_dir.filePath(QStringLiteral("passwd")), QByteArrayLiteral("test:{PLAIN}secret::::\n"), error))
        return false;

    QString capability;
    if (!m_options.hideCapabilities.isEmpty()) {
        QStringList caps = QString::fromLatin1(kCapabilities).split(QLatin1Char(' '));
        for (const QString& hidden : m_options.hideCapabilities) caps.removeAll(hidden);
        capability = QStringLiteral("imap_capability = %1\n").arg(caps.join(QLatin1Char(' ')));
    }
    QString ssl = QStringLiteral("ssl = no\n");
    if (m_options.tls)
        ssl = QStringLiteral("ssl = yes\nssl_cert = <%1/cert.pem\nssl_key = <%1/key.pem\n").arg(root);

    QString oauth;
    QString mechanisms = QStringLiteral("plain login");
    if (!m_options.oauthIntrospectionUrl.isEmpty()) {
        const QByteArray settings = QStringLiteral("introspection_mode = post\nintrospection_url = %1\n"
                                                   "force_introspection = yes\nusername_attribute = username\n"
                                                   "active_attribute = active\nactive_value = true\n")
                                        .arg(m_options.oauthIntrospectionUrl)
                                        .toUtf8();
        if (!WriteFile(m_dir.filePath(QStringLiteral("oauth2.conf")), settings, error)) return false;
        // Token mechanisms only. The password file is asked first (and
        // refuses a token); Dovecot's growing pause before the login after a
        // refused one stays: login_trusted_networks does not lift it in 2.3.
        oauth = QStringLiteral("passdb {\n  driver = oauth2\n  mechanisms = xoauth2 oauthbearer\n"
                               "  args = %1/oauth2.conf\n}\nauth_failure_delay = 0\n")
                    .arg(root);
        mechanisms += QStringLiteral(" xoauth2 oauthbearer");
    }

    QString mailboxes;
    for (const char* box : {"Sent", "Drafts", "Trash", "Archive"})
        mailboxes += QStringLiteral("  mailbox %1 {\n    special_use = \\%1\n    auto = subscribe\n  }\n").arg(QLatin1String(box));
    const QString conf = QStringLiteral(
        "base_dir = %1/run\n"
        "state_dir = %1/state\n"
        "log_path = %1/dovecot.log\n"
        "protocols = imap\n"
        "listen = 127.0.0.1\n"
        "disable_plaintext_auth = no\n"
        "auth_mechanisms = %7\n"
        "%2"
        "%3"
        "passdb {\n  driver = passwd-file\n  args = %1/passwd\n}\n"
        "%8"
        "userdb {\n  driver = passwd-file\n  args = %1/passwd\n"
        "  default_fields = uid=nobody gid=nogroup home=%1/home/%u\n}\n"
        "mail_location = maildir:~/Maildir\n"
        // IDLE learns of changes through inotify; where a test machine has
        // used up its inotify instances, this poll still tells within a second.
        "mailbox_idle_check_interval = 1 secs\n"
        // A test process keeps several stores (and their second connections)
        // open at once; the default of ten per user would refuse logins.
        "protocol imap {\n  mail_max_userip_connections = 40\n}\n"
        "namespace inbox {\n  inbox = yes\n"
        "%6"
        "}\n"
        "service imap-login {\n"
        "  inet_listener imap {\n    address = 127.0.0.1\n    port = %4\n  }\n"
        "  inet_listener imaps {\n    address = 127.0.0.1\n    port = %5\n    ssl = yes\n  }\n"
        "}\n"
        "service stats {\n  inet_listener http {\n    port = 0\n  }\n}\n")
        .arg(root, ssl, capability)
        .arg(m_port)
        .arg(m_tlsPort)
        .arg(mailboxes, mechanisms, oauth);
    return WriteFile(m_dir.filePath(QStringLiteral("dovecot.conf")), conf.toUtf8(), error);
}

void DovecotServer::HandMailToMailUser() const
{
    const passwd* pw = ::getpwnam("nobody");
    const group* gr = ::getgrnam("nogroup");
    if (!pw || !gr) return;
    const QString home = m_dir.filePath(QStringLiteral("home"));
    // Best effort: a file that cannot be given stays the test's.
    auto give = [&](const QString& path) { (void)!::chown(QFile::encodeName(path).constData(), pw->pw_uid, gr->gr_gid); };
    give(home);
    QDirIterator it(home, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) give(it.next());
}

bool DovecotServer::WaitForPort(quint16 port, int timeoutMs) const
{
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, port);
        if (socket.waitForConnected(200)) return true;
        if (m_process->state() == QProcess::NotRunning) return false;
        QThread::msleep(20);  // the master is still binding its listeners
    }
    return false;
}

bool DovecotServer::Start(QString* error)
{
    QString dummy;
    if (!error) error = &dummy;
    {
        // Both held open at once: two ports taken one after the other can
        // be the same one.
        QTcpServer imap, imaps;
        imap.listen(QHostAddress::LocalHost, 0);
        imaps.listen(QHostAddress::LocalHost, 0);
        m_port = imap.serverPort();
        m_tlsPort = imaps.serverPort();
    }
    if (!Available() || !m_dir.isValid() || m_port == 0 || m_tlsPort == 0) {
        *error = QStringLiteral("%1 installed, a temporary folder and two free ports on 127.0.0.1 are needed").arg(BinaryPath());
        return false;
    }
    if (m_options.tls && !QFileInfo::exists(CertificatePath()) && !MakeCertificate(error)) return false;
    if (!WriteConfig(error)) return false;
    HandMailToMailUser();

    m_process = std::make_unique<QProcess>();
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // Its own process group, so that Stop() reaches the master's children too.
    // A test that dies must not leave its server behind.
    m_process->setChildProcessModifier([] {
        ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    });
    m_process->start(BinaryPath(), {QStringLiteral("-F"), QStringLiteral("-c"), m_dir.filePath(QStringLiteral("dovecot.conf"))});
    if (!m_process->waitForStarted(5000) || !WaitForPort(m_port, 10000) ||
        (m_options.tls && !WaitForPort(m_tlsPort, 5000))) {
        *error = QStringLiteral("dovecot did not start: %1\n%2").arg(m_process->errorString(), LogText().right(2000));
        Stop();
        return false;
    }
    return true;
}

bool DovecotServer::IsRunning() const { return m_process && m_process->state() == QProcess::Running; }

void DovecotServer::Stop()
{
    if (!m_process) return;
    if (m_process->state() != QProcess::NotRunning) {
        // SIGTERM to the whole group: the master alone takes over a second
        // to wind its children down.
        const pid_t group = static_cast<pid_t>(m_process->processId());
        ::kill(-group, SIGTERM);
        if (!m_process->waitForFinished(5000)) {
            ::kill(-group, SIGKILL);
            m_process->waitForFinished(3000);
        }
    }
    m_process.reset();
}

}  // namespace mv::test
