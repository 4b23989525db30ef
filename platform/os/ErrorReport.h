#pragma once
// The common error report: an exclamation box with OK under the title
// "Mailvane (v<major>.<minor>.<revision>) Error: ". It never fails and never
// reports its own failure.

#include "MessageBox.h"

#include <QString>

namespace mv::logging {
class Logger;
}

namespace mv::os {

class ErrorReport {
public:
    // `log` may be null; when given, every report is also written at level 4.
    explicit ErrorReport(MessageBoxAnswerer& answerer, logging::Logger* log = nullptr)
        : m_answerer(answerer), m_log(log) {}

    void Show(const QString& message) noexcept;
    // "Error <number> (<description>) in procedure <label>", the number in
    // signed decimal as the add-in has always printed it (-2147220504 for
    // 0x800403E8).
    void ShowProcedureError(long number, const QString& description, const QString& label) noexcept;

    static QString Title();  // from the project version
    static QString TitleFor(int major, int minor, int revision);
    static QString ProcedureErrorText(long number, const QString& description, const QString& label);

    MessageBoxAnswerer& answerer() { return m_answerer; }
    void SetLog(logging::Logger* log) { m_log = log; }

private:
    void ShowAndLog(const QString& message, const QString& source) noexcept;

    MessageBoxAnswerer& m_answerer;
    logging::Logger* m_log;
};

}  // namespace mv::os
