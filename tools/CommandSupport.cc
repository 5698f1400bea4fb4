#include "CommandSupport.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

Arguments::Arguments(int argc, char** argv, std::vector<std::string> const& flags,
                     std::vector<std::string> const& with_value) {
  auto listed = [](std::vector<std::string> const& list, std::string const& s) {
    for (std::string const& item : list)
      if (item == s) return true;
    return false;
  };
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg.size() > 1 && arg[0] == '-' && arg != "-") {
      if (listed(flags, arg)) {
        options.push_back({arg, ""});
      } else if (listed(with_value, arg) && i + 1 < argc) {
        options.push_back({arg, argv[++i]});
      } else {
        std::fprintf(stderr, "t2sfst %s: unknown option or missing value: %s\n", argv[0],
                     arg.c_str());
        ok = false;
      }
    } else {
      positional.push_back(arg);
    }
  }
}

bool Arguments::has(std::string const& option) const {
  for (auto const& o : options)
    if (o.first == option) return true;
  return false;
}

std::string Arguments::value(std::string const& option, std::string const& fallback) const {
  for (auto const& o : options)
    if (o.first == option) return o.second;
  return fallback;
}

FSTGeneric LoadInput(char const* command, std::string const& path) {
  if (!path.empty() && path != "-") {
    std::ifstream probe(path);
    if (!probe) {
      std::fprintf(stderr, "t2sfst %s: cannot read %s: %s\n", command, path.c_str(),
                   std::strerror(errno));
      return FSTGeneric();
    }
  }
  return FSTLoad(path);
}

bool CanWrite(char const* command, std::string const& path) {
  if (path.empty() || path == "-") return true;
  std::ofstream probe(path, std::ios::app);
  if (probe) return true;
  std::fprintf(stderr, "t2sfst %s: cannot write %s: %s\n", command, path.c_str(),
               std::strerror(errno));
  return false;
}

int UsageError(char const* command, char const* message) {
  std::fprintf(stderr, "t2sfst %s: %s (see 't2sfst help %s')\n", command, message, command);
  return 2;
}
