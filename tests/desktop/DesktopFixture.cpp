#include "DesktopFixture.h"

#include "host/core/Profile.h"
#include "host/desktop/MessageListModel.h"
#include "platform/logging/FileLogging.h"
#include "platform/outlook/SafeLib.h"
#include "platform/stores/maildir/MaildirStore.h"
#include "store/AdoProgIds.h"
#include "store/cDB.h"

#include <QAbstractItemModel>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTreeView>

namespace mv::test {

using namespace Qt::StringLiterals;

DesktopTest::DesktopTest()
{
    store::RegisterAdoProgIds(m_progIds);
    outlook::RegisterSafeLib(m_progIds);
    logging::RegisterLogging(m_progIds, std::make_shared<os::FakeClock>());
}

void DesktopTest::SetUp()
{
    ASSERT_TRUE(m_dir.isValid());
    ASSERT_TRUE(QDir().mkpath(InstallDir() + u"/Database"_s));
    ASSERT_TRUE(QDir().mkpath(AppData()));
    const QString blank = QStringLiteral(MV_BINARY_DIR "/Database/_mvblank.mdb");
    const QString copy = InstallDir() + u"/Database/_mvblank.mdb"_s;
    ASSERT_TRUE(QFile::copy(blank, copy)) << blank.toStdString();
    QFile::setPermissions(copy, QFile::ReadOwner | QFile::WriteOwner);
    for (const char* face : {"mv1.bmp", "mv2.bmp", "mv3.bmp", "mv4.bmp"})
        QFile::copy(QStringLiteral(MV_SOURCE_DIR "/resources/") + QLatin1String(face),
                    InstallDir() + u'/' + QLatin1String(face));
    ASSERT_TRUE(host::CreateDefaultMaildir(Root()));
}

void DesktopTest::TearDown()
{
    Stop();
    EXPECT_TRUE(m_answerer.unanswered().empty()) << "an unscripted question was asked";
}

void DesktopTest::Write(const QString& folder, const TestMail& mail, bool intoNew)
{
    const QString dir = folder.isEmpty() ? Root() : Root() + u"/."_s + folder;
    const QString name = u"%1.M%2.test"_s.arg(1700000000 + m_sequence).arg(m_sequence);
    ++m_sequence;
    const QString path =
        intoNew ? dir + u"/new/"_s + name : dir + u"/cur/"_s + name + (mail.read ? u":2,S"_s : u":2,"_s);
    const QDateTime date = QDateTime::currentDateTimeUtc().addSecs(-3600 + m_sequence * 60);
    QString text =
        u"From: %1\r\nTo: Bob <bob@example.org>\r\nSubject: %2\r\n"
        "Message-ID: <m%3@example.com>\r\nDate: %4\r\nMIME-Version: 1.0\r\n"
        "Content-Type: %5; charset=utf-8\r\n\r\n%6\r\n"_s.arg(mail.from, mail.subject)
            .arg(m_sequence)
            .arg(date.toString(Qt::RFC2822Date), mail.html ? u"text/html"_s : u"text/plain"_s, mail.body);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(text.toUtf8());
}

host::desktop::ExplorerWindow& DesktopTest::Start()
{
    m_stores = std::make_unique<host::StoreSet>();
    stores::maildir::MaildirStoreOptions options;
    options.displayName = u"Local Mail"_s;
    m_stores->Add(std::make_unique<stores::maildir::MaildirStore>(Root(), options));
    m_app = std::make_unique<host::desktop::DesktopApplication>(*m_stores, m_clipboard);
    m_app->SetChangeCheckInterval(m_checkMs);
    m_app->Open();

    addin::AddInServices services;
    services.report = &m_report;
    services.progIds = &m_progIds;
    services.clock = &m_clock;
    services.clipboard = &m_clipboard;
    services.installDir = InstallDir();
    services.appDataOverride = AppData();
    m_connect = std::make_unique<addin::Connect>(services);
    outlook::IDTExtensibility2::AddInInstance instance{u"Mailvane.Connect"_s};
    m_connect->OnConnection(m_app.get(), outlook::ext_cm_Startup, instance);
    m_app->Start();
    Settle();
    return Window();
}

void DesktopTest::Stop()
{
    if (m_connect && m_connect->AddIn()) m_connect->OnDisconnection(outlook::ext_dm_HostShutdown);
    m_connect.reset();
    if (m_app) m_app->Stop();
    Settle();
    m_app.reset();
    m_stores.reset();
}

void DesktopTest::AddReadMailRule()
{
    auto* ns = m_app->GetNamespace(u"MAPI"_s);
    auto inbox = ns->GetDefaultFolder(outlook::olFolderInbox);
    std::unique_ptr<outlook::Folder> archive;
    for (auto& folder : ns->Folders())
        if (folder->Name() == QLatin1String("Archive")) archive = std::move(folder);
    ASSERT_TRUE(inbox && archive);
    ASSERT_TRUE(AddIn().CreateDefaultRule(u"Read mail"_s, inbox.get(), archive.get(), 13, 0));
    // A rule made this way starts inactive, as a new one in the editor does.
    ASSERT_TRUE(AddIn().DB1()->ExecuteSQL(u"UPDATE [Rules] SET [Active] = -1"_s));
}

QStringList DesktopTest::ListedSubjects(host::desktop::ExplorerWindow& window)
{
    QStringList subjects;
    QAbstractItemModel* model = window.MessageView()->model();
    for (int r = 0; r < model->rowCount(); ++r)
        subjects << model->index(r, host::desktop::MessageListModel::ColSubject).data().toString();
    return subjects;
}

QStringList DesktopTest::StoredSubjects(const QString& folderPath)
{
    host::desktop::MessageListModel model;
    mapi::MessageStore* store = m_stores->Stores().front();
    auto folders = store->Folders();
    QStringList subjects;
    if (!folders) return subjects;
    for (const mapi::FolderInfo& info : *folders) {
        if (info.path.compare(folderPath, Qt::CaseInsensitive) != 0) continue;
        if (!model.Load(store, info.entryId)) return subjects;
        for (const auto& m : model.Messages()) subjects << m.subject;
    }
    subjects.sort();
    return subjects;
}

void DesktopTest::Settle()
{
    for (int i = 0; i < 3; ++i) {
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

}  // namespace mv::test
