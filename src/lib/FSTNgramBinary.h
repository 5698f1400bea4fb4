// The compiled n-gram file: a back-off model of order 2 or 3 as sorted arrays that are used
// where they lie (memory-mapped), so that loading costs one check of the file and a word's cost
// is two or three binary searches among a history's continuations. About 8 bytes a trigram, 16
// a bigram, 12 a unigram plus its text. All values little-endian, every array 4-byte aligned:
//
//   "T2SNGBIN" (8 bytes), u32 version 1, u32 order, u32 V (words), u32 P (text bytes),
//   u32 H (hash slots, a power of two above V), u32 C (classed words), then for k = 2 .. order
//   a u32 count of k-grams
//   (V+1) u32 offsets into the text: word i is the bytes [offset i, offset i+1)
//   P bytes of text, zero-padded to a multiple of 4
//   H u32 hash slots: 0 empty, else 1 + a word (FNV-1a of its bytes, then linear probing)
//   (V+1) unigram records {f32 cost, f32 back-off, u32 first bigram}, indexed by word; a word
//     that is not a unigram (a class, a classed word) costs +infinity
//   order 3 only: (n2+1) bigram records {u32 word, f32 cost, f32 back-off, u32 first trigram}
//   the highest order: records {u32 word, f32 cost}
//   C records {u32 word, u32 class, f32 cost within the class}, sorted by word
//
// Words are numbered in byte order of their texts; an n-gram's continuations are the records
// [first, next record's first) of the level above, sorted by word; the last record of a lower
// level only closes the range of the one before it. Costs are -ln P (MinPlus), as in the text form.
#ifndef T2SFST_FSTNGRAMBINARY_H
#define T2SFST_FSTNGRAMBINARY_H

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "FSTNgram.h"

// A compiled model read in place. Scores exactly as the model it was compiled from.
class FSTNgramBinary {
 public:
  // Maps the file; one that cannot be read, or is truncated or inconsistent, is fatal, naming it.
  static std::unique_ptr<FSTNgramBinary> Map(std::string const& path);
  // The same over bytes already in memory (copied).
  static std::unique_ptr<FSTNgramBinary> FromBytes(std::string const& bytes, std::string const& name);
  ~FSTNgramBinary();

  int order() const { return int(_order); }
  size_t ngrams() const;
  // The scorer's view (FSTNgramScoreSentence): words are indices into the file's word list.
  uint32_t const none = ~uint32_t(0);
  uint32_t start = none, end = none, unknown = none;
  uint32_t lookup(std::string_view word) const;
  // The cost of word after history (only the last order - 1 words count), back-off applied;
  // 1e30 when the word is not in the model.
  float cost(std::vector<uint32_t> const& history, uint32_t word) const;
  FSTNgramSentenceScore score(std::string_view sentence) const;
  // The model as tables, words interned in the shared alphabet (for use as a machine).
  FSTNgramTables tables() const;

 private:
  struct Unigram {
    float cost, backoff;
    uint32_t first;
  };
  struct Middle {
    uint32_t word;
    float cost, backoff;
    uint32_t first;
  };
  struct Top {
    uint32_t word;
    float cost;
  };
  struct Classed {
    uint32_t word, klass;
    float cost;
  };
  FSTNgramBinary() = default;
  void open(unsigned char const* base, size_t size, std::string const& name);
  std::string_view text(uint32_t word) const;
  Classed const* classed(uint32_t word) const;
  // The word's class and its cost within it, or the word itself at no extra cost.
  uint32_t class_of(uint32_t word, float* extra) const;
  // The node of the n-gram words[0, n) (n <= 2): a unigram's word, a bigram's record; -1 when
  // the model lacks it. Its continuation by word, likewise, at level n + 1.
  long node(uint32_t const* words, size_t n) const;
  long child(long node, size_t n, uint32_t word) const;

  uint32_t _order = 0, _words = 0, _slots = 0, _classes = 0, _count[4] = {};
  uint32_t const* _offsets = nullptr;
  char const* _text = nullptr;
  uint32_t const* _hash = nullptr;
  Unigram const* _unigrams = nullptr;
  Middle const* _bigrams = nullptr;  // order 3
  Top const* _top = nullptr;
  Classed const* _classed = nullptr;
  // What holds the bytes: a mapping or a copy.
  void* _mapping = nullptr;
  size_t _mapped_bytes = 0;
  std::vector<uint32_t> _copy;
};

// Writes a model's compiled file; a machine that is not an n-gram model is fatal.
void FSTNgramDumpBinary(FSTGeneric const& model, std::ostream& os);

// Whether the bytes start like a compiled file ("T2SNGBIN").
bool FSTNgramIsBinary(char const* head, size_t size);

// The compiled file at path as an n-gram machine (FSTNgram2Rep or FSTNgram3Rep).
FSTGeneric FSTNgramLoadBinary(std::string const& path);

#endif
