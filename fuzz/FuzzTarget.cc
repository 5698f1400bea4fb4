#include "FuzzTarget.h"

#include <algorithm>
#include <cctype>

#include "FSTlib.h"

namespace fuzz_detail {

void ThrowStopped() { throw Stopped(); }

void InstallStopHandler() { FSTSetStopHandler(ThrowStopped); }

}  // namespace fuzz_detail

bool AsksForHugeMachine(std::string const& text) {
  long long number = -1;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
      number = std::min(10 * (number < 0 ? 0 : number) + (text[i] - '0'), 1LL << 40);
      continue;
    }
    if (number >= 1000000 && number < 2147483647LL) return true;
    number = -1;
  }
  return false;
}
