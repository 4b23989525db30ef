// The desktop message box: classic styles to buttons and icon, the clicked
// button back to the classic answer.

#include "forms/QtMessageBoxAnswerer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QTimer>

#include <gtest/gtest.h>

namespace mv::test {

using namespace Qt::StringLiterals;
namespace {

using forms::QtMessageBoxAnswerer;
using SB = QMessageBox::StandardButton;

struct BoxCase {
    int style;
    QtMessageBoxAnswerer::Buttons buttons;
    QMessageBox::Icon icon;
    SB click;
    int answer;
};

class MessageBoxTest : public ::testing::TestWithParam<BoxCase> {};

// A real modal box, answered by clicking its button from the event loop.
TEST_P(MessageBoxTest, StyleGivesButtonsAndIconAndTheClickedButtonIsTheAnswer)
{
    const BoxCase c = GetParam();
    EXPECT_EQ(QtMessageBoxAnswerer::ButtonsFor(c.style), c.buttons);
    EXPECT_EQ(QtMessageBoxAnswerer::IconFor(c.style), c.icon);
    QString seen;
    QTimer::singleShot(0, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(box, nullptr);
        seen = box->windowTitle() + u'|' + box->text();
        box->button(c.click)->click();
    });
    QtMessageBoxAnswerer answerer;
    EXPECT_EQ(answerer.Show(u"Go on?"_s, c.style, u"Mailvane"_s), c.answer);
    EXPECT_EQ(seen, u"Mailvane|Go on?"_s);
}

INSTANTIATE_TEST_SUITE_P(
    Styles, MessageBoxTest,
    ::testing::Values(
        BoxCase{os::vbOKOnly + os::vbExclamation, {SB::Ok}, QMessageBox::Warning, SB::Ok, os::vbOK},
        BoxCase{os::vbOKCancel + os::vbInformation,
                {SB::Ok, SB::Cancel},
                QMessageBox::Information,
                SB::Cancel,
                os::vbCancel},
        BoxCase{os::vbYesNoCancel + os::vbQuestion,
                {SB::Yes, SB::No, SB::Cancel},
                QMessageBox::Question,
                SB::Yes,
                os::vbYes},
        BoxCase{
            os::vbYesNo + os::vbCritical + 256, {SB::Yes, SB::No}, QMessageBox::Critical, SB::No, os::vbNo},
        BoxCase{os::vbRetryCancel, {SB::Retry, SB::Cancel}, QMessageBox::NoIcon, SB::Retry, os::vbRetry},
        BoxCase{os::vbAbortRetryIgnore,
                {SB::Abort, SB::Retry, SB::Ignore},
                QMessageBox::NoIcon,
                SB::Ignore,
                os::vbIgnore},
        BoxCase{9, {SB::Ok}, QMessageBox::NoIcon, SB::Ok, os::vbOK}));

}  // namespace
}  // namespace mv::test
