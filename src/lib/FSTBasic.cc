#include "FSTBasic.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <vector>

#include "FSTDepthFirst.h"
#include "FSTStringMap.h"
#include "FSTlib.h"

namespace {

bool by_input(FSTArc const* a, FSTArc const* b) { return a->input < b->input; }
bool by_output(FSTArc const* a, FSTArc const* b) { return a->output < b->output; }
using ArcLess = bool (*)(FSTArc const*, FSTArc const*);
ArcLess arc_less(FSTArcOrder o) { return o == FSTArcOrderInput ? by_input : by_output; }

int chosen_label(FSTArc const* arc, FSTArcOrder from) {
  if (from == FSTArcOrderInput) return arc->input;
  if (from == FSTArcOrderOutput) return arc->output;
  return 0;
}

// Unsupported copy options end the process with a success status, by design of the interface.
[[noreturn]] void refuse(char const* message) {
  std::cerr << message << std::endl;
  std::exit(0);
}

}  // namespace

// ---- construction -------------------------------------------------------------------------------

void FSTBasicRep::_init(FSTSemiringBase const* s) {
  name = "FSTBasic";
  _semiring = s;
  _arc_order = FSTArcOrderAny;
  _train_data = nullptr;
  _rep_flag[0] = true;
  _rep_flag[1] = false;
}

FSTBasicRep::FSTBasicRep(FSTSemiringBase const* s) { _init(s); }

FSTBasicRep::FSTBasicRep(FSTGeneric const& g, FSTArcOrder in_from, FSTArcOrder out_from,
                         bool reverse, bool clear_weights, bool convert_to_PlusTimes) {
  _init(convert_to_PlusTimes ? FSTPlusTimes : g->semiring());
  if (reverse && convert_to_PlusTimes)
    refuse("reverse and convert_to_PlusTimes both true not implemented");
  _copy(g, in_from, out_from, reverse, clear_weights,
        convert_to_PlusTimes ? _Conversion::source_convert : _Conversion::none);
}

FSTBasicRep::FSTBasicRep(FSTGeneric const& g, FSTArcOrder in_from, FSTArcOrder out_from,
                         bool reverse, bool clear_weights,
                         FSTSemiringBase const* convert_to_semiring) {
  FSTSemiringBase const* source = g->semiring();
  FSTSemiringBase const* target = convert_to_semiring;
  bool refused = (source == FSTMinPlus && target != FSTPlusTimes && target != FSTMaxPlus) ||
                 ((source == FSTMaxPlus || source == FSTPlusTimes) && target != FSTMinPlus);
  if (refused) {
    std::cerr << "semiring of x " << static_cast<void const*>(source) << " and convert_to_semiring "
              << static_cast<void const*>(target) << " pair not implemented" << std::endl;
    std::exit(0);
  }
  if (reverse && source != target)
    refuse("reverse and convert_to_semiring both true not implemented");
  _init(target);
  _Conversion conversion = _Conversion::none;
  if (source == FSTMinPlus && target == FSTMaxPlus) conversion = _Conversion::negate;
  if (source == FSTMaxPlus && target == FSTMinPlus) conversion = _Conversion::negate;
  if (source == FSTPlusTimes && target == FSTMinPlus)
    conversion = _Conversion::plus_times_to_min_plus;
  if (source == FSTMinPlus && target == FSTPlusTimes)
    conversion = _Conversion::min_plus_to_plus_times;
  _copy(g, in_from, out_from, reverse, clear_weights, conversion);
}

float FSTBasicRep::_convert(float w, _Conversion conversion, FSTSemiringBase const* source) const {
  switch (conversion) {
    case _Conversion::none:
      return w;
    case _Conversion::source_convert:
      return source->convert(w);
    case _Conversion::negate:
      return -w;
    case _Conversion::plus_times_to_min_plus:
      return w > 0 ? -std::log(w) : 1e30f;
    case _Conversion::min_plus_to_plus_times:
      // Deliberately "greater than": every ordinary cost maps to probability 0.
      return w > 1e30f ? std::exp(-w) : 0.0f;
  }
  return w;
}

