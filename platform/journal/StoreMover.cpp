#include "StoreMover.h"

#include "platform/logging/Logger.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QSysInfo>

#include <algorithm>
#include <map>

namespace mv::journal {
namespace {

using mapi::MessageStore;
using mapi::Presence;

const QString kSource = QStringLiteral("StoreMover");

const char* StepName(StoreMover::Step step)
{
    switch (step) {
    case StoreMover::Step::Intended: return "the journal entry";
    case StoreMover::Step::FlagsCleared: return "clearing the completed flags";
    case StoreMover::Step::Copied: return "the copy";
    case StoreMover::Step::Removed: return "removing the originals";
    }
    return "?";
}

std::vector<QByteArray> Ids(const std::vector<StoreMover::Entry>& entries)
{
    std::vector<QByteArray> ids;
    ids.reserve(entries.size());
    for (const StoreMover::Entry& e : entries) ids.push_back(e.id);
    return ids;
}

}  // namespace

int StoreMover::Outcome::Count(MoveState s) const
{
    int n = 0;
    for (MoveState state : states) n += state == s;
    return n;
}

StoreMover::StoreMover(MoveJournal& journal, StoreLookup stores, logging::Logger* log)
    : m_journal(journal), m_stores(std::move(stores)), m_log(log)
{
}

QByteArray StoreMover::NewUniqueName()
{
    // Maildir's own pattern (time, microseconds, process, a counter, host),
    // so the destination's name looks like any other delivery's.
    static quint64 counter = 0;
    const qint64 usecs = QDateTime::currentMSecsSinceEpoch() * 1000;
    QString host = QSysInfo::machineHostName();
    host.replace(QLatin1Char('/'), QStringLiteral("\\057")).replace(QLatin1Char(':'), QStringLiteral("\\072"));
    if (host.isEmpty()) host = QStringLiteral("localhost");
    return QStringLiteral("%1.M%2P%3Q%4.%5")
        .arg(usecs / 1000000)
        .arg(usecs % 1000000)
        .arg(QCoreApplication::applicationPid())
        .arg(++counter)
        .arg(host)
        .toUtf8();
}

StoreMover::Outcome StoreMover::Move(const Context& ctx, MessageStore& src, const QByteArray& srcFolder,
                                     MessageStore& dst, const QByteArray& dstFolder,
                                     const std::vector<Entry>& entries)
{
    return MoveOnce(ctx, src, srcFolder, dst, dstFolder, entries, true);
}

StoreMover::Outcome StoreMover::MoveOnce(const Context& ctx, MessageStore& src, const QByteArray& srcFolder,
                                         MessageStore& dst, const QByteArray& dstFolder,
                                         const std::vector<Entry>& entries, bool retryVanished)
{
    const size_t n = entries.size();
    Outcome out;
    out.newIds.resize(n);
    out.states.assign(n, MoveState::Failed);
    if (n == 0) return out;
    const bool sameStore = &src == &dst;
    const std::vector<QByteArray> ids = Ids(entries);

    // Before the journal entry nothing is touched: an error here leaves
    // every message as it was, with nothing to settle.
    auto fingerprints = src.Fingerprints(ids);
    if (!fingerprints && sameStore && fingerprints.error().kind == ErrorKind::Permanent) {
        // A store that cannot fingerprint still moves within itself, with
        // the journal entry: recovery then judges by the source alone,
        // which can leave a copy-and-delete move as two copies, never none.
        fingerprints = std::vector<mapi::Fingerprint>(n);
    }
    if (!fingerprints || fingerprints->size() != n) {
        out.status = fingerprints ? Error::permanent(QStringLiteral("the store gave a fingerprint count that does not "
                                                                    "match the messages"))
                                  : fingerprints.error();
        return out;
    }
    auto mark = dst.ArrivalMark(dstFolder);
    if (!mark) {
        out.status = mark.error();
        return out;
    }

    std::vector<MoveRow> rows(n);
    for (size_t i = 0; i < n; ++i) {
        MoveRow& r = rows[i];
        r.run = ctx.run;
        r.ruleId = ctx.ruleId;
        r.ruleName = ctx.ruleName;
        r.kind = entries[i].undoOf ? MoveKind::Undo : sameStore ? MoveKind::SameStore : MoveKind::CrossStore;
        r.undoOf = entries[i].undoOf;
        r.srcStore = src.StoreId();
        r.srcFolder = srcFolder;
        r.srcId = entries[i].id;
        r.dstStore = dst.StoreId();
        r.dstFolder = dstFolder;
        r.dstMark = *mark;
        r.fingerprint = (*fingerprints)[i];
        // The copy gets a name of its own where the source has none, so a
        // destination that keeps names (Maildir) finds it by that name; a
        // store that does not keep names ignores it.
        if (!sameStore && r.fingerprint.Known() && r.fingerprint.uniqueName.isEmpty())
            r.fingerprint.uniqueName = NewUniqueName();
        r.flagCleared = entries[i].clearCompletedFlag || (entries[i].undoOf && entries[i].setCompletedFlag);
        r.subject = entries[i].subject;
        r.sender = entries[i].sender;
    }
    if (Status s = m_journal.Intend(rows); !s) {
        out.status = s;
        return out;
    }
    out.states.assign(n, MoveState::Intended);

    auto interrupted = [&](Step step) {
        out.status = Error::temporary(QStringLiteral("the move was interrupted after %1").arg(QLatin1String(StepName(step))));
        return out;
    };
    auto fail = [&](const Error& error) {
        Status settled = Settle(rows, MoveState::Failed, error.message);
        for (size_t i = 0; i < n; ++i) {
            out.states[i] = rows[i].state;
            out.newIds[i] = rows[i].state == MoveState::Moved ? rows[i].dstId : QByteArray();
        }
        out.status = error;
        if (!settled && m_log)
            m_log->Write(4, kSource, QStringLiteral("moves left for the next recovery: ") + settled.error().message);
        return out;
    };
    auto finish = [&]() {
        // An undo that arrived gets its completed flag back before its row
        // is settled; when that fails the row stays Intended, as after a
        // kill, and the next recovery sets the flag.
        std::vector<QByteArray> reflag;
        std::vector<size_t> reflagAt;
        for (size_t i = 0; i < n; ++i)
            if (rows[i].kind == MoveKind::Undo && rows[i].flagCleared && rows[i].state == MoveState::Moved) {
                reflag.push_back(rows[i].dstId);
                reflagAt.push_back(i);
            }
        if (Status s = reflag.empty() ? Status::success() : dst.SetFlagStatusMany(reflag, 1); !s) {
            out.status = s;
            for (size_t i : reflagAt) rows[i].state = MoveState::Intended;
        }
        for (size_t i = 0; i < n; ++i) out.states[i] = rows[i].state;
        if (Status s = m_journal.Finish(rows); !s) out.status = s;  // the rows stay Intended: Recover settles them
        return out;
    };
    if (Stop(Step::Intended)) return interrupted(Step::Intended);

    std::vector<QByteArray> completed;
    for (const Entry& e : entries)
        if (e.clearCompletedFlag) completed.push_back(e.id);
    if (!completed.empty()) {
        if (Status s = src.SetFlagStatusMany(completed, 0); !s) return fail(s.error());
    }
    if (Stop(Step::FlagsCleared)) return interrupted(Step::FlagsCleared);

    if (sameStore) {
        auto moved = src.MoveMany(ids, dstFolder);
        if (!moved || moved->size() != n) {
            const Error error = moved ? Error::permanent(QStringLiteral("the store moved a different number of messages"))
                                      : moved.error();
            Outcome failed = fail(error);
            // A store that says NotFound moved nothing: once the batch is
            // settled, whatever is still in the source (and the folder is
            // still there) moves again, without what left.
            if (error.kind != ErrorKind::NotFound || !retryVanished || failed.Count(MoveState::Vanished) == 0 ||
                !dst.Folder(dstFolder).ok())
                return failed;
            std::vector<Entry> again;
            std::vector<size_t> where;
            for (size_t i = 0; i < n; ++i)
                if (failed.states[i] == MoveState::Failed) {
                    again.push_back(entries[i]);
                    where.push_back(i);
                }
            failed.status = Status::success();
            Outcome second = MoveOnce(ctx, src, srcFolder, dst, dstFolder, again, false);
            for (size_t k = 0; k < where.size(); ++k) {
                failed.states[where[k]] = second.states[k];
                failed.newIds[where[k]] = second.newIds[k];
            }
            failed.status = second.status;
            return failed;
        }
        if (Stop(Step::Copied)) return interrupted(Step::Copied);
        for (size_t i = 0; i < n; ++i) {
            rows[i].dstId = (*moved)[i];
            rows[i].state = rows[i].dstId.isEmpty() ? MoveState::Vanished : MoveState::Moved;
            if (rows[i].state == MoveState::Vanished) rows[i].note = QStringLiteral("no longer in the source");
            out.newIds[i] = rows[i].dstId;
        }
        if (Stop(Step::Removed)) return interrupted(Step::Removed);
        return finish();
    }

    // Across stores: the destination receives the message first, so at
    // every instant it is in at least one of the two folders.
    auto exported = src.Export(ids);
    if (!exported || exported->size() != n)
        return fail(exported ? Error::permanent(QStringLiteral("the store exported a different number of messages"))
                             : exported.error());
    std::vector<mapi::NewMessage> messages;
    std::vector<size_t> present;
    for (size_t i = 0; i < n; ++i) {
        mapi::NewMessage& m = (*exported)[i];
        if (m.rfc822.isEmpty()) continue;
        m.uniqueName = rows[i].fingerprint.uniqueName;
        m.flags.deleted = false;
        messages.push_back(std::move(m));
        present.push_back(i);
    }
    std::vector<QByteArray> removeIds;
    if (!messages.empty()) {
        auto appended = dst.AppendMany(dstFolder, messages);
        if (!appended || appended->size() != messages.size())
            return fail(appended ? Error::permanent(QStringLiteral("the store appended a different number of messages"))
                                 : appended.error());
        if (Stop(Step::Copied)) return interrupted(Step::Copied);
        for (size_t k = 0; k < present.size(); ++k) {
            rows[present[k]].dstId = (*appended)[k];
            removeIds.push_back(ids[present[k]]);
        }
        if (Status s = src.Remove(removeIds); !s) return fail(s.error());
    }
    if (Stop(Step::Removed)) return interrupted(Step::Removed);
    for (size_t i = 0; i < n; ++i) {
        rows[i].state = rows[i].dstId.isEmpty() ? MoveState::Vanished : MoveState::Moved;
        if (rows[i].state == MoveState::Vanished) rows[i].note = QStringLiteral("no longer in the source");
        out.newIds[i] = rows[i].dstId;
    }
    return finish();
}

Status StoreMover::Settle(std::vector<MoveRow>& rows, MoveState stayed, const QString& note)
{
    if (rows.empty()) return Status::success();
    const MoveRow& first = rows.front();
    MessageStore* src = m_stores ? m_stores(first.srcStore) : nullptr;
    MessageStore* dst = m_stores ? m_stores(first.dstStore) : nullptr;
    if (!src || !dst)
        return Error::temporary(QStringLiteral("%1 unfinished move(s) of rule \"%2\" wait for a store that is not open")
                                    .arg(rows.size())
                                    .arg(first.ruleName));

    std::vector<size_t> open;  // the rows still to settle
    std::vector<mapi::Fingerprint> fingerprints;
    std::vector<QByteArray> srcIds;
    for (size_t i = 0; i < rows.size(); ++i) {
        if (rows[i].state != MoveState::Intended) continue;
        open.push_back(i);
        fingerprints.push_back(rows[i].fingerprint);
        srcIds.push_back(rows[i].srcId);
    }
    if (open.empty()) return Status::success();

    std::vector<QByteArray> copies(open.size());
    const bool anyKnown =
        std::any_of(fingerprints.begin(), fingerprints.end(), [](const mapi::Fingerprint& f) { return f.Known(); });
    if (anyKnown) {
        auto located = dst->Locate(first.dstFolder, first.dstMark, fingerprints);
        if (located && located->size() == open.size())
            copies = std::move(*located);
        else if (located || located.error().kind != ErrorKind::NotFound)  // a folder that is gone holds no copy
            return located ? Error::permanent(QStringLiteral("the store located a different number of messages"))
                           : located.error();
    }
    auto presence = src->Probe(srcIds);
    if (!presence || presence->size() != open.size())
        return presence ? Error::permanent(QStringLiteral("the store probed a different number of messages"))
                        : presence.error();

    // What each row becomes once its store calls succeed.
    std::vector<MoveState> to(open.size());
    std::vector<QByteArray> removeIds, undeleteIds, reflagIds;
    for (size_t k = 0; k < open.size(); ++k) {
        const MoveRow& r = rows[open[k]];
        const Presence p = (*presence)[k];
        if (!copies[k].isEmpty()) {
            to[k] = MoveState::Moved;
            if (p != Presence::Absent) removeIds.push_back(r.srcId);
        } else if (p != Presence::Absent) {
            to[k] = stayed;
            if (p == Presence::Deleted) undeleteIds.push_back(r.srcId);
            if (r.flagCleared && r.kind != MoveKind::Undo) reflagIds.push_back(r.srcId);
        } else {
            to[k] = MoveState::Vanished;
        }
    }
    // A failed call leaves its rows Intended; the next Recover looks again.
    Status firstError;  // success until a call fails
    auto attempt = [&](const std::vector<QByteArray>& ids, auto call) {
        if (ids.empty()) return;
        Status s = call(ids);
        if (s) return;
        if (firstError) firstError = s;
        for (size_t k = 0; k < open.size(); ++k)
            if (std::find(ids.begin(), ids.end(), rows[open[k]].srcId) != ids.end()) to[k] = MoveState::Intended;
    };
    attempt(removeIds, [&](const std::vector<QByteArray>& ids) { return src->Remove(ids); });
    attempt(undeleteIds, [&](const std::vector<QByteArray>& ids) { return src->Undelete(ids); });
    attempt(reflagIds, [&](const std::vector<QByteArray>& ids) { return src->SetFlagStatusMany(ids, 1); });
    // An undo that arrived gets its completed flag back before its row is
    // settled; a failure leaves the row for the next recovery.
    std::vector<QByteArray> arrived;
    std::vector<size_t> arrivedAt;
    for (size_t k = 0; k < open.size(); ++k)
        if (to[k] == MoveState::Moved && rows[open[k]].kind == MoveKind::Undo && rows[open[k]].flagCleared) {
            arrived.push_back(copies[k]);
            arrivedAt.push_back(k);
        }
    if (Status s = arrived.empty() ? Status::success() : dst->SetFlagStatusMany(arrived, 1); !s) {
        if (firstError) firstError = s;
        for (size_t k : arrivedAt) to[k] = MoveState::Intended;
    }

    std::vector<MoveRow> settled;
    for (size_t k = 0; k < open.size(); ++k) {
        MoveRow& r = rows[open[k]];
        if (to[k] == MoveState::Intended) continue;
        r.state = to[k];
        r.dstId = to[k] == MoveState::Moved ? copies[k] : QByteArray();
        r.note = to[k] == MoveState::Vanished ? QStringLiteral("gone from the source, no copy in the destination")
                 : to[k] == MoveState::Moved  ? QString()
                                              : note;
        settled.push_back(r);
    }
    if (Status s = m_journal.Finish(settled); !s) {
        for (size_t k = 0; k < open.size(); ++k) rows[open[k]].state = MoveState::Intended;
        return s;
    }
    return firstError;
}

Status StoreMover::Recover()
{
    auto unfinished = m_journal.Unfinished();
    if (!unfinished) return unfinished.error();
    if (unfinished->empty()) return Status::success();
    std::map<qint64, std::vector<MoveRow>> batches;
    for (MoveRow& r : *unfinished) batches[r.batch].push_back(std::move(r));

    Status result;
    int left = 0;
    for (auto& [batch, rows] : batches) {
        Status s = Settle(rows, MoveState::RolledBack, QStringLiteral("taken back after an interrupted run"));
        int counts[5] = {};
        for (const MoveRow& r : rows) ++counts[static_cast<int>(r.state)];
        left += counts[static_cast<int>(MoveState::Intended)];
        if (m_log)
            m_log->Write(3, kSource,
                         QStringLiteral("Recovered %1 interrupted move(s) of rule \"%2\": %3 moved, %4 taken back, "
                                        "%5 gone, %6 left%7")
                             .arg(rows.size())
                             .arg(rows.front().ruleName)
                             .arg(counts[static_cast<int>(MoveState::Moved)])
                             .arg(counts[static_cast<int>(MoveState::RolledBack)])
                             .arg(counts[static_cast<int>(MoveState::Vanished)])
                             .arg(counts[static_cast<int>(MoveState::Intended)])
                             .arg(s ? QString() : QStringLiteral(" (") + s.error().message + QLatin1Char(')')));
        if (!s && result) result = s;
    }
    if (!result)
        return Error{result.error().kind,
                     QStringLiteral("%1 interrupted move(s) could not be settled yet: %2").arg(left).arg(result.error().message),
                     result.error().code};
    return result;
}

}  // namespace mv::journal
