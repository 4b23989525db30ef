#pragma once
// The forms' error handler: runs a procedure's body and reports anything it
// throws as "Error N (desc) in procedure <procedure> of Form <form>", then
// lets the procedure end with its default result. Database errors keep
// their own number; anything else is error 5.

#include "platform/ado/AdoError.h"
#include "platform/os/ErrorReport.h"

#include <QString>

#include <exception>

namespace mv::forms {

template <typename F>
bool TrapFormErrors(os::ErrorReport& report, const char* form, const char* procedure, F&& body) noexcept
{
    const QString label = QString::fromLatin1(procedure) + QStringLiteral(" of Form ") + QString::fromLatin1(form);
    try {
        body();
        return true;
    } catch (const ado::AdoError& e) {
        report.ShowProcedureError(e.Number(), e.Description(), label);
    } catch (const std::exception& e) {
        report.ShowProcedureError(5, QString::fromLocal8Bit(e.what()), label);
    } catch (...) {
        report.ShowProcedureError(5, QStringLiteral("Invalid procedure call or argument"), label);
    }
    return false;
}

}  // namespace mv::forms
