// The folder window over a real Maildir with the add-in connected: what the
// user sees of folders and messages, and the object-model events.

#include "DesktopFixture.h"

#include "host/desktop/FolderTreeModel.h"
#include "host/desktop/MessageListModel.h"
#include "host/desktop/MessageWindow.h"
#include "platform/mapi/MessageStore.h"
#include "platform/corpus/CorpusGenerator.h"
#include "platform/corpus/MaildirWriter.h"

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

using namespace Qt::StringLiterals;

using host::desktop::ExplorerWindow;
using host::desktop::FolderTreeModel;
using host::desktop::MessageWindow;

class ExplorerWindowTest : public DesktopTest {
protected:
    void SetUp() override
    {
        DesktopTest::SetUp();
        Write({}, {u"Lunch on Friday"_s, false});
        Write({}, {u"Quarterly report"_s, true});
        Write({}, {u"Server down"_s, false});
        Write({}, {u"Re: holidays"_s, true});
        Write(u"Archive"_s, {u"Old news"_s, true});
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

// A generated mailbox: every folder shows the number of unread messages
// written there, in bold when there are any; nested folders sit under their
// parent.
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
        const QString path = folder.isEmpty() ? u"Inbox"_s : folder;
        const QModelIndex index = w.Folders().IndexOfPath(path);
        ASSERT_TRUE(index.isValid()) << path.toStdString();
        const int n = unread.value(folder);
        EXPECT_EQ(index.data(FolderTreeModel::UnreadRole).toInt(), n) << path.toStdString();
        const QString name = path.section(u'/', -1);
        EXPECT_EQ(index.data().toString(), n ? name + u" (%1)"_s.arg(n) : name);
        EXPECT_EQ(index.data(Qt::FontRole).value<QFont>().bold(), n > 0) << path.toStdString();
        const QString parent = path.contains(u'/') ? path.section(u'/', 0, 0) : u"Local Mail"_s;
        EXPECT_EQ(index.parent().data(FolderTreeModel::NameRole).toString(), parent) << path.toStdString();
    }
    EXPECT_EQ(w.MessageView()->model()->rowCount(), total.value(QString()));
}

TEST_F(ExplorerWindowTest, AFolderMadeMeanwhileAppearsAtTheNextRefreshAndTheOpenFolderStays)
{
    ExplorerWindow& w = Start();
    ASSERT_TRUE(w.OpenFolder(u"Archive"_s));
    int switches = 0;
    QObject::connect(&w, &outlook::Explorer::BeforeFolderSwitch,
                     [&](outlook::Folder*, bool&) { ++switches; });
    mapi::MessageStore* store = m_stores->Stores().front();
    ASSERT_TRUE(store->CreateFolder({}, u"Projects"_s));
    w.Refresh();
    EXPECT_TRUE(w.Folders().IndexOfPath(u"Projects"_s).isValid());
    EXPECT_EQ(w.FolderView()->currentIndex().data(FolderTreeModel::NameRole).toString(), u"Archive"_s);
    EXPECT_EQ(ListedSubjects(w), QStringList{u"Old news"_s});
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
    EXPECT_EQ(items[0]->Subject(), u"Re: holidays"_s);
    EXPECT_EQ(items[1]->Subject(), u"Quarterly report"_s);
    EXPECT_EQ(items[0]->SenderEmailAddress(), u"alice@example.com"_s);

    // Sorting by a column keeps the selection on the same messages.
    SelectRows(w, {1});
    w.MessageView()->sortByColumn(host::desktop::MessageListModel::ColSubject, Qt::AscendingOrder);
    EXPECT_EQ(ListedSubjects(w).front(), u"Lunch on Friday"_s);
    ASSERT_EQ(w.SelectionCount(), 1);
    EXPECT_EQ(w.Selection().front()->Subject(), u"Server down"_s);
}

