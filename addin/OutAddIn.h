#pragma once
// OutAddIn: the add-in's process-wide state for the life of a connection.
// So far it holds the two database connections, the general settings, the
// schema upgrade chain, rule ordering and the export/import of rules.
//
// Error policy: every procedure traps its own errors, reports them through
// the injected ErrorReport as "Error N (desc) in procedure <label>" and ends
// with its default result; nothing that ran before the error is undone.
// Seams come in through the constructor and must outlive the object.

#include "FormLauncher.h"
#include "frmMain.h"

#include "store/cDB.h"

#include "platform/office/CommandBars.h"
#include "platform/outlook/Windows.h"

#include <QDialog>
#include <QPointer>
#include <QString>
#include <QVariant>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace mv {
class ProgIdRegistry;
}
namespace mv::engine {
class RuleExecutor;
class RuleRunner;
class StatusForm;
}  // namespace mv::engine
namespace mv::journal {
class MoveJournal;
class StoreMover;
}  // namespace mv::journal
namespace mv::logging {
class cLogging;
class Logger;
}  // namespace mv::logging
namespace mv::office {
class CommandBar;
class CommandBarControl;
class CommandBars;
}  // namespace mv::office
namespace mv::os {
class Clipboard;
class Clock;
class ErrorReport;
class TimeZoneSource;
}  // namespace mv::os
namespace mv::outlook {
class Application;
class Explorer;
class Explorers;
class Folder;
class Inspector;
class Inspectors;
class Item;
class NameSpace;
class PropertyPages;
class SafeMailItem;
class SafeMapiUtils;
}  // namespace mv::outlook

namespace mv::addin {

class ExplWrap;
class InspWrap;

class OutAddIn : public ScheduleTarget {
public:
    // `installDir` holds "Database/_mvblank.mdb"; it is also the default
    // directory of the connections.
    // The add-in's Options page is registered in `progIds` for its lifetime.
    OutAddIn(os::ErrorReport& report, logging::Logger* log, ProgIdRegistry& progIds, os::Clock& clock,
             QString installDir = {});
    ~OutAddIn() override;
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
    std::int16_t RunOnStart() const override { return m_runOnStart; }
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

    // --- connection: start-up and shut-down ---
    // Everything an add-in needs from its host beyond the constructor's
    // seams. All optional; set before InitHandler.
    void SetClipboard(os::Clipboard* clipboard) { m_clipboard = clipboard; }
    void SetFormLauncher(FormLauncher* launcher) { m_forms = launcher ? launcher : &m_defaultForms; }
    // Runs rules through `runner` instead of the runner InitHandler builds
    // over the application's namespace. Not owned.
    void SetRunner(engine::RuleRunner* runner) { m_externalRunner = runner; }
    // Makes the status form of a run; default: a QDialog where widgets can
    // be shown, else a windowless one that logs progress.
    void SetStatusFormFactory(std::function<std::unique_ptr<engine::StatusForm>()> factory);
    // Where InitHandler resolves the application-data folder; default: the
    // special folder CSIDL_APPDATA. Tests point it at a temporary folder.
    void SetAppDataOverride(const QString& dir) { m_appDataOverride = dir; }

    // Brings the add-in up over `application`; never throws, each step that
    // fails is skipped. See OutAddInStartup.cpp for the order.
    void InitHandler(outlook::Application* application, const QString& progId);
    // Takes everything down; harmless when repeated or after a start-up that
    // stopped early.
    void UnInitHandler();

    outlook::Application* Application() const { return m_objOutlook; }
    outlook::NameSpace* NameSpace() const { return m_ns; }
    const QString& ProgId() const { return m_progId; }
    bool Unloaded() const { return m_unloaded; }
    const QString& EntryPoint() const { return m_entryPoint; }
    void SetEntryPoint(const QString& name) { m_entryPoint = name; }
    // The log opened at start-up, else the one given to the constructor.
    logging::Logger* Log() const { return m_log; }
    void WriteLog(int level, const QString& source, const QString& text) const noexcept;
    frmMain* MainForm() const { return m_frmMain.get(); }
    outlook::SafeMapiUtils* MapiUtils() const { return m_mapiUtils.get(); }
    outlook::SafeMailItem* SafeItem() const { return m_safeItem.get(); }
    QString DataDir() const { return m_dataDir; }

    // --- schedule (frmMain) and the rule runs ---
    void Run15MinuteRules() override;
    void RunImmediateRules() override;
    void RunAllRules() override;
    void SetRunOrigin(const QString& origin) override;
    bool FolderExist(const QString& entryIdHex, const QString& storeIdHex) const;
    engine::RuleRunner* Runner() const;
    // The shared run-cancel flag: the runners clear it, Cancel sets it.
    bool& CancelFlag() { return m_cancel; }

    // --- Explorer and Inspector tracking ---
    void AddExpl(outlook::Explorer* explorer);
    // Removes `wrapper` stored under `key`; false (error 1 "Unexpected Error
    // in KillExpl", swallowed by the callers) when another or none is there.
    bool KillExpl(std::int16_t key, ExplWrap* wrapper);
    void AddInsp(outlook::Inspector* inspector);
    bool KillInsp(const QString& key, InspWrap* wrapper);
    // Keys in the Explorer collection, ascending.
    std::vector<std::int16_t> ExplorerKeys() const;
    ExplWrap* ExplorerWrapper(std::int16_t key) const;
    // Entry ids (hex) of the items open in Inspectors.
    QStringList OpenItemIds() const;
    bool IsItemOpen(const QString& entryIdHex) const;
    bool NewExplorerFlag() const { return m_newExplorer; }
    void SetNewExplorerFlag(bool v) { m_newExplorer = v; }

