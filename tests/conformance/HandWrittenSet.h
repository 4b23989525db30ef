#pragma once
// A small hand-written INBOX whose every message was built to sit on one
// side or the other of each criterion the engine writes, and the table of
// named restrictions with the subjects each one must return.

#include "platform/mapi/MessageStore.h"
#include "platform/mapi/Restriction.h"

#include <QDateTime>
#include <QStringList>

#include <string>
#include <vector>

namespace mv::conformance {

struct NamedCase {
    std::string name;
    mapi::Restriction restriction;
    QStringList expected;  // subjects from the hand-written set, any order
};

// The instant the set was written against; its dates lie before it.
QDateTime HandWrittenNow();
std::vector<mapi::NewMessage> HandWrittenMessages();
// The subjects a query for everything returns (the \Deleted one is never shown).
QStringList VisibleSubjects();
std::vector<NamedCase> RestrictionCases();

}  // namespace mv::conformance
