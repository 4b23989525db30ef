// libFuzzer entry over the MIME parser: any bytes must give a record,
// headers only and with the body. Built as a fuzzer with clang; with other
// compilers the same entry replays the seed corpus in test_fuzz_seeds.

#include "platform/stores/common/MimeProperties.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    mv::stores::ParseOptions options;
    options.ownAddress = QStringLiteral("me@example.com");
    const auto headers = mv::stores::MimeProperties::FromBytes(bytes, options);
    options.withBody = true;
    const auto full = mv::stores::MimeProperties::FromBytes(bytes, options);
    // The header properties must not depend on whether the body was read.
    for (auto tag : {mv::mapi::PR_SUBJECT, mv::mapi::PR_SENT_REPRESENTING_EMAIL_ADDRESS, mv::mapi::PR_DISPLAY_TO,
                     mv::mapi::PR_IMPORTANCE, mv::mapi::PR_MESSAGE_CLASS, mv::mapi::PR_MESSAGE_FLAGS}) {
        if (headers.props.value(tag) != full.props.value(tag)) __builtin_trap();
    }
    if (headers.recipients.size() != full.recipients.size()) __builtin_trap();
    return 0;
}
