#pragma once
// The Rules Manager's export and import: the file dialog half. The chosen
// file goes to the add-in's database half (OutAddIn::ExportRulesTo and
// ImportRulesFrom), which writes or reads it and shows the outcome.
// Cancelling a dialog does nothing and shows nothing.

#include "platform/os/FileDialog.h"

#include <QString>

namespace mv::addin {
class OutAddIn;
}

namespace mv::forms {

class RuleExportImport {
public:
    // Both must outlive this object.
    RuleExportImport(addin::OutAddIn& addIn, os::FileDialog& files) : m_addIn(addIn), m_files(files) {}

    // True when a file was written.
    bool ExportRules();
    // True when a file was read in full.
    bool ImportRules();

    // The dialogs as they are asked for. Export starts in the installation
    // folder, or in the home folder when the installation is read-only.
    static os::FileDialogRequest ExportRequest(const QString& installDir);
    static os::FileDialogRequest ImportRequest();

private:
    addin::OutAddIn& m_addIn;
    os::FileDialog& m_files;
};

}  // namespace mv::forms
