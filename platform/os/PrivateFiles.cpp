#include "PrivateFiles.h"

#include "FileDescriptor.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mv::os {

namespace {

constexpr mode_t kOthersBits = S_IRWXG | S_IRWXO;

QString Octal(mode_t mode)
{
    return QStringLiteral("0%1").arg(mode & 07777, 3, 8, QLatin1Char('0'));
}

// Drops the group and other bits of an existing path.
bool Tighten(const QString& path, QStringList* tightened)
{
    const QByteArray native = QFile::encodeName(path);
    struct stat st {};
    if (::stat(native.constData(), &st) != 0) return false;
    if ((st.st_mode & kOthersBits) == 0) return true;
    const mode_t mode = st.st_mode & 07777 & ~kOthersBits;
    if (::chmod(native.constData(), mode) != 0) return false;
    if (tightened) tightened->append(QStringLiteral("%1 %2 -> %3").arg(path, Octal(st.st_mode), Octal(mode)));
    return true;
}

}  // namespace

bool MakePrivateDir(const QString& dir, QStringList* tightened)
{
    const QByteArray native = QFile::encodeName(dir);
    const QString parent = QFileInfo(dir).absolutePath();
    if (!QDir().mkpath(parent)) return false;
    if (::mkdir(native.constData(), kPrivateDirMode) == 0) {
        // The umask may have taken bits the owner needs; never more than 0700.
        return ::chmod(native.constData(), kPrivateDirMode) == 0;
    }
    if (errno != EEXIST || !QFileInfo(dir).isDir()) return false;
    return Tighten(dir, tightened);
}

bool MakePrivateFile(const QString& path, QStringList* tightened)
{
    if (!QFileInfo::exists(path)) return true;
    return Tighten(path, tightened);
}

bool CopyPrivateFile(const QString& from, const QString& to)
{
    QFile source(from);
    if (!source.open(QIODevice::ReadOnly)) return false;
    const QByteArray target = QFile::encodeName(to);
    FileDescriptor out(::open(target.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kPrivateFileMode));
    if (out.get() < 0) return false;
    bool ok = true;
    while (ok && !source.atEnd()) {
        const QByteArray chunk = source.read(1 << 16);
        ok = source.error() == QFileDevice::NoError && WriteAll(out.get(), chunk.constData(), static_cast<std::size_t>(chunk.size()));
    }
    ok = ok && ::fsync(out.get()) == 0;
    ok = out.Close() && ok;
    if (!ok) ::unlink(target.constData());
    return ok;
}

}  // namespace mv::os
