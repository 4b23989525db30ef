// The checks the OK button runs, in order, on the form's current contents:
// a failing check shows its one message and nothing reaches the database.

#include "RulePropsFixture.h"

#include "forms/RuleChoices.h"

#include <functional>

namespace mv::test {
namespace {

const QString kRequired = QStringLiteral("The Following Fields are Required to save this rule:\r\n\r\n");
const QString kSubjectQuotes = QStringLiteral("There are unmatched quote characters in the Subject contains field.");
const QString kMessageQuotes = QStringLiteral("There are unmatched quote characters in the Message contains field.");
const QString kCatchAll = QStringLiteral(
    "The rule as configured is invalid:\r\n\r\nThis would result in all messages being moved regardless of any "
    "criteria.");

using Edit = std::function<void(forms::frmRuleProps&)>;

struct CheckCase {
    const char* name;
    Edit edit;         // applied after the required fields are filled
    QString message;   // empty: the rule is saved
};

Edit Text(const char* field, const char* text)
{
    return [=](forms::frmRuleProps& f) {
        f.findChild<QLineEdit*>(QString::fromLatin1(field))->setText(QString::fromUtf8(text));
    };
}
Edit Pick(const char* list, const char* label)
{
    return [=](forms::frmRuleProps& f) {
        auto* box = f.findChild<QComboBox*>(QString::fromLatin1(list));
        box->setCurrentIndex(box->findText(QString::fromUtf8(label)));
    };
}
Edit Both(Edit a, Edit b)
{
    return [=](forms::frmRuleProps& f) {
        a(f);
        b(f);
    };
}
// Every criterion at its "any" value (the form's initial status comes from
// the settings, so it is set here).
Edit AllAny()
{
    return Both(Pick("cmbStatus", "Any"), Pick("cmbMsgAge", "Any Time"));
}

void PrintTo(const CheckCase& c, std::ostream* os) { *os << c.name; }

class RuleCheckTest : public RulePropsFixture, public ::testing::WithParamInterface<CheckCase> {};

TEST_P(RuleCheckTest, OkRunsTheChecksInOrder)
{
    const CheckCase& c = GetParam();
    auto form = Open(QStringLiteral("New"));
    FillRequired(*form);
    AllAny()(*form);
    c.edit(*form);
    const QString subjectBefore = Find<QLineEdit>(*form, "txtSubject")->text();
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
    EXPECT_EQ(Find<QLineEdit>(*form, "txtSubject")->text(), subjectBefore);
}

const CheckCase kChecks[] = {
    {"NameAndDestinationMissing",
     [](forms::frmRuleProps& f) {
         f.findChild<QLineEdit*>(QStringLiteral("txtRuleName"))->clear();
         f.findChild<QLineEdit*>(QStringLiteral("txtDstFolder"))->clear();
     },
     kRequired + QStringLiteral("RuleName\r\nDestination Folder\r\n")},
    {"BlankNameIsAName", Both(Text("txtRuleName", " "), Text("txtFrom", "a@example.org")), {}},
    {"OneQuoteInSubject", Text("txtSubject", "\"foo"), kSubjectQuotes},
    {"SubjectCheckedBeforeMessage", Both(Text("txtSubject", "a\"b"), Text("txtMessage", "\"")), kSubjectQuotes},
    {"OneQuoteInMessage", Both(Text("txtSubject", "\"a\" \"b\""), Text("txtMessage", "x \" y")), kMessageQuotes},
    {"ThreeQuotesInMessage", Text("txtMessage", "\"a\" \"b"), kMessageQuotes},
    {"QuotesCheckedBeforeCatchAll", Text("txtMessage", "\""), kMessageQuotes},
    {"EveryCriterionAny", [](forms::frmRuleProps&) {}, kCatchAll},
    {"BlankSubjectIsACriterion", Text("txtSubject", " "), {}},
    {"UnreadAlone", Pick("cmbStatus", "Unread"), {}},
    {"OneDayAlone", Pick("cmbMsgAge", "1 day"), {}},
    {"ImportanceAlone", Pick("cmbImportance", "Low"), {}},
    {"NoFlagSetAlone", Pick("cmbFlagStatus", "None Set"), {}},
    {"RepliedAlone", Pick("cmbOnlyItems", "That I replied to"), {}},
    {"CcAlone", Text("txtCC", "cat"), {}},
    {"CommaInFromIsSaved", Text("txtFrom", "a@example.org, b@example.org"), {}},
};
INSTANTIATE_TEST_SUITE_P(Checks, RuleCheckTest, ::testing::ValuesIn(kChecks),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(RulePropsFixture, AddressSeparatorCheckNamesEveryField)
{
    auto form = Open(QStringLiteral("New"));
    SetText(*form, "txtFrom", QStringLiteral("a,b"));
    SetText(*form, "txtCC", QStringLiteral("c, d"));
    EXPECT_FALSE(form->CheckAddressSeparators());
    EXPECT_EQ(m_answerer.texts(),
              QStringList({QStringLiteral("Please separate multiple email addresses in the From field with a semicolon (;)."),
                           QStringLiteral("Please separate multiple email addresses in the Cc field with a semicolon (;).")}));
    SetText(*form, "txtFrom", QStringLiteral("a;b"));
    SetText(*form, "txtCC", QString());
    m_answerer.clear();
    EXPECT_TRUE(form->CheckAddressSeparators());
    EXPECT_TRUE(m_answerer.shown().empty());
}

struct CountCase {
    const char* text;
    const char* part;
    int count;
};

class OccurrenceTest : public ::testing::TestWithParam<CountCase> {};

TEST_P(OccurrenceTest, CountsPieces)
{
    const CountCase& c = GetParam();
    EXPECT_EQ(forms::NoOfOccurances(QString::fromUtf8(c.text), QString::fromUtf8(c.part)), c.count);
}

INSTANTIATE_TEST_SUITE_P(Texts, OccurrenceTest,
                         ::testing::Values(CountCase{"", "\"", 0}, CountCase{"abc", "\"", 0},
                                           CountCase{"\"", "\"", 1}, CountCase{"\"a\" \"b\"", "\"", 4},
                                           CountCase{"aXxa", "x", 1}, CountCase{"aaaa", "aa", 2}));

struct VersionCase {
    const char* text;
    int major;
};

class VersionTest : public ::testing::TestWithParam<VersionCase> {};

TEST_P(VersionTest, MajorNumber)
{
    EXPECT_EQ(forms::OutlookMajorVersion(QString::fromUtf8(GetParam().text)), GetParam().major);
}

INSTANTIATE_TEST_SUITE_P(Texts, VersionTest,
                         ::testing::Values(VersionCase{"11.0", 11}, VersionCase{"10.0.2627", 10},
                                           VersionCase{"9", 9}, VersionCase{"", 0}, VersionCase{"x.1", 0},
                                           VersionCase{"12a.0", 12}));

}  // namespace
}  // namespace mv::test
