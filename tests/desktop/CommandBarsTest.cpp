// The add-in's toolbar and Tools menu as the desktop shows them, their
// clicks, and the toolbar's place kept across starts.

#include "DesktopFixture.h"

#include "host/desktop/CommandBarRenderer.h"
#include "host/desktop/MessageWindow.h"
#include "platform/office/CommandBars.h"

#include <QLabel>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QTest>
#include <QToolBar>
#include <QToolButton>
#include <QTreeView>

namespace mv::test {

using namespace Qt::StringLiterals;

using host::desktop::ExplorerWindow;

namespace {

QStringList ButtonCaptions(QToolBar* toolbar)
{
    QStringList captions;
    for (QToolButton* b : toolbar->findChildren<QToolButton*>(Qt::FindDirectChildrenOnly))
        if (b->defaultAction()) captions << b->defaultAction()->text();
    return captions;
}

QToolButton* Button(ExplorerWindow& w, const QString& caption)
{
    QToolBar* toolbar = w.Renderer().ToolBar(u"Mailvane"_s);
    return toolbar ? toolbar->findChild<QToolButton*>(caption) : nullptr;
}

}  // namespace

class CommandBarsTest : public DesktopTest {
protected:
    void SetUp() override
    {
        DesktopTest::SetUp();
        Write({}, {u"Already read"_s, true});
        Write({}, {u"Still unread"_s, false});
        Write({}, {u"Read and open"_s, true});
    }
};

TEST_F(CommandBarsTest, TheAddInToolbarAndToolsMenuAppearAsWidgetsAndCallTheirCommands)
{
    ExplorerWindow& w = Start();
    QToolBar* toolbar = w.Renderer().ToolBar(u"Mailvane"_s);
    ASSERT_NE(toolbar, nullptr);
    EXPECT_TRUE(toolbar->isVisible());
    EXPECT_EQ(w.Window()->toolBarArea(toolbar), Qt::TopToolBarArea);
    // Each button as the add-in made it: caption, tip and the face pasted from its bitmap.
    QToolButton* run = Button(w, u"Run Mailvane Rules"_s);
    ASSERT_NE(run, nullptr);
    EXPECT_EQ(run->defaultAction()->toolTip(), u"Run Mailvane Rules"_s);
    EXPECT_FALSE(run->defaultAction()->icon().isNull());
    EXPECT_EQ(run->toolButtonStyle(), Qt::ToolButtonTextBesideIcon);
    QMenu* popup = w.Window()->findChild<QMenu*>(u"mnuTools"_s)->findChild<QMenu*>(u"Mailvane"_s);
    ASSERT_NE(popup, nullptr);
    // The four rule items, then Undo Last Run in a group of its own.
    QStringList items;
    for (QAction* a : popup->actions()) items << (a->isSeparator() ? u"|"_s : a->text().remove(u'&'));
    EXPECT_EQ(items.join(u','), u"Rules Manager...,Smart Add Rule...,Smart Rule Update...,Run Rules,|,Undo Last Run"_s);

    // Options and COM Add-ins call the host's hooks; Options collects the add-in's page.
    struct Pages : outlook::PropertyPages {
        void Add(const QString& page, const QString& caption) override { added << page + u'=' + caption; }
        QStringList added;
    } pages;
    QStringList called;
    m_app->Hooks().showOptions = [&](QWidget* parent) {
        EXPECT_EQ(parent, w.Window());
        called << u"options"_s;
        m_app->RaiseOptionsPagesAdd(&pages);
    };
    m_app->Hooks().showAddins = [&](QWidget*) { called << u"addins"_s; };
    w.Window()->findChild<QAction*>(u"mnuOptions"_s)->trigger();
    w.Window()->findChild<QAction*>(u"mnuAddins"_s)->trigger();
    EXPECT_EQ(called, (QStringList{u"options"_s, u"addins"_s}));
    EXPECT_EQ(pages.added, QStringList{u"MailvaneProps.ctlMailvane=Mailvane"_s});
}

TEST_F(CommandBarsTest, RunRulesMovesMatchingMailOutOfTheListButNotAnOpenMessage)
{
    ExplorerWindow& w = Start();
    AddReadMailRule();
    // "Read and open" is the newest: the first row.
    ASSERT_EQ(ListedSubjects(w).first(), u"Read and open"_s);
    w.MessageView()->setCurrentIndex(w.MessageView()->model()->index(0, 0));
    w.OpenCurrentMessage();
    ASSERT_EQ(AddIn().OpenItemIds().size(), 1);

    QToolButton* run = Button(w, u"Run Mailvane Rules"_s);
    ASSERT_NE(run, nullptr);
    run->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !ListedSubjects(w).contains(u"Already read"_s); }))
        << StoredSubjects(u"Archive"_s).join(u',').toStdString();
    EXPECT_EQ(ListedSubjects(w), (QStringList{u"Read and open"_s, u"Still unread"_s}));
    EXPECT_EQ(StoredSubjects(u"Archive"_s), QStringList{u"Already read"_s});

    // Once its window closes, the message is free to go.
    auto* inspector = static_cast<host::desktop::MessageWindow*>(m_app->GetInspectors()->Item(1));
    inspector->Window()->close();
    Settle();
    EXPECT_TRUE(AddIn().OpenItemIds().isEmpty());
    Button(w, u"Run Mailvane Rules"_s)->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return ListedSubjects(w) == QStringList{u"Still unread"_s}; }));
}

