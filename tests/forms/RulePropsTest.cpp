// The editor's round trip through a real rule database: every list entry is
// saved as its code and loaded back by code, inserts and updates touch the
// right rows, folders and contacts come through their pickers, and a Smart
// Add fills the form as the settings say.

#include "RulePropsFixture.h"

#include "forms/RuleChoices.h"

#include "platform/outlook/Item.h"

#include <map>

namespace mv::test {
namespace {

using forms::Choice;

struct ListCase {
    const char* list;
    const char* column;
    std::span<const Choice> (*choices)();
};

std::span<const Choice> ColouredFlags() { return forms::FlagStatusChoices(11); }

const ListCase kLists[] = {
    {"cmbMsgAge", "MsgAgeID", &forms::MsgAgeChoices},
    {"cmbImportance", "Importance", &forms::ImportanceChoices},
    {"cmbStatus", "Status", &forms::StatusChoices},
    {"cmbFlagStatus", "FlagStatus", &ColouredFlags},
    {"cmbOnlyItems", "LastVerb", &forms::LastVerbChoices},
};

void PrintTo(const ListCase& c, std::ostream* os) { *os << c.list; }

class ListCodeTest : public RulePropsFixture, public ::testing::WithParamInterface<ListCase> {};

// Each entry is saved by a new rule, then a second editor loads that rule and
// must show the same label: a list that stored positions, or matched stored
// values by position, fails on the out-of-order codes.
TEST_P(ListCodeTest, EveryEntrySavesItsCodeAndLoadsBack)
{
    const ListCase& c = GetParam();
    for (const Choice& choice : c.choices()) {
        const QString label = QString::fromUtf8(choice.label);
        SCOPED_TRACE(label.toStdString());
        auto form = Open(QStringLiteral("New"));
        FillRequired(*form);
        SetText(*form, "txtSubject", QStringLiteral("keep"));  // never a catch-all
        Choose(*form, c.list, label);
        Click(*form, "btnOK");
        ASSERT_EQ(form->result(), QDialog::Accepted) << m_answerer.texts().join(QStringLiteral("|")).toStdString();
        EXPECT_FALSE(form->Cancelled);

        const auto rows = Rows(QStringLiteral("SELECT RuleID, %1 AS code FROM Rules ORDER BY RuleID DESC LIMIT 1")
                                   .arg(QLatin1String(c.column)));
        ASSERT_EQ(rows.size(), 1);
        EXPECT_EQ(rows.front().value(QStringLiteral("code")).toInt(), choice.code);

        auto again = Open(QStringLiteral("Update"), rows.front().value(QStringLiteral("RuleID")).toInt());
        EXPECT_EQ(Find<QComboBox>(*again, c.list)->currentText(), label);
    }
    EXPECT_TRUE(m_answerer.shown().empty());
}

INSTANTIATE_TEST_SUITE_P(Lists, ListCodeTest, ::testing::ValuesIn(kLists),
                         [](const auto& info) { return std::string(info.param.list); });

struct StoredCodeCase {
    const char* name;
    const char* column;
    int stored;
    const char* hostVersion;
    const char* list;
    const char* shown;
};

void PrintTo(const StoredCodeCase& c, std::ostream* os) { *os << c.name; }

class StoredCodeTest : public RulePropsFixture, public ::testing::WithParamInterface<StoredCodeCase> {};

TEST_P(StoredCodeTest, LoadSelectsByCode)
{
    const StoredCodeCase& c = GetParam();
    const int id = AddRule(QStringLiteral("r"), QLatin1String(c.column), QString::number(c.stored));
    auto form = Open(QStringLiteral("Update"), id, QLatin1String(c.hostVersion));
    EXPECT_EQ(Find<QComboBox>(*form, c.list)->currentText(), QString::fromUtf8(c.shown));
}

const StoredCodeCase kStored[] = {
    {"AnyTime", "MsgAgeID", 13, "11.0", "cmbMsgAge", "Any Time"},
    {"SixMonths", "MsgAgeID", 18, "11.0", "cmbMsgAge", "6 months"},
    {"ThreeYears", "MsgAgeID", 20, "11.0", "cmbMsgAge", "3 year"},
    {"UnknownAgeFallsToFirst", "MsgAgeID", 99, "11.0", "cmbMsgAge", "Any Time"},
    {"RedOnColouredHost", "FlagStatus", 16, "11.0", "cmbFlagStatus", "Red"},
    {"RedOnOldHostIsDontCare", "FlagStatus", 16, "10.0", "cmbFlagStatus", "Don't Care"},
    {"FollowUpOnOldHost", "FlagStatus", 2, "10", "cmbFlagStatus", "Follow-up"},
    {"AnySetOnColouredHost", "FlagStatus", 2, "12.0.4518", "cmbFlagStatus", "Any Set"},
    {"Forwarded", "LastVerb", 104, "11.0", "cmbOnlyItems", "That I forwarded"},
    {"High", "Importance", 2, "11.0", "cmbImportance", "High"},
    {"Read", "Status", 1, "11.0", "cmbStatus", "Read"},
};
INSTANTIATE_TEST_SUITE_P(Codes, StoredCodeTest, ::testing::ValuesIn(kStored),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(RulePropsFixture, OldHostSavesDontCareForAColouredFlag)
{
    const int id = AddRule(QStringLiteral("r"), QStringLiteral("FlagStatus, Subject"), QStringLiteral("16, 'x'"));
    auto form = Open(QStringLiteral("Update"), id, QStringLiteral("10.0"));
    Click(*form, "btnOK");
    EXPECT_EQ(Rows(QStringLiteral("SELECT FlagStatus FROM Rules")).front().value(QStringLiteral("FlagStatus")), 0);
}

TEST_F(RulePropsFixture, NewRulesGoToTheEndOfTheOrder)
{
    AddRule(QStringLiteral("first"));
    Sql(QStringLiteral("UPDATE Rules SET SortID = 7"));
    for (const char* name : {"second", "third"}) {
        auto form = Open(QStringLiteral("New"));
        FillRequired(*form);
        SetText(*form, "txtRuleName", QLatin1String(name));
        SetText(*form, "txtFrom", QStringLiteral("ann@example.org"));
        Click(*form, "btnOK");
        ASSERT_EQ(form->result(), QDialog::Accepted);
    }
    const auto rows = Rows(QStringLiteral("SELECT RuleName, SortID, SrcEntryID, DstStoreID, Message, CcAddress "
                                          "FROM Rules ORDER BY RuleID"));
    ASSERT_EQ(rows.size(), 3);
    EXPECT_EQ(rows[1].value(QStringLiteral("RuleName")), QStringLiteral("second"));
    EXPECT_EQ(rows[1].value(QStringLiteral("SortID")), 8);
    EXPECT_EQ(rows[2].value(QStringLiteral("SortID")), 9);
    EXPECT_EQ(rows[1].value(QStringLiteral("SrcEntryID")), m_inbox->EntryID());
    EXPECT_EQ(rows[1].value(QStringLiteral("DstStoreID")), m_archive->StoreID());
    // Empty texts are stored as empty texts, not nulls: the engine reads both
    // as "no criterion", but other readers need not.
    EXPECT_EQ(rows[1].value(QStringLiteral("Message")), QString());
}

TEST_F(RulePropsFixture, ModifyUpdatesOnlyItsRow)
{
    const int a = AddRule(QStringLiteral("a"), QStringLiteral("Subject, Active"), QStringLiteral("'old', -1"));
    const int b = AddRule(QStringLiteral("b"), QStringLiteral("Subject"), QStringLiteral("'other'"));
    const auto before = Rows(QStringLiteral("SELECT * FROM Rules WHERE RuleID=%1").arg(b));

    auto form = Open(QStringLiteral("Update"), a);
    EXPECT_EQ(Find<QPushButton>(*form, "btnOK")->text(), QStringLiteral("Update Rule"));
    EXPECT_EQ(Find<QLineEdit>(*form, "txtSrcFolder")->text(), m_inbox->Name());
    SetText(*form, "txtSubject", QStringLiteral("\"annual report\" budget"));
    Choose(*form, "cmbOnlyItems", QStringLiteral("That I replied to"));
    Click(*form, "btnOK");
    ASSERT_EQ(form->result(), QDialog::Accepted);

    const auto after = Rows(QStringLiteral("SELECT * FROM Rules WHERE RuleID=%1").arg(a)).front();
    EXPECT_EQ(after.value(QStringLiteral("Subject")), QStringLiteral("\"annual report\" budget"));
    EXPECT_EQ(after.value(QStringLiteral("LastVerb")), 102);
    EXPECT_EQ(after.value(QStringLiteral("Active")), -1);  // not the editor's column
    EXPECT_EQ(after.value(QStringLiteral("SortID")), 1);
    EXPECT_EQ(Rows(QStringLiteral("SELECT * FROM Rules WHERE RuleID=%1").arg(b)), before);
    EXPECT_EQ(RuleCount(), 2);
}

TEST_F(RulePropsFixture, MissingRuleLeavesDefaultsAndUpdatesNothing)
{
    AddRule(QStringLiteral("a"), QStringLiteral("Subject"), QStringLiteral("'s'"));
    const auto before = Rows(QStringLiteral("SELECT * FROM Rules"));
    auto form = Open(QStringLiteral("Update"), 999);
    EXPECT_EQ(Find<QLineEdit>(*form, "txtRuleName")->text(), QString());
    FillRequired(*form);
    SetText(*form, "txtSubject", QStringLiteral("x"));
    Click(*form, "btnOK");
    EXPECT_EQ(Rows(QStringLiteral("SELECT * FROM Rules")), before);
}

TEST_F(RulePropsFixture, VanishedFoldersAreReportedAndMustBePickedAgain)
{
    const int id = AddRule(QStringLiteral("a"), QStringLiteral("Subject"), QStringLiteral("'s'"));
    Sql(QStringLiteral("UPDATE Rules SET SrcEntryID='00FF', DstStoreID='ABCD'"));
    auto form = Open(QStringLiteral("Update"), id);
    EXPECT_EQ(m_answerer.texts(),
              QStringList({QStringLiteral("The source folder could not be found, please re-select."),
                           QStringLiteral("The destination folder could not be found, please re-select.")}));
    EXPECT_EQ(m_answerer.shown().front().style, os::vbOKOnly + os::vbExclamation);
    EXPECT_TRUE(Find<QLineEdit>(*form, "txtSrcFolder")->text().isEmpty());
    EXPECT_TRUE(Find<QLineEdit>(*form, "txtDstFolder")->text().isEmpty());
    m_answerer.clear();
    Click(*form, "btnOK");
    ASSERT_EQ(m_answerer.texts().size(), 1);
    EXPECT_TRUE(m_answerer.texts().front().endsWith(QStringLiteral("Source Folder\r\nDestination Folder\r\n")));
}

TEST_F(RulePropsFixture, FolderPickerCancelKeepsTheFolder)
{
    auto form = Open(QStringLiteral("New"));
    FillRequired(*form);
    m_picker.answers.push_back(nullptr);
    Click(*form, "btnDstFolderBrowse");
    EXPECT_EQ(m_picker.calls, 3);
    EXPECT_EQ(Find<QLineEdit>(*form, "txtDstFolder")->text(), QStringLiteral("Archive"));
    EXPECT_EQ(form->DstEntryID(), m_archive->EntryID());
}

TEST_F(RulePropsFixture, ContactPickerJoinsChosenAddresses)
{
    auto form = Open(QStringLiteral("New"));
    SetText(*form, "txtTo", QStringLiteral("kept@example.org"));
    Click(*form, "btnTo");  // nothing chosen: the text stays
    EXPECT_EQ(Find<QLineEdit>(*form, "txtTo")->text(), QStringLiteral("kept@example.org"));

    m_contacts.entries = {{true, QStringLiteral("EX"), QStringLiteral("Ann Lee"), QStringLiteral("/O=ORG/CN=ANN")},
                          {false, QStringLiteral("SMTP"), QStringLiteral("Skipped"), QStringLiteral("x@example.org")},
                          {true, QStringLiteral("SMTP"), QStringLiteral("Bob"), QStringLiteral("bob@example.org")}};
    Click(*form, "btnCc");
    EXPECT_EQ(m_contacts.lastTitle, QStringLiteral("Choose a Contact"));
    EXPECT_EQ(Find<QLineEdit>(*form, "txtCC")->text(), QStringLiteral("Ann Lee; bob@example.org; "));
}

TEST_F(RulePropsFixture, ReadOnlyShowsTheRuleAndWritesNothing)
{
    const int id = AddRule(QStringLiteral("shown"), QStringLiteral("Subject"), QStringLiteral("'s'"));
    const auto before = Rows(QStringLiteral("SELECT * FROM Rules"));
    auto form = Open(QStringLiteral("ReadOnly"), id);
    EXPECT_EQ(Find<QLineEdit>(*form, "txtRuleName")->text(), QStringLiteral("shown"));
    EXPECT_TRUE(Find<QPushButton>(*form, "btnOK")->isHidden());
    EXPECT_TRUE(Find<QPushButton>(*form, "btnCancel")->isHidden());
    EXPECT_FALSE(Find<QPushButton>(*form, "btnClose")->isHidden());
    for (const char* name : {"txtRuleName", "txtSubject", "btnSrcFolderBrowse", "btnFrom", "cmbMsgAge"})
        EXPECT_FALSE(Find<QWidget>(*form, name)->isEnabled()) << name;
    Click(*form, "btnClose");
    EXPECT_TRUE(form->Cancelled);
    EXPECT_EQ(Rows(QStringLiteral("SELECT * FROM Rules")), before);
}

TEST_F(RulePropsFixture, CancelWritesNothing)
{
    auto form = Open(QStringLiteral("New"));
    FillRequired(*form);
    SetText(*form, "txtFrom", QStringLiteral("a@example.org"));
    Click(*form, "btnCancel");
    EXPECT_TRUE(form->Cancelled);
    auto escaped = Open(QStringLiteral("New"));
    escaped->reject();  // what Escape and the close button do
    EXPECT_TRUE(escaped->Cancelled);
    EXPECT_EQ(RuleCount(), 0);
}

TEST_F(RulePropsFixture, FailedSaveIsReportedAndKeepsTheForm)
{
    auto form = Open(QStringLiteral("New"));
    FillRequired(*form);
    SetText(*form, "txtFrom", QStringLiteral("a@example.org"));
    Sql(QStringLiteral("DROP TABLE Rules"));
    Click(*form, "btnOK");
    EXPECT_NE(form->result(), QDialog::Accepted);
    EXPECT_TRUE(m_answerer.texts().contains(QStringLiteral(
        "There was a problem saving your changes.\r\n\r\nIf this problem persists, please contact Sorquin support.")));
    EXPECT_EQ(Find<QLineEdit>(*form, "txtFrom")->text(), QStringLiteral("a@example.org"));
    m_expectedReports = static_cast<int>(m_answerer.shown().size());
}

// --- Smart Add ---

struct SmartAddCase {
    const char* name;
    const char* settings;  // SET clause for the settings row
    const char* ruleName, *from, *to, *cc, *subject, *importance, *status, *age;
};

void PrintTo(const SmartAddCase& c, std::ostream* os) { *os << c.name; }

class SmartAddTest : public RulePropsFixture, public ::testing::WithParamInterface<SmartAddCase> {};

TEST_P(SmartAddTest, PrefillFollowsTheSettings)
{
    const SmartAddCase& c = GetParam();
    Sql(QStringLiteral("UPDATE settings SET %1").arg(QLatin1String(c.settings)));
    mapi::NewMessage m;
    m.rfc822 = QByteArrayLiteral(
        "Delivered-To: me@example.net\r\nFrom: Ann Lee <ann@example.org>\r\nTo: Me <me@example.net>\r\n"
        "Cc: Cat <cat@example.org>\r\nSubject: Quarterly numbers\r\nImportance: high\r\n"
        "Date: Mon, 2 Mar 2026 10:00:00 +0000\r\nMessage-ID: <q1@example.org>\r\n"
        "Content-Type: text/plain\r\n\r\nBody\r\n");
    auto id = m_store->Append(m_inbox->BinaryEntryID(), m);
    ASSERT_TRUE(id.ok());
    auto item = m_ns->GetItemFromID(QString::fromLatin1(id.value().toHex().toUpper()), m_inbox->StoreID());
    ASSERT_TRUE(item);

    auto form = Open(QStringLiteral("NewSA"), 0, QStringLiteral("11.0"), false);
    form->SetSelection(std::move(item), m_ns->GetFolderFromID(m_inbox->EntryID(), m_inbox->StoreID()));
    form->Form_Load();
    EXPECT_EQ(Find<QLineEdit>(*form, "txtRuleName")->text(), QString::fromUtf8(c.ruleName));
    EXPECT_EQ(Find<QLineEdit>(*form, "txtFrom")->text(), QString::fromUtf8(c.from));
    EXPECT_EQ(Find<QLineEdit>(*form, "txtTo")->text(), QString::fromUtf8(c.to));
    EXPECT_EQ(Find<QLineEdit>(*form, "txtCC")->text(), QString::fromUtf8(c.cc));
    EXPECT_EQ(Find<QLineEdit>(*form, "txtSubject")->text(), QString::fromUtf8(c.subject));
    EXPECT_EQ(Find<QComboBox>(*form, "cmbImportance")->currentText(), QString::fromUtf8(c.importance));
    EXPECT_EQ(Find<QComboBox>(*form, "cmbStatus")->currentText(), QString::fromUtf8(c.status));
    EXPECT_EQ(Find<QComboBox>(*form, "cmbMsgAge")->currentText(), QString::fromUtf8(c.age));
    EXPECT_EQ(Find<QLineEdit>(*form, "txtSrcFolder")->text(), m_inbox->Name());
    EXPECT_EQ(Find<QPushButton>(*form, "btnOK")->text(), QStringLiteral("Add Rule"));

    FillRequired(*form);  // the saved rule keeps the message's folder as picked here
    SetText(*form, "txtRuleName", QStringLiteral("saved"));
    SetText(*form, "txtMessage", QStringLiteral("x"));
    Click(*form, "btnOK");
    EXPECT_EQ(RuleCount(), 1);
}

const SmartAddCase kSmartAdd[] = {
    {"TemplateDefaults", "raRuleName=0",  // the blank template's choices
     "Quarterly numbers", "ann@example.org", "me@example.net", "", "Quarterly numbers", "High", "Read", "1 hour"},
    {"NameFromSender", "raRuleName=1, raTo=0, raSubject=0, raImportance=0, raStatus=0, raMsgAge=18",
     "ann@example.org", "ann@example.org", "", "", "", "Any", "Unread", "6 months"},
    {"NameFromRecipientWithCopies", "raRuleName=2, raFrom=0, raCc=1, raStatus=2, raMsgAge=13",
     "me@example.net", "", "me@example.net", "Cat", "Quarterly numbers", "High", "Any", "Any Time"},
    {"UnknownNameChoiceLeavesItEmpty", "raRuleName=7, raFrom=2, raTo=2, raSubject=5",
     "", "", "", "", "", "High", "Read", "1 hour"},
};
INSTANTIATE_TEST_SUITE_P(Settings, SmartAddTest, ::testing::ValuesIn(kSmartAdd),
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

TEST_F(RulePropsFixture, SmartAddTakesNamesOfExchangeSendersOnlyFromKnownClasses)
{
    Sql(QStringLiteral("UPDATE settings SET raRuleName=1, raFrom=1, raTo=1, raCc=1"));
    const struct {
        const char* messageClass;
        const char* from;
        const char* to;
        const char* cc;
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
        auto form = Open(QStringLiteral("NewSA"), 0, QStringLiteral("11.0"), false);
        form->SetSelection(std::move(item), nullptr);
        form->Form_Load();
        EXPECT_EQ(Find<QLineEdit>(*form, "txtFrom")->text(), QLatin1String(c.from));
        EXPECT_EQ(Find<QLineEdit>(*form, "txtRuleName")->text(), QLatin1String(c.from));
        EXPECT_EQ(Find<QLineEdit>(*form, "txtTo")->text(), QLatin1String(c.to));
        EXPECT_EQ(Find<QLineEdit>(*form, "txtCC")->text(), QLatin1String(c.cc));
    }
}

TEST_F(RulePropsFixture, SmartAddWithoutSelectionKeepsDefaults)
{
    auto form = Open(QStringLiteral("NewSA"));
    EXPECT_EQ(Find<QLineEdit>(*form, "txtRuleName")->text(), QString());
    EXPECT_EQ(Find<QLineEdit>(*form, "txtSrcFolder")->text(), QString());
}

}  // namespace
}  // namespace mv::test
