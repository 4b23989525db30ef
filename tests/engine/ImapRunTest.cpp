// ExecuteRule over a real Dovecot: moving a rule's matches in one batch
// gives the same folders, flags and report as moving them one by one.

#include "engine/RuleExecutor.h"

#include "tests/imap/ImapTestSupport.h"

#include "platform/common/ProgIdRegistry.h"
#include "platform/mapi/MapiUtils.h"
#include "platform/os/Clock.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/TimeZone.h"
#include "platform/outlook/SafeLib.h"
#include "platform/outlook/store/StoreNameSpace.h"

#include <QElapsedTimer>

#include <iostream>

using namespace mv;
using namespace mv::engine;

namespace {

class ImapRunTest : public mv::test::DovecotStoreTest {
protected:
    // Fills a fresh source folder with `count` messages, every second one
    // matching "budget" and every fourth of those completed, runs the rule
    // and returns what it did.
    RuleOutcome RunOn(const QByteArray& mailbox, int count, bool batch, qint64* ms, int* commands = nullptr)
    {
        const QByteArray src = Folder(mailbox);
        const QByteArray dst = Folder(mailbox + "-done");
        for (int i = 0; i < count; ++i) {
            mv::test::MailDef m;
            m.subject = (i % 2 ? QStringLiteral("lunch %1") : QStringLiteral("budget %1")).arg(i);
            if (i % 8 == 0) m.flags.keywords << QStringLiteral("$Completed");
            Add(src, m);
        }
        outlook::StoreNameSpace ns(std::vector<mapi::MessageStore*>{store.get()});
        ProgIdRegistry progIds;
        outlook::RegisterSafeLib(progIds);
        os::ScriptedAnswerer answerer;
        os::ErrorReport report(answerer);
        os::FakeClock clock(QDateTime(QDate(2026, 11, 14), QTime(10, 0), Qt::UTC));
        os::FixedTimeZone zone;
        RuleExecutor exec(ns, progIds, report, clock, zone);

        RuleRecord rule;
        rule.ruleName = QStringLiteral("Budget");
        rule.subject = QStringLiteral("budget");
        rule.srcEntryId = mapi::MapiUtils::HrGetHexFromBinary(src);
        rule.dstEntryId = mapi::MapiUtils::HrGetHexFromBinary(dst);
        rule.srcStoreId = rule.dstStoreId = mapi::MapiUtils::HrGetHexFromBinary(store->StoreId());
        ExecuteOptions options;
        options.batchMoves = batch;
        QElapsedTimer timer;
        timer.start();
        const int before = store->CommandsSent();
        RuleOutcome outcome = exec.Execute(rule, false, options);
        *ms = timer.elapsed();
        if (commands) *commands = store->CommandsSent() - before;
        EXPECT_TRUE(answerer.texts().isEmpty()) << answerer.texts().join(" / ").toStdString();
        EXPECT_EQ(Subjects(src).size(), count / 2);
        EXPECT_EQ(Subjects(dst).size(), count / 2);
        // No completed flag survives the move.
        auto completed = mapi::Restriction::Property(mapi::RELOP_EQ, mapi::PR_FLAG_STATUS, 1);
        EXPECT_TRUE(Subjects(dst, &completed).isEmpty());
        return outcome;
    }
};

// Batched moves give what moving one by one gives, and what a rule costs
// on the wire does not grow with what it moves: folders looked up once,
// items opened from their rows, completed flags cleared and messages moved
// in one command each.
TEST_F(ImapRunTest, BatchedMovesEqualOneByOneAndCommandsDoNotGrow)
{
    qint64 oneByOneMs = 0, batchedMs = 0, largeMs = 0;
    int few = 0, many = 0;
    const RuleOutcome single = RunOn("Single", 16, false, &oneByOneMs);
    const RuleOutcome batched = RunOn("Few", 16, true, &batchedMs, &few);
    const RuleOutcome large = RunOn("Many", 96, true, &largeMs, &many);
    EXPECT_EQ(single.result, kResultGoOn);
    EXPECT_EQ(batched.result, kResultGoOn);
    EXPECT_EQ(single.moved, 8);
    EXPECT_EQ(batched.moved, single.moved);
    EXPECT_EQ(batched.flagsCleared, single.flagsCleared);
    QStringList a = single.subjects, b = batched.subjects;
    a.sort();
    b.sort();
    EXPECT_EQ(a, b);
    EXPECT_EQ(large.moved, 48);
    EXPECT_EQ(large.flagsCleared, 12);
    EXPECT_EQ(few, many);
    // LIST, STATUS of both folders, SELECT, SEARCH, FETCH, flags FETCH +
    // STORE, MOVE: about ten, where one per message would be hundreds.
    EXPECT_LE(many, 12);
    std::cout << "[ figures  ] 8 IMAP moves: one by one " << oneByOneMs << " ms, batched " << batchedMs
              << " ms; one rule moving 48 of 96: " << many << " IMAP commands, " << largeMs << " ms\n";
}

}  // namespace
