#pragma once
// The move journal: one durable record of every message a run moves.
//
// A row is written before a message is touched (Intend) and updated after
// (Finish), so a process that dies mid-move leaves rows in the Intended
// state; the next process hands them to StoreMover::Recover before it moves
// anything. Undo, the run history and each rule's health read the same rows;
// nothing else keeps a record of moves.
//
// The journal is an SQLite file of its own in the data folder (mode 0600),
// in WAL mode with synchronous=FULL: a commit that returned is on disk.
// Rows are kept for 30 days or the last 500 runs, whichever keeps more.
//
// Identifiers are the stores' binary ones. Every call returns Status or
// Result: Temporary when the file is locked by another process, Permanent
// when it is corrupt or cannot be written. One thread (the UI thread) uses
// a journal; several processes may open the same file.

#include "RunLock.h"

#include "platform/common/Error.h"
#include "platform/mapi/MessageStore.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

struct sqlite3;

namespace mv::journal {

enum class MoveState : int {
    Intended = 0,    // written before the move; what happened is not known yet
    Moved = 1,       // the message is in the destination and gone from the source
    RolledBack = 2,  // the message stayed in (or went back to) the source, flag restored
    Vanished = 3,    // gone from the source, no copy in the destination: another program took it
    Failed = 4,      // left in the source after an error; nothing changed
};

enum class MoveKind : int {
    SameStore = 0,   // the store's own move (rename, UID MOVE, COPY+EXPUNGE)
    CrossStore = 1,  // append to the destination, then remove from the source
    Undo = 2,        // taking back an earlier move
};

// One message of one move, as written and as read back.
struct MoveRow {
    qint64 id = 0;
    qint64 run = 0;
    qint64 batch = 0;  // rows moved together share a batch number
    int ruleId = 0;
    QString ruleName;
    MoveKind kind = MoveKind::SameStore;
    MoveState state = MoveState::Intended;
    QByteArray srcStore, srcFolder, srcId;
    QByteArray dstStore, dstFolder, dstId;  // dstId: known once Moved
    QByteArray dstMark;                     // the destination's ArrivalMark before the move
    mapi::Fingerprint fingerprint;          // of the message as the destination will hold it
    bool flagCleared = false;               // the completed flag was (to be) cleared before the move
    QString subject, sender;
    QDateTime started, finished;            // UTC
    QString note;                           // why it ended as it did, when not Moved
    qint64 undoOf = 0;                      // Undo rows: the row taken back
};

struct RunRow {
    qint64 run = 0;
    QDateTime started, ended;  // ended invalid while running (or when the process died)
    QString trigger;           // "RunAllRules", "Run15MinuteRules", "RunImmediateRules", "command line", ...
    qint64 pid = 0;
};

class MoveJournal {
public:
    ~MoveJournal();
    MoveJournal(const MoveJournal&) = delete;
    MoveJournal& operator=(const MoveJournal&) = delete;

    // Opens or creates the journal file; makes it 0600. A file that is not
    // a sound journal (not SQLite, damaged, a newer schema) is a Permanent
    // error naming it, and the file is left exactly as it was. ":memory:"
    // gives a journal that lives only as long as the object (tools, tests).
    static Result<std::unique_ptr<MoveJournal>> Open(const QString& path);
    QString Path() const { return m_path; }
    bool InMemory() const;

    // Takes the run lock beside the journal (Path() + ".lock"); see RunLock.
    // Hold it from before Recover to after EndRun.
    Result<std::unique_ptr<RunLock>> LockRuns(std::chrono::milliseconds wait) const;

    Result<qint64> BeginRun(const QString& trigger);
    Status EndRun(qint64 run);

    // Writes the rows (state Intended) in one transaction; fills in their
    // ids and one new batch number. Durable when it returns.
    Status Intend(std::vector<MoveRow>& rows);
    // Sets each row's final state, dstId and note, in one transaction.
    Status Finish(const std::vector<MoveRow>& rows);

    // Rows still Intended, oldest first: what a dead process left.
    Result<std::vector<MoveRow>> Unfinished();
    // The runs, newest first, at most `limit`.
    Result<std::vector<RunRow>> Runs(int limit);
    Result<std::vector<MoveRow>> RowsOfRun(qint64 run);
    // Rows of `ruleId` that ended since `since`, newest first.
    Result<std::vector<MoveRow>> RowsOfRule(int ruleId, const QDateTime& since);

    // Drops runs older than 30 days beyond the newest 500. Cheap to call at
    // every run.
    Status Prune(const QDateTime& now);

private:
    MoveJournal(QString path, sqlite3* db);

    QString m_path;
    sqlite3* m_db = nullptr;
};

}  // namespace mv::journal
