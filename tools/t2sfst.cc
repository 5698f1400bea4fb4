// t2sfst: command-line front end of the toolkit.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "CommandSupport.h"
#include "Commands.h"

namespace {

Command const* find_command(char const* name) {
  Command const* c = FindCommand(name);
  if (!c) std::fprintf(stderr, "t2sfst: unknown command '%s' (see 't2sfst --help')\n", name);
  return c;
}

// The library's warnings in the command's style: "t2sfst COMMAND: warning: ...".
char const* running_command = "";
void warn_as_command(char const* message) {
  std::fprintf(stderr, "t2sfst %s: warning: %s\n", running_command, message);
}

// Whether the command's arguments ask for its help: "--help" before any "--".
bool asks_for_help(int argc, char** argv) {
  for (int i = 2; i < argc && std::strcmp(argv[i], "--"); ++i)
    if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) return true;
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    PrintOverview(stderr);
    return 2;
  }
  char const* first = argv[1];
  if (!std::strcmp(first, "--help") || !std::strcmp(first, "-h")) {
    PrintOverview(stdout);
    return 0;
  }
  if (!std::strcmp(first, "--version")) {
    std::printf("t2sfst %s\n", T2SFST_VERSION);
    return 0;
  }
  if (!std::strcmp(first, "help")) {
    char const* topic = argc < 3 ? "" : argv[2];
    if (argc > 3) {
      std::fprintf(stderr, "t2sfst help: one topic at a time (see 't2sfst help help')\n");
      return 2;
    }
    if (!*topic)
      PrintOverview(stdout);
    else if (!std::strcmp(topic, "expressions"))
      PrintExpressionsHelp(stdout);
    else if (!std::strcmp(topic, "help") || !std::strcmp(topic, "--help"))
      PrintHelpHelp(stdout);
    else if (!std::strcmp(topic, "--markdown"))
      PrintAllHelp(stdout);
    else if (Command const* c = find_command(topic))
      PrintCommandHelp(*c, stdout);
    else
      return 2;
    return 0;
  }
  Command const* c = find_command(first);
  if (!c) return 2;
  if (asks_for_help(argc, argv)) {
    PrintCommandHelp(*c, stdout);
    return 0;
  }
  running_command = c->name;
  FSTSetWarnSink(warn_as_command);
  // The library's stops on bad files or arguments become one line and exit status 1.
  int status = 1;
  FSTStop stop;
  if (!FSTCatchStops([&] { status = c->run(argc - 1, argv + 1); }, stop)) {
    ReportStop(c->name, stop);
    // What the stop left half-built is not freed; the process ends here, without exit handlers
    // (the command's own temporary files went as the stop unwound).
    std::fflush(nullptr);
    std::_Exit(1);
  }
  return status;
}
