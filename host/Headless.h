#pragma once
// The headless service: the started runtime and an event loop. The
// schedule is the add-in's own: its timer form (frmMain) runs the cycle,
// the run on start and the ten-second run after new mail, exactly as in a
// host with windows; its runs are unattended (RunnerOptions::unattended). The service only raises Startup and turns SIGTERM and
// SIGINT into the end of the loop.
//
// On a signal the loop stops and the caller shuts the runtime down: the
// add-in disconnects (UnInitHandler closes the databases and unloads
// frmMain), Quit, the log's last lines.

#include "StopSignals.h"

#include <QObject>

namespace mv::host {

class Runtime;

class HeadlessService : public QObject {
    Q_OBJECT
public:
    explicit HeadlessService(Runtime& runtime, QObject* parent = nullptr);

    // Installs the signal handlers and raises Startup; false when the
    // signal pipe cannot be made.
    bool Start();

private:
    void OnSignal(int signo);

    Runtime& m_runtime;
    StopSignals m_signals;
};

}  // namespace mv::host
