#pragma once
// The subcommands of the mailvane program. Each gets the started add-in and
// its arguments and returns the process exit code. The add-in does the work;
// a command only prints.

#include <QStringList>

#include <cstdio>

namespace mv::addin {
class OutAddIn;
}

namespace mv::host {

struct CommandContext {
    addin::OutAddIn& addIn;
    QStringList args;   // after the command name
    std::FILE* out;     // stdout
};

struct Command {
    const char* name;
    const char* usage;
    const char* summary;
    int minArgs;
    int maxArgs;
    int (*run)(CommandContext&);
};

// The command table, ending with an entry whose name is nullptr.
const Command* Commands();
const Command* FindCommand(const QString& name);
void PrintUsage(std::FILE* out);

}  // namespace mv::host
