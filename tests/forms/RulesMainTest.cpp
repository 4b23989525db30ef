// The Rules Manager on a real rule database and real Maildir stores: order,
// checks, renames, preview, runs, and export and import between two profiles
// with their own databases and stores.

#include "FormsFixture.h"

#include "forms/QtFormLauncher.h"
#include "forms/frmRulePreview.h"

#include "platform/os/Shell.h"

#include <QFile>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QTest>

namespace mv::test {

using namespace Qt::StringLiterals;
namespace {

using Editor = forms::frmRuleProps;

const std::initializer_list<const char*> kRowButtons = {
    "btnExport",   "btnPreview", "btnCheckNone", "btnCheckAll", "btnRunNow",
    "btnMoveDown", "btnMoveUp",  "btnDelete",    "btnModify",   "btnCopy"};

class RulesMainTest : public FormsTest {
protected:
    // Three rules with gaps in their order: Alpha (5), Beta (9, inactive), Gamma (20).
    void AddThree()
    {
        AddRule(u"Alpha"_s, u"SortID=5"_s);
        AddRule(u"Beta"_s, u"SortID=9, Active=0"_s);
        AddRule(u"Gamma"_s, u"SortID=20"_s);
    }
    bool Pending(forms::frmRulesMain& form)
    {
        return Child(form, "btnApply")->isEnabled() && !Child(form, "btnRunNow")->isEnabled();
    }
    // Answers the next modal with the rule editor in `action` mode: `edit`,
    // then `profile`'s Inbox and Archive picked, then OK.
    void AnswerEditor(const char* action, std::function<void(Editor&)> edit, Profile* profile = nullptr,
                      int* opened = nullptr)
    {
        onModal = [=, this](QDialog& dialog) {
            auto* editor = dynamic_cast<Editor*>(&dialog);
            ASSERT_NE(editor, nullptr);
            if (opened) ++*opened;
            EXPECT_EQ(editor->Action, QLatin1String(action));
            if (edit) edit(*editor);
            m_picker.answers.push_back(Folder(u"Inbox"_s, nullptr, profile));
            m_picker.answers.push_back(Folder(u"Archive"_s, nullptr, profile));
            Click(*editor, "btnSrcFolderBrowse");
            Click(*editor, "btnDstFolderBrowse");
            Click(*editor, "btnOK");
        };
    }
};

// The first, empty, through the launcher the add-in calls.
TEST_F(RulesMainTest, LoadsRulesInOrderWithChecksAndTotals)
{
    forms::FormServices services{m_picker, m_contacts, m_answerer, m_report, m_files,
                                 nullptr,  nullptr,    {},         {},       {}};
    int shown = 0;
    services.runModal = [&](QDialog& empty) {
        ++shown;
        EXPECT_EQ(Child<QLabel>(empty, "lblTotalRules")->text(), u"0 rules total, 0 active"_s);
        EXPECT_EQ(Enabled(empty, kRowButtons), QString());
        EXPECT_TRUE(Child(empty, "btnNew")->isEnabled());
    };
    forms::QtFormLauncher(*m_p->addIn, services).ShowRulesManager();
    EXPECT_EQ(shown, 1);
    AddThree();
    auto form = OpenManager();
    EXPECT_EQ(ListNames(*form), QStringList({"Alpha", "Beta", "Gamma"}));
    EXPECT_EQ(List(*form)->topLevelItem(0)->checkState(0), Qt::Checked);
    EXPECT_EQ(List(*form)->topLevelItem(1)->checkState(0), Qt::Unchecked);
    EXPECT_EQ(Child<QLabel>(*form, "lblTotalRules")->text(), u"3 rules total, 2 active"_s);
    EXPECT_FALSE(Child(*form, "btnApply")->isEnabled());
    EXPECT_EQ(Enabled(*form, kRowButtons),
              u"btnExport btnPreview btnCheckNone btnCheckAll btnRunNow "
              "btnMoveDown btnMoveUp btnDelete btnModify btnCopy"_s);
}

// Sorted by its column heading, the list is stored in the order shown.
TEST_F(RulesMainTest, ReorderThenApplyStoresOneToNInListOrder)
{
    AddThree();
    auto form = OpenManager();
    QHeaderView* header = List(*form)->header();
    const QPoint heading(header->sectionViewportPosition(0) + 20, header->height() / 2);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, heading);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, heading);
    EXPECT_EQ(ListNames(*form), QStringList({"Gamma", "Beta", "Alpha"}));
    EXPECT_TRUE(Pending(*form));
    List(*form)->topLevelItem(1)->setCheckState(0, Qt::Checked);        // Beta on
    EXPECT_EQ(StoredOrder(), QStringList({"Alpha", "Beta", "Gamma"}));  // nothing saved yet

