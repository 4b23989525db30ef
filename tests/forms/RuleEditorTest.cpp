// The rule editor over a real rule database: every list entry is saved as
// its code and loaded back by code, inserts and updates touch the right
// rows, and the OK button's checks run in order.

#include "FormsFixture.h"

#include "forms/RuleChoices.h"

namespace mv::test {

using namespace Qt::StringLiterals;
namespace {

using forms::Choice;
using Editor = forms::frmRuleProps;

// Each entry is saved by a new rule, then a second editor loads that rule and
// must show the same label: a list that stored positions, or matched stored
// values by position, fails on the out-of-order codes.
TEST_F(FormsTest, EveryListEntrySavesItsCodeAndLoadsBack)
{
    const struct {
        const char* list;
        const char* column;
        std::span<const Choice> choices;
    } lists[] = {{"cmbMsgAge", "MsgAgeID", forms::MsgAgeChoices()},
                 {"cmbImportance", "Importance", forms::ImportanceChoices()},
                 {"cmbStatus", "Status", forms::StatusChoices()},
                 {"cmbFlagStatus", "FlagStatus", forms::FlagStatusChoices(11)},
                 {"cmbOnlyItems", "LastVerb", forms::LastVerbChoices()}};
    for (const auto& c : lists) {
        for (const Choice& choice : c.choices) {
            const QString label = QString::fromUtf8(choice.label);
            SCOPED_TRACE(std::string(c.list) + " " + choice.label);
            auto form = OpenEditor(u"New"_s);
            FillRequired(*form);
            SetText(*form, "txtSubject", u"keep"_s);  // never a catch-all
            Choose(*form, c.list, label);
            Click(*form, "btnOK");
            ASSERT_EQ(form->result(), QDialog::Accepted) << m_answerer.texts().join(u"|"_s).toStdString();
            EXPECT_FALSE(form->Cancelled);
            const auto rows = Rows(u"SELECT RuleID, %1 AS code FROM Rules ORDER BY RuleID DESC LIMIT 1"_s.arg(
                QLatin1String(c.column)));
            ASSERT_EQ(rows.size(), 1);
            EXPECT_EQ(rows.front().value(u"code"_s).toInt(), choice.code);
            EXPECT_EQ(Shown(*OpenEditor(u"Update"_s, rows.front().value(u"RuleID"_s).toInt()), c.list),
                      label);
        }
    }
    EXPECT_TRUE(m_answerer.shown().empty());
}

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
        const int id = AddRule(u"r"_s, u"Subject='x', %1=%2"_s.arg(QLatin1String(c.column)).arg(c.stored));
        auto form = OpenEditor(u"Update"_s, id, QLatin1String(c.hostVersion));
        EXPECT_EQ(Shown(*form, c.list), QLatin1String(c.shown));
        Click(*form, "btnOK");
        EXPECT_EQ(Rows(u"SELECT %1 AS v FROM Rules WHERE RuleID=%2"_s.arg(QLatin1String(c.column)).arg(id))
                      .value(0)
                      .value(u"v"_s),
                  c.saved);
    }
}

TEST_F(FormsTest, NewRulesGoToTheEndAndModifyUpdatesOnlyItsRow)
{
    const int a = AddRule(u"a"_s, u"SortID = 7, Subject='old'"_s);
    const int b = AddRule(u"b"_s, u"Subject='other'"_s);
    for (const char* name : {"second", "third"}) {
        auto form = OpenEditor(u"New"_s);
        FillRequired(*form);
        SetText(*form, "txtRuleName", QLatin1String(name));
        SetText(*form, "txtFrom", u"ann@example.org"_s);
        Click(*form, "btnOK");
        ASSERT_EQ(form->result(), QDialog::Accepted);
    }
    const auto rows = Rows(
        u"SELECT RuleName, SortID, SrcEntryID, DstStoreID, Message FROM Rules "
        "WHERE RuleID > %1 ORDER BY RuleID"_s.arg(b));
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(rows[0].value(u"RuleName"_s), u"second"_s);
    EXPECT_EQ(rows[0].value(u"SortID"_s), 9);
    EXPECT_EQ(rows[1].value(u"SortID"_s), 10);
    EXPECT_EQ(rows[0].value(u"SrcEntryID"_s), Folder(u"Inbox"_s)->EntryID());
    EXPECT_EQ(rows[0].value(u"DstStoreID"_s), Folder(u"Archive"_s)->StoreID());
    // Empty texts are stored as empty texts, not nulls: the engine reads both
    // as "no criterion", but other readers need not.
    EXPECT_EQ(rows[0].value(u"Message"_s), QString());

    const auto before = Rows(u"SELECT * FROM Rules WHERE RuleID<>%1"_s.arg(a));
    auto form = OpenEditor(u"Update"_s, a);
    EXPECT_EQ(Text(*form, "txtSrcFolder"), u"Inbox"_s);
    SetText(*form, "txtSubject", u"\"annual report\" budget"_s);
    Choose(*form, "cmbOnlyItems", u"That I replied to"_s);
    Click(*form, "btnOK");
    ASSERT_EQ(form->result(), QDialog::Accepted);
    const auto after = Rows(u"SELECT * FROM Rules WHERE RuleID=%1"_s.arg(a)).value(0);
    EXPECT_EQ(after.value(u"Subject"_s), u"\"annual report\" budget"_s);
    EXPECT_EQ(after.value(u"LastVerb"_s), 102);
    EXPECT_EQ(after.value(u"Active"_s), -1);  // not the editor's column
    EXPECT_EQ(after.value(u"SortID"_s), 7);
    EXPECT_EQ(Rows(u"SELECT * FROM Rules WHERE RuleID<>%1"_s.arg(a)), before);

    const auto all = Rows(u"SELECT * FROM Rules"_s);
    auto missing = OpenEditor(u"Update"_s, 999);
    EXPECT_EQ(Text(*missing, "txtRuleName"), QString());
    FillRequired(*missing);
    SetText(*missing, "txtSubject", u"x"_s);
    Click(*missing, "btnOK");
    EXPECT_EQ(Rows(u"SELECT * FROM Rules"_s), all);
}

