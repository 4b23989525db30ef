#pragma once
// The host's start-up, in the order a mail host brings itself up:
//   1. the host's log (mv.log in the data folder) and the profile's stores;
//   2. the Application over those stores, and its first Explorer;
//   3. the add-ins registered in the registry, connected through the
//      AddinLoader: Mailvane.Connect's OnConnection runs the add-in's own
//      InitHandler (data folder, database, settings, frmMain and its timers,
//      Explorer wrappers, toolbar and menu);
//   4. Startup, when the caller is ready to run its event loop
//      (StartApplication()).
// Commands and the headless service reach the add-in through the connected
// Connect object (AddIn(), Runner()). Shutdown() disconnects the add-ins
// (UnInitHandler: the databases close, frmMain unloads), then stops the
// Application (Quit, windows closed), then closes the stores and the log.
//
// The headless host is the default. A desktop host passes its own
// ApplicationSteps (its Application with real windows) and gets the same
// order; only the steps that touch the Application differ.

#include "ExitCodes.h"

#include <QString>

#include <functional>
#include <memory>

namespace mv {
class ProgIdRegistry;
}
namespace mv::addin {
class Connect;
class FormLauncher;
class OutAddIn;
}  // namespace mv::addin
namespace mv::engine {
class RuleRunner;
}
namespace mv::logging {
class Logger;
}
namespace mv::os {
class Clipboard;
class ErrorReport;
class MessageBoxAnswerer;
}  // namespace mv::os
namespace mv::outlook {
class Application;
}
namespace mv::host {

class AddinLoader;
class StoreSet;

// What differs between hosts: how the Application is made, opened, started
// and stopped. Every member is required; HeadlessSteps() fills them for the
// windowless host.
struct ApplicationSteps {
    // Builds the Application over the opened stores. Both references outlive it.
    std::function<std::unique_ptr<outlook::Application>(StoreSet& stores, os::Clipboard& clipboard)> create;
    // Opens the first Explorer. Runs before the add-ins connect: an add-in
    // that finds no Explorer stays idle.
    std::function<void(outlook::Application&)> open;
    // Raises Startup, once.
    std::function<void(outlook::Application&)> start;
    // Raises Quit and closes the windows; runs after the add-ins disconnected.
    std::function<void(outlook::Application&)> stop;
};
// `listen` false: no store events (and so no IMAP IDLE connection), for a
// one-off command that only runs what it was asked to.
ApplicationSteps HeadlessSteps(bool listen = true);

struct RuntimeOptions {
    QString profilePath;          // empty: $XDG_CONFIG_HOME/Mailvane/profile.ini or the embedded default
    bool embedded = false;        // the embedded default store, ignoring any profile file
    int answer = 0;               // vbYes, vbNo, or 0: each box's documented default (console answerer)
    bool statusOnStderr = false;  // print the run's progress to stderr
    // False for a one-off command: the add-in's timers are held still, so
    // nothing but the command runs (its run pumps events, and a cycle tick
    // or a mail event must not start a second run inside it).
    bool schedule = true;
    QString registryPath;  // empty: the default registry file

    // A desktop host's own parts; nullptr: the console's.
    os::MessageBoxAnswerer* answerer = nullptr;  // message boxes (default: stderr, `answer`)
    os::Clipboard* clipboard = nullptr;          // default: an in-memory clipboard
    addin::FormLauncher* forms = nullptr;        // the toolbar's forms (default: logged only)
};

class Runtime {
public:
    explicit Runtime(RuntimeOptions options, ApplicationSteps steps = HeadlessSteps());
    ~Runtime();
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;

    // Steps 1 to 3; returns kExitOk or the code of what failed (the reason
    // is on stderr and in the log). Shutdown() is safe after a failure.
    int Start();
    // Step 4: raises the Application's Startup. Call once, after Start()
    // succeeded and before running the event loop.
    void StartApplication();
    // Disconnects the add-ins, stops the Application, closes the stores and
    // the log; harmless when repeated.
    void Shutdown();

    // True while Mailvane's add-in is connected (the user may take it off
    // in the host's add-ins dialog).
    bool Connected() const;
    // The connected add-in; valid from a successful Start() to Shutdown().
    addin::OutAddIn& AddIn() const;
    engine::RuleRunner& Runner() const;
    outlook::Application& Application() const { return *m_app; }
    AddinLoader& Loader() const { return *m_loader; }
    StoreSet& Stores() const { return *m_stores; }
    logging::Logger* Log() const { return m_log.get(); }
    // The add-in's data folder (mv.mdb, mv.log).
    const QString& DataDir() const { return m_dataDir; }
    // Writes a level-3 line (the start-up and shut-down trail).
    void Trail(const QString& source, const QString& text);
    // The add-in's shared run-cancel flag; the drivers read it.
    bool& CancelFlag() const;
    // The host's error report and ProgID registry (valid after Start()); a
    // desktop host's dialogs report and create objects through them.
    os::ErrorReport& Report() const;
    ProgIdRegistry& ProgIds() const;

private:
    int CheckAddIn();
    addin::Connect* CurrentConnect() const;  // owned by the loader; nullptr when not connected

    struct Parts;
    RuntimeOptions m_options;
    ApplicationSteps m_steps;
    QString m_dataDir;
    std::unique_ptr<Parts> m_parts;
    std::unique_ptr<logging::Logger> m_log;
    std::unique_ptr<StoreSet> m_stores;
    std::unique_ptr<outlook::Application> m_app;
    std::unique_ptr<AddinLoader> m_loader;
    bool m_opened = false;                // the Application's first Explorer is open
    bool m_started = false;               // Startup raised
    bool m_down = false;
};

}  // namespace mv::host
