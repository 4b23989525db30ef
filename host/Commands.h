#pragma once
// The subcommands of the mailvane program, as one table. Each gets the
// started runtime (the stores and the connected add-in with its database
// and runner) and its arguments and returns the process exit code
// (ExitCodes.h). The add-in, the engine and the Rules Manager's rule list
// (forms/RuleList.h) do the work; a command parses, prints and asks.

#include <QStringList>

#include <cstdio>

namespace mv::engine {
struct RunReport;
}

namespace mv::host {

class Runtime;

struct CommandContext {
    Runtime& runtime;
    QStringList args;   // after the command name
    std::FILE* out;     // stdout
    int answer = 0;     // --yes (vbYes), --no (vbNo) or 0: ask on the terminal
};

struct Command {
    const char* name;
    const char* usage;
    const char* summary;
    int minArgs;
    int maxArgs;
    int (*run)(CommandContext&);
    // Runs before the runtime starts (for example to lay out a store);
    // returns an exit code, kExitOk to go on. May be nullptr.
    int (*prepare)(const QStringList& args) = nullptr;
    // Works on the embedded default store whatever the profile says.
    bool embeddedStore = false;
};

// The command table, ending with an entry whose name is nullptr.
const Command* Commands();
const Command* FindCommand(const QString& name);
void PrintUsage(std::FILE* out);

// The import command, plain and --from another tool (ImportCommand.cpp).
int RunImport(CommandContext& ctx);
// The demo job (Demo.cpp).
int RunDemo(CommandContext& ctx);
int PrepareDemo(const QStringList& args);
// Shared printers.
// "mailvane: TEXT" on standard error.
void Err(const QString& text);
void PrintLine(std::FILE* out, const QString& line);
// Prints what each rule moved and a summary; returns the run's exit code.
int PrintRunReport(std::FILE* out, const engine::RunReport& report);

}  // namespace mv::host
