// Building T2S models from grammars and applying them to text.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "CommandSupport.h"
#include "Commands.h"
#include "T2sBuilder.h"
#include "t2s_runtime.h"

int RunMakeModel(int argc, char** argv) {
  Arguments args(argc, argv, {"--allow-undefined"}, {"-I", "--max-states"});
  if (!args.ok || args.positional.size() != 2)
    return UsageError("make-model", "give GRAMMAR MODEL");
  std::string const& grammar = args.positional[0];
  std::string const& model_path = args.positional[1];
  if (model_path == "-") return UsageError("make-model", "MODEL must be a file");
  OutputFile output("make-model", model_path);
  if (!output.ok()) return 1;
  auto start = std::chrono::steady_clock::now();
  FSTGeneric compiled;
  if (!CompileGrammar("make-model", args, grammar, FSTJsgfOptions(), compiled)) return 1;
  // Built beside the model and renamed into place: a failure or a kill never costs the old one.
  T2sBuildModel(compiled, output.temp_path().c_str());
  char error[256];
  t2s_model* model = t2s_model_load(output.temp_path().c_str(), error, sizeof error);
  if (!model) {
    std::fprintf(stderr, "t2sfst make-model: %s\n", error);
    return 1;
  }
  std::ifstream written(output.temp_path(), std::ios::binary | std::ios::ate);
  long long bytes = static_cast<long long>(written.tellg());
  if (!output.commit()) {
    t2s_model_free(model);
    return 1;
  }
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%s: %u states, %u arcs, %u output strings, %lld bytes, %.3f s\n", model_path.c_str(),
              t2s_model_num_states(model), t2s_model_num_arcs(model), t2s_model_num_strings(model),
              bytes, seconds);
  t2s_model_free(model);
  return 0;
}

namespace {

using Text = std::pair<char const*, size_t>;

// Output gathered in one block and written to standard output in large pieces.
class OutputBuffer {
 public:
  static constexpr size_t kPadding = 16;

  size_t size() const { return size_; }
  bool Full() const { return size_ >= (1 << 16); }
  void Truncate(size_t size) { size_ = size; }
  void Put(char c) {
    Reserve(1);
    data_[size_++] = c;
  }
  void Append(char const* from, size_t n) {
    Reserve(n);
    std::memcpy(data_.data() + size_, from, n);
    size_ += n;
  }
  // Where to write up to n more bytes (kPadding more may be overwritten), then Wrote(them).
  char* Room(size_t n) {
    Reserve(n);
    return data_.data() + size_;
  }
  void Wrote(size_t n) { size_ += n; }
  void Flush() {
    std::fwrite(data_.data(), 1, size_, stdout);
    std::fflush(stdout);
    size_ = 0;
  }

 private:
  // Room for n more bytes, and kPadding beyond them for a fixed-size move.
  void Reserve(size_t n) {
    if (data_.size() - size_ < n + kPadding)
      data_.resize(std::max(2 * data_.size(), size_ + n + kPadding));
  }

  std::vector<char> data_ = std::vector<char>(1 << 17);
  size_t size_ = 0;
};

// The model's output strings, each with the separator in front, laid end to end: joining a
// path's outputs is then one copy per output.
class JoinedOutputs {
 public:
  JoinedOutputs(t2s_model const* model, std::string const& separator)
      : separator_size_(separator.size()) {
    uint32_t const n = t2s_model_num_strings(model);
    pieces_.reserve(n);
    for (uint32_t i = 0; i < n; ++i) {
      size_t const begin = text_.size();
      text_ += separator;
      text_.append(t2s_model_string(model, i), t2s_model_string_length(model, i));
      pieces_.push_back({begin, text_.size() - begin});
      longest_ = std::max(longest_, text_.size() - begin);
    }
    text_.append(OutputBuffer::kPadding, '\0');
  }

  void Append(uint32_t const* outputs, size_t n, OutputBuffer& out) const {
    if (n * longest_ > (1 << 16)) {  // not worth a room for the longest strings: one at a time
      for (size_t i = 0; i < n; ++i) {
        size_t const skip = i ? 0 : separator_size_;
        out.Append(text_.data() + pieces_[outputs[i]].begin + skip,
                   pieces_[outputs[i]].size - skip);
      }
      return;
    }
    // The cursor is a local: stores through a char pointer would otherwise make the compiler
    // reload the buffer's size after each copy.
    char* const begin = out.Room(n * longest_);
    char* to = begin;
    for (size_t i = 0; i < n; ++i) to = CopyPiece(outputs[i], i ? 0 : separator_size_, to);
    out.Wrote(size_t(to - begin));
  }