    // --- command bars ---
    // Builds (or rebuilds) the "Mailvane" toolbar on `bars` when Toolbar is
    // non-zero, keeping the clipboard as it was.
    void BuildToolbar(office::CommandBars* bars);
    // The Tools menu's "Mailvane" popup with its four items.
    void BuildMenu(office::CommandBars* bars);
    // Stores the toolbar's position in the settings and saves them.
    void UpdateSettings() override;
    office::CommandBar* ToolbarBar() const;
    office::CommandBarControl* CBBRuleMgr() const { return m_cbbRuleMgr; }
    office::CommandBarControl* CBBAdd() const { return m_cbbAdd; }
    office::CommandBarControl* CBBUpdate() const { return m_cbbUpdate; }
    office::CommandBarControl* CBBRun() const { return m_cbbRun; }
    office::CommandBarControl* MenuItem(int n) const;  // cbrMenuItem1..4
    // "Undo Last Run", after the four items of the popup.
    office::CommandBarControl* MenuUndo() const { return m_menuUndo; }

    void CBBRuleMgr_Click();
    void CBBAdd_Click();
    void CBBUpdate_Click();
    void CBBRun_Click();
    void cbrMenuItem1_Click() { CBBRuleMgr_Click(); }
    void cbrMenuItem2_Click();
    void cbrMenuItem3_Click() { CBBUpdate_Click(); }
    void cbrMenuItem4_Click() { CBBRun_Click(); }
    void cbrMenuUndo_Click() { UndoLastRun(); }

    // The run the user asked for (toolbar, menu, Rules Manager): every
    // active rule, recorded as "on demand"; when it moved something, a
    // window says what, with an Undo button.
    void RunAllRulesOnDemand();
    // Names the last run and what undoing it moves back, asks, and takes it
    // back; a box says what could not be taken back. `run` 0: the last run.
    void UndoLastRun(qint64 run = 0);

    // --- application events ---
    void objOutlook_NewMail();
    void objOutlook_ItemSend(outlook::Item* item, bool& cancel);
    void objOutlook_Startup();
    void objOutlook_OptionsPagesAdd(outlook::PropertyPages* pages);
    void objExpl_Close();

    // The About box, modal; nothing where no window can be shown.
    void ShowAbout();

private:
    // Runs `step`, swallowing any error: the start-up and shut-down steps
    // and the window handlers run with errors ignored.
    static void Ignore(const std::function<void()>& step) noexcept;
    void HookApplication();
    // Holds `explorer` in objExpl and hooks its Close, as re-assigning the
    // member does: the previous one is unhooked.
    void HoldExplorer(outlook::Explorer* explorer);
    void PlaceDataFolder();
    void OpenLog();
    void CreateMapiHelpers();
    void LoadMainForm();
    void BuildOwnRunner();
    void OpenMoveJournal();
    bool SelectionEmpty() const;
    void BindClick(office::CommandBarControl* control, void (OutAddIn::*handler)());
    office::CommandBarControl* CreateButton(office::CommandBar* bar, const QString& caption, const QString& tag,
                                            const QString& tooltip, const QString& bitmap, bool beginGroup,
                                            int style);

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

    // Connection state.
    os::Clipboard* m_clipboard = nullptr;
    LoggingFormLauncher m_defaultForms{&m_log};
    FormLauncher* m_forms = &m_defaultForms;
    engine::RuleRunner* m_externalRunner = nullptr;
    std::function<std::unique_ptr<engine::StatusForm>()> m_statusFactory;
    QString m_appDataOverride;
    QString m_dataDir;
    QString m_progId;
    QString m_entryPoint = QStringLiteral("N/A");
    bool m_unloaded = false;
    bool m_cancel = false;
    bool m_newExplorer = false;

    // Receives the host's signals; deleting it unhooks every event at once.
    std::unique_ptr<QObject> m_events;
    outlook::Application* m_objOutlook = nullptr;
    outlook::NameSpace* m_ns = nullptr;
    QPointer<outlook::Inspectors> m_objInspectors;
    QPointer<outlook::Explorers> m_colExpl;
    QPointer<outlook::Explorer> m_objExpl;
    QMetaObject::Connection m_objExplClose;
    std::unique_ptr<logging::cLogging> m_logging;
    std::unique_ptr<logging::Logger> m_ownLog;
    std::unique_ptr<outlook::SafeMailItem> m_safeItem;
    std::unique_ptr<outlook::SafeMapiUtils> m_mapiUtils;
    std::unique_ptr<frmMain> m_frmMain;
    std::unique_ptr<os::TimeZoneSource> m_timeZone;
    // The move journal in the data folder and its mover; the executor
    // borrows the mover, so both outlive it.
    std::unique_ptr<journal::MoveJournal> m_journal;
    std::unique_ptr<journal::StoreMover> m_mover;
    std::unique_ptr<engine::RuleExecutor> m_executor;
    std::unique_ptr<engine::RuleRunner> m_runner;

    // Window wrappers: Explorers keyed by a counter that is never reused.
    std::map<std::int16_t, ExplWrap*> m_explorers;
    std::int16_t m_explCounter = 0;
    std::map<QString, InspWrap*> m_inspectors;

    // Command bars (owned by the host's bars; cleared when deleted).
    QPointer<office::CommandBar> m_cbToolbar;
    QPointer<office::CommandBarControl> m_cbbRuleMgr, m_cbbAdd, m_cbbUpdate, m_cbbRun;
    QPointer<office::CommandBar> m_toolsBar;
    QPointer<office::CommandBarControl> m_menuPopup;
    QPointer<office::CommandBarControl> m_menuUndo;
    QPointer<QDialog> m_summaryWindow;  // the last run summary, while open
    QPointer<office::CommandBarControl> m_menuItems[4];
};

}  // namespace mv::addin
