// The n best paths of a machine, as a machine: a tree of the paths from the initial state, each
// ending in a final state, best first by the semiring's order (lowest cost in MinPlus and
// PlusTimesLog, highest score or probability in MaxPlus and PlusTimes). Paths, not strings: two
// best paths may spell the same string. Cost: the best weights to a final state (label
// correcting), then a best-first search that pops each state at most n times; memory is linear
// in the states and arcs popped. A cycle that improves a weight without end is fatal.
#ifndef T2SFST_FSTSHORTESTPATH_H
#define T2SFST_FSTSHORTESTPATH_H

#include "FSTGeneric.h"

FSTGeneric FSTShortestPath(FSTGeneric const& m, int n = 1);

#endif
