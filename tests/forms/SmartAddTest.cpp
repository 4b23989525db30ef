// The Smart Add settings form over the real settings row, and Smart Add
// itself: the settings chosen in the form decide what the rule editor takes
// from a message selected in a real Maildir folder.

#include "SmartFixture.h"

#include "forms/SmartForms.h"
#include "forms/frmRuleAddProps.h"

#include <QCheckBox>

namespace mv::test {
namespace {

using forms::frmRuleAddProps;

class SmartAddTest : public SmartFixture {
protected:
    std::unique_ptr<frmRuleAddProps> OpenSettings()
    {
        auto form = std::make_unique<frmRuleAddProps>(*m_db, *m_report);
        form->Form_Load();
        return form;
    }
    QVariantMap Settings()
    {
        const auto rows =
            Rows(QStringLiteral("SELECT raRuleName, raFrom, raTo, raCc, raSubject, raImportance, raStatus, "
                                "raMsgAge FROM Settings"));
        return rows.isEmpty() ? QVariantMap() : rows.front();
    }
    static QString Shown(frmRuleAddProps& f, const char* list)
    {
        return Child<QComboBox>(f, list)->currentText();
    }
    static bool Checked(frmRuleAddProps& f, const char* box) { return Child<QCheckBox>(f, box)->isChecked(); }
};

// Stored codes -> what the form shows. The age list is in duration order,
// so codes that a positional list would misread are part of the table.
TEST_F(SmartAddTest, StoredChoicesSelectTheirEntries)
{
    const struct {
        const char* settings;  // SET clause; "" keeps the template's row
        const char* name;
        const char* status;
        const char* age;
        bool from, to, cc, subject, importance;
    } cases[] = {
        {"", "Email Subject", "Read", "1 hour", true, true, false, true, true},
        {"raMsgAge=15", "Email Subject", "Read", "3 days", true, true, false, true, true},
        {"raMsgAge=12, raRuleName=3, raStatus=2", "Leave Blank", "Any", "1 year", true, true, false, true,
         true},
        {"raMsgAge=NULL, raStatus=NULL", "Email Subject", "Unread", "4 hours", true, true, false, true, true},
        {"raMsgAge=18, raRuleName=9", "Email Subject", "Read", "4 hours", true, true, false, true, true},
        {"raFrom=0, raTo=0, raCc=1, raSubject=0, raImportance=0", "Email Subject", "Read", "1 hour", false,
         false, true, false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.settings);
        // Each case starts from the choices the upgrade writes.
        Sql(
            QStringLiteral("UPDATE settings SET raRuleName=0, raFrom=1, raTo=1, raCc=0, raSubject=1, "
                           "raImportance=1, raStatus=1, raMsgAge=1"));
        if (*c.settings) Sql(QStringLiteral("UPDATE settings SET %1").arg(QLatin1String(c.settings)));
        auto form = OpenSettings();
        EXPECT_EQ(Shown(*form, "cmbRuleName"), QLatin1String(c.name));
        EXPECT_EQ(Shown(*form, "cmbStatus"), QLatin1String(c.status));
        EXPECT_EQ(Shown(*form, "cmbMsgAge"), QLatin1String(c.age));
        EXPECT_EQ(Checked(*form, "chkFrom"), c.from);
        EXPECT_EQ(Checked(*form, "chkTo"), c.to);
        EXPECT_EQ(Checked(*form, "chkCC"), c.cc);
        EXPECT_EQ(Checked(*form, "chkSubject"), c.subject);
        EXPECT_EQ(Checked(*form, "chkImportance"), c.importance);
    }
}

TEST_F(SmartAddTest, OkSavesEveryControlAndCancelSavesNothing)
{
    auto form = OpenSettings();
    const QVariantMap before = Settings();
    auto change = [&](frmRuleAddProps& f) {
        auto* name = Child<QComboBox>(f, "cmbRuleName");
        name->setCurrentIndex(name->findText(QStringLiteral("Destination Email")));
        auto* status = Child<QComboBox>(f, "cmbStatus");
        status->setCurrentIndex(status->findText(QStringLiteral("Unread")));
        // Out of identifier order: a list that saved positions would store 8.
        auto* age = Child<QComboBox>(f, "cmbMsgAge");
        age->setCurrentIndex(age->findText(QStringLiteral("3 days")));
        Child<QCheckBox>(f, "chkFrom")->setChecked(false);
        Child<QCheckBox>(f, "chkCC")->setChecked(true);
    };
    change(*form);
    Child<QPushButton>(*form, "btnCancel")->click();
    EXPECT_EQ(form->result(), QDialog::Rejected);
    EXPECT_EQ(Settings(), before);

    form = OpenSettings();
    change(*form);
    Child<QPushButton>(*form, "btnOK")->click();
    const QVariantMap after = Settings();
    EXPECT_EQ(after.value(QStringLiteral("raRuleName")).toInt(), 2);
    EXPECT_EQ(after.value(QStringLiteral("raFrom")).toInt(), 0);
    EXPECT_EQ(after.value(QStringLiteral("raTo")).toInt(), 1);
    EXPECT_EQ(after.value(QStringLiteral("raCc")).toInt(), 1);
    EXPECT_EQ(after.value(QStringLiteral("raSubject")).toInt(), 1);
    EXPECT_EQ(after.value(QStringLiteral("raImportance")).toInt(), 1);
    EXPECT_EQ(after.value(QStringLiteral("raStatus")).toInt(), 0);
    EXPECT_EQ(after.value(QStringLiteral("raMsgAge")).toInt(), 15);
}

TEST_F(SmartAddTest, FailedSaveIsReportedAndStillCloses)
{
    Sql(QStringLiteral(
        "CREATE TRIGGER no_change BEFORE UPDATE ON settings BEGIN SELECT RAISE(ABORT, 'locked'); END"));
    auto form = OpenSettings();
    Child<QCheckBox>(*form, "chkCC")->setChecked(true);
    Child<QPushButton>(*form, "btnOK")->click();
    // The store reports the failed statement, the form what it means.
    m_expectedReports = 2;
    EXPECT_TRUE(m_answerer.texts().contains(QStringLiteral("Unable to save settings, update failed")));
    EXPECT_EQ(form->result(), QDialog::Accepted);
    EXPECT_EQ(Settings().value(QStringLiteral("raCc")).toInt(), 0);
}

// Smart Add end to end: the settings form writes the choices, the toolbar's
// entry point opens the editor on the message selected in the Home Inbox.
struct PrefillCase {
    const char* name;
    const char* ruleName;  // cmbRuleName entry
    bool from, to, cc, subject, importance;
    const char* status;
    const char* age;
    // What the editor shows.
    const char *txtRuleName, *txtFrom, *txtTo, *txtCC, *txtSubject, *cmbImportance;
};
void PrintTo(const PrefillCase& c, std::ostream* os)
{
    *os << c.name;
}

class SmartAddPrefillTest : public SmartAddTest, public ::testing::WithParamInterface<PrefillCase> {};

TEST_P(SmartAddPrefillTest, EditorTakesWhatTheSettingsSay)
{
    const PrefillCase& c = GetParam();
    {
        auto settings = OpenSettings();
        auto pick = [&](const char* list, const char* label) {
            auto* box = Child<QComboBox>(*settings, list);
            box->setCurrentIndex(box->findText(QLatin1String(label)));
        };
        pick("cmbRuleName", c.ruleName);
        pick("cmbStatus", c.status);
        pick("cmbMsgAge", c.age);
        Child<QCheckBox>(*settings, "chkFrom")->setChecked(c.from);
        Child<QCheckBox>(*settings, "chkTo")->setChecked(c.to);
        Child<QCheckBox>(*settings, "chkCC")->setChecked(c.cc);
        Child<QCheckBox>(*settings, "chkSubject")->setChecked(c.subject);
        Child<QCheckBox>(*settings, "chkImportance")->setChecked(c.importance);
        Child<QPushButton>(*settings, "btnOK")->click();
    }
    const QString id =
        Deliver(*m_home, QStringLiteral("Inbox"),
                "Delivered-To: me@home.example\r\nFrom: Ann Lee <ann@example.org>\r\n"
                "To: Me <me@home.example>\r\nCc: cat@example.org\r\nSubject: Quarterly numbers\r\n"
                "X-Priority: 5\r\nDate: Mon, 2 Mar 2026 10:00:00 +0000\r\n\r\nBody\r\n");
    auto explorer = ExplorerOn(QStringLiteral("Inbox"), id);

    bool seen = false;
    WhenShown<forms::frmRuleProps>([&](forms::frmRuleProps& editor) {
        seen = true;
        auto text = [&](const char* name) { return Child<QLineEdit>(editor, name)->text(); };
        EXPECT_EQ(text("txtRuleName"), QLatin1String(c.txtRuleName));
        EXPECT_EQ(text("txtFrom"), QLatin1String(c.txtFrom));
        EXPECT_EQ(text("txtTo"), QLatin1String(c.txtTo));
        EXPECT_EQ(text("txtCC"), QLatin1String(c.txtCC));
        EXPECT_EQ(text("txtSubject"), QLatin1String(c.txtSubject));
        EXPECT_EQ(text("txtSrcFolder"), QStringLiteral("Inbox"));
        EXPECT_EQ(Child<QComboBox>(editor, "cmbImportance")->currentText(), QLatin1String(c.cmbImportance));
        EXPECT_EQ(Child<QComboBox>(editor, "cmbStatus")->currentText(), QLatin1String(c.status));
        EXPECT_EQ(Child<QComboBox>(editor, "cmbMsgAge")->currentText(), QLatin1String(c.age));
        // Saved with a destination and a name of its own, so every case saves.
        m_picker.answers.push_back(m_ns->GetFolderFromID(m_archive->EntryID(), m_archive->StoreID()));
        Child<QPushButton>(editor, "btnDstFolderBrowse")->click();
        Child<QLineEdit>(editor, "txtRuleName")->setText(QStringLiteral("from smart add"));
        Child<QLineEdit>(editor, "txtMessage")->setText(QStringLiteral("numbers"));
        Child<QPushButton>(editor, "btnOK")->click();
    });
    EXPECT_TRUE(forms::ShowSmartAddForm(Context(), explorer.get()));
    EXPECT_TRUE(seen);
    const auto rows = Rows(QStringLiteral("SELECT SrcEntryID, FromAddress, Status FROM Rules"));
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows.front().value(QStringLiteral("SrcEntryID")).toString(), m_inbox->EntryID());
    EXPECT_EQ(rows.front().value(QStringLiteral("FromAddress")).toString(), QLatin1String(c.txtFrom));
}

const PrefillCase kPrefill[] = {
    {"SubjectNameAllParts", "Email Subject", true, true, true, true, true, "Read", "1 hour",
     "Quarterly numbers", "ann@example.org", "me@home.example", "cat@example.org", "Quarterly numbers",
     "Low"},
    {"SenderNameOnlySender", "From Email", true, false, false, false, false, "Unread", "3 days",
     "ann@example.org", "ann@example.org", "", "", "", "Any"},
    {"RecipientNameNoSender", "Destination Email", false, true, false, true, false, "Any", "Any Time",
     "me@home.example", "", "me@home.example", "", "Quarterly numbers", "Any"},
    {"BlankName", "Leave Blank", true, true, false, false, true, "Read", "1 year", "", "ann@example.org",
     "me@home.example", "", "", "Low"},
};
INSTANTIATE_TEST_SUITE_P(Settings, SmartAddPrefillTest, ::testing::ValuesIn(kPrefill),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace mv::test
