#include "FileLogger.h"

#include "platform/os/FileDescriptor.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

namespace mv::logging {

namespace {

// One Write is one line: embedded line breaks are shown as "\n".
QString OneLine(QString text)
{
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    text.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    text.replace(QLatin1Char('\n'), QLatin1String("\\n"));
    return text;
}

bool SameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

}  // namespace

FileLogger::FileLogger(QString path, std::shared_ptr<const os::Clock> clock, qint64 rotateBytes)
    : m_path(std::move(path)), m_nativePath(QFile::encodeName(m_path)), m_clock(std::move(clock)),
      m_rotateBytes(rotateBytes)
{
}

QString FileLogger::FormatLine(const QDateTime& when, int level, const QString& source, const QString& text)
{
    return when.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz")) + QStringLiteral(" [") +
           QString::number(level) + QStringLiteral("] ") + OneLine(source) + QStringLiteral(": ") + OneLine(text);
}

void FileLogger::Write(int level, const QString& source, const QString& text) noexcept
{
    try {
        if (m_nativePath.isEmpty()) return;
        const QDateTime now = m_clock ? m_clock->Now() : QDateTime::currentDateTime();
        Append(FormatLine(now, level, source, text).toUtf8() + '\n');
    } catch (...) {
        // Losing a log line must never cost the caller its work.
    }
}

void FileLogger::Append(const QByteArray& line) const
{
    const char* path = m_nativePath.constData();
    // At most one rotation per line: after it, the line goes to whatever
    // file then stands at the path.
    for (bool mayRotate = true;; mayRotate = false) {
        // Owner only: the log names folders, rules and subjects.
        const os::FileDescriptor fd(::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
        if (fd.get() < 0) return;
        struct stat opened {};
        if (::fstat(fd.get(), &opened) != 0) return;
        const bool full = S_ISREG(opened.st_mode) && opened.st_size >= m_rotateBytes;
        if (!full || !mayRotate) {
            (void)os::WriteAll(fd.get(), line.constData(), static_cast<std::size_t>(line.size()));
            return;
        }
        // Another logger may be rotating the same file: whoever holds the
        // lock renames only while the path still names the full file, so a
        // new file is never renamed over the previous generation.
        if (::flock(fd.get(), LOCK_EX) == 0) {
            struct stat current {};
            if (::stat(path, &current) == 0 && SameFile(current, opened)) {
                const QByteArray previous = m_nativePath + ".1";
                ::rename(path, previous.constData());
            }
            ::flock(fd.get(), LOCK_UN);
        }
    }
}

}  // namespace mv::logging
