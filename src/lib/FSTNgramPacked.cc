#include "FSTNgramPacked.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <istream>
#include <iterator>
#include <map>

#include "FSTMd5.h"
#include "FSTNgram.h"
#include "FSTStringMap.h"
#include "FSTlib.h"
#include "sq.h"

namespace {

// 256 levels trained on the values; nothing to train on gives the single level 0.
sq_quantizer* train(std::vector<double> const& values) {
  sq_trainer* trainer = sq_trainer_lloyd_max_new(8);
  sq_trainer_incorporate_sequence(trainer, values.data(), values.size());
  if (values.empty()) sq_trainer_incorporate(trainer, 0);
  sq_quantizer* q = sq_trainer_train(trainer);
  sq_trainer_delete(trainer);
  if (!q) FSTFatal("FSTNgramDumpPacked: out of memory training the quantizer");
  return q;
}

class Writer {
 public:
  void u8(unsigned v) { bytes += char(v); }
  void u32(uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes += char(v >> (8 * i));
  }
  void f32(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, 4);
    u32(bits);
  }
  void text(std::string const& s) {
    u32(uint32_t(s.size()));
    bytes += s;
  }
  std::string bytes;
};

}  // namespace

std::string FSTNgramDumpPacked(FSTGeneric const& model, char const* path) {
  std::string digest = FSTNgramDumpPackedQuiet(model, path);
  std::printf("MD5 (%s) = %s\n", path, digest.c_str());
  std::fflush(stdout);
  return digest;
}

std::string FSTNgramDumpPackedQuiet(FSTGeneric const& model, char const* path) {
  FSTNgramRep const* ngram = FSTNgramCast(model);
  if (!ngram) FSTFatal("FSTNgramDumpPacked: %s is not an n-gram model", model->name.c_str());
  FSTNgramTables const& tables = ngram->tables();
  std::vector<double> costs, backoffs;
  std::map<int, uint32_t> index;  // word id -> place in the word list
  std::vector<int> words;
  for (auto const& level : tables.keys)
    for (FSTNgramKey const& key : level) {
      FSTNgramEntry const& e = tables.entries.at(key);
      costs.push_back(e.cost);
      if (&level != &tables.keys.back()) backoffs.push_back(e.backoff);
      for (int w : key.w)
        if (w >= 0 && index.emplace(w, uint32_t(words.size())).second) words.push_back(w);
    }
  sq_quantizer* cost_levels = train(costs);
  sq_quantizer* backoff_levels = train(backoffs);

  Writer out;
  out.bytes = "T2SNGRAM";
  out.u32(1);
  out.u32(uint32_t(tables.order));
  out.u32(uint32_t(words.size()));
  for (int w : words) out.text(FSTstring_map[w]);
  for (sq_quantizer const* q : {cost_levels, backoff_levels}) {
    out.u32(sq_quantizer_n_levels(q));
    for (unsigned i = 0; i < sq_quantizer_n_levels(q); ++i) out.f32(float(sq_quantizer_level(q, i)));
  }
  for (size_t k = 1; k <= size_t(tables.order); ++k) {
    std::vector<FSTNgramKey> const none;
    auto const& level = k <= tables.keys.size() ? tables.keys[k - 1] : none;
    out.u32(uint32_t(level.size()));
    for (FSTNgramKey const& key : level) {
      FSTNgramEntry const& e = tables.entries.at(key);
      for (size_t i = 0; i < k; ++i) out.u32(index[key.w[i]]);
      out.u8(sq_quantize(cost_levels, e.cost));
      if (k < size_t(tables.order)) out.u8(sq_quantize(backoff_levels, e.backoff));
    }
  }
  sq_quantizer_delete(cost_levels);
  sq_quantizer_delete(backoff_levels);

  std::ofstream file(path ? path : "", std::ios::binary | std::ios::trunc);
  if (!file || !file.write(out.bytes.data(), std::streamsize(out.bytes.size())) || !file.flush())
    FSTFatal("can't write file %s", path ? path : "(null)");
  return FSTMd5Hex(out.bytes);
}

