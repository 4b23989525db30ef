#pragma once
// A TCP proxy on 127.0.0.1 that forwards to a server, keeps the commands
// the client sent, and once of each:
// - cuts a connection in the middle of a command's answer: after the client
//   sent a line containing the trigger, the server's answer is let through
//   for `keepBytes` bytes and then both sides are closed. The command has
//   then reached the server, which has started answering it, so it has run;
// - answers a command itself (tagged `answer`, such as a refusal) instead
//   of passing it on.

#include <QByteArrayList>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

namespace mv::test {

class CuttingProxy {
public:
    explicit CuttingProxy(quint16 targetPort);
    ~CuttingProxy();
    CuttingProxy(const CuttingProxy&) = delete;
    CuttingProxy& operator=(const CuttingProxy&) = delete;

    quint16 port() const { return m_port; }
    void CutOn(const QByteArray& trigger, int keepBytes);
    int cuts() const { return m_cuts; }
    void AnswerOn(const QByteArray& trigger, const QByteArray& answer);
    // How many lines the client sent that contain `text`.
    int Sent(const QByteArray& text);

private:
    struct Pair {
        int client = -1;
        int server = -1;
        bool cutting = false;
        int kept = 0;
    };
    void Run();
    void Close(Pair& p);

    quint16 m_target;
    quint16 m_port = 0;
    int m_listen = -1;
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_cuts{0};
    std::mutex m_mutex;
    QByteArray m_trigger;
    int m_keep = 0;
    bool m_armed = false;
    QByteArray m_answerTrigger;
    QByteArray m_answer;
    QByteArrayList m_sent;
    std::thread m_thread;
};

}  // namespace mv::test
