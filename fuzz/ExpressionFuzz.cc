// The expression reader on any text. Operands name files: the corpus uses names that do not
// exist, so inputs test the parser, the calls' arguments and the messages.
#include <string>

#include "FST.h"
#include "FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string text(reinterpret_cast<char const*>(data), size);
  RunStoppable([&] {
    FSTGeneric m;
    std::string messages;
    FSTExpression(text, m, messages);
  });
  return 0;
}
