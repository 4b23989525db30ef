#include "AddinLoader.h"

namespace mv::host {

namespace {

QString KeyOf(const QString& progId)
{
    return QString::fromLatin1(kAddinsKey) + QLatin1Char('\\') + progId;
}

constexpr int kLoadAtStartup = 3;
constexpr int kNotLoaded = 2;

}  // namespace

Status RegisterMailvaneAddin(os::Registry& registry)
{
    const QString key = KeyOf(QString::fromLatin1(kMailvaneProgId));
    if (registry.KeyExists(key)) return Status::success();
    if (Status s = registry.WriteString(key, QStringLiteral("FriendlyName"), QStringLiteral("Mailvane Add-In")); !s)
        return s;
    if (Status s = registry.WriteString(key, QStringLiteral("Description"),
                                        QStringLiteral("This Add-in provides Message Automation Rules."));
        !s)
        return s;
    return registry.WriteDword(key, QStringLiteral("LoadBehavior"), kLoadAtStartup);
}

AddinLoader::AddinLoader(os::Registry& registry, ProgIdRegistry& progIds, outlook::Application& application)
    : m_registry(registry), m_progIds(progIds), m_application(application)
{
}

AddinLoader::~AddinLoader()
{
    Disconnect();
}

std::vector<AddinInfo> AddinLoader::Registered() const
{
    std::vector<AddinInfo> list;
    auto keys = m_registry.SubKeys(QString::fromLatin1(kAddinsKey));
    if (!keys) return list;
    const QStringList connected = Connected();
    for (const QString& progId : *keys) {
        AddinInfo info;
        info.progId = progId;
        const QString key = KeyOf(progId);
        if (auto v = m_registry.ReadDword(key, QStringLiteral("LoadBehavior"))) info.loadBehavior = static_cast<int>(*v);
        if (auto v = m_registry.ReadString(key, QStringLiteral("FriendlyName"))) info.friendlyName = *v;
        if (auto v = m_registry.ReadString(key, QStringLiteral("Description"))) info.description = *v;
        info.connected = connected.contains(progId, Qt::CaseInsensitive);
        list.push_back(std::move(info));
    }
    return list;
}

int AddinLoader::Connect(int connectMode)
{
    int connectedNow = 0;
    for (const AddinInfo& info : Registered()) {
        if (info.loadBehavior != kLoadAtStartup || info.connected) continue;
        std::unique_ptr<outlook::IDTExtensibility2> object = m_progIds.Create<outlook::IDTExtensibility2>(info.progId);
        if (!object) {
            m_failures << QStringLiteral("%1: no component is registered under this ProgID").arg(info.progId);
            continue;
        }
        Loaded loaded{info.progId, std::move(object), {}};
        loaded.instance.ProgId = info.progId;
        loaded.object->OnConnection(&m_application, connectMode, loaded.instance);
        m_loaded.push_back(std::move(loaded));
        ++connectedNow;
    }
    // Only the ones connected just now: the others heard it when they came.
    if (connectMode == outlook::ext_cm_Startup)
        for (auto it = m_loaded.end() - connectedNow; it != m_loaded.end(); ++it) it->object->OnStartupComplete();
    return connectedNow;
}

void AddinLoader::Disconnect()
{
    for (Loaded& loaded : m_loaded) loaded.object->OnBeginShutdown();
    // Last connected first, so an add-in that leans on an earlier one finds it still there.
    while (!m_loaded.empty()) {
        Loaded loaded = std::move(m_loaded.back());
        m_loaded.pop_back();
        loaded.object->OnDisconnection(outlook::ext_dm_HostShutdown);
    }
}

bool AddinLoader::Remove(const QString& progId)
{
    for (auto it = m_loaded.begin(); it != m_loaded.end(); ++it) {
        if (it->progId.compare(progId, Qt::CaseInsensitive) != 0) continue;
        Loaded loaded = std::move(*it);
        m_loaded.erase(it);
        loaded.object->OnDisconnection(outlook::ext_dm_UserClosed);
        // Unchecked in the dialog: registered, but no longer loaded at start.
        (void)m_registry.WriteDword(KeyOf(loaded.progId), QStringLiteral("LoadBehavior"), kNotLoaded);
        return true;
    }
    return false;
}

outlook::IDTExtensibility2* AddinLoader::AddInObject(const QString& progId) const
{
    for (const Loaded& loaded : m_loaded)
        if (loaded.progId.compare(progId, Qt::CaseInsensitive) == 0) return loaded.instance.Object;
    return nullptr;
}

bool AddinLoader::Reconnect(const QString& progId)
{
    if (Connected().contains(progId, Qt::CaseInsensitive)) return true;
    const QString key = KeyOf(progId);
    if (!m_registry.KeyExists(key)) return false;
    const auto before = m_registry.ReadDword(key, QStringLiteral("LoadBehavior"));
    if (!m_registry.WriteDword(key, QStringLiteral("LoadBehavior"), kLoadAtStartup)) return false;
    Connect(outlook::ext_cm_AfterStartup);
    if (Connected().contains(progId, Qt::CaseInsensitive)) return true;
    // One that cannot load is not tried again at every start.
    (void)m_registry.WriteDword(key, QStringLiteral("LoadBehavior"), before ? *before : kNotLoaded);
    return false;
}

QStringList AddinLoader::Connected() const
{
    QStringList list;
    for (const Loaded& loaded : m_loaded) list << loaded.progId;
    return list;
}

}  // namespace mv::host
