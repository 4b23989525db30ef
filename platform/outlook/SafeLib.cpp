#include "SafeLib.h"

#include "MapiTable.h"
#include "SafeMailItem.h"
#include "SafeMapiUtils.h"

namespace mv::outlook {

void RegisterSafeLib(ProgIdRegistry& registry)
{
    registry.Register<MapiTable>(QString::fromLatin1(kMapiTableProgId), [] { return std::make_unique<MapiTable>(); });
    registry.Register<SafeMapiUtils>(QString::fromLatin1(kMapiUtilsProgId),
                                     [] { return std::make_unique<SafeMapiUtils>(); });
    registry.Register<SafeMailItem>(QString::fromLatin1(kSafeMailItemProgId),
                                    [] { return std::make_unique<SafeMailItem>(); });
}

}  // namespace mv::outlook
