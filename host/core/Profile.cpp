#include "Profile.h"

#include "platform/os/KnownFolders.h"
#include "platform/stores/maildir/MaildirLayout.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>

#include <functional>

#include <sys/stat.h>

namespace mv::host {

namespace {

using stores::TlsMode;

// Known keys per store type; anything else in a section is a mistake worth
// reporting (a misspelt "pasword_command" must not silently do nothing).
const QStringList kMaildirKeys = {"type", "path", "address"};
const QStringList kImapKeys = {"type", "host", "port", "tls", "user", "password", "password_command",
                               "pinned_certificate", "address", "timeout", "auth", "token_command"};

const struct {
    const char* name;
    TlsMode mode;
    quint16 defaultPort;
} kTlsModes[] = {
    {"implicit", TlsMode::Implicit, 993},
    {"starttls", TlsMode::StartTls, 143},
    {"none", TlsMode::None, 143},
};

const struct {
    const char* name;
    stores::ImapAuth auth;
} kAuthModes[] = {
    {"plain", stores::ImapAuth::Password},
    {"xoauth2", stores::ImapAuth::XOAuth2},
    {"oauthbearer", stores::ImapAuth::OAuthBearer},
};

class SectionReader {
public:
    SectionReader(QSettings& ini, QString file, QString section)
        : m_ini(ini), m_file(std::move(file)), m_section(std::move(section))
    {
    }

    Error Fail(const QString& key, const QString& problem) const
    {
        const QString where = key.isEmpty() ? QStringLiteral("[%1]").arg(m_section)
                                            : QStringLiteral("[%1] %2").arg(m_section, key);
        return Error::permanent(QStringLiteral("%1: %2: %3").arg(m_file, where, problem));
    }

    // QSettings splits unquoted values at commas; a profile value is one text.
    QString Value(const QString& key) const
    {
        const QVariant v = m_ini.value(key);
        if (v.typeId() == QMetaType::QStringList) return v.toStringList().join(QStringLiteral(", ")).trimmed();
        return v.toString().trimmed();
    }
    bool Has(const QString& key) const { return m_ini.contains(key) && !Value(key).isEmpty(); }

    Result<QString> Required(const QString& key) const
    {
        if (!Has(key)) return Fail(key, QStringLiteral("missing; this store needs it"));
        return Value(key);
    }

