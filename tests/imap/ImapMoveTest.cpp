// Moves, with and without the server's MOVE, and new-mail events.
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>

using namespace mv;
using namespace mv::mapi;
using namespace mv::test;

namespace {

struct Variant {
    const char* name;
    QStringList hidden;
};

class ImapMoveTest : public DovecotStoreTest, public ::testing::WithParamInterface<Variant> {
protected:
    DovecotOptions Options() const override { return {GetParam().hidden, false}; }
};

MailDef Numbered(int n) { return Mail(S("Message %1").arg(n)); }

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
    // Never more; fewer once the destination's UIDNEXT is known.
    EXPECT_LE(store->CommandsSent() - before, forOne);

    const int expected[] = {6, 3, 4, 2};
    for (size_t i = 0; i < many->size(); ++i) {
        auto item = store->Item((*many)[i]);
        ASSERT_TRUE(item.ok());
        EXPECT_EQ(item->Get(PR_SUBJECT)->toString(), S("Message %1").arg(expected[i]));
    }
    EXPECT_EQ(Subjects(inbox), QStringList{S("Message 5")});
}

// A message this store moved away already is passed over and the rest
// moves; another client's \Deleted mail is neither listed nor expunged.
TEST_P(ImapMoveTest, GoneMessageIsPassedOverAndOthersDeletedMailStays)
{
    const QByteArray a = Add(inbox, Numbered(1));
    const QByteArray b = Add(inbox, Numbered(2));
    const QByteArray deleted = Add(inbox, Numbered(3));
    OtherClient(server->Port(), {"SELECT INBOX", "UID STORE " + Uid(deleted) + " +FLAGS (\\Deleted)"});
    const QByteArray archive = Folder("Archive");
    ASSERT_TRUE(store->Move(b, archive).ok());
    EXPECT_EQ(Subjects(inbox), QStringList{S("Message 1")});
    auto again = store->MoveMany({a, b}, archive);
    ASSERT_TRUE(again.ok()) << again.error().message.toStdString();
    ASSERT_EQ(again->size(), 2u);
    EXPECT_FALSE((*again)[0].isEmpty());
    EXPECT_TRUE((*again)[1].isEmpty()) << "b had already left INBOX";
    EXPECT_TRUE(Subjects(inbox).isEmpty());
    EXPECT_EQ(Subjects(archive), (QStringList{S("Message 1"), S("Message 2")}));
    EXPECT_EQ(store->Move(b, archive).error().kind, ErrorKind::NotFound);
    const QByteArray said = OtherClient(server->Port(), {"SELECT INBOX", "UID SEARCH DELETED"});
    EXPECT_TRUE(said.contains("* SEARCH " + Uid(deleted))) << said.constData();
}

// A rule's move right after its query: the query told the Message-IDs and
// the destination was looked at, so the batch costs the UID MOVE alone. A
// message another client took away in between makes the server refuse the
// set; the store then asks which are left and moves those.
TEST_P(ImapMoveTest, BatchAfterAQueryIsOneCommandAndSkipsWhatVanished)
{
    for (int n = 1; n <= 8; ++n) Add(inbox, Numbered(n));
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

    const int before = store->CommandsSent();
    auto moved = store->MoveMany(first, archive);
    ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
    const bool hasMove = GetParam().hidden.isEmpty();
    EXPECT_EQ(store->CommandsSent() - before, hasMove ? 1 : 3) << "UID MOVE, or UID COPY + STORE + EXPUNGE";

    OtherClient(server->Port(), {"SELECT INBOX", "UID MOVE " + Uid(gone) + " Trash"});
    moved = store->MoveMany(second, archive);
    ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
    for (size_t i = 0; i < second.size(); ++i) EXPECT_EQ((*moved)[i].isEmpty(), second[i] == gone) << i;
    EXPECT_TRUE(Subjects(inbox).isEmpty());
    EXPECT_EQ(Subjects(archive).size(), 7);
    EXPECT_EQ(Subjects(trash), QStringList{S("Message 6")});
}

using ImapFlagsTest = DovecotStoreTest;

