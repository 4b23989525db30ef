#include "ConformanceBackend.h"

#include "platform/stores/imap/ImapStore.h"
#include "tests/support/dovecot/DovecotServer.h"

namespace mv::conformance {
namespace {

// A private Dovecot per fixture, reached over plain IMAP on 127.0.0.1.
class ImapFixture final : public Fixture {
public:
    bool Start()
    {
        if (!test::DovecotServer::Available() || !m_server.Start(nullptr)) return false;
        stores::ImapSettings settings;
        settings.host = QStringLiteral("127.0.0.1");
        settings.port = m_server.Port();
        settings.tls = stores::TlsMode::None;
        settings.user = test::DovecotServer::User();
        settings.password = test::DovecotServer::Password();
        settings.timeoutSeconds = 20;
        m_store = std::make_unique<stores::ImapStore>(settings);
        auto in = m_store->FolderIdOf("INBOX");
        auto ar = m_store->FolderIdOf("Archive");
        auto de = m_store->CreateFolder({}, QStringLiteral("Dest"));
        if (!in || !ar || !de) return false;
        inbox = *in;
        archive = *ar;
        dest = *de;
        return true;
    }
    mapi::MessageStore& Store() override { return *m_store; }

private:
    test::DovecotServer m_server;
    std::unique_ptr<stores::ImapStore> m_store;
};

const BackendRegistrar registrar({QStringLiteral("Imap"), []() -> std::unique_ptr<Fixture> {
                                      auto fixture = std::make_unique<ImapFixture>();
                                      if (!fixture->Start()) return nullptr;
                                      return fixture;
                                  }});

}  // namespace
}  // namespace mv::conformance
