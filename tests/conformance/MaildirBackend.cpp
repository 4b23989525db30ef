#include "ConformanceBackend.h"

#include "platform/stores/maildir/MaildirIds.h"
#include "platform/stores/maildir/MaildirStore.h"

#include <QDir>
#include <QTemporaryDir>

namespace mv::conformance {
namespace {

// A Maildir++ tree and its index in one temporary directory.
class MaildirFixture final : public Fixture {
public:
    MaildirFixture()
    {
        const QString root = m_tmp.path() + QStringLiteral("/Mail");
        for (const char* sub : {"cur", "new", "tmp"}) QDir().mkpath(root + QLatin1Char('/') + QLatin1String(sub));
        stores::maildir::MaildirStoreOptions options;
        options.indexPath = m_tmp.path() + QStringLiteral("/index.sqlite");
        options.watch = false;
        m_store = std::make_unique<stores::maildir::MaildirStore>(root, options);
        inbox = stores::maildir::FolderIdFor(QString());
        archive = m_store->CreateFolder({}, QStringLiteral("Archive")).value();
        dest = m_store->CreateFolder({}, QStringLiteral("Dest")).value();
    }
    mapi::MessageStore& Store() override { return *m_store; }

private:
    QTemporaryDir m_tmp;
    std::unique_ptr<stores::maildir::MaildirStore> m_store;
};

const BackendRegistrar registrar({QStringLiteral("Maildir"), [] { return std::make_unique<MaildirFixture>(); }});

}  // namespace
}  // namespace mv::conformance
