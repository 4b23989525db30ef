#pragma once
// Shows a window's command bars (the office model) as widgets: each toolbar
// as a QToolBar named after its bar, each menu bar as a QMenu (or inside a
// menu the window already has, see BindMenu). Clicks come back to the model
// as Execute(). Controls added, changed or deleted later are shown at the
// next turn of the event loop, so a click handler may rebuild its own bar.
//
// Toolbar places, both ways. Position is the dock (msoBarTop, msoBarLeft,
// ...). Left and Top are the toolbar's corner relative to the window's
// central area, in pixels: a bar docked on the left has a negative Left, one
// docked on top a negative Top. So the three numbers an add-in saves and
// sets again (Top, Left, RowIndex) are enough to put a bar back in the dock
// it was in: when code changes Left/Top but not Position, the bar goes to
// the dock that point lies in. RowIndex is the bar's row within its dock.
// When the user moves a toolbar its bar's numbers follow.
//
// Neither the bars nor the window are owned; both must outlive the renderer.

#include <QHash>
#include <QObject>
#include <QPointer>

#include <vector>

class QAction;
class QMainWindow;
class QMenu;
class QToolBar;
class QWidget;

namespace mv::office {
class CommandBar;
class CommandBarControl;
class CommandBarControls;
class CommandBars;
}  // namespace mv::office

namespace mv::host::desktop {

class CommandBarRenderer final : public QObject {
    Q_OBJECT
public:
    CommandBarRenderer(office::CommandBars& bars, QMainWindow& window, QObject* parent = nullptr);
    ~CommandBarRenderer() override;

    // The menu bar named `barName` is shown inside `menu` (a QMenu, after a
    // separator, below the entries the window put there itself; or the
    // window's QMenuBar, whose menus its popups then join).
    void BindMenu(const QString& barName, QWidget* menu);

    QToolBar* ToolBar(const QString& barName) const;
    QMenu* Menu(const QString& barName) const;

    // Shows pending changes now instead of at the next event-loop turn.
    void Flush();
    // Copies every toolbar's place, as the window shows it, into its bar.
    void ReadPlaces();

Q_SIGNALS:
    // A control shown here was clicked and its handler has returned.
    void Executed();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    struct Place {
        int position = 1, left = 0, top = 0, row = 0;
        bool operator==(const Place&) const = default;
    };
    struct Shown {
        QPointer<office::CommandBar> bar;
        QPointer<QToolBar> toolbar;
        QPointer<QWidget> menu;              // a QMenu, or a bound QMenuBar
        bool bound = false;                  // a menu of the window's own
        std::vector<QPointer<QAction>> own;  // what was added into a bound menu
        std::vector<QMetaObject::Connection> controlLinks;
        Place last;  // the place last applied or read
    };

    QAction* ActionFor(office::CommandBarControl* control, QObject* parent);
    void OnBarAdded(office::CommandBar* bar);
    void OnBarRemoved(const QString& name);
    void Schedule();
    void Render(Shown& shown);
    void FillToolBar(Shown& shown);
    void FillMenu(Shown& shown, QWidget* menu, office::CommandBarControls* controls, bool topLevel);
    void Watch(Shown& shown, office::CommandBarControls* controls);
    void ApplyPlace(Shown& shown);
    void ReadPlace(Shown& shown);
    Place PlaceOf(QToolBar* toolbar) const;
    static QString Key(const QString& name) { return name.toLower(); }

    office::CommandBars& m_bars;
    QMainWindow& m_window;
    QHash<QString, Shown> m_shown;
    QHash<QString, QPointer<QWidget>> m_boundMenus;
    bool m_pending = false;
    bool m_readPending = false;
    bool m_busy = false;  // writing to the model or the widgets: ignore the echo
};

}  // namespace mv::host::desktop
