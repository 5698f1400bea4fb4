// Whether two machines give every (input, output) pair the same weight, within delta. Both are
// read as acceptors of label pairs and brought to a canonical form (epsilons removed, weights
// pushed, determinized and minimized), then walked side by side from their initial states:
// the walk compares the total weights, each pair of states' final weights and arcs, and stops at
// the first difference. Cost: the two optimizations, then linear in the smaller result.
// Contract: both determinizable (as the optimization pipelines require) and in one semiring.
#ifndef T2SFST_FSTEQUIVALENT_H
#define T2SFST_FSTEQUIVALENT_H

#include <string>

#include "FSTGeneric.h"

// True when equivalent; otherwise false and, when difference is not null, a sentence that says
// where they part (a string read by one and not the other, or weighted differently).
bool FSTEquivalent(FSTGeneric const& a, FSTGeneric const& b, float delta,
                   std::string* difference = nullptr);

#endif
