#include "Headless.h"

#include "Runtime.h"
#include "addin/OutAddIn.h"
#include "engine/RuleRunner.h"

#include <QCoreApplication>

namespace mv::host {

HeadlessService::HeadlessService(Runtime& runtime, QObject* parent) : QObject(parent), m_runtime(runtime)
{
    connect(&m_signals, &StopSignals::Received, this, &HeadlessService::OnSignal);
}

bool HeadlessService::Start()
{
    if (!m_signals.Install()) return false;
    // Nobody answers the service's questions: a missing folder is logged
    // and the run goes on, and a failed rule ends only that rule.
    if (engine::RuleRunner* runner = m_runtime.AddIn().Runner()) {
        engine::RunnerOptions options = runner->Options();
        options.unattended = true;
        runner->SetOptions(options);
        // What a killed process left is settled now, not at the first run.
        if (Status s = runner->RecoverMoves(); !s)
            m_runtime.Trail(QStringLiteral("HeadlessService"),
                            QStringLiteral("Moves left by an earlier process: ") + s.error().message);
    }
    m_runtime.StartApplication();
    // What the add-in's timer form is doing, so the log shows the service
    // is scheduling (or why it is not).
    const addin::OutAddIn& addIn = m_runtime.AddIn();
    const addin::frmMain* form = addIn.MainForm();
    if (form && form->tmrCron.isActive())
        m_runtime.Trail(QStringLiteral("HeadlessService"),
                        QStringLiteral("Started: timers on%1")
                            .arg(addIn.RunOnStart() == 1 ? QStringLiteral(", run on start") : QString()));
    else
        m_runtime.Trail(QStringLiteral("HeadlessService"),
                        QStringLiteral("Started: the add-in's timers are off"));
    return true;
}

void HeadlessService::OnSignal(int signo)
{
    m_runtime.Trail(QStringLiteral("HeadlessService"),
                    QStringLiteral("Signal %1: stopping").arg(signo));
    // A run in progress (it pumps events, so this can be inside one) ends
    // at the next pause between two batches of moves, or after its current
    // rule, as with the status form's Cancel; the journal is consistent at
    // either point.
    m_runtime.CancelFlag() = true;
    QCoreApplication::quit();
}

}  // namespace mv::host
