#include "platform/logging/MemoryLogger.h"
#include "platform/os/ErrorReport.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

#include <stdexcept>

using namespace mv::os;
using mv::logging::MemoryLogger;

namespace {

TEST(ErrorReportText, TitleVersionInPlainDecimal)
{
    EXPECT_EQ(ErrorReport::TitleFor(2, 0, 15), QStringLiteral("Mailvane (v2.0.15) Error: "));
    EXPECT_EQ(ErrorReport::TitleFor(10, 12, 105), QStringLiteral("Mailvane (v10.12.105) Error: "));
    static const QRegularExpression built(QStringLiteral(R"(^Mailvane \(v(0|[1-9]\d*)(\.(0|[1-9]\d*)){2}\) Error: $)"));
    EXPECT_TRUE(built.match(ErrorReport::Title()).hasMatch()) << ErrorReport::Title().toStdString();
}

TEST(ErrorReportText, NumberPrintedAsSigned32Bit)
{
    const struct {
        long number;
        const char* printed;
    } cases[] = {{0x800403E8L, "-2147220504"}, {-2147220504L, "-2147220504"}, {0x80004005L, "-2147467259"}, {5, "5"}};
    for (const auto& c : cases) {
        EXPECT_EQ(ErrorReport::ProcedureErrorText(c.number, QStringLiteral("Rule not found"), QStringLiteral("ExecuteRule")),
                  QStringLiteral("Error %1 (Rule not found) in procedure ExecuteRule").arg(QLatin1String(c.printed)));
    }
}

TEST(ErrorReportShow, ExclamationOkBoxUnderTitleAndLevel4Line)
{
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

class ThrowingAnswerer : public MessageBoxAnswerer {
public:
    int Show(const QString&, int, const QString&) override { throw std::runtime_error("no display"); }
};

TEST(ErrorReportShow, NeverLetsAnExceptionOutAndStillLogs)
{
    ThrowingAnswerer answerer;
    MemoryLogger log;
    ErrorReport report(answerer, &log);
    EXPECT_NO_THROW(report.Show(QStringLiteral("x")));
    EXPECT_NO_THROW(report.ShowProcedureError(1, QStringLiteral("y"), QStringLiteral("z")));
    EXPECT_EQ(log.lines().size(), 2u);
    report.SetLog(nullptr);
    EXPECT_NO_THROW(report.Show(QStringLiteral("no log set")));
}

}  // namespace
