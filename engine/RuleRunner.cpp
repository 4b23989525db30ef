#include "RuleRunner.h"

#include "store/cDB.h"

#include "platform/ado/AdoError.h"
#include "platform/ado/Recordset.h"
#include "platform/journal/MoveJournal.h"
#include "platform/journal/StoreMover.h"
#include "platform/logging/Logger.h"
#include "platform/mapi/MapiUtils.h"
#include "platform/mapi/MessageStore.h"
#include "platform/mapi/RestrictionEvaluator.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "platform/outlook/NameSpace.h"

#include <QCoreApplication>
#include <QHash>
#include <QSet>

#include <algorithm>

namespace mv::engine {

const char* const kSql15MinuteRules =
    "SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.Active = -1 And "
    "Rules.MsgAgeID = MsgAge.MsgAgeID AND Rules.MsgAgeID IN (13,14) ORDER BY Rules.SortID;";
const char* const kSqlImmediateRules =
    "SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.Active = -1 And "
    "Rules.MsgAgeID = MsgAge.MsgAgeID AND Rules.MsgAgeID = 13 ORDER BY Rules.SortID;";
const char* const kSqlAllRules =
    "SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.Active = -1 And "
    "Rules.MsgAgeID = MsgAge.MsgAgeID ORDER BY Rules.SortID;";
const char* const kSqlPreviewRule =
    "SELECT Rules.*, MsgAge.timeField, MsgAge.timeDiff From Rules, MsgAge Where Rules.MsgAgeID = "
    "MsgAge.MsgAgeID AND Rules.RuleID=";

namespace {

// How many rules ahead a run tells the stores about: enough for a store to
// get ahead on slow searches while quick rules move their mail.
constexpr int kAnticipatedRules = 4;

// The `n` rules after the current one (fewer at the end), read without
// moving the cursor for good.
std::vector<RuleRecord> PeekAhead(ado::Recordset& rs, int n)
{
    std::vector<RuleRecord> ahead;
    ado::Recordset::Bookmark here = 0;
    try {
        here = rs.GetBookmark();
    } catch (const ado::AdoError&) {
        return ahead;
    }
    try {
        for (int k = 0; k < n; ++k) {
            rs.MoveNext();
            if (rs.IsEOF()) break;
            ahead.push_back(RuleRecord::FromRecordset(rs));
        }
    } catch (const ado::AdoError&) {
    }
    rs.SetBookmark(here);
    return ahead;
}

const QString kRun15 = QStringLiteral("Run15MinuteRules");
const QString kRunImmediate = QStringLiteral("RunImmediateRules");
const QString kRunAll = QStringLiteral("RunAllRules");
const QString kPreviewLabel = QStringLiteral("btnPreview_Click of Form frmRulesMain");

constexpr long kErrObjectNotSet = 91;
constexpr int kMousePointerHourglass = 11;
constexpr int kMousePointerDefault = 0;

QString FolderMissingText(const QString& ruleName, bool source)
{
    return (source ? QStringLiteral("The Source Folder for rule: ") : QStringLiteral("The Destination Folder for rule: ")) +
           ruleName + QStringLiteral(" can not be found.");
}

QString ContinueQuestion(const QString& ruleName, bool source)
{
    return FolderMissingText(ruleName, source) + QStringLiteral("\r\nContinue procesing rules?");
}

QString FolderKey(const QString& entryId, const QString& storeId)
{
    return entryId + QLatin1Char('|') + storeId;
}

// The key of the folder the pair names, as its store names it today.
QString CanonicalKey(outlook::NameSpace& ns, const QString& entryId, const QString& storeId)
{
    if (auto folder = ns.GetFolderFromID(entryId, storeId)) return FolderKey(folder->EntryID(), folder->StoreID());
    return FolderKey(entryId, storeId);
}

// Closes what a run opened, whichever way it ends.
struct RunResources {
    std::unique_ptr<ado::Recordset> rs;
    std::unique_ptr<StatusForm> status;
    ~RunResources()
    {
        if (status) status->Hide();
        if (rs) rs->Close();
    }
};

}  // namespace

// The journal's side of one driver run: the run lock is held from before
// the recovery to after the run is closed.
class RuleRunner::JournalRun {
public:
    JournalRun() = default;
    JournalRun(const JournalRun&) = delete;
    JournalRun& operator=(const JournalRun&) = delete;
    ~JournalRun()
    {
        if (!journal || !run) return;
        if (report) Close(*report);
        (void)journal->EndRun(run);
        // Pruning needs no lock; the next run need not wait for it.
        lock.reset();
        (void)journal->Prune(QDateTime::currentDateTimeUtc());
    }

