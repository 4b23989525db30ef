#include "frmRulePreview.h"

#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace mv::forms {

frmRulePreview::frmRulePreview(std::function<void(QDialog&)> runModal, QWidget* parent)
    : QDialog(parent), m_runModal(std::move(runModal))
{
    setObjectName(QStringLiteral("frmRulePreview"));
    setModal(true);
    lstPreview = new QListWidget(this);
    lstPreview->setObjectName(QStringLiteral("lstPreview"));
    lstPreview->setSelectionMode(QAbstractItemView::ExtendedSelection);
    btnOK = new QPushButton(QStringLiteral("OK"), this);
    btnOK->setObjectName(QStringLiteral("btnOK"));
    btnOK->setDefault(true);
    connect(btnOK, &QPushButton::clicked, this, &QDialog::accept);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(lstPreview);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(btnOK);
    layout->addLayout(buttons);
    resize(560, 380);
}

void frmRulePreview::SetCaption(const QString& caption)
{
    setWindowTitle(caption);
}

void frmRulePreview::SetLines(const QStringList& lines)
{
    lstPreview->clear();
    lstPreview->addItems(lines);
}

void frmRulePreview::ShowModal()
{
    if (m_runModal)
        m_runModal(*this);
    else
        exec();
}

QStringList frmRulePreview::Lines() const
{
    QStringList lines;
    for (int i = 0; i < lstPreview->count(); ++i) lines << lstPreview->item(i)->text();
    return lines;
}

}  // namespace mv::forms
