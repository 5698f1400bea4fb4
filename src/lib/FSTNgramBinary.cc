#include "FSTNgramBinary.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <ostream>
#include <unordered_map>

#include "FSTStringMap.h"
#include "FSTlib.h"

namespace {

char const magic[8] = {'T', '2', 'S', 'N', 'G', 'B', 'I', 'N'};
size_t const header_words = 2 + 6 + 2;  // magic, version .. classed, counts of orders 2 and 3
float const infinite_cost = 1e30f;

uint32_t fnv1a(std::string_view s) {
  uint32_t h = 2166136261u;
  for (unsigned char c : s) h = (h ^ c) * 16777619u;
  return h;
}

bool little_endian_host() {
  uint32_t const one = 1;
  unsigned char first;
  std::memcpy(&first, &one, 1);
  return first == 1;
}

// Appends little-endian values.
struct Writer {
  std::string bytes;
  void u32(uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes += char((v >> (8 * i)) & 0xff);
  }
  void f32(float f) {
    uint32_t v;
    std::memcpy(&v, &f, 4);
    u32(v);
  }
};

}  // namespace

// ---- writing ------------------------------------------------------------------------------------

void FSTNgramDumpBinary(FSTGeneric const& model, std::ostream& os) {
  FSTNgramRep const* ngram = FSTNgramCast(model);
  if (!ngram) FSTFatal("FSTNgramDumpBinary: %s is not an n-gram model", model->name.c_str());
  FSTNgramTables const& tables = ngram->tables();
  size_t const n = size_t(tables.order);
  // The word list: unigrams, classed words and their classes, in byte order of their texts.
  std::vector<int> ids;
  if (!tables.keys.empty())
    for (FSTNgramKey const& key : tables.keys[0]) ids.push_back(key.w[0]);
  for (auto const& [word, classed] : tables.classed) ids.push_back(word), ids.push_back(classed.first);
  std::sort(ids.begin(), ids.end(), [](int a, int b) {
    return std::strcmp(FSTstring_map[a], FSTstring_map[b]) < 0;
  });
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  std::unordered_map<int, uint32_t> index;
  for (size_t i = 0; i < ids.size(); ++i) index[ids[i]] = uint32_t(i);
  uint32_t const V = uint32_t(ids.size());
  // Each level's n-grams as word indices, sorted.
  std::vector<std::vector<std::array<uint32_t, 3>>> level(n + 1);
  for (size_t k = 2; k <= n && k <= tables.keys.size(); ++k) {
    for (FSTNgramKey const& key : tables.keys[k - 1])
      level[k].push_back({index.at(key.w[0]), index.at(key.w[1]), k > 2 ? index.at(key.w[2]) : 0});
    std::sort(level[k].begin(), level[k].end());
  }
  auto entry = [&](std::array<uint32_t, 3> const& words, size_t k) {
    FSTNgramKey key;
    for (size_t i = 0; i < k; ++i) key.w[i] = ids[words[i]];
    return tables.entries.at(key);
  };
  // first[k][i]: the first (k+1)-gram continuing the i-th k-gram, found by walking both sorted
  // levels together; a continuation whose history the model lacks has nowhere to go.
  auto firsts = [&](size_t k, size_t count, auto history_of) {
    std::vector<uint32_t> first(count + 1);
    std::vector<std::array<uint32_t, 3>> const& above = level[k + 1];
    size_t at = 0;
    for (size_t i = 0; i < count; ++i) {
      first[i] = uint32_t(at);
      while (at < above.size() && std::equal(above[at].begin(), above[at].begin() + long(k),
                                              history_of(i).begin()))
        ++at;
    }
    first[count] = uint32_t(at);
    if (at != above.size()) FSTFatal("FSTNgramDumpBinary: an n-gram whose history is not in the model");
    return first;
  };
  Writer out;
  out.bytes.append(magic, 8);
  std::string text;
  std::vector<uint32_t> offsets{0};
  for (int id : ids) text += FSTstring_map[id], offsets.push_back(uint32_t(text.size()));
  uint32_t slots = 1;
  while (slots <= 2 * V) slots *= 2;
  std::vector<uint32_t> hash(slots, 0);
  for (uint32_t w = 0; w < V; ++w) {
    uint32_t at = fnv1a(FSTstring_map[ids[w]]) & (slots - 1);
    while (hash[at]) at = (at + 1) & (slots - 1);
    hash[at] = w + 1;
  }
  for (uint32_t v : {1u, uint32_t(n), V, uint32_t(text.size()), slots, uint32_t(tables.classed.size()),
                     uint32_t(level[2].size()), uint32_t(n > 2 ? level[3].size() : 0)})
    out.u32(v);
  for (uint32_t o : offsets) out.u32(o);
  text.resize((text.size() + 3) / 4 * 4, '\0');
  out.bytes += text;
  for (uint32_t h : hash) out.u32(h);
  std::vector<uint32_t> unigram_first =
      firsts(1, V, [&](size_t i) { return std::array<uint32_t, 3>{uint32_t(i), 0, 0}; });
  for (uint32_t w = 0; w <= V; ++w) {
    auto found = w < V ? tables.entries.find(FSTNgramKey{{ids[w], -1, -1}}) : tables.entries.end();
    bool const unigram = found != tables.entries.end();
    out.f32(unigram ? found->second.cost : std::numeric_limits<float>::infinity());
    out.f32(unigram ? found->second.backoff : 0.0f);
    out.u32(unigram_first[w]);
  }
  if (n > 2) {
    std::vector<uint32_t> const bigram_first =
        firsts(2, level[2].size(), [&](size_t i) { return level[2][i]; });
    for (size_t i = 0; i <= level[2].size(); ++i) {
      FSTNgramEntry const e = i < level[2].size() ? entry(level[2][i], 2) : FSTNgramEntry{0, 0};
      out.u32(i < level[2].size() ? level[2][i][1] : 0);
      out.f32(e.cost);
      out.f32(e.backoff);
      out.u32(bigram_first[i]);
    }
  }
  for (auto const& words : level[n]) {
    out.u32(words[n - 1]);
    out.f32(entry(words, n).cost);
  }
  std::vector<std::array<uint32_t, 3>> classed;
  for (auto const& [word, c] : tables.classed) {
    uint32_t cost;
    std::memcpy(&cost, &c.second, 4);
    classed.push_back({index.at(word), index.at(c.first), cost});
  }
  std::sort(classed.begin(), classed.end());
  for (auto const& c : classed)
    for (uint32_t v : c) out.u32(v);
  os.write(out.bytes.data(), std::streamsize(out.bytes.size()));
}

