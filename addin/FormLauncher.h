#pragma once
// The forms the toolbar and the Tools menu open. The add-in only starts
// them; the forms layer implements this and the host installs it. Until one
// is installed, LoggingFormLauncher records the request in the log, so the
// clicks stay wired and testable.

#include "platform/logging/Logger.h"

#include <QString>

namespace mv::addin {

class FormLauncher {
public:
    virtual ~FormLauncher() = default;
    virtual void ShowRulesManager() = 0;
    // The rule editor in mode "NewSA", filled from the selected message.
    virtual void ShowSmartAdd() = 0;
    virtual void ShowSmartUpdate() = 0;
};

class LoggingFormLauncher : public FormLauncher {
public:
    explicit LoggingFormLauncher(logging::Logger* const* log) : m_log(log) {}
    void ShowRulesManager() override { Write(QStringLiteral("frmRulesMain")); }
    void ShowSmartAdd() override { Write(QStringLiteral("frmRuleProps NewSA")); }
    void ShowSmartUpdate() override { Write(QStringLiteral("frmRuleUpdate")); }

private:
    void Write(const QString& form)
    {
        if (m_log && *m_log) (*m_log)->Write(3, QStringLiteral("FormLauncher"), form + QStringLiteral(" not available"));
    }
    logging::Logger* const* m_log;
};

}  // namespace mv::addin