TEST_F(FormsTest, VanishedFoldersAreReportedAndMustBePickedAgain)
{
    const int id = AddRule(u"a"_s, u"Subject='s', SrcEntryID='00FF', DstStoreID='ABCD'"_s);
    auto form = OpenEditor(u"Update"_s, id);
    EXPECT_EQ(m_answerer.texts(),
              QStringList({u"The source folder could not be found, please re-select."_s,
                           u"The destination folder could not be found, please re-select."_s}));
    EXPECT_EQ(m_answerer.shown().front().style, os::vbOKOnly + os::vbExclamation);
    EXPECT_TRUE(Text(*form, "txtSrcFolder").isEmpty());
    EXPECT_TRUE(Text(*form, "txtDstFolder").isEmpty());
    m_answerer.clear();
    Click(*form, "btnOK");
    ASSERT_EQ(m_answerer.texts().size(), 1);
    EXPECT_TRUE(m_answerer.texts().front().endsWith(u"Source Folder\r\nDestination Folder\r\n"_s));
}

TEST_F(FormsTest, ReadOnlyAndCancelWriteNothingAndAFailedSaveKeepsTheForm)
{
    const int id = AddRule(u"shown"_s, u"Subject='s'"_s);
    const auto before = Rows(u"SELECT * FROM Rules"_s);
    auto form = OpenEditor(u"ReadOnly"_s, id);
    EXPECT_EQ(Text(*form, "txtRuleName"), u"shown"_s);
    EXPECT_TRUE(Child(*form, "btnOK")->isHidden());
    EXPECT_TRUE(Child(*form, "btnCancel")->isHidden());
    EXPECT_FALSE(Child(*form, "btnClose")->isHidden());
    for (const char* name : {"txtRuleName", "txtSubject", "btnSrcFolderBrowse", "btnFrom", "cmbMsgAge"})
        EXPECT_FALSE(Child(*form, name)->isEnabled()) << name;
    Click(*form, "btnClose");
    EXPECT_TRUE(form->Cancelled);

    auto cancelled = OpenEditor(u"New"_s);
    FillRequired(*cancelled);
    SetText(*cancelled, "txtFrom", u"a@example.org"_s);
    Click(*cancelled, "btnCancel");
    EXPECT_TRUE(cancelled->Cancelled);
    auto escaped = OpenEditor(u"New"_s);
    escaped->reject();  // what Escape and the close button do
    EXPECT_TRUE(escaped->Cancelled);
    EXPECT_EQ(Rows(u"SELECT * FROM Rules"_s), before);

    // A failed save is reported and keeps the form.
    auto failed = OpenEditor(u"New"_s);
    FillRequired(*failed);
    SetText(*failed, "txtFrom", u"a@example.org"_s);
    Sql(u"DROP TABLE Rules"_s);
    Click(*failed, "btnOK");
    EXPECT_NE(failed->result(), QDialog::Accepted);
    EXPECT_TRUE(
        m_answerer.texts().contains(u"There was a problem saving your changes.\r\n\r\nIf this "
                                    "problem persists, please contact Sorquin support."_s));
    EXPECT_EQ(Text(*failed, "txtFrom"), u"a@example.org"_s);
    m_expectedReports = static_cast<int>(m_answerer.shown().size());
}

// --- the checks OK runs, in order: a failing one shows its one message and nothing is saved ---

