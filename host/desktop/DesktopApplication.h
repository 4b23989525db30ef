#pragma once
// The host's Application with windows: every Explorer is a folder window
// (ExplorerWindow), every Inspector a message window (MessageWindow). The
// store events (NewMail, ItemSend) come from the same listener the headless
// host uses, so both hosts raise them alike.
//
// Windows stay allocated until the application goes, closed or not, so a
// pointer an add-in kept never dangles. The collections list the open ones.
// The active Explorer is the one most recently activated (or opened) that
// is still open.

#include "host/core/HeadlessApplication.h"
#include "host/core/HeadlessWindows.h"

#include "platform/outlook/Application.h"

#include <QWidget>

#include <functional>
#include <memory>
#include <vector>

namespace mv::host::desktop {

class ExplorerWindow;
class MessageWindow;

// What the host's own dialogs hook into the windows; another part of the
// host provides them. Unset hooks leave their menu entries disabled.
struct DesktopHooks {
    std::function<void(QWidget* parent)> showOptions;  // Tools > Options...
    std::function<void(QWidget* parent)> showAddins;   // Tools > COM Add-ins...
};

class DesktopApplication final : public outlook::Application {
    Q_OBJECT
public:
    // `stores` and `clipboard` must outlive the application.
    DesktopApplication(StoreSet& stores, os::Clipboard& clipboard, QObject* parent = nullptr);
    ~DesktopApplication() override;

    outlook::NameSpace* GetNamespace(const QString& type) override { return m_core.GetNamespace(type); }
    outlook::Explorers* GetExplorers() override { return &m_explorers; }
    outlook::Inspectors* GetInspectors() override { return &m_inspectors; }
    outlook::Explorer* ActiveExplorer() override;
    QString Version() const override { return QStringLiteral("11.0"); }

    // Starts listening to the stores and opens the first folder window
    // (before add-ins connect, so they find an active Explorer).
    void Open();
    void Start();  // raises Startup, once
    // Raises Quit (once), stops listening, then closes the Inspectors and
    // the Explorers, last opened first.
    void Stop();

    // A new folder window, shown and active (raises NewExplorer).
    ExplorerWindow* OpenExplorer();
    // A message window for `item` (raises NewInspector); when one shows
    // that message already, it is raised instead and `item` dropped.
    MessageWindow* OpenInspector(std::unique_ptr<outlook::Item> item);
    // The host's Options dialog calls this as it opens, so add-ins add
    // their pages.
    void RaiseOptionsPagesAdd(outlook::PropertyPages* pages) { Q_EMIT OptionsPagesAdd(pages); }
    // Reads the folder lists and counts of every open folder window again.
    void RefreshWindows();

    DesktopHooks& Hooks() { return m_hooks; }
    // The first folder window (nullptr before Open).
    ExplorerWindow* FirstExplorer() const
    {
        return m_explorerObjects.empty() ? nullptr : m_explorerObjects.front().get();
    }
    outlook::StoreNameSpace& Session() { return m_core.Session(); }
    std::vector<mapi::MessageStore*> Stores() const { return m_stores.Stores(); }
    // How often a folder window asks its store whether the open folder
    // changed (moves by rule runs leave no other trace); 0 turns it off.
    void SetChangeCheckInterval(int milliseconds) { m_checkMs = milliseconds; }
    int ChangeCheckInterval() const { return m_checkMs; }

private:
    void Activated(ExplorerWindow* window);

    StoreSet& m_stores;
    os::Clipboard& m_clipboard;
    HeadlessApplication m_core;  // the store listener and the namespace
    HeadlessExplorers m_explorers;
    HeadlessInspectors m_inspectors;
    std::vector<std::unique_ptr<ExplorerWindow>> m_explorerObjects;
    std::vector<std::unique_ptr<MessageWindow>> m_inspectorObjects;
    std::vector<ExplorerWindow*> m_activation;  // open folder windows, most recently active last
    DesktopHooks m_hooks;
    int m_checkMs = 3000;
    bool m_started = false, m_stopped = false;
};

}  // namespace mv::host::desktop
