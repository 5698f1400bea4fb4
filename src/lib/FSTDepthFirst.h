// Reading a machine state by state, depth first from its initial state: what a copy or a
// one-pass reader does, so that a lazy machine computes its states along paths (its operands are
// then read with few cache misses). Linear in states + arcs; one byte per state besides a stack.
#ifndef T2SFST_FSTDEPTHFIRST_H
#define T2SFST_FSTDEPTHFIRST_H

#include <algorithm>
#include <vector>

#include "FSTGeneric.h"

// Calls visit(p, arcs) once for each state reachable from the initial state (with every_state,
// then for the rest, each left state starting a new search by number), arcs being
// m.arcs_out(p). A lazy machine may grow during the walk: its state count is read as it goes.
template <class Visit>
void FSTVisitDepthFirst(FSTGenericInt const& m, bool every_state, Visit visit) {
  FSTStateRange const states = m.states();
  std::vector<char> queued;
  std::vector<int> stack;
  auto queue = [&](int p) {
    if (size_t(p) >= queued.size())
      queued.resize(std::max(size_t(p) + 1, size_t(states.size())), 0);
    if (!queued[size_t(p)]) queued[size_t(p)] = 1, stack.push_back(p);
  };
  if (m.initial() >= 0) queue(m.initial());
  for (int next = 0;;) {
    if (stack.empty()) {
      if (!every_state) return;
      while (next < states.size() && size_t(next) < queued.size() && queued[size_t(next)]) ++next;
      if (next >= states.size()) return;
      queue(next);
    }
    int const p = stack.back();
    stack.pop_back();
    FSTArcIter const arcs = m.arcs_out(p, FSTArcOrderAny);
    visit(p, arcs);
    for (FSTArc* a : arcs) queue(a->to);
  }
}

#endif
