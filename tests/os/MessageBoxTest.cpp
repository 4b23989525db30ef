#include "platform/logging/MemoryLogger.h"
#include "platform/os/MessageBox.h"

#include <gtest/gtest.h>

#include <cstdio>

using namespace mv::os;

namespace {

TEST(ScriptedAnswerer, QueuedAnswersThenOkThenUnansweredQuestionsNoticed)
{
    ScriptedAnswerer a;
    a.Queue(vbNo);
    EXPECT_EQ(a.Show(QStringLiteral("q1"), vbYesNo + vbQuestion, {}), vbNo);
    EXPECT_EQ(a.Show(QStringLiteral("warn"), vbOKOnly + vbExclamation, {}), vbOK);
    EXPECT_EQ(a.Show(QStringLiteral("ok?"), vbOKCancel + vbInformation, {}), vbOK);
    EXPECT_TRUE(a.unanswered().empty());

    EXPECT_EQ(a.Show(QStringLiteral("delete?"), vbYesNoCancel + vbQuestion, {}), vbYes);
    EXPECT_EQ(a.Show(QStringLiteral("retry?"), vbRetryCancel, {}), vbRetry);
    ASSERT_EQ(a.unanswered().size(), 2u);
    EXPECT_EQ(a.unanswered()[0].text, QStringLiteral("delete?"));
    EXPECT_EQ(a.shown().size(), 5u);
}

TEST(ConsoleAnswerer, FlagOrDocumentedDefault)
{
    const struct {
        int style, given, expected;
    } cases[] = {
        {vbYesNo + vbQuestion, 0, vbNo},          {vbYesNoCancel + vbQuestion, 0, vbCancel},
        {vbOKCancel, 0, vbCancel},                {vbOKOnly + vbCritical, vbNo, vbOK},
        {vbYesNo, vbYes, vbYes},                  {vbYesNoCancel, vbNo, vbNo},
        {vbOKCancel, vbYes, vbOK},                {vbOKCancel, vbNo, vbCancel},
        {vbRetryCancel, vbYes, vbRetry},          {vbYesNo + vbQuestion + 256 /* default button 2 */, 0, vbNo},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ConsoleAnswerer::AnswerFor(c.style, c.given), c.expected) << "style " << c.style << " given " << c.given;
    }
}

TEST(ConsoleAnswerer, PrintsTitleTextAndAnswerAndLogsQuestions)
{
    std::FILE* out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    mv::logging::MemoryLogger log;
    ConsoleAnswerer console(vbYes, &log, out);
    EXPECT_EQ(console.Show(QStringLiteral("Delete this rule?"), vbYesNo + vbQuestion, QStringLiteral("Mailvane")), vbYes);
    EXPECT_EQ(console.Show(QStringLiteral("Zürich failed"), vbExclamation, QStringLiteral("Mailvane (v2.0.15) Error: ")),
              vbOK);

    std::rewind(out);
    char buf[256] = {};
    const auto n = std::fread(buf, 1, sizeof buf - 1, out);
    std::fclose(out);
    EXPECT_EQ(QString::fromUtf8(buf, static_cast<qsizetype>(n)),
              QStringLiteral("Mailvane: Delete this rule? [Yes]\nMailvane (v2.0.15) Error: Zürich failed\n"));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].text, QStringLiteral("Delete this rule? -> Yes"));
}

}  // namespace
