// The profile: what a user writes, what they get wrong, and the embedded
// default when they write nothing.

#include "host/core/Profile.h"
#include "host/core/StoreSet.h"

#include "tests/support/dovecot/DovecotServer.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace mv::test {
namespace {

using host::Profile;
using host::StoreProfile;

class ProfileTest : public ::testing::Test {
protected:
    // Owner-only by default, as a profile with a password must be.
    QString Write(const QByteArray& text, QFile::Permissions mode = QFile::ReadOwner | QFile::WriteOwner)
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
    const QString path = Write("[Local]\ntype=maildir\npath=mail\naddress=me@example.org\n\n"
                               "[Work]\ntype=IMAP\nhost=imap.example.org\ntls=starttls\nuser=me\n"
                               "password_command=\"pass show mail/work, personal\"\npinned_certificate=/etc/work.pem\n"
                               "timeout=5\n\n"
                               "[Home]\ntype=imap\nhost=10.0.0.1\nport=1993\nuser=me\npassword=hunter2\n");
    auto profile = Profile::Load(path);
    ASSERT_TRUE(profile.ok()) << profile.error().message.toStdString();
    ASSERT_EQ(profile->stores.size(), 3u);
    QHash<QString, const StoreProfile*> by;
    for (const auto& s : profile->stores) by.insert(s.section, &s);

    ASSERT_TRUE(by.contains("Local"));
    EXPECT_EQ(by["Local"]->type, StoreProfile::Type::Maildir);
    EXPECT_EQ(by["Local"]->path, dir.path() + "/mail") << "relative to the profile's folder";
    EXPECT_EQ(by["Local"]->address, "me@example.org");

    const auto& work = by["Work"]->imap;
    EXPECT_EQ(by["Work"]->type, StoreProfile::Type::Imap);
    EXPECT_EQ(work.host, "imap.example.org");
    EXPECT_EQ(work.tls, stores::TlsMode::StartTls);
    EXPECT_EQ(work.port, 143) << "STARTTLS defaults to the plain port";
    EXPECT_EQ(work.passwordCommand, "pass show mail/work, personal");
    EXPECT_TRUE(work.password.isEmpty());
    EXPECT_EQ(work.pinnedCertificate, "/etc/work.pem");
    EXPECT_EQ(work.timeoutSeconds, 5);

