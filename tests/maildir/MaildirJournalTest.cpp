// The calls the move journal makes of a Maildir store, and moves between
// folders on two file systems.

#include "MaildirFixture.h"

using namespace mv;
using namespace mv::stores::maildir;
using namespace mv::stores::maildir::test;

namespace {

// One message per state the journal meets; "gone" has no file.
struct JournalRow {
    const char* relName;  // under INBOX; nullptr: the message is gone
    const char* unique;
    bool seen, deleted;
};
const JournalRow kRows[] = {
    {"cur/1700000000.read.host:2,S", "1700000000.read.host", true, false},
    {"cur/1700000001.trash.host:2,ST", "1700000001.trash.host", true, true},
    {"new/1700000002.new.host", "1700000002.new.host", false, false},
    {nullptr, "1700000003.gone.host", false, false},
};

class JournalTest : public MaildirFixture {
protected:
    void SetUp() override
    {
        MaildirFixture::SetUp();
        MakeMaildir(root + "/.Archive");
        for (const JournalRow& row : kRows) {
            if (row.relName) Put("", row.relName, Mail(row.unique));
            ids.push_back(MessageIdFor("", row.unique));
        }
        store = Open();
    }
    std::vector<QByteArray> ids;
    std::unique_ptr<MaildirStore> store;
};

// The calls in the order a move to another store makes them: export, append
// under the same names, locate again by name or content, then remove.
TEST_F(JournalTest, ExportAppendLocateAndRemove)
{
    EXPECT_EQ(*store->Probe(ids), (std::vector<Presence>{Presence::Present, Presence::Deleted,
                                                         Presence::Present, Presence::Absent}));
    auto exported = store->Export(ids);
    auto fingerprints = store->Fingerprints(ids);
    ASSERT_TRUE(exported.ok() && fingerprints.ok());
    for (size_t i = 0; i < std::size(kRows); ++i) {
        const JournalRow& row = kRows[i];
        SCOPED_TRACE(row.unique);
        const NewMessage& m = (*exported)[i];
        const Fingerprint& fp = (*fingerprints)[i];
        const QByteArray bytes = row.relName ? Mail(row.unique) : QByteArray();
        EXPECT_EQ(m.rfc822, bytes);
        EXPECT_EQ(fp.Known(), row.relName != nullptr);
        if (!row.relName) continue;
        EXPECT_EQ(std::pair(m.flags.seen, m.flags.deleted), std::pair(row.seen, row.deleted));
        EXPECT_EQ(m.internalDate, MaildirName::DeliveryTime(row.unique));
        EXPECT_EQ(fp.size, bytes.size() + bytes.count('\n'));  // counted with CRLF
        EXPECT_EQ(fp.messageIdHeader, "<" + QByteArray(row.unique).toHex() + "@example.com>");
        EXPECT_EQ(fp.internalDate, m.internalDate);
    }

    auto appended = store->AppendMany(kArchive, {(*exported)[0], (*exported)[2]});
    ASSERT_TRUE(appended.ok()) << appended.error().message.toStdString();
    // Names that would leave cur/, carry flags or take another's place are refused.
    for (const char* name : {"a/b", "a:2,S", ".hidden", "line\nbreak", "1700000000.read.host"}) {
        auto refused = store->AppendMany(kArchive, {NewMessage{Mail("incoming"), {}, {}, name}});
        ASSERT_FALSE(refused.ok()) << name;
        EXPECT_EQ(refused.error().kind, ErrorKind::Permanent) << name;
    }
    EXPECT_EQ(Files(".Archive"), (QStringList{"1700000000.read.host:2,S", "1700000002.new.host:2,"}));
    EXPECT_TRUE(Files(".Archive", "tmp").isEmpty());
    EXPECT_EQ(store->AppendMany(FolderIdFor(".Nope"), *exported).error().kind, ErrorKind::NotFound);

    Fingerprint byContent = (*fingerprints)[2];
    byContent.uniqueName.clear();
    Fingerprint wrongSize = byContent;
    wrongSize.size += 1;
    Fingerprint unknownName;
    unknownName.uniqueName = "1700000009.other.host";
    // The same message asked for twice is given once.
    auto found =
        store->Locate(kArchive, {}, {(*fingerprints)[0], byContent, wrongSize, unknownName, byContent});
    ASSERT_TRUE(found.ok());
    EXPECT_EQ(*found, (std::vector<QByteArray>{(*appended)[0], (*appended)[1], {}, {}, {}}));

    // Undelete takes T off; Remove unlinks exactly the named files.
    ASSERT_TRUE(store->Undelete(ids).ok());
    EXPECT_EQ(Files(""), (QStringList{"1700000000.read.host:2,S", "1700000001.trash.host:2,S"}));
    ASSERT_TRUE(store->Remove({ids[0], ids[3]}).ok());
    EXPECT_EQ(Files(""), QStringList{"1700000001.trash.host:2,S"});
    EXPECT_EQ(*store->Probe({ids[0], ids[1]}), (std::vector<Presence>{Presence::Absent, Presence::Present}));

    // A file that cannot be read is an error, never gone.
    Put("", "cur/1700000004.late.host:2,", Mail("late"));
    store->SetHeaderParser([](const QString&) -> Result<std::shared_ptr<const HeaderProps>> {
        return Error::permanent(QStringLiteral("unreadable"));
    });
    auto presence = store->Probe({ids[3], MessageIdFor("", "1700000004.late.host")});
    ASSERT_FALSE(presence.ok());
    EXPECT_EQ(presence.error().kind, ErrorKind::Temporary);
    EXPECT_EQ(*store->Probe({ids[3]}), std::vector<Presence>{Presence::Absent});
}

// ".Elsewhere" is a symlink to a tmpfs, so that renames to it fail with EXDEV.
TEST_F(MaildirFixture, MoveToAnotherFileSystemCopiesKeepingNameFlagsAndIndexOrLeavesTheSource)
{
    QTemporaryDir other(QStringLiteral("/dev/shm/mv-maildir-XXXXXX"));
    struct stat a{}, b{};
    if (!other.isValid() || ::stat(QFile::encodeName(root).constData(), &a) != 0
        || ::stat(QFile::encodeName(other.path()).constData(), &b) != 0 || a.st_dev == b.st_dev)
        GTEST_SKIP() << "needs /dev/shm on another file system than " << root.toStdString();
    const QString elsewhere = other.path();
    MakeMaildir(elsewhere);
    ASSERT_TRUE(QFile::link(elsewhere, root + QStringLiteral("/.Elsewhere")));
    const QString path = Put("", "cur/1700000000.a.host:2,FS", Mail("travels"));
    auto store = Open();
    // A tmp/ that cannot take the copy (a file in its place, which stops root too).
    ASSERT_TRUE(QDir(elsewhere + "/tmp").removeRecursively());
    WriteFile(elsewhere + "/tmp", "not a directory");
    EXPECT_FALSE(store->Move(MessageIdFor("", "1700000000.a.host"), FolderIdFor(".Elsewhere")).ok());
    EXPECT_TRUE(QFileInfo::exists(path));
    EXPECT_TRUE(Files(".Elsewhere").isEmpty());

    ASSERT_TRUE(QFile::remove(elsewhere + "/tmp"));
    MakeMaildir(elsewhere);
    auto moved = store->Move(MessageIdFor("", "1700000000.a.host"), FolderIdFor(".Elsewhere"));
    ASSERT_TRUE(moved.ok()) << moved.error().message.toStdString();
    EXPECT_EQ(*moved, MessageIdFor(".Elsewhere", "1700000000.a.host"));
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_EQ(Files(".Elsewhere"), QStringList{"1700000000.a.host:2,FS"});
    EXPECT_TRUE(Files(".Elsewhere", "tmp").isEmpty());
    // The copy keeps the file's time to the nanosecond: the index knows it.
    EXPECT_EQ(Subjects(*store, FolderIdFor(".Elsewhere")), QStringList{"travels"});
    EXPECT_EQ(store->lastScan().parsed, 0);
}

}  // namespace
