#include "FSTPushWeights.h"

#include <vector>

#include "FSTBasic.h"
#include "FSTPotentialGraph.h"
#include "FSTTopologicalSort.h"
#include "FSTlib.h"

namespace {

// A machine seen through its interface, for the potential algorithms.
struct MachineGraph {
  FSTGenericInt const& m;
  int n() const { return m.states().size(); }
  float final_weight(int p) const { return m.final_weight(p); }
  template <class F>
  void for_each_arc(int p, F f) const {
    for (FSTArc* a : m.arcs_out(p, FSTArcOrderAny)) f(a->to, a->weight);
  }
};

}  // namespace

void FSTPotential(fst::vector<float>& V, FSTGeneric const& m) {
  fst::vector<int> order;
  bool const acyclic = FSTTopologicalSort(order, m);
  FSTPotentialOfGraph(V, MachineGraph{*m}, *m->semiring(), acyclic ? &order : nullptr);
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
    if (m->is_final(p))
      m->set_final(p, dead ? m->final_weight(p) : s.divide(m->final_weight(p), v));
    m->set_potential(p, s.one);  // as on the fresh states of a copy
    if (dead) continue;
    // The stored machine's iterator walks its own arcs.
    for (FSTArc* a : m->arcs_out(p, FSTArcOrderAny))
      a->weight = s.divide(s.times(a->weight, potential[size_t(a->to)]), v);
  }
  return m;
}

float FSTTotalWeight(FSTGeneric const& m) {
  if (m->initial() < 0) return m->semiring()->zero;
  fst::vector<float> potential;
  FSTPotential(potential, m);
  return potential[size_t(m->initial())];
}

FSTGeneric FSTMultiplyPaths(FSTGeneric m, float w) {
  FSTSemiringBase const& s = *m->semiring();
  if (!dynamic_cast<FSTBasicRep*>(m.get()) || m->reference_count() != 1) m = FSTMutableCopy(m);
  int const start = m->initial();
  if (start < 0 || w == s.one) return m;
  bool reentered = false;
  for (int p = 0; p < m->n_states() && !reentered; ++p)
    for (FSTArc* a : m->arcs_out(p, FSTArcOrderAny)) reentered = reentered || a->to == start;
  if (!reentered) {
    for (FSTArc* a : m->arcs_out(start, FSTArcOrderAny)) a->weight = s.times(w, a->weight);
    if (m->is_final(start)) m->set_final(start, s.times(w, m->final_weight(start)));
    return m;
  }
  int const copy = m->add_states(1);
  fst::vector<FSTArc> arcs;
  for (FSTArc* a : m->arcs_out(start, FSTArcOrderAny)) arcs.push_back(*a);
  for (FSTArc const& a : arcs) m->add_arc(copy, a.to, a.input, a.output, s.times(w, a.weight));
  if (m->is_final(start)) m->set_final(copy, s.times(w, m->final_weight(start)));
  m->set_initial(copy);
  return m;
}
