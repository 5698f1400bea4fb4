// Shows the process-wide label alphabet: ids of given texts, or the whole table.
#include <cstdio>
#include <cstring>

#include "Commands.h"
#include "FST.h"

int RunLabels(int argc, char** argv) {
  int first_text = 1;
  if (argc >= 3 && !std::strcmp(argv[1], "--file")) {
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
