#include "ExplorerWindow.h"

#include "CommandBarRenderer.h"
#include "DesktopApplication.h"
#include "FolderTreeModel.h"
#include "MessageListModel.h"

#include "platform/mapi/MessageStore.h"
#include "platform/outlook/store/StoreFolder.h"
#include "platform/outlook/store/StoreItem.h"

#include <QApplication>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMainWindow>
#include <QMenuBar>
#include <QMessageBox>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QStatusBar>
#include <QTreeView>

#include <algorithm>

namespace mv::host::desktop {

ExplorerWindow::ExplorerWindow(DesktopApplication& app, os::Clipboard* clipboard, QObject* parent)
    : outlook::Explorer(parent), m_app(app), m_bars(clipboard), m_window(std::make_unique<QMainWindow>())
{
    m_window->setObjectName(QStringLiteral("frmExplorer"));
    m_window->setWindowTitle(QStringLiteral("Mailvane"));
    m_window->resize(1000, 640);
    m_window->installEventFilter(this);

    BuildViews();

    // A host's folder window always has these; add-ins look them up by name.
    m_bars.Add(QStringLiteral("Menu Bar"), office::msoBarTop, true, false)->SetVisible(true);
    m_bars.Add(QStringLiteral("Tools"), office::msoBarTop, true, false)->SetVisible(true);
    m_renderer = std::make_unique<CommandBarRenderer>(m_bars, *m_window);
    BuildMenus();
    connect(m_renderer.get(), &CommandBarRenderer::Executed, this, [this] {
        // The click may have run rules: every window shows the result.
        QMetaObject::invokeMethod(&m_app, &DesktopApplication::RefreshWindows, Qt::QueuedConnection);
    });

    m_folders->Reload();
    m_folderView->expandAll();
    connect(m_folderView->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &ExplorerWindow::OnFolderChosen);
    connect(m_messageView->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (!m_quiet) Q_EMIT SelectionChange();
    });
    connect(m_messageView, &QTreeView::doubleClicked, this, [this] { OpenCurrentMessage(); });

    for (mapi::MessageStore* store : m_app.Stores())
        connect(store, &mapi::MessageStore::MessagesArrived, this, &ExplorerWindow::QueueRefresh);
    connect(&m_changeCheck, &QTimer::timeout, this, &ExplorerWindow::RefreshIfChanged);

    // Open the first store's Inbox, as a mail program starts.
    if (!OpenFolder(QStringLiteral("Inbox")) && m_folders->rowCount() > 0 &&
        m_folders->item(0)->rowCount() > 0)
        m_folderView->setCurrentIndex(m_folders->item(0)->child(0)->index());
    UpdateStatus();
}

ExplorerWindow::~ExplorerWindow()
{
    // The renderer watches the window's toolbars: it goes first.
    m_renderer.reset();
    if (m_window) m_window->removeEventFilter(this);
}

