// The packed n-gram reader on any bytes, then scoring a few sentences with what it read.
#include <sstream>
#include <string>

#include "FST.h"
#include "FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string bytes(reinterpret_cast<char const*>(data), size);
  RunStoppable([&] {
    std::istringstream in(bytes);
    FSTGeneric model = FSTNgramLoadPacked(in, "fuzz");
    FSTNgramRep const* m = FSTNgramCast(model);
    std::vector<int> history{FSTstring_map["<s>"]};
    for (int w : m->vocabulary()) m->cost(history, w), history.push_back(w);
    std::ostringstream text;
    m->dump_ngram(text);
  });
  return 0;
}
