// Applying a T2S model to text: the lines of standard input (or the arguments), in one thread or
// in several. With several, the input is cut into blocks of whole lines, each decoded by a
// thread with a decoder of its own, and the outputs are written in input order: standard output
// and the messages on standard error are what one thread writes, byte for byte.
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CommandSupport.h"
#include "Commands.h"
#include "T2sApply.h"
#include "t2s_runtime.h"

namespace {

// Reads the next block of whole lines of standard input, about kBlock bytes (more when a line is
// longer), into text; carry holds the start of a line read with the previous block. Returns false
// at the end of the input.
constexpr size_t kBlock = 1 << 19;
bool ReadBlock(std::vector<char>& carry, std::vector<char>& text) {
  text.swap(carry);
  carry.clear();
  for (;;) {
    size_t const old = text.size();
    text.resize(old + kBlock);
    size_t const got = std::fread(text.data() + old, 1, kBlock, stdin);
    text.resize(old + got);
    if (got == 0) return !text.empty();
    auto last = static_cast<char const*>(memrchr(text.data() + old, '\n', got));
    if (last) {
      size_t const end = size_t(last - text.data()) + 1;
      carry.assign(text.begin() + long(end), text.end());
      text.resize(end);
      return true;
    }
  }
}

// One line of standard input, with its newline: for answers that must not wait for more input.
bool ReadLine(std::vector<char>& text) {
  text.clear();
  for (int c; (c = std::getc(stdin)) != EOF;) {
    text.push_back(char(c));
    if (c == '\n') break;
  }
  return !text.empty();
}

// What one thread made of a block, written when the blocks before it are.
struct Block {
  size_t first_line = 0;  // the number of its first line
  std::vector<char> text;
  T2sOutputBuffer out;
  std::vector<std::pair<size_t, size_t>> misses;  // (line number, end of its output line)
  size_t out_of_memory_at = 0;                    // the line where memory ran out, or 0
  bool done = false;
};

// Decodes lines into a block's output, noting each miss and where its output line ends.
void DecodeLines(T2sLineApplier& applier, Block& block, std::vector<T2sText> const& lines) {
  size_t const done = applier.Lines(lines.data(), lines.size(), block.out, [&](size_t i) {
    block.misses.emplace_back(block.first_line + i, block.out.size());
  });
  if (done < lines.size()) block.out_of_memory_at = block.first_line + done;
}

void ReportMiss(size_t line) { std::fprintf(stderr, "t2sfst apply: line %zu: no match\n", line); }
void ReportOutOfMemory(size_t line) {
  std::fprintf(stderr, "t2sfst apply: out of memory at line %zu\n", line);
}

// Writes a block's outputs, each miss reported where one thread reports it: after its line, with
// standard output flushed first. Returns false when memory ran out in the block.
bool WriteBlock(Block const& block) {
  size_t written = 0;
  for (auto const& miss : block.misses) {
    std::fwrite(block.out.data() + written, 1, miss.second - written, stdout);
    std::fflush(stdout);
    written = miss.second;
    ReportMiss(miss.first);
  }
  std::fwrite(block.out.data() + written, 1, block.out.size() - written, stdout);
  std::fflush(stdout);
  if (block.out_of_memory_at) ReportOutOfMemory(block.out_of_memory_at);
  return !block.out_of_memory_at;
}

// The blocks read and not yet written, in input order; threads take the next undecoded one.
class BlockQueue {
 public:
  BlockQueue(size_t threads) : most_(2 * threads + 1) {}

  // Runs the reader and writer in this thread and the decoders in `threads` others; returns
  // whether every line was read by the model (misses and memory aside, nothing fails).
  bool Run(t2s_model const* model, T2sJoinedOutputs const& joined, bool rewrite, bool follow_case,
           size_t threads) {
    std::vector<std::thread> workers;
    for (size_t t = 0; t < threads; ++t)
      workers.emplace_back([&] { Decode(model, joined, rewrite, follow_case); });
    bool all_matched = true, input_left = true, memory_left = true;
    std::vector<char> carry;
    size_t next_line = 1;
    std::unique_lock<std::mutex> lock(mutex_);
    while (memory_left) {
      while (memory_left && !blocks_.empty() && blocks_.front()->done) {
        std::unique_ptr<Block> block = std::move(blocks_.front());
        blocks_.pop_front();
        --claimed_;
        lock.unlock();
        all_matched &= block->misses.empty();
        memory_left = WriteBlock(*block);
        lock.lock();
      }
      if (!memory_left || (!input_left && blocks_.empty())) break;
      if (input_left && blocks_.size() < most_) {
        lock.unlock();
        auto block = std::make_unique<Block>();
        input_left = ReadBlock(carry, block->text);
        block->first_line = next_line;
        next_line += size_t(std::count(block->text.begin(), block->text.end(), '\n'));
        lock.lock();
        if (input_left) {
          blocks_.push_back(std::move(block));
          changed_.notify_all();
        }
        continue;
      }
      changed_.wait(lock);
    }
    stop_ = true;
    changed_.notify_all();
    lock.unlock();
    for (auto& worker : workers) worker.join();
    return all_matched && memory_left;
  }

