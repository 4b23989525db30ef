#pragma once
// ADOX Catalog, Table and Column: just what the rule store needs to add a
// column to an existing table and to look at a table's columns.

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <vector>

namespace mv::ado {

class Connection;
class Catalog;

struct Column {
    QString Name;
    int Type = 0;                     // ADO DataType
    long DefinedSize = 0;
    Catalog* ParentCatalog = nullptr;
    // Provider properties by name, e.g. "Jet OLEDB:Allow Zero Length" (bool),
    // "Nullable" (bool), "Default".
    QVariantMap Properties;
};

struct Table {
    QString Name;
};

class Catalog {
public:
    Connection* ActiveConnection() const { return m_connection; }
    void SetActiveConnection(Connection* connection) { m_connection = connection; }

    std::vector<QString> TableNames() const;            // throws AdoError
    std::vector<Column> Columns(const QString& table) const;  // in table order; throws

    // Tables(table).Columns.Append(column, type, definedSize): adds the column
    // at the end of the table. The column object's own Type decides the SQL
    // type (ADO's append arguments are ignored when a Column object is given,
    // as with the Jet provider). Throws AdoError.
    void AppendColumn(const QString& table, const Column& column, int type = 202, long definedSize = 0);

private:
    Connection* m_connection = nullptr;
};

}  // namespace mv::ado
