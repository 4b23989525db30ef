// Start-up and shut-down of the connection, and the application's events.

#include "ExplWrap.h"
#include "InspWrap.h"
#include "OutAddIn.h"

#include "platform/common/ProgIdRegistry.h"
#include "platform/logging/Logger.h"
#include "platform/office/CommandBars.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/KnownFolders.h"
#include "platform/outlook/Application.h"
#include "platform/outlook/SafeLib.h"
#include "platform/outlook/SafeMailItem.h"
#include "platform/outlook/SafeMapiUtils.h"

#include "engine/RuleExecutor.h"
#include "engine/RuleRunner.h"
#include "platform/journal/MoveJournal.h"
#include "platform/journal/StoreMover.h"

#include <QDir>

namespace mv::addin {

void OutAddIn::Ignore(const std::function<void()>& step) noexcept
{
    try {
        step();
    } catch (...) {  // NOLINT(bugprone-empty-catch): errors are ignored here by design
    }
}

void OutAddIn::WriteLog(int level, const QString& source, const QString& text) const noexcept
{
    // Before start-up opened the log (or without a window) lines are dropped.
    if (m_log) m_log->Write(level, source, text);
}

void OutAddIn::InitHandler(outlook::Application* application, const QString& progId)
{
    m_objOutlook = application;
    m_progId = progId;
    m_unloaded = false;
    m_entryPoint = QStringLiteral("N/A");
    Ignore([&] { HookApplication(); });
    Ignore([&] { m_ns = m_objOutlook ? m_objOutlook->GetNamespace(QStringLiteral("MAPI")) : nullptr; });
    Ignore([&] { m_objInspectors = m_objOutlook ? m_objOutlook->GetInspectors() : nullptr; });
    Ignore([&] {
        if (m_objInspectors)
            QObject::connect(m_objInspectors, &outlook::Inspectors::NewInspector, m_events.get(),
                             [this](outlook::Inspector* insp) { Ignore([&] { AddInsp(insp); }); });
    });

    // Started without a window (by another program): stay idle.
    if (!m_objOutlook || !m_objOutlook->ActiveExplorer()) return;

    Ignore([&] { PlaceDataFolder(); });
    Ignore([&] { OpenLog(); });
    Ignore([&] { CreateMapiHelpers(); });
    // An existing database is never replaced; a missing template shows up
    // as the failed connection below.
    Ignore([&] { PlaceDatabase(m_dataDir, m_installDir); });
    Ignore([&] { OpenDatabases(m_dataDir + QStringLiteral("/mv.mdb")); });
    Ignore([&] { BuildOwnRunner(); });
    Ignore([&] { LoadMainForm(); });
    Ignore([&] {
        m_colExpl = m_objOutlook->GetExplorers();
        if (m_colExpl)
            QObject::connect(m_colExpl, &outlook::Explorers::NewExplorer, m_events.get(),
                             [this](outlook::Explorer* expl) {
                                 m_newExplorer = true;
                                 Ignore([&] { AddExpl(expl); });
                             });
    });
    Ignore([&] { HoldExplorer(m_objOutlook->ActiveExplorer()); });
    Ignore([&] {
        WriteLog(3, QStringLiteral("InitHandler"), QStringLiteral("Adding new Explorer to collection"));
        AddExpl(m_objOutlook->ActiveExplorer());
    });
    Ignore([&] { BuildToolbar(m_objOutlook->ActiveExplorer()->CommandBars()); });
    Ignore([&] {
        if (m_menubar > 0) BuildMenu(m_objOutlook->ActiveExplorer()->CommandBars());
    });
}

void OutAddIn::HookApplication()
{
    m_events = std::make_unique<QObject>();
    if (!m_objOutlook) return;
    QObject* ctx = m_events.get();
    outlook::Application* app = m_objOutlook;
    QObject::connect(app, &outlook::Application::NewMail, ctx, [this] { objOutlook_NewMail(); });
    QObject::connect(app, &outlook::Application::ItemSend, ctx,
                     [this](outlook::Item* item, bool& cancel) { objOutlook_ItemSend(item, cancel); });
    QObject::connect(app, &outlook::Application::Startup, ctx, [this] { objOutlook_Startup(); });
    QObject::connect(app, &outlook::Application::OptionsPagesAdd, ctx,
                     [this](outlook::PropertyPages* pages) { objOutlook_OptionsPagesAdd(pages); });
    // The application may go before the add-in does; forget it then.
    QObject::connect(app, &QObject::destroyed, ctx, [this] { m_objOutlook = nullptr; m_ns = nullptr; });
}

void OutAddIn::HoldExplorer(outlook::Explorer* explorer)
{
    QObject::disconnect(m_objExplClose);
    m_objExpl = explorer;
    if (explorer && m_events)
        m_objExplClose =
            QObject::connect(explorer, &outlook::Explorer::Closed, m_events.get(), [this] { objExpl_Close(); });
}

void OutAddIn::PlaceDataFolder()
{
    const QString appData = m_appDataOverride.isEmpty()
                                ? os::GetSpecialFolderLocation(os::CSIDL_APPDATA, m_report)
                                : m_appDataOverride;
    QDir dir(appData);
    if (!dir.exists(QStringLiteral("Sorquin Software"))) dir.mkdir(QStringLiteral("Sorquin Software"));
    const QString maker = appData + QStringLiteral("/Sorquin Software");
    if (!QDir(maker).exists(QStringLiteral("Mailvane"))) QDir(maker).mkdir(QStringLiteral("Mailvane"));
    m_dataDir = maker + QStringLiteral("/Mailvane");
}

void OutAddIn::OpenLog()
{
    m_logging = m_progIds.Create<logging::cLogging>(QString::fromLatin1(logging::kLoggingProgId));
    if (!m_logging) return;
    m_ownLog = m_logging->OpenLog(m_dataDir + QStringLiteral("/mv.log"));
    if (m_ownLog) m_log = m_ownLog.get();
}

void OutAddIn::CreateMapiHelpers()
{
    m_safeItem = m_progIds.Create<outlook::SafeMailItem>(QString::fromLatin1(outlook::kSafeMailItemProgId));
    m_mapiUtils = m_progIds.Create<outlook::SafeMapiUtils>(QString::fromLatin1(outlook::kMapiUtilsProgId));
}

void OutAddIn::LoadMainForm()
{
    m_frmMain = std::make_unique<frmMain>(*this, m_report);
    m_frmMain->Form_Load();
}

void OutAddIn::UnInitHandler()
{
    Ignore([&] { CloseDatabases(); });
    Ignore([&] { m_frmMain.reset(); });
    Ignore([&] {
        if (m_mapiUtils) m_mapiUtils->Cleanup();
    });
    // Events first, so nothing reaches a half-released add-in.
    Ignore([&] { m_events.reset(); });
    m_toolsBar = nullptr;
    for (auto& item : m_menuItems) item = nullptr;
    m_menuPopup = nullptr;
    m_cbbRuleMgr = m_cbbAdd = m_cbbUpdate = m_cbbRun = nullptr;
    m_objInspectors = nullptr;
    m_mapiUtils.reset();
    m_safeItem.reset();
    m_cbToolbar = nullptr;
    HoldExplorer(nullptr);
    m_colExpl = nullptr;
    m_runner.reset();
    m_executor.reset();
    m_mover.reset();
    m_journal.reset();
    m_ns = nullptr;
    m_objOutlook = nullptr;
    m_unloaded = true;
}

void OutAddIn::objOutlook_NewMail()
{
    Ignore([&] {
        if (m_frmMain) m_frmMain->RestartMailTimer();
    });
}

void OutAddIn::objOutlook_ItemSend(outlook::Item*, bool& cancel)
{
    Ignore([&] {
        if (m_frmMain) m_frmMain->RestartMailTimer();
    });
    cancel = false;  // sending always goes ahead
}

void OutAddIn::objOutlook_Startup()
{
    Ignore([&] {
        if (!m_colExpl || m_colExpl->Count() < 1) return;
        WriteLog(3, QStringLiteral("objOutlook_Startup"), QStringLiteral("Adding new Explorer to collection"));
        AddExpl(m_objOutlook->ActiveExplorer());
    });
}

void OutAddIn::objOutlook_OptionsPagesAdd(outlook::PropertyPages* pages)
{
    Ignore([&] {
        if (pages) pages->Add(QStringLiteral("MailvaneProps.ctlMailvane"), QStringLiteral("Mailvane"));
    });
}

void OutAddIn::objExpl_Close()
{
    Ignore([&] {
        WriteLog(3, QStringLiteral("objExpl_Close"), QStringLiteral("Top Entry Point"));
        if (!m_objOutlook) return;
        // The next Explorer becomes the one whose close is watched.
        HoldExplorer(m_objOutlook->ActiveExplorer());
        if (m_objExpl || m_objOutlook->GetInspectors()->Count() != 0) return;
        WriteLog(3, QStringLiteral("objExpl_Close"), QStringLiteral("Calling UnInitHandler..."));
        m_entryPoint = QStringLiteral("objExpl_Close");
        UnInitHandler();
    });
}

}  // namespace mv::addin
