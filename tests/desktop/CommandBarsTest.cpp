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
    QToolBar* toolbar = w.Renderer().ToolBar(QStringLiteral("Mailvane"));
    return toolbar ? toolbar->findChild<QToolButton*>(caption) : nullptr;
}

QStringList MenuTexts(QMenu* menu)
{
    QStringList texts;
    for (QAction* a : menu->actions())
        if (!a->isSeparator()) texts << a->text();
    return texts;
}

}  // namespace

class CommandBarsTest : public DesktopTest {
protected:
    void SetUp() override
    {
        DesktopTest::SetUp();
        Write({}, {QStringLiteral("Already read"), true});
        Write({}, {QStringLiteral("Still unread"), false});
        Write({}, {QStringLiteral("Read and open"), true});
    }
};

TEST_F(CommandBarsTest, TheAddInToolbarAndToolsMenuAppearAsWidgetsAndCallTheirCommands)
{
    ExplorerWindow& w = Start();
    QToolBar* toolbar = w.Renderer().ToolBar(QStringLiteral("Mailvane"));
    ASSERT_NE(toolbar, nullptr);
    EXPECT_TRUE(toolbar->isVisible());
    EXPECT_EQ(w.Window()->toolBarArea(toolbar), Qt::TopToolBarArea);
    EXPECT_EQ(ButtonCaptions(toolbar),
              (QStringList{QStringLiteral("Mailvane"), QStringLiteral("Smart Add Rule"),
                           QStringLiteral("Smart Rule Update"), QStringLiteral("Run Mailvane Rules")}));
    struct Case {
        const char* caption;
        const char* tooltip;
    } cases[] = {{"Mailvane", "Mailvane Rules Manager"}, {"Run Mailvane Rules", "Run Mailvane Rules"}};
    for (const Case& c : cases) {
        QToolButton* b = Button(w, QString::fromLatin1(c.caption));
        ASSERT_NE(b, nullptr) << c.caption;
        EXPECT_EQ(b->defaultAction()->toolTip(), QString::fromLatin1(c.tooltip));
        EXPECT_FALSE(b->defaultAction()->icon().isNull()) << "the face pasted from the bitmap";
        EXPECT_EQ(b->toolButtonStyle(), Qt::ToolButtonTextBesideIcon);
    }

    QMenu* tools = w.Window()->findChild<QMenu*>(QStringLiteral("mnuTools"));
    ASSERT_NE(tools, nullptr);
    const QStringList entries = MenuTexts(tools);
    ASSERT_EQ(entries.size(), 3) << entries.join(u'|').toStdString();
    EXPECT_EQ(entries.last(), QStringLiteral("Mailvane"));
    QMenu* popup = tools->findChild<QMenu*>(QStringLiteral("Mailvane"));
    ASSERT_NE(popup, nullptr);
    EXPECT_EQ(MenuTexts(popup),
              (QStringList{QStringLiteral("Rules Manager..."), QStringLiteral("Smart Add Rule..."),
                           QStringLiteral("Smart Rule Update..."), QStringLiteral("Run Rules")}));

    // Options and COM Add-ins call the host's hooks; Options collects the add-in's page.
    struct Pages : outlook::PropertyPages {
        void Add(const QString& page, const QString& caption) override { added << page + u'=' + caption; }
        QStringList added;
    } pages;
    QStringList called;
    m_app->Hooks().showOptions = [&](QWidget* parent) {
        EXPECT_EQ(parent, w.Window());
        called << QStringLiteral("options");
        m_app->RaiseOptionsPagesAdd(&pages);
    };
    m_app->Hooks().showAddins = [&](QWidget*) { called << QStringLiteral("addins"); };
    w.Window()->findChild<QAction*>(QStringLiteral("mnuOptions"))->trigger();
    w.Window()->findChild<QAction*>(QStringLiteral("mnuAddins"))->trigger();
    EXPECT_EQ(called, (QStringList{QStringLiteral("options"), QStringLiteral("addins")}));
    EXPECT_EQ(pages.added, QStringList{QStringLiteral("MailvaneProps.ctlMailvane=Mailvane")});

    // Smart Add with nothing selected asks for a mail item.
    w.MessageView()->clearSelection();
    Button(w, QStringLiteral("Smart Add Rule"))->click();
    ASSERT_EQ(m_answerer.shown().size(), 1u);
    EXPECT_EQ(m_answerer.shown()[0].text,
              QStringLiteral("Please select a Mail Item before using this feature."));
    EXPECT_EQ(m_answerer.shown()[0].style, os::vbInformation);
}

