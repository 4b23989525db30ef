// The windowless host: its one Explorer, its events from real stores, and
// the add-ins it connects.

#include "host/core/AddinLoader.h"
#include "host/core/HeadlessApplication.h"

#include "platform/mapi/MapiUtils.h"
#include "platform/stores/memory/MemoryStore.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace mv::test {
namespace {

using namespace mv::host;

QByteArray Mail(const QString& subject)
{
    return QStringLiteral("From: Ann <ann@example.org>\r\nTo: Bob <bob@example.org>\r\nSubject: %1\r\n"
                          "Message-ID: <%2@example.org>\r\n\r\nHello\r\n")
        .arg(subject, QString::number(qHash(subject)))
        .toUtf8();
}

TEST(HeadlessApplication, OneWindowlessExplorerFromOpenToStop)
{
    StoreSet stores;
    os::MemoryClipboard clipboard;
    HeadlessApplication app(stores, clipboard);
    EXPECT_EQ(app.ActiveExplorer(), nullptr) << "no Explorer before Open";
    EXPECT_EQ(app.Version(), "11.0");
    EXPECT_NE(app.GetNamespace("mapi"), nullptr);
    EXPECT_EQ(app.GetNamespace("OTHER"), nullptr);

    QSignalSpy newExplorer(app.GetExplorers(), &outlook::Explorers::NewExplorer);
    app.Open();
    app.Open();
    EXPECT_EQ(newExplorer.count(), 1);
    outlook::Explorer* explorer = app.ActiveExplorer();
    ASSERT_NE(explorer, nullptr);
    EXPECT_EQ(app.GetExplorers()->Count(), 1);
    EXPECT_EQ(app.GetExplorers()->Item(1), explorer);
    EXPECT_EQ(app.GetInspectors()->Count(), 0);
    EXPECT_EQ(explorer->SelectionCount(), 0);
    EXPECT_TRUE(explorer->Selection().empty());
    ASSERT_NE(explorer->CommandBars()->Item("tools"), nullptr);
    EXPECT_EQ(explorer->CommandBars()->Item("Mailvane"), nullptr);

    QSignalSpy startup(&app, &outlook::Application::Startup);
    QSignalSpy quit(&app, &outlook::Application::Quit);
    QSignalSpy closed(explorer, &outlook::Explorer::Closed);
    app.Start();
    app.Start();
    EXPECT_EQ(startup.count(), 1);

    // Quit comes before the window goes, so handlers still find it.
    bool explorerAtQuit = false;
    QObject::connect(&app, &outlook::Application::Quit, [&] { explorerAtQuit = app.ActiveExplorer() != nullptr; });
    app.Stop();
    app.Stop();
    EXPECT_EQ(quit.count(), 1);
    EXPECT_TRUE(explorerAtQuit);
    EXPECT_EQ(closed.count(), 1);
    EXPECT_EQ(app.ActiveExplorer(), nullptr);
    EXPECT_EQ(app.GetExplorers()->Count(), 0);
}

// Windows opened and closed in the order window tracking has to cope with.
TEST(HeadlessApplication, WindowsAreCountedUntilTheyClose)
{
    StoreSet stores;
    auto owned = std::make_unique<stores::MemoryStore>();
    stores::MemoryStore& memory = *owned;
    stores.Add(std::move(owned));
    os::MemoryClipboard clipboard;
    HeadlessApplication app(stores, clipboard);
    app.Open();
    QSignalSpy newInspector(app.GetInspectors(), &outlook::Inspectors::NewInspector);

    HeadlessExplorer* first = app.Explorer();
    HeadlessExplorer* second = app.OpenExplorer();
    HeadlessExplorer* third = app.OpenExplorer();
    EXPECT_EQ(app.GetExplorers()->Count(), 3);
    EXPECT_EQ(app.ActiveExplorer(), third);
    EXPECT_NE(second->CommandBars(), first->CommandBars()) << "each window has its own bars";

    second->Close();
    EXPECT_EQ(app.GetExplorers()->Count(), 2);
    EXPECT_EQ(app.GetExplorers()->Item(1), first);
    EXPECT_EQ(app.GetExplorers()->Item(2), third);
    third->Close();
    EXPECT_EQ(app.ActiveExplorer(), first);

    mapi::NewMessage m;
    m.rfc822 = Mail("Open me");
    auto id = memory.Append(memory.InboxId(), m);
    ASSERT_TRUE(id.ok());
    auto item = app.Session().GetItemFromID(mapi::MapiUtils::HrGetHexFromBinary(*id),
                                            mapi::MapiUtils::HrGetHexFromBinary(memory.StoreId()));
    ASSERT_TRUE(item);
    HeadlessInspector* inspector = app.OpenInspector(std::move(item));
    EXPECT_EQ(newInspector.count(), 1);
    ASSERT_EQ(app.GetInspectors()->Count(), 1);
    EXPECT_EQ(app.GetInspectors()->Item(1)->CurrentItem()->Subject(), "Open me");

    // The last Explorer closes while the message window stays open.
    first->Close();
    EXPECT_EQ(app.ActiveExplorer(), nullptr);
    EXPECT_EQ(app.GetInspectors()->Count(), 1);

    QSignalSpy inspectorClosed(inspector, &outlook::Inspector::Closed);
    app.Stop();
    EXPECT_EQ(inspectorClosed.count(), 1);
    EXPECT_EQ(app.GetInspectors()->Count(), 0);
    EXPECT_EQ(app.GetExplorers()->Count(), 0);
}

TEST(HeadlessApplication, ArrivalsRaiseNewMailOrItemSendByFolder)
{
    StoreSet stores;
    auto owned = std::make_unique<stores::MemoryStore>();
    stores::MemoryStore& memory = *owned;
    stores.Add(std::move(owned));
    os::MemoryClipboard clipboard;
    HeadlessApplication app(stores, clipboard);
    app.Open();

    QSignalSpy newMail(&app, &outlook::Application::NewMail);
    QStringList sentSubjects;
    QObject::connect(&app, &outlook::Application::ItemSend, [&](outlook::Item* item, bool& cancel) {
        sentSubjects << (item ? item->Subject() : QStringLiteral("<null>"));
        EXPECT_FALSE(cancel);
    });

    const struct {
        const char* folder;
        int newMail;
        int itemSend;
    } cases[] = {{"Inbox", 1, 0}, {"Sent", 0, 1}, {"Archive", 0, 0}};
    for (const auto& c : cases) {
        newMail.clear();
        sentSubjects.clear();
        mapi::NewMessage m;
        m.rfc822 = Mail(QStringLiteral("to %1").arg(c.folder));
        ASSERT_TRUE(memory.Append(memory.FolderIdByPath(c.folder), m).ok());
        // Append reports Inbox and Sent arrivals itself; the signal is raised
        // once more by hand, as an IMAP IDLE wake-up would, for every folder.
        Q_EMIT memory.MessagesArrived(memory.FolderIdByPath(c.folder));
        EXPECT_EQ(newMail.count(), c.newMail * 2) << c.folder;
        EXPECT_EQ(sentSubjects.size(), c.itemSend * 2) << c.folder;
        if (c.itemSend) {
            EXPECT_EQ(sentSubjects.value(0), QStringLiteral("to %1").arg(c.folder));
        }
    }

    app.Stop();
    newMail.clear();
    Q_EMIT memory.MessagesArrived(memory.InboxId());
    EXPECT_EQ(newMail.count(), 0) << "no events after Stop";
}

// A Maildir store as the embedded default makes it: files dropped by a
// delivery agent into INBOX/new or by a mail client into Sent are seen.
TEST(HeadlessApplication, MaildirDeliveriesAreSeen)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    auto profile = Profile::Embedded(dir.path());
    ASSERT_TRUE(profile.ok());
    auto set = StoreSet::Open(*profile);
    ASSERT_TRUE(set.ok());
    os::MemoryClipboard clipboard;
    HeadlessApplication app(**set, clipboard);
    app.Open();
    app.Start();
    QSignalSpy newMail(&app, &outlook::Application::NewMail);
    QStringList sent;  // QSignalSpy cannot record a bool& argument
    QObject::connect(&app, &outlook::Application::ItemSend,
                     [&](outlook::Item* item, bool&) { sent << (item ? item->Subject() : QString()); });