void ExplorerWindow::BuildViews()
{
    m_folders = new FolderTreeModel([this] { return m_app.Stores(); }, this);
    m_messages = new MessageListModel(this);
    m_sorted = new QSortFilterProxyModel(this);
    m_sorted->setSourceModel(m_messages);
    m_sorted->setSortRole(MessageListModel::SortRole);

    auto* splitter = new QSplitter(m_window.get());
    m_folderView = new QTreeView(splitter);
    m_folderView->setObjectName(QStringLiteral("trvFolders"));
    m_folderView->setHeaderHidden(true);
    m_folderView->setModel(m_folders);
    m_messageView = new QTreeView(splitter);
    m_messageView->setObjectName(QStringLiteral("lstMessages"));
    m_messageView->setRootIsDecorated(false);
    m_messageView->setUniformRowHeights(true);
    m_messageView->setAllColumnsShowFocus(true);
    m_messageView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_messageView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_messageView->setModel(m_sorted);
    m_messageView->setSortingEnabled(true);
    m_messageView->sortByColumn(MessageListModel::ColReceived, Qt::DescendingOrder);
    // The subject takes the room left; sender and date keep a readable width.
    QHeaderView* columns = m_messageView->header();
    columns->setStretchLastSection(false);
    columns->setSectionResizeMode(MessageListModel::ColFlag, QHeaderView::ResizeToContents);
    columns->setSectionResizeMode(MessageListModel::ColRead, QHeaderView::ResizeToContents);
    columns->setSectionResizeMode(MessageListModel::ColFrom, QHeaderView::Interactive);
    columns->resizeSection(MessageListModel::ColFrom, m_messageView->fontMetrics().averageCharWidth() * 26);
    columns->setSectionResizeMode(MessageListModel::ColSubject, QHeaderView::Stretch);
    columns->setSectionResizeMode(MessageListModel::ColReceived, QHeaderView::ResizeToContents);
    m_messageView->installEventFilter(this);
    splitter->setStretchFactor(1, 3);
    m_window->setCentralWidget(splitter);

    m_count = new QLabel(m_window.get());
    m_count->setObjectName(QStringLiteral("lblItemCount"));
    m_window->statusBar()->addPermanentWidget(m_count);
}

void ExplorerWindow::BuildMenus()
{
    QMenuBar* bar = m_window->menuBar();
    QMenu* file = bar->addMenu(QStringLiteral("&File"));
    file->setObjectName(QStringLiteral("mnuFile"));
    QAction* newWindow =
        file->addAction(QStringLiteral("New &Window"), this, [this] { m_app.OpenExplorer(); });
    newWindow->setObjectName(QStringLiteral("mnuNewWindow"));
    newWindow->setShortcut(QKeySequence::New);
    QAction* close = file->addAction(QStringLiteral("&Close"), this, [this] { Close(); });
    close->setObjectName(QStringLiteral("mnuClose"));
    close->setShortcut(QKeySequence::Close);
    file->addSeparator();
    QAction* exit = file->addAction(QStringLiteral("E&xit"), this, [this] {
        m_app.Stop();
        QCoreApplication::quit();
    });
    exit->setObjectName(QStringLiteral("mnuExit"));
    exit->setShortcut(QKeySequence::Quit);

    QMenu* view = bar->addMenu(QStringLiteral("&View"));
    view->setObjectName(QStringLiteral("mnuView"));
    QAction* refresh = view->addAction(QStringLiteral("&Refresh"), this, [this] {
        ReloadTree();
        Refresh();
    });
    refresh->setObjectName(QStringLiteral("mnuRefresh"));
    refresh->setShortcut(QKeySequence::Refresh);

    QMenu* tools = bar->addMenu(QStringLiteral("&Tools"));
    tools->setObjectName(QStringLiteral("mnuTools"));
    QAction* options = tools->addAction(QStringLiteral("&Options..."), this, [this] {
        if (m_app.Hooks().showOptions) m_app.Hooks().showOptions(m_window.get());
    });
    options->setObjectName(QStringLiteral("mnuOptions"));
    QAction* addins = tools->addAction(QStringLiteral("COM &Add-ins..."), this, [this] {
        if (m_app.Hooks().showAddins) m_app.Hooks().showAddins(m_window.get());
    });
    addins->setObjectName(QStringLiteral("mnuAddins"));
    // Hooks are set after the first window opens: enable on opening the menu.
    connect(tools, &QMenu::aboutToShow, this, [this, options, addins] {
        options->setEnabled(bool(m_app.Hooks().showOptions));
        addins->setEnabled(bool(m_app.Hooks().showAddins));
    });
    m_renderer->BindMenu(QStringLiteral("Tools"), tools);

    QMenu* help = bar->addMenu(QStringLiteral("&Help"));
    help->setObjectName(QStringLiteral("mnuHelp"));
    QAction* about = help->addAction(QStringLiteral("&About"), this, [this] {
        QMessageBox::about(m_window.get(), QStringLiteral("About"),
                           QStringLiteral("Mailvane: message automation rules for your mail folders."));
    });
    about->setObjectName(QStringLiteral("mnuAbout"));
    // Popups an add-in puts on the menu bar come after Help.
    m_renderer->BindMenu(QStringLiteral("Menu Bar"), bar);
}

