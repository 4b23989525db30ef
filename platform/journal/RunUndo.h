#pragma once
// Takes back what one run moved, through the mover and its journal.
//
// Every Moved row of the run is followed through the journal to where the
// message is now (later runs and undos may have moved it on and back). A
// message that is still in the folder the run put it in moves back to the
// folder it came from: the store's own move within one store, append and
// remove across stores, written as MoveKind::Undo rows with undoOf, so a
// kill in the middle is settled by StoreMover::Recover like any move. A row
// with a Moved undo row is not taken back again: a second undo of the same
// run moves nothing. A completed flag the run cleared is set again.
//
// What cannot be taken back is reported per message, never guessed at:
// moved on since (by a later run), deleted (or moved by another program),
// a folder gone, a store not open.
//
// The caller holds the run lock, has run Recover and opened the undo run
// in the journal (BeginRun with `undoes`); RuleRunner::UndoRun does that.
// The mover (and its journal and stores) must outlive this object.

#include "MoveJournal.h"
#include "StoreMover.h"

#include <vector>

namespace mv::journal {

class RunUndo {
public:
    enum class Fate {
        MovedBack,      // back in the folder it came from
        AlreadyBack,    // an earlier undo took it back
        MovedOn,        // no longer where the run put it, moved by a later run
        Gone,           // no longer where the run put it: deleted, or moved by another program
        FolderGone,     // the folder it came from, or the one it was moved to, no longer exists
        StoreNotOpen,   // a store of the move is not in this profile or cannot be opened
        Failed,         // the move back failed; the message stays where it is (see detail)
    };

    struct Item {
        MoveRow row;     // the run's row
        Fate fate = Fate::Failed;
        QString detail;  // in words, for the user: where it went, the store's error
    };

    struct Report {
        qint64 run = 0;
        std::vector<Item> items;  // one per message the run moved, in the run's order
        Status status;            // the first store or journal error; success otherwise
        int Count(Fate r) const;
        // Messages that could not be taken back (neither moved back now nor earlier).
        int NotTakenBack() const;
    };

    static const char* Words(Fate r);

    explicit RunUndo(StoreMover& mover) : m_mover(mover) {}

    // Takes back `run`'s moves, writing the undo rows under `undoRun`.
    Report Undo(qint64 run, qint64 undoRun);

    // What Undo would find to take back now, without moving: the count a
    // confirmation names.
    Report Plan(qint64 run);

private:
    Report Examine(qint64 run, std::vector<size_t>& candidates, std::vector<MoveRow>& now);

    StoreMover& m_mover;
};

}  // namespace mv::journal
