// The folder window over a real Maildir with the add-in connected: what the
// user sees of folders and messages, and the object-model events.

#include "DesktopFixture.h"

#include "host/desktop/FolderTreeModel.h"
#include "host/desktop/MessageListModel.h"
#include "host/desktop/MessageWindow.h"
#include "platform/mapi/MessageStore.h"
#include "tools/corpus/CorpusGenerator.h"
#include "tools/corpus/MaildirWriter.h"

#include <QAction>
#include <QApplication>
#include <QHeaderView>
#include <QLabel>
#include <QMainWindow>
#include <QPlainTextEdit>
#include <QSignalSpy>
#include <QTest>
#include <QTreeView>

namespace mv::test {

using host::desktop::ExplorerWindow;
using host::desktop::FolderTreeModel;
using host::desktop::MessageWindow;

class ExplorerWindowTest : public DesktopTest {
protected:
    void SetUp() override
    {
        DesktopTest::SetUp();
        Write({}, {QStringLiteral("Lunch on Friday"), false});
        Write({}, {QStringLiteral("Quarterly report"), true});
        Write({}, {QStringLiteral("Server down"), false});
        Write({}, {QStringLiteral("Re: holidays"), true});
        Write(QStringLiteral("Archive"), {QStringLiteral("Old news"), true});
    }
    // Selects the listed rows (view order) as a user's clicks would.
    void SelectRows(ExplorerWindow& w, std::initializer_list<int> rows)
    {
        QTreeView* view = w.MessageView();
        view->clearSelection();
        for (int r : rows)
            view->selectionModel()->select(view->model()->index(r, 0),
                                           QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
};

TEST_F(ExplorerWindowTest, FolderTreeShowsEveryFolderWithItsUnreadCount)
{
    ExplorerWindow& w = Start();
    struct Case {
        const char* path;
        const char* text;
        bool bold;
    } cases[] = {
        {"Inbox", "Inbox (2)", true},
        {"Archive", "Archive", false},
        {"Sent", "Sent", false},
        {"Trash", "Trash", false},
    };
    for (const Case& c : cases) {
        const QModelIndex index = w.Folders().IndexOfPath(QString::fromLatin1(c.path));
        ASSERT_TRUE(index.isValid()) << c.path;
        EXPECT_EQ(index.data().toString(), QString::fromLatin1(c.text)) << c.path;
        EXPECT_EQ(index.data(Qt::FontRole).value<QFont>().bold(), c.bold) << c.path;
        EXPECT_EQ(index.parent().data().toString(), QStringLiteral("Local Mail")) << c.path;
    }
    // The window opens on the Inbox, newest first, with its count below.
    EXPECT_EQ(ListedSubjects(w),
              (QStringList{QStringLiteral("Re: holidays"), QStringLiteral("Server down"),
                           QStringLiteral("Quarterly report"), QStringLiteral("Lunch on Friday")}));
    EXPECT_EQ(w.Window()->findChild<QLabel*>(QStringLiteral("lblItemCount"))->text(),
              QStringLiteral("4 items, 2 unread"));
}

// A generated mailbox: every folder's count in the tree is the number of
// unread messages written there, nested folders sit under their parent.
TEST_F(DesktopTest, FolderTreeCountsMatchAGeneratedMailbox)
{
    corpus::CorpusOptions options;
    options.seed = 7;
    options.count = 150;
    options.withAttachments = false;
    const auto messages = corpus::CorpusGenerator::Generate(options);
    ASSERT_TRUE(corpus::MaildirWriter(Root()).Write(messages));
    QHash<QString, int> unread, total;
    for (const auto& m : messages) {
        if (m.message.flags.deleted) continue;
        ++total[m.folder];
        if (!m.message.flags.seen) ++unread[m.folder];
    }

    ExplorerWindow& w = Start();
    for (const QString& folder : corpus::CorpusGenerator::Folders()) {
        const QString path = folder.isEmpty() ? QStringLiteral("Inbox") : folder;
        const QModelIndex index = w.Folders().IndexOfPath(path);
        ASSERT_TRUE(index.isValid()) << path.toStdString();
        EXPECT_EQ(index.data(FolderTreeModel::UnreadRole).toInt(), unread.value(folder))
            << path.toStdString();
        const QString parent = path.contains(u'/') ? path.section(u'/', 0, 0) : QStringLiteral("Local Mail");
        EXPECT_EQ(index.parent().data(FolderTreeModel::NameRole).toString(), parent) << path.toStdString();
    }
    EXPECT_EQ(w.MessageView()->model()->rowCount(), total.value(QString()));
}

TEST_F(ExplorerWindowTest, AFolderMadeMeanwhileAppearsAtTheNextRefreshAndTheOpenFolderStays)
{
    ExplorerWindow& w = Start();
    ASSERT_TRUE(w.OpenFolder(QStringLiteral("Archive")));
    int switches = 0;
    QObject::connect(&w, &outlook::Explorer::BeforeFolderSwitch,
                     [&](outlook::Folder*, bool&) { ++switches; });
    mapi::MessageStore* store = m_stores->Stores().front();
    ASSERT_TRUE(store->CreateFolder({}, QStringLiteral("Projects")));
    w.Refresh();
    EXPECT_TRUE(w.Folders().IndexOfPath(QStringLiteral("Projects")).isValid());
    EXPECT_EQ(w.FolderView()->currentIndex().data(FolderTreeModel::NameRole).toString(),
              QStringLiteral("Archive"));
    EXPECT_EQ(ListedSubjects(w), QStringList{QStringLiteral("Old news")});
    EXPECT_EQ(switches, 0);
}

TEST_F(ExplorerWindowTest, SelectingMessagesFillsSelectionAndRaisesSelectionChangeAndSortingKeepsIt)
{
    ExplorerWindow& w = Start();
    QSignalSpy changes(&w, &outlook::Explorer::SelectionChange);
    SelectRows(w, {0, 2});
    EXPECT_GE(changes.count(), 1);
    ASSERT_EQ(w.SelectionCount(), 2);
    auto items = w.Selection();
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0]->Subject(), QStringLiteral("Re: holidays"));
    EXPECT_EQ(items[1]->Subject(), QStringLiteral("Quarterly report"));
    EXPECT_EQ(items[0]->SenderEmailAddress(), QStringLiteral("alice@example.com"));

