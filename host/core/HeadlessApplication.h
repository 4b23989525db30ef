#pragma once
// The host's Application without windows, over the stores of a StoreSet.
// NewMail is raised when a store reports arrivals in its INBOX, ItemSend when
// it reports an append to its Sent folder (special use \Sent, else the
// folder named Sent). Startup is raised once by Start(), Quit by Stop().

#include "HeadlessWindows.h"
#include "StoreSet.h"

#include "platform/outlook/Application.h"
#include "platform/outlook/store/StoreNameSpace.h"

#include <QHash>

namespace mv::host {

class HeadlessApplication final : public outlook::Application {
    Q_OBJECT
public:
    // `stores` and `clipboard` must outlive the application.
    HeadlessApplication(StoreSet& stores, os::Clipboard& clipboard, QObject* parent = nullptr);
    ~HeadlessApplication() override;

    outlook::NameSpace* GetNamespace(const QString& type) override;
    outlook::Explorers* GetExplorers() override { return &m_explorers; }
    outlook::Inspectors* GetInspectors() override { return &m_inspectors; }
    outlook::Explorer* ActiveExplorer() override;
    QString Version() const override { return QStringLiteral("11.0"); }

    // Opens the windowless Explorer (before add-ins connect, so they find
    // one) and starts listening to the stores.
    void Open();
    // Starts listening to the stores without opening a window; a host with
    // windows of its own shares the store events this way. Harmless when
    // repeated.
    void Listen();
    // Raises Startup, once.
    void Start();
    // Raises Quit (once), then closes the Inspectors and the Explorers.
    void Stop();

    // The first Explorer (nullptr before Open).
    HeadlessExplorer* Explorer() const { return m_explorerObjects.empty() ? nullptr : m_explorerObjects.front().get(); }
    // For tests of window tracking; the headless host opens only the first
    // Explorer and no Inspector. Another Explorer becomes the active one
    // (raises NewExplorer); an Inspector shows `item` (raises NewInspector).
    // Windows stay allocated until the application goes, closed or not, so
    // pointers held by add-ins never dangle.
    HeadlessExplorer* OpenExplorer();
    HeadlessInspector* OpenInspector(std::unique_ptr<outlook::Item> item);
    outlook::StoreNameSpace& Session() { return m_nameSpace; }

private:
    void OnArrived(mapi::MessageStore* store, const QByteArray& folderId);
    enum class FolderRole { Other, Inbox, Sent };
    FolderRole RoleOf(mapi::MessageStore* store, const QByteArray& folderId);
    std::unique_ptr<outlook::Item> NewestItem(mapi::MessageStore& store, const QByteArray& folderId);

    StoreSet& m_stores;
    os::Clipboard& m_clipboard;
    outlook::StoreNameSpace m_nameSpace;
    HeadlessExplorers m_explorers;
    HeadlessInspectors m_inspectors;
    std::vector<std::unique_ptr<HeadlessExplorer>> m_explorerObjects;
    std::vector<std::unique_ptr<HeadlessInspector>> m_inspectorObjects;
    bool m_started = false, m_stopped = false, m_listening = false;
};

}  // namespace mv::host
