// A run killed with SIGKILL at random moments never loses or duplicates a
// message, on every path a move can take: within a Maildir, on a server
// with MOVE, on one without (COPY, \Deleted, UID EXPUNGE), and across
// stores both ways. Two rules move the bulk there and back; a third, which
// `run --quarter` leaves out, moves mail with the completed flag one way.
// Every few trials `run --quarter` settles what the killed runs left, and
// then every message is in one of the two folders exactly once, nothing is
// left \Deleted or in tmp/, and a completed message is either still in the
// source with its flag or in the destination without it.
// bench/killtrials/killtrials.py runs the same trials by the hundred.

#include "E2eSupport.h"

#include <QElapsedTimer>
#include <QRandomGenerator>

#include <gtest/gtest.h>

namespace mv::e2e {
namespace {

constexpr int kBulk = 40;
constexpr int kTrials = 10;
constexpr int kSettleEvery = 5;
const QString kCompleted = QStringLiteral("$Completed");

struct KillPath {
    const char* name;
    WorldStores stores;
    Side srcSide;
    QString srcFolder;
    Side dstSide;
    QString dstFolder;
};

const KillPath kPaths[] = {
    {"Maildir", {true, false, {}}, Side::Local, QStringLiteral("Inbox"), Side::Local, QStringLiteral("Archive")},
    {"Imap", {false, true, {}}, Side::Server, QStringLiteral("Inbox"), Side::Server, QStringLiteral("Archive")},
    {"ImapWithoutMove", {false, true, {QStringLiteral("MOVE")}}, Side::Server, QStringLiteral("Inbox"), Side::Server,
     QStringLiteral("Archive")},
    {"ImapToMaildir", {true, true, {}}, Side::Server, QStringLiteral("Inbox"), Side::Local, QStringLiteral("Archive")},
    {"MaildirToImap", {true, true, {}}, Side::Local, QStringLiteral("Inbox"), Side::Server, QStringLiteral("Archive")},
};

QString Where(Side side, const QString& folder)
{
    return (side == Side::Local ? QStringLiteral("Local:") : QStringLiteral("Server:")) +
           (folder.isEmpty() || folder == QLatin1String("Inbox") ? QStringLiteral("INBOX") : folder);
}

void PrintTo(const KillPath& path, std::ostream* os) { *os << path.name; }

class KillTest : public ::testing::TestWithParam<KillPath> {
protected:
    // The faults, one a line; empty when there is none. A completed message
    // may still wait in the source (with its flag) unless `doneMoved`.
    QString Faults(const World& world, bool doneMoved) const
    {
        const KillPath& path = GetParam();
        QStringList faults;
        QHash<QString, QStringList> copies;  // id -> where each live copy is
        QHash<QString, bool> flagged;        // id -> a live copy has the completed flag
        for (Side side : {Side::Local, Side::Server}) {
            if (!(side == Side::Local ? path.stores.local : path.stores.server)) continue;
            for (const StoredMail& m : world.Contents(side)) {
                const QString where = Where(side, m.folder);
                if (m.inTmp) {
                    // The server's own tmp/ is its business.
                    if (side == Side::Local) faults << QStringLiteral("%1 left in tmp/ of %2").arg(m.id, where);
                } else if (m.flags.contains(QLatin1Char('T'))) {
                    faults << QStringLiteral("%1 left \\Deleted in %2").arg(m.id, where);
                } else {
                    copies[m.id] << where;
                    flagged[m.id] = flagged.value(m.id) || m.keywords.contains(kCompleted, Qt::CaseInsensitive);
                }
            }
        }
        const QString src = Where(path.srcSide, path.srcFolder), dst = Where(path.dstSide, path.dstFolder);
        for (const QString& id : m_bulk + m_done) {
            const QStringList where = copies.take(id);
            if (where.size() != 1) {
                faults << QStringLiteral("%1: %2 copies (%3)").arg(id).arg(where.size()).arg(where.join(QLatin1Char(' ')));
                continue;
            }
            if (!m_done.contains(id)) continue;
            const bool stayed = where.front() == src && flagged.value(id) && !doneMoved;
            const bool moved = where.front() == dst && !flagged.value(id);
            if (!stayed && !moved)
                faults << QStringLiteral("%1 in %2 %3 its completed flag")
                              .arg(id, where.front(), flagged.value(id) ? QStringLiteral("with") : QStringLiteral("without"));
        }
        for (auto it = copies.cbegin(); it != copies.cend(); ++it)
            faults << QStringLiteral("unknown message %1 in %2").arg(it.key(), it.value().join(QLatin1Char(' ')));
        return faults.join(QLatin1Char('\n'));
    }

