// Compiles a JSGF grammar into a machine.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "CommandSupport.h"
#include "Commands.h"

bool CompileGrammar(char const* command, Arguments const& args, std::string const& grammar,
                    FSTJsgfOptions options, FSTGeneric& result) {
  LastInput() = grammar;
  options.allow_undefined = args.has("--allow-undefined");
  options.search_path = args.values("-I");
  int max_states;
  if (!args.number("--max-states", 0, 1, 2147483647, max_states)) return false;
  if (args.has("--max-states")) FSTRtnSetMaxStates(max_states);
  std::string wrong =
      grammar.empty() || grammar == "-" ? "" : WrongKindOfFile(grammar, FileKind::grammar);
  if (!wrong.empty()) {
    std::fprintf(stderr, "t2sfst %s: %s%s\n", command, grammar.c_str(), wrong.c_str());
    return false;
  }
  std::string messages;
  bool ok = FSTJsgfCompileFile(result, messages, grammar, options);
  std::cerr << messages;
  if (!ok) std::fprintf(stderr, "t2sfst %s: %s does not compile\n", command, grammar.c_str());
  return ok;
}

int RunCompileGrammar(int argc, char** argv) {
  Arguments args(argc, argv);
  std::string format = args.value("--format", "text");
  if (!args.ok || args.positional.size() != 1 ||
      (format != "text" && format != "att" && format != "dot" && format != "rtn"))
    return UsageError("compile-grammar", "give one GRAMMAR; --format is text, att, dot or rtn");
  if (format == "rtn" && args.has("--split-tokens"))
    return UsageError("compile-grammar", "--split-tokens makes one machine: not with --format rtn");
  OutputFile output("compile-grammar", args.value("-o"));
  if (!output.ok()) return 1;
  FSTJsgfOptions options;
  options.drop_tags = args.has("--drop-tags");
  options.no_output = args.has("--no-output");
  options.mark_rules = args.has("--mark-rules");
  options.pauses = args.has("--pauses");
  options.keep_rules = format == "rtn";
  FSTGeneric m;
  if (!CompileGrammar("compile-grammar", args, args.positional[0], options, m)) return 1;
  if (format == "rtn") {  // each rule body is optimized already; the network stays lazy
    FSTDumpRtn(m, output.stream());
    return output.commit() ? 0 : 1;
  }
  if (args.has("--split-tokens")) m = FSTJsgfSplitTokens(m);
  m = args.has("--no-optimize") ? FSTBasic(m) : FSTOptimizeA(std::move(m), 1, 0.001f);

  std::ostream& os = output.stream();
  if (format == "dot") {
    m->dump_dot(os, nullptr);
  } else if (format == "att") {
    if (int status = WriteAtt(m, os, "")) return status;
  } else {
    m->dump_ascii(os, true);
  }
  return output.commit() ? 0 : 1;
}