bool FSTNgramIsBinary(char const* head, size_t size) {
  return size >= 8 && std::memcmp(head, magic, 8) == 0;
}

// ---- reading ------------------------------------------------------------------------------------

std::unique_ptr<FSTNgramBinary> FSTNgramBinary::Map(std::string const& path) {
  std::unique_ptr<FSTNgramBinary> model(new FSTNgramBinary);
  int const fd = ::open(path.c_str(), O_RDONLY);
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    if (fd >= 0) close(fd);
    FSTFatal("FSTNgramLoadBinary: can't read %s", path.c_str());
  }
  size_t const size = size_t(st.st_size);
  void* mapping = size ? mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0) : MAP_FAILED;
  close(fd);
  if (mapping == MAP_FAILED) FSTFatal("FSTNgramLoadBinary: %s is truncated", path.c_str());
  model->_mapping = mapping;
  model->_mapped_bytes = size;
  model->open(static_cast<unsigned char const*>(mapping), size, path);
  return model;
}

std::unique_ptr<FSTNgramBinary> FSTNgramBinary::FromBytes(std::string const& bytes,
                                                          std::string const& name) {
  std::unique_ptr<FSTNgramBinary> model(new FSTNgramBinary);
  model->_copy.resize((bytes.size() + 3) / 4);
  if (!bytes.empty()) std::memcpy(model->_copy.data(), bytes.data(), bytes.size());
  model->open(reinterpret_cast<unsigned char const*>(model->_copy.data()), bytes.size(), name);
  return model;
}

