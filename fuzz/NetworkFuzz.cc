// The network readers ("#FSTRtn" and "#FSTDynamic") on any bytes, then the whole network expanded
// (within a small state budget, so that recursion that is not regular stays small) and written.
#include <sstream>
#include <string>

#include "FST.h"
#include "FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static int const budget = FSTRtnSetMaxStates(2000);
  (void)budget;
  std::string const text(reinterpret_cast<char const*>(data), size);
  if (AsksForHugeMachine(text)) return 0;
  RunStoppable([&] {
    std::istringstream in(text);
    FSTGeneric m = FSTLoadStream(in);
    std::ostringstream out;
    FSTBasic(m)->dump_ascii(out, true);
    if (m->name == "FSTRtn") FSTDumpRtn(m, out);
  });
  return 0;
}