bool FSTNgramIsPacked(char const* head, size_t size) {
  return size >= 8 && std::memcmp(head, "T2SNGRAM", 8) == 0;
}

namespace {

// Reads the packed file's fields in order; each read checks the bytes left first.
class Reader {
 public:
  Reader(std::string const& bytes, std::string const& name) : _bytes(bytes), _name(name) {}

  size_t left() const { return _bytes.size() - _at; }
  void need(size_t n) const {
    if (n > left()) FSTFatal("FSTNgramLoadPacked: %s is truncated", _name.c_str());
  }
  unsigned u8() {
    need(1);
    return static_cast<unsigned char>(_bytes[_at++]);
  }
  uint32_t u32() {
    need(4);
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= uint32_t(static_cast<unsigned char>(_bytes[_at++])) << (8 * i);
    return v;
  }
  float f32() {
    uint32_t const bits = u32();
    float v;
    std::memcpy(&v, &bits, 4);
    return v;
  }
  std::string text() {
    uint32_t const n = u32();
    need(n);
    std::string s = _bytes.substr(_at, n);
    _at += n;
    return s;
  }
  // A count of records of record_bytes each, which the file must hold.
  uint32_t count(size_t record_bytes) {
    uint32_t const n = u32();
    need(size_t(n) * record_bytes);
    return n;
  }
  [[noreturn]] void inconsistent(char const* what) const {
    FSTFatal("FSTNgramLoadPacked: %s is inconsistent: %s", _name.c_str(), what);
  }

 private:
  std::string const& _bytes;
  std::string const& _name;
  size_t _at = 0;
};

}  // namespace

FSTGeneric FSTNgramLoadPacked(std::istream& is, std::string const& name) {
  std::string const bytes((std::istreambuf_iterator<char>(is)), std::istreambuf_iterator<char>());
  Reader in(bytes, name);
  in.need(8);
  if (!FSTNgramIsPacked(bytes.data(), bytes.size()))
    FSTFatal("FSTNgramLoadPacked: %s is not a packed n-gram file", name.c_str());
  for (int i = 0; i < 8; ++i) in.u8();
  if (in.u32() != 1) in.inconsistent("unknown version");
  FSTNgramTables tables;
  tables.order = int(in.u32());
  if (tables.order != 2 && tables.order != 3) in.inconsistent("order other than 2 or 3");
  std::vector<int> words(in.count(4));
  for (int& w : words) {
    std::string const text = in.text();
    // A label is a C string everywhere else: a NUL byte would silently shorten the word.
    if (text.find('\0') != std::string::npos) in.inconsistent("a word holds a NUL byte");
    w = FSTstring_map[text];
  }
  std::vector<float> levels[2];
  for (std::vector<float>& l : levels) {
    l.resize(in.count(4));
    if (l.size() > 256) in.inconsistent("more than 256 levels");
    for (float& v : l) {
      v = in.f32();
      if (!std::isfinite(v)) in.inconsistent("a level that is not a finite number");
    }
  }
  std::vector<int> key;
  for (int k = 1; k <= tables.order; ++k) {
    bool const has_backoff = k < tables.order;
    uint32_t const n = in.count(4 * size_t(k) + 1 + has_backoff);
    for (uint32_t r = 0; r < n; ++r) {
      key.clear();
      for (int i = 0; i < k; ++i) {
        uint32_t const w = in.u32();
        if (w >= words.size()) in.inconsistent("a word index out of range");
        key.push_back(words[w]);
      }
      unsigned const cost = in.u8(), backoff = has_backoff ? in.u8() : 0;
      if (cost >= levels[0].size() || (has_backoff && backoff >= levels[1].size()))
        in.inconsistent("a level index out of range");
      if (!tables.linked(key)) in.inconsistent("an n-gram whose history or suffix is not in it");
      tables.add(key, levels[0][cost], has_backoff ? levels[1][backoff] : 0.0f);
    }
  }
  if (in.left()) in.inconsistent("bytes after the last n-gram");
  return FSTNgramFromTables(std::move(tables));
}
