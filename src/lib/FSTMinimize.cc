#include "FSTMinimize.h"

#include <tuple>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <numeric>
#include <vector>

#include "FSTBasic.h"
#include "FSTComponents.h"
#include "FSTDepthFirst.h"
#include "FSTPotentialGraph.h"
#include "FSTlib.h"

namespace {

// One transition of the working copy, with its symbol: (input, output, weight class).
struct Transition {
  int from, to, symbol;
};

// Numbers weights so that weights within delta of a cluster's smallest share its number (delta
// 0: equal weights). Clustering sorted values, unlike rounding to a grid, never parts two
// weights that differ by float noise unless a run of such weights spans more than delta.
// keys[i] groups values[i] (values of different keys never share a number).
std::vector<int> weight_clusters(std::vector<std::pair<long, float>> const& keyed, float delta) {
  // Sorted as records, not as indices into keyed: the sort then reads memory in order.
  struct Record {
    long key;
    float weight;
    int index;
  };
  std::vector<Record> records(keyed.size());
  for (size_t i = 0; i < keyed.size(); ++i) records[i] = {keyed[i].first, keyed[i].second, int(i)};
  // NaNs (which compare with nothing) go last, each a cluster of its own.
  auto weight_less = [](float a, float b) { return a < b || (!std::isnan(a) && std::isnan(b)); };
  std::sort(records.begin(), records.end(), [&](Record const& x, Record const& y) {
    return x.key != y.key ? x.key < y.key : weight_less(x.weight, y.weight);
  });
  std::vector<int> number(keyed.size());
  int next = -1;
  long key = 0;
  float cluster_start = 0;
  for (size_t i = 0; i < records.size(); ++i) {
    Record const& r = records[i];
    if (i == 0 || r.key != key || !(r.weight <= cluster_start + std::max(delta, 0.0f)))
      ++next, key = r.key, cluster_start = r.weight;
    number[size_t(r.index)] = next;
  }
  return number;
}

struct Machine {
  int n = 0;
  std::vector<Transition> transitions;  // grouped by source state
  std::vector<long> final_class;        // LONG_MIN for non-final
};

// Kahn's algorithm over a graph view (n(), and for_each_arc(p, f) calling f(to, weight), as the
// potentials take it): the states in topological order, or false when there is a cycle.
// Self-loops count as cycles unless ignored.
template <class Graph>
bool topological_order(Graph const& g, bool ignore_self_loops, std::vector<int>& order) {
  int const n = g.n();
  std::vector<int> in_degree(size_t(n), 0);
  for (int p = 0; p < n; ++p)
    g.for_each_arc(
        p, [&](int to, float) { in_degree[size_t(to)] += !(ignore_self_loops && to == p); });
  order.clear();
  for (int p = 0; p < n; ++p)
    if (!in_degree[size_t(p)]) order.push_back(p);
  for (size_t i = 0; i < order.size(); ++i) {
    int const p = order[i];
    g.for_each_arc(p, [&](int to, float) {
      if (!(ignore_self_loops && to == p) && !--in_degree[size_t(to)]) order.push_back(to);
    });
  }
  return int(order.size()) == n;
}

// A Machine's transitions (grouped by source) as a graph view.
struct TransitionGraph {
  Machine const& m;
  std::vector<size_t> first;
  explicit TransitionGraph(Machine const& machine) : m(machine), first(size_t(m.n) + 1, 0) {
    for (Transition const& t : m.transitions) ++first[size_t(t.from) + 1];
    for (int p = 0; p < m.n; ++p) first[size_t(p) + 1] += first[size_t(p)];
  }
  int n() const { return m.n; }
  template <class F>
  void for_each_arc(int p, F f) const {
    for (size_t j = first[size_t(p)]; j < first[size_t(p) + 1]; ++j) f(m.transitions[j].to, 0.0f);
  }
};

// ---- acyclic: merge by height, bottom up ----

// With weights (additive ones: costs or scores), a state joins a class only while no path from
// the class's first member, whose arcs the result keeps, moves by more than delta from the same
// path from the state: the drift of a class is the largest, over its members, of the final
// weights' difference and, arc by arc, the weights' difference plus the drift of the class the
// arc leads to. Merging arc by arc within delta would let a path drift by delta at every state.
struct Drift {
  std::vector<float> const& weight;  // per transition
  std::vector<float> const& final;   // per state
  float delta;
};

// A state's arcs (indices into the transitions) in the order that pairs a class member's with
// its first member's: by symbol, then by the class reached (members of a class have the same
// multiset of both, their signature), then by weight, when weights are given.
void arcs_in_pairing_order(TransitionGraph const& g, std::vector<int> const& cls,
                           std::vector<float> const* weight, int p, std::vector<size_t>& arcs) {
  arcs.resize(g.first[size_t(p) + 1] - g.first[size_t(p)]);
  std::iota(arcs.begin(), arcs.end(), g.first[size_t(p)]);
  auto key = [&](size_t j) {
    Transition const& t = g.m.transitions[j];
    return std::make_tuple(t.symbol, cls[size_t(t.to)], weight ? (*weight)[j] : 0.0f);
  };
  std::sort(arcs.begin(), arcs.end(), [&](size_t a, size_t b) { return key(a) < key(b); });
}

std::vector<int> by_height(Machine const& m, std::vector<int> const& order,
                           Drift const* drift = nullptr) {
  // Everything here is flat arrays over the transitions (grouped by source) and the classes: at
  // millions of states, a vector or map node per state would be most of the memory.
  TransitionGraph const g(m);
  size_t const n = size_t(m.n);
  std::vector<int> height(n, 0);
  for (auto p = order.rbegin(); p != order.rend(); ++p)
    g.for_each_arc(*p, [&](int to, float) {
      height[size_t(*p)] = std::max(height[size_t(*p)], height[size_t(to)] + 1);
    });
  // The states by height, in number order within one (a counting sort).
  std::vector<int> states(n);
  {
    std::vector<int> start(n + 2, 0);
    for (int h : height) ++start[size_t(h) + 1];
    for (size_t h = 0; h + 1 < start.size(); ++h) start[h + 1] += start[h];
    for (int p = 0; p < m.n; ++p) states[size_t(start[size_t(height[size_t(p)])]++)] = p;
  }
  height = std::vector<int>();
  // Targets sit lower, so their classes are known when a state's signature is formed; a class's
  // first member is its smallest state (numbers ascend within a height), the one whose arcs the
  // result keeps. Classes of one signature are chained in the order they were made.
  std::vector<int> cls(n, -1);
  struct Class {
    int first;
    float drift;
    int next, last;  // the chain of classes with this one's signature (last: for its head)
    uint64_t hash;
  };
  std::vector<Class> classes;
  auto arcs_in_order = [&](int p, std::vector<size_t>& arcs) {
    arcs_in_pairing_order(g, cls, drift ? &drift->weight : nullptr, p, arcs);
  };
  auto same_signature = [&](std::vector<size_t> const& mine, std::vector<size_t> const& theirs) {
    if (mine.size() != theirs.size()) return false;
    for (size_t k = 0; k < mine.size(); ++k) {
      Transition const &x = m.transitions[mine[k]], &y = m.transitions[theirs[k]];
      if (x.symbol != y.symbol || cls[size_t(x.to)] != cls[size_t(y.to)]) return false;
    }
    return true;
  };
  // Open addressing: each slot holds the head class of one signature, or -1.
  std::vector<int> slots(64, -1);
  std::vector<size_t> mine, theirs;
  for (int s : states) {
    arcs_in_order(s, mine);
    uint64_t hash = uint64_t(m.final_class[size_t(s)]) * 0x9e3779b97f4a7c15ull;
    for (size_t j : mine) {
      Transition const& t = m.transitions[j];
      hash = (hash ^ (uint64_t(uint32_t(t.symbol)) << 32 | uint32_t(cls[size_t(t.to)]))) *
             0xff51afd7ed558ccdull;
      hash ^= hash >> 29;
    }
    size_t const mask = slots.size() - 1;
    size_t slot = size_t(hash) & mask;
    int head = -1;
    for (; slots[slot] >= 0; slot = (slot + 1) & mask) {
      Class const& c = classes[size_t(slots[slot])];
      if (c.hash != hash || m.final_class[size_t(c.first)] != m.final_class[size_t(s)]) continue;
      arcs_in_order(c.first, theirs);
      if (same_signature(mine, theirs)) {
        head = slots[slot];
        break;
      }
    }
    int chosen = -1;
    float chosen_drift = 0;
    for (int c = head; c >= 0; c = classes[size_t(c)].next) {
      if (!drift) {
        chosen = c;
        break;
      }
      // How far s's paths lie from those of the class's first member, through the classes.
      int const first = classes[size_t(c)].first;
      float d = m.final_class[size_t(s)] == std::numeric_limits<long>::min()
                    ? 0.0f
                    : std::fabs(drift->final[size_t(s)] - drift->final[size_t(first)]);
      arcs_in_order(first, theirs);
      for (size_t k = 0; k < mine.size(); ++k)
        d = std::max(d, std::fabs(drift->weight[mine[k]] - drift->weight[theirs[k]]) +
                            classes[size_t(cls[size_t(m.transitions[mine[k]].to)])].drift);
      if (!(d <= drift->delta)) continue;
      chosen = c, chosen_drift = d;
      break;
    }
    if (chosen < 0) {
      chosen = int(classes.size());
      float d = 0;  // the first member's own paths drift only as far as the classes it enters
      for (size_t j : mine) d = std::max(d, classes[size_t(cls[size_t(m.transitions[j].to)])].drift);
      classes.push_back({s, d, -1, chosen, hash});
      if (head >= 0) {
        classes[size_t(classes[size_t(head)].last)].next = chosen;
        classes[size_t(head)].last = chosen;
      } else {
        slots[slot] = chosen;
        if (2 * classes.size() > slots.size()) {  // grow: place every head again
          std::vector<int> wider(2 * slots.size(), -1);
          size_t const wide_mask = wider.size() - 1;
          for (int h : slots) {
            if (h < 0) continue;
            size_t at = size_t(classes[size_t(h)].hash) & wide_mask;
            while (wider[at] >= 0) at = (at + 1) & wide_mask;
            wider[at] = h;
          }
          slots.swap(wider);
        }
      }
    } else {
      classes[size_t(chosen)].drift = std::max(classes[size_t(chosen)].drift, chosen_drift);
    }
    cls[size_t(s)] = chosen;
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
  {
    // Transitions by symbol: a counting sort, as symbols are numbered densely.
    int n_symbols = 0;
    for (Transition const& t : m.transitions) n_symbols = std::max(n_symbols, t.symbol + 1);
    std::vector<int> start(size_t(n_symbols) + 1, 0);
    for (Transition const& t : m.transitions) ++start[size_t(t.symbol) + 1];
    for (int k = 0; k < n_symbols; ++k) start[size_t(k) + 1] += start[size_t(k)];
    for (int t = 0; t < int(m.transitions.size()); ++t)
      cords.elements[size_t(start[size_t(m.transitions[size_t(t)].symbol)]++)] = t;
  }
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
  std::vector<int> symbols;
  for (size_t i = 0; i < m.transitions.size();) {
    symbols.clear();
    size_t j = i;
    for (; j < m.transitions.size() && m.transitions[j].from == m.transitions[i].from; ++j)
      symbols.push_back(m.transitions[j].symbol);
    std::sort(symbols.begin(), symbols.end());
    if (std::adjacent_find(symbols.begin(), symbols.end()) != symbols.end()) return false;
    i = j;
  }
  return true;
}

// ---- cyclic: merges whose differences cannot add up ----

// Refines a partition whose classes merge weights within delta until, from every state, no
// path moves by more than delta. The result keeps each class's first member's arcs, so a member
// p's path drifts by the differences between its arcs and those, summed along the path: D(p) is
// the largest of |final difference| and, arc by arc, |difference| + D(target). A path may go
// round a cycle any number of times, so on arcs within a strongly connected component only
// differences of float rounding are allowed. Each round parts the members where a drift beyond
// delta starts (an arc whose own difference carries its target's drift over delta, a final
// difference, a difference on a cycle) from their class, and refines again; the classes' first
// members never part, so every round makes progress.
template <class Refine>
std::vector<int> bound_cyclic_drift(Machine& m, std::vector<int> cls, Drift const& drift,
                                    Refine refine) {
  TransitionGraph const g(m);
  std::vector<int> component;
  int const n_components = FSTStronglyConnected(g, component);
  std::vector<std::vector<int>> members(static_cast<size_t>(n_components));
  for (int p = 0; p < m.n; ++p) members[size_t(component[size_t(p)])].push_back(p);
  std::vector<char> is_final(size_t(m.n));
  for (int p = 0; p < m.n; ++p)
    is_final[size_t(p)] = m.final_class[size_t(p)] != std::numeric_limits<long>::min();
  auto within_component = [&](size_t j) {
    return component[size_t(m.transitions[j].from)] == component[size_t(m.transitions[j].to)];
  };
  auto rounding = [](float a, float b) {
    return std::fabs(a - b) <=
           8 * std::numeric_limits<float>::epsilon() *
               std::max({1.0f, std::fabs(a), std::fabs(b)});
  };
  float const unbounded = std::numeric_limits<float>::infinity();
  std::vector<float> difference(m.transitions.size()), final_difference(size_t(m.n));
  std::vector<size_t> mine, theirs;
  for (;;) {
    // Each arc's and final weight's difference from the first member's.
    int const n_classes = *std::max_element(cls.begin(), cls.end()) + 1;
    std::vector<int> representative(size_t(n_classes), -1);
    for (int p = 0; p < m.n; ++p)
      if (representative[size_t(cls[size_t(p)])] < 0) representative[size_t(cls[size_t(p)])] = p;
    for (int p = 0; p < m.n; ++p) {
      int const r = representative[size_t(cls[size_t(p)])];
      final_difference[size_t(p)] =
          is_final[size_t(p)] ? std::fabs(drift.final[size_t(p)] - drift.final[size_t(r)]) : 0.0f;
      arcs_in_pairing_order(g, cls, &drift.weight, p, mine);
      arcs_in_pairing_order(g, cls, &drift.weight, r, theirs);
      for (size_t k = 0; k < mine.size(); ++k)
        difference[mine[k]] = std::fabs(drift.weight[mine[k]] - drift.weight[theirs[k]]);
    }
    // The drift of each component, sinks first: a cycle carrying a difference leaves it
    // unbounded; otherwise its states reach each other without drifting and share one bound.
    std::vector<float> bound(size_t(n_components), 0.0f);
    std::vector<char> starts(size_t(m.n), 0);  // where a drift beyond delta starts
    bool any = false;
    for (int c = 0; c < n_components; ++c)
      for (int p : members[size_t(c)]) {
        float& b = bound[size_t(c)];
        b = std::max(b, final_difference[size_t(p)]);
        starts[size_t(p)] = final_difference[size_t(p)] > drift.delta;
        for (size_t j = g.first[size_t(p)]; j < g.first[size_t(p) + 1]; ++j) {
          float const below = bound[size_t(component[size_t(m.transitions[j].to)])];
          if (within_component(j)) {
            if (rounding(drift.weight[j], drift.weight[j] + difference[j])) continue;
            b = unbounded, starts[size_t(p)] = 1;
          } else {
            b = std::max(b, difference[j] + below);
            starts[size_t(p)] |= difference[j] > 0 && below <= drift.delta &&
                                 !(difference[j] + below <= drift.delta);
          }
        }
        any |= starts[size_t(p)] != 0;
      }
    if (!any) return cls;
    // Those members start classes of their own (one per class they leave), then refinement
    // restores that equal classes lead to equal classes.
    for (int p = 0; p < m.n; ++p)
      m.final_class[size_t(p)] = long(cls[size_t(p)]) + (starts[size_t(p)] ? n_classes : 0);
    cls = refine(m);
  }
}

// ---- reading the machine once ----

// An array grown in place by remapping its pages: a large array read from a lazy machine never
// holds an old and a new copy at once, as a doubling vector would.
template <class T>
class GrowingArray {
 public:
  GrowingArray() = default;
  GrowingArray(GrowingArray const&) = delete;
  GrowingArray& operator=(GrowingArray const&) = delete;
  ~GrowingArray() {
    if (_data) munmap(_data, _capacity * sizeof(T));
  }
  size_t size() const { return _size; }
  T* data() const { return _data; }
  T& operator[](size_t i) const { return _data[i]; }
  void push_back(T const& value) {
    if (_size == _capacity) reserve(_size + 1);
    _data[_size++] = value;
  }
  void resize(size_t n, T const& fill) {
    if (n > _capacity) reserve(n);
    for (size_t i = _size; i < n; ++i) _data[i] = fill;
    _size = n;
  }

 private:
  void reserve(size_t at_least) {
    size_t const page = size_t(sysconf(_SC_PAGESIZE));
    size_t bytes = std::max(at_least * sizeof(T), std::max(2 * _capacity * sizeof(T), page));
    bytes = (bytes + page - 1) / page * page;
    void* memory =
        _data ? mremap(_data, _capacity * sizeof(T), bytes, MREMAP_MAYMOVE)
              : mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) FSTFatal("FSTMinimize: out of memory reading the machine");
    _data = static_cast<T*>(memory);
    _capacity = bytes / sizeof(T);
  }

  T* _data = nullptr;
  size_t _size = 0, _capacity = 0;
};

// The part of a machine reachable from its initial state, read once depth first: every later
// pass runs over these arrays (16 bytes a state, 16 an arc), and the machine can be let go.
struct ArcTable {
  struct Arc {
    int to, input, output;
    float weight;
  };
  struct Range {
    Arc const* first;
    Arc const* last;
    Arc const* begin() const { return first; }
    Arc const* end() const { return last; }
  };
  int initial = -1;
  float zero = 0;              // the semiring's
  GrowingArray<size_t> first;  // per state of the machine: where its arcs start in arcs
  GrowingArray<int> count;     // 0 for states not reached
  GrowingArray<float> final;   // zero for states not reached
  GrowingArray<Arc> arcs;

