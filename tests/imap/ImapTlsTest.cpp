// TLS: libetpan negotiates, the store verifies.
#include "ImapTestSupport.h"

#include <QCryptographicHash>
#include <QSslCertificate>
#include <QSslSocket>

using namespace mv;
using namespace mv::test;

namespace {

class ImapTlsClosedTest : public DovecotStoreTest {
protected:
    DovecotOptions Options() const override { return {{}, true}; }
};

enum class Pin { None, File, Fingerprint, WrongFingerprint };

struct TlsCase {
    const char* name;
    stores::TlsMode mode;
    Pin pin;
    bool accepted;
    const char* reason;  // part of the refusal
};

class ImapTlsTest : public ImapTlsClosedTest, public ::testing::WithParamInterface<TlsCase> {};

TEST_P(ImapTlsTest, CertificateIsCheckedBeforeLogin)
{
    const TlsCase& c = GetParam();
    auto settings = Settings(c.mode == stores::TlsMode::Implicit ? server->TlsPort() : server->Port());
    settings.tls = c.mode;
    settings.host = S("localhost");
    const QByteArray der = QSslCertificate(server->CertificatePem()).toDer();
    const QString fingerprint = QString::fromLatin1(QCryptographicHash::hash(der, QCryptographicHash::Sha256).toHex(':'));
    switch (c.pin) {
    case Pin::None: break;
    case Pin::File: settings.pinnedCertificate = server->CertificatePath(); break;
    case Pin::Fingerprint: settings.pinnedCertificate = fingerprint.toUpper(); break;
    case Pin::WrongFingerprint: settings.pinnedCertificate = QString(fingerprint).replace(0, 2, S("00")); break;
    }
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
    auto settings = Settings(server->TlsPort());
    settings.tls = stores::TlsMode::Implicit;
    settings.host = S("localhost");
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
    {"ImplicitPinnedByFile", stores::TlsMode::Implicit, Pin::File, true, ""},
    {"ImplicitPinnedByFingerprint", stores::TlsMode::Implicit, Pin::Fingerprint, true, ""},
    {"StartTlsPinnedByFile", stores::TlsMode::StartTls, Pin::File, true, ""},
    {"ImplicitSelfSignedUnpinned", stores::TlsMode::Implicit, Pin::None, false, "self-signed"},
    {"StartTlsSelfSignedUnpinned", stores::TlsMode::StartTls, Pin::None, false, "self-signed"},
    {"ImplicitOtherPin", stores::TlsMode::Implicit, Pin::WrongFingerprint, false, "not the pinned"},
};

INSTANTIATE_TEST_SUITE_P(Modes, ImapTlsTest, ::testing::ValuesIn(kTlsCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
