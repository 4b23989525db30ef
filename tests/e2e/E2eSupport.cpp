#include "E2eSupport.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <utime.h>

namespace mv::e2e {

namespace {

// The keyword names by letter index; the file numbers them from 0 up, one a line.
QStringList ReadKeywordFile(const QString& dir)
{
    QStringList names;
    QFile f(dir + QStringLiteral("/dovecot-keywords"));
    if (f.open(QIODevice::ReadOnly))
        for (const QByteArray& line : f.readAll().split('\n'))
            if (const int space = line.indexOf(' '); space > 0) names << QString::fromUtf8(line.mid(space + 1)).trimmed();
    return names;
}

QString MessageIdOf(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) return {};
    const auto options = QRegularExpression::CaseInsensitiveOption | QRegularExpression::MultilineOption;
    static const QRegularExpression kId(QStringLiteral("^Message-ID:\\s*<([^>]*)>"), options);
    static const QRegularExpression kSubject(QStringLiteral("^Subject:\\s*(.*?)\\r?$"), options);
    const QString head = QString::fromUtf8(f.read(8192));
    if (const auto m = kId.match(head); m.hasMatch()) return m.captured(1);
    // A message without Message-ID is known by its Subject.
    const auto s = kSubject.match(head);
    return s.hasMatch() ? QStringLiteral("subject:") + s.captured(1) : QString();
}

bool IsInbox(const QString& path) { return path.isEmpty() || path.compare(QStringLiteral("Inbox"), Qt::CaseInsensitive) == 0; }

QString FolderDirOf(const QString& root, const QString& path)
{
    return IsInbox(path) ? root : root + QStringLiteral("/.") + QString(path).replace(QLatin1Char('/'), QLatin1Char('.'));
}

void MakeMaildir(const QString& dir)
{
    for (const char* sub : {"/cur", "/new", "/tmp"}) QDir().mkpath(dir + QLatin1String(sub));
}

}  // namespace

World::World(WorldStores stores) : m_stores(std::move(stores)) {}
World::~World() = default;

QString World::Start()
{
    if (!m_dir.isValid()) return QStringLiteral("no temporary folder");
    QString profile;
    if (m_stores.local) {
        m_localRoot = Path(QStringLiteral("Mail"));
        MakeMaildir(m_localRoot);
        profile += QStringLiteral("[Local]\ntype=maildir\npath=%1\naddress=bob@example.org\n").arg(m_localRoot);
    }
    if (m_stores.server) {
        m_dovecot = std::make_unique<test::DovecotServer>(test::DovecotOptions{m_stores.hideCapabilities});
        m_serverRoot = m_dovecot->MaildirPath();
        MakeMaildir(m_serverRoot);
        if (QString error; !m_dovecot->Start(&error)) return error;
        profile += QStringLiteral("[Server]\ntype=imap\nhost=127.0.0.1\nport=%1\ntls=none\nuser=%2\npassword=%3\n")
                       .arg(m_dovecot->Port())
                       .arg(test::DovecotServer::User(), test::DovecotServer::Password());
    }
    QDir().mkpath(Path(QStringLiteral("config/Mailvane")));
    QFile f(ProfilePath());
    // Owner only, as the program demands of a profile holding a password.
    if (!f.open(QIODevice::WriteOnly) || !f.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) ||
        f.write(profile.toUtf8()) < 0)
        return QStringLiteral("cannot write the profile");
    return {};
}

void World::CreateFolder(const QString& path, Side side)
{
    const QString dir = FolderDirOf(Root(side), path);
    MakeMaildir(dir);
    QFile(dir + QStringLiteral("/maildirfolder")).open(QIODevice::WriteOnly);
    HandOver();
}

void World::Write(const QString& folder, const Mail& mail, Side side)
{
    static int seq = 0;
    const QDateTime when = QDateTime::currentDateTimeUtc().addSecs(mail.ageDays ? -86400LL * mail.ageDays : -3600);
    QString letters;
    const QString dir = FolderDirOf(Root(side), folder);
    for (const QString& keyword : mail.keywords) {
        const QStringList names = ReadKeywordFile(dir);
        qsizetype index = names.indexOf(keyword);
        if (index < 0) {
            index = names.size();
            if (QFile kw(dir + QStringLiteral("/dovecot-keywords")); kw.open(QIODevice::Append))
                kw.write(QStringLiteral("%1 %2\n").arg(index).arg(keyword).toUtf8());
        }
        letters += QChar(static_cast<char16_t>(u'a' + index));
    }
    std::sort(letters.begin(), letters.end());
    QString name = QStringLiteral("%1.M%2P%3.e2e").arg(when.toSecsSinceEpoch()).arg(++seq).arg(QCoreApplication::applicationPid());
    if (!mail.toNew) name += QStringLiteral(":2,") + letters;
    QByteArray text = "From: " + mail.from.toUtf8() + "\r\nTo: Bob <bob@example.org>\r\nSubject: " + mail.subject.toUtf8() + "\r\n";
    if (!mail.noMessageId) text += "Message-ID: <" + mail.id.toUtf8() + ">\r\n";
    text += "Date: " + when.toString(Qt::RFC2822Date).toUtf8() + "\r\n\r\nNothing to see.\r\n";
    // Written in tmp/ and renamed, so that a store reading the folder
    // meanwhile never sees half a message.
    const QString staged = dir + QStringLiteral("/tmp/") + name;
    if (QFile f(staged); f.open(QIODevice::WriteOnly)) f.write(text);
    struct utimbuf times {when.toSecsSinceEpoch(), when.toSecsSinceEpoch()};
    ::utime(QFile::encodeName(staged).constData(), &times);
    QFile::rename(staged, dir + (mail.toNew ? QStringLiteral("/new/") : QStringLiteral("/cur/")) + name);
}

