#include "platform/logging/MemoryLogger.h"
#include "platform/os/MessageBox.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

using namespace mv::os;

namespace {

TEST(ScriptedAnswerer, QueuedAnswersFirstThenDefaults)
{
    ScriptedAnswerer a;
    a.Queue(vbNo);
    a.Queue(vbCancel);
    EXPECT_EQ(a.Show(QStringLiteral("q1"), vbYesNo + vbQuestion, {}), vbNo);
    EXPECT_EQ(a.Show(QStringLiteral("q2"), vbYesNoCancel + vbQuestion, {}), vbCancel);
    EXPECT_EQ(a.pending(), 0u);

    // OK boxes need no script.
    EXPECT_EQ(a.Show(QStringLiteral("warn"), vbOKOnly + vbExclamation, {}), vbOK);
    EXPECT_EQ(a.Show(QStringLiteral("ok?"), vbOKCancel + vbInformation, {}), vbOK);
    EXPECT_TRUE(a.unanswered().empty());

    // A question nobody scripted is noticed and takes the first button.
    EXPECT_EQ(a.Show(QStringLiteral("delete?"), vbYesNo + vbQuestion, {}), vbYes);
    EXPECT_EQ(a.Show(QStringLiteral("retry?"), vbRetryCancel, {}), vbRetry);
    ASSERT_EQ(a.unanswered().size(), 2u);
    EXPECT_EQ(a.unanswered()[0].text, QStringLiteral("delete?"));
    EXPECT_EQ(a.texts(), (QStringList{"q1", "q2", "warn", "ok?", "delete?", "retry?"}));

    a.clear();
    EXPECT_TRUE(a.shown().empty());
    EXPECT_TRUE(a.unanswered().empty());
}

struct AnswerCase {
    const char* name;
    int style;
    int given;
    int expected;
};

class ConsoleAnswers : public ::testing::TestWithParam<AnswerCase> {};

TEST_P(ConsoleAnswers, FlagOrDocumentedDefault)
{
    const auto& c = GetParam();
    EXPECT_EQ(ConsoleAnswerer::AnswerFor(c.style, c.given), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ConsoleAnswers,
    ::testing::Values(AnswerCase{"YesNoDefaultsToNo", vbYesNo + vbQuestion, 0, vbNo},
                      AnswerCase{"YesNoCancelDefaultsToCancel", vbYesNoCancel + vbQuestion, 0, vbCancel},
                      AnswerCase{"OkCancelDefaultsToCancel", vbOKCancel, 0, vbCancel},
                      AnswerCase{"OkOnlyIsOk", vbOKOnly + vbExclamation, 0, vbOK},
                      AnswerCase{"OkOnlyIgnoresNo", vbOKOnly + vbCritical, vbNo, vbOK},
                      AnswerCase{"YesFlagOnYesNo", vbYesNo, vbYes, vbYes},
                      AnswerCase{"NoFlagOnYesNoCancel", vbYesNoCancel, vbNo, vbNo},
                      AnswerCase{"YesFlagOnOkCancelIsOk", vbOKCancel, vbYes, vbOK},
                      AnswerCase{"NoFlagOnOkCancelIsCancel", vbOKCancel, vbNo, vbCancel},
                      AnswerCase{"YesFlagOnRetryCancelIsRetry", vbRetryCancel, vbYes, vbRetry},
                      AnswerCase{"DefaultButtonFlagDoesNotHideButtons", vbYesNo + vbQuestion + 256, 0, vbNo}),
    [](const auto& info) { return std::string(info.param.name); });

// Captures what the answerer prints.
class Capture {
public:
    Capture() : m_file(::open_memstream(&m_buf, &m_size)) {}
    ~Capture()
    {
        if (m_file) std::fclose(m_file);
        std::free(m_buf);
    }
    std::FILE* file() { return m_file; }
    QString text()
    {
        std::fflush(m_file);
        return QString::fromUtf8(m_buf, static_cast<qsizetype>(m_size));
    }

private:
    char* m_buf = nullptr;
    std::size_t m_size = 0;
    std::FILE* m_file;
};

TEST(ConsoleAnswerer, PrintsTitleTextAndAnswerAndLogsQuestions)
{
    Capture out;
    mv::logging::MemoryLogger log;
    ConsoleAnswerer console(vbYes, &log, out.file());

    EXPECT_EQ(console.Show(QStringLiteral("Delete this rule?"), vbYesNo + vbQuestion, QStringLiteral("Mailvane")), vbYes);
    EXPECT_EQ(console.Show(QStringLiteral("Zürich failed"), vbOKOnly + vbExclamation,
                           QStringLiteral("Mailvane (v2.0.15) Error: ")),
              vbOK);

    EXPECT_EQ(out.text(), QStringLiteral("Mailvane: Delete this rule? [Yes]\n"
                                         "Mailvane (v2.0.15) Error: Zürich failed\n"));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].text, QStringLiteral("Delete this rule? -> Yes"));
}

}  // namespace
