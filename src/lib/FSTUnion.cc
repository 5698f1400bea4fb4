#include "FSTUnion.h"

#include <string>

#include "FSTOperand.h"
#include "FSTStringMap.h"

namespace {

// Tag t named N opens with "<N>" and closes with "</N>"; tag 0 is epsilon on both ends.
std::pair<int, int> tag_labels(int tag) {
  if (tag == 0) return {0, 0};
  std::string name = FSTstring_map[tag];
  return {FSTstring_map["<" + name + ">"], FSTstring_map["</" + name + ">"]};
}

// The union's own arcs are matched with the comparison the other way round from the operands'
// modes: mode 1 keeps labels from l up, mode 2 labels up to l.
bool own_arc_matches(int x, int l, FSTArcMode m) {
  switch (m) {
    case FSTArcModeEqual:
      return x == l;
    case FSTArcModeLessEqual:
      return x >= l;
    case FSTArcModeGreaterEqual:
      return x <= l;
  }
  return false;
}

}  // namespace

FSTUnionRep::FSTUnionRep(fst::vector<FSTGeneric> const& fsts, fst::vector<float> const& weights,
                         fst::vector<int> const& input_tags, fst::vector<int> const& output_tags)
    : _fsts(fsts), _n_fsts(int(fsts.size())), _super_final(-1) {
  name = "FSTUnion";
  FST_ASSERT(input_tags.size() == output_tags.size());
  FST_ASSERT(input_tags.size() == 0 || input_tags.size() == fsts.size());
  for (size_t i = 0; i < input_tags.size(); ++i) {
    auto in = tag_labels(input_tags[i]), out = tag_labels(output_tags[i]);
    _tags.push_back({in.first, out.first, in.second, out.second});
    _tag_labels.insert({in.first, out.first, in.second, out.second});
  }
  FST_ASSERT(_tags.size() == input_tags.size());
  _setup_alphabets();
  _weights = weights;
  _init();
}

FSTUnionRep::~FSTUnionRep() { _clean(); }

void FSTUnionRep::_setup_alphabets() {
  _input_alphabet.clear();
  _output_alphabet.clear();
  _semiring = FSTOperandsSemiring(_fsts, "can't take union of different semirings: %s and %s");
  for (FSTGeneric const& f : _fsts) {
    // Deliberately both sides of each operand go into the input alphabet.
    fst::set<int> const& inputs = FSTOperandInputAlphabet(*f);
    fst::set<int> const& outputs = FSTOperandOutputAlphabet(*f);
    _input_alphabet.insert(inputs.begin(), inputs.end());
    _input_alphabet.insert(outputs.begin(), outputs.end());
  }
  _input_alphabet.insert(0);
  _output_alphabet.insert(0);
  _input_alphabet.insert(_tag_labels.begin(), _tag_labels.end());
}

float FSTUnionRep::_weight(int operand) const {
  return size_t(operand) < _weights.size() ? _weights[size_t(operand)] : _semiring->one;
}

FSTArcIter FSTUnionRep::_arcs(
    int p, FSTArcOrder order,
    std::function<FSTArcIter(FSTGenericInt const&, int)> const& operand_arcs,
    std::function<bool(int, int)> const& keep) const {
  FSTOperandState const state = _state(p);
  FSTArcList list;
  if (state.operand == _initial_key) {
    for (int i = 0; i < _n_fsts; ++i) {
      int s0 = _fsts[size_t(i)]->initial();
      if (s0 < 0) continue;
      int in = _tagged() ? _tags[size_t(i)].input_open : 0;
      int out = _tagged() ? _tags[size_t(i)].output_open : 0;
      if (keep(in, out)) list.add(in, out, _weight(i), _find_or_add_state({i, s0}), p);
    }
    return list.iter(_tagged() ? order : FSTArcOrderAny);
  }
  if (state.operand == _super_final_key) return FSTArcIter();
  FSTGenericInt const& operand = *_fsts[size_t(state.operand)];
  for (FSTArc* a : operand_arcs(operand, state.state))
    list.add(a->input, a->output, a->weight, _find_or_add_state({state.operand, a->to}), p);
  if (_tagged() && operand.is_final(state.state)) {
    _Tags const& tags = _tags[size_t(state.operand)];
    if (keep(tags.input_close, tags.output_close)) {
      list.add(tags.input_close, tags.output_close, operand.final_weight(state.state), _super_final,
               p);
      return list.iter(order);
    }
  }
  return list.iter();
}

