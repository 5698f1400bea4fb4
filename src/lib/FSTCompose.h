// The lazy composition of two transducers: a path reads an input of the first operand and writes
// an output of the second, the first's output being the second's input. States are pairs of
// operand states with an epsilon-filter state, numbered in order of discovery. Each state's arcs
// cost one pass over the driving operand's arcs and a label lookup in the other's per arc;
// memory is the pair table. The first operand is read sorted by output, the second by input
// (a memory-mapped operand must be compiled in that order).
//
// Epsilon filter. An arc of the first operand with output epsilon moves it alone; an arc of the
// second with input epsilon moves the second alone; other arcs move together on equal labels.
// Between two matched labels the first operand may take k1 lone moves and the second k2, in any
// interleaving; the filter lets through exactly one, all of the first's moves first:
//
//   filter  | first alone (output eps) | second alone (input eps)   | together (label x:x)
//   --------+--------------------------+----------------------------+---------------------
//   0       | allowed, -> 0            | allowed, -> 1 (0 when the  | allowed, -> 0
//           |                          |  first's state writes no   |
//           |                          |  epsilon: nothing to block)|
//   1       | blocked                  | allowed, -> 1              | allowed, -> 0
//
// The second's lone moves (a back-off, say) come last, just before the match that needs them,
// and are not made where the first's state has no arc that writes a label and is not final
// (after them the first could only match or end): a lexicon composed with a back-off model keeps
// one state per lexicon state and history, with no state for a back-off inside a word.
// so every pair of matching operand paths gives exactly one path of the result.
//
// Operands are asked through FSTOperand.h, so any machine serves: an inversion view is probed on
// its other side, an operand that answers no label query on the side composition probes (a
// determinized machine) is read through an arc cache, which holds each of its states once asked,
// and one that lists no arcs (a back-off view) is only probed.
#ifndef T2SFST_FSTCOMPOSE_H
#define T2SFST_FSTCOMPOSE_H

#include <cstdint>
#include <utility>

#include "FSTLazy.h"
#include "FSTOperand.h"

// The composition's view for callers that need the operand states behind a state.
class FSTComposeInt : public FSTGenericInt {
 public:
  // The first and second operand states of a state (the filter state left out).
  virtual std::pair<int, int> state_pair(int state) const = 0;
};

namespace fst_compose {

// The state key: the first operand's state in the low 30 bits of the first word, the filter in
// its top 2 bits; the second operand's state in the second word.
struct _Triple {
  uint32_t first;
  uint32_t second;
  bool operator==(_Triple const& o) const { return first == o.first && second == o.second; }
  struct Hash {
    size_t operator()(_Triple const& t) const {
      return 17 * size_t(t.second) + 257 * size_t(t.first);
    }
  };
};
using _TripleIndex = FSTHashTable<_Triple, _Triple::Hash, std::equal_to<_Triple>>;

}  // namespace fst_compose

class FSTComposeRep
    : public FSTLazyRep<fst_compose::_Triple, fst_compose::_TripleIndex, FSTComposeInt> {
 public:
  using _Triple = fst_compose::_Triple;

  FSTComposeRep(FSTGeneric const& first, FSTGeneric const& second);
  ~FSTComposeRep() override;

  // The first operand's inputs and the second's outputs, each with epsilon where the other
  // operand moves alone.
  fst::set<int> const& input_alphabet() const override { return _input_alphabet; }
  fst::set<int> const& output_alphabet() const override { return _output_alphabet; }
  using FSTGenericInt::arcs_out;
  // A lazy operand (whose arc count is unknown) drives the matching, else the side a label
  // restriction applies to, else the one with fewer arcs at the state. Sorted requests drive the
  // same way and sort the state's arcs afterwards: a lazy operand probed label by label would
  // compute its arcs again for every label.
  FSTArcIter arcs_out(int p, FSTArcOrder order = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  void arcs_out(FSTArcVector& v, int p, FSTArcOrder order = FSTArcOrderAny) const override;
  // Final where both operands are; the final weight and the potential are their products.
  bool is_final(int p) const override;
  float final_weight(int p) const override;
  float potential(int p) const override;
  void force() const override;
  void reset() const override;
  FSTGeneric reload(bool& changed) override;
  std::pair<int, int> state_pair(int state) const override;

 private:
  void _init() const;
  // The machines read (an operand, or a cache in front of it) and the alphabets.
  void _setup();
  int _initial_state() const;
  // The arcs of p whose input (in >= 0) or output (out >= 0) label matches in mode, into result
  // (null: only discover the target states).
  void _arcs_out(int p, int in, int out, FSTArcMode mode, FSTArcOrder order,
                 FSTArcVector* result) const;
  int _target(int first, int filter, int second) const;

  FSTGeneric _first_operand;
  FSTGeneric _second_operand;
  FSTGeneric _first;   // what is read of the first operand
  FSTGeneric _second;  // and of the second
  bool _epsilon;       // the second operand reads epsilon somewhere
  bool _same;          // one machine is both operands: probed on one side only
  bool _drive_first;   // the second operand lists no arcs: the first always drives
  bool _drive_second;  // nor does the first
  FSTOperandProbe _first_by_output;
  FSTOperandProbe _second_by_input;
  fst::set<int> _input_alphabet;
  fst::set<int> _output_alphabet;
};

FSTGeneric FSTCompose(FSTGeneric const& first, FSTGeneric const& second);
// The composition behind a machine, or null when it is not one.
FSTComposeInt const* FSTComposeCast(FSTGeneric const& g);

#endif
