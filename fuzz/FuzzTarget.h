// What the fuzz targets share. A reader may stop with its own fatal message or a named
// failed check: under fuzzing that is an expected outcome, not a finding, so the library's stop
// handler unwinds back to the target instead of aborting. Everything else (a signal, a
// sanitizer report, a hang, gigabytes from a small input) is a finding.
#ifndef T2SFST_FUZZ_FUZZTARGET_H
#define T2SFST_FUZZ_FUZZTARGET_H

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

// A state number makes that many states exist (about 40 bytes each): a legitimate text machine
// can ask for gigabytes in a few bytes. Numbers from a million up to the largest state number
// test the memory bound, not the parser: inputs holding one are skipped (larger ones are
// refused before any allocation).
bool AsksForHugeMachine(std::string const& text);

// Runs body; a fatal stop inside it returns false (the message was printed already).
template <class Body>
bool RunStoppable(Body body);

namespace fuzz_detail {
struct Stopped {};
[[noreturn]] void ThrowStopped();
void InstallStopHandler();
}  // namespace fuzz_detail

template <class Body>
bool RunStoppable(Body body) {
  fuzz_detail::InstallStopHandler();
  try {
    body();
    return true;
  } catch (fuzz_detail::Stopped const&) {
    return false;
  }
}

#endif
