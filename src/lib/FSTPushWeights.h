// Potentials (the best weight from each state to a final state, final weight included) and
// weight pushing, which moves weights towards the initial state.
#ifndef T2SFST_FSTPUSHWEIGHTS_H
#define T2SFST_FSTPUSHWEIGHTS_H

#include "FSTGeneric.h"

// V[s] = the best total weight of a path from s to a final state; zero where there is none.
// Acyclic machines in one pass; cyclic ones by Dijkstra's search, or by bounded relaxation
// (with a warning when a cycle keeps improving) when some arc is better than one.
void FSTPotential(fst::vector<float>& V, FSTGeneric const& m);
// m with its potentials set: m itself when mutable, else a stored copy.
FSTGeneric FSTPotential(FSTGeneric m);

// A stored machine with the same paths, each arc weighted by w * V[to] / V[from] and each final
// weight by f / V[s], so every state's best path to a final state weighs one.
FSTGeneric FSTPushWeights(FSTGeneric const& m);

// The same weights as FSTPushWeights, written into m when m is a stored machine that no other
// handle shares (saving a copy of the whole machine); otherwise FSTPushWeights(m).
FSTGeneric FSTPushWeightsInPlace(FSTGeneric m);

// The total weight of m: the sum (in its semiring) of the weights of all its successful paths,
// which pushing divides out; zero when m has no initial state.
float FSTTotalWeight(FSTGeneric const& m);

// A stored machine whose every path weighs w times what it weighs in m (pushing with the total
// kept is FSTMultiplyPaths(FSTPushWeights(m), FSTTotalWeight(m))). w goes on the arcs leaving
// the initial state and on its final weight; when paths come back to the initial state, on a
// new initial state that copies its arcs instead. Linear time; m itself when stored and not
// shared.
FSTGeneric FSTMultiplyPaths(FSTGeneric m, float w);

#endif
