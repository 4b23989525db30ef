#pragma once
// A message window: the headers (From, To, Cc, Subject, Date) above the
// message's text. HTML-only mail arrives here already reduced to text by
// the store. As an Inspector it raises Closed once, when the window closes
// by the user or by Close(); the item it holds stays until the window goes.

#include "platform/outlook/Windows.h"

#include <memory>

class QLabel;
class QPlainTextEdit;
class QWidget;

namespace mv::host::desktop {

class MessageWindow final : public outlook::Inspector {
    Q_OBJECT
public:
    explicit MessageWindow(std::unique_ptr<outlook::Item> item, QObject* parent = nullptr);
    ~MessageWindow() override;

    outlook::Item* CurrentItem() override { return m_item.get(); }
    void Close() override;

    void Show();
    void Raise();
    bool IsClosed() const { return m_closed; }
    QWidget* Window() const { return m_window.get(); }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void MarkClosed();

    std::unique_ptr<outlook::Item> m_item;
    std::unique_ptr<QWidget> m_window;
    bool m_closed = false;
};

}  // namespace mv::host::desktop
