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

TEST_F(AddInTest, ToolbarFacesAreTransparentAndTheClipboardIsKept)
{
    m_clipboard.SetData(QStringLiteral("text/plain"), "the user's text");
    const auto before = m_clipboard.Save().formats;
    Start();
    office::CommandBar* bar = m_app->ActiveExplorer()->CommandBars()->Item("Mailvane");
    ASSERT_NE(bar, nullptr);
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
    EXPECT_TRUE(popup->BeginGroup());
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

// The saved place applies only when init is 1; a toolbar setting of 0
// builds nothing and leaves the clipboard alone, any other value builds.
TEST_F(AddInTest, SavedPlaceAndToolbarSetting)
{
    Start();
    const struct {
        const char* name;
        std::int16_t toolbar, init;
        int row, left, top;  // row -1: no toolbar built
    } cases[] = {{"InitOne", 1, 1, 3, 120, 40},
                 {"InitZero", 1, 0, 0, 0, 0},
                 {"InitTwo", 1, 2, 0, 0, 0},
                 {"ToolbarOff", 0, 1, -1, 0, 0},
                 {"ToolbarMinusOne", -1, 0, 0, 0, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
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
        EXPECT_EQ(bar != nullptr, c.row >= 0);
        if (bar && c.row >= 0) {
            EXPECT_EQ(QList<int>({bar->RowIndex(), bar->Left(), bar->Top()}),
                      QList<int>({c.row, c.left, c.top}));
        }
    }
    AddIn().SetClipboard(&m_clipboard);
}

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

TEST_F(AddInTest, ClicksWithNothingSelected)
{
    addin::OutAddIn& addIn = Start();
    const struct {
        const char* name;
        office::CommandBarControl* control;
        const char* opened;  // what the form launcher was asked for; "" none
        bool selectionBox;
    } cases[] = {{"RulesManagerButton", addIn.CBBRuleMgr(), "RulesManager", false},
                 {"SmartAddButtonTestsSelection", addIn.CBBAdd(), "", true},
                 {"SmartUpdateButtonTestsSelection", addIn.CBBUpdate(), "", true},
                 {"RulesManagerMenu", addIn.MenuItem(1), "RulesManager", false},
                 {"SmartAddMenuSkipsTheTest", addIn.MenuItem(2), "SmartAdd", false},
                 {"SmartUpdateMenuTestsSelection", addIn.MenuItem(3), "", true},
                 {"RunMenu", addIn.MenuItem(4), "", false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_NE(c.control, nullptr);
        c.control->Execute();
        EXPECT_EQ(m_forms.opened.join(u','), QLatin1String(c.opened));
        EXPECT_EQ(m_answerer.texts(),
                  c.selectionBox ? QStringList{"Please select a Mail Item before using this feature."}
                                 : QStringList{});
        m_forms.opened.clear();
        m_answerer.clear();
    }
    // Undo Last Run, after the four items, says so when no run moved anything.
    ASSERT_NE(addIn.MenuUndo(), nullptr);
    EXPECT_EQ(addIn.MenuUndo()->Caption(), "Undo Last Run");
    addIn.MenuUndo()->Execute();
    ASSERT_EQ(m_answerer.texts().size(), 1);
    EXPECT_TRUE(m_answerer.texts().front().startsWith("Nothing to undo: no run has moved anything"))
        << m_answerer.texts().front().toStdString();
}

}  // namespace
}  // namespace mv::test