TEST_F(CommandBarsTest, ATimerDrivenRunShowsInTheListAtTheNextChangeCheck)
{
    m_checkMs = 100;
    ExplorerWindow& w = Start();
    AddReadMailRule();
    AddIn().RunAllRules();  // as the hourly cycle does: no click to react to
    EXPECT_EQ(StoredSubjects(u"Archive"_s).size(), 2);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ListedSubjects(w) == QStringList{u"Still unread"_s}; }))
        << ListedSubjects(w).join(u',').toStdString();
    EXPECT_EQ(w.Window()->findChild<QLabel*>(u"lblItemCount"_s)->text(), u"1 item, 1 unread"_s);
}

TEST_F(CommandBarsTest, AToolbarMovedToTheLeftIsSavedAndComesBackThereAtTheNextStart)
{
    ExplorerWindow& w = Start();
    QToolBar* toolbar = w.Renderer().ToolBar(u"Mailvane"_s);
    ASSERT_NE(toolbar, nullptr);
    w.Window()->addToolBar(Qt::LeftToolBarArea, toolbar);  // as the user's drag ends
    Settle();
    office::CommandBar* bar = AddIn().ToolbarBar();
    ASSERT_NE(bar, nullptr);
    EXPECT_EQ(bar->Position(), office::msoBarLeft);
    EXPECT_LT(bar->Left(), 0);

    Button(w, u"Run Mailvane Rules"_s)->click();  // runs, then UpdateSettings
    EXPECT_EQ(AddIn().tbPos, office::msoBarLeft);
    Stop();

    ExplorerWindow& again = Start();
    EXPECT_EQ(AddIn().init, 1);
    QToolBar* restored = again.Renderer().ToolBar(u"Mailvane"_s);
    ASSERT_NE(restored, nullptr);
    EXPECT_EQ(again.Window()->toolBarArea(restored), Qt::LeftToolBarArea);
    EXPECT_EQ(AddIn().ToolbarBar()->Position(), office::msoBarLeft);
}

// The renderer alone, over a window and bars of its own.
// The renderer alone, over a window and bars of its own: controls added or
// deleted later appear or disappear, and menu-bar popups become menus.
TEST(CommandBarRendererTest, ControlsAndPopupsFollowTheirBars)
{
    os::MemoryClipboard clipboard;
    office::CommandBars bars(&clipboard);
    QMainWindow window;
    window.setCentralWidget(new QWidget);
    window.menuBar()->addMenu(u"&File"_s);
    bars.Add(u"Menu Bar"_s, office::msoBarTop, true, false);
    host::desktop::CommandBarRenderer renderer(bars, window);
    renderer.BindMenu(u"Menu Bar"_s, window.menuBar());
    window.show();

    office::CommandBar* bar = bars.Add(u"Extras"_s, office::msoBarTop, false, true);
    bar->SetVisible(true);
    office::CommandBarControl* one = bar->Controls()->Add(office::msoControlButton);
    one->SetCaption(u"One"_s);
    office::CommandBarControl* two = bar->Controls()->Add(office::msoControlButton);
    two->SetCaption(u"Two"_s);
    two->SetBeginGroup(true);
    office::CommandBarControl* popup =
        bars.Item(u"Menu Bar"_s)->Controls()->Add(office::msoControlPopup, 0, {}, 0, true);
    popup->SetCaption(u"Extras"_s);
    office::CommandBarControl* item = popup->Controls()->Add(office::msoControlButton);
    item->SetCaption(u"Do it"_s);
    int clicks = 0;
    for (office::CommandBarControl* c : {two, item})
        QObject::connect(c, &office::CommandBarControl::Click,
                         [&](office::CommandBarControl*, bool&) { ++clicks; });
    QTest::qWait(50);
    QToolBar* toolbar = renderer.ToolBar(u"Extras"_s);
    ASSERT_NE(toolbar, nullptr);
    EXPECT_EQ(ButtonCaptions(toolbar), (QStringList{u"One"_s, u"Two"_s}));
    toolbar->findChild<QToolButton*>(u"Two"_s)->click();
    QStringList titles;
    for (QAction* a : window.menuBar()->actions()) titles << a->text();
    EXPECT_EQ(titles, (QStringList{u"&File"_s, u"Extras"_s}));
    QMenu* extras = window.menuBar()->actions().last()->menu();
    ASSERT_NE(extras, nullptr);
    ASSERT_EQ(extras->actions().size(), 1);
    extras->actions().first()->trigger();
    EXPECT_EQ(clicks, 2);

    struct Step {
        const char* what;
        std::function<void()> change;
        QStringList shown;
    } steps[] = {
        {"deleted", [&] { one->Delete(); }, {u"Two"_s}},
        {"hidden", [&] { two->SetVisible(false); }, {}},
        {"added",
         [&] { bar->Controls()->Add(office::msoControlButton)->SetCaption(u"Three"_s); },
         {u"Three"_s}},
    };
    for (const Step& step : steps) {
        step.change();
        QTest::qWait(50);
        EXPECT_EQ(ButtonCaptions(toolbar), step.shown) << step.what;
    }
    popup->Delete();
    bar->SetPosition(office::msoBarBottom);
    QTest::qWait(50);
    EXPECT_EQ(window.menuBar()->actions().size(), 1);
    EXPECT_EQ(window.toolBarArea(toolbar), Qt::BottomToolBarArea);
    bar->SetVisible(false);
    QTest::qWait(50);
    EXPECT_FALSE(toolbar->isVisible());
    bar->Delete();
    QTest::qWait(50);
    EXPECT_EQ(renderer.ToolBar(u"Extras"_s), nullptr);
}

}  // namespace mv::test
