#include "SmartFixture.h"

#include "platform/mapi/MapiUtils.h"

#include <QDir>

namespace mv::test {

namespace {

std::unique_ptr<stores::maildir::MaildirStore> MakeStore(const QString& root, const QString& name,
                                                         const QStringList& folders)
{
    for (const QString& f : QStringList{QString()} + folders)
        for (const char* sub : {"cur", "new", "tmp"})
            QDir().mkpath(root + (f.isEmpty() ? QString() : QLatin1Char('/') + f) + QLatin1Char('/') +
                          QLatin1String(sub));
    stores::maildir::MaildirStoreOptions options;
    options.indexPath = root + QStringLiteral(".index.sqlite");
    options.displayName = name;
    options.watch = false;
    return std::make_unique<stores::maildir::MaildirStore>(root, options);
}

}  // namespace

std::vector<std::unique_ptr<outlook::Item>> SelectionExplorer::Selection()
{
    std::vector<std::unique_ptr<outlook::Item>> items;
    if (auto item = itemEntry.isEmpty() ? nullptr : m_ns.GetItemFromID(itemEntry, itemStore))
        items.push_back(std::move(item));
    return items;
}

void SmartFixture::SetUp()
{
    RulePropsFixture::SetUp();
    if (HasFatalFailure()) return;
    m_home =
        MakeStore(m_tmp.filePath(QStringLiteral("home")), QStringLiteral("Home"),
                  {QStringLiteral(".Sent"), QStringLiteral(".Archive"), QStringLiteral(".Archive.2026")});
    m_work = MakeStore(m_tmp.filePath(QStringLiteral("work")), QStringLiteral("Work"),
                       {QStringLiteral(".Projects")});
    m_ns = std::make_unique<outlook::StoreNameSpace>(
        std::vector<mapi::MessageStore*>{m_home.get(), m_work.get()});
    const QString storeHex = mapi::MapiUtils::HrGetHexFromBinary(m_home->StoreId());
    m_inbox = m_ns->GetFolderFromID(
        mapi::MapiUtils::HrGetHexFromBinary(FolderOf(*m_home, QStringLiteral("Inbox")).entryId), storeHex);
    m_archive = m_ns->GetFolderFromID(
        mapi::MapiUtils::HrGetHexFromBinary(FolderOf(*m_home, QStringLiteral("Archive")).entryId), storeHex);
    ASSERT_TRUE(m_inbox && m_archive);
}

mapi::FolderInfo SmartFixture::FolderOf(stores::maildir::MaildirStore& store, const QString& path)
{
    auto folders = store.Folders();
    EXPECT_TRUE(folders.ok());
    if (folders)
        for (const mapi::FolderInfo& f : *folders)
            if (f.path == path) return f;
    ADD_FAILURE() << "no folder " << path.toStdString();
    return {};
}

QString SmartFixture::Deliver(stores::maildir::MaildirStore& store, const QString& folderPath,
                              const QByteArray& rfc822)
{
    mapi::NewMessage m;
    m.rfc822 = rfc822;
    auto id = store.Append(FolderOf(store, folderPath).entryId, m);
    EXPECT_TRUE(id.ok()) << (id ? "" : id.error().message.toStdString());
    return id ? mapi::MapiUtils::HrGetHexFromBinary(id.value()) : QString();
}

std::unique_ptr<SelectionExplorer> SmartFixture::ExplorerOn(const QString& folderPath,
                                                            const QString& entryHex)
{
    auto explorer = std::make_unique<SelectionExplorer>(*m_ns);
    const QString storeHex = mapi::MapiUtils::HrGetHexFromBinary(m_home->StoreId());
    explorer->itemEntry = entryHex;
    explorer->itemStore = storeHex;
    explorer->folderEntry = mapi::MapiUtils::HrGetHexFromBinary(FolderOf(*m_home, folderPath).entryId);
    explorer->folderStore = storeHex;
    return explorer;
}

forms::RulePropsContext SmartFixture::Context()
{
    return forms::RulePropsContext{*m_db,
                                   *m_ns,
                                   m_picker,
                                   m_contacts,
                                   m_answerer,
                                   *m_report,
                                   QStringLiteral("11.0"),
                                   QStringLiteral("Mailvane"),
                                   m_tmp.path(),
                                   nullptr};
}

}  // namespace mv::test
