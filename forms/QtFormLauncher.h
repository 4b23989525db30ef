#pragma once
// The forms the add-in's toolbar and Tools menu open, on the desktop. The
// host makes one over the connected add-in and its own desktop services and
// hands it to OutAddIn::SetFormLauncher.

#include "addin/FormLauncher.h"

#include <functional>

class QDialog;
class QWidget;

namespace mv::addin {
class OutAddIn;
}
namespace mv::os {
class ErrorReport;
class FileDialog;
class MessageBoxAnswerer;
class Shell;
}  // namespace mv::os
namespace mv::outlook {
class FolderPicker;
}

namespace mv::forms {

class ContactPicker;

// What the forms need from the desktop; all must outlive the launcher.
struct FormServices {
    outlook::FolderPicker& folderPicker;
    ContactPicker& contacts;
    os::MessageBoxAnswerer& answerer;
    os::ErrorReport& report;
    os::FileDialog& files;
    os::Shell* shell = nullptr;
    QWidget* parent = nullptr;  // the window the forms are modal to
    // Default exec(); tests answer the dialogs in its place.
    std::function<void(QDialog&)> runModal = {};
    std::function<void(QWidget*)> showAbout = {};
    std::function<void(QWidget*)> showSettings = {};
};

class QtFormLauncher final : public addin::FormLauncher {
public:
    QtFormLauncher(addin::OutAddIn& addIn, FormServices services)
        : m_addIn(addIn), m_services(std::move(services))
    {
    }

    void ShowRulesManager() override;
    void ShowSmartAdd() override;
    void ShowSmartUpdate() override;

private:
    addin::OutAddIn& m_addIn;
    FormServices m_services;
};

}  // namespace mv::forms
