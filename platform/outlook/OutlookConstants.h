#pragma once
// Object-model constants at their published values.

#include <QString>

namespace mv::outlook {

enum OlDefaultFolders : int {
    olFolderDeletedItems = 3,
    olFolderOutbox = 4,
    olFolderSentMail = 5,
    olFolderInbox = 6,
    olFolderDrafts = 16,
    olFolderJunk = 23,
};

enum OlFlagStatus : int { olNoFlag = 0, olFlagComplete = 1, olFlagMarked = 2 };

enum OlImportance : int { olImportanceLow = 0, olImportanceNormal = 1, olImportanceHigh = 2 };

// What kind of item an entry is; decided from the message class.
enum class ItemKind { Mail, Meeting, Report, Other };

// Substring tests without case, first match wins: "IPM.SCHEDULE" (meeting),
// then "REPORT." (so a non-delivery report of a note is a report, not mail),
// then "IPM.NOTE" (mail); anything else (appointments, contacts, tasks,
// posts) is Other.
ItemKind KindOfMessageClass(const QString& messageClass);

}  // namespace mv::outlook
