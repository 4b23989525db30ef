#include "Runtime.h"

#include "addin/OutAddIn.h"
#include "core/HeadlessApplication.h"
#include "core/Profile.h"
#include "core/StoreSet.h"
#include "engine/RuleExecutor.h"
#include "engine/RuleRunner.h"
#include "platform/common/ProgIdRegistry.h"
#include "platform/logging/FileLogging.h"
#include "platform/os/Clipboard.h"
#include "platform/os/Clock.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "platform/os/KnownFolders.h"
#include "platform/os/TimeZone.h"
#include "platform/outlook/SafeLib.h"
#include "store/AdoProgIds.h"

#include <QCoreApplication>
#include <QDir>

namespace mv::host {

namespace {

void Err(const QString& text)
{
    std::fprintf(stderr, "mailvane: %s\n", text.toLocal8Bit().constData());
}

// The status form of a console run: one line per rule on stderr.
class ConsoleStatus : public engine::StatusForm {
public:
    void Show() override {}
    void SetRuleName(const QString& name) override
    {
        std::fprintf(stderr, "running rule: %s\n", name.toLocal8Bit().constData());
    }
    void SetProgress(int, int) override {}
    void Hide() override {}
};

// Where nothing is shown (the headless service): the drivers still need one.
class SilentStatus : public engine::StatusForm {
public:
    void Show() override {}
    void SetRuleName(const QString&) override {}
    void SetProgress(int, int) override {}
    void Hide() override {}
};

}  // namespace

// The seams the engine and the add-in keep references to; they live as long
// as the runtime.
struct Runtime::Parts {
    ProgIdRegistry progIds;
    std::unique_ptr<os::ConsoleAnswerer> answerer;
    std::unique_ptr<os::ErrorReport> report;
    os::SystemClock clock;
    os::SystemTimeZone zone;
    os::MemoryClipboard clipboard;
};

Runtime::Runtime(RuntimeOptions options) : m_options(std::move(options)), m_parts(std::make_unique<Parts>()) {}

Runtime::~Runtime()
{
    Shutdown();
}

void Runtime::Trail(const QString& source, const QString& text)
{
    if (m_log) m_log->Write(3, source, text);
}

int Runtime::Start()
{
    Parts& p = *m_parts;
    store::RegisterAdoProgIds(p.progIds);
    logging::RegisterLogging(p.progIds);
    outlook::RegisterSafeLib(p.progIds);

    m_dataDir = os::DataDir();
    if (!QDir().mkpath(m_dataDir)) {
        Err(QStringLiteral("cannot create the data folder %1").arg(m_dataDir));
        return kExitDatabase;
    }
    if (auto logging = p.progIds.Create<logging::cLogging>(QString::fromLatin1(logging::kLoggingProgId)))
        m_log = logging->OpenLog(m_dataDir + QStringLiteral("/mv.log"));
    Trail(QStringLiteral("mailvane"), QStringLiteral("Starting: %1").arg(QCoreApplication::arguments().join(QLatin1Char(' '))));

    p.answerer = std::make_unique<os::ConsoleAnswerer>(m_options.answer, m_log.get());
    p.report = std::make_unique<os::ErrorReport>(*p.answerer, m_log.get());

    // The database first: without rules no command has anything to do.
    const QString installDir = os::InstallDir();
    m_addIn = std::make_unique<addin::OutAddIn>(*p.report, m_log.get(), p.progIds, p.clock, installDir);
    if (!addin::OutAddIn::PlaceDatabase(m_dataDir, installDir)) {
        Err(QStringLiteral("no rule database in %1 and no blank template in %2/Database")
                .arg(m_dataDir, installDir.isEmpty() ? QStringLiteral("(no installation folder)") : installDir));
        return kExitDatabase;
    }
    if (!m_addIn->OpenDatabases(m_dataDir + QStringLiteral("/mv.mdb"))) {
        Err(QStringLiteral("cannot open the rule database %1/mv.mdb").arg(m_dataDir));
        return kExitDatabase;
    }

    auto profile = m_options.embedded                ? Profile::Embedded(m_dataDir)
                   : m_options.profilePath.isEmpty() ? Profile::LoadDefault()
                                                     : Profile::Load(m_options.profilePath);
    if (!profile) {
        Err(profile.error().message);
        return kExitProfile;
    }
    auto stores = StoreSet::Open(*profile);
    if (!stores) {
        Err(stores.error().message);
        return kExitStore;
    }
    m_stores = std::move(*stores);

    m_app = std::make_unique<HeadlessApplication>(*m_stores, p.clipboard);
    m_app->Open();
    Trail(QStringLiteral("mailvane"), QStringLiteral("Profile %1: %2 store(s)")
                                          .arg(profile->file.isEmpty() ? QStringLiteral("(embedded default)") : profile->file)
                                          .arg(m_stores->Stores().size()));

    m_executor = std::make_unique<engine::RuleExecutor>(m_app->Session(), p.progIds, *p.report, p.clock, p.zone);
    addin::OutAddIn* addIn = m_addIn.get();
    m_executor->SetSettingsSource([addIn]() {
        engine::EngineSettings s;
        s.alignTime = addIn->AlignTime();
        s.weekStart = addIn->WeekStart();
        s.statusPops = addIn->StatusPops();
        return s;
    });
    m_executor->SetLogger(m_log.get());

    engine::RunnerHooks hooks;
    hooks.database = [addIn]() { return addIn->DB1(); };
    const bool console = m_options.statusOnStderr;
    hooks.createStatusForm = [console]() -> std::unique_ptr<engine::StatusForm> {
        if (console) return std::make_unique<ConsoleStatus>();
        return std::make_unique<SilentStatus>();
    };
    hooks.mainFormExists = []() { return true; };
    m_runner = std::make_unique<engine::RuleRunner>(*m_executor, *p.report, m_log.get(), std::move(hooks), m_cancel,
                                                    addin::OutAddIn::AppTitle());
    return kExitOk;
}

void Runtime::Shutdown()
{
    if (m_down) return;
    m_down = true;
    m_runner.reset();
    m_executor.reset();
    if (m_app) m_app->Stop();
    if (m_addIn) {
        m_addIn->CloseDatabases();
        Trail(QStringLiteral("mailvane"), QStringLiteral("Database closed"));
    }
    m_app.reset();
    m_stores.reset();
    m_addIn.reset();
    Trail(QStringLiteral("mailvane"), QStringLiteral("Stopped"));
    m_log.reset();
}

}  // namespace mv::host
