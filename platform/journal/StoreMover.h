#pragma once
// Moves messages between folders of any two stores, through the journal.
//
// Within one store the store's own move is used (rename, UID MOVE, COPY +
// UID EXPUNGE). Across stores the destination receives the message first
// (AppendMany with flags and arrival time), then the source removes it.
// Either way every message is written to the journal as Intended before
// anything is touched and set to its outcome afterwards, so a process that
// dies at any instant leaves rows that Recover settles:
//   - a copy of the message is in the destination (Locate, after the row's
//     mark): the source's original is removed if it is still there; Moved;
//   - no copy, the original is still in the source: \Deleted is taken off
//     it and a completed flag cleared for the move is set again; RolledBack;
//   - neither: another program took it; Vanished.
// So a message is never lost, never left in both folders, never left
// \Deleted, and a completed flag is cleared only on a message that moved.
//
// Error policy: a failed store call ends the batch; the batch's rows are
// settled as Recover settles them before the call returns (when the stores
// can still be reached; otherwise at the next Recover), except that a
// message left in the source is Failed rather than RolledBack. The error
// returned is the store's, Temporary or Permanent as the store said. One
// exception: when the store's own move says NotFound (a message of the batch
// left the source meanwhile) the batch is settled and what is still in the
// source is moved once more, so one vanished message does not stop the rest.
//
// The mover borrows the journal, the store lookup and the logger; all must
// outlive it. UI thread only.

#include "MoveJournal.h"

#include "platform/common/Error.h"
#include "platform/mapi/MessageStore.h"

#include <functional>
#include <optional>
#include <vector>

namespace mv::logging {
class Logger;
}

namespace mv::journal {

class StoreMover {
public:
    using StoreLookup = std::function<mapi::MessageStore*(const QByteArray& storeId)>;

    StoreMover(MoveJournal& journal, StoreLookup stores, logging::Logger* log = nullptr);

    // What the caller knows of one message to move.
    struct Entry {
        QByteArray id;                    // the message's binary identifier
        bool clearCompletedFlag = false;  // clear its completed flag, only if it moves
        QString subject, sender;          // for the history
        qint64 undoOf = 0;                // taking back this journal row: written as MoveKind::Undo
        // Undo only: the move taken back cleared the completed flag; it is
        // set again on the message once it has arrived (by Recover, when the
        // process died after the move). Kept in the row's flagCleared.
        bool setCompletedFlag = false;
    };
    struct Context {
        qint64 run = 0;
        int ruleId = 0;
        QString ruleName;
    };

    // What became of each entry of a Move, in order.
    struct Outcome {
        std::vector<QByteArray> newIds;  // the identifier in the destination; empty where it did not move
        std::vector<MoveState> states;   // Moved, Vanished, Failed, or Intended (left for the next Recover)
        Status status;                   // the first error; success when every entry was settled without one
        int Count(MoveState s) const;
    };

    // Moves messages of `srcFolder` of `src` into `dstFolder` of `dst`
    // (which may be `src`).
    Outcome Move(const Context& ctx, mapi::MessageStore& src, const QByteArray& srcFolder, mapi::MessageStore& dst,
                 const QByteArray& dstFolder, const std::vector<Entry>& entries);

    // Settles every Intended row an earlier process left. Rows whose store
    // cannot be reached now stay Intended for the next call; the error
    // names them. Only call it holding the run lock (MoveJournal::LockRuns):
    // without it the rows may be another live process's.
    Status Recover();

    MoveJournal& Journal() const { return m_journal; }
    // The open store with that identifier; nullptr when none.
    mapi::MessageStore* Store(const QByteArray& storeId) const { return m_stores ? m_stores(storeId) : nullptr; }

    // The points of a move where a process may die; for tests and kill
    // trials. When the callback returns true at a step, Move stops there
    // as a killed process would (rows stay Intended, nothing is undone) and
    // returns a Temporary error.
    enum class Step { Intended, FlagsCleared, Copied, Removed };
    void SetInterruption(std::function<bool(Step)> stop) { m_stop = std::move(stop); }

    // A fresh Maildir-style unique name for a message that has none.
    static QByteArray NewUniqueName();

private:
    Outcome MoveOnce(const Context& ctx, mapi::MessageStore& src, const QByteArray& srcFolder,
                     mapi::MessageStore& dst, const QByteArray& dstFolder, const std::vector<Entry>& entries,
                     bool retryVanished);
    // Looks at the stores and settles `rows` (one batch) in place; rows it
    // cannot settle stay Intended. `stayed`: the state of a message found in
    // the source with no copy (RolledBack after a dead process, Failed after
    // an error of this one).
    Status Settle(std::vector<MoveRow>& rows, MoveState stayed, const QString& note);
    bool Stop(Step step) const { return m_stop && m_stop(step); }

    MoveJournal& m_journal;
    StoreLookup m_stores;
    logging::Logger* m_log;
    std::function<bool(Step)> m_stop;
};

}  // namespace mv::journal
