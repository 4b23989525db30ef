#include "AdoProgIds.h"

#include "platform/ado/Catalog.h"
#include "platform/ado/Command.h"
#include "platform/ado/Connection.h"
#include "platform/ado/Recordset.h"
#include "platform/common/ProgIdRegistry.h"

namespace mv::store {

template <class T>
static void RegisterDefault(ProgIdRegistry& registry, const char* progId)
{
    registry.Register<T>(QString::fromLatin1(progId), [] { return std::make_unique<T>(); });
}

void RegisterAdoProgIds(ProgIdRegistry& registry)
{
    RegisterDefault<ado::Connection>(registry, kProgIdConnection);
    RegisterDefault<ado::Recordset>(registry, kProgIdRecordset);
    RegisterDefault<ado::Command>(registry, kProgIdCommand);
    RegisterDefault<ado::Catalog>(registry, kProgIdCatalog);
    RegisterDefault<ado::Table>(registry, kProgIdTable);
    RegisterDefault<ado::Column>(registry, kProgIdColumn);
}

}  // namespace mv::store
