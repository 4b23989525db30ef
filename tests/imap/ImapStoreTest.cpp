// The IMAP store against a private Dovecot: folders, queries, flags, items.
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"
#include "platform/stores/imap/ImapIds.h"

#include <QDir>
#include <QFile>
#include <QMap>

using namespace mv;
using namespace mv::mapi;
using namespace mv::test;

namespace {

QString S(const char* s) { return QString::fromUtf8(s); }

// A small mailbox with one message per trait the rules look at.
class ImapQueryTest : public DovecotStoreTest {
protected:
    void SetUp() override
    {
        DovecotStoreTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        MailDef budget;  // seen, from Alice to Bob
        budget.flags.seen = true;
        Add(inbox, budget);

        MailDef lunch;
        lunch.subject = S("Lunch on Friday");
        lunch.from = S("carol@example.net");
        lunch.cc = S("Dave Dunn <dave@example.com>");
        lunch.flags.flagged = true;
        lunch.flags.keywords = {S("$MailFlagBit0")};
        lunch.date = QDateTime(QDate(2026, 10, 20), QTime(8, 0), Qt::UTC);
        Add(inbox, lunch);

        MailDef review;
        review.subject = S("Re: budget review");
        review.from = S("Bob Baker <bob@example.com>");
        review.to = S("alice@example.org");
        review.cc = S("carol@example.net");
        review.flags = {true, true, false, false, false, {S("$Completed")}};
        review.extraHeaders = {S("Importance: High")};
        review.date = QDateTime(QDate(2026, 9, 1), QTime(7, 0), Qt::UTC);
        Add(inbox, review);

        MailDef invoice;
        invoice.subject = S("Fwd: invoice 4711");
        invoice.from = S("Eve <eve@billing.example>");
        invoice.to = S("test@example.com");
        invoice.body = S("Please pay the invoice by Monday.");
        invoice.flags.keywords = {S("$Forwarded")};
        invoice.extraHeaders = {S("X-Priority: 5 (Lowest)")};
        invoice.date = QDateTime(QDate(2026, 10, 31), QTime(11, 0), Qt::UTC);
        Add(inbox, invoice);

        MailDef cafe;
        cafe.subject = S("=?UTF-8?Q?Caf=C3=A9_meeting?=");
        cafe.body = S("Let us meet at the caf\xc3\xa9 at noon.");
        cafe.date = QDateTime(QDate(2026, 10, 31), QTime(23, 0), Qt::UTC);
        Add(inbox, cafe);

        MailDef ndr;
        ndr.subject = S("Undelivered Mail Returned to Sender");
        ndr.from = S("MAILER-DAEMON@example.com");
        ndr.extraHeaders = {S("Content-Type: multipart/report; report-type=delivery-status; boundary=\"b1\"")};
        ndr.body = S("--b1\r\nContent-Type: text/plain\r\n\r\nCould not deliver.\r\n--b1\r\n"
                     "Content-Type: message/delivery-status\r\n\r\nAction: failed\r\n--b1--");
        ndr.flags.seen = true;
        Add(inbox, ndr);

        MailDef invite;
        invite.subject = S("Planning session");
        invite.extraHeaders = {S("Content-Type: multipart/alternative; boundary=\"c1\"")};
        invite.body = S("--c1\r\nContent-Type: text/plain\r\n\r\nJoin us.\r\n--c1\r\n"
                        "Content-Type: text/calendar; charset=utf-8\r\n\r\nBEGIN:VCALENDAR\r\nMETHOD:CANCEL\r\nEND:VCALENDAR\r\n--c1--");
        invite.flags.seen = true;
        Add(inbox, invite);
    }
};

struct QueryCase {
    const char* name;
    std::function<Restriction()> build;
    QStringList subjects;
};

const QString kBudget = S("Quarterly budget"), kLunch = S("Lunch on Friday"), kReview = S("Re: budget review"),
              kInvoice = S("Fwd: invoice 4711"), kCafe = S("Caf\xc3\xa9 meeting"), kNdr = S("Undelivered Mail Returned to Sender"),
              kInvite = S("Planning session");

Restriction Recipients(std::list<Restriction> terms)
{
    return Restriction::Sub(PR_MESSAGE_RECIPIENTS, terms.size() == 1 ? terms.front() : Restriction::Or(terms));
}

const QueryCase kQueries[] = {
    {"EmptyRestrictionIsEverything", [] { return Restriction(RES_AND); },
     {kBudget, kLunch, kReview, kInvoice, kCafe, kNdr, kInvite}},
    {"SubjectWord", [] { return Restriction::Content(PR_SUBJECT, S("BUDGET")); }, {kBudget, kReview}},
    {"SubjectNonAscii", [] { return Restriction::Content(PR_SUBJECT, S("caf\xc3\xa9")); }, {kCafe}},
    {"SubjectWordsAllNeeded",
     [] { return Restriction::And({Restriction::Content(PR_SUBJECT, S("budget")), Restriction::Content(PR_SUBJECT, S("review"))}); },
     {kReview}},
    {"SenderByName", [] { return Restriction::Content(PR_SENT_REPRESENTING_NAME, S("Alice")); }, {kBudget, kCafe, kInvite}},
    {"SenderNameFallsBackToAddress", [] { return Restriction::Content(PR_SENT_REPRESENTING_NAME, S("carol")); }, {kLunch}},
    {"SenderAddressIsNotTheName", [] { return Restriction::Content(PR_SENT_REPRESENTING_EMAIL_ADDRESS, S("Eve")); }, {kInvoice}},
    {"SenderDisplayNameIsNotAnAddress", [] { return Restriction::Content(PR_SENT_REPRESENTING_EMAIL_ADDRESS, S("Baker")); }, {}},
    {"RecipientOnlyInCc", [] { return Recipients({Restriction::Content(PR_DISPLAY_NAME, S("Dave"))}); }, {kLunch}},
    {"RecipientsOrAcrossTypes",
     [] { return Recipients({Restriction::Content(PR_DISPLAY_NAME, S("Dunn")), Restriction::Content(PR_EMAIL_ADDRESS, S("alice@example.org"))}); },
     {kLunch, kReview}},
    {"CcDisplayStringNotAddress", [] { return Restriction::Content(PR_DISPLAY_CC, S("dave@example.com")); }, {}},
    {"CcDisplayStringShowsBareAddress", [] { return Restriction::Content(PR_DISPLAY_CC, S("carol@example.net")); }, {kReview}},
    {"BodyTerm", [] { return Restriction::Content(PR_BODY, S("invoice")); }, {kInvoice}},
    {"BodyNonAscii", [] { return Restriction::Content(PR_BODY, S("CAF\xc3\x89")); }, {kCafe}},
    {"Unread", [] { return Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ); }, {kLunch, kInvoice, kCafe}},
    {"Flagged", [] { return Restriction::Property(RELOP_EQ, PR_FLAG_STATUS, 2); }, {kLunch}},
    {"Completed", [] { return Restriction::Property(RELOP_EQ, PR_FLAG_STATUS, 1); }, {kReview}},
    {"NoFlag",
     [] { return Restriction::And({Restriction::Property(RELOP_NE, PR_FLAG_STATUS, 1), Restriction::Property(RELOP_NE, PR_FLAG_STATUS, 2)}); },
     {kBudget, kInvoice, kCafe, kNdr, kInvite}},
    {"OrangeFlag", [] { return Restriction::Property(RELOP_EQ, PR_FLAG_ICON, 2); }, {kLunch}},
    {"HighImportance", [] { return Restriction::Property(RELOP_EQ, PR_IMPORTANCE, 2); }, {kReview}},
    {"LowImportanceFromXPriority", [] { return Restriction::Property(RELOP_EQ, PR_IMPORTANCE, 0); }, {kInvoice}},
    {"NormalImportanceByDefault", [] { return Restriction::Property(RELOP_EQ, PR_IMPORTANCE, 1); }, {kBudget, kLunch, kCafe, kNdr, kInvite}},
    {"Replied",
     [] { return Restriction::Or({Restriction::Property(RELOP_EQ, PR_LAST_VERB_EXECUTED, 102), Restriction::Property(RELOP_EQ, PR_LAST_VERB_EXECUTED, 103)}); },
     {kReview}},
    {"Forwarded", [] { return Restriction::Property(RELOP_EQ, PR_LAST_VERB_EXECUTED, 104); }, {kInvoice}},
    {"OlderThanAFortnight",
     [] { return Restriction::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, QDateTime(QDate(2026, 10, 15), QTime(0, 0), Qt::UTC)); },
     {kBudget, kReview, kNdr, kInvite}},
    {"CutOffWithinADayIsExact",
     [] { return Restriction::Property(RELOP_LT, PR_MESSAGE_DELIVERY_TIME, QDateTime(QDate(2026, 10, 31), QTime(12, 0), Qt::UTC)); },
     {kBudget, kLunch, kReview, kInvoice, kNdr, kInvite}},
    {"NotSubject", [] { return Restriction::Not(Restriction::Content(PR_SUBJECT, S("budget"))); }, {kLunch, kInvoice, kCafe, kNdr, kInvite}},
    {"ReportClass", [] { return Restriction::Content(PR_MESSAGE_CLASS, S("REPORT.")); }, {kNdr}},
    {"MeetingClassFromCalendarText", [] { return Restriction::Content(PR_MESSAGE_CLASS, S("IPM.Schedule.Meeting.Canceled")); }, {kInvite}},
};

