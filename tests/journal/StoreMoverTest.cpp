#include "MoverFixture.h"
#include "platform/stores/common/FlagMapping.h"
#include "platform/stores/memory/MemoryStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace mv;
using namespace mv::journal;
using stores::MemoryStore;
using Call = MemoryStore::Call;

namespace {

using test::MoverTest;


enum class Original { Present, Deleted, Absent };

struct RecoveryCase {
    const char* name;
    bool copy;  // a copy arrived in the destination after the mark
    Original original;
    MoveState expected;
};

class RecoveryTest : public MoverTest,
                     public ::testing::WithParamInterface<std::tuple<RecoveryCase, bool /*flag cleared*/, bool /*cross*/>> {};

TEST_P(RecoveryTest, SettlesWhatADeadProcessLeft)
{
    const auto& [c, flagCleared, cross] = GetParam();
    const QByteArray id = Add(QStringLiteral("m"), true);
    MemoryStore& dst = Dst(cross);

    // The journal entry as Move writes it, then the stores as the process
    // left them when it died.
    MoveRow row;
    row.kind = cross ? MoveKind::CrossStore : MoveKind::SameStore;
    row.srcStore = m_a.StoreId();
    row.srcFolder = m_a.InboxId();
    row.srcId = id;
    row.dstStore = dst.StoreId();
    row.dstFolder = DstFolder(cross);
    row.dstMark = *dst.ArrivalMark(row.dstFolder);
    row.fingerprint = m_a.Fingerprints({id})->at(0);
    if (cross) row.fingerprint.uniqueName = StoreMover::NewUniqueName();
    row.flagCleared = flagCleared;
    std::vector<MoveRow> rows{row};
    ASSERT_TRUE(m_journal->Intend(rows).ok());
    ASSERT_TRUE(!flagCleared || m_a.SetFlagStatus(id, 0).ok());
    if (c.copy) {
        mapi::NewMessage copy = m_a.Export({id})->at(0);
        copy.uniqueName = row.fingerprint.uniqueName;
        ASSERT_TRUE(dst.Append(row.dstFolder, copy).ok());
    }
    ASSERT_TRUE(c.original != Original::Deleted || m_a.SetDeleted(id, true).ok());
    ASSERT_TRUE(c.original != Original::Absent || m_a.Remove({id}).ok());

    for (int pass = 0; pass < 2; ++pass) {  // a second recovery changes nothing
        Reopen();
        ASSERT_TRUE(m_mover->Recover().ok());
        EXPECT_EQ(Open(), 0);
        EXPECT_EQ(m_journal->RowsOfRun(0)->at(0).state, c.expected);
        const QStringList here = m_a.SubjectsIn(m_a.InboxId());
        const QStringList there = dst.SubjectsIn(row.dstFolder);
        EXPECT_EQ(there, c.copy ? QStringList{"m"} : QStringList{});
        EXPECT_EQ(here, c.expected == MoveState::RolledBack ? QStringList{"m"} : QStringList{});
        if (c.expected == MoveState::RolledBack) {
            EXPECT_TRUE(Completed(m_a, m_a.InboxId(), QStringLiteral("m")));
        }
    }
}

const RecoveryCase kRecovery[] = {
    {"CopyAndOriginal", true, Original::Present, MoveState::Moved},
    {"CopyAndDeletedOriginal", true, Original::Deleted, MoveState::Moved},
    {"CopyOnly", true, Original::Absent, MoveState::Moved},
    {"OriginalOnly", false, Original::Present, MoveState::RolledBack},
    {"DeletedOriginalOnly", false, Original::Deleted, MoveState::RolledBack},
    {"Neither", false, Original::Absent, MoveState::Vanished},
};

INSTANTIATE_TEST_SUITE_P(Table, RecoveryTest,
                         ::testing::Combine(::testing::ValuesIn(kRecovery), ::testing::Bool(), ::testing::Bool()),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) +
                                    (std::get<1>(info.param) ? "_FlagCleared" : "_FlagKept") +
                                    (std::get<2>(info.param) ? "_CrossStore" : "_SameStore");
                         });

TEST_F(MoverTest, CrossStoreBatchMovesKeepsFlagsAndNamesTheCopies)
{
    std::vector<StoreMover::Entry> entries = Batch();
    ASSERT_TRUE(m_a.Remove({entries[1].id}).ok());  // another program took m1 meanwhile
    const StoreMover::Outcome out = Move(true, entries);
    ASSERT_TRUE(out.status.ok()) << out.status.error().message.toStdString();
    EXPECT_EQ(out.states, (std::vector<MoveState>{MoveState::Moved, MoveState::Vanished, MoveState::Moved}));
    EXPECT_TRUE(m_a.SubjectsIn(m_a.InboxId()).isEmpty());
    EXPECT_EQ(m_b.SubjectsIn(DstFolder(true)), (QStringList{"m0", "m2"}));
    EXPECT_FALSE(Completed(m_b, DstFolder(true), QStringLiteral("m0")));
    EXPECT_TRUE(m_b.Flags(out.newIds[2])->seen);

    const auto rows = *m_journal->RowsOfRun(0);
    ASSERT_EQ(rows.size(), 3u);
    for (size_t i : {0u, 2u}) {
        EXPECT_EQ(rows[i].dstId, out.newIds[i]);
        EXPECT_EQ(m_b.Fingerprints({out.newIds[i]})->at(0).uniqueName, rows[i].fingerprint.uniqueName);
        EXPECT_FALSE(rows[i].fingerprint.uniqueName.isEmpty());
    }
}

