#include "DesktopApplication.h"

#include "ExplorerWindow.h"
#include "MessageWindow.h"

#include <algorithm>

namespace mv::host::desktop {

DesktopApplication::DesktopApplication(StoreSet& stores, os::Clipboard& clipboard, QObject* parent)
    : outlook::Application(parent), m_stores(stores), m_clipboard(clipboard), m_core(stores, clipboard)
{
    connect(&m_core, &outlook::Application::NewMail, this, &outlook::Application::NewMail);
    connect(&m_core, &outlook::Application::ItemSend, this, &outlook::Application::ItemSend);
}

DesktopApplication::~DesktopApplication()
{
    // Windows go before the collections and the listener they refer to.
    m_inspectorObjects.clear();
    m_explorerObjects.clear();
}

outlook::Explorer* DesktopApplication::ActiveExplorer()
{
    return m_activation.empty() ? nullptr : m_activation.back();
}

void DesktopApplication::Open()
{
    m_core.Listen();
    if (m_explorerObjects.empty()) OpenExplorer();
}

void DesktopApplication::Start()
{
    if (m_started) return;
    m_started = true;
    Q_EMIT Startup();
}

void DesktopApplication::Stop()
{
    if (m_stopped) return;
    m_stopped = true;
    Q_EMIT Quit();
    m_core.Stop();  // stops listening; it has no windows of its own
    for (int i = m_inspectors.Count(); i >= 1; --i)
        if (outlook::Inspector* inspector = m_inspectors.Item(i)) inspector->Close();
    for (int i = m_explorers.Count(); i >= 1; --i)
        if (outlook::Explorer* explorer = m_explorers.Item(i)) explorer->Close();
}

ExplorerWindow* DesktopApplication::OpenExplorer()
{
    auto& owned = m_explorerObjects.emplace_back(std::make_unique<ExplorerWindow>(*this, &m_clipboard));
    ExplorerWindow* window = owned.get();
    // Connected before anyone else hears Closed: an add-in's close handler
    // must already see the window gone from the collection.
    connect(window, &outlook::Explorer::Closed, this, [this, window] {
        m_explorers.Remove(window);
        std::erase(m_activation, window);
    });
    connect(window, &outlook::Explorer::Activate, this, [this, window] { Activated(window); });
    m_activation.push_back(window);
    window->Show();
    m_explorers.Add(window);
    return window;
}

MessageWindow* DesktopApplication::OpenInspector(std::unique_ptr<outlook::Item> item)
{
    if (!item) return nullptr;
    // One window per message: the add-in keys its Inspectors by entry id.
    for (int i = 1; i <= m_inspectors.Count(); ++i) {
        auto* open = static_cast<MessageWindow*>(m_inspectors.Item(i));
        if (open && open->CurrentItem() && open->CurrentItem()->EntryID() == item->EntryID()) {
            open->Raise();
            return open;
        }
    }
    auto& owned = m_inspectorObjects.emplace_back(std::make_unique<MessageWindow>(std::move(item)));
    MessageWindow* window = owned.get();
    connect(window, &outlook::Inspector::Closed, this, [this, window] { m_inspectors.Remove(window); });
    window->Show();
    m_inspectors.Add(window);
    return window;
}

void DesktopApplication::RefreshWindows()
{
    for (int i = 1; i <= m_explorers.Count(); ++i)
        if (auto* window = static_cast<ExplorerWindow*>(m_explorers.Item(i))) window->Refresh();
}

void DesktopApplication::Activated(ExplorerWindow* window)
{
    if (window->IsClosed()) return;
    std::erase(m_activation, window);
    m_activation.push_back(window);
}

}  // namespace mv::host::desktop