    Click(*form, "btnApply");
    const auto rows = Rows(u"SELECT RuleName, SortID, Active FROM Rules ORDER BY SortID"_s);
    ASSERT_EQ(rows.size(), 3);
    const char* expected[] = {"Gamma", "Beta", "Alpha"};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(rows[i].value(u"RuleName"_s).toString(), QLatin1String(expected[i]));
        EXPECT_EQ(rows[i].value(u"SortID"_s).toInt(), i + 1);
        EXPECT_EQ(rows[i].value(u"Active"_s).toInt(), -1);
    }
    EXPECT_FALSE(Child(*form, "btnApply")->isEnabled());
    EXPECT_TRUE(Child(*form, "btnRunNow")->isEnabled());
}

// Buttons and Ctrl+keys; at the edges or with nothing selected a move
// changes nothing but still marks the list pending.
TEST_F(RulesMainTest, MovesByButtonAndKeyboard)
{
    for (const char* name : {"A", "B", "C", "D"}) AddRule(QLatin1String(name));
    const struct {
        int row;  // -1: nothing selected
        const char* button;
        Qt::Key key;
        const char* order;
    } cases[] = {{2, nullptr, Qt::Key_Home, "CABD"}, {0, nullptr, Qt::Key_End, "BCDA"},
                 {1, nullptr, Qt::Key_Up, "BACD"},   {1, nullptr, Qt::Key_Down, "ACBD"},
                 {0, "btnMoveUp", {}, "ABCD"},       {3, "btnMoveDown", {}, "ABCD"},
                 {-1, "btnMoveUp", {}, "ABCD"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.row) + " " + (c.button ? c.button : std::to_string(c.key)));
        auto form = OpenManager();
        if (c.row >= 0) Select(*form, {c.row});
        if (c.button)
            Click(*form, c.button);
        else
            QTest::keyClick(List(*form), c.key, Qt::ControlModifier);
        EXPECT_EQ(ListNames(*form).join(QString()), QLatin1String(c.order));
        EXPECT_TRUE(Pending(*form));
        // The moved rule stays selected.
        const QList<int> selected = form->SelectedPositions();
        if (c.row >= 0 && !c.button) {
            ASSERT_EQ(selected.size(), 1);
            EXPECT_EQ(c.order[selected.front() - 1], 'A' + c.row);
        }
        // Selecting a row again does not re-enable the run while changes are pending.
        Select(*form, {1});
        EXPECT_FALSE(Child(*form, "btnRunNow")->isEnabled());
    }
}

TEST_F(RulesMainTest, CancelAsksOnlyAboutPendingChanges)
{
    AddThree();
    {
        auto form = OpenManager();
        QTest::keyClick(form.get(), Qt::Key_Escape);
        EXPECT_FALSE(form->isVisible());
        EXPECT_TRUE(m_answerer.shown().empty());
    }
    const struct {
        int answer;
        int active;  // stored afterwards
        bool closed;
    } cases[] = {{os::vbCancel, 2, false}, {os::vbNo, 2, true}, {os::vbYes, 0, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.answer);
        auto form = OpenManager();
        Click(*form, "btnCheckNone");
        m_answerer.clear();
        m_answerer.Queue(c.answer);
        Click(*form, "btnCancel");
        ASSERT_EQ(m_answerer.shown().size(), 1u);
        EXPECT_EQ(m_answerer.shown()[0].text,
                  u"You have made changes that have not been saved\r\nDo you want to save them now?"_s);
        EXPECT_EQ(m_answerer.shown()[0].style, os::vbYesNoCancel + os::vbExclamation);
        EXPECT_EQ(Rows(u"SELECT * FROM Rules WHERE Active <> 0"_s).size(), c.active);
        EXPECT_EQ(form->isVisible(), !c.closed);
    }
}

