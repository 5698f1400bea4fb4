#include "FSTRemoveEpsilons.h"

#include <algorithm>
#include <set>
#include <vector>

#include "FSTOperand.h"

namespace fst_remove_epsilons {

bool _SetLess::operator()(_Set const& a, _Set const& b) const {
  size_t const n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    if (a[i].first < b[i].first) return true;
    if (b[i].first < a[i].first) return false;
    if (b[i].second > a[i].second + tolerance) return true;
    if (a[i].second > b[i].second + tolerance) return false;
  }
  return a.size() < b.size();
}

size_t _SetHash::operator()(_Set const& set) const {
  size_t h = set.size();
  for (auto const& entry : set)
    h = h * 1000003u ^ (size_t(uint32_t(entry.first.state)) << 32 | uint32_t(entry.first.output));
  return h;
}

}  // namespace fst_remove_epsilons

namespace {

using fst_remove_epsilons::_Set;
using fst_remove_epsilons::_StateOutput;
using fst_remove_epsilons::_WorkSet;

_StateOutput const final_entry{-1, 0}, potential_entry{-2, 0};

}  // namespace

FSTRemoveEpsilonsRep::FSTRemoveEpsilonsRep(FSTGeneric const& in, bool fsa, float delta)
    : FSTLazyRep(fst_remove_epsilons::_SetIndex(
          64, fst_remove_epsilons::_SetHash(),
          fst_remove_epsilons::_SetEqual{fst_remove_epsilons::_SetLess{delta}})),
      _fst(in),
      _fsa(fsa) {
  name = "FSTRemoveEpsilons";
  _semiring = in->semiring();
  FST_ASSERT(_semiring->idempotent() || _fsa);
  _init();
}

FSTRemoveEpsilonsRep::~FSTRemoveEpsilonsRep() { _clean(); }

void FSTRemoveEpsilonsRep::_init() const {
  _clean();
  _pairs.clear();
  _plain_pairs.clear();
  _alone_states.clear();
  // An input without an initial state gives a result without one.
  _initial = _fst->initial() >= 0 ? _find_or_add_state(_fst->initial(), 0) : -1;
}

int FSTRemoveEpsilonsRep::_find_or_add_state(int q, int o) const {
  if (o == 0 && q >= 0) {
    if (size_t(q) >= _plain_pairs.size())
      _plain_pairs.resize(std::max(size_t(q) + 1, size_t(_fst->states().size())), -1);
    if (_plain_pairs[size_t(q)] >= 0) return _plain_pairs[size_t(q)];
    int id;
    if (_alone(q)) {
      id = _add_state_without_key();
      _alone_states.resize(size_t(id) + 1, -1);
      _alone_states[size_t(id)] = q;
    } else {
      id = _find_or_add_closure(_closure({q, 0}));
    }
    _plain_pairs[size_t(q)] = id;
    return id;
  }
  auto found = _pairs.find({q, o});
  if (found != _pairs.end()) return found->second;
  int id = _find_or_add_closure(_closure({q, o}));
  _pairs.emplace(_StateOutput{q, o}, id);
  return id;
}

bool FSTRemoveEpsilonsRep::_alone(int q) const {
  return FSTOperandArcsWithInput(*_fst, q, 0, FSTArcModeEqual).done() &&
         !FSTOperandArcsWithInput(*_fst, q, 1, FSTArcModeGreaterEqual).done();
}

// A closure that comes out as one state alone (and its weights) is that state's own closure.
int FSTRemoveEpsilonsRep::_find_or_add_closure(_Set&& set) const {
  if (set.size() == 3 && set[2].first.output == 0 && _alone(set[2].first.state)) {
    int const q = set[2].first.state;
    _Set const own{{potential_entry, _fst->potential(q)},
                   {final_entry, _fst->final_weight(q)},
                   {{q, 0}, _semiring->one}};
    if (_table().key_eq()(own, set)) return _find_or_add_state(q, 0);
  }
  return _find_or_add_state(std::move(set));
}

// ---- closures -----------------------------------------------------------------------------------

_Set FSTRemoveEpsilonsRep::_closure(_StateOutput start) const {
  _WorkSet set;
  if (start.state < 0) {
    // The extra final state that final arcs lead to: final, no arcs.
    set[final_entry] = _semiring->one;
    set[potential_entry] = _semiring->one;
  } else {
    if (FSTOperandArcsWithInput(*_fst, start.state, 0, FSTArcModeEqual).done())
      set[start] = _semiring->one;  // no epsilon arc to follow: the state alone
    else if (_semiring->idempotent())
      _closure_idempotent(set, start);
    else
      _closure_non_idempotent(set, start);
    _prune(set);
  }
  return _Set(set.begin(), set.end());
}

