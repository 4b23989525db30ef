#pragma once
// The rule-run drivers (Run15MinuteRules, RunImmediateRules, RunAllRules),
// FolderExist, the preview of one rule and the preview of a whole run.
//
// A driver selects its active rules in SortID order, checks both folders of
// each rule (asking whether to go on when one is missing), runs
// ExecuteRule, and stops on a "No", on a result other than 6, or when the
// shared cancel flag is set after a rule. Between rules it lets pending
// window events run, so the status form repaints and its Cancel button can
// set the flag. Every driver returns a RunReport: what each rule moved and
// why the run ended, for the command line and the log.
//
// Before its first rule a driver takes the move journal's run lock (so runs
// of two processes never overlap), settles what a dead process left
// (StoreMover::Recover) and opens a run in the journal; it closes the run
// and prunes the journal when it ends. A run that cannot have the lock
// within RunnerOptions::lockWait does nothing: it is logged and reported
// as `busy` (a Temporary error for the command line).
//
// Unattended (the service): nobody answers questions, so a missing folder
// is logged and the run goes on with the next rule, and a rule that fails
// ends that rule only; the run goes on and ends as RuleFailed.
//
// Error policy: the drivers raise their own errors (base + 1000 upward,
// source "OutAddIn.<driver>") into their handler, which reports them through
// the ErrorReport under the label "OutAddIn.<driver>"; nothing throws out.
//
// The add-in owns the cancel flag, the database connection and the status
// form; they reach the runner through RunnerHooks and must outlive it.
// No widget header here: forms implement StatusForm and PreviewForm.

#include "RuleExecutor.h"

#include "platform/journal/MoveJournal.h"
#include "platform/journal/RunUndo.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace mv::store {
class cDB;
}

namespace mv::engine {

// The selections, exactly as the rule store is asked.
extern const char* const kSql15MinuteRules;
extern const char* const kSqlImmediateRules;
extern const char* const kSqlAllRules;
// Followed by the RuleID.
extern const char* const kSqlPreviewRule;

// The progress window of a run.
class StatusForm {
public:
    virtual ~StatusForm() = default;
    virtual void Show() = 0;
    virtual void SetRuleName(const QString& ruleName) = 0;
    // `done` of `total` rules have been handled.
    virtual void SetProgress(int done, int total) = 0;
    virtual void Hide() = 0;  // hides and unloads
};

// The preview dialog of one rule: a caption and a list of lines.
class PreviewForm {
public:
    virtual ~PreviewForm() = default;
    virtual void SetCaption(const QString& caption) = 0;
    virtual void SetLines(const QStringList& lines) = 0;
    virtual void ShowModal() = 0;
};

struct RunnerHooks {
    // The connection the drivers read rules from; nullptr when it does not
    // exist (the drivers then raise their "Invalid database connection").
    std::function<store::cDB*()> database;
    // Makes the status form; nullptr when it cannot be had.
    std::function<std::unique_ptr<StatusForm>()> createStatusForm;
    // RunImmediateRules only: whether the hidden timer form exists.
    std::function<bool()> mainFormExists;
    // "Let pending window events run". Default: QCoreApplication::processEvents.
    std::function<void()> processEvents;
    // The screen's mouse pointer (11 hourglass, 0 default) around a preview.
    std::function<void(int)> setMousePointer;
};

// How a run ended.
enum class RunEnd {
    Completed,         // every selected rule was handled (or none was selected)
    UserStopped,       // "No" to a missing-folder question
    RuleFailed,        // ExecuteRule ended with a result other than 6 (unattended: after the other rules ran)
    Cancelled,         // the cancel flag was set
    Error,             // the driver's own error (database, recordset, status form, move journal)
};

struct FolderProblem {
    QString ruleName;
    std::optional<int> ruleId;
    bool source = true;  // false: the destination folder
};

struct RunReport {
    QString driver;                     // "RunAllRules", ...
    std::vector<RuleOutcome> rules;     // the rules ExecuteRule ran, in order
    std::vector<FolderProblem> missingFolders;
    RunEnd end = RunEnd::Completed;
    QString error;                      // the reported text of a driver error
    int selected = 0;                   // rows the selection returned
    // Another process held the run lock: no rule ran (end is Error, and
    // `error` says so). Worth trying again later.
    bool busy = false;
    qint64 journalRun = 0;              // the run's number in the move journal; 0 when none

