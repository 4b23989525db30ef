// The calls the move journal makes of an IMAP store, on servers with MOVE,
// without MOVE, and without UIDPLUS either.
#include "ImapTestSupport.h"

using namespace mv;
using namespace mv::mapi;
using namespace mv::test;

namespace {

struct Server {
    const char* name;
    QStringList hidden;
    bool uidExpunge;
};

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

}  // namespace
