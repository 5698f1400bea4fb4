#include "FuzzTarget.h"

#include "FSTlib.h"

namespace fuzz_detail {

void ThrowStopped() { throw Stopped(); }

void InstallStopHandler() { FSTSetStopHandler(ThrowStopped); }

}  // namespace fuzz_detail
