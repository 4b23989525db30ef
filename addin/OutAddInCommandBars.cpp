// The "Mailvane" toolbar, the Tools menu's popup, their clicks and the
// toolbar position in the settings.

#include "OutAddIn.h"

#include "platform/office/CommandBars.h"
#include "platform/os/Clipboard.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "platform/outlook/Application.h"

#include <QImage>

namespace mv::addin {

namespace {

const QString kToolbarName = QStringLiteral("Mailvane");

struct ButtonSpec {
    const char* caption;
    const char* tag;
    const char* tooltip;
    const char* bitmap;
};

// In creation order. The update button's face is mv4 and the run button's
// mv3: the pairing is intended.
constexpr ButtonSpec kButtons[] = {
    {"Mailvane", "Mailvane", "Mailvane Rules Manager", "/mv1.bmp"},
    {"Smart Add Rule", "Smart Add Rule", "Smart Add Rule", "/mv2.bmp"},
    {"Smart Rule Update", "Smart Rule Update", "Smart Rule Update", "/mv4.bmp"},
    {"Run Mailvane Rules", "Run Mailvane Rules", "Run Mailvane Rules", "/mv3.bmp"},
};

constexpr const char* kMenuCaptions[] = {"Rules Manager...", "Smart Add Rule...", "Smart Rule Update...",
                                         "Run Rules"};

}  // namespace

void OutAddIn::BindClick(office::CommandBarControl* control, void (OutAddIn::*handler)())
{
    if (!control || !m_events) return;
    QObject::connect(control, &office::CommandBarControl::Click, m_events.get(),
                     [this, handler](office::CommandBarControl*, bool&) { (this->*handler)(); });
}

office::CommandBarControl* OutAddIn::CreateButton(office::CommandBar* bar, const QString& caption,
                                                  const QString& tag, const QString& tooltip,
                                                  const QString& bitmap, bool beginGroup, int style)
{
    office::CommandBarControl* button = bar->Controls()->Add(office::msoControlButton);
    if (!button) return nullptr;
    button->SetCaption(caption);
    button->SetTag(tag);
    button->SetTooltipText(tooltip);
    // A missing bitmap leaves the button without a face; the rest still runs.
    Ignore([&] {
        const QImage picture(bitmap);
        if (m_clipboard && office::PutFaceOnClipboard(*m_clipboard, picture, 0xFF00FF)) button->PasteFace();
    });
    button->SetStyle(style);
    button->SetVisible(true);
    button->SetBeginGroup(beginGroup);
    // Routes the click to this add-in even when the host has not loaded it.
    button->SetOnAction(QStringLiteral("<!") + m_progId + u'>');
    return button;
}

void OutAddIn::BuildToolbar(office::CommandBars* bars)
{
    if (m_toolbar == 0 || !bars) return;  // the Toolbar setting
    os::Clipboard::Snapshot saved;
    Ignore([&] {
        if (m_clipboard) saved = m_clipboard->Save();
    });
    bool isNew = false;
    Ignore([&] {
        m_cbToolbar = bars->Item(kToolbarName);
        if (!m_cbToolbar) {
            m_cbToolbar = bars->Add(kToolbarName, office::msoBarTop, false, true);
            isNew = true;
            if (m_cbToolbar && init == 1) {
                m_cbToolbar->SetRowIndex(tbRow);
                m_cbToolbar->SetLeft(tbLeft);
                m_cbToolbar->SetTop(tbTop);
            }
        } else {
            // Another window's toolbar of the same bars: its buttons are
            // re-created, never doubled.
            while (office::CommandBarControl* c = m_cbToolbar->Controls()->Item(1)) c->Delete();
        }
    });
    if (m_cbToolbar) {
        QPointer<office::CommandBarControl>* members[] = {&m_cbbRuleMgr, &m_cbbAdd, &m_cbbUpdate, &m_cbbRun};
        void (OutAddIn::*handlers[])() = {&OutAddIn::CBBRuleMgr_Click, &OutAddIn::CBBAdd_Click,
                                         &OutAddIn::CBBUpdate_Click, &OutAddIn::CBBRun_Click};
        for (int i = 0; i < 4; ++i) {
            Ignore([&] {
                const ButtonSpec& b = kButtons[i];
                *members[i] = CreateButton(m_cbToolbar, QString::fromLatin1(b.caption), QString::fromLatin1(b.tag),
                                           QString::fromLatin1(b.tooltip), m_installDir + QLatin1String(b.bitmap),
                                           false, office::msoButtonIconAndCaption);
                BindClick(*members[i], handlers[i]);
            });
        }
        if (isNew) m_cbToolbar->SetVisible(true);
    }
    Ignore([&] {
        if (m_clipboard) m_clipboard->Restore(saved);
    });
}

void OutAddIn::BuildMenu(office::CommandBars* bars)
{
    if (!bars) return;
    m_toolsBar = bars->Item(QStringLiteral("Tools"));
    if (!m_toolsBar) return;
    m_menuPopup = m_toolsBar->Controls()->Add(office::msoControlPopup, 0, {}, 0, true);
    if (!m_menuPopup || !m_menuPopup->Controls()) return;
    m_menuPopup->SetCaption(QStringLiteral("Mailvane"));
    m_menuPopup->SetBeginGroup(true);
    void (OutAddIn::*handlers[])() = {&OutAddIn::cbrMenuItem1_Click, &OutAddIn::cbrMenuItem2_Click,
                                     &OutAddIn::cbrMenuItem3_Click, &OutAddIn::cbrMenuItem4_Click};
    for (int i = 0; i < 4; ++i) {
        Ignore([&] {
            office::CommandBarControl* item = m_menuPopup->Controls()->Add(office::msoControlButton, 0, {}, 0, true);
            item->SetCaption(QString::fromLatin1(kMenuCaptions[i]));
            item->SetBeginGroup(false);
            m_menuItems[i] = item;
            BindClick(item, handlers[i]);
        });
    }
    Ignore([&] {
        office::CommandBarControl* item = m_menuPopup->Controls()->Add(office::msoControlButton, 0, {}, 0, true);
        item->SetCaption(QStringLiteral("Undo Last Run"));
        item->SetBeginGroup(true);
        m_menuUndo = item;
        BindClick(item, &OutAddIn::cbrMenuUndo_Click);
    });
}

office::CommandBar* OutAddIn::ToolbarBar() const
{
    return m_cbToolbar;
}

office::CommandBarControl* OutAddIn::MenuItem(int n) const
{
    return n >= 1 && n <= 4 ? m_menuItems[n - 1].data() : nullptr;
}

void OutAddIn::UpdateSettings()
{
    if (!m_cbToolbar) return;
    tbTop = static_cast<std::int16_t>(m_cbToolbar->Top());
    tbLeft = static_cast<std::int16_t>(m_cbToolbar->Left());
    tbRow = static_cast<std::int16_t>(m_cbToolbar->RowIndex());
    tbPos = static_cast<std::int16_t>(m_cbToolbar->Position());
    SaveSettings();
}

bool OutAddIn::SelectionEmpty() const
{
    // Counts selected items only; whether they are mail is the form's test.
    outlook::Explorer* explorer = m_objOutlook ? m_objOutlook->ActiveExplorer() : nullptr;
    return !explorer || explorer->SelectionCount() == 0;
}

void OutAddIn::CBBRuleMgr_Click()
{
    Ignore([&] { m_forms->ShowRulesManager(); });
}

void OutAddIn::CBBAdd_Click()
{
    Ignore([&] {
        if (SelectionEmpty())
            m_report.answerer().Show(QStringLiteral("Please select a Mail Item before using this feature."),
                                     os::vbInformation, AppTitle());
        else
            m_forms->ShowSmartAdd();
    });
}

void OutAddIn::cbrMenuItem2_Click()
{
    // The menu item skips the selection test the button makes; kept so.
    Ignore([&] { m_forms->ShowSmartAdd(); });
}

void OutAddIn::CBBUpdate_Click()
{
    Ignore([&] {
        if (SelectionEmpty())
            m_report.answerer().Show(QStringLiteral("Please select a Mail Item before using this feature."),
                                     os::vbInformation, AppTitle());
        else
            m_forms->ShowSmartUpdate();
    });
}

void OutAddIn::CBBRun_Click()
{
    Ignore([&] {
        RunAllRulesOnDemand();
        UpdateSettings();
    });
}

}  // namespace mv::addin
