#include "ContentsTable.h"

namespace mv::mapi {

ContentsTable::ContentsTable(MessageStore& store, QByteArray folderId)
    : m_store(store), m_folderId(std::move(folderId))
{
}

void ContentsTable::SetColumns(std::vector<PropTag> columns)
{
    m_columns = std::move(columns);
    m_fetched = false;
}

void ContentsTable::GoToFirstRow()
{
    m_fetched = false;
}

Result<Row> ContentsTable::GetNextRow()
{
    if (!m_fetched) {
        Result<std::vector<Row>> rows = m_store.Query(m_folderId, &m_filter, m_columns);
        if (!rows) return rows.error();  // not marked fetched: the next read asks again
        m_rows = std::move(rows).value();
        m_next = 0;
        m_fetched = true;
    }
    if (m_next >= m_rows.size()) return Row{};
    return std::move(m_rows[m_next++]);
}

}  // namespace mv::mapi
