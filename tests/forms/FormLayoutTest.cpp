// The editors' layouts as shown: fields that belong together line up, and
// the small buttons leave the width to the fields.

#include "RulePropsFixture.h"

#include "forms/frmRuleAddProps.h"

#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>

namespace mv::test {
namespace {

int LeftIn(const QWidget& form, const QWidget& w)
{
    return w.mapTo(&form, QPoint(0, 0)).x();
}

template <typename W = QWidget>
W& Named(QWidget& form, const char* name)
{
    W* w = form.findChild<W*>(QString::fromLatin1(name));
    if (!w) throw std::runtime_error(std::string("no widget ") + name);
    return *w;
}

// Smoothing of a layout may shift a column by a pixel; more is visible.
constexpr int kSlack = 2;

TEST_F(RulePropsFixture, EditorFieldsLineUpInsideAndOutsideTheFrame)
{
    auto form = Open(QStringLiteral("New"));
    form->show();
    QApplication::processEvents();
    // Above the frame, inside it, and each kind of control inside it.
    const char* columns[][2] = {{"txtRuleName", "txtFrom"},
                                {"txtSrcFolder", "txtSubject"},
                                {"txtDstFolder", "cmbImportance"},
                                {"txtRuleName", "cmbMsgAge"}};
    for (const auto& [above, inside] : columns) {
        EXPECT_NEAR(LeftIn(*form, Named(*form, above)), LeftIn(*form, Named(*form, inside)), kSlack)
            << above << " / " << inside;
    }
}

TEST_F(RulePropsFixture, SmallButtonsLeaveTheWidthToTheFields)
{
    auto form = Open(QStringLiteral("New"));
    form->show();
    QApplication::processEvents();
    const char* pairs[][2] = {
        {"btnSrcFolderBrowse", "txtSrcFolder"}, {"btnDstFolderBrowse", "txtDstFolder"}, {"btnHelp", "btnOK"}};
    for (const auto& [small, large] : pairs) {
        EXPECT_LT(Named(*form, small).width(), Named(*form, large).width()) << small << " / " << large;
        auto& button = Named<QPushButton>(*form, small);
        EXPECT_GT(button.width(), button.fontMetrics().horizontalAdvance(button.text()))
            << small << " clipped";
    }
    EXPECT_GE(Named(*form, "txtRuleName").width(),
              Named(*form, "txtRuleName").fontMetrics().averageCharWidth() * 30);
}

TEST_F(RulePropsFixture, SmartAddSettingsListsLineUpAroundTheFrame)
{
    forms::frmRuleAddProps form(*m_db, *m_report);
    form.Form_Load();
    form.show();
    QApplication::processEvents();
    const int left = LeftIn(form, Named(form, "cmbRuleName"));
    for (const char* name : {"cmbStatus", "cmbMsgAge"})
        EXPECT_NEAR(LeftIn(form, Named(form, name)), left, kSlack) << name;
}

}  // namespace
}  // namespace mv::test
