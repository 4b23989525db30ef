#include "RunDesktop.h"

#include "DesktopApplication.h"
#include "ExplorerWindow.h"
#include "QtClipboard.h"

#include "addin/Connect.h"
#include "forms/QtMessageBoxAnswerer.h"
#include "host/ExitCodes.h"
#include "host/core/AddinLoader.h"
#include "host/core/Profile.h"
#include "host/core/StoreSet.h"
#include "platform/common/ProgIdRegistry.h"
#include "platform/logging/FileLogging.h"
#include "platform/os/Clock.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/KnownFolders.h"
#include "platform/os/Registry.h"
#include "platform/outlook/SafeLib.h"
#include "store/AdoProgIds.h"

#include <QApplication>
#include <QMainWindow>
#include <QMessageBox>

#include <cstdio>

namespace mv::host::desktop {

namespace {

int Fail(const QString& text, int code)
{
    QMessageBox::critical(nullptr, QStringLiteral("Mailvane"), text);
    return code;
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

    ProgIdRegistry progIds;
    store::RegisterAdoProgIds(progIds);
    logging::RegisterLogging(progIds);
    outlook::RegisterSafeLib(progIds);
    forms::QtMessageBoxAnswerer answerer;
    os::ErrorReport report(answerer);
    os::SystemClock clock;
    QtClipboard clipboard;

    auto profile =
        options.profilePath.isEmpty() ? Profile::LoadDefault() : Profile::Load(options.profilePath);
    if (!profile) return Fail(profile.error().message, kExitProfile);
    auto stores = StoreSet::Open(*profile);
    if (!stores) return Fail(stores.error().message, kExitStore);

    DesktopApplication app(**stores, clipboard);
    app.Open();  // the first window, before add-ins look for it
    if (ExplorerWindow* first = app.FirstExplorer()) answerer.SetParent(first->Window());

    addin::AddInServices services;
    services.report = &report;
    services.progIds = &progIds;
    services.clock = &clock;
    services.clipboard = &clipboard;
    services.installDir = os::InstallDir();
    addin::RegisterConnect(progIds, services);
    os::Registry registry;
    (void)RegisterMailvaneAddin(registry);
    AddinLoader loader(registry, progIds, app);
    loader.Connect();

    app.Start();
    const int code = QApplication::exec();
    app.Stop();
    loader.Disconnect();
    return code;
}

}  // namespace mv::host::desktop
