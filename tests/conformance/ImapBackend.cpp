#include "ConformanceBackend.h"

#include "platform/stores/imap/ImapStore.h"
#include "tests/imap/ImapTestSupport.h"

#include <gtest/gtest.h>

namespace mv::conformance {
namespace {

// Checks every query the cases ask against the folder image: told of it
// three times first, as a run of many rules on one folder tells it, the
// store answers from the image, and that answer (with the rule engine's
// columns, which the image serves) must be the one a store without an
// image gives; a difference fails the case. The image is kept up to date
// across the cases' moves and flag changes, which go through this store.
// The case itself then gets the usual answer.
class ImageCheckingStore final : public stores::ImapStore {
public:
    explicit ImageCheckingStore(const stores::ImapSettings& settings)
        : ImapStore(settings), m_plain(std::make_unique<stores::ImapStore>(settings))
    {
    }
    Result<std::vector<mapi::Row>> Query(const QByteArray& folderId, const mapi::Restriction* restriction,
                                         const std::vector<mapi::PropTag>& columns) override
    {
        static const std::vector<mapi::PropTag> kEngineColumns = {
            mapi::PR_ENTRYID, mapi::PR_STORE_ENTRYID, mapi::PR_MESSAGE_CLASS, mapi::PR_SUBJECT,
            mapi::PR_MESSAGE_DELIVERY_TIME, mapi::PR_FLAG_STATUS};
        if (restriction) {
            for (int i = 0; i < 3; ++i) Anticipate(folderId, *restriction, kEngineColumns);
            auto imaged = ImapStore::Query(folderId, restriction, kEngineColumns);
            auto plain = m_plain->Query(folderId, restriction, kEngineColumns);
            if (imaged.ok() != plain.ok() || (imaged.ok() && *imaged != *plain))
                return Error::permanent(QStringLiteral("the folder image answers otherwise: %1 rows, not %2")
                                            .arg(imaged ? int(imaged->size()) : -1)
                                            .arg(plain ? int(plain->size()) : -1));
        }
        return m_plain->Query(folderId, restriction, columns);
    }

private:
    std::unique_ptr<stores::ImapStore> m_plain;
};

// One private Dovecot serves the whole run, reached over plain IMAP on
// 127.0.0.1; each fixture keeps to a folder of its own with Archive and
// Dest inside, so fixtures never see each other's mail.
class ImapFixture final : public Fixture {
public:
    explicit ImapFixture(bool telling) : m_telling(telling) {}
    bool Start()
    {
        static int fixtures = 0;
        m_server = test::DovecotServer::Available() ? test::SharedDovecot({}) : nullptr;
        if (!m_server) return false;
        stores::ImapSettings settings;
        settings.host = QStringLiteral("127.0.0.1");
        settings.port = m_server->Port();
        settings.tls = stores::TlsMode::None;
        settings.user = test::DovecotServer::User();
        settings.password = test::DovecotServer::Password();
        settings.timeoutSeconds = 20;
        m_store = m_telling ? std::make_unique<ImageCheckingStore>(settings) : std::make_unique<stores::ImapStore>(settings);
        auto in = m_store->CreateFolder({}, QStringLiteral("Fixture%1").arg(++fixtures));
        if (!in) return false;
        auto ar = m_store->CreateFolder(*in, QStringLiteral("Archive"));
        auto de = m_store->CreateFolder(*in, QStringLiteral("Dest"));
        if (!ar || !de) return false;
        inbox = *in;
        archive = *ar;
        dest = *de;
        return true;
    }
    mapi::MessageStore& Store() override { return *m_store; }

private:
    bool m_telling;
    test::DovecotServer* m_server = nullptr;  // shared, outlives the store
    std::unique_ptr<stores::ImapStore> m_store;
};

std::unique_ptr<Fixture> Started(bool telling)
{
    auto fixture = std::make_unique<ImapFixture>(telling);
    if (!fixture->Start()) return nullptr;
    return fixture;
}

const BackendRegistrar registrar({QStringLiteral("Imap"), [] { return Started(false); }});
const BackendRegistrar imageRegistrar({QStringLiteral("ImapImage"), [] { return Started(true); }});

}  // namespace
}  // namespace mv::conformance
