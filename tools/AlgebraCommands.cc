// Machine algebra in the verb style of WFST toolkits: each command reads machines of any format
// and writes the stored result as text.
#include <cstdlib>

#include "CommandSupport.h"
#include "Commands.h"

namespace {

// Loads every positional argument, applies make to the list, writes to -o (standard output by
// default).
template <class Make>
int CombineInputs(char const* command, Arguments const& args, size_t at_least, size_t at_most,
                  Make make) {
  if (!args.ok || args.positional.size() < at_least || args.positional.size() > at_most)
    return UsageError(command, "wrong number of machines");
  OutputFile file(command, args.value("-o"));
  if (!file.ok()) return 1;
  fst::vector<FSTGeneric> machines;
  for (std::string const& in : args.positional) {
    machines.push_back(LoadInput(command, in));
    if (!machines.back()) return 1;
  }
  FSTGeneric result = FSTBasic(make(machines));
  result->dump_ascii(file.stream(), true);
  return file.commit() ? 0 : 1;
}

}  // namespace

int RunCompose(int argc, char** argv) {
  Arguments args(argc, argv);
  return CombineInputs("compose", args, 2, 2, [](fst::vector<FSTGeneric> const& m) {
    return FSTCompose(m[0], m[1]);
  });
}

int RunUnion(int argc, char** argv) {
  Arguments args(argc, argv);
  return CombineInputs("union", args, 1, size_t(-1),
                       [](fst::vector<FSTGeneric> const& m) { return FSTUnion(m); });
}

int RunConcat(int argc, char** argv) {
  Arguments args(argc, argv);
  return CombineInputs("concat", args, 1, size_t(-1),
                       [](fst::vector<FSTGeneric> const& m) { return FSTConcatenate(m); });
}

int RunInvert(int argc, char** argv) {
  Arguments args(argc, argv);
  bool const keep_weights = args.has("--keep-weights");
  return CopyResult("invert", args, [keep_weights](FSTGeneric const& m) {
    return keep_weights ? FSTProject(m, FSTArcOrderOutput, FSTArcOrderInput) : FSTInvert(m);
  });
}

int RunProject(int argc, char** argv) {
  Arguments args(argc, argv);
  FSTArcOrder side = args.has("--output") ? FSTArcOrderOutput : FSTArcOrderInput;
  return CopyResult("project", args, [side](FSTGeneric const& m) { return FSTProject(m, side, side); });
}

int RunReverse(int argc, char** argv) {
  Arguments args(argc, argv);
  return CopyResult("reverse", args, [](FSTGeneric const& m) { return FSTReverse(m); });
}

int RunClosure(int argc, char** argv) {
  Arguments args(argc, argv);
  bool plus = args.has("--plus");
  return CopyResult("closure", args, [plus](FSTGeneric const& m) { return FSTClosure(m, plus); });
}

int RunShortestPath(int argc, char** argv) {
  Arguments args(argc, argv);
  int n;
  if (!args.number("-n", 1, 1, 2147483647, n)) return 2;
  return CopyResult("shortestpath", args, [n](FSTGeneric const& m) { return FSTShortestPath(m, n); });
}