    // What each rule did, for the history and the rules' health, and the
    // run's line in the log.
    void Close(const RunReport& r)
    {
        std::vector<journal::RuleRunRow> rows;
        QStringList errors;
        for (const RuleOutcome& o : r.rules) {
            QString error = o.error;
            if (error.isEmpty() && o.result != kResultGoOn) error = QStringLiteral("the rule failed");
            rows.push_back({run, o.ruleId.value_or(0), o.ruleName, o.moved, error});
            if (!error.isEmpty()) errors << o.ruleName + QStringLiteral(" (") + error + u')';
        }
        for (const FolderProblem& p : r.missingFolders) {
            const QString error = p.source ? QStringLiteral("source folder not found")
                                           : QStringLiteral("destination folder not found");
            rows.push_back({run, p.ruleId.value_or(0), p.ruleName, 0, error});
            errors << p.ruleName + QStringLiteral(" (") + error + u')';
        }
        if (Status s = journal->RecordRules(rows); !s && log) log->Write(4, r.driver, s.error().message);
        if (!log) return;
        static const char* const kEnds[] = {"completed", "stopped at a missing folder", "a rule failed", "cancelled",
                                            "failed"};
        log->Write(3, r.driver,
                   QStringLiteral("Run %1 (%2): %3 message(s) moved by %4 rule(s), %5%6")
                       .arg(run)
                       .arg(origin)
                       .arg(r.TotalMoved())
                       .arg(r.rules.size())
                       .arg(QLatin1String(kEnds[static_cast<int>(r.end)]))
                       .arg(errors.isEmpty() ? QString() : QStringLiteral("; errors: ") + errors.join(QStringLiteral(", "))));
    }

