#include "MaildirStoreKey.h"

#include <QFile>
#include <QRandomGenerator>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mv::stores::maildir {

namespace {
constexpr int kKeyBytes = 16;
}  // namespace

bool MaildirStoreKey::Parse(const QByteArray& text, MaildirStoreKey& into)
{
    for (const QByteArray& line : text.split('\n')) {
        if (line.startsWith("key ")) {
            const QByteArray hex = line.mid(4).trimmed();
            if (hex.size() != 2 * kKeyBytes || QByteArray::fromHex(hex).toHex() != hex.toLower())
                return false;
            into.m_key = hex.toLower();
        } else if (line.startsWith("root ")) {
            into.m_roots << QString::fromUtf8(QByteArray::fromPercentEncoding(line.mid(5).trimmed()));
        }
    }
    return !into.m_key.isEmpty();
}

QByteArray MaildirStoreKey::Serialize() const
{
    QByteArray text = "key " + m_key + '\n';
    for (const QString& root : m_roots) text += "root " + root.toUtf8().toPercentEncoding("/") + '\n';
    return text;
}

// Written to a temporary file and linked or renamed into place, so a reader
// never sees half a file and two first opens agree on one key.
bool MaildirStoreKey::Write(const QString& file, bool replace) const
{
    const QString tmp = file + QStringLiteral(".%1.tmp").arg(::getpid());
    const QByteArray tmpName = QFile::encodeName(tmp);
    const int fd = ::open(tmpName.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    const QByteArray text = Serialize();
    bool ok = ::write(fd, text.constData(), size_t(text.size())) == text.size() && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    const QByteArray target = QFile::encodeName(file);
    if (ok)
        ok = replace ? ::rename(tmpName.constData(), target.constData()) == 0
                     : ::link(tmpName.constData(), target.constData()) == 0;
    ::unlink(tmpName.constData());
    return ok;
}

MaildirStoreKey MaildirStoreKey::Load(const QString& canonicalRoot)
{
    const QString file = canonicalRoot + QLatin1Char('/') + QLatin1String(kFileName);
    for (int attempt = 0; attempt < 2; ++attempt) {
        MaildirStoreKey loaded;
        QFile f(file);
        if (f.open(QIODevice::ReadOnly)) {
            if (!Parse(f.read(64 * 1024), loaded)) return {};  // not ours to overwrite
            // Like the index: this user's, whatever umask or copy widened it.
            if ((f.permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther)) != 0)
                ::chmod(QFile::encodeName(file).constData(), 0600);
            if (!loaded.m_roots.contains(canonicalRoot)) {
                loaded.m_roots << canonicalRoot;
                (void)loaded.Write(file, true);  // a root that is not recorded only costs old ids
            }
            return loaded;
        }
        if (f.exists()) return {};
        MaildirStoreKey fresh;
        quint32 words[kKeyBytes / 4];
        QRandomGenerator::system()->fillRange(words);
        fresh.m_key = QByteArray(reinterpret_cast<const char*>(words), sizeof words).toHex();
        fresh.m_roots << canonicalRoot;
        if (fresh.Write(file, false)) return fresh;
        if (errno != EEXIST) return {};
        // Another process made the file first: read its key.
    }
    return {};
}

}  // namespace mv::stores::maildir
