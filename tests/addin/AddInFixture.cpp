#include "AddInFixture.h"

#include "platform/logging/FileLogging.h"
#include "platform/outlook/SafeLib.h"
#include "store/AdoProgIds.h"

#include <QCoreApplication>
#include <QDir>
#include <QEvent>
#include <QFile>

#include <sqlite3.h>

namespace mv::test {

namespace {

// The file log, with every line also kept for the checks.
class TeeLogger : public logging::Logger {
public:
    TeeLogger(std::unique_ptr<logging::Logger> file, std::shared_ptr<logging::MemoryLogger> memory)
        : m_file(std::move(file)), m_memory(std::move(memory)) {}
    void Write(int level, const QString& source, const QString& text) noexcept override
    {
        m_file->Write(level, source, text);
        m_memory->Write(level, source, text);
    }

private:
    std::unique_ptr<logging::Logger> m_file;
    std::shared_ptr<logging::MemoryLogger> m_memory;
};

class TeeLogging : public logging::cLogging {
public:
    explicit TeeLogging(std::shared_ptr<logging::MemoryLogger> memory) : m_memory(std::move(memory)) {}
    std::unique_ptr<logging::Logger> OpenLog(const QString& path) override
    {
        return std::make_unique<TeeLogger>(m_files.OpenLog(path), m_memory);
    }

private:
    logging::FileLogging m_files{std::make_shared<os::FakeClock>()};
    std::shared_ptr<logging::MemoryLogger> m_memory;
};

}  // namespace

AddInTest::AddInTest()
{
    store::RegisterAdoProgIds(m_progIds);
    outlook::RegisterSafeLib(m_progIds);
    auto lines = m_logLines;
    m_progIds.Register<logging::cLogging>(QString::fromLatin1(logging::kLoggingProgId),
                                          [lines] { return std::make_unique<TeeLogging>(lines); });
}

void AddInTest::SetUp()
{
    ASSERT_TRUE(m_dir.isValid());
    ASSERT_TRUE(QDir().mkpath(InstallDir() + QStringLiteral("/Database")));
    ASSERT_TRUE(QDir().mkpath(AppData()));
    CopyTemplate(InstallDir() + QStringLiteral("/Database/_mvblank.mdb"));
    for (const char* face : {"mv1.bmp", "mv2.bmp", "mv3.bmp", "mv4.bmp"})
        QFile::copy(QStringLiteral(MV_SOURCE_DIR "/resources/") + QLatin1String(face),
                    InstallDir() + u'/' + QLatin1String(face));
    m_app = std::make_unique<host::HeadlessApplication>(m_stores, m_clipboard);
}

void AddInTest::TearDown()
{
    if (m_connect && m_connect->AddIn()) m_connect->OnDisconnection(outlook::ext_dm_HostShutdown);
    m_connect.reset();
    DeleteLater();
    m_app.reset();
    EXPECT_TRUE(m_answerer.unanswered().empty()) << "an unscripted question was asked";
}

void AddInTest::CopyTemplate(const QString& path)
{
    const QString source = QStringLiteral(MV_BINARY_DIR "/Database/_mvblank.mdb");
    ASSERT_TRUE(QFile::copy(source, path)) << source.toStdString();
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
}

void Sql(const QString& path, const QString& statements)
{
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(path.toUtf8().constData(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, statements.toUtf8().constData(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    sqlite3_close(db);
}

addin::AddInServices AddInTest::Services()
{
    return addin::AddInServices{.report = &m_report,
                                .progIds = &m_progIds,
                                .clock = &m_clock,
                                .clipboard = &m_clipboard,
                                .installDir = InstallDir(),
                                .forms = &m_forms,
                                .appDataOverride = AppData(),
                                .configure = m_configure};
}

addin::OutAddIn& AddInTest::Start(bool withWindow)
{
    if (withWindow) m_app->Open();
    m_connect = std::make_unique<addin::Connect>(Services());
    outlook::IDTExtensibility2::AddInInstance instance{QStringLiteral("Mailvane.Connect")};
    m_connect->OnConnection(m_app.get(), outlook::ext_cm_Startup, instance);
    EXPECT_EQ(instance.Object, m_connect.get());
    return AddIn();
}

QStringList AddInTest::Trail() const
{
    QStringList out;
    for (const auto& l : m_logLines->lines())
        if (l.level == 3) out << l.source + QStringLiteral(": ") + l.text;
    return out;
}

void AddInTest::DeleteLater()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

}  // namespace mv::test
