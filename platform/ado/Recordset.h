#pragma once
// A client-side ADO Recordset: the query's rows are read into a RowsetData
// when it opens, and the cursor, bookmarks, Find and Move* work on that copy.
// Resync re-reads rows from the database: a single-table recordset by the
// table's primary key, anything else (joins, computed columns, tables
// without a key in the result) by running the query again and matching rows
// by key where there is one, by position otherwise.
//
// Positions: BOF before the first row, EOF after the last; an empty
// recordset is both. Reading a field at BOF/EOF throws AdoError
// (kErrNoCurrentRecord), as ADO does.

#include "AdoConstants.h"
#include "AdoError.h"
#include "Parameter.h"
#include "RowsetData.h"

#include <QString>
#include <QVariant>

#include <memory>
#include <vector>

namespace mv::ado {

class Command;
class Connection;
class Recordset;

// A field of the current row, by position. Cheap to copy; valid while its
// Recordset is open.
class Field {
public:
    Field(const Recordset* rs, int index) : m_rs(rs), m_index(index) {}
    QString Name() const;
    QVariant Value() const;  // throws at BOF/EOF
    int Type() const;
    int DefinedSize() const;
    int Index() const { return m_index; }

private:
    const Recordset* m_rs;
    int m_index;
};

class Recordset {
public:
    using Bookmark = long;  // 1-based row number, as ADO's client cursor engine numbers them

    Recordset();
    ~Recordset();
    Recordset(const Recordset&) = delete;
    Recordset& operator=(const Recordset&) = delete;

    int CursorLocation() const { return m_cursorLocation; }
    void SetCursorLocation(int v) { m_cursorLocation = v; }
    bool StayInSync() const { return m_stayInSync; }
    void SetStayInSync(bool v) { m_stayInSync = v; }
    int CacheSize() const { return m_cacheSize; }
    void SetCacheSize(int v) { m_cacheSize = v; }

    // Opens on a command (its connection, text and parameters).
    void Open(Command& source, int cursorType = adOpenUnspecified, int lockType = adLockUnspecified,
              int options = -1);
    // Opens SQL text on a connection.
    void Open(const QString& sql, Connection& connection, int cursorType = adOpenUnspecified,
              int lockType = adLockUnspecified, int options = -1);
    // Opens a saved XML file; `connect` must name the persistence provider
    // ("Provider=MSPersist"). Throws AdoError when the file is not a rowset.
    void OpenFile(const QString& path, const QString& connect = QStringLiteral("Provider=MSPersist"),
                  int cursorType = adOpenUnspecified, int lockType = adLockUnspecified, int options = -1);
    // Takes rows already in memory (used by Connection::Execute).
    void OpenData(RowsetData data, Connection* source = nullptr, const QString& sql = {});

    void Close();  // harmless when closed
    int State() const { return m_open ? adStateOpen : adStateClosed; }

    int FieldCount() const;
    Field Fields(int index) const;             // throws kErrItemNotFound when out of range
    Field Fields(const QString& name) const;   // case-insensitive; throws kErrItemNotFound
    QVariant Value(const QString& name) const { return Fields(name).Value(); }

    bool IsBOF() const;
    bool IsEOF() const;
    long RecordCount() const;

    Bookmark GetBookmark() const;              // throws at BOF/EOF
    void SetBookmark(Bookmark bookmark);

    void MoveFirst();
    void MoveLast();
    void MoveNext();      // throws when already at EOF
    void MovePrevious();  // throws when already at BOF

    // ADO Find: one criterion "Column op value" with op one of = <> < > <= >=
    // LIKE; text values in single quotes ('' for a quote), dates in #...#,
    // numbers bare. Searches from the current row (or `start`) after skipping
    // `skip` rows; when nothing matches the cursor ends at EOF (forward) or
    // BOF (backward). Throws AdoError on a malformed criterion.
    void Find(const QString& criteria, long skip = 0, int direction = adSearchForward, Bookmark start = 0);

    // Re-reads the current row from the base table (adAffectCurrent) or all
    // rows (adAffectAll). A row deleted meanwhile keeps its old values.
    void Resync(int affectRecords = adAffectAll, int resyncValues = adResyncAllValues);

    // Writes ADO's XML persistence format. Throws AdoError.
    void Save(const QString& path, int persistFormat = adPersistXML) const;

    const RowsetData& Data() const { return m_data; }

private:
    friend class Field;
    const QVariant& CurrentValue(int index) const;
    void RequireOpen() const;
    void RequireCurrent() const;
    void Take(Recordset& other, Connection* source, const QString& sql);
    std::vector<int> KeyColumns() const;
    bool ResyncByKey(const std::vector<long>& rows);
    void ResyncByRequery(const std::vector<long>& rows);

    RowsetData m_data;
    long m_pos = 0;  // 0 = BOF, 1..n rows, n+1 = EOF
    bool m_open = false;
    int m_cursorLocation = adUseServer;
    bool m_stayInSync = true;
    int m_cacheSize = 1;
    Connection* m_source = nullptr;
    std::weak_ptr<const void> m_sourceAlive;
    QString m_sql;
    std::vector<Parameter> m_parameters;  // to run the query again
};

}  // namespace mv::ado