class ImapQueryTable : public ImapQueryTest, public ::testing::WithParamInterface<QueryCase> {};

TEST_P(ImapQueryTable, MatchesExactly)
{
    const Restriction r = GetParam().build();
    QStringList expected = GetParam().subjects;
    expected.sort();
    EXPECT_EQ(Subjects(inbox, &r), expected) << r.ToString().toStdString();
}

INSTANTIATE_TEST_SUITE_P(Restrictions, ImapQueryTable, ::testing::ValuesIn(kQueries),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ImapQueryTest, ColumnsCarryIdentifiersAndProperties)
{
    const Restriction r = Restriction::Content(PR_SUBJECT, S("Undelivered"));
    auto rows = store->Query(inbox, &r, {PR_ENTRYID, PR_STORE_ENTRYID, PR_MESSAGE_CLASS, PR_SUBJECT, PR_MESSAGE_DELIVERY_TIME});
    ASSERT_TRUE(rows.ok()) << rows.error().message.toStdString();
    ASSERT_EQ(rows->size(), 1u);
    const Row& row = rows->front();
    EXPECT_EQ(row[1].toByteArray(), store->StoreId());
    EXPECT_EQ(row[2].toString(), S("REPORT.IPM.Note.NDR"));
    EXPECT_EQ(row[4].toDateTime(), QDateTime(QDate(2026, 10, 1), QTime(9, 30), Qt::UTC));
    auto item = store->Item(row[0].toByteArray());
    ASSERT_TRUE(item.ok()) << item.error().message.toStdString();
    EXPECT_EQ(item->Get(PR_SUBJECT)->toString(), kNdr);
    EXPECT_TRUE(item->Get(PR_BODY)->toString().contains(S("Could not deliver")));
}

