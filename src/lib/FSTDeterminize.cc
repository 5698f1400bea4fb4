#include "FSTDeterminize.h"

#include <algorithm>
#include <climits>
#include <sstream>

#include "FSTOperand.h"
#include "FSTStringMap.h"

namespace fst_determinize {

_TripleSet::_TripleSet(_TripleSet&& other) noexcept
    : _n(other._n), _first(other._first), _last(other._last) {
  other._n = 0;
  other._first = other._last = nullptr;
}

_TripleSet::~_TripleSet() {
  bool first = true;
  for (_Chunk* c = _first; c; first = false) {
    _Chunk* next = c->next;
    FSTAllocator::_deallocate(c, _chunk_units(first));
    c = next;
  }
}

void _TripleSet::add(int pair, float weight) {
  int const slot = _n < _first_chunk_size ? _n : (_n - _first_chunk_size) % _chunk_size;
  if (slot == 0) {
    bool const first = _n == 0;
    auto* chunk = static_cast<_Chunk*>(FSTAllocator::_allocate(_chunk_units(first)));
    chunk->next = nullptr;
    if (_last)
      _last->next = chunk;
    else
      _first = chunk;
    _last = chunk;
  }
  _last->triples[slot] = {pair, weight};
  ++_n;
}

bool _SubsetLess::operator()(_TripleSet const& a, _TripleSet const& b) const {
  if (a.size() != b.size()) return a.size() < b.size();
  // The first differing pair decides; then the first residual that differs by the tolerance.
  for (auto i = a.begin(), j = b.begin(); !i.done(); i.next(), j.next())
    if ((*i).pair != (*j).pair) return (*i).pair < (*j).pair;
  for (auto i = a.begin(), j = b.begin(); !i.done(); i.next(), j.next()) {
    if (_exceeds((*j).weight, (*i).weight, tolerance)) return true;
    if (_exceeds((*i).weight, (*j).weight, tolerance)) return false;
  }
  return false;
}

size_t _SubsetHash::operator()(_TripleSet const& subset) const {
  size_t h = size_t(subset.size());
  for (auto i = subset.begin(); !i.done(); i.next()) h = h * 1000003u ^ size_t(uint32_t((*i).pair));
  return h;
}

}  // namespace fst_determinize

using fst_determinize::_TripleSet;

FSTDeterminizeRep::FSTDeterminizeRep(FSTGeneric const& in, int limit, bool fsa, float delta,
                                     bool full)
    : FSTLazyRep(fst_determinize::_SubsetIndex(
          64, fst_determinize::_SubsetHash(),
          fst_determinize::_SubsetEqual{fst_determinize::_SubsetLess{delta}})),
      _fst(in),
      _limit(limit),
      _fsa(fsa),
      _full(full),
      _input_alphabet(FSTOperandInputAlphabet(*in)),
      _output_alphabet(FSTOperandOutputAlphabet(*in)),
      _labels(193),
      _delta(delta) {
  name = "FSTDeterminize";
  _semiring = in->semiring();
  // Outside acceptor mode an arc may write nothing while its labels wait in the subset, and a
  // label left waiting at a final state is written by an arc that reads nothing.
  if (!_fsa) {
    _input_alphabet.insert(0);
    _output_alphabet.insert(0);
  }
  if (_limit < 1) _limit = INT_MAX;
  if (_full) _limit = 1;
  _init();
}

FSTDeterminizeRep::~FSTDeterminizeRep() {
  _free_collection();
  _clean();
}

void FSTDeterminizeRep::_init() const {
  _clean();
  _weights.clear();
  _pair_index.clear();
  _plain_pair_index.clear();
  _pairs.clear();
  _single_pair_of_state.clear();
  _single_state_of_pair.clear();
  _initial = -1;
  int i = _fst->initial();
  if (i < 0) return;
  _TripleSet start;
  start.add(_lookup_pair(i, 0), _semiring->one);
  _initial = _find_or_add_subset(std::move(start));
}

