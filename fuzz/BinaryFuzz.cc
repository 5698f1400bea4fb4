// The binary machine reader on any bytes after its header, then every query of the result.
#include <sstream>
#include <string>

#include "FST.h"
#include "FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string bytes(reinterpret_cast<char const*>(data), size);
  if (bytes.compare(0, 10, "#FSTBinary") != 0) return 0;  // other headers: the text target's
  RunStoppable([&] {
    std::istringstream in(bytes);
    FSTGeneric m = FSTLoadStream(in);
    std::ostringstream out;
    m->dump_ascii(out, true);
    for (int p : m->states()) {
      m->arcs_out_with_input(p, 2, FSTArcModeGreaterEqual);
      m->arcs_out_with_output(p, 2, FSTArcModeLessEqual);
    }
  });
  return 0;
}
