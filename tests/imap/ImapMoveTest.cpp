// Moves and flag changes of batches, with and without the server's MOVE.
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"


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
                         ::testing::Values(Variant{"WithMove", {}}, Variant{"CopyStoreExpunge", {S("MOVE")}}),
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

}  // namespace