// The engine's columns under a search the server answers exactly: the
// class still comes out right for reports (from the Content-Type field) and
// for a calendar inside multipart/alternative (from the structure and the
// calendar's text), at a fixed number of commands.
TEST_F(ImapQueryTest, EngineColumnsOfAnExactSearchKeepTheClass)
{
    const Restriction read = Restriction::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ);
    const std::vector<PropTag> columns = {PR_ENTRYID, PR_STORE_ENTRYID, PR_MESSAGE_CLASS, PR_SUBJECT,
                                          PR_MESSAGE_DELIVERY_TIME};
    ASSERT_TRUE(store->Query(inbox, &read, columns).ok());
    const int before = store->CommandsSent();
    auto rows = store->Query(inbox, &read, columns);
    ASSERT_TRUE(rows.ok()) << rows.error().message.toStdString();
    QMap<QString, QString> classes;
    for (const Row& row : *rows) classes.insert(row[3].toString(), row[2].toString());
    const QMap<QString, QString> expected = {{kBudget, S("IPM.Note")},
                                             {kReview, S("IPM.Note")},
                                             {kNdr, S("REPORT.IPM.Note.NDR")},
                                             {kInvite, S("IPM.Schedule.Meeting.Canceled")}};
    EXPECT_EQ(classes, expected);
    // NOOP, UID SEARCH, the header FETCH, the structure of the one
    // multipart message, its calendar part.
    EXPECT_EQ(store->CommandsSent() - before, 5);
}

