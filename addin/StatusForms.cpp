#include "StatusForms.h"

#include "platform/logging/Logger.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPixmap>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace mv::addin {

namespace {
constexpr int kFrameMs = 120;
}

frmStatus::frmStatus(const QString& installDir, bool& cancelFlag, QWidget* parent)
    : QDialog(parent), m_cancel(cancelFlag)
{
    setObjectName(QStringLiteral("frmStatus"));
    setWindowTitle(QStringLiteral("Mailvane"));
    auto* layout = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    m_imgAnimation = new QLabel(this);
    m_imgAnimation->setObjectName(QStringLiteral("imgAnimation"));
    m_imgAnimation->setFixedSize(32, 32);
    m_lblRule = new QLabel(this);
    m_lblRule->setObjectName(QStringLiteral("lblRule"));
    m_lblRule->setMinimumWidth(240);
    top->addWidget(m_imgAnimation);
    top->addWidget(m_lblRule, 1);
    layout->addLayout(top);
    m_progress = new QProgressBar(this);
    m_progress->setObjectName(QStringLiteral("prgRules"));
    layout->addWidget(m_progress);
    m_btnCancel = new QPushButton(QStringLiteral("Cancel"), this);
    m_btnCancel->setObjectName(QStringLiteral("btnCancel"));
    layout->addWidget(m_btnCancel, 0, Qt::AlignRight);
    connect(m_btnCancel, &QPushButton::clicked, this, [this] { btnCancel_Click(); });
    connect(&m_animTimer, &QTimer::timeout, this, [this] { NextFrame(); });
    Form_Load(installDir);
}

void frmStatus::Form_Load(const QString& installDir)
{
    const QImage strip(installDir + u'/' + QLatin1String(kStatusAnimation));
    if (strip.isNull() || strip.height() == 0) return;  // no animation; the form still shows
    const int size = strip.height();
    for (int x = 0; x + size <= strip.width(); x += size) m_frames.push_back(strip.copy(x, 0, size, size));
    if (!m_frames.empty()) m_imgAnimation->setPixmap(QPixmap::fromImage(m_frames.front()));
}

void frmStatus::NextFrame()
{
    if (m_frames.empty()) return;
    m_frame = (m_frame + 1) % FrameCount();
    m_imgAnimation->setPixmap(QPixmap::fromImage(m_frames[static_cast<size_t>(m_frame)]));
}

void frmStatus::btnCancel_Click()
{
    m_cancel = true;
}

void frmStatus::Show()
{
    show();
    if (m_frames.size() > 1) m_animTimer.start(kFrameMs);
}

void frmStatus::SetRuleName(const QString& ruleName)
{
    m_lblRule->setText(ruleName);
}

void frmStatus::SetProgress(int done, int total)
{
    m_progress->setMaximum(total > 0 ? total : 1);
    m_progress->setValue(done);
}

void frmStatus::Hide()
{
    m_animTimer.stop();
    hide();
}

void LogStatusForm::Show()
{
    if (m_log) m_log->Write(3, QStringLiteral("frmStatus"), QStringLiteral("Running rules"));
}

void LogStatusForm::SetRuleName(const QString& ruleName)
{
    if (m_log) m_log->Write(3, QStringLiteral("frmStatus"), QStringLiteral("Rule: ") + ruleName);
}

void LogStatusForm::SetProgress(int done, int total)
{
    if (m_log) m_log->Write(3, QStringLiteral("frmStatus"), QStringLiteral("%1 of %2 rules").arg(done).arg(total));
}

void LogStatusForm::Hide()
{
    if (m_log) m_log->Write(3, QStringLiteral("frmStatus"), QStringLiteral("Run ended"));
}

frmRunSummary::frmRunSummary(const engine::RunReport& report, std::function<void()> undo, QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("frmRunSummary"));
    setWindowTitle(QStringLiteral("Mailvane"));
    setAttribute(Qt::WA_DeleteOnClose);
    auto* layout = new QVBoxLayout(this);
    m_lblSummary = new QLabel(SummaryLine(report), this);
    m_lblSummary->setObjectName(QStringLiteral("lblSummary"));
    m_lblSummary->setWordWrap(true);
    m_lblSummary->setToolTip(report.Lines(true).join(u'\n'));
    layout->addWidget(m_lblSummary);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    m_btnUndo = new QPushButton(QStringLiteral("Undo"), this);
    m_btnUndo->setObjectName(QStringLiteral("btnUndo"));
    m_btnClose = new QPushButton(QStringLiteral("Close"), this);
    m_btnClose->setObjectName(QStringLiteral("btnClose"));
    m_btnClose->setDefault(true);
    buttons->addWidget(m_btnUndo);
    buttons->addWidget(m_btnClose);
    layout->addLayout(buttons);
    connect(m_btnClose, &QPushButton::clicked, this, &QDialog::close);
    connect(m_btnUndo, &QPushButton::clicked, this, [this, undo = std::move(undo)] {
        m_btnUndo->setEnabled(false);
        if (undo) undo();
        close();
    });
}

QString frmRunSummary::SummaryLine(const engine::RunReport& report)
{
    QStringList rules;
    for (const engine::RuleOutcome& r : report.rules)
        if (r.moved) rules << QStringLiteral("%1 by %2").arg(r.moved).arg(r.ruleName);
    return QStringLiteral("Run %1: %2 message(s) moved (%3).")
        .arg(report.journalRun)
        .arg(report.TotalMoved())
        .arg(rules.join(QStringLiteral(", ")));
}

QDialog* ShowRunSummary(const engine::RunReport& report, std::function<void()> undo)
{
    if (!qobject_cast<QApplication*>(QCoreApplication::instance())) return nullptr;
    auto* form = new frmRunSummary(report, std::move(undo));
    form->show();
    return form;
}

std::unique_ptr<engine::StatusForm> CreateStatusForm(const QString& installDir, bool& cancelFlag,
                                                     logging::Logger* log)
{
    if (qobject_cast<QApplication*>(QCoreApplication::instance()))
        return std::make_unique<frmStatus>(installDir, cancelFlag);
    return std::make_unique<LogStatusForm>(log);
}

}  // namespace mv::addin
