// Writing and reading back a text machine of one million arcs.
#include <benchmark/benchmark.h>

#include <sstream>
#include <string>

#include "FST.h"

namespace {

FSTGeneric MillionArcMachine() {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  int const n_states = 10000;
  m->add_states(n_states);
  m->set_initial(0);
  m->set_final(n_states - 1, 0);
  int labels[50];
  for (int i = 0; i < 50; ++i) labels[i] = FSTstring_map["word" + std::to_string(i)];
  unsigned x = 12345;
  for (int i = 0; i < 1000000; ++i) {
    x = x * 1103515245u + 12345u;
    m->add_arc(i % n_states, int(x % unsigned(n_states)), labels[(x >> 20) % 50],
               labels[(x >> 8) % 50], float((x >> 12) % 1000) * 0.01f);
  }
  return m;
}

void BM_WriteText(benchmark::State& state) {
  FSTGeneric m = MillionArcMachine();
  size_t bytes = 0;
  for (auto _ : state) {
    std::ostringstream os;
    m->dump_ascii(os, true);
    bytes = os.str().size();
    benchmark::DoNotOptimize(bytes);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
  state.counters["text_MB"] = double(bytes) / 1e6;
}
BENCHMARK(BM_WriteText)->Unit(benchmark::kMillisecond);

void BM_ReadText(benchmark::State& state) {
  std::ostringstream os;
  MillionArcMachine()->dump_ascii(os, true);
  std::string const text = os.str();
  for (auto _ : state) {
    std::istringstream is(text);
    FSTGeneric m = FSTLoadStream(is);
    benchmark::DoNotOptimize(m.get());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
}
BENCHMARK(BM_ReadText)->Unit(benchmark::kMillisecond);

}  // namespace
