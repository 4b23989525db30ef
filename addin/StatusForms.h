#pragma once
// The progress window of a rule run. frmStatus is the dialog with the
// rule's name, a progress bar, the "mail search" animation and Cancel,
// which sets the run-cancel flag. Where no window can be shown (the
// headless host, the command line) LogStatusForm writes the progress to
// the log instead.
//
// The animation ships as "mail search.png": a horizontal strip of square
// frames played by a timer, since Qt has no player for the original video
// format without a multimedia backend. A missing file leaves it empty.

#include "engine/RuleRunner.h"

#include <QDialog>
#include <QImage>
#include <QTimer>

#include <functional>
#include <memory>

class QLabel;
class QProgressBar;
class QPushButton;

namespace mv::logging {
class Logger;
}

namespace mv::addin {

inline constexpr const char* kStatusAnimation = "mail search.png";

class frmStatus : public QDialog, public engine::StatusForm {
    Q_OBJECT
public:
    // `cancelFlag` must outlive the form.
    frmStatus(const QString& installDir, bool& cancelFlag, QWidget* parent = nullptr);

    void Show() override;
    void SetRuleName(const QString& ruleName) override;
    void SetProgress(int done, int total) override;
    void Hide() override;

    int FrameCount() const { return static_cast<int>(m_frames.size()); }

private:
    void Form_Load(const QString& installDir);
    void btnCancel_Click();
    void NextFrame();

    bool& m_cancel;
    QLabel* m_lblRule = nullptr;
    QLabel* m_imgAnimation = nullptr;
    QProgressBar* m_progress = nullptr;
    QPushButton* m_btnCancel = nullptr;
    std::vector<QImage> m_frames;
    int m_frame = 0;
    QTimer m_animTimer;
};

class LogStatusForm : public engine::StatusForm {
public:
    explicit LogStatusForm(logging::Logger* log) : m_log(log) {}
    void Show() override;
    void SetRuleName(const QString& ruleName) override;
    void SetProgress(int done, int total) override;
    void Hide() override;

private:
    logging::Logger* m_log;
};

// After a run on demand: what it moved, on one line, with Undo (which
// calls `undo`) and Close. Deletes itself when closed. Nothing when no
// widgets can be shown.
class frmRunSummary : public QDialog {
    Q_OBJECT
public:
    frmRunSummary(const engine::RunReport& report, std::function<void()> undo, QWidget* parent = nullptr);
    static QString SummaryLine(const engine::RunReport& report);

private:
    QLabel* m_lblSummary = nullptr;
    QPushButton* m_btnUndo = nullptr;
    QPushButton* m_btnClose = nullptr;
};
// The window, or nullptr without a display. The caller closes it when the
// undo callback would no longer be valid.
QDialog* ShowRunSummary(const engine::RunReport& report, std::function<void()> undo);

// frmStatus when widgets can be shown (a QApplication runs), else LogStatusForm.
std::unique_ptr<engine::StatusForm> CreateStatusForm(const QString& installDir, bool& cancelFlag,
                                                     logging::Logger* log);

}  // namespace mv::addin
