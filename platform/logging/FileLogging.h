#pragma once
// The logging component behind ProgID "SQLOGGING.cLogging": opens
// FileLoggers that stamp their lines with the clock it was given.

#include "FileLogger.h"
#include "Logger.h"

#include "platform/common/ProgIdRegistry.h"
#include "platform/os/Clock.h"

#include <memory>

namespace mv::logging {

class FileLogging : public cLogging {
public:
    explicit FileLogging(std::shared_ptr<const os::Clock> clock = std::make_shared<os::SystemClock>(),
                         qint64 rotateBytes = FileLogger::kDefaultRotateBytes)
        : m_clock(std::move(clock)), m_rotateBytes(rotateBytes) {}

    std::unique_ptr<Logger> OpenLog(const QString& path) override
    {
        return std::make_unique<FileLogger>(path, m_clock, m_rotateBytes);
    }

private:
    std::shared_ptr<const os::Clock> m_clock;
    qint64 m_rotateBytes;
};

// Registers FileLogging under kLoggingProgId, with the system clock unless
// another is given.
void RegisterLogging(ProgIdRegistry& registry);
void RegisterLogging(ProgIdRegistry& registry, std::shared_ptr<const os::Clock> clock);

}  // namespace mv::logging
