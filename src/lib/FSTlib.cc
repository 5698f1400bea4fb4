#include "FSTlib.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

FSTStopHandler stop_handler = nullptr;

[[noreturn]] void stop() {
  if (stop_handler) stop_handler();
  std::abort();
}

}  // namespace

FSTStopHandler FSTSetStopHandler(FSTStopHandler handler) {
  FSTStopHandler previous = stop_handler;
  stop_handler = handler;
  return previous;
}

void FSTFatal(char const* fmt, va_list args) {
  std::fputs("FATAL: ", stderr);
  std::vfprintf(stderr, fmt, args);
  std::fputc('\n', stderr);
  std::fflush(stderr);
  stop();
}

void FSTFatal(char const* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  FSTFatal(fmt, args);
}

void FSTWarn(char const* fmt, va_list args) {
  std::fputs("WARNING: ", stderr);
  std::vfprintf(stderr, fmt, args);
  std::fputc('\n', stderr);
}

void FSTWarn(char const* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  FSTWarn(fmt, args);
  va_end(args);
}

long file_mtime(char const* path) {
  struct stat info;
  if (stat(path, &info) != 0) return 0;
  return static_cast<long>(info.st_mtime);
}

void FSTAssertFail(char const* expression, char const* file, unsigned line, char const* function) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", program_invocation_short_name,
               file, line, function, expression);
  std::fflush(stderr);
  stop();
}
