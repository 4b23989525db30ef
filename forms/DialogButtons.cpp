#include "DialogButtons.h"

#include <QDialog>
#include <QHBoxLayout>
#include <QPushButton>

namespace mv::forms {

QHBoxLayout* MakeOkCancelRow(QDialog* dialog, QPushButton*& ok, QPushButton*& cancel, const QString& cancelText,
                             QWidget* leading)
{
    ok = new QPushButton(QStringLiteral("OK"), dialog);
    ok->setObjectName(QStringLiteral("btnOK"));
    ok->setDefault(true);
    cancel = new QPushButton(cancelText, dialog);
    cancel->setObjectName(QStringLiteral("btnCancel"));
    cancel->setAutoDefault(false);
    auto* row = new QHBoxLayout;
    if (leading)
        row->addWidget(leading, 1);
    else
        row->addStretch();
    row->addWidget(ok);
    row->addWidget(cancel);
    return row;
}

}  // namespace mv::forms
