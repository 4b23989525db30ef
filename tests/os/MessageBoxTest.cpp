// Message boxes and error reports: scripted and console answers, and the
// error box's title, text and log line.

#include "platform/logging/MemoryLogger.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "tests/support/QtPrinters.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>

using namespace mv::os;
using mv::logging::MemoryLogger;

namespace {

TEST(ConsoleAnswerer, FlagOrDocumentedDefaultPrintedAndQuestionsLogged)
{
    const struct {
        int style, given, expected;
    } cases[] = {
        {vbYesNo + vbQuestion, 0, vbNo}, {vbYesNoCancel + vbQuestion, 0, vbCancel}, {vbOKCancel, 0, vbCancel},
        {vbOKOnly + vbCritical, vbNo, vbOK}, {vbYesNo, vbYes, vbYes}, {vbYesNoCancel, vbNo, vbNo},
        {vbOKCancel, vbYes, vbOK}, {vbOKCancel, vbNo, vbCancel}, {vbRetryCancel, vbYes, vbRetry},
        {vbYesNo + vbQuestion + 256 /* default button 2 */, 0, vbNo},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ConsoleAnswerer::AnswerFor(c.style, c.given), c.expected) << "style " << c.style << " given " << c.given;

    std::FILE* out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    MemoryLogger log;
    ConsoleAnswerer console(vbYes, &log, out);
    EXPECT_EQ(console.Show(QStringLiteral("Delete this rule?"), vbYesNo + vbQuestion, QStringLiteral("Mailvane")), vbYes);
    EXPECT_EQ(console.Show(QStringLiteral("Zürich failed"), vbExclamation, QStringLiteral("Mailvane (v2.0.15) Error: ")), vbOK);
    std::rewind(out);
    char buf[256] = {};
    const auto n = std::fread(buf, 1, sizeof buf - 1, out);
    std::fclose(out);
    EXPECT_EQ(QString::fromUtf8(buf, static_cast<qsizetype>(n)),
              QStringLiteral("Mailvane: Delete this rule? [Yes]\nMailvane (v2.0.15) Error: Zürich failed\n"));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].text, QStringLiteral("Delete this rule? -> Yes"));
}

TEST(ErrorReport, NumberAsSigned32BitInAnExclamationBoxAndALevel4Line)
{
    EXPECT_EQ(ErrorReport::TitleFor(10, 12, 105), QStringLiteral("Mailvane (v10.12.105) Error: "));
    const std::pair<long, const char*> cases[] = {
        {0x800403E8L, "-2147220504"}, {-2147220504L, "-2147220504"}, {0x80004005L, "-2147467259"}, {5, "5"}};
    for (const auto& [number, printed] : cases)
        EXPECT_EQ(ErrorReport::ProcedureErrorText(number, QStringLiteral("Rule not found"), QStringLiteral("ExecuteRule")),
                  QStringLiteral("Error %1 (Rule not found) in procedure ExecuteRule").arg(QLatin1String(printed)));

    ScriptedAnswerer answerer;
    MemoryLogger log;
    ErrorReport report(answerer, &log);
    report.Show(QStringLiteral("Cannot open the database"));
    report.ShowProcedureError(0x800403E9L, QStringLiteral("Folder missing"), QStringLiteral("OutAddIn.RunAllRules"));
    ASSERT_EQ(answerer.shown().size(), 2u);
    for (const auto& box : answerer.shown()) {
        EXPECT_EQ(box.style, vbOKOnly + vbExclamation);
        EXPECT_EQ(box.title, ErrorReport::Title());
    }
    const QString text = QStringLiteral("Error -2147220503 (Folder missing) in procedure OutAddIn.RunAllRules");
    EXPECT_EQ(answerer.texts(), (QStringList{QStringLiteral("Cannot open the database"), text}));
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].level, 4);
    EXPECT_EQ(log.lines()[1], (MemoryLogger::Line{4, QStringLiteral("OutAddIn.RunAllRules"), text}));
}

TEST(ErrorReport, NeverLetsAnExceptionOutAndStillLogs)
{
    struct Throwing : MessageBoxAnswerer {
        int Show(const QString&, int, const QString&) override { throw std::runtime_error("no display"); }
    } answerer;
    MemoryLogger log;
    ErrorReport report(answerer, &log);
    EXPECT_NO_THROW(report.Show(QStringLiteral("x")));
    EXPECT_NO_THROW(report.ShowProcedureError(1, QStringLiteral("y"), QStringLiteral("z")));
    EXPECT_EQ(log.lines().size(), 2u);
    report.SetLog(nullptr);
    EXPECT_NO_THROW(report.Show(QStringLiteral("no log set")));
}

}  // namespace
