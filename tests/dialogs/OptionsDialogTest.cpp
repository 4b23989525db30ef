// The host's Options dialog with the add-in's page, over a real start-up
// and its mv.mdb: what OK, Apply and Cancel leave in the database.

#include "host/dialogs/OptionsDialog.h"

#include "addin/ctlMailvane.h"
#include "tests/addin/AddInFixture.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QTabWidget>

#include <sqlite3.h>

#include <map>

namespace mv::test {

using namespace Qt::StringLiterals;
namespace {

// The stored general settings, read straight from the file.
std::map<std::string, int> StoredSettings(const QString& path)
{
    std::map<std::string, int> out;
    sqlite3* db = nullptr;
    sqlite3_stmt* st = nullptr;
    const char* sql =
        "SELECT WeekStart, toolbar, menubar, runOnStart, statusPopups, alignTime, init FROM Settings";
    if (sqlite3_open_v2(path.toUtf8().constData(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
        sqlite3_prepare_v2(db, sql, -1, &st, nullptr) == SQLITE_OK && sqlite3_step(st) == SQLITE_ROW) {
        for (int i = 0; i < sqlite3_column_count(st); ++i)
            out[sqlite3_column_name(st, i)] = sqlite3_column_int(st, i);
    }
    sqlite3_finalize(st);
    sqlite3_close(db);
    return out;
}

class OptionsDialogTest : public AddInTest {
protected:
    QString Database() const { return DataDir() + u"/mv.mdb"_s; }
    static addin::ctlMailvane* Page(host::OptionsDialog& d)
    {
        return d.findChild<addin::ctlMailvane*>("ctlMailvane");
    }
    static QComboBox* Week(host::OptionsDialog& d) { return Page(d)->findChild<QComboBox*>("cmbWeekStart"); }
    static void SetWeek(host::OptionsDialog& d, const char* day)
    {
        Week(d)->setCurrentIndex(Week(d)->findText(day));
    }
    static void Click(QWidget& w, const char* name) { w.findChild<QPushButton*>(name)->click(); }
    static QCheckBox* Box(QWidget& w, const char* name) { return w.findChild<QCheckBox*>(name); }
};

// A menu value of -1 means "no menu" to the start-up code (it wants > 0) and
// a week start outside the list shows nothing: saving the page with another
// change must leave both as they were.
TEST_F(OptionsDialogTest, ThePageShowsTheSettingsAndKeepsUnusualOnes)
{
    addin::OutAddIn& addIn = Start();
    addIn.SetWeekStart(4);
    addIn.SetMenubar(0);
    addIn.SetRunOnStart(1);
    {
        host::OptionsDialog dialog(*m_app, m_progIds);
        ASSERT_NE(Page(dialog), nullptr);
        EXPECT_EQ(Week(dialog)->currentText(), "Wednesday");
        EXPECT_TRUE(Box(dialog, "chkToolbar")->isChecked());
        EXPECT_FALSE(Box(dialog, "chkMenubar")->isChecked());
        EXPECT_TRUE(Box(dialog, "chkRunOnStart")->isChecked());
        EXPECT_FALSE(dialog.findChild<QPushButton*>("btnApply")->isEnabled()) << "nothing changed yet";
    }
    addIn.SetMenubar(-1);
    addIn.SetWeekStart(9);
    host::OptionsDialog dialog(*m_app, m_progIds);
    ASSERT_NE(Page(dialog), nullptr);
    EXPECT_FALSE(Box(dialog, "chkMenubar")->isChecked());
    EXPECT_EQ(Week(dialog)->currentIndex(), -1);
    Box(dialog, "chkToolbar")->setChecked(false);
    Click(dialog, "btnOK");
    const auto stored = StoredSettings(Database());
    EXPECT_EQ(stored.at("menubar"), -1);
    EXPECT_EQ(stored.at("WeekStart"), 9);
    EXPECT_EQ(stored.at("toolbar"), 0);
}

TEST_F(OptionsDialogTest, ApplyAndOkStoreEverySettingAndCancelDropsTheRest)
{
    Start();
    const auto before = StoredSettings(Database());
    ASSERT_EQ(before.size(), 7u);
    {
        host::OptionsDialog dialog(*m_app, m_progIds);
        ASSERT_NE(Page(dialog), nullptr);
        SetWeek(dialog, "Saturday");
        Click(dialog, "btnApply");
        EXPECT_EQ(StoredSettings(Database()).at("WeekStart"), 7);
        EXPECT_FALSE(dialog.findChild<QPushButton*>("btnApply")->isEnabled());
        SetWeek(dialog, "Sunday");
        Click(dialog, "btnCancel");
        EXPECT_EQ(dialog.result(), QDialog::Rejected);
        EXPECT_EQ(StoredSettings(Database()).at("WeekStart"), 7);
    }
    host::OptionsDialog dialog(*m_app, m_progIds);
    ASSERT_NE(Page(dialog), nullptr);
    // Every value the opposite of what the template holds.
    SetWeek(dialog, "Friday");
    const std::pair<const char*, const char*> boxes[] = {{"chkToolbar", "toolbar"},
                                                         {"chkMenubar", "menubar"},
                                                         {"chkRunOnStart", "runOnStart"},
                                                         {"chkStatusPops", "statusPopups"},
                                                         {"chkAlignTime", "alignTime"}};
    for (const auto& [box, column] : boxes) Box(dialog, box)->setChecked(before.at(column) == 0);
    EXPECT_TRUE(dialog.findChild<QPushButton*>("btnApply")->isEnabled());
    Click(dialog, "btnOK");
    EXPECT_EQ(dialog.result(), QDialog::Accepted);

    const auto after = StoredSettings(Database());
    EXPECT_EQ(after.at("WeekStart"), 6);
    for (const auto& [box, column] : boxes)
        EXPECT_EQ(after.at(column), before.at(column) == 0 ? 1 : 0) << column;
    EXPECT_EQ(after.at("init"), 1);
    EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(u'|').toStdString();
}

TEST_F(OptionsDialogTest, AFailedSaveIsReportedAndTheChangeStaysPending)
{
    Start();
    const int stored = StoredSettings(Database()).at("WeekStart");
    host::OptionsDialog dialog(*m_app, m_progIds);
    addin::ctlMailvane* page = Page(dialog);
    ASSERT_NE(page, nullptr);
    AddIn().CloseDatabases();  // the connection is gone
    SetWeek(dialog, stored == 3 ? "Monday" : "Tuesday");
    Click(dialog, "btnApply");
    ASSERT_EQ(m_answerer.shown().size(), 1u);
    EXPECT_TRUE(m_answerer.shown()[0].text.endsWith("in procedure SaveSettings of Class Module OutAddIn"))
        << m_answerer.shown()[0].text.toStdString();
    EXPECT_TRUE(page->Dirty());
    EXPECT_TRUE(dialog.findChild<QPushButton*>("btnApply")->isEnabled()) << "the user may try again";
    EXPECT_EQ(StoredSettings(Database()).at("WeekStart"), stored);
    Click(dialog, "btnOK");
    EXPECT_NE(dialog.result(), QDialog::Accepted) << "OK does not close over an unsaved change";
    EXPECT_EQ(m_answerer.shown().size(), 2u);
}

TEST_F(OptionsDialogTest, PagesThatCannotBeMade)
{
    Start();
    m_progIds.Unregister(QString::fromLatin1(addin::kOptionsPageProgId));
    {
        host::OptionsDialog dialog(*m_app, m_progIds);
        EXPECT_EQ(dialog.PageCount(), 0u);
        auto* missing = dialog.findChild<QLabel*>("lblMissingPage");
        ASSERT_NE(missing, nullptr);
        EXPECT_TRUE(missing->text().contains("MailvaneProps.ctlMailvane"));
        EXPECT_EQ(dialog.findChild<QTabWidget*>("tabPages")->tabText(0), "Mailvane");
    }
    // Once the add-in is gone it adds no page, and its factory went with it.
    m_connect->OnDisconnection(outlook::ext_dm_UserClosed);
    host::OptionsDialog dialog(*m_app, m_progIds);
    EXPECT_NE(dialog.findChild<QLabel*>("lblNoPages"), nullptr);
    EXPECT_FALSE(m_progIds.Contains(QString::fromLatin1(addin::kOptionsPageProgId)));
}

}  // namespace
}  // namespace mv::test
