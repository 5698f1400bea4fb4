#include "FSTDifference.h"

#include "FSTBasic.h"
#include "FSTCompose.h"
#include "FSTDeterminize.h"
#include "FSTOperand.h"
#include "FSTRemoveEpsilons.h"

FSTGeneric FSTComplement(FSTGeneric const& b, fst::set<int> const& alphabet) {
  // Unweighted first, so that determinization merges by strings alone.
  FSTGeneric d = FSTBasic(FSTDeterminize(
      FSTBasic(FSTRemoveEpsilons(FSTClearWeights(FSTProject(b, FSTArcOrderInput, FSTArcOrderInput)),
                                 true, 0.001f)),
      1, true, 0.001f, false));
  FSTSemiringBase const* s = d->semiring();
  FSTGeneric c = FSTBasic(s);
  int const n = d->states().size();
  int const sink = n;  // reads everything, accepts everything: what d cannot read
  c->add_states(n + 1);
  c->set_initial(d->initial() >= 0 ? d->initial() : sink);
  for (int p = 0; p <= n; ++p) {
    fst::set<int> read;
    if (p < n)
      for (FSTArc* a : d->arcs_out(p, FSTArcOrderAny))
        if (alphabet.count(a->input)) {
          c->add_arc(p, a->to, a->input, a->input, s->one);
          read.insert(a->input);
        }
    for (int label : alphabet)
      if (label != 0 && !read.count(label)) c->add_arc(p, sink, label, label, s->one);
    if (p == sink || !d->is_final(p)) c->set_final(p, s->one);
  }
  return c;
}

namespace {

// The input labels on m's arcs, epsilon aside (every state discovered first).
void add_input_labels(FSTGeneric const& m, fst::set<int>& labels) {
  FSTOperandForce(*m);
  for (int p = 0; p < m->states().size(); ++p)
    for (FSTArc* a : m->arcs_out(p, FSTArcOrderAny))
      if (a->input) labels.insert(a->input);
}

}  // namespace

FSTGeneric FSTDifference(FSTGeneric const& a, FSTGeneric const& b) {
  fst::set<int> alphabet;
  add_input_labels(a, alphabet);
  add_input_labels(b, alphabet);
  // The complement reads a's inputs and hands them on unchanged.
  return FSTCompose(FSTComplement(b, alphabet), a);
}
