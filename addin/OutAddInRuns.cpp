// The rule runs, by delegation to the engine's drivers.

#include "OutAddIn.h"
#include "StatusForms.h"

#include "engine/RuleExecutor.h"
#include "engine/RuleRunner.h"
#include "platform/journal/MoveJournal.h"
#include "platform/journal/StoreMover.h"
#include "platform/logging/Logger.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "platform/mapi/MessageStore.h"
#include "platform/os/TimeZone.h"
#include "platform/outlook/NameSpace.h"

namespace mv::addin {

void OutAddIn::SetStatusFormFactory(std::function<std::unique_ptr<engine::StatusForm>()> factory)
{
    m_statusFactory = std::move(factory);
}

void OutAddIn::BuildOwnRunner()
{
    if (m_externalRunner || !m_ns) return;
    m_timeZone = std::make_unique<os::SystemTimeZone>();
    m_executor = std::make_unique<engine::RuleExecutor>(*m_ns, m_progIds, m_report, m_clock, *m_timeZone);
    m_executor->SetSettingsSource([this] {
        engine::EngineSettings s;
        s.alignTime = m_alignTime;
        s.weekStart = m_weekStart;
        s.statusPops = m_statusPops;
        return s;
    });
    m_executor->SetOpenItemTest([this](const QString& id) { return IsItemOpen(id); });
    m_executor->SetLogger(m_log);
    OpenMoveJournal();

    engine::RunnerHooks hooks;
    hooks.database = [this] { return m_db1.get(); };
    hooks.createStatusForm = [this]() -> std::unique_ptr<engine::StatusForm> {
        if (m_statusFactory) return m_statusFactory();
        return CreateStatusForm(m_installDir, m_cancel, m_log);
    };
    hooks.mainFormExists = [this] { return m_frmMain != nullptr; };
    m_runner = std::make_unique<engine::RuleRunner>(*m_executor, m_report, m_log, std::move(hooks), m_cancel,
                                                    AppTitle());
}

void OutAddIn::OpenMoveJournal()
{
    // Without a data folder (a test's add-in) the executor keeps its
    // journal in memory.
    if (m_dataDir.isEmpty()) return;
    auto opened = journal::MoveJournal::Open(m_dataDir + QStringLiteral("/moves.db"));
    if (!opened) {
        // Runs then move nothing and report this, rather than move
        // without a record; the file is left for the user to look at.
        if (m_log) m_log->Write(4, QStringLiteral("InitHandler"), opened.error().message);
        m_executor->SetMoverError(opened.error());
        return;
    }
    m_journal = std::move(*opened);
    m_mover = std::make_unique<journal::StoreMover>(
        *m_journal,
        [this](const QByteArray& storeId) { return m_ns ? mapi::FindStore(m_ns->Stores(), storeId) : nullptr; },
        m_log);
    m_executor->SetMover(m_mover.get());
}

engine::RuleRunner* OutAddIn::Runner() const
{
    return m_externalRunner ? m_externalRunner : m_runner.get();
}

void OutAddIn::Run15MinuteRules()
{
    if (auto* runner = Runner()) (void)runner->Run15MinuteRules();
}

void OutAddIn::RunImmediateRules()
{
    if (auto* runner = Runner()) (void)runner->RunImmediateRules();
}

void OutAddIn::RunAllRules()
{
    if (auto* runner = Runner()) (void)runner->RunAllRules();
}

void OutAddIn::SetRunOrigin(const QString& origin)
{
    if (auto* runner = Runner()) runner->SetNextOrigin(origin);
}

void OutAddIn::RunAllRulesOnDemand()
{
    auto* runner = Runner();
    if (!runner) return;
    runner->SetNextOrigin(engine::origin::kOnDemand);
    const engine::RunReport report = runner->RunAllRules();
    if (report.journalRun == 0 || report.TotalMoved() == 0) return;
    // One summary at a time; its Undo calls back into this add-in, so the
    // add-in closes it before it goes.
    delete m_summaryWindow.data();
    m_summaryWindow = ShowRunSummary(report, [this, run = report.journalRun] { UndoLastRun(run); });
}

void OutAddIn::UndoLastRun(qint64 run)
{
    auto* runner = Runner();
    if (!runner) return;
    using Fate = journal::RunUndo::Fate;
    const engine::UndoOutcome plan = runner->PlanUndo(run);
    if (!plan.report.run) {
        m_report.answerer().Show(QStringLiteral("Nothing to undo: ") + plan.error, os::vbInformation, AppTitle());
        return;
    }
    const int count = plan.report.Count(Fate::MovedBack);
    if (count == 0) {
        m_report.answerer().Show(QStringLiteral("Run %1 left nothing that can be taken back: %2 already back, %3 moved "
                                                "on, deleted or in a folder that is gone.")
                                     .arg(plan.report.run)
                                     .arg(plan.report.Count(Fate::AlreadyBack))
                                     .arg(plan.report.NotTakenBack()),
                                 os::vbInformation, AppTitle());
        return;
    }
    const int answer = m_report.answerer().Show(
        QStringLiteral("Undo run %1? %2 message(s) will be moved back to the folders they came from.")
            .arg(plan.report.run)
            .arg(count),
        os::vbYesNo + os::vbQuestion, AppTitle());
    if (answer != os::vbYes) return;
    const engine::UndoOutcome done = runner->UndoRun(plan.report.run);
    QStringList lines = done.Lines();
    constexpr int kShown = 12;  // the summary is the last line; a box stays readable
    if (lines.size() > kShown + 1) lines = lines.mid(0, kShown) + QStringList{QStringLiteral("..."), lines.last()};
    if (!done.error.isEmpty()) lines << done.error;
    m_report.answerer().Show(lines.join(u'\n'), done.error.isEmpty() && done.report.NotTakenBack() == 0
                                                      ? os::vbInformation
                                                      : os::vbExclamation,
                             AppTitle());
}

bool OutAddIn::FolderExist(const QString& entryIdHex, const QString& storeIdHex) const
{
    auto* runner = Runner();
    return runner && runner->FolderExist(entryIdHex, storeIdHex);
}

}  // namespace mv::addin