    void WriteDone(World& world)
    {
        const auto n = m_done.size();
        m_done << Write(world, {.id = QStringLiteral("done%1@kill.test").arg(n), .noMessageId = n % 3 == 2,
                                .subject = QStringLiteral("Done %1").arg(n), .from = "Done <done@kill.test>",
                                .keywords = {kCompleted}, .ageDays = 2});
        world.HandOver();
    }
    QString Write(World& world, const Mail& m)
    {
        world.Write(GetParam().srcFolder, m, GetParam().srcSide);
        return m.noMessageId ? QStringLiteral("subject:") + m.subject : m.id;
    }

    QStringList m_bulk, m_done;
};

TEST_P(KillTest, NoMessageLostOrDuplicated)
{
    const KillPath& path = GetParam();
    if (path.stores.server && !test::DovecotServer::Available()) GTEST_SKIP() << "Dovecot is not installed";
    World world(path.stores);
    ASSERT_EQ(world.Start(), QString());
    world.CreateFolder(path.dstFolder, path.dstSide);
    // Some mail has no Message-ID: the mover must tell it apart without one.
    for (int i = 0; i < kBulk; ++i)
        m_bulk << Write(world, {.id = QStringLiteral("bulk%1@kill.test").arg(i), .noMessageId = i % 5 == 4,
                                .subject = QStringLiteral("Bulk %1").arg(i), .from = "Bulk <bulk@kill.test>"});
    WriteDone(world);

    const FolderRef src = world.Folders(path.srcSide).value(path.srcFolder);
    const FolderRef dst = world.Folders(path.dstSide).value(path.dstFolder);
    ASSERT_FALSE(src.entryId.isEmpty() || dst.entryId.isEmpty())
        << "folders not listed: " << world.Run({QStringLiteral("folders")}).out.toStdString();
    const QHash<QString, QString> bulk{{QStringLiteral("FromAddress"), QStringLiteral("bulk@kill.test")}};
    // "Older than a day" (MsgAgeID 5): run by `run` but not by `run --quarter`.
    const QHash<QString, QString> done{{QStringLiteral("FromAddress"), QStringLiteral("done@kill.test")},
                                       {QStringLiteral("MsgAgeID"), QStringLiteral("5")}};
    QString error;
    ASSERT_TRUE(world.Import({RuleRow(1, QStringLiteral("Done"), src, dst, done), RuleRow(2, QStringLiteral("Out"), src, dst, bulk),
                              RuleRow(3, QStringLiteral("Back"), dst, src, bulk)},
                             &error))
        << error.toStdString();

    auto settle = [&](const QStringList& args, bool doneMoved) {
        const Result r = world.Run(QStringList{QStringLiteral("--yes"), QStringLiteral("run")} + args);
        return (r.code != 0 ? QStringLiteral("the settling run exited %1: %2").arg(r.code).arg(r.err)
                            : Faults(world, doneMoved))
            .toStdString();
    };

    // A whole run of the bulk sets the range of the kill moments.
    QElapsedTimer timer;
    timer.start();
    ASSERT_EQ(settle({QStringLiteral("--quarter")}, false), std::string());
    const int runMs = static_cast<int>(timer.elapsed());

    QRandomGenerator rng(20261124);
    int killedMidway = 0;
    for (int trial = 0; trial < kTrials; ++trial) {
        if (trial > 0) WriteDone(world);
        QProcess p;
        world.Launch(p, {QStringLiteral("--yes"), QStringLiteral("run")});
        ASSERT_TRUE(p.waitForStarted());
        const int delay = static_cast<int>(rng.bounded(runMs + 1));
        if (!p.waitForFinished(delay)) {
            p.kill();
            ++killedMidway;
        }
        p.waitForFinished();
        if ((trial + 1) % kSettleEvery == 0) {
            ASSERT_EQ(settle({QStringLiteral("--quarter")}, false), std::string())
                << "after trial " << trial << ", the last killed after " << delay << " ms";
        }
    }
    EXPECT_GT(killedMidway, kTrials / 2) << "most trials should end in a kill";
    // The completed mail moves too, and loses its flag.
    EXPECT_EQ(settle({}, true), std::string());
}

INSTANTIATE_TEST_SUITE_P(Paths, KillTest, ::testing::ValuesIn(kPaths),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace mv::e2e