void FSTBasicRep::_copy(FSTGeneric const& g, FSTArcOrder in_from, FSTArcOrder out_from,
                        bool reverse, bool clear_weights, _Conversion conversion) {
  FSTGenericInt const& source = *g;
  FSTSemiringBase const* from = source.semiring();
  float const one = _semiring->one;
  // A lazy source may grow while it is walked: its count is re-read on every pass.
  FSTStateRange const source_states = source.states();
  auto keep_up = [&] {
    if (source_states.size() > _n_states) add_states(source_states.size() - _n_states);
  };
  keep_up();
  auto weight = [&](float w) { return clear_weights ? one : _convert(w, conversion, from); };

  if (!reverse) {
    // A machine without an initial state copies to one without an initial state.
    if (source.initial() >= 0) set_initial(source.initial());
    // Depth first from the initial state: a lazy source then reads its operands along paths,
    // and neighbours tend to sit close in memory.
    FSTVisitDepthFirst(source, true, [&](int p, FSTArcIter const& arcs) {
      keep_up();
      float f = _convert(source.final_weight(p), conversion, from);
      if (f != _semiring->zero) set_final(p, clear_weights ? one : f);
      if (!clear_weights) set_potential(p, _convert(source.potential(p), conversion, from));
      _states[size_t(p)]->arcs.reserve(size_t(arcs.size()));
      for (FSTArc* arc : arcs)
        add_arc(p, arc->to, chosen_label(arc, in_from), chosen_label(arc, out_from),
                weight(arc->weight));
    });
    return;
  }

  // Reversal happens only without conversion, so weights are the source's own.
  fst::set<int> finals;
  float best_final = _semiring->zero;
  for (int p = 0; p < source_states.size(); ++p) {
    keep_up();
    if (!clear_weights) set_potential(p, source.potential(p));
    if (source.is_final(p)) {
      finals.insert(p);
      best_final = _semiring->better(best_final, source.final_weight(p));
    }
    for (FSTArc* arc : source.arcs_out(p, FSTArcOrderAny))
      add_arc(arc->to, p, chosen_label(arc, in_from), chosen_label(arc, out_from),
              weight(arc->weight));
  }
  int const start = add_states(1);
  set_initial(start);
  if (source.initial() >= 0) set_final(source.initial(), one);
  for (int f : finals) add_arc(start, f, 0, 0, weight(source.final_weight(f)));
  if (!clear_weights) set_potential(start, best_final);
}

FSTBasicRep::~FSTBasicRep() {}

FSTBasicRep::_StateTable::~_StateTable() {
  for (_State* state : *this) {
    for (FSTArc* arc : state->arcs) FSTDeleteArc(arc);
    state->~_State();
    FSTAllocator::_deallocate(state, _state_units);
  }
}

FSTGeneric FSTBasicRep::copy(FSTGeneric const& g) {
  return new FSTBasicRep(g, FSTArcOrderInput, FSTArcOrderOutput, false, false, false);
}

// ---- queries ------------------------------------------------------------------------------------

FSTBasicRep::_State* FSTBasicRep::_state(int p) const {
  FST_ASSERT_STATE(p);
  return _states[size_t(p)];
}


int FSTBasicRep::n_arcs_out(int p) const { return int(_state(p)->arcs.size()); }

FSTArcIter FSTBasicRep::arcs_out(int p, FSTArcOrder o) const {
  _State* state = _state(p);
  if (o != FSTArcOrderAny) _sort_arcs(o);
  return _iterate(state->arcs.data(), state->arcs.data() + state->arcs.size());
}

FSTArcIter FSTBasicRep::arcs_out_with_input(int p, int label, FSTArcMode m) const {
  _State* state = _state(p);
  _sort_arcs(FSTArcOrderInput);
  auto range = _select_sorted(state->arcs.data(), state->arcs.data() + state->arcs.size(), label,
                              m, true);
  return _iterate(range.first, range.second);
}

FSTArcIter FSTBasicRep::arcs_out_with_output(int p, int label, FSTArcMode m) const {
  _State* state = _state(p);
  _sort_arcs(FSTArcOrderOutput);
  auto range = _select_sorted(state->arcs.data(), state->arcs.data() + state->arcs.size(), label,
                              m, false);
  return _iterate(range.first, range.second);
}

void FSTBasicRep::arcs_out(FSTArcVector& v, int p, FSTArcOrder o) const {
  for (FSTArc* arc : arcs_out(p, o)) v.push_back(FSTNewArc(*arc));
}

bool FSTBasicRep::is_final(int p) const { return _state(p)->final != _semiring->zero; }
float FSTBasicRep::final_weight(int p) const { return _state(p)->final; }
float FSTBasicRep::potential(int p) const { return _state(p)->potential; }

void FSTBasicRep::_sort_arcs(FSTArcOrder order) const {
  if (order == _arc_order) return;
  if (order == FSTArcOrderAny) {
    _arc_order = FSTArcOrderAny;
    return;
  }
  if (_arc_order != FSTArcOrderAny)
    FSTWarn("FSTBasic: resorting arcs from order %d to order %d is inefficient", int(_arc_order),
            int(order));
  _arc_order = order;
  for (_State* state : _states) _sort_arcs(state->arcs, order);
}