    const QString& section() const { return m_section; }

private:
    QSettings& m_ini;
    QString m_file;
    QString m_section;
};

QString ExpandPath(const QString& path, const QString& profileFile)
{
    if (path == QLatin1String("~")) return QDir::homePath();
    if (path.startsWith(QLatin1String("~/"))) return QDir::homePath() + path.mid(1);
    if (QDir::isAbsolutePath(path)) return QDir::cleanPath(path);
    // Relative to the profile's own folder, so a profile can travel with its mail.
    return QDir::cleanPath(QFileInfo(profileFile).absoluteDir().filePath(path));
}

Result<StoreProfile> ReadMaildir(const SectionReader& r, const QString& file)
{
    StoreProfile store;
    store.type = StoreProfile::Type::Maildir;
    auto path = r.Required(QStringLiteral("path"));
    if (!path) return path.error();
    store.path = ExpandPath(*path, file);
    store.address = r.Value(QStringLiteral("address"));
    return store;
}

// How the account logs in: a password, or an OAuth2 token that only a
// command can give (tokens expire within the hour). A key of the other way
// is refused rather than ignored, so nobody believes it is used.
Status ReadSecret(const SectionReader& r, stores::ImapSettings& s)
{
    const QString auth = r.Value(QStringLiteral("auth")).toLower();
    bool known = auth.isEmpty();
    for (const auto& m : kAuthModes) {
        if (auth == QLatin1String(m.name)) {
            s.auth = m.auth;
            known = true;
        }
    }
    if (!known)
        return r.Fail(QStringLiteral("auth"), QStringLiteral("\"%1\" is not one of plain, xoauth2, oauthbearer")
                                                  .arg(r.Value(QStringLiteral("auth"))));
    s.passwordCommand = r.Value(QStringLiteral("password_command"));
    s.password = r.Value(QStringLiteral("password"));
    s.tokenCommand = r.Value(QStringLiteral("token_command"));
    if (s.auth == stores::ImapAuth::Password) {
        if (!s.tokenCommand.isEmpty())
            return r.Fail(QStringLiteral("token_command"),
                          QStringLiteral("only used with auth=xoauth2 or auth=oauthbearer"));
        if (s.passwordCommand.isEmpty() && s.password.isEmpty())
            return r.Fail(QStringLiteral("password_command"),
                          QStringLiteral("missing; give password_command (or password) for this store"));
        return Status::success();
    }
    for (const char* key : {"password", "password_command"})
        if (r.Has(QLatin1String(key)))
            return r.Fail(QLatin1String(key),
                          QStringLiteral("not used with auth=%1; the token_command gives the access token").arg(auth));
    if (s.tokenCommand.isEmpty())
        return r.Fail(QStringLiteral("token_command"),
                      QStringLiteral("missing; auth=%1 needs a command that prints an access token").arg(auth));
    return Status::success();
}

Result<StoreProfile> ReadImap(const SectionReader& r)
{
    StoreProfile store;
    store.type = StoreProfile::Type::Imap;
    stores::ImapSettings& s = store.imap;
    auto host = r.Required(QStringLiteral("host"));
    if (!host) return host.error();
    s.host = *host;
    auto user = r.Required(QStringLiteral("user"));
    if (!user) return user.error();
    s.user = *user;

    s.tls = TlsMode::Implicit;
    quint16 defaultPort = 993;
    if (r.Has(QStringLiteral("tls"))) {
        const QString tls = r.Value(QStringLiteral("tls")).toLower();
        bool known = false;
        for (const auto& m : kTlsModes) {
            if (tls == QLatin1String(m.name)) {
                s.tls = m.mode;
                defaultPort = m.defaultPort;
                known = true;
            }
        }
        if (!known)
            return r.Fail(QStringLiteral("tls"), QStringLiteral("\"%1\" is not one of implicit, starttls, none")
                                                     .arg(r.Value(QStringLiteral("tls"))));
    }
    s.port = defaultPort;
    if (r.Has(QStringLiteral("port"))) {
        bool ok = false;
        const uint port = r.Value(QStringLiteral("port")).toUInt(&ok);
        if (!ok || port == 0 || port > 65535)
            return r.Fail(QStringLiteral("port"),
                          QStringLiteral("\"%1\" is not a port number (1-65535)").arg(r.Value(QStringLiteral("port"))));
        s.port = static_cast<quint16>(port);
    }
    if (r.Has(QStringLiteral("timeout"))) {
        bool ok = false;
        const int seconds = r.Value(QStringLiteral("timeout")).toInt(&ok);
        if (!ok || seconds <= 0)
            return r.Fail(QStringLiteral("timeout"), QStringLiteral("\"%1\" is not a number of seconds")
                                                         .arg(r.Value(QStringLiteral("timeout"))));
        s.timeoutSeconds = seconds;
    }
    if (Status secret = ReadSecret(r, s); !secret) return secret.error();
    s.pinnedCertificate = r.Value(QStringLiteral("pinned_certificate"));
    store.address = s.ownAddress = r.Value(QStringLiteral("address"));
    return store;
}

// A plain password in a file that group or others can read is refused, not
// warned about: the start-up cannot tell who has read it already, and the
// fix is one command. Returns the refusal, or an empty error message.
QString ExposedPassword(QSettings& ini, const QString& path)
{
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0 || (st.st_mode & (S_IRGRP | S_IROTH)) == 0)
        return {};
    for (const QString& section : ini.childGroups()) {
        const QVariant v = ini.value(section + QStringLiteral("/password"));
        const QString value = v.typeId() == QMetaType::QStringList ? v.toStringList().join(QString()) : v.toString();
        if (value.trimmed().isEmpty()) continue;
        return QStringLiteral("%1: [%2] password: the profile holds a password and can be read by other users "
                              "(mode 0%3); make it yours alone with: chmod 600 %1")
            .arg(path, section)
            .arg(st.st_mode & 0777, 3, 8, QLatin1Char('0'));
    }
    return {};
}

}  // namespace

