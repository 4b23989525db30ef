#pragma once
// The contents-table object created by ProgID "SQSafeLib.MAPITable": hand
// it a folder's items, build the filter, set the columns and read rows. It
// drives mapi::ContentsTable over the folder's store.
//
// Beside the columns asked for, the table reads the follow-up flag status
// of every row (the stores hold it with the row's other values, so it costs
// nothing more), so that RowItem can open the row's item without asking the
// store for the message again.

#include "Folder.h"
#include "Item.h"

#include "platform/mapi/ContentsTable.h"

#include <memory>
#include <optional>

namespace mv::outlook {

class MapiTable {
public:
    // Binds the table to the folder's store and folder id. False (and the
    // table unbound) when the folder has no store behind it.
    bool SetItems(const Folder& folder);
    bool IsBound() const { return m_table.has_value(); }

    // The root restriction; nullptr while unbound.
    mapi::Restriction* Filter();
    // Each does nothing while unbound.
    void SetColumns(std::vector<mapi::PropTag> columns);
    void GoToFirstRow();
    // The next row, an empty Row when none remain; a store error as such, and
    // a NotFound error while unbound.
    Result<mapi::Row> GetNextRow();
    // Tells the store that this filter and these columns will be read soon
    // (the engine, of the next rule of a run). Nothing while unbound.
    void Anticipate() const;

    // The item of the row GetNextRow returned last, made from the values
    // read with it; nullptr when there is no such row or the columns do not
    // include PR_ENTRYID. Whether the message is still there is learnt when
    // the item is saved or moved.
    std::unique_ptr<Item> RowItem() const;

private:
    std::optional<mapi::ContentsTable> m_table;
    mapi::MessageStore* m_store = nullptr;
    std::vector<mapi::PropTag> m_columns;  // as asked for; the table reads one more
    mapi::Row m_current;                   // every value of the last row
};

}  // namespace mv::outlook
