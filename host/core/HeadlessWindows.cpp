#include "HeadlessWindows.h"

namespace mv::host {

HeadlessExplorer::HeadlessExplorer(os::Clipboard* clipboard, QObject* parent)
    : outlook::Explorer(parent), m_bars(clipboard)
{
    // A host's folder window always has its Tools menu; add-ins look it up by name.
    office::CommandBar* tools = m_bars.Add(QStringLiteral("Tools"), office::msoBarTop, true, false);
    tools->SetVisible(true);
}

void HeadlessExplorer::Close()
{
    if (m_closed) return;
    m_closed = true;
    Q_EMIT Closed();
}

void HeadlessExplorers::Add(outlook::Explorer* explorer)
{
    if (!explorer) return;
    m_list.emplace_back(explorer);
    Q_EMIT NewExplorer(explorer);
}

void HeadlessExplorers::Remove(outlook::Explorer* explorer)
{
    std::erase_if(m_list, [explorer](const QPointer<outlook::Explorer>& p) { return p.isNull() || p == explorer; });
}

outlook::Explorer* HeadlessExplorers::Item(int index) const
{
    if (index < 1 || index > Count()) return nullptr;
    return m_list[static_cast<size_t>(index - 1)];
}

HeadlessInspector::HeadlessInspector(std::unique_ptr<outlook::Item> item, QObject* parent)
    : outlook::Inspector(parent), m_item(std::move(item))
{
}

void HeadlessInspector::Close()
{
    if (m_closed) return;
    m_closed = true;
    Q_EMIT Closed();
}

void HeadlessInspectors::Add(outlook::Inspector* inspector)
{
    if (!inspector) return;
    m_list.emplace_back(inspector);
    Q_EMIT NewInspector(inspector);
}

void HeadlessInspectors::Remove(outlook::Inspector* inspector)
{
    std::erase_if(m_list, [inspector](const QPointer<outlook::Inspector>& p) { return p.isNull() || p == inspector; });
}

outlook::Inspector* HeadlessInspectors::Item(int index) const
{
    if (index < 1 || index > Count()) return nullptr;
    return m_list[static_cast<size_t>(index - 1)];
}

}  // namespace mv::host