FSTNgramBinary::~FSTNgramBinary() {
  if (_mapping) munmap(_mapping, _mapped_bytes);
}

void FSTNgramBinary::open(unsigned char const* base, size_t size, std::string const& name) {
  auto truncated = [&] { FSTFatal("FSTNgramLoadBinary: %s is truncated", name.c_str()); };
  auto inconsistent = [&](char const* what) {
    FSTFatal("FSTNgramLoadBinary: %s is inconsistent: %s", name.c_str(), what);
  };
  if (size < 8 || !FSTNgramIsBinary(reinterpret_cast<char const*>(base), size))
    FSTFatal("FSTNgramLoadBinary: %s is not a compiled n-gram file", name.c_str());
  if (!little_endian_host()) FSTFatal("FSTNgramLoadBinary: this host is not little-endian");
  if (size < 4 * header_words) truncated();
  uint32_t const* header = reinterpret_cast<uint32_t const*>(base) + 2;
  if (header[0] != 1) inconsistent("unknown version");
  _order = header[1], _words = header[2], _slots = header[4], _classes = header[5];
  uint32_t const text_bytes = header[3];
  _count[1] = _words, _count[2] = header[6], _count[3] = header[7];
  if (_order != 2 && _order != 3) inconsistent("order other than 2 or 3");
  if (_order == 2 && _count[3]) inconsistent("trigrams in a bigram model");
  if (_slots <= _words || (_slots & (_slots - 1))) inconsistent("a hash table too small");
  // Every array's place, in 64 bits so that no count can wrap around.
  uint64_t at = 4 * header_words;
  auto place = [&](uint64_t records, uint64_t bytes) {
    uint64_t const here = at;
    at += records * bytes;
    return here;
  };
  uint64_t const offsets = place(uint64_t(_words) + 1, 4);
  uint64_t const text = place((uint64_t(text_bytes) + 3) / 4, 4);
  uint64_t const hash = place(_slots, 4);
  uint64_t const unigrams = place(uint64_t(_words) + 1, sizeof(Unigram));
  uint64_t const bigrams = _order > 2 ? place(uint64_t(_count[2]) + 1, sizeof(Middle)) : 0;
  uint64_t const top = place(_count[_order], sizeof(Top));
  uint64_t const classed = place(_classes, sizeof(Classed));
  if (at > size) truncated();
  if (at < size) inconsistent("bytes after the last record");
  _offsets = reinterpret_cast<uint32_t const*>(base + offsets);
  _text = reinterpret_cast<char const*>(base + text);
  _hash = reinterpret_cast<uint32_t const*>(base + hash);
  _unigrams = reinterpret_cast<Unigram const*>(base + unigrams);
  _bigrams = _order > 2 ? reinterpret_cast<Middle const*>(base + bigrams) : nullptr;
  _top = reinterpret_cast<Top const*>(base + top);
  _classed = reinterpret_cast<Classed const*>(base + classed);
  // One pass over everything a lookup trusts: ranges nested and in order, words in range and
  // sorted among their siblings, costs numbers.
  if (_offsets[0] != 0 || _offsets[_words] != text_bytes) inconsistent("a word outside the text");
  for (uint32_t w = 0; w < _words; ++w) {
    if (_offsets[w] > _offsets[w + 1]) inconsistent("a word outside the text");
    if (std::memchr(_text + _offsets[w], 0, _offsets[w + 1] - _offsets[w]))
      inconsistent("a word holds a NUL byte");
  }
  for (uint32_t s = 0; s < _slots; ++s)
    if (_hash[s] > _words) inconsistent("a hash slot out of range");
  auto check_range = [&](uint32_t first, uint32_t next, uint32_t limit, auto word_at) {
    if (first > next || next > limit) inconsistent("continuations out of order");
    for (uint32_t i = first; i < next; ++i)
      if (word_at(i) >= _words || (i > first && word_at(i) <= word_at(i - 1)))
        inconsistent("continuations out of order");
  };
  uint32_t const second = _count[2];
  auto second_word = [&](uint32_t i) { return _order > 2 ? _bigrams[i].word : _top[i].word; };
  if (_unigrams[0].first != 0 || _unigrams[_words].first != second)
    inconsistent("continuations out of order");
  for (uint32_t w = 0; w < _words; ++w) {
    Unigram const& u = _unigrams[w];
    if (std::isnan(u.cost) || u.cost == -INFINITY || !std::isfinite(u.backoff))
      inconsistent("a cost that is not a number");
    if (std::isinf(u.cost) && u.first != _unigrams[w + 1].first)
      inconsistent("continuations of a word that is not a unigram");
    check_range(u.first, _unigrams[w + 1].first, second, second_word);
  }
  if (_order > 2) {
    if (_bigrams[0].first != 0 || _bigrams[_count[2]].first != _count[3])
      inconsistent("continuations out of order");
    for (uint32_t i = 0; i < _count[2]; ++i) {
      if (!std::isfinite(_bigrams[i].cost) || !std::isfinite(_bigrams[i].backoff))
        inconsistent("a cost that is not a number");
      check_range(_bigrams[i].first, _bigrams[i + 1].first, _count[3],
                  [&](uint32_t t) { return _top[t].word; });
    }
  }
  for (uint32_t i = 0; i < _count[_order]; ++i)
    if (!std::isfinite(_top[i].cost)) inconsistent("a cost that is not a number");
  for (uint32_t i = 0; i < _classes; ++i)
    if (_classed[i].word >= _words || _classed[i].klass >= _words || !std::isfinite(_classed[i].cost) ||
        (i && _classed[i].word <= _classed[i - 1].word))
      inconsistent("a classed word out of order");
  start = lookup("<s>");
  end = lookup("</s>");
  for (char const* token : {"<unk>", "<UNK>"}) {
    uint32_t const w = lookup(token);
    if (unknown == none && w != none && std::isfinite(_unigrams[w].cost)) unknown = w;
  }
}

