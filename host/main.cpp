// mailvane: the host program. Global options, then one command from the
// table in Commands.cpp, or --headless for the service.

#include "Commands.h"
#include "ExitCodes.h"
#include "Headless.h"
#include "Runtime.h"
#include "desktop/RunDesktop.h"
#include "engine/RuleRunner.h"

#include "platform/os/MessageBox.h"

#include <QCoreApplication>

namespace {

struct Parsed {
    mv::host::RuntimeOptions options;
    bool headless = false;
    bool help = false;
    bool version = false;
    QStringList rest;  // the command and its arguments
    QString error;
};

Parsed Parse(const QStringList& args)
{
    Parsed p;
    for (int i = 0; i < args.size(); ++i) {
        const QString& a = args.at(i);
        if (!p.rest.isEmpty()) p.rest << a;  // after the command, everything is the command's
        else if (a == QLatin1String("--help") || a == QLatin1String("-h")) p.help = true;
        else if (a == QLatin1String("--version")) p.version = true;
        else if (a == QLatin1String("--headless")) p.headless = true;
        else if (a == QLatin1String("--yes")) p.options.answer = mv::os::vbYes;
        else if (a == QLatin1String("--no")) p.options.answer = mv::os::vbNo;
        else if (a == QLatin1String("--profile") && i + 1 < args.size()) p.options.profilePath = args.at(++i);
        else if (a.startsWith(QLatin1String("-"))) p.error = QStringLiteral("unknown option %1").arg(a);
        else p.rest << a;
    }
    return p;
}

}  // namespace

int main(int argc, char** argv)
{
    using namespace mv::host;
    QStringList args;
    for (int i = 1; i < argc; ++i) args << QString::fromLocal8Bit(argv[i]);
    Parsed p = Parse(args);
    if (p.version && p.error.isEmpty()) {
        std::printf("mailvane %d.%d.%d\n", MV_VERSION_MAJOR, MV_VERSION_MINOR, MV_VERSION_PATCH);
        return kExitOk;
    }
    // No command and no --headless: the windows. They need a QApplication,
    // the rest a QCoreApplication.
    if (p.error.isEmpty() && !p.help && !p.headless && p.rest.isEmpty())
        return desktop::RunDesktop(argc, argv, {p.options.profilePath});
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("mailvane"));
    if (p.help) {
        PrintUsage(stdout);
        return kExitOk;
    }
    const Command* command = p.rest.isEmpty() ? nullptr : FindCommand(p.rest.first());
    const int given = static_cast<int>(p.rest.size()) - 1;
    const bool wrongArgs = command && (given < command->minArgs || given > command->maxArgs);
    if (!p.error.isEmpty() || (p.headless && !p.rest.isEmpty()) || (!p.headless && !command) || wrongArgs) {
        if (!p.error.isEmpty()) std::fprintf(stderr, "mailvane: %s\n", p.error.toLocal8Bit().constData());
        PrintUsage(stderr);
        return kExitUsage;
    }
    if (command && command->prepare) {
        if (const int code = command->prepare(p.rest.mid(1)); code != kExitOk) return code;
    }
    p.options.embedded = command && command->embeddedStore;
    p.options.statusOnStderr = !p.headless;
    // A command is one run on demand; only the service keeps the schedule.
    p.options.schedule = p.headless;
    Runtime runtime(p.options, HeadlessSteps(p.options.schedule));
    if (const int code = runtime.Start(); code != kExitOk) return code;

    if (p.headless) {
        HeadlessService service(runtime);
        if (!service.Start()) return kExitRunFailed;
        QCoreApplication::exec();
        runtime.Shutdown();
        return kExitOk;
    }
    // The history tells a command's runs from the service's.
    runtime.Runner().SetDefaultOrigin(mv::engine::origin::kCommandLine);
    CommandContext ctx{runtime, p.rest.mid(1), stdout, p.options.answer};
    return command->run(ctx);
}
