// The toolbar, the Tools menu, their clicks and the toolbar's position in
// the settings, on the windowless host's command bars.

#include "AddInFixture.h"

#include "platform/office/CommandBars.h"

#include <QDir>

namespace mv::test {
namespace {

// Counts every use, so a test can tell "untouched" from "restored".
class CountingClipboard : public os::MemoryClipboard {
public:
    Snapshot Save() const override { ++uses; return MemoryClipboard::Save(); }
    void Restore(const Snapshot& s) override { ++uses; MemoryClipboard::Restore(s); }
    void SetData(const QString& f, const QByteArray& d) override { ++uses; MemoryClipboard::SetData(f, d); }
    void Clear() override { ++uses; MemoryClipboard::Clear(); }
    mutable int uses = 0;
};

TEST_F(AddInTest, ToolbarAndToolsMenuHaveTheirFourItemsAndTheClipboardIsKept)
{
    m_clipboard.SetData(QStringLiteral("text/plain"), "the user's text");
    const auto before = m_clipboard.Save().formats;
    Start();
    office::CommandBar* bar = m_app->ActiveExplorer()->CommandBars()->Item("Mailvane");
    ASSERT_NE(bar, nullptr);
    EXPECT_TRUE(bar->Visible());
    EXPECT_TRUE(bar->Temporary());
    EXPECT_EQ(bar->Position(), office::msoBarTop);
    ASSERT_EQ(bar->Controls()->Count(), 4);
    for (const auto& c : bar->Controls()->items()) {
        const QImage face = c->Face();
        ASSERT_FALSE(face.isNull()) << c->Caption().toStdString();
        EXPECT_EQ(qAlpha(face.pixel(0, 0)), 0) << "magenta is transparent";
    }
    // The update button wears mv4 (the pencil), the run button mv3 (the arrow).
    EXPECT_NE(AddIn().CBBUpdate()->Face(), AddIn().CBBRun()->Face());
    EXPECT_EQ(m_clipboard.Save().formats, before);

    office::CommandBarControl* popup = nullptr;
    for (const auto& c : m_app->ActiveExplorer()->CommandBars()->Item("Tools")->Controls()->items())
        if (c->Caption() == "Mailvane") popup = c;
    ASSERT_NE(popup, nullptr);
    EXPECT_EQ(popup->Type(), office::msoControlPopup);
    EXPECT_TRUE(popup->Temporary());
    EXPECT_TRUE(popup->BeginGroup());
    EXPECT_EQ(popup->Controls()->Count(), 4);
    for (const auto& c : popup->Controls()->items()) {
        EXPECT_TRUE(c->Temporary());
        EXPECT_FALSE(c->BeginGroup());
    }
}

TEST_F(AddInTest, SecondBuildOnTheSameBarsRecreatesTheButtons)
{
    Start();
    office::CommandBars* bars = m_app->ActiveExplorer()->CommandBars();
    const int barCount = bars->Count();
    QPointer<office::CommandBarControl> oldRun = AddIn().CBBRun();
    AddIn().BuildToolbar(bars);
    DeleteLater();
    EXPECT_EQ(bars->Count(), barCount);
    EXPECT_EQ(bars->Item("Mailvane")->Controls()->Count(), 4);
    EXPECT_TRUE(oldRun.isNull());
    ASSERT_NE(AddIn().CBBRun(), nullptr);
    m_logLines->clear();
    AddIn().CBBRun()->Execute();
    EXPECT_EQ(AddIn().init, 1) << "the new button is wired";
}

struct PlaceCase {
    const char* name;
    std::int16_t toolbar, init;
    int row, left, top;  // row -1: no toolbar built
};

class ToolbarPlaceTest : public AddInTest, public ::testing::WithParamInterface<PlaceCase> {};

// The saved place applies only when init is 1; a toolbar setting of 0
// builds nothing and leaves the clipboard alone, any other value builds.
TEST_P(ToolbarPlaceTest, SavedPlaceAndToolbarSetting)
{
    const PlaceCase& c = GetParam();
    Start();
    CountingClipboard clipboard;
    office::CommandBars bars(&clipboard);
    AddIn().SetClipboard(&clipboard);
    AddIn().SetToolbar(c.toolbar);
    AddIn().init = c.init;
    AddIn().tbRow = 3;
    AddIn().tbLeft = 120;
    AddIn().tbTop = 40;
    AddIn().BuildToolbar(&bars);
    office::CommandBar* bar = bars.Item("Mailvane");
    EXPECT_EQ(clipboard.uses > 0, c.row >= 0);
    if (c.row < 0) {
        EXPECT_EQ(bar, nullptr);
        return;
    }
    ASSERT_NE(bar, nullptr);
    EXPECT_EQ(bar->RowIndex(), c.row);
    EXPECT_EQ(bar->Left(), c.left);
    EXPECT_EQ(bar->Top(), c.top);
}

INSTANTIATE_TEST_SUITE_P(AddIn, ToolbarPlaceTest,
                         ::testing::Values(PlaceCase{"InitOne", 1, 1, 3, 120, 40}, PlaceCase{"InitZero", 1, 0, 0, 0, 0},
                                           PlaceCase{"InitTwo", 1, 2, 0, 0, 0}, PlaceCase{"ToolbarOff", 0, 1, -1, 0, 0},
                                           PlaceCase{"ToolbarMinusOne", -1, 0, 0, 0, 0}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(AddInTest, MenubarZeroBuildsNoPopup)
{
    // Settings come from the database: turn the menu off there first.
    ASSERT_TRUE(QDir().mkpath(DataDir()));
    CopyTemplate(DataDb());
    Sql(DataDb(), QStringLiteral("UPDATE Settings SET menubar = 0"));
    Start();
    EXPECT_EQ(AddIn().Menubar(), 0);
    office::CommandBar* tools = m_app->ActiveExplorer()->CommandBars()->Item("Tools");
    for (const auto& c : tools->Controls()->items()) EXPECT_NE(c->Caption(), "Mailvane");
    EXPECT_EQ(AddIn().MenuItem(1), nullptr);
}

struct ClickCase {
    const char* name;
    bool menu;     // a menu item rather than a toolbar button
    int index;     // 1..4
    const char* opened;  // what the form launcher was asked for; "" none
    bool selectionBox;
};

class ClickTest : public AddInTest, public ::testing::WithParamInterface<ClickCase> {};

TEST_P(ClickTest, WithNothingSelected)
{
    const ClickCase& c = GetParam();
    addin::OutAddIn& addIn = Start();
    office::CommandBarControl* buttons[] = {addIn.CBBRuleMgr(), addIn.CBBAdd(), addIn.CBBUpdate(), addIn.CBBRun()};
    office::CommandBarControl* control = c.menu ? addIn.MenuItem(c.index) : buttons[c.index - 1];
    ASSERT_NE(control, nullptr);
    control->Execute();
    EXPECT_EQ(m_forms.opened.join(u','), QLatin1String(c.opened));
    if (c.selectionBox) {
        ASSERT_EQ(m_answerer.shown().size(), 1u);
        EXPECT_EQ(m_answerer.shown()[0].text, "Please select a Mail Item before using this feature.");
        EXPECT_EQ(m_answerer.shown()[0].style, os::vbInformation);
    } else {
        EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(u'|').toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(
    AddIn, ClickTest,
    ::testing::Values(ClickCase{"RulesManagerButton", false, 1, "RulesManager", false},
                      ClickCase{"SmartAddButtonTestsSelection", false, 2, "", true},
                      ClickCase{"SmartUpdateButtonTestsSelection", false, 3, "", true},
                      ClickCase{"RulesManagerMenu", true, 1, "RulesManager", false},
                      ClickCase{"SmartAddMenuSkipsTheTest", true, 2, "SmartAdd", false},
                      ClickCase{"SmartUpdateMenuTestsSelection", true, 3, "", true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(AddInTest, RunClickRunsRulesThenStoresTheToolbarPlace)
{
    addin::OutAddIn& addIn = Start();
    office::CommandBar* bar = m_app->ActiveExplorer()->CommandBars()->Item("Mailvane");
    bar->SetTop(42);
    bar->SetLeft(7);
    bar->SetRowIndex(2);
    for (office::CommandBarControl* run : {addIn.MenuItem(4), addIn.CBBRun()}) {
        ASSERT_NE(run, nullptr);
        run->Execute();
    }
    EXPECT_EQ(Query(DataDb(), "SELECT tbTop, tbLeft, tbRow, init FROM Settings"), "42,7,2,1");
    EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(u'|').toStdString();
}

}  // namespace
}  // namespace mv::test
