#pragma once
// IMAP's modified UTF-7 (RFC 3501 5.1.3), which Dovecot also uses for
// folder names on disk: printable ASCII stands for itself, "&-" is "&", and
// "&<modified base64 of UTF-16BE>-" carries everything else.

#include <QString>

namespace mv::stores::maildir {

QString DecodeModifiedUtf7(const QString& encoded);  // malformed runs are kept as written
QString EncodeModifiedUtf7(const QString& text);

}  // namespace mv::stores::maildir
