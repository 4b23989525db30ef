#include "MaildirFixture.h"

#include "platform/stores/maildir/MaildirIds.h"
#include "platform/stores/maildir/MaildirName.h"
#include "platform/stores/maildir/ModifiedUtf7.h"

#include <QFileInfo>

using namespace mv;
using namespace mv::stores::maildir;
using namespace mv::stores::maildir::test;

namespace {

struct LayoutCase {
    const char* name;
    bool rootIsMaildir;
    QStringList dirs;              // maildirs to create below the root
    MaildirLayout::Kind kind;
    QStringList displayPaths;      // expected, in listing order
};

class LayoutTest : public MaildirFixture, public ::testing::WithParamInterface<LayoutCase> {};

TEST_P(LayoutTest, DetectsKindAndListsFolders)
{
    const LayoutCase& c = GetParam();
    if (!c.rootIsMaildir) QDir(root).removeRecursively(), QDir().mkpath(root);
    for (const QString& d : c.dirs) MakeMaildir(root + QLatin1Char('/') + d);
    // Neither a directory without cur/ nor anything below cur/ is a folder.
    QDir().mkpath(root + "/.NoMaildir/sub");
    QDir().mkpath(root + "/notes");
    auto store = Open();
    EXPECT_EQ(store->layout().kind(), c.kind);
    auto folders = store->Folders();
    ASSERT_TRUE(folders.ok()) << folders.error().message.toStdString();
    QStringList paths;
    for (const auto& f : *folders) paths << f.path;
    EXPECT_EQ(paths, c.displayPaths);
}

const LayoutCase kLayouts[] = {
    {"MaildirPlusPlus", true, {".Sent", ".Projects", ".Projects.Q4"}, MaildirLayout::Kind::MaildirPlusPlus,
     {"Inbox", "Projects", "Projects/Q4", "Sent"}},
    {"FileSystem", true, {"Sent", "Projects", "Projects/Q4"}, MaildirLayout::Kind::FileSystem,
     {"Inbox", "Projects", "Projects/Q4", "Sent"}},
    {"FileSystemInboxDirectory", false, {"INBOX", "Archive"}, MaildirLayout::Kind::FileSystem, {"Inbox", "Archive"}},
    {"InboxOnly", true, {}, MaildirLayout::Kind::MaildirPlusPlus, {"Inbox"}},
    {"EmptyRoot", false, {}, MaildirLayout::Kind::MaildirPlusPlus, {}},
    {"ModifiedUtf7Names", true, {".Entw&APw-rfe", ".Tom &- Jerry", ".&ZeVnLIqe-"},
     MaildirLayout::Kind::MaildirPlusPlus, {"Inbox", "Entwürfe", "Tom & Jerry", "日本語"}},
    // Directories without cur/ and hidden ones are not folders.
    {"IgnoresNonMaildirs", true, {".Sent"}, MaildirLayout::Kind::MaildirPlusPlus, {"Inbox", "Sent"}},
};
INSTANTIATE_TEST_SUITE_P(Maildir, LayoutTest, ::testing::ValuesIn(kLayouts),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(MaildirFixture, FolderTreeHasParentsSpecialUseAndCounts)
{
    for (const char* d : {".Sent Items", ".junk", ".Projects", ".Projects.Q4", ".Projects.Q4.Late"})
        MakeMaildir(root + QLatin1Char('/') + QLatin1String(d));
    Put("", "cur/1.a.host:2,S", Mail("read"));
    Put("", "new/2.b.host", Mail("unread"));
    Put("", "cur/3.c.host:2,T", Mail("trashed"));
    auto store = Open();
    ASSERT_TRUE(store->Query(FolderIdFor(""), nullptr, {}).ok());
    auto folders = store->Folders();
    ASSERT_TRUE(folders.ok());
    QHash<QString, mapi::FolderInfo> byPath;
    for (const auto& f : *folders) byPath.insert(f.path, f);
    EXPECT_EQ(byPath["Inbox"].specialUse, "\\Inbox");
    EXPECT_EQ(byPath["Inbox"].total, 2);
    EXPECT_EQ(byPath["Inbox"].unread, 1);
    EXPECT_EQ(byPath["Sent Items"].specialUse, "\\Sent");
    EXPECT_EQ(byPath["junk"].specialUse, "\\Junk");
    EXPECT_EQ(byPath["Projects"].specialUse, "");
    EXPECT_TRUE(byPath["Projects"].parentId.isEmpty());
    EXPECT_EQ(byPath["Projects/Q4"].parentId, byPath["Projects"].entryId);
    EXPECT_EQ(byPath["Projects/Q4/Late"].name, "Late");
    EXPECT_EQ(byPath["Projects/Q4/Late"].parentId, byPath["Projects/Q4"].entryId);

    // A fresh store reads the counts from the index file without scanning.
    store.reset();
    auto again = Open()->Folder(FolderIdFor(""));
    ASSERT_TRUE(again.ok());
    EXPECT_EQ(again->total, 2);
    EXPECT_EQ(again->unread, 1);
}

TEST(MaildirSpecialUse, MatchesNamesWithoutCase)
{
    const std::pair<const char*, const char*> cases[] = {
        {"Sent", "\\Sent"},  {"SENT", "\\Sent"},      {"Drafts", "\\Drafts"}, {"trash", "\\Trash"},
        {"Archive", "\\Archive"}, {"Spam", "\\Junk"}, {"Junk", "\\Junk"},     {"Sentinel", ""},
        {"Projects", ""},
    };
    for (const auto& [name, use] : cases)
        EXPECT_EQ(MaildirLayout::SpecialUseForName(QString::fromUtf8(name)), QString::fromLatin1(use)) << name;
}

struct CreateCase {
    const char* name;
    MaildirLayout::Kind kind;
    const char* parent;    // folder path of the parent ("" = top level)
    const char* folder;    // name given
    const char* expected;  // folder path created, or null when refused
};

class CreateFolderTest : public MaildirFixture, public ::testing::WithParamInterface<CreateCase> {};

TEST_P(CreateFolderTest, CreatesMaildirOrRefuses)
{
    const CreateCase& c = GetParam();
    MakeMaildir(root + (c.kind == MaildirLayout::Kind::MaildirPlusPlus ? "/.Work" : "/Work"));
    MaildirStoreOptions options;
    options.indexPath = indexPath;
    options.watch = false;
    options.layout = c.kind;
    MaildirStore store(root, options);
    auto id = store.CreateFolder(QString::fromUtf8(c.parent).isEmpty() ? QByteArray() : FolderIdFor(c.parent),
                                 QString::fromUtf8(c.folder));
    if (!c.expected) {
        ASSERT_FALSE(id.ok());
        EXPECT_NE(id.error().message, "");
        return;
    }
    ASSERT_TRUE(id.ok()) << id.error().message.toStdString();
    EXPECT_EQ(*ParseFolderId(*id), QString::fromUtf8(c.expected));
    const QString dir = root + QLatin1Char('/') + QString::fromUtf8(c.expected);
    for (const char* sub : {"cur", "new", "tmp"}) EXPECT_TRUE(QFileInfo(dir + "/" + sub).isDir()) << sub;
    EXPECT_EQ(QFileInfo::exists(dir + "/maildirfolder"), c.kind == MaildirLayout::Kind::MaildirPlusPlus);
    auto info = store.Folder(*id);
    ASSERT_TRUE(info.ok());
    EXPECT_EQ(info->name, QString::fromUtf8(c.folder));
}

using K = MaildirLayout::Kind;
const CreateCase kCreates[] = {
    {"TopLevel", K::MaildirPlusPlus, "", "Receipts", ".Receipts"},
    {"Nested", K::MaildirPlusPlus, ".Work", "Q4", ".Work.Q4"},
    {"UnderInboxIsTopLevel", K::MaildirPlusPlus, "", "Lists", ".Lists"},
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
INSTANTIATE_TEST_SUITE_P(Maildir, CreateFolderTest, ::testing::ValuesIn(kCreates),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(MaildirModifiedUtf7, RoundTripsAndKeepsMalformedRuns)
{
    const std::pair<const char*, const char*> cases[] = {
        {"Inbox", "Inbox"},
        {"Tom & Jerry", "Tom &- Jerry"},
        {"Entwürfe", "Entw&APw-rfe"},
        {"日本語", "&ZeVnLIqe-"},
        {"~peter/mail/台北/日本語", "~peter/mail/&U,BTFw-/&ZeVnLIqe-"},
    };
    for (const auto& [plain, encoded] : cases) {
        EXPECT_EQ(EncodeModifiedUtf7(QString::fromUtf8(plain)), QString::fromUtf8(encoded)) << plain;
        EXPECT_EQ(DecodeModifiedUtf7(QString::fromUtf8(encoded)), QString::fromUtf8(plain)) << encoded;
    }
    EXPECT_EQ(DecodeModifiedUtf7("bad&%%-x"), "bad&%%-x");
    EXPECT_EQ(DecodeModifiedUtf7("open&AAA"), "open&AAA");
}

TEST(MaildirIds, RoundTripAndRejectForeignIds)
{
    EXPECT_EQ(*ParseFolderId(FolderIdFor(".Projects.Q4")), ".Projects.Q4");
    EXPECT_EQ(*ParseFolderId(FolderIdFor("")), "");
    const auto key = ParseMessageId(MessageIdFor(".Sent", "1700000000.M1P2.host"));
    ASSERT_TRUE(key);
    EXPECT_EQ(key->folder, ".Sent");
    EXPECT_EQ(key->unique, "1700000000.M1P2.host");
    EXPECT_TRUE(StoreIdFor("/home/a/Mail").startsWith("MVD1"));

    const QByteArray foreign[] = {
        QByteArray("IMA1.Sent"), QByteArray("MVD"), MessageIdFor(".Sent", "x"),
    };
    for (const QByteArray& id : foreign) EXPECT_FALSE(ParseFolderId(id)) << id.toHex().constData();
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
    struct Case {
        const char* file;
        const char* unique;
        const char* info;
        bool hasInfo;
        qint64 delivered;  // seconds, -1 = none in the name
    } cases[] = {
        {"1700000000.M1P2.host:2,FS", "1700000000.M1P2.host", "FS", true, 1700000000},
        {"1700000000.M1P2.host", "1700000000.M1P2.host", "", false, 1700000000},
        {"1700000000.M1P2.host:2,", "1700000000.M1P2.host", "", true, 1700000000},
        {"1700000000.M1P2.host:1,experimental", "1700000000.M1P2.host", "", false, 1700000000},
        {"msg-42:2,S", "msg-42", "S", true, -1},
        {"1700000000x.host", "1700000000x.host", "", false, -1},
    };
    for (const Case& c : cases) {
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

}  // namespace