TEST_F(CommandBarsTest, RunRulesMovesMatchingMailOutOfTheListButNotAnOpenMessage)
{
    ExplorerWindow& w = Start();
    AddReadMailRule();
    // "Read and open" is the newest: the first row.
    ASSERT_EQ(ListedSubjects(w).first(), QStringLiteral("Read and open"));
    w.MessageView()->setCurrentIndex(w.MessageView()->model()->index(0, 0));
    w.OpenCurrentMessage();
    ASSERT_EQ(AddIn().OpenItemIds().size(), 1);

    QToolButton* run = Button(w, QStringLiteral("Run Mailvane Rules"));
    ASSERT_NE(run, nullptr);
    run->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !ListedSubjects(w).contains(QStringLiteral("Already read")); }))
        << StoredSubjects(QStringLiteral("Archive")).join(u',').toStdString() << LogText().toStdString();
    EXPECT_EQ(ListedSubjects(w),
              (QStringList{QStringLiteral("Read and open"), QStringLiteral("Still unread")}));
    EXPECT_EQ(StoredSubjects(QStringLiteral("Archive")), QStringList{QStringLiteral("Already read")});

    // Once its window closes, the message is free to go.
    auto* inspector = static_cast<host::desktop::MessageWindow*>(m_app->GetInspectors()->Item(1));
    inspector->Window()->close();
    Settle();
    EXPECT_TRUE(AddIn().OpenItemIds().isEmpty());
    Button(w, QStringLiteral("Run Mailvane Rules"))->click();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return ListedSubjects(w) == QStringList{QStringLiteral("Still unread")}; }));
}

TEST_F(CommandBarsTest, ATimerDrivenRunShowsInTheListAtTheNextChangeCheck)
{
    m_checkMs = 100;
    ExplorerWindow& w = Start();
    AddReadMailRule();
    AddIn().RunAllRules();  // as the hourly cycle does: no click to react to
    EXPECT_EQ(StoredSubjects(QStringLiteral("Archive")).size(), 2);
    ASSERT_TRUE(QTest::qWaitFor([&] {
        return ListedSubjects(w) == QStringList{QStringLiteral("Still unread")};
    })) << ListedSubjects(w).join(u',').toStdString();
    EXPECT_EQ(w.Window()->findChild<QLabel*>(QStringLiteral("lblItemCount"))->text(),
              QStringLiteral("1 item, 1 unread"));
}

TEST_F(CommandBarsTest, AToolbarMovedToTheLeftIsSavedAndComesBackThereAtTheNextStart)
{
    ExplorerWindow& w = Start();
    QToolBar* toolbar = w.Renderer().ToolBar(QStringLiteral("Mailvane"));
    ASSERT_NE(toolbar, nullptr);
    w.Window()->addToolBar(Qt::LeftToolBarArea, toolbar);  // as the user's drag ends
    Settle();
    office::CommandBar* bar = AddIn().ToolbarBar();
    ASSERT_NE(bar, nullptr);
    EXPECT_EQ(bar->Position(), office::msoBarLeft);
    EXPECT_LT(bar->Left(), 0);

    Button(w, QStringLiteral("Run Mailvane Rules"))->click();  // runs, then UpdateSettings
    EXPECT_EQ(AddIn().tbPos, office::msoBarLeft);
    Stop();

    ExplorerWindow& again = Start();
    EXPECT_EQ(AddIn().init, 1);
    QToolBar* restored = again.Renderer().ToolBar(QStringLiteral("Mailvane"));
    ASSERT_NE(restored, nullptr);
    EXPECT_EQ(again.Window()->toolBarArea(restored), Qt::LeftToolBarArea);
    EXPECT_EQ(AddIn().ToolbarBar()->Position(), office::msoBarLeft);
}

