#include "FSTCompose.h"

#include <vector>

#include "FSTCache.h"
#include "FSTOperand.h"

namespace {

uint32_t const state_mask = (1u << 30) - 1;
int const filter_free = 0;
int const filter_second_moved = 1;  // the second operand moved alone since the last match

}  // namespace

FSTComposeRep::FSTComposeRep(FSTGeneric const& first, FSTGeneric const& second)
    : _first_operand(first), _second_operand(second) {
  name = "FSTCompose";
  if (first->semiring() != second->semiring())
    FSTFatal("can't compose different semirings: %s and %s", first->semiring()->name,
             second->semiring()->name);
  _semiring = first->semiring();
  _n_arcs = 0;
  _setup();
  _init();
}

void FSTComposeRep::_setup() {
  _same = _first_operand.get() == _second_operand.get();
  _first = _first_operand;
  _second = _second_operand;
  if (!FSTOperandProbesOutput(*_first)) _first = FSTCache(_first);
  if (!FSTOperandProbesInput(*_second))
    _second = _same && _first.get() != _first_operand.get() ? _first : FSTCache(_second);
  fst::set<int> const& second_inputs = FSTOperandInputAlphabet(*_second);
  fst::set<int> const& first_outputs = FSTOperandOutputAlphabet(*_first);
  _epsilon = second_inputs.count(0) > 0;
  _drive_first = _same || !FSTOperandListsArcs(*_second);
  _drive_second = !_drive_first && !FSTOperandListsArcs(*_first);
  _first_by_output = FSTOperandProbe(*_first, false);
  _second_by_input = FSTOperandProbe(*_second, true);
  _input_alphabet = FSTOperandInputAlphabet(*_first);
  _output_alphabet = FSTOperandOutputAlphabet(*_second);
  if (_epsilon) _input_alphabet.insert(0);
  if (first_outputs.count(0)) _output_alphabet.insert(0);
}

FSTComposeRep::~FSTComposeRep() { _clean(); }

void FSTComposeRep::_init() const { _initial = _initial_state(); }

int FSTComposeRep::_initial_state() const {
  if (_first->initial() < 0 || _second->initial() < 0) return -1;
  return _target(_first->initial(), filter_free, _second->initial());
}

int FSTComposeRep::_target(int first, int filter, int second) const {
  FST_ASSERT(uint32_t(first) <= state_mask);
  return _find_or_add_state(_Triple{uint32_t(first) | uint32_t(filter) << 30, uint32_t(second)});
}

std::pair<int, int> FSTComposeRep::state_pair(int state) const {
  FST_ASSERT_STATE(state);
  _Triple const& key = _state(state);
  return {int(key.first & state_mask), int(key.second)};
}

void FSTComposeRep::_arcs_out(int p, int in, int out, FSTArcMode mode, FSTArcOrder order,
                              FSTArcVector* result) const {
  _Triple const key = _state(p);
  int const s1 = int(key.first & state_mask), filter = int(key.first >> 30), s2 = int(key.second);
  FSTGenericInt const& first = *_first;
  FSTGenericInt const& second = *_second;
  FSTSemiringBase const& s = *_semiring;
  auto emit = [&](int input, int output, float weight, int to) {
    if (result) result->push_back(FSTNewArc(input, output, weight, to, p));
  };
  auto input_ok = [&](int label) { return in < 0 || FSTLabelMatches(label, in, mode); };
  auto output_ok = [&](int label) { return out < 0 || FSTLabelMatches(label, out, mode); };
  // The second operand alone, always; it then blocks the first's lone moves until the next
  // match, where the first has any to block.
  FSTArcIter first_alone;
  if (_epsilon) first_alone = _first_by_output(first, s1, 0);
  int const after_second_alone = first_alone.done() ? filter_free : filter_second_moved;
  bool const first_may_move_alone = filter != filter_second_moved;
  // After a lone move of the second, the first can only match or end: where its state has
  // neither an arc that writes a label nor finality, the move leads nowhere, and is not made
  // (a back-off inside a lexicon's word would otherwise leave a dead state per letter).
  int const unknown_count = 2147483647;
  int const n_first = _epsilon ? first.n_arcs_out(s1) : 0;
  bool const second_may_move_alone =
      _epsilon && (n_first == unknown_count || n_first > first_alone.size() || first.is_final(s1));
  if (input_ok(0) && second_may_move_alone)
    for (FSTArc* a2 : _second_by_input(second, s2, 0))
      if (output_ok(a2->output))
        emit(0, a2->output, a2->weight, _target(s1, after_second_alone, a2->to));

  // A lazy operand (whose arc count is not known) drives: probing it label by label would
  // compute its arcs again for every label. Otherwise a label restriction picks the side it
  // applies to, and an unrestricted request the side with fewer arcs. A requested order does
  // not pick the side: sorting a state's arcs afterwards is cheaper than a wrong driver. One
  // machine in both places always drives from the first, so that a stored one keeps one order.
  int const unknown = 2147483647;
  int const n1 = first.n_arcs_out(s1), n2 = second.n_arcs_out(s2);
  bool drive_first;
  if (_drive_first)
    drive_first = true;
  else if (_drive_second)
    drive_first = false;
  else if ((n1 == unknown) != (n2 == unknown))
    drive_first = n1 == unknown;
  else if (in >= 0)
    drive_first = true;
  else if (out >= 0)
    drive_first = false;
  else
    drive_first = !(n2 < n1);
  (void)order;

  // The driving side's arcs are copied first, in the order they are stored: the probes may
  // re-sort a stored operand, and both operands may be one machine.
  std::vector<FSTArc> driving;
  if (drive_first) {
    for (FSTArc* a : first.arcs_out(s1, FSTArcOrderAny)) driving.push_back(*a);
    for (FSTArc const& a1 : driving) {
      if (!input_ok(a1.input)) continue;
      if (a1.output == 0) {
        if (output_ok(0) && first_may_move_alone)
          emit(a1.input, 0, a1.weight, _target(a1.to, filter_free, s2));
        continue;
      }
      for (FSTArc* a2 : _second_by_input(second, s2, a1.output))
        if (output_ok(a2->output))
          emit(a1.input, a2->output, s.times(a1.weight, a2->weight),
               _target(a1.to, filter_free, a2->to));
    }
  } else {
    if (output_ok(0) && first_may_move_alone)
      for (FSTArc* a1 : _first_by_output(first, s1, 0)) driving.push_back(*a1);
    for (FSTArc const& a1 : driving)
      if (input_ok(a1.input)) emit(a1.input, 0, a1.weight, _target(a1.to, filter_free, s2));
    driving.clear();
    for (FSTArc* a : second.arcs_out(s2, FSTArcOrderAny)) driving.push_back(*a);
    for (FSTArc const& a2 : driving) {
      if (a2.input == 0 || !output_ok(a2.output)) continue;
      for (FSTArc* a1 : _first_by_output(first, s1, a2.input))
        if (input_ok(a1->input))
          emit(a1->input, a2.output, s.times(a1->weight, a2.weight),
               _target(a1->to, filter_free, a2.to));
    }
  }
}

