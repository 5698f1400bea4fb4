#include "FSTClosure.h"

#include "FSTOperand.h"

// ---- shared -------------------------------------------------------------------------------------

FSTClosureRep::FSTClosureRep(FSTGeneric const& fst, char const* type_name) : _fst(fst) {
  name = type_name;
  _setup();
}

void FSTClosureRep::_setup() {
  _semiring = _fst->semiring();
  _input_alphabet = FSTOperandInputAlphabet(*_fst);
  _output_alphabet = FSTOperandOutputAlphabet(*_fst);
  _input_alphabet.insert(0);
  _output_alphabet.insert(0);
}

FSTGeneric FSTClosureRep::reload(bool& changed) {
  if (_fst.reload()) {
    changed = true;
    _setup();
  }
  reset();
  return FSTGeneric(this);
}

// ---- star ---------------------------------------------------------------------------------------

FSTClosureStarRep::FSTClosureStarRep(FSTGeneric const& fst, bool)
    : FSTClosureRep(fst, "FSTClosureStar") {
  _initial = 0;
  _refresh();
}

void FSTClosureStarRep::_refresh() const { _n_states = _fst->states().size() + 1; }

int FSTClosureStarRep::_checked(int p) const {
  _refresh();
  FST_ASSERT_STATE(p);
  return p;
}

FSTArcIter FSTClosureStarRep::_arcs(int p, FSTArcIter operand_arcs, bool keep_epsilon) const {
  FSTArcList list;
  int const start = _fst->initial();
  if (p == 0) {
    if (keep_epsilon && start >= 0) list.add(0, 0, _semiring->one, start + 1, 0);
  } else {
    float f = _fst->final_weight(p - 1);
    if (keep_epsilon && f != _semiring->zero && start >= 0) list.add(0, 0, f, start + 1, p);
    for (FSTArc* a : operand_arcs) list.add(a->input, a->output, a->weight, a->to + 1, p);
  }
  _refresh();
  return list.iter();
}

FSTArcIter FSTClosureStarRep::arcs_out(int p, FSTArcOrder order) const {
  _checked(p);
  return _arcs(p, p ? FSTOperandArcs(*_fst, p - 1, order) : FSTArcIter(), true);
}

FSTArcIter FSTClosureStarRep::arcs_out_with_input(int p, int label, FSTArcMode m) const {
  _checked(p);
  return _arcs(p, p ? FSTOperandArcsWithInput(*_fst, p - 1, label, m) : FSTArcIter(),
               FSTLabelMatches(0, label, m));
}

FSTArcIter FSTClosureStarRep::arcs_out_with_output(int p, int label, FSTArcMode m) const {
  _checked(p);
  return _arcs(p, p ? FSTOperandArcsWithOutput(*_fst, p - 1, label, m) : FSTArcIter(),
               FSTLabelMatches(0, label, m));
}

bool FSTClosureStarRep::is_final(int p) const { return _checked(p) == 0 || _fst->is_final(p - 1); }

float FSTClosureStarRep::final_weight(int p) const {
  return _checked(p) == 0 ? _semiring->one : _fst->final_weight(p - 1);
}

float FSTClosureStarRep::potential(int p) const {
  return _checked(p) == 0 ? _semiring->one : _fst->potential(p - 1);
}

void FSTClosureStarRep::force() const {
  FSTOperandForce(*_fst);
  _refresh();
}

void FSTClosureStarRep::reset() const {
  _fst->reset();
  _refresh();
}

// ---- plus ---------------------------------------------------------------------------------------

FSTClosurePlusRep::FSTClosurePlusRep(FSTGeneric const& fst, bool)
    : FSTClosureRep(fst, "FSTClosurePlus") {
  _refresh();
}

void FSTClosurePlusRep::_refresh() const {
  _n_states = _fst->states().size();
  _initial = _fst->initial();
}

// The initial state never gets the back-arc: it would be an epsilon self-loop.
bool FSTClosurePlusRep::_has_back_arc(int p) const {
  return p != _fst->initial() && _fst->final_weight(p) != _semiring->zero;
}

FSTArcIter FSTClosurePlusRep::_with_back_arc(int p, FSTArcIter operand_arcs) const {
  FSTArcList list;
  list.add(0, 0, _fst->final_weight(p), _fst->initial(), p);
  for (FSTArc* a : operand_arcs) list.add(a->input, a->output, a->weight, a->to, p);
  _refresh();
  return list.iter();
}

FSTArcIter FSTClosurePlusRep::arcs_out(int p, FSTArcOrder order) const {
  FSTArcIter arcs = FSTOperandArcs(*_fst, p, order);
  _refresh();
  return _has_back_arc(p) ? _with_back_arc(p, arcs) : arcs;
}

FSTArcIter FSTClosurePlusRep::arcs_out_with_input(int p, int label, FSTArcMode m) const {
  FSTArcIter arcs = FSTOperandArcsWithInput(*_fst, p, label, m);
  _refresh();
  bool back = _has_back_arc(p) && (label <= 0 || m == FSTArcModeLessEqual);
  return back ? _with_back_arc(p, arcs) : arcs;
}

FSTArcIter FSTClosurePlusRep::arcs_out_with_output(int p, int label, FSTArcMode m) const {
  FSTArcIter arcs = FSTOperandArcsWithOutput(*_fst, p, label, m);
  _refresh();
  bool back = _has_back_arc(p) && (label <= 0 || m == FSTArcModeLessEqual);
  return back ? _with_back_arc(p, arcs) : arcs;
}

bool FSTClosurePlusRep::is_final(int p) const { return _fst->is_final(p); }
float FSTClosurePlusRep::final_weight(int p) const { return _fst->final_weight(p); }
float FSTClosurePlusRep::potential(int p) const { return _fst->potential(p); }

void FSTClosurePlusRep::force() const {
  FSTOperandForce(*_fst);
  _refresh();
}

void FSTClosurePlusRep::reset() const {
  _fst->reset();
  _refresh();
}

// ---- choice -------------------------------------------------------------------------------------

FSTGeneric FSTClosure(FSTGeneric const& fst, bool plus) {
  int start = fst->initial();
  // A start that is already final at no cost makes the plus closure accept the empty string.
  if (plus || (start >= 0 && fst->final_weight(start) == fst->semiring()->one))
    return new FSTClosurePlusRep(fst, false);
  return new FSTClosureStarRep(fst, false);
}
