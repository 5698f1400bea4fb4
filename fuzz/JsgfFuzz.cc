// The JSGF compiler on any text, then a stored copy of what it compiled.
#include <string>

#include "FST.h"
#include "FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string text(reinterpret_cast<char const*>(data), size);
  FSTRtnSetMaxStates(2000);  // non-regular recursion is cut early: an execution stays short
  RunStoppable([&] {
    FSTGeneric m;
    std::string errors;
    if (FSTJsgfParseString(m, errors, text.c_str(), false, false, false, false, true))
      FSTBasic(m);
  });
  return 0;
}
