#pragma once
// Where the system keeps its files. Paths are joined with "/" and keep the
// names the system has always given its folders.
//
//   AppDataDir()  $XDG_DATA_HOME, default ~/.local/share
//   DataDir()     AppDataDir() + "/Sorquin Software/Mailvane" (mv.mdb, mv.log)
//   CacheDir()    $XDG_CACHE_HOME/<application name> (the Maildir index)
//   InstallDir()  the folder holding "Database/_mvblank.mdb"
//   TempPath()    QDir::tempPath()

#include <QString>
#include <QStringList>

namespace mv::os {

class ErrorReport;

// The CSIDL numbers callers may ask for.
enum Csidl : int {
    CSIDL_DESKTOPDIRECTORY = 16,
    CSIDL_PERSONAL = 5,
    CSIDL_APPDATA = 26,
    CSIDL_LOCAL_APPDATA = 28,
};

inline constexpr const char* kDataSubDir = "Sorquin Software/Mailvane";
inline constexpr const char* kTemplateRelPath = "Database/_mvblank.mdb";
inline constexpr const char* kInstallDirVariable = "MAILVANE_INSTALL_DIR";

QString AppDataDir();
QString DataDir();
// QStandardPaths' CacheLocation; empty when the application has no name,
// where that would be the cache root that other programs share.
QString CacheDir();
QString TempPath();

// The places the installed data may be, in the order they are searched:
// $MAILVANE_INSTALL_DIR (when set), <executable's dir>/../share/mailvane,
// and the build tree.
QStringList InstallDirCandidates();
// The first of `candidates` that holds the blank database template; when
// none does, the first candidate, so a later "template missing" error
// names the place it was expected. Empty only when `candidates` is.
QString FindInstallDir(const QStringList& candidates);
QString InstallDir();

// The folder for a CSIDL number, without a trailing "/". A number it cannot
// give (or a folder the system cannot name) is reported through `report`
// with the label "GetSpecialFolderLocation of Module modSpecialFolders" and
// gives "".
QString GetSpecialFolderLocation(int csidl, ErrorReport& report);

}  // namespace mv::os
