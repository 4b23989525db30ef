#include "OutAddIn.h"

#include "ExplWrap.h"
#include "InspWrap.h"
#include "ctlMailvane.h"
#include "frmAbout.h"

#include "engine/RuleExecutor.h"
#include "engine/RuleRunner.h"
#include "platform/journal/MoveJournal.h"
#include "platform/journal/StoreMover.h"
#include "platform/logging/Logger.h"
#include "platform/os/TimeZone.h"
#include "platform/outlook/SafeMailItem.h"
#include "platform/outlook/SafeMapiUtils.h"

#include "platform/ado/AdoError.h"
#include "platform/common/ProgIdRegistry.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/PrivateFiles.h"
#include "platform/os/Registry.h"
#include "platform/os/Shell.h"

#include <QApplication>

#include <QDir>
#include <QFile>

namespace mv::addin {

namespace {

constexpr long kErrObjectNotSet = 91;

const QString kDatabaseName = QStringLiteral("mv.mdb");
const QString kTemplatePath = QStringLiteral("/Database/_mvblank.mdb");

}  // namespace

OutAddIn::OutAddIn(os::ErrorReport& report, logging::Logger* log, ProgIdRegistry& progIds, os::Clock& clock,
                   QString installDir)
    : m_report(report), m_log(log), m_progIds(progIds), m_clock(clock), m_installDir(std::move(installDir))
{
    RegisterOptionsPage(m_progIds, *this);
}

OutAddIn::~OutAddIn()
{
    // Unhook first: no event may reach a half-destroyed add-in.
    m_events.reset();
    delete m_summaryWindow.data();
    m_progIds.Unregister(QString::fromLatin1(kOptionsPageProgId));
    for (auto& [key, wrap] : m_explorers) delete wrap;
    for (auto& [key, wrap] : m_inspectors) delete wrap;
    m_frmMain.reset();
    CloseDatabases();
}

QString OutAddIn::AppTitle()
{
    return QStringLiteral("Mailvane");
}

void OutAddIn::ShowAbout()
{
    Ignore([&] {
        if (!qobject_cast<QApplication*>(QCoreApplication::instance())) return;
        const os::Shell shell;
        const os::Registry registry;
        frmAbout form(m_installDir, m_log, m_report.answerer(), shell, registry);
        form.exec();
    });
}

bool OutAddIn::PlaceDatabase(const QString& dataDir, const QString& installDir)
{
    const QString target = dataDir + u'/' + kDatabaseName;
    if (QFile::exists(target)) return true;
    // A database left beside the program by an early release is taken over
    // once; otherwise the blank template. The copy never overwrites and is
    // created readable by the user only, whatever the source's mode.
    const QString old = installDir + u'/' + kDatabaseName;
    if (QFile::exists(old)) return os::CopyPrivateFile(old, target);
    return os::CopyPrivateFile(installDir + kTemplatePath, target);
}

bool OutAddIn::OpenDatabases(const QString& databasePath)
{
    const QString user = QStringLiteral("admin");
    m_db1 = std::make_unique<store::cDB>(m_progIds, m_report, m_installDir);
    const bool opened1 = m_db1->InitDB(databasePath, user, QString(), QString(), store::kConnectJet);
    if (opened1) {
        UpgradeDB();
        LoadSettings();
    } else {
        m_report.answerer().Show(
            QStringLiteral("Connection 1 to Mailvane Database failed!\r\nPlease conatct Sorquin Support"),
            os::vbCritical, AppTitle());
    }
    m_db2 = std::make_unique<store::cDB>(m_progIds, m_report, m_installDir);
    if (!m_db2->InitDB(databasePath, user, QString(), QString(), store::kConnectJet)) {
        m_report.answerer().Show(
            QStringLiteral("Connection 2 to Mailvane Database failed!\r\nPlease conatct Sorquin Support"),
            os::vbCritical, AppTitle());
    }
    return opened1;
}

void OutAddIn::CloseDatabases() noexcept
{
    if (m_db1) m_db1->KillDB();
    if (m_db2) m_db2->KillDB();
    m_db1.reset();
    m_db2.reset();
}

bool OutAddIn::Trap(const QString& label, const std::function<void()>& body) noexcept
{
    long number = 0;
    QString description;
    try {
        body();
        return true;
    } catch (const ado::AdoError& e) {
        number = e.Number();
        description = e.Description();
    } catch (const std::exception& e) {
        number = ado::kErrProviderGeneric;
        description = QString::fromLocal8Bit(e.what());
    } catch (...) {
        number = ado::kErrProviderGeneric;
        description = QStringLiteral("Unknown error");
    }
    m_report.ShowProcedureError(number, description, label);
    return false;
}

store::cDB& OutAddIn::Db1()
{
    if (!m_db1)
        throw ado::AdoError(kErrObjectNotSet, AppTitle(),
                            QStringLiteral("Object variable or With block variable not set"));
    return *m_db1;
}

}  // namespace mv::addin
