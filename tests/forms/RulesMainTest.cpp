// The Rules Manager on a real rule database and a real Maildir store.

#include "RulesMainFixture.h"

#include "forms/frmRulePreview.h"
#include "forms/frmRuleProps.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QTest>

namespace mv::test {
namespace {

const std::initializer_list<const char*> kRowButtons = {
    "btnExport",   "btnPreview", "btnCheckNone", "btnCheckAll", "btnRunNow",
    "btnMoveDown", "btnMoveUp",  "btnDelete",    "btnModify",   "btnCopy"};

class RulesMainTest : public RulesMainFixture {
protected:
    // Three rules with gaps in their order: Alpha (5), Beta (9, inactive), Gamma (20).
    void AddThree()
    {
        AddRule(QStringLiteral("Alpha"), 5, true);
        AddRule(QStringLiteral("Beta"), 9, false);
        AddRule(QStringLiteral("Gamma"), 20, true);
    }
    bool Pending(forms::frmRulesMain& form)
    {
        return Button(form, "btnApply")->isEnabled() && !Button(form, "btnRunNow")->isEnabled();
    }
};

TEST_F(RulesMainTest, LoadsRulesInOrderWithChecksAndTotals)
{
    AddThree();
    auto form = Open();
    EXPECT_EQ(form->windowTitle(), QStringLiteral(" Mailvane Rules Manager"));
    EXPECT_EQ(ListNames(*form), QStringList({"Alpha", "Beta", "Gamma"}));
    QTreeWidget* list = List(*form);
    EXPECT_EQ(list->topLevelItem(0)->checkState(0), Qt::Checked);
    EXPECT_EQ(list->topLevelItem(1)->checkState(0), Qt::Unchecked);
    EXPECT_EQ(form->findChild<QLabel*>(QStringLiteral("lblTotalRules"))->text(),
              QStringLiteral("3 rules total, 2 active"));
    EXPECT_FALSE(Button(*form, "btnApply")->isEnabled());
    EXPECT_EQ(Enabled(*form, kRowButtons),
              QStringLiteral("btnExport btnPreview btnCheckNone btnCheckAll btnRunNow "
                             "btnMoveDown btnMoveUp btnDelete btnModify btnCopy"));
}

// Made wider, the dialog gives the room to the rule list, not to the
// column of buttons beside it.
TEST_F(RulesMainTest, TheRuleListTakesTheSpareWidth)
{
    AddThree();
    auto form = Open();
    form->show();
    form->resize(900, 500);
    QApplication::processEvents();
    const int buttons = Button(*form, "btnNew")->width();
    EXPECT_LE(buttons, Button(*form, "btnNew")->sizeHint().width() +
                           Button(*form, "btnCheckNone")->sizeHint().width());
    EXPECT_GT(List(*form)->width(), 2 * buttons);
}

TEST_F(RulesMainTest, EmptyStoreDisablesEveryRowCommand)
{
    auto form = Open();
    EXPECT_EQ(form->findChild<QLabel*>(QStringLiteral("lblTotalRules"))->text(),
              QStringLiteral("0 rules total, 0 active"));
    EXPECT_EQ(Enabled(*form, kRowButtons), QString());
    EXPECT_TRUE(Button(*form, "btnNew")->isEnabled());
}

TEST_F(RulesMainTest, ReorderThenApplyStoresOneToNInListOrder)
{
    AddThree();
    auto form = Open();
    Select(*form, {2});
    Button(*form, "btnMoveUp")->click();  // Alpha Gamma Beta
    Button(*form, "btnMoveUp")->click();  // Gamma Alpha Beta
    EXPECT_TRUE(Pending(*form));
    List(*form)->topLevelItem(2)->setCheckState(0, Qt::Checked);        // Beta on
    EXPECT_EQ(StoredOrder(), QStringList({"Alpha", "Beta", "Gamma"}));  // nothing saved yet

    Button(*form, "btnApply")->click();
    const auto rows = Rows(QStringLiteral("SELECT RuleName, SortID, Active FROM Rules ORDER BY SortID"));
    ASSERT_EQ(rows.size(), 3);
    const char* expected[] = {"Gamma", "Alpha", "Beta"};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(rows[i].value(QStringLiteral("RuleName")).toString(), QLatin1String(expected[i]));
        EXPECT_EQ(rows[i].value(QStringLiteral("SortID")).toInt(), i + 1);
        EXPECT_EQ(rows[i].value(QStringLiteral("Active")).toInt(), -1);
    }
    EXPECT_FALSE(Button(*form, "btnApply")->isEnabled());
    EXPECT_TRUE(Button(*form, "btnRunNow")->isEnabled());
}

TEST_F(RulesMainTest, MovesAtTheEdgesChangeNothingButStillMarkPending)
{
    AddThree();
    struct Case {
        const char* button;
        int row;
    };
    for (const Case c : {Case{"btnMoveUp", 0}, Case{"btnMoveDown", 2}, Case{"btnMoveUp", -1}}) {
        auto form = Open();
        if (c.row >= 0) Select(*form, {c.row});
        Button(*form, c.button)->click();
        EXPECT_EQ(ListNames(*form), QStringList({"Alpha", "Beta", "Gamma"})) << c.button << c.row;
        EXPECT_TRUE(Pending(*form)) << c.button << c.row;
        // Selecting a row again does not re-enable the run while changes are pending.
        Select(*form, {1});
        EXPECT_FALSE(Button(*form, "btnRunNow")->isEnabled());
    }
}

TEST_F(RulesMainTest, KeyboardMovesReachTheTopAndTheBottom)
{
    struct Case {
        int row;
        Qt::Key key;
        std::initializer_list<const char*> order;
    };
    AddRule(QStringLiteral("A"), 1, true);
    AddRule(QStringLiteral("B"), 2, true);
    AddRule(QStringLiteral("C"), 3, true);
    AddRule(QStringLiteral("D"), 4, true);
    for (const Case& c :
         {Case{2, Qt::Key_Home, {"C", "A", "B", "D"}}, Case{0, Qt::Key_End, {"B", "C", "D", "A"}},
          Case{1, Qt::Key_Up, {"B", "A", "C", "D"}}, Case{1, Qt::Key_Down, {"A", "C", "B", "D"}}}) {
        auto form = Open();
        Select(*form, {c.row});
        QTest::keyClick(List(*form), c.key, Qt::ControlModifier);
        QStringList expected;
        for (const char* name : c.order) expected << QString::fromLatin1(name);
        EXPECT_EQ(ListNames(*form), expected) << c.key;
        EXPECT_TRUE(Pending(*form));
        // The moved rule stays selected.
        const QList<int> selected = form->SelectedPositions();
        ASSERT_EQ(selected.size(), 1);
        EXPECT_EQ(expected.at(selected.front() - 1), QString(QChar(u'A' + c.row)));
    }
}

TEST_F(RulesMainTest, ColumnSortThenApplyStoresTheSortedOrder)
{
    AddRule(QStringLiteral("b"), 1, true);
    AddRule(QStringLiteral("c"), 2, true);
    AddRule(QStringLiteral("a"), 3, true);
    auto form = Open();
    QHeaderView* header = List(*form)->header();
    const QPoint heading(header->sectionViewportPosition(0) + 20, header->height() / 2);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, heading);
    EXPECT_EQ(ListNames(*form), QStringList({"a", "b", "c"}));
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, heading);
    EXPECT_EQ(ListNames(*form), QStringList({"c", "b", "a"}));
    EXPECT_TRUE(Button(*form, "btnApply")->isEnabled());
    Button(*form, "btnApply")->click();
    EXPECT_EQ(StoredOrder(), QStringList({"c", "b", "a"}));
}