class ImapFolderTest : public DovecotStoreTest {};

TEST_F(ImapFolderTest, ListsSpecialUseAndCounts)
{
    Add(inbox, {});
    auto folders = store->Folders();
    ASSERT_TRUE(folders.ok()) << folders.error().message.toStdString();
    QMap<QString, FolderInfo> byPath;
    for (const FolderInfo& f : *folders) byPath.insert(f.path, f);
    ASSERT_TRUE(byPath.contains(S("Inbox")));
    EXPECT_EQ(byPath[S("Inbox")].specialUse, S("\\Inbox"));
    EXPECT_EQ(byPath[S("Inbox")].total, 1);
    EXPECT_EQ(byPath[S("Inbox")].unread, 1);
    EXPECT_EQ(byPath[S("Sent")].specialUse, S("\\Sent"));
    EXPECT_EQ(byPath[S("Trash")].specialUse, S("\\Trash"));
    EXPECT_EQ(byPath[S("Archive")].specialUse, S("\\Archive"));
}

// `mailvane folders` shows each folder's own counts, nested or not, as its
// contents query would list them.
TEST_F(ImapFolderTest, CountsOfNestedFoldersAreTheirOwn)
{
    struct Level {
        const char* name;
        int seen, unseen;
    };
    const Level levels[] = {{"Projekte", 1, 1}, {"2026", 1, 2}, {"Q1", 0, 1}};
    QByteArray parent;
    QStringList path;
    for (const Level& level : levels) {
        auto made = store->CreateFolder(parent, S(level.name));
        ASSERT_TRUE(made.ok()) << made.error().message.toStdString();
        parent = *made;
        MailDef def;
        for (int n = 0; n < level.seen + level.unseen; ++n) {
            def.flags.seen = n < level.seen;
            Add(parent, def);
        }
    }
    auto folders = store->Folders();
    ASSERT_TRUE(folders.ok()) << folders.error().message.toStdString();
    QMap<QString, FolderInfo> byPath;
    for (const FolderInfo& f : *folders) byPath.insert(f.path, f);
    for (const Level& level : levels) {
        path << S(level.name);
        const FolderInfo f = byPath.value(path.join(QLatin1Char('/')));
        EXPECT_EQ(f.total, level.seen + level.unseen) << level.name;
        EXPECT_EQ(f.unread, level.unseen) << level.name;
        EXPECT_EQ(f.total, Subjects(f.entryId).size()) << level.name;
    }
}

TEST_F(ImapFolderTest, NestedNonAsciiFolderRoundTrips)
{
    auto parent = store->CreateFolder({}, S("Projekte"));
    ASSERT_TRUE(parent.ok()) << parent.error().message.toStdString();
    auto child = store->CreateFolder(*parent, S("K\xc3\xbc" "che & Bad"));
    ASSERT_TRUE(child.ok()) << child.error().message.toStdString();
    auto info = store->Folder(*child);
    ASSERT_TRUE(info.ok()) << info.error().message.toStdString();
    EXPECT_EQ(info->name, S("K\xc3\xbc" "che & Bad"));
    EXPECT_EQ(info->path, S("Projekte/K\xc3\xbc" "che & Bad"));
    EXPECT_EQ(info->parentId, *parent);
    // The wire name is modified UTF-7, which the identifier keeps.
    EXPECT_EQ(stores::ImapIds::ParseFolder(*child)->mailbox, QByteArray("Projekte.K&APw-che &- Bad"));
}

