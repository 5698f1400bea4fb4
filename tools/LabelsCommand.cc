// Shows the process-wide label alphabet: ids of given texts, or the whole table.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <cstring>

#include "Commands.h"
#include "FST.h"

int RunLabels(int argc, char** argv) {
  int first_text = 1;
  if (argc >= 3 && !std::strcmp(argv[1], "--file")) {
    std::ifstream readable(argv[2]);
    struct stat info;
    if (!readable || stat(argv[2], &info) != 0 || S_ISDIR(info.st_mode)) {
      std::fprintf(stderr, "t2sfst labels: %s: %s\n", argv[2],
                   readable ? "it is a directory" : std::strerror(errno));
      return 1;
    }
    FSTLabels(argv[2]);
    first_text = 3;
  }
  if (first_text >= argc) {
    for (int id = 0; id < FSTstring_map.size(); ++id)
      std::printf("%d\t%s\n", id, FSTstring_map[id]);
    return 0;
  }
  for (int i = first_text; i < argc; ++i) std::printf("%d\t%s\n", FSTstring_map[argv[i]], argv[i]);
  return 0;
}
