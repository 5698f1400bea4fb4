// Lazy weighted subset construction. A result state is a subset of triples (input state,
// pending output label, residual weight); its arcs group the arcs leaving the triples by label.
// Cost: a subset of one state with residual one (most of a nearly deterministic input) is kept
// by its pair in 24 bytes without hashing; larger subsets are hashed, about 100 bytes each.
#ifndef T2SFST_FSTDETERMINIZE_H
#define T2SFST_FSTDETERMINIZE_H

#include <string>
#include <unordered_set>

#include "FSTLazy.h"

namespace fst_determinize {

// A subset: triples in the order they were added, in allocator chunks: a first one of 3
// (32 bytes, enough for most subsets) and then chunks of 15 (128 bytes each).
class _TripleSet {
 public:
  struct _Triple {
    int pair;  // interned (input state, pending label)
    float weight;
  };

  _TripleSet() = default;
  _TripleSet(_TripleSet&& other) noexcept;
  _TripleSet& operator=(_TripleSet&&) = delete;
  ~_TripleSet();

  void add(int pair, float weight);
  int size() const { return _n; }

  // Calls f(triple) for each triple in order.
  template <class F>
  void for_each(F f) const {
    for (Cursor c = begin(); !c.done(); c.next()) f(*c);
  }

 private:
  static constexpr int _first_chunk_size = 3, _chunk_size = 15;
  // Chunks are allocated for their own size: the first holds _first_chunk_size triples only.
  struct _Chunk {
    _Chunk* next;
    _Triple triples[_chunk_size];
  };
  static constexpr size_t _chunk_units(bool first) {
    return (sizeof(_Chunk*) + (first ? _first_chunk_size : _chunk_size) * sizeof(_Triple)) /
           FSTAllocator::unit_bytes;
  }

 public:
  // Walks the triples in order.
  class Cursor {
   public:
    Cursor(_Chunk const* chunk, int left) : _chunk(chunk), _left(left) {}
    bool done() const { return _left == 0; }
    _Triple const& operator*() const { return _chunk->triples[_slot]; }
    void next() {
      --_left;
      if (++_slot == _capacity) _chunk = _chunk->next, _slot = 0, _capacity = _chunk_size;
    }

   private:
    _Chunk const* _chunk;
    int _left;
    int _slot = 0;
    int _capacity = _first_chunk_size;
  };
  Cursor begin() const { return Cursor(_first, _n); }

 private:
  static_assert(sizeof(_Chunk) == 16 * FSTAllocator::unit_bytes, "a chunk is 128 bytes");

  int _n = 0;
  _Chunk* _first = nullptr;
  _Chunk* _last = nullptr;  // where the next triple goes
};

// Whether a is above b by at least the tolerance; a tolerance of 0 compares exactly (a > b), so
// equal residuals are one subset and a cyclic machine closes.
inline bool _exceeds(float a, float b, float tolerance) {
  return tolerance > 0 ? a - b >= tolerance : a > b;
}

// An order on subsets in which residuals within the tolerance count as equal.
struct _SubsetLess {
  float tolerance = 0;
  bool operator()(_TripleSet const& a, _TripleSet const& b) const;
};

// The subset index hashes the pairs only (residuals may differ within the tolerance) and tests
// with _SubsetLess both ways.
struct _SubsetHash {
  size_t operator()(_TripleSet const& subset) const;
};
struct _SubsetEqual {
  _SubsetLess less;
  bool operator()(_TripleSet const& a, _TripleSet const& b) const {
    return !less(a, b) && !less(b, a);
  }
};
using _SubsetIndex = FSTHashTable<_TripleSet, _SubsetHash, _SubsetEqual>;

}  // namespace fst_determinize

class FSTDeterminizeRep
    : public FSTLazyRep<fst_determinize::_TripleSet, fst_determinize::_SubsetIndex> {
 public:
  using _TripleSet = fst_determinize::_TripleSet;

  // limit: groups of at most this many arcs with one label stay separate arcs (below 1: no
  // limit); fsa: the (input, output) pair is the symbol; full: determinize every group (limit 1).
  FSTDeterminizeRep(FSTGeneric const& in, int limit, bool fsa, float delta, bool full);
  ~FSTDeterminizeRep() override;

  fst::set<int> const& input_alphabet() const override { return _input_alphabet; }
  fst::set<int> const& output_alphabet() const override { return _output_alphabet; }
  using FSTGenericInt::arcs_out;
  FSTArcIter arcs_out(int p, FSTArcOrder order = FSTArcOrderAny) const override;
  // Not provided: the machine is read state by state through arcs_out.
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  bool is_final(int p) const override;
  float final_weight(int p) const override;
  float potential(int p) const override;
  void force() const override;
  void reset() const override;
  FSTGeneric reload(bool& changed) override;

  // The input states of result state p's subset.
  void state_set(int p, fst::set<int>& out) const;
  // "{(state,label,weight),...}", for debugging.
  std::string describe(int p) const;

 private:
  struct _Pair {
    int state;
    int label;
    bool operator<(_Pair const& o) const {
      return state != o.state ? state < o.state : label < o.label;
    }
  };
  struct _StateWeights {
    float final;
    float potential;
  };
  struct _CollectionEntry {
    int input;
    int target;
    int output;   // emitted on the arc
    int pending;  // waiting after it
    float weight;
  };

  using FSTLazyRep::_find_or_add_state;
  int _find_or_add_subset(_TripleSet&& subset) const;
  // Calls f(triple) for each triple of result state p's subset.
  template <class F>
  void _for_each_triple(int p, F f) const;
  int _subset_size(int p) const;
  int _lookup_pair(int state, int label) const;
  void _init() const;
  void _collect(int p, bool& had_arcs) const;
  void _sort_and_merge() const;
  void _build_group(int p, size_t begin, size_t end, FSTArcList& list) const;
  void _simple_arc(int p, _CollectionEntry const& e, float weight, FSTArcList& list) const;
  void _free_collection() const;

  FSTGeneric _fst;
  mutable fst::vector<_StateWeights> _weights;  // by result state
  // (state, label) -> pair index: label 0 by state (-1 where unseen), the others in a map.
  mutable fst::vector<int> _plain_pair_index;
  mutable fst::map<_Pair, int> _pair_index;
  mutable fst::vector<_Pair> _pairs;  // by pair index
  // Subsets of one pair with residual one (most states of a machine that is nearly
  // deterministic) have no key: result state -> pair (-1 for keyed states) and back.
  mutable fst::vector<int> _single_pair_of_state, _single_state_of_pair;
  mutable fst::vector<_CollectionEntry*> _collection;
  int _limit;
  bool _fsa;
  bool _full;
  fst::set<int> _input_alphabet;
  fst::set<int> _output_alphabet;
  std::unordered_set<int> _labels;  // labels always determinized; nothing adds to it yet
  float _delta;
};

FSTGeneric FSTDeterminize(FSTGeneric const& in, int limit, bool fsa, float delta, bool full);

// The states that determinization would change: those with an epsilon arc (an epsilon input;
// with fsa, an epsilon:epsilon pair) or two arcs of one input label (with fsa, of one label
// pair). 0: determinizing gives the machine back as it is, its weights pushed. Linear time.
int FSTNondeterministicStates(FSTGenericInt const& m, bool fsa);
FSTGeneric FSTDeterminizeA(FSTGeneric const& in, int limit, float delta, bool full);
void FSTDeterminizeStateSet(FSTGeneric const& m, int p, fst::set<int>& out);

#endif
