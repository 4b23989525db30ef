#pragma once
// Message bytes -> MAPI properties, with GMime 3. The one place that knows
// how headers become PR_SUBJECT, the sender and recipient properties,
// PR_IMPORTANCE and PR_MESSAGE_CLASS; every store uses it.
//
// Never fails on bad input: malformed MIME, missing or duplicate headers,
// invalid encoded words and 8-bit junk give the best properties that can be
// read (an unreadable subject is empty, an absent From leaves the sender
// properties out). Only an unreadable file is an error.

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
};

// Call once before any GMime use (idempotent, thread-safe).
void EnsureGMimeInitialised();

}  // namespace mv::stores
