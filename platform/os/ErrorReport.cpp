#include "ErrorReport.h"

#include "platform/logging/Logger.h"

#include <cstdint>

#ifndef MV_VERSION_MAJOR
#error "MV_VERSION_MAJOR/MINOR/PATCH come from the project version in CMake"
#endif

namespace mv::os {

QString ErrorReport::TitleFor(int major, int minor, int revision)
{
    return QStringLiteral("Mailvane (v") + QString::number(major) + QLatin1Char('.') +
           QString::number(minor) + QLatin1Char('.') + QString::number(revision) +
           QStringLiteral(") Error: ");
}

QString ErrorReport::Title() { return TitleFor(MV_VERSION_MAJOR, MV_VERSION_MINOR, MV_VERSION_PATCH); }

QString ErrorReport::ProcedureErrorText(long number, const QString& description, const QString& label)
{
    // Error numbers are 32-bit HRESULTs; printed as a signed Long, the
    // custom range 0x80040000 + n comes out negative.
    const auto printed = static_cast<std::int32_t>(static_cast<std::uint32_t>(number));
    return QStringLiteral("Error ") + QString::number(printed) + QStringLiteral(" (") + description +
           QStringLiteral(") in procedure ") + label;
}

void ErrorReport::Show(const QString& message) noexcept
{
    ShowAndLog(message, QStringLiteral("ErrorReport"));
}

void ErrorReport::ShowProcedureError(long number, const QString& description, const QString& label) noexcept
{
    try {
        ShowAndLog(ProcedureErrorText(number, description, label), label);
    } catch (...) {
        // The report never fails its caller.
    }
}

void ErrorReport::ShowAndLog(const QString& message, const QString& source) noexcept
{
    // Logged first: a modal box may be the last thing a dying process shows.
    try {
        if (m_log) m_log->Write(4, source, message);
    } catch (...) {
    }
    try {
        m_answerer.Show(message, vbOKOnly + vbExclamation, Title());
    } catch (...) {
    }
}

}  // namespace mv::os
