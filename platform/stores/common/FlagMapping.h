#pragma once
// Store flags <-> MAPI properties, table-driven so every backend agrees:
// \Seen -> PR_MESSAGE_FLAGS read bit; \Flagged / $Completed -> PR_FLAG_STATUS
// (2 / 1, else 0, always present); $MailFlagBit0..2 -> PR_FLAG_ICON colour;
// \Answered -> PR_LAST_VERB_EXECUTED 102, $Forwarded -> 104.
// Maildir letters follow the Maildir spec (S R F T D P) and Dovecot's
// keyword letters a..z from the dovecot-keywords file.

#include "platform/mapi/MessageStore.h"
#include "platform/mapi/PropertySource.h"

namespace mv::stores {

class FlagMapping {
public:
    // Adds PR_MESSAGE_FLAGS, PR_FLAG_STATUS, PR_FLAG_ICON (when coloured) and
    // PR_LAST_VERB_EXECUTED (when answered or forwarded) to `props`.
    static void ApplyFlags(const mapi::MessageFlags& flags, mapi::PropertyMap& props);

    // Flags after setting PR_FLAG_STATUS to `flagStatus` (0, 1 or 2).
    static mapi::MessageFlags WithFlagStatus(mapi::MessageFlags flags, int flagStatus);

    // Maildir info part ("2,FRS" without the "2,") <-> flags, given the
    // store's keyword list (index = letter - 'a').
    static mapi::MessageFlags FromMaildirInfo(const QString& info, const QStringList& keywordNames);
    static QString ToMaildirInfo(const mapi::MessageFlags& flags, QStringList& keywordNames);  // may append new keywords
};

}  // namespace mv::stores
