#pragma once
// Store flags <-> MAPI properties, table-driven so every backend agrees:
// \Seen -> PR_MESSAGE_FLAGS read bit (\Draft -> the unsent bit);
// \Flagged / $Completed -> PR_FLAG_STATUS (2 / 1, else 0, always present);
// $MailFlagBit0..2 on a \Flagged message -> PR_FLAG_ICON colour;
// \Answered -> PR_LAST_VERB_EXECUTED 102, else $Forwarded -> 104.
// Maildir letters follow the Maildir convention (D F P R S T, in ASCII order) and
// Dovecot's keyword letters a..z from the dovecot-keywords file.
// docs/stores.md gives the table and the reasons for each choice.

#include "platform/mapi/MessageStore.h"
#include "platform/mapi/PropertySource.h"

namespace mv::stores {

class FlagMapping {
public:
    // Sets PR_MESSAGE_FLAGS (keeping its other bits), PR_FLAG_STATUS,
    // PR_FLAG_ICON (only when flagged with a colour MAPI knows) and
    // PR_LAST_VERB_EXECUTED (only when answered or forwarded) in `props`,
    // removing the last two when they no longer apply, so it may be called
    // again after every flag change.
    static void ApplyFlags(const mapi::MessageFlags& flags, mapi::PropertyMap& props);

    // PR_FLAG_ICON for the flags: 1..6, or 0 when there is none.
    static int FlagIcon(const mapi::MessageFlags& flags);

    // Flags after setting PR_FLAG_STATUS to `flagStatus` (0, 1 or 2; any
    // other value leaves them unchanged). Clearing or completing a flag also
    // drops its colour keywords.
    static mapi::MessageFlags WithFlagStatus(mapi::MessageFlags flags, int flagStatus);

    // Maildir info part ("FRS", a leading "2," is skipped) <-> flags, given
    // the store's keyword list (index = letter - 'a'). Unknown letters are
    // ignored. ToMaildirInfo appends keywords missing from the list while it
    // has fewer than 26 entries; a keyword that finds no letter is not kept.
    static mapi::MessageFlags FromMaildirInfo(const QString& info, const QStringList& keywordNames);
    static QString ToMaildirInfo(const mapi::MessageFlags& flags, QStringList& keywordNames);

    static bool HasKeyword(const mapi::MessageFlags& flags, const QString& keyword);  // case-insensitive, as IMAP
};

}  // namespace mv::stores
