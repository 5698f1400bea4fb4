#include <gtest/gtest.h>

#include <iterator>
#include <random>
#include <set>
#include <sstream>

#include "FST.h"
#include "RandomMachine.h"
#include "TestUtil.h"

namespace {

TEST(Cache, HitRateEvictionAndReset) {
  FSTGeneric cache = FSTCache(new ChainRep(5));
  auto* c = static_cast<FSTCacheRep*>(cache.get());
  int hits, lookups;
  EXPECT_EQ(c->hit_rate(), 1.0f);  // never asked
  cache->arcs_out(0);
  cache->arcs_out(0);
  EXPECT_EQ(c->hit_rate(hits, lookups), 0.5f);
  EXPECT_EQ(hits, 1);
  EXPECT_EQ(lookups, 2);
  cache->reset();
  for (int p = 0; p < 4; ++p) cache->arcs_out(p);
  EXPECT_EQ(c->hit_rate(hits, lookups), 0.25f);  // no hit counts as one
  EXPECT_EQ(hits, 0);

  // Size 2 asked for 0, 1, 0, 2: state 1 is the least recently used and goes.
  FSTGeneric lru = FSTCacheLRU(new ChainRep(5), 2);
  auto* l = static_cast<FSTCacheLRURep*>(lru.get());
  for (int p : {0, 1, 0, 2}) lru->arcs_out(p);
  l->hit_rate(hits, lookups);
  EXPECT_EQ(hits, 1);
  lru->arcs_out(0);
  lru->arcs_out(2);
  l->hit_rate(hits, lookups);
  EXPECT_EQ(hits, 3);
  lru->arcs_out(1);  // a miss again, evicting 0
  lru->arcs_out(0);
  l->hit_rate(hits, lookups);
  EXPECT_EQ(hits, 3);
  EXPECT_EQ(lookups, 8);
  lru->reset();
  lru->arcs_out(0);
  EXPECT_EQ(l->hit_rate(hits, lookups), 1.0f);
  EXPECT_EQ(hits, 0);
}

// The items of DescribeArcs in sorted order: arcs with equal labels may come in any order.
std::multiset<std::string> Items(FSTArcIter arcs) {
  std::istringstream in(DescribeArcs(arcs));
  return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

// Through a cache, a lazy machine copies to the same machine; label selection and arc counts
// agree with the stored copy's.
TEST(Cache, CachedLazyMachinesCopyToTheSameMachine) {
  std::mt19937 rng(8);
  for (int round = 0; round < 40; ++round) {
    RandomMachineOptions o;
    o.max_states = 6;
    FSTGeneric a = RandomMachine(rng, o), b = RandomMachine(rng, o);
    auto lazy = [&] { return FSTClosure(FSTUnion(a, FSTConcatenate(a, b)), round % 2 == 0); };
    for (int size : {0, 1, 2, 5}) {
      // Sorted requests below re-sort the operands, which renumbers a new lazy machine's states.
      FSTGeneric expected = FSTBasic(lazy());
      FSTGeneric cache = size ? FSTCacheLRU(lazy(), size) : FSTCache(lazy());
      EXPECT_EQ(Describe(FSTBasic(cache)), Describe(expected)) << size;
      int label = RandomLabel(int(rng() % 3));
      for (int p = 0; p < expected->n_states(); ++p) {
        EXPECT_EQ(Items(cache->arcs_out_with_input(p, label)),
                  Items(expected->arcs_out_with_input(p, label)));
        EXPECT_EQ(cache->n_arcs_out(p), expected->n_arcs_out(p));
      }
      cache->force();
      EXPECT_EQ(cache->n_states(), expected->n_states());
    }
  }
}

}  // namespace
