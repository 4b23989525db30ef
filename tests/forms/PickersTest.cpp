// The folder picker and the address book over two real Maildir accounts and
// a real vCard folder, reached directly and through the rule editor's
// buttons; and the vCard reader on folded, escaped, grouped and broken cards.

#include "FormsFixture.h"

#include "forms/AddressBookDialog.h"
#include "forms/FolderPickerDialog.h"
#include "forms/VCard.h"

#include <QDir>
#include <QFile>
#include <QItemSelectionModel>
#include <QLabel>
#include <QTreeView>

namespace mv::test {

using namespace Qt::StringLiterals;
namespace {

using forms::AddressBookDialog;
using forms::FolderPickerDialog;

// "Store/Folder/Sub" for every node, depth first.
QStringList Tree(FolderPickerDialog& dialog)
{
    QStringList out;
    const QAbstractItemModel* model = dialog.findChild<QTreeView*>(u"tvwFolders"_s)->model();
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

TEST_F(FormsTest, FolderPickerReturnsTheChosenFolderAndKeepsTheOtherStoresWhenOneCannotBeRead)
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

    const QStringList home = {"Home", "Home/Inbox", "Home/Archive", "Home/Archive/2026", "Home/Sent"};
    EXPECT_EQ(Tree(dialog), home + QStringList({"Work", "Work/Inbox", "Work/Projects"}));

    // The Work account's disk is gone (an unmounted drive, a moved folder).
    ASSERT_TRUE(QDir(m_p->dir + u"/work"_s).removeRecursively());
    dialog.Load(*m_p->ns);
    const QStringList tree = Tree(dialog);
    ASSERT_EQ(tree.size(), 6);
    EXPECT_EQ(tree.mid(0, 5), home);
    EXPECT_TRUE(tree[5].startsWith(u"Work (The Maildir folder"_s)) << tree[5].toStdString();
    // The address book goes on without it too, and says what it missed.
    forms::AddressBookOptions options;
    options.vcardFolder = m_tmp.filePath(u"none"_s);
    AddressBookDialog book(*m_p->ns, options);
    book.Load();
    EXPECT_EQ(book.Problems().size(), 1);
}

// --- the address book over mail in both accounts and a vCard folder ---

QStringList Addresses(const std::vector<forms::AddressBookEntry>& entries)
{
    QStringList out;
    for (const auto& e : entries) out << e.displayName + u" <"_s + e.address + QLatin1Char('>');
    return out;
}

class AddressBookTest : public FormsTest {
protected:
    void SetUp() override
    {
        FormsTest::SetUp();
        if (HasFatalFailure()) return;
        m_cards = m_tmp.filePath(u"contacts"_s);
        QDir().mkpath(m_cards + u"/family"_s);
        // vCard 4 with a folded e-mail line and a grouped one.
        WriteCard(
            u"family/ann.vcf"_s,
            "BEGIN:VCARD\r\nVERSION:4.0\r\nFN:Ann Lee (home)\r\nEMAIL;TYPE=home:ann@exa\r\n mple.org\r\n"
            "item1.EMAIL:ann.lee@work.example\r\nEND:VCARD\r\n");
        // vCard 3, LF line ends; the address is also seen in mail.
        WriteCard(u"zed.vcf"_s,
                  "BEGIN:VCARD\nVERSION:3.0\nN:Zed;Ed;;;\nFN:Ed "
                  "Zed\nEMAIL;TYPE=INTERNET:ZED@example.net\nEND:VCARD\n");
        Deliver(u"Inbox"_s,
                "From: Ann <ANN@example.org>\r\nTo: Me <me@home.example>\r\nCc: Carol <carol@example.org>, "
                "bare@example.org\r\nDelivered-To: me@home.example\r\nSubject: a\r\n\r\nx\r\n");
        Deliver(u"Sent"_s,
                "From: Me <me@home.example>\r\nTo: Dave Doe <dave@example.com>, "
                "zed@example.net\r\nSubject: b\r\n\r\nx\r\n");
        Deliver(u"Inbox"_s,
                "From: Boss <boss@work.example>\r\nTo: me@work.example\r\nSubject: c\r\n\r\nx\r\n",
                m_p->work.get());
        // Neither Inbox nor Sent: not scanned.
        Deliver(u"Archive"_s,
                "From: Old <old@example.org>\r\nTo: me@home.example\r\nSubject: d\r\n\r\nx\r\n");
    }
    void WriteCard(const QString& name, const QByteArray& bytes)
    {
        QFile f(m_cards + QLatin1Char('/') + name);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }
    forms::AddressBookOptions Options()
    {
        forms::AddressBookOptions o;
        o.vcardFolder = m_cards;
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

// Broken contact files are skipped, counted and left alone.
TEST_F(AddressBookTest, MergesMailAddressesWithContactsAndSkipsBrokenCards)
{
    const QByteArray broken = "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Half\r\nEMAIL:half@example.org\r\n";
    static const char kJunk[] = "\x00\x01\x02PK\x03\x04 not a card";
    const QByteArray junk(kJunk, sizeof kJunk - 1);
    WriteCard(u"half.vcf"_s, broken);
    WriteCard(u"family/junk.vcf"_s, junk);
    AddressBookDialog dialog(*m_p->ns, Options());
    dialog.Load();
    // Sorted by name; a contact's name wins over the one in mail, and one
    // address seen in several forms is listed once.
    EXPECT_EQ(Addresses(dialog.Entries()),
              (QStringList{
                  " <bare@example.org>", " <me@work.example>", "Ann Lee (home) <ann.lee@work.example>",
                  "Ann Lee (home) <ann@example.org>", "Boss <boss@work.example>", "Carol <carol@example.org>",
                  "Dave Doe <dave@example.com>", "Ed Zed <ZED@example.net>", "Me <me@home.example>"}));
    for (const auto& e : dialog.Entries()) EXPECT_EQ(e.addrType, u"SMTP"_s);
    EXPECT_EQ(dialog.Problems().size(), 2) << dialog.Problems().join(QLatin1Char('\n')).toStdString();
    for (const auto& [name, bytes] : {std::pair{"half.vcf", broken}, std::pair{"family/junk.vcf", junk}}) {
        QFile f(m_cards + QLatin1Char('/') + QLatin1String(name));
        ASSERT_TRUE(f.open(QIODevice::ReadOnly));
        EXPECT_EQ(f.readAll(), bytes) << name;
    }
    EXPECT_TRUE(Child<QLabel>(dialog, "lblStatus")->text().contains(u"2 source(s) could not be read"_s));
}

TEST_F(AddressBookTest, FilterNarrowsAndSeveralComeBack)
{
    AddressBookDialog dialog(*m_p->ns, Options());
    WhenShown<AddressBookDialog>([&](AddressBookDialog& shown) {
        EXPECT_EQ(shown.windowTitle(), u"Choose a Contact"_s);
        SetText(shown, "txtFilter", u"EXAMPLE.ORG"_s);
        EXPECT_EQ(Child<QTreeView>(shown, "lstContacts")->model()->rowCount(), 3);  // ann, bare, carol
        EXPECT_FALSE(Child(shown, "btnOK")->isEnabled());
        SelectRows(shown, {u"carol@example.org"_s, u"bare@example.org"_s});
        Click(shown, "btnOK");
    });
    // Through the rule editor's From button, as the user reaches it.
    forms::RulePropsContext ctx = Context();
    forms::frmRuleProps editor({ctx.db, ctx.nameSpace, ctx.folderPicker, dialog, ctx.answerer, ctx.report,
                                ctx.hostVersion, ctx.title, ctx.installDir, ctx.shell});
    editor.Form_Load();
    Click(editor, "btnFrom");
    EXPECT_EQ(Text(editor, "txtFrom"), u"bare@example.org; carol@example.org; "_s);

    WhenShown<AddressBookDialog>([&](AddressBookDialog& shown) {
        EXPECT_EQ(Text(shown, "txtFilter"), QString());  // each showing starts unfiltered
        SelectRows(shown, {u"dave@example.com"_s});
        Click(shown, "btnCancel");
    });
    EXPECT_TRUE(dialog.AddressBook(u"Choose a Contact"_s).empty());
}

// Escapes, quoted parameters, groups, "mailto:", duplicates, a card begun
// again inside another, one cut off at the end of the file.
TEST(VCardTest, ReadsNamesAndAddresses)
{
    auto parsed = forms::VCard::Parse(
        "BEGIN:VCARD\nFN:Doe\\, Jane\\nJr\nEMAIL;TYPE=\"work:x\";PREF=1:jane@d.example\nEND:VCARD\n"
        "begin:vcard\nITEM2.EMAIL:mailto:k@e.example\nemail:K@E.example\nFN:K\nend:vcard\n"
        "BEGIN:VCARD\nFN:A\nBEGIN:VCARD\nFN:B\nEND:VCARD\n"
        "BEGIN:VCARD\nFN:C\nEMAIL:c@x\n");
    ASSERT_TRUE(parsed.ok()) << parsed.error().message.toStdString();
    QStringList cards;
    for (const auto& card : *parsed) cards << card.name + u": "_s + card.emails.join(u',');
    EXPECT_EQ(cards, (QStringList{u"Doe, Jane\nJr: jane@d.example"_s, u"K: k@e.example"_s, u"B: "_s}));
    EXPECT_FALSE(forms::VCard::Parse("FN:A\nEMAIL:a@x.example\n").ok());
}

}  // namespace
}  // namespace mv::test