FSTArcIter FSTComposeRep::arcs_out(int p, FSTArcOrder order) const {
  FSTArcList list;
  _arcs_out(p, -1, -1, FSTArcModeEqual, order, &list.arcs());
  return list.iter(order);
}

FSTArcIter FSTComposeRep::arcs_out_with_input(int p, int label, FSTArcMode m) const {
  FSTArcList list;
  _arcs_out(p, label, -1, m, FSTArcOrderInput, &list.arcs());
  return list.iter(FSTArcOrderInput);
}

FSTArcIter FSTComposeRep::arcs_out_with_output(int p, int label, FSTArcMode m) const {
  FSTArcList list;
  _arcs_out(p, -1, label, m, FSTArcOrderOutput, &list.arcs());
  return list.iter(FSTArcOrderOutput);
}

void FSTComposeRep::arcs_out(FSTArcVector& v, int p, FSTArcOrder order) const {
  v.clear();
  _arcs_out(p, -1, -1, FSTArcModeEqual, order, &v);
  _sort_arcs(v, order);
}

bool FSTComposeRep::is_final(int p) const {
  std::pair<int, int> pair = state_pair(p);
  return _first->is_final(pair.first) && _second->is_final(pair.second);
}

float FSTComposeRep::final_weight(int p) const {
  std::pair<int, int> pair = state_pair(p);
  float w1 = _first->final_weight(pair.first), w2 = _second->final_weight(pair.second);
  if (w1 == _semiring->zero || w2 == _semiring->zero) return _semiring->zero;
  return _semiring->times(w1, w2);
}

float FSTComposeRep::potential(int p) const {
  std::pair<int, int> pair = state_pair(p);
  return _semiring->times(_first->potential(pair.first), _second->potential(pair.second));
}

void FSTComposeRep::force() const {
  for (int p = 0; p < _n_states; ++p)
    _arcs_out(p, -1, -1, FSTArcModeEqual, FSTArcOrderAny, nullptr);
}

void FSTComposeRep::reset() const {
  _first->reset();
  if (_second.get() != _first.get()) _second->reset();
  _clean();
  int const new_initial = _initial_state();
  FST_ASSERT(new_initial == _initial);
}

FSTGeneric FSTComposeRep::reload(bool& changed) {
  bool any = _first_operand.reload();
  any |= _second_operand.reload();
  if (any) {
    changed = true;
    _setup();
  }
  reset();
  return FSTGeneric(this);
}

FSTGeneric FSTCompose(FSTGeneric const& first, FSTGeneric const& second) {
  return new FSTComposeRep(first, second);
}

FSTComposeInt const* FSTComposeCast(FSTGeneric const& g) {
  return dynamic_cast<FSTComposeInt const*>(g.get());
}