    const QString root = profile->stores[0].path;
    auto drop = [](const QString& path, const QByteArray& bytes) {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    };
    drop(root + "/new/1790000000.M1P1.testhost", Mail("Welcome"));
    ASSERT_TRUE(newMail.wait(5000));
    EXPECT_TRUE(sent.isEmpty());

    // Two messages in Sent: the item handed over is the newest.
    drop(root + "/.Sent/cur/1700000000.M2P1.testhost:2,S", Mail("Older reply"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return sent.size() == 1; }, 5000));
    EXPECT_EQ(sent.last(), "Older reply");
    drop(root + "/.Sent/cur/1790000001.M3P1.testhost:2,S", Mail("Newest reply"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return sent.size() == 2; }, 5000));
    EXPECT_EQ(sent.last(), "Newest reply");
    EXPECT_EQ(newMail.count(), 1);
    app.Stop();
}

// ---- add-in loading ----

struct CallLog {
    QStringList calls;
};

class FakeAddin : public outlook::IDTExtensibility2 {
public:
    FakeAddin(QString name, CallLog& log) : m_name(std::move(name)), m_log(log) {}
    void OnConnection(outlook::Application* application, int mode, AddInInstance& inst) override
    {
        m_log.calls << QStringLiteral("%1 connect %2 %3 %4")
                           .arg(m_name)
                           .arg(mode)
                           .arg(inst.ProgId)
                           .arg(application && application->ActiveExplorer() ? "explorer" : "no-explorer");
        inst.Object = this;
    }
    void OnDisconnection(int mode) override { m_log.calls << QStringLiteral("%1 disconnect %2").arg(m_name).arg(mode); }
    void OnStartupComplete() override { m_log.calls << m_name + " startup-complete"; }
    void OnBeginShutdown() override { m_log.calls << m_name + " begin-shutdown"; }

private:
    QString m_name;
    CallLog& m_log;
};

class AddinLoaderTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        app.Open();
    }
    QString Key(const QString& progId) { return QString::fromLatin1(kAddinsKey) + "\\" + progId; }
    void RegisterAddin(const QString& progId, quint32 loadBehavior, bool factory = true)
    {
        ASSERT_TRUE(registry.WriteString(Key(progId), "FriendlyName", progId + " Add-In").ok());
        ASSERT_TRUE(registry.WriteDword(Key(progId), "LoadBehavior", loadBehavior).ok());
        if (factory)
            progIds.Register<outlook::IDTExtensibility2>(progId, [this, progId] {
                return std::make_unique<FakeAddin>(progId.section('.', 0, 0), log);
            });
    }

    QTemporaryDir dir;
    os::Registry registry{dir.path() + "/registry.ini"};
    ProgIdRegistry progIds;
    StoreSet stores;
    os::MemoryClipboard clipboard;
    HeadlessApplication app{stores, clipboard};
    CallLog log;
};

TEST_F(AddinLoaderTest, ConnectsOnlyLoadBehaviorThreeAndDisconnectsInReverse)
{
    RegisterAddin("Alpha.Connect", 3);
    RegisterAddin("Beta.Connect", 2);
    RegisterAddin("Gamma.Connect", 3);
    RegisterAddin("Delta.Connect", 3, false);  // registered, but nothing installed
    RegisterAddin("Eps.Connect", 0);
    {
        AddinLoader loader(registry, progIds, app);
        EXPECT_EQ(loader.Registered().size(), 5u);
        EXPECT_EQ(loader.Connect(), 2);
        EXPECT_EQ(loader.Connected().join(',').toStdString(), "Alpha.Connect,Gamma.Connect");
        ASSERT_EQ(loader.Failures().size(), 1);
        EXPECT_TRUE(loader.Failures()[0].startsWith("Delta.Connect"));
        EXPECT_EQ(loader.Connect(), 0) << "connected add-ins are not connected twice";
        // What each add-in handed back, found as the registry finds keys: without regard to case.
        EXPECT_NE(loader.AddInObject("gamma.connect"), nullptr);
        EXPECT_NE(loader.AddInObject("Alpha.Connect"), loader.AddInObject("Gamma.Connect"));
        EXPECT_EQ(loader.AddInObject("Beta.Connect"), nullptr) << "switched off";
        EXPECT_EQ(loader.AddInObject("Delta.Connect"), nullptr) << "not installed";
        for (const AddinInfo& info : loader.Registered())
            EXPECT_EQ(info.connected, info.progId == "Alpha.Connect" || info.progId == "Gamma.Connect") << info.progId.toStdString();
        loader.Disconnect();
        loader.Disconnect();
        EXPECT_EQ(loader.AddInObject("Alpha.Connect"), nullptr);
    }
    EXPECT_EQ(log.calls.join('\n').toStdString(), QStringList({
                                                        "Alpha connect 1 Alpha.Connect explorer",
                                                        "Gamma connect 1 Gamma.Connect explorer",
                                                        "Alpha startup-complete",
                                                        "Gamma startup-complete",
                                                        "Alpha begin-shutdown",
                                                        "Gamma begin-shutdown",
                                                        "Gamma disconnect 0",
                                                        "Alpha disconnect 0",
                                                    })
                                                        .join('\n')
                                                        .toStdString());
}

