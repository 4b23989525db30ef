#pragma once
// A real start-up: the windowless host application, the real ADO objects
// over SQLite files copied from the built template into a temporary
// installation folder, a temporary application-data folder, the file log
// (also kept in memory for checks) and a scripted message box.

#include "addin/Connect.h"

#include "host/core/HeadlessApplication.h"
#include "platform/common/ProgIdRegistry.h"
#include "platform/logging/MemoryLogger.h"
#include "platform/os/Clipboard.h"
#include "platform/os/Clock.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"

#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

namespace mv::test {

// Records what the toolbar and menu ask to open.
class RecordingForms : public addin::FormLauncher {
public:
    void ShowRulesManager() override { opened << QStringLiteral("RulesManager"); }
    void ShowSmartAdd() override { opened << QStringLiteral("SmartAdd"); }
    void ShowSmartUpdate() override { opened << QStringLiteral("SmartUpdate"); }
    QStringList opened;
};

// Straight SQL on a database file, beside the add-in.
void Sql(const QString& path, const QString& statements);

class AddInTest : public ::testing::Test {
protected:
    AddInTest();
    void SetUp() override;
    void TearDown() override;

    QString InstallDir() const { return m_dir.filePath(QStringLiteral("install")); }
    QString AppData() const { return m_dir.filePath(QStringLiteral("appdata")); }
    QString DataDir() const { return AppData() + QStringLiteral("/Sorquin Software/Mailvane"); }
    QString DataDb() const { return DataDir() + QStringLiteral("/mv.mdb"); }
    // Copies the built blank database to `path`.
    void CopyTemplate(const QString& path);

    // Opens the host's window (unless told not to) and connects the add-in.
    addin::OutAddIn& Start(bool withWindow = true);
    // The services the fixture lends an add-in (its seams and folders).
    addin::AddInServices Services();
    addin::OutAddIn& AddIn() { return *m_connect->AddIn(); }
    // Lines logged at level 3, as "source: text".
    QStringList Trail() const;
    void DeleteLater();

    QTemporaryDir m_dir;
    os::ScriptedAnswerer m_answerer;
    os::ErrorReport m_report{m_answerer};
    ProgIdRegistry m_progIds;
    os::FakeClock m_clock;
    os::MemoryClipboard m_clipboard;
    std::shared_ptr<logging::MemoryLogger> m_logLines = std::make_shared<logging::MemoryLogger>();
    RecordingForms m_forms;
    host::StoreSet m_stores;
    std::unique_ptr<host::HeadlessApplication> m_app;
    std::unique_ptr<addin::Connect> m_connect;
    std::function<void(addin::OutAddIn&)> m_configure;
};

}  // namespace mv::test
