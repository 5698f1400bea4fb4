// The memory-mapped machine reader on any file, then every query of the result.
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include "FST.h"
#include "FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string bytes(reinterpret_cast<char const*>(data), size);
  if (bytes.compare(0, 8, "#FSTMmap") != 0) return 0;
  // The reader maps a file: each input becomes this process's scratch file.
  static std::string const file = "/tmp/t2sfst_fuzz_mmap_" + std::to_string(getpid());
  std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
  RunStoppable([&] {
    FSTGeneric m = FSTLoadFile(file.c_str());
    std::ostringstream out;
    m->dump_ascii(out, true);
  });
  unlink(file.c_str());
  return 0;
}
