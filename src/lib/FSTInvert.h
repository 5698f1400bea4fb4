// A view of a machine with the two sides of every arc swapped and every weight replaced by its
// semiring inverse; the operand's states, unchanged. Constant time per arc; no table.
// Label queries filter before the swap: arcs_out_with_input(p, l) returns the operand's arcs
// with input l, whose output is then l. The alphabets are the operand's, unswapped.
#ifndef T2SFST_FSTINVERT_H
#define T2SFST_FSTINVERT_H

#include "FSTGeneric.h"

class FSTInvertRep : public FSTGenericInt {
 public:
  explicit FSTInvertRep(FSTGeneric const& g);

  fst::set<int> const& input_alphabet() const override { return _machine->input_alphabet(); }
  fst::set<int> const& output_alphabet() const override { return _machine->output_alphabet(); }
  int n_arcs_out(int p) const override { return _machine->n_arcs_out(p); }
  using FSTGenericInt::arcs_out;
  FSTArcIter arcs_out(int p, FSTArcOrder order = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  bool is_final(int p) const override { return _machine->is_final(p); }
  float final_weight(int p) const override;
  float potential(int p) const override { return _machine->potential(p); }
  void force() const override;
  void reset() const override;

  // The machine whose arcs are swapped.
  FSTGeneric const& operand() const { return _machine; }

 private:
  FSTArcIter _invert_arcs(int p, FSTArcIter arcs) const;

  FSTGeneric _machine;
};

FSTGeneric FSTInvert(FSTGeneric const& g);

#endif
