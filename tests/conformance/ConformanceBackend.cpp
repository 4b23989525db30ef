#include "ConformanceBackend.h"

namespace mv::conformance {

std::vector<ConformanceBackend>& Backends()
{
    // Filled by static registrars before main; a function-local static
    // avoids depending on the order in which translation units start.
    static std::vector<ConformanceBackend> backends;
    return backends;
}

Status Fixture::Seed(const std::vector<mapi::NewMessage>& messages)
{
    for (const mapi::NewMessage& message : messages) {
        Result<QByteArray> id = Store().Append(inbox, message);
        if (!id) return id.error();
    }
    return Status::success();
}

}  // namespace mv::conformance
