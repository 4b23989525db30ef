#include "Shell.h"

#include <QFileInfo>
#include <QProcess>
#include <QUrl>

namespace mv::os {

namespace {

// A URL names its scheme ("https:", "mailto:"); a local path has none.
bool IsUrl(const QString& text)
{
    const QUrl url(text, QUrl::StrictMode);
    return url.isValid() && url.scheme().size() > 1;
}

Error StartError(const QString& program, const QString& reason)
{
    return Error::permanent(QStringLiteral("Cannot start %1: %2").arg(program, reason));
}

}  // namespace

Status Shell::Open(const QString& documentOrUrl) const
{
    if (documentOrUrl.trimmed().isEmpty()) return Error::permanent(QStringLiteral("Nothing to open"));
    QString target = documentOrUrl;
    if (!IsUrl(documentOrUrl)) {
        const QFileInfo file(documentOrUrl);
        if (!file.exists()) return Error::notFound(QStringLiteral("%1 does not exist").arg(documentOrUrl));
        target = file.absoluteFilePath();
    }
    return Start(m_opener, {target});
}

Status Shell::Start(const QString& program, const QStringList& args, const QString& workingDir) const
{
    QProcess process;
    process.setProgram(program);
    process.setArguments(args);
    if (!workingDir.isEmpty()) process.setWorkingDirectory(workingDir);
    if (!process.startDetached()) return StartError(program, process.errorString());
    return Status::success();
}

Result<Shell::Finished> Shell::Run(const QString& program, const QStringList& args, int timeoutMs) const
{
    QProcess process;
    process.start(program, args);
    if (!process.waitForStarted(timeoutMs)) return StartError(program, process.errorString());
    process.closeWriteChannel();
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(1000);
        return Error::temporary(QStringLiteral("%1 did not finish within %2 ms").arg(program).arg(timeoutMs));
    }
    Finished done;
    done.crashed = process.exitStatus() == QProcess::CrashExit;
    done.exitCode = process.exitCode();
    done.out = process.readAllStandardOutput();
    done.err = process.readAllStandardError();
    return done;
}

}  // namespace mv::os
