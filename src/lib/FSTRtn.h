// A recursive transition network: a top machine whose arcs may call named rule machines. An arc
// whose input label is a rule's name behaves as if it were replaced by that rule's machine,
// entered at its initial state and left from each final state (with its final weight) to the
// arc's destination. States are stacks of calls, discovered lazily.
//
// Recursion that keeps the language regular gives exactly that language, with a finite machine:
// - right-linear rules (every call among rules of one cycle is the rule's last move: its return
//   state is final with no arcs) are tail calls, which replace the top of the stack;
// - left-linear rules (every call among rules of one cycle leaves the caller's initial state,
//   which no arc enters) are entered at the rule that ends the chain of calls, guessed at once,
//   and the chain is unwound on the way back: a frame remembers the rule that was called from
//   outside, and returns to the callers' states after their left calls until that rule is done.
// Any other recursion is cut at max_depth nested calls of its cycle, and calls are cut once the
// network has max_states states (process-wide, FSTRtnSetMaxStates); the grammar is warned about
// when the network is built, and each cut once.
//
// mark_rules: the output brackets each rule's words with the rule's name and "</name>" (tail
// calls and left-linear chains, which would skip labels, are then ordinary calls).
#ifndef T2SFST_FSTRTN_H
#define T2SFST_FSTRTN_H

#include <string>

#include "FSTLazy.h"

struct FSTRtnStackItem {
  int machine;  // -1: the top machine, else the rule's index
  int state;
  int root = -1;  // in a left-linear chain, the rule called from outside it
  bool operator<(FSTRtnStackItem const& o) const {
    if (machine != o.machine) return machine < o.machine;
    return state != o.state ? state < o.state : root < o.root;
  }
  bool operator==(FSTRtnStackItem const& o) const {
    return machine == o.machine && state == o.state && root == o.root;
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

  // The network's parts, as FSTDumpRtn writes them.
  FSTGeneric const& top() const { return _top; }
  fst::vector<std::string> const& nonterminals() const { return _names; }
  fst::vector<FSTGeneric> const& nonterminal_fsts() const { return _fsts; }
  bool mark_rules() const { return _mark_rules; }
  // Replaces the machine of a nonterminal and forgets every state computed so far. Returns
  // false when the network has no such nonterminal.
  bool set(std::string const& nonterminal, FSTGeneric const& machine);

 protected:
  // Called by reset() before the states are rebuilt, for views that rebind their parts.
  virtual void _refresh() const {}
  // Takes new nonterminals (and what depends on them); the caller resets.
  void _bind(fst::vector<std::string> const& nonterminals,
             fst::vector<FSTGeneric> const& nonterminal_fsts) const;

 private:
  enum class _Recursion { none, right_linear, left_linear, other };
  struct _LeftCall {  // an arc of rule caller's initial state calling a rule of its cycle
    int caller;
    int to;
    float weight;
  };
  FSTGenericInt const& _machine(int index) const;
  int _rule_of(int label) const;
  // Whether a call's return state is final with no arcs, so the call can replace its frame.
  bool _is_tail_call(FSTGenericInt const& m, FSTArc const* call) const;
  void _init() const;
  void _setup() const;
  // The cycles of calls among rules and the kind of recursion of each.
  void _classify_recursion() const;
  _Recursion _recursion_of(int rule) const;
  // Cut calls of a cycle that is not regular: too deep, or the network too large.
  bool _cut_call(_Stack const& stack, int rule) const;

  // Mutable: a view rebinds its nonterminals when reset.
  FSTGeneric _top;
  mutable fst::vector<std::string> _names;
  mutable fst::vector<FSTGeneric> _fsts;
  mutable fst::map<int, int> _rule_by_label;
  mutable fst::vector<int> _close_labels;  // "</name>" per rule, when marking
  bool _mark_rules;
  mutable std::vector<int> _component;  // per rule, its cycle (-1: none)
  mutable std::vector<_Recursion> _component_recursion;
  mutable std::vector<std::vector<int>> _component_rules;
  mutable std::vector<std::vector<_LeftCall>> _left_calls_into;  // per rule, in left-linear cycles
  mutable bool _warned_depth = false;
  mutable bool _warned_size = false;
  mutable fst::set<int> _input_alphabet;
  mutable fst::set<int> _output_alphabet;
};

// The state count past which networks expand no more calls (at least 1; default
// FSTRtnRep::default_max_states). Returns the previous value.
int FSTRtnSetMaxStates(int max_states);

FSTGeneric FSTRtn(FSTGeneric const& top, fst::vector<std::string> const& nonterminals,
                  fst::vector<FSTGeneric> const& nonterminal_fsts, bool mark_rules);

// Replaces one nonterminal's machine in the network rtn and resets it. Stops when rtn is no
// network or has no such nonterminal. (A dynamic view reads its classes from the class table at
// each reset: change those with FSTDynamicSet.)
void FSTRtnSet(FSTGeneric const& rtn, std::string const& nonterminal, FSTGeneric const& machine);

// ---- the "#FSTRtn" file ----
//
//   #FSTRtn Version=1 [MarkRules]
//   top N            then N lines: the top machine in any text format
//   <name> N         then N lines: the machine of the nonterminal <name>
//   <name> = SPEC    or a machine loaded from SPEC (a file, relative to the network's own
//                    folder, or an expression)
// The top machine comes first; the entries share one semiring.

// Writes rtn (an FSTRtn) with every machine inline.
void FSTDumpRtn(FSTGeneric const& rtn, std::ostream& os);
// Reads the entries after the header line; file names the source (may be null).
FSTGeneric FSTLoadRtn(std::istream& is, char const* header, char const* file);

#endif
