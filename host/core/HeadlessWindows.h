#pragma once
// The windows of the host without a screen: one Explorer that is never
// shown (its command bars hold a "Tools" menu bar, as a host's would, and
// its selection is always empty) and an Inspectors collection that stays
// empty.

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

class HeadlessInspectors final : public outlook::Inspectors {
    Q_OBJECT
public:
    using outlook::Inspectors::Inspectors;
    int Count() const override { return 0; }
    outlook::Inspector* Item(int) const override { return nullptr; }
};

}  // namespace mv::host
