// The windowless host: its windows, its mail events and the add-ins it
// connects. A real IDLE wake-up is tests/imap's (ImapIdleTest).

#include "host/core/AddinLoader.h"
#include "host/core/HeadlessApplication.h"

#include "platform/mapi/MapiUtils.h"
#include "platform/stores/memory/MemoryStore.h"
#include "tests/support/QtPrinters.h"

#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace mv::test {
namespace {

using namespace mv::host;

mapi::NewMessage Mail(const QString& subject)
{
    mapi::NewMessage m;
    m.rfc822 = QStringLiteral("From: Ann <ann@example.org>\r\nSubject: %1\r\n\r\nHello\r\n").arg(subject).toUtf8();
    return m;
}

// An application over a memory store, opened,
// with its NewMail and ItemSend events counted.
class HostTest : public ::testing::Test {
protected:
    void Open()
    {
        app = std::make_unique<HeadlessApplication>(stores, clipboard);
        QObject::connect(app.get(), &outlook::Application::NewMail, [this] { ++newMail; });
        QObject::connect(app.get(), &outlook::Application::ItemSend, [this](outlook::Item* item, bool& cancel) {
            sent << (item ? item->Subject() : QStringLiteral("<null>"));
            EXPECT_FALSE(cancel);
        });
        app->Open();
    }

    StoreSet stores;
    stores::MemoryStore& memory = [this]() -> stores::MemoryStore& {
        auto owned = std::make_unique<stores::MemoryStore>();
        stores::MemoryStore& store = *owned;
        stores.Add(std::move(owned));
        return store;
    }();
    os::MemoryClipboard clipboard;
    std::unique_ptr<HeadlessApplication> app;
    int newMail = 0;
    QStringList sent;  // subjects ItemSend handed over (QSignalSpy cannot record its bool&)
};

// Window tracking itself is the add-in tests' (tests/addin/WindowsTest.cpp).
TEST_F(HostTest, OpenStartAndStopHappenOnceAndQuitComesWhileTheWindowsAreOpen)
{
    app = std::make_unique<HeadlessApplication>(stores, clipboard);
    EXPECT_EQ(app->ActiveExplorer(), nullptr) << "no Explorer before Open";
    EXPECT_NE(app->GetNamespace("mapi"), nullptr);
    EXPECT_EQ(app->GetNamespace("OTHER"), nullptr);
    app->Open();
    app->Open();
    ASSERT_EQ(app->GetExplorers()->Count(), 1);
    HeadlessExplorer* first = app->Explorer();
    ASSERT_NE(first->CommandBars()->Item("tools"), nullptr);
    EXPECT_NE(app->OpenExplorer()->CommandBars(), first->CommandBars()) << "each window has its own bars";
    auto id = memory.Append(memory.InboxId(), Mail("Open me"));
    ASSERT_TRUE(id.ok());
    app->OpenInspector(app->Session().GetItemFromID(mapi::MapiUtils::HrGetHexFromBinary(*id),
                                                    mapi::MapiUtils::HrGetHexFromBinary(memory.StoreId())));
    EXPECT_EQ(app->GetInspectors()->Item(1)->CurrentItem()->Subject(), "Open me");

    QSignalSpy startup(app.get(), &outlook::Application::Startup);
    QSignalSpy quit(app.get(), &outlook::Application::Quit);
    int windowsAtQuit = 0;
    QObject::connect(app.get(), &outlook::Application::Quit,
                     [&] { windowsAtQuit = app->GetExplorers()->Count() + app->GetInspectors()->Count(); });
    app->Start();
    app->Start();
    app->Stop();
    app->Stop();
    EXPECT_EQ(startup.count(), 1);
    EXPECT_EQ(quit.count(), 1);
    EXPECT_EQ(windowsAtQuit, 3) << "handlers of Quit still find the windows";
    EXPECT_EQ(app->GetExplorers()->Count() + app->GetInspectors()->Count(), 0);
}

TEST_F(HostTest, ArrivalsRaiseNewMailOrItemSendByFolder)
{
    Open();
    const struct {
        const char* folder;
        int newMail, itemSend;
    } cases[] = {{"Inbox", 1, 0}, {"Sent", 0, 1}, {"Archive", 0, 0}};
    for (const auto& c : cases) {
        newMail = 0;
        sent.clear();
        ASSERT_TRUE(memory.Append(memory.FolderIdByPath(c.folder), Mail(QStringLiteral("to %1").arg(c.folder))).ok());
        // Append reports Inbox and Sent arrivals itself; the signal is raised
        // once more by hand, as an IMAP IDLE wake-up would, for every folder.
        Q_EMIT memory.MessagesArrived(memory.FolderIdByPath(c.folder));
        EXPECT_EQ(newMail, c.newMail * 2) << c.folder;
        EXPECT_EQ(sent.size(), c.itemSend * 2) << c.folder;
        if (c.itemSend) {
            EXPECT_EQ(sent.value(0), QStringLiteral("to %1").arg(c.folder));
        }
    }
    // An older message appended to Sent: the item handed over is the newest.
    sent.clear();
    mapi::NewMessage older = Mail("Older reply");
    older.internalDate = QDateTime::currentDateTimeUtc().addYears(-1);
    ASSERT_TRUE(memory.Append(memory.FolderIdByPath("Sent"), older).ok());
    EXPECT_EQ(sent, QStringList{"to Sent"});
    app->Stop();
    newMail = 0;
    Q_EMIT memory.MessagesArrived(memory.InboxId());
    EXPECT_EQ(newMail, 0) << "no events after Stop";
}

class FakeAddin : public outlook::IDTExtensibility2 {
public:
    FakeAddin(QString name, QStringList& log) : m_name(std::move(name)), m_log(log) {}
    void OnConnection(outlook::Application* application, int mode, AddInInstance& inst) override
    {
        m_log << QStringLiteral("%1 connect %2 %3 %4")
                     .arg(m_name)
                     .arg(mode)
                     .arg(inst.ProgId, application && application->ActiveExplorer() ? "explorer" : "no-explorer");
        inst.Object = this;
    }
    void OnDisconnection(int mode) override { m_log << QStringLiteral("%1 disconnect %2").arg(m_name).arg(mode); }
    void OnStartupComplete() override { m_log << m_name + " startup-complete"; }
    void OnBeginShutdown() override { m_log << m_name + " begin-shutdown"; }

private:
    QString m_name;
    QStringList& m_log;
};

class AddinLoaderTest : public HostTest {
protected:
    void SetUp() override { Open(); }
    QString Key(const QString& progId) { return QString::fromLatin1(kAddinsKey) + "\\" + progId; }
    void RegisterAddin(const QString& progId, quint32 loadBehavior, bool factory = true)
    {
        ASSERT_TRUE(registry.WriteString(Key(progId), "FriendlyName", progId + " Add-In").ok());
        ASSERT_TRUE(registry.WriteDword(Key(progId), "LoadBehavior", loadBehavior).ok());
        if (factory)
            progIds.Register<outlook::IDTExtensibility2>(
                progId, [this, progId] { return std::make_unique<FakeAddin>(progId.section('.', 0, 0), log); });
    }

