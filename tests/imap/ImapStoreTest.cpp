// The IMAP store against a private Dovecot: what the conformance suite does
// not ask of every store (message classes, folder names, identifiers).
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"

#include <QMap>

using namespace mv;
using namespace mv::mapi;
using namespace mv::test;

namespace {

using ImapStoreTest = DovecotStoreTest;

// The engine's columns under an exact search: the class of a report comes
// from the Content-Type field, of a calendar inside multipart/alternative
// from the structure and the calendar's text, at a fixed number of
// commands; a restriction on the class is checked by the store itself.
TEST_F(ImapStoreTest, MessageClassesFromFieldsStructureAndCalendar)
{
    Add(inbox, Mail(S("Quarterly budget"), true));
    Add(inbox, Mail(S("Unread note")));
    MailDef ndr = Mail(S("Undelivered Mail Returned to Sender"), true);
    ndr.extraHeaders = {S("Content-Type: multipart/report; report-type=delivery-status; boundary=\"b1\"")};
    ndr.body = S("--b1\r\nContent-Type: text/plain\r\n\r\nCould not deliver.\r\n--b1\r\n"
                 "Content-Type: message/delivery-status\r\n\r\nAction: failed\r\n--b1--");
    Add(inbox, ndr);
    MailDef invite = Mail(S("Planning session"), true);
    invite.extraHeaders = {S("Content-Type: multipart/alternative; boundary=\"c1\"")};
    invite.body = S("--c1\r\nContent-Type: text/plain\r\n\r\nJoin us.\r\n--c1\r\n"
                    "Content-Type: text/calendar; charset=utf-8\r\n\r\nBEGIN:VCALENDAR\r\nMETHOD:CANCEL\r\nEND:VCALENDAR\r\n--c1--");
    Add(inbox, invite);

    const Restriction read = Restriction::Bitmask(BMR_NEZ, PR_MESSAGE_FLAGS, MSGFLAG_READ);
    const std::vector<PropTag> columns = {PR_ENTRYID, PR_STORE_ENTRYID, PR_MESSAGE_CLASS, PR_SUBJECT, PR_MESSAGE_DELIVERY_TIME};
    ASSERT_TRUE(store->Query(inbox, &read, columns).ok());
    const int before = store->CommandsSent();
    auto rows = store->Query(inbox, &read, columns);
    ASSERT_TRUE(rows.ok()) << rows.error().message.toStdString();
    QMap<QString, QString> classes;
    for (const Row& row : *rows) classes.insert(row[3].toString(), row[2].toString());
    const QMap<QString, QString> expected = {{ndr.subject, S("REPORT.IPM.Note.NDR")},
                                             {invite.subject, S("IPM.Schedule.Meeting.Canceled")},
                                             {S("Quarterly budget"), S("IPM.Note")}};
    EXPECT_EQ(classes, expected);
    // NOOP, UID SEARCH, the header FETCH, the structure of the one
    // multipart message, its calendar part.
    EXPECT_EQ(store->CommandsSent() - before, 5);

    const Restriction report = Restriction::Content(PR_MESSAGE_CLASS, S("REPORT."));
    EXPECT_EQ(Subjects(inbox, &report), QStringList{ndr.subject});
    const Restriction canceled = Restriction::Content(PR_MESSAGE_CLASS, S("IPM.Schedule.Meeting.Canceled"));
    EXPECT_EQ(Subjects(inbox, &canceled), QStringList{invite.subject});
}

// `mailvane folders` shows special use; names go as modified UTF-7. (The
// counts of nested folders: the corpus writer's test.)
TEST_F(ImapStoreTest, SpecialUseAndNames)
{
    auto folders = store->Folders();
    ASSERT_TRUE(folders.ok()) << folders.error().message.toStdString();
    QMap<QString, QString> uses;
    for (const FolderInfo& f : *folders) uses.insert(f.path, f.specialUse);
    for (const char* use : {"Inbox", "Sent", "Trash", "Archive"}) EXPECT_EQ(uses[S(use)], S("\\") + S(use));

    const QByteArray projekte = Folder("Projekte");
    const QString kueche = S("K\xc3\xbc" "che & Bad");
    auto child = store->CreateFolder(projekte, kueche);
    ASSERT_TRUE(child.ok()) << child.error().message.toStdString();
    auto info = store->Folder(*child);
    ASSERT_TRUE(info.ok()) << info.error().message.toStdString();
    EXPECT_EQ(info->name, kueche);
    EXPECT_EQ(info->path, S("Projekte/") + kueche);
    EXPECT_EQ(info->parentId, projekte);
    EXPECT_EQ(stores::ImapIds::ParseFolder(*child)->mailbox, QByteArray("Projekte.K&APw-che &- Bad"));
}

TEST_F(ImapStoreTest, IdentifiersOfARecreatedOrDeletedFolderAreNotFound)
{
    const QByteArray current = Folder("Old");
    const QByteArray id = Add(current, {});
    // What identifiers look like after another client recreated the folder:
    // same name, another UIDVALIDITY.
    auto ref = stores::ImapIds::ParseMessage(id);
    ASSERT_TRUE(ref.has_value());
    ref->folder.uidValidity += 1;
    const QByteArray stale = stores::ImapIds::FolderId(ref->folder.mailbox, ref->folder.uidValidity);
    EXPECT_EQ(store->Folder(stale).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store->Query(stale, nullptr, {PR_SUBJECT}).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store->Item(stores::ImapIds::MessageId(ref->folder, ref->uid)).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(store->Move(id, stale).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(Subjects(current).size(), 1) << "a refused move leaves the message where it was";
    OtherClient(server->Port(), {"DELETE Old"});
    EXPECT_EQ(store->Query(current, nullptr, {PR_SUBJECT}).error().kind, ErrorKind::NotFound) << "deleted by another client";
}

TEST_F(ImapStoreTest, PasswordCommandFirstLineIsUsed)
{
    auto settings = Settings();
    settings.password.clear();
    settings.passwordCommand = S("printf 'secret\\nsecond line\\n'");
    EXPECT_TRUE(stores::ImapStore(settings).Folders().ok());
    settings.passwordCommand = S("echo secret; exit 3");
    auto folders = stores::ImapStore(settings).Folders();
    ASSERT_FALSE(folders.ok());
    EXPECT_FALSE(folders.error().message.contains(S("secret")));
}

}  // namespace
