// Diagnostics and small process-wide helpers shared by the whole toolkit.
#ifndef T2SFST_FSTLIB_H
#define T2SFST_FSTLIB_H

#include <cstdarg>
#include <string>

// Prints "FATAL: ", the message and a newline to standard error, flushes and aborts.
[[noreturn]] void FSTFatal(char const* fmt, ...) __attribute__((format(printf, 1, 2)));
[[noreturn]] void FSTFatal(char const* fmt, va_list args);

// Prints "WARNING: ", the message and a newline to standard error; does not flush.
void FSTWarn(char const* fmt, ...) __attribute__((format(printf, 1, 2)));
void FSTWarn(char const* fmt, va_list args);

// Where warnings go: by default "WARNING: " and the message on standard error. A program that
// writes its own messages in one style (a command-line tool) may take them instead; null restores
// the default. Returns the previous sink.
using FSTWarnSink = void (*)(char const* message);
FSTWarnSink FSTSetWarnSink(FSTWarnSink sink);

// What a fatal error or a failed check does after its message: abort() by default. A test or
// fuzzing harness may install a handler that unwinds to its own frame (it must not return);
// null restores abort(). Returns the previous handler.
using FSTStopHandler = void (*)();
FSTStopHandler FSTSetStopHandler(FSTStopHandler handler);

// ---- stops a caller survives ----------------------------------------------------------------

// A stop caught by FSTCatchStops: the message FSTFatal or a failed check would have printed
// (without "FATAL: "), and where the library was reading: the file ("" when none) and the line
// (0 when the reader counts none).
struct FSTStop {
  std::string message;
  std::string file;
  long line = 0;
};

// Runs body and returns true. Where the library stops inside it (a fatal error or a failed
// check, on a bad file or a bad argument), nothing is printed and the process goes on: body's
// frames are unwound, what they were building is not freed, and false is returned with the stop.
// For hosts and commands that read files they do not trust. Calls may nest; the library stays
// single-threaded.
template <class Body>
bool FSTCatchStops(Body&& body, FSTStop& stop);

// Where the library is reading, for the stops' messages: a loader enters a file for as long as
// it reads it, and a line-oriented reader reports its line.
class FSTReadingPlace {
 public:
  explicit FSTReadingPlace(char const* file);
  // A part of the file being read that a reader reads as a whole stream: its lines are
  // reported after the first `lines_before` lines of the file.
  explicit FSTReadingPlace(long lines_before);
  ~FSTReadingPlace();
  FSTReadingPlace(FSTReadingPlace const&) = delete;
  FSTReadingPlace& operator=(FSTReadingPlace const&) = delete;
  static void at_line(long line);

 private:
  std::string _previous_file;
  long _previous_line, _previous_offset;
};

// Modification time of a file in whole seconds since the epoch, or 0 when it cannot be read.
long file_mtime(char const* path);

// Reports a failed internal check in the C library's assertion format and aborts.
[[noreturn]] void FSTAssertFail(char const* expression, char const* file, unsigned line,
                                char const* function);

// Internal consistency check that stays active in optimised builds: bad state ids and the like
// must stop the process with the condition's text, never corrupt memory silently.
#define FST_ASSERT(expression)                        \
  (__builtin_expect(static_cast<bool>(expression), 1) \
       ? static_cast<void>(0)                         \
       : FSTAssertFail(#expression, __FILE__, __LINE__, __PRETTY_FUNCTION__))

// Checks a state argument against the machine's state count; the condition texts name the
// argument, e.g. "(q) >= 0" for FST_ASSERT_STATE(q).
#define FST_ASSERT_STATE(p) \
  FST_ASSERT((p) >= 0);     \
  FST_ASSERT((p) < _n_states)

// ---- private: how a caught stop unwinds ----------------------------------------------------------

namespace fst_stop_detail {
struct Unwind {};
// While at least one FSTCatchStops runs, a stop records itself and throws Unwind.
class Catching {
 public:
  Catching();
  ~Catching();
};
FSTStop const& caught();
}  // namespace fst_stop_detail

template <class Body>
bool FSTCatchStops(Body&& body, FSTStop& stop) {
  fst_stop_detail::Catching catching;
  try {
    body();
    return true;
  } catch (fst_stop_detail::Unwind const&) {
    stop = fst_stop_detail::caught();
    return false;
  }
}

#endif
