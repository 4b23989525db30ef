#include "Runtime.h"

#include "addin/Connect.h"
#include "addin/OutAddIn.h"
#include "core/AddinLoader.h"
#include "core/HeadlessApplication.h"
#include "core/Profile.h"
#include "core/StoreSet.h"
#include "engine/RuleRunner.h"
#include "platform/ado/Connection.h"
#include "platform/common/ProgIdRegistry.h"
#include "platform/logging/FileLogging.h"
#include "platform/os/Clipboard.h"
#include "platform/os/Clock.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/KnownFolders.h"
#include "platform/os/MessageBox.h"
#include "platform/os/PrivateFiles.h"
#include "platform/os/Registry.h"
#include "platform/outlook/SafeLib.h"
#include "store/AdoProgIds.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <cstdio>

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

HeadlessApplication* Headless(outlook::Application& app)
{
    return dynamic_cast<HeadlessApplication*>(&app);
}

// The data folder, the cache and the files holding rules, folder names and
// subjects are the user's alone. Folders made here are 0700 from the start;
// wider modes left by earlier releases are tightened, each change noted in
// `tightened` and anything that could not be changed in `failed`. False
// when the data folder itself cannot be made.
bool MakeDataPrivate(const QString& dataDir, QStringList& tightened, QStringList& failed)
{
    if (!os::MakePrivateDir(dataDir, &tightened)) return false;
    // The cache is only an index; a failure there does not stop the start.
    const QString cacheDir = os::CacheDir();
    if (!cacheDir.isEmpty() && !os::MakePrivateDir(cacheDir, &tightened)) failed << cacheDir;
    for (const char* name : {"mv.mdb", "mv.log"}) {
        const QString path = dataDir + QLatin1Char('/') + QLatin1String(name);
        if (!os::MakePrivateFile(path, &tightened)) failed << path;
    }
    return true;
}

bool Connection1Open(const addin::OutAddIn& addIn)
{
    const store::cDB* db = addIn.DB1();
    return db && db->Connection() && db->Connection()->State() == ado::adStateOpen;
}

}  // namespace

ApplicationSteps HeadlessSteps(bool listen)
{
    ApplicationSteps steps;
    steps.create = [](StoreSet& stores, os::Clipboard& clipboard) -> std::unique_ptr<outlook::Application> {
        return std::make_unique<HeadlessApplication>(stores, clipboard);
    };
    steps.open = [listen](outlook::Application& app) {
        auto* headless = Headless(app);
        if (!headless) return;
        if (listen)
            headless->Open();
        else
            headless->OpenExplorer();
    };
    steps.start = [](outlook::Application& app) {
        if (auto* headless = Headless(app)) headless->Start();
    };
    steps.stop = [](outlook::Application& app) {
        if (auto* headless = Headless(app)) headless->Stop();
    };
    return steps;
}

// The seams the add-in keeps references to; they live as long as the runtime.
struct Runtime::Parts {
    ProgIdRegistry progIds;
    std::unique_ptr<os::Registry> registry;
    std::unique_ptr<os::ConsoleAnswerer> console;
    std::unique_ptr<os::ErrorReport> report;
    os::SystemClock clock;
    os::MemoryClipboard clipboard;
};

Runtime::Runtime(RuntimeOptions options, ApplicationSteps steps)
    : m_options(std::move(options)), m_steps(std::move(steps)), m_parts(std::make_unique<Parts>())
{
}

Runtime::~Runtime()
{
    Shutdown();
}

os::ErrorReport& Runtime::Report() const
{
    return *m_parts->report;
}

