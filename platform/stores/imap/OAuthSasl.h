#pragma once
// The client side of the two OAuth2 SASL mechanisms IMAP servers offer:
// XOAUTH2 (the form hosted services started with) and OAUTHBEARER (RFC
// 7628). Pure functions over bytes; ImapConnection does the exchange.

#include "ImapSettings.h"

#include <QByteArray>
#include <QString>

namespace mv::stores {

class OAuthSasl {
public:
    // "XOAUTH2" or "OAUTHBEARER"; empty for password logins.
    static QByteArray Mechanism(ImapAuth auth);
    // The client's first message, before base64. It holds the token: never
    // log it.
    static QByteArray InitialResponse(ImapAuth auth, const QString& user, const QString& token,
                                      const QString& host, quint16 port);
    // What the client answers to the server's error challenge so that the
    // server sends its tagged NO: an empty message (XOAUTH2) or a lone
    // 0x01 (RFC 7628 3.2.3), before base64.
    static QByteArray FailureAnswer(ImapAuth auth);

    // The server's error challenge, a base64 JSON object.
    struct Failure {
        QString status;             // "401", "invalid_token", ...; empty when unreadable
        bool tokenRejected = true;  // the token expired or is invalid: a new one may do
    };
    static Failure ReadFailure(const QByteArray& base64);
};

}  // namespace mv::stores
