#include "RunDesktop.h"

#include "DesktopApplication.h"
#include "ExplorerWindow.h"
#include "QtClipboard.h"

#include "addin/OutAddIn.h"
#include "forms/AddressBookDialog.h"
#include "forms/FolderPickerDialog.h"
#include "forms/QtFileDialog.h"
#include "forms/QtFormLauncher.h"
#include "forms/QtMessageBoxAnswerer.h"
#include "host/ExitCodes.h"
#include "host/Runtime.h"
#include "host/StopSignals.h"
#include "host/dialogs/AddinsDialog.h"
#include "host/dialogs/OptionsDialog.h"
#include "platform/os/Shell.h"

#include <QApplication>
#include <QMainWindow>

#include <cstdio>
#include <memory>

namespace mv::host::desktop {

namespace {

// The steps of the common start-up that differ on the desktop: the
// Application has real windows, and the message boxes are modal to the
// first one.
ApplicationSteps DesktopSteps(DesktopApplication*& desktop, forms::QtMessageBoxAnswerer& answerer)
{
    ApplicationSteps steps;
    steps.create = [&desktop](StoreSet& stores, os::Clipboard& clipboard) {
        auto app = std::make_unique<DesktopApplication>(stores, clipboard);
        desktop = app.get();
        return std::unique_ptr<outlook::Application>(std::move(app));
    };
    steps.open = [&desktop, &answerer](outlook::Application&) {
        desktop->Open();
        if (ExplorerWindow* first = desktop->FirstExplorer()) answerer.SetParent(first->Window());
    };
    steps.start = [&desktop](outlook::Application&) { desktop->Start(); };
    steps.stop = [&desktop](outlook::Application&) { desktop->Stop(); };
    return steps;
}

}  // namespace

int RunDesktop(int& argc, char** argv, const DesktopOptions& options)
{
    // Qt aborts without a display; say what to do instead.
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        std::fprintf(stderr,
                     "mailvane: no display to open windows on; use --headless or a command "
                     "(mailvane --help)\n");
        return kExitUsage;
    }
    QApplication qapp(argc, argv);
    QApplication::setApplicationName(QStringLiteral("mailvane"));

    forms::QtMessageBoxAnswerer answerer;
    QtClipboard clipboard;
    RuntimeOptions runtimeOptions;
    runtimeOptions.profilePath = options.profilePath;
    runtimeOptions.answerer = &answerer;
    runtimeOptions.clipboard = &clipboard;
    DesktopApplication* desktop = nullptr;
    Runtime runtime(runtimeOptions, DesktopSteps(desktop, answerer));
    if (const int code = runtime.Start(); code != kExitOk) return code;

    // The forms the toolbar and the Tools menu open, over the connected
    // add-in and the desktop's dialogs.
    // The dialogs live here, not as children of a window: the windows go
    // with the Application at shut-down, and the dialogs must not go twice.
    QWidget* parent = desktop->FirstExplorer() ? desktop->FirstExplorer()->Window() : nullptr;
    forms::FolderPickerDialog folderPicker;
    desktop->Session().SetPicker(&folderPicker);
    forms::AddressBookDialog addressBook(desktop->Session());
    forms::QtFileDialog files(parent);
    os::Shell shell;
    std::unique_ptr<forms::QtFormLauncher> launcher;
    const auto installForms = [&] {
        if (!runtime.Connected()) return;
        forms::FormServices services{folderPicker, addressBook, answerer, runtime.Report(), files, &shell, parent};
        services.showAbout = [&runtime](QWidget*) {
            if (runtime.Connected()) runtime.AddIn().ShowAbout();
        };
        launcher = std::make_unique<forms::QtFormLauncher>(runtime.AddIn(), std::move(services));
        runtime.AddIn().SetFormLauncher(launcher.get());
    };
    installForms();
    desktop->Hooks().showOptions = [&](QWidget* owner) {
        OptionsDialog dialog(*desktop, runtime.ProgIds(), owner);
        dialog.exec();
    };
    desktop->Hooks().showAddins = [&](QWidget* owner) {
        AddinsDialog dialog(runtime.Loader(), owner);
        dialog.exec();
        // Connecting again makes a new add-in object: give it the forms.
        installForms();
    };

    // SIGTERM and SIGINT close the program as File > Exit would, so the
    // add-in is taken down and the database closed.
    StopSignals signals;
    QObject::connect(&signals, &StopSignals::Received, &qapp, [&runtime](int signo) {
        runtime.Trail(QStringLiteral("mailvane"), QStringLiteral("Signal %1: stopping").arg(signo));
        if (runtime.Connected()) runtime.CancelFlag() = true;
        QApplication::quit();
    });
    if (!signals.Install()) runtime.Trail(QStringLiteral("mailvane"), QStringLiteral("No signal handling"));

    runtime.StartApplication();
    if (options.started) options.started(runtime, *desktop);
    const int code = QApplication::exec();
    runtime.Shutdown();
    return code;
}

}  // namespace mv::host::desktop
