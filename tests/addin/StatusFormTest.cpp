// The status form: its Cancel button, its animation, and the windowless
// stand-in.

#include "addin/StatusForms.h"

#include "platform/logging/MemoryLogger.h"

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

#include <gtest/gtest.h>

namespace mv::test {
namespace {

struct AnimationCase {
    const char* name;
    const char* installDir;
    int frames;
};

class StatusFormTest : public ::testing::TestWithParam<AnimationCase> {};

TEST_P(StatusFormTest, CancelSetsTheFlagWithOrWithoutAnimation)
{
    bool cancel = false;
    addin::frmStatus form(QString::fromLatin1(GetParam().installDir), cancel);
    EXPECT_EQ(form.FrameCount(), GetParam().frames);
    form.Show();
    form.SetRuleName(QStringLiteral("Newsletters"));
    form.SetProgress(2, 5);
    EXPECT_EQ(form.findChild<QLabel*>("lblRule")->text(), "Newsletters");
    EXPECT_EQ(form.findChild<QProgressBar*>("prgRules")->value(), 2);
    EXPECT_EQ(form.findChild<QProgressBar*>("prgRules")->maximum(), 5);
    form.findChild<QPushButton*>("btnCancel")->click();
    EXPECT_TRUE(cancel);
    form.Hide();
    EXPECT_FALSE(form.isVisible());
}

INSTANTIATE_TEST_SUITE_P(frmStatus, StatusFormTest,
                         ::testing::Values(AnimationCase{"Shipped", MV_SOURCE_DIR "/resources", 8},
                                           AnimationCase{"Missing", MV_SOURCE_DIR "/no-such-folder", 0}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(LogStatusForm, WritesProgressToTheLog)
{
    logging::MemoryLogger log;
    addin::LogStatusForm form(&log);
    form.Show();
    form.SetRuleName(QStringLiteral("Old mail"));
    form.SetProgress(1, 3);
    form.Hide();
    EXPECT_EQ(log.texts(), (QStringList{"Running rules", "Rule: Old mail", "1 of 3 rules", "Run ended"}));
}

}  // namespace
}  // namespace mv::test