void FSTBasicRep::dump_ascii(std::ostream& os, bool header) const {
  if (_train_data) FSTFatal("FSTBasicRep::dump_ascii: can't dump when in training mode");
  FSTGenericInt::dump_ascii(os, header);
}

void FSTBasicRep::dump_binary(std::ostream& os) const {
  if (_train_data) FSTFatal("FSTBasicRep::dump_binary: can't dump when in training mode");
  FSTGenericInt::dump_binary(os);
}

void FSTBasicRep::restore_input_output_index() {
  for (_State* state : _states)
    for (FSTArc* arc : state->arcs) {
      arc->input = int(std::strtol(FSTstring_map[arc->input], nullptr, 10));
      arc->output = int(std::strtol(FSTstring_map[arc->output], nullptr, 10));
    }
}

// ---- mutators -----------------------------------------------------------------------------------

void FSTBasicRep::_grow_to(int p) {
  if (p >= _n_states) add_states(p - _n_states + 1);
}

void FSTBasicRep::set_initial(int p) {
  FST_ASSERT(!_train_data);
  FST_ASSERT(p >= 0);
  _grow_to(p);
  _initial = p;
}

void FSTBasicRep::set_final(int p, float w) {
  FST_ASSERT(!_train_data);
  FST_ASSERT(p >= 0);
  _grow_to(p);
  _states[size_t(p)]->final = w;
}

void FSTBasicRep::set_potential(int p, float w) {
  FST_ASSERT(!_train_data);
  FST_ASSERT(p >= 0);
  _grow_to(p);
  _states[size_t(p)]->potential = w;
}

int FSTBasicRep::add_states(int n) {
  FST_ASSERT(!_train_data);
  FST_ASSERT(n >= 0);
  if (n == 0) return -1;
  int first = _n_states;
  // A count that cannot fit in memory stops here with a message, before the system is asked
  // for it (a one-line text file can name state 2147483646).
  size_t const state_bytes = sizeof(_State*) + _state_units * FSTAllocator::unit_bytes;
  static size_t const memory_bytes = size_t(sysconf(_SC_PHYS_PAGES)) * size_t(sysconf(_SC_PAGESIZE));
  if (size_t(n) > memory_bytes / state_bytes)
    FSTFatal("FSTBasicRep::add_states: %d states need %zu MB, more than this machine's %zu MB", n,
             size_t(n) * state_bytes >> 20, memory_bytes >> 20);
  // Geometric growth: copying a lazy machine adds states one or two at a time.
  size_t needed = size_t(_n_states) + size_t(n);
  if (_states.capacity() < needed) _states.reserve(std::max(needed, 2 * _states.capacity()));
  for (int i = 0; i < n; ++i) {
    void* memory = FSTAllocator::_allocate(_state_units);
    _states.push_back(new (memory) _State{_semiring->zero, _semiring->one, FSTArcVector()});
  }
  _n_states += n;
  FST_ASSERT((size_t)_n_states == _states.size());
  return first;
}

void FSTBasicRep::add_arc(int p, int q, int input, int output, float weight) {
  FST_ASSERT(!_train_data);
  FST_ASSERT(p >= 0);
  _grow_to(p);
  FST_ASSERT(q >= 0);
  _grow_to(q);
  _note_labels(input, output);
  FSTArc* arc = FSTNewArc(input, output, weight, q, p);
  FSTArcVector& arcs = _states[size_t(p)]->arcs;
  if (_arc_order == FSTArcOrderAny)
    arcs.push_back(arc);
  else
    arcs.insert(std::lower_bound(arcs.begin(), arcs.end(), arc, arc_less(_arc_order)), arc);
  ++_n_arcs;
}

void FSTBasicRep::_note_labels(int input, int output) {
  if (input != _last_input) _input_labels.insert(_last_input = input);
  if (output != _last_output) _output_labels.insert(_last_output = output);
}

// Checks the destinations, records the labels and makes the arcs p's own.
void FSTBasicRep::_take_arcs(int p, FSTArcVector& v) {
  for (FSTArc* arc : v) {
    int q = arc->to;
    FST_ASSERT_STATE(q);
    _note_labels(arc->input, arc->output);
    arc->from = p;
  }
}

void FSTBasicRep::add_arcs(int p, FSTArcVector& v, FSTArcOrder o) {
  FST_ASSERT(!_train_data);
  FST_ASSERT_STATE(p);
  _take_arcs(p, v);
  FSTArcVector& arcs = _states[size_t(p)]->arcs;
  size_t old_size = arcs.size();
  arcs.insert(arcs.end(), v.begin(), v.end());
  _n_arcs += int(v.size());
  v.clear();
  if (_arc_order != FSTArcOrderAny) {
    ArcLess less = arc_less(_arc_order);
    auto middle = arcs.begin() + long(old_size);
    if (o != _arc_order) std::stable_sort(middle, arcs.end(), less);
    std::inplace_merge(arcs.begin(), middle, arcs.end(), less);
  }
}

