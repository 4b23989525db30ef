#pragma once
// Connects the add-ins registered in the host's registry, as a mail host
// does: every subkey of kAddinsKey whose LoadBehavior is 3 is created through the factory
// registered under its ProgID and connected with OnConnection, in the order
// the registry lists its subkeys (by name). Disconnect() takes them down in reverse order
// (host shutdown); Remove() is the user removing one in the add-ins dialog.

#include "platform/common/ProgIdRegistry.h"
#include "platform/os/Registry.h"
#include "platform/outlook/Application.h"

#include <QStringList>

#include <memory>
#include <vector>

namespace mv::host {

inline constexpr const char* kAddinsKey = "HKEY_CURRENT_USER\\Software\\Microsoft\\Office\\Outlook\\Addins";
inline constexpr const char* kMailvaneProgId = "Mailvane.Connect";

struct AddinInfo {
    QString progId;
    QString friendlyName;
    QString description;
    int loadBehavior = 0;
    bool connected = false;
};

// Writes Mailvane's registration (FriendlyName "Mailvane Add-In", the
// description, LoadBehavior 3) when its key is missing; an existing key,
// whatever its LoadBehavior, is left as the user set it.
Status RegisterMailvaneAddin(os::Registry& registry);

class AddinLoader {
public:
    // Each must outlive the loader. Factories are IDTExtensibility2 factories
    // in `progIds`.
    AddinLoader(os::Registry& registry, ProgIdRegistry& progIds, outlook::Application& application);
    ~AddinLoader();  // disconnects what is still connected (host shutdown)

    // Every registered add-in, connected or not.
    std::vector<AddinInfo> Registered() const;
    // Connects the add-ins with LoadBehavior 3; returns how many connected.
    // One whose factory is missing or fails is skipped (see Failures()).
    int Connect(int connectMode = outlook::ext_cm_Startup);
    // OnDisconnection(ext_dm_HostShutdown) for each connected add-in, last
    // connected first.
    void Disconnect();
    // The user removes the add-in: OnDisconnection(ext_dm_UserClosed) and its
    // LoadBehavior becomes 2. False when it was not connected.
    bool Remove(const QString& progId);
    // The user checks it again: LoadBehavior 3 and OnConnection(ext_cm_AfterStartup).
    // False when it is not registered or has no component (see Failures()).
    bool Reconnect(const QString& progId);

    QStringList Connected() const;
    // The object a connected add-in handed back in AddInInstance.Object
    // (Mailvane: its Connect); nullptr when that add-in is not connected.
    outlook::IDTExtensibility2* AddInObject(const QString& progId) const;
    // "<ProgID>: <reason>" for each add-in that could not be connected.
    const QStringList& Failures() const { return m_failures; }

private:
    struct Loaded {
        QString progId;
        std::unique_ptr<outlook::IDTExtensibility2> object;
        outlook::IDTExtensibility2::AddInInstance instance;
    };

    os::Registry& m_registry;
    ProgIdRegistry& m_progIds;
    outlook::Application& m_application;
    std::vector<Loaded> m_loaded;
    QStringList m_failures;
};

}  // namespace mv::host
