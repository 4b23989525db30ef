#include "CommandBars.h"

#include <QBuffer>
#include <QCoreApplication>

namespace mv::office {

namespace {

// Sets a member and raises `changed` only when the value differs, so a
// renderer redraws only what moved.
template <class T, class Signal, class Object>
void Assign(T& member, const T& value, Object* object, Signal changed)
{
    if (member == value) return;
    member = value;
    Q_EMIT(object->*changed)();
}

QImage ReadImage(const QByteArray& bytes)
{
    QImage image;
    if (!bytes.isEmpty()) image.loadFromData(bytes);
    return image;
}

QByteArray WritePng(const QImage& image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

}  // namespace

// ---- CommandBarControl ----

CommandBarControl::CommandBarControl(int type, bool temporary, os::Clipboard* clipboard, QObject* parent)
    : QObject(parent), m_type(type), m_temporary(temporary), m_clipboard(clipboard)
{
    if (type == msoControlPopup) m_controls = std::make_unique<CommandBarControls>(clipboard);
}

CommandBarControl::~CommandBarControl() = default;

void CommandBarControl::SetCaption(const QString& v) { Assign(m_caption, v, this, &CommandBarControl::Changed); }
void CommandBarControl::SetTooltipText(const QString& v) { Assign(m_tooltip, v, this, &CommandBarControl::Changed); }
void CommandBarControl::SetStyle(int v) { Assign(m_style, v, this, &CommandBarControl::Changed); }
void CommandBarControl::SetVisible(bool v) { Assign(m_visible, v, this, &CommandBarControl::Changed); }
void CommandBarControl::SetBeginGroup(bool v) { Assign(m_beginGroup, v, this, &CommandBarControl::Changed); }
void CommandBarControl::SetEnabled(bool v) { Assign(m_enabled, v, this, &CommandBarControl::Changed); }

bool CommandBarControl::PasteFace()
{
    if (!m_clipboard) return false;
    QImage face = ReadImage(m_clipboard->Data(QString::fromLatin1(os::kFaceFormat)));
    if (face.isNull()) return false;
    face = face.convertToFormat(QImage::Format_ARGB32);
    const QImage mask = ReadImage(m_clipboard->Data(QString::fromLatin1(os::kMaskFormat)));
    if (!mask.isNull()) {
        const QImage m = mask.convertToFormat(QImage::Format_RGB32);
        for (int y = 0; y < face.height() && y < m.height(); ++y) {
            auto* line = reinterpret_cast<QRgb*>(face.scanLine(y));
            const auto* maskLine = reinterpret_cast<const QRgb*>(m.constScanLine(y));
            for (int x = 0; x < face.width() && x < m.width(); ++x)
                if (qGray(maskLine[x]) >= 128) line[x] = qRgba(qRed(line[x]), qGreen(line[x]), qBlue(line[x]), 0);
        }
    }
    m_face = std::move(face);
    Q_EMIT Changed();
    return true;
}

void CommandBarControl::Execute()
{
    bool cancelDefault = false;
    Q_EMIT Click(this, cancelDefault);
}

void CommandBarControl::Delete()
{
    if (auto* owner = qobject_cast<CommandBarControls*>(parent())) owner->Remove(this);
    // Later, because a Click handler may delete the very control that raised it.
    deleteLater();
}

// ---- CommandBarControls ----

CommandBarControls::CommandBarControls(os::Clipboard* clipboard, QObject* parent)
    : QObject(parent), m_clipboard(clipboard)
{
}

CommandBarControl* CommandBarControls::Item(int index) const
{
    if (index < 1 || index > Count()) return nullptr;
    return m_items[static_cast<size_t>(index - 1)];
}

CommandBarControl* CommandBarControls::Add(int type, int /*id*/, const QString& /*parameter*/, int before,
                                           bool temporary)
{
    auto* control = new CommandBarControl(type, temporary, m_clipboard, this);
    const auto at = (before >= 1 && before <= Count()) ? m_items.begin() + (before - 1) : m_items.end();
    m_items.insert(at, control);
    // A control deleted directly (not through Delete) must leave the list too.
    connect(control, &QObject::destroyed, this, [this] {
        std::erase_if(m_items, [](const QPointer<CommandBarControl>& p) { return p.isNull(); });
    });
    Q_EMIT Changed();
    return control;
}

void CommandBarControls::Remove(CommandBarControl* control)
{
    const auto removed = std::erase_if(m_items, [control](const QPointer<CommandBarControl>& p) { return p == control; });
    if (removed) Q_EMIT Changed();
}

// ---- CommandBar ----

CommandBar::CommandBar(const QString& name, int position, bool menuBar, bool temporary, os::Clipboard* clipboard,
                       QObject* parent)
    : QObject(parent), m_position(position), m_menuBar(menuBar), m_temporary(temporary),
      m_controls(std::make_unique<CommandBarControls>(clipboard))
{
    setObjectName(name);
}

void CommandBar::SetPosition(int v) { Assign(m_position, v, this, &CommandBar::Changed); }
void CommandBar::SetTop(int v) { Assign(m_top, v, this, &CommandBar::Changed); }
void CommandBar::SetLeft(int v) { Assign(m_left, v, this, &CommandBar::Changed); }
void CommandBar::SetRowIndex(int v) { Assign(m_row, v, this, &CommandBar::Changed); }
void CommandBar::SetVisible(bool v) { Assign(m_visible, v, this, &CommandBar::Changed); }

void CommandBar::Delete()
{
    auto* owner = qobject_cast<CommandBars*>(parent());
    // Out of the owner's list at once, so a lookup by name no longer finds it.
    setParent(nullptr);
    if (owner) Q_EMIT owner->BarRemoved(Name());
    deleteLater();
}

// ---- CommandBars ----

CommandBars::CommandBars(os::Clipboard* clipboard, QObject* parent) : QObject(parent), m_clipboard(clipboard) {}

std::vector<CommandBar*> CommandBars::Bars() const
{
    const QList<CommandBar*> list = findChildren<CommandBar*>(Qt::FindDirectChildrenOnly);
    return {list.begin(), list.end()};
}

int CommandBars::Count() const
{
    return static_cast<int>(Bars().size());
}

CommandBar* CommandBars::Item(const QString& name) const
{
    for (CommandBar* bar : Bars())
        if (bar->Name().compare(name, Qt::CaseInsensitive) == 0) return bar;
    return nullptr;
}

CommandBar* CommandBars::Add(const QString& name, int position, bool menuBar, bool temporary)
{
    QString barName = name;
    for (int n = Count() + 1; barName.isEmpty() || (name.isEmpty() && Item(barName)); ++n)
        barName = QStringLiteral("Custom %1").arg(n);
    if (Item(barName)) return nullptr;
    auto* bar = new CommandBar(barName, position, menuBar, temporary, m_clipboard, this);
    Q_EMIT BarAdded(bar);
    return bar;
}

bool PutFaceOnClipboard(os::Clipboard& clipboard, const QImage& picture, QRgb maskColour)
{
    if (picture.isNull()) return false;
    const QImage face = picture.convertToFormat(QImage::Format_RGB32);
    QImage mask(face.size(), QImage::Format_RGB32);
    const QRgb key = maskColour & 0xFFFFFFu;
    for (int y = 0; y < face.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(face.constScanLine(y));
        auto* maskLine = reinterpret_cast<QRgb*>(mask.scanLine(y));
        for (int x = 0; x < face.width(); ++x)
            maskLine[x] = (line[x] & 0xFFFFFFu) == key ? qRgb(255, 255, 255) : qRgb(0, 0, 0);
    }
    clipboard.SetData(QString::fromLatin1(os::kFaceFormat), WritePng(face));
    clipboard.SetData(QString::fromLatin1(os::kMaskFormat), WritePng(mask));
    return true;
}

}  // namespace mv::office
