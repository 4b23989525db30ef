#pragma once
// A token introspection endpoint (RFC 7662, POST form) on 127.0.0.1 for a
// Dovecot whose oauth2 passdb checks access tokens. It answers on its own
// thread, since the test's thread is blocked in the login that makes
// Dovecot ask. Tokens set valid belong to the user "test"; any other is
// inactive. The destructor stops the thread.

#include <QByteArray>
#include <QSet>
#include <QString>

#include <atomic>
#include <mutex>
#include <thread>

class QTcpServer;

namespace mv::test {

class TokenEndpoint {
public:
    TokenEndpoint() = default;
    ~TokenEndpoint();
    TokenEndpoint(const TokenEndpoint&) = delete;
    TokenEndpoint& operator=(const TokenEndpoint&) = delete;

    // Listens on a free port; false when it cannot.
    bool Start();
    QString Url() const;

    void SetValid(const QByteArray& token);
    // The next question about `token` is answered "inactive": a token that
    // expired, as far as the next login can tell.
    void ExpireOnce(const QByteArray& token);
    int Questions() const { return m_questions; }

private:
    void Serve(QTcpServer& server);
    QByteArray Answer(const QByteArray& body);

    std::thread m_thread;
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_questions{0};
    quint16 m_port = 0;
    std::mutex m_mutex;
    QSet<QByteArray> m_valid;
    QSet<QByteArray> m_expireOnce;
};

}  // namespace mv::test
