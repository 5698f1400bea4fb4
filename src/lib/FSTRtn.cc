#include "FSTRtn.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

#include "FSTBasic.h"
#include "FSTComponents.h"
#include "FSTLoad.h"
#include "FSTStringMap.h"

namespace {
int rtn_max_states = FSTRtnRep::default_max_states;

// Which rules each rule calls, as a graph view.
struct CallGraph {
  std::vector<std::vector<int>> const& callees;
  int n() const { return int(callees.size()); }
  template <class F>
  void for_each_arc(int r, F f) const {
    for (int q : callees[size_t(r)]) f(q, 0.0f);
  }
};
}  // namespace

FSTRtnRep::FSTRtnRep(FSTGeneric const& top, fst::vector<std::string> const& nonterminals,
                     fst::vector<FSTGeneric> const& nonterminal_fsts, bool mark_rules)
    : _top(top), _mark_rules(mark_rules) {
  name = "FSTRtn";
  _semiring = _top->semiring();
  _bind(nonterminals, nonterminal_fsts);
  _init();
}

void FSTRtnRep::_bind(fst::vector<std::string> const& nonterminals,
                      fst::vector<FSTGeneric> const& nonterminal_fsts) const {
  FST_ASSERT(nonterminals.size() == nonterminal_fsts.size());
  _names = nonterminals;
  _fsts = nonterminal_fsts;
  _rule_by_label.clear();
  _close_labels.clear();
  for (size_t i = 0; i < _names.size(); ++i) {
    _rule_by_label[FSTstring_map[_names[i]]] = int(i);
    std::string text = _names[i];
    _close_labels.push_back(FSTstring_map["</" + (text.size() > 1 ? text.substr(1) : text)]);
  }
  _setup();
}

FSTRtnRep::~FSTRtnRep() { _clean(); }

void FSTRtnRep::_setup() const {
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
  _classify_recursion();
}

// Tarjan's strongly connected components of the call graph, then each cycle's kind.
void FSTRtnRep::_classify_recursion() const {
  int const n = int(_fsts.size());
  std::vector<std::vector<FSTArc const*>> calls(static_cast<size_t>(n));
  std::vector<std::vector<int>> callees(static_cast<size_t>(n));
  for (int r = 0; r < n; ++r) {
    FSTGenericInt const& m = *_fsts[size_t(r)];
    for (int p : m.states())
      for (FSTArc* a : m.arcs_out(p)) {
        int q = _rule_of(a->input);
        if (q < 0) continue;
        calls[size_t(r)].push_back(a);
        callees[size_t(r)].push_back(q);
      }
  }
  // Rules calling each other; a lone rule is recursive only when it calls itself.
  std::vector<int> strongly_connected;
  int const n_components = FSTStronglyConnected(CallGraph{callees}, strongly_connected);
  std::vector<std::vector<int>> members(static_cast<size_t>(n_components));
  for (int r = 0; r < n; ++r) members[size_t(strongly_connected[size_t(r)])].push_back(r);
  _component.assign(size_t(n), -1);
  _component_rules.clear();
  for (std::vector<int>& rules : members) {
    int const r = rules.front();
    if (rules.size() == 1 &&
        std::find(callees[size_t(r)].begin(), callees[size_t(r)].end(), r) ==
            callees[size_t(r)].end())
      continue;  // no recursion
    for (int member : rules) _component[size_t(member)] = int(_component_rules.size());
    _component_rules.push_back(std::move(rules));
  }

  _component_recursion.assign(_component_rules.size(), _Recursion::other);
  _left_calls_into.assign(size_t(n), {});
  for (size_t c = 0; c < _component_rules.size(); ++c) {
    bool right = true, left = !_mark_rules;
    for (int r : _component_rules[c]) {
      FSTGenericInt const& m = *_fsts[size_t(r)];
      for (int p : m.states())
        for (FSTArc* a : m.arcs_out(p))
          if (a->to == m.initial()) left = false;  // the initial state must mark the entry
      for (FSTArc const* a : calls[size_t(r)]) {
        if (_component[size_t(_rule_of(a->input))] != int(c)) continue;
        right &= _is_tail_call(m, a);
        left &= a->from == m.initial();
      }
    }
    _component_recursion[c] = right  ? _Recursion::right_linear
                              : left ? _Recursion::left_linear
                                     : _Recursion::other;
    if (_component_recursion[c] == _Recursion::left_linear) {
      for (int r : _component_rules[c])
        for (FSTArc const* a : calls[size_t(r)]) {
          int q = _rule_of(a->input);
          if (_component[size_t(q)] == int(c))
            _left_calls_into[size_t(q)].push_back({r, a->to, a->weight});
        }
    }
    if (_component_recursion[c] == _Recursion::other) {
      std::string names;
      for (int r : _component_rules[c]) names += (names.empty() ? "" : " and ") + _names[size_t(r)];
      FSTWarn("recursion involving %s is not regular: it is expanded to %d nested calls",
              names.c_str(), max_depth);
    }
  }
}

