#pragma once
// The desktop program: `mailvane` with no command. Builds the seams, opens
// the profile's stores and the first folder window, connects the registered
// add-ins and runs until the last window closes or File > Exit.

#include <QString>

namespace mv::host::desktop {

struct DesktopOptions {
    QString profilePath;  // empty: $XDG_CONFIG_HOME/Mailvane/profile.ini or the embedded default
};

// Creates the QApplication itself; returns the program's exit code.
int RunDesktop(int& argc, char** argv, const DesktopOptions& options);

}  // namespace mv::host::desktop
