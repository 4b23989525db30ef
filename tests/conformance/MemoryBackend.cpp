#include "ConformanceBackend.h"

#include "platform/stores/memory/MemoryStore.h"

namespace mv::conformance {
namespace {

class MemoryFixture final : public Fixture {
public:
    MemoryFixture() : m_store(stores::MemoryStoreOptions{QStringLiteral("Conformance"), {}, {}})
    {
        inbox = m_store.InboxId();
        archive = m_store.FolderIdByPath(QStringLiteral("Archive"));
        dest = m_store.CreateFolder({}, QStringLiteral("Dest")).value();
    }
    mapi::MessageStore& Store() override { return m_store; }

private:
    stores::MemoryStore m_store;
};

const BackendRegistrar registrar({QStringLiteral("Memory"), [] { return std::make_unique<MemoryFixture>(); }});

}  // namespace
}  // namespace mv::conformance
