// Topological order of a machine's states, dead states and trimming.
#ifndef T2SFST_FSTTOPOLOGICALSORT_H
#define T2SFST_FSTTOPOLOGICALSORT_H

#include "FSTGeneric.h"

// A test on one arc: which arcs count as edges when ordering states.
class FSTArcPredicate {
 public:
  virtual ~FSTArcPredicate() {}
  virtual bool operator()(FSTArc const* arc) const = 0;
};

// True for arcs whose input label is in a caller-owned set.
class FSTInputSetArcPredicate : public FSTArcPredicate {
 public:
  explicit FSTInputSetArcPredicate(fst::set<int> const* labels) : _labels(labels) {}
  bool operator()(FSTArc const* arc) const override { return _labels->count(arc->input) > 0; }

 private:
  fst::set<int> const* _labels;
};

// Every state in topological order over the arcs that pred accepts (all arcs without one);
// false when those arcs form a cycle (self-loops do not count). A lazy machine is expanded
// first.
bool FSTTopologicalSort(fst::vector<int>& order, FSTGeneric const& m, FSTArcPredicate const* pred);
bool FSTTopologicalSort(fst::vector<int>& order, FSTGeneric const& m);
bool FSTTopologicalSort(fst::vector<int>& order, FSTGeneric const& m, fst::set<int> const& labels);
// The states reachable from the initial state, in topological order (none without one).
bool FSTTopologicalSortFromInitial(fst::vector<int>& order, FSTGeneric const& m);

// A stored copy renumbered in topological order; every arc is copied, also those pred leaves
// out of the ordering. A cyclic machine gives an empty MinPlus machine, deliberately.
FSTGeneric FSTTopologicalSort(FSTGeneric const& m, FSTArcPredicate const* pred);
FSTGeneric FSTTopologicalSort(FSTGeneric const& m);
FSTGeneric FSTTopologicalSort(FSTGeneric const& m, fst::set<int> const& labels);

// m trimmed: a stored copy of m first when m is not mutable, else m itself, trimmed in place.
FSTGeneric FSTTrim(FSTGeneric m);

#endif