const QString kRequired = u"The Following Fields are Required to save this rule:\r\n\r\n"_s;
const QString kSubjectQuotes = u"There are unmatched quote characters in the Subject contains field."_s;
const QString kMessageQuotes = u"There are unmatched quote characters in the Message contains field."_s;
const QString kCatchAll =
    u"The rule as configured is invalid:\r\n\r\nThis would result in all messages "
    "being moved regardless of any criteria."_s;

TEST_F(FormsTest, OkRunsTheChecksInOrder)
{
    const struct {
        const char* name;
        std::vector<std::pair<const char*, const char*>> edits;  // field (txt* or cmb*) -> text or label
        QString message;                                         // empty: the rule is saved
    } cases[] = {
        {"NameAndDestinationMissing",
         {{"txtRuleName", ""}, {"txtDstFolder", ""}},
         kRequired + u"RuleName\r\nDestination Folder\r\n"_s},
        {"BlankNameIsAName", {{"txtRuleName", " "}, {"txtFrom", "a@example.org"}}, {}},
        {"OneQuoteInSubject", {{"txtSubject", "\"foo"}}, kSubjectQuotes},
        {"SubjectCheckedBeforeMessage", {{"txtSubject", "a\"b"}, {"txtMessage", "\""}}, kSubjectQuotes},
        {"OneQuoteInMessage", {{"txtSubject", "\"a\" \"b\""}, {"txtMessage", "x \" y"}}, kMessageQuotes},
        {"ThreeQuotesInMessage", {{"txtMessage", "\"a\" \"b"}}, kMessageQuotes},
        {"QuotesCheckedBeforeCatchAll", {{"txtMessage", "\""}}, kMessageQuotes},
        {"EveryCriterionAny", {}, kCatchAll},
        {"BlankSubjectIsACriterion", {{"txtSubject", " "}}, {}},
        {"UnreadAlone", {{"cmbStatus", "Unread"}}, {}},
        {"OneDayAlone", {{"cmbMsgAge", "1 day"}}, {}},
        {"ImportanceAlone", {{"cmbImportance", "Low"}}, {}},
        {"NoFlagSetAlone", {{"cmbFlagStatus", "None Set"}}, {}},
        {"RepliedAlone", {{"cmbOnlyItems", "That I replied to"}}, {}},
        {"CcAlone", {{"txtCC", "cat"}}, {}},
        {"CommaInFromIsSaved", {{"txtFrom", "a@example.org, b@example.org"}}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        m_answerer.clear();
        const int rules = RuleCount();
        auto form = OpenEditor(u"New"_s);
        FillRequired(*form);
        // Every criterion at its "any" value (the initial status comes from the settings).
        Choose(*form, "cmbStatus", u"Any"_s);
        Choose(*form, "cmbMsgAge", u"Any Time"_s);
        for (const auto& [field, value] : c.edits) {
            if (field[0] == 'c')
                Choose(*form, field, QString::fromUtf8(value));
            else
                SetText(*form, field, QString::fromUtf8(value));
        }
        const QString subjectBefore = Text(*form, "txtSubject");
        Click(*form, "btnOK");
        EXPECT_EQ(RuleCount(), rules + (c.message.isEmpty() ? 1 : 0));
        if (c.message.isEmpty()) {
            EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(u"|"_s).toStdString();
            EXPECT_EQ(form->result(), QDialog::Accepted);
            continue;
        }
        ASSERT_EQ(m_answerer.shown().size(), 1u);
        EXPECT_EQ(m_answerer.shown().front().text, c.message);
        EXPECT_EQ(m_answerer.shown().front().style, os::vbOKOnly + os::vbExclamation);
        EXPECT_NE(form->result(), QDialog::Accepted);
        EXPECT_FALSE(form->Cancelled);
        EXPECT_EQ(Text(*form, "txtSubject"), subjectBefore);
    }
}

TEST_F(FormsTest, AddressSeparatorCheckNamesEveryField)
{
    auto form = OpenEditor(u"New"_s);
    SetText(*form, "txtFrom", u"a,b"_s);
    SetText(*form, "txtCC", u"c, d"_s);
    EXPECT_FALSE(form->CheckAddressSeparators());
    const QString text = u"Please separate multiple email addresses in the %1 field with a semicolon (;)."_s;
    EXPECT_EQ(m_answerer.texts(), QStringList({text.arg(u"From"), text.arg(u"Cc")}));
    SetText(*form, "txtFrom", u"a;b"_s);
    SetText(*form, "txtCC", QString());
    m_answerer.clear();
    EXPECT_TRUE(form->CheckAddressSeparators());
    EXPECT_TRUE(m_answerer.shown().empty());
}

}  // namespace
}  // namespace mv::test
