#pragma once
// Registers the helper library's objects in a ProgID registry:
// "SQSafeLib.MAPITable" -> MapiTable, "SQSafeLib.MAPIUtils" ->
// SafeMapiUtils, "SQSafeLib.SafeMailItem" -> SafeMailItem.

#include "platform/common/ProgIdRegistry.h"

namespace mv::outlook {

inline constexpr const char* kMapiTableProgId = "SQSafeLib.MAPITable";
inline constexpr const char* kMapiUtilsProgId = "SQSafeLib.MAPIUtils";
inline constexpr const char* kSafeMailItemProgId = "SQSafeLib.SafeMailItem";

void RegisterSafeLib(ProgIdRegistry& registry);

}  // namespace mv::outlook