TEST_F(ImapFolderTest, IdentifiersOfARecreatedFolderAreNotFound)
{
    const QByteArray current = Folder("Old");
    Add(current, {});
    auto rows = store->Query(current, nullptr, {PR_ENTRYID});
    ASSERT_TRUE(rows.ok());
    // What identifiers look like after another client recreated the folder:
    // same name, another UIDVALIDITY.
    auto ref = stores::ImapIds::ParseMessage(rows->front()[0].toByteArray());
    ASSERT_TRUE(ref.has_value());
    ref->folder.uidValidity += 1;
    const QByteArray stale = stores::ImapIds::FolderId(ref->folder.mailbox, ref->folder.uidValidity);
    const QByteArray staleMessage = stores::ImapIds::MessageId(ref->folder, ref->uid);
    EXPECT_EQ(store->Folder(stale).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store->Query(stale, nullptr, {PR_SUBJECT}).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store->Item(staleMessage).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store->Move(rows->front()[0].toByteArray(), stale).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store->Folder(QByteArray("garbage")).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(Subjects(current).size(), 1) << "a refused move leaves the message where it was";
}

TEST_F(ImapFolderTest, WrongPasswordIsPermanentAndNamesTheUser)
{
    auto settings = Settings();
    settings.password = S("wrong");
    stores::ImapStore bad(settings);
    auto folders = bad.Folders();
    ASSERT_FALSE(folders.ok());
    EXPECT_EQ(folders.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(folders.error().message.contains(S("test"))) << folders.error().message.toStdString();
    EXPECT_FALSE(folders.error().message.contains(S("wrong")));
}

TEST_F(ImapFolderTest, PasswordCommandFirstLineIsUsed)
{
    auto settings = Settings();
    settings.password.clear();
    settings.passwordCommand = S("printf 'secret\\nsecond line\\n'");
    stores::ImapStore viaCommand(settings);
    EXPECT_TRUE(viaCommand.Folders().ok());
    settings.passwordCommand = S("echo secret; exit 3");
    stores::ImapStore failing(settings);
    auto folders = failing.Folders();
    ASSERT_FALSE(folders.ok());
    EXPECT_FALSE(folders.error().message.contains(S("secret")));
}

TEST_F(ImapFolderTest, DeadServerIsTemporary)
{
    stores::ImapStore nowhere(Settings(FreeLocalPort()));
    auto folders = nowhere.Folders();
    ASSERT_FALSE(folders.ok());
    EXPECT_EQ(folders.error().kind, ErrorKind::Temporary);
}

struct FlagCase {
    const char* name;
    mapi::MessageFlags before;
    int status;
    int expectedStatus;
    bool keepsForwarded;
};

class ImapFlagTable : public DovecotStoreTest, public ::testing::WithParamInterface<FlagCase> {};

TEST_P(ImapFlagTable, SetFlagStatusChangesOnlyTheFlag)
{
    MailDef def;
    def.flags = GetParam().before;
    def.flags.keywords << S("$Forwarded");
    const QByteArray id = Add(inbox, def);
    ASSERT_TRUE(store->SetFlagStatus(id, GetParam().status).ok());
    auto item = store->Item(id);
    ASSERT_TRUE(item.ok()) << item.error().message.toStdString();
    EXPECT_EQ(item->Get(PR_FLAG_STATUS)->toInt(), GetParam().expectedStatus);
    EXPECT_EQ(item->Get(PR_LAST_VERB_EXECUTED)->toInt(), EXCHIVERB_FORWARD);
    // The same answer from a search, which another connection would give.
    const Restriction r = Restriction::Property(RELOP_EQ, PR_FLAG_STATUS, GetParam().expectedStatus);
    EXPECT_EQ(Subjects(inbox, &r), QStringList{def.subject});
}

const FlagCase kFlagCases[] = {
    {"FlagAPlainMessage", {}, 2, 2, true},
    {"CompleteAFlaggedOne", {false, false, true, false, false, {}}, 1, 1, true},
    {"ClearACompletedOne", {false, false, false, false, false, {S("$Completed")}}, 0, 0, true},
    {"ClearAFlaggedOne", {false, false, true, false, false, {S("$MailFlagBit1")}}, 0, 0, true},
};
INSTANTIATE_TEST_SUITE_P(Flags, ImapFlagTable, ::testing::ValuesIn(kFlagCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ImapFolderTest, FlagStatusOfAGoneMessageIsNotFound)
{
    const QByteArray id = Add(inbox, {});
    const QByteArray archive = Folder("Archive");
    ASSERT_TRUE(store->Move(id, archive).ok());
    EXPECT_EQ(store->SetFlagStatus(id, 2).error().kind, ErrorKind::NotFound);
}

}  // namespace
