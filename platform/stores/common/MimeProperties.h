#pragma once
// Message bytes -> MAPI properties, with GMime 3. The one place that knows
// how headers become PR_SUBJECT, the sender and recipient properties,
// PR_IMPORTANCE and PR_MESSAGE_CLASS; every store uses it.
//
// Never fails on bad input: malformed MIME, missing or duplicate headers,
// invalid encoded words and 8-bit junk give the best properties that can be
// read (an unreadable subject is empty, an absent From leaves the sender
// properties out). Only an unreadable file is an error.
//
// What every record holds: PR_SUBJECT (empty when absent), PR_IMPORTANCE,
// PR_MESSAGE_CLASS, PR_MESSAGE_FLAGS (MSGFLAG_HASATTACH or 0; the store ORs
// in the read bit), PR_MESSAGE_SIZE, PR_DISPLAY_TO and PR_DISPLAY_CC (empty
// when there are no such recipients), and PR_BODY when asked for.
//
// Rules kept on purpose:
// - A header that appears twice counts once: the first one wins, for every
//   field (the topmost Delivered-To is the final delivery).
// - An encoded word that cannot be decoded stays as written; bytes that are
//   invalid in the charset a word declares become '?'. Undeclared 8-bit
//   text is read as UTF-8 when valid, else Windows-1252, else Latin-1.
// - Header properties come from the header block alone, so a record read
//   with the body agrees with one read without it. The MIME structure (for
//   the class and the attachment flag) is parsed only for multipart and
//   text/calendar mail; parts nested deeper than 32 levels are ignored.
// - PR_BODY has "\n" line ends.

#include "platform/common/Error.h"
#include "platform/mapi/PropertySource.h"

#include <QByteArray>
#include <QString>

namespace mv::stores {

struct ParseOptions {
    bool withBody = false;           // PR_BODY costs a full read and decode; skip unless asked
    QString ownAddress;              // PR_RCVD_REPRESENTING_* when neither Delivered-To nor X-Original-To
};

class MimeProperties {
public:
    // Properties from headers and structure (and PR_BODY when asked). Leaves
    // out what the store supplies: flags, delivery time and identifiers.
    static mapi::MessageRecord FromBytes(const QByteArray& rfc822, const ParseOptions& options = {});
    // Streams from the file, reading only the header block unless the body
    // or the MIME structure is needed. Error when the file cannot be opened.
    static Result<mapi::MessageRecord> FromFile(const QString& path, const ParseOptions& options = {});
    // The text body alone (text/plain, else HTML reduced to text).
    static Result<QString> BodyFromFile(const QString& path);
    // The header properties FromBytes gives for a block of header fields
    // (an IMAP server's answer to HEADER.FIELDS), read field by field
    // without building a message. The class is IPM.Note and there is no
    // attachment: whoever needs those reads them from the structure, or a
    // report's from FromBytes.
    static mapi::MessageRecord FromHeaderFields(const QByteArray& block, const ParseOptions& options = {});
    // The raw value of the first `name` field of a header block, folding
    // kept with "\n" line ends; null when there is no such field.
    static QByteArray HeaderField(const QByteArray& block, const char* name);
    // One header field's raw value (after the colon, folding kept) as the
    // records read it: encoded words decoded, unfolded, trimmed. For a
    // caller that has the few fields it needs and no use for the rest.
    static QString DecodeHeaderValue(const QByteArray& rawValue);
};

// Call once before any GMime use (idempotent, thread-safe).
void EnsureGMimeInitialised();

}  // namespace mv::stores
