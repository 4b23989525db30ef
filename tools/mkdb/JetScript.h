#pragma once
// A Jet SQL script: statements separated by ";" at the end of a line; lines
// starting with "--" are comments. Run through the ado provider, so every
// declared type is exactly the one the provider maps for the Jet type.

#include <QString>
#include <QStringList>

namespace mv::tools {

QStringList SplitJetScript(const QString& script);

// Builds `outputPath` from `scriptPath`: a new SQLite file is filled in a
// temporary file beside the output and renamed over it only when every
// statement ran, so a failed build never leaves a half-made database and an
// existing output is replaced in one step. Returns an error text, or empty.
QString BuildDatabase(const QString& scriptPath, const QString& outputPath);

}  // namespace mv::tools