ProgIdRegistry& Runtime::ProgIds() const
{
    return m_parts->progIds;
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

    // The add-in makes its own folders one level at a time; the parents
    // above them may not exist yet on a fresh account.
    m_dataDir = os::DataDir();
    QStringList tightened, notTightened;
    if (!MakeDataPrivate(m_dataDir, tightened, notTightened)) {
        Err(QStringLiteral("cannot create the data folder %1").arg(m_dataDir));
        return kExitDatabase;
    }
    if (auto logging = p.progIds.Create<logging::cLogging>(QString::fromLatin1(logging::kLoggingProgId)))
        m_log = logging->OpenLog(m_dataDir + QStringLiteral("/mv.log"));
    Trail(QStringLiteral("mailvane"),
          QStringLiteral("Starting: %1").arg(QCoreApplication::arguments().join(QLatin1Char(' '))));
    if (!tightened.isEmpty())
        Trail(QStringLiteral("mailvane"),
              QStringLiteral("Made readable by the user only: %1").arg(tightened.join(QStringLiteral(", "))));
    if (!notTightened.isEmpty())
        Trail(QStringLiteral("mailvane"),
              QStringLiteral("Cannot make readable by the user only: %1").arg(notTightened.join(QStringLiteral(", "))));

    os::MessageBoxAnswerer* answerer = m_options.answerer;
    if (!answerer) {
        p.console = std::make_unique<os::ConsoleAnswerer>(m_options.answer, m_log.get());
        answerer = p.console.get();
    }
    p.report = std::make_unique<os::ErrorReport>(*answerer, m_log.get());

    // The stores, then the Application over them.
    auto profile = m_options.embedded                ? Profile::Embedded(m_dataDir)
                   : m_options.profilePath.isEmpty() ? Profile::LoadDefault()
                                                     : Profile::Load(m_options.profilePath);
    if (!profile) {
        Err(profile.error().message);
        return kExitProfile;
    }
    auto stores = StoreSet::Open(*profile, m_log.get());
    if (!stores) {
        Err(stores.error().message);
        return kExitStore;
    }
    m_stores = std::move(*stores);
    os::Clipboard& clipboard = m_options.clipboard ? *m_options.clipboard : p.clipboard;
    m_app = m_steps.create(*m_stores, clipboard);
    if (!m_app) {
        Err(QStringLiteral("the host could not create its Application"));
        return kExitRunFailed;
    }
    m_steps.open(*m_app);
    m_opened = true;
    Trail(QStringLiteral("mailvane"),
          QStringLiteral("Profile %1: %2 store(s)")
              .arg(profile->file.isEmpty() ? QStringLiteral("(embedded default)") : profile->file)
              .arg(m_stores->Stores().size()));

    // The add-ins, as the registry lists them. Mailvane registers itself
    // on first start; a user's later LoadBehavior is kept.
    p.registry = std::make_unique<os::Registry>(m_options.registryPath.isEmpty() ? os::Registry::DefaultPath()
                                                                                 : m_options.registryPath);
    if (Status s = RegisterMailvaneAddin(*p.registry); !s)
        Trail(QStringLiteral("mailvane"), QStringLiteral("Cannot register the add-in in %1: %2")
                                              .arg(p.registry->path(), s.error().message));
    addin::AddInServices services;
    services.report = p.report.get();
    services.progIds = &p.progIds;
    services.clock = &p.clock;
    services.clipboard = &clipboard;
    services.log = m_log.get();
    services.installDir = os::InstallDir();
    services.forms = m_options.forms;
    if (m_options.statusOnStderr)
        services.configure = [](addin::OutAddIn& addIn) {
            addIn.SetStatusFormFactory([] { return std::make_unique<ConsoleStatus>(); });
        };
    addin::RegisterConnect(p.progIds, std::move(services));
    m_loader = std::make_unique<AddinLoader>(*p.registry, p.progIds, *m_app);
    m_loader->Connect();
    // Another add-in that is registered but not installed does not stop
    // the host; the log keeps the reason.
    for (const QString& failure : m_loader->Failures()) Trail(QStringLiteral("mailvane"), failure);
    return CheckAddIn();
}

