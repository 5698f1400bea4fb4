#include "FSTAllocator.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ostream>

#include "FSTlib.h"

// Zero-initialised at load time, so allocation works from any static constructor.
FSTAllocator::Pools FSTAllocator::_pools;

namespace {

// Spare pages kept resident for reuse; the excess is given back in one batch of sorted pages.
size_t const resident_spare_bytes = size_t(8) << 20;

}  // namespace

void FSTAllocator::_return_to_spare_pool(Page* page) {
  page->next = _pools.spare_pages;
  _pools.spare_pages = page;
  if (size_t(++_pools.n_spare_pages) * _pools.page_size > 2 * resident_spare_bytes)
    _release_spare_pages();
}

// Gives the memory of the spare pages beyond resident_spare_bytes back to the system with
// madvise, one call per run of adjacent pages; the pages stay mapped, so the count of mappings
// does not grow, and a released page reads as zeros when it is taken again.
void FSTAllocator::_release_spare_pages() {
  size_t const P = _pools.page_size, keep = resident_spare_bytes / P;
  size_t const n = size_t(_pools.n_spare_pages) - keep;
  if (_pools.n_released + n > _pools.released_capacity) {
    size_t capacity = std::max(_pools.released_capacity * 2, _pools.n_released + n);
    void* memory = mmap(nullptr, capacity * sizeof(Page*), PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return;  // keep the pages resident instead
    Page** grown = static_cast<Page**>(memory);
    if (_pools.released) {
      std::copy(_pools.released, _pools.released + _pools.n_released, grown);
      munmap(_pools.released, _pools.released_capacity * sizeof(Page*));
    }
    _pools.released = grown;
    _pools.released_capacity = capacity;
  }
  Page** batch = _pools.released + _pools.n_released;
  for (size_t i = 0; i < n; ++i) {
    batch[i] = _pools.spare_pages;
    _pools.spare_pages = _pools.spare_pages->next;
  }
  _pools.n_spare_pages -= int(n);
  std::sort(batch, batch + n);
  for (size_t i = 0; i < n;) {
    size_t j = i + 1;
    while (j < n && reinterpret_cast<char*>(batch[j]) == reinterpret_cast<char*>(batch[j - 1]) + P)
      ++j;
    madvise(batch[i], (j - i) * P, MADV_DONTNEED);
    i = j;
  }
  _pools.n_released += n;
}

size_t FSTAllocator::page_size() {
  if (!_pools.initialised) _initialise();
  return _pools.page_size;
}

void FSTAllocator::_initialise() {
  static_assert(sizeof(Page) == page_header_bytes, "the page header is 48 bytes");
  size_t page_size = size_t(sysconf(_SC_PAGESIZE));
  FST_ASSERT(size_t(getpagesize()) == page_size);
  _pools.page_size = page_size;
  _pools.page_mask = ~(page_size - 1);
  _pools.pages_per_megabyte = 1048576 / page_size;
  for (size_t k = 1; k <= max_units; ++k) {
    SizeClass& c = _pools.classes[k];
    c.mixed.first = c.full.first = c.empty.first = nullptr;
    c.n_empty = 0;
    c.capacity = int((page_size - page_header_bytes) / (unit_bytes * k));
  }
  _pools.spare_pages = nullptr;
  _pools.n_spare_pages = 0;
  _pools.released = nullptr;
  _pools.n_released = _pools.released_capacity = 0;
  _pools.warned_fallback = false;
  _pools.initialised = true;
}

// A page from the spare pool, which is refilled from the system in 2 MB chunks; when mapping
// fails, from 1 MB blocks of the aligned heap. Pages go back to the spare pool for reuse, never
// to the system: unmapped one by one, each would stay a mapping of its own, and the kernel's
// limit on mappings is reached long before memory runs out.
FSTAllocator::Page* FSTAllocator::_new_page() {
  size_t const P = _pools.page_size;
  if (!_pools.spare_pages && _pools.n_released) {
    Page* page = _pools.released[--_pools.n_released];
    page->start = page;
    page->release = _return_to_spare_pool;
    return page;
  }
  if (!_pools.spare_pages) {
    size_t const chunk_pages = (size_t(2) << 20) / P;
    void* memory = mmap(nullptr, chunk_pages * P, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (memory != MAP_FAILED) {
      char* chunk = static_cast<char*>(memory);
      for (size_t i = chunk_pages; i-- > 0;) {
        Page* page = reinterpret_cast<Page*>(chunk + i * P);
        page->start = page;
        page->release = _return_to_spare_pool;
        _return_to_spare_pool(page);
      }
    } else {
      if (!_pools.warned_fallback) {
        FSTWarn("FSTAllocator: mmap failed -- using valloc");
        _pools.warned_fallback = true;
      }
      char* block = static_cast<char*>(valloc(_pools.pages_per_megabyte * P));
      if (!block) FSTFatal("FSTAllocator:: valloc failed, completely out of memory");
      for (size_t i = _pools.pages_per_megabyte; i-- > 0;) {
        Page* page = reinterpret_cast<Page*>(block + i * P);
        page->start = page;
        page->release = _return_to_spare_pool;
        _return_to_spare_pool(page);
      }
    }
  }
  Page* page = _pools.spare_pages;
  _pools.spare_pages = page->next;
  --_pools.n_spare_pages;
  return page;
}

void* FSTAllocator::_allocate_from_new_page(SizeClass& c, size_t units) {
  Page* page = c.empty.first;
  if (page) {
    page->unlink();
    --c.n_empty;
  } else {
    page = _new_page();
    // Thread every object into the free list in address order.
    size_t const object_bytes = units * unit_bytes;
    char* first = reinterpret_cast<char*>(page) + page_header_bytes;
    void** link = &page->free_objects;
    for (int i = 0; i < c.capacity; ++i) {
      void* object = first + i * object_bytes;
      *link = object;
      link = static_cast<void**>(object);
    }
    *link = nullptr;
    page->n_free = size_t(c.capacity);
  }
  page->push_front(c.mixed);
  return _allocate(units);
}

void FSTAllocator::_page_became_empty(SizeClass& c, Page* page) {
  // Keep one empty page per class so a block freed and taken again at a page boundary does
  // not map and unmap a page each time.
  if (c.empty.first) {
    Page* older = c.empty.first;
    older->unlink();
    --c.n_empty;
    older->release(older);
  }
  page->unlink();
  page->push_front(c.empty);
  ++c.n_empty;
}

void* FSTAllocator::reallocate(void*, size_t, size_t) {
  bool const not_implemented = false;
  FST_ASSERT(not_implemented);
  return nullptr;
}

void FSTAllocator::gc() {
  if (!_pools.initialised) return;
  for (size_t k = 1; k <= max_units; ++k) {
    SizeClass& c = _pools.classes[k];
    while (Page* page = c.empty.first) {
      page->unlink();
      page->release(page);
    }
    c.n_empty = 0;
  }
}

FSTAllocator::ClassUsage FSTAllocator::usage(size_t units) {
  if (!_pools.initialised) _initialise();
  SizeClass const& c = _pools.classes[units];
  ClassUsage u{0, 0, 0, c.n_empty, c.capacity};
  for (Page* p = c.full.first; p; p = p->next) {
    ++u.full_pages;
    u.used += c.capacity;
  }
  for (Page* p = c.mixed.first; p; p = p->next) {
    ++u.mixed_pages;
    u.used += c.capacity - long(p->n_free);
  }
  return u;
}

void FSTAllocator::status(std::ostream& os) {
  char line[128];
  auto put = [&os](char const* text) { os << text; };
  put("-----------------------------------------\n");
  put("FSTAllocator status\n");
  std::snprintf(line, sizeof line, "%4s %8s %6s %6s %6s %6s\n", "size", "used", "full", "mixed",
                "empty", "occup");
  put(line);
  size_t const P = page_size();
  long pages = _pools.n_spare_pages;
  for (size_t k = 1; k <= max_units; ++k) {
    ClassUsage u = usage(k);
    int class_pages = u.full_pages + u.mixed_pages + u.empty_pages;
    pages += class_pages;
    double occupancy =
        class_pages ? double(u.used) * double(k * unit_bytes) / (double(class_pages) * double(P))
                    : 0.0;
    std::snprintf(line, sizeof line, "%4d %8d %6d %6d %6d %6.4f\n", int(k * unit_bytes),
                  int(u.used), u.full_pages, u.mixed_pages, u.empty_pages, occupancy);
    put(line);
  }
  std::snprintf(line, sizeof line, "total: %d pages x %d kB/page = %d MB\n", int(pages),
                int(P / 1024), int(size_t(pages) * P / 1048576));
  put(line);
  put("-----------------------------------------\n");
}
