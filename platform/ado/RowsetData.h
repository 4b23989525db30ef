#pragma once
// The in-memory form of a recordset: its column schema and its rows. A
// client-side Recordset is a cursor over one of these, and the rowset XML
// reader and writer convert it to and from ADO's XML persistence format.

#include <QString>
#include <QVariant>

#include <vector>

namespace mv::ado {

struct RowsetColumn {
    QString name;            // as the query named it (case kept; lookups ignore case)
    int type = 0;            // ADO DataType (adInteger, adVarWChar, adLongVarWChar, ...)
    int definedSize = 0;     // characters for text, bytes otherwise; 0 when unknown
    bool isLong = false;     // memo / long text (rs:long in the XML schema)
    bool nullable = true;    // rs:nullable: the column accepts nulls
    bool mayBeNull = true;   // rs:maybenull: false only where the provider promises no nulls
    bool mayDefer = false;   // rs:maydefer: Jet reports it for every base-table column
    bool writable = true;    // rs:writeunknown / read-only for computed columns
    bool autoIncrement = false;
    bool keyColumn = false;
    int precision = 0;       // rs:precision of adNumeric columns; 0 = the type's own
    int scale = 0;           // rs:scale of adNumeric columns
    QString baseTable;       // rs:basetable, empty for computed columns
    QString baseColumn;      // rs:basecolumn
};

struct RowsetData {
    std::vector<RowsetColumn> columns;
    // rows[r][c]; a null value is an invalid QVariant (QVariant()).
    std::vector<std::vector<QVariant>> rows;

    // Column index by name, ignoring case; -1 when absent.
    int columnIndex(const QString& name) const {
        for (size_t i = 0; i < columns.size(); ++i)
            if (columns[i].name.compare(name, Qt::CaseInsensitive) == 0) return static_cast<int>(i);
        return -1;
    }
};

}  // namespace mv::ado
