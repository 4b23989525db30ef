#include "MapiTable.h"

#include "store/StoreItem.h"

namespace mv::outlook {

bool MapiTable::SetItems(const Folder& folder)
{
    m_store = folder.Store();
    m_current.clear();
    if (!m_store) {
        m_table.reset();
        return false;
    }
    m_table.emplace(*m_store, folder.BinaryEntryID());
    return true;
}

mapi::Restriction* MapiTable::Filter()
{
    return m_table ? &m_table->Filter() : nullptr;
}

void MapiTable::SetColumns(std::vector<mapi::PropTag> columns)
{
    if (!m_table) return;
    m_columns = columns;
    columns.push_back(mapi::PR_FLAG_STATUS);
    m_table->SetColumns(std::move(columns));
}

void MapiTable::Anticipate() const
{
    if (m_table) m_table->Anticipate();
}

void MapiTable::GoToFirstRow()
{
    if (m_table) m_table->GoToFirstRow();
}

Result<mapi::Row> MapiTable::GetNextRow()
{
    m_current.clear();
    if (!m_table) return Error::notFound(QStringLiteral("the table has no folder's items"));
    auto row = m_table->GetNextRow();
    if (!row || row->empty()) return row;
    m_current = std::move(*row);
    return mapi::Row(m_current.begin(), m_current.begin() + static_cast<std::ptrdiff_t>(m_columns.size()));
}

std::unique_ptr<Item> MapiTable::RowItem() const
{
    if (!m_store || m_current.size() != m_columns.size() + 1) return nullptr;
    QByteArray id;
    mapi::PropertyMap props;
    for (size_t i = 0; i < m_current.size(); ++i) {
        const mapi::PropTag tag = i < m_columns.size() ? m_columns[i] : mapi::PR_FLAG_STATUS;
        if (tag == mapi::PR_ENTRYID) id = m_current[i].toByteArray();
        if (m_current[i].isValid()) props.insert(tag, m_current[i]);
    }
    if (id.isEmpty()) return nullptr;
    if (!props.contains(mapi::PR_FLAG_STATUS)) props.insert(mapi::PR_FLAG_STATUS, 0);
    return StoreItem::FromRow(*m_store, std::move(id), std::move(props));
}

}  // namespace mv::outlook
