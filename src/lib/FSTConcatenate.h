// The lazy concatenation of machines: each operand's final states lead, by an epsilon arc
// carrying the final weight, into the next operand's initial state.
#ifndef T2SFST_FSTCONCATENATE_H
#define T2SFST_FSTCONCATENATE_H

#include "FSTLazy.h"

class FSTConcatenateRep : public FSTLazyRep<FSTOperandState> {
 public:
  explicit FSTConcatenateRep(fst::vector<FSTGeneric> const& fsts);
  ~FSTConcatenateRep() override;

  fst::set<int> const& input_alphabet() const override { return _input_alphabet; }
  fst::set<int> const& output_alphabet() const override { return _output_alphabet; }
  using FSTGenericInt::arcs_out;
  // The epsilon arc into the next operand comes first; no re-sorting follows.
  FSTArcIter arcs_out(int p, FSTArcOrder order = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  // Final only in the last operand.
  bool is_final(int p) const override;
  float final_weight(int p) const override;
  // The operand's own potential, without the cost of the operands that follow.
  float potential(int p) const override;
  void force() const override;
  void reset() const override;
  FSTGeneric reload(bool& changed) override;

 private:
  void _setup();
  void _init() const;
  FSTArcIter _arcs(int p, FSTArcIter operand_arcs, bool keep_epsilon) const;

  fst::vector<FSTGeneric> _fsts;
  int _n_fsts;
  fst::set<int> _input_alphabet;
  fst::set<int> _output_alphabet;
};

FSTGeneric FSTConcatenate(FSTGeneric const& a, FSTGeneric const& b);
FSTGeneric FSTConcatenate(FSTGeneric const& a, FSTGeneric const& b, FSTGeneric const& c);
FSTGeneric FSTConcatenate(fst::vector<FSTGeneric> const& fsts);

#endif
