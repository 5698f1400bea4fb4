#include "FSTMinimize.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <numeric>
#include <unordered_map>
#include <vector>

#include "FSTBasic.h"
#include "FSTPushWeights.h"
#include "FSTTopologicalSort.h"

namespace {

// One transition of the working copy, with its symbol: (input, output, weight class).
struct Transition {
  int from, to, symbol;
};

struct SymbolKey {
  int input, output;
  long weight_class;
  bool operator<(SymbolKey const& o) const {
    if (input != o.input) return input < o.input;
    if (output != o.output) return output < o.output;
    return weight_class < o.weight_class;
  }
};

// Weights within delta share a class (delta 0: each value its own class).
long weight_class(float w, float delta) {
  if (delta <= 0) {
    if (w == 0) w = 0;  // -0 and 0 are one weight
    long bits = 0;
    static_assert(sizeof(float) <= sizeof(long), "");
    std::memcpy(&bits, &w, sizeof w);
    return bits;
  }
  double q = std::floor(double(w) / double(delta) + 0.5);
  if (q > 9e17) return 900000000000000000L;
  if (q < -9e17) return -900000000000000000L;
  return long(q);
}

struct Machine {
  int n = 0;
  std::vector<Transition> transitions;
  std::vector<long> final_class;  // LONG_MIN for non-final
};

// ---- acyclic: merge by height, bottom up ----

std::vector<int> by_height(Machine const& m, fst::vector<int> const& order) {
  std::vector<std::vector<std::pair<int, int>>> out(size_t(m.n));  // (symbol, target)
  for (Transition const& t : m.transitions) out[size_t(t.from)].push_back({t.symbol, t.to});
  std::vector<int> height(size_t(m.n), 0);
  for (auto p = order.rbegin(); p != order.rend(); ++p)
    for (auto const& st : out[size_t(*p)])
      height[size_t(*p)] = std::max(height[size_t(*p)], height[size_t(st.second)] + 1);
  std::vector<int> states(size_t(m.n));
  std::iota(states.begin(), states.end(), 0);
  std::stable_sort(states.begin(), states.end(),
                   [&](int a, int b) { return height[size_t(a)] < height[size_t(b)]; });
  // Targets sit lower, so their classes are known when a state's signature is formed.
  std::vector<int> cls(size_t(m.n), -1);
  std::map<std::pair<long, std::vector<std::pair<int, int>>>, int> classes;
  for (int s : states) {
    std::vector<std::pair<int, int>> signature;
    for (auto const& st : out[size_t(s)]) signature.push_back({st.first, cls[size_t(st.second)]});
    std::sort(signature.begin(), signature.end());
    auto key = std::make_pair(m.final_class[size_t(s)], std::move(signature));
    auto found = classes.find(key);
    if (found == classes.end()) found = classes.emplace(std::move(key), int(classes.size())).first;
    cls[size_t(s)] = found->second;
  }
  return cls;
}

// ---- cyclic and deterministic: Hopcroft's refinement for partial transition functions ----

// A refinable partition of 0..n-1 into sets, with marking and splitting by the marked part.
struct RefinablePartition {
  int z = 0;  // number of sets
  std::vector<int> elements, location, set_of, first, past;
  std::vector<int>& marked;   // per set, shared scratch
  std::vector<int>& touched;  // sets with marks, shared scratch

