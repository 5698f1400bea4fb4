// Commands that write a stored copy of a lazy algorithm's result.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "CommandSupport.h"
#include "Commands.h"

namespace {

// --delta, a tolerance: a number from 0; false after the message.
bool Delta(Arguments const& args, float& delta) {
  double d;
  if (!args.number("--delta", 0.001, 0, 1e30, false, d)) return false;
  delta = float(d);
  return true;
}

}  // namespace

int RunRmEpsilon(int argc, char** argv) {
  Arguments args(argc, argv);
  float delta;
  if (!Delta(args, delta)) return 2;
  return CopyResult("rmepsilon", args, [&](FSTGeneric const& m) {
    return FSTRemoveEpsilons(m, args.has("--acceptor"), delta);
  });
}

int RunDeterminize(int argc, char** argv) {
  Arguments args(argc, argv);
  int limit;
  float delta;
  if (!args.number("--limit", 1, -2147483647 - 1, 2147483647, limit) || !Delta(args, delta))
    return 2;
  return CopyResult("determinize", args, [&](FSTGeneric const& m) {
    return FSTDeterminize(m, limit, args.has("--acceptor"), delta, false);
  });
}

int RunOptimize(int argc, char** argv) {
  Arguments args(argc, argv);
  std::string pipeline = args.value("--pipeline", "default");
  using Pipeline = FSTGeneric (*)(FSTGeneric&&, int, float);
  Pipeline optimize = pipeline == "default" ? Pipeline(FSTOptimize)
                      : pipeline == "2"     ? Pipeline(FSTOptimize2)
                      : pipeline == "A"     ? Pipeline(FSTOptimizeA)
                      : pipeline == "2A"    ? Pipeline(FSTOptimize2A)
                                            : nullptr;
  if (!optimize) return UsageError("optimize", "--pipeline is default, 2, A or 2A");
  int limit;
  float delta;
  if (!args.number("--limit", 1, -2147483647 - 1, 2147483647, limit) || !Delta(args, delta))
    return 2;
  return CopyResult("optimize", args,
                    [&](FSTGeneric&& m) { return optimize(std::move(m), limit, delta); });
}

int RunPush(int argc, char** argv) {
  Arguments args(argc, argv);
  return CopyResult("push", args, [](FSTGeneric const& m) { return FSTPushWeights(m); });
}

int RunMinimize(int argc, char** argv) {
  Arguments args(argc, argv);
  float delta;
  if (!Delta(args, delta)) return 2;
  return CopyResult("minimize", args,
                    [&](FSTGeneric const& m) { return FSTMinimize(m, delta); });
}

int RunTrim(int argc, char** argv) {
  Arguments args(argc, argv);
  return CopyResult("trim", args, [](FSTGeneric const& m) { return FSTTrim(m); });
}

int RunTopsort(int argc, char** argv) {
  Arguments args(argc, argv);
  return CopyResult("topsort", args, [](FSTGeneric const& m) {
    FSTGeneric sorted = FSTTopologicalSort(m);
    if (sorted->states().size() == 0 && m->states().size() > 0)
      std::fprintf(stderr, "t2sfst topsort: the machine is cyclic; writing an empty machine\n");
    return sorted;
  });
}
