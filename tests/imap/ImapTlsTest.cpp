// TLS: libetpan negotiates, the store verifies.
#include "ImapTestSupport.h"

#include <QCryptographicHash>
#include <QSslCertificate>

using namespace mv;
using namespace mv::test;

namespace {

QString S(const char* s) { return QString::fromUtf8(s); }

enum class Pin { None, File, Fingerprint, WrongFingerprint };

struct TlsCase {
    const char* name;
    stores::TlsMode mode;
    Pin pin;
    bool accepted;
    const char* reason;  // part of the refusal
};

class ImapTlsTest : public DovecotStoreTest, public ::testing::WithParamInterface<TlsCase> {
protected:
    DovecotOptions Options() const override { return {{}, true}; }
};

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
