// mv-screenshots: opens the program's windows and dialogs over a profile
// and saves a picture of each, for the manual.
//
//   mv-screenshots --out DIR [--profile FILE] [--preview-rule NAME]
//
// Starts exactly as `mailvane` does (same start-up, same add-in), so the
// pictures show what users see. Needs a display; docs/screenshots/take.sh
// runs it under Xvfb. Exit codes: 0 every picture taken, 1 some failed,
// 2 bad arguments, otherwise the program's own start-up code.

#include "Shooter.h"

#include "host/desktop/RunDesktop.h"

#include <QApplication>
#include <QTimer>

#include <cstdio>
#include <cstring>
#include <memory>

int main(int argc, char** argv)
{
    QString outDir;
    QString previewRule;
    mv::host::desktop::DesktopOptions options;
    // Read by hand: QApplication is made inside the program's start-up.
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (std::strcmp(argv[i], "--out") == 0 && hasValue) {
            outDir = QString::fromLocal8Bit(argv[++i]);
        } else if (std::strcmp(argv[i], "--profile") == 0 && hasValue) {
            options.profilePath = QString::fromLocal8Bit(argv[++i]);
        } else if (std::strcmp(argv[i], "--preview-rule") == 0 && hasValue) {
            previewRule = QString::fromLocal8Bit(argv[++i]);
        } else {
            std::fprintf(stderr, "usage: mv-screenshots --out DIR [--profile FILE] [--preview-rule NAME]\n");
            return 2;
        }
    }
    if (outDir.isEmpty()) {
        std::fprintf(stderr, "usage: mv-screenshots --out DIR [--profile FILE] [--preview-rule NAME]\n");
        return 2;
    }

    std::unique_ptr<mv::tools::Shooter> shooter;
    int failures = 0;
    options.started = [&](mv::host::Runtime&, mv::host::desktop::DesktopApplication& app) {
        shooter = std::make_unique<mv::tools::Shooter>(app, outDir, previewRule);
        QTimer::singleShot(0, shooter.get(), [&] {
            failures = shooter->Run();
            QApplication::quit();
        });
    };
    int qtArgc = 1;
    const int code = mv::host::desktop::RunDesktop(qtArgc, argv, options);
    shooter.reset();
    if (code != 0) return code;
    return failures == 0 ? 0 : 1;
}
