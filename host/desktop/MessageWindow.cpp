#include "MessageWindow.h"

#include "platform/mapi/PropTags.h"

#include <QDateTime>
#include <QEvent>
#include <QFormLayout>
#include <QLabel>
#include <QLocale>
#include <QPlainTextEdit>
#include <QVBoxLayout>
#include <QWidget>

namespace mv::host::desktop {

namespace {

QLabel* HeaderLabel(const QString& name, const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setObjectName(name);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setTextFormat(Qt::PlainText);  // "<a@b>" is an address, not markup
    label->setWordWrap(true);
    return label;
}

QString FromLine(const outlook::Item& item)
{
    const QString name = item.SenderName();
    const QString address = item.SenderEmailAddress();
    if (name.isEmpty() || name == address) return address;
    if (address.isEmpty()) return name;
    return QStringLiteral("%1 <%2>").arg(name, address);
}

}  // namespace

MessageWindow::MessageWindow(std::unique_ptr<outlook::Item> item, QObject* parent)
    : outlook::Inspector(parent), m_item(std::move(item)), m_window(std::make_unique<QWidget>())
{
    m_window->setObjectName(QStringLiteral("frmInspector"));
    m_window->setWindowTitle(m_item->Subject().isEmpty() ? QStringLiteral("(no subject)")
                                                         : m_item->Subject());
    m_window->resize(720, 560);
    m_window->installEventFilter(this);

    auto* headers = new QFormLayout;
    const QDateTime date = m_item->Fields(mapi::PR_MESSAGE_DELIVERY_TIME).toDateTime();
    headers->addRow(QStringLiteral("From:"),
                    HeaderLabel(QStringLiteral("lblFrom"), FromLine(*m_item), m_window.get()));
    headers->addRow(QStringLiteral("To:"),
                    HeaderLabel(QStringLiteral("lblTo"), m_item->To(), m_window.get()));
    headers->addRow(QStringLiteral("Cc:"),
                    HeaderLabel(QStringLiteral("lblCc"), m_item->CC(), m_window.get()));
    headers->addRow(QStringLiteral("Subject:"),
                    HeaderLabel(QStringLiteral("lblSubject"), m_item->Subject(), m_window.get()));
    headers->addRow(
        QStringLiteral("Date:"),
        HeaderLabel(QStringLiteral("lblDate"),
                    date.isValid() ? QLocale().toString(date.toLocalTime(), QLocale::LongFormat) : QString(),
                    m_window.get()));

    auto* body = new QPlainTextEdit(m_window.get());
    body->setObjectName(QStringLiteral("txtBody"));
    body->setReadOnly(true);
    body->setPlainText(m_item->Body());

    auto* layout = new QVBoxLayout(m_window.get());
    layout->addLayout(headers);
    layout->addWidget(body, 1);
}

MessageWindow::~MessageWindow()
{
    if (m_window) m_window->removeEventFilter(this);
}

void MessageWindow::Show()
{
    m_window->show();
    Raise();
}

void MessageWindow::Raise()
{
    m_window->raise();
    m_window->activateWindow();
}

void MessageWindow::Close()
{
    if (m_closed) return;
    m_window->close();
    MarkClosed();
}

void MessageWindow::MarkClosed()
{
    if (m_closed) return;
    m_closed = true;
    Q_EMIT Closed();
}

bool MessageWindow::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_window.get() && event->type() == QEvent::Close) MarkClosed();
    return outlook::Inspector::eventFilter(watched, event);
}

}  // namespace mv::host::desktop
