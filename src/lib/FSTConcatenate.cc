#include "FSTConcatenate.h"

#include "FSTOperand.h"

FSTConcatenateRep::FSTConcatenateRep(fst::vector<FSTGeneric> const& fsts)
    : _fsts(fsts), _n_fsts(int(fsts.size())) {
  name = "FSTConcatenate";
  _setup();
  _init();
}

FSTConcatenateRep::~FSTConcatenateRep() { _clean(); }

void FSTConcatenateRep::_setup() {
  _input_alphabet.clear();
  _output_alphabet.clear();
  _semiring = FSTOperandsSemiring(_fsts, "can't concatenate different semirings: %s and %s");
  for (FSTGeneric const& f : _fsts) {
    fst::set<int> const& inputs = FSTOperandInputAlphabet(*f);
    fst::set<int> const& outputs = FSTOperandOutputAlphabet(*f);
    _input_alphabet.insert(inputs.begin(), inputs.end());
    _output_alphabet.insert(outputs.begin(), outputs.end());
  }
  _input_alphabet.insert(0);
  _output_alphabet.insert(0);
}

void FSTConcatenateRep::_init() const {
  _clean();
  _initial = -1;
  if (_n_fsts > 0 && _fsts[0]->initial() >= 0)
    _initial = _find_or_add_state({0, _fsts[0]->initial()});
}

FSTArcIter FSTConcatenateRep::_arcs(int p, FSTArcIter operand_arcs, bool keep_epsilon) const {
  FSTOperandState const state = _state(p);
  FSTGenericInt const& operand = *_fsts[size_t(state.operand)];
  FSTArcList list;
  // A later operand without an initial state cannot be entered: no arc into it.
  if (keep_epsilon && state.operand + 1 < _n_fsts && operand.is_final(state.state)) {
    int next_initial = _fsts[size_t(state.operand + 1)]->initial();
    if (next_initial >= 0)
      list.add(0, 0, operand.final_weight(state.state),
               _find_or_add_state({state.operand + 1, next_initial}), p);
  }
  for (FSTArc* a : operand_arcs)
    list.add(a->input, a->output, a->weight, _find_or_add_state({state.operand, a->to}), p);
  return list.iter();
}

FSTArcIter FSTConcatenateRep::arcs_out(int p, FSTArcOrder order) const {
  FSTOperandState const state = _state(p);
  return _arcs(p, FSTOperandArcs(*_fsts[size_t(state.operand)], state.state, order), true);
}

FSTArcIter FSTConcatenateRep::arcs_out_with_input(int p, int label, FSTArcMode m) const {
  FSTOperandState const state = _state(p);
  return _arcs(p, FSTOperandArcsWithInput(*_fsts[size_t(state.operand)], state.state, label, m),
               FSTLabelMatches(0, label, m));
}

FSTArcIter FSTConcatenateRep::arcs_out_with_output(int p, int label, FSTArcMode m) const {
  FSTOperandState const state = _state(p);
  return _arcs(p, FSTOperandArcsWithOutput(*_fsts[size_t(state.operand)], state.state, label, m),
               FSTLabelMatches(0, label, m));
}

bool FSTConcatenateRep::is_final(int p) const {
  FSTOperandState const state = _state(p);
  return state.operand + 1 == _n_fsts && _fsts[size_t(state.operand)]->is_final(state.state);
}

float FSTConcatenateRep::final_weight(int p) const {
  return is_final(p) ? _fsts[size_t(_state(p).operand)]->final_weight(_state(p).state)
                     : _semiring->zero;
}

float FSTConcatenateRep::potential(int p) const {
  FSTOperandState const state = _state(p);
  return _fsts[size_t(state.operand)]->potential(state.state);
}

void FSTConcatenateRep::force() const { _expand_all(); }

void FSTConcatenateRep::reset() const {
  for (FSTGeneric const& f : _fsts) f->reset();
  _init();
}

FSTGeneric FSTConcatenateRep::reload(bool& changed) {
  if (FSTReloadOperands(_fsts)) {
    changed = true;
    _setup();
  }
  reset();
  return FSTGeneric(this);
}

FSTGeneric FSTConcatenate(fst::vector<FSTGeneric> const& fsts) {
  return new FSTConcatenateRep(fsts);
}
FSTGeneric FSTConcatenate(FSTGeneric const& a, FSTGeneric const& b) {
  return FSTConcatenate(fst::vector<FSTGeneric>{a, b});
}
FSTGeneric FSTConcatenate(FSTGeneric const& a, FSTGeneric const& b, FSTGeneric const& c) {
  return FSTConcatenate(fst::vector<FSTGeneric>{a, b, c});
}
