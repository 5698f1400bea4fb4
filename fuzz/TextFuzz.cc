// The machine loader on any bytes (text records, headers), then the text and dot writers.
#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>

#include "FST.h"
#include "FuzzTarget.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string text(reinterpret_cast<char const*>(data), size);
  // A state number makes that many states exist (about 40 bytes each): a legitimate file can ask
  // for gigabytes in a few bytes. Numbers from a million up to the largest state number test the
  // memory bound, not the parser; skip them (larger ones are refused before any allocation).
  long long number = -1;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
      number = std::min(10 * (number < 0 ? 0 : number) + (text[i] - '0'), 1LL << 40);
      continue;
    }
    if (number >= 1000000 && number < 2147483647LL) return 0;
    number = -1;
  }
  RunStoppable([&] {
    std::istringstream in(text);
    FSTGeneric m = FSTLoadStream(in);
    std::ostringstream out;
    m->dump_ascii(out, true);
    m->dump_dot(out, "fuzz");
  });
  return 0;
}
