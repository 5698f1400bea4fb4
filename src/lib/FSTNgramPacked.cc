#include "FSTNgramPacked.h"

#include <cstdio>
#include <cstring>
#include <fstream>
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
