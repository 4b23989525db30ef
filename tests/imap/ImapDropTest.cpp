// A server connection that drops in the middle of a command: a proxy cuts
// it once the command has reached Dovecot, or answers for Dovecot.
#include "CuttingProxy.h"
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"

using namespace mv;
using namespace mv::mapi;
using namespace mv::test;

namespace {

// A store reaching the server through the proxy; INBOX holds five messages.
class ProxiedStoreTest : public DovecotStoreTest {
protected:
    void SetUp() override
    {
        DovecotStoreTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        for (int n = 1; n <= 5; ++n) Add(inbox, Mail(S("Message %1").arg(n)));
        archive = Folder("Archive");
        proxy = std::make_unique<CuttingProxy>(server->Port());
        proxied = MakeStore(proxy->port());
    }
    std::unique_ptr<CuttingProxy> proxy;
    std::unique_ptr<stores::ImapStore> proxied;  // gone before the proxy
    QByteArray archive;
};

struct DropCase {
    const char* name;
    QStringList hidden;   // capabilities the server leaves out
    QByteArray trigger;   // the command during whose answer the line drops
    int keepBytes;        // how much of the answer gets through
    Presence original = Presence::Absent;  // where the move left the originals
    bool query = false;   // the query before the move is cut, and retried
};

class ImapDropTest : public ProxiedStoreTest, public ::testing::WithParamInterface<DropCase> {
protected:
    DovecotOptions Options() const override { return {GetParam().hidden, false}; }
};

// A query whose connection drops is retried; a move is not sent again, and
// the reconnect that fails says Temporary. Probe and Locate then tell what the server did, and
// settling by them (as the journal's recovery does) loses and doubles nothing.
TEST_P(ImapDropTest, DroppedQueryIsRetriedAndMoveToldByProbeAndLocate)
{
    const Restriction odd = Restriction::Or({Restriction::Content(PR_SUBJECT, S("1")), Restriction::Content(PR_SUBJECT, S("3")),
                                             Restriction::Content(PR_SUBJECT, S("5"))});
    if (GetParam().query) proxy->CutOn(GetParam().trigger, GetParam().keepBytes);
    auto rows = proxied->Query(inbox, &odd, {PR_ENTRYID, PR_SUBJECT});
    ASSERT_TRUE(rows.ok()) << rows.error().message.toStdString();
    ASSERT_EQ(rows->size(), 3u);
    std::vector<QByteArray> ids;
    for (const Row& r : *rows) ids.push_back(r[0].toByteArray());
    if (GetParam().query) {
        EXPECT_EQ(proxy->cuts(), 1);
        EXPECT_EQ(proxy->Sent(GetParam().trigger), 2) << "retried once, on a new connection";
        // So is a flag change, from the flags the query read.
        proxy->CutOn("UID STORE", 0);
        ASSERT_TRUE(proxied->SetFlagStatusMany(ids, 2).ok());
        EXPECT_EQ(proxy->Sent("UID STORE"), 2) << "stored again on the new connection";
        return;
    }
    const int before = proxied->CommandsSent();
    auto prints = proxied->Fingerprints(ids);
    EXPECT_EQ(proxied->CommandsSent(), before) << "known from the query";
    auto mark = proxied->ArrivalMark(archive);
    ASSERT_TRUE(prints.ok() && mark.ok());

    proxy->CutOn(GetParam().trigger, GetParam().keepBytes);
    auto moved = proxied->MoveMany(ids, archive);
    EXPECT_EQ(proxy->cuts(), 1) << "the connection was not cut";
    ASSERT_FALSE(moved.ok());
    EXPECT_EQ(moved.error().kind, ErrorKind::Temporary) << moved.error().message.toStdString();
    proxy.reset();  // the server cannot be reached again
    auto again = proxied->MoveMany(ids, archive);
    ASSERT_FALSE(again.ok());
    EXPECT_EQ(again.error().kind, ErrorKind::Temporary) << again.error().message.toStdString();

    auto presence = store->Probe(ids);
    auto copies = store->Locate(archive, *mark, *prints);
    ASSERT_TRUE(presence.ok() && copies.ok());
    EXPECT_EQ(*presence, std::vector<Presence>(3, GetParam().original));
    ASSERT_EQ(Subjects(archive).size(), 3) << "moved once";
    for (size_t i = 0; i < ids.size(); ++i) {
        auto item = store->Item((*copies)[i]);
        ASSERT_TRUE(item.ok()) << "copy " << i << " not located";
        EXPECT_EQ(item->Get(PR_SUBJECT)->toString(), (*rows)[i][1].toString());
    }
    ASSERT_TRUE(store->Remove(ids).ok());
    EXPECT_EQ(Subjects(inbox), (QStringList{S("Message 2"), S("Message 4")}));
    EXPECT_EQ(Subjects(archive), (QStringList{S("Message 1"), S("Message 3"), S("Message 5")}));
    const QByteArray said = OtherClient(server->Port(), {"SELECT INBOX", "SEARCH DELETED"});
    EXPECT_TRUE(said.contains("* SEARCH\r\n")) << said.constData();
}

INSTANTIATE_TEST_SUITE_P(
    Moves, ImapDropTest,
    ::testing::Values(DropCase{"DuringMove", {}, "UID MOVE", 0},
                      DropCase{"DuringMoveAfterCopyUid", {}, "UID MOVE", 20},
                      DropCase{"AfterCopy", {S("MOVE")}, "UID COPY", 0, Presence::Present},
                      DropCase{"DuringStoreDeleted", {S("MOVE")}, "UID STORE", 0, Presence::Deleted},
                      DropCase{"DuringExpunge", {S("MOVE")}, "UID EXPUNGE", 0},
                      DropCase{"QueryDuringSearch", {}, "UID SEARCH", 5, Presence::Absent, true},
                      DropCase{"QueryDuringFetch", {}, "UID FETCH", 300, Presence::Absent, true}),
    [](const auto& info) { return std::string(info.param.name); });

// A move the server refuses is a permanent error, sent once, and leaves
// the message where it was.
TEST_F(ProxiedStoreTest, RefusedMoveIsPermanentAndSentOnce)
{
    auto rows = proxied->Query(inbox, nullptr, {PR_ENTRYID});
    ASSERT_TRUE(rows.ok()) << rows.error().message.toStdString();
    proxy->AnswerOn("UID MOVE", "NO [OVERQUOTA] quota exceeded");
    auto moved = proxied->Move(rows->front()[0].toByteArray(), archive);
    ASSERT_FALSE(moved.ok());
    EXPECT_EQ(moved.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(moved.error().message.contains(S("quota exceeded"))) << moved.error().message.toStdString();
    EXPECT_EQ(proxy->Sent("UID MOVE"), 1);
    EXPECT_EQ(proxy->Sent("EXPUNGE"), 0);
    EXPECT_EQ(Subjects(inbox).size(), 5);
}

}  // namespace
