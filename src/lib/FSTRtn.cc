#include "FSTRtn.h"

#include <functional>

#include "FSTStringMap.h"

namespace {
int rtn_max_states = FSTRtnRep::default_max_states;
}  // namespace

FSTRtnRep::FSTRtnRep(FSTGeneric const& top, fst::vector<std::string> const& nonterminals,
                     fst::vector<FSTGeneric> const& nonterminal_fsts, bool mark_rules)
    : _top(top), _names(nonterminals), _fsts(nonterminal_fsts), _mark_rules(mark_rules) {
  name = "FSTRtn";
  FST_ASSERT(nonterminals.size() == nonterminal_fsts.size());
  for (size_t i = 0; i < _names.size(); ++i) {
    _rule_by_label[FSTstring_map[_names[i]]] = int(i);
    std::string text = _names[i];
    _close_labels.push_back(FSTstring_map["</" + (text.size() > 1 ? text.substr(1) : text)]);
  }
  _setup();
  _warn_left_recursion();
  _init();
}

FSTRtnRep::~FSTRtnRep() { _clean(); }

void FSTRtnRep::_setup() {
  _semiring = _top->semiring();
  _input_alphabet = _top->input_alphabet();
  _output_alphabet = _top->output_alphabet();
  for (FSTGeneric const& f : _fsts) {
    _input_alphabet.insert(f->input_alphabet().begin(), f->input_alphabet().end());
    _output_alphabet.insert(f->output_alphabet().begin(), f->output_alphabet().end());
  }
  _input_alphabet.insert(0);
  _output_alphabet.insert(0);
  if (_mark_rules) {
    for (auto const& entry : _rule_by_label) _output_alphabet.insert(entry.first);
    _output_alphabet.insert(_close_labels.begin(), _close_labels.end());
  }
}

// A rule that calls, before any input, a rule that calls it back in the same way.
void FSTRtnRep::_warn_left_recursion() const {
  int const n = int(_fsts.size());
  std::vector<std::vector<int>> first_calls(static_cast<size_t>(n));
  for (int r = 0; r < n; ++r) {
    FSTGenericInt const& m = *_fsts[size_t(r)];
    if (m.initial() < 0) continue;
    for (FSTArc* a : m.arcs_out(m.initial())) {
      int q = _rule_of(a->input);
      // A call that is also the rule's end is a tail call: it stays exact, nothing to report.
      if (q >= 0 && !_is_tail_call(m, a)) first_calls[size_t(r)].push_back(q);
    }
  }
  for (int r = 0; r < n; ++r) {
    // Rules reachable from r through first calls; a way back to r is left recursion.
    std::vector<bool> seen(size_t(n), false);
    std::vector<int> work = first_calls[size_t(r)];
    for (int q : work) seen[size_t(q)] = true;
    while (!work.empty()) {
      int q = work.back();
      work.pop_back();
      for (int t : first_calls[size_t(q)])
        if (!seen[size_t(t)]) seen[size_t(t)] = true, work.push_back(t);
    }
    if (!seen[size_t(r)]) continue;
    for (int q : first_calls[size_t(r)])
      FSTWarn("left recursion involving %s and %s", _names[size_t(r)].c_str(),
              _names[size_t(q)].c_str());
  }
}

bool FSTRtnRep::_is_tail_call(FSTGenericInt const& m, FSTArc const* call) const {
  return !_mark_rules && m.is_final(call->to) && m.arcs_out(call->to).done();
}

FSTGenericInt const& FSTRtnRep::_machine(int index) const {
  return index < 0 ? *_top : *_fsts[size_t(index)];
}

int FSTRtnRep::_rule_of(int label) const {
  auto found = _rule_by_label.find(label);
  return found == _rule_by_label.end() ? -1 : found->second;
}

void FSTRtnRep::_init() const {
  _clean();
  _initial = _top->initial() >= 0 ? _find_or_add_state(_Stack{{-1, _top->initial()}}) : -1;
}

