// Smart Rule Update over real rules and a message in a real Maildir folder:
// the chosen addresses land in the chosen field of the rule editor, which
// shows the field highlighted and saves the rule.

#include "SmartFixture.h"

#include "forms/SmartForms.h"
#include "forms/frmRuleUpdate.h"

#include <QListWidget>

namespace mv::test {
namespace {

using forms::frmRuleUpdate;

const QByteArray kMessage =
    "Delivered-To: me@home.example\r\nFrom: Ann Lee <ann@example.org>\r\nTo: Me <me@home.example>\r\n"
    "Cc: Cat Poe <cat@example.org>, dan@example.org\r\nSubject: Plans\r\n"
    "Date: Mon, 2 Mar 2026 10:00:00 +0000\r\n\r\nBody\r\n";

class SmartUpdateTest : public SmartFixture {
protected:
    std::unique_ptr<frmRuleUpdate> OpenUpdate(const QByteArray& message = kMessage)
    {
        auto form = std::make_unique<frmRuleUpdate>(Context());
        const QString id = Deliver(*m_home, QStringLiteral("Inbox"), message);
        auto selection = ExplorerOn(QStringLiteral("Inbox"), id)->Selection();
        EXPECT_EQ(selection.size(), 1u);
        if (!selection.empty()) form->SetSelection(std::move(selection.front()));
        form->Form_Load();
        return form;
    }
    static QStringList Listed(frmRuleUpdate& form)
    {
        QStringList out;
        auto* list = Child<QListWidget>(form, "lstData");
        for (int i = 0; i < list->count(); ++i) out << list->item(i)->text();
        return out;
    }
    static void Select(frmRuleUpdate& form, const QStringList& addresses)
    {
        auto* list = Child<QListWidget>(form, "lstData");
        for (const QString& a : addresses) {
            const auto hits = list->findItems(a, Qt::MatchExactly);
            ASSERT_EQ(hits.size(), 1) << a.toStdString();
            hits.front()->setSelected(true);
        }
    }
    static void Choose(frmRuleUpdate& form, const char* list, const QString& label)
    {
        auto* box = Child<QComboBox>(form, list);
        const int index = box->findText(label);
        ASSERT_GE(index, 0) << label.toStdString();
        box->setCurrentIndex(index);
    }
};

TEST_F(SmartUpdateTest, ListsRulesByNameAndTheMessageAddresses)
{
    AddRule(QStringLiteral("Zeta"));
    const int alpha = AddRule(QStringLiteral("Alpha"));
    auto form = OpenUpdate();
    auto* rules = Child<QComboBox>(*form, "cmbRule");
    ASSERT_EQ(rules->count(), 2);
    EXPECT_EQ(rules->itemText(0), QStringLiteral("Alpha"));
    EXPECT_EQ(rules->itemData(0).toInt(), alpha);
    EXPECT_EQ(rules->itemText(1), QStringLiteral("Zeta"));
    const QStringList fields = {QStringLiteral("From Address"), QStringLiteral("To Address"),
                                QStringLiteral("Cc Address")};
    auto* field = Child<QComboBox>(*form, "cmbField");
    for (int i = 0; i < fields.size(); ++i) EXPECT_EQ(field->itemText(i), fields[i]);
    EXPECT_EQ(Child<QComboBox>(*form, "cmbAction")->itemText(1), QStringLiteral("Replace Contents"));
    // Sender, receiving mailbox, then the copy recipients by address.
    EXPECT_EQ(Listed(*form),
              (QStringList{QStringLiteral("ann@example.org"), QStringLiteral("me@home.example"),
                           QStringLiteral("cat@example.org"), QStringLiteral("dan@example.org")}));
}

TEST_F(SmartUpdateTest, WithoutRulesOkIsDisabled)
{
    EXPECT_FALSE(Child<QPushButton>(*OpenUpdate(), "btnOK")->isEnabled());
}

TEST_F(SmartUpdateTest, OkWithNothingChosenAsksAndChangesNothing)
{
    AddRule(QStringLiteral("Alpha"));
    auto form = OpenUpdate();
    int editors = 0;
    form->ShowEditor = [&](forms::frmRuleProps&) { ++editors; };
    Child<QPushButton>(*form, "btnOK")->click();
    EXPECT_EQ(editors, 0);
    EXPECT_EQ(
        m_answerer.texts(),
        QStringList{QStringLiteral("Please select one or more email addresses to complete this action.")});
    EXPECT_EQ(m_answerer.shown().front().style, os::vbOKOnly + os::vbInformation);
    EXPECT_NE(form->result(), QDialog::Accepted);
}

struct UpdateCase {
    const char* name;
    const char* field;   // cmbField entry
    const char* action;  // cmbAction entry
    const char* before;  // the rule's column before
    const char* chosen;  // addresses chosen, "|"-separated
    const char* after;   // the field and the saved column
};
void PrintTo(const UpdateCase& c, std::ostream* os)
{
    *os << c.name;
}

class SmartUpdateFieldTest : public SmartUpdateTest, public ::testing::WithParamInterface<UpdateCase> {};

TEST_P(SmartUpdateFieldTest, ChosenAddressesReachTheFieldAndAreSaved)
{
    const UpdateCase& c = GetParam();
    const char* column = QLatin1String(c.field) == QLatin1String("From Address") ? "FromAddress"
                         : QLatin1String(c.field) == QLatin1String("To Address") ? "ToAddress"
                                                                                 : "CcAddress";
    const char* editorField = QLatin1String(column) == QLatin1String("FromAddress") ? "txtFrom"
                              : QLatin1String(column) == QLatin1String("ToAddress") ? "txtTo"
                                                                                    : "txtCC";
    AddRule(QStringLiteral("Alpha"));
    const int target = AddRule(QStringLiteral("Beta"));
    Sql(QStringLiteral("UPDATE Rules SET %1='%2', Subject='plans' WHERE RuleID=%3")
            .arg(QLatin1String(column), QLatin1String(c.before))
            .arg(target));
    auto form = OpenUpdate();
    Choose(*form, "cmbRule", QStringLiteral("Beta"));
    Choose(*form, "cmbField", QLatin1String(c.field));
    Choose(*form, "cmbAction", QLatin1String(c.action));
    Select(*form, QString::fromLatin1(c.chosen).split(u'|'));

    int editors = 0;
    form->ShowEditor = [&](forms::frmRuleProps& editor) {
        ++editors;
        EXPECT_EQ(editor.Action, QStringLiteral("Update"));
        EXPECT_EQ(editor.RuleID, target);
        auto* changed = Child<QLineEdit>(editor, editorField);
        EXPECT_EQ(changed->text(), QLatin1String(c.after));
        const QColor info = QApplication::palette().color(QPalette::ToolTipBase);
        EXPECT_EQ(changed->palette().color(QPalette::Base), info);
        for (const char* other : {"txtFrom", "txtTo", "txtCC"}) {
            if (QLatin1String(other) == QLatin1String(editorField)) continue;
            EXPECT_NE(Child<QLineEdit>(editor, other)->palette().color(QPalette::Base), info) << other;
        }
        Child<QPushButton>(editor, "btnOK")->click();
        EXPECT_FALSE(editor.Cancelled);
    };
    Child<QPushButton>(*form, "btnOK")->click();
    EXPECT_EQ(editors, 1);
    EXPECT_EQ(form->result(), QDialog::Accepted);
    const auto rows = Rows(QStringLiteral("SELECT %1 AS v, Subject FROM Rules WHERE RuleID=%2")
                               .arg(QLatin1String(column))
                               .arg(target));
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows.front().value(QStringLiteral("v")).toString(), QLatin1String(c.after));
    EXPECT_EQ(rows.front().value(QStringLiteral("Subject")).toString(), QStringLiteral("plans"));
}

const UpdateCase kUpdates[] = {
    {"AppendToEmpty", "From Address", "Append to Contents", "", "ann@example.org", "ann@example.org; "},
    {"AppendAfterEditorList", "From Address", "Append to Contents", "bob@example.org; ",
     "ann@example.org|dan@example.org", "bob@example.org; ann@example.org; dan@example.org; "},
    {"AppendAfterBareAddress", "To Address", "Append to Contents", "bob@example.org", "me@home.example",
     "bob@example.org; me@home.example; "},
    {"AppendAfterSemicolon", "Cc Address", "Append to Contents", "bob@example.org;", "cat@example.org",
     "bob@example.org; cat@example.org; "},
    {"ReplaceKeepsListOrder", "Cc Address", "Replace Contents", "bob@example.org; ",
     "dan@example.org|cat@example.org", "cat@example.org; dan@example.org; "},
};
INSTANTIATE_TEST_SUITE_P(Fields, SmartUpdateFieldTest, ::testing::ValuesIn(kUpdates),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(SmartUpdateTest, ToolbarEntryRunsBothDialogs)
{
    const int target = AddRule(QStringLiteral("Alpha"));
    const QString id = Deliver(*m_home, QStringLiteral("Inbox"), kMessage);
    auto explorer = ExplorerOn(QStringLiteral("Inbox"), id);
    WhenShown<frmRuleUpdate>([&](frmRuleUpdate& form) {
        Select(form, {QStringLiteral("dan@example.org")});
        Choose(form, "cmbField", QStringLiteral("To Address"));
        WhenShown<forms::frmRuleProps>([&](forms::frmRuleProps& editor) {
            EXPECT_EQ(Child<QLineEdit>(editor, "txtTo")->text(), QStringLiteral("dan@example.org; "));
            Child<QPushButton>(editor, "btnOK")->click();
        });
        Child<QPushButton>(form, "btnOK")->click();
    });
    EXPECT_TRUE(forms::ShowSmartUpdateForm(Context(), explorer.get()));
    EXPECT_EQ(Rows(QStringLiteral("SELECT ToAddress FROM Rules WHERE RuleID=%1").arg(target))
                  .front()
                  .value(QStringLiteral("ToAddress")),
              QStringLiteral("dan@example.org; "));
}

TEST_F(SmartUpdateTest, MessagesOtherThanMailOfferNoAddresses)
{
    const QByteArray calendar =
        "From: Ann Lee <ann@example.org>\r\nTo: me@home.example\r\nCc: cat@example.org\r\nSubject: Meet\r\n"
        "MIME-Version: 1.0\r\nContent-Type: text/calendar; "
        "method=REQUEST\r\n\r\nBEGIN:VCALENDAR\r\nEND:VCALENDAR\r\n";
    auto meeting = OpenUpdate(calendar);
    // A meeting request names its sender, but its copy line is not offered.
    EXPECT_EQ(Listed(*meeting), QStringList{QStringLiteral("ann@example.org")});
}

}  // namespace
}  // namespace mv::test
