#pragma once
// Everything a mailvane command needs, built in the order a mail host starts:
// log, rule database (through OutAddIn), profile and stores, the windowless
// Application with its one Explorer, then the rule engine over the
// application's namespace. Commands and the headless service share it.
//
// Start() returns an exit code (0 when everything needed is up); the
// objects are torn down in reverse order, the database closed last but one
// (the log is closed last so the shut-down trail reaches it).

#include "ExitCodes.h"

#include <QString>

#include <cstdio>
#include <memory>

namespace mv {
class ProgIdRegistry;
}
namespace mv::addin {
class OutAddIn;
}
namespace mv::engine {
class RuleExecutor;
class RuleRunner;
}  // namespace mv::engine
namespace mv::logging {
class Logger;
}
namespace mv::host {

class HeadlessApplication;
class StoreSet;

struct RuntimeOptions {
    QString profilePath;   // empty: $XDG_CONFIG_HOME/Mailvane/profile.ini or the embedded default
    bool embedded = false;  // the embedded default store, ignoring any profile file
    int answer = 0;        // vbYes, vbNo, or 0: each box's documented default
    bool statusOnStderr = false;  // print the run's progress to stderr
};

class Runtime {
public:
    explicit Runtime(RuntimeOptions options);
    ~Runtime();
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;

    // Builds everything; returns kExitOk or the code of what failed (the
    // reason is on stderr and in the log).
    int Start();
    // Closes the databases and stops the application; harmless when repeated.
    void Shutdown();

    addin::OutAddIn& AddIn() { return *m_addIn; }
    engine::RuleRunner& Runner() { return *m_runner; }
    engine::RuleExecutor& Executor() { return *m_executor; }
    HeadlessApplication& Application() { return *m_app; }
    StoreSet& Stores() { return *m_stores; }
    logging::Logger* Log() const { return m_log.get(); }
    const QString& DataDir() const { return m_dataDir; }
    // Writes a level-3 line (the start-up and shut-down trail).
    void Trail(const QString& source, const QString& text);
    // Set by a cancel request (SIGINT during a run); the drivers read it.
    bool& CancelFlag() { return m_cancel; }

private:
    struct Parts;
    RuntimeOptions m_options;
    QString m_dataDir;
    std::unique_ptr<Parts> m_parts;
    std::unique_ptr<logging::Logger> m_log;
    std::unique_ptr<addin::OutAddIn> m_addIn;
    std::unique_ptr<StoreSet> m_stores;
    std::unique_ptr<HeadlessApplication> m_app;
    std::unique_ptr<engine::RuleExecutor> m_executor;
    std::unique_ptr<engine::RuleRunner> m_runner;
    bool m_cancel = false;
    bool m_down = false;
};

}  // namespace mv::host
