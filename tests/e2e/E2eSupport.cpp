#include "E2eSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>

#include <utime.h>

namespace mv::e2e {

namespace {

QString Escape(QString s)
{
    return s.replace(QLatin1Char('&'), QStringLiteral("&amp;"))
        .replace(QLatin1Char('<'), QStringLiteral("&lt;"))
        .replace(QLatin1Char('\''), QStringLiteral("&apos;"))
        .replace(QLatin1Char('"'), QStringLiteral("&quot;"));
}

QStringList ReadKeywordFile(const QString& dir)
{
    QStringList names;
    QFile f(dir + QStringLiteral("/dovecot-keywords"));
    if (!f.open(QIODevice::ReadOnly)) return names;
    for (const QByteArray& line : f.readAll().split('\n')) {
        const int space = line.indexOf(' ');
        if (space <= 0) continue;
        const int index = line.left(space).toInt();
        while (names.size() <= index) names << QString();
        names[index] = QString::fromUtf8(line.mid(space + 1)).trimmed();
    }
    return names;
}

QString MessageIdOf(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) return {};
    static const QRegularExpression kId(QStringLiteral("^Message-ID:\\s*<([^>]*)>"),
                                        QRegularExpression::CaseInsensitiveOption | QRegularExpression::MultilineOption);
    static const QRegularExpression kSubject(QStringLiteral("^Subject:\\s*(.*?)\\r?$"),
                                             QRegularExpression::CaseInsensitiveOption |
                                                 QRegularExpression::MultilineOption);
    const QString head = QString::fromUtf8(f.read(8192));
    if (const auto m = kId.match(head); m.hasMatch()) return m.captured(1);
    // A message without Message-ID is known by its Subject.
    const auto s = kSubject.match(head);
    return s.hasMatch() ? QStringLiteral("subject:") + s.captured(1) : QString();
}

// "" for the INBOX, then every folder of the Maildir++ tree by path.
QStringList FolderPaths(const QString& root)
{
    QStringList paths{QString()};
    for (QString name : QDir(root).entryList({QStringLiteral(".*")}, QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot))
        paths << name.mid(1).replace(QLatin1Char('.'), QLatin1Char('/'));
    return paths;
}

QString FolderDirOf(const QString& root, const QString& path)
{
    if (path.isEmpty() || path.compare(QStringLiteral("Inbox"), Qt::CaseInsensitive) == 0) return root;
    return root + QStringLiteral("/.") + QString(path).replace(QLatin1Char('/'), QLatin1Char('.'));
}

QStringList MessageFiles(const QString& dir)
{
    QStringList out;
    for (const char* sub : {"/cur", "/new"})
        for (const QString& f : QDir(dir + QLatin1String(sub)).entryList(QDir::Files))
            out << dir + QLatin1String(sub) + QLatin1Char('/') + f;
    return out;
}

}  // namespace

World::World(Backend backend) : World(WorldStores{backend == Backend::Maildir, backend == Backend::Imap, {}}) {}

World::World(WorldStores stores) : m_backend(stores.local ? Backend::Maildir : Backend::Imap), m_stores(std::move(stores)) {}
World::~World() = default;

bool World::Start(QString* error, bool* skip)
{
    *skip = false;
    if (!m_dir.isValid()) {
        *error = QStringLiteral("no temporary folder");
        return false;
    }
    QString profile;
    if (m_stores.local) {
        m_localRoot = m_dir.filePath(QStringLiteral("Mail"));
        for (const char* sub : {"/cur", "/new", "/tmp"}) QDir().mkpath(m_localRoot + QLatin1String(sub));
        profile += QStringLiteral("[Local]\ntype=maildir\npath=%1\naddress=bob@example.org\n").arg(m_localRoot);
    }
    if (m_stores.server) {
        if (!test::DovecotServer::Available()) {
            *skip = true;
            *error = QStringLiteral("Dovecot is not installed");
            return false;
        }
        test::DovecotOptions options;
        options.hideCapabilities = m_stores.hideCapabilities;
        m_dovecot = std::make_unique<test::DovecotServer>(options);
        m_serverRoot = m_dovecot->MaildirPath();
        for (const char* sub : {"/cur", "/new", "/tmp"}) QDir().mkpath(m_serverRoot + QLatin1String(sub));
        if (!m_dovecot->Start(error)) return false;
        profile += QStringLiteral("[Server]\ntype=imap\nhost=127.0.0.1\nport=%1\ntls=none\nuser=%2\npassword=%3\n")
                       .arg(m_dovecot->Port())
                       .arg(test::DovecotServer::User(), test::DovecotServer::Password());
    }
    m_root = Root(DefaultSide());
    QDir().mkpath(m_dir.filePath(QStringLiteral("config/Mailvane")));
    QFile f(m_dir.filePath(QStringLiteral("profile.ini")));
    // Owner only, as the program demands of a profile holding a password.
    if (!f.open(QIODevice::WriteOnly) || !f.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) ||
        f.write(profile.toUtf8()) < 0) {
        *error = QStringLiteral("cannot write the profile");
        return false;
    }
    return true;
}

