// Smart Add and Smart Rule Update over real rules and messages in a real
// Maildir folder: the settings form over the real settings row decides what
// the rule editor takes from the selected message; the chosen addresses land
// in the chosen field of the editor, which shows the field highlighted and
// saves the rule.

#include "FormsFixture.h"

#include "forms/SmartForms.h"
#include "forms/frmRuleAddProps.h"
#include "forms/frmRuleUpdate.h"

#include "platform/outlook/Item.h"

#include <QCheckBox>
#include <QListWidget>

#include <map>

namespace mv::test {
namespace {

using forms::frmRuleAddProps;
using forms::frmRuleUpdate;
using Editor = forms::frmRuleProps;

// The choices the upgrade writes.
const QString kUpgraded = QStringLiteral(
    "UPDATE settings SET raRuleName=0, raFrom=1, raTo=1, raCc=0, raSubject=1, raImportance=1, raStatus=1, "
    "raMsgAge=1");
const char* const kChecks[] = {"chkFrom", "chkTo", "chkCC", "chkSubject", "chkImportance"};

class SmartAddTest : public FormsTest {
protected:
    std::unique_ptr<frmRuleAddProps> OpenSettings()
    {
        auto form = std::make_unique<frmRuleAddProps>(*m_p->addIn->DB1(), m_report);
        form->Form_Load();
        return form;
    }
    QVariantMap Settings()
    {
        return Rows(
                   QStringLiteral("SELECT raRuleName, raFrom, raTo, raCc, raSubject, raImportance, raStatus, "
                                  "raMsgAge FROM Settings"))
            .value(0);
    }
};

// Stored codes -> what the form shows. The age list is in duration order,
// so codes that a positional list would misread are part of the table.
TEST_F(SmartAddTest, StoredChoicesSelectTheirEntries)
{
    const struct {
        const char* settings;
        const char* name;
        const char* status;
        const char* age;
        const char* checked;  // one letter per box of kChecks
    } cases[] = {
        {"raMsgAge=1", "Email Subject", "Read", "1 hour", "11011"},
        {"raMsgAge=15", "Email Subject", "Read", "3 days", "11011"},
        {"raMsgAge=12, raRuleName=3, raStatus=2", "Leave Blank", "Any", "1 year", "11011"},
        {"raMsgAge=NULL, raStatus=NULL", "Email Subject", "Unread", "4 hours", "11011"},
        {"raMsgAge=18, raRuleName=9", "Email Subject", "Read", "4 hours", "11011"},
        {"raFrom=0, raTo=0, raCc=1, raSubject=0, raImportance=0", "Email Subject", "Read", "1 hour", "00100"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.settings);
        Sql(kUpgraded);
        Sql(QStringLiteral("UPDATE settings SET %1").arg(QLatin1String(c.settings)));
        auto form = OpenSettings();
        EXPECT_EQ(Shown(*form, "cmbRuleName"), QLatin1String(c.name));
        EXPECT_EQ(Shown(*form, "cmbStatus"), QLatin1String(c.status));
        EXPECT_EQ(Shown(*form, "cmbMsgAge"), QLatin1String(c.age));
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(Child<QCheckBox>(*form, kChecks[i])->isChecked(), c.checked[i] == '1') << kChecks[i];
    }
}

TEST_F(SmartAddTest, OkSavesEveryControlAndCancelSavesNothing)
{
    const QVariantMap before = Settings();
    for (const char* button : {"btnCancel", "btnOK"}) {
        auto form = OpenSettings();
        Choose(*form, "cmbRuleName", QStringLiteral("Destination Email"));
        Choose(*form, "cmbStatus", QStringLiteral("Unread"));
        // Out of identifier order: a list that saved positions would store 8.
        Choose(*form, "cmbMsgAge", QStringLiteral("3 days"));
        Child<QCheckBox>(*form, "chkFrom")->setChecked(false);
        Child<QCheckBox>(*form, "chkCC")->setChecked(true);
        Click(*form, button);
        if (QLatin1String(button) == QLatin1String("btnCancel")) {
            EXPECT_EQ(form->result(), QDialog::Rejected);
            EXPECT_EQ(Settings(), before);
        }
    }
    const QVariantMap after = Settings();
    const std::pair<const char*, int> expected[] = {{"raRuleName", 2}, {"raFrom", 0},    {"raTo", 1},
                                                    {"raCc", 1},       {"raSubject", 1}, {"raImportance", 1},
                                                    {"raStatus", 0},   {"raMsgAge", 15}};
    for (const auto& [column, value] : expected)
        EXPECT_EQ(after.value(QLatin1String(column)).toInt(), value) << column;

    // A failed save is reported, and the form still closes.
    Sql(QStringLiteral(
        "CREATE TRIGGER no_change BEFORE UPDATE ON settings BEGIN SELECT RAISE(ABORT, 'locked'); END"));
    auto form = OpenSettings();
    Child<QCheckBox>(*form, "chkCC")->setChecked(false);
    Click(*form, "btnOK");
    m_expectedReports = 2;  // the store reports the failed statement, the form what it means
    EXPECT_TRUE(m_answerer.texts().contains(QStringLiteral("Unable to save settings, update failed")));
    EXPECT_EQ(form->result(), QDialog::Accepted);
    EXPECT_EQ(Settings().value(QStringLiteral("raCc")).toInt(), 1);
}

// Smart Add end to end: the toolbar's entry point opens the editor on the
// message selected in the Home Inbox, filled as the settings say.
struct PrefillCase {
    const char* name;
    const char* settings;  // SET clause over the upgraded choices
    const char *txtRuleName, *txtFrom, *txtTo, *txtCC, *txtSubject, *cmbImportance, *cmbStatus, *cmbMsgAge;
};
void PrintTo(const PrefillCase& c, std::ostream* os)
{
    *os << c.name;
}

class SmartAddPrefillTest : public SmartAddTest, public ::testing::WithParamInterface<PrefillCase> {};

TEST_P(SmartAddPrefillTest, EditorTakesWhatTheSettingsSay)
{
    const PrefillCase& c = GetParam();
    Sql(kUpgraded);
    Sql(QStringLiteral("UPDATE settings SET %1").arg(QLatin1String(c.settings)));
    const QString id =
        Deliver(QStringLiteral("Inbox"),
                "Delivered-To: me@home.example\r\nFrom: Ann Lee <ann@example.org>\r\n"
                "To: Me <me@home.example>\r\nCc: Cat <cat@example.org>\r\nSubject: Quarterly numbers\r\n"
                "X-Priority: 5\r\nDate: Mon, 2 Mar 2026 10:00:00 +0000\r\n\r\nBody\r\n");
    auto explorer = ExplorerOn(QStringLiteral("Inbox"), id);
    bool seen = false;
    WhenShown<Editor>([&](Editor& editor) {
        seen = true;
        for (const auto& [field, value] : {std::pair{"txtRuleName", c.txtRuleName},
                                           {"txtFrom", c.txtFrom},
                                           {"txtTo", c.txtTo},
                                           {"txtCC", c.txtCC},
                                           {"txtSubject", c.txtSubject},
                                           {"txtSrcFolder", "Inbox"}})
            EXPECT_EQ(Text(editor, field), QLatin1String(value)) << field;
        EXPECT_EQ(Shown(editor, "cmbImportance"), QLatin1String(c.cmbImportance));
        EXPECT_EQ(Shown(editor, "cmbStatus"), QLatin1String(c.cmbStatus));
        EXPECT_EQ(Shown(editor, "cmbMsgAge"), QLatin1String(c.cmbMsgAge));
        EXPECT_EQ(Child<QPushButton>(editor, "btnOK")->text(), QStringLiteral("Add Rule"));
        // Saved with a destination and a name of its own, so every case saves.
        m_picker.answers.push_back(Folder(QStringLiteral("Archive")));
        Click(editor, "btnDstFolderBrowse");
        SetText(editor, "txtRuleName", QStringLiteral("from smart add"));
        SetText(editor, "txtMessage", QStringLiteral("numbers"));
        Click(editor, "btnOK");
    });
    EXPECT_TRUE(forms::ShowSmartAddForm(Context(), explorer.get()));
    EXPECT_TRUE(seen);
    const auto rows = Rows(QStringLiteral("SELECT SrcEntryID, FromAddress FROM Rules"));
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows.front().value(QStringLiteral("SrcEntryID")).toString(),
              Folder(QStringLiteral("Inbox"))->EntryID());
    EXPECT_EQ(rows.front().value(QStringLiteral("FromAddress")).toString(), QLatin1String(c.txtFrom));
}

INSTANTIATE_TEST_SUITE_P(
    Settings, SmartAddPrefillTest,
    ::testing::Values(
        PrefillCase{"Upgraded", "raRuleName=0", "Quarterly numbers", "ann@example.org", "me@home.example", "",
                    "Quarterly numbers", "Low", "Read", "1 hour"},
        PrefillCase{"NameFromSender",
                    "raRuleName=1, raTo=0, raSubject=0, raImportance=0, raStatus=0, raMsgAge=18",
                    "ann@example.org", "ann@example.org", "", "", "", "Any", "Unread", "6 months"},
        PrefillCase{"NameFromRecipientWithCopies", "raRuleName=2, raFrom=0, raCc=1, raStatus=2, raMsgAge=13",
                    "me@home.example", "", "me@home.example", "Cat", "Quarterly numbers", "Low", "Any",
                    "Any Time"},
        PrefillCase{"BlankName", "raRuleName=3, raSubject=0, raMsgAge=12", "", "ann@example.org",
                    "me@home.example", "", "", "Low", "Read", "1 year"},
        PrefillCase{"UnknownNameChoiceLeavesItEmpty", "raRuleName=7, raFrom=2, raTo=2, raSubject=5", "", "",
                    "", "", "", "Low", "Read", "1 hour"}),
    [](const auto& info) { return std::string(info.param.name); });

// An item as an Exchange mailbox or a non-mail class presents it; no store
// here produces such items.
class StubItem : public outlook::Item {
public:
    QString messageClass;
    std::map<mapi::PropTag, QString> props;
    QString EntryID() const override { return QStringLiteral("01"); }
    QString StoreID() const override { return QStringLiteral("02"); }
    QString MessageClass() const override { return messageClass; }
    outlook::ItemKind Kind() const override { return outlook::KindOfMessageClass(messageClass); }
    QString Subject() const override { return QStringLiteral("Status"); }
    int FlagStatus() const override { return 0; }
    void SetFlagStatus(int) override {}
    Status Save() override { return {}; }
    Status Move(const outlook::Folder&) override { return {}; }
    QVariant Fields(mapi::PropTag tag) const override
    {
        const auto it = props.find(tag);
        return it == props.end() ? QVariant() : QVariant(it->second);
    }
    std::vector<outlook::Recipient> Recipients() const override { return {}; }
    QString SenderName() const override { return {}; }
    QString SenderEmailAddress() const override { return {}; }
    QString To() const override { return {}; }
    QString CC() const override { return QStringLiteral("Cat"); }
    QString Body() const override { return {}; }
    int Importance() const override { return 1; }
    bool UnRead() const override { return true; }
};

TEST_F(FormsTest, SmartAddTakesNamesOfExchangeSendersOnlyFromKnownClasses)
{
    Sql(QStringLiteral("UPDATE settings SET raRuleName=1, raFrom=1, raTo=1, raCc=1"));
    const struct {
        const char* messageClass;
        const char *from, *to, *cc;
    } cases[] = {
        {"IPM.Note", "Ann Lee", "me@example.net", "Cat"},
        {"IPM.Schedule.Meeting.Request", "Ann Lee", "me@example.net", ""},
        {"REPORT.IPM.Note.NDR", "Ann Lee", "me@example.net", "Cat"},  // contains "IPM.NOTE" too
        {"IPM.Contact", "", "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.messageClass);
        auto item = std::make_unique<StubItem>();
        item->messageClass = QLatin1String(c.messageClass);
        item->props = {{mapi::PR_SENT_REPRESENTING_ADDRTYPE, QStringLiteral("EX")},
                       {mapi::PR_SENT_REPRESENTING_NAME, QStringLiteral("Ann Lee")},
                       {mapi::PR_SENT_REPRESENTING_EMAIL_ADDRESS, QStringLiteral("/O=ORG/OU=SITE/CN=ANN")},
                       {mapi::PR_RCVD_REPRESENTING_ADDRTYPE, QStringLiteral("SMTP")},
                       {mapi::PR_RCVD_REPRESENTING_NAME, QStringLiteral("Me")},
                       {mapi::PR_RCVD_REPRESENTING_EMAIL_ADDRESS, QStringLiteral("me@example.net")}};
        auto form = OpenEditor(QStringLiteral("NewSA"), 0, QStringLiteral("11.0"), false);
        form->SetSelection(std::move(item), nullptr);
        form->Form_Load();
        EXPECT_EQ(Text(*form, "txtFrom"), QLatin1String(c.from));
        EXPECT_EQ(Text(*form, "txtRuleName"), QLatin1String(c.from));
        EXPECT_EQ(Text(*form, "txtTo"), QLatin1String(c.to));
        EXPECT_EQ(Text(*form, "txtCC"), QLatin1String(c.cc));
    }
    // Without a selection the defaults stay.
    auto form = OpenEditor(QStringLiteral("NewSA"));
    EXPECT_EQ(Text(*form, "txtRuleName"), QString());
    EXPECT_EQ(Text(*form, "txtSrcFolder"), QString());
}

// --- Smart Rule Update ---

const QByteArray kMessage =
    "Delivered-To: me@home.example\r\nFrom: Ann Lee <ann@example.org>\r\nTo: Me <me@home.example>\r\n"
    "Cc: Cat Poe <cat@example.org>, dan@example.org\r\nSubject: Plans\r\n"
    "Date: Mon, 2 Mar 2026 10:00:00 +0000\r\n\r\nBody\r\n";

class SmartUpdateTest : public FormsTest {
protected:
    std::unique_ptr<frmRuleUpdate> OpenUpdate(const QByteArray& message = kMessage)
    {
        auto form = std::make_unique<frmRuleUpdate>(Context());
        auto selection =
            ExplorerOn(QStringLiteral("Inbox"), Deliver(QStringLiteral("Inbox"), message))->Selection();
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
    static void SelectAddresses(frmRuleUpdate& form, const QStringList& addresses)
    {
        for (const QString& a : addresses) {
            const auto hits = Child<QListWidget>(form, "lstData")->findItems(a, Qt::MatchExactly);
            ASSERT_EQ(hits.size(), 1) << a.toStdString();
            hits.front()->setSelected(true);
        }
    }
};

TEST_F(SmartUpdateTest, ListsRulesByNameAndTheMessageAddresses)
{
    EXPECT_FALSE(Child(*OpenUpdate(), "btnOK")->isEnabled()) << "no rules yet";
    AddRule(QStringLiteral("Zeta"));
    const int alpha = AddRule(QStringLiteral("Alpha"));
    auto form = OpenUpdate();
    auto* rules = Child<QComboBox>(*form, "cmbRule");
    ASSERT_EQ(rules->count(), 2);
    EXPECT_EQ(rules->itemText(0), QStringLiteral("Alpha"));
    EXPECT_EQ(rules->itemData(0).toInt(), alpha);
    EXPECT_EQ(rules->itemText(1), QStringLiteral("Zeta"));
    auto* field = Child<QComboBox>(*form, "cmbField");
    EXPECT_EQ((QStringList{field->itemText(0), field->itemText(1), field->itemText(2)}),
              (QStringList{"From Address", "To Address", "Cc Address"}));
    EXPECT_EQ(Child<QComboBox>(*form, "cmbAction")->itemText(1), QStringLiteral("Replace Contents"));
    // Sender, receiving mailbox, then the copy recipients by address.
    EXPECT_EQ(Listed(*form),
              (QStringList{"ann@example.org", "me@home.example", "cat@example.org", "dan@example.org"}));

    // A meeting request names its sender, but its copy line is not offered.
    auto meeting = OpenUpdate(
        "From: Ann Lee <ann@example.org>\r\nTo: me@home.example\r\nCc: cat@example.org\r\nSubject: Meet\r\n"
        "MIME-Version: 1.0\r\nContent-Type: text/calendar; "
        "method=REQUEST\r\n\r\nBEGIN:VCALENDAR\r\nEND:VCALENDAR\r\n");
    EXPECT_EQ(Listed(*meeting), QStringList{QStringLiteral("ann@example.org")});
}

TEST_F(SmartUpdateTest, OkWithNothingChosenAsksAndChangesNothing)
{
    AddRule(QStringLiteral("Alpha"));
    auto form = OpenUpdate();
    int editors = 0;
    form->ShowEditor = [&](Editor&) { ++editors; };
    Click(*form, "btnOK");
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
    const std::map<QString, std::pair<const char*, const char*>> kFields = {
        {QStringLiteral("From Address"), {"FromAddress", "txtFrom"}},
        {QStringLiteral("To Address"), {"ToAddress", "txtTo"}},
        {QStringLiteral("Cc Address"), {"CcAddress", "txtCC"}}};
    const auto [column, editorField] = kFields.at(QLatin1String(c.field));
    AddRule(QStringLiteral("Alpha"));
    const int target = AddRule(
        QStringLiteral("Beta"),
        QStringLiteral("%1='%2', Subject='plans'").arg(QLatin1String(column), QLatin1String(c.before)));
    auto form = OpenUpdate();
    Choose(*form, "cmbRule", QStringLiteral("Beta"));
    Choose(*form, "cmbField", QLatin1String(c.field));
    Choose(*form, "cmbAction", QLatin1String(c.action));
    SelectAddresses(*form, QString::fromLatin1(c.chosen).split(u'|'));

    int editors = 0;
    form->ShowEditor = [&](Editor& editor) {
        ++editors;
        EXPECT_EQ(editor.Action, QStringLiteral("Update"));
        EXPECT_EQ(editor.RuleID, target);
        EXPECT_EQ(Text(editor, editorField), QLatin1String(c.after));
        const QColor info = QApplication::palette().color(QPalette::ToolTipBase);
        for (const char* f : {"txtFrom", "txtTo", "txtCC"})
            EXPECT_EQ(Child(editor, f)->palette().color(QPalette::Base) == info,
                      QLatin1String(f) == QLatin1String(editorField))
                << f;
        Click(editor, "btnOK");
        EXPECT_FALSE(editor.Cancelled);
    };
    Click(*form, "btnOK");
    EXPECT_EQ(editors, 1);
    EXPECT_EQ(form->result(), QDialog::Accepted);
    const auto row = Rows(QStringLiteral("SELECT %1 AS v, Subject FROM Rules WHERE RuleID=%2")
                              .arg(QLatin1String(column))
                              .arg(target))
                         .value(0);
    EXPECT_EQ(row.value(QStringLiteral("v")).toString(), QLatin1String(c.after));
    EXPECT_EQ(row.value(QStringLiteral("Subject")).toString(), QStringLiteral("plans"));
}

INSTANTIATE_TEST_SUITE_P(
    Fields, SmartUpdateFieldTest,
    ::testing::Values(UpdateCase{"AppendToEmpty", "From Address", "Append to Contents", "", "ann@example.org",
                                 "ann@example.org; "},
                      UpdateCase{"AppendAfterEditorList", "From Address", "Append to Contents",
                                 "bob@example.org; ", "ann@example.org|dan@example.org",
                                 "bob@example.org; ann@example.org; dan@example.org; "},
                      UpdateCase{"AppendAfterBareAddress", "To Address", "Append to Contents",
                                 "bob@example.org", "me@home.example", "bob@example.org; me@home.example; "},
                      UpdateCase{"AppendAfterSemicolon", "Cc Address", "Append to Contents",
                                 "bob@example.org;", "cat@example.org", "bob@example.org; cat@example.org; "},
                      UpdateCase{"ReplaceKeepsListOrder", "Cc Address", "Replace Contents",
                                 "bob@example.org; ", "dan@example.org|cat@example.org",
                                 "cat@example.org; dan@example.org; "}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(SmartUpdateTest, ToolbarEntryRunsBothDialogs)
{
    const int target = AddRule(QStringLiteral("Alpha"));
    auto explorer = ExplorerOn(QStringLiteral("Inbox"), Deliver(QStringLiteral("Inbox"), kMessage));
    WhenShown<frmRuleUpdate>([&](frmRuleUpdate& form) {
        SelectAddresses(form, {QStringLiteral("dan@example.org")});
        Choose(form, "cmbField", QStringLiteral("To Address"));
        WhenShown<Editor>([&](Editor& editor) {
            EXPECT_EQ(Text(editor, "txtTo"), QStringLiteral("dan@example.org; "));
            Click(editor, "btnOK");
        });
        Click(form, "btnOK");
    });
    EXPECT_TRUE(forms::ShowSmartUpdateForm(Context(), explorer.get()));
    EXPECT_EQ(Rows(QStringLiteral("SELECT ToAddress FROM Rules WHERE RuleID=%1").arg(target))
                  .value(0)
                  .value(QStringLiteral("ToAddress")),
              QStringLiteral("dan@example.org; "));
}

}  // namespace
}  // namespace mv::test
