#include "FileLogging.h"

namespace mv::logging {

void RegisterLogging(ProgIdRegistry& registry) { RegisterLogging(registry, std::make_shared<os::SystemClock>()); }

void RegisterLogging(ProgIdRegistry& registry, std::shared_ptr<const os::Clock> clock)
{
    registry.Register<cLogging>(QString::fromLatin1(kLoggingProgId),
                                [clock = std::move(clock)]() -> std::unique_ptr<cLogging> {
                                    return std::make_unique<FileLogging>(clock);
                                });
}

}  // namespace mv::logging
