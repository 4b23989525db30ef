// Explorer and Inspector tracking: keys, removal, shut-down from the last
// window, and the ids of items open in a window.

#include "AddInFixture.h"

#include "addin/ExplWrap.h"
#include "addin/InspWrap.h"
#include "platform/outlook/store/StoreItem.h"
#include "platform/stores/memory/MemoryStore.h"

namespace mv::test {
namespace {

TEST_F(AddInTest, ExplorerKeysAreNeverReusedAndClosingOneKeepsTheAddIn)
{
    addin::OutAddIn& addIn = Start();
    host::HeadlessExplorer* second = m_app->OpenExplorer();
    m_app->OpenExplorer();
    second->Close();
    DeleteLater();
    m_app->OpenExplorer();
    EXPECT_EQ(addIn.ExplorerKeys(), (std::vector<std::int16_t>{0, 2, 3})) << "key 1 is not given again";
    EXPECT_FALSE(addIn.Unloaded());
    EXPECT_EQ(Trail().count("m_objExpl_Close: Calling UnInitHandler..."), 0);
}

// A message window keeps the add-in up, so both closes reach objExpl_Close:
// the second Explorer is watched once the first has gone.
TEST_F(AddInTest, AnOpenInspectorKeepsTheAddInUpAndTheNextExplorerIsWatched)
{
    addin::OutAddIn& addIn = Start();
    outlook::Explorer* first = m_app->ActiveExplorer();
    host::HeadlessExplorer* second = m_app->OpenExplorer();
    stores::MemoryStore store;  // an item as an Inspector shows it: only its identity matters
    host::HeadlessInspector* inspector = m_app->OpenInspector(
        std::make_unique<outlook::StoreItem>(store, QByteArray::fromHex("ABCD01"), mapi::MessageRecord{}));
    EXPECT_EQ(addIn.OpenItemIds(), QStringList{"ABCD01"});
    EXPECT_TRUE(addIn.IsItemOpen(QStringLiteral("abcd01")));
    EXPECT_FALSE(addIn.IsItemOpen(QStringLiteral("ABCD02")));

    for (outlook::Explorer* e : {first, static_cast<outlook::Explorer*>(second)}) {
        e->Close();
        DeleteLater();
    }
    EXPECT_FALSE(addIn.Unloaded()) << "a message window is still open";
    EXPECT_EQ(Trail().count("objExpl_Close: Top Entry Point"), 2);

    inspector->Close();
    DeleteLater();
    EXPECT_TRUE(addIn.OpenItemIds().isEmpty());
    EXPECT_FALSE(addIn.IsItemOpen(QStringLiteral("ABCD01")));
}

TEST_F(AddInTest, KillFromAStrangerLeavesTheWrapper)
{
    addin::OutAddIn& addIn = Start();
    addin::ExplWrap stranger(addIn);
    EXPECT_FALSE(addIn.KillExpl(0, &stranger));
    EXPECT_FALSE(addIn.KillExpl(7, &stranger));
    EXPECT_EQ(addIn.ExplorerKeys(), std::vector<std::int16_t>{0});
    addin::InspWrap strangerInsp(addIn);
    EXPECT_FALSE(addIn.KillInsp(QStringLiteral("00"), &strangerInsp));
    EXPECT_EQ(Trail().count("KillExpl: Unexpected Error in KillExpl"), 2);
}

TEST_F(AddInTest, NewExplorerHookRunsOnItsFirstSelectionChangeOnly)
{
    addin::OutAddIn& addIn = Start();
    EXPECT_FALSE(addIn.NewExplorerFlag());
    host::HeadlessExplorer* second = m_app->OpenExplorer();
    EXPECT_TRUE(addIn.NewExplorerFlag());
    addin::ExplWrap* wrap = addIn.ExplorerWrapper(1);
    ASSERT_NE(wrap, nullptr);
    Q_EMIT second->SelectionChange();
    Q_EMIT second->SelectionChange();
    EXPECT_EQ(wrap->HookCalls(), 1);
    EXPECT_FALSE(addIn.NewExplorerFlag());
    Q_EMIT second->Activate();
    bool cancel = false;
    Q_EMIT second->BeforeFolderSwitch(nullptr, cancel);
    EXPECT_EQ(wrap->HookCalls(), 3);
    EXPECT_FALSE(cancel);
}

}  // namespace
}  // namespace mv::test
