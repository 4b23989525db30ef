#pragma once
// Message boxes of the desktop: a modal QMessageBox whose buttons and icon
// come from the classic style constants and whose clicked button is mapped
// back to the classic answer.

#include "platform/os/MessageBox.h"

#include <QMessageBox>

#include <vector>

namespace mv::forms {

class QtMessageBoxAnswerer final : public os::MessageBoxAnswerer {
public:
    // `parent` (may be null) is the window the boxes are modal to.
    explicit QtMessageBoxAnswerer(QWidget* parent = nullptr) : m_parent(parent) {}
    int Show(const QString& text, int style, const QString& title) override;
    void SetParent(QWidget* parent) { m_parent = parent; }

    // The mappings, apart from the modal loop so they can be checked.
    using Buttons = std::vector<QMessageBox::StandardButton>;
    static Buttons ButtonsFor(int style);
    static QMessageBox::Icon IconFor(int style);
    static int AnswerFor(QMessageBox::StandardButton button);

private:
    QWidget* m_parent;
};

}  // namespace mv::forms
