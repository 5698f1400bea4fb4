// Compiles a JSGF grammar into a machine.
#include <cstdio>
#include <fstream>
#include <iostream>

#include "CommandSupport.h"
#include "Commands.h"

int RunCompileGrammar(int argc, char** argv) {
  Arguments args(argc, argv,
                 {"--drop-tags", "--no-output", "--mark-rules", "--pauses", "--allow-undefined",
                  "--no-optimize"},
                 {"-o", "--format"});
  std::string format = args.value("--format", "text");
  if (!args.ok || args.positional.size() != 1 ||
      (format != "text" && format != "att" && format != "dot"))
    return UsageError("compile-grammar", "give one GRAMMAR; --format is text, att or dot");
  std::string const& grammar = args.positional[0];
  std::ifstream probe(grammar);
  if (!probe) {
    std::fprintf(stderr, "t2sfst compile-grammar: cannot read %s\n", grammar.c_str());
    return 1;
  }
  std::string out = args.value("-o");
  if (!CanWrite("compile-grammar", out)) return 1;

  FSTGeneric m;
  std::string messages;
  bool ok = FSTJsgfParseFile(m, messages, grammar, args.has("--drop-tags"), args.has("--no-output"),
                             args.has("--mark-rules"), args.has("--pauses"),
                             args.has("--allow-undefined"));
  std::cerr << messages;
  if (!ok) return 1;
  m = args.has("--no-optimize") ? FSTBasic(m) : FSTOptimizeA(m, 1, 0.001f);

  std::ofstream file;
  if (!out.empty() && out != "-") file.open(out);
  std::ostream& os = file.is_open() ? file : std::cout;
  if (format == "dot") {
    m->dump_dot(os, nullptr);
  } else if (format == "att") {
    return WriteAtt(m, os, "");
  } else {
    m->dump_ascii(os, true);
  }
  return 0;
}
