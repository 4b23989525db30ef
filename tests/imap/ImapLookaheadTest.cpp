// A query told in advance answers as a fresh query would, whatever happened
// to the folder in between. Told once, a lookahead on a second connection
// has searched already; told three times, the folder's image was read and
// is brought up to date. Changes come from another client (flags,
// expunges, \Deleted), from delivery and from this store's own moves.
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"

#include <QTest>

using namespace mv;
using namespace mv::mapi;
using namespace mv::test;

namespace {

const std::vector<PropTag> kColumns = {PR_ENTRYID, PR_SUBJECT, PR_MESSAGE_CLASS};

class ImapToldAheadTest : public DovecotStoreTest, public ::testing::WithParamInterface<int> {
protected:
    bool Image() const { return GetParam() == 3; }

    // An image is read by the told query itself; a lookahead is handed on by
    // another query and waited for (its commands count once it is done).
    void Tell(const Restriction& r)
    {
        if (Image()) {
            Told(r);
            return;
        }
        ASSERT_TRUE(store->Query(inbox, nullptr, {PR_ENTRYID}).ok());
        int before = store->CommandsSent();
        ASSERT_TRUE(store->Query(inbox, nullptr, {PR_ENTRYID}).ok());
        before = 2 * store->CommandsSent() - before;  // what that query costs alone, once more
        store->Anticipate(inbox, r, kColumns);
        ASSERT_TRUE(store->Query(inbox, nullptr, {PR_ENTRYID}).ok());
        ASSERT_TRUE(QTest::qWaitFor([&] { return store->CommandsSent() >= before + 3; }, 20000))
            << "the lookahead did not answer";
    }

    // The told store's subjects, checked against a store told nothing (a
    // lookahead was told before the changes).
    QStringList Told(const Restriction& r)
    {
        if (Image())
            for (int i = 0; i < 3; ++i) store->Anticipate(inbox, r, kColumns);
        const QStringList told = Subjects(inbox, &r, kColumns);
        EXPECT_EQ(told, Subjects(inbox, &r, kColumns, MakeStore().get())) << r.ToString().toStdString();
        return told;
    }
};

TEST_P(ImapToldAheadTest, AnswersAsAFreshQueryWhateverChangedBetween)
{
    // Unread mail whose subject holds "budget": a flag the server answers
    // exactly and a term the store checks again itself.
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

    // A lookahead does not notice another client's expunge after its search
    // (a gap of the product as it stands): there the expunge goes first.
    const QByteArrayList expunge = {"UID STORE " + Uid(expunged) + " +FLAGS (\\Deleted)", "UID EXPUNGE " + Uid(expunged)};
    if (!Image()) OtherClient(server->Port(), QByteArrayList{"SELECT INBOX"} + expunge);
    ASSERT_NO_FATAL_FAILURE(Tell(unreadBudget));
    if (Image()) {
        // Nothing changed: the image answers after asking what changed.
        const int before = store->CommandsSent();
        EXPECT_EQ(Told(unreadBudget).size(), 5);
        EXPECT_EQ(store->CommandsSent() - before, 2);  // NOOP, UID FETCH ... (CHANGEDSINCE n)
    }
    OtherClient(server->Port(), QByteArrayList{"SELECT INBOX", "UID STORE " + Uid(readLater) + " +FLAGS (\\Seen)",
                                               "UID STORE " + Uid(unreadLater) + " -FLAGS (\\Seen)",
                                               "UID STORE " + Uid(deleted) + " +FLAGS (\\Deleted)"} +
                                    (Image() ? expunge : QByteArrayList{}));
    Add(inbox, Mail(S("budget, delivered later")));
    ASSERT_TRUE(store->Move(movedAway, archive).ok());
    ASSERT_TRUE(store->Move(comesBack, inbox).ok());
    EXPECT_EQ(Told(unreadBudget), (QStringList{S("budget, delivered later"), S("budget, moved in"),
                                               S("budget, unread later"), S("budget, untouched")}));

    // Only an expunge by someone else, which leaves no mod-sequence: the
    // count shows it.
    const QByteArray last = Add(inbox, Mail(S("budget, expunged last")));
    ASSERT_NO_FATAL_FAILURE(Tell(unreadBudget));
    OtherClient(server->Port(), {"SELECT INBOX", "UID STORE " + Uid(last) + " +FLAGS (\\Deleted)", "UID EXPUNGE " + Uid(last)});
    EXPECT_EQ(Told(unreadBudget).size(), 4);

    // A query not told, or told with other columns, is answered as usual.
    ASSERT_NO_FATAL_FAILURE(Tell(unreadBudget));
    const Restriction travel = Restriction::Content(PR_SUBJECT, S("travel"));
    EXPECT_EQ(Subjects(inbox, &travel, kColumns), QStringList{S("travel, unread")});
    EXPECT_EQ(Subjects(inbox, &unreadBudget, {PR_ENTRYID, PR_SUBJECT, PR_MESSAGE_DELIVERY_TIME}).size(), 4);
}

INSTANTIATE_TEST_SUITE_P(Tells, ImapToldAheadTest, ::testing::Values(1, 3),
                         [](const auto& info) { return info.param == 1 ? "Lookahead" : "Image"; });

}  // namespace
