// Text and dot forms of any loadable machine.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "CommandSupport.h"
#include "Commands.h"

int RunPrint(int argc, char** argv) {
  Arguments args(argc, argv);
  if (!args.ok || args.positional.size() > 1) return UsageError("print", "wrong arguments");
  FSTGeneric m = LoadInputOrModel("print", args.positional.empty() ? "" : args.positional[0]);
  if (!m) return 1;
  m->dump_ascii(std::cout, !args.has("--no-header"));
  std::cout.flush();
  return std::cout ? 0 : 1;
}

int RunDraw(int argc, char** argv) {
  Arguments args(argc, argv);
  if (!args.ok || args.positional.size() > 1) return UsageError("draw", "wrong arguments");
  FSTGeneric m = LoadInputOrModel("draw", args.positional.empty() ? "" : args.positional[0]);
  if (!m) return 1;
  // The writer puts its title in the graph as a statement: the text becomes the graph's label,
  // quoted, so that any text is a title.
  std::string title;
  if (args.has("--title")) {
    title = "label=\"";
    for (char c : args.value("--title")) {
      if (c == '"' || c == '\\') title += '\\';
      title += c == '\n' ? ' ' : c;
    }
    title += "\"; labelloc=t";
  }
  char const* title_or_null = title.empty() ? nullptr : title.c_str();
  if (!args.has("--png")) {
    m->dump_dot(std::cout, title_or_null);
    return 0;
  }
  if (std::system("command -v dot >/dev/null 2>&1") != 0) {
    std::fprintf(stderr,
                 "t2sfst draw: Graphviz 'dot' is not installed (apt-get install graphviz)\n");
    return 1;
  }
  std::string png = args.value("--png");
  if (!CanWrite("draw", png)) return 1;
  std::string command = "dot -Tpng -o '" + png + "'";
  FILE* dot = popen(command.c_str(), "w");
  if (!dot) return 1;
  std::string text;
  {
    std::ostringstream os;
    m->dump_dot(os, title_or_null);
    text = os.str();
  }
  std::fwrite(text.data(), 1, text.size(), dot);
  return pclose(dot) == 0 ? 0 : 1;
}
