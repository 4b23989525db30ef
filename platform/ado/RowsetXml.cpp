#include "RowsetXml.h"

// Placeholder until the reader and writer land.
namespace mv::ado {
RowsetData RowsetXml::Read(const QByteArray&) { throw AdoError(kErrProviderGeneric, "MSPersist", "Rowset XML is not available"); }
RowsetData RowsetXml::ReadFile(const QString&) { throw AdoError(kErrProviderGeneric, "MSPersist", "Rowset XML is not available"); }
QByteArray RowsetXml::Write(const RowsetData&) { throw AdoError(kErrProviderGeneric, "MSPersist", "Rowset XML is not available"); }
void RowsetXml::WriteFile(const RowsetData&, const QString&) { throw AdoError(kErrProviderGeneric, "MSPersist", "Rowset XML is not available"); }
}  // namespace mv::ado