FSTArcIter FSTUnionRep::arcs_out(int p, FSTArcOrder order) const {
  return _arcs(
      p, order, [order](FSTGenericInt const& f, int s) { return FSTOperandArcs(f, s, order); },
      [](int, int) { return true; });
}

FSTArcIter FSTUnionRep::arcs_out_with_input(int p, int label, FSTArcMode m) const {
  return _arcs(
      p, FSTArcOrderAny,
      [=](FSTGenericInt const& f, int s) { return FSTOperandArcsWithInput(f, s, label, m); },
      [=](int in, int) { return own_arc_matches(in, label, m); });
}

FSTArcIter FSTUnionRep::arcs_out_with_output(int p, int label, FSTArcMode m) const {
  return _arcs(
      p, FSTArcOrderAny,
      [=](FSTGenericInt const& f, int s) { return FSTOperandArcsWithOutput(f, s, label, m); },
      [=](int, int out) { return own_arc_matches(out, label, m); });
}

bool FSTUnionRep::is_final(int p) const {
  FSTOperandState const state = _state(p);
  if (state.operand == _super_final_key) return true;
  if (state.operand == _initial_key || _tagged()) return false;
  return _fsts[size_t(state.operand)]->is_final(state.state);
}

float FSTUnionRep::final_weight(int p) const {
  FSTOperandState const state = _state(p);
  if (state.operand == _super_final_key) return _semiring->one;
  if (state.operand == _initial_key || _tagged()) return _semiring->zero;
  FSTGenericInt const& operand = *_fsts[size_t(state.operand)];
  return operand.is_final(state.state) ? operand.final_weight(state.state) : _semiring->zero;
}

float FSTUnionRep::potential(int p) const {
  FSTOperandState const state = _state(p);
  if (state.operand == _super_final_key) return _semiring->one;
  if (state.operand >= 0) return _fsts[size_t(state.operand)]->potential(state.state);
  float best = _semiring->zero;
  for (int i = 0; i < _n_fsts; ++i) {
    FSTGenericInt const& operand = *_fsts[size_t(i)];
    if (operand.initial() < 0) continue;
    float w = operand.potential(operand.initial());
    if (size_t(i) < _weights.size()) w = _semiring->times(_weights[size_t(i)], w);
    best = _semiring->better(best, w);
  }
  return best;
}

void FSTUnionRep::force() const {
  for (FSTGeneric const& f : _fsts) FSTOperandForce(*f);
  for (int i = 0; i < _n_fsts; ++i) {
    int n = _fsts[size_t(i)]->states().size();
    for (int s = 0; s < n; ++s) _find_or_add_state({i, s});
  }
}

void FSTUnionRep::_init() const {
  _clean();
  _initial = _find_or_add_state({_initial_key, _initial_key});
  _super_final = _tagged() ? _find_or_add_state({_super_final_key, _super_final_key}) : -1;
}

void FSTUnionRep::reset() const {
  for (FSTGeneric const& f : _fsts) f->reset();
  _init();
}

FSTGeneric FSTUnionRep::reload(bool& changed) {
  if (FSTReloadOperands(_fsts)) {
    changed = true;
    _setup_alphabets();
  }
  reset();
  return FSTGeneric(this);
}

// ---- construction -------------------------------------------------------------------------------

FSTGeneric FSTUnion(fst::vector<FSTGeneric> const& fsts, fst::vector<float> const& weights,
                    fst::vector<int> const& input_tags, fst::vector<int> const& output_tags) {
  return new FSTUnionRep(fsts, weights, input_tags, output_tags);
}

FSTGeneric FSTUnion(FSTGeneric const& a, FSTGeneric const& b) { return FSTUnion({a, b}); }
FSTGeneric FSTUnion(FSTGeneric const& a, FSTGeneric const& b, FSTGeneric const& c) {
  return FSTUnion({a, b, c});
}
FSTGeneric FSTUnion(fst::vector<FSTGeneric> const& fsts) { return FSTUnion(fsts, {}, {}, {}); }
FSTGeneric FSTUnion(fst::vector<FSTGeneric> const& fsts, fst::vector<float> const& weights) {
  return FSTUnion(fsts, weights, {}, {});
}
FSTGeneric FSTUnion(fst::vector<FSTGeneric> const& fsts, fst::vector<int> const& input_tags,
                    fst::vector<int> const& output_tags) {
  return FSTUnion(fsts, {}, input_tags, output_tags);
}