    int TotalMoved() const;
    // "what moved": one line per rule that ran, "<name>: <n> moved" with
    // " (error)" after a failed rule, then one indented line per subject
    // when `subjects` is set.
    QStringList Lines(bool subjects = false) const;
};

// One rule of a whole-run preview.
struct RulePreview {
    std::optional<int> ruleId;
    QString ruleName;
    QStringList subjects;  // what the rule would move now
    QString problem;       // a missing folder or an error; empty when none
    int Count() const { return static_cast<int>(subjects.size()); }
};

// What started a run, in the words the history and the log use.
namespace origin {
inline const QString kQuarterHour = QStringLiteral("quarter hour");
inline const QString kHourly = QStringLiteral("hourly");
inline const QString kNewMail = QStringLiteral("new mail");
inline const QString kStartUp = QStringLiteral("start-up");
inline const QString kOnDemand = QStringLiteral("on demand");
inline const QString kCommandLine = QStringLiteral("command line");
}  // namespace origin

// The journal's trigger of an undo run.
inline const QString kUndoTrigger = QStringLiteral("Undo");

// "on demand", "quarter hour", "undo of run 12", ...: the run's origin when
// it was told, else what its driver is started by.
QString TriggerWords(const journal::RunRow& run);

// One line on a rule's recent record: "last run 12 (2026-11-25 06:40):
// 3 moved; 7 days: 10 moved; last error: ...", or that it took part in no
// run kept. Times in local time.
QString HealthWords(const std::optional<journal::RuleHealth>& health);

// The end of RuleRunner::UndoRun.
struct UndoOutcome {
    journal::RunUndo::Report report;  // report.run: the run taken back (0 when none was found)
    QString error;                    // why nothing (or not everything) could be done; empty when all went
    // One line per message not taken back (subject, sender: why), then a summary.
    QStringList Lines() const;
};

struct RunnerOptions {
    // Nobody is there to answer: see above.
    bool unattended = false;
    // How long a run waits for another process's run to end.
    std::chrono::milliseconds lockWait{3000};
};

class RuleRunner {
public:
    // `cancelFlag` is the add-in's shared run-cancel flag. `title` is the
    // title of the missing-folder boxes (the application's title).
    RuleRunner(RuleExecutor& executor, os::ErrorReport& report, logging::Logger* log, RunnerHooks hooks,
               bool& cancelFlag, QString title = QStringLiteral("Mailvane"));

    void SetOptions(RunnerOptions options) { m_options = options; }
    const RunnerOptions& Options() const { return m_options; }

    // Settles what a dead process left in the move journal, under the run
    // lock, without running a rule: for the service at start. Every driver
    // run does the same before its first rule.
    Status RecoverMoves();

    RunReport Run15MinuteRules();
    RunReport RunImmediateRules();
    RunReport RunAllRules();

    // What starts the next driver run (origin::...); used once. Without it
    // the run's origin follows from its driver.
    void SetNextOrigin(const QString& origin) { m_nextOrigin = origin; }
    // What starts every run of this runner (origin::kCommandLine for the
    // commands); empty: it follows from the driver. SetNextOrigin wins.
    void SetDefaultOrigin(const QString& origin) { m_defaultOrigin = origin; }

    // Takes back what journal run `run` moved (0: the newest run that moved
    // something and is not an undo), under the run lock, after recovery, as
    // a run of its own in the journal (trigger kUndoTrigger). An undo run
    // itself cannot be undone: run the rules again instead.
    UndoOutcome UndoRun(qint64 run = 0);
    // What UndoRun(run) would take back now, without moving anything (the
    // count a confirmation names); run 0 as there.
    UndoOutcome PlanUndo(qint64 run = 0);

    // The move journal the runs write; an error when it cannot be used.
    Result<journal::MoveJournal*> Journal();
    // Every rule's record over the runs kept, movedRecently over 7 days.
    Result<std::vector<journal::RuleHealth>> Health();

    bool FolderExist(const QString& entryIdHex, const QString& storeIdHex) const;

    // The Rules Manager's preview of one rule (active or not): folder checks
    // with an OK box, then ExecuteRule in preview into `form`, shown modally.
    // Returns the lines shown; empty and no form when the rule or a folder
    // is missing.
    QStringList PreviewRule(int ruleId, PreviewForm& form);

    // What RunAllRules would move now, rule by rule, without moving or
    // changing anything. See RuleRunner.cpp for how later rules see the
    // moves of earlier ones.
    std::vector<RulePreview> PreviewAllRules();

private:
    RunReport Run(const QString& driver, const char* sql);
    void PumpEvents();
    // Lock, recovery and the journal's run; false (with `report` filled in)
    // when the run must not move anything.
    class JournalRun;
    bool OpenJournalRun(const QString& driver, JournalRun& run, RunReport& report);

    RuleExecutor& m_exec;
    os::ErrorReport& m_report;
    logging::Logger* m_log;
    RunnerHooks m_hooks;
    bool& m_cancel;
    QString m_title;
    RunnerOptions m_options;
    QString m_nextOrigin;
    QString m_defaultOrigin;
};

}  // namespace mv::engine