  // The outputs of several lines, edges[i] saying whether output i is its line's first (1) or
  // last (2); a newline follows each line's last. Returns false, writing nothing, where the
  // lines are too long for one room.
  bool AppendLines(uint32_t const* outputs, uint8_t const* edges, size_t n,
                   OutputBuffer& out) const {
    if (n * (longest_ + 1) > (1 << 16)) return false;
    char* const begin = out.Room(n * (longest_ + 1));
    char* to = begin;
    for (size_t i = 0; i < n; ++i) {
      // The separator skipped before a line's first output without a branch to mispredict.
      to = CopyPiece(outputs[i], separator_size_ & (0 - size_t(edges[i] & 1)), to);
      *to = '\n';  // kept only after a line's last output: the next piece overwrites it
      to += edges[i] >> 1;
    }
    out.Wrote(size_t(to - begin));
    return true;
  }

 private:
  // Output string i without its first skip bytes, copied to to (kPadding more may be
  // overwritten); returns the end of the copy.
  char* CopyPiece(uint32_t i, size_t skip, char* to) const {
    char const* from = text_.data() + pieces_[i].begin + skip;
    size_t const size = pieces_[i].size - skip;
    if (size <= OutputBuffer::kPadding)  // one fixed-size move, no call
      std::memcpy(to, from, OutputBuffer::kPadding);
    else
      std::memcpy(to, from, size);
    return to + size;
  }

  struct Piece {
    size_t begin, size;  // in text_, the separator included
  };
  size_t separator_size_;
  size_t longest_ = 0;  // piece
  std::string text_;
  std::vector<Piece> pieces_;
};

// Whole lines, each of which the model must read (blanks between words are its to read or
// skip), decoded a batch at a time: the decoder follows two lines at once.
class LineDecoder {
 public:
  static constexpr size_t kBatch = 256;

  LineDecoder(t2s_decoder* decoder, JoinedOutputs const& joined)
      : decoder_(decoder), joined_(joined) {}

  // Returns true when the batch is full.
  bool Add(Text line) {
    texts_[n_] = line.first;
    lengths_[n_] = line.second;
    return ++n_ == kBatch;
  }

  // Appends each line's outputs and a newline to out; calls miss(i) for a line that the model
  // does not read, after its (empty) line. Returns false when out of memory.
  template <typename Miss>
  bool Flush(OutputBuffer& out, Miss miss) {
    uint32_t const* outputs = nullptr;
    bool const ok =
        t2s_decoder_decode_many(decoder_, texts_, lengths_, n_, results_, &outputs) != 0;
    if (ok && !AppendAllFound(outputs, out)) {
      for (size_t i = 0; i < n_; ++i) {
        joined_.Append(outputs + results_[i].first_output, results_[i].n_outputs, out);
        out.Put('\n');
        if (!results_[i].found) miss(i);
      }
    }
    n_ = 0;
    return ok;
  }

  size_t size() const { return n_; }

 private:
  // Where every line of the batch was read and has an output (the usual case), its outputs are
  // written in one loop over the batch, each line's newline after its last: no loop per line,
  // whose exit would be mispredicted at most lines. Returns false, writing nothing, otherwise.
  bool AppendAllFound(uint32_t const* outputs, OutputBuffer& out) {
    bool all = true;
    size_t total = 0;
    for (size_t i = 0; i < n_; ++i) {
      all &= results_[i].found && results_[i].n_outputs > 0;
      total += results_[i].n_outputs;
    }
    if (!all || total > kBatch * kMostOutputs) return false;
    std::memset(line_edges_, 0, total);
    for (size_t i = 0; i < n_; ++i) {
      line_edges_[results_[i].first_output] |= kFirst;
      line_edges_[results_[i].first_output + results_[i].n_outputs - 1] |= kLast;
    }
    return joined_.AppendLines(outputs, line_edges_, total, out);
  }

  static constexpr size_t kMostOutputs = 16;  // a line's, on average, for the one loop
  static constexpr uint8_t kFirst = 1, kLast = 2;
  t2s_decoder* decoder_;
  JoinedOutputs const& joined_;
  size_t n_ = 0;
  uint8_t line_edges_[kBatch * kMostOutputs];
  char const* texts_[kBatch];
  size_t lengths_[kBatch];
  t2s_decoded results_[kBatch];
};

// From the left, the longest run of words that the model reads is replaced by its outputs; a
// word that starts no such run is copied. The runs are matched in the line's own bytes (blanks
// between words are the model's to read or skip, whatever they are).
class Rewriter {
 public:
  Rewriter(t2s_decoder* decoder, JoinedOutputs const& joined)
      : decoder_(decoder), joined_(joined) {}

  void Line(Text line, OutputBuffer& out) const {
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    char const* p = line.first;
    char const* end = line.first + line.second;
    while (p < end && blank(*p)) ++p;
    while (end > p && blank(end[-1])) --end;
    size_t const line_start = out.size();
    auto start_piece = [&out, line_start]() {
      if (out.size() > line_start) out.Put(' ');
    };
    while (p < end) {
      uint32_t const* outputs;
      size_t n;
      size_t const run =
          t2s_decoder_longest_match(decoder_, p, size_t(end - p), &outputs, &n, nullptr);
      if (run == 0) {
        char const* word_end = p;
        while (word_end < end && !blank(*word_end)) ++word_end;
        start_piece();
        out.Append(p, size_t(word_end - p));
        p = word_end;
      } else {
        size_t const before = out.size();
        start_piece();
        size_t const piece = out.size();
        joined_.Append(outputs, n, out);
        if (out.size() == piece) out.Truncate(before);  // an empty replacement adds no blank
        p += run;
      }
      while (p < end && blank(*p)) ++p;
    }
  }

