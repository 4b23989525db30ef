#pragma once
// OutAddIn: the add-in's process-wide state for the life of a connection.
// So far it holds the two database connections, the general settings, the
// schema upgrade chain, rule ordering and the export/import of rules.
//
// Error policy: every procedure traps its own errors, reports them through
// the injected ErrorReport as "Error N (desc) in procedure <label>" and ends
// with its default result; nothing that ran before the error is undone.
// Seams come in through the constructor and must outlive the object.

#include "store/cDB.h"

#include <QString>
#include <QVariant>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace mv {
class ProgIdRegistry;
}
namespace mv::logging {
class Logger;
}
namespace mv::os {
class Clock;
class ErrorReport;
}  // namespace mv::os
namespace mv::outlook {
class Folder;
}

namespace mv::addin {

class OutAddIn {
public:
    // `installDir` holds "Database/_mvblank.mdb"; it is also the default
    // directory of the connections.
    OutAddIn(os::ErrorReport& report, logging::Logger* log, ProgIdRegistry& progIds, os::Clock& clock,
             QString installDir = {});
    ~OutAddIn();
    OutAddIn(const OutAddIn&) = delete;
    OutAddIn& operator=(const OutAddIn&) = delete;

    // --- start-up pieces (the start-up sequence calls them in this order) ---
    // Puts "mv.mdb" into `dataDir` when it is missing: an old copy from the
    // installation folder first, else the blank template. An existing file
    // is never replaced. True when dataDir/mv.mdb exists afterwards.
    static bool PlaceDatabase(const QString& dataDir, const QString& installDir);
    // Opens connection 1 (then upgrades the schema and loads the settings)
    // and connection 2 on `databasePath`; a failure shows its message box
    // and start-up goes on. True when connection 1 opened.
    bool OpenDatabases(const QString& databasePath);
    // Closes and releases both connections; harmless when repeated.
    void CloseDatabases() noexcept;

    store::cDB* DB1() const { return m_db1.get(); }
    store::cDB* DB2() const { return m_db2.get(); }
    const QString& InstallDir() const { return m_installDir; }
    static QString AppTitle();

    // --- settings (in memory; only SaveSettings stores them) ---
    std::int16_t WeekStart() const { return m_weekStart; }
    void SetWeekStart(std::int16_t v) { m_weekStart = v; }
    std::int16_t Toolbar() const { return m_toolbar; }
    void SetToolbar(std::int16_t v) { m_toolbar = v; }
    std::int16_t Menubar() const { return m_menubar; }
    void SetMenubar(std::int16_t v) { m_menubar = v; }
    std::int16_t StatusPops() const { return m_statusPops; }
    void SetStatusPops(std::int16_t v) { m_statusPops = v; }
    std::int16_t AlignTime() const { return m_alignTime; }
    void SetAlignTime(std::int16_t v) { m_alignTime = v; }
    std::int16_t RunOnStart() const { return m_runOnStart; }
    void SetRunOnStart(std::int16_t v) { m_runOnStart = v; }
    // The toolbar's saved position and whether settings were ever saved.
    std::int16_t tbTop = 0;
    std::int16_t tbLeft = 0;
    std::int16_t tbRow = 0;
    std::int16_t tbPos = 1;
    std::int16_t init = 0;

    void LoadSettings();
    // Sets init to 1 and writes every general setting. True when written.
    bool SaveSettings();

    // --- schema upgrade ---
    void UpgradeDB();
    void UpgradeTo110();
    void UpgradeTo120();
    void UpgradeTo130();
    void UpgradeTo140();
    void UpgradeTo150();
    void UpgradeTo180();

    // --- rules ---
    std::int16_t GetMaxSortID();
    // Adds a rule with no criteria but read state between two folders, at the
    // end of the order. `msgAgeCode` and `flagCode` hold integers.
    bool CreateDefaultRule(const QString& ruleName, const outlook::Folder* source,
                           const outlook::Folder* destination, const QVariant& msgAgeCode,
                           const QVariant& flagCode);
    // The database halves of the Rules Manager's export and import: no
    // dialog, the path is given. Each shows its success box and returns true
    // on success.
    bool ExportRulesTo(const QString& path);
    bool ImportRulesFrom(const QString& path);

private:
    // Runs `body` under a handler labelled `label`: any error is reported
    // and ends the body. True when the body ran to its end.
    bool Trap(const QString& label, const std::function<void()>& body) noexcept;
    // Connection 1, or error 91 when there is none.
    store::cDB& Db1();
    // One upgrade step: the statements in order; the first one that fails
    // ends the step with its error.
    void RunUpgradeStep(const char* procedure, const std::vector<std::function<bool()>>& statements);
    std::function<bool()> Sql(const char* statement);

    os::ErrorReport& m_report;
    logging::Logger* m_log;
    ProgIdRegistry& m_progIds;
    os::Clock& m_clock;
    QString m_installDir;
    std::unique_ptr<store::cDB> m_db1;
    std::unique_ptr<store::cDB> m_db2;

    // Built-in values, used until LoadSettings reads the database: those of
    // the blank template, so a failed connection still shows the toolbar.
    std::int16_t m_weekStart = 2;
    std::int16_t m_toolbar = 1;
    std::int16_t m_menubar = 1;
    std::int16_t m_statusPops = 1;
    std::int16_t m_alignTime = 1;
    std::int16_t m_runOnStart = 0;
};

}  // namespace mv::addin