// An epsilon-input arc with output x is followed when x is epsilon, or, outside acceptor mode,
// when nothing is pending yet: x then becomes the pending label.
template <class Visit>
void FSTRemoveEpsilonsRep::_followed_arcs(_StateOutput e, Visit visit) const {
  for (FSTArc* a : FSTOperandArcsWithInput(*_fst, e.state, 0, FSTArcModeEqual)) {
    if (a->output != 0 && (e.output != 0 || _fsa)) continue;
    visit(_StateOutput{a->to, e.output != 0 ? e.output : a->output}, a);
  }
}

void FSTRemoveEpsilonsRep::_closure_idempotent(_WorkSet& set, _StateOutput start) const {
  bool better_seen = false;
  if (_closure_idempotent_acyclic(set, start, better_seen)) return;
  if (better_seen)
    _closure_idempotent_cyclic_bellman_ford(set, start);
  else
    _closure_idempotent_cyclic_dijkstra(set, start);
}

bool FSTRemoveEpsilonsRep::_closure_idempotent_acyclic(_WorkSet& set, _StateOutput start,
                                                       bool& better_seen) const {
  FST_ASSERT(set.empty());
  float const on_stack = 1.0f, finished = 2.0f;
  struct _StackEntry {
    _StateOutput entry;
    std::vector<_StateOutput> successors;
    size_t next;
  };
  auto successors = [&](_StateOutput e) {
    std::vector<_StateOutput> out;
    _followed_arcs(e, [&](_StateOutput t, FSTArc* a) {
      if (_semiring->is_better(a->weight, _semiring->one)) better_seen = true;
      // A self-loop cannot improve a path in an idempotent semiring: it is ignored.
      if (!(t.state == e.state && t.output == e.output)) out.push_back(t);
    });
    return out;
  };
  std::vector<_StateOutput> topological;  // finished entries, last finished first
  std::vector<_StackEntry> stack;
  set[start] = on_stack;
  stack.push_back({start, successors(start), 0});
  while (!stack.empty()) {
    _StackEntry& top = stack.back();
    if (top.next < top.successors.size()) {
      _StateOutput t = top.successors[top.next++];
      auto found = set.find(t);
      if (found == set.end()) {
        set[t] = on_stack;
        _StackEntry entry{t, successors(t), 0};
        stack.push_back(std::move(entry));
      } else if (found->second == on_stack) {
        return false;  // a cycle
      }
      continue;
    }
    set[top.entry] = finished;
    topological.push_back(top.entry);
    stack.pop_back();
  }
  for (auto& entry : set) entry.second = _semiring->zero;
  set[start] = _semiring->one;
  for (auto e = topological.rbegin(); e != topological.rend(); ++e) {
    float w = set[*e];
    _followed_arcs(*e, [&](_StateOutput t, FSTArc* a) {
      if (t.state == e->state && t.output == e->output) return;
      set[t] = _semiring->plus(set[t], _semiring->times(w, a->weight));
    });
  }
  return true;
}

void FSTRemoveEpsilonsRep::_closure_idempotent_cyclic_dijkstra(_WorkSet& set,
                                                               _StateOutput start) const {
  FSTSemiringBase const& s = *_semiring;
  // Best weight first; ties by entry.
  struct _QueueEntry {
    float weight;
    _StateOutput entry;
  };
  auto before = [&s](_QueueEntry const& a, _QueueEntry const& b) {
    if (s.is_better(a.weight, b.weight, 0)) return true;
    if (s.is_better(b.weight, a.weight, 0)) return false;
    return a.entry < b.entry;
  };
  std::set<_QueueEntry, decltype(before)> queue(before);
  std::set<_StateOutput> done;
  set.clear();
  set[start] = s.one;
  queue.insert({s.one, start});
  while (!queue.empty()) {
    _QueueEntry top = *queue.begin();
    queue.erase(queue.begin());
    done.insert(top.entry);
    _followed_arcs(top.entry, [&](_StateOutput t, FSTArc* a) {
      if (done.count(t)) return;
      float w = s.times(top.weight, a->weight);
      auto found = set.find(t);
      if (found == set.end()) {
        set[t] = w;
        queue.insert({w, t});
      } else if (s.is_better(w, found->second, 0)) {
        queue.erase({found->second, t});
        found->second = w;
        queue.insert({w, t});
      }
    });
  }
}

