// Commands that write a stored copy of a lazy algorithm's result.
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "CommandSupport.h"
#include "Commands.h"

namespace {

// Loads IN, applies make to it, writes the stored result to OUT (standard output by default).
template <class Make>
int CopyResult(char const* command, Arguments const& args, Make make) {
  if (!args.ok || args.positional.size() > 2) return UsageError(command, "wrong arguments");
  std::string in = args.positional.size() > 0 ? args.positional[0] : "";
  std::string out = args.positional.size() > 1 ? args.positional[1] : "";
  if (!CanWrite(command, out)) return 1;
  FSTGeneric m = LoadInput(command, in);
  if (!m) return 1;
  FSTGeneric result = FSTBasic(make(m));
  result->dump_ascii(out, true);
  return 0;
}

float Delta(Arguments const& args) {
  return float(std::atof(args.value("--delta", "0.001").c_str()));
}

}  // namespace

int RunRmEpsilon(int argc, char** argv) {
  Arguments args(argc, argv, {"--acceptor"}, {"--delta"});
  return CopyResult("rmepsilon", args, [&](FSTGeneric const& m) {
    return FSTRemoveEpsilons(m, args.has("--acceptor"), Delta(args));
  });
}

int RunDeterminize(int argc, char** argv) {
  Arguments args(argc, argv, {"--acceptor"}, {"--limit", "--delta"});
  int limit = std::atoi(args.value("--limit", "1").c_str());
  return CopyResult("determinize", args, [&](FSTGeneric const& m) {
    return FSTDeterminize(m, limit, args.has("--acceptor"), Delta(args), false);
  });
}
