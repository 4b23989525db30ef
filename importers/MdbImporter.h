#pragma once
// Rules from the Jet rule database (mv.mdb) of the earlier Windows release,
// read with mdbtools: mdb-tables to find the Rules table, mdb-export for
// its rows as CSV. Columns map by name (older files lack LastVerb and
// Message, which then mean "no criterion"); rows keep their SortID order.
// The folders are the old store's identifiers: the writer keeps those this
// profile knows and reports the others.
//
// Errors (all Permanent but a missing tool, which is NotFound) name the
// real reason: no such file, not a Jet file (or this release's own SQLite
// database), mdbtools not installed, mdbtools failing on the file, no Rules
// table, a Rules table without the columns a rule needs.

#include "ImportedRule.h"

#include "platform/common/Error.h"

#include <QByteArray>
#include <QString>

namespace mv::importers {

class MdbImporter {
public:
    // `toolDir` holds mdb-tables and mdb-export; empty: look on PATH.
    explicit MdbImporter(QString toolDir = {}) : m_toolDir(std::move(toolDir)) {}

    Result<ImportedRules> FromFile(const QString& path) const;
    // The Rules table as `mdb-export FILE Rules` writes it: a header line,
    // text quoted with doubled quotes inside, null as an empty unquoted field.
    static Result<ImportedRules> FromCsv(const QByteArray& csv);

private:
    Result<QByteArray> Run(const QString& tool, const QStringList& args) const;

    QString m_toolDir;
};

}  // namespace mv::importers
