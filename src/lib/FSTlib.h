// Diagnostics and small process-wide helpers shared by the whole toolkit.
#ifndef T2SFST_FSTLIB_H
#define T2SFST_FSTLIB_H

#include <cstdarg>

// Prints "FATAL: ", the message and a newline to standard error, flushes and aborts.
[[noreturn]] void FSTFatal(char const* fmt, ...) __attribute__((format(printf, 1, 2)));
[[noreturn]] void FSTFatal(char const* fmt, va_list args);

// Prints "WARNING: ", the message and a newline to standard error; does not flush.
void FSTWarn(char const* fmt, ...) __attribute__((format(printf, 1, 2)));
void FSTWarn(char const* fmt, va_list args);

// What a fatal error or a failed check does after its message: abort() by default. A test or
// fuzzing harness may install a handler that unwinds to its own frame (it must not return);
// null restores abort(). Returns the previous handler.
using FSTStopHandler = void (*)();
FSTStopHandler FSTSetStopHandler(FSTStopHandler handler);

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

#endif
