#include "FSTCache.h"

#include <algorithm>

#include "FSTOperand.h"
#include "FSTlib.h"

FSTCacheRep::FSTCacheRep(FSTGeneric const& g) : _machine(g) {
  name = "FSTCache";
  _semiring = g->semiring();
  _initial = g->initial();
  _table.assign(size_t(g->states().size()), nullptr);
  _n_states = int(_table.size());
  _n_arcs = 0;
}

FSTCacheRep::~FSTCacheRep() { _clear(); }

void FSTCacheRep::_drop(_Entry* entry) const {
  for (FSTArc* a : entry->arcs) FSTDeleteArc(a);
  _n_arcs -= int(entry->arcs.size());
  _table[size_t(entry->state)] = nullptr;
  entry->~_Entry();
  FSTAllocator::_deallocate(entry, _entry_units);
}

void FSTCacheRep::_clear() const {
  for (_Entry* entry : _table)
    if (entry) _drop(entry);
}

FSTCacheRep::_Entry* FSTCacheRep::_lookup(int p) const {
  FST_ASSERT_STATE(p);
  if (_Entry* entry = _table[size_t(p)]) {
    ++_hits;
    _on_hit(entry);
    return entry;
  }
  ++_misses;
  _Entry* entry = new (FSTAllocator::_allocate(_entry_units)) _Entry{{}, nullptr, nullptr, p};
  _on_insert(entry);
  FSTArcIter arcs = FSTOperandArcs(*_machine, p, _arc_order);
  // A lazy machine discovers states as it is walked: the table follows its count.
  _table.resize(std::max(_table.size(), size_t(_machine->states().size())), nullptr);
  _n_states = int(_table.size());
  entry->arcs.reserve(size_t(arcs.size()));
  for (FSTArc* a : arcs) entry->arcs.push_back(FSTNewArc(*a));
  _n_arcs += int(entry->arcs.size());
  _table[size_t(p)] = entry;
  return entry;
}

fst::set<int> const& FSTCacheRep::input_alphabet() const {
  return FSTOperandInputAlphabet(*_machine);
}

fst::set<int> const& FSTCacheRep::output_alphabet() const {
  return FSTOperandOutputAlphabet(*_machine);
}

int FSTCacheRep::n_arcs_out(int p) const { return int(_lookup(p)->arcs.size()); }

FSTArcIter FSTCacheRep::arcs_out(int p, FSTArcOrder o) const {
  _Entry* entry = _lookup(p);
  if (o != FSTArcOrderAny) _sort_arcs(o);
  return _iterate(entry->arcs.data(), entry->arcs.data() + entry->arcs.size());
}

FSTArcIter FSTCacheRep::arcs_out_with_input(int p, int label, FSTArcMode m) const {
  _Entry* entry = _lookup(p);
  _sort_arcs(FSTArcOrderInput);
  FSTArc* const* arcs = entry->arcs.data();
  auto range = _select_sorted(arcs, arcs + entry->arcs.size(), label, m, true);
  return _iterate(range.first, range.second);
}

FSTArcIter FSTCacheRep::arcs_out_with_output(int p, int label, FSTArcMode m) const {
  _Entry* entry = _lookup(p);
  _sort_arcs(FSTArcOrderOutput);
  FSTArc* const* arcs = entry->arcs.data();
  auto range = _select_sorted(arcs, arcs + entry->arcs.size(), label, m, false);
  return _iterate(range.first, range.second);
}

void FSTCacheRep::_sort_arcs(FSTArcOrder order) const {
  if (order == _arc_order || order == FSTArcOrderAny) return;
  if (_arc_order != FSTArcOrderAny)
    FSTWarn("%s: resorting arcs from order %d to order %d is inefficient", name.c_str(),
            int(_arc_order), int(order));
  _arc_order = order;
  for (_Entry* entry : _table)
    if (entry) FSTGenericInt::_sort_arcs(entry->arcs, order);
}

void FSTCacheRep::force() const {
  for (int p = 0; p < _n_states; ++p) _lookup(p);
}

void FSTCacheRep::reset() const {
  _machine->reset();
  _clear();
  _hits = _misses = 0;
  _n_arcs = 0;
  _arc_order = FSTArcOrderAny;
  _initial = _machine->initial();
  _table.assign(size_t(_machine->states().size()), nullptr);
  _n_states = int(_table.size());
}

float FSTCacheRep::hit_rate() const {
  int hits, lookups;
  return hit_rate(hits, lookups);
}

float FSTCacheRep::hit_rate(int& hits, int& lookups) const {
  hits = _hits;
  lookups = _hits + _misses;
  return float(std::max(hits, 1)) / float(std::max(lookups, 1));
}

FSTGeneric FSTCache(FSTGeneric const& g) { return new FSTCacheRep(g); }