void ExplorerWindow::Show()
{
    m_window->show();
    m_renderer->Flush();
    if (m_app.ChangeCheckInterval() > 0) m_changeCheck.start(m_app.ChangeCheckInterval());
}

void ExplorerWindow::Close()
{
    if (m_closed) return;
    m_window->close();  // the close event marks the window closed
    MarkClosed();       // also when the window was never shown
}

void ExplorerWindow::MarkClosed()
{
    if (m_closed) return;
    m_closed = true;
    m_changeCheck.stop();
    Q_EMIT Closed();
}

bool ExplorerWindow::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_window.get()) {
        switch (event->type()) {
            case QEvent::Close:
                MarkClosed();
                break;
            case QEvent::WindowActivate:
                if (!m_closed) {
                    QueueRefresh();
                    Q_EMIT Activate();
                }
                break;
            case QEvent::WindowDeactivate:
                if (!m_closed) Q_EMIT Deactivate();
                break;
            default:
                break;
        }
    } else if (watched == m_messageView && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            OpenCurrentMessage();
            return true;
        }
    }
    return outlook::Explorer::eventFilter(watched, event);
}

bool ExplorerWindow::OpenFolder(const QString& path)
{
    const QModelIndex index = m_folders->IndexOfPath(path);
    if (!index.isValid()) return false;
    m_folderView->setCurrentIndex(index);
    return m_folderView->currentIndex() == index;
}

void ExplorerWindow::OnFolderChosen(const QModelIndex& current, const QModelIndex& previous)
{
    if (m_quiet) return;
    mapi::MessageStore* store = FolderTreeModel::StoreAt(current);
    const QByteArray folderId = current.data(FolderTreeModel::FolderIdRole).toByteArray();
    if (store && !folderId.isEmpty()) {
        auto info = store->Folder(folderId);
        if (info) {
            outlook::StoreFolder folder(*store, *info);
            bool cancel = false;
            Q_EMIT BeforeFolderSwitch(&folder, cancel);
            if (cancel) {
                m_quiet = true;
                m_folderView->setCurrentIndex(previous);
                m_quiet = false;
                return;
            }
        }
    }
    const bool hadSelection = SelectionCount() > 0;
    LoadList(store, folderId);
    if (hadSelection) Q_EMIT SelectionChange();
}

void ExplorerWindow::LoadList(mapi::MessageStore* store, const QByteArray& folderId)
{
    m_quiet = true;
    const Status loaded =
        folderId.isEmpty() ? m_messages->Load(nullptr, {}) : m_messages->Load(store, folderId);
    m_quiet = false;
    UpdateStatus();
    if (!loaded) m_window->statusBar()->showMessage(loaded.error().message);
}

