#include "Shooter.h"

#include "host/desktop/DesktopApplication.h"
#include "host/desktop/ExplorerWindow.h"
#include "host/desktop/MessageWindow.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QHash>
#include <QImage>
#include <QKeyEvent>
#include <QLineEdit>
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

#include <algorithm>
#include <cstdio>
#include <memory>

namespace mv::tools {

using host::desktop::ExplorerWindow;
using host::desktop::MessageWindow;

namespace {

constexpr int kSettleMs = 500;         // layouts, lazy reads and first paints
constexpr int kOpenTimeoutMs = 20000;  // a dialog that takes longer has failed

void Print(const QString& line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

// Selects the first message of the list from a person (no address in the
// From column) that is not a receipt or a bounce: it makes a better message
// window than an automatic reply.
void SelectReadableMessage(QTreeView& list)
{
    const QAbstractItemModel* model = list.model();
    if (!model || model->rowCount() == 0) return;
    const QStringList automatic = {QStringLiteral("Accepted:"), QStringLiteral("Read:"),
                                   QStringLiteral("Undelivered"), QStringLiteral("Fwd:")};
    int chosen = 0;
    for (int row = 0; row < model->rowCount(); ++row) {
        const QString from = model->index(row, 2).data().toString();
        const QString subject = model->index(row, 3).data().toString();
        const bool isAutomatic = std::any_of(automatic.begin(), automatic.end(), [&](const QString& prefix) {
            return subject.startsWith(prefix);
        });
        if (!from.contains(QLatin1Char('@')) && !from.contains(QStringLiteral("Delivery")) && !isAutomatic) {
            chosen = row;
            break;
        }
    }
    list.setCurrentIndex(model->index(chosen, 0));
    list.scrollTo(model->index(chosen, 0));
}

// Makes the item whose text in `column` is `text` current, opening its parents.
bool SelectText(QAbstractItemView& view, const QString& text, int column = 0)
{
    QAbstractItemModel* model = view.model();
    if (!model) return false;
    const QModelIndexList found = model->match(model->index(0, column), Qt::DisplayRole, text, 1,
                                               Qt::MatchStartsWith | Qt::MatchRecursive);
    if (found.isEmpty()) return false;
    view.setCurrentIndex(found.front());
    view.scrollTo(found.front());
    return true;
}

// A window picture is mostly a few flat colours and the shades of smoothed
// text: its 256 most used colours, without dithering, look the same at a
// third of the size.
QImage Compact(const QPixmap& shot)
{
    const QImage image = shot.toImage().convertToFormat(QImage::Format_RGB32);
    QHash<QRgb, qsizetype> uses;
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) ++uses[line[x]];
    }
    QList<std::pair<qsizetype, QRgb>> byUse;
    byUse.reserve(uses.size());
    for (auto it = uses.cbegin(); it != uses.cend(); ++it) byUse.append({it.value(), it.key()});
    std::sort(byUse.begin(), byUse.end(), [](const auto& a, const auto& b) {
        // Ties by colour, so the same picture is always the same file.
        return a.first != b.first ? a.first > b.first : a.second < b.second;
    });
    QList<QRgb> palette;
    for (qsizetype i = 0; i < byUse.size() && i < 256; ++i) palette.append(byUse[i].second);
    return image.convertToFormat(QImage::Format_Indexed8, palette, Qt::ThresholdDither | Qt::AvoidDither);
}

QAction* SubmenuNamed(QMenu& menu, const QString& caption)
{
    for (QAction* action : menu.actions()) {
        if (action->menu() && action->text().remove(QLatin1Char('&')) == caption) return action;
    }
    return nullptr;
}

}  // namespace

Shooter::Shooter(host::desktop::DesktopApplication& app, QString outDir, QString previewRule, QObject* parent)
    : QObject(parent), m_app(app), m_outDir(std::move(outDir)), m_previewRule(std::move(previewRule))
{
}

