// Store identifiers that survive moving the data folder, and the folder
// list's counts and the index's file modes.

#include "MaildirFixture.h"

#include "platform/mapi/MapiUtils.h"
#include "platform/outlook/store/StoreNameSpace.h"
#include "platform/stores/maildir/MaildirStoreKey.h"

using namespace mv;
using namespace mv::stores::maildir;
using namespace mv::stores::maildir::test;

namespace {

QString Hex(const QByteArray& b)
{
    return MapiUtils::HrGetHexFromBinary(b);
}

mode_t ModeOf(const QString& path)
{
    struct stat st {};
    EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &st), 0) << path.toStdString();
    return st.st_mode & 07777;
}

using StoreKeyTest = MaildirFixture;

TEST_F(StoreKeyTest, SavedIdsResolveAfterTheDataFolderMoves)
{
    Put(".Archive", "cur/1700000000.a.host:2,S", Mail("kept"));
    const QByteArray oldStyle = StoreIdFor(QFileInfo(root).canonicalFilePath());
    QByteArray storeId;
    {
        auto store = Open();
        storeId = store->StoreId();
        EXPECT_NE(storeId, oldStyle);
    }
    const QString keyFile = root + "/" + MaildirStoreKey::kFileName;
    EXPECT_EQ(ModeOf(keyFile), mode_t(0600));
    // Nothing of the absolute path in any identifier.
    const QByteArray rootBytes = root.toUtf8();
    for (const QByteArray& id :
         {storeId, FolderIdFor(".Archive"), MessageIdFor(".Archive", "1700000000.a.host")})
        EXPECT_FALSE(id.contains(rootBytes));

    root = m_tmp.path() + "/Restored";
    ASSERT_TRUE(QDir().rename(m_tmp.path() + "/Mail", root));
    auto store = Open();
    EXPECT_EQ(store->StoreId(), storeId);
    outlook::StoreNameSpace ns(std::vector<MessageStore*>{store.get()});
    for (const QByteArray& saved : {storeId, oldStyle}) {
        SCOPED_TRACE(saved.toStdString());
        auto folder = ns.GetFolderFromID(Hex(FolderIdFor(".Archive")), Hex(saved));
        ASSERT_TRUE(folder);
        EXPECT_EQ(folder->ItemCount(), 1);
        EXPECT_TRUE(ns.GetItemFromID(Hex(MessageIdFor(".Archive", "1700000000.a.host")), Hex(saved)));
    }
    EXPECT_FALSE(ns.GetFolderFromID(Hex(FolderIdFor(".Archive")), Hex(StoreIdFor("/elsewhere"))));
}

TEST_F(StoreKeyTest, ForeignKeyFileFallsBackToThePathAndIsLeftAlone)
{
    WriteFile(root + "/" + MaildirStoreKey::kFileName, "not a key\n");
    auto store = Open();
    EXPECT_EQ(store->StoreId(), StoreIdFor(QFileInfo(root).canonicalFilePath()));
    QFile f(root + "/" + MaildirStoreKey::kFileName);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    EXPECT_EQ(f.readAll(), "not a key\n");
}

TEST_F(StoreKeyTest, FolderCountsComeFromTheFilesAsTheyAreNow)
{
    Put(".Archive.Projects", "cur/1700000000.a.host:2,S", Mail("read"));
    Put(".Archive.Projects", "cur/1700000001.b.host:2,", Mail("unread"));
    Put(".Archive.Projects", "cur/1700000002.c.host:2,ST", Mail("trashed"));
    Put(".Archive.Projects", "new/1700000003.d.host", Mail("new"));
    auto store = Open();
    auto counts = [&] {
        auto info = store->Folder(FolderIdFor(".Archive.Projects"));
        EXPECT_TRUE(info.ok());
        return info.ok() ? std::pair{info->total, info->unread} : std::pair{-2, -2};
    };
    EXPECT_EQ(counts(), std::pair(3, 2));  // never queried: nothing in the index
    ASSERT_TRUE(store->Query(FolderIdFor(".Archive.Projects"), nullptr, {PR_SUBJECT}).ok());
    // Changed behind the store's back after the scan.
    Put(".Archive.Projects", "new/1700000004.e.host", Mail("arrived"));
    QFile::remove(root + "/.Archive.Projects/cur/1700000000.a.host:2,S");
    EXPECT_EQ(counts(), std::pair(3, 3));
}

TEST_F(StoreKeyTest, IndexFilesArePrivateEvenWhenMadeWider)
{
    const QString cache = QFileInfo(indexPath).absolutePath();
    QDir().mkpath(cache);
    ::chmod(QFile::encodeName(cache).constData(), 0755);
    WriteFile(indexPath, "");
    ::chmod(QFile::encodeName(indexPath).constData(), 0644);
    Put("", "cur/1700000000.a.host:2,", Mail("a"));
    auto store = Open();
    ASSERT_TRUE(store->Query(FolderIdFor(""), nullptr, {PR_SUBJECT}).ok());
    EXPECT_EQ(ModeOf(cache), mode_t(0700));
    for (const char* suffix : {"", "-wal", "-shm"})
        EXPECT_EQ(ModeOf(indexPath + suffix), mode_t(0600)) << suffix;
}

}  // namespace