    // Keyboard: Shift+Down extends the selection from the current row.
    w.MessageView()->setFocus();
    w.MessageView()->setCurrentIndex(w.MessageView()->model()->index(1, 0));
    QTest::keyClick(w.MessageView(), Qt::Key_Down, Qt::ShiftModifier);
    EXPECT_EQ(w.SelectionCount(), 2);
    EXPECT_EQ(w.Selection()[1]->Subject(), QStringLiteral("Quarterly report"));

    // Sorting by a column keeps the selection on the same messages.
    SelectRows(w, {1});
    w.MessageView()->sortByColumn(host::desktop::MessageListModel::ColSubject, Qt::AscendingOrder);
    EXPECT_EQ(ListedSubjects(w).front(), QStringLiteral("Lunch on Friday"));
    ASSERT_EQ(w.SelectionCount(), 1);
    EXPECT_EQ(w.Selection().front()->Subject(), QStringLiteral("Server down"));
}

// Subjects are what users scan: the column takes the width left over, and
// sender and date are not cut short.
TEST_F(ExplorerWindowTest, TheSubjectTakesTheSpareWidthOfTheList)
{
    ExplorerWindow& w = Start();
    QHeaderView* header = w.MessageView()->header();
    for (const int width : {1000, 1400}) {
        w.Window()->resize(width, 600);
        QApplication::processEvents();
        const int subject = header->sectionSize(host::desktop::MessageListModel::ColSubject);
        for (const int other :
             {host::desktop::MessageListModel::ColFlag, host::desktop::MessageListModel::ColRead,
              host::desktop::MessageListModel::ColFrom, host::desktop::MessageListModel::ColReceived})
            EXPECT_GT(subject, header->sectionSize(other)) << "window " << width << ", column " << other;
        EXPECT_GE(header->sectionSize(host::desktop::MessageListModel::ColReceived),
                  header->sectionSizeHint(host::desktop::MessageListModel::ColReceived))
            << "window " << width;
    }
}

TEST_F(ExplorerWindowTest, FolderSwitchCanBeCancelledByAHandler)
{
    ExplorerWindow& w = Start();
    for (bool cancel : {true, false}) {
        QMetaObject::Connection link = QObject::connect(
            &w, &outlook::Explorer::BeforeFolderSwitch, [cancel](outlook::Folder* folder, bool& c) {
                EXPECT_EQ(folder->Name(), QStringLiteral("Archive"));
                c = cancel;
            });
        EXPECT_EQ(w.OpenFolder(QStringLiteral("Archive")), !cancel);
        EXPECT_EQ(w.CurrentFolder()->Name(), cancel ? QStringLiteral("Inbox") : QStringLiteral("Archive"));
        EXPECT_EQ(ListedSubjects(w).size(), cancel ? 4 : 1);
        QObject::disconnect(link);
    }
}

TEST_F(ExplorerWindowTest, NewMailShowsInTheOpenFolderWithoutLosingTheSelection)
{
    ExplorerWindow& w = Start();
    SelectRows(w, {1});
    const QString selected = w.Selection().front()->Subject();
    Write({}, {QStringLiteral("Fresh arrival"), false}, /*intoNew=*/true);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ListedSubjects(w).contains(QStringLiteral("Fresh arrival")); }))
        << "the list did not follow the arrival";
    ASSERT_EQ(w.SelectionCount(), 1);
    EXPECT_EQ(w.Selection().front()->Subject(), selected);
    EXPECT_EQ(w.Folders().IndexOfPath(QStringLiteral("Inbox")).data().toString(),
              QStringLiteral("Inbox (3)"));
}

