// Machine algebra in the verb style of WFST toolkits: each command reads machines of any format
// and writes the stored result as text.
#include <cstdio>
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
  Progress progress(command, args);
  progress.stage("reading");
  fst::vector<FSTGeneric> machines;
  for (std::string const& in : args.positional) {
    machines.push_back(LoadInput(command, in));
    if (!machines.back()) return 1;
  }
  progress.stage("computing");
  FSTGeneric made = make(machines);
  if (!made) return 1;  // make said why
  FSTGeneric result = FSTBasic(made);
  progress.stage("writing");
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

namespace {

// Whether every arc of m has one label for both sides; says so when not.
bool IsAcceptor(char const* command, FSTGeneric const& m, std::string const& name) {
  FSTOperandForce(*m);
  for (int p = 0; p < m->states().size(); ++p)
    for (FSTArc* a : m->arcs_out(p, FSTArcOrderAny))
      if (a->input != a->output) {
        std::fprintf(stderr, "t2sfst %s: %s is not an acceptor (an arc reads '%s' and writes "
                             "'%s'): use compose, or project it first\n",
                     command, name.c_str(), FSTstring_map[a->input], FSTstring_map[a->output]);
        return false;
      }
  return true;
}

}  // namespace

int RunIntersect(int argc, char** argv) {
  Arguments args(argc, argv);
  return CombineInputs("intersect", args, 2, 2, [&](fst::vector<FSTGeneric> const& m) {
    bool const acceptors = IsAcceptor("intersect", m[0], args.positional[0]) &&
                           IsAcceptor("intersect", m[1], args.positional[1]);
    return acceptors ? FSTCompose(m[0], m[1]) : FSTGeneric();
  });
}

int RunDifference(int argc, char** argv) {
  Arguments args(argc, argv);
  return CombineInputs("difference", args, 2, 2, [&](fst::vector<FSTGeneric> const& m) {
    return IsAcceptor("difference", m[1], args.positional[1]) ? FSTDifference(m[0], m[1])
                                                              : FSTGeneric();
  });
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
