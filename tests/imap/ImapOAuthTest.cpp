// OAuth2 logins on a Dovecot that checks each token at a local endpoint.
#include "ImapTestSupport.h"

#include "platform/mapi/Restriction.h"
#include "platform/stores/imap/ImapConnection.h"
#include "tests/support/dovecot/TokenEndpoint.h"

#include <QFile>
#include <QTemporaryDir>

using namespace mv;
using namespace mv::test;

namespace {

const QByteArray kGood = "ya29.good";

TokenEndpoint& Endpoint()  // outlives the shared servers that ask it
{
    static TokenEndpoint endpoint;
    static const bool started = (endpoint.SetValid(kGood), endpoint.Start());
    EXPECT_TRUE(started);
    return endpoint;
}

struct OAuthCase {
    const char* name;
    stores::ImapAuth auth;
    bool saslIr;
};

class ImapOAuthTest : public DovecotStoreTest, public ::testing::WithParamInterface<OAuthCase> {
protected:
    DovecotOptions Options() const override
    {
        return {GetParam().saslIr ? QStringList() : QStringList{S("SASL-IR")}, false, Endpoint().Url()};
    }
    // A store whose token command notes each run, then runs `script`.
    std::unique_ptr<stores::ImapStore> OAuthStore(const QString& script)
    {
        stores::ImapSettings settings = Settings();
        settings.password.clear();
        settings.auth = GetParam().auth;
        settings.tokenCommand = QStringLiteral("echo >> '%1'; %2").arg(dir.filePath(S("runs")), script);
        auto made = std::make_unique<stores::ImapStore>(settings);
        made->SetLogger(&log);
        return made;
    }
    int Runs() const
    {
        QFile f(dir.filePath(S("runs")));
        return f.open(QIODevice::ReadOnly) ? static_cast<int>(f.size()) : 0;
    }

    QTemporaryDir dir;
    logging::MemoryLogger log;
};

// What a rule does: find the message by its subject and move it.
TEST_P(ImapOAuthTest, LogsInAndMovesAMessage)
{
    Add(inbox, Mail(S("Invoice 42")));
    Add(inbox, Mail(S("Lunch")));
    auto oauth = OAuthStore(S("echo ") + kGood);
    auto archive = oauth->FolderIdOf("Archive");
    ASSERT_TRUE(archive.ok()) << archive.error().message.toStdString();
    const auto invoices = mapi::Restriction::Content(mapi::PR_SUBJECT, S("Invoice"));
    auto found = oauth->Query(inbox, &invoices, {mapi::PR_ENTRYID});
    ASSERT_TRUE(found.ok() && found->size() == 1u);
    ASSERT_TRUE(oauth->Move((*found)[0][0].toByteArray(), *archive).ok());
    EXPECT_EQ(Subjects(*archive), QStringList{S("Invoice 42")});
    EXPECT_EQ(Runs(), 1) << "the token is kept between connections";
}

// Dovecot delays the next login by seconds after a refused one, so the
// refusals run once per mechanism (the error exchange is the same without
// SASL-IR).
class ImapOAuthRefusalTest : public ImapOAuthTest {};

TEST_P(ImapOAuthRefusalTest, ExpiredTokenIsRenewedOnce)
{
    Endpoint().ExpireOnce(kGood);
    auto folders = OAuthStore(S("echo ") + kGood)->Folders();
    ASSERT_TRUE(folders.ok()) << folders.error().message.toStdString();
    EXPECT_EQ(Runs(), 2);
}

TEST_P(ImapOAuthRefusalTest, RefusedTokenStopsFurtherLogins)
{
    auto oauth = OAuthStore(S("echo ya29.stale"));
    auto refused = oauth->Folders();
    ASSERT_FALSE(refused.ok());
    EXPECT_TRUE(stores::ImapConnection::IsLoginRefused(refused.error()))
        << refused.error().message.toStdString();
    const int questions = Endpoint().Questions();
    EXPECT_FALSE(oauth->Folders().ok());
    EXPECT_EQ(Runs(), 2) << "one fresh token, no more";
    EXPECT_EQ(Endpoint().Questions(), questions) << "no login after a refused one";
    for (const QString& text : {refused.error().message, log.texts().join(S("\n"))}) {
        EXPECT_TRUE(text.contains(S("test@127.0.0.1"))) << text.toStdString();
        EXPECT_FALSE(text.contains(S("ya29"))) << "a token is never written out";
    }
}

TEST_P(ImapOAuthRefusalTest, BrokenTokenCommandIsNamed)
{
    const struct {
        const char* script;
        const char* says;
    } cases[] = {{"echo ya29.x; exit 3", "token command for test@127.0.0.1 failed"},
                 {"printf '\\nya29.x\\n'", "printed no token"}};
    for (const auto& c : cases) {
        auto folders = OAuthStore(S(c.script))->Folders();
        ASSERT_FALSE(folders.ok()) << c.script;
        EXPECT_TRUE(folders.error().message.contains(S(c.says))) << folders.error().message.toStdString();
        EXPECT_FALSE(folders.error().message.contains(S("ya29"))) << "the output may be a secret";
    }
}

const OAuthCase kXOAuth2{"XOAuth2", stores::ImapAuth::XOAuth2, true};
const OAuthCase kBearer{"OAuthBearer", stores::ImapAuth::OAuthBearer, true};
std::string Name(const ::testing::TestParamInfo<OAuthCase>& info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    Mechanisms, ImapOAuthTest,
    ::testing::Values(kXOAuth2, kBearer, OAuthCase{"XOAuth2NoSaslIr", stores::ImapAuth::XOAuth2, false},
                      OAuthCase{"OAuthBearerNoSaslIr", stores::ImapAuth::OAuthBearer, false}),
    Name);
INSTANTIATE_TEST_SUITE_P(Mechanisms, ImapOAuthRefusalTest, ::testing::Values(kXOAuth2, kBearer), Name);

}  // namespace
