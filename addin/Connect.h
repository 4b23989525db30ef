#pragma once
// The add-in's entry class: the host loads it by ProgID "Mailvane.Connect"
// and talks to it through IDTExtensibility2. It creates the one OutAddIn
// lazily, brings it up on connection and takes it down on disconnection.

#include "OutAddIn.h"

#include "platform/outlook/Application.h"

#include <QString>

#include <functional>
#include <memory>

namespace mv::addin {

inline constexpr const char* kConnectProgId = "Mailvane.Connect";

// What the host lends the add-in; everything must outlive the Connect
// objects made from it.
struct AddInServices {
    os::ErrorReport* report = nullptr;
    ProgIdRegistry* progIds = nullptr;
    os::Clock* clock = nullptr;
    os::Clipboard* clipboard = nullptr;
    logging::Logger* log = nullptr;  // used until start-up opens mv.log
    QString installDir;
    FormLauncher* forms = nullptr;   // nullptr: clicks are only logged
    QString appDataOverride;         // tests: instead of CSIDL_APPDATA
    // Called on each new OutAddIn before InitHandler (the host may install
    // a runner or a status-form factory).
    std::function<void(OutAddIn&)> configure;
};

class Connect : public outlook::IDTExtensibility2 {
public:
    explicit Connect(AddInServices services) : m_services(std::move(services)) {}
    ~Connect() override;

    void OnConnection(outlook::Application* application, int connectMode, AddInInstance& addInInst) override;
    void OnDisconnection(int removeMode) override;

    // nullptr before the first connection and after disconnection.
    OutAddIn* AddIn() const { return m_addIn.get(); }

private:
    OutAddIn& Instance();

    AddInServices m_services;
    std::unique_ptr<OutAddIn> m_addIn;
};

// Registers Connect under "Mailvane.Connect" as an IDTExtensibility2 factory.
void RegisterConnect(ProgIdRegistry& registry, AddInServices services);

}  // namespace mv::addin
