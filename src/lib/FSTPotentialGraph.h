// Potentials over any graph that lists each state's arcs: the algorithms behind FSTPotential,
// shared with readers that keep a machine in arrays of their own (minimisation). Time: one pass
// when acyclic; O((states + arcs) log states) by Dijkstra's search; O(states * arcs) by
// relaxation. Memory: a heap and the reversed arcs for Dijkstra, nothing more otherwise.
#ifndef T2SFST_FSTPOTENTIALGRAPH_H
#define T2SFST_FSTPOTENTIALGRAPH_H

#include <queue>
#include <vector>

#include "FSTGeneric.h"
#include "FSTlib.h"

// Graph: int n() const; float final_weight(int p) const; for_each_arc(p, f), calling
// f(int to, float weight) for each arc of p. order: the states in topological order (self-loops
// allowed) when the graph is acyclic, else null. V[p]: the best weight from p to a final state.
template <class Graph, class Order>
void FSTPotentialOfGraph(fst::vector<float>& V, Graph const& g, FSTSemiringBase const& s,
                         Order const* order);

// ---- private helpers ----

namespace fst_potential {

template <class Graph, class Order>
void acyclic(fst::vector<float>& V, Graph const& g, FSTSemiringBase const& s, Order const& order) {
  V.assign(size_t(g.n()), s.zero);
  for (auto q = order.rbegin(); q != order.rend(); ++q) {
    float& v = V[size_t(*q)];
    v = s.better(v, g.final_weight(*q));
    g.for_each_arc(*q, [&](int to, float weight) {
      if (to == *q) {
        if (s.is_better(weight, s.one))
          FSTFatal("FSTPotential: self loop weight better than %g", double(s.one));
        return;
      }
      v = s.better(v, s.times(V[size_t(to)], weight));
    });
  }
}

template <class Graph>
void relaxation(fst::vector<float>& V, Graph const& g, FSTSemiringBase const& s) {
  int const n = g.n();
  V.resize(size_t(n));
  for (int i = 0; i < n; ++i) V[size_t(i)] = g.final_weight(i);
  for (int pass = 0; pass < n; ++pass) {
    bool const last = pass + 1 == n;
    bool changed = false, cycle = false;
    for (int p = 0; p < n && !cycle; ++p)
      g.for_each_arc(p, [&](int to, float weight) {
        float t = V[size_t(to)];
        if (cycle || !s.is_better(t, s.zero)) return;
        float c = s.times(t, weight);
        if (!s.is_better(c, V[size_t(p)])) return;
        if (last) {
          cycle = true;
          return;
        }
        V[size_t(p)] = c;
        changed = true;
      });
    if (cycle) {
      FSTWarn("FSTPotential: cycle with weight better than semiring->one detected");
      return;
    }
    if (!changed) return;
  }
}

// Settles states best first, from the final states backwards over reversed arcs (kept in
// compressed rows). The queue is a binary heap with stale entries skipped when popped.
template <class Graph>
void dijkstra(fst::vector<float>& V, Graph const& g, FSTSemiringBase const& s) {
  int const n = g.n();
  struct Incoming {
    int from;
    float weight;
  };
  std::vector<size_t> first(size_t(n) + 1, 0);
  for (int p = 0; p < n; ++p) g.for_each_arc(p, [&](int to, float) { ++first[size_t(to) + 1]; });
  for (int p = 0; p < n; ++p) first[size_t(p) + 1] += first[size_t(p)];
  std::vector<Incoming> predecessors(first[size_t(n)]);
  {
    std::vector<size_t> fill(first.begin(), first.end() - 1);
    for (int p = 0; p < n; ++p)
      g.for_each_arc(p, [&](int to, float weight) {
        predecessors[fill[size_t(to)]++] = {p, weight};
      });
  }
  struct Entry {
    float weight;
    int state;
  };
  // The heap's top is the best weight (ties: the lower state).
  auto after = [&s](Entry const& a, Entry const& b) {
    if (s.is_better(b.weight, a.weight, 0)) return true;
    if (s.is_better(a.weight, b.weight, 0)) return false;
    return a.state > b.state;
  };
  std::priority_queue<Entry, std::vector<Entry>, decltype(after)> queue(after);
  V.resize(size_t(n));
  for (int i = 0; i < n; ++i) {
    V[size_t(i)] = g.final_weight(i);
    if (V[size_t(i)] != s.zero) queue.push({V[size_t(i)], i});
  }
  std::vector<bool> settled(size_t(n), false);
  while (!queue.empty()) {
    Entry const top = queue.top();
    queue.pop();
    if (settled[size_t(top.state)] || top.weight != V[size_t(top.state)]) continue;
    settled[size_t(top.state)] = true;
    for (size_t i = first[size_t(top.state)]; i < first[size_t(top.state) + 1]; ++i) {
      Incoming const& in = predecessors[i];
      if (settled[size_t(in.from)]) continue;
      float c = s.times(top.weight, in.weight);
      if (!s.is_better(c, V[size_t(in.from)], 0)) continue;
      V[size_t(in.from)] = c;
      queue.push({c, in.from});
    }
  }
}

}  // namespace fst_potential

template <class Graph, class Order>
void FSTPotentialOfGraph(fst::vector<float>& V, Graph const& g, FSTSemiringBase const& s,
                         Order const* order) {
  if (order) return fst_potential::acyclic(V, g, s, *order);
  bool better_than_one = false;
  for (int p = 0; p < g.n() && !better_than_one; ++p)
    g.for_each_arc(p, [&](int, float weight) { better_than_one |= s.is_better(weight, s.one); });
  if (better_than_one)
    fst_potential::relaxation(V, g, s);
  else
    fst_potential::dijkstra(V, g, s);
}

#endif
