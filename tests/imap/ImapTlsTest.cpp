// TLS: libetpan negotiates, the store verifies.
#include "ImapTestSupport.h"

#include <QCryptographicHash>
#include <QMap>
#include <QSslCertificate>
#include <QSslSocket>

using namespace mv;
using namespace mv::test;

namespace {

class ImapTlsClosedTest : public DovecotStoreTest {
protected:
    DovecotOptions Options() const override { return {{}, true}; }
    stores::ImapSettings TlsSettings(stores::TlsMode mode) const
    {
        auto settings = Settings(mode == stores::TlsMode::Implicit ? server->TlsPort() : server->Port());
        settings.tls = mode;
        settings.host = S("localhost");
        return settings;
    }
};

struct TlsCase {
    const char* name;
    stores::TlsMode mode;
    const char* pin;     // "file", "sha256", "other" (a wrong fingerprint) or ""
    bool accepted;
    const char* reason;  // part of the refusal
};

class ImapTlsTest : public ImapTlsClosedTest, public ::testing::WithParamInterface<TlsCase> {};

TEST_P(ImapTlsTest, CertificateIsCheckedBeforeLogin)
{
    const TlsCase& c = GetParam();
    auto settings = TlsSettings(c.mode);
    const QByteArray der = QSslCertificate(server->CertificatePem()).toDer();
    const QString fingerprint = QString::fromLatin1(QCryptographicHash::hash(der, QCryptographicHash::Sha256).toHex(':'));
    const QMap<QString, QString> pins = {{S("file"), server->CertificatePath()},
                                         {S("sha256"), fingerprint.toUpper()},
                                         {S("other"), QString(fingerprint).replace(0, 2, S("00"))}};
    settings.pinnedCertificate = pins.value(S(c.pin));
    const auto logins = [this] { return server->LogText().count(S("Login: user=<test>")); };
    const int loginsBefore = logins();
    stores::ImapStore tls(settings);
    auto folders = tls.Folders();
    if (c.accepted) {
        EXPECT_TRUE(folders.ok()) << folders.error().message.toStdString();
        EXPECT_GT(logins(), loginsBefore);
        return;
    }
    ASSERT_FALSE(folders.ok());
    EXPECT_EQ(folders.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(folders.error().message.contains(S("certificate of localhost refused"))) << folders.error().message.toStdString();
    EXPECT_TRUE(folders.error().message.contains(S(c.reason), Qt::CaseInsensitive)) << folders.error().message.toStdString();
    // The password never went out: Dovecot logged no further login.
    EXPECT_EQ(logins(), loginsBefore) << server->LogText().toStdString();
}

// Qt with a TLS backend that cannot verify (as when OpenSSL fails to load)
// accepts nothing but a pinned certificate. The backend is chosen before
// any TLS is used: first in this process (ctest runs each test alone).
TEST_F(ImapTlsClosedTest, WithoutVerificationOnlyThePinIsTrusted)
{
    ASSERT_TRUE(QSslSocket::setActiveBackend(S("cert-only"))) << "a TLS backend was already in use";
    auto settings = TlsSettings(stores::TlsMode::Implicit);
    stores::ImapStore unpinned(settings);
    auto refused = unpinned.Folders();
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error().kind, ErrorKind::Permanent);
    EXPECT_TRUE(refused.error().message.contains(S("cannot be verified"))) << refused.error().message.toStdString();
    settings.pinnedCertificate = server->CertificatePath();
    stores::ImapStore pinned(settings);
    auto folders = pinned.Folders();
    EXPECT_TRUE(folders.ok()) << folders.error().message.toStdString();
}

const TlsCase kTlsCases[] = {
    {"ImplicitPinnedByFile", stores::TlsMode::Implicit, "file", true, ""},
    {"ImplicitPinnedByFingerprint", stores::TlsMode::Implicit, "sha256", true, ""},
    {"StartTlsPinnedByFile", stores::TlsMode::StartTls, "file", true, ""},
    {"ImplicitSelfSignedUnpinned", stores::TlsMode::Implicit, "", false, "self-signed"},
    {"StartTlsSelfSignedUnpinned", stores::TlsMode::StartTls, "", false, "self-signed"},
    {"ImplicitOtherPin", stores::TlsMode::Implicit, "other", false, "not the pinned"},
};

INSTANTIATE_TEST_SUITE_P(Modes, ImapTlsTest, ::testing::ValuesIn(kTlsCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