void FSTRemoveEpsilonsRep::_closure_idempotent_cyclic_bellman_ford(_WorkSet& set,
                                                                   _StateOutput start) const {
  FSTSemiringBase const& s = *_semiring;
  for (auto& entry : set) entry.second = s.zero;
  set[start] = s.one;
  // As many passes as entries: the search that failed may not have reached them all, so the
  // count follows the entries found. A change in the last pass means an improving cycle.
  bool changed = true;
  for (size_t pass = 0; changed && pass < set.size(); ++pass) {
    changed = false;
    for (auto& [e, weight] : set) {
      if (weight == s.zero) continue;
      float w = weight;
      _followed_arcs(e, [&](_StateOutput t, FSTArc* a) {
        float v = s.times(w, a->weight);
        auto found = set.find(t);
        if (found == set.end()) {
          set[t] = v;
          changed = true;
        } else if (s.plus(found->second, v) != found->second) {
          found->second = s.plus(found->second, v);
          changed = true;
        }
      });
    }
  }
  if (changed)
    FSTWarn("FSTRemoveEpsilons: epsilon cycle with weight better than semiring->one detected");
}

void FSTRemoveEpsilonsRep::_closure_non_idempotent(_WorkSet& set, _StateOutput start) const {
  FSTSemiringBase const& s = *_semiring;
  struct _ColorWeight {
    int color;   // 0 unvisited, 1 on the stack, 2 finished
    float loop;  // plus of the state's epsilon self-loops
  };
  fst::map<int, _ColorWeight> visit;
  std::vector<int> finish_order;
  struct Frame {
    int state;
    FSTArcIter arcs;
  };
  auto epsilon_arcs = [&](int q) { return FSTOperandArcsWithInput(*_fst, q, 0, FSTArcModeEqual); };
  std::vector<Frame> stack;
  visit[start.state] = {1, s.zero};
  stack.push_back({start.state, epsilon_arcs(start.state)});
  while (!stack.empty()) {
    Frame& top = stack.back();
    if (!top.arcs.done()) {
      FSTArc* a = *top.arcs;
      ++top.arcs;
      if (a->output != 0) continue;  // acceptor mode follows epsilon:epsilon arcs only
      _ColorWeight& target = visit[a->to];
      if (target.color == 1) {
        if (a->to != top.state) FSTFatal("non-self-loop epsilon cycle detected: not yet supported");
        target.loop = s.plus(target.loop, a->weight);
      } else if (target.color == 0) {
        target = {1, s.zero};
        int q = a->to;
        stack.push_back({q, epsilon_arcs(q)});
      }
      continue;
    }
    visit[top.state].color = 2;
    finish_order.push_back(top.state);
    stack.pop_back();
  }
  // Totals in topological order (reverse finishing order), each state's loops folded in.
  fst::map<int, float> incoming;
  incoming[start.state] = s.one;
  for (auto q = finish_order.rbegin(); q != finish_order.rend(); ++q) {
    float total = s.times(incoming[*q], s.closure(visit[*q].loop));
    set[{*q, start.output}] = total;
    for (FSTArc* a : epsilon_arcs(*q)) {
      if (a->output != 0 || a->to == *q) continue;
      auto in = incoming.find(a->to);
      float add = s.times(total, a->weight);
      if (in == incoming.end())
        incoming[a->to] = add;
      else
        in->second = s.plus(in->second, add);
    }
  }
}

void FSTRemoveEpsilonsRep::_prune(_WorkSet& set) const {
  FSTSemiringBase const& s = *_semiring;
  FSTGenericInt const& in = *_fst;
  float f = s.zero, r = s.zero;
  for (auto e = set.begin(); e != set.end();) {
    int q = e->first.state, o = e->first.output;
    float w = e->second;
    if (o == 0) f = s.plus(f, s.times(w, in.final_weight(q)));
    r = s.better(r, s.times(w, in.potential(q)));
    // An entry whose state yields no arc here and no final arc contributes nothing more.
    bool no_final_arc = o == 0 || !in.is_final(q);
    bool no_arcs = FSTOperandArcsWithInput(in, q, 1, FSTArcModeGreaterEqual).done();
    if (no_arcs && !(o == 0 && !_fsa)) {
      for (FSTArc* a : FSTOperandArcsWithInput(in, q, 0, FSTArcModeEqual))
        if (a->output != 0) no_arcs = false;
    }
    if (no_final_arc && no_arcs)
      e = set.erase(e);
    else
      ++e;
  }
  if (!s.is_better(f, s.zero) && !s.is_better(s.zero, f)) f = s.zero;
  set[final_entry] = f;
  set[potential_entry] = r;
}

// ---- the machine --------------------------------------------------------------------------------

