#include "OptionsDialog.h"

#include "platform/common/ProgIdRegistry.h"
#include "platform/outlook/Application.h"
#include "platform/outlook/PropertyPage.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>

namespace mv::host {

// The page list handed to the add-ins: every Add makes the page at once.
class OptionsDialog::Pages : public outlook::PropertyPages {
public:
    explicit Pages(OptionsDialog& dialog) : m_dialog(dialog) {}
    void Add(const QString& progIdOrPage, const QString& caption) override
    {
        m_dialog.AddPage(progIdOrPage, caption);
    }

private:
    OptionsDialog& m_dialog;
};

OptionsDialog::OptionsDialog(outlook::Application& application, ProgIdRegistry& progIds, QWidget* parent)
    : QDialog(parent), m_progIds(progIds)
{
    setObjectName(QStringLiteral("frmOptions"));
    setWindowTitle(QStringLiteral("Options"));
    auto* layout = new QVBoxLayout(this);
    m_tabs = new QTabWidget(this);
    m_tabs->setObjectName(QStringLiteral("tabPages"));
    layout->addWidget(m_tabs);

    auto* buttons = new QDialogButtonBox(this);
    QPushButton* ok = buttons->addButton(QDialogButtonBox::Ok);
    QPushButton* cancel = buttons->addButton(QDialogButtonBox::Cancel);
    m_btnApply = buttons->addButton(QDialogButtonBox::Apply);
    ok->setObjectName(QStringLiteral("btnOK"));
    cancel->setObjectName(QStringLiteral("btnCancel"));
    m_btnApply->setObjectName(QStringLiteral("btnApply"));
    layout->addWidget(buttons);
    // A page that cannot store its values has told the user why; the dialog
    // stays open so the change is not dropped unseen.
    connect(ok, &QPushButton::clicked, this, [this] {
        if (ApplyPages()) accept();
    });
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(m_btnApply, &QPushButton::clicked, this, [this] { ApplyPages(); });

    Pages pages(*this);
    Q_EMIT application.OptionsPagesAdd(&pages);
    if (m_tabs->count() == 0) {
        auto* none = new QLabel(QStringLiteral("No add-in has options."), m_tabs);
        none->setObjectName(QStringLiteral("lblNoPages"));
        m_tabs->addTab(none, QStringLiteral("Add-ins"));
    }
    // Pages join the focus chain as they arrive, after the buttons; Tab goes
    // through the page first, as it is read.
    QWidget* lastOnPages = m_tabs;
    for (QWidget* w = m_tabs->nextInFocusChain(); w && w != this; w = w->nextInFocusChain())
        if (m_tabs->isAncestorOf(w) && w->focusPolicy() != Qt::NoFocus) lastOnPages = w;
    setTabOrder(lastOnPages, ok);
    setTabOrder(ok, cancel);
    setTabOrder(cancel, m_btnApply);
    UpdateApply();
}

// Pages go before the tabs: a page that is its own control leaves its tab as it goes.
OptionsDialog::~OptionsDialog() = default;

void OptionsDialog::AddPage(const QString& progId, const QString& caption)
{
    std::unique_ptr<outlook::PropertyPage> page = m_progIds.Create<outlook::PropertyPage>(progId);
    if (!page || !page->Control()) {
        auto* missing = new QLabel(
            QStringLiteral("This page cannot be shown: no component is registered as %1.").arg(progId),
            m_tabs);
        missing->setObjectName(QStringLiteral("lblMissingPage"));
        missing->setWordWrap(true);
        m_tabs->addTab(missing, caption);
        return;
    }
    page->SetSite([this] { UpdateApply(); });
    m_tabs->addTab(page->Control(), caption);
    m_pages.push_back(std::move(page));
}

void OptionsDialog::UpdateApply()
{
    bool dirty = false;
    for (const auto& page : m_pages) dirty = dirty || page->Dirty();
    m_btnApply->setEnabled(dirty);
}

bool OptionsDialog::ApplyPages()
{
    bool all = true;
    for (const auto& page : m_pages)
        if (page->Dirty()) all = page->Apply() && all;
    UpdateApply();
    return all;
}

}  // namespace mv::host
