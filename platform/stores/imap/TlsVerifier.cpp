#include "TlsVerifier.h"

#include <QCryptographicHash>
#include <QFile>
#include <QRegularExpression>
#include <QSslCertificate>
#include <QSslError>
#include <QSslSocket>
#include <QStringList>

namespace mv::stores {

namespace {

bool IsFingerprint(const QString& pin)
{
    static const QRegularExpression hex(QStringLiteral("^[0-9A-Fa-f]{64}$"));
    return hex.match(QString(pin).remove(QLatin1Char(':'))).hasMatch();
}

Status VerifyPin(const QSslCertificate& leaf, const QString& host, const QString& pin)
{
    const QByteArray leafDigest = QCryptographicHash::hash(leaf.toDer(), QCryptographicHash::Sha256);
    if (IsFingerprint(pin)) {
        const QByteArray wanted = QByteArray::fromHex(QString(pin).remove(QLatin1Char(':')).toLatin1());
        if (wanted == leafDigest) return Status::success();
        return Error::permanent(QStringLiteral("TLS certificate of %1 refused: its SHA-256 fingerprint %2 is not the pinned %3")
                                    .arg(host, QString::fromLatin1(leafDigest.toHex(':').toUpper()), pin));
    }
    QFile file(pin);
    if (!file.open(QIODevice::ReadOnly))
        return Error::permanent(QStringLiteral("TLS certificate of %1 refused: the pinned certificate file %2 cannot be read (%3)")
                                    .arg(host, pin, file.errorString()));
    for (const QSslCertificate& pinned : QSslCertificate::fromData(file.readAll(), QSsl::Pem))
        if (pinned == leaf) return Status::success();
    return Error::permanent(QStringLiteral("TLS certificate of %1 refused: it is not the pinned certificate in %2").arg(host, pin));
}

}  // namespace

Status TlsVerifier::Verify(const QList<QByteArray>& chainDer, const QString& host, const QString& pin)
{
    QList<QSslCertificate> chain;
    for (const QByteArray& der : chainDer) {
        QSslCertificate cert(der, QSsl::Der);
        if (cert.isNull())
            return Error::permanent(QStringLiteral("TLS certificate of %1 refused: the server sent an unreadable certificate").arg(host));
        chain << cert;
    }
    if (chain.isEmpty())
        return Error::permanent(QStringLiteral("TLS certificate of %1 refused: the server sent no certificate").arg(host));
    if (!pin.isEmpty()) return VerifyPin(chain.first(), host, pin);

    // A TLS backend that cannot verify (Qt's "cert-only", or OpenSSL that
    // failed to load) reports no error for any chain: refuse rather than
    // take that for trust.
    if (!QSslSocket::supportsSsl() || !QSslSocket::isFeatureSupported(QSsl::SupportedFeature::CertificateVerification))
        return Error::permanent(QStringLiteral("TLS certificate of %1 refused: certificates cannot be verified here (Qt's TLS "
                                               "backend \"%2\" cannot check a chain; is OpenSSL installed?); pin the "
                                               "server's certificate or install Qt's OpenSSL backend")
                                    .arg(host, QSslSocket::activeBackend()));
    const QList<QSslError> errors = QSslCertificate::verify(chain, host);
    if (errors.isEmpty()) return Status::success();
    QStringList reasons;
    for (const QSslError& e : errors) reasons << e.errorString();
    reasons.removeDuplicates();
    return Error::permanent(QStringLiteral("TLS certificate of %1 refused: %2").arg(host, reasons.join(QStringLiteral("; "))));
}

}  // namespace mv::stores
