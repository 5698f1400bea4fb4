// The page allocator against the general heap for arc-sized blocks, and the cost of building a
// large machine arc by arc.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "FST.h"

namespace {

// Allocates a batch of 24-byte blocks and frees them in the same order, as machines do with
// arcs. One block stays live throughout, as in a program that holds machines, so a batch
// smaller than a page never empties its page. Batch sizes: 1 (an allocate/free pair), 100 (the
// arcs of one state, within one page), 1000 (several pages: each emptied page beyond the one
// cached is returned to the system) and 100000 (building a machine and freeing it).
template <class Allocate, class Free>
void run_batches(benchmark::State& state, Allocate allocate, Free release) {
  size_t const batch = size_t(state.range(0));
  std::vector<void*> blocks(batch);
  void* ballast = allocate();
  for (auto _ : state) {
    for (size_t i = 0; i < batch; ++i) blocks[i] = allocate();
    benchmark::DoNotOptimize(blocks.data());
    for (size_t i = 0; i < batch; ++i) release(blocks[i]);
    benchmark::ClobberMemory();
  }
  release(ballast);
  state.SetItemsProcessed(state.iterations() * long(batch));
}

void batch_sizes(benchmark::internal::Benchmark* b) {
  for (long n : {1, 100, 1000, 100000}) b->Arg(n);
}

void BM_FSTAllocator24(benchmark::State& state) {
  run_batches(
      state, [] { return FSTAllocator::_allocate(3); },
      [](void* p) { FSTAllocator::_deallocate(p, 3); });
}
BENCHMARK(BM_FSTAllocator24)->Apply(batch_sizes);

void BM_Malloc24(benchmark::State& state) {
  run_batches(
      state, [] { return std::malloc(24); }, [](void* p) { std::free(p); });
}
BENCHMARK(BM_Malloc24)->Apply(batch_sizes);

void BM_NewDelete24(benchmark::State& state) {
  run_batches(
      state,
      [] {
        return static_cast<void*>(new FSTArc{0, 0, 0, 0, 0});
      },
      [](void* p) { delete static_cast<FSTArc*>(p); });
}
BENCHMARK(BM_NewDelete24)->Apply(batch_sizes);

// A machine of one million arcs over 10,000 states, built with add_arc.
void BM_BuildMillionArcs(benchmark::State& state) {
  int const n_states = 10000, n_arcs = 1000000;
  for (auto _ : state) {
    FSTAllocator::gc();
    long arcs_before = FSTAllocator::usage(FSTArcUnits).used;
    FSTGeneric m = FSTBasic(FSTMinPlus);
    m->add_states(n_states);
    unsigned x = 12345;
    for (int i = 0; i < n_arcs; ++i) {
      x = x * 1103515245u + 12345u;
      m->add_arc(i % n_states, int(x % unsigned(n_states)), int(x >> 20) % 50 + 2, 0, 0.5f);
    }
    FSTAllocator::ClassUsage arcs = FSTAllocator::usage(FSTArcUnits);
    long arc_pages = arcs.full_pages + arcs.mixed_pages;
    state.counters["arc_block_bytes"] =
        double(arc_pages) * double(FSTAllocator::page_size()) / double(arcs.used - arcs_before);
    state.counters["arcs_in_use"] = double(arcs.used - arcs_before);
  }
  state.SetItemsProcessed(state.iterations() * n_arcs);
}
BENCHMARK(BM_BuildMillionArcs)->Unit(benchmark::kMillisecond);

}  // namespace
