#include "QtMessageBoxAnswerer.h"

#include <QMessageBox>

#include <array>

namespace mv::forms {

namespace {

using SB = QMessageBox::StandardButton;

struct ButtonSet {
    int style;
    std::array<SB, 3> buttons;  // in display order; NoButton pads
};

constexpr std::array kButtonSets{
    ButtonSet{os::vbOKOnly, {SB::Ok, SB::NoButton, SB::NoButton}},
    ButtonSet{os::vbOKCancel, {SB::Ok, SB::Cancel, SB::NoButton}},
    ButtonSet{os::vbAbortRetryIgnore, {SB::Abort, SB::Retry, SB::Ignore}},
    ButtonSet{os::vbYesNoCancel, {SB::Yes, SB::No, SB::Cancel}},
    ButtonSet{os::vbYesNo, {SB::Yes, SB::No, SB::NoButton}},
    ButtonSet{os::vbRetryCancel, {SB::Retry, SB::Cancel, SB::NoButton}},
};

struct Answer {
    SB button;
    int answer;
};

constexpr std::array kAnswers{
    Answer{SB::Ok, os::vbOK},         Answer{SB::Cancel, os::vbCancel}, Answer{SB::Abort, os::vbAbort},
    Answer{SB::Retry, os::vbRetry},   Answer{SB::Ignore, os::vbIgnore}, Answer{SB::Yes, os::vbYes},
    Answer{SB::No, os::vbNo},
};

// The default-button flags sit above the icons: 0, 256, 512.
constexpr int kDefaultButtonShift = 8;
constexpr int kDefaultButtonMask = 0x300;
constexpr int kIconMask = 0x70;

}  // namespace

QtMessageBoxAnswerer::Buttons QtMessageBoxAnswerer::ButtonsFor(int style)
{
    const int set = style & os::kMsgBoxButtonsMask;
    for (const ButtonSet& s : kButtonSets) {
        if (s.style != set) continue;
        Buttons result;
        for (SB b : s.buttons)
            if (b != SB::NoButton) result.push_back(b);
        return result;
    }
    return {SB::Ok};  // an unknown set still lets the user dismiss the box
}

QMessageBox::Icon QtMessageBoxAnswerer::IconFor(int style)
{
    switch (style & kIconMask) {
    case os::vbCritical: return QMessageBox::Critical;
    case os::vbQuestion: return QMessageBox::Question;
    case os::vbExclamation: return QMessageBox::Warning;
    case os::vbInformation: return QMessageBox::Information;
    default: return QMessageBox::NoIcon;
    }
}

int QtMessageBoxAnswerer::AnswerFor(QMessageBox::StandardButton button)
{
    for (const Answer& a : kAnswers)
        if (a.button == button) return a.answer;
    return os::vbCancel;
}

int QtMessageBoxAnswerer::Show(const QString& text, int style, const QString& title)
{
    QMessageBox box(IconFor(style), title, text, QMessageBox::NoButton, m_parent);
    const Buttons buttons = ButtonsFor(style);
    for (SB b : buttons) box.addButton(b);
    const auto defaultIndex = static_cast<std::size_t>((style & kDefaultButtonMask) >> kDefaultButtonShift);
    box.setDefaultButton(buttons.at(defaultIndex < buttons.size() ? defaultIndex : 0));
    // Escape answers Cancel where there is one, and OK on a plain notice.
    for (SB b : buttons)
        if (b == SB::Cancel || (buttons.size() == 1 && b == SB::Ok)) box.setEscapeButton(b);
    box.exec();
    const auto clicked = box.standardButton(box.clickedButton());
    if (clicked == SB::NoButton) return buttons.size() == 1 ? AnswerFor(buttons.front()) : os::vbCancel;
    return AnswerFor(clicked);
}

}  // namespace mv::forms
