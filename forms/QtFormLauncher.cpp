#include "QtFormLauncher.h"

#include "SmartForms.h"
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
    // Settings opens the Smart Add settings unless the host gave its own.
    if (!ctx.showSettings && m_addIn.DB1()) {
        ctx.showSettings = [this](QWidget* parent) { RuleAddProps(*m_addIn.DB1(), m_services.report, parent); };
    }
    frmRulesMain form(std::move(ctx), m_services.parent);
    form.Form_Load();
    if (m_services.runModal)
        m_services.runModal(form);
    else
        form.exec();
}

namespace {

// The editor's context over the connected add-in. With connection 1 or the
// namespace missing (a failed start-up) nothing is shown; the log says why.
template <typename Show>
void WithEditorContext(addin::OutAddIn& addIn, const FormServices& services, Show show)
{
    store::cDB* db = addIn.DB1();
    outlook::NameSpace* ns = addIn.NameSpace();
    if (!db || !ns) {
        addIn.WriteLog(3, QStringLiteral("FormLauncher"), QStringLiteral("No database or namespace: form not shown"));
        return;
    }
    outlook::Application* app = addIn.Application();
    const RulePropsContext ctx{*db,
                               *ns,
                               services.folderPicker,
                               services.contacts,
                               services.answerer,
                               services.report,
                               app ? app->Version() : QStringLiteral("11.0"),
                               addin::OutAddIn::AppTitle(),
                               addIn.InstallDir(),
                               services.shell};
    outlook::Explorer* explorer = app ? app->ActiveExplorer() : nullptr;
    show(ctx, explorer);
}

}  // namespace

void QtFormLauncher::ShowSmartAdd()
{
    WithEditorContext(m_addIn, m_services, [this](const RulePropsContext& ctx, outlook::Explorer* explorer) {
        ShowSmartAddForm(ctx, explorer, m_services.parent);
    });
}

void QtFormLauncher::ShowSmartUpdate()
{
    WithEditorContext(m_addIn, m_services, [this](const RulePropsContext& ctx, outlook::Explorer* explorer) {
        ShowSmartUpdateForm(ctx, explorer, m_services.parent);
    });
}

}  // namespace mv::forms
