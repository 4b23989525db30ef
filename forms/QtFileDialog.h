#pragma once
// File dialogs of the desktop: a modal QFileDialog built from the request.

#include "platform/os/FileDialog.h"

class QWidget;

namespace mv::forms {

class QtFileDialog final : public os::FileDialog {
public:
    // `parent` (may be null) is the window the dialog is modal to.
    explicit QtFileDialog(QWidget* parent = nullptr) : m_parent(parent) {}
    QString Ask(const os::FileDialogRequest& request) override;
    void SetParent(QWidget* parent) { m_parent = parent; }

    // "XML Files (*.xml)" from a name and a pattern; a name that already ends
    // in its pattern in brackets is taken as it is.
    static QString NameFilter(const QString& name, const QString& pattern);

private:
    QWidget* m_parent;
};

}  // namespace mv::forms