TEST_F(AddinLoaderTest, RemoveByTheUserDisconnectsWithModeOneAndStopsLoading)
{
    RegisterAddin("Alpha.Connect", 3);
    RegisterAddin("Gamma.Connect", 3);
    {
        AddinLoader loader(registry, progIds, app);
        loader.Connect(outlook::ext_cm_AfterStartup);
        log.calls.clear();
        EXPECT_TRUE(loader.Remove("alpha.connect"));
        EXPECT_FALSE(loader.Remove("Alpha.Connect")) << "already removed";
        EXPECT_EQ(log.calls.join('\n').toStdString(), "Alpha disconnect 1");
        EXPECT_EQ(*registry.ReadDword(Key("Alpha.Connect"), "LoadBehavior"), 2u);
        EXPECT_EQ(*registry.ReadDword(Key("Gamma.Connect"), "LoadBehavior"), 3u);
        log.calls.clear();
    }  // the destructor shuts the rest down
    EXPECT_EQ(log.calls.join('\n').toStdString(), "Gamma begin-shutdown\nGamma disconnect 0");

    AddinLoader next(registry, progIds, app);
    log.calls.clear();
    EXPECT_EQ(next.Connect(), 1);
    EXPECT_EQ(next.Connected().join(',').toStdString(), "Gamma.Connect");
}

TEST_F(AddinLoaderTest, MailvaneRegistrationIsWrittenOnlyWhenMissing)
{
    const QString key = Key(kMailvaneProgId);
    ASSERT_TRUE(RegisterMailvaneAddin(registry).ok());
    EXPECT_EQ(*registry.ReadString(key, "FriendlyName"), "Mailvane Add-In");
    EXPECT_EQ(*registry.ReadString(key, "Description"), "This Add-in provides Message Automation Rules.");
    EXPECT_EQ(*registry.ReadDword(key, "LoadBehavior"), 3u);

    // The user switched it off: a later start keeps that.
    ASSERT_TRUE(registry.WriteDword(key, "LoadBehavior", 2).ok());
    ASSERT_TRUE(RegisterMailvaneAddin(registry).ok());
    EXPECT_EQ(*registry.ReadDword(key, "LoadBehavior"), 2u);
}

}  // namespace
}  // namespace mv::test
