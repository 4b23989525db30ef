// The desktop message box: classic styles to buttons and icon, the clicked
// button back to the classic answer.

#include "forms/QtMessageBoxAnswerer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QTimer>

#include <gtest/gtest.h>

namespace mv::test {
namespace {

using forms::QtMessageBoxAnswerer;
using SB = QMessageBox::StandardButton;

struct StyleCase {
    int style;
    QtMessageBoxAnswerer::Buttons buttons;
    QMessageBox::Icon icon;
};

class StyleTest : public ::testing::TestWithParam<StyleCase> {};

TEST_P(StyleTest, ButtonsAndIcon)
{
    EXPECT_EQ(QtMessageBoxAnswerer::ButtonsFor(GetParam().style), GetParam().buttons);
    EXPECT_EQ(QtMessageBoxAnswerer::IconFor(GetParam().style), GetParam().icon);
}

INSTANTIATE_TEST_SUITE_P(
    Styles, StyleTest,
    ::testing::Values(StyleCase{os::vbOKOnly + os::vbExclamation, {SB::Ok}, QMessageBox::Warning},
                      StyleCase{os::vbOKCancel + os::vbInformation, {SB::Ok, SB::Cancel}, QMessageBox::Information},
                      StyleCase{os::vbYesNoCancel + os::vbQuestion, {SB::Yes, SB::No, SB::Cancel}, QMessageBox::Question},
                      StyleCase{os::vbYesNo + os::vbCritical + 256, {SB::Yes, SB::No}, QMessageBox::Critical},
                      StyleCase{os::vbRetryCancel, {SB::Retry, SB::Cancel}, QMessageBox::NoIcon},
                      StyleCase{os::vbAbortRetryIgnore, {SB::Abort, SB::Retry, SB::Ignore}, QMessageBox::NoIcon},
                      StyleCase{9, {SB::Ok}, QMessageBox::NoIcon}));

struct ClickCase {
    int style;
    SB click;
    int answer;
};

class ClickTest : public ::testing::TestWithParam<ClickCase> {};

// A real modal box, answered by clicking its button from the event loop.
TEST_P(ClickTest, ClickedButtonIsTheAnswer)
{
    const ClickCase c = GetParam();
    QString seenText, seenTitle;
    QTimer::singleShot(0, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(box, nullptr);
        seenText = box->text();
        seenTitle = box->windowTitle();
        box->button(c.click)->click();
    });
    QtMessageBoxAnswerer answerer;
    EXPECT_EQ(answerer.Show(QStringLiteral("Go on?"), c.style, QStringLiteral("Mailvane")), c.answer);
    EXPECT_EQ(seenText, QStringLiteral("Go on?"));
    EXPECT_EQ(seenTitle, QStringLiteral("Mailvane"));
}

INSTANTIATE_TEST_SUITE_P(Answers, ClickTest,
                         ::testing::Values(ClickCase{os::vbOKOnly, SB::Ok, os::vbOK},
                                           ClickCase{os::vbYesNo + os::vbQuestion, SB::Yes, os::vbYes},
                                           ClickCase{os::vbYesNo + os::vbQuestion, SB::No, os::vbNo},
                                           ClickCase{os::vbYesNoCancel, SB::Cancel, os::vbCancel},
                                           ClickCase{os::vbRetryCancel, SB::Retry, os::vbRetry}));

}  // namespace
}  // namespace mv::test
