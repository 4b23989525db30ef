#include "platform/logging/MemoryLogger.h"
#include "platform/os/ErrorReport.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

#include <stdexcept>

using namespace mv::os;

namespace {

struct TitleCase {
    int major, minor, revision;
    const char* title;
};

class ErrorTitle : public ::testing::TestWithParam<TitleCase> {};

TEST_P(ErrorTitle, PlainDecimalVersion)
{
    const auto& c = GetParam();
    EXPECT_EQ(ErrorReport::TitleFor(c.major, c.minor, c.revision), QString::fromUtf8(c.title));
}

INSTANTIATE_TEST_SUITE_P(Versions, ErrorTitle,
                         ::testing::Values(TitleCase{2, 0, 15, "Mailvane (v2.0.15) Error: "},
                                           TitleCase{1, 8, 0, "Mailvane (v1.8.0) Error: "},
                                           TitleCase{10, 12, 105, "Mailvane (v10.12.105) Error: "}));

TEST(ErrorTitleOfBuild, ComesFromTheProjectVersion)
{
    static const QRegularExpression shape(QStringLiteral(R"(^Mailvane \(v(0|[1-9]\d*)\.(0|[1-9]\d*)\.(0|[1-9]\d*)\) Error: $)"));
    EXPECT_TRUE(shape.match(ErrorReport::Title()).hasMatch()) << ErrorReport::Title().toStdString();
}

struct ProcCase {
    const char* name;
    long number;
    const char* expected;
};

class ProcedureText : public ::testing::TestWithParam<ProcCase> {};

TEST_P(ProcedureText, NumberPrintedAsSigned32Bit)
{
    const auto& c = GetParam();
    EXPECT_EQ(ErrorReport::ProcedureErrorText(c.number, QStringLiteral("Rule not found"), QStringLiteral("ExecuteRule")),
              QString::fromUtf8(c.expected));
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, ProcedureText,
    ::testing::Values(
        ProcCase{"CustomRangeAsUnsigned", 0x800403E8L, "Error -2147220504 (Rule not found) in procedure ExecuteRule"},
        ProcCase{"CustomRangeAlreadySigned", -2147220504L, "Error -2147220504 (Rule not found) in procedure ExecuteRule"},
        ProcCase{"GenericFailure", 0x80004005L, "Error -2147467259 (Rule not found) in procedure ExecuteRule"},
        ProcCase{"RuntimeError", 5, "Error 5 (Rule not found) in procedure ExecuteRule"},
        ProcCase{"Zero", 0, "Error 0 (Rule not found) in procedure ExecuteRule"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ErrorReportShow, ExclamationOkBoxUnderTitleAndLevel4Line)
{
    ScriptedAnswerer answerer;
    mv::logging::MemoryLogger log;
    ErrorReport report(answerer, &log);

    report.Show(QStringLiteral("Cannot open the database"));
    report.ShowProcedureError(0x800403E9L, QStringLiteral("Folder missing"), QStringLiteral("OutAddIn.RunAllRules"));

    ASSERT_EQ(answerer.shown().size(), 2u);
    for (const auto& box : answerer.shown()) {
        EXPECT_EQ(box.style, vbOKOnly + vbExclamation);
        EXPECT_EQ(box.title, ErrorReport::Title());
    }
    EXPECT_EQ(answerer.shown()[0].text, QStringLiteral("Cannot open the database"));
    EXPECT_EQ(answerer.shown()[1].text,
              QStringLiteral("Error -2147220503 (Folder missing) in procedure OutAddIn.RunAllRules"));
    EXPECT_TRUE(answerer.unanswered().empty());

    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].level, 4);
    EXPECT_EQ(log.lines()[1], (mv::logging::MemoryLogger::Line{4, QStringLiteral("OutAddIn.RunAllRules"),
                                                               answerer.shown()[1].text}));
}

class ThrowingAnswerer : public MessageBoxAnswerer {
public:
    int Show(const QString&, int, const QString&) override { throw std::runtime_error("no display"); }
};

TEST(ErrorReportShow, NeverLetsAnExceptionOut)
{
    ThrowingAnswerer answerer;
    mv::logging::MemoryLogger log;
    ErrorReport report(answerer, &log);
    EXPECT_NO_THROW(report.Show(QStringLiteral("x")));
    EXPECT_NO_THROW(report.ShowProcedureError(1, QStringLiteral("y"), QStringLiteral("z")));
    // The line is logged before the box, so it survives a box that fails.
    EXPECT_EQ(log.lines().size(), 2u);

    ErrorReport unlogged(answerer);
    EXPECT_NO_THROW(unlogged.Show(QStringLiteral("no log set")));
}

}  // namespace
