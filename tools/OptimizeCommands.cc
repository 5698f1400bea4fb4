// Commands that write a stored copy of a lazy algorithm's result.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "CommandSupport.h"
#include "Commands.h"

namespace {

float Delta(Arguments const& args) {
  return float(std::atof(args.value("--delta", "0.001").c_str()));
}

}  // namespace

int RunRmEpsilon(int argc, char** argv) {
  Arguments args(argc, argv, MachineOutputFlags({"--acceptor"}), {"--delta"});
  return CopyResult("rmepsilon", args, [&](FSTGeneric const& m) {
    return FSTRemoveEpsilons(m, args.has("--acceptor"), Delta(args));
  });
}

int RunDeterminize(int argc, char** argv) {
  Arguments args(argc, argv, MachineOutputFlags({"--acceptor"}), {"--limit", "--delta"});
  int limit = std::atoi(args.value("--limit", "1").c_str());
  return CopyResult("determinize", args, [&](FSTGeneric const& m) {
    return FSTDeterminize(m, limit, args.has("--acceptor"), Delta(args), false);
  });
}

int RunOptimize(int argc, char** argv) {
  Arguments args(argc, argv, MachineOutputFlags({}), {"--pipeline", "--limit", "--delta"});
  std::string pipeline = args.value("--pipeline", "default");
  using Pipeline = FSTGeneric (*)(FSTGeneric&&, int, float);
  Pipeline optimize = pipeline == "default" ? Pipeline(FSTOptimize)
                      : pipeline == "2"     ? Pipeline(FSTOptimize2)
                      : pipeline == "A"     ? Pipeline(FSTOptimizeA)
                      : pipeline == "2A"    ? Pipeline(FSTOptimize2A)
                                            : nullptr;
  if (!optimize) return UsageError("optimize", "--pipeline is default, 2, A or 2A");
  int limit = std::atoi(args.value("--limit", "1").c_str());
  return CopyResult("optimize", args,
                    [&](FSTGeneric&& m) { return optimize(std::move(m), limit, Delta(args)); });
}

int RunPush(int argc, char** argv) {
  Arguments args(argc, argv, MachineOutputFlags({}), {});
  return CopyResult("push", args, [](FSTGeneric const& m) { return FSTPushWeights(m); });
}

int RunMinimize(int argc, char** argv) {
  Arguments args(argc, argv, MachineOutputFlags({}), {"--delta"});
  return CopyResult("minimize", args,
                    [&](FSTGeneric const& m) { return FSTMinimize(m, Delta(args)); });
}

int RunTrim(int argc, char** argv) {
  Arguments args(argc, argv, MachineOutputFlags({}), {});
  return CopyResult("trim", args, [](FSTGeneric const& m) { return FSTTrim(m); });
}

int RunTopsort(int argc, char** argv) {
  Arguments args(argc, argv, MachineOutputFlags({}), {});
  return CopyResult("topsort", args, [](FSTGeneric const& m) {
    FSTGeneric sorted = FSTTopologicalSort(m);
    if (sorted->states().size() == 0 && m->states().size() > 0)
      std::fprintf(stderr, "t2sfst topsort: the machine is cyclic; writing an empty machine\n");
    return sorted;
  });
}
