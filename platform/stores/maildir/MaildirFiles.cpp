#include "MaildirFiles.h"

#include "MaildirName.h"

#include "platform/stores/common/MessageFingerprint.h"

#include <QFile>

#include <cerrno>
#include <cstdio>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mv::stores::maildir::MaildirFiles {

namespace {

// Calls `visit(name)` for each regular file of <folderDir>/<sub> with the
// name as on disk; a missing directory has none.
template <class Visit>
Status ForEachFile(const QString& folderDir, const char* sub, Visit visit)
{
    const QByteArray path = QFile::encodeName(folderDir) + '/' + sub;
    DIR* d = ::opendir(path.constData());
    if (!d) {
        if (errno == ENOENT) return Status::success();
        return ErrnoError(QStringLiteral("Cannot list %1").arg(QFile::decodeName(path)), errno);
    }
    while (dirent* e = ::readdir(d)) {
        if (e->d_name[0] == '.') continue;
        if (e->d_type == DT_UNKNOWN || e->d_type == DT_LNK) {
            struct stat st {};
            if (::fstatat(::dirfd(d), e->d_name, &st, 0) != 0 || !S_ISREG(st.st_mode)) continue;
        } else if (e->d_type != DT_REG) {
            continue;
        }
        visit(QByteArrayView(e->d_name));
    }
    ::closedir(d);
    return Status::success();
}

QByteArrayView UniqueOf(QByteArrayView fileName)
{
    const qsizetype colon = fileName.indexOf(':');
    return colon < 0 ? fileName : fileName.first(colon);
}

}  // namespace

Error ErrnoError(const QString& what, int err)
{
    const QString text = QStringLiteral("%1: %2").arg(what, qt_error_string(err));
    switch (err) {
        case ENOENT:
            return Error::notFound(text, err);
        case EAGAIN:
        case EBUSY:
        case EINTR:
        case ENOSPC:
        case EDQUOT:
        case EMFILE:
        case ENFILE:
            return Error::temporary(text, err);
        default:
            return Error::permanent(text, err);
    }
}

// Falls back to link+unlink on file systems without RENAME_NOREPLACE, which
// is just as safe.
int RenameNoReplace(const QByteArray& from, const QByteArray& to)
{
    if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    if (::link(from.constData(), to.constData()) != 0) return errno;
    if (::unlink(from.constData()) != 0) {
        const int err = errno;
        ::unlink(to.constData());
        return err;
    }
    return 0;
}

void SyncDir(const QString& dir)
{
    const int fd = ::open(QFile::encodeName(dir).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

Result<QString> WriteTmp(const QString& folderDir, const QByteArray& bytes, const QDateTime& mtime,
                         const QString& name)
{
    // A fresh name unless the caller chose one: a stale file of an
    // interrupted delivery must not block this one.
    const QString tmp =
        folderDir + QLatin1String("/tmp/") + (name.isEmpty() ? MaildirName::NewUnique(QDateTime()) : name);
    const QByteArray tmpName = QFile::encodeName(tmp);
    if (!name.isEmpty()) ::unlink(tmpName.constData());
    const int fd = ::open(tmpName.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) return ErrnoError(QStringLiteral("Cannot create %1").arg(tmp), errno);
    qsizetype written = 0;
    int err = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            err = n < 0 ? errno : EIO;
            break;
        }
        written += n;
    }
    if (err == 0 && ::fsync(fd) != 0) err = errno;
    const timespec times[2] = {{mtime.toSecsSinceEpoch(), 0}, {mtime.toSecsSinceEpoch(), 0}};
    if (err == 0) ::futimens(fd, times);
    if (::close(fd) != 0 && err == 0) err = errno;
    if (err != 0) {
        ::unlink(tmpName.constData());
        return ErrnoError(QStringLiteral("Cannot write %1").arg(tmp), err);
    }
    return tmp;
}

Result<QString> CopyToTmp(const QString& from, const QString& folderDir)
{
    QFile file(from);
    if (!file.open(QIODevice::ReadOnly)) {
        if (!file.exists())
            return Error::notFound(QStringLiteral("The message %1 is gone.").arg(from), ENOENT);
        return Error::temporary(QStringLiteral("Cannot read %1: %2").arg(from, file.errorString()));
    }
    struct stat st {};
    if (::fstat(file.handle(), &st) != 0)
        return ErrnoError(QStringLiteral("Cannot read %1").arg(from), errno);
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError || bytes.size() != st.st_size)
        return Error::temporary(QStringLiteral("Cannot read %1: %2").arg(from, file.errorString()));
    auto tmp = WriteTmp(folderDir, bytes, QDateTime::fromSecsSinceEpoch(st.st_mtim.tv_sec, Qt::UTC));
    // To the nanosecond, so the index sees the same file and parses nothing.
    const timespec times[2] = {st.st_atim, st.st_mtim};
    if (tmp) ::utimensat(AT_FDCWD, QFile::encodeName(*tmp).constData(), times, 0);
    return tmp;
}

Result<QSet<QString>> ListUniques(const QString& folderDir)
{
    QSet<QString> out;
    for (const char* sub : {"cur", "new"}) {
        Status s = ForEachFile(folderDir, sub, [&](QByteArrayView name) {
            out.insert(QFile::decodeName(UniqueOf(name).toByteArray()));
        });
        if (!s) return s.error();
    }
    return out;
}

Result<FolderCounts> Count(const QString& folderDir)
{
    // Raw names and no set of the whole folder: this runs for every folder
    // the folder list shows, at 100,000 files too. A unique name in both
    // new/ and cur/ (a rename seen half-way) counts once, as the scan does.
    QSet<QByteArray> inNew;
    FolderCounts counts;
    auto tally = [&](QByteArrayView name) {
        const qsizetype info = name.indexOf(":2,");
        const QByteArrayView flags = info < 0 ? QByteArrayView() : name.sliced(info + 3);
        if (flags.contains('T')) return;
        ++counts.total;
        if (!flags.contains('S')) ++counts.unread;
    };
    Status s = ForEachFile(folderDir, "new", [&](QByteArrayView name) {
        inNew.insert(UniqueOf(name).toByteArray());
        tally(name);
    });
    if (!s) return s.error();
    s = ForEachFile(folderDir, "cur", [&](QByteArrayView name) {
        if (inNew.isEmpty() || !inNew.contains(UniqueOf(name).toByteArray())) tally(name);
    });
    if (!s) return s.error();
    return counts;
}

bool IsValidUnique(const QByteArray& unique)
{
    if (unique.isEmpty() || unique.size() > 200 || unique.startsWith('.')) return false;
    for (const char c : unique) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u == 0x7f || c == '/' || c == ':') return false;
    }
    return true;
}

Result<mapi::Fingerprint> ReadFingerprint(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (!file.exists())
            return Error::notFound(QStringLiteral("The message %1 is gone.").arg(path), ENOENT);
        return Error::temporary(QStringLiteral("Cannot read %1: %2").arg(path, file.errorString()));
    }
    return MessageFingerprint::Of(file.readAll(), QDateTime());  // the caller knows the delivery time
}

}  // namespace mv::stores::maildir::MaildirFiles