TEST_F(ExplorerWindowTest, EnterOpensTheMessageWithItsHeadersAndText)
{
    Write({}, {QStringLiteral("Newsletter"), false, QStringLiteral("News <news@example.net>"),
               QStringLiteral("<html><body><p>Big&nbsp;<b>sale</b></p><script>x()</script></body></html>"),
               true});
    ExplorerWindow& w = Start();
    QTreeView* view = w.MessageView();
    view->setCurrentIndex(view->model()->index(0, 0));  // the newest: the newsletter
    QTest::keyClick(view, Qt::Key_Return);
    ASSERT_EQ(m_app->GetInspectors()->Count(), 1);
    auto* inspector = static_cast<MessageWindow*>(m_app->GetInspectors()->Item(1));
    QWidget* window = inspector->Window();
    EXPECT_EQ(window->findChild<QLabel*>(QStringLiteral("lblFrom"))->text(),
              QStringLiteral("News <news@example.net>"));
    EXPECT_EQ(window->findChild<QLabel*>(QStringLiteral("lblSubject"))->text(), QStringLiteral("Newsletter"));
    EXPECT_TRUE(window->findChild<QLabel*>(QStringLiteral("lblTo"))->text().contains(QStringLiteral("Bob")));
    EXPECT_FALSE(window->findChild<QLabel*>(QStringLiteral("lblDate"))->text().isEmpty());
    const QString body = window->findChild<QPlainTextEdit*>(QStringLiteral("txtBody"))->toPlainText();
    EXPECT_TRUE(body.contains(QStringLiteral("Big sale"))) << body.toStdString();
    EXPECT_FALSE(body.contains(u'<'));
    EXPECT_FALSE(body.contains(QStringLiteral("x()")));

    // The same message again raises the open window instead of a second one.
    QTest::keyClick(view, Qt::Key_Enter);
    EXPECT_EQ(m_app->GetInspectors()->Count(), 1);
    EXPECT_EQ(AddIn().OpenItemIds().size(), 1);
}

TEST_F(ExplorerWindowTest, NewWindowOpensAnExplorerThatTheAddInTracksAndActivationPicksTheActiveOne)
{
    ExplorerWindow& first = Start();
    // Start-up and the Startup event each wrap the first window: keys 0 and 1.
    ASSERT_EQ(AddIn().ExplorerKeys(), (std::vector<std::int16_t>{0, 1}));
    first.Window()->findChild<QAction*>(QStringLiteral("mnuNewWindow"))->trigger();
    ASSERT_EQ(m_app->GetExplorers()->Count(), 2);
    EXPECT_EQ(AddIn().ExplorerKeys(), (std::vector<std::int16_t>{0, 1, 2}));
    auto* second = static_cast<ExplorerWindow*>(m_app->ActiveExplorer());
    EXPECT_NE(second, &first);
    EXPECT_TRUE(second->Window()->isVisible());
    // Closing one of two leaves the add-in up.
    second->Window()->close();
    Settle();
    EXPECT_EQ(m_app->GetExplorers()->Count(), 1);
    EXPECT_EQ(AddIn().ExplorerKeys(), (std::vector<std::int16_t>{0, 1}));
    EXPECT_FALSE(AddIn().Unloaded());
    EXPECT_EQ(m_app->ActiveExplorer(), &first);

    // The active explorer follows the window the user activates.
    auto* third = m_app->OpenExplorer();
    ASSERT_EQ(m_app->ActiveExplorer(), third);
    QSignalSpy activated(&first, &outlook::Explorer::Activate);
    QSignalSpy deactivated(third, &outlook::Explorer::Deactivate);
    first.Window()->activateWindow();
    ASSERT_TRUE(QTest::qWaitFor([&] { return activated.count() > 0; })) << "no activation on this platform";
    EXPECT_EQ(m_app->ActiveExplorer(), &first);
    EXPECT_TRUE(QTest::qWaitFor([&] { return deactivated.count() > 0; }));
}

TEST_F(ExplorerWindowTest, ClosingTheLastWindowShutsTheAddInDownOnceUnlessAMessageIsOpen)
{
    for (bool messageOpen : {false, true}) {
        SCOPED_TRACE(messageOpen ? "with a message window open" : "no message window");
        ExplorerWindow& w = Start();
        const int before = static_cast<int>(LogText().count(QStringLiteral("Calling UnInitHandler")));
        if (messageOpen) {
            w.MessageView()->setCurrentIndex(w.MessageView()->model()->index(0, 0));
            w.OpenCurrentMessage();
        }
        QSignalSpy closed(&w, &outlook::Explorer::Closed);
        w.Window()->close();
        Settle();
        EXPECT_EQ(closed.count(), 1);
        EXPECT_EQ(m_app->GetExplorers()->Count(), 0);
        EXPECT_EQ(AddIn().Unloaded(), !messageOpen);
        EXPECT_EQ(LogText().count(QStringLiteral("Calling UnInitHandler")) - before, messageOpen ? 0 : 1);
        Stop();
    }
}

}  // namespace mv::test
