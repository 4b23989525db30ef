#pragma once
// The message box seam. Style and answers keep the classic constants, so
// code reads as it always has (vbYesNo + vbQuestion, answer vbYes). The
// desktop answers with a QMessageBox (forms/), the command line on stderr
// with the answer of a flag, and tests with ScriptedAnswerer.

#include <QString>
#include <QStringList>

#include <deque>
#include <vector>

namespace mv::os {

enum MsgBoxStyle : int {
    vbOKOnly = 0,
    vbOKCancel = 1,
    vbAbortRetryIgnore = 2,
    vbYesNoCancel = 3,
    vbYesNo = 4,
    vbRetryCancel = 5,
    vbCritical = 16,
    vbQuestion = 32,
    vbExclamation = 48,
    vbInformation = 64,
};

enum MsgBoxResult : int { vbOK = 1, vbCancel = 2, vbAbort = 3, vbRetry = 4, vbIgnore = 5, vbYes = 6, vbNo = 7 };

class MessageBoxAnswerer {
public:
    virtual ~MessageBoxAnswerer() = default;
    // Shows `text` with buttons and icon from `style`; returns the answer.
    virtual int Show(const QString& text, int style, const QString& title) = 0;
};

// For tests: answers from a queue (then the default answer of the box's
// buttons: OK, or the first button), and remembers every box shown.
class ScriptedAnswerer : public MessageBoxAnswerer {
public:
    struct Shown {
        QString text;
        int style;
        QString title;
    };

    void Queue(int answer) { m_answers.push_back(answer); }
    int Show(const QString& text, int style, const QString& title) override;

    const std::vector<Shown>& shown() const { return m_shown; }
    QStringList texts() const;
    void clear() { m_shown.clear(); m_answers.clear(); }

private:
    std::deque<int> m_answers;
    std::vector<Shown> m_shown;
};

// For the command line: prints the box on stderr; a question takes the
// answer given at construction (--yes / --no), else the box's default
// (Yes for Yes/No boxes is never assumed: the default is No / Cancel).
class ConsoleAnswerer : public MessageBoxAnswerer {
public:
    explicit ConsoleAnswerer(int answerToQuestions = 0) : m_answer(answerToQuestions) {}
    int Show(const QString& text, int style, const QString& title) override;

private:
    int m_answer;  // vbYes, vbNo, or 0 for the default
};

}  // namespace mv::os
