// The folder picker and the address book over two real Maildir accounts and
// a real vCard folder, reached directly and through the rule editor's
// buttons; and the vCard reader on folded, escaped, grouped and broken cards.

#include "FormsFixture.h"

#include "forms/AddressBookDialog.h"
#include "forms/FolderPickerDialog.h"
#include "forms/VCard.h"

#include "platform/mapi/MapiUtils.h"

#include <QDir>
#include <QFile>
#include <QItemSelectionModel>
#include <QLabel>
#include <QTreeView>

namespace mv::test {
namespace {

using forms::AddressBookDialog;
using forms::FolderPickerDialog;

// "Store/Folder/Sub" for every node, depth first.
QStringList Tree(FolderPickerDialog& dialog)
{
    QStringList out;
    const QAbstractItemModel* model = dialog.findChild<QTreeView*>(QStringLiteral("tvwFolders"))->model();
    std::function<void(const QModelIndex&, const QString&)> walk = [&](const QModelIndex& parent,
                                                                       const QString& prefix) {
        for (int r = 0; r < model->rowCount(parent); ++r) {
            const QModelIndex index = model->index(r, 0, parent);
            out << prefix + index.data().toString();
            walk(index, out.last() + QLatin1Char('/'));
        }
    };
    walk(QModelIndex(), QString());
    return out;
}

TEST_F(FormsTest, FolderPickerListsEveryStoreAndKeepsTheOthersWhenOneCannotBeRead)
{
    const QStringList home = {"Home", "Home/Inbox", "Home/Archive", "Home/Archive/2026", "Home/Sent"};
    FolderPickerDialog dialog;
    dialog.Load(*m_p->ns);
    EXPECT_EQ(Tree(dialog), home + QStringList({"Work", "Work/Inbox", "Work/Projects"}));

    // The Work account's disk is gone (an unmounted drive, a moved folder).
    ASSERT_TRUE(QDir(m_p->dir + QStringLiteral("/work")).removeRecursively());
    FolderPickerDialog again;
    again.Load(*m_p->ns);
    const QStringList tree = Tree(again);
    ASSERT_EQ(tree.size(), 6);
    EXPECT_EQ(tree.mid(0, 5), home);
    EXPECT_TRUE(tree[5].startsWith(QStringLiteral("Work (The Maildir folder"))) << tree[5].toStdString();
    // The address book goes on without it too, and says what it missed.
    forms::AddressBookOptions options;
    options.vcardFolder = m_tmp.filePath(QStringLiteral("none"));
    AddressBookDialog book(*m_p->ns, options);
    book.Load();
    EXPECT_EQ(book.Problems().size(), 1);
}

TEST_F(FormsTest, FolderPickerReturnsTheChosenFolderOrNothing)
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
            EXPECT_EQ(Child(shown, "btnOK")->isEnabled(), c.path != nullptr);
            Click(shown, c.ok ? "btnOK" : "btnCancel");
        });
        std::unique_ptr<outlook::Folder> folder = dialog.Pick(*m_p->ns);
        if (!c.expected) {
            EXPECT_EQ(folder, nullptr);
            continue;
        }
        ASSERT_NE(folder, nullptr);
        // The identifiers are the ones a rule stores and looks up again.
        auto again = m_p->ns->GetFolderFromID(folder->EntryID(), folder->StoreID());
        ASSERT_NE(again, nullptr);
        EXPECT_EQ(again->Name(), QLatin1String(c.expected));
    }
}

TEST_F(FormsTest, FolderPickerDrivesTheRuleEditorsBrowseButtons)
{
    FolderPickerDialog dialog;
    forms::RulePropsContext ctx = Context();
    forms::frmRuleProps editor({ctx.db, ctx.nameSpace, dialog, ctx.contacts, ctx.answerer, ctx.report,
                                ctx.hostVersion, ctx.title, ctx.installDir, ctx.shell});
    editor.Form_Load();
    WhenShown<FolderPickerDialog>([&](FolderPickerDialog& shown) {
        shown.SelectPath(QStringLiteral("Work"), QStringLiteral("Projects"));
        Click(shown, "btnOK");
    });
    Click(editor, "btnDstFolderBrowse");
    EXPECT_EQ(Text(editor, "txtDstFolder"), QStringLiteral("Projects"));
    EXPECT_EQ(editor.DstStoreID(), mapi::MapiUtils::HrGetHexFromBinary(m_p->work->StoreId()));
    WhenShown<FolderPickerDialog>([&](FolderPickerDialog& shown) { Click(shown, "btnCancel"); });
    Click(editor, "btnDstFolderBrowse");
    EXPECT_EQ(Text(editor, "txtDstFolder"), QStringLiteral("Projects"));
    EXPECT_EQ(editor.DstEntryID(), Folder(QStringLiteral("Projects"), m_p->work.get())->EntryID());
}

// --- the address book over mail in both accounts and a vCard folder ---

QStringList Addresses(const std::vector<forms::AddressBookEntry>& entries)
{
    QStringList out;
    for (const auto& e : entries) out << e.displayName + QStringLiteral(" <") + e.address + QLatin1Char('>');
    return out;
}

