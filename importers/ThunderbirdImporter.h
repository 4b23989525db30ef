#pragma once
// Rules from a mail client's filter list, msgFilterRules.dat: lines of
// key="value" (backslash escapes), a filter starting at each name=. A
// filter whose action is "Move to folder" becomes a rule from the Inbox to
// the folder its actionValue URI names ("mailbox://user@Local%20Folders/A/B"
// or "imap://user@host/A/B" give "A/B"). Its condition ("AND (subject,
// contains,word) AND ..." or "OR ...", or "ALL") maps term by term:
// subject, from, to, cc, "to or cc" and body "contains"; priority "is",
// "isgreaterthan"/"islessthan" Normal; status is/isn't read, flagged,
// replied, forwarded; "age in days" "isgreaterthan". The rest is reported.

#include "ImportedRule.h"

#include "platform/common/Error.h"

#include <QByteArray>

namespace mv::importers {

class ThunderbirdImporter {
public:
    // A Permanent error when the text is not a filter list at all.
    static Result<ImportedRules> FromText(const QString& text);
};

}  // namespace mv::importers
