#pragma once
// The windows of the host without a screen: Explorers that are never shown
// (their command bars hold a "Tools" menu bar, as a host's would, and their
// selection is always empty) and Inspectors that hold an item and nothing
// else. The collections list the open windows in the order they opened.

#include "platform/office/CommandBars.h"
#include "platform/outlook/Windows.h"

namespace mv::host {

class HeadlessExplorer final : public outlook::Explorer {
    Q_OBJECT
public:
    explicit HeadlessExplorer(os::Clipboard* clipboard, QObject* parent = nullptr);

    office::CommandBars* CommandBars() override { return &m_bars; }
    std::vector<std::unique_ptr<outlook::Item>> Selection() override { return {}; }
    int SelectionCount() override { return 0; }
    std::unique_ptr<outlook::Folder> CurrentFolder() override { return nullptr; }
    // Raises Closed once; the host then counts no Explorer.
    void Close() override;
    bool IsClosed() const { return m_closed; }

private:
    office::CommandBars m_bars;
    bool m_closed = false;
};

class HeadlessExplorers final : public outlook::Explorers {
    Q_OBJECT
public:
    using outlook::Explorers::Explorers;
    void Add(outlook::Explorer* explorer);  // not owned; raises NewExplorer
    void Remove(outlook::Explorer* explorer);
    int Count() const override { return static_cast<int>(m_list.size()); }
    outlook::Explorer* Item(int index) const override;

private:
    std::vector<QPointer<outlook::Explorer>> m_list;
};

// An item window without a window. The headless host never opens one by
// itself; tests of window tracking do, through HeadlessApplication.
class HeadlessInspector final : public outlook::Inspector {
    Q_OBJECT
public:
    explicit HeadlessInspector(std::unique_ptr<outlook::Item> item, QObject* parent = nullptr);
    outlook::Item* CurrentItem() override { return m_item.get(); }
    // Raises Closed once; the host then counts it no more.
    void Close() override;
    bool IsClosed() const { return m_closed; }

private:
    std::unique_ptr<outlook::Item> m_item;
    bool m_closed = false;
};

class HeadlessInspectors final : public outlook::Inspectors {
    Q_OBJECT
public:
    using outlook::Inspectors::Inspectors;
    void Add(outlook::Inspector* inspector);  // not owned; raises NewInspector
    void Remove(outlook::Inspector* inspector);
    int Count() const override { return static_cast<int>(m_list.size()); }
    outlook::Inspector* Item(int index) const override;

private:
    std::vector<QPointer<outlook::Inspector>> m_list;
};

}  // namespace mv::host
