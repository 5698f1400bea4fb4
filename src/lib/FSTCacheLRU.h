// An arc cache that holds at most a given number of states, dropping the least recently used
// one when it needs room: a hit and an eviction take constant time, memory is bounded by the
// capacity. An iterator into a state stays valid until that state is evicted: a caller walking one
// state's arcs must not expand more than capacity - 1 other states meanwhile. force() expands every
// reachable state in id order, as the unbounded cache does, and keeps the last ones expanded.
#ifndef T2SFST_FSTCACHELRU_H
#define T2SFST_FSTCACHELRU_H

#include "FSTCache.h"

class FSTCacheLRURep : public FSTCacheRep {
 public:
  // size: the most states held, at least 1.
  FSTCacheLRURep(FSTGeneric const& g, int size);

  void reset() const override;

 protected:
  void _on_hit(_Entry* entry) const override { _cache_move_to_head(entry); }
  void _on_insert(_Entry* entry) const override { _cache_insert_at_head(entry); }

 private:
  void _cache_move_to_head(_Entry* entry) const;
  void _cache_insert_at_head(_Entry* entry) const;
  void _unlink(_Entry* entry) const;
  void _link_at_head(_Entry* entry) const;

  mutable _Entry* _head = nullptr;  // most recently used
  mutable _Entry* _tail = nullptr;
  mutable int _cached = 0;
  int _capacity;
};

FSTGeneric FSTCacheLRU(FSTGeneric const& g, int size);

#endif
