#include "CuttingProxy.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mv::test {

namespace {

sockaddr_in Loopback(quint16 port)
{
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return a;
}

bool SendAll(int fd, const char* data, ssize_t size)
{
    while (size > 0) {
        const ssize_t n = ::send(fd, data, static_cast<size_t>(size), MSG_NOSIGNAL);
        if (n <= 0) return false;
        data += n;
        size -= n;
    }
    return true;
}

}  // namespace

CuttingProxy::CuttingProxy(quint16 targetPort) : m_target(targetPort)
{
    m_listen = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a = Loopback(0);
    ::bind(m_listen, reinterpret_cast<sockaddr*>(&a), sizeof a);
    ::listen(m_listen, 8);
    socklen_t len = sizeof a;
    ::getsockname(m_listen, reinterpret_cast<sockaddr*>(&a), &len);
    m_port = ntohs(a.sin_port);
    m_thread = std::thread([this] { Run(); });
}

CuttingProxy::~CuttingProxy()
{
    m_stop = true;
    m_thread.join();
    ::close(m_listen);
}

void CuttingProxy::CutOn(const QByteArray& trigger, int keepBytes)
{
    std::lock_guard lock(m_mutex);
    m_trigger = trigger;
    m_keep = keepBytes;
    m_armed = true;
}

void CuttingProxy::AnswerOn(const QByteArray& trigger, const QByteArray& answer)
{
    std::lock_guard lock(m_mutex);
    m_answerTrigger = trigger;
    m_answer = answer;
}

int CuttingProxy::Sent(const QByteArray& text)
{
    std::lock_guard lock(m_mutex);
    return static_cast<int>(std::count_if(m_sent.begin(), m_sent.end(), [&](const QByteArray& l) { return l.contains(text); }));
}

void CuttingProxy::Close(Pair& p)
{
    if (p.client >= 0) ::close(p.client);
    if (p.server >= 0) ::close(p.server);
    p.client = p.server = -1;
}

void CuttingProxy::Run()
{
    std::vector<Pair> pairs;
    char buf[65536];
    while (!m_stop) {
        std::vector<pollfd> fds{{m_listen, POLLIN, 0}};
        for (const Pair& p : pairs) {
            fds.push_back({p.client, POLLIN, 0});
            fds.push_back({p.server, POLLIN, 0});
        }
        if (::poll(fds.data(), fds.size(), 50) <= 0) continue;
        if (fds[0].revents & POLLIN) {
            Pair p;
            p.client = ::accept(m_listen, nullptr, nullptr);
            p.server = ::socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in a = Loopback(m_target);
            if (::connect(p.server, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) Close(p);
            else pairs.push_back(p);
        }
        for (size_t i = 0; i < pairs.size() && 1 + 2 * i + 1 < fds.size(); ++i) {
            Pair& p = pairs[i];
            const pollfd& fromClient = fds[1 + 2 * i];
            const pollfd& fromServer = fds[2 + 2 * i];
            if (p.client < 0) continue;
            if (fromClient.revents & (POLLIN | POLLHUP | POLLERR)) {
                const ssize_t n = ::recv(p.client, buf, sizeof buf, 0);
                const QByteArray sent = QByteArray::fromRawData(buf, n > 0 ? n : 0);
                std::lock_guard lock(m_mutex);
                m_sent += sent.split('\n');
                if (!m_answer.isEmpty() && sent.contains(m_answerTrigger)) {
                    const QByteArray reply = sent.left(sent.indexOf(' ')) + ' ' + m_answer + "\r\n";
                    m_answer.clear();
                    SendAll(p.client, reply.constData(), reply.size());
                    continue;
                }
                if (n <= 0 || !SendAll(p.server, buf, n)) {
                    Close(p);
                    continue;
                }
                if (m_armed && sent.contains(m_trigger)) {
                    m_armed = false;
                    p.cutting = true;
                }
            }
            if (fromServer.revents & (POLLIN | POLLHUP | POLLERR)) {
                ssize_t n = ::recv(p.server, buf, sizeof buf, 0);
                if (n <= 0) {
                    Close(p);
                    continue;
                }
                if (p.cutting) {
                    const ssize_t pass = std::min<ssize_t>(n, m_keep - p.kept);
                    if (pass > 0) SendAll(p.client, buf, pass);
                    p.kept += static_cast<int>(pass);
                    if (p.kept >= m_keep) {
                        ++m_cuts;  // before the client can see the cut
                        Close(p);
                    }
                    continue;
                }
                if (!SendAll(p.client, buf, n)) Close(p);
            }
        }
        std::erase_if(pairs, [](const Pair& p) { return p.client < 0; });
    }
    for (Pair& p : pairs) Close(p);
}

}  // namespace mv::test
