#include "FSTlib.h"

#include <atomic>

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

FSTStopHandler stop_handler = nullptr;
int catching = 0;
FSTStop caught_stop;
std::string reading_file;
long reading_line = 0;
long reading_offset = -1;  // within a part of a file: the lines before it

// Inside FSTCatchStops a stop is recorded and unwinds instead of printing.
void unwind_if_caught(std::string message) {
  if (catching == 0) return;
  caught_stop.message = std::move(message);
  caught_stop.file = reading_file;
  caught_stop.line = reading_line;
  throw fst_stop_detail::Unwind();
}

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
  if (catching) {
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    std::string message(size_t(n > 0 ? n : 0) + 1, '\0');
    std::vsnprintf(&message[0], message.size(), fmt, args);
    message.pop_back();
    unwind_if_caught(message);
  }
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

namespace {
std::atomic<FSTWarnSink> warn_sink{nullptr};
}  // namespace

FSTWarnSink FSTSetWarnSink(FSTWarnSink sink) { return warn_sink.exchange(sink); }

void FSTWarn(char const* fmt, va_list args) {
  if (FSTWarnSink sink = warn_sink.load()) {
    char message[1024];
    std::vsnprintf(message, sizeof message, fmt, args);
    sink(message);
    return;
  }
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

namespace fst_stop_detail {
Catching::Catching() { ++catching; }
Catching::~Catching() { --catching; }
FSTStop const& caught() { return caught_stop; }
}  // namespace fst_stop_detail

FSTReadingPlace::FSTReadingPlace(char const* file)
    : _previous_file(reading_file), _previous_line(reading_line), _previous_offset(reading_offset) {
  // A stream without a name inside a part keeps the part's file and lines.
  if (!file && reading_offset >= 0) return;
  reading_file = file ? file : "";
  reading_line = 0;
  reading_offset = -1;
}

FSTReadingPlace::FSTReadingPlace(long lines_before)
    : _previous_file(reading_file), _previous_line(reading_line), _previous_offset(reading_offset) {
  reading_offset = lines_before;
}

FSTReadingPlace::~FSTReadingPlace() {
  reading_file = _previous_file;
  reading_line = _previous_line;
  reading_offset = _previous_offset;
}

void FSTReadingPlace::at_line(long line) {
  reading_line = line + (reading_offset > 0 ? reading_offset : 0);
}

long file_mtime(char const* path) {
  struct stat info;
  if (stat(path, &info) != 0) return 0;
  return static_cast<long>(info.st_mtime);
}

void FSTAssertFail(char const* expression, char const* file, unsigned line, char const* function) {
  if (catching)
    unwind_if_caught(std::string("failed check `") + expression + "' in " + function + " (" +
                     file + ":" + std::to_string(line) + ")");
  std::fflush(stdout);
  std::fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", program_invocation_short_name,
               file, line, function, expression);
  std::fflush(stderr);
  stop();
}
