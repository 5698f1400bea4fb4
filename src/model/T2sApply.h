// Applying a T2S model to lines of text, as `t2sfst apply` does and as the bindings do: whole-line
// decoding (each line must be read by the model) and rewriting (the longest runs of words that it
// reads are replaced by their outputs, other words are copied). Outputs are joined with a
// separator. Cost per line: the runtime's search, plus one copy per output.
//
// A model is read-only once loaded: any number of appliers may use one model at once, in
// different threads; each applier (its decoder) belongs to one thread at a time.
#ifndef T2SFST_T2SAPPLY_H
#define T2SFST_T2SAPPLY_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "t2s_runtime.h"

using T2sText = std::pair<char const*, size_t>;

// The lines of data[0, size) without their newlines; a last line without one counts too.
void T2sSplitLines(char const* data, size_t size, std::vector<T2sText>& lines);

// Output gathered in one block, handed on in large pieces.
class T2sOutputBuffer {
 public:
  static constexpr size_t kPadding = 16;

  char const* data() const { return data_.data(); }
  char* at(size_t i) { return data_.data() + i; }
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
  // Writes the contents to standard output, flushes it, and empties the buffer.
  void Flush();

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
class T2sJoinedOutputs {
 public:
  T2sJoinedOutputs(t2s_model const* model, std::string const& separator);

  // The outputs joined by the separator, none before the first, none between two outputs
  // that attach (see t2s_model_text).
  void Append(uint32_t const* outputs, size_t n, T2sOutputBuffer& out) const;
  // How output i attaches to its neighbours.
  int Attach(uint32_t i) const { return attach_.empty() ? 0 : attach_[i]; }
  // The outputs of several lines, edges[i] saying whether output i is its line's first (1) or
  // last (2); a newline follows each line's last. Returns false, writing nothing, where the
  // lines are too long for one room.
  bool AppendLines(uint32_t const* outputs, uint8_t const* edges, size_t n,
                   T2sOutputBuffer& out) const;

 private:
  // Output string i without its first skip bytes, copied to to (kPadding more may be
  // overwritten); returns the end of the copy.
  char* CopyPiece(uint32_t i, size_t skip, char* to) const {
    char const* from = text_.data() + pieces_[i].begin + skip;
    size_t const size = pieces_[i].size - skip;
    if (size <= T2sOutputBuffer::kPadding)  // one fixed-size move, no call
      std::memcpy(to, from, T2sOutputBuffer::kPadding);
    else
      std::memcpy(to, from, size);
    return to + size;
  }

  struct Piece {
    size_t begin, size;  // in text_, the separator included
  };
  size_t separator_size_;
  size_t longest_ = 0;  // piece
  std::vector<uint8_t> attach_;  // of each output; empty when none attaches
  std::string text_;
  std::vector<Piece> pieces_;
};

// Whole lines, each of which the model must read (blanks between words are its to read or
// skip), decoded a batch at a time: the decoder follows two lines at once.
class T2sLineDecoder {
 public:
  static constexpr size_t kBatch = 256;

  T2sLineDecoder(t2s_decoder* decoder, T2sJoinedOutputs const& joined)
      : decoder_(decoder), joined_(joined) {}

  // Returns true when the batch is full. The line's bytes must stay until the next flush.
  bool Add(T2sText line) {
    texts_[n_] = line.first;
    lengths_[n_] = line.second;
    return ++n_ == kBatch;
  }

