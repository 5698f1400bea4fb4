// A back-off language model seen as if every state had a direct arc for every word it reaches
// through back-off: the operand is deterministic, and its epsilon arcs (one per state at most)
// are the back-off arcs. A word query follows the back-off chain until a state has the word,
// charging the back-off weights on the way; a final weight likewise. Cost: the chain's length
// per query; no table. Only word queries (arcs_out_with_input, mode equal) are offered.
// invert: every weight returned is replaced by its semiring inverse.
#ifndef T2SFST_FSTBACKOFF_H
#define T2SFST_FSTBACKOFF_H

#include "FSTGeneric.h"

class FSTBackoffRep : public FSTGenericInt {
 public:
  FSTBackoffRep(FSTGeneric const& g, bool invert);

  fst::set<int> const& input_alphabet() const override { return _machine->input_alphabet(); }
  fst::set<int> const& output_alphabet() const override { return _machine->output_alphabet(); }
  using FSTGenericInt::arcs_out;
  // Not offered: the view has arcs for every word, so only word queries make sense.
  FSTArcIter arcs_out(int p, FSTArcOrder order = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  bool is_final(int p) const override;
  float final_weight(int p) const override;
  float potential(int p) const override { return _machine->potential(p); }
  void force() const override;
  void reset() const override;

 private:
  // A one-arc list: arc from p with weight times(arc's, acc), inverted under the flag.
  FSTArcIter dynamic(FSTArc const* arc, int p, float acc) const;

  FSTGeneric _machine;
  bool _invert;
};

FSTGeneric FSTBackoff(FSTGeneric const& g, bool invert);

#endif
