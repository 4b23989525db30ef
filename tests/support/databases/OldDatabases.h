#pragma once
// Where the built rule databases are: "template" for the shipped blank file,
// else a release such as "v100" (scripts in sql/; "v100_ra" is a 1.0.0 file
// that already has the Smart Add columns). Tests depend on mv_test_databases.

#include <QString>

namespace mv::test {

inline QString BuiltDatabase(const QString& name)
{
    if (name == QLatin1String("template")) return QStringLiteral(MV_BINARY_DIR "/Database/_mvblank.mdb");
    return QStringLiteral(MV_BINARY_DIR "/tests/support/databases/%1.mdb").arg(name);
}

}  // namespace mv::test
