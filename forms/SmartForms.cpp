#include "SmartForms.h"

#include "frmRuleAddProps.h"
#include "frmRuleUpdate.h"

#include "platform/os/ErrorReport.h"
#include "platform/outlook/Windows.h"

#include <QPointer>

#include <exception>

namespace mv::forms {

namespace {

// The caller is a toolbar click: nothing may escape into the event loop.
template <typename F>
void Guard(os::ErrorReport& report, const char* procedure, F&& body) noexcept
{
    const QString label = QString::fromLatin1(procedure) + QStringLiteral(" of Class Module OutAddIn");
    try {
        body();
    } catch (const std::exception& e) {
        report.ShowProcedureError(5, QString::fromLocal8Bit(e.what()), label);
    } catch (...) {
        report.ShowProcedureError(5, QStringLiteral("Invalid procedure call or argument"), label);
    }
}

std::unique_ptr<outlook::Item> FirstSelected(outlook::Explorer* explorer)
{
    if (!explorer) return nullptr;
    std::vector<std::unique_ptr<outlook::Item>> items = explorer->Selection();
    return items.empty() ? nullptr : std::move(items.front());
}

}  // namespace

bool ShowSmartAddForm(const RulePropsContext& context, outlook::Explorer* explorer, QWidget* parent)
{
    bool saved = false;
    Guard(context.report, "SmartAdd", [&] {
        frmRuleProps form(context, parent);
        form.Action = QStringLiteral("NewSA");
        std::unique_ptr<outlook::Item> item = FirstSelected(explorer);
        std::unique_ptr<outlook::Folder> folder = item ? explorer->CurrentFolder() : nullptr;
        form.SetSelection(std::move(item), std::move(folder));
        form.Form_Load();
        saved = form.exec() == QDialog::Accepted && !form.Cancelled;
    });
    return saved;
}

bool ShowSmartUpdateForm(const RulePropsContext& context, outlook::Explorer* explorer, QWidget* parent)
{
    bool saved = false;
    Guard(context.report, "SmartUpdate", [&] {
        frmRuleUpdate form(context, parent);
        form.ShowEditor = [&saved](frmRuleProps& editor) {
            saved = editor.exec() == QDialog::Accepted && !editor.Cancelled;
        };
        form.SetSelection(FirstSelected(explorer));
        form.Form_Load();
        form.exec();
    });
    return saved;
}

void RuleAddProps(store::cDB& db, os::ErrorReport& report, QWidget* parent)
{
    static QPointer<frmRuleAddProps> shown;
    Guard(report, "RuleAddProps", [&] {
        if (shown) {
            shown->raise();
            shown->activateWindow();
            return;
        }
        frmRuleAddProps form(db, report, parent);
        shown = &form;
        form.Form_Load();
        form.exec();
    });
}

}  // namespace mv::forms
