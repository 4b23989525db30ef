#include "OAuthSasl.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace mv::stores {

QByteArray OAuthSasl::Mechanism(ImapAuth auth)
{
    switch (auth) {
        case ImapAuth::XOAuth2:
            return QByteArrayLiteral("XOAUTH2");
        case ImapAuth::OAuthBearer:
            return QByteArrayLiteral("OAUTHBEARER");
        case ImapAuth::Password:
            break;
    }
    return {};
}

QByteArray OAuthSasl::InitialResponse(ImapAuth auth, const QString& user, const QString& token,
                                      const QString& host, quint16 port)
{
    const QByteArray bearer = "auth=Bearer " + token.toUtf8() + "\x01\x01";
    if (auth == ImapAuth::XOAuth2) return "user=" + user.toUtf8() + '\x01' + bearer;
    // The GS2 header names the user; ',' and '=' in it are escaped (RFC 5801 4).
    QByteArray name = user.toUtf8();
    name.replace("=", "=3D").replace(",", "=2C");
    return "n,a=" + name + ",\x01host=" + host.toUtf8() + "\x01port=" + QByteArray::number(port) + '\x01' +
           bearer;
}

QByteArray OAuthSasl::FailureAnswer(ImapAuth auth)
{
    return auth == ImapAuth::OAuthBearer ? QByteArrayLiteral("\x01") : QByteArray();
}

OAuthSasl::Failure OAuthSasl::ReadFailure(const QByteArray& base64)
{
    Failure failure;
    const QJsonDocument json = QJsonDocument::fromJson(QByteArray::fromBase64(base64.trimmed()));
    const QJsonValue status = json.object().value(QStringLiteral("status"));
    failure.status = status.isDouble() ? QString::number(status.toInt()) : status.toString();
    // Only "expired or invalid" is worth a fresh token: a token without the
    // mail scope or a malformed request stays refused however often it is
    // renewed. No readable status is taken as the common case.
    failure.tokenRejected = failure.status.isEmpty() || failure.status == QLatin1String("401") ||
                            failure.status == QLatin1String("invalid_token");
    return failure;
}

}  // namespace mv::stores