size_t FSTNgramBinary::ngrams() const {
  size_t n = _count[2] + _count[3];
  for (uint32_t w = 0; w < _words; ++w) n += std::isfinite(_unigrams[w].cost);
  return n;
}

std::string_view FSTNgramBinary::text(uint32_t word) const {
  return {_text + _offsets[word], _offsets[word + 1] - _offsets[word]};
}

uint32_t FSTNgramBinary::lookup(std::string_view word) const {
  uint32_t at = fnv1a(word) & (_slots - 1);
  for (uint32_t probes = 0; probes < _slots && _hash[at]; ++probes, at = (at + 1) & (_slots - 1))
    if (text(_hash[at] - 1) == word) {
      uint32_t const w = _hash[at] - 1;
      // In the vocabulary: a unigram or a classed word (a class alone is not a word of text).
      return std::isfinite(_unigrams[w].cost) || classed(w) ? w : none;
    }
  return none;
}

FSTNgramBinary::Classed const* FSTNgramBinary::classed(uint32_t word) const {
  if (!_classes) return nullptr;
  Classed const* end_of = _classed + _classes;
  Classed const* found = std::lower_bound(_classed, end_of, word,
                                          [](Classed const& c, uint32_t w) { return c.word < w; });
  return found != end_of && found->word == word ? found : nullptr;
}

uint32_t FSTNgramBinary::class_of(uint32_t word, float* extra) const {
  Classed const* c = classed(word);
  *extra = c ? c->cost : 0;
  return c ? c->klass : word;
}

