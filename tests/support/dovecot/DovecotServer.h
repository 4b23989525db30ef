#pragma once
// A private Dovecot for integration tests and benchmarks: its own
// configuration, run and state folders, log and mail under one temporary
// folder, listening on 127.0.0.1 on free ports. One user, "test" with the
// password "secret", whose mail is a Maildir the test may read and write.
// The destructor stops the server and every process it started.

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

namespace mv::test {

struct DovecotOptions {
    // Capabilities left out of the post-login CAPABILITY (e.g. "MOVE",
    // "UIDPLUS") to exercise a client's fallbacks.
    QStringList hideCapabilities;
    // Generates a self-signed certificate for "localhost" / 127.0.0.1 and
    // offers STARTTLS on Port() and implicit TLS on TlsPort().
    bool tls = false;
    // Non-empty: also offers AUTHENTICATE XOAUTH2 and OAUTHBEARER, whose
    // tokens an oauth2 passdb checks at this introspection URL (a
    // TokenEndpoint). Refusals are answered at once, without the usual delay.
    QString oauthIntrospectionUrl = {};
};

class DovecotServer {
public:
    explicit DovecotServer(DovecotOptions options = {});
    ~DovecotServer();
    DovecotServer(const DovecotServer&) = delete;
    DovecotServer& operator=(const DovecotServer&) = delete;

    // True when the Dovecot binary is installed; tests skip otherwise.
    static bool Available();
    static QString BinaryPath();

    // Writes the configuration, starts the master in the foreground and
    // waits until the IMAP port accepts connections. False with `error` set
    // when anything fails (the log's tail is included).
    bool Start(QString* error);
    void Stop();
    bool IsRunning() const;

    quint16 Port() const { return m_port; }
    quint16 TlsPort() const { return m_tlsPort; }
    static QString User() { return QStringLiteral("test"); }
    static QString Password() { return QStringLiteral("secret"); }

    // The user's Maildir ("INBOX" is its top level, other folders ".Name").
    QString MaildirPath() const;
    QString CertificatePath() const;  // PEM; empty without tls
    QByteArray CertificatePem() const;
    QString LogText() const;

    // Gives files a test wrote under the home folder to the mail user
    // (Start() does it for files written before).
    void HandMailToMailUser() const;

private:
    bool WriteConfig(QString* error);
    bool MakeCertificate(QString* error);
    bool WaitForPort(quint16 port, int timeoutMs) const;

    DovecotOptions m_options;
    QTemporaryDir m_dir;
    std::unique_ptr<QProcess> m_process;
    quint16 m_port = 0;
    quint16 m_tlsPort = 0;
};

// A free TCP port on 127.0.0.1 (bound to port 0 and released).
quint16 FreeLocalPort();

}  // namespace mv::test