void World::HandOver() const
{
    if (m_dovecot) m_dovecot->HandMailToMailUser();
}

QList<StoredMail> World::Contents(Side side) const
{
    const QString root = Root(side);
    QStringList folders{QString()};  // the INBOX, then the Maildir++ folders
    for (QString name : QDir(root).entryList({QStringLiteral(".*")}, QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot))
        folders << name.mid(1).replace(QLatin1Char('.'), QLatin1Char('/'));
    QList<StoredMail> out;
    for (const QString& folder : folders) {
        const QString dir = FolderDirOf(root, folder);
        const QStringList names = ReadKeywordFile(dir);
        for (const char* sub : {"/cur", "/new", "/tmp"}) {
            for (const QString& file : QDir(dir + QLatin1String(sub)).entryList(QDir::Files)) {
                StoredMail m{folder, MessageIdOf(dir + QLatin1String(sub) + QLatin1Char('/') + file), {}, {},
                             QLatin1String(sub) == QLatin1String("/tmp")};
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

QStringList World::Ids(const QString& folder, Side side) const
{
    QStringList ids;
    for (const StoredMail& m : Contents(side))
        if (!m.inTmp && (IsInbox(folder) ? m.folder.isEmpty() : m.folder == folder)) ids << m.id;
    ids.sort();
    return ids;
}

QHash<QString, FolderRef> World::Folders(Side side) const
{
    // The Maildir store is shown by its section's name, the server by user@host.
    static const QRegularExpression kStore(QStringLiteral("^(.*)  store ([0-9A-F]+)$"));
    static const QRegularExpression kFolder(QStringLiteral("^  ([0-9A-F]+)  (.*?)(  \\(.*\\))?$"));
    QHash<QString, FolderRef> out;
    QString storeId;  // empty while in the other store
    for (const QString& line : Run({QStringLiteral("folders")}).out.split(QLatin1Char('\n'))) {
        if (auto s = kStore.match(line); s.hasMatch()) {
            storeId = (s.captured(1).trimmed() == QLatin1String("Local")) == (Resolve(side) == Side::Local) ? s.captured(2) : QString();
        } else if (auto m = kFolder.match(line); m.hasMatch() && !storeId.isEmpty()) {
            out.insert(IsInbox(m.captured(2)) ? QStringLiteral("Inbox") : m.captured(2), {m.captured(1), storeId});
        }
    }
    return out;
}

bool World::Import(const QStringList& rows, QString* error) const
{
    QFile sample(QStringLiteral(MV_SOURCE_DIR "/resources/rules/sample-rules.xml"));
    sample.open(QIODevice::ReadOnly);
    QByteArray text = sample.readAll();
    text.truncate(text.indexOf("<rs:data>"));
    text += "<rs:data>\n";
    for (const QString& row : rows) text += "\t<z:row " + row.toUtf8() + "/>\n";
    QFile f(Path(QStringLiteral("rules.xml")));
    if (!f.open(QIODevice::WriteOnly) || f.write(text + "</rs:data>\n</xml>\n") < 0) return false;
    f.close();
    const Result r = Run({QStringLiteral("import"), f.fileName()});
    *error = r.err;
    return r.code == 0;
}

void World::Launch(QProcess& process, const QStringList& args) const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    // The program as a user starts it from a terminal with no display: a
    // bare `mailvane` must then say so instead of opening windows.
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) env.remove(QString::fromLatin1(name));
    env.insert(QStringLiteral("HOME"), m_dir.path());
    for (const char* name : {"data", "config", "cache"})
        env.insert(QStringLiteral("XDG_%1_HOME").arg(QString::fromLatin1(name).toUpper()), Path(QLatin1String(name)));
    env.insert(QStringLiteral("MAILVANE_INSTALL_DIR"), QStringLiteral(MV_BINARY_DIR));
    env.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0"));
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(MV_MAILVANE_BIN), QStringList{QStringLiteral("--profile"), ProfilePath()} + args);
}

Result World::Run(const QStringList& args, int timeoutMs) const
{
    QProcess p;
    Launch(p, args);
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
    QFile f(Path(QStringLiteral("data/Sorquin Software/Mailvane/mv.log")));
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

QString RuleRow(int sortId, const QString& name, const FolderRef& src, const FolderRef& dst,
                const QHash<QString, QString>& criteria, bool active)
{
    // Double-quoted attributes, as toHtmlEscaped() escapes '"' but not "'".
    QHash<QString, QString> a{{"FromAddress", ""}, {"ToAddress", ""}, {"CcAddress", ""}, {"Subject", ""},
                              {"Message", ""},     {"Importance", "3"}, {"Status", "2"},   {"FlagStatus", "0"},
                              {"MsgAgeID", "13"},  {"LastVerb", "0"}};
    a.insert(criteria);
    QString row = QStringLiteral(R"(RuleID="%1" RuleName="%2" SortID="%1" Active="%3" SrcEntryID="%4" SrcStoreID="%5" )"
                                 R"(DstEntryID="%6" DstStoreID="%7")")
                      .arg(sortId)
                      .arg(name.toHtmlEscaped(), active ? QStringLiteral("-1") : QStringLiteral("0"), src.entryId,
                           src.storeId, dst.entryId, dst.storeId);
    for (auto it = a.cbegin(); it != a.cend(); ++it) row += QStringLiteral(R"( %1="%2")").arg(it.key(), it.value().toHtmlEscaped());
    return row;
}

}  // namespace mv::e2e
