#pragma once
// The desktop host as a user meets it: a real Maildir store (Inbox, Sent,
// Drafts, Trash, Archive) holding a few messages, the folder window on the
// offscreen platform, and the add-in connected over real SQLite files in a
// temporary installation and data folder. Message boxes are answered by a
// scripted answerer; a fixture fails the test on a question nobody scripted.

#include "addin/Connect.h"

#include "host/core/StoreSet.h"
#include "host/desktop/DesktopApplication.h"
#include "host/desktop/ExplorerWindow.h"
#include "platform/common/ProgIdRegistry.h"
#include "platform/os/Clipboard.h"
#include "platform/os/Clock.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"

#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace mv::test {

using namespace Qt::StringLiterals;

struct TestMail {
    QString subject;
    bool read = false;
    QString from = u"Alice Example <alice@example.com>"_s;
    QString body = u"Hello there."_s;
    bool html = false;  // the body is the only part, text/html
};

class DesktopTest : public ::testing::Test {
public:
    // Runs posted events and deferred deletes.
    static void Settle();

protected:
    DesktopTest();
    void SetUp() override;
    void TearDown() override;

    // Writes `mail` into the Maildir folder `folder` ("" is the Inbox), in
    // cur/ (delivered and seen by a mail program) or new/.
    void Write(const QString& folder, const TestMail& mail, bool intoNew = false);
    // The first start builds the stores and the window; a later start (after
    // Stop) is the program started again on the same files.
    host::desktop::ExplorerWindow& Start();
    void Stop();
    addin::OutAddIn& AddIn() { return *m_connect->AddIn(); }
    host::desktop::ExplorerWindow& Window() { return *m_app->FirstExplorer(); }
    // A rule "Read mail" moving read messages from the Inbox to Archive.
    void AddReadMailRule();

    // Subjects shown in the window's list, in view order.
    QStringList ListedSubjects(host::desktop::ExplorerWindow& window);
    QStringList StoredSubjects(const QString& folderPath);
    QString Root() const { return m_dir.filePath(u"Mail"_s); }
    QString InstallDir() const { return m_dir.filePath(u"install"_s); }
    QString AppData() const { return m_dir.filePath(u"appdata"_s); }
    QString DataDir() const { return AppData() + u"/Sorquin Software/Mailvane"_s; }

    QTemporaryDir m_dir;
    os::ScriptedAnswerer m_answerer;
    os::ErrorReport m_report{m_answerer};
    ProgIdRegistry m_progIds;
    os::FakeClock m_clock;
    os::MemoryClipboard m_clipboard;
    std::unique_ptr<host::StoreSet> m_stores;
    std::unique_ptr<host::desktop::DesktopApplication> m_app;
    std::unique_ptr<addin::Connect> m_connect;
    int m_sequence = 0;
    int m_checkMs = 0;  // the windows' change check; off unless a test wants it
};

}  // namespace mv::test