TEST_F(RulesMainTest, TwoSelectedRowsAllowOnlyDeleteAndDeleteRemovesBoth)
{
    AddThree();
    auto form = OpenManager();
    Select(*form, {0, 2});
    EXPECT_EQ(Enabled(*form, {"btnModify", "btnCopy", "btnPreview", "btnMoveUp", "btnMoveDown", "btnDelete"}),
              u"btnDelete"_s);
    m_answerer.Queue(os::vbNo);
    Click(*form, "btnDelete");
    EXPECT_EQ(StoredOrder(), QStringList({"Alpha", "Beta", "Gamma"}));
    m_answerer.Queue(os::vbYes);
    QTest::keyClick(List(*form), Qt::Key_Delete);
    EXPECT_EQ(m_answerer.shown().back().text, u"Delete the selected Rule(s)?"_s);
    EXPECT_EQ(m_answerer.shown().back().style, os::vbYesNo + os::vbExclamation);
    EXPECT_EQ(StoredOrder(), QStringList({"Beta"}));
    EXPECT_EQ(ListNames(*form), QStringList({"Beta"}));
}

TEST_F(RulesMainTest, DuplicateGivesAnInactiveCopyNextToItsSource)
{
    AddRule(u"Alpha"_s);
    const int beta = AddRule(u"Beta"_s,
                             u"Subject='invoice', "
                             "FromAddress='alice@example.com', LastVerb=102, "
                             "Message='words'"_s);
    AddRule(u"Gamma"_s);
    auto form = OpenManager();
    Select(*form, {1});
    Click(*form, "btnCopy");
    EXPECT_EQ(ListNames(*form), QStringList({"Alpha", "Beta", "Beta Copy", "Gamma"}));
    EXPECT_EQ(List(*form)->topLevelItem(2)->checkState(0), Qt::Unchecked);

    const auto copy = Rows(u"SELECT * FROM Rules WHERE RuleName = 'Beta Copy'"_s);
    const auto source = Rows(u"SELECT * FROM Rules WHERE RuleID = %1"_s.arg(beta));
    ASSERT_EQ(copy.size(), 1);
    for (const char* column : {"FromAddress", "Subject", "Importance", "Status", "MsgAgeID", "SrcEntryID",
                               "SrcStoreID", "DstEntryID", "DstStoreID", "SortID"})
        EXPECT_EQ(copy[0].value(QLatin1String(column)), source[0].value(QLatin1String(column))) << column;
    EXPECT_EQ(copy[0].value(u"Active"_s).toInt(), 0);
    // Last verb and message words are not carried over.
    EXPECT_TRUE(copy[0].value(u"LastVerb"_s).isNull());
    EXPECT_TRUE(copy[0].value(u"Message"_s).isNull());
}

// Renames through the list's own editor, as the user types them.
TEST_F(RulesMainTest, RenamesWriteAtOnceAndCraftedNamesChangeNothing)
{
    AddThree();
    const auto before = Rows(u"SELECT * FROM Rules ORDER BY RuleID"_s);
    auto form = OpenManager();
    auto rename = [&](const QString& text) {
        QTreeWidget* list = List(*form);
        Select(*form, {1});
        list->editItem(list->topLevelItem(1), 0);
        auto* editor = list->findChild<QLineEdit*>(u"txtRename"_s);
        ASSERT_NE(editor, nullptr);
        editor->setText(text);
        QTest::keyClick(editor, Qt::Key_Return);
        QCoreApplication::processEvents();  // the delegate commits on a queued call
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    };
    for (const QString& name : {u"O'Brien"_s, u"', Active=0 WHERE 1=1 --"_s, u"x', RuleName='y"_s, u"'"_s}) {
        SCOPED_TRACE(name.toStdString());
        m_answerer.clear();
        rename(name);
        ASSERT_EQ(m_answerer.shown().size(), 1u);
        const QString text = m_answerer.shown()[0].text;
        EXPECT_TRUE(text.startsWith(u"Error -2147217900 (Syntax error"_s)) << text.toStdString();
        EXPECT_TRUE(text.endsWith(u"in procedure ListView1_AfterLabelEdit of Form frmRulesMain"_s))
            << text.toStdString();
        // The list keeps what was typed until the next reload.
        EXPECT_EQ(List(*form)->topLevelItem(1)->text(0), name);
        EXPECT_EQ(Rows(u"SELECT * FROM Rules ORDER BY RuleID"_s), before);
    }
    m_answerer.clear();  // the reports were expected

    rename(QString());  // refused: the row keeps its text
    EXPECT_EQ(List(*form)->topLevelItem(1)->text(0), u"'"_s);
    EXPECT_EQ(StoredOrder(), QStringList({"Alpha", "Beta", "Gamma"}));
    rename(u"Bills; DELETE FROM Rules"_s);
    EXPECT_EQ(StoredOrder(), QStringList({"Alpha", "Bills; DELETE FROM Rules", "Gamma"}));
    EXPECT_FALSE(Child(*form, "btnApply")->isEnabled());
    EXPECT_TRUE(m_answerer.shown().empty());
}