int Shooter::Run()
{
    QDir().mkpath(m_outDir);
    // A steady text cursor: a blinking one would change pictures from run to run.
    QApplication::setCursorFlashTime(0);
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
    RunSummary(*explorer);  // last: it moves mail
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
    SelectReadableMessage(*explorer.MessageView());
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
    auto* inspector = qobject_cast<MessageWindow*>(
        m_app.GetInspectors()->Count() > 0 ? m_app.GetInspectors()->Item(m_app.GetInspectors()->Count())
                                           : nullptr);
    if (!inspector) {
        Fail(QStringLiteral("no message window opened"));
        return;
    }
    QWidget& window = *inspector->Window();
    window.move(40, 40);
    Pause(kSettleMs);
    Save(window, QStringLiteral("message-window"));
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
                if (tabs->tabText(i).remove(QLatin1Char('&')) == QStringLiteral("Mailvane"))
                    tabs->setCurrentIndex(i);
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
        auto* list = manager.findChild<QTreeWidget*>(QStringLiteral("ListView1"));
        if (list && list->topLevelItemCount()) list->setCurrentItem(list->topLevelItem(0));
        Pause(kSettleMs);
        Save(manager, QStringLiteral("rules-manager"));
        RuleEditor(manager);
        if (list && !m_previewRule.isEmpty() && !SelectText(*list, m_previewRule))
            Fail(QStringLiteral("no rule named ") + m_previewRule);
        ClickAndShoot(manager, "btnPreview", QStringLiteral("frmRulePreview"),
                      QStringLiteral("rule-preview"));
        ClickAndShoot(manager, "btnSettings", QStringLiteral("frmRuleAddProps"),
                      QStringLiteral("smart-add-settings"));
        ClickAndShoot(manager, "btnAbout", QStringLiteral("frmAbout"), QStringLiteral("about"));
    });
    Click(*toolbar, "Mailvane");
}

void Shooter::RunSummary(ExplorerWindow& explorer)
{
    QToolBar* toolbar = explorer.Window()->findChild<QToolBar*>(QStringLiteral("Mailvane"));
    if (!toolbar) {
        Fail(QStringLiteral("no Mailvane toolbar"));
        return;
    }
    Click(*toolbar, "Run Mailvane Rules");  // returns when the run has ended
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (window->objectName() != QLatin1String("frmRunSummary") || !window->isVisible()) continue;
        Pause(kSettleMs);
        Save(*window, QStringLiteral("run-summary"));
        window->close();
        return;
    }
    Fail(QStringLiteral("no run summary after a run that moved mail"));
}

void Shooter::RuleEditor(QWidget& rulesManager)
{
    Expect(QStringLiteral("frmRuleProps"), [this](QWidget& editor) {
        Save(editor, QStringLiteral("rule-editor"));
        const auto* from = editor.findChild<QLineEdit*>(QStringLiteral("txtFrom"));
        const QString address = from ? from->text() : QString();
        Expect(QStringLiteral("FolderPickerDialog"), [this](QWidget& picker) {
            if (auto* tree = picker.findChild<QTreeView*>(QStringLiteral("tvwFolders"))) {
                tree->expandAll();
                SelectText(*tree, QStringLiteral("Invoices"));
            }
            Pause(kSettleMs);
            Save(picker, QStringLiteral("folder-picker"));
        });
        Click(editor, "btnSrcFolderBrowse");
        Expect(QStringLiteral("AddressBookDialog"), [this, address](QWidget& book) {
            if (auto* contacts = book.findChild<QAbstractItemView*>(QStringLiteral("lstContacts")))
                SelectText(*contacts, address, 1);
            Pause(kSettleMs);
            Save(book, QStringLiteral("address-book"));
        });
        Click(editor, "btnFrom");
    });
    Click(rulesManager, "btnModify");
}

void Shooter::RuleUpdate(ExplorerWindow& explorer)
{
    QToolBar* toolbar = explorer.Window()->findChild<QToolBar*>(QStringLiteral("Mailvane"));
    if (!toolbar) return;
    Expect(QStringLiteral("frmRuleUpdate"),
           [this](QWidget& dialog) { Save(dialog, QStringLiteral("rule-update")); });
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

void Shooter::ClickAndShoot(QWidget& owner, const char* buttonName, const QString& dialogName,
                            const QString& picture)
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
    if (!Compact(window.grab()).save(path, "PNG", 0)) {
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
    if (shot.isNull() || !Compact(shot).save(path, "PNG", 0)) {
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
            order << (w->objectName().isEmpty() ? QString::fromLatin1(w->metaObject()->className())
                                                : w->objectName());
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
