// What the machine-reading subcommands share: argument scanning, and checking files before the
// library's loader, which aborts on a file it cannot read.
#ifndef T2SFST_TOOLS_COMMANDSUPPORT_H
#define T2SFST_TOOLS_COMMANDSUPPORT_H

#include <iosfwd>
#include <string>
#include <vector>

#include "FST.h"

// Splits argv[1..] into options (with their values) and positional arguments. Options listed in
// with_value take the next argument; an unknown option prints one line and sets ok to false.
struct Arguments {
  Arguments(int argc, char** argv, std::vector<std::string> const& flags,
            std::vector<std::string> const& with_value);
  bool has(std::string const& option) const;
  std::string value(std::string const& option, std::string const& fallback = "") const;

  bool ok = true;
  std::vector<std::string> positional;
  std::vector<std::pair<std::string, std::string>> options;
};

// Loads a machine from a file, or from standard input for "" or "-". A file that cannot be
// read prints "t2sfst COMMAND: cannot read FILE: reason" and gives a null handle.
FSTGeneric LoadInput(char const* command, std::string const& path);

// Checks that a file can be created for writing; prints one line naming it when not.
bool CanWrite(char const* command, std::string const& path);

// Writes m as AT&T text (and its symbol table to symbols_path unless empty); the exit status.
int WriteAtt(FSTGeneric const& m, std::ostream& os, std::string const& symbols_path);

// Exit status for wrong usage, after printing the command's usage line.
int UsageError(char const* command, char const* message);

#endif
