// A run killed with SIGKILL at random moments never loses or duplicates a
// message: afterwards every message is in the source or the destination,
// exactly once, counted by Message-ID. Two rules move the same mail there
// and back, so every moment of a run is a moment of moving.

#include "E2eSupport.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QThread>

#include <gtest/gtest.h>

namespace mv::e2e {
namespace {

constexpr int kMessages = 100;
constexpr int kTrials = 30;

class KillTest : public ::testing::TestWithParam<Backend> {};

// Empty when every id is present exactly once across both folders.
QString Check(const World& world, const QStringList& expected)
{
    QStringList all = world.Ids(QString()) + world.Ids(QStringLiteral("Archive"));
    all.sort();
    if (all == expected) return {};
    return QStringLiteral("%1 messages where %2 were expected").arg(all.size()).arg(expected.size());
}

TEST_P(KillTest, NoMessageLostOrDuplicated)
{
    World world(GetParam());
    QString error;
    bool skip = false;
    if (!world.Start(&error, &skip)) {
        if (skip) GTEST_SKIP() << error.toStdString();
        FAIL() << error.toStdString();
    }
    world.CreateFolder(QStringLiteral("Archive"));
    QStringList expected;
    for (int i = 0; i < kMessages; ++i) {
        Mail m;
        m.id = QStringLiteral("bulk%1@e2e.test").arg(i);
        m.subject = QStringLiteral("Bulk %1").arg(i);
        m.from = QStringLiteral("Bulk <bulk@e2e.test>");
        world.Write(QString(), m);
        expected << m.id;
    }
    expected.sort();
    world.HandOver();
    QString storeId;
    const auto ids = world.FolderIds(&storeId);
    RuleDef out{QStringLiteral("Out"), QStringLiteral("Archive"), {{QStringLiteral("FromAddress"), QStringLiteral("bulk@e2e.test")}}};
    RuleDef back{QStringLiteral("Back"), QStringLiteral("Inbox"), {{QStringLiteral("FromAddress"), QStringLiteral("bulk@e2e.test")}}};
    back.src = QStringLiteral("Archive");
    const QString backRow = RuleRow(2, back, ids, storeId);
    ASSERT_TRUE(world.Import({RuleRow(1, out, ids, storeId), backRow}, &error)) << error.toStdString();

    // How long a whole run takes sets the range of the kill moments.
    QElapsedTimer timer;
    timer.start();
    const Result whole = world.Run({QStringLiteral("run")});
    ASSERT_EQ(whole.code, 0) << whole.out.toStdString() << whole.err.toStdString();
    ASSERT_TRUE(whole.out.contains(QStringLiteral("%1 message(s) moved").arg(2 * kMessages))) << whole.out.toStdString();
    const int runMs = static_cast<int>(timer.elapsed());
    ASSERT_EQ(Check(world, expected), QString());

    QRandomGenerator rng(20261122);
    int killedMidway = 0;
    for (int trial = 0; trial < kTrials; ++trial) {
        QProcess p;
        p.setProcessEnvironment(world.Environment());
        p.start(world.Program(), world.BaseArgs() << QStringLiteral("run"));
        ASSERT_TRUE(p.waitForStarted());
        const int delay = static_cast<int>(rng.bounded(runMs + 1));
        if (!p.waitForFinished(delay)) {
            p.kill();
            ++killedMidway;
        }
        p.waitForFinished();
        // The server may still be finishing the last command it was sent.
        QString problem;
        for (int i = 0; i < 20 && !(problem = Check(world, expected)).isEmpty(); ++i) QThread::msleep(100);
        ASSERT_EQ(problem, QString()) << "trial " << trial << " killed after " << delay << " ms";
    }
    EXPECT_GT(killedMidway, kTrials / 2) << "most trials should end in a kill";
    const Result after = world.Run({QStringLiteral("run")});
    EXPECT_EQ(after.code, 0) << "a killed run leaves nothing that stops the next: " << after.err.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Stores, KillTest, ::testing::Values(Backend::Maildir, Backend::Imap),
                         [](const auto& info) { return info.param == Backend::Maildir ? "Maildir" : "Imap"; });

}  // namespace
}  // namespace mv::e2e
