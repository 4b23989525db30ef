// Layouts, folders, names and identifiers of a Maildir tree, and the files
// the store keeps beside it.

#include "MaildirFixture.h"

#include "platform/mapi/MapiUtils.h"
#include "platform/outlook/store/StoreNameSpace.h"
#include "platform/stores/maildir/MaildirStoreKey.h"

using namespace mv;
using namespace mv::stores::maildir;
using namespace mv::stores::maildir::test;

namespace {

using K = MaildirLayout::Kind;

TEST_F(MaildirFixture, LayoutDetectedAndFoldersListed)
{
    const struct {
        const char* name;
        bool rootIsMaildir;
        QStringList dirs;  // maildirs to create below the root
        K kind;
        QStringList displayPaths;  // expected, in listing order
    } cases[] = {
        {"MaildirPlusPlus", true, {".Sent", ".Projects", ".Projects.Q4"}, K::MaildirPlusPlus,
         {"Inbox", "Projects", "Projects/Q4", "Sent"}},
        {"FileSystem", true, {"Sent", "Projects", "Projects/Q4"}, K::FileSystem, {"Inbox", "Projects", "Projects/Q4", "Sent"}},
        {"FileSystemInboxDirectory", false, {"INBOX", "Archive"}, K::FileSystem, {"Inbox", "Archive"}},
        {"EmptyRoot", false, {}, K::MaildirPlusPlus, {}},
        {"ModifiedUtf7Names", true, {".Entw&APw-rfe", ".Tom &- Jerry", ".&ZeVnLIqe-"}, K::MaildirPlusPlus,
         {"Inbox", "Entwürfe", "Tom & Jerry", "日本語"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QDir(root).removeRecursively();
        QDir().mkpath(root);
        if (c.rootIsMaildir) MakeMaildir(root);
        for (const QString& d : c.dirs) MakeMaildir(root + QLatin1Char('/') + d);
        // Neither a directory without cur/ nor anything below cur/ is a folder.
        QDir().mkpath(root + "/.NoMaildir/sub");
        QDir().mkpath(root + "/notes");
        indexPath = m_tmp.path() + "/" + c.name + ".sqlite";
        auto store = Open();
        EXPECT_EQ(store->layout().kind(), c.kind);
        QStringList paths;
        const auto folders = store->Folders();
        for (const auto& f : *folders) paths << f.path;
        EXPECT_EQ(paths, c.displayPaths);
    }
}

TEST_F(MaildirFixture, SpecialUseByNameAndCountsFromTheFiles)
{
    for (const char* d : {".Sent Items", ".junk", ".SPAM", ".Sentinel"}) MakeMaildir(root + QLatin1Char('/') + QLatin1String(d));
    Put("", "cur/1.a.host:2,S", Mail("read"));
    Put("", "new/2.b.host", Mail("unread"));
    Put("", "cur/3.c.host:2,T", Mail("trashed"));
    auto store = Open();
    QMap<QString, QString> specialUse;
    const auto folders = store->Folders();
    for (const auto& f : *folders) specialUse.insert(f.path, f.specialUse);
    EXPECT_EQ(specialUse, (QMap<QString, QString>{{"Inbox", "\\Inbox"}, {"Sent Items", "\\Sent"}, {"junk", "\\Junk"},
                                                  {"SPAM", "\\Junk"}, {"Sentinel", ""}}));
    // Never queried: the counts come from the files, as they are now.
    EXPECT_EQ(std::pair(store->Folder(kInbox)->total, store->Folder(kInbox)->unread), std::pair(2, 1));
    ASSERT_TRUE(store->Query(kInbox, nullptr, {}).ok());
    Put("", "new/4.d.host", Mail("arrived"));
    QFile::remove(root + "/cur/1.a.host:2,S");
    auto now = store->Folder(kInbox);
    ASSERT_TRUE(now.ok());
    EXPECT_EQ(std::pair(now->total, now->unread), std::pair(2, 2));
}

TEST_F(MaildirFixture, CreateFolderMakesAMaildirOrRefuses)
{
    const struct {
        const char* name;
        K kind;
        const char* parent;    // folder path of the parent ("" = top level)
        const char* folder;    // name given
        const char* expected;  // folder path created, or null when refused
    } cases[] = {
        {"NonAscii", K::MaildirPlusPlus, "", "Entwürfe & Co", ".Entw&APw-rfe &- Co"},
        {"DotRefusedInMaildirPlusPlus", K::MaildirPlusPlus, "", "a.b", nullptr},
        {"SlashRefused", K::MaildirPlusPlus, "", "a/b", nullptr},
        {"EmptyRefused", K::MaildirPlusPlus, "", "  ", nullptr},
        {"ExistingRefused", K::MaildirPlusPlus, "", "Work", nullptr},
        {"MissingParent", K::MaildirPlusPlus, ".Nope", "X", nullptr},
        {"FileSystemNested", K::FileSystem, "Work", "Q4", "Work/Q4"},
        {"FileSystemDotAllowed", K::FileSystem, "", "v1.2", "v1.2"},
        {"FileSystemReservedName", K::FileSystem, "Work", "cur", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        MakeMaildir(root + (c.kind == K::MaildirPlusPlus ? "/.Work" : "/Work"));
        indexPath = m_tmp.path() + "/" + c.name + ".sqlite";
        auto store = Open(false, c.kind);
        auto id = store->CreateFolder(*c.parent ? FolderIdFor(c.parent) : QByteArray(), QString::fromUtf8(c.folder));
        if (!c.expected) {
            ASSERT_FALSE(id.ok());
            EXPECT_NE(id.error().message, "");
            continue;
        }
        ASSERT_TRUE(id.ok()) << id.error().message.toStdString();
        EXPECT_EQ(*ParseFolderId(*id), QString::fromUtf8(c.expected));
        const QString dir = root + QLatin1Char('/') + QString::fromUtf8(c.expected);
        for (const char* sub : {"cur", "new", "tmp"}) EXPECT_TRUE(QFileInfo(dir + "/" + sub).isDir()) << sub;
        EXPECT_EQ(QFileInfo::exists(dir + "/maildirfolder"), c.kind == K::MaildirPlusPlus);
        EXPECT_EQ(store->Folder(*id)->name, QString::fromUtf8(c.folder));
    }
}

// Well-formed ids round-trip in every move and lookup of the other tests.
TEST(MaildirIds, ForeignIdsAreRejected)
{
    for (const QByteArray& id : {QByteArray("IMA1.Sent"), QByteArray("MVD"), MessageIdFor(".Sent", "x")})
        EXPECT_FALSE(ParseFolderId(id)) << id.toHex().constData();
    EXPECT_FALSE(ParseMessageId(FolderIdFor(".Sent")));
    EXPECT_FALSE(ParseMessageId(MessageIdFor(".Sent", "../../etc/passwd")));
    EXPECT_FALSE(ParseMessageId(QByteArray("MVD1.Sent") + '\0'));
}

TEST_F(MaildirFixture, FolderPathsCannotLeaveTheRoot)
{
    MakeMaildir(root + "/.Sent");
    MakeMaildir(m_tmp.path() + "/Outside");
    const MaildirLayout layout = MaildirLayout::Detect(root);
    EXPECT_TRUE(layout.DirOf(".Sent"));
    for (const char* path : {"../Outside", ".Sent/../..", "/etc", ".Sent/cur", "cur", ".Missing"})
        EXPECT_FALSE(layout.DirOf(QString::fromUtf8(path))) << path;
}

TEST(MaildirNames, ParseInfoAndDeliveryTime)
{
    const struct {
        const char* file;
        const char* unique;
        const char* info;
        bool hasInfo;
        qint64 delivered;  // seconds, -1 = none in the name
    } cases[] = {
        {"1700000000.M1P2.host:2,", "1700000000.M1P2.host", "", true, 1700000000},
        {"1700000000.M1P2.host:1,experimental", "1700000000.M1P2.host", "", false, 1700000000},
        {"1700000000x.host", "1700000000x.host", "", false, -1},
    };
    for (const auto& c : cases) {
        const MaildirName n = MaildirName::Parse(QString::fromUtf8(c.file));
        EXPECT_EQ(n.unique, c.unique) << c.file;
        EXPECT_EQ(n.info, c.info) << c.file;
        EXPECT_EQ(n.hasInfo, c.hasInfo) << c.file;
        const QDateTime t = MaildirName::DeliveryTime(n.unique);
        EXPECT_EQ(t.isValid() ? t.toSecsSinceEpoch() : -1, c.delivered) << c.file;
    }
    const QDateTime at = QDateTime::fromSecsSinceEpoch(1600000000, Qt::UTC);
    const QString a = MaildirName::NewUnique(at), b = MaildirName::NewUnique(at);
    EXPECT_NE(a, b);
    EXPECT_EQ(MaildirName::DeliveryTime(a), at);
    EXPECT_FALSE(a.contains('/') || a.contains(':'));
}

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

TEST_F(MaildirFixture, SavedIdsResolveAfterTheDataFolderMovesAndItsFilesStayPrivate)
{
    Put(".Archive", "cur/1700000000.a.host:2,S", Mail("kept"));
    const QByteArray oldStyle = StoreIdFor(QFileInfo(root).canonicalFilePath());
    QByteArray storeId;
    {
        auto store = Open();
        storeId = store->StoreId();
        EXPECT_NE(storeId, oldStyle);
        ASSERT_TRUE(store->Query(kArchive, nullptr, {PR_SUBJECT}).ok());
    }
    EXPECT_EQ(ModeOf(root + "/" + MaildirStoreKey::kFileName), mode_t(0600));
    // Nothing of the absolute path in any identifier.
    const QByteArray rootBytes = root.toUtf8();
    for (const QByteArray& id : {storeId, kArchive, MessageIdFor(".Archive", "1700000000.a.host")})
        EXPECT_FALSE(id.contains(rootBytes));

    root = m_tmp.path() + "/Restored";
    ASSERT_TRUE(QDir().rename(m_tmp.path() + "/Mail", root));
    // Index files someone made wider meanwhile are narrowed again.
    const QString cache = QFileInfo(indexPath).absolutePath();
    ::chmod(QFile::encodeName(cache).constData(), 0755);
    ::chmod(QFile::encodeName(indexPath).constData(), 0644);
    auto store = Open();
    EXPECT_EQ(store->StoreId(), storeId);
    outlook::StoreNameSpace ns(std::vector<MessageStore*>{store.get()});
    for (const QByteArray& saved : {storeId, oldStyle}) {
        SCOPED_TRACE(saved.toStdString());
        EXPECT_TRUE(ns.GetItemFromID(Hex(MessageIdFor(".Archive", "1700000000.a.host")), Hex(saved)));
    }
    EXPECT_FALSE(ns.GetFolderFromID(Hex(kArchive), Hex(StoreIdFor("/elsewhere"))));
    EXPECT_EQ(ModeOf(cache), mode_t(0700));
    for (const char* suffix : {"", "-wal", "-shm"})
        EXPECT_EQ(ModeOf(indexPath + suffix), mode_t(0600)) << suffix;

    // A key file the store did not write falls back to the path and is left alone.
    store.reset();
    WriteFile(root + "/" + MaildirStoreKey::kFileName, "not a key\n");
    EXPECT_EQ(Open()->StoreId(), StoreIdFor(QFileInfo(root).canonicalFilePath()));
    QFile f(root + "/" + MaildirStoreKey::kFileName);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    EXPECT_EQ(f.readAll(), "not a key\n");
}

}  // namespace