    const auto& home = by["Home"]->imap;
    EXPECT_EQ(home.tls, stores::TlsMode::Implicit);
    EXPECT_EQ(home.port, 1993);
    EXPECT_EQ(home.password, "hunter2");
}

TEST_F(ProfileTest, HomeFolderIsExpanded)
{
    auto profile = Profile::Load(Write("[M]\ntype=maildir\npath=~/Maildir\n"));
    ASSERT_TRUE(profile.ok());
    EXPECT_EQ(profile->stores[0].path, QDir::homePath() + "/Maildir");
}

TEST_F(ProfileTest, MistakesAreNamedBySectionAndKey)
{
    const struct {
        const char* what;
        const char* text;
        const char* mentions;  // every "|"-separated part must appear in the message
    } cases[] = {
        {"no sections", "", "names no store"},
        {"key outside a section", "type=maildir\n[M]\ntype=maildir\npath=/x\n", "type|outside any section"},
        {"no type", "[M]\npath=/x\n", "[M] type|missing"},
        {"unknown type", "[M]\ntype=mbox\npath=/x\n", "[M] type|mbox"},
        {"maildir without path", "[M]\ntype=maildir\n", "[M] path|missing"},
        {"imap without host", "[W]\ntype=imap\nuser=u\npassword=p\n", "[W] host|missing"},
        {"imap without user", "[W]\ntype=imap\nhost=h\npassword=p\n", "[W] user|missing"},
        {"imap without password", "[W]\ntype=imap\nhost=h\nuser=u\n", "[W] password_command|missing"},
        {"bad tls", "[W]\ntype=imap\nhost=h\nuser=u\npassword=p\ntls=ssl3\n", "[W] tls|ssl3"},
        {"port not a number", "[W]\ntype=imap\nhost=h\nuser=u\npassword=p\nport=imap\n", "[W] port|imap"},
        {"port out of range", "[W]\ntype=imap\nhost=h\nuser=u\npassword=p\nport=70000\n", "[W] port"},
        {"misspelt key", "[W]\ntype=imap\nhost=h\nuser=u\npasword=p\n", "[W] pasword|unknown key"},
        {"key of the other type", "[M]\ntype=maildir\npath=/x\nhost=h\n", "[M] host|unknown key"},
        {"second store bad", "[A]\ntype=maildir\npath=/x\n[B]\ntype=imap\n", "[B]"},
    };
    for (const auto& c : cases) {
        const QString path = Write(c.text);
        auto profile = Profile::Load(path);
        ASSERT_FALSE(profile.ok()) << c.what;
        const QString message = profile.error().message;
        EXPECT_TRUE(message.startsWith(path)) << c.what << ": " << message.toStdString();
        for (const QString& part : QString(c.mentions).split('|'))
            EXPECT_TRUE(message.contains(part)) << c.what << ": " << message.toStdString();
    }
}

TEST_F(ProfileTest, PasswordOthersCanReadIsRefusedWithTheFix)
{
    using P = QFile::Permission;
    const QFile::Permissions own = P::ReadOwner | P::WriteOwner;
    const QByteArray imap = "[W]\ntype=imap\nhost=h\nuser=u\n";
    const struct {
        const char* what;
        QByteArray text;
        QFile::Permissions mode;
        const char* refusedSection;  // empty: accepted
    } cases[] = {
        {"password, world-readable", imap + "password=p\n", own | P::ReadGroup | P::ReadOther, "W"},
        {"password, group-readable", imap + "password=p\n", own | P::ReadGroup, "W"},
        {"password, readable by others", imap + "password=p\n", own | P::ReadOther, "W"},
        {"password in a later section", "[A]\ntype=maildir\npath=/x\n[B]\ntype=imap\nhost=h\nuser=u\npassword=p\n",
         own | P::ReadOther, "B"},
        {"password, owner only", imap + "password=p\n", own, ""},
        {"password, owner read-only", imap + "password=p\n", P::ReadOwner, ""},
        {"password command, world-readable", imap + "password_command=pass w\n", own | P::ReadOther, ""},
        {"empty password, world-readable", imap + "password=\npassword_command=pass w\n", own | P::ReadOther, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const QString path = Write(c.text, c.mode);
        auto profile = Profile::Load(path);
        if (*c.refusedSection == 0) {
            EXPECT_TRUE(profile.ok()) << profile.error().message.toStdString();
            continue;
        }
        ASSERT_FALSE(profile.ok());
        const QString message = profile.error().message;
        EXPECT_TRUE(message.startsWith(path + QStringLiteral(": [%1] password").arg(c.refusedSection)))
            << message.toStdString();
        EXPECT_TRUE(message.endsWith(QStringLiteral("chmod 600 ") + path)) << message.toStdString();
    }
}

TEST_F(ProfileTest, MissingFileIsNotFoundAndIsNotCreated)
{
    const QString path = dir.path() + "/none/profile.ini";
    auto profile = Profile::Load(path);
    ASSERT_FALSE(profile.ok());
    EXPECT_EQ(profile.error().kind, ErrorKind::NotFound);
    EXPECT_FALSE(QFile::exists(path));
}

TEST_F(ProfileTest, EmbeddedDefaultMakesTheFiveFoldersAndKeepsMail)
{
    auto profile = Profile::Embedded(dir.path());
    ASSERT_TRUE(profile.ok()) << profile.error().message.toStdString();
    ASSERT_EQ(profile->stores.size(), 1u);
    const QString root = dir.path() + "/Mail";
    EXPECT_EQ(profile->stores[0].path, root);
    EXPECT_TRUE(profile->file.isEmpty());

    auto set = host::StoreSet::Open(*profile);
    ASSERT_TRUE(set.ok());
    auto folders = (*set)->Stores().at(0)->Folders();
    ASSERT_TRUE(folders.ok());
    QStringList uses;
    for (const auto& f : *folders) uses << f.specialUse;
    uses.sort();
    EXPECT_EQ(uses.join(",").toStdString(), "\\Archive,\\Drafts,\\Inbox,\\Sent,\\Trash");

    // A second start finds the mail where it was.
    QFile mail(root + "/cur/1700000000.M1P1.host:2,S");
    ASSERT_TRUE(mail.open(QIODevice::WriteOnly));
    mail.write("Subject: kept\r\n\r\nbody\r\n");
    mail.close();
    ASSERT_TRUE(Profile::Embedded(dir.path()).ok());
    EXPECT_TRUE(QFile::exists(mail.fileName()));
}

TEST_F(ProfileTest, StoreSetRefusesAMaildirPathThatIsNoFolder)
{
    auto profile = Profile::Load(Write("[Gone]\ntype=maildir\npath=/nonexistent/mail\n"));
    ASSERT_TRUE(profile.ok());
    auto set = host::StoreSet::Open(*profile);
    ASSERT_FALSE(set.ok());
    EXPECT_TRUE(set.error().message.contains("[Gone] path"));
}

// The password command end to end: the store runs it and logs in with its
// first line, against a private Dovecot.
TEST_F(ProfileTest, PasswordCommandLogsIn)
{
    if (!DovecotServer::Available()) GTEST_SKIP() << "dovecot is not installed";
    DovecotServer server;
    QString error;
    ASSERT_TRUE(server.Start(&error)) << error.toStdString();

    const struct {
        const char* command;
        bool loggedIn;
    } cases[] = {
        {"printf 'secret\\nnot the password\\n'", true},
        {"printf 'wrong\\n'", false},
        {"exit 3", false},
    };
    for (const auto& c : cases) {
        const QString path = Write(QStringLiteral("[Test]\ntype=imap\nhost=127.0.0.1\nport=%1\ntls=none\nuser=%2\n"
                                                  "password_command=\"%3\"\ntimeout=10\n")
                                       .arg(server.Port())
                                       .arg(DovecotServer::User(), c.command)
                                       .toUtf8());
        auto profile = Profile::Load(path);
        ASSERT_TRUE(profile.ok()) << profile.error().message.toStdString();
        auto set = host::StoreSet::Open(*profile);
        ASSERT_TRUE(set.ok());
        auto folders = (*set)->Stores().at(0)->Folders();
        EXPECT_EQ(folders.ok(), c.loggedIn) << c.command;
    }
}

}  // namespace
}  // namespace mv::test