void FSTBasicRep::set_arcs(int p, FSTArcVector& v, FSTArcOrder o) {
  FST_ASSERT(!_train_data);
  FST_ASSERT_STATE(p);
  _take_arcs(p, v);
  FSTArcVector& arcs = _states[size_t(p)]->arcs;
  for (FSTArc* arc : arcs) FSTDeleteArc(arc);
  _n_arcs += int(v.size()) - int(arcs.size());
  arcs.assign(v.begin(), v.end());
  v.clear();
  if (_arc_order != FSTArcOrderAny && o != _arc_order) _sort_arcs(arcs, _arc_order);
}

void FSTBasicRep::delete_state(int p) {
  FST_ASSERT(!_train_data);
  FST_ASSERT_STATE(p);
  delete_states(fst::vector<int>(1, p));
}

void FSTBasicRep::delete_states(fst::vector<int> const& states) {
  FST_ASSERT(!_train_data);
  if (_n_states == 0) return;
  FST_ASSERT(_n_states > 0);
  std::vector<bool> keep(size_t(_n_states), true);
  for (auto i = states.begin(); i != states.end(); ++i) {
    FST_ASSERT_STATE(*i);
    keep[size_t(*i)] = false;
  }
  // Kept states keep their relative order, numbered densely from 0.
  std::vector<int> renumbered(size_t(_n_states) + 1, 0);
  int n_deleted = 0;
  for (size_t i = 0; i < size_t(_n_states); ++i) {
    renumbered[i + 1] = renumbered[i] + int(keep[i]);
    n_deleted += !keep[i];
  }
  _input_labels.clear();
  _output_labels.clear();
  _last_input = _last_output = INT_MIN;
  _n_arcs = 0;
  for (size_t i = 0; i < size_t(_n_states); ++i) {
    _State* state = _states[i];
    if (!keep[i]) {
      for (FSTArc* arc : state->arcs) FSTDeleteArc(arc);
      state->~_State();
      FSTAllocator::_deallocate(state, _state_units);
      continue;
    }
    // Compact in place, preserving order so the machine's sort order stays valid.
    FSTArcVector& arcs = state->arcs;
    size_t kept = 0;
    for (FSTArc* arc : arcs) {
      if (!keep[size_t(arc->to)]) {
        FSTDeleteArc(arc);
        continue;
      }
      _note_labels(arc->input, arc->output);
      arc->to = renumbered[size_t(arc->to)];
      arc->from = renumbered[i];
      arcs[kept++] = arc;
    }
    arcs.resize(kept);
    _n_arcs += int(kept);
    _states[size_t(renumbered[i])] = state;
  }
  _states.resize(size_t(_n_states - n_deleted));
  _n_states -= n_deleted;
  if (_initial >= 0) _initial = keep[size_t(_initial)] ? renumbered[size_t(_initial)] : -1;
}

// ---- free functions -----------------------------------------------------------------------------

FSTGeneric FSTBasic(FSTSemiringBase const* s) { return new FSTBasicRep(s); }
FSTGeneric FSTBasic(FSTGeneric const& g) { return FSTBasicRep::copy(g); }
FSTGeneric FSTCopy(FSTGeneric const& g) { return FSTBasicRep::copy(g); }
FSTGeneric FSTMutableCopy(FSTGeneric const& g) { return FSTBasicRep::copy(g); }

FSTGeneric FSTProject(FSTGeneric const& g, FSTArcOrder input_from, FSTArcOrder output_from) {
  return new FSTBasicRep(g, input_from, output_from, false, false, false);
}

FSTGeneric FSTReverse(FSTGeneric const& g) {
  return new FSTBasicRep(g, FSTArcOrderInput, FSTArcOrderOutput, true, false, false);
}

FSTGeneric FSTClearWeights(FSTGeneric const& g) {
  return new FSTBasicRep(g, FSTArcOrderInput, FSTArcOrderOutput, false, true, false);
}

FSTGeneric FSTConvert_to_PlusTimes(FSTGeneric const& g) {
  return new FSTBasicRep(g, FSTArcOrderInput, FSTArcOrderOutput, false, false, true);
}

FSTGeneric FSTConvert_to_MinPlus(FSTGeneric const& g) {
  return new FSTBasicRep(g, FSTArcOrderInput, FSTArcOrderOutput, false, false, FSTMinPlus);
}

FSTGeneric FSTConvert_to_MaxPlus(FSTGeneric const& g) {
  return new FSTBasicRep(g, FSTArcOrderInput, FSTArcOrderOutput, false, false, FSTMaxPlus);
}