struct CancelCase {
    const char* name;
    int answer;
    bool saved;
    bool closed;
};

class CancelTest : public RulesMainTest, public ::testing::WithParamInterface<CancelCase> {};

TEST_P(CancelTest, CheckNoneThenCancelAsks)
{
    AddThree();
    auto form = Open();
    Button(*form, "btnCheckNone")->click();
    m_answerer.Queue(GetParam().answer);
    Button(*form, "btnCancel")->click();
    ASSERT_EQ(m_answerer.shown().size(), 1u);
    EXPECT_EQ(
        m_answerer.shown()[0].text,
        QStringLiteral("You have made changes that have not been saved\r\nDo you want to save them now?"));
    EXPECT_EQ(m_answerer.shown()[0].style, os::vbYesNoCancel + os::vbExclamation);
    EXPECT_EQ(m_answerer.shown()[0].title, QStringLiteral("Mailvane"));
    const int active = Rows(QStringLiteral("SELECT * FROM Rules WHERE Active <> 0")).size();
    EXPECT_EQ(active, GetParam().saved ? 0 : 2);
    EXPECT_EQ(form->isVisible(), !GetParam().closed);
}

INSTANTIATE_TEST_SUITE_P(Answers, CancelTest,
                         ::testing::Values(CancelCase{"Yes", os::vbYes, true, true},
                                           CancelCase{"No", os::vbNo, false, true},
                                           CancelCase{"Cancel", os::vbCancel, false, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(RulesMainTest, CancelWithoutChangesClosesWithoutAQuestion)
{
    AddThree();
    auto form = Open();
    QTest::keyClick(form.get(), Qt::Key_Escape);
    EXPECT_FALSE(form->isVisible());
    EXPECT_TRUE(m_answerer.shown().empty());
}

TEST_F(RulesMainTest, TwoSelectedRowsAllowOnlyDeleteAndDeleteRemovesBoth)
{
    AddThree();
    auto form = Open();
    Select(*form, {0, 2});
    EXPECT_EQ(Enabled(*form, {"btnModify", "btnCopy", "btnPreview", "btnMoveUp", "btnMoveDown", "btnDelete"}),
              QStringLiteral("btnDelete"));

    m_answerer.Queue(os::vbNo);
    Button(*form, "btnDelete")->click();
    EXPECT_EQ(StoredOrder(), QStringList({"Alpha", "Beta", "Gamma"}));

    m_answerer.Queue(os::vbYes);
    QTest::keyClick(List(*form), Qt::Key_Delete);
    EXPECT_EQ(m_answerer.shown().back().text, QStringLiteral("Delete the selected Rule(s)?"));
    EXPECT_EQ(m_answerer.shown().back().style, os::vbYesNo + os::vbExclamation);
    EXPECT_EQ(StoredOrder(), QStringList({"Beta"}));
    EXPECT_EQ(ListNames(*form), QStringList({"Beta"}));
}

TEST_F(RulesMainTest, DuplicateGivesAnInactiveCopyNextToItsSource)
{
    AddRule(QStringLiteral("Alpha"), 1, true);
    const int beta = AddRule(QStringLiteral("Beta"), 2, true, QStringLiteral("invoice"));
    AddRule(QStringLiteral("Gamma"), 3, true);
    Sql(QStringLiteral("UPDATE Rules SET FromAddress='alice@example.com', LastVerb=102, Message='words' "
                       "WHERE RuleID=%1")
            .arg(beta));
    auto form = Open();
    Select(*form, {1});
    Button(*form, "btnCopy")->click();
    EXPECT_EQ(ListNames(*form), QStringList({"Alpha", "Beta", "Beta Copy", "Gamma"}));
    EXPECT_EQ(List(*form)->topLevelItem(2)->checkState(0), Qt::Unchecked);

    const auto copy = Rows(QStringLiteral("SELECT * FROM Rules WHERE RuleName = 'Beta Copy'"));
    const auto source = Rows(QStringLiteral("SELECT * FROM Rules WHERE RuleID = %1").arg(beta));
    ASSERT_EQ(copy.size(), 1);
    for (const char* column : {"FromAddress", "Subject", "Importance", "Status", "MsgAgeID", "SrcEntryID",
                               "SrcStoreID", "DstEntryID", "DstStoreID", "SortID"})
        EXPECT_EQ(copy[0].value(QLatin1String(column)), source[0].value(QLatin1String(column))) << column;
    EXPECT_EQ(copy[0].value(QStringLiteral("Active")).toInt(), 0);
    // Last verb and message words are not carried over.
    EXPECT_EQ(source[0].value(QStringLiteral("LastVerb")).toInt(), 102);
    EXPECT_TRUE(copy[0].value(QStringLiteral("LastVerb")).isNull());
    EXPECT_TRUE(copy[0].value(QStringLiteral("Message")).isNull());
}

// Renames through the list's own editor, as the user types them.
class RenameTest : public RulesMainTest {
protected:
    void Rename(forms::frmRulesMain& form, int row, const QString& text)
    {
        QTreeWidget* list = List(form);
        Select(form, {row});
        list->editItem(list->topLevelItem(row), 0);
        auto* editor = list->findChild<QLineEdit*>(QStringLiteral("txtRename"));
        ASSERT_NE(editor, nullptr);
        editor->setText(text);
        QTest::keyClick(editor, Qt::Key_Return);
        QCoreApplication::processEvents();  // the delegate commits on a queued call
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    QList<QVariantMap> Snapshot() { return Rows(QStringLiteral("SELECT * FROM Rules ORDER BY RuleID")); }
};

TEST_F(RenameTest, RenameWritesAtOnceWithoutTouchingApply)
{
    AddThree();
    auto form = Open();
    Rename(*form, 1, QStringLiteral("Bills; DELETE FROM Rules"));
    EXPECT_EQ(StoredOrder(), QStringList({"Alpha", "Bills; DELETE FROM Rules", "Gamma"}));
    EXPECT_FALSE(Button(*form, "btnApply")->isEnabled());
}

TEST_F(RenameTest, EmptyNameIsRefused)
{
    AddThree();
    auto form = Open();
    Rename(*form, 1, QString());
    EXPECT_EQ(ListNames(*form), QStringList({"Alpha", "Beta", "Gamma"}));
    EXPECT_EQ(StoredOrder(), QStringList({"Alpha", "Beta", "Gamma"}));
}

TEST_F(RenameTest, ApostropheFailsAndCraftedNamesChangeNothing)
{
    AddThree();
    const auto before = Snapshot();
    auto form = Open();
    const QString names[] = {QStringLiteral("O'Brien"), QStringLiteral("', Active=0 WHERE 1=1 --"),
                             QStringLiteral("x', RuleName='y"), QStringLiteral("'")};
    for (const QString& name : names) {
        m_answerer.clear();
        Rename(*form, 1, name);
        ASSERT_EQ(m_answerer.shown().size(), 1u) << name.toStdString();
        const QString text = m_answerer.shown()[0].text;
        EXPECT_TRUE(text.startsWith(QStringLiteral("Error -2147217900 (Syntax error"))) << text.toStdString();
        EXPECT_TRUE(
            text.endsWith(QStringLiteral("in procedure ListView1_AfterLabelEdit of Form frmRulesMain")))
            << text.toStdString();
        // The list keeps what was typed until the next reload.
        EXPECT_EQ(List(*form)->topLevelItem(1)->text(0), name);
        EXPECT_EQ(Snapshot(), before) << name.toStdString();
    }
    m_answerer.clear();  // the reports were expected
}

TEST_F(RulesMainTest, PreviewListsWhatWouldMoveAndMovesNothing)
{
    AddMail(QStringLiteral("Inbox"), QStringLiteral("Invoice 17"));
    AddMail(QStringLiteral("Inbox"), QStringLiteral("Invoice 18"));
    AddMail(QStringLiteral("Inbox"), QStringLiteral("Lunch"));
    AddRule(QStringLiteral("Other"), 1, true, QStringLiteral("nothing-matches-this"));
    AddRule(QStringLiteral("Bills"), 2, false, QStringLiteral("Invoice"));
    auto form = Open();

    QString caption;
    QStringList lines;
    onModal = [&](QDialog& dialog) {
        auto* preview = dynamic_cast<forms::frmRulePreview*>(&dialog);
        ASSERT_NE(preview, nullptr);
        caption = preview->windowTitle();
        auto* list = preview->findChild<QListWidget*>(QStringLiteral("lstPreview"));
        for (int i = 0; i < list->count(); ++i) lines << list->item(i)->text();
        preview->findChild<QAbstractButton*>(QStringLiteral("btnOK"))->click();
    };
    Select(*form, {1});
    Button(*form, "btnPreview")->click();
    EXPECT_EQ(caption, QStringLiteral("Rule Preview: Bills"));
    lines.sort();
    EXPECT_EQ(lines, QStringList({"Invoice 17", "Invoice 18"}));
    EXPECT_EQ(Subjects(QStringLiteral("Inbox")), QStringList({"Invoice 17", "Invoice 18", "Lunch"}));
    EXPECT_TRUE(Subjects(QStringLiteral("Archive")).isEmpty());

    lines.clear();
    Select(*form, {0});
    Button(*form, "btnPreview")->click();
    EXPECT_TRUE(lines.isEmpty());
    EXPECT_EQ(caption, QStringLiteral("Rule Preview: Other"));
}

TEST_F(RulesMainTest, PreviewOfARuleWhoseDestinationIsGoneShowsNoForm)
{
    const int id = AddRule(QStringLiteral("Lost"), 1, true, QStringLiteral("x"));
    auto form = Open();
    // Point the destination at a folder that does not exist.
    ASSERT_TRUE(m_p->addIn->DB1()->ExecuteSQL(
        QStringLiteral("UPDATE Rules SET DstEntryID='4D564D3146FFFFFFFF' WHERE RuleID=%1").arg(id)));
    Select(*form, {0});
    Button(*form, "btnPreview")->click();  // onModal unset: a form would fail the test
    ASSERT_EQ(m_answerer.shown().size(), 1u);
    EXPECT_EQ(m_answerer.shown()[0].text,
              QStringLiteral("The Destination Folder for rule: Lost can not be found."));
    EXPECT_EQ(m_answerer.shown()[0].style, os::vbExclamation);
}

TEST_F(RulesMainTest, RunAllNowRunsTheActiveRulesAndCloses)
{
    AddMail(QStringLiteral("Inbox"), QStringLiteral("Invoice 17"));
    AddMail(QStringLiteral("Inbox"), QStringLiteral("Lunch"));
    AddRule(QStringLiteral("Bills"), 1, true, QStringLiteral("Invoice"));
    AddRule(QStringLiteral("Food"), 2, false, QStringLiteral("Lunch"));
    auto form = Open();
    Button(*form, "btnRunNow")->click();
    EXPECT_FALSE(form->isVisible());
    EXPECT_EQ(form->result(), QDialog::Accepted);
    EXPECT_EQ(Subjects(QStringLiteral("Archive")), QStringList({"Invoice 17"}));
    EXPECT_EQ(Subjects(QStringLiteral("Inbox")), QStringList({"Lunch"}));
}

TEST_F(RulesMainTest, DoubleClickModifiesTheRowAndReloads)
{
    AddRule(QStringLiteral("Alpha"), 1, true, QStringLiteral("a"));
    AddRule(QStringLiteral("Beta"), 2, true, QStringLiteral("b"));
    AddRule(QStringLiteral("Gamma"), 3, true, QStringLiteral("c"));
    auto form = Open();
    int opened = 0;
    onModal = [&](QDialog& dialog) {
        ++opened;
        auto* editor = dynamic_cast<forms::frmRuleProps*>(&dialog);
        ASSERT_NE(editor, nullptr);
        EXPECT_EQ(editor->Action, QStringLiteral("Update"));
        editor->findChild<QLineEdit*>(QStringLiteral("txtRuleName"))->setText(QStringLiteral("Beta 2"));
        editor->findChild<QAbstractButton*>(QStringLiteral("btnOK"))->click();
    };
    const QPoint onBeta = List(*form)->visualItemRect(List(*form)->topLevelItem(1)).center();
    QTest::mouseClick(List(*form)->viewport(), Qt::LeftButton, {}, onBeta);
    QTest::mouseDClick(List(*form)->viewport(), Qt::LeftButton, {}, onBeta);
    EXPECT_EQ(opened, 1);
    EXPECT_EQ(ListNames(*form), QStringList({"Alpha", "Beta 2", "Gamma"}));
    EXPECT_EQ(form->SelectedPositions(), QList<int>({2}));
}

TEST_F(RulesMainTest, NewRuleIsSavedWithThePendingOrder)
{
    AddThree();
    auto form = Open();
    Select(*form, {1});
    Button(*form, "btnMoveUp")->click();  // Beta Alpha Gamma, not saved
    onModal = [&](QDialog& dialog) {
        auto* editor = dynamic_cast<forms::frmRuleProps*>(&dialog);
        ASSERT_NE(editor, nullptr);
        EXPECT_EQ(editor->Action, QStringLiteral("New"));
        editor->findChild<QLineEdit*>(QStringLiteral("txtRuleName"))->setText(QStringLiteral("Delta"));
        editor->findChild<QLineEdit*>(QStringLiteral("txtSubject"))->setText(QStringLiteral("delta"));
        const QString storeHex = StoreHex();
        for (const char* folder : {"Inbox", "Archive"})
            m_picker.answers.push_back(m_p->ns->GetFolderFromID(FolderHex(QLatin1String(folder)), storeHex));
        editor->findChild<QAbstractButton*>(QStringLiteral("btnSrcFolderBrowse"))->click();
        editor->findChild<QAbstractButton*>(QStringLiteral("btnDstFolderBrowse"))->click();
        editor->findChild<QAbstractButton*>(QStringLiteral("btnOK"))->click();
    };
    Button(*form, "btnNew")->click();
    EXPECT_EQ(ListNames(*form), QStringList({"Beta", "Alpha", "Gamma", "Delta"}));
    EXPECT_EQ(StoredOrder(), QStringList({"Beta", "Alpha", "Gamma", "Delta"}));
    EXPECT_EQ(Rows(QStringLiteral("SELECT SortID FROM Rules WHERE SortID BETWEEN 1 AND 4")).size(), 4);
    EXPECT_FALSE(Button(*form, "btnApply")->isEnabled());
    EXPECT_TRUE(Button(*form, "btnRunNow")->isEnabled());
}

TEST_F(RulesMainTest, GetUpdatesWithoutAnUpdaterSaysWhereUpdatesComeFrom)
{
    auto form = Open();
    Button(*form, "btnUpdates")->click();
    ASSERT_EQ(m_answerer.shown().size(), 1u);
    EXPECT_EQ(m_answerer.shown()[0].style, os::vbInformation);
    EXPECT_TRUE(m_answerer.shown()[0].text.contains(QStringLiteral("package manager")));
}

TEST_F(RulesMainTest, GetUpdatesStartsTheUpdaterOfTheInstallation)
{
    os::Shell shell;
    m_shell = &shell;
    const QString install = m_p->addIn->InstallDir();
    QFile script(install + QStringLiteral("/update"));
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\necho started > \"$PWD/update.ran\"\n");
    script.close();
    script.setPermissions(script.permissions() | QFile::ExeOwner);
    auto form = Open();
    Button(*form, "btnUpdates")->click();
    EXPECT_TRUE(m_answerer.shown().empty());
    // Started without waiting: it leaves its mark in the installation folder.
    QDeadlineTimer deadline(10000);
    while (!QFile::exists(install + QStringLiteral("/update.ran")) && !deadline.hasExpired())
        QTest::qWait(20);
    EXPECT_TRUE(QFile::exists(install + QStringLiteral("/update.ran")));
}

}  // namespace
}  // namespace mv::test
