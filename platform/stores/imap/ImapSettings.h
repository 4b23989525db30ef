#pragma once
// How to reach one IMAP account. Filled from the profile by the host.

#include <QDateTime>
#include <QString>

#include <functional>

namespace mv::stores {

enum class TlsMode {
    Implicit,  // TLS from the first byte (port 993)
    StartTls,  // plain connect, then STARTTLS before anything else is sent
    None,      // clear text; only when the profile says so explicitly
};

// How the login proves who the user is.
enum class ImapAuth {
    Password,     // LOGIN (or AUTHENTICATE PLAIN) with the password
    XOAuth2,      // AUTHENTICATE XOAUTH2 with an OAuth2 access token
    OAuthBearer,  // AUTHENTICATE OAUTHBEARER (RFC 7628) with an access token
};

struct ImapSettings {
    QString host;
    quint16 port = 993;
    TlsMode tls = TlsMode::Implicit;
    QString user;
    QString password;          // used when passwordCommand is empty
    QString passwordCommand;   // run with /bin/sh -c; the first line of stdout is the password
    ImapAuth auth = ImapAuth::Password;
    // OAuth2 only: run as passwordCommand; the first line of stdout is the
    // access token. Run again once when the server refuses a token.
    QString tokenCommand;
    // Trust exactly this certificate (self-signed servers): a PEM file path
    // or the SHA-256 fingerprint of the server's certificate in hex (colons
    // allowed). Empty = verify against the system's CAs and the host name.
    QString pinnedCertificate;
    int timeoutSeconds = 30;   // every network call; a dead server never blocks longer
    QString ownAddress;        // the account's address; user@host when empty
    bool preferAuthenticate = false;  // AUTHENTICATE PLAIN even when LOGIN is allowed
    std::function<QDateTime()> clock;  // UTC now for appends without a date; the system clock when empty
    std::function<QDateTime()> reconnectClock;  // UTC now for pauses between failed connects (tests); system when empty
};

}  // namespace mv::stores
