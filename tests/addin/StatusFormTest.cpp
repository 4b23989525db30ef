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

TEST(frmStatus, CancelSetsTheFlagWithOrWithoutAnimation)
{
    for (const auto& [dir, frames] :
         {std::pair{MV_SOURCE_DIR "/resources", 8}, {MV_SOURCE_DIR "/no-such-folder", 0}}) {
        SCOPED_TRACE(dir);
        bool cancel = false;
        addin::frmStatus form(QString::fromLatin1(dir), cancel);
        EXPECT_EQ(form.FrameCount(), frames);
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
}

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
