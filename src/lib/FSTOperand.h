// Asking an operand the question an operation means. Every machine answers arcs_out(p),
// finality and weights as its own, but some views answer the other questions in their own way:
// - an inversion view filters label queries and sorts on its operand's sides and reports its
//   operand's alphabets, so a query for input l returns arcs whose output is l (an even number of
//   nested inversions answers straight again);
// - a determinized machine answers no label query and offers no force();
// - a union matches its own arcs with the two inequality modes mirrored;
// - a memory-mapped machine answers only in the order it was compiled in;
// - a recursive network answers no query on output labels;
// - a back-off view answers only queries for an input label, and lists no arcs;
// - an LRU cache's arcs may be evicted by the next lookup: these functions copy them.
// Operations ask their operands through these functions and so take every machine. A question a
// machine answers natively costs what it costs there plus a type test; one it does not answer
// reads the state's arcs and filters or sorts a copy of them.
#ifndef T2SFST_FSTOPERAND_H
#define T2SFST_FSTOPERAND_H

#include "FSTGeneric.h"

// The arcs leaving p, sorted as asked.
FSTArcIter FSTOperandArcs(FSTGenericInt const& m, int p, FSTArcOrder order);
// The arcs leaving p whose input (output) label matches label in mode mode (0 equal, 1 up to
// label, 2 from label).
FSTArcIter FSTOperandArcsWithInput(FSTGenericInt const& m, int p, int label,
                                   FSTArcMode mode = FSTArcModeEqual);
FSTArcIter FSTOperandArcsWithOutput(FSTGenericInt const& m, int p, int label,
                                    FSTArcMode mode = FSTArcModeEqual);
// Sets holding every label of the input (output) side of the machine's arcs, epsilon included
// where an arc carries it; they may hold more.
fst::set<int> const& FSTOperandInputAlphabet(FSTGenericInt const& m);
fst::set<int> const& FSTOperandOutputAlphabet(FSTGenericInt const& m);
// How to ask one machine for its arcs by one side's label in one mode, decided once: for
// operations that probe an operand for every arc they build (decide again after a reload).
class FSTOperandProbe {
 public:
  FSTOperandProbe() = default;
  FSTOperandProbe(FSTGenericInt const& m, bool on_input, FSTArcMode mode = FSTArcModeEqual);
  // The arcs of m's state p whose label on the chosen side matches label.
  FSTArcIter operator()(FSTGenericInt const& m, int p, int label) const;

 private:
  enum class _Way : char { input, output, filtered };
  _Way _way = _Way::input;
  bool _on_input = true;
  bool _copy = false;  // an LRU cache's arcs
  FSTArcMode _mode = FSTArcModeEqual;
};

// Whether the machine answers label queries on its input (output) side itself, rather than
// through a filtered copy of each state's arcs.
bool FSTOperandProbesInput(FSTGenericInt const& m);
bool FSTOperandProbesOutput(FSTGenericInt const& m);
// Whether the machine lists a state's arcs (a back-off view only answers for one input label).
bool FSTOperandListsArcs(FSTGenericInt const& m);
// Discovers every reachable state: force() where the machine offers it, else arcs_out of each
// state in id order.
void FSTOperandForce(FSTGenericInt const& m);

#endif
