// Start-up and shut-down over real database files: what a failed connection
// shows, a host without a window, and the application's events.

#include "AddInFixture.h"

#include "addin/frmMain.h"
#include "platform/office/CommandBars.h"

#include <QFile>

namespace mv::test {
namespace {

TEST_F(AddInTest, CleanProfileCreatesFoldersCopiesTemplateAndComesUp)
{
    addin::OutAddIn& addIn = Start();
    EXPECT_TRUE(addIn.DB1() && addIn.DB2());
    EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(u'|').toStdString();
    EXPECT_EQ(addIn.ProgId(), "Mailvane.Connect");
    EXPECT_FALSE(addIn.Unloaded());
    ASSERT_NE(addIn.MainForm(), nullptr);
    EXPECT_TRUE(addIn.MainForm()->tmrCron.isActive());
    EXPECT_TRUE(addIn.MapiUtils() && addIn.SafeItem() && addIn.Runner());
    EXPECT_EQ(Trail(), QStringList{"InitHandler: Adding new Explorer to collection"});
}

// Where the database comes from and the boxes a failed connection shows are
// the rule store's business; here, that start-up goes on without one.
TEST_F(AddInTest, WithoutATemplateBothBoxesAndStartUpGoesOn)
{
    ASSERT_TRUE(QFile::remove(InstallDir() + QStringLiteral("/Database/_mvblank.mdb")));
    addin::OutAddIn& addIn = Start();
    EXPECT_EQ(m_answerer.shown().size(), 2u) << m_answerer.texts().join(u'|').toStdString();
    EXPECT_NE(addIn.MainForm(), nullptr);
    EXPECT_NE(m_app->ActiveExplorer()->CommandBars()->Item("Mailvane"), nullptr);
    EXPECT_FALSE(QFile::exists(DataDb()));
}

TEST_F(AddInTest, WithoutAWindowNothingIsSetUpAndShutDownCopes)
{
    // Events still arrive; none of them may do anything.
    addin::OutAddIn& addIn = Start(false);
    EXPECT_EQ(addIn.MainForm(), nullptr);
    Q_EMIT m_app->NewMail();
    Q_EMIT m_app->Startup();
    bool cancel = true;
    Q_EMIT m_app->ItemSend(nullptr, cancel);
    EXPECT_FALSE(cancel);
    EXPECT_TRUE(m_logLines->lines().empty());

    addIn.UnInitHandler();
    EXPECT_TRUE(addIn.Unloaded());
    EXPECT_TRUE(m_answerer.shown().empty());
}

TEST_F(AddInTest, ShutDownTwiceIsHarmless)
{
    addin::OutAddIn& addIn = Start();
    QPointer<QTimer> cron = &addIn.MainForm()->tmrCron;
    for (int i = 0; i < 2; ++i) {
        addIn.UnInitHandler();
        EXPECT_TRUE(addIn.Unloaded());
        EXPECT_EQ(addIn.DB1(), nullptr);
        EXPECT_EQ(addIn.DB2(), nullptr);
        EXPECT_TRUE(cron.isNull()) << "the timers go with the form";
        EXPECT_EQ(addIn.Application(), nullptr);
    }
    // Unhooked: host events after shut-down reach nothing.
    Q_EMIT m_app->NewMail();
    m_connect->OnDisconnection(outlook::ext_dm_HostShutdown);
    EXPECT_EQ(m_connect->AddIn(), nullptr);
}

// Removal by the user deletes the Items bar, not the toolbar, and shuts
// down; sending is never cancelled and arms the mail timer as new mail does.
TEST_F(AddInTest, SendingAndUserRemoval)
{
    addin::frmMain& form = *Start().MainForm();
    bool cancel = true;
    Q_EMIT m_app->ItemSend(nullptr, cancel);
    EXPECT_FALSE(cancel);
    EXPECT_TRUE(form.tmrMail.isActive());

    office::CommandBars* bars = m_app->ActiveExplorer()->CommandBars();
    ASSERT_NE(bars->Add(QStringLiteral("Items")), nullptr);
    m_connect->OnDisconnection(outlook::ext_dm_UserClosed);
    EXPECT_EQ(bars->Item("Items"), nullptr);
    EXPECT_NE(bars->Item("Mailvane"), nullptr);
    EXPECT_EQ(m_connect->AddIn(), nullptr);
}

}  // namespace
}  // namespace mv::test