TEST_F(RulesMainTest, PreviewListsWhatWouldMoveAndMovesNothing)
{
    for (const char* subject : {"Invoice 17", "Invoice 18", "Lunch"})
        AddMail(u"Inbox"_s, QLatin1String(subject));
    AddRule(u"Other"_s, u"Subject='nothing-matches-this'"_s);
    AddRule(u"Bills"_s, u"Subject='Invoice', Active=0"_s);
    const int lost = AddRule(u"Lost"_s, u"Subject='x'"_s);
    auto form = OpenManager();
    QString caption;
    QStringList lines;
    onModal = [&](QDialog& dialog) {
        auto* preview = dynamic_cast<forms::frmRulePreview*>(&dialog);
        ASSERT_NE(preview, nullptr);
        caption = preview->windowTitle();
        lines.clear();
        auto* list = Child<QListWidget>(*preview, "lstPreview");
        for (int i = 0; i < list->count(); ++i) lines << list->item(i)->text();
        Click(*preview, "btnOK");
    };
    Select(*form, {1});
    Click(*form, "btnPreview");
    EXPECT_EQ(caption, u"Rule Preview: Bills"_s);
    lines.sort();
    EXPECT_EQ(lines, QStringList({"Invoice 17", "Invoice 18"}));
    EXPECT_EQ(Subjects(u"Inbox"_s), QStringList({"Invoice 17", "Invoice 18", "Lunch"}));
    EXPECT_TRUE(Subjects(u"Archive"_s).isEmpty());
    Select(*form, {0});
    Click(*form, "btnPreview");
    EXPECT_TRUE(lines.isEmpty());
    EXPECT_EQ(caption, u"Rule Preview: Other"_s);

    // A rule whose destination is gone shows no form.
    onModal = nullptr;
    ASSERT_TRUE(m_p->addIn->DB1()->ExecuteSQL(
        u"UPDATE Rules SET DstEntryID='4D564D3146FFFFFFFF' WHERE RuleID=%1"_s.arg(lost)));
    Select(*form, {2});
    Click(*form, "btnPreview");
    ASSERT_EQ(m_answerer.shown().size(), 1u);
    EXPECT_EQ(m_answerer.shown()[0].text, u"The Destination Folder for rule: Lost can not be found."_s);
    EXPECT_EQ(m_answerer.shown()[0].style, os::vbExclamation);
}

TEST_F(RulesMainTest, NewRuleKeepsThePendingOrderAndDoubleClickModifiesTheRow)
{
    AddThree();
    auto form = OpenManager();
    Select(*form, {1});
    Click(*form, "btnMoveUp");  // Beta Alpha Gamma, not saved
    AnswerEditor("New", [](Editor& e) {
        SetText(e, "txtRuleName", u"Delta"_s);
        SetText(e, "txtSubject", u"delta"_s);
    });
    Click(*form, "btnNew");
    EXPECT_EQ(ListNames(*form), QStringList({"Beta", "Alpha", "Gamma", "Delta"}));
    EXPECT_EQ(StoredOrder(), QStringList({"Beta", "Alpha", "Gamma", "Delta"}));
    EXPECT_EQ(Rows(u"SELECT SortID FROM Rules WHERE SortID BETWEEN 1 AND 4"_s).size(), 4);
    EXPECT_FALSE(Child(*form, "btnApply")->isEnabled());
    EXPECT_TRUE(Child(*form, "btnRunNow")->isEnabled());

    int opened = 0;
    AnswerEditor(
        "Update",
        [](Editor& e) {
            SetText(e, "txtRuleName", u"Alpha 2"_s);
            SetText(e, "txtSubject", u"s"_s);
        },
        nullptr, &opened);
    const QPoint onAlpha = List(*form)->visualItemRect(List(*form)->topLevelItem(1)).center();
    QTest::mouseClick(List(*form)->viewport(), Qt::LeftButton, {}, onAlpha);
    QTest::mouseDClick(List(*form)->viewport(), Qt::LeftButton, {}, onAlpha);
    EXPECT_EQ(opened, 1);
    EXPECT_EQ(ListNames(*form), QStringList({"Beta", "Alpha 2", "Gamma", "Delta"}));
    EXPECT_EQ(form->SelectedPositions(), QList<int>({2}));
}

