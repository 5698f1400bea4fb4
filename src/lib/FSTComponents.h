// Strongly connected components of a graph view (n(), and for_each_arc(p, f) calling f(to, weight),
// as the potentials and the topological orders take it), by Tarjan's algorithm without recursion,
// so that a machine of millions of states in one long chain does not exhaust the stack.
// Linear in states + arcs; the successors are copied once into compressed rows.
#ifndef T2SFST_FSTCOMPONENTS_H
#define T2SFST_FSTCOMPONENTS_H

#include <algorithm>
#include <utility>
#include <vector>

// Sets component[p] for every state and returns the number of components. They are numbered
// sinks first: an arc never leads to a component numbered above its source's.
template <class Graph>
int FSTStronglyConnected(Graph const& g, std::vector<int>& component) {
  int const n = g.n();
  std::vector<size_t> first(size_t(n) + 1, 0);
  std::vector<int> successors;
  for (int p = 0; p < n; ++p) {
    g.for_each_arc(p, [&](int to, auto) { successors.push_back(to); });
    first[size_t(p) + 1] = successors.size();
  }
  component.assign(size_t(n), -1);
  std::vector<int> index(size_t(n), -1), low(size_t(n), 0), stack;
  std::vector<std::pair<int, size_t>> calls;  // a state and its next arc
  int counter = 0, n_components = 0;
  auto enter = [&](int p) {
    index[size_t(p)] = low[size_t(p)] = counter++;
    stack.push_back(p);
    calls.push_back({p, first[size_t(p)]});
  };
  for (int root = 0; root < n; ++root) {
    if (index[size_t(root)] >= 0) continue;
    enter(root);
    while (!calls.empty()) {
      int const p = calls.back().first;
      size_t& next = calls.back().second;
      if (next < first[size_t(p) + 1]) {
        int const q = successors[next++];
        if (index[size_t(q)] < 0)
          enter(q);
        else if (component[size_t(q)] < 0)  // still on the stack
          low[size_t(p)] = std::min(low[size_t(p)], index[size_t(q)]);
        continue;
      }
      calls.pop_back();
      if (!calls.empty()) {
        int const caller = calls.back().first;
        low[size_t(caller)] = std::min(low[size_t(caller)], low[size_t(p)]);
      }
      if (low[size_t(p)] != index[size_t(p)]) continue;
      int q;
      do {
        q = stack.back();
        stack.pop_back();
        component[size_t(q)] = n_components;
      } while (q != p);
      ++n_components;
    }
  }
  return n_components;
}

#endif