int FSTDeterminizeRep::_lookup_pair(int state, int label) const {
  if (label == 0 && state >= 0) {
    if (size_t(state) >= _plain_pair_index.size())
      _plain_pair_index.resize(std::max(size_t(state) + 1, size_t(_fst->states().size())), -1);
    if (_plain_pair_index[size_t(state)] < 0) {
      _plain_pair_index[size_t(state)] = int(_pairs.size());
      _pairs.push_back(_Pair{state, 0});
    }
    return _plain_pair_index[size_t(state)];
  }
  auto found = _pair_index.find({state, label});
  if (found != _pair_index.end()) return found->second;
  int index = int(_pairs.size());
  _pair_index.emplace(_Pair{state, label}, index);
  _pairs.push_back(_Pair{state, label});
  return index;
}

int FSTDeterminizeRep::_find_or_add_subset(_TripleSet&& subset) const {
  FSTSemiringBase const& s = *_semiring;
  int id = -1;
  if (subset.size() == 1 && (*subset.begin()).weight == s.one) {
    int const pair = (*subset.begin()).pair;
    if (size_t(pair) >= _single_state_of_pair.size())
      _single_state_of_pair.resize(std::max(size_t(pair) + 1, _pairs.size()), -1);
    if (_single_state_of_pair[size_t(pair)] >= 0) return _single_state_of_pair[size_t(pair)];
    id = _single_state_of_pair[size_t(pair)] = _add_state_without_key();
    _single_pair_of_state.resize(size_t(id) + 1, -1);
    _single_pair_of_state[size_t(id)] = pair;
  } else {
    int before = _n_states;
    id = _find_or_add_state(std::move(subset));
    if (id < before) return id;
  }
  _StateWeights w{s.zero, s.zero};
  _for_each_triple(id, [&](_TripleSet::_Triple const& t) {
    _Pair const& pair = _pairs[size_t(t.pair)];
    if (pair.state >= 0) {
      if (pair.label == 0 && _fst->is_final(pair.state))
        w.final = s.plus(w.final, s.times(_fst->final_weight(pair.state), t.weight));
      w.potential = s.better(w.potential, s.times(t.weight, _fst->potential(pair.state)));
    } else {
      // The pseudo state that pending labels at final states lead to.
      if (pair.label == 0) w.final = t.weight;
      w.potential = s.better(w.potential, t.weight);
    }
  });
  _weights.push_back(w);
  return id;
}

template <class F>
void FSTDeterminizeRep::_for_each_triple(int p, F f) const {
  FST_ASSERT_STATE(p);
  if (size_t(p) < _single_pair_of_state.size() && _single_pair_of_state[size_t(p)] >= 0)
    f(_TripleSet::_Triple{_single_pair_of_state[size_t(p)], _semiring->one});
  else
    _state(p).for_each(f);
}

int FSTDeterminizeRep::_subset_size(int p) const {
  FST_ASSERT_STATE(p);
  if (size_t(p) < _single_pair_of_state.size() && _single_pair_of_state[size_t(p)] >= 0) return 1;
  return _state(p).size();
}

// ---- arcs ---------------------------------------------------------------------------------------

void FSTDeterminizeRep::_collect(int p, bool& had_arcs) const {
  FSTSemiringBase const& s = *_semiring;
  auto add = [this](_CollectionEntry const& e) {
    void* memory = FSTAllocator::allocate(sizeof(_CollectionEntry));
    _collection.push_back(new (memory) _CollectionEntry(e));
  };
  _for_each_triple(p, [&](_TripleSet::_Triple const& t) {
    _Pair const pair = _pairs[size_t(t.pair)];
    int q = pair.state, o = pair.label;
    if (q >= 0) {
      // A pending label is always emitted before a new one.
      for (FSTArc* a : _fst->arcs_out(q, FSTArcOrderAny)) {
        had_arcs = true;
        float w = s.times(t.weight, a->weight);
        if (o != 0)
          add({a->input, a->to, o, a->output, w});
        else
          add({a->input, a->to, a->output, 0, w});
      }
    }
    // A label still pending at a final state leaves by epsilon into the final pseudo state.
    if (o != 0 && (q < 0 || _fst->is_final(q)))
      add({0, -1, o, 0, q < 0 ? t.weight : s.times(t.weight, _fst->final_weight(q))});
  });
}

