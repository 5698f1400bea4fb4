// The JSGF compiler on any text, then a stored copy of what it compiled. Inputs whose first byte
// is odd go through a file, as the commands compile grammars, so that the messages that quote
// the file's lines with a caret are made too.
#include <unistd.h>

#include <fstream>
#include <string>

#include "FST.h"
#include "FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string text(reinterpret_cast<char const*>(data), size);
  FSTRtnSetMaxStates(2000);  // non-regular recursion is cut early: an execution stays short
  static std::string const file = "/tmp/fuzz_jsgf_" + std::to_string(getpid()) + ".gram";
  RunStoppable([&] {
    FSTGeneric m;
    std::string errors;
    bool compiled;
    if (size > 0 && (data[0] & 1)) {
      std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
      FSTJsgfOptions options;
      options.allow_undefined = true;
      compiled = FSTJsgfCompileFile(m, errors, file, options);
    } else {
      compiled = FSTJsgfParseString(m, errors, text.c_str(), false, false, false, false, true);
    }
    if (compiled) FSTBasic(m);
  });
  return 0;
}
