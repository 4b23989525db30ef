#include "ConformanceBackend.h"

#include "platform/stores/imap/ImapStore.h"
#include "tests/imap/ImapTestSupport.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

namespace mv::conformance {
namespace {

// Checks every query the cases ask against the folder image or the mirror,
// comparing the answer (with the rule engine's columns, which both serve)
// with the one a store without either gives; a difference fails the case.
// Image: this store's, told of the query three times first, as a run of
// many rules on one folder tells it, and kept up to date across the cases'
// moves and flag changes, which go through this store. Mirror: a second
// store's, brought up to date with what this store and the case changed
// meanwhile, as another process would (tests/imap's ImapMirrorTest starts
// a new one per check). The case itself then gets the usual answer.
enum class Checked { None, Image, Mirror };

class CheckingStore final : public stores::ImapStore {
public:
    CheckingStore(const stores::ImapSettings& settings, Checked checked)
        : ImapStore(settings), m_checked(checked), m_other(std::make_unique<stores::ImapStore>(settings))
    {
        if (checked == Checked::Mirror) m_other->SetMirrorFolder(m_mirrorDir.path());
    }
    Result<std::vector<mapi::Row>> Query(const QByteArray& folderId, const mapi::Restriction* restriction,
                                         const std::vector<mapi::PropTag>& columns) override
    {
        static const std::vector<mapi::PropTag> kEngineColumns = {
            mapi::PR_ENTRYID, mapi::PR_STORE_ENTRYID, mapi::PR_MESSAGE_CLASS, mapi::PR_SUBJECT,
            mapi::PR_MESSAGE_DELIVERY_TIME, mapi::PR_FLAG_STATUS};
        const bool image = m_checked == Checked::Image;
        if (restriction) {
            if (image)
                for (int i = 0; i < 3; ++i) Anticipate(folderId, *restriction, kEngineColumns);
            auto checked = image ? ImapStore::Query(folderId, restriction, kEngineColumns)
                                 : m_other->Query(folderId, restriction, kEngineColumns);
            auto plain = Plain(folderId, restriction, kEngineColumns);
            if (checked.ok() != plain.ok() || (checked.ok() && *checked != *plain))
                return Error::permanent(QStringLiteral("the folder %1 answers otherwise: %2 rows, not %3 (%4)")
                                            .arg(image ? QStringLiteral("image") : QStringLiteral("mirror"))
                                            .arg(checked ? int(checked->size()) : -1)
                                            .arg(plain ? int(plain->size()) : -1)
                                            .arg(checked ? QString() : checked.error().message));
        }
        return Plain(folderId, restriction, columns);
    }

private:
    // The answer of the store without an image or a mirror.
    Result<std::vector<mapi::Row>> Plain(const QByteArray& folderId, const mapi::Restriction* restriction,
                                         const std::vector<mapi::PropTag>& columns)
    {
        return m_checked == Checked::Image ? m_other->Query(folderId, restriction, columns)
                                           : ImapStore::Query(folderId, restriction, columns);
    }

    Checked m_checked;
    QTemporaryDir m_mirrorDir;
    std::unique_ptr<stores::ImapStore> m_other;  // without an image; with the mirror
};

// One private Dovecot serves the whole run, reached over plain IMAP on
// 127.0.0.1; each fixture keeps to a folder of its own with Archive and
// Dest inside, so fixtures never see each other's mail.
class ImapFixture final : public Fixture {
public:
    explicit ImapFixture(Checked checked) : m_checked(checked) {}
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
        m_store = m_checked == Checked::None ? std::make_unique<stores::ImapStore>(settings)
                                             : std::make_unique<CheckingStore>(settings, m_checked);
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
    Checked m_checked;
    test::DovecotServer* m_server = nullptr;  // shared, outlives the store
    std::unique_ptr<stores::ImapStore> m_store;
};

std::unique_ptr<Fixture> Started(Checked checked)
{
    auto fixture = std::make_unique<ImapFixture>(checked);
    if (!fixture->Start()) return nullptr;
    return fixture;
}

const BackendRegistrar registrar({QStringLiteral("Imap"), [] { return Started(Checked::None); }});
const BackendRegistrar imageRegistrar({QStringLiteral("ImapImage"), [] { return Started(Checked::Image); }});
const BackendRegistrar mirrorRegistrar({QStringLiteral("ImapMirror"), [] { return Started(Checked::Mirror); }});

}  // namespace
}  // namespace mv::conformance