void FSTRemoveEpsilonsRep::_add_arcs(FSTArcList& list, int p, _StateOutput e, float w) const {
  FSTSemiringBase const& s = *_semiring;
  for (FSTArc* a : FSTOperandArcs(*_fst, e.state, FSTArcOrderAny)) {
    int i = a->input, x = a->output;
    if (i == 0 && x == 0) continue;  // part of the closure
    float v = s.times(a->weight, w);
    if (_fsa) {
      list.add(i, x, v, _find_or_add_state(a->to, 0), p);
    } else if (e.output == 0) {
      if (i == 0) continue;  // absorbed into the closure as a pending label
      int arc_output = x;
      FST_ASSERT(a->input || arc_output);
      list.add(i, x, v, _find_or_add_state(a->to, 0), p);
    } else {
      // The pending label is emitted now; the arc's own output waits in its place.
      list.add(i, e.output, v, _find_or_add_state(a->to, x), p);
    }
  }
}

void FSTRemoveEpsilonsRep::_add_final_arc(FSTArcList& list, int p, _StateOutput e, float w) const {
  int o = e.output;
  FST_ASSERT(o != 0);
  FST_ASSERT(_fsa == false);
  float f = _semiring->times(_fst->final_weight(e.state), w);
  list.add(0, o, f, _find_or_add_state(-1, 0), p);
}

FSTArcIter FSTRemoveEpsilonsRep::arcs_out(int p, FSTArcOrder order) const {
  FSTArcList list;
  FST_ASSERT_STATE(p);
  if (int q = _alone_state(p); q >= 0) {
    _add_arcs(list, p, {q, 0}, _semiring->one);
    return list.iter(order);
  }
  // Discovering states adds closures to the table; the ones already there do not move.
  for (auto const& [e, w] : _state(p)) {
    if (e.state < 0) continue;
    _add_arcs(list, p, e, w);
    if (e.output != 0 && _fst->is_final(e.state)) _add_final_arc(list, p, e, w);
  }
  return list.iter(order);
}

FSTArcIter FSTRemoveEpsilonsRep::arcs_out_with_input(int p, int label, FSTArcMode m) const {
  return FSTSelectArcs(arcs_out(p), label, m, true);
}

FSTArcIter FSTRemoveEpsilonsRep::arcs_out_with_output(int p, int label, FSTArcMode m) const {
  return FSTSelectArcs(arcs_out(p), label, m, false);
}

float FSTRemoveEpsilonsRep::_entry(int p, int pseudo_state) const {
  FST_ASSERT_STATE(p);
  if (int q = _alone_state(p); q >= 0)
    return pseudo_state == final_entry.state ? _fst->final_weight(q) : _fst->potential(q);
  _Set const& set = _state(p);
  _StateOutput const key{pseudo_state, 0};
  auto found = std::lower_bound(set.begin(), set.end(), key,
                                [](auto const& entry, _StateOutput k) { return entry.first < k; });
  return found == set.end() || key < found->first ? _semiring->zero : found->second;
}

bool FSTRemoveEpsilonsRep::is_final(int p) const { return final_weight(p) != _semiring->zero; }
float FSTRemoveEpsilonsRep::final_weight(int p) const { return _entry(p, -1); }
float FSTRemoveEpsilonsRep::potential(int p) const { return _entry(p, -2); }

void FSTRemoveEpsilonsRep::force() const { _expand_all(); }

void FSTRemoveEpsilonsRep::reset() const { _init(); }

FSTGeneric FSTRemoveEpsilonsRep::reload(bool& changed) {
  if (_fst.reload()) changed = true;
  reset();
  return FSTGeneric(this);
}

void FSTRemoveEpsilonsRep::state_set(int p, fst::set<int>& out) const {
  out.clear();
  FST_ASSERT_STATE(p);
  if (int q = _alone_state(p); q >= 0) {
    out.insert(q);
    return;
  }
  for (auto const& entry : _state(p))
    if (entry.first.state >= 0) out.insert(entry.first.state);
}

FSTGeneric FSTRemoveEpsilons(FSTGeneric const& in, bool fsa, float delta) {
  return new FSTRemoveEpsilonsRep(in, fsa, delta);
}

FSTGeneric FSTRemoveEpsilonsA(FSTGeneric const& in, float delta) {
  return FSTRemoveEpsilons(in, true, delta);
}

void FSTRemoveEpsilonsStateSet(FSTGeneric const& m, int p, fst::set<int>& out) {
  auto rep = dynamic_cast<FSTRemoveEpsilonsRep const*>(m.get());
  FST_ASSERT(rep != nullptr);
  rep->state_set(p, out);
}
