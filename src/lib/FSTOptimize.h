// The optimisation pipelines: epsilon removal, weight pushing, determinization and
// minimisation in one call, giving an epsilon-free, pushed, deterministic, minimal stored
// machine. The A variants run epsilon removal and determinization in acceptor mode; the 2
// variants push weights before removing epsilons. limit and delta go to determinization
// (limit below 1: none) and minimisation; epsilon removal always uses the tolerance 0.001.
#ifndef T2SFST_FSTOPTIMIZE_H
#define T2SFST_FSTOPTIMIZE_H

#include "FSTGeneric.h"

FSTGeneric FSTOptimize(FSTGeneric const& in, int limit, float delta);
FSTGeneric FSTOptimize2(FSTGeneric const& in, int limit, float delta);
FSTGeneric FSTOptimizeA(FSTGeneric const& in, int limit, float delta);
FSTGeneric FSTOptimize2A(FSTGeneric const& in, int limit, float delta);

// The same, taking the caller's handle: the input is released as soon as the first step has
// copied it, which lowers the peak memory by the input's size when nothing else holds it.
FSTGeneric FSTOptimize(FSTGeneric&& in, int limit, float delta);
FSTGeneric FSTOptimize2(FSTGeneric&& in, int limit, float delta);
FSTGeneric FSTOptimizeA(FSTGeneric&& in, int limit, float delta);
FSTGeneric FSTOptimize2A(FSTGeneric&& in, int limit, float delta);

#endif
