#pragma once
// A parser for the Sieve mail-filtering language (RFC 5228): the generic
// grammar of commands, tests, tagged and positional arguments, string lists
// and blocks, with quoted strings (backslash escapes), multi-line "text:"
// strings (dot-stuffed) and both comment forms. It knows no command by
// name; meaning is the importer's. No Debian package offers a Sieve parser
// for C++, so this one is ours (docs/decisions.md).

#include "platform/common/Error.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace mv::importers {

struct SieveArgument {
    enum class Kind { Strings, Number, Tag };
    Kind kind = Kind::Strings;
    QStringList strings;  // one string, or the items of a string list
    qint64 number = 0;    // with its K/M/G quantifier applied
    QString tag;          // without the colon, lower case
};

struct SieveTest {
    QString name;  // lower case
    std::vector<SieveArgument> arguments;
    std::vector<SieveTest> tests;  // "(" test-list ")" or the one nested test
    int line = 0;
};

// A command has a test's parts, then a block or ";" (an empty block).
struct SieveCommand : SieveTest {
    std::vector<SieveCommand> block;
};

class SieveParser {
public:
    // The script's commands; a Permanent error naming the line and what was
    // expected when the script does not follow the grammar.
    static Result<std::vector<SieveCommand>> Parse(const QString& script);
};

}  // namespace mv::importers