void FSTDeterminizeRep::_sort_and_merge() const {
  auto key = [](_CollectionEntry const* e) {
    return std::make_tuple(e->input, e->output, e->pending, e->target);
  };
  std::sort(_collection.begin(), _collection.end(),
            [&](_CollectionEntry const* a, _CollectionEntry const* b) { return key(a) < key(b); });
  size_t kept = 0;
  for (size_t i = 0; i < _collection.size(); ++i) {
    _CollectionEntry* e = _collection[i];
    if (kept > 0 && key(_collection[kept - 1]) == key(e)) {
      _collection[kept - 1]->weight = _semiring->plus(_collection[kept - 1]->weight, e->weight);
      FSTAllocator::deallocate(e, sizeof(_CollectionEntry));
    } else {
      _collection[kept++] = e;
    }
  }
  _collection.resize(kept);
}

void FSTDeterminizeRep::_simple_arc(int p, _CollectionEntry const& e, float weight,
                                    FSTArcList& list) const {
  _TripleSet single;
  single.add(_lookup_pair(e.target, e.pending), _semiring->one);
  list.add(e.input, e.output, weight, _find_or_add_subset(std::move(single)), p);
}

void FSTDeterminizeRep::_build_group(int p, size_t begin, size_t end, FSTArcList& list) const {
  FSTSemiringBase const& s = *_semiring;
  int const label = _collection[begin]->input;
  size_t const n = end - begin;
  if (int(n) <= _limit && !_labels.count(label)) {
    for (size_t i = begin; i < end; ++i)
      _simple_arc(p, *_collection[i], _collection[i]->weight, list);
    return;
  }
  // One arc for the group: W is the plus of the weights, the entries keep residuals.
  float W = s.zero;
  bool same_output = true;
  for (size_t i = begin; i < end; ++i) {
    W = s.plus(W, _collection[i]->weight);
    same_output &= _collection[i]->output == _collection[begin]->output;
  }
  int const arc_output = same_output ? _collection[begin]->output : 0;
  struct Member {
    _CollectionEntry const* entry;
    int label;  // the pending label of its triple
    float residual;
  };
  std::vector<Member> members;
  bool split = false;
  for (size_t i = begin; i < end; ++i) {
    _CollectionEntry const& e = *_collection[i];
    if (same_output) {
      members.push_back({&e, e.pending, e.weight});
    } else if (e.pending != 0) {
      // It cannot wait for a second label: it stays an arc of its own.
      _simple_arc(p, e, e.weight, list);
      split = true;
    } else {
      members.push_back({&e, e.output, e.weight});
    }
  }
  if (members.empty()) return;
  if (W != s.one)
    for (Member& m : members) m.residual = s.divide(m.residual, W);

  _TripleSet subset;
  for (Member const& m : members) subset.add(_lookup_pair(m.entry->target, m.label), m.residual);

  // Guard against endless subsets: the same pairs as p's own subset with other residuals is the
  // start of a chain that never closes (a machine that cannot be determinized).
  if (!_full && !split && members.size() > 1 && subset.size() == _subset_size(p)) {
    bool same_pairs = true, other_residuals = false;
    for (auto i = subset.begin(), j = _state(p).begin(); !i.done(); i.next(), j.next()) {
      same_pairs &= (*i).pair == (*j).pair;
      if (fst_determinize::_exceeds((*i).weight, (*j).weight, _delta) ||
          fst_determinize::_exceeds((*j).weight, (*i).weight, _delta))
        other_residuals = true;
    }
    if (same_pairs && other_residuals) {
      for (Member const& m : members) _simple_arc(p, *m.entry, s.times(m.residual, W), list);
      return;
    }
  }
  list.add(label, arc_output, W, _find_or_add_subset(std::move(subset)), p);
}

