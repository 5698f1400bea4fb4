#include "FSTInvert.h"

#include "FSTLazy.h"
#include "FSTOperand.h"

FSTInvertRep::FSTInvertRep(FSTGeneric const& g) : _machine(g) {
  name = "FSTInvert";
  _semiring = g->semiring();
  _initial = g->initial();
  _n_states = g->states().size();
}

FSTArcIter FSTInvertRep::_invert_arcs(int p, FSTArcIter arcs) const {
  FSTArcList list;
  for (FSTArc* a : arcs) list.add(a->output, a->input, _semiring->invert(a->weight), a->to, p);
  return list.iter();
}

FSTArcIter FSTInvertRep::arcs_out(int p, FSTArcOrder order) const {
  FSTArcIter arcs = _machine->arcs_out(p, order);
  _n_states = _machine->states().size();  // a lazy operand discovers states as it goes
  return _invert_arcs(p, arcs);
}

FSTArcIter FSTInvertRep::arcs_out_with_input(int p, int label, FSTArcMode m) const {
  FSTArcIter arcs = _machine->arcs_out_with_input(p, label, m);
  _n_states = _machine->states().size();
  return _invert_arcs(p, arcs);
}

FSTArcIter FSTInvertRep::arcs_out_with_output(int p, int label, FSTArcMode m) const {
  FSTArcIter arcs = _machine->arcs_out_with_output(p, label, m);
  _n_states = _machine->states().size();
  return _invert_arcs(p, arcs);
}

// A state that is not final stays so (the inverse of zero is no weight in PlusTimes).
float FSTInvertRep::final_weight(int p) const {
  float w = _machine->final_weight(p);
  return w == _semiring->zero ? w : _semiring->invert(w);
}

void FSTInvertRep::force() const {
  FSTOperandForce(*_machine);
  _n_states = _machine->states().size();
}

void FSTInvertRep::reset() const {
  _machine->reset();
  _n_states = _machine->states().size();
  _initial = _machine->initial();
}

FSTGeneric FSTInvert(FSTGeneric const& g) { return new FSTInvertRep(g); }
