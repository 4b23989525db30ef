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
// can still be reached; otherwise at the next Recover). The error returned
// is the store's, Temporary or Permanent as the store said.
//
// The mover borrows the journal, the store lookup and the logger; all must
// outlive it. UI thread only.

#include "MoveJournal.h"

#include "platform/common/Error.h"
#include "platform/mapi/MessageStore.h"

#include <functional>
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
    };
    struct Context {
        qint64 run = 0;
        int ruleId = 0;
        QString ruleName;
    };

    // Moves messages of one source folder of `src` into `dstFolder` of
    // `dst` (which may be `src`). Returns the new identifiers in order; an
    // empty one for a message that was no longer in the source.
    Result<std::vector<QByteArray>> Move(const Context& ctx, mapi::MessageStore& src, mapi::MessageStore& dst,
                                         const QByteArray& dstFolder, const std::vector<Entry>& entries);

    // Settles every Intended row an earlier process left. Rows whose store
    // cannot be reached now stay Intended for the next call; the error
    // names them.
    Status Recover();

    MoveJournal& Journal() const { return m_journal; }

private:
    MoveJournal& m_journal;
    StoreLookup m_stores;
    logging::Logger* m_log;
};

}  // namespace mv::journal
