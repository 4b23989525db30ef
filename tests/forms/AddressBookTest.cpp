// The address book over real Maildir mail and a real vCard folder, and the
// vCard reader's handling of folded, escaped, grouped and broken cards.

#include "SmartFixture.h"

#include "forms/AddressBookDialog.h"
#include "forms/VCard.h"

#include "platform/os/Clock.h"

#include <QDir>
#include <QFile>
#include <QItemSelectionModel>
#include <QLabel>
#include <QTreeView>

namespace mv::test {
namespace {

using forms::AddressBookDialog;
using forms::AddressBookEntry;
using forms::VCard;

QStringList Addresses(const std::vector<AddressBookEntry>& entries)
{
    QStringList out;
    for (const auto& e : entries) out << e.displayName + QStringLiteral(" <") + e.address + QLatin1Char('>');
    return out;
}

class AddressBookTest : public SmartFixture {
protected:
    void SetUp() override
    {
        SmartFixture::SetUp();
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
        Deliver(*m_home, QStringLiteral("Inbox"),
                "From: Ann <ANN@example.org>\r\nTo: Me <me@home.example>\r\nCc: Carol <carol@example.org>, "
                "bare@example.org\r\nDelivered-To: me@home.example\r\nSubject: a\r\n\r\nx\r\n");
        Deliver(*m_home, QStringLiteral("Sent"),
                "From: Me <me@home.example>\r\nTo: Dave Doe <dave@example.com>, zed@example.net\r\n"
                "Subject: b\r\n\r\nx\r\n");
        Deliver(*m_work, QStringLiteral("Inbox"),
                "From: Boss <boss@work.example>\r\nTo: me@work.example\r\nSubject: c\r\n\r\nx\r\n");
        // Neither Inbox nor Sent: not scanned.
        Deliver(*m_home, QStringLiteral("Archive"),
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
        o.recentDays = 0;
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
    AddressBookDialog dialog(*m_ns, Options());
    dialog.Load();
    // Sorted by name; a contact's name wins over the one in mail, and one
    // address seen in several forms is listed once.
    EXPECT_EQ(
        Addresses(dialog.Entries()),
        (QStringList{QStringLiteral(" <bare@example.org>"), QStringLiteral(" <me@work.example>"),
                     QStringLiteral("Ann Lee (home) <ann.lee@work.example>"),
                     QStringLiteral("Ann Lee (home) <ann@example.org>"),
                     QStringLiteral("Boss <boss@work.example>"), QStringLiteral("Carol <carol@example.org>"),
                     QStringLiteral("Dave Doe <dave@example.com>"),
                     QStringLiteral("Ed Zed <ZED@example.net>"), QStringLiteral("Me <me@home.example>")}));
    for (const auto& e : dialog.Entries()) EXPECT_EQ(e.addrType, QStringLiteral("SMTP"));
    EXPECT_TRUE(dialog.Problems().isEmpty()) << dialog.Problems().join(QLatin1Char('\n')).toStdString();
}

TEST_F(AddressBookTest, FilterNarrowsAndSeveralComeBack)
{
    AddressBookDialog dialog(*m_ns, Options());
    WhenShown<AddressBookDialog>([&](AddressBookDialog& shown) {
        EXPECT_EQ(shown.windowTitle(), QStringLiteral("Choose a Contact"));
        Child<QLineEdit>(shown, "txtFilter")->setText(QStringLiteral("EXAMPLE.ORG"));
        auto* view = Child<QTreeView>(shown, "lstContacts");
        EXPECT_EQ(view->model()->rowCount(), 3);  // ann, bare, carol
        EXPECT_FALSE(Child<QPushButton>(shown, "btnOK")->isEnabled());
        SelectRows(shown, {QStringLiteral("carol@example.org"), QStringLiteral("bare@example.org")});
        Child<QPushButton>(shown, "btnOK")->click();
    });
    // Through the rule editor's From button, as the user reaches it.
    forms::RulePropsContext ctx = Context();
    forms::frmRuleProps editor({ctx.db, ctx.nameSpace, ctx.folderPicker, dialog, ctx.answerer, ctx.report,
                                ctx.hostVersion, ctx.title, ctx.installDir, ctx.shell});
    editor.Form_Load();
    Child<QPushButton>(editor, "btnFrom")->click();
    EXPECT_EQ(Child<QLineEdit>(editor, "txtFrom")->text(),
              QStringLiteral("bare@example.org; carol@example.org; "));

    WhenShown<AddressBookDialog>([&](AddressBookDialog& shown) {
        EXPECT_EQ(Child<QLineEdit>(shown, "txtFilter")->text(), QString());  // each showing starts unfiltered
        SelectRows(shown, {QStringLiteral("dave@example.com")});
        Child<QPushButton>(shown, "btnCancel")->click();
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
    AddressBookDialog dialog(*m_ns, Options());
    dialog.Load();
    EXPECT_EQ(dialog.Problems().size(), 2) << dialog.Problems().join(QLatin1Char('\n')).toStdString();
    const QStringList listed = Addresses(dialog.Entries());
    EXPECT_TRUE(listed.contains(QStringLiteral("Ed Zed <ZED@example.net>")));
    EXPECT_FALSE(listed.filter(QStringLiteral("half@")).size());
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
    auto options = Options();
    options.recentDays = 30;
    const struct {
        const char* name;
        int daysAhead;  // the clock against the time the mail was delivered
        bool mailListed;
    } cases[] = {{"Today", 0, true}, {"TwoMonthsLater", 60, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        os::FakeClock clock(QDateTime::currentDateTime().addDays(c.daysAhead));
        AddressBookDialog dialog(*m_ns, options, &clock);
        dialog.Load();
        const QStringList listed = Addresses(dialog.Entries());
        EXPECT_EQ(listed.contains(QStringLiteral("Boss <boss@work.example>")), c.mailListed);
        EXPECT_TRUE(listed.contains(QStringLiteral("Ed Zed <ZED@example.net>")));  // contacts have no age
    }
}

// --- the vCard reader ---

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
        auto parsed = VCard::Parse(c.text);
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
