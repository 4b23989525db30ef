// The rule editor over a real rule database: every list entry is saved as
// its code and loaded back by code, inserts and updates touch the right
// rows, and the OK button's checks run in order.

#include "FormsFixture.h"

#include "forms/RuleChoices.h"

namespace mv::test {
namespace {

using forms::Choice;
using Editor = forms::frmRuleProps;

struct ListCase {
    const char* list;
    const char* column;
    std::span<const Choice> (*choices)();
};
void PrintTo(const ListCase& c, std::ostream* os)
{
    *os << c.list;
}

std::span<const Choice> ColouredFlags()
{
    return forms::FlagStatusChoices(11);
}

class ListCodeTest : public FormsTest, public ::testing::WithParamInterface<ListCase> {};

// Each entry is saved by a new rule, then a second editor loads that rule and
// must show the same label: a list that stored positions, or matched stored
// values by position, fails on the out-of-order codes.
TEST_P(ListCodeTest, EveryEntrySavesItsCodeAndLoadsBack)
{
    const ListCase& c = GetParam();
    for (const Choice& choice : c.choices()) {
        const QString label = QString::fromUtf8(choice.label);
        SCOPED_TRACE(label.toStdString());
        auto form = OpenEditor(QStringLiteral("New"));
        FillRequired(*form);
        SetText(*form, "txtSubject", QStringLiteral("keep"));  // never a catch-all
        Choose(*form, c.list, label);
        Click(*form, "btnOK");
        ASSERT_EQ(form->result(), QDialog::Accepted)
            << m_answerer.texts().join(QStringLiteral("|")).toStdString();
        EXPECT_FALSE(form->Cancelled);
        const auto rows =
            Rows(QStringLiteral("SELECT RuleID, %1 AS code FROM Rules ORDER BY RuleID DESC LIMIT 1")
                     .arg(QLatin1String(c.column)));
        ASSERT_EQ(rows.size(), 1);
        EXPECT_EQ(rows.front().value(QStringLiteral("code")).toInt(), choice.code);
        EXPECT_EQ(
            Shown(*OpenEditor(QStringLiteral("Update"), rows.front().value(QStringLiteral("RuleID")).toInt()),
                  c.list),
            label);
    }
    EXPECT_TRUE(m_answerer.shown().empty());
}

INSTANTIATE_TEST_SUITE_P(Lists, ListCodeTest,
                         ::testing::Values(ListCase{"cmbMsgAge", "MsgAgeID", &forms::MsgAgeChoices},
                                           ListCase{"cmbImportance", "Importance", &forms::ImportanceChoices},
                                           ListCase{"cmbStatus", "Status", &forms::StatusChoices},
                                           ListCase{"cmbFlagStatus", "FlagStatus", &ColouredFlags},
                                           ListCase{"cmbOnlyItems", "LastVerb", &forms::LastVerbChoices}),
                         [](const auto& info) { return std::string(info.param.list); });

// Stored codes the lists do not hold, or hold only on some hosts: what is
// shown, and what saving the rule unchanged writes back.
TEST_F(FormsTest, StoredCodesOutsideTheListLoadAndSave)
{
    const struct {
        const char* column;
        int stored;
        const char* hostVersion;
        const char* list;
        const char* shown;
        int saved;
    } cases[] = {
        {"MsgAgeID", 99, "11.0", "cmbMsgAge", "Any Time", 13},
        {"FlagStatus", 16, "10.0", "cmbFlagStatus", "Don't Care", 0},  // no colours before 11
        {"FlagStatus", 2, "10", "cmbFlagStatus", "Follow-up", 2},
        {"FlagStatus", 2, "12.0.4518", "cmbFlagStatus", "Any Set", 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.column) + " " + c.hostVersion);
        const int id =
            AddRule(QStringLiteral("r"),
                    QStringLiteral("Subject='x', %1=%2").arg(QLatin1String(c.column)).arg(c.stored));
        auto form = OpenEditor(QStringLiteral("Update"), id, QLatin1String(c.hostVersion));
        EXPECT_EQ(Shown(*form, c.list), QLatin1String(c.shown));
        Click(*form, "btnOK");
        EXPECT_EQ(Rows(QStringLiteral("SELECT %1 AS v FROM Rules WHERE RuleID=%2")
                           .arg(QLatin1String(c.column))
                           .arg(id))
                      .value(0)
                      .value(QStringLiteral("v")),
                  c.saved);
    }
}

TEST_F(FormsTest, NewRulesGoToTheEndAndModifyUpdatesOnlyItsRow)
{
    const int a = AddRule(QStringLiteral("a"), QStringLiteral("SortID = 7, Subject='old'"));
    const int b = AddRule(QStringLiteral("b"), QStringLiteral("Subject='other'"));
    for (const char* name : {"second", "third"}) {
        auto form = OpenEditor(QStringLiteral("New"));
        FillRequired(*form);
        SetText(*form, "txtRuleName", QLatin1String(name));
        SetText(*form, "txtFrom", QStringLiteral("ann@example.org"));
        Click(*form, "btnOK");
        ASSERT_EQ(form->result(), QDialog::Accepted);
    }
    const auto rows = Rows(QStringLiteral("SELECT RuleName, SortID, SrcEntryID, DstStoreID, Message FROM Rules "
                                          "WHERE RuleID > %1 ORDER BY RuleID")
                               .arg(b));
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(rows[0].value(QStringLiteral("RuleName")), QStringLiteral("second"));
    EXPECT_EQ(rows[0].value(QStringLiteral("SortID")), 9);
    EXPECT_EQ(rows[1].value(QStringLiteral("SortID")), 10);
    EXPECT_EQ(rows[0].value(QStringLiteral("SrcEntryID")), Folder(QStringLiteral("Inbox"))->EntryID());
    EXPECT_EQ(rows[0].value(QStringLiteral("DstStoreID")), Folder(QStringLiteral("Archive"))->StoreID());
    // Empty texts are stored as empty texts, not nulls: the engine reads both
    // as "no criterion", but other readers need not.
    EXPECT_EQ(rows[0].value(QStringLiteral("Message")), QString());

    const auto before = Rows(QStringLiteral("SELECT * FROM Rules WHERE RuleID<>%1").arg(a));
    auto form = OpenEditor(QStringLiteral("Update"), a);
    EXPECT_EQ(Text(*form, "txtSrcFolder"), QStringLiteral("Inbox"));
    SetText(*form, "txtSubject", QStringLiteral("\"annual report\" budget"));
    Choose(*form, "cmbOnlyItems", QStringLiteral("That I replied to"));
    Click(*form, "btnOK");
    ASSERT_EQ(form->result(), QDialog::Accepted);
    const auto after = Rows(QStringLiteral("SELECT * FROM Rules WHERE RuleID=%1").arg(a)).value(0);
    EXPECT_EQ(after.value(QStringLiteral("Subject")), QStringLiteral("\"annual report\" budget"));
    EXPECT_EQ(after.value(QStringLiteral("LastVerb")), 102);
    EXPECT_EQ(after.value(QStringLiteral("Active")), -1);  // not the editor's column
    EXPECT_EQ(after.value(QStringLiteral("SortID")), 7);
    EXPECT_EQ(Rows(QStringLiteral("SELECT * FROM Rules WHERE RuleID<>%1").arg(a)), before);

    const auto all = Rows(QStringLiteral("SELECT * FROM Rules"));
    auto missing = OpenEditor(QStringLiteral("Update"), 999);
    EXPECT_EQ(Text(*missing, "txtRuleName"), QString());
    FillRequired(*missing);
    SetText(*missing, "txtSubject", QStringLiteral("x"));
    Click(*missing, "btnOK");
    EXPECT_EQ(Rows(QStringLiteral("SELECT * FROM Rules")), all);
}

TEST_F(FormsTest, VanishedFoldersAreReportedAndMustBePickedAgain)
{
    const int id =
        AddRule(QStringLiteral("a"), QStringLiteral("Subject='s', SrcEntryID='00FF', DstStoreID='ABCD'"));
    auto form = OpenEditor(QStringLiteral("Update"), id);
    EXPECT_EQ(m_answerer.texts(),
              QStringList({QStringLiteral("The source folder could not be found, please re-select."),
                           QStringLiteral("The destination folder could not be found, please re-select.")}));
    EXPECT_EQ(m_answerer.shown().front().style, os::vbOKOnly + os::vbExclamation);
    EXPECT_TRUE(Text(*form, "txtSrcFolder").isEmpty());
    EXPECT_TRUE(Text(*form, "txtDstFolder").isEmpty());
    m_answerer.clear();
    Click(*form, "btnOK");
    ASSERT_EQ(m_answerer.texts().size(), 1);
    EXPECT_TRUE(
        m_answerer.texts().front().endsWith(QStringLiteral("Source Folder\r\nDestination Folder\r\n")));
}

TEST_F(FormsTest, ContactPickerJoinsChosenAddresses)
{
    auto form = OpenEditor(QStringLiteral("New"));
    SetText(*form, "txtTo", QStringLiteral("kept@example.org"));
    Click(*form, "btnTo");  // nothing chosen: the text stays
    EXPECT_EQ(Text(*form, "txtTo"), QStringLiteral("kept@example.org"));
    m_contacts.entries = {
        {true, QStringLiteral("EX"), QStringLiteral("Ann Lee"), QStringLiteral("/O=ORG/CN=ANN")},
        {false, QStringLiteral("SMTP"), QStringLiteral("Skipped"), QStringLiteral("x@example.org")},
        {true, QStringLiteral("SMTP"), QStringLiteral("Bob"), QStringLiteral("bob@example.org")}};
    Click(*form, "btnCc");
    EXPECT_EQ(m_contacts.lastTitle, QStringLiteral("Choose a Contact"));
    EXPECT_EQ(Text(*form, "txtCC"), QStringLiteral("Ann Lee; bob@example.org; "));
}

TEST_F(FormsTest, ReadOnlyAndCancelWriteNothingAndAFailedSaveKeepsTheForm)
{
    const int id = AddRule(QStringLiteral("shown"), QStringLiteral("Subject='s'"));
    const auto before = Rows(QStringLiteral("SELECT * FROM Rules"));
    auto form = OpenEditor(QStringLiteral("ReadOnly"), id);
    EXPECT_EQ(Text(*form, "txtRuleName"), QStringLiteral("shown"));
    EXPECT_TRUE(Child(*form, "btnOK")->isHidden());
    EXPECT_TRUE(Child(*form, "btnCancel")->isHidden());
    EXPECT_FALSE(Child(*form, "btnClose")->isHidden());
    for (const char* name : {"txtRuleName", "txtSubject", "btnSrcFolderBrowse", "btnFrom", "cmbMsgAge"})
        EXPECT_FALSE(Child(*form, name)->isEnabled()) << name;
    Click(*form, "btnClose");
    EXPECT_TRUE(form->Cancelled);

    auto cancelled = OpenEditor(QStringLiteral("New"));
    FillRequired(*cancelled);
    SetText(*cancelled, "txtFrom", QStringLiteral("a@example.org"));
    Click(*cancelled, "btnCancel");
    EXPECT_TRUE(cancelled->Cancelled);
    auto escaped = OpenEditor(QStringLiteral("New"));
    escaped->reject();  // what Escape and the close button do
    EXPECT_TRUE(escaped->Cancelled);
    EXPECT_EQ(Rows(QStringLiteral("SELECT * FROM Rules")), before);

    // A failed save is reported and keeps the form.
    auto failed = OpenEditor(QStringLiteral("New"));
    FillRequired(*failed);
    SetText(*failed, "txtFrom", QStringLiteral("a@example.org"));
    Sql(QStringLiteral("DROP TABLE Rules"));
    Click(*failed, "btnOK");
    EXPECT_NE(failed->result(), QDialog::Accepted);
    EXPECT_TRUE(
        m_answerer.texts().contains(QStringLiteral("There was a problem saving your changes.\r\n\r\nIf this "
                                                   "problem persists, please contact Sorquin support.")));
    EXPECT_EQ(Text(*failed, "txtFrom"), QStringLiteral("a@example.org"));
    m_expectedReports = static_cast<int>(m_answerer.shown().size());
}

// --- the checks OK runs, in order: a failing one shows its one message and nothing is saved ---

const QString kRequired = QStringLiteral("The Following Fields are Required to save this rule:\r\n\r\n");
const QString kSubjectQuotes =
    QStringLiteral("There are unmatched quote characters in the Subject contains field.");
const QString kMessageQuotes =
    QStringLiteral("There are unmatched quote characters in the Message contains field.");
const QString kCatchAll = QStringLiteral(
    "The rule as configured is invalid:\r\n\r\nThis would result in all messages "
    "being moved regardless of any criteria.");

struct CheckCase {
    const char* name;
    std::vector<std::pair<const char*, const char*>> edits;  // field (txt* or cmb*) -> text or label
    QString message;                                         // empty: the rule is saved
};
void PrintTo(const CheckCase& c, std::ostream* os)
{
    *os << c.name;
}

class RuleCheckTest : public FormsTest, public ::testing::WithParamInterface<CheckCase> {};

TEST_P(RuleCheckTest, OkRunsTheChecksInOrder)
{
    const CheckCase& c = GetParam();
    auto form = OpenEditor(QStringLiteral("New"));
    FillRequired(*form);
    // Every criterion at its "any" value (the initial status comes from the settings).
    Choose(*form, "cmbStatus", QStringLiteral("Any"));
    Choose(*form, "cmbMsgAge", QStringLiteral("Any Time"));
    for (const auto& [field, value] : c.edits) {
        if (field[0] == 'c')
            Choose(*form, field, QString::fromUtf8(value));
        else
            SetText(*form, field, QString::fromUtf8(value));
    }
    const QString subjectBefore = Text(*form, "txtSubject");
    Click(*form, "btnOK");
    if (c.message.isEmpty()) {
        EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(QStringLiteral("|")).toStdString();
        EXPECT_EQ(form->result(), QDialog::Accepted);
        EXPECT_EQ(RuleCount(), 1);
        return;
    }
    ASSERT_EQ(m_answerer.shown().size(), 1u);
    EXPECT_EQ(m_answerer.shown().front().text, c.message);
    EXPECT_EQ(m_answerer.shown().front().style, os::vbOKOnly + os::vbExclamation);
    EXPECT_NE(form->result(), QDialog::Accepted);
    EXPECT_FALSE(form->Cancelled);
    EXPECT_EQ(RuleCount(), 0);
    EXPECT_EQ(Text(*form, "txtSubject"), subjectBefore);
}

INSTANTIATE_TEST_SUITE_P(
    Checks, RuleCheckTest,
    ::testing::Values(CheckCase{"NameAndDestinationMissing",
                                {{"txtRuleName", ""}, {"txtDstFolder", ""}},
                                kRequired + QStringLiteral("RuleName\r\nDestination Folder\r\n")},
                      CheckCase{"BlankNameIsAName", {{"txtRuleName", " "}, {"txtFrom", "a@example.org"}}, {}},
                      CheckCase{"OneQuoteInSubject", {{"txtSubject", "\"foo"}}, kSubjectQuotes},
                      CheckCase{"SubjectCheckedBeforeMessage",
                                {{"txtSubject", "a\"b"}, {"txtMessage", "\""}},
                                kSubjectQuotes},
                      CheckCase{"OneQuoteInMessage",
                                {{"txtSubject", "\"a\" \"b\""}, {"txtMessage", "x \" y"}},
                                kMessageQuotes},
                      CheckCase{"ThreeQuotesInMessage", {{"txtMessage", "\"a\" \"b"}}, kMessageQuotes},
                      CheckCase{"QuotesCheckedBeforeCatchAll", {{"txtMessage", "\""}}, kMessageQuotes},
                      CheckCase{"EveryCriterionAny", {}, kCatchAll},
                      CheckCase{"BlankSubjectIsACriterion", {{"txtSubject", " "}}, {}},
                      CheckCase{"UnreadAlone", {{"cmbStatus", "Unread"}}, {}},
                      CheckCase{"OneDayAlone", {{"cmbMsgAge", "1 day"}}, {}},
                      CheckCase{"ImportanceAlone", {{"cmbImportance", "Low"}}, {}},
                      CheckCase{"NoFlagSetAlone", {{"cmbFlagStatus", "None Set"}}, {}},
                      CheckCase{"RepliedAlone", {{"cmbOnlyItems", "That I replied to"}}, {}},
                      CheckCase{"CcAlone", {{"txtCC", "cat"}}, {}},
                      CheckCase{"CommaInFromIsSaved", {{"txtFrom", "a@example.org, b@example.org"}}, {}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(FormsTest, AddressSeparatorCheckNamesEveryField)
{
    auto form = OpenEditor(QStringLiteral("New"));
    SetText(*form, "txtFrom", QStringLiteral("a,b"));
    SetText(*form, "txtCC", QStringLiteral("c, d"));
    EXPECT_FALSE(form->CheckAddressSeparators());
    EXPECT_EQ(
        m_answerer.texts(),
        QStringList({QStringLiteral(
                         "Please separate multiple email addresses in the From field with a semicolon (;)."),
                     QStringLiteral(
                         "Please separate multiple email addresses in the Cc field with a semicolon (;).")}));
    SetText(*form, "txtFrom", QStringLiteral("a;b"));
    SetText(*form, "txtCC", QString());
    m_answerer.clear();
    EXPECT_TRUE(form->CheckAddressSeparators());
    EXPECT_TRUE(m_answerer.shown().empty());
}

}  // namespace
}  // namespace mv::test