struct FailureCase {
    const char* name;
    bool cross;
    Call call;
    int nth;
    int moved;                 // messages in the destination in the end
    Call alsoFails = Call::Folders;  // a second failure: recovery inside Move fails too
};

class MidBatchFailureTest : public MoverTest, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(MidBatchFailureTest, LosesNothingAndLeavesNothingTwiceOrDeleted)
{
    const FailureCase& c = GetParam();
    const std::vector<StoreMover::Entry> entries = Batch();
    m_a.FailAt(c.call, c.nth, Error::temporary(QStringLiteral("connection dropped")));
    m_b.FailAt(c.call, c.nth, Error::temporary(QStringLiteral("connection dropped")));
    if (c.alsoFails != Call::Folders) {
        m_a.FailNext(c.alsoFails, 1, Error::temporary(QStringLiteral("still down")));
        m_b.FailNext(c.alsoFails, 1, Error::temporary(QStringLiteral("still down")));
    }
    const StoreMover::Outcome out = Move(c.cross, entries);
    EXPECT_FALSE(out.status.ok());
    EXPECT_EQ(Open(), c.alsoFails != Call::Folders ? 3 : 0);
    if (c.alsoFails == Call::Folders) {
        EXPECT_EQ(out.Count(MoveState::Moved), c.moved);
        EXPECT_EQ(ExpectConsistent(c.cross), c.moved);
    }

    Reopen();
    ASSERT_TRUE(m_mover->Recover().ok());
    EXPECT_EQ(Open(), 0);
    EXPECT_EQ(ExpectConsistent(c.cross), c.moved);
}

INSTANTIATE_TEST_SUITE_P(
    Injection, MidBatchFailureTest,
    ::testing::Values(FailureCase{"FlagClearFails", false, Call::SetFlagStatusMany, 1, 0},
                      FailureCase{"SecondFlagClearFails", true, Call::SetFlagStatus, 2, 0},
                      FailureCase{"StoreMoveFails", false, Call::MoveMany, 1, 0},
                      FailureCase{"ExportFails", true, Call::Export, 1, 0},
                      FailureCase{"SecondAppendFails", true, Call::Append, 2, 1},
                      FailureCase{"RemoveFails", true, Call::Remove, 1, 3},
                      FailureCase{"AppendFailsAndLocateToo", true, Call::Append, 3, 2, Call::Locate}),
    [](const auto& info) { return std::string(info.param.name); });

std::string KillName(const ::testing::TestParamInfo<std::tuple<StoreMover::Step, bool>>& info)
{
    static const char* const kNames[] = {"AfterIntend", "AfterFlags", "AfterCopy", "AfterRemove"};
    return std::string(kNames[static_cast<int>(std::get<0>(info.param))]) +
           (std::get<1>(info.param) ? "_CrossStore" : "_SameStore");
}

class KillTest : public MoverTest,
                 public ::testing::WithParamInterface<std::tuple<StoreMover::Step, bool /*cross*/>> {};

TEST_P(KillTest, NextProcessSettlesTheBatch)
{
    const auto& [step, cross] = GetParam();
    const std::vector<StoreMover::Entry> entries = Batch();
    m_mover->SetInterruption([step = step](StoreMover::Step at) { return at == step; });
    EXPECT_FALSE(Move(cross, entries).status.ok());
    EXPECT_EQ(Open(), 3);

    const bool copied = step == StoreMover::Step::Copied || step == StoreMover::Step::Removed;
    for (int pass = 0; pass < 2; ++pass) {
        Reopen();
        ASSERT_TRUE(m_mover->Recover().ok());
        EXPECT_EQ(Open(), 0);
        EXPECT_EQ(ExpectConsistent(cross), copied ? 3 : 0);
    }
    const std::vector<MoveRow> rows = *m_journal->RowsOfRun(0);
    for (const MoveRow& r : rows)
        EXPECT_EQ(r.state, copied ? MoveState::Moved : MoveState::RolledBack);
}

INSTANTIATE_TEST_SUITE_P(Steps, KillTest,
                         ::testing::Combine(::testing::Values(StoreMover::Step::Intended, StoreMover::Step::FlagsCleared,
                                                              StoreMover::Step::Copied, StoreMover::Step::Removed),
                                            ::testing::Bool()),
                         KillName);

}  // namespace
