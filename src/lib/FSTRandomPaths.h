// Random successful paths of a machine, as sequences of arcs. From the initial state each step
// either stops (where the state is final) or takes an arc, each choice uniformly, or with
// probability in proportion to its weight (exp(-w) for costs) when by_weight. Only states that
// lead to a final state are entered, so every walk ends unless it exceeds max_arcs arcs, in
// which case it is drawn again (at most 100 times). Cost: a stored copy of the machine and its
// best weights to a final state, then linear in the paths' lengths. Arcs keep m's state numbers. The generator's seed makes the draw repeatable.
#ifndef T2SFST_FSTRANDOMPATHS_H
#define T2SFST_FSTRANDOMPATHS_H

#include <cstdint>
#include <vector>

#include "FSTGeneric.h"

struct FSTRandomPath {
  std::vector<FSTArc> arcs;
  float weight;  // the path's weight, its final weight included
};

std::vector<FSTRandomPath> FSTRandomPaths(FSTGeneric const& m, int n, uint64_t seed,
                                          bool by_weight = false, int max_arcs = 1000);

// The paths as a machine: a tree from one initial state, one branch per path.
FSTGeneric FSTPathsMachine(FSTSemiringBase const* semiring,
                           std::vector<FSTRandomPath> const& paths);

#endif