int Runtime::CheckAddIn()
{
    const QString progId = QString::fromLatin1(kMailvaneProgId);
    addin::Connect* connect = CurrentConnect();
    addin::OutAddIn* addIn = connect ? connect->AddIn() : nullptr;
    if (!addIn) {
        QString why;
        for (const QString& failure : m_loader->Failures())
            if (failure.startsWith(progId + QLatin1Char(':'), Qt::CaseInsensitive))
                why = failure.mid(progId.size() + 2);
        if (why.isEmpty()) {
            for (const AddinInfo& info : m_loader->Registered())
                if (info.progId.compare(progId, Qt::CaseInsensitive) == 0)
                    why = QStringLiteral("it is switched off (LoadBehavior %1 in %2; 3 loads it at start)")
                              .arg(info.loadBehavior)
                              .arg(m_parts->registry->path());
            if (why.isEmpty())
                why = QStringLiteral("it is not registered in %1").arg(m_parts->registry->path());
        }
        Err(QStringLiteral("the add-in %1 is not loaded: %2").arg(progId, why));
        Trail(QStringLiteral("mailvane"), QStringLiteral("Add-in not loaded: %1").arg(why));
        return kExitRunFailed;
    }

    // Without an Explorer the add-in stays idle by design; for this host
    // that means its Application did not open one.
    if (!addIn->MainForm() && !m_app->ActiveExplorer()) {
        Err(QStringLiteral("the add-in %1 stayed idle: the host opened no Explorer").arg(progId));
        return kExitRunFailed;
    }
    // The add-in reports a failed connection in its own box and goes on;
    // a command has nothing to work on without it.
    if (!addIn->DataDir().isEmpty()) m_dataDir = addIn->DataDir();
    if (!QFileInfo::exists(m_dataDir + QStringLiteral("/mv.mdb"))) {
        const QString installDir = addIn->InstallDir();
        Err(QStringLiteral("no rule database in %1 and no blank template in %2/Database")
                .arg(m_dataDir,
                     installDir.isEmpty() ? QStringLiteral("(no installation folder)") : installDir));
        return kExitDatabase;
    }
    if (!Connection1Open(*addIn) || !addIn->Runner()) {
        Err(QStringLiteral("cannot open the rule database %1/mv.mdb").arg(m_dataDir));
        return kExitDatabase;
    }
    if (!m_options.schedule) {
        if (addin::frmMain* form = addIn->MainForm()) {
            for (QTimer* timer : {&form->tmrCron, &form->tmrMail}) {
                timer->stop();
                timer->blockSignals(true);
            }
        }
    }
    Trail(QStringLiteral("mailvane"), QStringLiteral("Add-in connected: %1").arg(progId));
    return kExitOk;
}

void Runtime::StartApplication()
{
    if (m_started || !m_app) return;
    m_started = true;
    m_steps.start(*m_app);
}

addin::Connect* Runtime::CurrentConnect() const
{
    // Looked up each time: the user may remove the add-in and connect it
    // again in the add-ins dialog, which makes a new object.
    if (!m_loader) return nullptr;
    return dynamic_cast<addin::Connect*>(m_loader->AddInObject(QString::fromLatin1(kMailvaneProgId)));
}

bool Runtime::Connected() const
{
    const addin::Connect* connect = CurrentConnect();
    return connect && connect->AddIn() && !m_down;
}

addin::OutAddIn& Runtime::AddIn() const
{
    return *CurrentConnect()->AddIn();
}

engine::RuleRunner& Runtime::Runner() const
{
    return *AddIn().Runner();
}

bool& Runtime::CancelFlag() const
{
    return AddIn().CancelFlag();
}

void Runtime::Shutdown()
{
    if (m_down) return;
    m_down = true;
    // The add-ins first (UnInitHandler closes the databases and unloads
    // frmMain), while the Application they hold is still there.
    const bool connected = CurrentConnect() != nullptr;
    if (m_loader) m_loader->Disconnect();
    if (connected) Trail(QStringLiteral("mailvane"), QStringLiteral("Database closed"));
    if (m_app && m_opened) m_steps.stop(*m_app);
    m_loader.reset();
    m_app.reset();
    m_stores.reset();
    Trail(QStringLiteral("mailvane"), QStringLiteral("Stopped"));
    m_log.reset();
}

}  // namespace mv::host
