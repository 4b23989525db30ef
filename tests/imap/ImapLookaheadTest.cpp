// A query the store was told of in advance answers as a fresh query would,
// whatever happened to the folder between the lookahead's search and the
// query: flags changed by another client, mail delivered, mail this store
// moved out, mail moved in by the rule before.
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"
#include "platform/stores/imap/ImapIds.h"

#include <QTest>

using namespace mv;
using namespace mv::mapi;
using namespace mv::test;

namespace {

QString S(const char* s) { return QString::fromUtf8(s); }

class ImapLookaheadTest : public DovecotStoreTest {
protected:
    MailDef Mail(const char* subject, bool seen) const
    {
        MailDef def;
        def.subject = S(subject);
        def.flags.seen = seen;
        return def;
    }

    QByteArray Uid(const QByteArray& id) const { return QByteArray::number(stores::ImapIds::ParseMessage(id)->uid); }

    // Tells the store, lets a query of its hand that on to the lookahead,
    // then waits until the lookahead has answered (its commands are counted
    // once a job is done), so that what the test changes next happens after
    // the lookahead's search.
    void AnticipateAndWait(const QByteArray& folder, const Restriction& r, const std::vector<PropTag>& columns)
    {
        // What that query costs alone, the folder already selected.
        ASSERT_TRUE(store->Query(folder, nullptr, {PR_ENTRYID}).ok());
        int before = store->CommandsSent();
        ASSERT_TRUE(store->Query(folder, nullptr, {PR_ENTRYID}).ok());
        const int query = store->CommandsSent() - before;
        before = store->CommandsSent() + query;
        store->Anticipate(folder, r, columns);
        ASSERT_TRUE(store->Query(folder, nullptr, {PR_ENTRYID}).ok());
        ASSERT_TRUE(QTest::qWaitFor([&] { return store->CommandsSent() >= before + 3; }, 20000))
            << "the lookahead did not answer";
    }

    QStringList SubjectsOf(const QByteArray& folder, const Restriction& r, const std::vector<PropTag>& columns)
    {
        auto rows = store->Query(folder, &r, columns);
        EXPECT_TRUE(rows.ok()) << rows.error().message.toStdString();
        QStringList out;
        if (rows)
            for (const Row& row : *rows) out << row[1].toString();
        return out;
    }
};

TEST_F(ImapLookaheadTest, AnswersAsAFreshQueryAfterTheFolderChanged)
{
    // Unread mail whose subject holds "budget": a flag the server answers
    // exactly and a term the store checks again itself.
    Restriction unreadBudget(RES_AND);
    unreadBudget.AddChild(Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ));
    unreadBudget.AddChild(Restriction::Content(PR_SUBJECT, S("budget")));
    const std::vector<PropTag> columns = {PR_ENTRYID, PR_SUBJECT};

    const QByteArray readLater = Add(inbox, Mail("budget, read later", false));
    const QByteArray unreadLater = Add(inbox, Mail("budget, unread later", true));
    Add(inbox, Mail("budget, untouched", false));
    Add(inbox, Mail("travel, unread", false));
    const QByteArray movedAway = Add(inbox, Mail("budget, moved away", false));
    const QByteArray archive = Folder("Archive");
    Subjects(inbox);  // the store's own connection is up and knows the server

    AnticipateAndWait(inbox, unreadBudget, columns);
    if (HasFatalFailure()) return;
    OtherClient(server->Port(), {"SELECT INBOX", "UID STORE " + Uid(readLater) + " +FLAGS (\\Seen)",
                                 "UID STORE " + Uid(unreadLater) + " -FLAGS (\\Seen)"});
    Add(inbox, Mail("budget, delivered later", false));
    ASSERT_TRUE(store->Move(movedAway, archive).ok());

    QStringList got = SubjectsOf(inbox, unreadBudget, columns);
    got.sort();
    const QStringList expected = {S("budget, delivered later"), S("budget, unread later"), S("budget, untouched")};
    EXPECT_EQ(got, expected);

    // The same as a store that was told nothing.
    auto fresh = MakeStore();
    auto rows = fresh->Query(inbox, &unreadBudget, columns);
    ASSERT_TRUE(rows.ok());
    QStringList freshSubjects;
    for (const Row& row : *rows) freshSubjects << row[1].toString();
    freshSubjects.sort();
    EXPECT_EQ(freshSubjects, expected);
}

TEST_F(ImapLookaheadTest, SeesMailTheRuleBeforeMovedIntoItsFolder)
{
    const QByteArray archive = Folder("Archive");
    Add(archive, Mail("already archived", false));
    const QByteArray incoming = Add(inbox, Mail("archived by the rule before", false));
    Subjects(inbox);

    const Restriction unread = Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ);
    const std::vector<PropTag> columns = {PR_ENTRYID, PR_SUBJECT};
    AnticipateAndWait(archive, unread, columns);
    if (HasFatalFailure()) return;
    ASSERT_TRUE(store->Move(incoming, archive).ok());

    QStringList got = SubjectsOf(archive, unread, columns);
    got.sort();
    EXPECT_EQ(got, (QStringList{S("already archived"), S("archived by the rule before")}));
}

TEST_F(ImapLookaheadTest, AQueryNotAnnouncedOrDifferentIsAnsweredAsUsual)
{
    Add(inbox, Mail("budget", false));
    Add(inbox, Mail("travel", false));
    Subjects(inbox);
    const std::vector<PropTag> columns = {PR_ENTRYID, PR_SUBJECT};
    AnticipateAndWait(inbox, Restriction::Content(PR_SUBJECT, S("budget")), columns);
    if (HasFatalFailure()) return;

    // Another term, and the announced one with other columns.
    EXPECT_EQ(SubjectsOf(inbox, Restriction::Content(PR_SUBJECT, S("travel")), columns), QStringList{S("travel")});
    const std::vector<PropTag> more = {PR_ENTRYID, PR_SUBJECT, PR_MESSAGE_DELIVERY_TIME};
    EXPECT_EQ(SubjectsOf(inbox, Restriction::Content(PR_SUBJECT, S("budget")), more), QStringList{S("budget")});
}

}  // namespace
