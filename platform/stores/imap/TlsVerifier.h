#pragma once
// Verifies a server's certificate chain after the TLS handshake. libetpan
// negotiates TLS but checks nothing, so every connection passes through here
// before a password is sent.

#include "platform/common/Error.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace mv::stores {

class TlsVerifier {
public:
    // `chainDer`: the server's chain, leaf first, DER. `pin`: empty, a PEM
    // file path or a SHA-256 fingerprint (hex, colons allowed). With a pin,
    // the leaf must be the pinned certificate and nothing else is checked;
    // without one, the chain must lead to a system CA and name `host`.
    // Without a pin, a Qt whose TLS backend cannot verify certificates
    // refuses every chain. Refusals are Permanent errors naming the reason.
    static Status Verify(const QList<QByteArray>& chainDer, const QString& host, const QString& pin);
};

}  // namespace mv::stores
