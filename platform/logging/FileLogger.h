#pragma once
// The log file: one line per Write,
//   2026-11-22 10:00:00.123 [3] InitHandler: Adding new Explorer to collection
// in local time, UTF-8, appended and flushed line by line. Each line goes
// out in a single write(2) on a file opened with O_APPEND, so several
// loggers (and processes) on one path interleave whole lines. A new file is
// created 0600 (readable by its owner only); an existing file keeps its mode.
//
// When the file has passed the size limit (5 MB) it is renamed to
// "<path>.1", replacing the previous generation, and a new file is begun.
// Write never throws: a line that cannot be written is lost.

#include "Logger.h"

#include "platform/os/Clock.h"

#include <QString>

#include <memory>

namespace mv::logging {

class FileLogger : public Logger {
public:
    static constexpr qint64 kDefaultRotateBytes = 5 * 1024 * 1024;

    FileLogger(QString path, std::shared_ptr<const os::Clock> clock, qint64 rotateBytes = kDefaultRotateBytes);

    void Write(int level, const QString& source, const QString& text) noexcept override;

    const QString& path() const { return m_path; }
    // The line Write would append for this moment, without its newline.
    static QString FormatLine(const QDateTime& when, int level, const QString& source, const QString& text);

private:
    void Append(const QByteArray& line) const;

    QString m_path;
    QByteArray m_nativePath;
    std::shared_ptr<const os::Clock> m_clock;
    qint64 m_rotateBytes;
};

}  // namespace mv::logging