class AddressBookTest : public FormsTest {
protected:
    void SetUp() override
    {
        FormsTest::SetUp();
        if (HasFatalFailure()) return;
        m_cards = m_tmp.filePath(QStringLiteral("contacts"));
        QDir().mkpath(m_cards + QStringLiteral("/family"));
        // vCard 4 with a folded e-mail line and a grouped one.
        WriteCard(
            QStringLiteral("family/ann.vcf"),
            "BEGIN:VCARD\r\nVERSION:4.0\r\nFN:Ann Lee (home)\r\nEMAIL;TYPE=home:ann@exa\r\n mple.org\r\n"
            "item1.EMAIL:ann.lee@work.example\r\nEND:VCARD\r\n");
        // vCard 3, LF line ends; the address is also seen in mail.
        WriteCard(QStringLiteral("zed.vcf"),
                  "BEGIN:VCARD\nVERSION:3.0\nN:Zed;Ed;;;\nFN:Ed "
                  "Zed\nEMAIL;TYPE=INTERNET:ZED@example.net\nEND:VCARD\n");
        Deliver(QStringLiteral("Inbox"),
                "From: Ann <ANN@example.org>\r\nTo: Me <me@home.example>\r\nCc: Carol <carol@example.org>, "
                "bare@example.org\r\nDelivered-To: me@home.example\r\nSubject: a\r\n\r\nx\r\n");
        Deliver(QStringLiteral("Sent"),
                "From: Me <me@home.example>\r\nTo: Dave Doe <dave@example.com>, "
                "zed@example.net\r\nSubject: b\r\n\r\nx\r\n");
        Deliver(QStringLiteral("Inbox"),
                "From: Boss <boss@work.example>\r\nTo: me@work.example\r\nSubject: c\r\n\r\nx\r\n",
                m_p->work.get());
        // Neither Inbox nor Sent: not scanned.
        Deliver(QStringLiteral("Archive"),
                "From: Old <old@example.org>\r\nTo: me@home.example\r\nSubject: d\r\n\r\nx\r\n");
    }
    void WriteCard(const QString& name, const QByteArray& bytes)
    {
        QFile f(m_cards + QLatin1Char('/') + name);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }
    forms::AddressBookOptions Options(int recentDays = 0)
    {
        forms::AddressBookOptions o;
        o.vcardFolder = m_cards;
        o.recentDays = recentDays;
        return o;
    }
    static void SelectRows(AddressBookDialog& dialog, const QStringList& addresses)
    {
        auto* view = Child<QTreeView>(dialog, "lstContacts");
        const QAbstractItemModel* model = view->model();
        for (int r = 0; r < model->rowCount(); ++r)
            if (addresses.contains(model->index(r, 1).data().toString()))
                view->selectionModel()->select(model->index(r, 0),
                                               QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
    QString m_cards;
};

TEST_F(AddressBookTest, MergesMailAddressesWithContacts)
{
    AddressBookDialog dialog(*m_p->ns, Options());
    dialog.Load();
    // Sorted by name; a contact's name wins over the one in mail, and one
    // address seen in several forms is listed once.
    EXPECT_EQ(Addresses(dialog.Entries()),
              (QStringList{
                  " <bare@example.org>", " <me@work.example>", "Ann Lee (home) <ann.lee@work.example>",
                  "Ann Lee (home) <ann@example.org>", "Boss <boss@work.example>", "Carol <carol@example.org>",
                  "Dave Doe <dave@example.com>", "Ed Zed <ZED@example.net>", "Me <me@home.example>"}));
    for (const auto& e : dialog.Entries()) EXPECT_EQ(e.addrType, QStringLiteral("SMTP"));
    EXPECT_TRUE(dialog.Problems().isEmpty()) << dialog.Problems().join(QLatin1Char('\n')).toStdString();
}

TEST_F(AddressBookTest, FilterNarrowsAndSeveralComeBack)
{
    AddressBookDialog dialog(*m_p->ns, Options());
    WhenShown<AddressBookDialog>([&](AddressBookDialog& shown) {
        EXPECT_EQ(shown.windowTitle(), QStringLiteral("Choose a Contact"));
        SetText(shown, "txtFilter", QStringLiteral("EXAMPLE.ORG"));
        EXPECT_EQ(Child<QTreeView>(shown, "lstContacts")->model()->rowCount(), 3);  // ann, bare, carol
        EXPECT_FALSE(Child(shown, "btnOK")->isEnabled());
        SelectRows(shown, {QStringLiteral("carol@example.org"), QStringLiteral("bare@example.org")});
        Click(shown, "btnOK");
    });
    // Through the rule editor's From button, as the user reaches it.
    forms::RulePropsContext ctx = Context();
    forms::frmRuleProps editor({ctx.db, ctx.nameSpace, ctx.folderPicker, dialog, ctx.answerer, ctx.report,
                                ctx.hostVersion, ctx.title, ctx.installDir, ctx.shell});
    editor.Form_Load();
    Click(editor, "btnFrom");
    EXPECT_EQ(Text(editor, "txtFrom"), QStringLiteral("bare@example.org; carol@example.org; "));

    WhenShown<AddressBookDialog>([&](AddressBookDialog& shown) {
        EXPECT_EQ(Text(shown, "txtFilter"), QString());  // each showing starts unfiltered
        SelectRows(shown, {QStringLiteral("dave@example.com")});
        Click(shown, "btnCancel");
    });
    EXPECT_TRUE(dialog.AddressBook(QStringLiteral("Choose a Contact")).empty());
}

TEST_F(AddressBookTest, BrokenContactFilesAreSkippedAndLeftAlone)
{
    const QByteArray broken = "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Half\r\nEMAIL:half@example.org\r\n";
    static const char kJunk[] = "\x00\x01\x02PK\x03\x04 not a card";
    const QByteArray junk(kJunk, sizeof kJunk - 1);
    WriteCard(QStringLiteral("half.vcf"), broken);
    WriteCard(QStringLiteral("family/junk.vcf"), junk);
    AddressBookDialog dialog(*m_p->ns, Options());
    dialog.Load();
    EXPECT_EQ(dialog.Problems().size(), 2) << dialog.Problems().join(QLatin1Char('\n')).toStdString();
    const QStringList listed = Addresses(dialog.Entries());
    EXPECT_TRUE(listed.contains(QStringLiteral("Ed Zed <ZED@example.net>")));
    EXPECT_TRUE(listed.filter(QStringLiteral("half@")).isEmpty());
    for (const auto& [name, bytes] : {std::pair{"half.vcf", broken}, std::pair{"family/junk.vcf", junk}}) {
        QFile f(m_cards + QLatin1Char('/') + QLatin1String(name));
        ASSERT_TRUE(f.open(QIODevice::ReadOnly));
        EXPECT_EQ(f.readAll(), bytes) << name;
    }
    EXPECT_TRUE(
        Child<QLabel>(dialog, "lblStatus")->text().contains(QStringLiteral("2 source(s) could not be read")));
}

TEST_F(AddressBookTest, OnlyRecentMailIsScanned)
{
    for (const auto& [daysAhead, mailListed] : {std::pair{0, true}, std::pair{60, false}}) {
        SCOPED_TRACE(daysAhead);
        os::FakeClock clock(QDateTime::currentDateTime().addDays(daysAhead));
        AddressBookDialog dialog(*m_p->ns, Options(30), &clock);
        dialog.Load();
        const QStringList listed = Addresses(dialog.Entries());
        EXPECT_EQ(listed.contains(QStringLiteral("Boss <boss@work.example>")), mailListed);
        EXPECT_TRUE(listed.contains(QStringLiteral("Ed Zed <ZED@example.net>")));  // contacts have no age
    }
}

TEST(VCardTest, ReadsNamesAndAddresses)
{
    const struct {
        const char* name;
        QByteArray text;
        std::vector<std::pair<const char*, QStringList>> expected;  // empty: an error
    } cases[] = {
        {"FoldedCrLf",
         "BEGIN:VCARD\r\nFN:Long\r\n  Name\r\nEMAIL:a@\r\n\tb.example\r\nEND:VCARD\r\n",
         {{"Long Name", {"a@b.example"}}}},
        {"EscapesAndParams",
         "BEGIN:VCARD\nFN:Doe\\, Jane\\nJr\nEMAIL;TYPE=\"work:x\";PREF=1:jane@d.example\nEND:VCARD\n",
         {{"Doe, Jane\nJr", {"jane@d.example"}}}},
        {"GroupsMailtoAndDuplicates",
         "begin:vcard\nITEM2.EMAIL:mailto:k@e.example\nemail:K@E.example\nFN:K\nend:vcard\n",
         {{"K", {"k@e.example"}}}},
        {"TwoCardsOneFile",
         "BEGIN:VCARD\nFN:A\nEMAIL:a@x.example\nEND:VCARD\nBEGIN:VCARD\nFN:B\nEND:VCARD\n",
         {{"A", {"a@x.example"}}, {"B", {}}}},
        {"CutOffCardDropped",
         "BEGIN:VCARD\nFN:A\nEMAIL:a@x.example\nEND:VCARD\nBEGIN:VCARD\nFN:B\nEMAIL:b@x\n",
         {{"A", {"a@x.example"}}}},
        {"RestartInsideCard", "BEGIN:VCARD\nFN:A\nBEGIN:VCARD\nFN:B\nEND:VCARD\n", {{"B", {}}}},
        {"NoCard", "FN:A\nEMAIL:a@x.example\n", {}},
        {"Empty", "", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto parsed = forms::VCard::Parse(c.text);
        if (c.expected.empty()) {
            EXPECT_FALSE(parsed.ok());
            continue;
        }
        ASSERT_TRUE(parsed.ok()) << parsed.error().message.toStdString();
        ASSERT_EQ(parsed->size(), c.expected.size());
        for (std::size_t i = 0; i < c.expected.size(); ++i) {
            EXPECT_EQ((*parsed)[i].name, QString::fromUtf8(c.expected[i].first));
            EXPECT_EQ((*parsed)[i].emails, c.expected[i].second);
        }
    }
}

}  // namespace
}  // namespace mv::test
