#include <algorithm>
#include <cstdint>
#include <tuple>
#include <vector>

#include "T2sBuilder.h"

void T2sCanonicalOrder(FstModel& model) {
  // Output indices are in the strings' byte order (0 is the empty string), so they sort as they
  // are; the machine is deterministic in (byte, output), and weight and old target only settle
  // machines that are not.
  std::vector<FstModel::ModelArc>& arcs = model.arcs;
  for (FstModel::State const& s : model.states)
    std::sort(arcs.begin() + s.first_arc, arcs.begin() + s.end_arc,
              [&](FstModel::ModelArc const& a, FstModel::ModelArc const& b) {
                return std::tie(a.input, a.output, a.weight, a.next) <
                       std::tie(b.input, b.output, b.weight, b.next);
              });
  // States numbered in the order a depth-first walk from the start enters them, first arcs
  // first: a path's states then lie side by side, which is what the runtime reads as it follows
  // one. Any the start does not reach follow in their old order.
  size_t const n = model.states.size();
  std::vector<int32_t> number(n, -1), order, stack;
  order.reserve(n);
  auto enter = [&](int32_t s) {
    if (number[size_t(s)] >= 0) return;
    number[size_t(s)] = int32_t(order.size());
    order.push_back(s);
    FstModel::State const& state = model.states[size_t(s)];
    for (uint32_t k = state.end_arc; k > state.first_arc; --k) stack.push_back(arcs[k - 1].next);
  };
  for (size_t root = 0; root <= n; ++root) {
    size_t const from = root == 0 ? size_t(model.start) : root - 1;  // the start first
    if ((root == 0 && model.start < 0) || number[from] >= 0) continue;
    stack.push_back(int32_t(from));
    while (!stack.empty()) {
      int32_t const s = stack.back();
      stack.pop_back();
      enter(s);
    }
  }
  std::vector<FstModel::State> states;
  std::vector<FstModel::ModelArc> sorted;
  states.reserve(n);
  sorted.reserve(arcs.size());
  for (int32_t old : order) {
    FstModel::State state = model.states[size_t(old)];
    uint32_t const first = uint32_t(sorted.size());
    for (uint32_t k = state.first_arc; k < state.end_arc; ++k) {
      sorted.push_back(arcs[k]);
      sorted.back().next = number[size_t(arcs[k].next)];
    }
    state.first_arc = first, state.end_arc = uint32_t(sorted.size());
    states.push_back(state);
  }
  if (model.start >= 0) model.start = number[size_t(model.start)];
  model.states.swap(states);
  model.arcs.swap(sorted);
}
