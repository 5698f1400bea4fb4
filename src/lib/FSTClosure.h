// Lazy repetition of one machine: the star closure (zero or more times, through a new initial
// state) and the plus closure (one or more times, the operand's own states).
#ifndef T2SFST_FSTCLOSURE_H
#define T2SFST_FSTCLOSURE_H

#include "FSTLazy.h"

// What both closures keep: the operand, its alphabets with epsilon added, its semiring.
class FSTClosureRep : public FSTGenericInt {
 public:
  fst::set<int> const& input_alphabet() const override { return _input_alphabet; }
  fst::set<int> const& output_alphabet() const override { return _output_alphabet; }
  FSTGeneric reload(bool& changed) override;

 protected:
  FSTClosureRep(FSTGeneric const& fst, char const* type_name);
  // Takes the operand's current state count (it may itself be lazy).
  virtual void _refresh() const = 0;

  FSTGeneric _fst;
  fst::set<int> _input_alphabet;
  fst::set<int> _output_alphabet;

 private:
  void _setup();
};

// State 0 is a new initial state, final with weight one; operand state k is state k + 1, and
// each final state also leads back, by epsilon with its final weight, to the operand's start.
class FSTClosureStarRep : public FSTClosureRep {
 public:
  FSTClosureStarRep(FSTGeneric const& fst, bool unused);

  using FSTGenericInt::arcs_out;
  FSTArcIter arcs_out(int p, FSTArcOrder order = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  bool is_final(int p) const override;
  float final_weight(int p) const override;
  float potential(int p) const override;
  void force() const override;
  void reset() const override;

 private:
  void _refresh() const override;
  FSTArcIter _arcs(int p, FSTArcIter operand_arcs, bool keep_epsilon) const;
  int _checked(int p) const;
};

// The operand's own states; each final state other than the initial one also leads back, by
// epsilon with its final weight, to the initial state.
class FSTClosurePlusRep : public FSTClosureRep {
 public:
  FSTClosurePlusRep(FSTGeneric const& fst, bool unused);

  using FSTGenericInt::arcs_out;
  FSTArcIter arcs_out(int p, FSTArcOrder order = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  bool is_final(int p) const override;
  float final_weight(int p) const override;
  float potential(int p) const override;
  void force() const override;
  void reset() const override;

 private:
  void _refresh() const override;
  bool _has_back_arc(int p) const;
  FSTArcIter _with_back_arc(int p, FSTArcIter operand_arcs) const;
};

// plus, or a machine whose initial state is already final with weight one: the plus closure;
// otherwise the star closure.
FSTGeneric FSTClosure(FSTGeneric const& fst, bool plus);

#endif
