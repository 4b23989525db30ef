// The toolbar, the Tools menu, their clicks and the toolbar's position in
// the settings, on the windowless host's command bars.

#include "AddInFixture.h"

#include "platform/office/CommandBars.h"

#include <QDir>

#include <sqlite3.h>

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

QString SettingsRow(const QString& path)
{
    sqlite3* db = nullptr;
    sqlite3_open_v2(path.toUtf8().constData(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* stmt = nullptr;
    QString out;
    if (sqlite3_prepare_v2(db, "SELECT tbTop, tbLeft, tbRow, init FROM Settings", -1, &stmt, nullptr) == SQLITE_OK &&
        sqlite3_step(stmt) == SQLITE_ROW)
        out = QStringLiteral("%1,%2,%3,%4")
                  .arg(sqlite3_column_int(stmt, 0))
                  .arg(sqlite3_column_int(stmt, 1))
                  .arg(sqlite3_column_int(stmt, 2))
                  .arg(sqlite3_column_int(stmt, 3));
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return out;
}

QStringList Describe(office::CommandBar* bar)
{
    QStringList out;
    for (const auto& c : bar->Controls()->items())
        out << QStringList{c->Caption(), c->Tag(), c->TooltipText(), c->OnAction(), QString::number(c->Style()),
                           c->Visible() ? "visible" : "hidden", c->BeginGroup() ? "group" : "-"}
                   .join(u'|');
    return out;
}

TEST_F(AddInTest, ToolbarHasItsFourButtonsWithFacesAndTheClipboardIsKept)
{
    m_clipboard.SetData(QStringLiteral("text/plain"), "the user's text");
    const auto before = m_clipboard.Save().formats;
    Start();
    office::CommandBar* bar = m_app->ActiveExplorer()->CommandBars()->Item("Mailvane");
    ASSERT_NE(bar, nullptr);
    EXPECT_TRUE(bar->Visible());
    EXPECT_TRUE(bar->Temporary());
    EXPECT_EQ(bar->Position(), office::msoBarTop);
    EXPECT_EQ(Describe(bar),
              (QStringList{"Mailvane|Mailvane|Mailvane Rules Manager|<!Mailvane.Connect>|3|visible|-",
                           "Smart Add Rule|Smart Add Rule|Smart Add Rule|<!Mailvane.Connect>|3|visible|-",
                           "Smart Rule Update|Smart Rule Update|Smart Rule Update|<!Mailvane.Connect>|3|visible|-",
                           "Run Mailvane Rules|Run Mailvane Rules|Run Mailvane Rules|<!Mailvane.Connect>|3|visible|-"}));
    for (const auto& c : bar->Controls()->items()) {
        const QImage face = c->Face();
        ASSERT_FALSE(face.isNull()) << c->Caption().toStdString();
        EXPECT_EQ(qAlpha(face.pixel(0, 0)), 0) << "magenta is transparent";
    }
    // The update button wears mv4 (the pencil), the run button mv3 (the arrow).
    EXPECT_NE(AddIn().CBBUpdate()->Face(), AddIn().CBBRun()->Face());
    EXPECT_EQ(m_clipboard.Save().formats, before);
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

TEST_F(AddInTest, ToolbarSettingZeroBuildsNothingAndLeavesTheClipboardAlone)
{
    Start();
    CountingClipboard clipboard;
    office::CommandBars bars(&clipboard);
    AddIn().SetClipboard(&clipboard);
    AddIn().SetToolbar(0);
    AddIn().BuildToolbar(&bars);
    EXPECT_EQ(bars.Item("Mailvane"), nullptr);
    EXPECT_EQ(clipboard.uses, 0);
    AddIn().SetToolbar(-1);  // any non-zero value builds
    AddIn().BuildToolbar(&bars);
    EXPECT_NE(bars.Item("Mailvane"), nullptr);
    EXPECT_GT(clipboard.uses, 0);
}

struct PlaceCase {
    const char* name;
    std::int16_t init;
    int row, left, top;
};

class ToolbarPlaceTest : public AddInTest, public ::testing::WithParamInterface<PlaceCase> {};

TEST_P(ToolbarPlaceTest, SavedPlaceAppliesOnlyWhenInitIsOne)
{
    const PlaceCase& c = GetParam();
    Start();
    os::MemoryClipboard clipboard;
    office::CommandBars bars(&clipboard);
    AddIn().init = c.init;
    AddIn().tbRow = 3;
    AddIn().tbLeft = 120;
    AddIn().tbTop = 40;
    AddIn().BuildToolbar(&bars);
    office::CommandBar* bar = bars.Item("Mailvane");
    ASSERT_NE(bar, nullptr);
    EXPECT_EQ(bar->RowIndex(), c.row);
    EXPECT_EQ(bar->Left(), c.left);
    EXPECT_EQ(bar->Top(), c.top);
}

INSTANTIATE_TEST_SUITE_P(AddIn, ToolbarPlaceTest,
                         ::testing::Values(PlaceCase{"InitOne", 1, 3, 120, 40}, PlaceCase{"InitZero", 0, 0, 0, 0},
                                           PlaceCase{"InitTwo", 2, 0, 0, 0}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(AddInTest, ToolsMenuPopupHasFourItems)
{
    Start();
    office::CommandBar* tools = m_app->ActiveExplorer()->CommandBars()->Item("Tools");
    ASSERT_NE(tools, nullptr);
    office::CommandBarControl* popup = nullptr;
    for (const auto& c : tools->Controls()->items())
        if (c->Caption() == "Mailvane") popup = c;
    ASSERT_NE(popup, nullptr);
    EXPECT_EQ(popup->Type(), office::msoControlPopup);
    EXPECT_TRUE(popup->Temporary());
    EXPECT_TRUE(popup->BeginGroup());
    QStringList captions;
    for (const auto& c : popup->Controls()->items()) {
        captions << c->Caption();
        EXPECT_TRUE(c->Temporary());
        EXPECT_FALSE(c->BeginGroup());
    }
    EXPECT_EQ(captions, (QStringList{"Rules Manager...", "Smart Add Rule...", "Smart Rule Update...", "Run Rules"}));
}

TEST_F(AddInTest, MenubarZeroBuildsNoPopup)
{
    // Settings come from the database: turn the menu off there first.
    ASSERT_TRUE(QDir().mkpath(DataDir()));
    const QString db = DataDir() + QStringLiteral("/mv.mdb");
    CopyTemplate(db);
    sqlite3* h = nullptr;
    ASSERT_EQ(sqlite3_open(db.toUtf8().constData(), &h), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(h, "UPDATE Settings SET menubar = 0", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(h);
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
    EXPECT_EQ(SettingsRow(DataDir() + QStringLiteral("/mv.mdb")), "42,7,2,1");
    EXPECT_TRUE(m_answerer.shown().empty()) << m_answerer.texts().join(u'|').toStdString();
}

}  // namespace
}  // namespace mv::test