long FSTNgramBinary::node(uint32_t const* words, size_t n) const {
  if (n == 0) return 0;
  if (words[0] >= _words || !std::isfinite(_unigrams[words[0]].cost)) return -1;
  return n == 1 ? long(words[0]) : child(long(words[0]), 1, words[1]);
}

long FSTNgramBinary::child(long node, size_t n, uint32_t word) const {
  if (word >= _words) return -1;
  if (n == 0) return std::isfinite(_unigrams[word].cost) ? long(word) : -1;
  auto search = [word](auto const* records, uint32_t first, uint32_t next) -> long {
    auto const* found = std::lower_bound(records + first, records + next, word,
                                         [](auto const& r, uint32_t w) { return r.word < w; });
    return found != records + next && found->word == word ? long(found - records) : -1;
  };
  if (n == 1) {
    uint32_t const first = _unigrams[node].first, next = _unigrams[node + 1].first;
    return _order > 2 ? search(_bigrams, first, next) : search(_top, first, next);
  }
  return search(_top, _bigrams[node].first, _bigrams[node + 1].first);
}

float FSTNgramBinary::cost(std::vector<uint32_t> const& history, uint32_t word) const {
  float extra;
  word = class_of(word, &extra);
  size_t const n = std::min(history.size(), size_t(_order - 1));
  uint32_t context[2];
  float ignored;
  for (size_t i = 0; i < n; ++i) context[i] = class_of(history[history.size() - n + i], &ignored);
  // The longest n-gram that the model has, paying the back-off of each history given up on.
  float backoff = 0;
  for (size_t drop = 0; drop <= n; ++drop) {
    size_t const k = n - drop;
    long const h = node(context + drop, k);
    if (h < 0) continue;
    long const found = child(h, k, word);
    if (found >= 0) {
      float const c = k == 0 ? _unigrams[found].cost
                    : k + 1 == _order ? _top[found].cost
                                      : _bigrams[found].cost;
      return backoff + c + extra;
    }
    if (k == 1) backoff += _unigrams[h].backoff;
    if (k == 2) backoff += _bigrams[h].backoff;
  }
  return infinite_cost;
}

FSTNgramSentenceScore FSTNgramBinary::score(std::string_view sentence) const {
  return FSTNgramScoreSentence(*this, sentence);
}

FSTNgramTables FSTNgramBinary::tables() const {
  FSTNgramTables tables;
  tables.order = int(_order);
  std::vector<int> ids(_words);
  for (uint32_t w = 0; w < _words; ++w) ids[w] = FSTstring_map[std::string(text(w))];
  for (uint32_t w = 0; w < _words; ++w)
    if (std::isfinite(_unigrams[w].cost)) tables.add({ids[w]}, _unigrams[w].cost, _unigrams[w].backoff);
  for (uint32_t w = 0; w < _words; ++w)
    for (uint32_t b = _unigrams[w].first; b < _unigrams[w + 1].first; ++b) {
      if (_order == 2) {
        tables.add({ids[w], ids[_top[b].word]}, _top[b].cost, 0);
        continue;
      }
      tables.add({ids[w], ids[_bigrams[b].word]}, _bigrams[b].cost, _bigrams[b].backoff);
    }
  if (_order > 2)
    for (uint32_t w = 0; w < _words; ++w)
      for (uint32_t b = _unigrams[w].first; b < _unigrams[w + 1].first; ++b)
        for (uint32_t t = _bigrams[b].first; t < _bigrams[b + 1].first; ++t)
          tables.add({ids[w], ids[_bigrams[b].word], ids[_top[t].word]}, _top[t].cost, 0);
  for (uint32_t i = 0; i < _classes; ++i)
    tables.classed[ids[_classed[i].word]] = {ids[_classed[i].klass], _classed[i].cost};
  return tables;
}

FSTGeneric FSTNgramLoadBinary(std::string const& path) {
  return FSTNgramFromTables(FSTNgramBinary::Map(path)->tables());
}
