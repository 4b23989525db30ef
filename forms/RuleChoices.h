#pragma once
// The fixed choice lists of the rule editor: each entry's label and the code
// the rule stores for it. Stored rules hold codes, so the lists are matched
// by code, never by position (the message-age codes are deliberately out of
// list order).

#include <QString>

#include <span>

namespace mv::forms {

struct Choice {
    const char* label;
    int code;
};

std::span<const Choice> MsgAgeChoices();
std::span<const Choice> ImportanceChoices();
std::span<const Choice> StatusChoices();
std::span<const Choice> LastVerbChoices();
// Coloured flags exist from object-model level 11 on.
std::span<const Choice> FlagStatusChoices(int outlookMajorVersion);

// The number before the first "." of a version text (the whole text when it
// has none), read as the leading digits; 0 when there are none.
int OutlookMajorVersion(const QString& versionText);

// How often `part` occurs in `text`, counted as the pieces of an exact,
// case-sensitive split minus one; 0 for an empty text.
int NoOfOccurances(const QString& text, const QString& part);

// Codes that mean "no criterion" on the editor's lists.
inline constexpr int kAnyMsgAge = 13;
inline constexpr int kAnyImportance = 3;
inline constexpr int kAnyStatus = 2;
inline constexpr int kAnyFlag = 0;
inline constexpr int kAnyLastVerb = 0;

}  // namespace mv::forms