  RefinablePartition(int n, std::vector<int>& marked, std::vector<int>& touched)
      : elements(size_t(n)),
        location(size_t(n)),
        set_of(size_t(n), 0),
        first(size_t(n) + 1),
        past(size_t(n) + 1),
        marked(marked),
        touched(touched) {
    std::iota(elements.begin(), elements.end(), 0);
    std::iota(location.begin(), location.end(), 0);
    if (n) {
      z = 1;
      first[0] = 0;
      past[0] = n;
    }
  }
  void mark(int e) {
    int s = set_of[size_t(e)], i = location[size_t(e)], j = first[size_t(s)] + marked[size_t(s)];
    elements[size_t(i)] = elements[size_t(j)];
    location[size_t(elements[size_t(i)])] = i;
    elements[size_t(j)] = e;
    location[size_t(e)] = j;
    if (!marked[size_t(s)]++) touched.push_back(s);
  }
  // Splits each touched set into its marked and unmarked parts; the smaller part is new.
  void split() {
    while (!touched.empty()) {
      int s = touched.back();
      touched.pop_back();
      int j = first[size_t(s)] + marked[size_t(s)];
      if (j == past[size_t(s)]) {
        marked[size_t(s)] = 0;
        continue;
      }
      if (marked[size_t(s)] <= past[size_t(s)] - j) {
        first[size_t(z)] = first[size_t(s)];
        past[size_t(z)] = first[size_t(s)] = j;
      } else {
        past[size_t(z)] = past[size_t(s)];
        first[size_t(z)] = past[size_t(s)] = j;
      }
      for (int i = first[size_t(z)]; i < past[size_t(z)]; ++i)
        set_of[size_t(elements[size_t(i)])] = z;
      marked[size_t(s)] = marked[size_t(z++)] = 0;
    }
  }
};

std::vector<int> hopcroft(Machine const& m) {
  size_t const scratch = std::max(size_t(m.n), m.transitions.size()) + 1;
  std::vector<int> marked(scratch, 0), touched;
  RefinablePartition blocks(m.n, marked, touched);
  // Initial blocks: one per final class (non-final states included as a class).
  std::map<long, std::vector<int>> by_final;
  for (int s = 0; s < m.n; ++s) by_final[m.final_class[size_t(s)]].push_back(s);
  for (auto const& [cls, states] : by_final) {
    for (int s : states) blocks.mark(s);
    blocks.split();
  }
  // Cords: transitions grouped by symbol.
  int const mm = int(m.transitions.size());
  RefinablePartition cords(mm, marked, touched);
  std::sort(cords.elements.begin(), cords.elements.end(), [&](int a, int b) {
    return m.transitions[size_t(a)].symbol < m.transitions[size_t(b)].symbol;
  });
  if (mm) {
    cords.z = 0;
    int symbol = m.transitions[size_t(cords.elements[0])].symbol;
    cords.first[0] = 0;
    for (int i = 0; i < mm; ++i) {
      int t = cords.elements[size_t(i)];
      if (m.transitions[size_t(t)].symbol != symbol) {
        symbol = m.transitions[size_t(t)].symbol;
        cords.past[size_t(cords.z++)] = i;
        cords.first[size_t(cords.z)] = i;
      }
      cords.set_of[size_t(t)] = cords.z;
      cords.location[size_t(t)] = i;
    }
    cords.past[size_t(cords.z++)] = mm;
  }
  // Incoming transitions of each state.
  std::vector<int> in_first(size_t(m.n) + 1, 0);
  std::vector<int> incoming(static_cast<size_t>(mm));
  for (Transition const& t : m.transitions) ++in_first[size_t(t.to) + 1];
  for (int s = 0; s < m.n; ++s) in_first[size_t(s) + 1] += in_first[size_t(s)];
  {
    std::vector<int> fill(in_first.begin(), in_first.end() - 1);
    for (int t = 0; t < mm; ++t) incoming[size_t(fill[size_t(m.transitions[size_t(t)].to)]++)] = t;
  }
  int b = 1, c = 0;
  while (c < cords.z) {
    for (int i = cords.first[size_t(c)]; i < cords.past[size_t(c)]; ++i)
      blocks.mark(m.transitions[size_t(cords.elements[size_t(i)])].from);
    blocks.split();
    ++c;
    while (b < blocks.z) {
      for (int i = blocks.first[size_t(b)]; i < blocks.past[size_t(b)]; ++i) {
        int s = blocks.elements[size_t(i)];
        for (int j = in_first[size_t(s)]; j < in_first[size_t(s) + 1]; ++j)
          cords.mark(incoming[size_t(j)]);
      }
      cords.split();
      ++b;
    }
  }
  return blocks.set_of;
}

// ---- nondeterministic: signature refinement (bisimulation) ----

std::vector<int> bisimulation(Machine const& m) {
  std::vector<std::vector<std::pair<int, int>>> out(size_t(m.n));
  for (Transition const& t : m.transitions) out[size_t(t.from)].push_back({t.symbol, t.to});
  std::vector<int> cls(size_t(m.n));
  std::map<long, int> initial;
  for (int s = 0; s < m.n; ++s)
    cls[size_t(s)] = initial.emplace(m.final_class[size_t(s)], int(initial.size())).first->second;
  size_t n_classes = initial.size();
  for (;;) {
    std::map<std::pair<int, std::vector<std::pair<int, int>>>, int> signatures;
    std::vector<int> next(size_t(m.n));
    for (int s = 0; s < m.n; ++s) {
      std::vector<std::pair<int, int>> signature;
      for (auto const& st : out[size_t(s)]) signature.push_back({st.first, cls[size_t(st.second)]});
      std::sort(signature.begin(), signature.end());  // a multiset: parallel arcs add up
      auto key = std::make_pair(cls[size_t(s)], std::move(signature));
      next[size_t(s)] = signatures.emplace(std::move(key), int(signatures.size())).first->second;
    }
    cls.swap(next);
    if (signatures.size() == n_classes) return cls;
    n_classes = signatures.size();
  }
}

bool deterministic(Machine const& m) {
  std::vector<std::pair<int, int>> pairs;
  for (Transition const& t : m.transitions) pairs.push_back({t.from, t.symbol});
  std::sort(pairs.begin(), pairs.end());
  return std::adjacent_find(pairs.begin(), pairs.end()) == pairs.end();
}

}  // namespace

