// The machine loader on any bytes (text records, headers), then the text and dot writers.
#include <sstream>
#include <string>

#include "FST.h"
#include "FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string text(reinterpret_cast<char const*>(data), size);
  if (AsksForHugeMachine(text)) return 0;
  RunStoppable([&] {
    std::istringstream in(text);
    FSTGeneric m = FSTLoadStream(in);
    std::ostringstream out;
    m->dump_ascii(out, true);
    m->dump_dot(out, "fuzz");
  });
  return 0;
}