FSTRtnRep::_Recursion FSTRtnRep::_recursion_of(int rule) const {
  int c = _component[size_t(rule)];
  return c < 0 ? _Recursion::none : _component_recursion[size_t(c)];
}

bool FSTRtnRep::_cut_call(_Stack const& stack, int rule) const {
  if (_recursion_of(rule) != _Recursion::other) return false;
  int const c = _component[size_t(rule)];
  int depth = 0;
  for (_StackItem const& item : stack) depth += item.machine >= 0 && _component[size_t(item.machine)] == c;
  if (depth > max_depth) {
    if (!_warned_depth) FSTWarn("FSTRtn: calls nested deeper than %d are not expanded", max_depth);
    _warned_depth = true;
    return true;
  }
  if (_n_states >= rtn_max_states) {
    if (!_warned_size)
      FSTWarn("FSTRtn: the network has %d states; calls beyond are not expanded (the grammar's "
              "recursion is not regular: raise the limit to expand more)",
              rtn_max_states);
    _warned_size = true;
    return true;
  }
  return false;
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
  bool const in_chain = here.root >= 0;
  int const cycle = here.machine >= 0 ? _component[size_t(here.machine)] : -1;
  FSTArcList list;
  // Enters rule r from the frame `next` leaves behind: at its initial state, or, for a
  // left-linear cycle, at the initial state of any rule of the cycle that may end the chain.
  auto enter = [&](_Stack next, int r, int output, float weight) {
    if (_recursion_of(r) != _Recursion::left_linear) {
      next.push_back({r, _fsts[size_t(r)]->initial()});
      list.add(0, output, weight, _find_or_add_state(std::move(next)), p);
      return;
    }
    next.push_back({});
    for (int k : _component_rules[size_t(_component[size_t(r)])]) {
      next.back() = {k, _fsts[size_t(k)]->initial(), r};
      list.add(0, output, weight, _find_or_add_state(_Stack(next)), p);
    }
  };
  for (FSTArc* a : m.arcs_out(here.state, FSTArcOrderAny)) {
    int r = _rule_of(a->input);
    if (r < 0) {
      _Stack next = stack;
      next.back().state = a->to;
      list.add(a->input, a->output, a->weight, _find_or_add_state(std::move(next)), p);
      continue;
    }
    if (_fsts[size_t(r)]->initial() < 0) continue;
    // A chain's left calls were guessed when it was entered; they are unwound on return.
    if (in_chain && cycle >= 0 && _component[size_t(r)] == cycle) continue;
    if (!in_chain && _is_tail_call(m, a)) {
      // Nothing follows the return but the final weight there: pay it now, replace the frame.
      _Stack below(stack.begin(), stack.end() - 1);
      enter(std::move(below), r, 0, s.times(a->weight, m.final_weight(a->to)));
      continue;
    }
    if (_cut_call(stack, r)) continue;
    _Stack next = stack;
    next.back().state = a->to;
    enter(std::move(next), r, _mark_rules ? a->input : 0, a->weight);
  }
  if (m.is_final(here.state)) {
    if (in_chain) {
      for (_LeftCall const& call : _left_calls_into[size_t(here.machine)]) {
        _Stack next = stack;
        next.back() = {call.caller, call.to, here.root};
        list.add(0, 0, s.times(m.final_weight(here.state), call.weight),
                 _find_or_add_state(std::move(next)), p);
      }
    }
    if (stack.size() > 1 && (!in_chain || here.machine == here.root)) {
      _Stack next(stack.begin(), stack.end() - 1);
      int close = _mark_rules ? _close_labels[size_t(here.machine)] : 0;
      list.add(0, close, m.final_weight(here.state), _find_or_add_state(std::move(next)), p);
    }
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
  _StackItem const& here = stack.back();
  return stack.size() == 1 && (here.root < 0 || here.root == here.machine) &&
         _machine(here.machine).is_final(here.state);
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
  _refresh();
  _top->reset();
  for (FSTGeneric const& f : _fsts) f->reset();
  _init();
}

FSTGeneric FSTRtnRep::reload(bool& changed) {
  bool any = _top.reload();
  any |= FSTReloadOperands(_fsts);
  if (any) {
    changed = true;
    _semiring = _top->semiring();
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

bool FSTRtnRep::set(std::string const& nonterminal, FSTGeneric const& machine) {
  auto found = std::find(_names.begin(), _names.end(), nonterminal);
  if (found == _names.end()) return false;
  if (machine->semiring() != _semiring)
    FSTFatal("FSTRtnSet: the machine of %s is in %s, the network in %s", nonterminal.c_str(),
             machine->semiring()->name, _semiring->name);
  _fsts[size_t(found - _names.begin())] = machine;
  _setup();
  reset();
  return true;
}

void FSTRtnSet(FSTGeneric const& rtn, std::string const& nonterminal, FSTGeneric const& machine) {
  auto* network = dynamic_cast<FSTRtnRep*>(rtn.get());
  if (!network) FSTFatal("FSTRtnSet: %s is not a recursive transition network", rtn->name.c_str());
  if (!network->set(nonterminal, machine))
    FSTFatal("FSTRtnSet: the network has no nonterminal %s", nonterminal.c_str());
}

// ---- the file ----

void FSTDumpRtn(FSTGeneric const& rtn, std::ostream& os) {
  auto const* network = dynamic_cast<FSTRtnRep const*>(rtn.get());
  if (!network) FSTFatal("FSTDumpRtn: %s is not a recursive transition network", rtn->name.c_str());
  os << "#FSTRtn Version=1" << (network->mark_rules() ? " MarkRules" : "") << "\n";
  auto entry = [&os](std::string const& name, FSTGeneric const& m) {
    std::ostringstream text;
    FSTBasic(m)->dump_ascii(text, true);
    std::string const body = text.str();
    os << name << " " << std::count(body.begin(), body.end(), '\n') << "\n" << body;
  };
  entry("top", network->top());
  for (size_t i = 0; i < network->nonterminals().size(); ++i)
    entry(network->nonterminals()[i], network->nonterminal_fsts()[i]);
}


FSTGeneric FSTLoadRtn(std::istream& is, char const* header, char const* file) {
  bool const mark_rules = std::strstr(header, "MarkRules") != nullptr;
  FSTGeneric top;
  fst::vector<std::string> names;
  fst::vector<FSTGeneric> machines;
  std::string line;
  long line_number = 1;
  while (std::getline(is, line)) {
    FSTReadingPlace::at_line(++line_number);
    if (line.empty() || line[0] == '#') continue;
    std::istringstream words(line);
    std::string name, count;
    words >> name >> count;
    FSTGeneric m;
    if (count == "=") {
      std::string spec;
      std::getline(words >> std::ws, spec);
      if (spec.empty()) FSTFatal("file: %s names no machine after '='", name.c_str());
      m = FSTLoadBeside(spec, file);
    } else {
      char* end = nullptr;
      long n = std::strtol(count.c_str(), &end, 10);
      std::string rest;
      if (count.empty() || *end || n < 1 || (words >> rest))
        FSTFatal("file: expected a name and a line count, or a name, '=' and a machine");
      std::string body;
      for (long k = 0; k < n; ++k) {
        if (!std::getline(is, line))
          FSTFatal("file: the machine of %s ends after %ld of its %ld lines", name.c_str(), k, n);
        body += line + "\n";
      }
      std::istringstream text(body);
      FSTReadingPlace part(line_number);
      line_number += n;
      m = FSTLoadStream(text);
    }
    if (!top) {
      if (name != "top") FSTFatal("file: the top machine must come first, named 'top'");
      top = m;
      continue;
    }
    if (name == "top" || std::find(names.begin(), names.end(), name) != names.end())
      FSTFatal("file: %s is defined twice", name.c_str());
    if (m->semiring() != top->semiring())
      FSTFatal("file: the machine of %s is in %s, the top machine in %s", name.c_str(),
               m->semiring()->name, top->semiring()->name);
    names.push_back(name);
    machines.push_back(m);
  }
  if (!top) FSTFatal("file: a network needs its top machine");
  return FSTRtn(top, names, machines, mark_rules);
}
