#pragma once
// Opening documents and starting programs: the help manual and web pages go
// to the desktop's browser through xdg-open, the updater and helper
// programs through QProcess. A failure to start comes back with the reason;
// what the started program does afterwards is its own affair.

#include "platform/common/Error.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <utility>

namespace mv::os {

class Shell {
public:
    // `opener` is the program that opens documents and URLs; tests put a
    // harmless program in its place.
    explicit Shell(QString opener = QStringLiteral("xdg-open")) : m_opener(std::move(opener)) {}

    // A URL with a scheme ("https://...", "mailto:...", "file://...") is
    // passed on as it is; anything else is a local path, which must exist.
    Status Open(const QString& documentOrUrl) const;

    // Starts `program` and does not wait for it.
    Status Start(const QString& program, const QStringList& args = {}, const QString& workingDir = {}) const;

    struct Finished {
        int exitCode = 0;
        bool crashed = false;
        QByteArray out;
        QByteArray err;
    };
    // Runs `program` to its end. A program that cannot start is a permanent
    // error; one still running after `timeoutMs` is killed and the result
    // is a temporary error.
    Result<Finished> Run(const QString& program, const QStringList& args = {}, int timeoutMs = 30000) const;

private:
    QString m_opener;
};

}  // namespace mv::os