FSTArcIter FSTDeterminizeRep::arcs_out(int p, FSTArcOrder order) const {
  _free_collection();
  bool had_arcs = false;
  _collect(p, had_arcs);
  _sort_and_merge();
  if (had_arcs) FST_ASSERT(!_collection.empty());
  FSTArcList list;
  size_t begin = 0;
  while (begin < _collection.size()) {
    _CollectionEntry const& first = *_collection[begin];
    // Where the pair is the symbol, a group holds one (input, output, pending) only.
    bool pair_symbol = _fsa || first.input == 0 || first.input == 1 || _labels.count(first.input);
    size_t end = begin + 1;
    while (end < _collection.size()) {
      _CollectionEntry const& e = *_collection[end];
      if (e.input != first.input) break;
      if (pair_symbol && (e.output != first.output || e.pending != first.pending)) break;
      ++end;
    }
    _build_group(p, begin, end, list);
    begin = end;
  }
  _free_collection();
  return list.iter(order);
}

void FSTDeterminizeRep::_free_collection() const {
  for (_CollectionEntry* e : _collection) FSTAllocator::deallocate(e, sizeof(_CollectionEntry));
  _collection.clear();
}

FSTArcIter FSTDeterminizeRep::arcs_out_with_input(int, int, FSTArcMode) const {
  FSTFatal("FSTDeterminizeRep::arcs_out_with_input: not implemented");
}

FSTArcIter FSTDeterminizeRep::arcs_out_with_output(int, int, FSTArcMode) const {
  FSTFatal("FSTDeterminizeRep::arcs_out_with_output: not implemented");
}

void FSTDeterminizeRep::force() const { FSTFatal("FSTDeterminizeRep::force not implemented"); }

bool FSTDeterminizeRep::is_final(int p) const { return final_weight(p) != _semiring->zero; }

float FSTDeterminizeRep::final_weight(int p) const {
  FST_ASSERT_STATE(p);
  return _weights[size_t(p)].final;
}

float FSTDeterminizeRep::potential(int p) const {
  FST_ASSERT_STATE(p);
  return _weights[size_t(p)].potential;
}

void FSTDeterminizeRep::reset() const {
  _free_collection();
  _init();
}

FSTGeneric FSTDeterminizeRep::reload(bool& changed) {
  if (_fst.reload()) changed = true;
  reset();
  return FSTGeneric(this);
}

void FSTDeterminizeRep::state_set(int p, fst::set<int>& out) const {
  out.clear();
  _for_each_triple(p, [&](_TripleSet::_Triple const& t) {
    int q = _pairs[size_t(t.pair)].state;
    if (q >= 0) out.insert(q);
  });
}

std::string FSTDeterminizeRep::describe(int p) const {
  std::ostringstream os;
  os << "{";
  bool first = true;
  _for_each_triple(p, [&](_TripleSet::_Triple const& t) {
    _Pair const& pair = _pairs[size_t(t.pair)];
    os << (first ? "" : ",") << "(" << pair.state << "," << FSTstring_map[pair.label] << ","
       << t.weight << ")";
    first = false;
  });
  os << "}";
  return os.str();
}

FSTGeneric FSTDeterminize(FSTGeneric const& in, int limit, bool fsa, float delta, bool full) {
  return new FSTDeterminizeRep(in, limit, fsa, delta, full);
}

FSTGeneric FSTDeterminizeA(FSTGeneric const& in, int limit, float delta, bool full) {
  return FSTDeterminize(in, limit, true, delta, full);
}

void FSTDeterminizeStateSet(FSTGeneric const& m, int p, fst::set<int>& out) {
  auto rep = dynamic_cast<FSTDeterminizeRep const*>(m.get());
  FST_ASSERT(rep != nullptr);
  rep->state_set(p, out);
}

int FSTNondeterministicStates(FSTGenericInt const& m, bool fsa) {
  int count = 0;
  std::vector<std::pair<int, int>> keys;
  for (int p : m.states()) {
    keys.clear();
    bool epsilon = false;
    for (FSTArc* a : m.arcs_out(p, FSTArcOrderAny)) {
      epsilon |= a->input == 0 && (!fsa || a->output == 0);
      keys.push_back({a->input, fsa ? a->output : 0});
    }
    std::sort(keys.begin(), keys.end());
    count += epsilon || std::adjacent_find(keys.begin(), keys.end()) != keys.end();
  }
  return count;
}
