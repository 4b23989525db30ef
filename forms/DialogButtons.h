#pragma once
// The OK/Cancel row the smaller dialogs end with: OK is the default button,
// Cancel never takes Enter, both right-aligned and named btnOK/btnCancel.

#include <QString>

class QDialog;
class QHBoxLayout;
class QPushButton;
class QWidget;

namespace mv::forms {

// Creates both buttons as children of `dialog` and returns their row
// (not yet in any layout). `leading`, when given, fills the row's left part.
QHBoxLayout* MakeOkCancelRow(QDialog* dialog, QPushButton*& ok, QPushButton*& cancel,
                             const QString& cancelText = QStringLiteral("Cancel"), QWidget* leading = nullptr);

}  // namespace mv::forms
