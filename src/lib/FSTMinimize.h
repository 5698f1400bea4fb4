// Minimisation: an equivalent stored machine with as few states as the method allows.
#ifndef T2SFST_FSTMINIMIZE_H
#define T2SFST_FSTMINIMIZE_H

#include "FSTGeneric.h"

// The machine is copied, trimmed and weight-pushed; then states are merged by their futures,
// each arc's (input, output, weight) being one symbol and finality with its final weight one
// more, weights equal within delta (delta 0: exactly).
//
// What it guarantees: the result accepts the same weighted language (weights within delta).
// On a machine deterministic in those symbols (no state with two arcs of one input, output and
// weight) it is the minimal such machine: acyclic machines are merged bottom up by height in
// linear time, cyclic ones by partition refinement in O(m log n). A nondeterministic machine
// is reduced by bisimulation, merging only states with the same future, which may leave more
// states than the minimum.
FSTGeneric FSTMinimize(FSTGeneric m, float delta);

#endif
