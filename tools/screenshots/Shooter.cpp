#include "Shooter.h"

#include "host/desktop/DesktopApplication.h"
#include "host/desktop/ExplorerWindow.h"
#include "host/desktop/InspectorWindow.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QImage>
#include <QKeyEvent>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPixmap>
#include <QPointer>
#include <QScreen>
#include <QTabWidget>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QTreeView>
#include <QTreeWidget>

#include <cstdio>
#include <memory>

namespace mv::tools {

using host::desktop::ExplorerWindow;
using host::desktop::InspectorWindow;

namespace {

constexpr int kSettleMs = 500;         // layouts, lazy reads and first paints
constexpr int kOpenTimeoutMs = 20000;  // a dialog that takes longer has failed

void Print(const QString& line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

QAction* SubmenuNamed(QMenu& menu, const QString& caption)
{
    for (QAction* action : menu.actions()) {
        if (action->menu() && action->text().remove(QLatin1Char('&')) == caption) return action;
    }
    return nullptr;
}

}  // namespace

Shooter::Shooter(host::desktop::DesktopApplication& app, QString outDir, QObject* parent)
    : QObject(parent), m_app(app), m_outDir(std::move(outDir))
{
}

int Shooter::Run()
{
    QDir().mkpath(m_outDir);
    auto* boxes = new QTimer(this);
    connect(boxes, &QTimer::timeout, this, &Shooter::DismissStrayBoxes);
    boxes->start(250);

    ExplorerWindow* explorer = m_app.FirstExplorer();
    if (!explorer) {
        Fail(QStringLiteral("no folder window"));
        return m_failures;
    }
    // A run started by the change check would reorder the list mid-walk.
    m_app.SetChangeCheckInterval(0);
    Explorer(*explorer);
    Inspector(*explorer);
    Options(*explorer);
    RulesManager(*explorer);
    RuleUpdate(*explorer);
    boxes->stop();
    return m_failures;
}

void Shooter::Explorer(ExplorerWindow& explorer)
{
    QMainWindow& window = *explorer.Window();
    window.move(0, 0);
    window.resize(1000, 640);
    window.raise();
    window.activateWindow();
    if (!explorer.OpenFolder(QStringLiteral("Inbox"))) Fail(QStringLiteral("no Inbox to open"));
    Pause(kSettleMs);
    QTreeView& list = *explorer.MessageView();
    if (list.model() && list.model()->rowCount() > 2) list.setCurrentIndex(list.model()->index(2, 0));
    Pause(kSettleMs);

    // The Tools menu with Mailvane's popup open: menus are windows of their
    // own, so the picture is taken from the screen.
    QMenu* tools = window.findChild<QMenu*>(QStringLiteral("mnuTools"));
    if (!tools) {
        Fail(QStringLiteral("no Tools menu"));
        return;
    }
    QMenuBar& bar = *window.menuBar();
    tools->popup(bar.mapToGlobal(bar.actionGeometry(tools->menuAction()).bottomLeft()));
    Pause(kSettleMs);
    QAction* mailvane = SubmenuNamed(*tools, QStringLiteral("Mailvane"));
    if (!mailvane) {
        Fail(QStringLiteral("no Mailvane popup in the Tools menu"));
        tools->hide();
        return;
    }
    tools->setActiveAction(mailvane);
    QKeyEvent right(QEvent::KeyPress, Qt::Key_Right, Qt::NoModifier);
    QApplication::sendEvent(tools, &right);
    Pause(kSettleMs);
    QRect area = window.frameGeometry().united(tools->geometry()).united(mailvane->menu()->geometry());
    SaveScreen(area, window, QStringLiteral("explorer"));
    mailvane->menu()->hide();
    tools->hide();
    Pause(kSettleMs);
}

void Shooter::Inspector(ExplorerWindow& explorer)
{
    explorer.OpenCurrentMessage();
    Pause(kSettleMs);
    auto* inspector = qobject_cast<InspectorWindow*>(
        m_app.GetInspectors()->Count() > 0 ? m_app.GetInspectors()->Item(m_app.GetInspectors()->Count()) : nullptr);
    if (!inspector) {
        Fail(QStringLiteral("no message window opened"));
        return;
    }
    QWidget& window = *inspector->Window();
    window.move(40, 40);
    Pause(kSettleMs);
    Save(window, QStringLiteral("inspector"));
    inspector->Close();
    Pause(kSettleMs);
}

void Shooter::Options(ExplorerWindow& explorer)
{
    QAction* options = explorer.Window()->findChild<QAction*>(QStringLiteral("mnuOptions"));
    if (!options) {
        Fail(QStringLiteral("no Tools > Options"));
        return;
    }
    Expect(QStringLiteral("frmOptions"), [this](QWidget& dialog) {
        if (auto* tabs = dialog.findChild<QTabWidget*>(QStringLiteral("tabPages"))) {
            for (int i = 0; i < tabs->count(); ++i) {
                if (tabs->tabText(i).remove(QLatin1Char('&')) == QStringLiteral("Mailvane")) tabs->setCurrentIndex(i);
            }
        }
        Pause(kSettleMs);
        Save(dialog, QStringLiteral("options"));
    });
    options->setEnabled(true);
    options->trigger();
}

void Shooter::RulesManager(ExplorerWindow& explorer)
{
    QToolBar* toolbar = explorer.Window()->findChild<QToolBar*>(QStringLiteral("Mailvane"));
    if (!toolbar) {
        Fail(QStringLiteral("no Mailvane toolbar"));
        return;
    }
    Expect(QStringLiteral("frmRulesMain"), [this](QWidget& manager) {
        if (auto* list = manager.findChild<QTreeWidget*>(QStringLiteral("ListView1")); list && list->topLevelItemCount())
            list->setCurrentItem(list->topLevelItem(0));
        Pause(kSettleMs);
        Save(manager, QStringLiteral("rules-manager"));
        RuleEditor(manager);
        ClickAndShoot(manager, "btnPreview", QStringLiteral("frmRulePreview"), QStringLiteral("rule-preview"));
        ClickAndShoot(manager, "btnSettings", QStringLiteral("frmRuleAddProps"), QStringLiteral("smart-add-settings"));
        ClickAndShoot(manager, "btnAbout", QStringLiteral("frmAbout"), QStringLiteral("about"));
    });
    Click(*toolbar, "Mailvane");
}

void Shooter::RuleEditor(QWidget& rulesManager)
{
    Expect(QStringLiteral("frmRuleProps"), [this](QWidget& editor) {
        Save(editor, QStringLiteral("rule-editor"));
        ClickAndShoot(editor, "btnSrcFolderBrowse", QStringLiteral("FolderPickerDialog"),
                      QStringLiteral("folder-picker"));
        ClickAndShoot(editor, "btnFrom", QStringLiteral("AddressBookDialog"), QStringLiteral("address-book"));
    });
    Click(rulesManager, "btnModify");
}

void Shooter::RuleUpdate(ExplorerWindow& explorer)
{
    QToolBar* toolbar = explorer.Window()->findChild<QToolBar*>(QStringLiteral("Mailvane"));
    if (!toolbar) return;
    Expect(QStringLiteral("frmRuleUpdate"), [this](QWidget& dialog) { Save(dialog, QStringLiteral("rule-update")); });
    Click(*toolbar, "Smart Rule Update");
}

void Shooter::Expect(const QString& name, std::function<void(QWidget& dialog)> then)
{
    auto* watch = new QTimer(this);
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    QPointer<QWidget> before = QApplication::activeModalWidget();
    connect(watch, &QTimer::timeout, this, [this, watch, clock, before, name, then] {
        QPointer<QWidget> modal = QApplication::activeModalWidget();
        if (modal && modal != before && modal->isVisible() && modal->objectName() == name) {
            watch->stop();
            watch->deleteLater();
            Pause(kSettleMs);
            if (modal) then(*modal);
            if (modal && modal->isVisible()) {
                if (auto* dialog = qobject_cast<QDialog*>(modal.data()))
                    dialog->reject();
                else
                    modal->close();
            }
            return;
        }
        if (clock->elapsed() > kOpenTimeoutMs) {
            watch->stop();
            watch->deleteLater();
            Fail(name + QStringLiteral(" did not open"));
        }
    });
    watch->start(50);
}

void Shooter::ClickAndShoot(QWidget& owner, const char* buttonName, const QString& dialogName, const QString& picture)
{
    Expect(dialogName, [this, picture](QWidget& dialog) { Save(dialog, picture); });
    Click(owner, buttonName);
}

void Shooter::Click(QWidget& owner, const char* buttonName)
{
    auto* button = owner.findChild<QAbstractButton*>(QString::fromUtf8(buttonName));
    if (!button || !button->isEnabled()) {
        Fail(owner.objectName() + QStringLiteral(": no enabled button ") + QString::fromUtf8(buttonName));
        return;
    }
    button->click();
}

bool Shooter::Save(QWidget& window, const QString& picture)
{
    Describe(window, picture);
    const QString path = m_outDir + QLatin1Char('/') + picture + QStringLiteral(".png");
    if (!window.grab().toImage().save(path)) {
        Fail(QStringLiteral("cannot write ") + path);
        return false;
    }
    Print(QStringLiteral("saved %1").arg(path));
    return true;
}

bool Shooter::SaveScreen(const QRect& area, QWidget& window, const QString& picture)
{
    Describe(window, picture);
    QScreen* screen = window.screen();
    const QString path = m_outDir + QLatin1Char('/') + picture + QStringLiteral(".png");
    if (!screen) {
        Fail(QStringLiteral("no screen for ") + picture);
        return false;
    }
    const QRect clipped = area.intersected(screen->geometry());
    const QPixmap shot = screen->grabWindow(0, clipped.x(), clipped.y(), clipped.width(), clipped.height());
    if (shot.isNull() || !shot.toImage().save(path)) {
        Fail(QStringLiteral("cannot write ") + path);
        return false;
    }
    Print(QStringLiteral("saved %1").arg(path));
    return true;
}

void Shooter::Describe(QWidget& window, const QString& picture)
{
    Print(QStringLiteral("%1: \"%2\" %3x%4 (minimum %5x%6)")
              .arg(picture, window.windowTitle())
              .arg(window.width())
              .arg(window.height())
              .arg(window.minimumSizeHint().width())
              .arg(window.minimumSizeHint().height()));
    QStringList order;
    QWidget* w = &window;
    for (int guard = 0; guard < 500; ++guard) {
        w = w->nextInFocusChain();
        if (!w || w == &window) break;
        if (w->window() == &window && w->isVisible() && w->isEnabled() && (w->focusPolicy() & Qt::TabFocus))
            order << (w->objectName().isEmpty() ? QString::fromLatin1(w->metaObject()->className()) : w->objectName());
    }
    Print(QStringLiteral("  tab order: ") + order.join(QStringLiteral(" > ")));
}

void Shooter::Pause(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

void Shooter::Fail(const QString& what)
{
    ++m_failures;
    std::fprintf(stderr, "mv-screenshots: %s\n", qPrintable(what));
}

void Shooter::DismissStrayBoxes()
{
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (!box || !box->isVisible()) return;
    Fail(QStringLiteral("unexpected message: ") + box->text());
    if (QAbstractButton* escape = box->escapeButton())
        escape->click();
    else
        box->reject();
}

}  // namespace mv::tools
