// The folder picker over two real Maildir accounts: every store with its
// folder tree, the chosen folder back through the namespace, nothing on
// Cancel, and the rule editor's browse buttons driving it.

#include "SmartFixture.h"

#include "forms/AddressBookDialog.h"
#include "forms/FolderPickerDialog.h"

#include "platform/mapi/MapiUtils.h"

#include <QDir>
#include <QStandardItemModel>
#include <QTreeView>

#include <functional>

namespace mv::test {
namespace {

using forms::FolderPickerDialog;

class FolderPickerTest : public SmartFixture {
protected:
    // "Store: Folder/Sub, ..." for every node, depth first.
    static QStringList Tree(FolderPickerDialog& dialog)
    {
        QStringList out;
        auto* view = Child<QTreeView>(dialog, "tvwFolders");
        const QAbstractItemModel* model = view->model();
        std::function<void(const QModelIndex&, const QString&)> walk = [&](const QModelIndex& parent,
                                                                           const QString& prefix) {
            for (int r = 0; r < model->rowCount(parent); ++r) {
                const QModelIndex index = model->index(r, 0, parent);
                const QString name = prefix + index.data().toString();
                out << name;
                walk(index, name + QLatin1Char('/'));
            }
        };
        walk(QModelIndex(), QString());
        return out;
    }
};

TEST_F(FolderPickerTest, ListsEveryStoreWithItsFolders)
{
    FolderPickerDialog dialog;
    dialog.Load(*m_ns);
    EXPECT_EQ(Tree(dialog), (QStringList{QStringLiteral("Home"), QStringLiteral("Home/Inbox"),
                                         QStringLiteral("Home/Archive"), QStringLiteral("Home/Archive/2026"),
                                         QStringLiteral("Home/Sent"), QStringLiteral("Work"),
                                         QStringLiteral("Work/Inbox"), QStringLiteral("Work/Projects")}));
}

TEST_F(FolderPickerTest, AStoreThatCannotBeReadKeepsTheOthers)
{
    // The Work account's disk is gone (an unmounted drive, a moved folder).
    ASSERT_TRUE(QDir(m_tmp.filePath(QStringLiteral("work"))).removeRecursively());
    FolderPickerDialog dialog;
    dialog.Load(*m_ns);
    const QStringList tree = Tree(dialog);
    ASSERT_EQ(tree.size(), 6);
    EXPECT_EQ(
        tree.mid(0, 5),
        (QStringList{QStringLiteral("Home"), QStringLiteral("Home/Inbox"), QStringLiteral("Home/Archive"),
                     QStringLiteral("Home/Archive/2026"), QStringLiteral("Home/Sent")}));
    EXPECT_TRUE(tree[5].startsWith(QStringLiteral("Work (The Maildir folder"))) << tree[5].toStdString();
    // The address book goes on without it too, and says what it missed.
    forms::AddressBookOptions options;
    options.vcardFolder = m_tmp.filePath(QStringLiteral("none"));
    forms::AddressBookDialog book(*m_ns, options);
    book.Load();
    EXPECT_EQ(book.Problems().size(), 1);
}

TEST_F(FolderPickerTest, ReturnsTheChosenFolderOrNothing)
{
    const struct {
        const char* store;
        const char* path;      // nullptr: the store node itself
        bool ok;               // OK rather than Cancel
        const char* expected;  // the folder's name; nullptr: none
    } cases[] = {
        {"Home", "Archive/2026", true, "2026"},
        {"Work", "Projects", true, "Projects"},
        {"Work", "Projects", false, nullptr},
        {"Home", nullptr, true, nullptr},  // OK is disabled on a store
    };
    FolderPickerDialog dialog;
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.store) + "/" + (c.path ? c.path : "") + (c.ok ? " OK" : " Cancel"));
        WhenShown<FolderPickerDialog>([&](FolderPickerDialog& shown) {
            if (c.path) {
                EXPECT_TRUE(shown.SelectPath(QLatin1String(c.store), QLatin1String(c.path)));
            } else {
                auto* view = Child<QTreeView>(shown, "tvwFolders");
                view->setCurrentIndex(view->model()->index(0, 0));
            }
            auto* ok = Child<QPushButton>(shown, "btnOK");
            EXPECT_EQ(ok->isEnabled(), c.path != nullptr);
            Child<QPushButton>(shown, c.ok ? "btnOK" : "btnCancel")->click();
        });
        std::unique_ptr<outlook::Folder> folder = dialog.Pick(*m_ns);
        if (!c.expected) {
            EXPECT_EQ(folder, nullptr);
            continue;
        }
        ASSERT_NE(folder, nullptr);
        EXPECT_EQ(folder->Name(), QLatin1String(c.expected));
        // The identifiers are the ones a rule stores and looks up again.
        auto again = m_ns->GetFolderFromID(folder->EntryID(), folder->StoreID());
        ASSERT_NE(again, nullptr);
        EXPECT_EQ(again->Name(), QLatin1String(c.expected));
    }
}

TEST_F(FolderPickerTest, DrivesTheRuleEditorsBrowseButtons)
{
    FolderPickerDialog dialog;
    forms::RulePropsContext ctx = Context();
    forms::RulePropsContext withDialog{ctx.db,     ctx.nameSpace,   dialog,    ctx.contacts,   ctx.answerer,
                                       ctx.report, ctx.hostVersion, ctx.title, ctx.installDir, ctx.shell};
    forms::frmRuleProps editor(withDialog);
    editor.Form_Load();
    WhenShown<FolderPickerDialog>([&](FolderPickerDialog& shown) {
        shown.SelectPath(QStringLiteral("Work"), QStringLiteral("Projects"));
        Child<QPushButton>(shown, "btnOK")->click();
    });
    Child<QPushButton>(editor, "btnDstFolderBrowse")->click();
    EXPECT_EQ(Child<QLineEdit>(editor, "txtDstFolder")->text(), QStringLiteral("Projects"));
    EXPECT_EQ(editor.DstStoreID(), mapi::MapiUtils::HrGetHexFromBinary(m_work->StoreId()));

    WhenShown<FolderPickerDialog>(
        [&](FolderPickerDialog& shown) { Child<QPushButton>(shown, "btnCancel")->click(); });
    Child<QPushButton>(editor, "btnDstFolderBrowse")->click();
    EXPECT_EQ(Child<QLineEdit>(editor, "txtDstFolder")->text(), QStringLiteral("Projects"));
}

}  // namespace
}  // namespace mv::test
