#include "QtFormLauncher.h"

#include "frmRulesMain.h"

#include "addin/OutAddIn.h"
#include "platform/outlook/Application.h"

namespace mv::forms {

void QtFormLauncher::ShowRulesManager()
{
    RulesMainContext ctx{m_addIn,
                         m_addIn.NameSpace(),
                         m_services.folderPicker,
                         m_services.contacts,
                         m_services.answerer,
                         m_services.report,
                         m_services.files,
                         m_services.shell,
                         QStringLiteral("11.0"),
                         m_services.runModal,
                         m_services.showAbout,
                         m_services.showSettings};
    if (auto* app = m_addIn.Application()) ctx.hostVersion = app->Version();
    frmRulesMain form(std::move(ctx), m_services.parent);
    form.Form_Load();
    if (m_services.runModal)
        m_services.runModal(form);
    else
        form.exec();
}

void QtFormLauncher::ShowSmartAdd()
{
    ShowSmartAddForm(m_addIn, m_services);
}

void QtFormLauncher::ShowSmartUpdate()
{
    ShowSmartUpdateForm(m_addIn, m_services);
}

// ---- placeholders: replaced when the Smart Add and Smart Update forms land ----

void ShowSmartAddForm(addin::OutAddIn& addIn, const FormServices&)
{
    addIn.WriteLog(3, QStringLiteral("FormLauncher"), QStringLiteral("frmRuleProps NewSA not available"));
}

void ShowSmartUpdateForm(addin::OutAddIn& addIn, const FormServices&)
{
    addIn.WriteLog(3, QStringLiteral("FormLauncher"), QStringLiteral("frmRuleUpdate not available"));
}

}  // namespace mv::forms