 private:
  void Decode(t2s_model const* model, T2sJoinedOutputs const& joined, bool rewrite,
              bool follow_case) {
    T2sLineApplier applier(model, joined, rewrite, follow_case);
    std::vector<T2sText> lines;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      changed_.wait(lock, [&] { return stop_ || claimed_ < blocks_.size(); });
      if (stop_) return;
      Block& block = *blocks_[claimed_++];
      lock.unlock();
      T2sSplitLines(block.text.data(), block.text.size(), lines);
      if (applier.ok())
        DecodeLines(applier, block, lines);
      else
        block.out_of_memory_at = block.first_line;
      lock.lock();
      block.done = true;
      changed_.notify_all();
    }
  }

  size_t const most_;  // blocks in flight
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::unique_ptr<Block>> blocks_;
  size_t claimed_ = 0;  // blocks at the front taken by a thread
  bool stop_ = false;
};

// The lines of standard input decoded in this thread, a block at a time, or a line at a time
// with each output written as soon as it is known.
bool ApplyToInput(T2sLineApplier& applier, bool line_by_line) {
  std::vector<char> carry;
  std::vector<T2sText> lines;
  Block block;
  block.first_line = 1;
  bool all_matched = true;
  while (line_by_line ? ReadLine(block.text) : ReadBlock(carry, block.text)) {
    T2sSplitLines(block.text.data(), block.text.size(), lines);
    size_t const done = applier.Lines(lines.data(), lines.size(), block.out, [&](size_t i) {
      block.out.Flush();
      ReportMiss(block.first_line + i);
      all_matched = false;
    });
    block.out.Flush();
    if (done < lines.size()) {
      ReportOutOfMemory(block.first_line + done);
      return false;
    }
    block.first_line += lines.size();
  }
  return all_matched;
}

// The processors this process may run on.
int AvailableCores() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0) return std::max(1, CPU_COUNT(&set));
  return std::max(1, int(std::thread::hardware_concurrency()));
}

}  // namespace

int RunApply(int argc, char** argv) {
  Arguments args(argc, argv);
  if (!args.ok || args.positional.empty()) return UsageError("apply", "give MODEL [TEXT...]");
  int jobs;
  if (!args.number("-j", AvailableCores(), 1, 1024, jobs)) return 2;
  // At a terminal, or for a program that waits for each answer, a line at a time.
  bool const line_by_line = args.has("--line-buffered") || isatty(STDIN_FILENO);
  if (line_by_line) jobs = 1;
  t2s_model* model = LoadModel("apply", args.positional[0],
                                args.has("--ignore-case") ? T2S_IGNORE_CASE : 0);
  if (!model) return 1;
  T2sJoinedOutputs const joined(model, args.value("--sep", " "));
  bool const rewrite = args.has("--rewrite");
  bool const ignore_case = args.has("--ignore-case");
  bool all_matched = true;
  // One output line per input line, so outputs line up with inputs; a miss is an empty line.
  if (args.positional.size() > 1 || jobs == 1) {
    T2sLineApplier applier(model, joined, rewrite, ignore_case);
    if (!applier.ok()) {
      ReportOutOfMemory(1);
      all_matched = false;
    } else if (args.positional.size() > 1) {
      Block block;
      block.first_line = 1;
      std::vector<T2sText> texts;
      for (size_t i = 1; i < args.positional.size(); ++i)
        texts.emplace_back(args.positional[i].data(), args.positional[i].size());
      DecodeLines(applier, block, texts);
      all_matched = WriteBlock(block) && block.misses.empty();
    } else {
      all_matched = ApplyToInput(applier, line_by_line);
    }
  } else {
    all_matched =
        BlockQueue(size_t(jobs)).Run(model, joined, rewrite, ignore_case, size_t(jobs));
  }
  t2s_model_free(model);
  return all_matched ? 0 : 1;
}
