#pragma once
// Mailbox names on the wire are modified UTF-7 (RFC 3501 5.1.3).

#include <QByteArray>
#include <QString>

namespace mv::stores {

class ModifiedUtf7 {
public:
    static QString Decode(const QByteArray& wire);  // a malformed shift is kept as its raw text
    static QByteArray Encode(const QString& name);
};

}  // namespace mv::stores
