#include "FSTShortestPath.h"

#include <deque>
#include <queue>
#include <vector>

#include "FSTBasic.h"
#include "FSTlib.h"

namespace {

// One prefix of a path in the search: where it is, what it weighs, and how it got there.
struct Node {
  int state;  // -1: the path has ended (its last node's final weight paid)
  float weight;
  int parent;
  FSTArc arc;  // the arc from the parent (the final weight when state is -1)
};

// The best weight from each state to a final state, by label correcting over reversed arcs.
std::vector<float> BestToFinal(FSTGenericInt const& m) {
  FSTSemiringBase const& s = *m.semiring();
  int const n = m.states().size();
  std::vector<std::vector<FSTArc>> in(static_cast<size_t>(n));
  for (int p = 0; p < n; ++p)
    for (FSTArc* a : m.arcs_out(p)) in[size_t(a->to)].push_back(*a);
  std::vector<float> best(size_t(n), s.zero);
  std::vector<int> improved(size_t(n), 0);
  std::vector<char> queued(size_t(n), 0);
  std::deque<int> queue;
  for (int p = 0; p < n; ++p)
    if (m.is_final(p)) best[size_t(p)] = m.final_weight(p), queue.push_back(p), queued[size_t(p)] = 1;
  while (!queue.empty()) {
    int q = queue.front();
    queue.pop_front();
    queued[size_t(q)] = 0;
    for (FSTArc const& a : in[size_t(q)]) {
      float w = s.times(a.weight, best[size_t(q)]);
      if (!s.is_better(w, best[size_t(a.from)], 0)) continue;
      best[size_t(a.from)] = w;
      if (++improved[size_t(a.from)] > n + 1)
        FSTFatal("FSTShortestPath: a cycle through state %d improves the weight without end",
                 a.from);
      if (!queued[size_t(a.from)]) queue.push_back(a.from), queued[size_t(a.from)] = 1;
    }
  }
  return best;
}

}  // namespace

FSTGeneric FSTShortestPath(FSTGeneric const& machine, int n) {
  FSTGeneric m = FSTBasic(machine);
  FSTSemiringBase const& s = *m->semiring();
  FSTGeneric result = FSTBasic(m->semiring());
  if (m->initial() < 0 || n < 1) return result;
  std::vector<float> const to_final = BestToFinal(*m);
  if (to_final[size_t(m->initial())] == s.zero) return result;

  // Best-first on the weight so far times the best weight still to come.
  std::vector<Node> nodes{{m->initial(), s.one, -1, {}}};
  auto estimate = [&](int i) {
    Node const& x = nodes[size_t(i)];
    return x.state < 0 ? x.weight : s.times(x.weight, to_final[size_t(x.state)]);
  };
  auto worse = [&](int i, int j) {
    float a = estimate(i), b = estimate(j);
    return s.is_better(b, a, 0) || (!s.is_better(a, b, 0) && i > j);  // ties: first found first
  };
  std::priority_queue<int, std::vector<int>, decltype(worse)> frontier(worse);
  frontier.push(0);
  std::vector<int> pops(to_final.size(), 0), ends;
  while (!frontier.empty() && int(ends.size()) < n) {
    int i = frontier.top();
    frontier.pop();
    Node const x = nodes[size_t(i)];
    if (x.state < 0) {
      ends.push_back(i);
      continue;
    }
    // A state popped n times already lies on no other of the n best paths.
    if (++pops[size_t(x.state)] > n) continue;
    if (m->is_final(x.state)) {
      FSTArc end{0, 0, m->final_weight(x.state), -1, x.state};
      nodes.push_back({-1, s.times(x.weight, end.weight), i, end});
      frontier.push(int(nodes.size()) - 1);
    }
    for (FSTArc* a : m->arcs_out(x.state)) {
      if (to_final[size_t(a->to)] == s.zero) continue;
      nodes.push_back({a->to, s.times(x.weight, a->weight), i, *a});
      frontier.push(int(nodes.size()) - 1);
    }
  }

  // The chosen paths share their common prefixes: one result state per search node on them,
  // and one arc into each, added when the first path through it is walked back.
  std::vector<int> state_of(nodes.size(), -1);
  std::vector<char> linked(nodes.size(), 0);
  auto state_for = [&](int i) {
    if (state_of[size_t(i)] < 0) state_of[size_t(i)] = result->add_states(1);
    return state_of[size_t(i)];
  };
  result->set_initial(state_for(0));
  for (int end : ends) {
    int last = nodes[size_t(end)].parent;
    result->set_final(state_for(last), nodes[size_t(end)].arc.weight);
    for (int i = last; nodes[size_t(i)].parent >= 0 && !linked[size_t(i)];
         i = nodes[size_t(i)].parent) {
      FSTArc const& a = nodes[size_t(i)].arc;
      result->add_arc(state_for(nodes[size_t(i)].parent), state_for(i), a.input, a.output,
                      a.weight);
      linked[size_t(i)] = 1;
    }
  }
  return result;
}
