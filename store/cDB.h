#pragma once
// cDB: the one door to the rule database. It owns one ADO connection, opens
// client-side recordsets, runs statements (plain text or a prepared command
// with "?" parameters), remembers the identity of the last prepared insert,
// steps and searches recordsets, and moves the Rules table to and from ADO's
// XML persistence format.
//
// Error policy: no call throws. Every operation catches at its own boundary
// and ends with its default result (false, 0, empty); what it did before the
// failure stays done. ExecuteSQL, Export, Import and AppendField also report
// the error through the injected ErrorReport; the others only return their
// default, because their callers decide what to tell the user. The number and
// description of the last caught error stay readable (LastErrorNumber /
// LastErrorDescription) so a caller can report it under its own name.
//
// The ADO objects come from the ProgID registry ("ADODB.Connection",
// "ADODB.Recordset", "ADODB.Command", "ADOX.Catalog", "ADOX.Table",
// "ADOX.Column") so each creation can fail where a missing component would.

#include "platform/ado/Catalog.h"
#include "platform/ado/Command.h"
#include "platform/ado/Connection.h"
#include "platform/ado/Recordset.h"

#include <QString>

#include <cstdint>
#include <memory>

namespace mv {
class ProgIdRegistry;
}
namespace mv::os {
class ErrorReport;
}

namespace mv::store {

// Error numbers of the class: the COM object-error base plus 1000..1003.
inline constexpr long kErrDb1000 = static_cast<long>(0x800403E8);
inline constexpr long kErrDb1001 = static_cast<long>(0x800403E9);
inline constexpr long kErrDb1002 = static_cast<long>(0x800403EA);
inline constexpr long kErrDb1003 = static_cast<long>(0x800403EB);

// Connection kinds InitDB understands.
inline constexpr int kConnectOdbc = 3;
inline constexpr int kConnectJet = 4;

// Directions of FindDB and MoveDB.
enum DbDirection : int { dbFirst = 1, dbLast = 2, dbNext = 3, dbPrevious = 4 };

class cDB {
public:
    // `installDir` is the installation folder, used as the default directory
    // of an ODBC connection string. The registry and report must outlive this.
    cDB(const ProgIdRegistry& progIds, os::ErrorReport& report, QString installDir);
    ~cDB();
    cDB(const cDB&) = delete;
    cDB& operator=(const cDB&) = delete;

    // Doubles every apostrophe; rewrites `text` in place and returns it.
    QString Apostrophe(QString& text) const;

    [[nodiscard]] bool InitDB(const QString& databasePath, const QString& user, const QString& password,
                              const QString& defaultDir, int connectionKind);
    void KillDB() noexcept;

    // Opens a client-side recordset for `sql`; reopens a closed connection.
    // On failure `rs` is left empty.
    [[nodiscard]] bool CreateRS(std::unique_ptr<ado::Recordset>& rs, const QString& sql);

    // Runs `sql` without results, or, when `command` is given, runs that
    // command on this connection (its own text and parameters; `sql` is
    // ignored) and captures the new identity. The caller keeps the command.
    [[nodiscard]] bool ExecuteSQL(const QString& sql, ado::Command* command = nullptr);

    // Identity captured by the last ExecuteSQL given a prepared command.
    std::int32_t NewID() const { return m_newId; }

    std::int32_t RecordCount(ado::Recordset& rs);
    [[nodiscard]] bool FindDB(int direction, const QString& criteria, ado::Recordset& rs);
    [[nodiscard]] bool MoveDB(int direction, ado::Recordset& rs);

    // Writes the rows of `sql` to `filePath` as rowset XML, replacing any file
    // there. True on success (callers may ignore it, as the add-in does).
    bool Export(const QString& sql, const QString& filePath);
    // Appends the rules of an exported file to Rules; false (and a message
    // box) on failure, keeping the rows inserted before it. A file whose
    // columns are not the table's, in name and order, is refused before any
    // insert; the report names the first column that differs.
    [[nodiscard]] bool Import(const QString& filePath);

    [[nodiscard]] bool AppendField(const QString& tableName, const QString& fieldName, int fieldType,
                                   bool allowZeroLength);

    // The connection string InitDB built (also kept when the open failed).
    const QString& ConnectionString() const { return m_connectString; }
    // The live connection, or nullptr; for readers that need the handle.
    ado::Connection* Connection() const { return m_conn.get(); }

    long LastErrorNumber() const { return m_lastErrorNumber; }
    const QString& LastErrorDescription() const { return m_lastErrorDescription; }

    static QString BuildConnectionString(int connectionKind, const QString& path, const QString& user,
                                         const QString& password, const QString& defaultDir);

private:
    void Remember(long number, const QString& description);
    void RememberCurrentError() noexcept;
    void Report(const QString& label);

    const ProgIdRegistry& m_progIds;
    os::ErrorReport& m_report;
    QString m_installDir;
    std::unique_ptr<ado::Connection> m_conn;
    QString m_connectString;
    std::int32_t m_newId = 0;
    long m_lastErrorNumber = 0;
    QString m_lastErrorDescription;
};

}  // namespace mv::store