    QTemporaryDir dir;
    os::Registry registry{dir.path() + "/registry.ini"};
    ProgIdRegistry progIds;
    QStringList log;
};

TEST_F(AddinLoaderTest, ConnectsOnlyLoadBehaviorThreeRemovesOnRequestAndDisconnectsInReverse)
{
    RegisterAddin("Alpha.Connect", 3);
    RegisterAddin("Beta.Connect", 2);
    RegisterAddin("Gamma.Connect", 3);
    RegisterAddin("Delta.Connect", 3, false);  // registered, but nothing installed
    RegisterAddin("Eps.Connect", 0);
    RegisterAddin("Zeta.Connect", 3);
    {
        AddinLoader loader(registry, progIds, *app);
        EXPECT_EQ(loader.Registered().size(), 6u);
        EXPECT_EQ(loader.Connect(), 3);
        EXPECT_EQ(loader.Connected(), QStringList({"Alpha.Connect", "Gamma.Connect", "Zeta.Connect"}));
        ASSERT_EQ(loader.Failures().size(), 1);
        EXPECT_TRUE(loader.Failures()[0].startsWith("Delta.Connect"));
        EXPECT_EQ(loader.Connect(), 0) << "connected add-ins are not connected twice";
        // What each add-in handed back, found as the registry finds keys: without regard to case.
        EXPECT_NE(loader.AddInObject("gamma.connect"), nullptr);
        EXPECT_NE(loader.AddInObject("Alpha.Connect"), loader.AddInObject("Gamma.Connect"));
        EXPECT_EQ(loader.AddInObject("Beta.Connect"), nullptr) << "switched off";
        EXPECT_EQ(loader.AddInObject("Delta.Connect"), nullptr) << "not installed";
        for (const AddinInfo& info : loader.Registered())
            EXPECT_EQ(info.connected, loader.AddInObject(info.progId) != nullptr) << info.progId.toStdString();
        // The user removes one: disconnected as such, and switched off for the next start.
        EXPECT_TRUE(loader.Remove("alpha.connect"));
        EXPECT_FALSE(loader.Remove("Alpha.Connect")) << "already removed";
        EXPECT_EQ(*registry.ReadDword(Key("Alpha.Connect"), "LoadBehavior"), 2u);
        EXPECT_EQ(loader.AddInObject("Alpha.Connect"), nullptr);
    }  // the destructor shuts the rest down
    EXPECT_EQ(log, QStringList({"Alpha connect 1 Alpha.Connect explorer", "Gamma connect 1 Gamma.Connect explorer",
                                "Zeta connect 1 Zeta.Connect explorer", "Alpha startup-complete", "Gamma startup-complete",
                                "Zeta startup-complete", "Alpha disconnect 1", "Gamma begin-shutdown", "Zeta begin-shutdown",
                                "Zeta disconnect 0", "Gamma disconnect 0"}));
    AddinLoader next(registry, progIds, *app);
    EXPECT_EQ(next.Connect(), 2);
}

}  // namespace
}  // namespace mv::test
