#include "Recordset.h"

#include "Command.h"
#include "Connection.h"
#include "FindCriteria.h"
#include "RowsetReader.h"
#include "RowsetXml.h"
#include "Sqlite.h"

#include <QStringList>

#include <map>

namespace mv::ado {

namespace {

[[noreturn]] void NoCurrentRecord()
{
    throw AdoError(kErrNoCurrentRecord, kProviderSource,
                   QStringLiteral("Either BOF or EOF is True, or the current record has been deleted. "
                                  "Requested operation requires a current record."));
}

[[noreturn]] void ItemNotFound(const QString& what)
{
    throw AdoError(kErrItemNotFound, kProviderSource,
                   QStringLiteral("Item cannot be found in the collection corresponding to the requested name or "
                                  "ordinal: %1").arg(what));
}

}  // namespace

QString Field::Name() const
{
    return m_rs->m_data.columns[static_cast<size_t>(m_index)].name;
}

QVariant Field::Value() const
{
    return m_rs->CurrentValue(m_index);
}

int Field::Type() const
{
    return m_rs->m_data.columns[static_cast<size_t>(m_index)].type;
}

int Field::DefinedSize() const
{
    return m_rs->m_data.columns[static_cast<size_t>(m_index)].definedSize;
}

Recordset::Recordset() = default;
Recordset::~Recordset() = default;

void Recordset::RequireOpen() const
{
    if (!m_open)
        throw AdoError(kErrObjectClosed, kProviderSource,
                       QStringLiteral("Operation is not allowed when the object is closed."));
}

void Recordset::RequireCurrent() const
{
    RequireOpen();
    if (IsBOF() || IsEOF()) NoCurrentRecord();
}

void Recordset::Take(Recordset& other, Connection* source, const QString& sql)
{
    if (other.m_open) OpenData(std::move(other.m_data), source, sql);
}

void Recordset::Open(Command& source, int, int, int options)
{
    if (m_open)
        throw AdoError(kErrObjectOpen, kProviderSource, QStringLiteral("Operation is not allowed when the object is open."));
    std::unique_ptr<Recordset> result = source.Execute(options == adExecuteNoRecords ? adOptionUnspecified : options);
    if (!result) return;
    Take(*result, source.ActiveConnection(), source.CommandText());
    m_parameters = source.Parameters();
}

void Recordset::Open(const QString& sql, Connection& connection, int, int, int)
{
    if (m_open)
        throw AdoError(kErrObjectOpen, kProviderSource, QStringLiteral("Operation is not allowed when the object is open."));
    std::unique_ptr<Recordset> result = connection.Execute(sql);
    if (!result) return;
    Take(*result, &connection, sql);
    m_parameters.clear();
}

void Recordset::OpenFile(const QString& path, const QString& connect, int, int, int)
{
    if (m_open)
        throw AdoError(kErrObjectOpen, kProviderSource, QStringLiteral("Operation is not allowed when the object is open."));
    if (!connect.contains(QLatin1String("MSPersist"), Qt::CaseInsensitive))
        throw AdoError(kErrInvalidArgument, kProviderSource,
                       QStringLiteral("A saved recordset opens only through \"Provider=MSPersist\", not \"%1\"").arg(connect));
    OpenData(RowsetXml::ReadFile(path), nullptr, {});
}

void Recordset::OpenData(RowsetData data, Connection* source, const QString& sql)
{
    m_data = std::move(data);
    m_source = source;
    m_sourceAlive = source ? source->Lifetime() : std::weak_ptr<const void>();
    m_sql = sql;
    m_open = true;
    m_pos = m_data.rows.empty() ? 0 : 1;
}

void Recordset::Close()
{
    m_data = {};
    m_parameters.clear();
    m_open = false;
    m_pos = 0;
    m_source = nullptr;
    m_sourceAlive.reset();
}

int Recordset::FieldCount() const
{
    RequireOpen();
    return static_cast<int>(m_data.columns.size());
}

Field Recordset::Fields(int index) const
{
    RequireOpen();
    if (index < 0 || index >= static_cast<int>(m_data.columns.size())) ItemNotFound(QString::number(index));
    return Field(this, index);
}

Field Recordset::Fields(const QString& name) const
{
    RequireOpen();
    const int index = m_data.columnIndex(name);
    if (index < 0) ItemNotFound(name);
    return Field(this, index);
}

const QVariant& Recordset::CurrentValue(int index) const
{
    RequireCurrent();
    return m_data.rows[static_cast<size_t>(m_pos - 1)][static_cast<size_t>(index)];
}

bool Recordset::IsBOF() const
{
    RequireOpen();
    return m_data.rows.empty() || m_pos == 0;
}

bool Recordset::IsEOF() const
{
    RequireOpen();
    return m_data.rows.empty() || m_pos > static_cast<long>(m_data.rows.size());
}

long Recordset::RecordCount() const
{
    RequireOpen();
    return static_cast<long>(m_data.rows.size());
}

Recordset::Bookmark Recordset::GetBookmark() const
{
    RequireCurrent();
    return m_pos;
}

void Recordset::SetBookmark(Bookmark bookmark)
{
    RequireOpen();
    if (bookmark < 1 || bookmark > static_cast<long>(m_data.rows.size()))
        throw AdoError(kErrBookmarkInvalid, kProviderSource, QStringLiteral("The bookmark %1 is invalid.").arg(bookmark));
    m_pos = bookmark;
}

void Recordset::MoveFirst()
{
    RequireOpen();
    if (m_data.rows.empty()) NoCurrentRecord();
    m_pos = 1;
}

void Recordset::MoveLast()
{
    RequireOpen();
    if (m_data.rows.empty()) NoCurrentRecord();
    m_pos = static_cast<long>(m_data.rows.size());
}

void Recordset::MoveNext()
{
    if (IsEOF()) NoCurrentRecord();
    ++m_pos;
}

void Recordset::MovePrevious()
{
    if (IsBOF()) NoCurrentRecord();
    --m_pos;
}

void Recordset::Find(const QString& criteria, long skip, int direction, Bookmark start)
{
    RequireOpen();
    const FindCriteria find = FindCriteria::Parse(criteria);
    const int column = m_data.columnIndex(find.Column());
    if (column < 0) ItemNotFound(find.Column());
    const long count = static_cast<long>(m_data.rows.size());
    if (count == 0) return;
    long pos = 0;
    if (start != 0) {
        if (start < 1 || start > count)
            throw AdoError(kErrBookmarkInvalid, kProviderSource, QStringLiteral("The bookmark %1 is invalid.").arg(start));
        pos = start;
    } else {
        RequireCurrent();
        pos = m_pos;
    }
    const long step = direction == adSearchBackward ? -1 : 1;
    for (pos += step * skip; pos >= 1 && pos <= count; pos += step) {
        if (find.Matches(m_data.rows[static_cast<size_t>(pos - 1)][static_cast<size_t>(column)])) {
            m_pos = pos;
            return;
        }
    }
    m_pos = step > 0 ? count + 1 : 0;
}

// The columns that hold the complete primary key of the recordset's only
// base table; empty when the rows cannot be re-read by key alone.
std::vector<int> Recordset::KeyColumns() const
{
    QString table;
    std::vector<int> keys;
    for (size_t i = 0; i < m_data.columns.size(); ++i) {
        const RowsetColumn& c = m_data.columns[i];
        if (c.baseTable.isEmpty()) return {};
        if (table.isEmpty()) table = c.baseTable;
        else if (c.baseTable.compare(table, Qt::CaseInsensitive) != 0) return {};
        if (c.keyColumn) keys.push_back(static_cast<int>(i));
    }
    if (keys.empty() || !m_source || !m_source->Handle()) return {};
    const QString pragma = QStringLiteral("PRAGMA table_info(%1)").arg(sqlite::QuoteName(table));
    auto st = sqlite::Prepare(m_source->Handle(), pragma);
    size_t pkCount = 0;
    while (sqlite::Step(m_source->Handle(), st.get(), pragma) == SQLITE_ROW)
        if (sqlite3_column_int(st.get(), 5) > 0) ++pkCount;
    return pkCount == keys.size() ? keys : std::vector<int>{};
}

bool Recordset::ResyncByKey(const std::vector<long>& rows)
{
    const std::vector<int> keys = KeyColumns();
    if (keys.empty()) return false;
    sqlite3* db = m_source->Handle();
    QStringList columns;
    for (const RowsetColumn& c : m_data.columns) columns << sqlite::QuoteName(c.baseColumn);
    QStringList where;
    for (size_t k = 0; k < keys.size(); ++k)
        where << QStringLiteral("%1 = ?%2").arg(sqlite::QuoteName(m_data.columns[size_t(keys[k])].baseColumn)).arg(k + 1);
    const QString sql = QStringLiteral("SELECT %1 FROM %2 WHERE %3")
                            .arg(columns.join(QStringLiteral(", ")), sqlite::QuoteName(m_data.columns[0].baseTable),
                                 where.join(QStringLiteral(" AND ")));
    auto st = sqlite::Prepare(db, sql);
    for (long r : rows) {
        std::vector<QVariant>& row = m_data.rows[static_cast<size_t>(r - 1)];
        sqlite3_reset(st.get());
        for (size_t k = 0; k < keys.size(); ++k) {
            const QVariant& v = row[size_t(keys[k])];
            const int index = static_cast<int>(k + 1);
            if (v.typeId() == QMetaType::Int || v.typeId() == QMetaType::LongLong) {
                sqlite3_bind_int64(st.get(), index, v.toLongLong());
            } else {
                const QByteArray text = v.toString().toUtf8();
                sqlite3_bind_text(st.get(), index, text.constData(), int(text.size()), SQLITE_TRANSIENT);
            }
        }
        if (sqlite::Step(db, st.get(), sql) != SQLITE_ROW) continue;  // deleted meanwhile: keep the old values
        for (size_t c = 0; c < m_data.columns.size(); ++c)
            row[c] = RowsetReader::Value(st.get(), static_cast<int>(c), m_data.columns[c].type);
    }
    return true;
}

void Recordset::ResyncByRequery(const std::vector<long>& rows)
{
    std::unique_ptr<Recordset> fresh = m_source->Execute(m_sql, m_parameters);
    if (!fresh || !fresh->m_open || fresh->m_data.columns.size() != m_data.columns.size()) return;
    auto& now = fresh->m_data.rows;
    // Match rows by the first key column found in the result (RuleID in a
    // join of Rules with MsgAge), else by position.
    int key = -1;
    for (size_t i = 0; i < m_data.columns.size() && key < 0; ++i)
        if (m_data.columns[i].keyColumn) key = static_cast<int>(i);
    std::map<QString, size_t> byKey;
    if (key >= 0)
        for (size_t i = 0; i < now.size(); ++i) byKey.emplace(now[i][size_t(key)].toString(), i);
    for (long r : rows) {
        std::vector<QVariant>& row = m_data.rows[static_cast<size_t>(r - 1)];
        if (key >= 0) {
            auto it = byKey.find(row[size_t(key)].toString());
            if (it != byKey.end()) row = now[it->second];
        } else if (static_cast<size_t>(r) <= now.size()) {
            row = now[static_cast<size_t>(r - 1)];
        }
    }
}

void Recordset::Resync(int affectRecords, int)
{
    RequireOpen();
    if (!m_source)
        throw AdoError(kErrInvalidConnection, kProviderSource,
                       QStringLiteral("This recordset was not read from a database and cannot be resynchronised."));
    if (m_sourceAlive.expired())
        throw AdoError(kErrInvalidConnection, kProviderSource,
                       QStringLiteral("The connection of this recordset no longer exists; it cannot be resynchronised."));
    if (m_source->State() != adStateOpen)
        throw AdoError(kErrInvalidConnection, kProviderSource,
                       QStringLiteral("The connection of this recordset is closed; it cannot be resynchronised."));
    std::vector<long> rows;
    if (affectRecords == adAffectCurrent) {
        RequireCurrent();
        rows.push_back(m_pos);
    } else {
        for (long r = 1; r <= static_cast<long>(m_data.rows.size()); ++r) rows.push_back(r);
    }
    if (rows.empty()) return;
    if (!ResyncByKey(rows)) ResyncByRequery(rows);
}

void Recordset::Save(const QString& path, int persistFormat) const
{
    RequireOpen();
    if (persistFormat != adPersistXML)
        throw AdoError(kErrInvalidArgument, kProviderSource,
                       QStringLiteral("Only the XML persistence format (1) is supported."));
    RowsetXml::WriteFile(m_data, path);
}

}  // namespace mv::ado
