#pragma once
// Reader and writer of ADO's XML persistence format (the file a Recordset
// writes with Save(path, adPersistXML) and opens through "Provider=MSPersist").
// The writer produces what ADO writes for the same recordset; the reader takes
// anything ADO would accept: any attribute order, extra attributes, either
// quote style, character references.

#include "AdoError.h"
#include "RowsetData.h"

#include <QByteArray>
#include <QString>

namespace mv::ado {

class RowsetXml {
public:
    // Throws AdoError with a description naming the line and what was wrong
    // (not XML, truncated, no schema, a value that does not fit its column type).
    static RowsetData Read(const QByteArray& xml);
    static RowsetData ReadFile(const QString& path);

    static QByteArray Write(const RowsetData& data);
    // Writes to a temporary file beside `path` and renames it over, so a failed
    // save never leaves half a file. Throws AdoError.
    static void WriteFile(const RowsetData& data, const QString& path);
};

}  // namespace mv::ado
