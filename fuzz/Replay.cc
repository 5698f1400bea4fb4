// Replays inputs through a fuzz target without libFuzzer: every file named, and every file of
// every folder named. Used by the test suite on the checked-in corpora.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "FuzzTarget.h"

int main(int argc, char** argv) {
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    struct stat info;
    if (stat(argv[i], &info) != 0) {
      std::fprintf(stderr, "replay: cannot read %s\n", argv[i]);
      return 2;
    }
    if (!S_ISDIR(info.st_mode)) {
      files.push_back(argv[i]);
      continue;
    }
    DIR* dir = opendir(argv[i]);
    for (dirent* entry; dir && (entry = readdir(dir));)
      if (entry->d_name[0] != '.') files.push_back(std::string(argv[i]) + "/" + entry->d_name);
    if (dir) closedir(dir);
  }
  std::sort(files.begin(), files.end());
  for (std::string const& file : files) {
    std::ifstream in(file, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<uint8_t const*>(bytes.data()), bytes.size());
  }
  std::printf("replayed %zu inputs\n", files.size());
  return files.empty() ? 1 : 0;
}
