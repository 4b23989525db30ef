#pragma once
// The ProgIDs under which the rule store creates its ADO and ADOX objects,
// and the registration of the real ones. A test registers fewer (or a
// factory returning nullptr) to make one creation fail.

namespace mv {
class ProgIdRegistry;
}

namespace mv::store {

inline constexpr const char* kProgIdConnection = "ADODB.Connection";
inline constexpr const char* kProgIdRecordset = "ADODB.Recordset";
inline constexpr const char* kProgIdCommand = "ADODB.Command";
inline constexpr const char* kProgIdCatalog = "ADOX.Catalog";
inline constexpr const char* kProgIdTable = "ADOX.Table";
inline constexpr const char* kProgIdColumn = "ADOX.Column";

void RegisterAdoProgIds(ProgIdRegistry& registry);

}  // namespace mv::store
