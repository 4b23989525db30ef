#pragma once
// A folder's contents table as the rule engine drives it: set the columns,
// build the restriction through Filter(), go to the first row, read rows
// until an empty one comes back. The store is queried once, at the first
// read after GoToFirstRow or SetColumns (a changed filter takes effect
// there); moving messages meanwhile does not disturb the rows already
// fetched, so every matching row is handed out exactly once.

#include "MessageStore.h"

namespace mv::mapi {

class ContentsTable {
public:
    ContentsTable(MessageStore& store, QByteArray folderId);

    Restriction& Filter() { return m_filter; }            // root; Clear() it, set its kind, add children
    void SetColumns(std::vector<PropTag> columns);
    void GoToFirstRow();
    // The next row, or an empty Row when none remain. The first call runs the
    // query; a store error is returned as such.
    Result<Row> GetNextRow();
    // Tells the store that this filter and these columns will be read soon.
    void Anticipate() const { m_store.Anticipate(m_folderId, m_filter, m_columns); }

private:
    MessageStore& m_store;
    QByteArray m_folderId;
    Restriction m_filter;
    std::vector<PropTag> m_columns;
    std::vector<Row> m_rows;
    size_t m_next = 0;
    bool m_fetched = false;
};

}  // namespace mv::mapi
