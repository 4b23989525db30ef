// Smart Add and Smart Rule Update over real rules and messages in a real
// Maildir folder: the settings form over the real settings row decides what
// the rule editor takes from the selected message; the chosen addresses land
// in the chosen field of the editor, which shows the field highlighted and
// saves the rule.

#include "FormsFixture.h"

#include "forms/SmartForms.h"
#include "forms/frmRuleAddProps.h"
#include "forms/frmRuleUpdate.h"

#include <QCheckBox>
#include <QListWidget>

#include <map>

namespace mv::test {

using namespace Qt::StringLiterals;
namespace {

using forms::frmRuleAddProps;
using forms::frmRuleUpdate;
using Editor = forms::frmRuleProps;

// The choices the upgrade writes.
const QString kUpgraded =
    u"UPDATE settings SET raRuleName=0, raFrom=1, raTo=1, raCc=0, raSubject=1, raImportance=1, raStatus=1, "
    "raMsgAge=1"_s;

// The settings form over the real settings row.
TEST_F(FormsTest, SmartAddSettingsOkSavesEveryControlAndCancelSavesNothing)
{
    auto open = [this] {
        auto form = std::make_unique<frmRuleAddProps>(*m_p->addIn->DB1(), m_report);
        form->Form_Load();
        return form;
    };
    // name from to cc subject importance status age
    auto settings = [this] {
        const auto row = Rows(
            u"SELECT printf('%d %d %d %d %d %d %d %d', raRuleName, raFrom, raTo, raCc, raSubject, "
            "raImportance, raStatus, raMsgAge) AS v FROM Settings"_s);
        return row.value(0).value(u"v"_s).toString();
    };
    const QString before = settings();
    for (const char* button : {"btnCancel", "btnOK"}) {
        auto form = open();
        Choose(*form, "cmbRuleName", u"Destination Email"_s);
        Choose(*form, "cmbStatus", u"Unread"_s);
        // Out of identifier order: a list that saved positions would store 8.
        Choose(*form, "cmbMsgAge", u"3 days"_s);
        Child<QCheckBox>(*form, "chkFrom")->setChecked(false);
        Child<QCheckBox>(*form, "chkCC")->setChecked(true);
        Click(*form, button);
        if (QLatin1String(button) == QLatin1String("btnCancel")) {
            EXPECT_EQ(form->result(), QDialog::Rejected);
            EXPECT_EQ(settings(), before);
        }
    }
    EXPECT_EQ(settings(), u"2 0 1 1 1 1 0 15"_s);

    // A failed save is reported, and the form still closes.
    Sql(u"CREATE TRIGGER no_change BEFORE UPDATE ON settings BEGIN SELECT RAISE(ABORT, 'locked'); END"_s);
    auto form = open();
    Child<QCheckBox>(*form, "chkCC")->setChecked(false);
    Click(*form, "btnOK");
    m_expectedReports = 2;  // the store reports the failed statement, the form what it means
    EXPECT_TRUE(m_answerer.texts().contains(u"Unable to save settings, update failed"_s));
    EXPECT_EQ(form->result(), QDialog::Accepted);
    EXPECT_EQ(settings(), u"2 0 1 1 1 1 0 15"_s);
}

// Smart Add end to end: the toolbar's entry point opens the editor on the
// message selected in the Home Inbox, filled as the settings say.
TEST_F(FormsTest, SmartAddEditorTakesWhatTheSettingsSay)
{
    const struct {
        const char* name;
        const char* settings;  // SET clause over the upgraded choices
        const char* shown;     // name|from|to|cc|subject|importance|status|age
    } cases[] = {
        {"Upgraded", "raRuleName=0",
         "Quarterly numbers|ann@example.org|me@home.example||Quarterly numbers|Low|Read|1 hour"},
        {"NameFromSender", "raRuleName=1, raTo=0, raSubject=0, raImportance=0, raStatus=0, raMsgAge=18",
         "ann@example.org|ann@example.org||||Any|Unread|6 months"},
        {"NameFromRecipientWithCopies", "raRuleName=2, raFrom=0, raCc=1, raStatus=2, raMsgAge=13",
         "me@home.example||me@home.example|Cat|Quarterly numbers|Low|Any|Any Time"},
        {"BlankName", "raRuleName=3, raSubject=0, raMsgAge=12",
         "|ann@example.org|me@home.example|||Low|Read|1 year"},
        {"UnknownNameChoiceLeavesItEmpty", "raRuleName=7, raFrom=2, raTo=2, raSubject=5",
         "|||||Low|Read|1 hour"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Sql(kUpgraded);
        Sql(u"UPDATE settings SET %1"_s.arg(QLatin1String(c.settings)));
        const QString id =
            Deliver(u"Inbox"_s,
                    "Delivered-To: me@home.example\r\nFrom: Ann Lee <ann@example.org>\r\n"
                    "To: Me <me@home.example>\r\nCc: Cat <cat@example.org>\r\nSubject: Quarterly numbers\r\n"
                    "X-Priority: 5\r\nDate: Mon, 2 Mar 2026 10:00:00 +0000\r\n\r\nBody\r\n");
        auto explorer = ExplorerOn(u"Inbox"_s, id);
        QStringList shown;
        WhenShown<Editor>([&](Editor& editor) {
            for (const char* field : {"txtRuleName", "txtFrom", "txtTo", "txtCC", "txtSubject"})
                shown << Text(editor, field);
            for (const char* list : {"cmbImportance", "cmbStatus", "cmbMsgAge"}) shown << Shown(editor, list);
            EXPECT_EQ(Text(editor, "txtSrcFolder"), u"Inbox"_s);
            EXPECT_EQ(Child<QPushButton>(editor, "btnOK")->text(), u"Add Rule"_s);
            // Saved with a destination and a name of its own, so every case saves.
            m_picker.answers.push_back(Folder(u"Archive"_s));
            Click(editor, "btnDstFolderBrowse");
            SetText(editor, "txtRuleName", u"from smart add"_s);
            SetText(editor, "txtMessage", u"numbers"_s);
            Click(editor, "btnOK");
        });
        EXPECT_TRUE(forms::ShowSmartAddForm(Context(), explorer.get()));
        EXPECT_EQ(shown.join(u'|'), QLatin1String(c.shown));
        const auto rule =
            Rows(u"SELECT SrcEntryID, FromAddress FROM Rules ORDER BY RuleID DESC LIMIT 1"_s).value(0);
        EXPECT_EQ(rule.value(u"SrcEntryID"_s).toString(), Folder(u"Inbox"_s)->EntryID());
        EXPECT_EQ(rule.value(u"FromAddress"_s).toString(), shown.value(1));
    }
    EXPECT_EQ(RuleCount(), 5);
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
        auto selection = ExplorerOn(u"Inbox"_s, Deliver(u"Inbox"_s, message))->Selection();
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

TEST_F(SmartUpdateTest, ListsRulesByNameAndTheMessageAddressesOneOfWhichMustBeChosen)
{
    EXPECT_FALSE(Child(*OpenUpdate(), "btnOK")->isEnabled()) << "no rules yet";
    AddRule(u"Zeta"_s);
    const int alpha = AddRule(u"Alpha"_s);
    auto form = OpenUpdate();
    auto* rules = Child<QComboBox>(*form, "cmbRule");
    ASSERT_EQ(rules->count(), 2);
    EXPECT_EQ(rules->itemText(0), u"Alpha"_s);
    EXPECT_EQ(rules->itemData(0).toInt(), alpha);
    EXPECT_EQ(rules->itemText(1), u"Zeta"_s);
    // Sender, receiving mailbox, then the copy recipients by address.
    EXPECT_EQ(Listed(*form),
              (QStringList{"ann@example.org", "me@home.example", "cat@example.org", "dan@example.org"}));

    // A meeting request names its sender, but its copy line is not offered.
    auto meeting = OpenUpdate(
        "From: Ann Lee <ann@example.org>\r\nTo: me@home.example\r\nCc: cat@example.org\r\nSubject: Meet\r\n"
        "MIME-Version: 1.0\r\nContent-Type: text/calendar; "
        "method=REQUEST\r\n\r\nBEGIN:VCALENDAR\r\nEND:VCALENDAR\r\n");
    EXPECT_EQ(Listed(*meeting), QStringList{u"ann@example.org"_s});

    // OK with nothing chosen asks and opens no editor.
    int editors = 0;
    form->ShowEditor = [&](Editor&) { ++editors; };
    Click(*form, "btnOK");
    EXPECT_EQ(editors, 0);
    EXPECT_EQ(m_answerer.texts(),
              QStringList{u"Please select one or more email addresses to complete this action."_s});
    EXPECT_EQ(m_answerer.shown().front().style, os::vbOKOnly + os::vbInformation);
    EXPECT_NE(form->result(), QDialog::Accepted);
}

// Through the toolbar's entry point, which runs both dialogs.
TEST_F(SmartUpdateTest, ChosenAddressesReachTheFieldAndAreSaved)
{
    const struct {
        const char* name;
        const char* field;   // cmbField entry
        const char* action;  // cmbAction entry
        const char* before;  // the rule's column before
        const char* chosen;  // addresses chosen, "|"-separated
        const char* after;   // the field and the saved column
    } cases[] = {
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
    const std::map<QString, std::pair<const char*, const char*>> kFields = {
        {u"From Address"_s, {"FromAddress", "txtFrom"}},
        {u"To Address"_s, {"ToAddress", "txtTo"}},
        {u"Cc Address"_s, {"CcAddress", "txtCC"}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto [column, editorField] = kFields.at(QLatin1String(c.field));
        Sql(u"DELETE FROM Rules"_s);
        AddRule(u"Alpha"_s);
        const int target = AddRule(
            u"Beta"_s, u"%1='%2', Subject='plans'"_s.arg(QLatin1String(column), QLatin1String(c.before)));
        auto explorer = ExplorerOn(u"Inbox"_s, Deliver(u"Inbox"_s, kMessage));
        int editors = 0;
        WhenShown<frmRuleUpdate>([&](frmRuleUpdate& form) {
            Choose(form, "cmbRule", u"Beta"_s);
            Choose(form, "cmbField", QLatin1String(c.field));
            Choose(form, "cmbAction", QLatin1String(c.action));
            SelectAddresses(form, QString::fromLatin1(c.chosen).split(u'|'));
            WhenShown<Editor>([&](Editor& editor) {
                ++editors;
                EXPECT_EQ(editor.Action, u"Update"_s);
                EXPECT_EQ(editor.RuleID, target);
                EXPECT_EQ(Text(editor, editorField), QLatin1String(c.after));
                const QColor info = QApplication::palette().color(QPalette::ToolTipBase);
                for (const char* f : {"txtFrom", "txtTo", "txtCC"})
                    EXPECT_EQ(Child(editor, f)->palette().color(QPalette::Base) == info,
                              QLatin1String(f) == QLatin1String(editorField))
                        << f;
                Click(editor, "btnOK");
            });
            Click(form, "btnOK");
            EXPECT_EQ(form.result(), QDialog::Accepted);
        });
        EXPECT_TRUE(forms::ShowSmartUpdateForm(Context(), explorer.get()));
        EXPECT_EQ(editors, 1);
        const auto row =
            Rows(u"SELECT %1 AS v, Subject FROM Rules WHERE RuleID=%2"_s.arg(QLatin1String(column))
                     .arg(target))
                .value(0);
        EXPECT_EQ(row.value(u"v"_s).toString(), QLatin1String(c.after));
        EXPECT_EQ(row.value(u"Subject"_s).toString(), u"plans"_s);
    }
}

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

}  // namespace
}  // namespace mv::test
