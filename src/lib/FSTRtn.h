// A recursive transition network: a top machine whose arcs may call named rule machines. An arc
// whose input label is a rule's name behaves as if it were replaced by that rule's machine,
// entered at its initial state and left from each final state (with its final weight) to the
// arc's destination. States are stacks of calls, discovered lazily.
//
// A call whose return state is final with no arcs is a tail call: it replaces the top of the
// stack, so right recursion (a rule calling itself, or rules calling each other, at their ends)
// keeps the machine finite and the language exact. Any other nesting is cut at max_depth calls:
// left recursion and recursion in the middle of a rule, whose languages need not be regular,
// are expanded to that depth (left recursion is warned about when the network is built).
// Such nesting can grow exponentially with the depth, so calls are also cut once the network has
// max_states states (process-wide, FSTRtnSetMaxStates); each cut is warned about once.
//
// mark_rules: the output brackets each rule's words with the rule's name and "</name>" (and
// tail calls, which would skip the closing label, are then ordinary calls).
#ifndef T2SFST_FSTRTN_H
#define T2SFST_FSTRTN_H

#include <string>

#include "FSTLazy.h"

struct FSTRtnStackItem {
  int machine;  // -1: the top machine, else the rule's index
  int state;
  bool operator<(FSTRtnStackItem const& o) const {
    return machine != o.machine ? machine < o.machine : state < o.state;
  }
  bool operator==(FSTRtnStackItem const& o) const {
    return machine == o.machine && state == o.state;
  }
};

class FSTRtnRep : public FSTLazyRep<fst::vector<FSTRtnStackItem>> {
 public:
  using _StackItem = FSTRtnStackItem;
  using _Stack = fst::vector<_StackItem>;
  static constexpr int max_depth = 16;
  static constexpr int default_max_states = 200000;

  FSTRtnRep(FSTGeneric const& top, fst::vector<std::string> const& nonterminals,
            fst::vector<FSTGeneric> const& nonterminal_fsts, bool mark_rules);
  ~FSTRtnRep() override;

  fst::set<int> const& input_alphabet() const override { return _input_alphabet; }
  fst::set<int> const& output_alphabet() const override { return _output_alphabet; }
  using FSTGenericInt::arcs_out;
  FSTArcIter arcs_out(int p, FSTArcOrder order = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  // Not provided.
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  // Final only with no call pending.
  bool is_final(int p) const override;
  float final_weight(int p) const override;
  float potential(int p) const override;
  void force() const override;
  void reset() const override;
  FSTGeneric reload(bool& changed) override;

 private:
  FSTGenericInt const& _machine(int index) const;
  int _rule_of(int label) const;
  // Whether a call's return state is final with no arcs, so the call can replace its frame.
  bool _is_tail_call(FSTGenericInt const& m, FSTArc const* call) const;
  void _init() const;
  void _setup();
  void _warn_left_recursion() const;

  FSTGeneric _top;
  fst::vector<std::string> _names;
  fst::vector<FSTGeneric> _fsts;
  fst::map<int, int> _rule_by_label;
  fst::vector<int> _close_labels;  // "</name>" per rule, when marking
  bool _mark_rules;
  mutable bool _warned_depth = false;
  mutable bool _warned_size = false;
  fst::set<int> _input_alphabet;
  fst::set<int> _output_alphabet;
};

// The state count past which networks expand no more calls (at least 1; default
// FSTRtnRep::default_max_states). Returns the previous value.
int FSTRtnSetMaxStates(int max_states);

FSTGeneric FSTRtn(FSTGeneric const& top, fst::vector<std::string> const& nonterminals,
                  fst::vector<FSTGeneric> const& nonterminal_fsts, bool mark_rules);

#endif