TEST_F(RulesMainTest, GetUpdatesStartsTheUpdaterOfTheInstallationOrSaysWhereUpdatesComeFrom)
{
    Click(*OpenManager(), "btnUpdates");  // no shell: nothing to start
    ASSERT_EQ(m_answerer.shown().size(), 1u);
    EXPECT_EQ(m_answerer.shown()[0].style, os::vbInformation);
    EXPECT_TRUE(m_answerer.shown()[0].text.contains(u"package manager"_s));

    m_answerer.clear();
    os::Shell shell;
    m_shell = &shell;
    const QString install = m_p->addIn->InstallDir();
    QFile script(install + u"/update"_s);
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\necho started > \"$PWD/update.ran\"\n");
    script.close();
    script.setPermissions(script.permissions() | QFile::ExeOwner);
    Click(*OpenManager(), "btnUpdates");
    EXPECT_TRUE(m_answerer.shown().empty());
    // Started without waiting: it leaves its mark in the installation folder.
    EXPECT_TRUE(QTest::qWaitFor([&] { return QFile::exists(install + u"/update.ran"_s); }, 10000));
}

QList<QVariantMap> WithoutIds(QList<QVariantMap> rows)
{
    for (auto& row : rows) row.remove(u"RuleID"_s);
    return rows;
}

TEST_F(RulesMainTest, ExportThenImportIntoAnotherProfileGivesTheSameRules)
{
    AddRule(u"Bills"_s, u"Subject='Invoice \"due now\"'"_s);
    AddRule(u"Lists"_s, u"Subject='digest', Active=0"_s);
    const QString file = m_tmp.filePath(u"rules.xml"_s);
    {
        auto form = OpenManager();
        Click(*form, "btnExport");  // both dialogs cancelled: nothing happens
        Click(*form, "btnImport");
        EXPECT_EQ(m_files.requests().size(), 2u);
        EXPECT_TRUE(m_answerer.shown().empty());
        EXPECT_EQ(StoredOrder(), QStringList({"Bills", "Lists"}));
        m_files.Queue(u"  "_s + file + u" "_s);
        Click(*form, "btnExport");
    }
    ASSERT_EQ(m_files.requests().size(), 3u);
    const os::FileDialogRequest& asked = m_files.requests()[2];
    EXPECT_EQ(asked.kind, os::FileDialogRequest::Kind::Save);
    EXPECT_EQ(asked.initialDir, m_p->dir + u"/install"_s);
    EXPECT_TRUE(asked.promptOverwrite);
    ASSERT_TRUE(QFile::exists(file));
    EXPECT_EQ(m_answerer.texts(), QStringList({"Rules Exported Successfully"}));

    auto second = MakeProfile(u"second"_s);
    AddRule(u"Already here"_s, u"Active=0"_s, second.get());
    AddMail(u"Inbox"_s, u"Invoice due now"_s, second.get());
    AddMail(u"Inbox"_s, u"Invoice paid"_s, second.get());
    auto form = OpenManager(second.get());
    Click(*form, "btnCheckNone");  // pending changes are dropped by the import
    m_files.Queue(file);
    Click(*form, "btnImport");
    EXPECT_EQ(m_answerer.texts().back(), u"Rules Imported Successfully"_s);
    EXPECT_EQ(ListNames(*form), QStringList({"Already here", "Bills", "Lists"}));
    EXPECT_FALSE(Child(*form, "btnApply")->isEnabled());
    EXPECT_TRUE(Child(*form, "btnRunNow")->isEnabled());
    auto imported = WithoutIds(Rows(u"SELECT * FROM Rules ORDER BY SortID, RuleName"_s, second.get()));
    imported.removeFirst();  // "Already here"
    EXPECT_EQ(imported, WithoutIds(Rows(u"SELECT * FROM Rules ORDER BY SortID, RuleName"_s)));

    // The folders belong to the first profile's store: the rule names them,
    // but in the second profile they must be picked again.
    m_answerer.clear();
    Select(*form, {1});
    Click(*form, "btnPreview");
    EXPECT_EQ(m_answerer.texts(), QStringList({"The Source Folder for rule: Bills can not be found."}));
    // Picked again in the editor, the imported rule runs in its new home.
    AnswerEditor("Update", nullptr, second.get());
    Select(*form, {1});
    Click(*form, "btnModify");
    Click(*form, "btnRunNow");
    EXPECT_EQ(form->result(), QDialog::Accepted);
    EXPECT_EQ(Subjects(u"Archive"_s, second.get()), QStringList({"Invoice due now"}));
    EXPECT_EQ(Subjects(u"Inbox"_s, second.get()), QStringList({"Invoice paid"}));
    second->addIn->CloseDatabases();
}

}  // namespace
}  // namespace mv::test
