#pragma once
// The contents-table object created by ProgID "SQSafeLib.MAPITable": hand
// it a folder's items, build the filter, set the columns and read rows. It
// drives mapi::ContentsTable over the folder's store.

#include "Folder.h"

#include "platform/mapi/ContentsTable.h"

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

private:
    std::optional<mapi::ContentsTable> m_table;
};

}  // namespace mv::outlook
