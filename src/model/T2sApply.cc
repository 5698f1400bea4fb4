#include "T2sApply.h"

#include <cstdio>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace {

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

}  // namespace

void T2sSplitLines(char const* data, size_t size, std::vector<T2sText>& lines) {
  lines.clear();
  size_t start = 0;
  ForEachNewline(data, size, [&](size_t nl) {
    lines.emplace_back(data + start, nl - start);
    start = nl + 1;
  });
  if (start < size) lines.emplace_back(data + start, size - start);
}

void T2sOutputBuffer::Flush() {
  std::fwrite(data_.data(), 1, size_, stdout);
  std::fflush(stdout);
  size_ = 0;
}

T2sJoinedOutputs::T2sJoinedOutputs(t2s_model const* model, std::string const& separator)
    : separator_size_(separator.size()) {
  uint32_t const n = t2s_model_num_strings(model);
  pieces_.reserve(n);
  bool any_attach = false;
  for (uint32_t i = 0; i < n; ++i) {
    size_t const begin = text_.size();
    size_t length;
    int attach;
    char const* text = t2s_model_text(model, i, &length, &attach);
    text_ += separator;
    text_.append(text, length);
    pieces_.push_back({begin, text_.size() - begin});
    longest_ = std::max(longest_, text_.size() - begin);
    attach_.push_back(uint8_t(attach));
    any_attach |= attach != 0;
  }
  if (!any_attach) attach_.clear();
  text_.append(T2sOutputBuffer::kPadding, '\0');
}

void T2sJoinedOutputs::Append(uint32_t const* outputs, size_t n, T2sOutputBuffer& out) const {
  if (n == 0) return;
  if (n * longest_ > (1 << 16)) {  // not worth a room for the longest strings: one at a time
    int before = T2S_ATTACH_NEXT;  // no separator before the first
    for (size_t i = 0; i < n; ++i) {
      int const attach = Attach(outputs[i]);
      size_t const skip = t2s_attached(before, attach) ? separator_size_ : 0;
      out.Append(text_.data() + pieces_[outputs[i]].begin + skip, pieces_[outputs[i]].size - skip);
      before = attach;
    }
    return;
  }
  // The cursor is a local: stores through a char pointer would otherwise make the compiler
  // reload the buffer's size after each copy.
  char* const begin = out.Room(n * longest_);
  char* to = begin;
  if (attach_.empty()) {
    for (size_t i = 0; i < n; ++i) to = CopyPiece(outputs[i], i ? 0 : separator_size_, to);
  } else {
    int before = T2S_ATTACH_NEXT;
    for (size_t i = 0; i < n; ++i) {
      int const attach = attach_[outputs[i]];
      to = CopyPiece(outputs[i], t2s_attached(before, attach) ? separator_size_ : 0, to);
      before = attach;
    }
  }
  out.Wrote(size_t(to - begin));
}

bool T2sJoinedOutputs::AppendLines(uint32_t const* outputs, uint8_t const* edges, size_t n,
                                   T2sOutputBuffer& out) const {
  if (n * (longest_ + 1) > (1 << 16) || !attach_.empty()) return false;
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

bool T2sLineDecoder::AppendAllFound(uint32_t const* outputs, T2sOutputBuffer& out) {
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

void T2sRewriter::Line(T2sText line, T2sOutputBuffer& out) const {
  auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  char const* p = line.first;
  char const* end = line.first + line.second;
  while (p < end && blank(*p)) ++p;
  while (end > p && blank(end[-1])) --end;
  size_t const line_start = out.size();
  // A blank between two pieces (a copied word, a replacement); outputs attach to one another
  // only inside their replacement, so a number written "@@1" "@@2" never joins the word before.
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
      size_t const was = out.size();
      start_piece();
      size_t const piece = out.size();
      joined_.Append(outputs, n, out);
      if (out.size() == piece) out.Truncate(was);  // an empty replacement adds no blank
      // A run spoken with a capital gives its written word one ("Mister" -> "Mr.").
      char* const first = out.size() > piece ? out.at(piece) : nullptr;
      if (follow_case_ && first && *p >= 'A' && *p <= 'Z' && *first >= 'a' && *first <= 'z')
        *first = char(*first - ('a' - 'A'));
      p += run;
    }
    while (p < end && blank(*p)) ++p;
  }
}

T2sLineApplier::T2sLineApplier(t2s_model const* model, T2sJoinedOutputs const& joined,
                               bool rewrite, bool follow_case)
    : decoder_(t2s_decoder_new(model)),
      rewrite_(rewrite),
      decoder_lines_(decoder_, joined),
      rewriter_(decoder_, joined, follow_case) {}

T2sLineApplier::~T2sLineApplier() { t2s_decoder_free(decoder_); }

bool T2sLineApplier::Each(T2sText const* lines, size_t n, T2sOutputBuffer& out,
                          std::vector<size_t>& ends, std::vector<bool>& found) {
  ends.resize(n);
  found.assign(n, true);
  if (rewrite_) {
    for (size_t i = 0; i < n; ++i) {
      rewriter_.Line(lines[i], out);
      ends[i] = out.size();
    }
    return true;
  }
  for (size_t i = 0; i < n;) {
    size_t const first = i;
    while (i < n && !decoder_lines_.Add(lines[i])) ++i;
    if (i < n) ++i;
    bool const ok = decoder_lines_.FlushEach(out, [&](size_t k, bool read) {
      ends[first + k] = out.size();
      found[first + k] = read;
    });
    if (!ok) return false;
  }
  return true;
}
