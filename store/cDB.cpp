#include "cDB.h"

#include "AdoProgIds.h"
#include "VbConvert.h"

#include "platform/common/ProgIdRegistry.h"
#include "platform/os/ErrorReport.h"

#include <QFile>
#include <QStringList>

#include <algorithm>

namespace mv::store {

using ado::AdoError;

namespace {

const QString kAppTitle = QStringLiteral("Mailvane");

const QString kImportInsert = QStringLiteral(
    "INSERT INTO [Rules] ([RuleName], [FromAddress], [ToAddress], [CcAddress], [Subject], [Importance], "
    "[Status], [FlagStatus], [MsgAgeID], [SrcEntryID], [SrcStoreID], [DstEntryID], [DstStoreID], [Active], "
    "[SortID], [LastVerb], [Message])VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ");

// The import binds each field of a file row by position, so a file is
// importable exactly when its columns are in the table's order.
struct ImportColumn {
    int position;
    const char* name;
    int type;
};
constexpr ImportColumn kImportColumns[] = {
    {1, "RuleName", ado::adVarWChar},     {2, "FromAddress", ado::adVarWChar},
    {3, "ToAddress", ado::adVarWChar},    {4, "CcAddress", ado::adVarWChar},
    {5, "Subject", ado::adVarWChar},      {6, "Importance", ado::adInteger},
    {7, "Status", ado::adInteger},        {8, "FlagStatus", ado::adInteger},
    {9, "MsgAgeID", ado::adInteger},      {10, "SrcEntryID", ado::adLongVarChar},
    {11, "SrcStoreID", ado::adLongVarChar}, {12, "DstEntryID", ado::adLongVarChar},
    {13, "DstStoreID", ado::adLongVarChar}, {14, "Active", ado::adInteger},
    {15, "SortID", ado::adInteger},       {16, "LastVerb", ado::adInteger},
    {17, "Message", ado::adVarWChar},
};

// The Rules table's first column; the import skips its value.
constexpr const char* kKeyColumn = "RuleID";

// Binding by position puts a value in the wrong column when a file's
// columns stand in another order (swapped source and destination folders
// reverse a rule), so a file is taken only when its columns are the table's,
// name by name. Returns what differs first, or an empty text.
QString ColumnMismatch(const ado::Recordset& rs)
{
    QStringList expected{QString::fromLatin1(kKeyColumn)};
    for (const auto& col : kImportColumns) expected << QString::fromLatin1(col.name);
    const int found = rs.FieldCount();
    const QString intro = QStringLiteral("The file's columns are not those of the Rules table: ");
    const QString outro = QStringLiteral(". Nothing was imported.");
    for (int i = 0; i < std::max<int>(found, static_cast<int>(expected.size())); ++i) {
        if (i >= found)
            return intro +
                   QStringLiteral("column %1 should be \"%2\" but the file has only %3 columns")
                       .arg(i + 1)
                       .arg(expected.at(i))
                       .arg(found) +
                   outro;
        const QString name = rs.Fields(i).Name();
        if (i >= expected.size())
            return intro +
                   QStringLiteral("column %1 is \"%2\" but the table has only %3 columns")
                       .arg(i + 1)
                       .arg(name)
                       .arg(expected.size()) +
                   outro;
        if (name.compare(expected.at(i), Qt::CaseInsensitive) != 0)
            return intro + QStringLiteral("column %1 should be \"%2\" but is \"%3\"").arg(i + 1).arg(expected.at(i), name) +
                   outro;
    }
    return {};
}

// VB's Trim: spaces only.
QString TrimSpaces(const QString& s)
{
    qsizetype b = 0, e = s.size();
    while (b < e && s.at(b) == u' ') ++b;
    while (e > b && s.at(e - 1) == u' ') --e;
    return s.mid(b, e - b);
}

[[noreturn]] void Raise(long number, const char* source, const char* description)
{
    throw AdoError(number, QString::fromLatin1(source), QString::fromLatin1(description));
}

// Len(value) + 1; a null has no length, which the runtime reports as such.
long TextSize(const QVariant& value)
{
    return static_cast<long>(CStr(value).size()) + 1;
}

}  // namespace

cDB::cDB(const ProgIdRegistry& progIds, os::ErrorReport& report, QString installDir)
    : m_progIds(progIds), m_report(report), m_installDir(std::move(installDir))
{
}

cDB::~cDB()
{
    KillDB();
}

void cDB::Remember(long number, const QString& description)
{
    m_lastErrorNumber = number;
    m_lastErrorDescription = description;
}

// Called from a catch block: keeps the number and description of the error
// being handled, whatever its type.
void cDB::RememberCurrentError() noexcept
{
    try {
        throw;
    } catch (const AdoError& e) {
        Remember(e.Number(), e.Description());
    } catch (const std::exception& e) {
        Remember(ado::kErrProviderGeneric, QString::fromLocal8Bit(e.what()));
    } catch (...) {
        Remember(ado::kErrProviderGeneric, QStringLiteral("Unknown error"));
    }
}

void cDB::Report(const QString& label)
{
    m_report.ShowProcedureError(m_lastErrorNumber, m_lastErrorDescription, label);
}

QString cDB::Apostrophe(QString& text) const
{
    if (!text.contains(u'\'')) return text;
    // Walk by index and re-read the length after each insert, skipping the
    // quote just added, so every original apostrophe is doubled exactly once.
    qsizetype i = 1;
    while (i <= text.size()) {
        if (text.at(i - 1) == u'\'') {
            text = text.left(i) + u'\'' + text.right(text.size() - i);
            ++i;
        }
        ++i;
    }
    return text;
}

QString cDB::BuildConnectionString(int connectionKind, const QString& path, const QString& user,
                                   const QString& password, const QString& defaultDir)
{
    switch (connectionKind) {
    case kConnectOdbc:
        // The password follows the literal ";PWD=;" rather than sitting inside
        // it; the add-in never opens this kind with a password.
        return QStringLiteral("Driver={Microsoft Access Driver (*.mdb)};DBQ=") + TrimSpaces(path) +
               QStringLiteral(";DefaultDir=") + TrimSpaces(defaultDir) + QStringLiteral(";UID=") +
               TrimSpaces(user) + QStringLiteral(";PWD=;") + TrimSpaces(password);
    case kConnectJet:
        return QStringLiteral("Provider=Microsoft.Jet.OLEDB.4.0;") + QStringLiteral("Data Source=") +
               TrimSpaces(path) + QStringLiteral(";") + QStringLiteral("Jet OLEDB:Database Password=;") +
               QStringLiteral("Jet OLEDB:Engine Type=5;");
    default:
        return {};
    }
}

bool cDB::InitDB(const QString& databasePath, const QString& user, const QString& password,
                 const QString& defaultDir, int connectionKind)
{
    try {
        m_conn = m_progIds.Create<ado::Connection>(QString::fromLatin1(kProgIdConnection));
        if (!m_conn) Raise(kErrDb1000, "InitDB", "Failed to create Connection object.");
        QString dir = defaultDir;
        if (TrimSpaces(dir).isEmpty()) dir = m_installDir + QStringLiteral("/");
        if (connectionKind == kConnectOdbc || connectionKind == kConnectJet) {
            m_connectString = BuildConnectionString(connectionKind, databasePath, user, password, dir);
            m_conn->SetConnectionString(m_connectString);
        } else {
            // Any other kind keeps the object's own (empty) string; the open fails.
            m_connectString = m_conn->ConnectionString();
        }
        m_conn->Open(m_connectString, QString(), QString(), -1);
        return true;
    } catch (...) {
        RememberCurrentError();
    }
    return false;
}

void cDB::KillDB() noexcept
{
    try {
        if (m_conn) m_conn->Close();
    } catch (...) {
        // Shut-down goes on whatever the provider says.
    }
    m_conn.reset();
}

bool cDB::CreateRS(std::unique_ptr<ado::Recordset>& rs, const QString& sql)
{
    rs.reset();
    try {
        if (!m_conn) Raise(kErrDb1000, "cDB.CreateRS", "Database connection is invalid");
        if (m_conn->State() == ado::adStateClosed) m_conn->Open(m_connectString, QString(), QString(), -1);
        auto newRs = m_progIds.Create<ado::Recordset>(QString::fromLatin1(kProgIdRecordset));
        if (!newRs) Raise(kErrDb1002, "cDB.CreateRS", "Failed to create Recordset object.");
        auto cmd = m_progIds.Create<ado::Command>(QString::fromLatin1(kProgIdCommand));
        if (!cmd) Raise(kErrDb1003, "cDB.CreateRS", "Failed to create Command object.");
        cmd->SetActiveConnection(m_conn.get());
        cmd->SetCommandText(sql);
        newRs->SetCursorLocation(ado::adUseClient);
        newRs->SetStayInSync(true);
        newRs->SetCacheSize(1);
        newRs->Open(*cmd, ado::adOpenDynamic, ado::adLockBatchOptimistic, -1);
        cmd->SetActiveConnection(nullptr);
        rs = std::move(newRs);
        return true;
    } catch (...) {
        RememberCurrentError();
    }
    return false;
}

bool cDB::ExecuteSQL(const QString& sql, ado::Command* command)
{
    try {
        if (!m_conn) Raise(kErrDb1000, "cDB.ExecuteSQL", "Database connection is invalid");
        if (m_conn->State() == ado::adStateClosed) Raise(kErrDb1001, "cDB.ExecuteSQL", "Database connection is closed");
        auto cmd = m_progIds.Create<ado::Command>(QString::fromLatin1(kProgIdCommand));
        if (!cmd) Raise(kErrDb1002, "cDB.ExecuteSQL", "Failed to create Command object.");
        if (!command) {
            cmd->SetActiveConnection(m_conn.get());
            cmd->SetCommandType(ado::adCmdText);
            cmd->SetCommandText(sql);
            cmd->Execute(ado::adExecuteNoRecords);
            return true;
        }
        command->SetActiveConnection(m_conn.get());
        command->Execute(ado::adExecuteNoRecords);
        auto identity = m_conn->Execute(QStringLiteral("SELECT @@Identity"), ado::adCmdText);
        if (!identity) Raise(kErrDb1003, "cDB.ExecuteSQL", "Failed to create Recordset object.");
        m_newId = CLng(identity->Fields(0).Value());
        identity->Close();
        return true;
    } catch (...) {
        RememberCurrentError();
    }
    Report(QStringLiteral("ExecuteSQL, Contact Sorquin Support"));
    return false;
}

std::int32_t cDB::RecordCount(ado::Recordset& rs)
{
    try {
        // The bookmark read fails at BOF/EOF, which makes the count 0 there.
        const auto mark = rs.GetBookmark();
        rs.MoveFirst();
        const auto count = static_cast<std::int32_t>(rs.RecordCount());
        rs.SetBookmark(mark);
        return count;
    } catch (...) {
        RememberCurrentError();
    }
    return 0;
}

bool cDB::FindDB(int direction, const QString& criteria, ado::Recordset& rs)
{
    try {
        const auto mark = rs.GetBookmark();
        bool notFound = false;
        switch (direction) {
        case dbFirst:
            rs.MoveFirst();
            rs.Find(criteria, 0, ado::adSearchForward);
            notFound = rs.IsEOF();
            break;
        case dbLast:
            rs.MoveLast();
            rs.Find(criteria, 0, ado::adSearchBackward);
            notFound = rs.IsBOF();
            break;
        case dbNext:
            rs.Find(criteria, 1, ado::adSearchForward);
            notFound = rs.IsEOF();
            break;
        case dbPrevious:
            rs.Find(criteria, 1, ado::adSearchBackward);
            notFound = rs.IsBOF();
            break;
        default:
            // Unknown directions are accepted and do nothing.
            return true;
        }
        if (notFound) {
            rs.SetBookmark(mark);
            return false;
        }
        return true;
    } catch (...) {
        RememberCurrentError();
    }
    return false;
}

bool cDB::MoveDB(int direction, ado::Recordset& rs)
{
    try {
        switch (direction) {
        case dbFirst:
            rs.MoveFirst();
            break;
        case dbLast:
            rs.MoveLast();
            break;
        case dbNext:
            rs.MoveNext();
            if (rs.IsEOF()) {
                rs.MoveLast();
                return false;
            }
            break;
        case dbPrevious:
            rs.MovePrevious();
            if (rs.IsBOF()) {
                rs.MoveFirst();
                return false;
            }
            break;
        default:
            break;
        }
        rs.Resync(ado::adAffectCurrent, ado::adResyncAllValues);
        return true;
    } catch (...) {
        RememberCurrentError();
    }
    return false;
}

bool cDB::Export(const QString& sql, const QString& filePath)
{
    try {
        if (!m_conn) Raise(ado::kErrObjectClosed, "Export", "Database connection is invalid");
        ado::Recordset rs;
        rs.SetCursorLocation(ado::adUseClient);
        rs.Open(sql, *m_conn, ado::adOpenUnspecified, ado::adLockUnspecified, -1);
        // The old file goes only once the rows are in hand, so a failing
        // query leaves the previous export where it was.
        if (QFile::exists(filePath) && !QFile::remove(filePath))
            throw AdoError(ado::kErrProviderGeneric, QStringLiteral("Export"),
                           QStringLiteral("Cannot replace the file %1").arg(filePath));
        rs.Save(filePath, ado::adPersistXML);
        rs.Close();
        return true;
    } catch (...) {
        RememberCurrentError();
    }
    Report(QStringLiteral("Export of Class Module cDB"));
    return false;
}

bool cDB::Import(const QString& filePath)
{
    try {
        auto rs = m_progIds.Create<ado::Recordset>(QString::fromLatin1(kProgIdRecordset));
        if (!rs) Raise(kErrDb1002, "Import", "Failed to create Recordset object.");
        rs->SetCursorLocation(ado::adUseClient);
        rs->OpenFile(filePath, QStringLiteral("Provider=MSPersist"), ado::adOpenUnspecified,
                     ado::adLockUnspecified, -1);
        if (const QString mismatch = ColumnMismatch(*rs); !mismatch.isEmpty())
            throw AdoError(ado::kErrProviderGeneric, QStringLiteral("Import"), mismatch);
        while (!rs->IsEOF()) {
            auto cmd = m_progIds.Create<ado::Command>(QString::fromLatin1(kProgIdCommand));
            if (!cmd) Raise(kErrDb1001, "Import", "Failed to create Command object.");
            cmd->SetCommandType(ado::adCmdText);
            cmd->SetCommandText(kImportInsert);
            for (const auto& col : kImportColumns) {
                QVariant value = rs->Fields(col.position).Value();
                long size = 10;
                if (col.type != ado::adInteger) {
                    if (col.position == 17 && (!value.isValid() || value.isNull())) {
                        value = QString();
                        size = 1;
                    } else {
                        size = TextSize(value);
                    }
                }
                cmd->AppendParameter(
                    cmd->CreateParameter(QString::fromLatin1(col.name), col.type, ado::adParamInput, size, value));
            }
            if (!ExecuteSQL(QString(), cmd.get())) {
                m_report.answerer().Show(
                    QStringLiteral("There was a problem importing the data.\n\n"
                                   "If this problem persists, please contact Sorquin support."),
                    os::vbExclamation, kAppTitle);
                return false;
            }
            rs->MoveNext();
        }
        rs->Close();
        return true;
    } catch (...) {
        RememberCurrentError();
    }
    Report(QStringLiteral("Import of Class Module cDB"));
    return false;
}

bool cDB::AppendField(const QString& tableName, const QString& fieldName, int fieldType, bool allowZeroLength)
{
    try {
        auto catalog = m_progIds.Create<ado::Catalog>(QString::fromLatin1(kProgIdCatalog));
        if (!catalog) Raise(kErrDb1000, "AppendField", "Failed to create Catalog object.");
        catalog->SetActiveConnection(m_conn.get());
        auto table = m_progIds.Create<ado::Table>(QString::fromLatin1(kProgIdTable));
        if (!table) Raise(kErrDb1001, "AppendField", "Failed to create Table object.");
        table->Name = tableName;
        auto column = m_progIds.Create<ado::Column>(QString::fromLatin1(kProgIdColumn));
        if (!column) Raise(kErrDb1002, "AppendField", "Failed to create Column object.");
        column->ParentCatalog = catalog.get();
        column->Name = fieldName;
        column->Type = fieldType;
        if (allowZeroLength) column->Properties.insert(QStringLiteral("Jet OLEDB:Allow Zero Length"), true);
        catalog->AppendColumn(tableName, *column, ado::adVarWChar, 0);
        return true;
    } catch (...) {
        RememberCurrentError();
    }
    Report(QStringLiteral("AppendField"));
    return false;
}

}  // namespace mv::store
