// An arc cache over a (lazy) machine: each state's arcs are asked of the wrapped machine once and
// answered from copies afterwards. A hit costs a table lookup; the cache holds every state it has
// expanded (a copy of each arc, 24 bytes, plus 48 bytes per state). Finality, potentials and the
// alphabets are asked of the wrapped machine. force() expands every state the wrapped machine
// reaches. Iterators point into the cache: valid until reset() or a re-sort.
#ifndef T2SFST_FSTCACHE_H
#define T2SFST_FSTCACHE_H

#include <vector>

#include "FSTGeneric.h"

class FSTCacheRep : public FSTGenericInt {
 public:
  explicit FSTCacheRep(FSTGeneric const& g);
  ~FSTCacheRep() override;

  fst::set<int> const& input_alphabet() const override;
  fst::set<int> const& output_alphabet() const override;
  int n_arcs_out(int p) const override;
  using FSTGenericInt::arcs_out;
  FSTArcIter arcs_out(int p, FSTArcOrder o = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  bool is_final(int p) const override { return _machine->is_final(p); }
  float final_weight(int p) const override { return _machine->final_weight(p); }
  float potential(int p) const override { return _machine->potential(p); }
  void force() const override;
  void reset() const override;

  // Lookups answered from the cache over all lookups, each count taken as at least 1 (so a
  // fresh cache reports 1, and no hits in four lookups 0.25).
  float hit_rate() const;
  // The same, with the hits and the lookups.
  float hit_rate(int& hits, int& lookups) const;

 protected:
  // One cached state; the links and the id serve the least-recently-used order.
  struct _Entry {
    FSTArcVector arcs;
    _Entry* previous;
    _Entry* next;
    int state;
  };
  static constexpr size_t _entry_units = 6;
  static_assert(sizeof(_Entry) <= _entry_units * FSTAllocator::unit_bytes, "48-byte entries");

  // A hit on a cached entry, and a new entry about to be filled.
  virtual void _on_hit(_Entry*) const {}
  virtual void _on_insert(_Entry*) const {}
  // Frees an entry and empties its slot.
  void _drop(_Entry* entry) const;

  FSTGeneric _machine;
  mutable std::vector<_Entry*> _table;
  mutable int _hits = 0;
  mutable int _misses = 0;

 private:
  // The entry of p, from the cache or expanded; keeps the hit and miss counts.
  _Entry* _lookup(int p) const;
  void _sort_arcs(FSTArcOrder order) const;
  void _clear() const;

  mutable FSTArcOrder _arc_order = FSTArcOrderAny;
};

FSTGeneric FSTCache(FSTGeneric const& g);

#endif
