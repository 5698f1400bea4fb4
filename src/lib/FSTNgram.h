// Back-off n-gram language models (orders 2 and 3) as machines. The model's n-grams and back-off
// weights are kept as costs (MinPlus, -ln of the probability: -ln(10) times an ARPA log10 value)
// in hash tables; the machine built from them has a state per history (every n-gram below the
// model's order, and the empty history), an arc per n-gram (from its history to the longest
// history that ends it), one epsilon arc per history carrying its back-off cost to the history
// one word shorter, and as final weight the cost of "</s>" after the history where the model
// has that n-gram. So FSTBackoff reads it with exact back-off semantics. Building costs time
// and memory linear in the n-grams (about 150 bytes each).
//
// Text files: "#FSTNgram2 Version=2" or "#FSTNgram3 Version=2", then "order N", then for k = 1
// to N a line "ngrams k COUNT" followed by COUNT lines "cost w1 ... wk [backoff-cost]" (words
// escaped like labels of the text format), then "end".
#ifndef T2SFST_FSTNGRAM_H
#define T2SFST_FSTNGRAM_H

#include <iosfwd>
#include <string>
#include <unordered_map>
#include <vector>

#include "FSTBasic.h"
#include "FSTNgramSentence.h"

// The words of an n-gram (label ids), at most three; unused places are -1.
struct FSTNgramKey {
  int w[3] = {-1, -1, -1};
  bool operator==(FSTNgramKey const& o) const {
    return w[0] == o.w[0] && w[1] == o.w[1] && w[2] == o.w[2];
  }
  struct Hash {
    size_t operator()(FSTNgramKey const& k) const {
      return size_t(uint32_t(k.w[0])) * 1000003u ^ size_t(uint32_t(k.w[1])) * 8191u ^
             size_t(uint32_t(k.w[2]));
    }
  };
};

// One n-gram: its cost and its back-off cost (0 when it has none).
struct FSTNgramEntry {
  float cost;
  float backoff;
};

// The model itself, without the machine.
struct FSTNgramTables {
  int order = 0;
  // n-grams of each length 1..order, in file order (for writing back).
  std::vector<std::vector<FSTNgramKey>> keys;
  std::unordered_map<FSTNgramKey, FSTNgramEntry, FSTNgramKey::Hash> entries;
  // Words that stand for a class in lookups (FSTNgramAddClassedWord): word -> class, with the
  // word's in-class cost.
  std::unordered_map<int, std::pair<int, float>> classed;

  // Adds or replaces an n-gram of words (1 to order of them).
  void add(std::vector<int> const& words, float cost, float backoff);
  FSTNgramEntry const* find(std::vector<int> const& words) const;
  // Whether an n-gram's context is in the model: its history always; its suffix for a bigram (a
  // unigram). A pruned model may lack a trigram's suffix bigram: the trigram then leads to the
  // longest history that ends it, and the suffix's back-off weight is one.
  bool linked(std::vector<int> const& words) const;
  // The cost of word after history (oldest first; only the last order - 1 words count), with
  // back-off applied; infinity (1e30) when the word is not in the model.
  float cost(std::vector<int> const& history, int word) const;
};

// The n-gram view of a machine.
class FSTNgramRep : public FSTBasicRep {
 public:
  FSTNgramRep(FSTNgramTables tables, char const* name);

  int order() const { return _tables.order; }
  // The words the model predicts (its unigrams, "<s>" and "</s>" included).
  std::vector<int> vocabulary() const;
  // The cost of a word after a history, with back-off applied (see FSTNgramTables::cost).
  float cost(std::vector<int> const& history, int word) const { return _tables.cost(history, word); }
  FSTNgramTables const& tables() const { return _tables; }
  // The "<unk>" or "<UNK>" token when the model has one, else 0.
  int unknown_word() const;
  // A sentence of blank-separated words scored as "<s> words </s>" (FSTNgramScoreSentence).
  using SentenceScore = FSTNgramSentenceScore;
  SentenceScore score(std::string const& sentence) const;
  // Writes the text form (its header line included).
  void dump_ngram(std::ostream& os) const;

 private:
  FSTNgramTables _tables;
};

// The n-gram view of a machine, or null when it is not an n-gram model.
FSTNgramRep const* FSTNgramCast(FSTGeneric const& g);

// A model of order 2 or 3 from its tables, as FSTNgram2Rep or FSTNgram3Rep.
FSTGeneric FSTNgramFromTables(FSTNgramTables tables);

// Reads an ARPA file (\data\, \N-grams: sections with an optional back-off column, \end\) of
// order 2 or 3. On failure returns false with a message naming the line.
bool FSTNgramReadArpa(std::istream& is, char const* name, FSTGeneric& result, std::string& error);

// Reads the text form after its header line into tables; fatal with the line on damage.
FSTNgramTables FSTNgramReadText(std::istream& is, char const* header, int order);

#endif
