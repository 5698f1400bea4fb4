#include "FSTOperand.h"

#include <typeinfo>

#include "FSTBackoff.h"
#include "FSTCacheLRU.h"
#include "FSTDeterminize.h"
#include "FSTInvert.h"
#include "FSTLazy.h"
#include "FSTMmap.h"
#include "FSTRtn.h"
#include "FSTUnion.h"

namespace {

// The machine at the bottom of a chain of inversion views, and whether the chain swaps.
struct Resolved {
  FSTGenericInt const* machine;
  bool swapped;
};

Resolved resolve(FSTGenericInt const& m) {
  Resolved r{&m, false};
  while (typeid(*r.machine) == typeid(FSTInvertRep)) {
    r.machine = static_cast<FSTInvertRep const*>(r.machine)->operand().get();
    r.swapped = !r.swapped;
  }
  return r;
}

// Whether m answers label queries on one side in mode mode itself.
bool answers(FSTGenericInt const& m, bool on_input, FSTArcMode mode) {
  std::type_info const& type = typeid(m);
  if (type == typeid(FSTDeterminizeRep)) return false;
  if (type == typeid(FSTUnionRep)) return mode == FSTArcModeEqual;
  if (type == typeid(FSTRtnRep)) return on_input;
  if (type == typeid(FSTMmapRep))
    return static_cast<FSTMmapRep const&>(m).compiled_order() ==
           (on_input ? FSTArcOrderInput : FSTArcOrderOutput);
  return true;
}

// Whether m hands out its arcs in order order.
bool sorts(FSTGenericInt const& m, FSTArcOrder order) {
  if (typeid(m) != typeid(FSTMmapRep)) return true;
  FSTArcOrder compiled = static_cast<FSTMmapRep const&>(m).compiled_order();
  return order == FSTArcOrderAny || order == compiled;
}

// An LRU cache hands out its entries, which the next lookups may evict: callers get copies, so
// that they may ask for other states while they walk these arcs.
FSTArcIter kept(FSTGenericInt const& m, FSTArcIter arcs, FSTArcOrder order = FSTArcOrderAny) {
  if (typeid(m) != typeid(FSTCacheLRURep)) return arcs;
  FSTArcList list;
  for (FSTArc* a : arcs) list.add(a->input, a->output, a->weight, a->to, a->from);
  return list.iter(order);
}

FSTArcOrder swap(FSTArcOrder order) {
  return order == FSTArcOrderInput    ? FSTArcOrderOutput
         : order == FSTArcOrderOutput ? FSTArcOrderInput
                                      : order;
}

FSTArcIter with_label(FSTGenericInt const& m, int p, int label, FSTArcMode mode, bool on_input) {
  Resolved const r = resolve(m);
  // Each inversion forwards a query as it is, so the bottom machine filters on this side.
  bool const bottom_input = on_input != r.swapped;
  if (!answers(*r.machine, bottom_input, mode))
    return FSTSelectArcs(m.arcs_out(p, FSTArcOrderAny), label, mode, on_input);
  return kept(m, bottom_input ? m.arcs_out_with_input(p, label, mode)
                              : m.arcs_out_with_output(p, label, mode));
}

bool probes(FSTGenericInt const& m, bool on_input) {
  Resolved const r = resolve(m);
  return answers(*r.machine, on_input != r.swapped, FSTArcModeEqual);
}

// Inversions report the bottom machine's alphabets unswapped. A union reports {0} as its output
// alphabet; its input alphabet holds both sides of every operand, its tags and epsilon.
fst::set<int> const& alphabet(FSTGenericInt const& m, bool on_input) {
  Resolved const r = resolve(m);
  FSTGenericInt const& bottom = *r.machine;
  if (on_input != r.swapped) return bottom.input_alphabet();
  return typeid(bottom) == typeid(FSTUnionRep) ? bottom.input_alphabet() : bottom.output_alphabet();
}

}  // namespace

FSTArcIter FSTOperandArcs(FSTGenericInt const& m, int p, FSTArcOrder order) {
  Resolved const r = resolve(m);
  FSTArcOrder const asked = r.swapped ? swap(order) : order;
  if (sorts(*r.machine, asked)) return kept(m, m.arcs_out(p, asked));
  FSTArcList list;
  for (FSTArc* a : m.arcs_out(p, FSTArcOrderAny))
    list.add(a->input, a->output, a->weight, a->to, a->from);
  return list.iter(order);
}

FSTArcIter FSTOperandArcsWithInput(FSTGenericInt const& m, int p, int label, FSTArcMode mode) {
  return with_label(m, p, label, mode, true);
}

FSTArcIter FSTOperandArcsWithOutput(FSTGenericInt const& m, int p, int label, FSTArcMode mode) {
  return with_label(m, p, label, mode, false);
}

fst::set<int> const& FSTOperandInputAlphabet(FSTGenericInt const& m) { return alphabet(m, true); }
fst::set<int> const& FSTOperandOutputAlphabet(FSTGenericInt const& m) { return alphabet(m, false); }

bool FSTOperandProbesInput(FSTGenericInt const& m) { return probes(m, true); }
bool FSTOperandProbesOutput(FSTGenericInt const& m) { return probes(m, false); }

bool FSTOperandListsArcs(FSTGenericInt const& m) {
  return typeid(*resolve(m).machine) != typeid(FSTBackoffRep);
}

void FSTOperandForce(FSTGenericInt const& m) {
  if (typeid(m) != typeid(FSTDeterminizeRep)) return m.force();
  for (int p = 0; p < m.states().size(); ++p) m.arcs_out(p, FSTArcOrderAny);
}
