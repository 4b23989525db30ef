#pragma once
// SIGTERM and SIGINT as an event-loop event. A signal handler may only
// write(2), so it writes the signal's number into a socket pair whose other
// end the loop watches; Received() is then emitted on the loop's thread.
// One instance at a time; the destructor restores the default handlers.

#include <QObject>

class QSocketNotifier;

namespace mv::host {

class StopSignals : public QObject {
    Q_OBJECT
public:
    explicit StopSignals(QObject* parent = nullptr) : QObject(parent) {}
    ~StopSignals() override;

    // False when the socket pair cannot be made (no handler is installed).
    [[nodiscard]] bool Install();

Q_SIGNALS:
    void Received(int signo);

private:
    void OnReadable();

    QSocketNotifier* m_notifier = nullptr;
};

}  // namespace mv::host
