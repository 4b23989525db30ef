// A query the store was told of in advance answers as a fresh query would,
// whatever happened to the folder between the lookahead's search and the
// query: flags changed by another client, mail delivered, mail this store
// moved out, mail moved in by the rule before.
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"

#include <QTest>

using namespace mv;
using namespace mv::mapi;
using namespace mv::test;

namespace {

class ImapLookaheadTest : public DovecotStoreTest {
protected:
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
};

TEST_F(ImapLookaheadTest, AnswersAsAFreshQueryAfterTheFolderChanged)
{
    // Unread mail whose subject holds "budget": a flag the server answers
    // exactly and a term the store checks again itself.
    Restriction unreadBudget(RES_AND);
    unreadBudget.AddChild(Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ));
    unreadBudget.AddChild(Restriction::Content(PR_SUBJECT, S("budget")));
    const std::vector<PropTag> columns = {PR_ENTRYID, PR_SUBJECT};

    const QByteArray readLater = Add(inbox, Mail(S("budget, read later")));
    const QByteArray unreadLater = Add(inbox, Mail(S("budget, unread later"), true));
    Add(inbox, Mail(S("budget, untouched")));
    Add(inbox, Mail(S("travel, unread")));
    const QByteArray movedAway = Add(inbox, Mail(S("budget, moved away")));
    const QByteArray archive = Folder("Archive");
    Subjects(inbox);  // the store's own connection is up and knows the server

    AnticipateAndWait(inbox, unreadBudget, columns);
    if (HasFatalFailure()) return;
    OtherClient(server->Port(), {"SELECT INBOX", "UID STORE " + Uid(readLater) + " +FLAGS (\\Seen)",
                                 "UID STORE " + Uid(unreadLater) + " -FLAGS (\\Seen)"});
    Add(inbox, Mail(S("budget, delivered later")));
    ASSERT_TRUE(store->Move(movedAway, archive).ok());

    const QStringList expected = {S("budget, delivered later"), S("budget, unread later"), S("budget, untouched")};
    EXPECT_EQ(Subjects(inbox, &unreadBudget, columns), expected);
    // The same as a store that was told nothing.
    EXPECT_EQ(Subjects(inbox, &unreadBudget, columns, MakeStore().get()), expected);
}

// Mail the rule before moved into the told folder is seen; a query not
// announced, or announced with other columns, is answered as usual.
TEST_F(ImapLookaheadTest, SeesMailMovedInAndAnswersOtherQueriesAsUsual)
{
    const QByteArray archive = Folder("Archive");
    Add(archive, Mail(S("already archived")));
    const QByteArray incoming = Add(inbox, Mail(S("archived by the rule before")));
    Subjects(inbox);

    const Restriction unread = Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ);
    const std::vector<PropTag> columns = {PR_ENTRYID, PR_SUBJECT};
    AnticipateAndWait(archive, unread, columns);
    if (HasFatalFailure()) return;
    ASSERT_TRUE(store->Move(incoming, archive).ok());

    EXPECT_EQ(Subjects(archive, &unread, columns), (QStringList{S("already archived"), S("archived by the rule before")}));

    Add(inbox, Mail(S("budget")));
    Add(inbox, Mail(S("travel")));
    const Restriction budget = Restriction::Content(PR_SUBJECT, S("budget"));
    const Restriction travel = Restriction::Content(PR_SUBJECT, S("travel"));
    AnticipateAndWait(inbox, budget, columns);
    if (HasFatalFailure()) return;
    EXPECT_EQ(Subjects(inbox, &travel, columns), QStringList{S("travel")});
    EXPECT_EQ(Subjects(inbox, &budget, {PR_ENTRYID, PR_SUBJECT, PR_MESSAGE_DELIVERY_TIME}), QStringList{S("budget")});
}

}  // namespace
