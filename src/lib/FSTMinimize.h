// Minimisation: an equivalent stored machine with as few states as the method allows.
#ifndef T2SFST_FSTMINIMIZE_H
#define T2SFST_FSTMINIMIZE_H

#include "FSTGeneric.h"

// The live part of the machine is read with its weights pushed (nothing is copied); then states
// are merged by their futures, each arc's (input, output, weight) being one symbol and finality
// with its final weight one more. Weights share a symbol when they fall in one cluster: sorted,
// each cluster spans at most delta from its smallest weight (delta 0: equal weights).
// Cost: O(m log m) time for the symbols plus the merging below; about 40 bytes per arc at peak.
//
// What it guarantees: the result accepts the same weighted language (weights within delta).
// On a machine deterministic in those symbols (no state with two arcs of one input, output and
// weight) it is the minimal such machine: acyclic machines are merged bottom up by height in
// linear time, cyclic ones by partition refinement in O(m log n). A nondeterministic machine
// is reduced by bisimulation, merging only states with the same future, which may leave more
// states than the minimum.
FSTGeneric FSTMinimize(FSTGeneric m, float delta);

#endif
