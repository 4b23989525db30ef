#pragma once
// Command bars of a window: toolbars and menus as named bars of controls.
// One in-memory model serves every host: the headless host just keeps it,
// the desktop host renders each bar as a QToolBar or QMenu and forwards the
// user's clicks back as Click events. Positions (Top, Left, RowIndex,
// Position) are plain numbers the host interprets.
//
// Ownership: CommandBars owns its bars, a bar owns its controls, a popup
// owns its own controls. Pointers handed out stay valid until the object is
// deleted (Delete() or the owner's destruction); hold them in QPointer when
// they may outlive that.

#include "platform/os/Clipboard.h"

#include <QImage>
#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>
#include <vector>

namespace mv::office {

enum MsoControlType : int { msoControlButton = 1, msoControlPopup = 10 };
enum MsoBarPosition : int { msoBarLeft = 0, msoBarTop = 1, msoBarRight = 2, msoBarBottom = 3, msoBarFloating = 4,
                            msoBarPopup = 5, msoBarMenuBar = 6 };
enum MsoButtonStyle : int { msoButtonAutomatic = 0, msoButtonIcon = 1, msoButtonCaption = 2,
                            msoButtonIconAndCaption = 3 };

class CommandBarControls;

class CommandBarControl : public QObject {
    Q_OBJECT
public:
    CommandBarControl(int type, bool temporary, os::Clipboard* clipboard, QObject* parent);
    ~CommandBarControl() override;

    int Type() const { return m_type; }
    bool Temporary() const { return m_temporary; }

    QString Caption() const { return m_caption; }
    void SetCaption(const QString& v);
    QString Tag() const { return m_tag; }
    void SetTag(const QString& v) { m_tag = v; }
    QString TooltipText() const { return m_tooltip; }
    void SetTooltipText(const QString& v);
    int Style() const { return m_style; }
    void SetStyle(int v);
    bool Visible() const { return m_visible; }
    void SetVisible(bool v);
    bool BeginGroup() const { return m_beginGroup; }
    void SetBeginGroup(bool v);
    QString OnAction() const { return m_onAction; }
    void SetOnAction(const QString& v) { m_onAction = v; }
    bool Enabled() const { return m_enabled; }
    void SetEnabled(bool v);

    // Takes the face and mask from the clipboard ("Toolbar Button Face" and
    // "Toolbar Button Mask"); false when the clipboard holds no face it can
    // read (the face it had is then kept). Both formats hold an image file
    // in a format QImage reads (PutFaceOnClipboard writes PNG; BMP is read
    // too). The mask is white where the face is transparent and black where
    // it shows, as the classic toolbar mask is; a face without a mask is
    // opaque.
    bool PasteFace();
    QImage Face() const { return m_face; }  // with the mask applied as alpha

    // A popup's own controls; nullptr for a button.
    CommandBarControls* Controls() const { return m_controls.get(); }

    // What the user (or a test) does: raises Click.
    void Execute();
    // Removes the control from its bar and deletes it (later, safely).
    void Delete();

Q_SIGNALS:
    void Click(mv::office::CommandBarControl* control, bool& cancelDefault);
    void Changed();

private:
    int m_type;
    bool m_temporary;
    os::Clipboard* m_clipboard;
    QString m_caption, m_tag, m_tooltip, m_onAction;
    int m_style = msoButtonAutomatic;
    bool m_visible = true, m_beginGroup = false, m_enabled = true;
    QImage m_face;
    std::unique_ptr<CommandBarControls> m_controls;
};

class CommandBarControls : public QObject {
    Q_OBJECT
public:
    explicit CommandBarControls(os::Clipboard* clipboard, QObject* parent = nullptr);
    int Count() const { return static_cast<int>(m_items.size()); }
    CommandBarControl* Item(int index) const;  // 1-based, as in the object model; nullptr out of range
    // `before` is 1-based; 0 appends.
    CommandBarControl* Add(int type = msoControlButton, int id = 0, const QString& parameter = {}, int before = 0,
                           bool temporary = false);
    const std::vector<QPointer<CommandBarControl>>& items() const { return m_items; }

Q_SIGNALS:
    void Changed();

private:
    friend class CommandBarControl;
    void Remove(CommandBarControl* control);
    os::Clipboard* m_clipboard;
    std::vector<QPointer<CommandBarControl>> m_items;
};

class CommandBar : public QObject {
    Q_OBJECT
public:
    CommandBar(const QString& name, int position, bool menuBar, bool temporary, os::Clipboard* clipboard,
               QObject* parent);
    QString Name() const { return objectName(); }
    int Position() const { return m_position; }
    void SetPosition(int v);
    int Top() const { return m_top; }
    void SetTop(int v);
    int Left() const { return m_left; }
    void SetLeft(int v);
    int RowIndex() const { return m_row; }
    void SetRowIndex(int v);
    bool Visible() const { return m_visible; }
    void SetVisible(bool v);
    bool Temporary() const { return m_temporary; }
    bool IsMenuBar() const { return m_menuBar; }
    CommandBarControls* Controls() const { return m_controls.get(); }
    void Delete();

Q_SIGNALS:
    void Changed();

private:
    int m_position, m_top = 0, m_left = 0, m_row = 0;
    bool m_menuBar, m_temporary, m_visible = false;
    std::unique_ptr<CommandBarControls> m_controls;
};

// The face helper's half of PasteFace: puts `picture` on the clipboard as a
// face and a mask in which every pixel of `maskColour` (RGB, alpha ignored)
// is transparent. Adds to what the clipboard holds; false for a null picture.
bool PutFaceOnClipboard(os::Clipboard& clipboard, const QImage& picture, QRgb maskColour = 0xFF00FF);

class CommandBars : public QObject {
    Q_OBJECT
public:
    explicit CommandBars(os::Clipboard* clipboard, QObject* parent = nullptr);
    int Count() const;
    // nullptr when there is no bar of that name (names compare without case).
    CommandBar* Item(const QString& name) const;
    // nullptr when a bar of that name exists already; an empty name becomes
    // "Custom N".
    CommandBar* Add(const QString& name, int position = msoBarTop, bool menuBar = false, bool temporary = false);
    std::vector<CommandBar*> Bars() const;

Q_SIGNALS:
    void BarAdded(mv::office::CommandBar* bar);
    void BarRemoved(const QString& name);

private:
    os::Clipboard* m_clipboard;
};

}  // namespace mv::office
