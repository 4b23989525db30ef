#include "RuleChoices.h"

#include <QStringList>

#include <array>

namespace mv::forms {

namespace {

constexpr std::array kMsgAge{
    Choice{"Any Time", 13}, Choice{"15 minutes", 14}, Choice{"1 hour", 1},   Choice{"2 hours", 2},
    Choice{"4 hours", 3},   Choice{"8 hours", 4},     Choice{"1 day", 5},    Choice{"2 days", 6},
    Choice{"3 days", 15},   Choice{"4 days", 16},     Choice{"5 days", 17},  Choice{"1 week", 7},
    Choice{"2 weeks", 8},   Choice{"1 month", 9},     Choice{"2 months", 10}, Choice{"3 months", 11},
    Choice{"6 months", 18}, Choice{"1 year", 12},     Choice{"2 year", 19},  Choice{"3 year", 20},
};

constexpr std::array kImportance{Choice{"Low", 0}, Choice{"Normal", 1}, Choice{"High", 2}, Choice{"Any", 3}};
constexpr std::array kStatus{Choice{"Unread", 0}, Choice{"Read", 1}, Choice{"Any", 2}};
constexpr std::array kLastVerb{Choice{"N/A", 0}, Choice{"That I replied to", 102}, Choice{"That I forwarded", 104}};

constexpr std::array kFlagsClassic{
    Choice{"Don't Care", 0}, Choice{"None Set", 9}, Choice{"Follow-up", 2}, Choice{"Follow-up Complete", 1}};
constexpr std::array kFlagsColoured{
    Choice{"Don't Care", 0}, Choice{"None Set", 9}, Choice{"Red", 16},    Choice{"Blue", 15},
    Choice{"Yellow", 14},    Choice{"Green", 13},   Choice{"Orange", 12}, Choice{"Purple", 11},
    Choice{"Any Set", 2},    Choice{"Complete", 1}};

}  // namespace

std::span<const Choice> MsgAgeChoices() { return kMsgAge; }
std::span<const Choice> ImportanceChoices() { return kImportance; }
std::span<const Choice> StatusChoices() { return kStatus; }
std::span<const Choice> LastVerbChoices() { return kLastVerb; }

std::span<const Choice> FlagStatusChoices(int outlookMajorVersion)
{
    if (outlookMajorVersion >= 11) return kFlagsColoured;
    return kFlagsClassic;
}

int OutlookMajorVersion(const QString& versionText)
{
    const qsizetype dot = versionText.indexOf(u'.');
    const QString head = (dot < 0 ? versionText : versionText.left(dot)).trimmed();
    int value = 0;
    for (const QChar c : head) {
        if (!c.isDigit()) break;
        if (value > 100000) break;  // a version number, not an overflow
        value = value * 10 + c.digitValue();
    }
    return value;
}

int NoOfOccurances(const QString& text, const QString& part)
{
    if (text.isEmpty() || part.isEmpty()) return 0;
    return static_cast<int>(text.split(part, Qt::KeepEmptyParts, Qt::CaseSensitive).size()) - 1;
}

}  // namespace mv::forms
