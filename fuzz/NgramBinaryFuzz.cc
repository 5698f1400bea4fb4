// The compiled n-gram reader on any bytes, then scoring sentences with what it read and reading
// it back as tables.
#include <string>

#include "FST.h"
#include "FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string bytes(reinterpret_cast<char const*>(data), size);
  RunStoppable([&] {
    std::unique_ptr<FSTNgramBinary> model = FSTNgramBinary::FromBytes(bytes, "fuzz");
    for (char const* sentence : {"a b c", "<unk> a a", "w1 w2 w3 w1", ""}) model->score(sentence);
    model->tables();
  });
  return 0;
}
