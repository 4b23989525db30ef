// Export and import of rules through the Rules Manager's buttons, the file
// dialogs scripted, between two profiles with their own databases and stores.

#include "RulesMainFixture.h"

#include "forms/QtFileDialog.h"
#include "forms/QtFormLauncher.h"

#include <QFile>
#include <QLabel>
#include <QTreeWidget>

namespace mv::test {
namespace {

class RuleExportImportTest : public RulesMainFixture {
protected:
    QList<QVariantMap> Comparable(Profile* profile = nullptr)
    {
        auto rows = Rows(QStringLiteral("SELECT * FROM Rules ORDER BY SortID, RuleName"), profile);
        for (auto& row : rows) row.remove(QStringLiteral("RuleID"));
        return rows;
    }
};

TEST_F(RuleExportImportTest, ExportThenImportIntoAnotherProfileGivesTheSameRules)
{
    AddRule(QStringLiteral("Bills"), 1, true, QStringLiteral("Invoice \"due now\""));
    AddRule(QStringLiteral("Lists"), 2, false, QStringLiteral("digest"));
    const QString file = m_tmp.filePath(QStringLiteral("rules.xml"));
    {
        auto form = Open();
        m_files.Queue(QStringLiteral("  ") + file + QStringLiteral(" "));
        Button(*form, "btnExport")->click();
    }
    ASSERT_EQ(m_files.requests().size(), 1u);
    const os::FileDialogRequest& asked = m_files.requests()[0];
    EXPECT_EQ(asked.kind, os::FileDialogRequest::Kind::Save);
    EXPECT_EQ(asked.title, QStringLiteral("Export Rules"));
    EXPECT_EQ(forms::QtFileDialog::NameFilter(asked.filterName, asked.pattern),
              QStringLiteral("XML Files (*.xml)"));
    EXPECT_EQ(asked.initialName, QStringLiteral("Untitled.xml"));
    EXPECT_EQ(asked.initialDir, m_p->dir + QStringLiteral("/install"));
    EXPECT_TRUE(asked.promptOverwrite);
    ASSERT_TRUE(QFile::exists(file));
    EXPECT_EQ(m_answerer.texts(), QStringList({"Rules Exported Successfully"}));

    auto second = MakeProfile(QStringLiteral("second"));
    AddRule(QStringLiteral("Already here"), 1, false, {}, second.get());
    AddMail(QStringLiteral("Inbox"), QStringLiteral("Invoice due now"), second.get());
    AddMail(QStringLiteral("Inbox"), QStringLiteral("Invoice paid"), second.get());
    auto form = Open(second.get());
    Button(*form, "btnCheckNone")->click();  // pending changes are dropped by the import
    m_files.Queue(file);
    Button(*form, "btnImport")->click();
    EXPECT_EQ(m_files.requests().back().title, QStringLiteral("Choose File to Import"));
    EXPECT_EQ(forms::QtFileDialog::NameFilter(m_files.requests().back().filterName,
                                              m_files.requests().back().pattern),
              QStringLiteral("XML Files (*.xml)"));
    EXPECT_EQ(m_answerer.texts().back(), QStringLiteral("Rules Imported Successfully"));
    EXPECT_EQ(ListNames(*form), QStringList({"Already here", "Bills", "Lists"}));
    EXPECT_FALSE(Button(*form, "btnApply")->isEnabled());
    EXPECT_TRUE(Button(*form, "btnRunNow")->isEnabled());

    auto imported = Comparable(second.get());
    imported.removeFirst();  // "Already here"
    EXPECT_EQ(imported, Comparable());

    // The folders belong to the first profile's store: the rule names them,
    // but in the second profile they must be picked again.
    m_answerer.clear();
    Select(*form, {1});
    Button(*form, "btnPreview")->click();
    EXPECT_EQ(m_answerer.texts(), QStringList({"The Source Folder for rule: Bills can not be found."}));

    // Picked again in the editor, the imported rule runs in its new home.
    onModal = [&](QDialog& dialog) {
        auto* editor = dynamic_cast<forms::frmRuleProps*>(&dialog);
        ASSERT_NE(editor, nullptr);
        const QString storeHex = StoreHex(second.get());
        for (const char* folder : {"Inbox", "Archive"})
            m_picker.answers.push_back(
                second->ns->GetFolderFromID(FolderHex(QLatin1String(folder), second.get()), storeHex));
        editor->findChild<QAbstractButton*>(QStringLiteral("btnSrcFolderBrowse"))->click();
        editor->findChild<QAbstractButton*>(QStringLiteral("btnDstFolderBrowse"))->click();
        editor->findChild<QAbstractButton*>(QStringLiteral("btnOK"))->click();
    };
    Select(*form, {1});
    Button(*form, "btnModify")->click();
    Button(*form, "btnRunNow")->click();
    EXPECT_EQ(Subjects(QStringLiteral("Archive"), second.get()), QStringList({"Invoice due now"}));
    EXPECT_EQ(Subjects(QStringLiteral("Inbox"), second.get()), QStringList({"Invoice paid"}));
    second->addIn->CloseDatabases();
}

TEST_F(RuleExportImportTest, CancelledDialogsDoNothing)
{
    AddRule(QStringLiteral("Bills"), 1, true);
    auto form = Open();
    Button(*form, "btnExport")->click();
    Button(*form, "btnImport")->click();
    EXPECT_EQ(m_files.requests().size(), 2u);
    EXPECT_TRUE(m_answerer.shown().empty());
    EXPECT_EQ(StoredOrder(), QStringList({"Bills"}));
}

TEST_F(RuleExportImportTest, LauncherOpensTheRulesManagerOverTheAddIn)
{
    AddRule(QStringLiteral("Bills"), 1, true);
    forms::FormServices services{m_picker, m_contacts, m_answerer, m_report, m_files,
                                 nullptr,  nullptr,    {},         {},       {}};
    QStringList seen;
    services.runModal = [&](QDialog& dialog) {
        seen << dialog.objectName();
        seen << dialog.findChild<QLabel*>(QStringLiteral("lblTotalRules"))->text();
    };
    forms::QtFormLauncher launcher(*m_p->addIn, services);
    launcher.ShowRulesManager();
    EXPECT_EQ(seen, QStringList({"frmRulesMain", "1 rules total, 1 active"}));
}

}  // namespace
}  // namespace mv::test