TEST_F(ExplorerWindowTest, OpensOnTheInboxAndAFolderSwitchCanBeCancelledByAHandler)
{
    ExplorerWindow& w = Start();
    // The window opens on the Inbox, newest first, with its count below.
    EXPECT_EQ(ListedSubjects(w), (QStringList{u"Re: holidays"_s, u"Server down"_s, u"Quarterly report"_s,
                                              u"Lunch on Friday"_s}));
    EXPECT_EQ(w.Window()->findChild<QLabel*>(u"lblItemCount"_s)->text(), u"4 items, 2 unread"_s);
    for (bool cancel : {true, false}) {
        QMetaObject::Connection link = QObject::connect(&w, &outlook::Explorer::BeforeFolderSwitch,
                                                        [cancel](outlook::Folder* folder, bool& c) {
                                                            EXPECT_EQ(folder->Name(), u"Archive"_s);
                                                            c = cancel;
                                                        });
        EXPECT_EQ(w.OpenFolder(u"Archive"_s), !cancel);
        EXPECT_EQ(w.CurrentFolder()->Name(), cancel ? u"Inbox"_s : u"Archive"_s);
        EXPECT_EQ(ListedSubjects(w).size(), cancel ? 4 : 1);
        QObject::disconnect(link);
    }
}

TEST_F(ExplorerWindowTest, NewMailShowsInTheOpenFolderWithoutLosingTheSelection)
{
    ExplorerWindow& w = Start();
    SelectRows(w, {1});
    const QString selected = w.Selection().front()->Subject();
    Write({}, {u"Fresh arrival"_s, false}, /*intoNew=*/true);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ListedSubjects(w).contains(u"Fresh arrival"_s); }))
        << "the list did not follow the arrival";
    ASSERT_EQ(w.SelectionCount(), 1);
    EXPECT_EQ(w.Selection().front()->Subject(), selected);
    EXPECT_EQ(w.Folders().IndexOfPath(u"Inbox"_s).data().toString(), u"Inbox (3)"_s);
}

TEST_F(ExplorerWindowTest, EnterOpensTheMessageWithItsHeadersAndText)
{
    Write({}, {u"Newsletter"_s, false, u"News <news@example.net>"_s,
               u"<html><body><p>Big&nbsp;<b>sale</b></p><script>x()</script></body></html>"_s, true});
    ExplorerWindow& w = Start();
    QTreeView* view = w.MessageView();
    view->setCurrentIndex(view->model()->index(0, 0));  // the newest: the newsletter
    QTest::keyClick(view, Qt::Key_Return);
    ASSERT_EQ(m_app->GetInspectors()->Count(), 1);
    auto* inspector = static_cast<MessageWindow*>(m_app->GetInspectors()->Item(1));
    QWidget* window = inspector->Window();
    EXPECT_EQ(window->findChild<QLabel*>(u"lblFrom"_s)->text(), u"News <news@example.net>"_s);
    EXPECT_EQ(window->findChild<QLabel*>(u"lblSubject"_s)->text(), u"Newsletter"_s);
    EXPECT_TRUE(window->findChild<QLabel*>(u"lblTo"_s)->text().contains(u"Bob"_s));
    EXPECT_FALSE(window->findChild<QLabel*>(u"lblDate"_s)->text().isEmpty());
    const QString body = window->findChild<QPlainTextEdit*>(u"txtBody"_s)->toPlainText();
    EXPECT_TRUE(body.contains(u"Big sale"_s)) << body.toStdString();
    EXPECT_FALSE(body.contains(u'<'));
    EXPECT_FALSE(body.contains(u"x()"_s));

    // The same message again raises the open window instead of a second one.
    QTest::keyClick(view, Qt::Key_Enter);
    EXPECT_EQ(m_app->GetInspectors()->Count(), 1);
    EXPECT_EQ(AddIn().OpenItemIds().size(), 1);
}

TEST_F(ExplorerWindowTest, NewWindowOpensAnExplorerThatTheAddInTracksAndActivationPicksTheActiveOne)
{
    ExplorerWindow& first = Start();
    first.Window()->findChild<QAction*>(u"mnuNewWindow"_s)->trigger();
    ASSERT_EQ(m_app->GetExplorers()->Count(), 2);
    EXPECT_EQ(AddIn().ExplorerKeys(), (std::vector<std::int16_t>{0, 1, 2}));
    auto* second = static_cast<ExplorerWindow*>(m_app->ActiveExplorer());
    EXPECT_NE(second, &first);
    EXPECT_TRUE(second->Window()->isVisible());
    // Closing one of two leaves the add-in up.
    QSignalSpy closed(second, &outlook::Explorer::Closed);
    second->Window()->close();
    Settle();
    EXPECT_EQ(closed.count(), 1);
    EXPECT_EQ(m_app->GetExplorers()->Count(), 1);
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

}  // namespace mv::test