    std::unique_ptr<journal::RunLock> lock;
    journal::MoveJournal* journal = nullptr;
    qint64 run = 0;
    QString origin;
    const RunReport* report = nullptr;
    logging::Logger* log = nullptr;
};

namespace {

QString DefaultOrigin(const QString& driver)
{
    if (driver == kRun15) return origin::kQuarterHour;
    if (driver == kRunImmediate) return origin::kNewMail;
    return origin::kHourly;
}

}  // namespace

QString TriggerWords(const journal::RunRow& run)
{
    if (run.trigger == kUndoTrigger) return QStringLiteral("undo of run %1").arg(run.undoes);
    return run.origin.isEmpty() ? DefaultOrigin(run.trigger) : run.origin;
}

bool RuleRunner::OpenJournalRun(const QString& driver, JournalRun& run, RunReport& report)
{
    auto fail = [&](const QString& text) {
        report.end = RunEnd::Error;
        report.error = text;
        m_report.Show(text);
        return false;
    };
    auto mover = m_exec.Mover();
    if (!mover)
        return fail(QStringLiteral("No rule ran: the move journal cannot be used. ") + mover.error().message);
    journal::MoveJournal& moves = (*mover)->Journal();
    auto lock = moves.LockRuns(m_options.lockWait);
    if (!lock) {
        if (lock.error().kind != ErrorKind::Temporary)
            return fail(QStringLiteral("No rule ran: ") + lock.error().message);
        // Another process is running rules; its run does what this one
        // would have, so this one is skipped without a box.
        report.end = RunEnd::Error;
        report.busy = true;
        report.error = QStringLiteral("No rule ran: ") + lock.error().message;
        if (m_log) m_log->Write(3, driver, QStringLiteral("Skipped: ") + lock.error().message);
        return false;
    }
    run.lock = std::move(*lock);
    if (Status s = (*mover)->Recover(); !s && m_log)
        m_log->Write(4, driver, s.error().message);
    const QString origin = !m_nextOrigin.isEmpty()      ? m_nextOrigin
                           : !m_defaultOrigin.isEmpty() ? m_defaultOrigin
                                                         : DefaultOrigin(driver);
    auto id = moves.BeginRun(driver, origin);
    if (!id) return fail(QStringLiteral("No rule ran: ") + id.error().message);
    run.journal = &moves;
    run.run = *id;
    run.origin = origin;
    run.report = &report;
    run.log = m_log;
    report.journalRun = *id;
    return true;
}

Status RuleRunner::RecoverMoves()
{
    auto mover = m_exec.Mover();
    if (!mover) return mover.error();
    auto lock = (*mover)->Journal().LockRuns(m_options.lockWait);
    if (!lock) return lock.error();
    return (*mover)->Recover();
}

int RunReport::TotalMoved() const
{
    int n = 0;
    for (const RuleOutcome& r : rules) n += r.moved;
    return n;
}

QStringList RunReport::Lines(bool subjects) const
{
    QStringList lines;
    for (const RuleOutcome& r : rules) {
        QString line = r.ruleName + QStringLiteral(": ") + QString::number(r.moved) + QStringLiteral(" moved");
        if (r.skippedOpen) line += QStringLiteral(", ") + QString::number(r.skippedOpen) + QStringLiteral(" open");
        if (r.result != kResultGoOn) line += QStringLiteral(" (error)");
        lines << line;
        if (subjects)
            for (const QString& s : r.subjects) lines << QStringLiteral("  ") + s;
    }
    return lines;
}

RuleRunner::RuleRunner(RuleExecutor& executor, os::ErrorReport& report, logging::Logger* log, RunnerHooks hooks,
                       bool& cancelFlag, QString title)
    : m_exec(executor), m_report(report), m_log(log), m_hooks(std::move(hooks)), m_cancel(cancelFlag),
      m_title(std::move(title))
{
}

void RuleRunner::PumpEvents()
{
    if (m_hooks.processEvents)
        m_hooks.processEvents();
    else if (QCoreApplication::instance())
        QCoreApplication::processEvents();
}

bool RuleRunner::FolderExist(const QString& entryIdHex, const QString& storeIdHex) const
{
    return m_exec.nameSpace().GetFolderFromID(entryIdHex, storeIdHex) != nullptr;
}

RunReport RuleRunner::Run15MinuteRules() { return Run(kRun15, kSql15MinuteRules); }
RunReport RuleRunner::RunImmediateRules() { return Run(kRunImmediate, kSqlImmediateRules); }
RunReport RuleRunner::RunAllRules() { return Run(kRunAll, kSqlAllRules); }

RunReport RuleRunner::Run(const QString& driver, const char* sql)
{
    RunReport report;
    report.driver = driver;
    const QString source = QStringLiteral("OutAddIn.") + driver;
    const bool immediate = driver == kRunImmediate;
    // The errors are numbered from 1000 in the order the driver can meet
    // them; the timer-form check comes first in RunImmediateRules only.
    long next = kErrBase + 1000;
    auto raise = [&](const QString& text) { throw RuleError{next, source, text}; };

    m_cancel = false;
    // The origin set for this run is for this run only, however it ends.
    struct ClearOrigin {
        QString& origin;
        ~ClearOrigin() { origin.clear(); }
    } clearOrigin{m_nextOrigin};
    JournalRun journalRun;
    RunResources res;
    // Every rule checks its two folders and the run looks them up again:
    // one lookup per folder for the whole run. A folder deleted during the
    // run then shows as the store error of the rule that reaches it.
    struct Hold {
        outlook::NameSpace& ns;
        explicit Hold(outlook::NameSpace& n) : ns(n) { ns.HoldFolderLookups(true); }
        ~Hold() { ns.HoldFolderLookups(false); }
    } hold(m_exec.nameSpace());
    try {
        if (immediate) {
            if (m_log) m_log->Write(3, kRunImmediate, QStringLiteral("Top Entry point"));
            if (m_hooks.mainFormExists && !m_hooks.mainFormExists())
                raise(QStringLiteral("Invalid Main Form object. Contact Sorquin Support."));
            ++next;
        }
        store::cDB* db = m_hooks.database ? m_hooks.database() : nullptr;
        if (!db) raise(QStringLiteral("Invalid database connection object. Contact Sorquin Support."));
        ++next;
        const bool opened = db->CreateRS(res.rs, QString::fromLatin1(sql));
        if (!opened)
            raise(immediate ? QStringLiteral("Failed to create Recordset object 1. Contact Sorquin Support.")
                            : QStringLiteral("Failed to create Recordset object. Contact Sorquin Support."));
        if (immediate) ++next;
        if (!res.rs)
            raise(immediate ? QStringLiteral("Failed to create Recordset object 2. Contact Sorquin Support.")
                            : QStringLiteral("Failed to create Recordset object. Contact Sorquin Support."));
        ++next;

        const int count = db->RecordCount(*res.rs);
        report.selected = count;
        if (count <= 0) return report;
        if (!OpenJournalRun(driver, journalRun, report)) return report;
        ExecuteOptions options;
        options.run = journalRun.run;
        options.betweenBatches = [this] {
            PumpEvents();
            return m_cancel;
        };
        bool ruleFailed = false;

        if (m_exec.Settings().statusPops != 0) {
            res.status = m_hooks.createStatusForm ? m_hooks.createStatusForm() : nullptr;
            if (!res.status)
                raise(driver == kRun15 ? QStringLiteral("Failed to create Status Form object. Contact Sorquin Support.")
                                       : QStringLiteral("Invalid Status Form object. Contact Sorquin Support."));
            res.status->Show();
            PumpEvents();
        }

        int anticipated = 1;  // rules up to this one have been announced (the first needs none)
        for (int i = 1; i <= count; ++i) {
            const RuleRecord rule = RuleRecord::FromRecordset(*res.rs);
            bool found = true;
            for (bool sourceFolder : {true, false}) {
                const bool exists = sourceFolder ? FolderExist(rule.srcEntryId, rule.srcStoreId)
                                                 : FolderExist(rule.dstEntryId, rule.dstStoreId);
                if (exists) continue;
                found = false;
                report.missingFolders.push_back({rule.ruleName, rule.ruleId, sourceFolder});
                if (m_options.unattended) {
                    // Nobody to ask: the answer is "go on", and the log says
                    // which rule and which of its folders.
                    if (m_log)
                        m_log->Write(3, driver,
                                     FolderMissingText(rule.ruleName, sourceFolder) +
                                         QStringLiteral(" (folder %1 of store %2); going on with the next rule")
                                             .arg(sourceFolder ? rule.srcEntryId : rule.dstEntryId,
                                                  sourceFolder ? rule.srcStoreId : rule.dstStoreId));
                    break;
                }
                const int answer = m_report.answerer().Show(ContinueQuestion(rule.ruleName, sourceFolder),
                                                            os::vbYesNo + os::vbExclamation, m_title);
                if (answer != os::vbYes) {
                    report.end = RunEnd::UserStopped;
                    return report;
                }
                break;
            }
            if (found) {
                if (res.status) {
                    res.status->SetRuleName(rule.ruleName);
                    PumpEvents();
                }
                // The stores may start on the next rules' queries while this one
                // moves its mail; each rule is announced once.
                if (anticipated < i + kAnticipatedRules && anticipated < count) {
                    const std::vector<RuleRecord> ahead = PeekAhead(*res.rs, kAnticipatedRules);
                    for (int k = std::max(0, anticipated - i); k < static_cast<int>(ahead.size()); ++k)
                        m_exec.Anticipate(ahead[static_cast<size_t>(k)]);
                    anticipated = i + static_cast<int>(ahead.size());
                }
                report.rules.push_back(m_exec.Execute(rule, false, options));
                const RuleOutcome& outcome = report.rules.back();
                if (m_log)
                    m_log->Write(3, driver, rule.ruleName + QStringLiteral(": ") + QString::number(outcome.moved) +
                                                QStringLiteral(" moved"));
                if (outcome.result != kResultGoOn) {
                    if (!m_options.unattended) {
                        report.end = RunEnd::RuleFailed;
                        return report;
                    }
                    ruleFailed = true;
                    if (m_log)
                        m_log->Write(3, driver, rule.ruleName + QStringLiteral(" failed; going on with the next rule"));
                }
            }
            (void)db->MoveDB(store::dbNext, *res.rs);
            if (res.status) {
                res.status->SetProgress(i, count);
                PumpEvents();
            }
            if (m_cancel) {
                report.end = RunEnd::Cancelled;
                return report;
            }
        }
        if (ruleFailed) report.end = RunEnd::RuleFailed;
    } catch (const RuleError& e) {
        report.end = RunEnd::Error;
        report.error = os::ErrorReport::ProcedureErrorText(e.number, e.description, source);
        m_report.ShowProcedureError(e.number, e.description, source);
    } catch (const ado::AdoError& e) {
        report.end = RunEnd::Error;
        report.error = os::ErrorReport::ProcedureErrorText(e.Number(), e.Description(), source);
        m_report.ShowProcedureError(e.Number(), e.Description(), source);
    }
    return report;
}

QString HealthWords(const std::optional<journal::RuleHealth>& h)
{
    if (!h || h->lastRun == 0) return QStringLiteral("in no run of the last 30 days");
    const auto when = [](const QDateTime& t) { return t.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm")); };
    QString words = QStringLiteral("last run %1 (%2): %3 moved; 7 days: %4 moved")
                        .arg(h->lastRun)
                        .arg(when(h->lastRunStarted))
                        .arg(h->movedLastRun)
                        .arg(h->movedRecently);
    if (!h->lastError.isEmpty())
        words += QStringLiteral("; last error: %1 (run %2, %3)").arg(h->lastError).arg(h->lastErrorRun).arg(when(h->lastErrorStarted));
    return words;
}

Result<journal::MoveJournal*> RuleRunner::Journal()
{
    auto mover = m_exec.Mover();
    if (!mover) return mover.error();
    return &(*mover)->Journal();
}

Result<std::vector<journal::RuleHealth>> RuleRunner::Health()
{
    auto moves = Journal();
    if (!moves) return moves.error();
    return (*moves)->Health(QDateTime::currentDateTimeUtc().addDays(-7));
}

QStringList UndoOutcome::Lines() const
{
    using Fate = journal::RunUndo::Fate;
    QStringList lines;
    for (const journal::RunUndo::Item& i : report.items) {
        if (i.fate == Fate::MovedBack || i.fate == Fate::AlreadyBack) continue;
        lines << QStringLiteral("not taken back: \"%1\" from %2: %3%4")
                     .arg(i.row.subject, i.row.sender, QLatin1String(journal::RunUndo::Words(i.fate)),
                          i.detail.isEmpty() ? QString() : QStringLiteral(" (") + i.detail + u')');
    }
    if (report.run)
        lines << QStringLiteral("Undo of run %1: %2 message(s) moved back, %3 already back, %4 not taken back")
                     .arg(report.run)
                     .arg(report.Count(Fate::MovedBack))
                     .arg(report.Count(Fate::AlreadyBack))
                     .arg(report.NotTakenBack());
    return lines;
}

namespace {

// The run an undo takes back: `run`, or the newest that moved something
// and is not an undo when 0. An error in words when there is none or it is
// itself an undo.
Result<qint64> RunToUndo(journal::MoveJournal& moves, qint64 run)
{
    if (run == 0) {
        auto last = moves.LastUndoableRun();
        if (!last) return last.error();
        if (*last == 0) return Error::notFound(QStringLiteral("no run has moved anything that could be taken back"));
        run = *last;
    }
    auto row = moves.RunOf(run);
    if (!row) return row.error();
    if (!*row) return Error::notFound(QStringLiteral("there is no run %1 in the history (see mailvane history)").arg(run));
    if ((*row)->trigger == kUndoTrigger)
        return Error::permanent(
            QStringLiteral("run %1 is itself an undo (of run %2); run the rules again instead").arg(run).arg((*row)->undoes));
    return run;
}

}  // namespace

UndoOutcome RuleRunner::PlanUndo(qint64 run)
{
    UndoOutcome out;
    auto mover = m_exec.Mover();
    if (!mover) {
        out.error = mover.error().message;
        return out;
    }
    auto chosen = RunToUndo((*mover)->Journal(), run);
    if (!chosen) {
        out.error = chosen.error().message;
        return out;
    }
    journal::RunUndo undo(**mover);
    out.report = undo.Plan(*chosen);
    if (!out.report.status) out.error = out.report.status.error().message;
    return out;
}

UndoOutcome RuleRunner::UndoRun(qint64 run)
{
    UndoOutcome out;
    auto mover = m_exec.Mover();
    if (!mover) {
        out.error = QStringLiteral("Nothing was taken back: the move journal cannot be used. ") + mover.error().message;
        return out;
    }
    journal::MoveJournal& moves = (*mover)->Journal();
    auto lock = moves.LockRuns(m_options.lockWait);
    if (!lock) {
        out.error = QStringLiteral("Nothing was taken back: ") + lock.error().message;
        return out;
    }
    if (Status s = (*mover)->Recover(); !s && m_log) m_log->Write(4, kUndoTrigger, s.error().message);
    // Chosen after the recovery, which may have settled the run's last rows.
    auto chosen = RunToUndo(moves, run);
    if (!chosen) {
        out.error = QStringLiteral("Nothing was taken back: ") + chosen.error().message;
        return out;
    }
    run = *chosen;
    auto id = moves.BeginRun(kUndoTrigger, QString(), run);
    if (!id) {
        out.error = QStringLiteral("Nothing was taken back: ") + id.error().message;
        return out;
    }
    journal::RunUndo undo(**mover);
    out.report = undo.Undo(run, *id);
    if (!out.report.status) out.error = out.report.status.error().message;
    (void)moves.EndRun(*id);
    if (m_log)
        m_log->Write(3, kUndoTrigger,
                     QStringLiteral("Run %1 (undo of run %2): %3 message(s) moved back, %4 already back, %5 not "
                                    "taken back%6")
                         .arg(*id)
                         .arg(run)
                         .arg(out.report.Count(journal::RunUndo::Fate::MovedBack))
                         .arg(out.report.Count(journal::RunUndo::Fate::AlreadyBack))
                         .arg(out.report.NotTakenBack())
                         .arg(out.error.isEmpty() ? QString() : QStringLiteral("; ") + out.error));
    lock->reset();
    (void)moves.Prune(QDateTime::currentDateTimeUtc());
    return out;
}

QStringList RuleRunner::PreviewRule(int ruleId, PreviewForm& form)
{
    QStringList lines;
    try {
        store::cDB* db = m_hooks.database ? m_hooks.database() : nullptr;
        std::unique_ptr<ado::Recordset> rs;
        if (!db || !db->CreateRS(rs, QString::fromLatin1(kSqlPreviewRule) + QString::number(ruleId)) || !rs)
            throw RuleError{kErrObjectNotSet, kPreviewLabel, QStringLiteral("Object variable or With block variable not set")};
        if (db->RecordCount(*rs) <= 0) {
            rs->Close();
            return lines;
        }
        const RuleRecord rule = RuleRecord::FromRecordset(*rs);
        rs->Close();
        form.SetCaption(QStringLiteral("Rule Preview: ") + rule.ruleName);
        for (bool sourceFolder : {true, false}) {
            const bool exists = sourceFolder ? FolderExist(rule.srcEntryId, rule.srcStoreId)
                                             : FolderExist(rule.dstEntryId, rule.dstStoreId);
            if (!exists) {
                m_report.answerer().Show(FolderMissingText(rule.ruleName, sourceFolder), os::vbExclamation, m_title);
                return lines;
            }
        }
        if (m_hooks.setMousePointer) m_hooks.setMousePointer(kMousePointerHourglass);
        PumpEvents();
        // An error inside is reported there; the lines gathered so far show.
        lines = m_exec.Execute(rule, true).subjects;
        if (m_hooks.setMousePointer) m_hooks.setMousePointer(kMousePointerDefault);
        PumpEvents();
        form.SetLines(lines);
        form.ShowModal();
    } catch (const RuleError& e) {
        m_report.ShowProcedureError(e.number, e.description, kPreviewLabel);
    } catch (const ado::AdoError& e) {
        m_report.ShowProcedureError(e.Number(), e.Description(), kPreviewLabel);
    }
    return lines;
}

// The whole-run preview follows RunAllRules without touching a message:
//  - rules in the same order, from the same selection;
//  - a missing folder asks nothing: the rule gets a problem text and the
//    preview goes on, as a "Yes" would;
//  - items open in an Inspector are left out, as the run leaves them;
//  - an item an earlier rule would move has left its folder: later rules
//    over that folder do not list it again;
//  - an item an earlier rule would move into a later rule's source folder is
//    there for that rule: it is listed when the rule's restriction holds on
//    the item (evaluated on its properties, with the completed flag cleared
//    as the earlier rule would have cleared it on mail);
//  - a rule that fails ends the preview there, as it ends the run.
// Ids are those of the items where they are now; the simulation keys every
// virtual move by that id.
std::vector<RulePreview> RuleRunner::PreviewAllRules()
{
    std::vector<RulePreview> out;
    QSet<QString> movedAway;              // ids an earlier rule would take out of their folder
    QHash<QString, QString> arrivedIn;    // id -> folder key it would be in now
    QHash<QString, QString> storeOf;      // id -> store id hex
    QHash<QString, bool> flagWasCleared;  // id -> the earlier rule cleared its completed flag

    try {
        store::cDB* db = m_hooks.database ? m_hooks.database() : nullptr;
        std::unique_ptr<ado::Recordset> rs;
        if (!db || !db->CreateRS(rs, QString::fromLatin1(kSqlAllRules)) || !rs)
            throw RuleError{kErrObjectNotSet, QStringLiteral("PreviewAllRules"),
                            QStringLiteral("Object variable or With block variable not set")};
        const int count = db->RecordCount(*rs);
        std::vector<RuleRecord> rules;
        for (int i = 0; i < count; ++i) {
            rules.push_back(RuleRecord::FromRecordset(*rs));
            (void)db->MoveDB(store::dbNext, *rs);
        }
        rs->Close();

        outlook::NameSpace& ns = m_exec.nameSpace();
        for (const RuleRecord& rule : rules) {
            RulePreview p;
            p.ruleId = rule.ruleId;
            p.ruleName = rule.ruleName;
            if (!FolderExist(rule.srcEntryId, rule.srcStoreId)) {
                p.problem = FolderMissingText(rule.ruleName, true);
                out.push_back(std::move(p));
                continue;
            }
            if (!FolderExist(rule.dstEntryId, rule.dstStoreId)) {
                p.problem = FolderMissingText(rule.ruleName, false);
                out.push_back(std::move(p));
                continue;
            }
            ExecuteOptions options;
            options.previewSkipsOpenItems = true;
            options.excludedIds = &movedAway;
            RuleOutcome outcome = m_exec.Execute(rule, true, options);
            p.subjects = outcome.subjects;
            // Keyed by the folders as the stores name them now, so two rules
            // that name one folder by an old and a new store id meet.
            const QString srcKey = CanonicalKey(ns, rule.srcEntryId, rule.srcStoreId);
            const QString dstKey = CanonicalKey(ns, rule.dstEntryId, rule.dstStoreId);
            for (const QString& id : outcome.entryIds) {
                movedAway.insert(id);
                arrivedIn.insert(id, dstKey);
                storeOf.insert(id, rule.srcStoreId);
            }
            if (outcome.result != kResultGoOn) {
                p.problem = outcome.error;
                out.push_back(std::move(p));
                break;
            }

            // Items earlier rules would have brought into this rule's source.
            const QStringList arrived = arrivedIn.keys(srcKey);
            if (!arrived.isEmpty()) {
                const mapi::Restriction restriction = m_exec.BuildRestriction(rule);
                for (const QString& id : arrived) {
                    if (m_exec.IsOpen(id)) continue;
                    const auto storeId = mapi::MapiUtils::HexToBinary(storeOf.value(id));
                    mapi::MessageStore* store = storeId ? mapi::FindStore(ns.Stores(), *storeId) : nullptr;
                    const auto binary = mapi::MapiUtils::HexToBinary(id);
                    if (!store || !binary) continue;
                    auto record = store->Item(*binary);
                    if (!record) continue;
                    mapi::MessageRecord props = std::move(*record);
                    const QString cls = props.Get(mapi::PR_MESSAGE_CLASS).value_or(QVariant()).toString();
                    const outlook::ItemKind kind = outlook::KindOfMessageClass(cls);
                    if (kind == outlook::ItemKind::Other) continue;
                    if (flagWasCleared.value(id)) props.props.insert(mapi::PR_FLAG_STATUS, outlook::olNoFlag);
                    if (!mapi::RestrictionEvaluator::Matches(restriction, props)) continue;
                    const QString subject = props.Get(mapi::PR_SUBJECT).value_or(QVariant()).toString();
                    p.subjects << (subject.isEmpty() ? QString::fromLatin1(kEmptySubject) : subject);
                    arrivedIn.insert(id, dstKey);
                    if (kind == outlook::ItemKind::Mail &&
                        props.Get(mapi::PR_FLAG_STATUS).value_or(QVariant(0)).toInt() == outlook::olFlagComplete)
                        flagWasCleared.insert(id, true);
                }
            }
            // Mail the run moves out of here loses its completed flag first.
            for (const QString& id : outcome.entryIds) {
                auto item = ns.GetItemFromID(id, rule.srcStoreId);
                if (item && item->Kind() == outlook::ItemKind::Mail && item->FlagStatus() == outlook::olFlagComplete)
                    flagWasCleared.insert(id, true);
            }
            out.push_back(std::move(p));
        }
    } catch (const RuleError& e) {
        m_report.ShowProcedureError(e.number, e.description, e.source);
    } catch (const ado::AdoError& e) {
        m_report.ShowProcedureError(e.Number(), e.Description(), QStringLiteral("PreviewAllRules"));
    }
    return out;
}

}  // namespace mv::engine
