// mailvane: the program that hosts the add-in. For now it starts the
// add-in's database side and runs one command; see Commands.cpp.

#include "Commands.h"

#include "addin/OutAddIn.h"
#include "platform/common/ProgIdRegistry.h"
#include "platform/logging/FileLogging.h"
#include "platform/os/Clock.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "platform/os/SpecialFolders.h"
#include "store/AdoProgIds.h"

#include <QCoreApplication>
#include <QDir>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("mailvane"));
    const QStringList args = app.arguments().mid(1);
    if (args.isEmpty() || args.first() == QLatin1String("--help") || args.first() == QLatin1String("-h")) {
        mv::host::PrintUsage(args.isEmpty() ? stderr : stdout);
        return args.isEmpty() ? 2 : 0;
    }
    const mv::host::Command* command = mv::host::FindCommand(args.first());
    const int given = static_cast<int>(args.size()) - 1;
    if (!command || given < command->minArgs || given > command->maxArgs) {
        mv::host::PrintUsage(stderr);
        return 2;
    }

    mv::ProgIdRegistry progIds;
    mv::store::RegisterAdoProgIds(progIds);
    mv::logging::RegisterLogging(progIds);

    const QString dataDir = mv::os::DataDir();
    QDir().mkpath(dataDir);
    auto logging = progIds.Create<mv::logging::cLogging>(QString::fromLatin1(mv::logging::kLoggingProgId));
    std::unique_ptr<mv::logging::Logger> log;
    if (logging) log = logging->OpenLog(dataDir + QStringLiteral("/mv.log"));

    mv::os::ConsoleAnswerer answerer(0, log.get());
    mv::os::ErrorReport report(answerer, log.get());
    mv::os::SystemClock clock;
    const QString installDir = mv::os::InstallDir();
    mv::addin::OutAddIn addIn(report, log.get(), progIds, clock, installDir);

    mv::addin::OutAddIn::PlaceDatabase(dataDir, installDir);
    if (!addIn.OpenDatabases(dataDir + QStringLiteral("/mv.mdb"))) return 1;

    mv::host::CommandContext ctx{addIn, args.mid(1), stdout};
    return command->run(ctx);
}
