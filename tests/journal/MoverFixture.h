#pragma once
// Two memory stores, a journal file and its mover, for the mover's and the
// undo's tests.

#include "platform/journal/StoreMover.h"
#include "platform/stores/common/FlagMapping.h"
#include "platform/stores/memory/MemoryStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace mv::journal::test {

using stores::MemoryStore;

// Store A (names nothing, as IMAP) holds the source Inbox; the destination
// is A's Archive (same store) or B's Archive (B keeps names, as Maildir).
class MoverTest : public ::testing::Test {
protected:
    void SetUp() override { Reopen(); }

    // Fresh journal and mover objects on the same file and stores: what the
    // next process sees after a kill.
    void Reopen()
    {
        m_mover.reset();
        m_journal.reset();
        auto j = MoveJournal::Open(m_dir.filePath(QStringLiteral("moves.db")));
        ASSERT_TRUE(j.ok()) << j.error().message.toStdString();
        m_journal = std::move(*j);
        m_mover = std::make_unique<StoreMover>(*m_journal, [this](const QByteArray& id) -> mapi::MessageStore* {
            if (id == m_a.StoreId()) return &m_a;
            if (id == m_b.StoreId()) return &m_b;
            return nullptr;
        });
    }

    MemoryStore& Dst(bool cross) { return cross ? m_b : m_a; }
    QByteArray DstFolder(bool cross) { return Dst(cross).FolderIdByPath(QStringLiteral("Archive")); }

    QByteArray Add(const QString& subject, bool completed)
    {
        mapi::NewMessage m;
        m.rfc822 = QStringLiteral("From: Alice <alice@example.com>\nSubject: %1\nMessage-ID: <%1@example.com>\n\nHi.\n")
                       .arg(subject)
                       .toUtf8();
        m.flags.seen = true;
        if (completed) m.flags.keywords << QStringLiteral("$Completed");
        m.internalDate = QDateTime(QDate(2026, 11, 1), QTime(9, 0), Qt::UTC);
        return *m_a.Append(m_a.InboxId(), m);
    }

    // Three messages; the first two have a completed flag the move clears.
    std::vector<StoreMover::Entry> Batch()
    {
        std::vector<StoreMover::Entry> entries;
        for (int i = 0; i < 3; ++i) {
            const QString subject = QStringLiteral("m%1").arg(i);
            entries.push_back({Add(subject, i < 2), i < 2, subject, QStringLiteral("alice@example.com")});
        }
        return entries;
    }

    StoreMover::Outcome Move(bool cross, const std::vector<StoreMover::Entry>& entries)
    {
        return m_mover->Move({0, 1, QStringLiteral("Rule")}, m_a, m_a.InboxId(), Dst(cross), DstFolder(cross),
                             entries);
    }

    bool Completed(MemoryStore& store, const QByteArray& folder, const QString& subject)
    {
        auto rows = store.Query(folder, nullptr, {mapi::PR_ENTRYID, mapi::PR_SUBJECT});
        for (const auto& row : *rows)
            if (row[1].toString() == subject)
                return stores::FlagMapping::HasKeyword(*store.Flags(row[0].toByteArray()), QStringLiteral("$Completed"));
        ADD_FAILURE() << "no " << subject.toStdString();
        return false;
    }

    // Nothing lost, nothing twice, nothing \Deleted, and a completed flag
    // gone only from a message that moved. Returns how many moved.
    int ExpectConsistent(bool cross)
    {
        const QStringList src = m_a.SubjectsIn(m_a.InboxId());
        const QStringList dst = Dst(cross).SubjectsIn(DstFolder(cross));
        QStringList all = src + dst;
        all.sort();
        EXPECT_EQ(all, (QStringList{"m0", "m1", "m2"})) << "source " << src.join(',').toStdString() << ", destination "
                                                         << dst.join(',').toStdString();
        for (const QString& s : src) EXPECT_EQ(Completed(m_a, m_a.InboxId(), s), s != QLatin1String("m2")) << s.toStdString();
        for (const QString& s : dst) EXPECT_FALSE(Completed(Dst(cross), DstFolder(cross), s)) << s.toStdString();
        return static_cast<int>(dst.size());
    }

    int Open() { return static_cast<int>(m_journal->Unfinished()->size()); }

    QTemporaryDir m_dir;
    // Name, own address, clock, whether it keeps unique names.
    MemoryStore m_a{{QStringLiteral("A"), {}, {}, false}};
    MemoryStore m_b{{QStringLiteral("B"), {}, {}, true}};
    std::unique_ptr<MoveJournal> m_journal;
    std::unique_ptr<StoreMover> m_mover;
};

}  // namespace mv::journal::test
