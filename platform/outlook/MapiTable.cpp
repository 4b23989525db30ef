#include "MapiTable.h"

namespace mv::outlook {

bool MapiTable::SetItems(const Folder& folder)
{
    mapi::MessageStore* store = folder.Store();
    if (!store) {
        m_table.reset();
        return false;
    }
    m_table.emplace(*store, folder.BinaryEntryID());
    return true;
}

mapi::Restriction* MapiTable::Filter()
{
    return m_table ? &m_table->Filter() : nullptr;
}

void MapiTable::SetColumns(std::vector<mapi::PropTag> columns)
{
    if (m_table) m_table->SetColumns(std::move(columns));
}

void MapiTable::GoToFirstRow()
{
    if (m_table) m_table->GoToFirstRow();
}

Result<mapi::Row> MapiTable::GetNextRow()
{
    if (!m_table) return Error::notFound(QStringLiteral("the table has no folder's items"));
    return m_table->GetNextRow();
}

}  // namespace mv::outlook
