// The Explorer and Inspector collections.

#include "ExplWrap.h"
#include "InspWrap.h"
#include "OutAddIn.h"

#include "platform/outlook/Windows.h"

#include <limits>
#include <stdexcept>

namespace mv::addin {

void OutAddIn::AddExpl(outlook::Explorer* explorer)
{
    if (!explorer) return;
    // Keys are never reused; the 16-bit counter running out is an error.
    if (m_explCounter == std::numeric_limits<std::int16_t>::max()) throw std::overflow_error("Overflow");
    if (m_explorers.count(m_explCounter)) throw std::runtime_error("This key is already associated with an element");
    auto* wrap = new ExplWrap(*this);
    wrap->SetExplorer(explorer);
    wrap->SetKey(m_explCounter);
    m_explorers.emplace(m_explCounter, wrap);
    ++m_explCounter;
}

bool OutAddIn::KillExpl(std::int16_t key, ExplWrap* wrapper)
{
    auto it = m_explorers.find(key);
    if (it == m_explorers.end() || it->second != wrapper) {
        WriteLog(3, QStringLiteral("KillExpl"), QStringLiteral("Unexpected Error in KillExpl"));
        return false;
    }
    m_explorers.erase(it);
    // Called from the wrapper's own close handler: delete it afterwards.
    wrapper->deleteLater();
    return true;
}

void OutAddIn::AddInsp(outlook::Inspector* inspector)
{
    if (!inspector || !inspector->CurrentItem()) return;
    const QString key = inspector->CurrentItem()->EntryID();
    if (m_inspectors.count(key)) throw std::runtime_error("This key is already associated with an element");
    auto* wrap = new InspWrap(*this);
    wrap->SetInspector(inspector);
    wrap->SetKey(key);
    m_inspectors.emplace(key, wrap);
}

bool OutAddIn::KillInsp(const QString& key, InspWrap* wrapper)
{
    auto it = m_inspectors.find(key);
    if (it == m_inspectors.end() || it->second != wrapper) {
        WriteLog(3, QStringLiteral("KillInsp"), QStringLiteral("Unexpected Error in KillInsp"));
        return false;
    }
    m_inspectors.erase(it);
    wrapper->deleteLater();
    return true;
}

std::vector<std::int16_t> OutAddIn::ExplorerKeys() const
{
    std::vector<std::int16_t> keys;
    for (const auto& [key, wrap] : m_explorers) keys.push_back(key);
    return keys;
}

ExplWrap* OutAddIn::ExplorerWrapper(std::int16_t key) const
{
    auto it = m_explorers.find(key);
    return it == m_explorers.end() ? nullptr : it->second;
}

QStringList OutAddIn::OpenItemIds() const
{
    QStringList ids;
    for (const auto& [key, wrap] : m_inspectors) ids << key;
    return ids;
}

bool OutAddIn::IsItemOpen(const QString& entryIdHex) const
{
    return m_inspectors.count(entryIdHex.toUpper()) > 0 || m_inspectors.count(entryIdHex) > 0;
}

}  // namespace mv::addin
