// A query told in advance answers as a fresh query would, whatever happened
// to the folder in between. Told once, a lookahead on a second connection
// has searched already; told three times, the folder's image was read and
// is brought up to date. Changes come from another client (flags,
// expunges, \Deleted), from delivery and from this store's own moves.
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"

#include <QTemporaryDir>
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
        if (Image()) Told(r);
        else Ahead(r);
    }
    void Ahead(const Restriction& r)
    {
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

    const QByteArrayList expunge = {"UID STORE " + Uid(expunged) + " +FLAGS (\\Deleted)", "UID EXPUNGE " + Uid(expunged)};
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
                                    expunge);
    Add(inbox, Mail(S("budget, delivered later")));
    ASSERT_TRUE(store->Move(movedAway, archive).ok());
    ASSERT_TRUE(store->Move(comesBack, inbox).ok());
    EXPECT_EQ(Told(unreadBudget), (QStringList{S("budget, delivered later"), S("budget, moved in"),
                                               S("budget, unread later"), S("budget, untouched")}));

    // Only an expunge by someone else, which leaves no mod-sequence: the
    // count shows it, or, once a lookahead's answer turned QRESYNC on, VANISHED.
    const Restriction body = Restriction::Content(PR_BODY, S("zzz"));  // never an image's
    if (Image()) {
        ASSERT_NO_FATAL_FAILURE(Ahead(body));
    }
    EXPECT_TRUE(Subjects(inbox, &body, kColumns).isEmpty());
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

// A mirror answers each new process as a store without one does, whatever
// another client did between the processes, on a server with QRESYNC, with
// CONDSTORE alone, and with neither (no mirror then: plain queries).
class ImapMirrorTest : public DovecotStoreTest, public ::testing::WithParamInterface<const char*> {
protected:
    DovecotOptions Options() const override
    {
        return {QString::fromLatin1(GetParam()).split(QLatin1Char(' '), Qt::SkipEmptyParts), false};
    }
    std::unique_ptr<stores::ImapStore> Process() const
    {
        auto made = MakeStore();
        made->SetMirrorFolder(mirrorDir.path());
        return made;
    }
    // Every rule's answer from a new process with the mirror, checked
    // against a store without one.
    void Compare(const QByteArray& folder, const char* when)
    {
        const auto mirrored = Process();
        for (const Restriction& r : rules)
            EXPECT_EQ(Subjects(folder, &r, kColumns, mirrored.get()), Subjects(folder, &r, kColumns))
                << when << ": " << r.ToString().toStdString();
    }
    QTemporaryDir mirrorDir;
    std::vector<Restriction> rules = {
        Restriction::Content(PR_SUBJECT, S("budget")),
        Restriction::Bitmask(BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ),
        Restriction::Property(RELOP_EQ, PR_FLAG_STATUS, 2),
        Restriction::Content(PR_SENT_REPRESENTING_EMAIL_ADDRESS, S("boss@example.com")),
    };
};

TEST_P(ImapMirrorTest, EachProcessAnswersAsAStoreWithoutOne)
{
    const QByteArray work = Folder("Work");
    const QByteArray read = Add(work, Mail(S("budget, read later")));
    const QByteArray gone = Add(work, Mail(S("budget, expunged by another client")));
    MailDef fromBoss = Mail(S("travel, marked deleted"));
    fromBoss.from = S("The Boss <boss@example.com>");
    const QByteArray deleted = Add(work, fromBoss);
    Add(work, Mail(S("budget, untouched"), true));
    Compare(work, "first process");

    OtherClient(server->Port(), {"SELECT Work", "UID STORE " + Uid(read) + " +FLAGS (\\Seen \\Flagged)",
                                 "UID STORE " + Uid(deleted) + " +FLAGS (\\Deleted)",
                                 "UID STORE " + Uid(gone) + " +FLAGS (\\Deleted)", "UID EXPUNGE " + Uid(gone)});
    Add(work, Mail(S("budget, delivered between")));
    Compare(work, "after flags, an expunge and a delivery");

    // Nothing new: the kept connection asks only what changed.
    const auto service = Process();
    const Restriction& budget = rules.front();
    EXPECT_EQ(Subjects(work, &budget, kColumns, service.get()).size(), 3);
    const int before = service->CommandsSent();
    EXPECT_EQ(Subjects(work, &budget, kColumns, service.get()).size(), 3);
    if (QString::fromLatin1(GetParam()).isEmpty()) {
        EXPECT_EQ(service->CommandsSent() - before, 1);
    }

    // Recreated: a new UIDVALIDITY, the old mirror is not trusted.
    OtherClient(server->Port(), {"DELETE Work", "CREATE Work"});
    store = MakeStore();  // a session with Work selected may go on seeing the old one
    const QByteArray again = Folder("Work");
    ASSERT_NE(again, work);
    Add(again, Mail(S("budget, after the new UIDVALIDITY")));
    Compare(again, "after a new UIDVALIDITY");
}

INSTANTIATE_TEST_SUITE_P(Servers, ImapMirrorTest, ::testing::Values("", "QRESYNC", "QRESYNC CONDSTORE"),
                         [](const auto& info) {
                             return std::string(info.index == 0 ? "Qresync" : info.index == 1 ? "CondstoreOnly" : "NoModSeq");
                         });

}  // namespace
