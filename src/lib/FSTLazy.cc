#include "FSTLazy.h"

FSTSemiringBase const* FSTOperandsSemiring(fst::vector<FSTGeneric> const& fsts,
                                           char const* mismatch_format) {
  if (fsts.empty()) return FSTMinPlus;
  FSTSemiringBase const* first = fsts[0]->semiring();
  for (FSTGeneric const& f : fsts)
    if (f->semiring() != first) FSTFatal(mismatch_format, first->name, f->semiring()->name);
  return first;
}

bool FSTReloadOperands(fst::vector<FSTGeneric>& fsts) {
  bool any = false;
  for (FSTGeneric& f : fsts) any |= f.reload();
  return any;
}