QList<QByteArray> ExplorerWindow::SelectedIds() const
{
    QList<QByteArray> ids;
    QModelIndexList rows = m_messageView->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end(),
              [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
    for (const QModelIndex& row : rows) ids << row.data(MessageListModel::EntryIdRole).toByteArray();
    return ids;
}

void ExplorerWindow::Select(const QList<QByteArray>& ids, const QByteArray& currentId)
{
    QItemSelection selection;
    QModelIndex current;
    for (int r = 0; r < m_sorted->rowCount(); ++r) {
        const QModelIndex index = m_sorted->index(r, 0);
        const QByteArray id = index.data(MessageListModel::EntryIdRole).toByteArray();
        if (ids.contains(id)) selection.select(index, index);
        if (id == currentId) current = index;
    }
    QItemSelectionModel* model = m_messageView->selectionModel();
    if (current.isValid()) model->setCurrentIndex(current, QItemSelectionModel::NoUpdate);
    model->select(selection, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void ExplorerWindow::ReloadKeepingSelection()
{
    const QList<QByteArray> before = SelectedIds();
    const QByteArray currentId =
        m_messageView->currentIndex().data(MessageListModel::EntryIdRole).toByteArray();
    m_quiet = true;
    const Status loaded = m_messages->Load(m_messages->Store(), m_messages->FolderId());
    Select(before, currentId);
    m_quiet = false;
    UpdateStatus();
    if (!loaded) m_window->statusBar()->showMessage(loaded.error().message);
    // Messages that left the folder leave the selection too.
    if (SelectedIds() != before) Q_EMIT SelectionChange();
}

void ExplorerWindow::Refresh()
{
    m_refreshQueued = false;
    if (m_closed) return;
    if (m_messages->Store()) ReloadKeepingSelection();
    if (!m_folders->UpdateCounts()) ReloadTree();
}

void ExplorerWindow::ReloadTree()
{
    // The open folder stays open: no folder switch happens.
    m_quiet = true;
    m_folders->Reload();
    m_folderView->expandAll();
    const QModelIndex current = m_folders->IndexOf(m_messages->Store(), m_messages->FolderId());
    if (current.isValid()) m_folderView->setCurrentIndex(current);
    m_quiet = false;
}

void ExplorerWindow::RefreshIfChanged()
{
    mapi::MessageStore* store = m_messages->Store();
    if (!store || m_closed) return;
    auto info = store->Folder(m_messages->FolderId());
    if (!info) return;
    int total = info->total, unread = info->unread;
    if (total < 0 || unread < 0) {
        // The store could not tell cheaply: count with a query.
        outlook::StoreFolder folder(*store, *info);
        if (total < 0) total = folder.ItemCount();
        if (unread < 0) unread = folder.UnReadItemCount();
    }
    if (total != m_messages->rowCount() || unread != m_messages->UnreadCount()) Refresh();
}

void ExplorerWindow::QueueRefresh()
{
    if (m_refreshQueued) return;
    m_refreshQueued = true;
    QMetaObject::invokeMethod(this, &ExplorerWindow::Refresh, Qt::QueuedConnection);
}

void ExplorerWindow::UpdateStatus()
{
    const int total = m_messages->rowCount();
    const int unread = m_messages->UnreadCount();
    QString text = total == 1 ? QStringLiteral("1 item") : QStringLiteral("%1 items").arg(total);
    if (unread > 0) text += QStringLiteral(", %1 unread").arg(unread);
    m_count->setText(text);
}

std::vector<std::unique_ptr<outlook::Item>> ExplorerWindow::Selection()
{
    std::vector<std::unique_ptr<outlook::Item>> items;
    mapi::MessageStore* store = m_messages->Store();
    if (!store) return items;
    for (const QByteArray& id : SelectedIds()) {
        // A message moved away meanwhile is simply not part of the selection.
        if (auto item = outlook::StoreItem::Fetch(*store, id)) items.push_back(std::move(*item));
    }
    return items;
}

int ExplorerWindow::SelectionCount()
{
    return static_cast<int>(m_messageView->selectionModel()->selectedRows().size());
}

std::unique_ptr<outlook::Folder> ExplorerWindow::CurrentFolder()
{
    mapi::MessageStore* store = m_messages->Store();
    if (!store) return nullptr;
    auto info = store->Folder(m_messages->FolderId());
    if (!info) return nullptr;
    return std::make_unique<outlook::StoreFolder>(*store, *info);
}

void ExplorerWindow::OpenCurrentMessage()
{
    mapi::MessageStore* store = m_messages->Store();
    const QModelIndex current = m_messageView->currentIndex();
    if (!store || !current.isValid()) return;
    auto item = outlook::StoreItem::Fetch(*store, current.data(MessageListModel::EntryIdRole).toByteArray());
    if (!item) {
        m_window->statusBar()->showMessage(item.error().message);
        QueueRefresh();  // most likely moved away: the list should say so
        return;
    }
    m_app.OpenInspector(std::move(*item));
}

}  // namespace mv::host::desktop
