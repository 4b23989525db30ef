#include "StoreSet.h"

#include "platform/stores/imap/ImapStore.h"
#include "platform/stores/maildir/MaildirStore.h"

#include <QCryptographicHash>
#include <QFileInfo>
#include <QStandardPaths>

namespace mv::host {

Result<std::unique_ptr<StoreSet>> StoreSet::Open(const Profile& profile, logging::Logger* log)
{
    auto set = std::make_unique<StoreSet>();
    for (const StoreProfile& p : profile.stores) {
        if (p.type == StoreProfile::Type::Maildir) {
            if (!QFileInfo(p.path).isDir())
                return Error::notFound(QStringLiteral("%1: [%2] path: %3 is not a folder")
                                           .arg(profile.file.isEmpty() ? QStringLiteral("profile") : profile.file,
                                                p.section, p.path));
            stores::maildir::MaildirStoreOptions options;
            options.displayName = p.section;
            options.ownAddress = p.address;
            set->Add(std::make_unique<stores::maildir::MaildirStore>(p.path, options));
        } else {
            auto imap = std::make_unique<stores::ImapStore>(p.imap);
            imap->SetLogger(log);
            // Beside the Maildir index: one folder per account.
            const QByteArray account = QCryptographicHash::hash(imap->StoreId(), QCryptographicHash::Sha1).toHex();
            imap->SetMirrorFolder(QStandardPaths::writableLocation(QStandardPaths::CacheLocation) +
                                  QLatin1String("/imap-mirror/") + QString::fromLatin1(account));
            set->Add(std::move(imap));
        }
    }
    return set;
}

void StoreSet::Add(std::unique_ptr<mapi::MessageStore> store)
{
    if (store) m_stores.push_back(std::move(store));
}

std::vector<mapi::MessageStore*> StoreSet::Stores() const
{
    std::vector<mapi::MessageStore*> list;
    list.reserve(m_stores.size());
    for (const auto& store : m_stores) list.push_back(store.get());
    return list;
}

}  // namespace mv::host
