#pragma once
// The message box seam. Style and answers keep the classic constants, so
// code reads as it always has (vbYesNo + vbQuestion, answer vbYes). The
// desktop answers with a QMessageBox (forms/), the command line on stderr
// with the answer of a flag, and tests with ScriptedAnswerer.

#include <QString>
#include <QStringList>

#include <cstdio>
#include <deque>
#include <vector>

namespace mv::logging {
class Logger;
}

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

// The button set is the low nibble of a style; icons and default-button
// flags sit above it.
inline constexpr int kMsgBoxButtonsMask = 0x0F;

enum MsgBoxResult : int { vbOK = 1, vbCancel = 2, vbAbort = 3, vbRetry = 4, vbIgnore = 5, vbYes = 6, vbNo = 7 };

class MessageBoxAnswerer {
public:
    virtual ~MessageBoxAnswerer() = default;
    // Shows `text` with buttons and icon from `style`; returns the answer.
    virtual int Show(const QString& text, int style, const QString& title) = 0;
};

// For tests: answers from a queue, and remembers every box shown. With the
// queue empty an OK or OK/Cancel box gets OK; any other box is a question
// nobody scripted: it gets its first button and is recorded in
// unanswered(), so a fixture can fail the test.
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
    const std::vector<Shown>& unanswered() const { return m_unanswered; }
    std::size_t pending() const { return m_answers.size(); }
    void clear()
    {
        m_shown.clear();
        m_answers.clear();
        m_unanswered.clear();
    }

private:
    std::deque<int> m_answers;
    std::vector<Shown> m_shown;
    std::vector<Shown> m_unanswered;
};

// For the command line: prints "title: text" on `out` (stderr); a question
// takes the answer given at construction (--yes / --no), else the box's
// default (Yes is never assumed: No for Yes/No, Cancel for Yes/No/Cancel
// and OK/Cancel). Questions and their answers also go to `log` (level 3)
// when one is given. Neither the stream nor the log is owned.
class ConsoleAnswerer : public MessageBoxAnswerer {
public:
    explicit ConsoleAnswerer(int answerToQuestions = 0, logging::Logger* log = nullptr,
                             std::FILE* out = stderr)
        : m_answer(answerToQuestions), m_log(log), m_out(out) {}
    int Show(const QString& text, int style, const QString& title) override;

    // The answer a box of `style` gets when the user gave `given` (vbYes,
    // vbNo or 0); a pure function so the table of defaults is testable.
    static int AnswerFor(int style, int given);
    static QString AnswerName(int answer);

private:
    int m_answer;  // vbYes, vbNo, or 0 for the default
    logging::Logger* m_log;
    std::FILE* m_out;
};

}  // namespace mv::os
