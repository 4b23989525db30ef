#include "TokenEndpoint.h"

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrlQuery>

#include <future>

namespace mv::test {

TokenEndpoint::~TokenEndpoint()
{
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
}

bool TokenEndpoint::Start()
{
    std::promise<quint16> listening;
    auto port = listening.get_future();
    m_thread = std::thread([this, &listening] {
        QTcpServer server;
        listening.set_value(server.listen(QHostAddress::LocalHost, 0) ? server.serverPort() : 0);
        if (server.isListening()) Serve(server);
    });
    m_port = port.get();
    return m_port != 0;
}

QString TokenEndpoint::Url() const
{
    return QStringLiteral("http://127.0.0.1:%1/introspect").arg(m_port);
}

void TokenEndpoint::SetValid(const QByteArray& token)
{
    std::lock_guard lock(m_mutex);
    m_valid.insert(token);
}

void TokenEndpoint::ExpireOnce(const QByteArray& token)
{
    std::lock_guard lock(m_mutex);
    m_expireOnce.insert(token);
}

QByteArray TokenEndpoint::Answer(const QByteArray& body)
{
    const QByteArray token = QUrlQuery(QString::fromLatin1(body))
                                 .queryItemValue(QStringLiteral("token"), QUrl::FullyDecoded)
                                 .toUtf8();
    ++m_questions;
    std::lock_guard lock(m_mutex);
    const bool active = m_valid.contains(token) && !m_expireOnce.remove(token);
    return active ? QByteArrayLiteral(R"({"active":true,"username":"test"})")
                  : QByteArrayLiteral(R"({"active":false})");
}

// One request per connection ("Connection: close"), read with blocking
// calls: the thread has no event loop.
void TokenEndpoint::Serve(QTcpServer& server)
{
    while (!m_stop) {
        if (!server.waitForNewConnection(100)) continue;
        std::unique_ptr<QTcpSocket> socket(server.nextPendingConnection());
        QByteArray request;
        qsizetype headerEnd = -1;
        qsizetype length = 0;
        while (socket->waitForReadyRead(2000)) {
            request += socket->readAll();
            if (headerEnd < 0 && (headerEnd = request.indexOf("\r\n\r\n")) >= 0) {
                for (const QByteArray& line : request.left(headerEnd).split('\n'))
                    if (line.toLower().startsWith("content-length:"))
                        length = line.mid(15).trimmed().toLongLong();
            }
            if (headerEnd >= 0 && request.size() >= headerEnd + 4 + length) break;
        }
        if (headerEnd < 0) continue;
        const QByteArray json = Answer(request.mid(headerEnd + 4, length));
        socket->write(
            "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
            QByteArray::number(json.size()) + "\r\n\r\n" + json);
        socket->waitForBytesWritten(2000);
        socket->disconnectFromHost();
        if (socket->state() != QAbstractSocket::UnconnectedState) socket->waitForDisconnected(1000);
    }
}

}  // namespace mv::test