QString World::FolderDir(const QString& path) const { return FolderDir(DefaultSide(), path); }
void World::CreateFolder(const QString& path) { CreateFolder(DefaultSide(), path); }
void World::Write(const QString& folder, const Mail& mail) { Write(DefaultSide(), folder, mail); }

QString World::FolderDir(Side side, const QString& path) const { return FolderDirOf(Root(side), path); }

void World::CreateFolder(Side side, const QString& path)
{
    const QString dir = FolderDir(side, path);
    for (const char* sub : {"/cur", "/new", "/tmp"}) QDir().mkpath(dir + QLatin1String(sub));
    QFile(dir + QStringLiteral("/maildirfolder")).open(QIODevice::WriteOnly);
    HandOver();
}

void World::Write(Side side, const QString& folder, const Mail& mail)
{
    static int seq = 0;
    const QDateTime when = QDateTime::currentDateTimeUtc().addSecs(mail.ageDays ? -86400LL * mail.ageDays : -3600);
    QString letters = mail.flags;
    const QString dir = FolderDir(side, folder);
    for (const QString& keyword : mail.keywords) {
        QStringList names = ReadKeywordFile(dir);
        int index = static_cast<int>(names.indexOf(keyword));
        if (index < 0) {
            index = static_cast<int>(names.size());
            QFile kw(dir + QStringLiteral("/dovecot-keywords"));
            kw.open(QIODevice::Append);
            kw.write(QStringLiteral("%1 %2\n").arg(index).arg(keyword).toUtf8());
        }
        letters += QChar(QLatin1Char('a').unicode() + index);
    }
    std::sort(letters.begin(), letters.end());
    const QString name = QStringLiteral("%1.M%2P%3.e2e:2,%4")
                             .arg(when.toSecsSinceEpoch()).arg(++seq).arg(QCoreApplication::applicationPid()).arg(letters);
    QByteArray text = "From: " + mail.from.toUtf8() + "\r\nTo: " + mail.to.toUtf8() + "\r\n";
    if (!mail.cc.isEmpty()) text += "Cc: " + mail.cc.toUtf8() + "\r\n";
    text += "Subject: " + mail.subject.toUtf8() + "\r\n";
    if (!mail.noMessageId) text += "Message-ID: <" + mail.id.toUtf8() + ">\r\n";
    text += "Date: " + when.toString(Qt::RFC2822Date).toUtf8() + "\r\n" + mail.extraHeaders.toUtf8();
    text += "MIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n" + mail.body.toUtf8() + "\r\n";
    // Written in tmp/ and renamed into cur/, so that a store reading the
    // folder meanwhile never sees half a message.
    const QString staged = dir + QStringLiteral("/tmp/") + name;
    QFile f(staged);
    f.open(QIODevice::WriteOnly);
    f.write(text);
    f.close();
    struct utimbuf times {when.toSecsSinceEpoch(), when.toSecsSinceEpoch()};
    ::utime(QFile::encodeName(staged).constData(), &times);
    QFile::rename(staged, dir + QStringLiteral("/cur/") + name);
}

void World::HandOver() const
{
    if (m_dovecot) m_dovecot->HandMailToMailUser();
}

QStringList World::Ids(const QString& folder) const { return Ids(DefaultSide(), folder); }

QStringList World::Ids(Side side, const QString& folder) const
{
    QStringList ids;
    for (const QString& f : MessageFiles(FolderDir(side, folder))) ids << MessageIdOf(f);
    ids.sort();
    return ids;
}

