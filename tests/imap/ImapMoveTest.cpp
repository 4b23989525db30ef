// Moves, with and without the server's MOVE, and new-mail events.
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"
#include "platform/stores/imap/ImapIds.h"

#include <QSignalSpy>

using namespace mv;
using namespace mv::mapi;
using namespace mv::test;

namespace {

QString S(const char* s) { return QString::fromUtf8(s); }

struct Variant {
    const char* name;
    QStringList hidden;
};

class ImapMoveTest : public DovecotStoreTest, public ::testing::WithParamInterface<Variant> {
protected:
    DovecotOptions Options() const override { return {GetParam().hidden, false}; }

    MailDef Numbered(int n) const
    {
        MailDef def;
        def.subject = S("Message %1").arg(n);
        return def;
    }
};

TEST_P(ImapMoveTest, MoveGivesTheNewIdentifierAndKeepsFlags)
{
    MailDef def;
    def.flags.seen = true;
    def.flags.keywords = {S("$Forwarded")};
    const QByteArray id = Add(inbox, def);
    const QByteArray archive = Folder("Archive");
    auto moved = store->Move(id, archive);
    ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
    EXPECT_NE(*moved, id);
    auto item = store->Item(*moved);
    ASSERT_TRUE(item.ok()) << item.error().message.toStdString();
    EXPECT_EQ(item->Get(PR_SUBJECT)->toString(), def.subject);
    EXPECT_EQ(item->Get(PR_MESSAGE_FLAGS)->toInt() & MSGFLAG_READ, MSGFLAG_READ);
    EXPECT_EQ(item->Get(PR_LAST_VERB_EXECUTED)->toInt(), EXCHIVERB_FORWARD);
    EXPECT_EQ(store->Item(id).error().kind, ErrorKind::NotFound);
    EXPECT_TRUE(Subjects(inbox).isEmpty());
    EXPECT_EQ(Subjects(archive), QStringList{def.subject});
}

TEST_P(ImapMoveTest, MoveManyKeepsOrderAndCostsTheSameForOneOrMany)
{
    std::vector<QByteArray> ids;
    for (int n = 1; n <= 6; ++n) ids.push_back(Add(inbox, Numbered(n)));
    const QByteArray archive = Folder("Archive");
    Subjects(inbox);  // INBOX selected before counting, as it is after a rule's query

    int before = store->CommandsSent();
    auto one = store->MoveMany({ids[0]}, archive);
    ASSERT_TRUE(one.ok()) << one.error().message.toStdString();
    const int forOne = store->CommandsSent() - before;

    before = store->CommandsSent();
    auto many = store->MoveMany({ids[5], ids[2], ids[3], ids[1]}, archive);
    ASSERT_TRUE(many.ok()) << many.error().message.toStdString();
    EXPECT_EQ(store->CommandsSent() - before, forOne);

    const int expected[] = {6, 3, 4, 2};
    for (size_t i = 0; i < many->size(); ++i) {
        auto item = store->Item((*many)[i]);
        ASSERT_TRUE(item.ok());
        EXPECT_EQ(item->Get(PR_SUBJECT)->toString(), S("Message %1").arg(expected[i]));
    }
    EXPECT_EQ(Subjects(inbox), QStringList{S("Message 5")});
}

TEST_P(ImapMoveTest, OtherClientsDeletedMailIsNotExpunged)
{
    Add(inbox, Numbered(1));
    const QByteArray keep = Add(inbox, Numbered(2));
    const auto keepRef = stores::ImapIds::ParseMessage(keep);
    // Another client marked message 2 \Deleted and has not expunged yet.
    OtherClient(server->Port(), {"SELECT INBOX", "UID STORE " + QByteArray::number(keepRef->uid) + " +FLAGS (\\Deleted)"});
    auto rows = store->Query(inbox, nullptr, {PR_ENTRYID});
    ASSERT_TRUE(rows.ok());
    ASSERT_EQ(rows->size(), 1u) << "deleted messages are never listed";
    ASSERT_TRUE(store->Move(rows->front()[0].toByteArray(), Folder("Archive")).ok());
    const QByteArray said = OtherClient(server->Port(), {"SELECT INBOX", "UID SEARCH DELETED"});
    EXPECT_TRUE(said.contains("* SEARCH " + QByteArray::number(keepRef->uid))) << said.constData();
}

TEST_P(ImapMoveTest, GoneMessageMovesNothing)
{
    const QByteArray a = Add(inbox, Numbered(1));
    const QByteArray b = Add(inbox, Numbered(2));
    const QByteArray archive = Folder("Archive");
    ASSERT_TRUE(store->Move(b, archive).ok());
    auto again = store->MoveMany({a, b}, archive);
    ASSERT_FALSE(again.ok());
    EXPECT_EQ(again.error().kind, ErrorKind::NotFound);
    EXPECT_EQ(Subjects(inbox), QStringList{S("Message 1")});
}

INSTANTIATE_TEST_SUITE_P(Servers, ImapMoveTest,
                         ::testing::Values(Variant{"WithMove", {}}, Variant{"CopyStoreExpunge", {S("MOVE")}}),
                         [](const auto& info) { return std::string(info.param.name); });

class ImapNoUidplusTest : public DovecotStoreTest {
protected:
    DovecotOptions Options() const override { return {{S("MOVE"), S("UIDPLUS")}, false}; }
};

TEST_F(ImapNoUidplusTest, MoveIsRefusedRatherThanExpungingEverything)
{
    const QByteArray id = Add(inbox, {});
    auto moved = store->Move(id, Folder("Archive"));
    ASSERT_FALSE(moved.ok());
    EXPECT_EQ(moved.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(moved.error().message.contains(S("EXPUNGE"))) << moved.error().message.toStdString();
    EXPECT_EQ(Subjects(inbox).size(), 1);
    EXPECT_TRUE(Subjects(Folder("Archive")).isEmpty());
}

class ImapIdleTest : public DovecotStoreTest {};

TEST_F(ImapIdleTest, NewMailInInboxIsSignalledOnTheStoresThread)
{
    auto watched = MakeStore();
    QSignalSpy spy(watched.get(), &MessageStore::MessagesArrived);  // connecting starts the watcher
    QByteArray seenOn;
    QObject::connect(watched.get(), &MessageStore::MessagesArrived, watched.get(),
                     [&] { seenOn = QThread::currentThread() == watched->thread() ? "store" : "other"; });
    // The watcher needs a moment to log in and start IDLE; deliver until it
    // reports, as a mail server would keep delivering.
    for (int attempt = 0; attempt < 10 && spy.isEmpty(); ++attempt) {
        const QByteArray said = OtherClient(server->Port(), {"APPEND INBOX {" + QByteArray::number(BuildMail({}, attempt).size()) + "+}\r\n" +
                                                                 BuildMail({}, attempt)});
        ASSERT_TRUE(said.contains("OK [APPENDUID")) << said.constData();
        spy.wait(2000);
    }
    ASSERT_FALSE(spy.isEmpty()) << "no new-mail event";
    EXPECT_EQ(spy.first().first().toByteArray(), inbox);
    EXPECT_EQ(seenOn, "store");
    // Destroying the store stops its watcher thread promptly.
    QElapsedTimer timer;
    timer.start();
    watched.reset();
    EXPECT_LT(timer.elapsed(), 2000);
}

}  // namespace
