#pragma once
// The log: one line per Write (time, level, source procedure, text).
// Writing never throws and never reports its own failure: a log that cannot
// be written loses the line, not the caller's work.

#include <QString>

#include <memory>

namespace mv::logging {

class Logger {
public:
    virtual ~Logger() = default;
    virtual void Write(int level, const QString& source, const QString& text) noexcept = 0;
};

// The logging component created by ProgID "SQLOGGING.cLogging": a factory
// that opens a log file by its full path.
class cLogging {
public:
    virtual ~cLogging() = default;
    // Never nullptr: a file that cannot be opened gives a logger that drops lines.
    virtual std::unique_ptr<Logger> OpenLog(const QString& path) = 0;
};

inline constexpr const char* kLoggingProgId = "SQLOGGING.cLogging";

}  // namespace mv::logging
