#include "MaildirLayout.h"

#include "platform/stores/common/ModifiedUtf7.h"
#include "platform/stores/common/FolderUseByName.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>

namespace mv::stores::maildir {

namespace {

const std::array<const char*, 3> kSubdirs = {"cur", "new", "tmp"};

bool IsReserved(const QString& name)
{
    return name == QLatin1String("cur") || name == QLatin1String("new") || name == QLatin1String("tmp");
}

void CollectFileSystem(const QString& root, const QString& rel, std::vector<QString>& out)
{
    const QDir dir(rel.isEmpty() ? root : root + QLatin1Char('/') + rel);
    for (const QString& name : dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks)) {
        if (name.startsWith(QLatin1Char('.')) || IsReserved(name))
            continue;
        const QString child = rel.isEmpty() ? name : rel + QLatin1Char('/') + name;
        if (MaildirLayout::IsMaildir(root + QLatin1Char('/') + child)) out.push_back(child);
        CollectFileSystem(root, child, out);
    }
}

}  // namespace

bool MaildirLayout::IsMaildir(const QString& dir)
{
    return QFileInfo(dir + QLatin1String("/cur")).isDir();
}

MaildirLayout MaildirLayout::Detect(const QString& root)
{
    const QDir dir(root);
    bool plainChild = false;
    for (const QString& name : dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden)) {
        if (!IsMaildir(root + QLatin1Char('/') + name)) continue;
        if (name.startsWith(QLatin1Char('.'))) return {root, Kind::MaildirPlusPlus};
        if (!IsReserved(name)) plainChild = true;
    }
    return {root, plainChild ? Kind::FileSystem : Kind::MaildirPlusPlus};
}

LayoutFolder MaildirLayout::Make(const QString& path) const
{
    LayoutFolder f;
    f.path = path;
    f.dir = path.isEmpty() ? m_root : m_root + QLatin1Char('/') + path;
    if (path.isEmpty()) {
        f.name = f.displayPath = QStringLiteral("Inbox");
        f.specialUse = QStringLiteral("\\Inbox");
        return f;
    }
    const QChar sep = m_kind == Kind::MaildirPlusPlus ? QLatin1Char('.') : QLatin1Char('/');
    QStringList levels = (m_kind == Kind::MaildirPlusPlus ? path.mid(1) : path).split(sep);
    for (QString& level : levels) level = ModifiedUtf7::Decode(level);
    f.name = levels.last();
    f.displayPath = levels.join(QLatin1Char('/'));
    if (levels.size() == 1) {
        // A file-system INBOX directory when the root itself holds no mail.
        if (m_kind == Kind::FileSystem && f.name.compare(QLatin1String("INBOX"), Qt::CaseInsensitive) == 0
            && !IsMaildir(m_root)) {
            f.name = f.displayPath = QStringLiteral("Inbox");
            f.specialUse = QStringLiteral("\\Inbox");
        } else {
            f.specialUse = FolderUseByName::UseOf(f.name);
        }
        return f;
    }
    // The nearest existing ancestor is the parent; missing levels are skipped.
    QString parent = path;
    while (true) {
        const qsizetype cut = parent.lastIndexOf(sep);
        if (cut <= 0) break;
        parent = parent.left(cut);
        if (IsMaildir(m_root + QLatin1Char('/') + parent)) {
            f.parentPath = parent;
            f.hasParent = true;
            break;
        }
    }
    return f;
}

