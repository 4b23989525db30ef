// Moves and flag changes of batches, and the calls the move journal makes,
// on servers with MOVE, without MOVE, and without UIDPLUS either.
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QThread>

using namespace mv;
using namespace mv::mapi;
using namespace mv::test;

namespace {

struct Server {
    const char* name;
    QStringList hidden;
    bool uidExpunge;
};

class ImapMoveTest : public DovecotStoreTest, public ::testing::WithParamInterface<Server> {
protected:
    DovecotOptions Options() const override { return {GetParam().hidden, false}; }
};

// A rule's move right after its query: the query told the Message-IDs and
// the destination was looked at, so the batch costs the UID MOVE alone and
// answers in the order asked. A message another client took away in
// between makes the server refuse the set; the store then asks which are
// left and moves those. What this store moved already is passed over;
// another client's \Deleted mail is neither listed nor expunged.
TEST_P(ImapMoveTest, BatchAfterAQueryIsOneCommandAndSkipsWhatVanished)
{
    for (int n = 1; n <= 8; ++n) Add(inbox, Mail(S("Message %1").arg(n)));
    const QByteArray deleted = Add(inbox, Mail(S("Message 9")));
    OtherClient(server->Port(), {"SELECT INBOX", "UID STORE " + Uid(deleted) + " +FLAGS (\\Deleted)"});
    const QByteArray archive = Folder("Archive");
    const QByteArray trash = Folder("Trash");
    ASSERT_TRUE(store->Folder(archive).ok());
    auto rows = store->Query(inbox, nullptr, {PR_ENTRYID, PR_SUBJECT});
    ASSERT_TRUE(rows.ok());
    ASSERT_EQ(rows->size(), 8u);
    std::vector<QByteArray> first, second;
    QByteArray gone;
    for (const Row& row : *rows) {
        (first.size() < 4 ? first : second).push_back(row[0].toByteArray());
        if (row[1].toString() == S("Message 6")) gone = row[0].toByteArray();
    }
    ASSERT_FALSE(gone.isEmpty());
    std::swap(first[0], first[3]);

    const int before = store->CommandsSent();
    auto moved = store->MoveMany(first, archive);
    ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
    const bool hasMove = GetParam().hidden.isEmpty();
    EXPECT_EQ(store->CommandsSent() - before, hasMove ? 1 : 3) << "UID MOVE, or UID COPY + STORE + EXPUNGE";
    QStringList subjects;
    for (const QByteArray& id : *moved) {
        auto item = store->Item(id);
        subjects << (item ? item->Get(PR_SUBJECT)->toString() : QString());
    }
    EXPECT_EQ(subjects, (QStringList{S("Message 4"), S("Message 2"), S("Message 3"), S("Message 1")}));

    OtherClient(server->Port(), {"SELECT INBOX", "UID MOVE " + Uid(gone) + " Trash"});
    second.push_back(first[0]);  // moved already
    moved = store->MoveMany(second, archive);
    ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
    for (size_t i = 0; i < second.size(); ++i) EXPECT_EQ((*moved)[i].isEmpty(), second[i] == gone || i == 4) << i;
    EXPECT_EQ(store->Move(first[0], archive).error().kind, ErrorKind::NotFound);
    EXPECT_TRUE(Subjects(inbox).isEmpty());
    EXPECT_EQ(Subjects(archive).size(), 7);
    EXPECT_EQ(Subjects(trash), QStringList{S("Message 6")});
    const QByteArray said = OtherClient(server->Port(), {"SELECT INBOX", "UID SEARCH DELETED"});
    EXPECT_TRUE(said.contains("* SEARCH " + Uid(deleted))) << said.constData();
}

INSTANTIATE_TEST_SUITE_P(Servers, ImapMoveTest,
                         ::testing::Values(Server{"WithMove", {}, true}, Server{"CopyStoreExpunge", {S("MOVE")}, true}),
                         [](const auto& info) { return std::string(info.param.name); });

using ImapFlagsTest = DovecotStoreTest;

// Completed flags of a batch: right after the query that listed them, one
// STORE per distinct change; otherwise a FETCH of the flags first. Other
// flags and other clients' keywords stay.
TEST_F(ImapFlagsTest, FlagStatusOfManyKeepsOtherFlags)
{
    std::vector<QByteArray> ids;
    QByteArrayList uids;
    for (int n = 1; n <= 4; ++n) {
        MailDef def = Mail(S("Message %1").arg(n), n % 2);
        def.flags.keywords = {S("Project")};
        if (n != 4) def.flags.keywords << S("$Completed");
        ids.push_back(Add(inbox, def));
        uids << Uid(ids.back());
    }
    Subjects(inbox);
    int before = store->CommandsSent();
    ASSERT_TRUE(store->SetFlagStatusMany(ids, FLAG_STATUS_NONE).ok());
    EXPECT_EQ(store->CommandsSent() - before, 1);
    before = store->CommandsSent();
    ASSERT_TRUE(store->SetFlagStatusMany({ids[0], ids[3]}, FLAG_STATUS_MARKED).ok());
    EXPECT_EQ(store->CommandsSent() - before, 1) << "the flags stored last are known";
    // Another connection, no query: it asks for the flags first.
    ASSERT_TRUE(MakeStore()->SetFlagStatusMany({ids[1], ids[3]}, FLAG_STATUS_COMPLETE).ok());

    const int expected[] = {FLAG_STATUS_MARKED, FLAG_STATUS_COMPLETE, FLAG_STATUS_NONE, FLAG_STATUS_COMPLETE};
    for (size_t i = 0; i < ids.size(); ++i) {
        auto item = store->Item(ids[i]);
        ASSERT_TRUE(item.ok());
        EXPECT_EQ(item->Get(PR_FLAG_STATUS).value_or(QVariant(0)).toInt(), expected[i]) << i;
        EXPECT_EQ(item->Get(PR_MESSAGE_FLAGS)->toInt() & MSGFLAG_READ, i % 2 == 0 ? MSGFLAG_READ : 0) << i;
    }
    const QByteArray said = OtherClient(server->Port(), {"SELECT INBOX", "UID SEARCH KEYWORD Project"});
    EXPECT_TRUE(said.contains("* SEARCH " + uids.join(' ') + "\r\n")) << "other clients' keywords stay: " << said.constData();
}

class ImapJournalCallsTest : public DovecotStoreTest, public ::testing::WithParamInterface<Server> {
protected:
    DovecotOptions Options() const override { return {GetParam().hidden, false}; }
};

// Export from one folder, AppendMany into another, found again by the
// originals' fingerprints above the mark, a message without Message-ID and
// with bare LF line ends among them; then the originals probed, removed
// and moved.
TEST_P(ImapJournalCallsTest, ExportAppendLocateProbeRemove)
{
    MailDef seen = Mail(S("Seen and forwarded"), true);
    seen.flags.keywords = {S("$Forwarded")};
    std::vector<QByteArray> ids = {Add(inbox, seen), Add(inbox, {})};
    NewMessage bare;
    bare.rfc822 = "From: carol@example.org\nSubject: No identifier\n\nLF only.\n";
    bare.internalDate = QDateTime(QDate(2026, 3, 4), QTime(5, 6, 7), Qt::UTC);
    auto bareId = store->Append(inbox, bare);
    ASSERT_TRUE(bareId.ok() && !bareId->isEmpty()) << "found by Locate when the server names no UID";
    ids.push_back(*bareId);
    ids.push_back(stores::ImapIds::MessageId(*stores::ImapIds::ParseFolder(inbox), 9999));  // never there

    const QByteArray archive = Folder("Archive");
    Add(archive, {});  // below the mark: never taken for a copy
    auto mark = store->ArrivalMark(archive);
    ASSERT_TRUE(mark.ok());
    auto exported = store->Export(ids);
    ASSERT_TRUE(exported.ok()) << exported.error().message.toStdString();
    ASSERT_EQ(exported->size(), 4u);
    EXPECT_TRUE(exported->back().rfc822.isEmpty());
    EXPECT_TRUE((*exported)[2].rfc822.contains("\r\nSubject: No identifier\r\n")) << "CRLF on the wire";
    EXPECT_EQ((*exported)[2].internalDate, bare.internalDate);
    exported->pop_back();
    auto appended = store->AppendMany(archive, *exported);
    ASSERT_TRUE(appended.ok()) << appended.error().message.toStdString();

    auto prints = store->Fingerprints(ids);
    ASSERT_TRUE(prints.ok());
    EXPECT_FALSE(prints->back().Known());
    EXPECT_EQ((*prints)[2].size, (*exported)[2].rfc822.size());
    auto located = store->Locate(archive, *mark, *prints);
    ASSERT_TRUE(located.ok()) << located.error().message.toStdString();
    EXPECT_EQ(*located, (std::vector<QByteArray>{(*appended)[0], (*appended)[1], (*appended)[2], {}}));
    auto item = store->Item((*appended)[0]);
    ASSERT_TRUE(item.ok());
    EXPECT_EQ(item->Get(PR_SUBJECT)->toString(), seen.subject);
    EXPECT_EQ(item->Get(PR_LAST_VERB_EXECUTED)->toInt(), EXCHIVERB_FORWARD);
    EXPECT_EQ(item->Get(PR_MESSAGE_DELIVERY_TIME)->toDateTime(), seen.date);
    // A mark of another UIDVALIDITY: the whole folder is looked at.
    auto whole = store->Locate(archive, QByteArray("MVA1\0\0\0\1\0\0\0\1", 12), *prints);
    ASSERT_TRUE(whole.ok());
    EXPECT_EQ(*whole, *located);

    // Probe tells present, \Deleted and gone apart; Remove takes exactly the
    // messages named (another client's \Deleted mail stays); Undelete restores.
    OtherClient(server->Port(), {"SELECT INBOX", "UID STORE " + Uid(ids[1]) + " +FLAGS (\\Deleted)"});
    ASSERT_TRUE(store->Remove({ids[0]}).ok());
    const Presence removed = GetParam().uidExpunge ? Presence::Absent : Presence::Deleted;
    auto presence = store->Probe(ids);
    ASSERT_TRUE(presence.ok());
    EXPECT_EQ(*presence, (std::vector<Presence>{removed, Presence::Deleted, Presence::Present, Presence::Absent}));
    ASSERT_TRUE(store->Undelete({ids[1]}).ok());
    ASSERT_TRUE(store->Remove({ids[0]}).ok()) << "sent again, it changes nothing";
    presence = store->Probe(ids);
    ASSERT_TRUE(presence.ok());
    EXPECT_EQ(*presence, (std::vector<Presence>{removed, Presence::Present, Presence::Present, Presence::Absent}));

    // A move: without UID EXPUNGE the original stays \Deleted (never a plain
    // EXPUNGE, which would take another client's \Deleted mail too) and the
    // log says so.
    logging::MemoryLogger log;
    store->SetLogger(&log);
    OtherClient(server->Port(), {"SELECT INBOX", "UID STORE " + Uid(ids[1]) + " +FLAGS (\\Deleted)"});
    const QByteArray moving = Add(inbox, {});
    auto moved = store->Move(moving, archive);
    ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
    EXPECT_TRUE(store->Item(*moved).ok()) << "the copy is found without COPYUID";
    presence = store->Probe({ids[1], moving});
    ASSERT_TRUE(presence.ok());
    EXPECT_EQ(*presence, (std::vector<Presence>{Presence::Deleted, removed}));
    ASSERT_EQ(log.texts().size(), GetParam().uidExpunge ? 0 : 1);
    for (const QString& line : log.texts())
        EXPECT_TRUE(line.contains(S("UIDPLUS")) && line.contains(S("\\Deleted")) && line.contains(QString::fromLatin1(Uid(moving))))
            << line.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Servers, ImapJournalCallsTest,
                         ::testing::Values(Server{"WithMove", {}, true}, Server{"WithoutMove", {S("MOVE")}, true},
                                           Server{"WithoutUidplus", {S("MOVE"), S("UIDPLUS")}, false}),
                         [](const auto& info) { return std::string(info.param.name); });

using ImapIdleTest = DovecotStoreTest;

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