 private:
  t2s_decoder* decoder_;
  JoinedOutputs const& joined_;
};

// Calls found(position) for each newline in data[0, size), in order. Sixty-four bytes are
// compared at a time: a line of a few words then costs neither a call nor a loop of its own.
template <typename Found>
void ForEachNewline(char const* data, size_t size, Found found) {
  size_t i = 0;
#ifdef __SSE2__
  __m128i const newline = _mm_set1_epi8('\n');
  auto mask16 = [&](size_t at) {
    __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(data + at));
    return uint64_t(uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, newline))));
  };
  for (; i + 64 <= size; i += 64) {
    uint64_t mask = mask16(i) | mask16(i + 16) << 16 | mask16(i + 32) << 32 | mask16(i + 48) << 48;
    for (; mask; mask &= mask - 1) found(i + size_t(__builtin_ctzll(mask)));
  }
#endif
  for (char const* nl; (nl = static_cast<char const*>(std::memchr(data + i, '\n', size - i)));) {
    found(size_t(nl - data));
    i = size_t(nl - data) + 1;
  }
}

// Calls handle(line) for each line of standard input (without its newline), reading in large
// blocks: a line is handed over where it lies in the buffer, and stays there until done() is
// called (before the buffer is reused, and at the end).
template <typename Handle, typename Done>
void ForEachInputLine(Handle handle, Done done) {
  std::vector<char> buffer(1 << 20);
  size_t held = 0;  // bytes of an unfinished line at the start of the buffer
  for (;;) {
    if (held == buffer.size()) buffer.resize(2 * buffer.size());
    size_t got = std::fread(buffer.data() + held, 1, buffer.size() - held, stdin);
    size_t const filled = held + got;
    size_t start = 0;
    ForEachNewline(buffer.data(), filled, [&](size_t nl) {
      handle(Text(buffer.data() + start, nl - start));
      start = nl + 1;
    });
    held = filled - start;
    if (got == 0 && held) handle(Text(buffer.data(), held));
    done();
    if (got == 0) break;
    std::memmove(buffer.data(), buffer.data() + start, held);
  }
}

}  // namespace

int RunApply(int argc, char** argv) {
  Arguments args(argc, argv, {"--rewrite"}, {"--sep"});
  if (!args.ok || args.positional.empty()) return UsageError("apply", "give MODEL [TEXT...]");
  std::string const& path = args.positional[0];
  std::string wrong = path == "-" ? "" : WrongKindOfFile(path, FileKind::model);
  if (!wrong.empty()) {
    std::fprintf(stderr, "t2sfst apply: %s%s\n", path.c_str(), wrong.c_str());
    return 1;
  }
  char error[256];
  t2s_model* model = t2s_model_load(path.c_str(), error, sizeof error);
  if (!model) {
    std::fprintf(stderr, "t2sfst apply: %s: %s\n", path.c_str(), error);
    return 1;
  }
  t2s_decoder* decoder = t2s_decoder_new(model);
  JoinedOutputs const joined(model, args.value("--sep", " "));
  Rewriter rewriter(decoder, joined);
  LineDecoder lines(decoder, joined);
  bool const rewrite = args.has("--rewrite");
  bool all_matched = true, out_of_memory = false;
  size_t line_number = 0;  // of the last line handed over
  // One output line per input line, so outputs line up with inputs; a miss is an empty line.
  OutputBuffer out;
  auto decode_lines = [&]() {
    size_t const first = line_number + 1 - lines.size();
    if (!lines.Flush(out, [&](size_t i) {
          out.Flush();
          std::fprintf(stderr, "line %zu: no match\n", first + i);
          all_matched = false;
        })) {
      std::fprintf(stderr, "t2sfst apply: out of memory at line %zu\n", first);
      out_of_memory = true;
    }
    if (out.Full()) out.Flush();
  };
  auto decode_line = [&](Text line) {
    ++line_number;
    if (!out_of_memory && lines.Add(line)) decode_lines();
  };
  auto rewrite_line = [&](Text line) {
    rewriter.Line(line, out);
    out.Put('\n');
    if (out.Full()) out.Flush();
  };
  if (args.positional.size() > 1) {
    for (size_t i = 1; i < args.positional.size(); ++i) {
      Text const text(args.positional[i].data(), args.positional[i].size());
      rewrite ? rewrite_line(text) : decode_line(text);
    }
    decode_lines();
  } else if (rewrite) {
    ForEachInputLine(rewrite_line, [] {});
  } else {
    ForEachInputLine(decode_line, decode_lines);
  }
  out.Flush();
  t2s_decoder_free(decoder);
  t2s_model_free(model);
  return all_matched && !out_of_memory ? 0 : 1;
}