// The renderer alone, over a window and bars of its own.
TEST(CommandBarRendererTest, ControlsAddedOrDeletedLaterAppearOrDisappear)
{
    os::MemoryClipboard clipboard;
    office::CommandBars bars(&clipboard);
    QMainWindow window;
    window.setCentralWidget(new QWidget);
    host::desktop::CommandBarRenderer renderer(bars, window);
    window.show();

    office::CommandBar* bar = bars.Add(QStringLiteral("Extras"), office::msoBarTop, false, true);
    bar->SetVisible(true);
    office::CommandBarControl* one = bar->Controls()->Add(office::msoControlButton);
    one->SetCaption(QStringLiteral("One"));
    office::CommandBarControl* two = bar->Controls()->Add(office::msoControlButton);
    two->SetCaption(QStringLiteral("Two"));
    two->SetBeginGroup(true);
    QTest::qWait(50);
    QToolBar* toolbar = renderer.ToolBar(QStringLiteral("Extras"));
    ASSERT_NE(toolbar, nullptr);
    EXPECT_EQ(ButtonCaptions(toolbar), (QStringList{QStringLiteral("One"), QStringLiteral("Two")}));

    int clicks = 0;
    QObject::connect(two, &office::CommandBarControl::Click,
                     [&](office::CommandBarControl*, bool&) { ++clicks; });
    toolbar->findChild<QToolButton*>(QStringLiteral("Two"))->click();
    EXPECT_EQ(clicks, 1);

    struct Step {
        const char* what;
        std::function<void()> change;
        QStringList shown;
    } steps[] = {
        {"deleted", [&] { one->Delete(); }, {QStringLiteral("Two")}},
        {"hidden", [&] { two->SetVisible(false); }, {}},
        {"added",
         [&] { bar->Controls()->Add(office::msoControlButton)->SetCaption(QStringLiteral("Three")); },
         {QStringLiteral("Three")}},
    };
    for (const Step& step : steps) {
        step.change();
        QTest::qWait(50);
        EXPECT_EQ(ButtonCaptions(toolbar), step.shown) << step.what;
    }

    bar->SetPosition(office::msoBarBottom);
    QTest::qWait(50);
    EXPECT_EQ(window.toolBarArea(toolbar), Qt::BottomToolBarArea);
    bar->SetVisible(false);
    QTest::qWait(50);
    EXPECT_FALSE(toolbar->isVisible());
    bar->Delete();
    QTest::qWait(50);
    EXPECT_EQ(renderer.ToolBar(QStringLiteral("Extras")), nullptr);
}

TEST(CommandBarRendererTest, PopupsOnTheMenuBarBecomeMenusOfTheWindow)
{
    os::MemoryClipboard clipboard;
    office::CommandBars bars(&clipboard);
    QMainWindow window;
    window.menuBar()->addMenu(QStringLiteral("&File"));
    bars.Add(QStringLiteral("Menu Bar"), office::msoBarTop, true, false);
    host::desktop::CommandBarRenderer renderer(bars, window);
    renderer.BindMenu(QStringLiteral("Menu Bar"), window.menuBar());

    office::CommandBarControl* popup =
        bars.Item(QStringLiteral("Menu Bar"))->Controls()->Add(office::msoControlPopup, 0, {}, 0, true);
    popup->SetCaption(QStringLiteral("Extras"));
    office::CommandBarControl* item = popup->Controls()->Add(office::msoControlButton);
    item->SetCaption(QStringLiteral("Do it"));
    int clicks = 0;
    QObject::connect(item, &office::CommandBarControl::Click,
                     [&](office::CommandBarControl*, bool&) { ++clicks; });
    QTest::qWait(50);

    QStringList titles;
    for (QAction* a : window.menuBar()->actions()) titles << a->text();
    EXPECT_EQ(titles, (QStringList{QStringLiteral("&File"), QStringLiteral("Extras")}));
    QMenu* extras = window.menuBar()->actions().last()->menu();
    ASSERT_NE(extras, nullptr);
    ASSERT_EQ(extras->actions().size(), 1);
    extras->actions().first()->trigger();
    EXPECT_EQ(clicks, 1);

    popup->Delete();
    QTest::qWait(50);
    EXPECT_EQ(window.menuBar()->actions().size(), 1);
}

}  // namespace mv::test
