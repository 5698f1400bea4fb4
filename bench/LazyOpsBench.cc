// Copying large lazy unions and concatenations to stored machines: time and memory per arc at
// the peak, when the operands, the lazy machine's state table and the copy all exist.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <random>
#include <string>

#include "FST.h"

namespace {

// Bytes in use now: pool pages held plus general-heap blocks in use.
double MemoryInUse() {
  double pages = 0;
  for (size_t units = 1; units <= FSTAllocator::max_units; ++units) {
    FSTAllocator::ClassUsage u = FSTAllocator::usage(units);
    pages += u.full_pages + u.mixed_pages + u.empty_pages;
  }
  return pages * double(FSTAllocator::page_size()) + double(mallinfo2().uordblks);
}

fst::vector<FSTGeneric> RandomWords(int n, int max_length, unsigned seed) {
  std::mt19937 rng(seed);
  int letters[26];
  for (int i = 0; i < 26; ++i) letters[i] = FSTstring_map[std::string(1, char('a' + i))];
  fst::vector<FSTGeneric> words;
  for (int w = 0; w < n; ++w) {
    FSTGeneric m = FSTBasic(FSTMinPlus);
    m->set_initial(0);
    int length = 1 + int(rng() % unsigned(max_length));
    for (int i = 0; i < length; ++i) {
      int l = letters[rng() % 26];
      m->add_arc(i, i + 1, l, l, 0.5f);
    }
    m->set_final(length, 0);
    words.push_back(m);
  }
  return words;
}

template <class Build>
void CopyLazy(benchmark::State& state, Build build) {
  FSTAllocator::gc();
  double before = MemoryInUse();
  fst::vector<FSTGeneric> operands = RandomWords(10000, 8, 42);
  double with_operands = MemoryInUse();
  double peak = 0;
  long arcs = 0;
  for (auto _ : state) {
    FSTGeneric lazy = build(operands);
    FSTGeneric copy = FSTBasic(lazy);
    arcs = 0;
    for (int p : copy->states()) arcs += copy->n_arcs_out(p);
    peak = MemoryInUse() - before;
  }
  state.counters["arcs"] = double(arcs);
  state.counters["peak_bytes_per_arc"] = peak / double(arcs);
  // The lazy machine's state table and the stored copy, without the operands.
  state.counters["lazy_and_copy_bytes_per_arc"] = (peak + before - with_operands) / double(arcs);
  state.SetItemsProcessed(state.iterations() * arcs);
}

void BM_CopyUnionOf10000Words(benchmark::State& state) {
  CopyLazy(state, [](fst::vector<FSTGeneric> const& words) { return FSTUnion(words); });
}
BENCHMARK(BM_CopyUnionOf10000Words)->Unit(benchmark::kMillisecond);

void BM_CopyConcatenationOf10000Words(benchmark::State& state) {
  CopyLazy(state, [](fst::vector<FSTGeneric> const& words) { return FSTConcatenate(words); });
}
BENCHMARK(BM_CopyConcatenationOf10000Words)->Unit(benchmark::kMillisecond);

}  // namespace
