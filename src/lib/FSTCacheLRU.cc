#include "FSTCacheLRU.h"

#include "FSTlib.h"

FSTCacheLRURep::FSTCacheLRURep(FSTGeneric const& g, int size) : FSTCacheRep(g), _capacity(size) {
  FST_ASSERT(size >= 1);
  name = "FSTCacheLRU";
}

void FSTCacheLRURep::_unlink(_Entry* entry) const {
  (entry->previous ? entry->previous->next : _head) = entry->next;
  (entry->next ? entry->next->previous : _tail) = entry->previous;
  entry->previous = entry->next = nullptr;
}

void FSTCacheLRURep::_link_at_head(_Entry* entry) const {
  entry->previous = nullptr;
  entry->next = _head;
  (_head ? _head->previous : _tail) = entry;
  _head = entry;
}

void FSTCacheLRURep::_cache_move_to_head(_Entry* entry) const {
  if (entry == _head) return;
  _unlink(entry);
  _link_at_head(entry);
}

void FSTCacheLRURep::_cache_insert_at_head(_Entry* entry) const {
  if (++_cached > _capacity) {
    --_cached;
    _Entry* oldest = _tail;
    _unlink(oldest);
    _drop(oldest);
  }
  _link_at_head(entry);
}

void FSTCacheLRURep::reset() const {
  FSTCacheRep::reset();
  _head = _tail = nullptr;
  _cached = 0;
}

FSTGeneric FSTCacheLRU(FSTGeneric const& g, int size) { return new FSTCacheLRURep(g, size); }
