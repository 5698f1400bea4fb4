// Lazy epsilon removal. A result state is an epsilon closure: input states, each with at most
// one output label still waiting to be emitted, weighted by the epsilon paths that reach them.
// Cost: a state without epsilon arcs is its own closure and costs 16 bytes and no hashing; other
// closures are searched over the epsilon arcs they reach, stored sorted and found by hash.
#ifndef T2SFST_FSTREMOVEEPSILONS_H
#define T2SFST_FSTREMOVEEPSILONS_H

#include "FSTLazy.h"
#include "FSTOperand.h"

namespace fst_remove_epsilons {

// (input state, pending output label); 0 means nothing is pending.
struct _StateOutput {
  int state;
  int output;
  bool operator<(_StateOutput const& o) const {
    return state != o.state ? state < o.state : output < o.output;
  }
};

// A closure while it is computed.
using _WorkSet = fst::map<_StateOutput, float>;

// A finished closure: entries sorted by key, so closures compare over contiguous memory. Besides
// its real entries it holds (-2, 0) = potential and (-1, 0) = final weight, which sort first.
using _Set = fst::vector<std::pair<_StateOutput, float>>;

// Closures are the same when neither is less: same entries, weights within the tolerance.
struct _SetLess {
  float tolerance = 0;
  bool operator()(_Set const& a, _Set const& b) const;
};

// The closure index finds equal closures by hashing their keys (weights may differ within the
// tolerance, so they stay out of the hash) and testing with _SetLess both ways.
struct _SetHash {
  size_t operator()(_Set const& set) const;
};
struct _SetEqual {
  _SetLess less;
  bool operator()(_Set const& a, _Set const& b) const { return !less(a, b) && !less(b, a); }
};
using _SetIndex = FSTHashTable<_Set, _SetHash, _SetEqual>;

}  // namespace fst_remove_epsilons

class FSTRemoveEpsilonsRep
    : public FSTLazyRep<fst_remove_epsilons::_Set, fst_remove_epsilons::_SetIndex> {
 public:
  using _StateOutput = fst_remove_epsilons::_StateOutput;
  using _Set = fst_remove_epsilons::_Set;
  using _WorkSet = fst_remove_epsilons::_WorkSet;

  // fsa: acceptor mode, where only arcs with both labels epsilon are removed; the only mode for
  // a non-idempotent semiring. delta: closures whose weights differ by no more are one state.
  FSTRemoveEpsilonsRep(FSTGeneric const& in, bool fsa, float delta);
  ~FSTRemoveEpsilonsRep() override;

  fst::set<int> const& input_alphabet() const override { return FSTOperandInputAlphabet(*_fst); }
  fst::set<int> const& output_alphabet() const override { return FSTOperandOutputAlphabet(*_fst); }
  using FSTGenericInt::arcs_out;
  FSTArcIter arcs_out(int p, FSTArcOrder order = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  bool is_final(int p) const override;
  float final_weight(int p) const override;
  float potential(int p) const override;
  void force() const override;
  void reset() const override;
  FSTGeneric reload(bool& changed) override;

  // The input states of result state p's closure.
  void state_set(int p, fst::set<int>& out) const;

 private:
  using FSTLazyRep::_find_or_add_state;
  int _find_or_add_state(int q, int o) const;
  int _find_or_add_closure(_Set&& set) const;
  // Whether input state q's closure is q alone, kept: no epsilon-input arc, and some arc.
  bool _alone(int q) const;
  // The input state whose closure is result state p when that is the state alone, else -1.
  int _alone_state(int p) const {
    return size_t(p) < _alone_states.size() ? _alone_states[size_t(p)] : -1;
  }
  void _init() const;
  float _entry(int p, int pseudo_state) const;

  _Set _closure(_StateOutput start) const;
  // Calls visit(target entry, arc) for each epsilon-input arc the closure follows from e.
  template <class Visit>
  void _followed_arcs(_StateOutput e, Visit visit) const;
  void _closure_idempotent(_WorkSet& set, _StateOutput start) const;
  bool _closure_idempotent_acyclic(_WorkSet& set, _StateOutput start, bool& better_seen) const;
  void _closure_idempotent_cyclic_dijkstra(_WorkSet& set, _StateOutput start) const;
  void _closure_idempotent_cyclic_bellman_ford(_WorkSet& set, _StateOutput start) const;
  void _closure_non_idempotent(_WorkSet& set, _StateOutput start) const;
  void _prune(_WorkSet& set) const;
  void _add_arcs(FSTArcList& list, int p, _StateOutput e, float w) const;
  void _add_final_arc(FSTArcList& list, int p, _StateOutput e, float w) const;

  FSTGeneric _fst;
  // (state, pending) seen before -> result state: those with nothing pending by input state
  // (-1 where unseen), the others in a map.
  mutable fst::vector<int> _plain_pairs;
  mutable fst::map<_StateOutput, int> _pairs;
  // Result state -> input state, for closures of a state alone: those states have no key, so
  // epsilon-free states cost no set, hashing or comparison.
  mutable fst::vector<int> _alone_states;
  bool _fsa;
};

FSTGeneric FSTRemoveEpsilons(FSTGeneric const& in, bool fsa, float delta);
FSTGeneric FSTRemoveEpsilonsA(FSTGeneric const& in, float delta);
void FSTRemoveEpsilonsStateSet(FSTGeneric const& m, int p, fst::set<int>& out);

#endif