FSTGeneric FSTMinimize(FSTGeneric m, float delta) {
  // A private copy: trimming works in place, and the caller's machine stays as it was.
  FSTGeneric work = FSTTrim(FSTBasic(m));
  if (work->states().size() == 0) return work;
  FSTSemiringBase const& s = *work->semiring();
  fst::vector<float> potential;
  FSTPotential(potential, work);
  float const total = potential[size_t(work->initial())];
  work = FSTPushWeights(work);
  // Pushing divides the initial state by its potential too: put that total back where every
  // path pays it once. On a start that paths return to, that is a fresh copy of the start.
  if (total != s.one) {
    int start = work->initial();
    bool entered = false;
    for (int p : work->states())
      for (FSTArc* a : work->arcs_out(p, FSTArcOrderAny)) entered |= a->to == start;
    int fresh = entered ? work->add_states(1) : start;
    FSTArcVector arcs;
    work->arcs_out(arcs, start);
    for (FSTArc* a : arcs) a->weight = s.times(total, a->weight);
    work->set_arcs(fresh, arcs, FSTArcOrderAny);
    if (work->is_final(start)) work->set_final(fresh, s.times(total, work->final_weight(start)));
    work->set_initial(fresh);
  }

  Machine machine;
  machine.n = work->states().size();
  std::map<SymbolKey, int> symbols;
  for (int p = 0; p < machine.n; ++p) {
    machine.final_class.push_back(work->is_final(p) ? weight_class(work->final_weight(p), delta)
                                                    : std::numeric_limits<long>::min());
    for (FSTArc* a : work->arcs_out(p, FSTArcOrderAny)) {
      SymbolKey key{a->input, a->output, weight_class(a->weight, delta)};
      int symbol = symbols.emplace(key, int(symbols.size())).first->second;
      machine.transitions.push_back({p, a->to, symbol});
    }
  }

  fst::vector<int> order;
  std::vector<int> cls;
  bool self_loops = false;
  for (Transition const& t : machine.transitions) self_loops |= t.from == t.to;
  if (!self_loops && FSTTopologicalSort(order, work))
    cls = by_height(machine, order);
  else if (deterministic(machine))
    cls = hopcroft(machine);
  else
    cls = bisimulation(machine);

  // One state per class, numbered by first appearance; each class keeps its first member's arcs.
  std::vector<int> number(size_t(machine.n), -1), representative;
  int n_classes = 0;
  std::vector<int> class_number(size_t(*std::max_element(cls.begin(), cls.end()) + 1), -1);
  for (int p = 0; p < machine.n; ++p) {
    int& c = class_number[size_t(cls[size_t(p)])];
    if (c < 0) c = n_classes++, representative.push_back(p);
    number[size_t(p)] = c;
  }
  FSTGeneric result = FSTBasic(&s);
  result->add_states(n_classes);
  result->set_initial(number[size_t(work->initial())]);
  for (int c = 0; c < n_classes; ++c) {
    int p = representative[size_t(c)];
    if (work->is_final(p)) result->set_final(c, work->final_weight(p));
    for (FSTArc* a : work->arcs_out(p, FSTArcOrderAny))
      result->add_arc(c, number[size_t(a->to)], a->input, a->output, a->weight);
  }
  return result;
}
