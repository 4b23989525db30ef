#pragma once
// The desktop program: `mailvane` with no command. Builds the seams, opens
// the profile's stores and the first folder window, connects the registered
// add-ins and runs until the last window closes or File > Exit.

#include <QString>

#include <functional>

namespace mv::host {
class Runtime;
}
namespace mv::host::desktop {

class DesktopApplication;

struct DesktopOptions {
    QString profilePath;  // empty: $XDG_CONFIG_HOME/Mailvane/profile.ini or the embedded default
    // Called once the windows are up and the add-in is connected, just
    // before the event loop runs: tools that drive the real windows (the
    // screenshot program) start from here. QApplication::quit() ends the run.
    std::function<void(Runtime& runtime, DesktopApplication& app)> started = {};
};

// Creates the QApplication itself; returns the program's exit code.
int RunDesktop(int& argc, char** argv, const DesktopOptions& options);

}  // namespace mv::host::desktop
