#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <sstream>
#include <vector>

#include "FST.h"

namespace {

size_t page_of(void* p) { return reinterpret_cast<size_t>(p) & ~(FSTAllocator::page_size() - 1); }

// Starts from a class with nothing in use and no cached page: every test frees what it takes,
// so this is also a leak check of the tests that ran before.
void expect_clean_class(size_t units) {
  FSTAllocator::gc();
  FSTAllocator::ClassUsage u = FSTAllocator::usage(units);
  ASSERT_EQ(u.used, 0) << "blocks of " << units << " units leaked";
  ASSERT_EQ(u.full_pages + u.mixed_pages + u.empty_pages, 0);
}

TEST(Allocator, ArcPagesFillCacheAndRelease) {
  expect_clean_class(FSTArcUnits);
  size_t const P = FSTAllocator::page_size();
  ASSERT_EQ(P, size_t(getpagesize()));
  int const capacity = int((P - 48) / 24);
  EXPECT_EQ(FSTAllocator::usage(FSTArcUnits).capacity, capacity);
  if (P == 4096) {
    EXPECT_EQ(capacity, 168);
  }

  std::vector<void*> arcs;
  std::set<size_t> pages;
  for (int i = 0; i < capacity; ++i) {
    arcs.push_back(FSTAllocator::_allocate(FSTArcUnits));
    pages.insert(page_of(arcs.back()));
    // Objects follow the 48-byte header back to back, in address order.
    EXPECT_EQ(reinterpret_cast<size_t>(arcs.back()), page_of(arcs.back()) + 48 + 24 * size_t(i));
  }
  FSTAllocator::ClassUsage u = FSTAllocator::usage(FSTArcUnits);
  EXPECT_EQ(pages.size(), 1u);
  EXPECT_EQ(u.used, capacity);
  EXPECT_EQ(u.full_pages, 1);
  EXPECT_EQ(u.mixed_pages, 0);

  arcs.push_back(FSTAllocator::_allocate(FSTArcUnits));  // the next one maps a second page
  EXPECT_EQ(pages.count(page_of(arcs.back())), 0u);
  u = FSTAllocator::usage(FSTArcUnits);
  EXPECT_EQ(u.full_pages, 1);
  EXPECT_EQ(u.mixed_pages, 1);

  // Freeing one object of the full page makes it mixed again; taking it back fills it.
  void* first = arcs.front();
  FSTAllocator::_deallocate(first, FSTArcUnits);
  EXPECT_EQ(FSTAllocator::usage(FSTArcUnits).mixed_pages, 2);
  EXPECT_EQ(FSTAllocator::_allocate(FSTArcUnits), first);  // LIFO free list

  // Emptying the first page caches it; emptying the second releases the first.
  for (int i = 0; i < capacity; ++i) FSTAllocator::_deallocate(arcs[size_t(i)], FSTArcUnits);
  u = FSTAllocator::usage(FSTArcUnits);
  EXPECT_EQ(u.empty_pages, 1);
  EXPECT_EQ(u.mixed_pages, 1);
  FSTAllocator::_deallocate(arcs.back(), FSTArcUnits);
  u = FSTAllocator::usage(FSTArcUnits);
  EXPECT_EQ(u.used, 0);
  EXPECT_EQ(u.empty_pages, 1);
  EXPECT_EQ(u.full_pages + u.mixed_pages, 0);

  // The cached page serves the next request without mapping.
  void* again = FSTAllocator::_allocate(FSTArcUnits);
  EXPECT_EQ(FSTAllocator::usage(FSTArcUnits).empty_pages, 0);
  FSTAllocator::_deallocate(again, FSTArcUnits);
  FSTAllocator::gc();
  u = FSTAllocator::usage(FSTArcUnits);
  EXPECT_EQ(u.full_pages + u.mixed_pages + u.empty_pages, 0);
}

// Resident memory in MB, from /proc.
long resident_mb() {
  std::ifstream statm("/proc/self/statm");
  long size = 0, resident = 0;
  statm >> size >> resident;
  return resident * long(getpagesize()) / 1048576;
}

// Freed pages beyond a few megabytes give their memory back, and serve later requests intact.
TEST(Allocator, SparePagesGiveMemoryBack) {
  expect_clean_class(2);
  std::vector<long*> blocks(size_t(16) << 20);  // 256 MB of 16-byte blocks
  long const before = resident_mb();
  for (size_t i = 0; i < blocks.size(); ++i) {
    blocks[i] = static_cast<long*>(FSTAllocator::_allocate(2));
    *blocks[i] = long(i);
  }
  long const full = resident_mb();
  EXPECT_GE(full - before, 200);
  for (long* b : blocks) FSTAllocator::_deallocate(b, 2);
  FSTAllocator::gc();
  EXPECT_LT(resident_mb() - before, 100);
  for (size_t i = 0; i < blocks.size(); ++i) {
    blocks[i] = static_cast<long*>(FSTAllocator::_allocate(2));
    *blocks[i] = long(i);
  }
  for (size_t i = 0; i < blocks.size(); ++i) ASSERT_EQ(*blocks[i], long(i));
  for (long* b : blocks) FSTAllocator::_deallocate(b, 2);
  FSTAllocator::gc();
}

TEST(Allocator, ByteInterfaceRoutesBySize) {
  EXPECT_EQ(FSTAllocator::_allocate(0), nullptr);
  FSTAllocator::deallocate(nullptr, 0);  // 0 bytes: nothing happens

  expect_clean_class(16);
  void* pooled = FSTAllocator::allocate(128);
  EXPECT_EQ(FSTAllocator::usage(16).used, 1);
  void* heap = FSTAllocator::allocate(129);
  EXPECT_EQ(FSTAllocator::usage(16).used, 1);
  FSTAllocator::deallocate(heap, 129);  // a mismatched release would show under the sanitizer
  FSTAllocator::deallocate(pooled, 128);
  EXPECT_EQ(FSTAllocator::usage(16).used, 0);

  // Odd sizes round up to whole units.
  expect_clean_class(2);
  void* nine = FSTAllocator::allocate(9);
  EXPECT_EQ(FSTAllocator::usage(2).used, 1);
  FSTAllocator::deallocate(nine, 9);

  // Containers go through the pools: four ints are one 2-unit block.
  {
    fst::vector<int> v(4, 7);
    EXPECT_EQ(FSTAllocator::usage(2).used, 1);
  }
  EXPECT_EQ(FSTAllocator::usage(2).used, 0);
  FSTAllocator::gc();
}

TEST(Allocator, StatusTable) {
  expect_clean_class(FSTArcUnits);
  size_t const P = FSTAllocator::page_size();
  int const capacity = FSTAllocator::usage(FSTArcUnits).capacity;
  std::vector<void*> arcs;
  for (int i = 0; i < capacity; ++i) arcs.push_back(FSTAllocator::_allocate(FSTArcUnits));

  std::ostringstream os;
  FSTAllocator::status(os);
  std::istringstream lines(os.str());
  std::vector<std::string> l;
  for (std::string line; std::getline(lines, line);) l.push_back(line);
  ASSERT_EQ(l.size(), 21u);
  EXPECT_EQ(l[0], "-----------------------------------------");
  EXPECT_EQ(l[1], "FSTAllocator status");
  EXPECT_EQ(l[2], "size     used   full  mixed  empty  occup");
  char expected[80];
  std::snprintf(expected, sizeof expected, "%4d %8d %6d %6d %6d %6.4f", 24, capacity, 1, 0, 0,
                double(capacity) * 24 / double(P));
  EXPECT_EQ(l[5], expected);
  if (P == 4096) {
    EXPECT_EQ(l[5], "  24      168      1      0      0 0.9844");
  }
  EXPECT_EQ(l[3].substr(0, 4), "   8");
  EXPECT_EQ(l[18].substr(0, 4), " 128");
  EXPECT_EQ(l[19].rfind("total: ", 0), 0u);
  EXPECT_NE(l[19].find(" pages x " + std::to_string(P / 1024) + " kB/page = "), std::string::npos);
  EXPECT_EQ(l[20], l[0]);
  for (void* a : arcs) FSTAllocator::_deallocate(a, FSTArcUnits);
  FSTAllocator::gc();
}

// Virtual memory of this process in bytes, from /proc.
size_t virtual_memory_bytes() {
  std::ifstream status("/proc/self/status");
  for (std::string key; status >> key;) {
    if (key == "VmSize:") {
      size_t kb = 0;
      status >> kb;
      return kb * 1024;
    }
  }
  return 0;
}

TEST(AllocatorDeathTest, MappingFailureFallsBackOnceThenStops) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the address sanitizer cannot run under an address-space limit";
#endif
  // With the address space capped just above what the process uses, mapping a page fails,
  // the allocator warns once and carves pages from 1 MB heap blocks until none is left.
  auto exhaust = [] {
    size_t limit = virtual_memory_bytes() + (8 << 20);
    struct rlimit r = {limit, limit};
    setrlimit(RLIMIT_AS, &r);
    for (long i = 0; i < 100000000; ++i) FSTAllocator::_allocate(FSTArcUnits);
    std::exit(3);
  };
  EXPECT_EXIT(exhaust(), testing::KilledBySignal(SIGABRT),
              "^WARNING: FSTAllocator: mmap failed -- using valloc\n"
              "FATAL: FSTAllocator:: valloc failed, completely out of memory\n$");
}

TEST(AllocatorDeathTest, ReallocateIsRefused) {
  void* p = FSTAllocator::allocate(8);
  EXPECT_DEATH(FSTAllocator::reallocate(p, 8, 16), "Assertion `not_implemented' failed");
  FSTAllocator::deallocate(p, 8);
}

}  // namespace
