#include "CommandBarRenderer.h"

#include "platform/office/CommandBars.h"

#include <QAction>
#include <QEvent>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QPixmap>
#include <QToolBar>
#include <QToolButton>

#include <algorithm>
#include <set>

namespace mv::host::desktop {

namespace {

Qt::ToolBarArea AreaOf(int position)
{
    switch (position) {
        case office::msoBarLeft:
            return Qt::LeftToolBarArea;
        case office::msoBarRight:
            return Qt::RightToolBarArea;
        case office::msoBarBottom:
            return Qt::BottomToolBarArea;
        default:
            return Qt::TopToolBarArea;  // floating and the rest start at the top
    }
}

int PositionOf(Qt::ToolBarArea area)
{
    switch (area) {
        case Qt::LeftToolBarArea:
            return office::msoBarLeft;
        case Qt::RightToolBarArea:
            return office::msoBarRight;
        case Qt::BottomToolBarArea:
            return office::msoBarBottom;
        default:
            return office::msoBarTop;
    }
}

Qt::ToolButtonStyle ButtonStyle(const office::CommandBarControl& c)
{
    switch (c.Style()) {
        case office::msoButtonIcon:
            return Qt::ToolButtonIconOnly;
        case office::msoButtonCaption:
            return Qt::ToolButtonTextOnly;
        case office::msoButtonIconAndCaption:
            return c.Face().isNull() ? Qt::ToolButtonTextOnly : Qt::ToolButtonTextBesideIcon;
        default:
            return c.Face().isNull() ? Qt::ToolButtonTextOnly : Qt::ToolButtonIconOnly;
    }
}

}  // namespace

// A QAction that forwards its trigger to the control, if it still exists.
QAction* CommandBarRenderer::ActionFor(office::CommandBarControl* control, QObject* parent)
{
    auto* action = new QAction(control->Caption(), parent);
    action->setObjectName(control->Caption());
    if (!control->Face().isNull()) action->setIcon(QIcon(QPixmap::fromImage(control->Face())));
    action->setToolTip(control->TooltipText().isEmpty() ? control->Caption() : control->TooltipText());
    action->setEnabled(control->Enabled());
    QPointer<office::CommandBarControl> target(control);
    QObject::connect(action, &QAction::triggered, this, [this, target] {
        if (!target) return;
        target->Execute();
        Q_EMIT Executed();
    });
    return action;
}

CommandBarRenderer::CommandBarRenderer(office::CommandBars& bars, QMainWindow& window, QObject* parent)
    : QObject(parent), m_bars(bars), m_window(window)
{
    connect(&m_bars, &office::CommandBars::BarAdded, this, &CommandBarRenderer::OnBarAdded);
    connect(&m_bars, &office::CommandBars::BarRemoved, this, &CommandBarRenderer::OnBarRemoved);
    for (office::CommandBar* bar : m_bars.Bars()) OnBarAdded(bar);
}

CommandBarRenderer::~CommandBarRenderer()
{
    for (Shown& shown : m_shown)
        for (const auto& link : shown.controlLinks) disconnect(link);
}

void CommandBarRenderer::BindMenu(const QString& barName, QWidget* menu)
{
    m_boundMenus.insert(Key(barName), menu);
    auto it = m_shown.find(Key(barName));
    if (it == m_shown.end()) return;
    // Already shown on its own: move it into the window's menu.
    if (auto* alone = qobject_cast<QMenu*>(it->menu.data()); alone && !it->bound) {
        m_window.menuBar()->removeAction(alone->menuAction());
        alone->deleteLater();
    }
    it->menu = menu;
    it->bound = true;
    Render(*it);
}

QToolBar* CommandBarRenderer::ToolBar(const QString& barName) const
{
    auto it = m_shown.constFind(Key(barName));
    return it == m_shown.constEnd() ? nullptr : it->toolbar.data();
}

QMenu* CommandBarRenderer::Menu(const QString& barName) const
{
    auto it = m_shown.constFind(Key(barName));
    return it == m_shown.constEnd() ? nullptr : qobject_cast<QMenu*>(it->menu.data());
}

void CommandBarRenderer::OnBarAdded(office::CommandBar* bar)
{
    if (!bar) return;
    Shown& shown = m_shown[Key(bar->Name())];
    shown.bar = bar;
    shown.last = Place{bar->Position(), bar->Left(), bar->Top(), bar->RowIndex()};
    if (bar->IsMenuBar()) {
        if (QWidget* own = m_boundMenus.value(Key(bar->Name()))) {
            shown.menu = own;
            shown.bound = true;
        } else {
            QMenu* menu = m_window.menuBar()->addMenu(bar->Name());
            menu->setObjectName(bar->Name());
            shown.menu = menu;
        }
    } else {
        auto* toolbar = new QToolBar(bar->Name(), &m_window);
        toolbar->setObjectName(bar->Name());
        toolbar->installEventFilter(this);
        m_window.addToolBar(AreaOf(bar->Position()), toolbar);
        toolbar->setVisible(bar->Visible());
        shown.toolbar = toolbar;
    }
    connect(bar, &office::CommandBar::Changed, this, [this] {
        if (!m_busy) Schedule();
    });
    connect(bar->Controls(), &office::CommandBarControls::Changed, this, &CommandBarRenderer::Schedule);
    Render(shown);
}

void CommandBarRenderer::OnBarRemoved(const QString& name)
{
    auto it = m_shown.find(Key(name));
    if (it == m_shown.end()) return;
    for (const auto& link : it->controlLinks) disconnect(link);
    if (it->toolbar) it->toolbar->deleteLater();
    if (it->bound) {
        for (const QPointer<QAction>& a : it->own)
            if (a) a->deleteLater();
    } else if (auto* alone = qobject_cast<QMenu*>(it->menu.data())) {
        m_window.menuBar()->removeAction(alone->menuAction());
        alone->deleteLater();
    }
    m_shown.erase(it);
}

void CommandBarRenderer::Schedule()
{
    if (m_pending) return;
    m_pending = true;
    // Later, not now: the change may come from a click on the very action
    // a rebuild would delete.
    QMetaObject::invokeMethod(this, &CommandBarRenderer::Flush, Qt::QueuedConnection);
}

void CommandBarRenderer::Flush()
{
    m_pending = false;
    for (Shown& shown : m_shown) Render(shown);
}

void CommandBarRenderer::Render(Shown& shown)
{
    if (!shown.bar) return;
    for (const auto& link : shown.controlLinks) disconnect(link);
    shown.controlLinks.clear();
    Watch(shown, shown.bar->Controls());
    if (shown.toolbar) {
        FillToolBar(shown);
        ApplyPlace(shown);
    } else if (shown.menu) {
        FillMenu(shown, shown.menu, shown.bar->Controls(), true);
    }
}

void CommandBarRenderer::Watch(Shown& shown, office::CommandBarControls* controls)
{
    if (!controls) return;
    for (const QPointer<office::CommandBarControl>& c : controls->items()) {
        if (!c) continue;
        shown.controlLinks.push_back(
            connect(c, &office::CommandBarControl::Changed, this, &CommandBarRenderer::Schedule));
        if (c->Controls()) {
            shown.controlLinks.push_back(connect(c->Controls(), &office::CommandBarControls::Changed, this,
                                                 &CommandBarRenderer::Schedule));
            Watch(shown, c->Controls());
        }
    }
}

void CommandBarRenderer::FillToolBar(Shown& shown)
{
    QToolBar* toolbar = shown.toolbar;
    for (QAction* a : toolbar->actions()) {
        toolbar->removeAction(a);
        a->deleteLater();
    }
    bool first = true;
    for (const QPointer<office::CommandBarControl>& c : shown.bar->Controls()->items()) {
        if (!c || !c->Visible()) continue;
        if (c->BeginGroup() && !first) toolbar->addSeparator();
        first = false;
        auto* button = new QToolButton(toolbar);
        button->setObjectName(c->Caption());
        button->setToolButtonStyle(ButtonStyle(*c));
        QAction* action = ActionFor(c, button);
        if (c->Controls()) {
            auto* menu = new QMenu(button);
            FillMenu(shown, menu, c->Controls(), false);
            action->setMenu(menu);
            button->setPopupMode(QToolButton::InstantPopup);
        }
        button->setDefaultAction(action);
        toolbar->addWidget(button);
    }
}

void CommandBarRenderer::FillMenu(Shown& shown, QWidget* menu, office::CommandBarControls* controls,
                                  bool topLevel)
{
    // A menu bar shows no separators; popups become its menus.
    const bool separators = !qobject_cast<QMenuBar*>(menu);
    if (topLevel && shown.bound) {
        for (const QPointer<QAction>& a : shown.own) {
            if (!a) continue;
            menu->removeAction(a);
            a->deleteLater();
        }
        shown.own.clear();
    } else {
        for (QAction* a : menu->actions()) {
            menu->removeAction(a);
            a->deleteLater();
        }
    }
    auto add = [&](QAction* a) {
        menu->addAction(a);
        if (topLevel && shown.bound) shown.own.emplace_back(a);
    };
    if (separators && topLevel && shown.bound && controls && controls->Count() > 0) {
        auto* separator = new QAction(menu);
        separator->setSeparator(true);
        add(separator);
    }
    if (!controls) return;
    bool first = true;
    for (const QPointer<office::CommandBarControl>& c : controls->items()) {
        if (!c || !c->Visible()) continue;
        if (separators && c->BeginGroup() && !first) {
            auto* separator = new QAction(menu);
            separator->setSeparator(true);
            add(separator);
        }
        first = false;
        QAction* action = ActionFor(c, menu);
        if (c->Controls()) {
            auto* sub = new QMenu(c->Caption(), menu);
            sub->setObjectName(c->Caption());
            FillMenu(shown, sub, c->Controls(), false);
            action->setMenu(sub);
        }
        add(action);
    }
}

void CommandBarRenderer::ApplyPlace(Shown& shown)
{
    QToolBar* toolbar = shown.toolbar;
    office::CommandBar* bar = shown.bar;
    const Place wanted{bar->Position(), bar->Left(), bar->Top(), bar->RowIndex()};
    m_busy = true;
    toolbar->setVisible(bar->Visible());
    if (!(wanted == shown.last)) {
        Qt::ToolBarArea area = m_window.toolBarArea(toolbar);
        if (wanted.position != shown.last.position) {
            area = AreaOf(wanted.position);
        } else if (wanted.left != shown.last.left || wanted.top != shown.last.top) {
            // Code set the corner only (an add-in restoring its place): the
            // dock is the one that point lies in.
            const QWidget* central = m_window.centralWidget();
            const int width = central ? central->width() : 0;
            const int height = central ? central->height() : 0;
            if (wanted.left < 0)
                area = Qt::LeftToolBarArea;
            else if (wanted.top < 0)
                area = Qt::TopToolBarArea;
            else if (width > 0 && wanted.left >= width)
                area = Qt::RightToolBarArea;
            else if (height > 0 && wanted.top >= height)
                area = Qt::BottomToolBarArea;
            bar->SetPosition(PositionOf(area));
        }
        if (m_window.toolBarArea(toolbar) != area) {
            m_window.addToolBar(area, toolbar);
            toolbar->setVisible(bar->Visible());
        }
        shown.last = Place{bar->Position(), bar->Left(), bar->Top(), bar->RowIndex()};
    }
    m_busy = false;
}

CommandBarRenderer::Place CommandBarRenderer::PlaceOf(QToolBar* toolbar) const
{
    Place place;
    const Qt::ToolBarArea area = m_window.toolBarArea(toolbar);
    place.position = toolbar->isFloating() ? office::msoBarFloating : PositionOf(area);
    const QPoint origin = m_window.centralWidget() ? m_window.centralWidget()->pos() : QPoint();
    const QPoint corner = toolbar->isFloating() ? m_window.mapFromGlobal(toolbar->pos()) : toolbar->pos();
    place.left = corner.x() - origin.x();
    place.top = corner.y() - origin.y();
    // The row: how many distinct lines of toolbars in this dock come before it.
    const bool horizontal = area == Qt::TopToolBarArea || area == Qt::BottomToolBarArea;
    std::set<int> lines;
    for (QToolBar* other : m_window.findChildren<QToolBar*>(Qt::FindDirectChildrenOnly)) {
        if (other->isHidden() || other->isFloating() || m_window.toolBarArea(other) != area) continue;
        lines.insert(horizontal ? other->y() : other->x());
    }
    const int mine = horizontal ? toolbar->y() : toolbar->x();
    place.row = static_cast<int>(std::distance(lines.begin(), lines.lower_bound(mine)));
    if (area == Qt::BottomToolBarArea || area == Qt::RightToolBarArea)
        place.row = static_cast<int>(lines.size()) - 1 - place.row;  // counted from the window's edge
    return place;
}

void CommandBarRenderer::ReadPlace(Shown& shown)
{
    if (m_busy || !shown.bar || !shown.toolbar || !m_window.isVisible() || shown.toolbar->isHidden()) return;
    const Place place = PlaceOf(shown.toolbar);
    m_busy = true;
    shown.bar->SetPosition(place.position);
    shown.bar->SetLeft(place.left);
    shown.bar->SetTop(place.top);
    shown.bar->SetRowIndex(place.row);
    shown.last = place;
    m_busy = false;
}

void CommandBarRenderer::ReadPlaces()
{
    for (Shown& shown : m_shown) ReadPlace(shown);
}

bool CommandBarRenderer::eventFilter(QObject* watched, QEvent* event)
{
    if ((event->type() == QEvent::Move || event->type() == QEvent::Show) && !m_readPending &&
        qobject_cast<QToolBar*>(watched)) {
        // After the layout pass: the central area may move after the bar.
        m_readPending = true;
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_readPending = false;
                ReadPlaces();
            },
            Qt::QueuedConnection);
    }
    return QObject::eventFilter(watched, event);
}

}  // namespace mv::host::desktop
