// The profile: what a user writes and what they get wrong. The embedded
// default, its folders and its mail across starts, are the runtime test's.

#include "host/core/Profile.h"
#include "host/core/StoreSet.h"

#include "tests/support/QtPrinters.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace mv::test {
namespace {

using host::Profile;
using host::StoreProfile;
using P = QFile::Permission;

class ProfileTest : public ::testing::Test {
protected:
    // Owner-only by default, as a profile with a password must be.
    QString Write(const QByteArray& text, QFile::Permissions mode = P::ReadOwner | P::WriteOwner)
    {
        // A new name each time: QSettings caches an INI file by path and may
        // not notice a rewrite of the same size within the same second.
        const QString path = dir.path() + QStringLiteral("/profile%1.ini").arg(++written);
        QFile f(path);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(text);
        EXPECT_TRUE(f.setPermissions(mode));
        return path;
    }
    QTemporaryDir dir;
    int written = 0;
};

TEST_F(ProfileTest, ReadsMaildirAndImapSections)
{
    const QString path = Write("[Local]\ntype=maildir\npath=mail\naddress=me@example.org\n\n[Home]\ntype=maildir\npath=~/Maildir\n"
                               "[Work]\ntype=IMAP\nhost=imap.example.org\ntls=starttls\nuser=me\n"
                               "password_command=\"pass show mail/work, personal\"\npinned_certificate=/etc/work.pem\n"
                               "timeout=5\n\n"
                               "[Box]\ntype=imap\nhost=10.0.0.1\nport=1993\nuser=me\npassword=hunter2\n");
    auto profile = Profile::Load(path);
    ASSERT_TRUE(profile.ok()) << profile.error().message.toStdString();
    QHash<QString, const StoreProfile*> by;
    for (const auto& s : profile->stores) by.insert(s.section, &s);
    ASSERT_EQ(by.size(), 4);
    EXPECT_EQ(by["Local"]->type, StoreProfile::Type::Maildir);
    EXPECT_EQ(by["Work"]->type, StoreProfile::Type::Imap);
    const auto& work = by["Work"]->imap;
    const auto& box = by["Box"]->imap;
    // A relative path is the profile's folder's; STARTTLS defaults to the plain port.
    EXPECT_EQ((QStringList{by["Local"]->path, by["Local"]->address, by["Home"]->path, work.host, work.passwordCommand,
                           work.password, work.pinnedCertificate, box.password}),
              (QStringList{dir.path() + "/mail", "me@example.org", QDir::homePath() + "/Maildir", "imap.example.org",
                           "pass show mail/work, personal", "", "/etc/work.pem", "hunter2"}));
    EXPECT_EQ((std::vector<int>{work.port, work.timeoutSeconds, box.port}), (std::vector<int>{143, 5, 1993}));
    EXPECT_EQ(work.tls, stores::TlsMode::StartTls);
    EXPECT_EQ(box.tls, stores::TlsMode::Implicit);
}

// Mistakes are named by the file, section and key; a password others can
// read is refused with the command that fixes it.
TEST_F(ProfileTest, MistakesAndReadablePasswordsAreRefused)
{
    const QFile::Permissions own = P::ReadOwner | P::WriteOwner;
    const QByteArray imap = "[W]\ntype=imap\nhost=h\nuser=u\n";
    const struct {
        const char* what;
        QByteArray text;
        QFile::Permissions mode;
        const char* mentions;  // null: accepted; else "|"-separated parts of the message
        bool chmod = false;    // the message ends with "chmod 600 <file>"
    } cases[] = {
        {"no sections", "", own, "names no store"},
        {"key outside a section", "type=maildir\n[M]\ntype=maildir\npath=/x\n", own, "type|outside any section"},
        {"no type", "[M]\npath=/x\n", own, "[M] type|missing"},
        {"unknown type", "[M]\ntype=mbox\npath=/x\n", own, "[M] type|mbox"},
        {"maildir without path", "[M]\ntype=maildir\n", own, "[M] path|missing"},
        {"imap without host", "[W]\ntype=imap\nuser=u\npassword=p\n", own, "[W] host|missing"},
        {"imap without user", "[W]\ntype=imap\nhost=h\npassword=p\n", own, "[W] user|missing"},
        {"imap without password", imap, own, "[W] password_command|missing"},
        {"bad tls", imap + "password=p\ntls=ssl3\n", own, "[W] tls|ssl3"},
        {"port not a number", imap + "password=p\nport=imap\n", own, "[W] port|imap"},
        {"port out of range", imap + "password=p\nport=70000\n", own, "[W] port"},
        {"misspelt key", imap + "pasword=p\n", own, "[W] pasword|unknown key"},
        {"key of the other type", "[M]\ntype=maildir\npath=/x\nhost=h\n", own, "[M] host|unknown key"},
        {"second store bad", "[A]\ntype=maildir\npath=/x\n[B]\ntype=imap\n", own, "[B]"},
        {"password, world-readable", imap + "password=p\n", own | P::ReadGroup | P::ReadOther, "[W] password", true},
        {"password, group-readable", imap + "password=p\n", own | P::ReadGroup, "[W] password", true},
        {"password, readable by others", imap + "password=p\n", own | P::ReadOther, "[W] password", true},
        {"password in a later section", "[A]\ntype=maildir\npath=/x\n" + imap + "password=p\n", own | P::ReadOther,
         "[W] password", true},
        {"password, owner only", imap + "password=p\n", own, nullptr},
        {"password, owner read-only", imap + "password=p\n", P::ReadOwner, nullptr},
        {"password command, world-readable", imap + "password_command=pass w\n", own | P::ReadOther, nullptr},
        {"empty password, world-readable", imap + "password=\npassword_command=pass w\n", own | P::ReadOther, nullptr},
        {"unknown auth", imap + "password=p\nauth=cram-md5\n", own, "[W] auth|cram-md5"},
        {"oauth without token command", imap + "auth=xoauth2\n", own, "[W] token_command|missing"},
        {"oauth with a password command", imap + "auth=oauthbearer\ntoken_command=t\npassword_command=p\n", own,
         "[W] password_command|not used"},
        {"token command with a password login", imap + "password=p\ntoken_command=t\n", own, "[W] token_command|auth="},
        {"plain login named", imap + "auth=plain\npassword=p\n", own, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const QString path = Write(c.text, c.mode);
        auto profile = Profile::Load(path);
        if (!c.mentions) {
            EXPECT_TRUE(profile.ok()) << profile.error().message.toStdString();
            continue;
        }
        ASSERT_FALSE(profile.ok());
        const QString message = profile.error().message;
        EXPECT_TRUE(message.startsWith(c.chmod ? path + ": " + c.mentions : path)) << message.toStdString();
        for (const QString& part : QString(c.mentions).split('|')) EXPECT_TRUE(message.contains(part)) << message.toStdString();
        if (c.chmod) {
            EXPECT_TRUE(message.endsWith(QStringLiteral("chmod 600 ") + path)) << message.toStdString();
        }
    }

    auto oauth = Profile::Load(Write(imap + "auth=OAuthBearer\ntoken_command=\"oauth-token, work\"\n"));
    ASSERT_TRUE(oauth.ok()) << oauth.error().message.toStdString();
    EXPECT_EQ(oauth->stores[0].imap.auth, stores::ImapAuth::OAuthBearer);
    EXPECT_EQ(oauth->stores[0].imap.tokenCommand, QStringLiteral("oauth-token, work"));

    const QString missing = dir.path() + "/none/profile.ini";
    auto none = Profile::Load(missing);
    ASSERT_FALSE(none.ok());
    EXPECT_EQ(none.error().kind, ErrorKind::NotFound);
    EXPECT_FALSE(QFile::exists(missing)) << "a missing profile is not created";

    auto gone = Profile::Load(Write("[Gone]\ntype=maildir\npath=/nonexistent/mail\n"));
    ASSERT_TRUE(gone.ok());
    auto set = host::StoreSet::Open(*gone);
    ASSERT_FALSE(set.ok()) << "a Maildir path that is no folder";
    EXPECT_TRUE(set.error().message.contains("[Gone] path"));
}

}  // namespace
}  // namespace mv::test