  int n() const { return int(count.size()); }
  Range arcs_of(int p) const {
    Arc const* a = arcs.data() + first[size_t(p)];
    return {a, a + count[size_t(p)]};
  }
  // What the potential algorithms need.
  float final_weight(int p) const { return final[size_t(p)]; }
  template <class F>
  void for_each_arc(int p, F f) const {
    for (Arc const& a : arcs_of(p)) f(a.to, a.weight);
  }
};

void read_reachable(FSTGenericInt const& m, ArcTable& table) {
  table.initial = m.initial();
  table.zero = m.semiring()->zero;
  auto grow = [&](size_t n) {
    if (n <= table.count.size()) return;
    table.first.resize(n, 0);
    table.count.resize(n, 0);
    table.final.resize(n, table.zero);
  };
  grow(size_t(m.states().size()));
  FSTVisitDepthFirst(m, false, [&](int p, FSTArcIter const& arcs) {
    grow(size_t(m.states().size()));
    table.first[size_t(p)] = table.arcs.size();
    table.count[size_t(p)] = arcs.size();
    table.final[size_t(p)] = m.final_weight(p);
    for (FSTArc* a : arcs) table.arcs.push_back({a->to, a->input, a->output, a->weight});
  });
}

// Alive: reached and reaching a final state, found backwards from the final states over the
// reversed arcs in compressed rows. (A state not reached has no arcs and no final weight.)
std::vector<char> live_states(ArcTable const& t) {
  int const n = t.n();
  std::vector<size_t> first(size_t(n) + 1, 0);
  for (size_t i = 0; i < t.arcs.size(); ++i) ++first[size_t(t.arcs[i].to) + 1];
  for (int p = 0; p < n; ++p) first[size_t(p) + 1] += first[size_t(p)];
  std::vector<int> predecessors(t.arcs.size());
  for (int p = 0; p < n; ++p)
    for (ArcTable::Arc const& a : t.arcs_of(p)) predecessors[first[size_t(a.to)]++] = p;
  // Each row was filled up to the next one's start: shift the starts back.
  for (int p = n; p > 0; --p) first[size_t(p)] = first[size_t(p) - 1];
  first[0] = 0;
  std::vector<char> alive(size_t(n), 0);
  std::vector<int> work;
  for (int p = 0; p < n; ++p)
    if (t.final[size_t(p)] != t.zero) alive[size_t(p)] = 1, work.push_back(p);
  while (!work.empty()) {
    int const q = work.back();
    work.pop_back();
    for (size_t i = first[size_t(q)]; i < first[size_t(q) + 1]; ++i) {
      int const p = predecessors[i];
      if (!alive[size_t(p)]) alive[size_t(p)] = 1, work.push_back(p);
    }
  }
  return alive;
}

}  // namespace

