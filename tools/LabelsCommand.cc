// Shows the process-wide label alphabet: ids of given texts, or the whole table.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <cstring>

#include "CommandSupport.h"
#include "Commands.h"

int RunLabels(int argc, char** argv) {
  Arguments args(argc, argv);
  if (!args.ok) return UsageError("labels", "wrong arguments");
  if (args.has("--file")) {
    std::string const file = args.value("--file");
    std::ifstream readable(file);
    struct stat info;
    if (!readable || stat(file.c_str(), &info) != 0 || S_ISDIR(info.st_mode)) {
      std::fprintf(stderr, "t2sfst labels: %s: %s\n", file.c_str(),
                   readable ? "it is a directory" : std::strerror(errno));
      return 1;
    }
    FSTLabels(file.c_str());
  }
  if (args.positional.empty()) {
    for (int id = 0; id < FSTstring_map.size(); ++id)
      std::printf("%d\t%s\n", id, FSTstring_map[id]);
    return 0;
  }
  for (std::string const& text : args.positional)
    std::printf("%d\t%s\n", FSTstring_map[text.c_str()], text.c_str());
  return 0;
}
