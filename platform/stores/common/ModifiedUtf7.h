#pragma once
// IMAP's modified UTF-7 (RFC 3501 5.1.3): mailbox names on the wire, and
// Dovecot's folder names on disk. Printable ASCII stands for itself, "&-" is
// "&", and "&<modified base64 of UTF-16BE>-" carries everything else.
//
// Decoding is strict: a shift whose text is not modified base64 (RFC 3501
// uses "," for "/" and no "=" padding), that does not end in whole UTF-16
// units, or that is not closed by "-" is kept as written, so a badly named
// folder is still listed under a name that encodes back to itself.

#include <QByteArray>
#include <QString>

namespace mv::stores {

class ModifiedUtf7 {
public:
    static QString Decode(const QByteArray& wire);
    // Characters outside ASCII pass through (a name made on disk by hand).
    static QString Decode(const QString& encoded);
    static QByteArray Encode(const QString& name);
};

}  // namespace mv::stores
