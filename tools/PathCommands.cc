// Commands about a machine's paths: random paths (or sentences of a grammar), and whether two
// machines are equivalent.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

#include "CommandSupport.h"
#include "Commands.h"

namespace {

// A grammar by its header or its name's ending.
bool IsGrammarFile(std::string const& path) {
  auto ends = [&](char const* ending) {
    size_t const n = std::strlen(ending);
    return path.size() > n && path.compare(path.size() - n, n, ending) == 0;
  };
  char head[5] = {};
  std::ifstream(path, std::ios::binary).read(head, 5);
  return ends(".gram") || ends(".jsgf") || std::strncmp(head, "#JSGF", 5) == 0;
}

std::string Side(std::vector<FSTArc> const& arcs, bool output) {
  std::string text;
  for (FSTArc const& a : arcs) {
    int const label = output ? a.output : a.input;
    if (!label) continue;
    if (!text.empty()) text += ' ';
    text += FSTstring_map[label];
  }
  return text;
}

}  // namespace

int RunRandGen(int argc, char** argv) {
  Arguments args(argc, argv);
  int n, max_length;
  double seed;
  if (!args.ok || args.positional.size() > 1) return UsageError("randgen", "wrong arguments");
  if (!args.number("-n", 1, 1, 100000000, n) ||
      !args.number("--max-length", 1000, 1, 100000000, max_length) ||
      !args.number("--seed", 1, 0, 9007199254740992.0, true, seed))
    return 2;
  std::string const in = args.positional.empty() ? "" : args.positional[0];
  FSTGeneric m;
  if (!in.empty() && in != "-" && IsGrammarFile(in)) {
    if (!CompileGrammar("randgen", args, in, FSTJsgfOptions(), m)) return 1;
    m = FSTJsgfSplitTokens(m);  // sentences in spoken words, with their written forms
  } else {
    m = LoadInput("randgen", in);
    if (!m) return 1;
  }
  std::vector<FSTRandomPath> const paths =
      FSTRandomPaths(m, n, uint64_t(seed), args.has("--by-weight"), max_length);
  if (int(paths.size()) < n)
    std::fprintf(stderr, "t2sfst randgen: warning: %zu path%s of at most %d arcs found, not %d\n",
                 paths.size(), paths.size() == 1 ? "" : "s", max_length, n);
  if (args.has("--machine")) {
    FSTPathsMachine(m->semiring(), paths)->dump_ascii(std::cout, true);
  } else {
    for (FSTRandomPath const& path : paths) {
      std::string const input = Side(path.arcs, false), output = Side(path.arcs, true);
      std::printf("%s%s%s\n", input.c_str(), output == input ? "" : "\t", output == input ? "" : output.c_str());
    }
  }
  std::cout.flush();
  return 0;
}

int RunEquivalent(int argc, char** argv) {
  Arguments args(argc, argv);
  double delta;
  if (!args.ok || args.positional.size() != 2) return UsageError("equivalent", "give A B");
  if (!args.number("--delta", 0.001, 0, 1e30, false, delta)) return 2;
  FSTGeneric a = LoadInput("equivalent", args.positional[0]);
  if (!a) return 1;
  FSTGeneric b = LoadInput("equivalent", args.positional[1]);
  if (!b) return 1;
  std::string difference;
  if (FSTEquivalent(a, b, float(delta), &difference)) {
    std::printf("equivalent\n");
    return 0;
  }
  std::printf("not equivalent: %s\n", difference.c_str());
  return 1;
}
