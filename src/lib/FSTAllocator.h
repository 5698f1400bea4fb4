// Page-pool allocator for the toolkit's many small equally sized objects (arcs, states, set
// nodes, short arrays): blocks of up to 16 eight-byte units come from pages dedicated to one
// size with no per-object header; larger requests go to the general heap. Pages come from the
// system in 2 MB chunks and, once released, wait in a spare pool for reuse; past a few
// megabytes of spare pages their memory goes back to the system (the pages stay mapped).
#ifndef T2SFST_FSTALLOCATOR_H
#define T2SFST_FSTALLOCATOR_H

#include <cstddef>
#include <iosfwd>
#include <list>
#include <map>
#include <set>
#include <vector>

class FSTAllocator {
 public:
  static constexpr size_t unit_bytes = 8;
  static constexpr size_t max_units = 16;
  static constexpr size_t page_header_bytes = 48;

  // Blocks of units x 8 bytes, 1 <= units <= 16; 0 units gives null.
  static void* _allocate(size_t units);
  static void _deallocate(void* p, size_t units);

  // Byte interface: up to 128 bytes from the pools, more from the general heap.
  static void* allocate(size_t bytes);
  static void deallocate(void* p, size_t bytes);

  // Not supported: fails its assertion on every call.
  static void* reallocate(void* p, size_t old_bytes, size_t new_bytes);

  // Releases every cached empty page of every class.
  static void gc();

  // Writes the usage table of every class and the pages held.
  static void status(std::ostream& os);

  struct ClassUsage {
    long used;        // objects handed out
    int full_pages;   // pages with no free object
    int mixed_pages;  // pages with free and used objects
    int empty_pages;  // cached pages with no object in use
    int capacity;     // objects per page
  };
  static ClassUsage usage(size_t units);
  static size_t page_size();

 private:
  struct Page;
  struct PageList {
    Page* first;
  };
  struct SizeClass;
  struct Pools;
  static Pools _pools;

  static void _initialise();
  static void* _allocate_from_new_page(SizeClass& c, size_t units);
  static Page* _new_page();
  static void _page_became_empty(SizeClass& c, Page* page);
  static void _return_to_spare_pool(Page* page);
  static void _release_spare_pages();
};

namespace fst {

// Standard allocator that routes containers through FSTAllocator's byte interface.
template <class T>
struct allocator {
  using value_type = T;
  allocator() noexcept = default;
  template <class U>
  allocator(allocator<U> const&) noexcept {}
  T* allocate(size_t n) { return static_cast<T*>(FSTAllocator::allocate(n * sizeof(T))); }
  void deallocate(T* p, size_t n) noexcept { FSTAllocator::deallocate(p, n * sizeof(T)); }
  template <class U>
  bool operator==(allocator<U> const&) const noexcept {
    return true;
  }
  template <class U>
  bool operator!=(allocator<U> const&) const noexcept {
    return false;
  }
};

template <class T>
using vector = std::vector<T, allocator<T>>;
template <class T, class Less = std::less<T>>
using set = std::set<T, Less, allocator<T>>;
template <class K, class V, class Less = std::less<K>>
using map = std::map<K, V, Less, allocator<std::pair<K const, V>>>;
template <class T>
using list = std::list<T, allocator<T>>;

}  // namespace fst

// ---- inline fast paths -------------------------------------------------------------------------

struct FSTAllocator::Page {
  // The 48-byte header that starts every page.
  Page* next;
  Page** prev_link;  // the previous page's `next`, or the list head
  void* start;
  void* free_objects;
  size_t n_free;
  void (*release)(Page*);

  void unlink() {
    *prev_link = next;
    if (next) next->prev_link = prev_link;
  }
  void push_front(PageList& list) {
    next = list.first;
    if (next) next->prev_link = &next;
    prev_link = &list.first;
    list.first = this;
  }
};

struct FSTAllocator::SizeClass {
  PageList mixed;
  PageList full;
  PageList empty;
  int n_empty;
  int capacity;
};

struct FSTAllocator::Pools {
  bool initialised;
  size_t page_size;
  size_t page_mask;
  size_t pages_per_megabyte;
  SizeClass classes[max_units + 1];
  Page* spare_pages;
  int n_spare_pages;
  // Spare pages beyond a few megabytes give their memory back (madvise) and wait here, in an
  // array mapped apart from the pages (a released page must not be written to).
  Page** released;
  size_t n_released, released_capacity;
  bool warned_fallback;
};

inline void* FSTAllocator::_allocate(size_t units) {
  if (units == 0) return nullptr;
  if (__builtin_expect(!_pools.initialised, 0)) _initialise();
  SizeClass& c = _pools.classes[units];
  Page* page = c.mixed.first;
  if (__builtin_expect(page == nullptr, 0)) return _allocate_from_new_page(c, units);
  void* object = page->free_objects;
  page->free_objects = *static_cast<void**>(object);
  if (--page->n_free == 0) {
    page->unlink();
    page->push_front(c.full);
  }
  return object;
}

inline void FSTAllocator::_deallocate(void* p, size_t units) {
  if (p == nullptr || units == 0) return;
  SizeClass& c = _pools.classes[units];
  Page* page = reinterpret_cast<Page*>(reinterpret_cast<size_t>(p) & _pools.page_mask);
  *static_cast<void**>(p) = page->free_objects;
  page->free_objects = p;
  size_t n_free = ++page->n_free;
  if (__builtin_expect(n_free == 1, 0)) {
    page->unlink();
    page->push_front(c.mixed);
  }
  if (__builtin_expect(n_free == size_t(c.capacity), 0)) _page_became_empty(c, page);
}

inline void* FSTAllocator::allocate(size_t bytes) {
  size_t units = (bytes + unit_bytes - 1) / unit_bytes;
  if (units <= max_units) return _allocate(units);
  return new char[bytes];
}

inline void FSTAllocator::deallocate(void* p, size_t bytes) {
  if (bytes == 0) return;
  size_t units = (bytes + unit_bytes - 1) / unit_bytes;
  if (units <= max_units)
    _deallocate(p, units);
  else
    delete[] static_cast<char*>(p);
}

#endif
