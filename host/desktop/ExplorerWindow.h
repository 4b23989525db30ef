#pragma once
// A folder window: the folder tree of every store on the left (with unread
// counts), the open folder's messages on the right, the item count in the
// status bar, a menu bar (File, View, Tools, Help) and the command bars the
// add-ins fill, shown by a CommandBarRenderer.
//
// As an Explorer it raises Activate and Deactivate with the window's focus,
// BeforeFolderSwitch before another folder opens (a handler may cancel),
// SelectionChange when the selected messages change (a refresh that keeps
// the same messages selected raises none) and Closed once, when the window
// closes by the user or by Close().
//
// The list follows the store: new mail (the store's arrival signal), a
// click on a command bar (it may have run rules), the window's activation
// and a periodic check of the open folder's counts read it again, keeping
// the selection.

#include "platform/office/CommandBars.h"
#include "platform/outlook/Windows.h"

#include <QByteArray>
#include <QPointer>
#include <QTimer>

#include <memory>

class QLabel;
class QMainWindow;
class QModelIndex;
class QSortFilterProxyModel;
class QTreeView;

namespace mv::mapi {
class MessageStore;
}

namespace mv::host::desktop {

class CommandBarRenderer;
class DesktopApplication;
class FolderTreeModel;
class MessageListModel;

class ExplorerWindow final : public outlook::Explorer {
    Q_OBJECT
public:
    // `app` and `clipboard` must outlive the window.
    ExplorerWindow(DesktopApplication& app, os::Clipboard* clipboard, QObject* parent = nullptr);
    ~ExplorerWindow() override;

    office::CommandBars* CommandBars() override { return &m_bars; }
    std::vector<std::unique_ptr<outlook::Item>> Selection() override;
    int SelectionCount() override;
    std::unique_ptr<outlook::Folder> CurrentFolder() override;
    void Close() override;

    void Show();
    bool IsClosed() const { return m_closed; }
    // Opens the folder of that path ("Inbox", "Archive/Projects") in the
    // first store that has it; false when there is none or the switch was
    // cancelled.
    bool OpenFolder(const QString& path);
    // Reads the open folder's messages and every folder's count again.
    void Refresh();
    // Refreshes when the open folder's counts differ from the list's.
    void RefreshIfChanged();
    // Opens the message under the cursor of the list in a message window.
    void OpenCurrentMessage();

    QMainWindow* Window() const { return m_window.get(); }
    QTreeView* FolderView() const { return m_folderView; }
    QTreeView* MessageView() const { return m_messageView; }
    FolderTreeModel& Folders() const { return *m_folders; }
    MessageListModel& Messages() const { return *m_messages; }
    CommandBarRenderer& Renderer() const { return *m_renderer; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void BuildViews();
    void BuildMenus();
    void OnFolderChosen(const QModelIndex& current, const QModelIndex& previous);
    void LoadList(mapi::MessageStore* store, const QByteArray& folderId);
    void ReloadKeepingSelection();
    void ReloadTree();
    QList<QByteArray> SelectedIds() const;
    void Select(const QList<QByteArray>& ids, const QByteArray& currentId);
    void UpdateStatus();
    void QueueRefresh();
    void MarkClosed();

    DesktopApplication& m_app;
    office::CommandBars m_bars;
    std::unique_ptr<QMainWindow> m_window;
    FolderTreeModel* m_folders = nullptr;
    MessageListModel* m_messages = nullptr;
    QSortFilterProxyModel* m_sorted = nullptr;
    QTreeView* m_folderView = nullptr;
    QTreeView* m_messageView = nullptr;
    QLabel* m_count = nullptr;
    std::unique_ptr<CommandBarRenderer> m_renderer;
    QTimer m_changeCheck;
    bool m_closed = false;
    bool m_quiet = false;  // reloading or reverting: the view's signals are ours
    bool m_refreshQueued = false;
};

}  // namespace mv::host::desktop
