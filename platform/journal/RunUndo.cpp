#include "RunUndo.h"

#include <map>
#include <set>
#include <tuple>

namespace mv::journal {
namespace {

using mapi::MessageStore;

// As the rules move: at most this many messages per batch within a store,
// fewer across stores (they carry whole messages).
constexpr size_t kBatchSameStore = 500;
constexpr size_t kBatchCrossStore = 50;

QString FolderName(MessageStore* store, const QByteArray& folder)
{
    if (!store) return QStringLiteral("a folder of a store that is not open");
    auto info = store->Folder(folder);
    return info ? store->DisplayName() + QStringLiteral(": ") + info->path
                : store->DisplayName() + QStringLiteral(": (a folder that is gone)");
}

}  // namespace

const char* RunUndo::Words(Fate r)
{
    switch (r) {
    case Fate::MovedBack: return "moved back";
    case Fate::AlreadyBack: return "already taken back";
    case Fate::MovedOn: return "moved on since";
    case Fate::Gone: return "deleted";
    case Fate::FolderGone: return "folder gone";
    case Fate::StoreNotOpen: return "store not open";
    case Fate::Failed: return "failed";
    }
    return "?";
}

int RunUndo::Report::Count(Fate r) const
{
    int n = 0;
    for (const Item& i : items) n += i.fate == r;
    return n;
}

int RunUndo::Report::NotTakenBack() const
{
    return static_cast<int>(items.size()) - Count(Fate::MovedBack) - Count(Fate::AlreadyBack);
}

RunUndo::Report RunUndo::Examine(qint64 run, std::vector<size_t>& candidates, std::vector<MoveRow>& now)
{
    Report report;
    report.run = run;
    MoveJournal& journal = m_mover.Journal();
    auto rows = journal.RowsOfRun(run);
    if (!rows) {
        report.status = rows.error();
        return report;
    }
    auto undone = journal.UndoRowsOf(run);
    if (!undone) {
        report.status = undone.error();
        return report;
    }
    std::set<qint64> back;
    for (const MoveRow& u : *undone)
        if (u.state == MoveState::Moved) back.insert(u.undoOf);

    // A message a later rule of the same run moved on is one message: its
    // first row takes it back from wherever the run left it, and the rows
    // that continued it are not items of their own.
    auto taken = [](const MoveRow& r) { return r.state == MoveState::Moved && r.kind != MoveKind::Undo; };
    std::set<std::pair<QByteArray, QByteArray>> arrived;
    for (const MoveRow& r : *rows)
        if (taken(r)) arrived.insert({r.dstStore, r.dstId});
    for (const MoveRow& r : *rows) {
        if (!taken(r) || arrived.count({r.srcStore, r.srcId})) continue;
        Item item{r, Fate::Failed, QString()};
        if (back.count(r.id)) {
            item.fate = Fate::AlreadyBack;
            report.items.push_back(std::move(item));
            continue;
        }
        // Where the message is now: follow the later moves of it. `at` is
        // the row whose destination it is in; `placed` the last row of this
        // run on the way, whose destination is where the run left it.
        MoveRow at = r;
        MoveRow placed = r;
        bool ofRun = true;
        for (;;) {
            auto next = journal.MovesOf(at.dstStore, at.dstId, at.id);
            if (!next) {
                report.status = next.error();
                return report;
            }
            if (next->empty()) break;
            at = next->front();
            ofRun = ofRun && at.run == run && at.kind != MoveKind::Undo;
            if (ofRun) placed = at;
        }
        if (at.dstStore != placed.dstStore || at.dstFolder != placed.dstFolder) {
            item.fate = Fate::MovedOn;
            item.detail = QStringLiteral("now in %1 (%2 of run %3)")
                              .arg(FolderName(m_mover.Store(at.dstStore), at.dstFolder),
                                   at.kind == MoveKind::Undo ? QStringLiteral("taken back")
                                                             : QStringLiteral("rule \"%1\"").arg(at.ruleName))
                              .arg(at.run);
            report.items.push_back(std::move(item));
            continue;
        }
        MoveRow where;  // the message as it is now: the source of the move back
        where.srcStore = at.dstStore;
        where.srcFolder = at.dstFolder;
        where.srcId = at.dstId;
        now.push_back(where);
        candidates.push_back(report.items.size());
        report.items.push_back(std::move(item));
    }

    // Look at the stores: the folders on both sides, and whether each
    // message is still there. Read only.
    std::vector<size_t> present;
    std::vector<MoveRow> presentNow;
    std::map<std::pair<QByteArray, QByteArray>, Status> folders;  // (store, folder) -> exists
    auto folderStatus = [&](MessageStore* store, const QByteArray& storeId, const QByteArray& folder) {
        auto [it, added] = folders.try_emplace({storeId, folder});
        if (added) {
            auto info = store->Folder(folder);
            if (!info) it->second = info.error();
        }
        return it->second;
    };
    std::map<std::pair<QByteArray, QByteArray>, std::vector<size_t>> byFolder;  // where it is now -> candidates
    for (size_t k = 0; k < candidates.size(); ++k) {
        Item& item = report.items[candidates[k]];
        MessageStore* from = m_mover.Store(now[k].srcStore);
        MessageStore* to = m_mover.Store(item.row.srcStore);
        if (!from || !to) {
            item.fate = Fate::StoreNotOpen;
            item.detail = QStringLiteral("the store it %1 is not open").arg(from ? QStringLiteral("came from")
                                                                                 : QStringLiteral("was moved to"));
            continue;
        }
        for (bool origin : {true, false}) {
            const Status s = origin ? folderStatus(to, item.row.srcStore, item.row.srcFolder)
                                    : folderStatus(from, now[k].srcStore, now[k].srcFolder);
            if (s) continue;
            item.fate = s.error().kind == ErrorKind::NotFound ? Fate::FolderGone : Fate::Failed;
            item.detail = s.error().kind == ErrorKind::NotFound
                              ? (origin ? QStringLiteral("the folder it came from no longer exists")
                                        : QStringLiteral("the folder it was moved to no longer exists"))
                              : s.error().message;
            if (report.status) report.status = s;
            break;
        }
        if (!item.detail.isEmpty()) continue;
        byFolder[{now[k].srcStore, now[k].srcFolder}].push_back(k);
    }
    for (const auto& [key, ks] : byFolder) {
        MessageStore* from = m_mover.Store(key.first);
        std::vector<QByteArray> ids;
        for (size_t k : ks) ids.push_back(now[k].srcId);
        auto presence = from->Probe(ids);
        if (!presence || presence->size() != ids.size()) {
            const Error e = presence ? Error::permanent(QStringLiteral("the store probed a different number of messages"))
                                     : presence.error();
            for (size_t k : ks) {
                report.items[candidates[k]].detail = e.message;
            }
            if (report.status) report.status = e;
            continue;
        }
        for (size_t j = 0; j < ks.size(); ++j) {
            const size_t k = ks[j];
            Item& item = report.items[candidates[k]];
            if ((*presence)[j] == mapi::Presence::Present) {
                present.push_back(candidates[k]);
                presentNow.push_back(now[k]);
                item.fate = Fate::MovedBack;  // what Undo will try
                continue;
            }
            item.fate = Fate::Gone;
            item.detail = QStringLiteral("no longer in %1: deleted, or moved by another program")
                              .arg(FolderName(from, key.second));
        }
    }
    candidates = std::move(present);
    now = std::move(presentNow);
    return report;
}

RunUndo::Report RunUndo::Plan(qint64 run)
{
    std::vector<size_t> candidates;
    std::vector<MoveRow> now;
    return Examine(run, candidates, now);
}

RunUndo::Report RunUndo::Undo(qint64 run, qint64 undoRun)
{
    std::vector<size_t> candidates;
    std::vector<MoveRow> now;
    Report report = Examine(run, candidates, now);

    // One batch per (where it is, where it goes back to, rule), in the
    // run's order.
    using Key = std::tuple<QByteArray, QByteArray, QByteArray, QByteArray, int>;
    std::map<Key, std::vector<size_t>> groups;
    std::vector<Key> order;
    for (size_t k = 0; k < candidates.size(); ++k) {
        const MoveRow& r = report.items[candidates[k]].row;
        Key key{now[k].srcStore, now[k].srcFolder, r.srcStore, r.srcFolder, r.ruleId};
        auto [it, added] = groups.try_emplace(key);
        if (added) order.push_back(key);
        it->second.push_back(k);
    }
    for (const Key& key : order) {
        const std::vector<size_t>& ks = groups[key];
        MessageStore* from = m_mover.Store(std::get<0>(key));
        MessageStore* to = m_mover.Store(std::get<2>(key));
        const size_t batch = from == to ? kBatchSameStore : kBatchCrossStore;
        for (size_t start = 0; start < ks.size(); start += batch) {
            const size_t end = std::min(ks.size(), start + batch);
            std::vector<StoreMover::Entry> entries;
            for (size_t j = start; j < end; ++j) {
                const MoveRow& r = report.items[candidates[ks[j]]].row;
                entries.push_back({now[ks[j]].srcId, false, r.subject, r.sender, r.id, r.flagCleared});
            }
            const MoveRow& first = report.items[candidates[ks[start]]].row;
            const StoreMover::Outcome out = m_mover.Move({undoRun, first.ruleId, first.ruleName}, *from,
                                                         std::get<1>(key), *to, std::get<3>(key), entries);
            for (size_t j = start; j < end; ++j) {
                Item& item = report.items[candidates[ks[j]]];
                const MoveState state = out.states[j - start];
                if (state == MoveState::Moved) {
                    item.fate = Fate::MovedBack;
                } else if (state == MoveState::Vanished) {
                    item.fate = Fate::Gone;
                    item.detail = QStringLiteral("left %1 while it was being moved back")
                                      .arg(FolderName(from, std::get<1>(key)));
                } else {
                    item.fate = Fate::Failed;
                    item.detail = out.status ? QStringLiteral("not moved back")
                                             : out.status.error().message;
                }
            }
            if (!out.status && report.status) report.status = out.status;
        }
    }
    return report;
}

}  // namespace mv::journal