  // Appends each line's outputs and a newline to out; calls miss(i) for a line i of the batch
  // that the model does not read, after its (empty) line. Returns false when out of memory.
  template <typename Miss>
  bool Flush(T2sOutputBuffer& out, Miss miss) {
    uint32_t const* outputs = nullptr;
    bool const ok = Decode(&outputs);
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

  // Appends each line's outputs, without a newline, calling line(i, found) after line i of the
  // batch. Returns false when out of memory.
  template <typename Line>
  bool FlushEach(T2sOutputBuffer& out, Line line) {
    uint32_t const* outputs = nullptr;
    bool const ok = Decode(&outputs);
    for (size_t i = 0; ok && i < n_; ++i) {
      joined_.Append(outputs + results_[i].first_output, results_[i].n_outputs, out);
      line(i, results_[i].found != 0);
    }
    n_ = 0;
    return ok;
  }

  size_t size() const { return n_; }

 private:
  bool Decode(uint32_t const** outputs) {
    return t2s_decoder_decode_many(decoder_, texts_, lengths_, n_, results_, outputs) != 0;
  }
  // Where every line of the batch was read and has an output (the usual case), its outputs are
  // written in one loop over the batch, each line's newline after its last: no loop per line,
  // whose exit would be mispredicted at most lines. Returns false, writing nothing, otherwise.
  bool AppendAllFound(uint32_t const* outputs, T2sOutputBuffer& out);

  static constexpr size_t kMostOutputs = 16;  // a line's, on average, for the one loop
  static constexpr uint8_t kFirst = 1, kLast = 2;
  t2s_decoder* decoder_;
  T2sJoinedOutputs const& joined_;
  size_t n_ = 0;
  uint8_t line_edges_[kBatch * kMostOutputs];
  char const* texts_[kBatch];
  size_t lengths_[kBatch];
  t2s_decoded results_[kBatch];
};

// From the left, the longest run of words that the model reads is replaced by its outputs; a
// word that starts no such run is copied. The runs are matched in the line's own bytes (blanks
// between words are the model's to read or skip, whatever they are). With follow_case (for a
// model that ignores case), a run spoken with a capital first letter gets its first output's
// first letter capitalised: "Mister smith" -> "Mr. smith"; "Two dollars" -> "$2" is unchanged.
class T2sRewriter {
 public:
  T2sRewriter(t2s_decoder* decoder, T2sJoinedOutputs const& joined, bool follow_case = false)
      : decoder_(decoder), joined_(joined), follow_case_(follow_case) {}

  // Appends the rewritten line, without a newline.
  void Line(T2sText line, T2sOutputBuffer& out) const;

 private:
  t2s_decoder* decoder_;
  T2sJoinedOutputs const& joined_;
  bool follow_case_;
};

// Lines applied to a model by a decoder of its own, either way: what one thread of the command
// or of a batch call runs.
class T2sLineApplier {
 public:
  T2sLineApplier(t2s_model const* model, T2sJoinedOutputs const& joined, bool rewrite,
                 bool follow_case = false);
  ~T2sLineApplier();
  T2sLineApplier(T2sLineApplier const&) = delete;
  T2sLineApplier& operator=(T2sLineApplier const&) = delete;
  bool ok() const { return decoder_ != nullptr; }

  // Appends each line's output and a newline to out, the order kept; calls miss(i) for a line i
  // that the model does not read (whole lines only), after its empty output line. Returns n, or
  // where the batch that ran out of memory starts (the lines before it are done).
  template <typename Miss>
  size_t Lines(T2sText const* lines, size_t n, T2sOutputBuffer& out, Miss miss) {
    if (rewrite_) {
      for (size_t i = 0; i < n; ++i) {
        rewriter_.Line(lines[i], out);
        out.Put('\n');
      }
      return n;
    }
    for (size_t i = 0; i < n;) {
      size_t const first = i;
      while (i < n && !decoder_lines_.Add(lines[i])) ++i;
      if (i < n) ++i;
      if (!decoder_lines_.Flush(out, [&](size_t k) { miss(first + k); })) return first;
    }
    return n;
  }

  // Each line's output apart: ends[i] is where line i's output ends in out (it starts where the
  // previous one ends), found[i] whether the model read the line (always, when rewriting).
  // Returns false when out of memory.
  bool Each(T2sText const* lines, size_t n, T2sOutputBuffer& out, std::vector<size_t>& ends,
            std::vector<bool>& found);

 private:
  t2s_decoder* decoder_;
  bool rewrite_;
  T2sLineDecoder decoder_lines_;
  T2sRewriter rewriter_;
};

#endif
