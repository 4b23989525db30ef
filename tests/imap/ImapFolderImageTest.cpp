// Once several queries on a folder are told ahead, the folder is read once
// and queries are answered from that image: each answer must be the one a
// store that was told nothing gives, whatever happened in between, and a
// query of an unchanged folder must cost two commands.
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"

using namespace mv;
using namespace mv::mapi;
using namespace mv::test;

namespace {

const std::vector<PropTag> kColumns = {PR_ENTRYID, PR_SUBJECT, PR_MESSAGE_CLASS};

class ImapFolderImageTest : public DovecotStoreTest {
protected:
    static QStringList Column(const Result<std::vector<Row>>& rows, size_t column)
    {
        QStringList out;
        if (rows)
            for (const Row& row : *rows) out << row[column].toString();
        out.sort();
        return out;
    }

    // The told store's subjects, checked against a store told nothing.
    QStringList Told(const Restriction& r)
    {
        for (int i = 0; i < 3; ++i) store->Anticipate(inbox, r, kColumns);
        auto rows = store->Query(inbox, &r, kColumns);
        EXPECT_TRUE(rows.ok()) << rows.error().message.toStdString();
        auto fresh = MakeStore()->Query(inbox, &r, kColumns);
        EXPECT_TRUE(fresh.ok());
        EXPECT_EQ(Column(rows, 1), Column(fresh, 1)) << r.ToString().toStdString();
        EXPECT_EQ(Column(rows, 2), Column(fresh, 2)) << "message classes";
        return Column(rows, 1);
    }
};

TEST_F(ImapFolderImageTest, AnswersAsAFreshQueryWhateverChangedBetween)
{
    Restriction unreadBudget(RES_AND);
    unreadBudget.AddChild(Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ));
    unreadBudget.AddChild(Restriction::Content(PR_SUBJECT, S("budget")));

    const QByteArray readLater = Add(inbox, Mail(S("budget, read later")));
    const QByteArray unreadLater = Add(inbox, Mail(S("budget, unread later"), true));
    const QByteArray expunged = Add(inbox, Mail(S("budget, expunged by another client")));
    const QByteArray deleted = Add(inbox, Mail(S("budget, marked deleted by another client")));
    const QByteArray movedAway = Add(inbox, Mail(S("budget, moved away")));
    Add(inbox, Mail(S("budget, untouched")));
    Add(inbox, Mail(S("travel, unread")));
    const QByteArray archive = Folder("Archive");
    const QByteArray comesBack = Add(archive, Mail(S("budget, moved in")));
    Subjects(inbox);  // the store's connection is up and knows the server

    EXPECT_EQ(Told(unreadBudget).size(), 5);
    // Nothing changed: the image answers after asking what changed.
    const int before = store->CommandsSent();
    for (int i = 0; i < 3; ++i) store->Anticipate(inbox, unreadBudget, kColumns);
    ASSERT_TRUE(store->Query(inbox, &unreadBudget, kColumns).ok());
    EXPECT_EQ(store->CommandsSent() - before, 2);  // NOOP, UID FETCH ... (CHANGEDSINCE n)

    OtherClient(server->Port(), {"SELECT INBOX", "UID STORE " + Uid(readLater) + " +FLAGS (\\Seen)",
                                 "UID STORE " + Uid(unreadLater) + " -FLAGS (\\Seen)",
                                 "UID STORE " + Uid(expunged) + " +FLAGS (\\Deleted)", "UID EXPUNGE " + Uid(expunged),
                                 "UID STORE " + Uid(deleted) + " +FLAGS (\\Deleted)"});
    Add(inbox, Mail(S("budget, delivered later")));
    ASSERT_TRUE(store->Move(movedAway, archive).ok());
    ASSERT_TRUE(store->Move(comesBack, inbox).ok());
    EXPECT_EQ(Told(unreadBudget), (QStringList{S("budget, delivered later"), S("budget, moved in"),
                                               S("budget, unread later"), S("budget, untouched")}));

    // Only an expunge by someone else, which leaves no mod-sequence: the
    // count shows it.
    const QByteArray last = Add(inbox, Mail(S("budget, expunged last")));
    EXPECT_TRUE(Told(unreadBudget).contains(S("budget, expunged last")));
    OtherClient(server->Port(), {"SELECT INBOX", "UID STORE " + Uid(last) + " +FLAGS (\\Deleted)",
                                 "UID EXPUNGE " + Uid(last)});
    EXPECT_FALSE(Told(unreadBudget).contains(S("budget, expunged last")));
}

TEST_F(ImapFolderImageTest, ClassesOfTheRowsAndQueriesItCannotAnswer)
{
    // A calendar part whose method is named only in its text: the class
    // needs the structure and the part, read for the rows that show it.
    MailDef invite = Mail(S("budget meeting"));
    invite.extraHeaders << S("Content-Type: multipart/mixed; boundary=\"b1\"");
    invite.body = S("--b1\r\nContent-Type: text/plain\r\n\r\nSee you.\r\n--b1\r\n"
                    "Content-Type: text/calendar; charset=utf-8\r\n\r\n"
                    "BEGIN:VCALENDAR\r\nMETHOD:REQUEST\r\nEND:VCALENDAR\r\n--b1--");
    Add(inbox, invite);
    MailDef note = Mail(S("budget notes"));
    note.body = S("The figures for the harbour project.");
    Add(inbox, note);
    Subjects(inbox);

    const Restriction budget = Restriction::Content(PR_SUBJECT, S("budget"));
    EXPECT_EQ(Told(budget).size(), 2);
    auto rows = store->Query(inbox, &budget, kColumns);
    ASSERT_TRUE(rows.ok());
    EXPECT_TRUE(Column(rows, 2).contains(S("IPM.Schedule.Meeting.Request")));

    // A body term and the attachment bit are not in the image: asked of the server.
    EXPECT_EQ(Told(Restriction::Content(PR_BODY, S("harbour"))), QStringList{S("budget notes")});
    EXPECT_EQ(Told(Restriction::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_HASATTACH)), QStringList{});
}

}  // namespace
