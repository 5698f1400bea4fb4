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

// The machine with its total weight put back after pushing divided it out: the total is taken
// from a stored copy of the input, which the pipeline then reads.
template <class Push>
FSTGeneric KeepingTotal(FSTGeneric&& in, Push push) {
  FSTGeneric stored = FSTBasic(in);
  in = FSTGeneric();
  float const total = FSTTotalWeight(stored);
  return FSTMultiplyPaths(push(std::move(stored)), total);
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
  bool const acceptor = args.has("--acceptor");
  return CopyResult("determinize", args, [&](FSTGeneric const& m) {
    FSTGeneric result = FSTBasic(FSTDeterminize(m, limit, acceptor, delta, false));
    if (int const left = FSTNondeterministicStates(*result, acceptor))
      std::fprintf(stderr,
                   "t2sfst determinize: warning: the result is not deterministic: %d state%s "
                   "keep%s arcs of one %s apart (--limit %d)\n",
                   left, left == 1 ? "" : "s", left == 1 ? "s" : "",
                   acceptor ? "label pair" : "input label", limit);
    return result;
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
  bool const keep_total = args.has("--keep-total");
  return CopyResult("optimize", args, [&](FSTGeneric&& m) {
    auto run = [&](FSTGeneric&& in) { return optimize(std::move(in), limit, delta); };
    return keep_total ? KeepingTotal(std::move(m), run) : run(std::move(m));
  });
}

int RunPush(int argc, char** argv) {
  Arguments args(argc, argv);
  bool const keep_total = args.has("--keep-total");
  return CopyResult("push", args, [&](FSTGeneric&& m) {
    auto push = [](FSTGeneric&& in) { return FSTPushWeights(in); };
    return keep_total ? KeepingTotal(std::move(m), push) : push(std::move(m));
  });
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
  return CopyResult("topsort", args, [&](FSTGeneric const& m) {
    FSTGeneric sorted = FSTTopologicalSort(m);
    if (sorted->states().size() == 0 && m->states().size() > 0) {
      std::string const in = args.positional.empty() ? "-" : args.positional[0];
      std::fprintf(stderr, "t2sfst topsort: %s: the machine is cyclic; nothing written\n",
                   in == "-" ? "standard input" : in.c_str());
      return FSTGeneric();
    }
    return sorted;
  });
}

int RunArcSort(int argc, char** argv) {
  Arguments args(argc, argv);
  std::string const side = args.value("--sort", "input");
  if (side != "input" && side != "output") return UsageError("arcsort", "--sort is input or output");
  FSTArcOrder const order = side == "input" ? FSTArcOrderInput : FSTArcOrderOutput;
  return CopyResult("arcsort", args, [order](FSTGeneric const& m) {
    FSTGeneric sorted = FSTBasic(m);
    if (sorted->states().size() > 0) sorted->arcs_out(0, order);  // sorts every state's arcs
    return sorted;
  });
}
