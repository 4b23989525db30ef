#include "ConformanceBackend.h"

#include "platform/stores/maildir/MaildirIds.h"
#include "platform/stores/maildir/MaildirStore.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <ctime>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

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

// The same store answered from its compact index, as a new process finds
// it: every Store() call first lets a helper store scan the folders (their
// directory times moved back a minute when they are recent, as in a mailbox
// nobody is writing to) and write the index, then hands out a new store.
// Stores handed out earlier stay alive for callers that hold them.
class MaildirIndexedFixture final : public Fixture {
public:
    MaildirIndexedFixture()
    {
        m_root = m_tmp.path() + QStringLiteral("/Mail");
        for (const char* sub : {"cur", "new", "tmp"}) QDir().mkpath(m_root + QLatin1Char('/') + QLatin1String(sub));
        m_options.indexPath = m_tmp.path() + QStringLiteral("/index.sqlite");
        m_options.watch = false;
        stores::maildir::MaildirStore setup(m_root, m_options);
        inbox = stores::maildir::FolderIdFor(QString());
        archive = setup.CreateFolder({}, QStringLiteral("Archive")).value();
        dest = setup.CreateFolder({}, QStringLiteral("Dest")).value();
    }
    mapi::MessageStore& Store() override
    {
        const QStringList dirs = {m_root, m_root + QStringLiteral("/.Archive"), m_root + QStringLiteral("/.Dest")};
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        for (const QString& dir : dirs) {
            for (const char* sub : {"/cur", "/new"}) {
                const QByteArray path = QFile::encodeName(dir + QLatin1String(sub));
                struct stat st{};
                if (::stat(path.constData(), &st) != 0 || now.tv_sec - st.st_mtim.tv_sec < 3) {
                    const timespec old[2] = {{now.tv_sec - 60, now.tv_nsec}, {now.tv_sec - 60, now.tv_nsec}};
                    ::utimensat(AT_FDCWD, path.constData(), old, 0);
                }
            }
        }
        {
            stores::maildir::MaildirStore helper(m_root, m_options);
            for (const QByteArray& folder : {inbox, archive, dest}) (void)helper.Query(folder, nullptr, {mapi::PR_ENTRYID});
        }
        m_stores.push_back(std::make_unique<stores::maildir::MaildirStore>(m_root, m_options));
        return *m_stores.back();
    }
    Status Seed(const std::vector<mapi::NewMessage>& messages) override
    {
        mapi::MessageStore& store = Store();
        for (const mapi::NewMessage& message : messages) {
            if (Result<QByteArray> id = store.Append(inbox, message); !id) return id.error();
        }
        return Status::success();
    }

private:
    QTemporaryDir m_tmp;
    QString m_root;
    stores::maildir::MaildirStoreOptions m_options;
    std::vector<std::unique_ptr<stores::maildir::MaildirStore>> m_stores;
};

const BackendRegistrar indexed({QStringLiteral("MaildirIndexed"), [] { return std::make_unique<MaildirIndexedFixture>(); }});

}  // namespace
}  // namespace mv::conformance