QList<StoredMail> World::Contents(Side side) const
{
    QList<StoredMail> out;
    const QString root = Root(side);
    for (const QString& folder : FolderPaths(root)) {
        const QString dir = FolderDirOf(root, folder);
        const QStringList names = ReadKeywordFile(dir);
        for (const char* sub : {"/cur", "/new", "/tmp"}) {
            for (const QString& file : QDir(dir + QLatin1String(sub)).entryList(QDir::Files)) {
                StoredMail m;
                m.folder = folder;
                m.id = MessageIdOf(dir + QLatin1String(sub) + QLatin1Char('/') + file);
                m.inTmp = QLatin1String(sub) == QLatin1String("/tmp");
                const qsizetype info = file.lastIndexOf(QStringLiteral(":2,"));
                for (const QChar c : info < 0 ? QString() : file.mid(info + 3)) {
                    if (c.isUpper()) m.flags += c;
                    else if (c >= QLatin1Char('a') && c <= QLatin1Char('z') && c.unicode() - 'a' < names.size())
                        m.keywords << names.at(c.unicode() - 'a');
                }
                out << m;
            }
        }
    }
    return out;
}

QHash<QString, QStringList> World::AllIds() const
{
    QHash<QString, QStringList> out;
    for (const QString& path : FolderPaths(m_root)) out.insert(path, Ids(path));
    return out;
}

QStringList World::Keywords(const QString& folder, const QString& id) const
{
    const QString dir = FolderDir(folder);
    const QStringList names = ReadKeywordFile(dir);
    for (const QString& f : MessageFiles(dir)) {
        if (MessageIdOf(f) != id) continue;
        QStringList out;
        const int info = static_cast<int>(f.lastIndexOf(QStringLiteral(":2,")));
        if (info < 0) return out;
        for (const QChar c : f.mid(info + 3))
            if (c >= QLatin1Char('a') && c <= QLatin1Char('z') && c.unicode() - 'a' < names.size())
                out << names.at(c.unicode() - 'a');
        return out;
    }
    return {QStringLiteral("(message not found)")};
}

QProcessEnvironment World::Environment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    // The program as a user starts it from a terminal with no display: a
    // bare `mailvane` must then say so instead of opening windows.
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) env.remove(QString::fromLatin1(name));
    env.insert(QStringLiteral("HOME"), m_dir.path());
    env.insert(QStringLiteral("XDG_DATA_HOME"), m_dir.filePath(QStringLiteral("data")));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_dir.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), m_dir.filePath(QStringLiteral("cache")));
    env.insert(QStringLiteral("MAILVANE_INSTALL_DIR"), QStringLiteral(MV_BINARY_DIR));
    env.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0"));
    return env;
}

QString World::Program() const
{
    return QStringLiteral(MV_MAILVANE_BIN);
}

QStringList World::BaseArgs() const
{
    return {QStringLiteral("--profile"), m_dir.filePath(QStringLiteral("profile.ini"))};
}

Result World::Run(const QStringList& args, int timeoutMs) const
{
    QProcess p;
    p.setProcessEnvironment(Environment());
    p.start(Program(), BaseArgs() + args);
    Result r;
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished();
        r.err = QStringLiteral("timed out");
        return r;
    }
    r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = QString::fromUtf8(p.readAllStandardOutput());
    r.err = QString::fromUtf8(p.readAllStandardError());
    return r;
}

