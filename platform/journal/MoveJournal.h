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
    QString trigger;           // "RunAllRules", "Run15MinuteRules", "RunImmediateRules", "Undo"
    qint64 pid = 0;
    QString origin;            // what started it: "hourly", "on demand", "command line", ...; empty when not told
    qint64 undoes = 0;         // an undo run: the run it takes back
};

// What one rule did in one run: written once per rule the run reached.
struct RuleRunRow {
    qint64 run = 0;
    int ruleId = 0;
    QString ruleName;
    int moved = 0;
    QString error;  // "source folder not found", a store's error; empty when none
};

// A rule's recent record, from the rule rows of the runs kept.
struct RuleHealth {
    int ruleId = 0;
    qint64 lastRun = 0;            // 0: the rule took part in no run kept
    QDateTime lastRunStarted;
    int movedLastRun = 0;
    int movedRecently = 0;         // in the runs since the `since` given
    QString lastError;             // the newest error, whenever it was; empty when none
    qint64 lastErrorRun = 0;
    QDateTime lastErrorStarted;
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

    // `origin` says in words what started the run; `undoes` names the run
    // an undo run takes back.
    Result<qint64> BeginRun(const QString& trigger, const QString& origin = QString(), qint64 undoes = 0);
    Status EndRun(qint64 run);
    // One row per rule the run reached, in one transaction.
    Status RecordRules(const std::vector<RuleRunRow>& rules);

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
    Result<std::optional<RunRow>> RunOf(qint64 run);
    // The rule rows of a run; for a run written before they were kept, one
    // row per rule counted from its moves.
    Result<std::vector<RuleRunRow>> RulesOfRun(qint64 run);
    // Every rule's record, by rule id; `since` bounds movedRecently.
    Result<std::vector<RuleHealth>> Health(const QDateTime& since);

    // --- Undo ---
    // The newest run that moved something and is not itself an undo; 0 when none.
    Result<qint64> LastUndoableRun();
    // Rows that take back one of `run`'s rows (MoveKind::Undo, any state).
    Result<std::vector<MoveRow>> UndoRowsOf(qint64 run);
    // Moved rows that took the message `id` of `store` elsewhere, in rows
    // after `afterRow`, oldest first: how a moved message went on.
    Result<std::vector<MoveRow>> MovesOf(const QByteArray& store, const QByteArray& id, qint64 afterRow);

    // Drops runs older than 30 days beyond the newest 500, at most
    // `maxRuns` of them per call (the oldest first), so a long-unpruned
    // journal is worked off over several runs and no call holds the file
    // for long. Needs no run lock: it never drops a run with Intended rows.
    Status Prune(const QDateTime& now, int maxRuns = 100);

private:
    MoveJournal(QString path, sqlite3* db);

    QString m_path;
    sqlite3* m_db = nullptr;
};

}  // namespace mv::journal
