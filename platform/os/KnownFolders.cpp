#include "KnownFolders.h"

#include "ErrorReport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <array>
#include <utility>

namespace mv::os {

namespace {

const QString kLabel = QStringLiteral("GetSpecialFolderLocation of Module modSpecialFolders");
// The VB runtime's "Invalid procedure call or argument".
constexpr long kInvalidArgument = 5;

QString WithoutTrailingSlash(QString path)
{
    while (path.size() > 1 && path.endsWith(QLatin1Char('/'))) path.chop(1);
    return path;
}

QString ExecutableDir()
{
    if (QCoreApplication::instance()) return QCoreApplication::applicationDirPath();
    return QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath().section(QLatin1Char('/'), 0, -2);
}

const std::array<std::pair<int, QStandardPaths::StandardLocation>, 4> kLocations{{
    {CSIDL_APPDATA, QStandardPaths::GenericDataLocation},
    {CSIDL_LOCAL_APPDATA, QStandardPaths::GenericDataLocation},
    {CSIDL_PERSONAL, QStandardPaths::DocumentsLocation},
    {CSIDL_DESKTOPDIRECTORY, QStandardPaths::DesktopLocation},
}};

}  // namespace

QString AppDataDir()
{
    QString dir = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    // Empty when even HOME is unknown; fall back to the documented default.
    if (dir.isEmpty()) dir = QDir::homePath() + QStringLiteral("/.local/share");
    return WithoutTrailingSlash(dir);
}

QString DataDir() { return AppDataDir() + QLatin1Char('/') + QLatin1String(kDataSubDir); }

QString CacheDir()
{
    if (QCoreApplication::applicationName().isEmpty()) return {};
    return WithoutTrailingSlash(QStandardPaths::writableLocation(QStandardPaths::CacheLocation));
}

QString TempPath() { return WithoutTrailingSlash(QDir::tempPath()); }

QStringList InstallDirCandidates()
{
    QStringList out;
    const QString fromEnv = qEnvironmentVariable(kInstallDirVariable);
    if (!fromEnv.isEmpty()) out << WithoutTrailingSlash(fromEnv);
    const QString exeDir = ExecutableDir();
    if (!exeDir.isEmpty()) out << QDir::cleanPath(exeDir + QStringLiteral("/../share/mailvane"));
#ifdef MV_BUILD_TREE_DATA_DIR
    out << WithoutTrailingSlash(QStringLiteral(MV_BUILD_TREE_DATA_DIR));
#endif
    return out;
}

QString FindInstallDir(const QStringList& candidates)
{
    for (const QString& dir : candidates) {
        if (QFileInfo(dir + QLatin1Char('/') + QLatin1String(kTemplateRelPath)).isFile()) return dir;
    }
    return candidates.isEmpty() ? QString() : candidates.front();
}

QString InstallDir() { return FindInstallDir(InstallDirCandidates()); }

QString GetSpecialFolderLocation(int csidl, ErrorReport& report)
{
    for (const auto& [number, location] : kLocations) {
        if (number != csidl) continue;
        const QString dir = location == QStandardPaths::GenericDataLocation
                                ? AppDataDir()
                                : WithoutTrailingSlash(QStandardPaths::writableLocation(location));
        if (!dir.isEmpty()) return dir;
        break;
    }
    report.ShowProcedureError(kInvalidArgument, QStringLiteral("Invalid procedure call or argument"), kLabel);
    return {};
}

}  // namespace mv::os