FSTArcIter FSTRtnRep::arcs_out(int p, FSTArcOrder order) const {
  _Stack const& stack = _state(p);
  _StackItem const here = stack.back();
  FSTGenericInt const& m = _machine(here.machine);
  FSTSemiringBase const& s = *_semiring;
  FSTArcList list;
  for (FSTArc* a : m.arcs_out(here.state, FSTArcOrderAny)) {
    int r = _rule_of(a->input);
    if (r < 0) {
      _Stack next = stack;
      next.back().state = a->to;
      list.add(a->input, a->output, a->weight, _find_or_add_state(std::move(next)), p);
      continue;
    }
    int entry = _fsts[size_t(r)]->initial();
    if (entry < 0) continue;
    _Stack next = stack;
    bool tail = _is_tail_call(m, a);
    if (tail) {
      // Nothing follows the return but the final weight there: pay it now, replace the frame.
      next.back() = {r, entry};
      list.add(0, 0, s.times(a->weight, m.final_weight(a->to)), _find_or_add_state(std::move(next)),
               p);
      continue;
    }
    if (int(stack.size()) > max_depth) {
      if (!_warned_depth)
        FSTWarn("FSTRtn: calls nested deeper than %d are not expanded", max_depth);
      _warned_depth = true;
      continue;
    }
    if (_n_states >= rtn_max_states) {
      if (!_warned_size)
        FSTWarn("FSTRtn: the network has %d states; calls beyond are not expanded (the grammar's "
                "recursion is not regular: raise the limit to expand more)",
                rtn_max_states);
      _warned_size = true;
      continue;
    }
    next.back().state = a->to;
    next.push_back({r, entry});
    list.add(0, _mark_rules ? a->input : 0, a->weight, _find_or_add_state(std::move(next)), p);
  }
  if (stack.size() > 1 && m.is_final(here.state)) {
    _Stack next(stack.begin(), stack.end() - 1);
    int close = _mark_rules ? _close_labels[size_t(here.machine)] : 0;
    list.add(0, close, m.final_weight(here.state), _find_or_add_state(std::move(next)), p);
  }
  return list.iter(order);
}

FSTArcIter FSTRtnRep::arcs_out_with_input(int p, int label, FSTArcMode mode) const {
  return FSTSelectArcs(arcs_out(p), label, mode, true);
}

FSTArcIter FSTRtnRep::arcs_out_with_output(int, int, FSTArcMode) const {
  FSTFatal("FSTRtnRep::arcs_out_with_output not implemented");
}

bool FSTRtnRep::is_final(int p) const {
  _Stack const& stack = _state(p);
  return stack.size() == 1 && _machine(stack.back().machine).is_final(stack.back().state);
}

float FSTRtnRep::final_weight(int p) const {
  return is_final(p) ? _machine(_state(p).back().machine).final_weight(_state(p).back().state)
                     : _semiring->zero;
}

float FSTRtnRep::potential(int p) const {
  _StackItem const here = _state(p).back();
  return _machine(here.machine).potential(here.state);
}

void FSTRtnRep::force() const { _expand_all(); }

void FSTRtnRep::reset() const {
  _top->reset();
  for (FSTGeneric const& f : _fsts) f->reset();
  _init();
}

FSTGeneric FSTRtnRep::reload(bool& changed) {
  bool any = _top.reload();
  any |= FSTReloadOperands(_fsts);
  if (any) {
    changed = true;
    _setup();
  }
  reset();
  return FSTGeneric(this);
}

int FSTRtnSetMaxStates(int max_states) {
  int previous = rtn_max_states;
  rtn_max_states = max_states < 1 ? 1 : max_states;
  return previous;
}

FSTGeneric FSTRtn(FSTGeneric const& top, fst::vector<std::string> const& nonterminals,
                  fst::vector<FSTGeneric> const& nonterminal_fsts, bool mark_rules) {
  return new FSTRtnRep(top, nonterminals, nonterminal_fsts, mark_rules);
}
