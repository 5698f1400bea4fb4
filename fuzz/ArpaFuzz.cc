// The ARPA reader on any text, then scoring a few sentences with what it read.
#include <sstream>
#include <string>

#include "FST.h"
#include "FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string text(reinterpret_cast<char const*>(data), size);
  RunStoppable([&] {
    std::istringstream in(text);
    FSTGeneric model;
    std::string error;
    if (!FSTNgramReadArpa(in, "fuzz", model, error)) return;
    FSTNgramRep const* m = FSTNgramCast(model);
    std::vector<int> history{FSTstring_map["<s>"]};
    for (int w : m->vocabulary()) m->cost(history, w), history.push_back(w);
    FSTGeneric det = FSTBasic(FSTNgramDeterminize(model));
  });
  return 0;
}
