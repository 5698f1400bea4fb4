// What every lazily computed machine shares: its states are keys (an operand and its state, a
// pair of states, a subset...) numbered densely in order of discovery, and its arcs are built
// on demand into a list that the returned iterator owns.
#ifndef T2SFST_FSTLAZY_H
#define T2SFST_FSTLAZY_H

#include <functional>
#include <unordered_map>

#include "FSTGeneric.h"
#include "FSTlib.h"

// Whether label x is selected by a query for label l in mode m (0 equal, 1 up to l, 2 from l).
inline bool FSTLabelMatches(int x, int l, FSTArcMode m) {
  switch (m) {
    case FSTArcModeEqual:
      return x == l;
    case FSTArcModeLessEqual:
      return x <= l;
    case FSTArcModeGreaterEqual:
      return x >= l;
  }
  return false;
}

// The semiring every operand shares (MinPlus when there are none); an operand with another one
// is fatal with mismatch_format, filled with the first operand's semiring name and its own.
FSTSemiringBase const* FSTOperandsSemiring(fst::vector<FSTGeneric> const& fsts,
                                           char const* mismatch_format);

// Reloads every operand whose file changed; returns whether any did.
bool FSTReloadOperands(fst::vector<FSTGeneric>& fsts);

// An arc list under construction, owned by the iterator it becomes.
class FSTArcList {
 public:
  FSTArcList() : _data(new FSTArcIterData) {}
  void add(int input, int output, float weight, int to, int from) {
    _data->arcs.push_back(FSTNewArc(input, output, weight, to, from));
  }
  FSTArcVector& arcs() { return _data->arcs; }
  // The iterator over the list, sorted first when order is not 0; an empty list gives the
  // all-null iterator.
  FSTArcIter iter(FSTArcOrder order = FSTArcOrderAny) {
    if (_data->arcs.empty()) return FSTArcIter();
    FSTGenericInt::_sort_arcs(_data->arcs, order);
    return FSTArcIter(_data.get());
  }

 private:
  FSTReferenceCounter<FSTArcIterData> _data;
};

// A hash map through the page allocator.
template <class Key, class Hash, class Equal>
using FSTHashTable =
    std::unordered_map<Key, int, Hash, Equal, fst::allocator<std::pair<Key const, int>>>;

// The arcs of `arcs` whose input (or output) label matches label in mode m, as an owned list:
// for machines that build all of a state's arcs anyway.
inline FSTArcIter FSTSelectArcs(FSTArcIter const& arcs, int label, FSTArcMode m, bool on_input) {
  FSTArcList list;
  for (FSTArc* a : arcs)
    if (FSTLabelMatches(on_input ? a->input : a->output, label, m))
      list.add(a->input, a->output, a->weight, a->to, a->from);
  return list.iter();
}

// The state of a machine built from several operands: which operand, and its state there.
struct FSTOperandState {
  int operand;
  int state;
  bool operator<(FSTOperandState const& o) const {
    return operand != o.operand ? operand < o.operand : state < o.state;
  }
};

// Table maps a key to its state id: an ordered map by default, or a hash map where keys are
// equal within a tolerance (their hash then covers only what must match exactly). Base is the
// interface the machine offers (FSTGenericInt, or an extension of it).
template <class Key, class Table = fst::map<Key, int>, class Base = FSTGenericInt>
class FSTLazyRep : public Base {
 protected:
  using Base::_n_states;

  // The table may carry state, such as the tolerance of its comparisons.
  explicit FSTLazyRep(Table table = Table()) : _ids(std::move(table)) {}

  // The id of key, which becomes the next state when it is new.
  int _find_or_add_state(Key const& key) const { return _find_or_add_state(Key(key)); }
  int _find_or_add_state(Key&& key) const {
    auto found = _ids.find(key);
    if (found != _ids.end()) return found->second;
    int id = _n_states++;
    auto added = _ids.emplace(std::move(key), id).first;
    _keys.push_back(&added->first);
    return id;
  }

  // A new state with no key, for a machine that keeps some states' descriptions itself (and
  // must then never ask for their keys).
  int _add_state_without_key() const {
    _keys.push_back(nullptr);
    return _n_states++;
  }

  Table const& _table() const { return _ids; }

  // The key of state p, which must exist.
  Key const& _state(int p) const {
    FST_ASSERT_STATE(p);
    return *_keys[size_t(p)];
  }

  // Forgets every state.
  void _clean() const {
    _ids.clear();
    _keys.clear();
    _n_states = 0;
  }

  // Expands states in id order until no new ones appear.
  void _expand_all() const {
    for (int p = 0; p < _n_states; ++p) this->arcs_out(p, FSTArcOrderAny);
  }

 private:
  mutable Table _ids;
  mutable fst::vector<Key const*> _keys;  // into the map's nodes, which never move
};

#endif
