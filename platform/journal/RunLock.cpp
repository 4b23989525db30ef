#include "RunLock.h"

#include <QFile>
#include <QThread>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace mv::journal {

RunLock::~RunLock()
{
    if (m_fd >= 0) ::close(m_fd);  // closing the last descriptor lets go of the flock
}

std::unique_ptr<RunLock> RunLock::None()
{
    return std::unique_ptr<RunLock>(new RunLock(-1));
}

Result<std::unique_ptr<RunLock>> RunLock::Acquire(const QString& path, std::chrono::milliseconds wait)
{
    const QByteArray name = QFile::encodeName(path);
    const int fd = ::open(name.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return Error::permanent(
            QStringLiteral("cannot open the run lock %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(errno))),
            errno);
    constexpr std::chrono::milliseconds kStep{50};
    std::chrono::milliseconds waited{0};
    for (;;) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return std::unique_ptr<RunLock>(new RunLock(fd));
        const int err = errno;
        if (err != EWOULDBLOCK && err != EINTR) {
            ::close(fd);
            return Error::permanent(
                QStringLiteral("cannot lock %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(err))), err);
        }
        if (waited >= wait) break;
        QThread::msleep(static_cast<unsigned long>(kStep.count()));
        waited += kStep;
    }
    ::close(fd);
    return Error::temporary(
        QStringLiteral("another Mailvane process is running rules (it holds %1); try again later").arg(path));
}

}  // namespace mv::journal
