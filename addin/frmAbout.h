#pragma once
// The About box: the add-in's title and version, OK, System Info (the
// system-information program the registry names) and Help (the HTML
// manual under help/ in the installation folder, opened in the desktop's
// browser). A manual that cannot be opened is only logged; a missing
// system-information program gets the usual message box.
//
// The seams must outlive the form.

#include <QDialog>
#include <QString>

class QLabel;
class QPushButton;

namespace mv::logging {
class Logger;
}
namespace mv::os {
class MessageBoxAnswerer;
class Registry;
class Shell;
}  // namespace mv::os

namespace mv::addin {

inline constexpr const char* kMsInfoKey = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Shared Tools\\MSINFO";
inline constexpr const char* kSharedToolsKey =
    "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Shared Tools Location";
inline constexpr const char* kHelpIndex = "help/index.html";

class frmAbout : public QDialog {
    Q_OBJECT
public:
    frmAbout(QString installDir, logging::Logger* log, os::MessageBoxAnswerer& answerer,
             const os::Shell& shell, const os::Registry& registry, QWidget* parent = nullptr);

    // The system-information program the registry names, if that file
    // exists: the "PATH" of the MSINFO key first, else the "MSINFO" folder
    // of the shared tools with "MSINFO32.EXE" in it. Empty when neither.
    static QString FindSystemInfo(const os::Registry& registry);
    static QString VersionText();

private:
    void Form_Load();
    void btnOK_Click();
    void btnSysInfo_Click();
    void btnHelp_Click();

    QString m_installDir;
    logging::Logger* m_log;
    os::MessageBoxAnswerer& m_answerer;
    const os::Shell& m_shell;
    const os::Registry& m_registry;
    QLabel* m_lblVersion = nullptr;
};

}  // namespace mv::addin
