#include "MessageBox.h"

#include "platform/logging/Logger.h"

#include <array>
#include <initializer_list>

namespace mv::os {

namespace {

// What each button set offers. `affirmative` and `negative` are what --yes
// and --no turn into on a box without Yes/No buttons; `fallback` is the
// answer when nothing was given, always the choice that changes nothing.
struct ButtonSet {
    int buttons;
    std::initializer_list<int> offered;
    int affirmative;
    int negative;
    int fallback;
};

const std::array<ButtonSet, 6> kButtonSets{{
    {vbOKOnly, {vbOK}, vbOK, vbOK, vbOK},
    {vbOKCancel, {vbOK, vbCancel}, vbOK, vbCancel, vbCancel},
    {vbAbortRetryIgnore, {vbAbort, vbRetry, vbIgnore}, vbRetry, vbAbort, vbAbort},
    {vbYesNoCancel, {vbYes, vbNo, vbCancel}, vbYes, vbNo, vbCancel},
    {vbYesNo, {vbYes, vbNo}, vbYes, vbNo, vbNo},
    {vbRetryCancel, {vbRetry, vbCancel}, vbRetry, vbCancel, vbCancel},
}};

const ButtonSet& ButtonSetOf(int style)
{
    const int buttons = style & kMsgBoxButtonsMask;
    for (const auto& set : kButtonSets) {
        if (set.buttons == buttons) return set;
    }
    return kButtonSets[0];  // an unknown button set shows as a plain OK box
}

bool IsQuestion(int style) { return ButtonSetOf(style).buttons != vbOKOnly; }

bool IsAffirmative(int answer) { return answer == vbYes || answer == vbOK || answer == vbRetry; }

}  // namespace

int ScriptedAnswerer::Show(const QString& text, int style, const QString& title)
{
    m_shown.push_back({text, style, title});
    if (!m_answers.empty()) {
        const int answer = m_answers.front();
        m_answers.pop_front();
        return answer;
    }
    const ButtonSet& set = ButtonSetOf(style);
    if (set.buttons == vbOKCancel || set.buttons == vbOKOnly) return vbOK;
    m_unanswered.push_back({text, style, title});
    return *set.offered.begin();
}

QStringList ScriptedAnswerer::texts() const
{
    QStringList out;
    out.reserve(static_cast<qsizetype>(m_shown.size()));
    for (const auto& s : m_shown) out << s.text;
    return out;
}

int ConsoleAnswerer::AnswerFor(int style, int given)
{
    const ButtonSet& set = ButtonSetOf(style);
    if (given == 0) return set.fallback;
    for (int offered : set.offered) {
        if (offered == given) return given;
    }
    return IsAffirmative(given) ? set.affirmative : set.negative;
}

QString ConsoleAnswerer::AnswerName(int answer)
{
    switch (answer) {
    case vbOK: return QStringLiteral("OK");
    case vbCancel: return QStringLiteral("Cancel");
    case vbAbort: return QStringLiteral("Abort");
    case vbRetry: return QStringLiteral("Retry");
    case vbIgnore: return QStringLiteral("Ignore");
    case vbYes: return QStringLiteral("Yes");
    case vbNo: return QStringLiteral("No");
    default: return QString::number(answer);
    }
}

int ConsoleAnswerer::Show(const QString& text, int style, const QString& title)
{
    const int answer = AnswerFor(style, m_answer);
    // The error title already ends in ": "; do not double the colon.
    const QString head = title.trimmed();
    QString line = head.isEmpty() ? text
                   : head.endsWith(QLatin1Char(':')) ? head + QLatin1Char(' ') + text
                                                     : head + QStringLiteral(": ") + text;
    if (IsQuestion(style)) line += QStringLiteral(" [") + AnswerName(answer) + QLatin1Char(']');
    if (m_out) {
        const QByteArray bytes = line.toUtf8() + '\n';
        std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), m_out);
        std::fflush(m_out);
    }
    if (m_log && IsQuestion(style)) {
        m_log->Write(3, QStringLiteral("MsgBox"), text + QStringLiteral(" -> ") + AnswerName(answer));
    }
    return answer;
}

}  // namespace mv::os