QString World::LogText() const
{
    QFile f(m_dir.filePath(QStringLiteral("data/Sorquin Software/Mailvane/mv.log")));
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

QHash<QString, QString> World::FolderIds(QString* storeId) const
{
    QHash<QString, QString> out;
    const Result r = Run({QStringLiteral("folders")});
    static const QRegularExpression kStore(QStringLiteral("store ([0-9A-F]+)$"));
    static const QRegularExpression kFolder(QStringLiteral("^  ([0-9A-F]+)  (.*?)(  \\(.*\\))?$"));
    for (const QString& line : r.out.split(QLatin1Char('\n'))) {
        if (auto m = kFolder.match(line); m.hasMatch()) out.insert(m.captured(2), m.captured(1));
        else if (auto s = kStore.match(line); s.hasMatch()) *storeId = s.captured(1);
    }
    return out;
}

FolderRef World::Folder(Side side, const QString& path) const
{
    // The Maildir store is shown by its section's name, the server by user@host.
    const QString local = QStringLiteral("Local");
    const Result r = Run({QStringLiteral("folders")});
    static const QRegularExpression kStore(QStringLiteral("^(.*)  store ([0-9A-F]+)$"));
    static const QRegularExpression kFolder(QStringLiteral("^  ([0-9A-F]+)  (.*?)(  \\(.*\\))?$"));
    const bool inbox = path.compare(QStringLiteral("Inbox"), Qt::CaseInsensitive) == 0;
    FolderRef ref;
    bool inStore = false;
    for (const QString& line : r.out.split(QLatin1Char('\n'))) {
        if (auto s = kStore.match(line); s.hasMatch()) {
            inStore = (s.captured(1).trimmed() == local) == (side == Side::Local);
            if (inStore) ref.storeId = s.captured(2);
        } else if (auto m = kFolder.match(line); m.hasMatch() && inStore) {
            if (m.captured(2) == path || (inbox && m.captured(2).compare(path, Qt::CaseInsensitive) == 0))
                ref.entryId = m.captured(1);
        }
    }
    return ref;
}

QByteArray World::RulesXml(const QStringList& rows)
{
    QFile sample(QStringLiteral(MV_SOURCE_DIR "/resources/rules/sample-rules.xml"));
    sample.open(QIODevice::ReadOnly);
    QByteArray text = sample.readAll();
    const int start = static_cast<int>(text.indexOf("<rs:data>"));
    text.truncate(start);
    text += "<rs:data>\n";
    for (const QString& row : rows) text += "\t<z:row " + row.toUtf8() + "/>\n";
    return text + "</rs:data>\n</xml>\n";
}

bool World::Import(const QStringList& rows, QString* error) const
{
    const QString path = m_dir.filePath(QStringLiteral("rules.xml"));
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly)) return false;
    f.write(RulesXml(rows));
    f.close();
    const Result r = Run({QStringLiteral("import"), path});
    if (r.code != 0) *error = r.err;
    return r.code == 0;
}

QString RuleRow(int sortId, const RuleDef& rule, const FolderRef& src, const FolderRef& dst)
{
    QHash<QString, QString> a{{QStringLiteral("FromAddress"), {}}, {QStringLiteral("ToAddress"), {}},
                              {QStringLiteral("CcAddress"), {}},   {QStringLiteral("Subject"), {}},
                              {QStringLiteral("Message"), {}},     {QStringLiteral("Importance"), QStringLiteral("3")},
                              {QStringLiteral("Status"), QStringLiteral("2")},
                              {QStringLiteral("FlagStatus"), QStringLiteral("0")},
                              {QStringLiteral("MsgAgeID"), QStringLiteral("13")},
                              {QStringLiteral("LastVerb"), QStringLiteral("0")}};
    for (auto it = rule.criteria.cbegin(); it != rule.criteria.cend(); ++it) a.insert(it.key(), it.value());
    QString row = QStringLiteral("RuleID='%1' RuleName='%2' SortID='%1' Active='%3' SrcEntryID='%4' SrcStoreID='%5' "
                                 "DstEntryID='%6' DstStoreID='%7'")
                      .arg(sortId)
                      .arg(Escape(rule.name), rule.active ? QStringLiteral("-1") : QStringLiteral("0"), src.entryId,
                           src.storeId, dst.entryId, dst.storeId);
    for (auto it = a.cbegin(); it != a.cend(); ++it) row += QStringLiteral(" %1='%2'").arg(it.key(), Escape(it.value()));
    return row;
}

QString RuleRow(int sortId, const RuleDef& rule, const QHash<QString, QString>& folderIds, const QString& storeId)
{
    // The INBOX is "Inbox" in a Maildir and "INBOX" on a server.
    auto folder = [&folderIds, &storeId](const QString& path) {
        if (path.compare(QStringLiteral("Inbox"), Qt::CaseInsensitive) == 0)
            return FolderRef{folderIds.value(QStringLiteral("Inbox"), folderIds.value(QStringLiteral("INBOX"))), storeId};
        return FolderRef{folderIds.value(path), storeId};
    };
    return RuleRow(sortId, rule, folder(rule.src), folder(rule.dst));
}

}  // namespace mv::e2e
