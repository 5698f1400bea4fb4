// The mutable machine: states, arcs, final weights, potentials and the initial state held in
// memory. Every materialising operation copies into one.
#ifndef T2SFST_FSTBASIC_H
#define T2SFST_FSTBASIC_H

#include <climits>

#include "FSTGeneric.h"
#include "FSTTrain.h"

class FSTBasicRep : public FSTTrainableRep {
 public:
  // An empty machine in semiring s.
  explicit FSTBasicRep(FSTSemiringBase const* s);
  // Reads the "#FSTBasic" text format; header is the first line without its "#" (it names the
  // semiring and may set WeightScale= and WeightOffset=).
  FSTBasicRep(std::istream& is, char const* header);
  // Copies g. in_from / out_from pick each new arc's input / output label: 1 the source arc's
  // input, 2 its output, anything else epsilon. reverse builds the reversed machine (a new
  // initial state with epsilon arcs to the old final states). Unsupported combinations print a
  // message and exit with status 0.
  FSTBasicRep(FSTGeneric const& g, FSTArcOrder in_from, FSTArcOrder out_from, bool reverse,
              bool clear_weights, bool convert_to_PlusTimes);
  FSTBasicRep(FSTGeneric const& g, FSTArcOrder in_from, FSTArcOrder out_from, bool reverse,
              bool clear_weights, FSTSemiringBase const* convert_to_semiring);
  ~FSTBasicRep() override;

  static FSTGeneric copy(FSTGeneric const& g);

  fst::set<int> const& input_alphabet() const override { return _input_labels; }
  fst::set<int> const& output_alphabet() const override { return _output_labels; }
  int n_arcs_out(int p) const override;
  using FSTGenericInt::arcs_out;
  // Re-sorts the whole machine first when o is not 0 and differs from the current order.
  FSTArcIter arcs_out(int p, FSTArcOrder o = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  // Appends copies (v is not cleared); the caller owns them.
  void arcs_out(FSTArcVector& v, int p, FSTArcOrder o = FSTArcOrderAny) const override;
  bool is_final(int p) const override;
  float final_weight(int p) const override;
  float potential(int p) const override;
  void force() const override {}
  void reset() const override {}
  using FSTGenericInt::dump_ascii;
  using FSTGenericInt::dump_binary;
  void dump_ascii(std::ostream& os, bool header = true) const override;
  void dump_binary(std::ostream& os) const override;
  // Reads every label's text as a decimal number and puts that number on the arc instead.
  void restore_input_output_index() override;

  // Mutators grow the machine so that the states they name exist.
  void set_initial(int p) override;
  void set_final(int p, float w) override;
  void set_potential(int p, float w) override;
  // Appends n states; returns the first new id, or -1 when n is 0.
  int add_states(int n) override;
  // Inserts keeping the machine's arc order (before arcs with an equal label).
  void add_arc(int p, int q, int input, int output, float weight) override;
  // Both take ownership of the arcs in v (and empty v); the arcs' `from` becomes p.
  void add_arcs(int p, FSTArcVector& v, FSTArcOrder o) override;
  void set_arcs(int p, FSTArcVector& v, FSTArcOrder o) override;
  void delete_state(int p) override;
  // Removes the listed states and every arc into them; the others are renumbered densely in
  // their old order.
  void delete_states(fst::vector<int> const& states) override;

  // The order every state's arc list is kept in.
  FSTArcOrder arc_order() const { return _arc_order; }
  using FSTGenericInt::_sort_arcs;

 private:
  void _set_trained_final(int p, float w) override { set_final(p, w); }
  struct _State {
    float final;  // the semiring's zero when not final
    float potential;
    FSTArcVector arcs;
  };
  static constexpr size_t _state_units = 4;
  static_assert(sizeof(_State) == _state_units * FSTAllocator::unit_bytes, "a state is 32 bytes");

  enum class _Conversion {
    none,
    source_convert,
    negate,
    plus_times_to_min_plus,
    min_plus_to_plus_times
  };

  void _init(FSTSemiringBase const* s);
  // Re-sorts every state's arcs (a warning when it was sorted the other way).
  void _sort_arcs(FSTArcOrder order) const;
  void _copy(FSTGeneric const& g, FSTArcOrder in_from, FSTArcOrder out_from, bool reverse,
             bool clear_weights, _Conversion conversion);
  float _convert(float w, _Conversion conversion, FSTSemiringBase const* source) const;
  void _grow_to(int p);
  void _take_arcs(int p, FSTArcVector& v);
  void _note_labels(int input, int output);
  _State* _state(int p) const;

  // The states, freed with their arcs when the table goes: also when a constructor stops
  // halfway and a harness unwinds from the stop.
  struct _StateTable : fst::vector<_State*> {
    ~_StateTable();
  };
  _StateTable _states;
  mutable FSTArcOrder _arc_order;
  fst::set<int> _input_labels;
  fst::set<int> _output_labels;
  // The labels last inserted, so runs of arcs with one label skip the set lookups.
  int _last_input = INT_MIN, _last_output = INT_MIN;
};

FSTGeneric FSTBasic(FSTSemiringBase const* s);
FSTGeneric FSTLoadBasic(std::istream& is, char const* header);
FSTGeneric FSTBasic(FSTGeneric const& g);
FSTGeneric FSTCopy(FSTGeneric const& g);
FSTGeneric FSTMutableCopy(FSTGeneric const& g);
// Labels chosen as in the copy constructor: (1, 1) keeps inputs on both sides, (2, 2) outputs.
FSTGeneric FSTProject(FSTGeneric const& g, FSTArcOrder input_from, FSTArcOrder output_from);
FSTGeneric FSTReverse(FSTGeneric const& g);
FSTGeneric FSTClearWeights(FSTGeneric const& g);
// Weights become probabilities through the source semiring's convert.
FSTGeneric FSTConvert_to_PlusTimes(FSTGeneric const& g);
FSTGeneric FSTConvert_to_MinPlus(FSTGeneric const& g);
FSTGeneric FSTConvert_to_MaxPlus(FSTGeneric const& g);

#endif