QString Profile::DefaultPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/Mailvane/profile.ini");
}

Result<Profile> Profile::Load(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists()) return Error::notFound(QStringLiteral("%1: the profile does not exist").arg(path));
    if (!info.isFile() || !info.isReadable())
        return Error::permanent(QStringLiteral("%1: the profile cannot be read").arg(path));

    QSettings ini(path, QSettings::IniFormat);
    if (ini.status() != QSettings::NoError)
        return Error::permanent(QStringLiteral("%1: the profile is not a valid INI file").arg(path));
    // Keys outside any section land in QSettings' "General" group.
    if (!ini.childKeys().isEmpty())
        return Error::permanent(
            QStringLiteral("%1: \"%2\" stands outside any section; every key belongs to a [store] section")
                .arg(path, ini.childKeys().first()));

    if (const QString exposed = ExposedPassword(ini, path); !exposed.isEmpty()) return Error::permanent(exposed);

    Profile profile;
    profile.file = path;
    const QStringList sections = ini.childGroups();
    if (sections.isEmpty()) return Error::permanent(QStringLiteral("%1: the profile names no store").arg(path));
    for (const QString& section : sections) {
        ini.beginGroup(section);
        const SectionReader r(ini, path, section);
        const QString type = r.Value(QStringLiteral("type")).toLower();
        const bool isMaildir = type == QLatin1String("maildir"), isImap = type == QLatin1String("imap");
        Result<StoreProfile> store = Error::permanent({});
        if (!r.Has(QStringLiteral("type"))) {
            store = r.Fail(QStringLiteral("type"), QStringLiteral("missing; give type=maildir or type=imap"));
        } else if (!isMaildir && !isImap) {
            store = r.Fail(QStringLiteral("type"), QStringLiteral("unknown store type \"%1\"; use maildir or imap")
                                                       .arg(r.Value(QStringLiteral("type"))));
        } else {
            // Keys are written in lower case; anything else is reported, not ignored.
            const QStringList& known = isMaildir ? kMaildirKeys : kImapKeys;
            QString unknown;
            for (const QString& key : ini.childKeys())
                if (unknown.isEmpty() && !known.contains(key)) unknown = key;
            if (!unknown.isEmpty())
                store = r.Fail(unknown, QStringLiteral("unknown key for a %1 store").arg(type));
            else
                store = isMaildir ? ReadMaildir(r, path) : ReadImap(r);
        }
        ini.endGroup();
        if (!store) return store.error();
        store->section = section;
        profile.stores.push_back(std::move(*store));
    }
    return profile;
}

Result<Profile> Profile::Embedded(const QString& dataDir)
{
    const QString root = dataDir + QStringLiteral("/Mail");
    if (Status s = CreateDefaultMaildir(root); !s) return s.error();
    Profile profile;
    StoreProfile local;
    local.section = QStringLiteral("Local Mail");
    local.type = StoreProfile::Type::Maildir;
    local.path = root;
    profile.stores.push_back(std::move(local));
    return profile;
}

Result<Profile> Profile::LoadDefault()
{
    const QString path = DefaultPath();
    if (QFileInfo::exists(path)) return Load(path);
    return Embedded(os::DataDir());
}

Status CreateDefaultMaildir(const QString& root)
{
    using stores::maildir::MaildirLayout;
    for (const char* sub : {"cur", "new", "tmp"}) {
        if (!QDir().mkpath(root + QLatin1Char('/') + QLatin1String(sub)))
            return Error::permanent(QStringLiteral("Cannot create the mail folder %1.").arg(root));
    }
    const MaildirLayout layout(root, MaildirLayout::Kind::MaildirPlusPlus);
    for (const char* name : {"Sent", "Drafts", "Trash", "Archive"}) {
        if (MaildirLayout::IsMaildir(root + QStringLiteral("/.") + QLatin1String(name))) continue;
        auto made = layout.Create(QString(), QString::fromLatin1(name));
        if (!made) return made.error();
    }
    return Status::success();
}

}  // namespace mv::host