std::vector<LayoutFolder> MaildirLayout::List() const
{
    std::vector<QString> paths;
    if (m_kind == Kind::MaildirPlusPlus) {
        const QDir dir(m_root);
        for (const QString& name : dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden | QDir::NoSymLinks)) {
            if (name.startsWith(QLatin1Char('.')) && name.size() > 1 && IsMaildir(m_root + QLatin1Char('/') + name))
                paths.push_back(name);
        }
    } else {
        CollectFileSystem(m_root, QString(), paths);
    }
    std::vector<LayoutFolder> out;
    if (IsMaildir(m_root)) out.push_back(Make(QString()));
    std::vector<LayoutFolder> rest;
    for (const QString& p : paths) rest.push_back(Make(p));
    std::sort(rest.begin(), rest.end(), [](const LayoutFolder& a, const LayoutFolder& b) {
        const bool aInbox = a.specialUse == QLatin1String("\\Inbox"), bInbox = b.specialUse == QLatin1String("\\Inbox");
        if (aInbox != bInbox) return aInbox;
        return a.displayPath.compare(b.displayPath, Qt::CaseInsensitive) < 0;
    });
    out.insert(out.end(), rest.begin(), rest.end());
    return out;
}

std::optional<QString> MaildirLayout::DirOf(const QString& folderPath) const
{
    if (folderPath.isEmpty()) return IsMaildir(m_root) ? std::optional<QString>(m_root) : std::nullopt;
    if (folderPath.startsWith(QLatin1Char('/'))) return std::nullopt;
    for (const QString& part : folderPath.split(QLatin1Char('/'))) {
        if (part.isEmpty() || part == QLatin1String(".") || part == QLatin1String("..") || IsReserved(part))
            return std::nullopt;
    }
    if (m_kind == Kind::MaildirPlusPlus
        && (!folderPath.startsWith(QLatin1Char('.')) || folderPath.contains(QLatin1Char('/'))))
        return std::nullopt;
    const QString dir = m_root + QLatin1Char('/') + folderPath;
    if (!IsMaildir(dir)) return std::nullopt;
    return dir;
}

std::optional<LayoutFolder> MaildirLayout::Describe(const QString& folderPath) const
{
    if (!DirOf(folderPath)) return std::nullopt;
    return Make(folderPath);
}

Result<QString> MaildirLayout::Create(const QString& parentPath, const QString& name) const
{
    const QString trimmed = name.trimmed();
    if (trimmed.isEmpty() || trimmed.contains(QLatin1Char('/')) || trimmed.startsWith(QLatin1Char('.'))
        || (m_kind == Kind::MaildirPlusPlus && trimmed.contains(QLatin1Char('.')))
        || (m_kind == Kind::FileSystem && IsReserved(trimmed)))
        return Error::permanent(QStringLiteral("The folder name \"%1\" cannot be used in this Maildir.").arg(name));
    if (!parentPath.isEmpty() && !DirOf(parentPath))
        return Error::notFound(QStringLiteral("The parent folder does not exist."));
    const QString encoded = QString::fromLatin1(ModifiedUtf7::Encode(trimmed));
    QString path;
    if (m_kind == Kind::MaildirPlusPlus)
        path = parentPath.isEmpty() ? QLatin1Char('.') + encoded : parentPath + QLatin1Char('.') + encoded;
    else
        path = parentPath.isEmpty() ? encoded : parentPath + QLatin1Char('/') + encoded;
    const QString dir = m_root + QLatin1Char('/') + path;
    if (IsMaildir(dir))
        return Error::permanent(QStringLiteral("The folder \"%1\" already exists.").arg(trimmed));
    for (const char* sub : kSubdirs) {
        if (!QDir().mkpath(dir + QLatin1Char('/') + QLatin1String(sub)))
            return Error::permanent(QStringLiteral("Cannot create the folder directory %1.").arg(dir));
    }
    if (m_kind == Kind::MaildirPlusPlus) {
        QFile marker(dir + QLatin1String("/maildirfolder"));
        if (!marker.open(QIODevice::WriteOnly))
            return Error::permanent(QStringLiteral("Cannot write %1.").arg(marker.fileName()));
    }
    return path;
}

std::optional<QString> MaildirLayout::FindSpecial(const QString& use) const
{
    for (const LayoutFolder& f : List())
        if (f.specialUse == use) return f.path;
    return std::nullopt;
}

}  // namespace mv::stores::maildir
