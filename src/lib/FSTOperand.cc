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

// Whether m is exactly of type T. Each of these types has its key function in this library, so
// its type_info object is unique and the address decides (a name comparison costs a call).
template <class T>
bool is(FSTGenericInt const& m) {
  return &typeid(m) == &typeid(T);
}

// The machine at the bottom of a chain of inversion views, and whether the chain swaps.
struct Resolved {
  FSTGenericInt const* machine;
  bool swapped;
};

Resolved resolve(FSTGenericInt const& m) {
  Resolved r{&m, false};
  while (is<FSTInvertRep>(*r.machine)) {
    r.machine = static_cast<FSTInvertRep const*>(r.machine)->operand().get();
    r.swapped = !r.swapped;
  }
  return r;
}

// Whether m answers label queries on one side in mode mode itself.
bool answers(FSTGenericInt const& m, bool on_input, FSTArcMode mode) {
  if (is<FSTDeterminizeRep>(m)) return false;
  if (is<FSTUnionRep>(m)) return mode == FSTArcModeEqual;
  if (is<FSTRtnRep>(m)) return on_input;
  if (is<FSTMmapRep>(m))
    return static_cast<FSTMmapRep const&>(m).compiled_order() ==
           (on_input ? FSTArcOrderInput : FSTArcOrderOutput);
  return true;
}

// Whether m hands out its arcs in order order.
bool sorts(FSTGenericInt const& m, FSTArcOrder order) {
  if (!is<FSTMmapRep>(m)) return true;
  FSTArcOrder compiled = static_cast<FSTMmapRep const&>(m).compiled_order();
  return order == FSTArcOrderAny || order == compiled;
}

// An LRU cache hands out its entries, which the next lookups may evict: callers get copies, so
// that they may ask for other states while they walk these arcs.
// Owned copies of arcs, sorted in order.
FSTArcIter copied(FSTArcIter const& arcs, FSTArcOrder order) {
  FSTArcList list;
  for (FSTArc* a : arcs) list.add(a->input, a->output, a->weight, a->to, a->from);
  return list.iter(order);
}

FSTArcIter kept(FSTGenericInt const& m, FSTArcIter arcs) {
  return is<FSTCacheLRURep>(m) ? copied(arcs, FSTArcOrderAny) : arcs;
}

FSTArcOrder swap(FSTArcOrder order) {
  return order == FSTArcOrderInput    ? FSTArcOrderOutput
         : order == FSTArcOrderOutput ? FSTArcOrderInput
                                      : order;
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
  return is<FSTUnionRep>(bottom) ? bottom.input_alphabet() : bottom.output_alphabet();
}

}  // namespace

FSTArcIter FSTOperandArcs(FSTGenericInt const& m, int p, FSTArcOrder order) {
  Resolved const r = resolve(m);
  FSTArcOrder const asked = r.swapped ? swap(order) : order;
  if (sorts(*r.machine, asked)) return kept(m, m.arcs_out(p, asked));
  return copied(m.arcs_out(p, FSTArcOrderAny), order);
}

FSTOperandProbe::FSTOperandProbe(FSTGenericInt const& m, bool on_input, FSTArcMode mode)
    : _on_input(on_input), _copy(is<FSTCacheLRURep>(m)), _mode(mode) {
  Resolved const r = resolve(m);
  // Each inversion forwards a query as it is, so the bottom machine filters on this side.
  bool const bottom_input = on_input != r.swapped;
  _way = !answers(*r.machine, bottom_input, mode) ? _Way::filtered
         : bottom_input                            ? _Way::input
                                                   : _Way::output;
}

FSTArcIter FSTOperandProbe::operator()(FSTGenericInt const& m, int p, int label) const {
  if (_way == _Way::filtered)
    return FSTSelectArcs(m.arcs_out(p, FSTArcOrderAny), label, _mode, _on_input);
  FSTArcIter arcs = _way == _Way::input ? m.arcs_out_with_input(p, label, _mode)
                                        : m.arcs_out_with_output(p, label, _mode);
  return _copy ? kept(m, arcs) : arcs;
}

FSTArcIter FSTOperandArcsWithInput(FSTGenericInt const& m, int p, int label, FSTArcMode mode) {
  return FSTOperandProbe(m, true, mode)(m, p, label);
}

FSTArcIter FSTOperandArcsWithOutput(FSTGenericInt const& m, int p, int label, FSTArcMode mode) {
  return FSTOperandProbe(m, false, mode)(m, p, label);
}

fst::set<int> const& FSTOperandInputAlphabet(FSTGenericInt const& m) { return alphabet(m, true); }
fst::set<int> const& FSTOperandOutputAlphabet(FSTGenericInt const& m) { return alphabet(m, false); }

bool FSTOperandProbesInput(FSTGenericInt const& m) { return probes(m, true); }
bool FSTOperandProbesOutput(FSTGenericInt const& m) { return probes(m, false); }

bool FSTOperandListsArcs(FSTGenericInt const& m) {
  return !is<FSTBackoffRep>(*resolve(m).machine);
}

void FSTOperandForce(FSTGenericInt const& m) {
  if (!is<FSTDeterminizeRep>(m)) return m.force();
  for (int p = 0; p < m.states().size(); ++p) m.arcs_out(p, FSTArcOrderAny);
}
