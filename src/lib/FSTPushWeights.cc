#include "FSTPushWeights.h"

#include <queue>
#include <vector>

#include "FSTBasic.h"
#include "FSTTopologicalSort.h"
#include "FSTlib.h"

namespace {

void potentials_acyclic(fst::vector<float>& V, FSTGenericInt const& m,
                        fst::vector<int> const& order) {
  FSTSemiringBase const& s = *m.semiring();
  V.assign(size_t(m.states().size()), s.zero);
  for (auto q = order.rbegin(); q != order.rend(); ++q) {
    float& v = V[size_t(*q)];
    v = s.better(v, m.final_weight(*q));
    for (FSTArc* a : m.arcs_out(*q, FSTArcOrderAny)) {
      if (a->to == *q) {
        if (s.is_better(a->weight, s.one))
          FSTFatal("FSTPotential: self loop weight better than %g", double(s.one));
        continue;
      }
      v = s.better(v, s.times(V[size_t(a->to)], a->weight));
    }
  }
}

void potentials_relaxation(fst::vector<float>& V, FSTGenericInt const& m) {
  FSTSemiringBase const& s = *m.semiring();
  int const n = m.states().size();
  V.resize(size_t(n));
  for (int i = 0; i < n; ++i) V[size_t(i)] = m.final_weight(i);
  for (int pass = 0; pass < n; ++pass) {
    bool last = pass + 1 == n, changed = false;
    for (int p = 0; p < n; ++p)
      for (FSTArc* a : m.arcs_out(p, FSTArcOrderAny)) {
        float t = V[size_t(a->to)];
        if (!s.is_better(t, s.zero)) continue;
        float c = s.times(t, a->weight);
        if (!s.is_better(c, V[size_t(p)])) continue;
        if (last) {
          FSTWarn("FSTPotential: cycle with weight better than semiring->one detected");
          return;
        }
        V[size_t(p)] = c;
        changed = true;
      }
    if (!changed) return;
  }
}

// Settles states best first, from the final states backwards over reversed arcs (kept in
// compressed rows). The queue is a binary heap with stale entries skipped when popped.
void potentials_dijkstra(fst::vector<float>& V, FSTGenericInt const& m) {
  FSTSemiringBase const& s = *m.semiring();
  int const n = m.states().size();
  struct Incoming {
    int from;
    float weight;
  };
  std::vector<size_t> first(size_t(n) + 1, 0);
  for (int p = 0; p < n; ++p)
    for (FSTArc* a : m.arcs_out(p, FSTArcOrderAny)) ++first[size_t(a->to) + 1];
  for (int p = 0; p < n; ++p) first[size_t(p) + 1] += first[size_t(p)];
  std::vector<Incoming> predecessors(first[size_t(n)]);
  {
    std::vector<size_t> fill(first.begin(), first.end() - 1);
    for (int p = 0; p < n; ++p)
      for (FSTArc* a : m.arcs_out(p, FSTArcOrderAny))
        predecessors[fill[size_t(a->to)]++] = {p, a->weight};
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
    V[size_t(i)] = m.final_weight(i);
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

bool has_arc_better_than_one(FSTGenericInt const& m) {
  FSTSemiringBase const& s = *m.semiring();
  for (int p : m.states())
    for (FSTArc* a : m.arcs_out(p, FSTArcOrderAny))
      if (s.is_better(a->weight, s.one)) return true;
  return false;
}

}  // namespace

void FSTPotential(fst::vector<float>& V, FSTGeneric const& m) {
  fst::vector<int> order;
  if (FSTTopologicalSort(order, m))
    potentials_acyclic(V, *m, order);
  else if (has_arc_better_than_one(*m))
    potentials_relaxation(V, *m);
  else
    potentials_dijkstra(V, *m);
}

FSTGeneric FSTPotential(FSTGeneric m) {
  FSTGeneric result = m->is_mutable() ? m : FSTMutableCopy(m);
  fst::vector<float> V;
  FSTPotential(V, m);
  for (size_t i = 0; i < V.size(); ++i) result->set_potential(int(i), V[i]);
  return result;
}

FSTGeneric FSTPushWeights(FSTGeneric const& m) {
  FSTGenericInt const* x = m.get();
  fst::vector<float> potential;
  FSTPotential(potential, m);
  FST_ASSERT(int(potential.size()) == x->n_states());
  FSTSemiringBase const& s = *m->semiring();
  FSTGeneric pushed = FSTBasic(&s);
  int const n = x->n_states();
  pushed->add_states(n);
  if (m->initial() >= 0) pushed->set_initial(m->initial());
  for (int p = 0; p < n; ++p) {
    float v = potential[size_t(p)];
    // A state that reaches no final state has nothing to push: dividing by zero would only
    // put infinities or NaNs on paths that lead nowhere.
    bool dead = v == s.zero;
    if (m->is_final(p))
      pushed->set_final(p, dead ? m->final_weight(p) : s.divide(m->final_weight(p), v));
    for (FSTArc* a : m->arcs_out(p, FSTArcOrderAny)) {
      float w = dead ? a->weight : s.divide(s.times(a->weight, potential[size_t(a->to)]), v);
      pushed->add_arc(p, a->to, a->input, a->output, w);
    }
  }
  return pushed;
}

FSTGeneric FSTPushWeightsInPlace(FSTGeneric m) {
  auto stored = dynamic_cast<FSTBasicRep*>(m.get());
  if (!stored || m->reference_count() != 1) return FSTPushWeights(m);
  fst::vector<float> potential;
  FSTPotential(potential, m);
  FST_ASSERT(int(potential.size()) == m->n_states());
  FSTSemiringBase const& s = *m->semiring();
  for (int p = 0; p < m->n_states(); ++p) {
    float const v = potential[size_t(p)];
    bool const dead = v == s.zero;
    if (m->is_final(p)) m->set_final(p, dead ? m->final_weight(p) : s.divide(m->final_weight(p), v));
    m->set_potential(p, s.one);  // as on the fresh states of a copy
    if (dead) continue;
    // The stored machine's iterator walks its own arcs.
    for (FSTArc* a : m->arcs_out(p, FSTArcOrderAny))
      a->weight = s.divide(s.times(a->weight, potential[size_t(a->to)]), v);
  }
  return m;
}