// Completed flags of a batch: right after the query that listed them, one
// STORE per distinct change; otherwise a FETCH of the flags first. Other
// flags and other clients' keywords stay.
TEST_F(ImapFlagsTest, FlagStatusOfManyInOneStore)
{
    std::vector<QByteArray> ids;
    for (int n = 1; n <= 5; ++n) {
        MailDef def = Numbered(n);
        def.flags.seen = n % 2;
        def.flags.keywords = {S("$Completed"), S("Project")};
        if (n == 5) def.flags.keywords = {S("Project")};
        ids.push_back(Add(inbox, def));
    }
    Subjects(inbox);
    int before = store->CommandsSent();
    ASSERT_TRUE(store->SetFlagStatusMany(ids, FLAG_STATUS_NONE).ok());
    EXPECT_EQ(store->CommandsSent() - before, 1);
    before = store->CommandsSent();
    ASSERT_TRUE(store->SetFlagStatusMany({ids[0], ids[4]}, FLAG_STATUS_MARKED).ok());
    EXPECT_EQ(store->CommandsSent() - before, 1) << "the flags stored last are known";

    // Another connection, no query: it asks for the flags first.
    auto other = MakeStore();
    ASSERT_TRUE(other->SetFlagStatusMany({ids[1], ids[4]}, FLAG_STATUS_COMPLETE).ok());

    const int expected[] = {FLAG_STATUS_MARKED, FLAG_STATUS_COMPLETE, FLAG_STATUS_NONE, FLAG_STATUS_NONE,
                            FLAG_STATUS_COMPLETE};
    for (size_t i = 0; i < ids.size(); ++i) {
        auto item = store->Item(ids[i]);
        ASSERT_TRUE(item.ok());
        EXPECT_EQ(item->Get(PR_FLAG_STATUS).value_or(QVariant(0)).toInt(), expected[i]) << i;
        EXPECT_EQ(item->Get(PR_MESSAGE_FLAGS)->toInt() & MSGFLAG_READ, i % 2 == 0 ? MSGFLAG_READ : 0) << i;
    }
    const QByteArray said = OtherClient(server->Port(), {"SELECT INBOX", "UID SEARCH KEYWORD Project"});
    const qsizetype at = said.indexOf("* SEARCH");
    ASSERT_GE(at, 0) << said.constData();
    const QByteArray line = said.mid(at, said.indexOf('\r', at) - at).trimmed();
    EXPECT_EQ(line.split(' ').size() - 2, 5) << "keywords of other clients stay: " << line.constData();
}

// Many messages out to folders and back, in batches after each query, as
// rules do: every original leaves its folder for good.
TEST_P(ImapMoveTest, ThousandToFoldersAndBackLeaveNothingDeleted)
{
    const QString fresh = server->MaildirPath() + S("/new/");
    QDir().mkpath(fresh);
    for (int n = 1; n <= 1000; ++n) {
        QFile file(fresh + S("%1.mv:2,").arg(n));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(BuildMail(Numbered(n), n));
    }
    server->HandMailToMailUser();
    const QByteArrayList names = {"A", "B", "C"};
    std::vector<QByteArray> folders;
    for (const QByteArray& name : names) folders.push_back(Folder(name));
    // Ten rules per folder, told ahead as a run tells them: subject holds digit k.
    auto run = [&](const QByteArray& from, auto destOf) {
        std::vector<Restriction> rules;
        for (int k = 0; k < 10; ++k) rules.push_back(Restriction::Content(PR_SUBJECT, QString::number(k)));
        for (const Restriction& r : rules) store->Anticipate(from, r, {PR_ENTRYID});
        for (int k = 0; k < 10; ++k) {
            auto rows = store->Query(from, &rules[size_t(k)], {PR_ENTRYID});
            ASSERT_TRUE(rows.ok()) << rows.error().message.toStdString();
            std::vector<QByteArray> ids;
            for (const Row& row : *rows) ids.push_back(row[0].toByteArray());
            auto moved = store->MoveMany(ids, destOf(k));
            ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
        }
    };
    run(inbox, [&](int k) { return folders[size_t(k % 3)]; });
    for (const QByteArray& folder : folders) run(folder, [&](int) { return inbox; });

    EXPECT_EQ(Subjects(inbox).size(), 1000);
    for (const QByteArray& name : names + QByteArrayList{"INBOX"}) {
        const QByteArray said = OtherClient(server->Port(), {"SELECT " + name, "UID SEARCH DELETED"});
        EXPECT_TRUE(said.contains("* SEARCH\r\n")) << name.constData() << ": " << said.left(400).constData();
        if (name != "INBOX") {
            EXPECT_TRUE(said.contains("* 0 EXISTS")) << name.constData();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Servers, ImapMoveTest,
                         ::testing::Values(Variant{"WithMove", {}}, Variant{"CopyStoreExpunge", {S("MOVE")}}),
                         [](const auto& info) { return std::string(info.param.name); });

class ImapNoUidplusTest : public DovecotStoreTest {
protected:
    DovecotOptions Options() const override { return {{S("MOVE"), S("UIDPLUS")}, false}; }
};

// Without UID EXPUNGE the original stays \Deleted (never a plain EXPUNGE,
// which would take other clients' deleted mail too), and the log says so.
TEST_F(ImapNoUidplusTest, MoveCopiesAndLeavesTheOriginalDeletedWithALogLine)
{
    LinesLogger log;
    store->SetLogger(&log);
    const QByteArray id = Add(inbox, {});
    const QByteArray other = Add(inbox, {});
    OtherClient(server->Port(), {"SELECT INBOX", "UID STORE " + Uid(other) + " +FLAGS (\\Deleted)"});
    const QByteArray archive = Folder("Archive");
    auto moved = store->Move(id, archive);
    ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
    auto item = store->Item(*moved);
    ASSERT_TRUE(item.ok()) << "the copy is found without COPYUID";
    EXPECT_TRUE(Subjects(inbox).isEmpty());
    auto presence = store->Probe({id, other});
    ASSERT_TRUE(presence.ok());
    EXPECT_EQ(*presence, (std::vector<Presence>{Presence::Deleted, Presence::Deleted}));
    ASSERT_EQ(log.Lines().size(), 1);
    const QString line = log.Lines().front();
    EXPECT_TRUE(line.contains(S("UIDPLUS")) && line.contains(S("\\Deleted")) && line.contains(QString::fromLatin1(Uid(id))))
        << line.toStdString();
}

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