FSTGeneric FSTMinimize(FSTGeneric m, float delta) {
  FSTSemiringBase const& s = *m->semiring();
  // Read once; the caller's handle may have been the last one on a lazy machine (and through it
  // on that machine's input), all of which goes now.
  ArcTable table;
  read_reachable(*m, table);
  m = FSTGeneric();
  // The live part, renumbered densely in the old order (as trimming would), weights pushed.
  std::vector<char> const alive = live_states(table);
  int const n_in = table.n();
  std::vector<int> live(size_t(n_in), -1), original;
  for (int q = 0; q < n_in; ++q)
    if (alive[size_t(q)]) live[size_t(q)] = int(original.size()), original.push_back(q);
  int n = int(original.size());
  if (n == 0) return FSTBasic(&s);
  fst::vector<float> potential;
  {
    std::vector<int> order;
    // Self-loops are the potentials' own concern (they check their weights).
    bool const acyclic = topological_order(table, true, order);
    FSTPotentialOfGraph(potential, table, s, acyclic ? &order : nullptr);
  }

  // Pushing divides the initial state by its potential too: put that total back where every
  // path pays it once. On a start that paths return to, that is a fresh copy of the start,
  // numbered last.
  int start = live[size_t(table.initial)];
  float const total = potential[size_t(table.initial)];
  int carrier = -1;
  if (total != s.one) {
    bool entered = false;
    for (int q : original)
      for (ArcTable::Arc const& a : table.arcs_of(q)) entered |= a.to == table.initial;
    if (entered) original.push_back(table.initial), start = n++;
    carrier = start;
  }
  // Paths of infinite cost have nothing to push (dividing would give NaNs).
  auto arc_weight = [&](int p, int q, ArcTable::Arc const& a) {
    float const v = potential[size_t(q)];
    float w = v == s.zero ? a.weight : s.divide(s.times(a.weight, potential[size_t(a.to)]), v);
    return p == carrier ? s.times(total, w) : w;
  };
  auto final_weight = [&](int p) {
    int const q = original[size_t(p)];
    float const v = potential[size_t(q)];
    float w = v == s.zero ? table.final[size_t(q)] : s.divide(table.final[size_t(q)], v);
    return p == carrier ? s.times(total, w) : w;
  };

  // Symbols: (input, output, weight cluster); final classes: final weight clusters.
  Machine machine;
  std::vector<float> arc_weights, finals;  // per transition and per state, pushed
  machine.n = n;
  {
    std::vector<std::pair<long, float>> keyed;
    for (int p = 0; p < n; ++p) {
      int const q = original[size_t(p)];
      for (ArcTable::Arc const& a : table.arcs_of(q)) {
        if (live[size_t(a.to)] < 0) continue;
        keyed.push_back({long(a.input) << 32 | uint32_t(a.output), arc_weight(p, q, a)});
        machine.transitions.push_back({p, live[size_t(a.to)], 0});
      }
    }
    std::vector<int> symbol = weight_clusters(keyed, delta);
    for (size_t i = 0; i < symbol.size(); ++i) machine.transitions[i].symbol = symbol[i];
    for (auto const& k : keyed) arc_weights.push_back(k.second);
    keyed.clear();
    for (int p = 0; p < n; ++p)
      keyed.push_back(
          {table.final[size_t(original[size_t(p)])] != s.zero ? 0 : 1, final_weight(p)});
    std::vector<int> final_cluster = weight_clusters(keyed, delta);
    for (auto const& k : keyed) finals.push_back(k.second);
    for (int p = 0; p < n; ++p)
      machine.final_class.push_back(keyed[size_t(p)].first == 0 ? final_cluster[size_t(p)]
                                                                : std::numeric_limits<long>::min());
  }

  std::vector<int> order, cls;
  if (topological_order(TransitionGraph(machine), false, order)) {
    // Costs and scores add up along a path: their drift is bounded by delta per path.
    if (&s != FSTPlusTimes && delta > 0) {
      Drift const drift{arc_weights, finals, delta};
      cls = by_height(machine, order, &drift);
    } else {
      cls = by_height(machine, order);
    }
  } else {
    bool const by_symbol = deterministic(machine);
    auto refine = [by_symbol](Machine const& m) {
      return by_symbol ? hopcroft(m) : bisimulation(m);
    };
    cls = refine(machine);
    if (&s != FSTPlusTimes && delta > 0)
      cls = bound_cyclic_drift(machine, std::move(cls), Drift{arc_weights, finals, delta}, refine);
  }
  machine = Machine();

  // One state per class, numbered by first appearance; each class keeps its first member's arcs.
  std::vector<int> number(size_t(n), -1), representative;
  int n_classes = 0;
  std::vector<int> class_number(size_t(*std::max_element(cls.begin(), cls.end()) + 1), -1);
  for (int p = 0; p < n; ++p) {
    int& c = class_number[size_t(cls[size_t(p)])];
    if (c < 0) c = n_classes++, representative.push_back(p);
    number[size_t(p)] = c;
  }
  FSTGeneric result = FSTBasic(&s);
  result->add_states(n_classes);
  result->set_initial(number[size_t(start)]);
  for (int c = 0; c < n_classes; ++c) {
    int const p = representative[size_t(c)], q = original[size_t(p)];
    if (table.final[size_t(q)] != s.zero) result->set_final(c, final_weight(p));
    FSTArcVector out;
    for (ArcTable::Arc const& a : table.arcs_of(q))
      if (live[size_t(a.to)] >= 0)
        out.push_back(FSTNewArc(a.input, a.output, arc_weight(p, q, a),
                                number[size_t(live[size_t(a.to)])], c));
    result->set_arcs(c, out, FSTArcOrderAny);
  }
  return result;
}
