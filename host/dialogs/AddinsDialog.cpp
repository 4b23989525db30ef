#include "AddinsDialog.h"

#include "host/core/AddinLoader.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace mv::host {

namespace {

constexpr int kProgIdRole = Qt::UserRole;
constexpr int kConnectedRole = Qt::UserRole + 1;
constexpr int kLoadAtStartup = 3;

QLabel* NewLabel(QWidget* parent, const char* name)
{
    auto* label = new QLabel(parent);
    label->setObjectName(QString::fromLatin1(name));
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

}  // namespace

AddinsDialog::AddinsDialog(AddinLoader& loader, QWidget* parent) : QDialog(parent), m_loader(loader)
{
    setObjectName(QStringLiteral("frmAddins"));
    setWindowTitle(QStringLiteral("COM Add-ins"));
    auto* layout = new QVBoxLayout(this);
    auto* caption = new QLabel(QStringLiteral("Add-ins available:"), this);
    layout->addWidget(caption);
    m_lstAddins = new QListWidget(this);
    m_lstAddins->setObjectName(QStringLiteral("lstAddins"));
    layout->addWidget(m_lstAddins);
    auto* details = new QFormLayout;
    m_lblDescription = NewLabel(this, "lblDescription");
    m_lblLoadBehavior = NewLabel(this, "lblLoadBehavior");
    details->addRow(QStringLiteral("Description:"), m_lblDescription);
    details->addRow(QStringLiteral("Load Behavior:"), m_lblLoadBehavior);
    layout->addLayout(details);
    m_lblError = NewLabel(this, "lblError");
    m_lblError->setStyleSheet(QStringLiteral("color: #a00000"));
    m_lblError->hide();
    layout->addWidget(m_lblError);

    auto* buttons = new QDialogButtonBox(this);
    QPushButton* ok = buttons->addButton(QDialogButtonBox::Ok);
    QPushButton* cancel = buttons->addButton(QDialogButtonBox::Cancel);
    ok->setObjectName(QStringLiteral("btnOK"));
    cancel->setObjectName(QStringLiteral("btnCancel"));
    layout->addWidget(buttons);
    connect(ok, &QPushButton::clicked, this, [this] {
        if (ApplyChecks()) accept();
    });
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(m_lstAddins, &QListWidget::currentRowChanged, this, [this] { ShowDetails(); });

    Fill();
}

QString AddinsDialog::LoadBehaviorText(const AddinInfo& info)
{
    if (info.connected)
        return info.loadBehavior == kLoadAtStartup ? QStringLiteral("Load at Startup")
                                                   : QStringLiteral("Loaded");
    if (info.loadBehavior == kLoadAtStartup)
        return QStringLiteral("Not loaded. A runtime error occurred during the loading of the COM Add-in.");
    return QStringLiteral("Unloaded");
}

void AddinsDialog::Fill()
{
    const int row = m_lstAddins->currentRow();
    m_lstAddins->clear();
    for (const AddinInfo& info : m_loader.Registered()) {
        auto* item =
            new QListWidgetItem(info.friendlyName.isEmpty() ? info.progId : info.friendlyName, m_lstAddins);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        item->setCheckState(info.connected ? Qt::Checked : Qt::Unchecked);
        item->setData(kProgIdRole, info.progId);
        item->setData(kConnectedRole, info.connected);
        item->setToolTip(info.progId);
    }
    if (m_lstAddins->count() > 0) m_lstAddins->setCurrentRow(qBound(0, row, m_lstAddins->count() - 1));
    ShowDetails();
}

void AddinsDialog::ShowDetails()
{
    const QListWidgetItem* item = m_lstAddins->currentItem();
    m_lblDescription->clear();
    m_lblLoadBehavior->clear();
    if (!item) return;
    const QString progId = item->data(kProgIdRole).toString();
    for (const AddinInfo& info : m_loader.Registered()) {
        if (info.progId.compare(progId, Qt::CaseInsensitive) != 0) continue;
        m_lblDescription->setText(info.description);
        m_lblLoadBehavior->setText(LoadBehaviorText(info));
    }
}

bool AddinsDialog::ApplyChecks()
{
    QStringList failed;
    for (int i = 0; i < m_lstAddins->count(); ++i) {
        const QListWidgetItem* item = m_lstAddins->item(i);
        const QString progId = item->data(kProgIdRole).toString();
        const bool wanted = item->checkState() == Qt::Checked;
        if (wanted == item->data(kConnectedRole).toBool()) continue;
        if (!wanted)
            (void)m_loader.Remove(progId);
        else if (!m_loader.Reconnect(progId))
            failed << item->text();
    }
    Fill();
    if (failed.isEmpty()) {
        m_lblError->hide();
        return true;
    }
    QString text = QStringLiteral("Could not connect %1.").arg(failed.join(QStringLiteral(", ")));
    if (!m_loader.Failures().isEmpty()) text += u' ' + m_loader.Failures().constLast();
    m_lblError->setText(text);
    m_lblError->show();
    return false;
}

}  // namespace mv::host
