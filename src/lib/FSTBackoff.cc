#include "FSTBackoff.h"

#include "FSTLazy.h"
#include "FSTOperand.h"

namespace {
// The name the mode is checked under.
constexpr FSTArcMode FSTEqual = FSTArcModeEqual;
}  // namespace

FSTBackoffRep::FSTBackoffRep(FSTGeneric const& g, bool invert) : _machine(g), _invert(invert) {
  name = "FSTBackoff";
  _semiring = g->semiring();
  _initial = g->initial();
  _n_states = g->states().size();
}

FSTArcIter FSTBackoffRep::dynamic(FSTArc const* arc, int p, float acc) const {
  float w = _semiring->times(arc->weight, acc);
  FSTArcList list;
  list.add(arc->input, arc->output, _invert ? _semiring->invert(w) : w, arc->to, p);
  return list.iter();
}

FSTArcIter FSTBackoffRep::arcs_out_with_input(int p, int label, FSTArcMode mode) const {
  FST_ASSERT(mode == FSTEqual);
  if (label == 0) return FSTArcIter();
  FSTSemiringBase const& s = *_semiring;
  FSTArcIter a = FSTOperandArcsWithInput(*_machine, p, label);
  if (!a.done()) {
    FST_ASSERT(a.n() == 1);
    return _invert ? dynamic(*a, p, s.one) : a;
  }
  float acc = s.one;
  // A loop of back-off arcs would never end: a chain longer than the states has one.
  for (int state = p, steps = 0; steps <= _machine->states().size(); ++steps) {
    FSTArcIter e = FSTOperandArcsWithInput(*_machine, state, 0);
    if (e.done()) return FSTArcIter();
    FST_ASSERT(e.n() == 1);
    acc = s.times(acc, (*e)->weight);
    state = (*e)->to;
    FSTArcIter a = FSTOperandArcsWithInput(*_machine, state, label);
    if (!a.done()) {
      FST_ASSERT(a.n() == 1);
      return dynamic(*a, p, acc);
    }
  }
  return FSTArcIter();
}

FSTArcIter FSTBackoffRep::arcs_out(int, FSTArcOrder) const {
  FSTFatal("FSTBackoff::arcs_out not implemented");
}

FSTArcIter FSTBackoffRep::arcs_out_with_output(int, int, FSTArcMode) const {
  FSTFatal("FSTBackoff::arcs_out_with_output not implemented");
}

float FSTBackoffRep::final_weight(int p) const {
  FSTSemiringBase const& s = *_semiring;
  float acc = s.one;
  // A loop of back-off arcs would never end: a chain longer than the states has one.
  for (int state = p, steps = 0; steps <= _machine->states().size(); ++steps) {
    float w = _machine->final_weight(state);
    if (w != s.zero) {
      float total = s.times(w, acc);
      return _invert ? s.invert(total) : total;
    }
    FSTArcIter e = FSTOperandArcsWithInput(*_machine, state, 0);
    if (e.done()) break;
    FST_ASSERT(e.n() == 1);
    acc = s.times(acc, (*e)->weight);
    state = (*e)->to;
  }
  return s.zero;
}

bool FSTBackoffRep::is_final(int p) const { return final_weight(p) != _semiring->zero; }

void FSTBackoffRep::force() const {
  FSTOperandForce(*_machine);
  _n_states = _machine->states().size();
}

void FSTBackoffRep::reset() const {
  _machine->reset();
  _n_states = _machine->states().size();
  _initial = _machine->initial();
}

FSTGeneric FSTBackoff(FSTGeneric const& g, bool invert) { return new FSTBackoffRep(g, invert); }
