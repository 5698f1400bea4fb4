#include "FSTTopologicalSort.h"

#include <vector>

#include "FSTBasic.h"
#include "FSTOperand.h"
#include "FSTlib.h"

namespace {

// Depth-first search from the given roots over the accepted arcs; appends finished states to
// `finished` (reverse topological order). Returns false, leaving the order unfinished, on
// meeting a state still on the stack: no caller uses the order of a cyclic machine.
bool depth_first(FSTGenericInt const& m, FSTArcPredicate const* pred, std::vector<int> const& roots,
                 std::vector<char>& color, std::vector<int>& finished) {
  struct Frame {
    int state;
    FSTArcIter arcs;
  };
  std::vector<Frame> stack;
  for (int root : roots) {
    if (color[size_t(root)]) continue;
    color[size_t(root)] = 1;
    stack.push_back({root, m.arcs_out(root, FSTArcOrderAny)});
    while (!stack.empty()) {
      Frame& top = stack.back();
      if (top.arcs.done()) {
        color[size_t(top.state)] = 2;
        finished.push_back(top.state);
        stack.pop_back();
        continue;
      }
      FSTArc const* a = *top.arcs;
      ++top.arcs;
      // A self-loop does not disturb the order; callers that care look at them themselves.
      if ((pred && !(*pred)(a)) || a->to == top.state) continue;
      char& c = color[size_t(a->to)];
      if (c == 1) return false;
      if (c == 0) {
        c = 1;
        int t = a->to;
        stack.push_back({t, m.arcs_out(t, FSTArcOrderAny)});
      }
    }
  }
  return true;
}

bool sort_from(fst::vector<int>& order, FSTGenericInt const& m, FSTArcPredicate const* pred,
               bool from_initial) {
  FSTOperandForce(m);
  int const n = m.states().size();
  std::vector<int> roots;
  if (from_initial) {
    if (m.initial() >= 0) roots.push_back(m.initial());
  } else {
    for (int s = 0; s < n; ++s) roots.push_back(s);
  }
  std::vector<char> color(size_t(n), 0);
  std::vector<int> finished;
  bool acyclic = depth_first(m, pred, roots, color, finished);
  order.assign(finished.rbegin(), finished.rend());
  return acyclic;
}

}  // namespace

bool FSTTopologicalSort(fst::vector<int>& order, FSTGeneric const& m, FSTArcPredicate const* pred) {
  return sort_from(order, *m, pred, false);
}

bool FSTTopologicalSort(fst::vector<int>& order, FSTGeneric const& m) {
  return sort_from(order, *m, nullptr, false);
}

bool FSTTopologicalSort(fst::vector<int>& order, FSTGeneric const& m, fst::set<int> const& labels) {
  FSTInputSetArcPredicate pred(&labels);
  return sort_from(order, *m, &pred, false);
}

bool FSTTopologicalSortFromInitial(fst::vector<int>& order, FSTGeneric const& m) {
  return sort_from(order, *m, nullptr, true);
}

FSTGeneric FSTTopologicalSort(FSTGeneric const& m, FSTArcPredicate const* pred) {
  fst::vector<int> order;
  if (!FSTTopologicalSort(order, m, pred)) return FSTBasic(FSTMinPlus);
  int const n = m->states().size();
  std::vector<int> renumbered(size_t(n), 0);
  for (size_t i = 0; i < order.size(); ++i) renumbered[size_t(order[i])] = int(i);
  FSTGeneric sorted = FSTBasic(m->semiring());
  sorted->add_states(n);
  if (m->initial() >= 0) sorted->set_initial(renumbered[size_t(m->initial())]);
  for (int s = 0; s < n; ++s) {
    int p = renumbered[size_t(s)];
    if (m->is_final(s)) sorted->set_final(p, m->final_weight(s));
    sorted->set_potential(p, m->potential(s));
    for (FSTArc* a : m->arcs_out(s, FSTArcOrderAny))
      sorted->add_arc(p, renumbered[size_t(a->to)], a->input, a->output, a->weight);
  }
  return sorted;
}

FSTGeneric FSTTopologicalSort(FSTGeneric const& m) { return FSTTopologicalSort(m, nullptr); }

FSTGeneric FSTTopologicalSort(FSTGeneric const& m, fst::set<int> const& labels) {
  FSTInputSetArcPredicate pred(&labels);
  return FSTTopologicalSort(m, &pred);
}

// ---- dead states --------------------------------------------------------------------------------

void FSTGenericInt::dead_states(fst::vector<int>& dead) const {
  fst::vector<int> order;
  if (sort_from(order, *this, nullptr, true))
    _dead_states_acyclic(dead, order);
  else
    _dead_states_cyclic(dead);
}

void FSTGenericInt::_dead_states_acyclic(fst::vector<int>& dead,
                                         fst::vector<int> const& order) const {
  std::vector<bool> alive(size_t(_n_states), false);
  for (auto p = order.rbegin(); p != order.rend(); ++p) {
    if (is_final(*p)) {
      alive[size_t(*p)] = true;
      continue;
    }
    for (FSTArc* a : arcs_out(*p, FSTArcOrderAny))
      if (alive[size_t(a->to)]) {
        alive[size_t(*p)] = true;
        break;
      }
  }
  for (int s = 0; s < _n_states; ++s)
    if (!alive[size_t(s)]) dead.push_back(s);
}

// Alive: reachable from the initial state and reaching a final state. Predecessors are kept in
// compressed rows (one array of arcs sorted by target), not one vector per state.
void FSTGenericInt::_dead_states_cyclic(fst::vector<int>& dead) const {
  int const n = _n_states;
  std::vector<char> reached(size_t(n), 0), reaches(size_t(n), 0);
  std::vector<std::pair<int, int>> edges;  // (to, from) of the reached part
  std::vector<int> work;
  if (initial() >= 0) reached[size_t(initial())] = 1, work.push_back(initial());
  while (!work.empty()) {
    int s = work.back();
    work.pop_back();
    for (FSTArc* a : arcs_out(s, FSTArcOrderAny)) {
      edges.push_back({a->to, s});
      if (!reached[size_t(a->to)]) reached[size_t(a->to)] = 1, work.push_back(a->to);
    }
  }
  std::vector<size_t> first(size_t(n) + 1, 0);
  for (auto const& e : edges) ++first[size_t(e.first) + 1];
  for (int s = 0; s < n; ++s) first[size_t(s) + 1] += first[size_t(s)];
  std::vector<int> predecessors(edges.size());
  {
    std::vector<size_t> fill(first.begin(), first.end() - 1);
    for (auto const& e : edges) predecessors[fill[size_t(e.first)]++] = e.second;
  }
  edges = {};
  for (int s = 0; s < n; ++s)
    if (reached[size_t(s)] && is_final(s)) reaches[size_t(s)] = 1, work.push_back(s);
  while (!work.empty()) {
    int t = work.back();
    work.pop_back();
    for (size_t i = first[size_t(t)]; i < first[size_t(t) + 1]; ++i) {
      int s = predecessors[i];
      if (!reaches[size_t(s)]) reaches[size_t(s)] = 1, work.push_back(s);
    }
  }
  for (int s = 0; s < n; ++s)
    if (!reached[size_t(s)] || !reaches[size_t(s)]) dead.push_back(s);
}

void FSTGenericInt::trim() {
  if (!is_mutable()) FSTFatal("cannot trim immutable FST");
  fst::vector<int> dead;
  dead_states(dead);
  delete_states(dead);
}

FSTGeneric FSTTrim(FSTGeneric m) {
  if (!m->is_mutable()) m = FSTMutableCopy(m);
  m->trim();
  return m;
}
