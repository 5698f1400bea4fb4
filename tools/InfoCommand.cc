// A summary of a machine: size, labels and structural properties.
#include <cstdio>
#include <string>
#include <vector>

#include "CommandSupport.h"
#include "Commands.h"

namespace {

struct Properties {
  int states = 0, arcs = 0, finals = 0;
  int epsilon_arcs = 0, input_epsilons = 0, output_epsilons = 0;
  bool deterministic = true;  // on inputs: no epsilon input, no repeated input label per state
  bool acyclic = true;
  bool trim = true;
};

// Arcs as compressed rows: the targets of state s are to[first[s]] .. to[first[s + 1]].
struct Rows {
  std::vector<int> first, to;
  int const* begin(int s) const { return to.data() + first[size_t(s)]; }
  int const* end(int s) const { return to.data() + first[size_t(s) + 1]; }
};

Rows Reversed(Rows const& rows, int n) {
  Rows back{std::vector<int>(size_t(n) + 1, 0), std::vector<int>(rows.to.size())};
  for (int t : rows.to) ++back.first[size_t(t) + 1];
  for (int s = 0; s < n; ++s) back.first[size_t(s) + 1] += back.first[size_t(s)];
  std::vector<int> fill(back.first.begin(), back.first.end() - 1);
  for (int s = 0; s < n; ++s)
    for (int const* t = rows.begin(s); t != rows.end(s); ++t) back.to[size_t(fill[size_t(*t)]++)] = s;
  return back;
}

Properties Measure(FSTGeneric const& m) {
  Properties p;
  FSTOperandForce(*m);
  p.states = m->states().size();
  // A few bytes per state and arc beyond the machine itself: info works on large machines.
  Rows next{std::vector<int>(size_t(p.states) + 1, 0), {}};
  for (int s = 0; s < p.states; ++s) {
    p.finals += m->is_final(s);
    fst::set<int> inputs;
    for (FSTArc* a : m->arcs_out(s)) {
      ++p.arcs;
      p.epsilon_arcs += a->input == 0 && a->output == 0;
      p.input_epsilons += a->input == 0;
      p.output_epsilons += a->output == 0;
      if (a->input == 0 || !inputs.insert(a->input).second) p.deterministic = false;
      next.to.push_back(a->to);
    }
    next.first[size_t(s) + 1] = int(next.to.size());
  }
  // Cycles: iterative depth-first search with on-stack marks.
  std::vector<char> mark(size_t(p.states), 0);  // 0 new, 1 on stack, 2 done
  for (int root = 0; root < p.states && p.acyclic; ++root) {
    if (mark[size_t(root)]) continue;
    std::vector<std::pair<int, int const*>> stack{{root, next.begin(root)}};
    mark[size_t(root)] = 1;
    while (!stack.empty() && p.acyclic) {
      auto& [s, i] = stack.back();
      if (i != next.end(s)) {
        int t = *i++;
        if (mark[size_t(t)] == 1) p.acyclic = false;
        if (mark[size_t(t)] == 0) {
          mark[size_t(t)] = 1;
          stack.push_back({t, next.begin(t)});
        }
      } else {
        mark[size_t(s)] = 2;
        stack.pop_back();
      }
    }
  }
  // Trim: every state reachable from the initial state and reaching a final state.
  auto reach = [&](std::vector<int> from, Rows const& edges) {
    std::vector<char> seen(size_t(p.states), 0);
    for (int s : from) seen[size_t(s)] = 1;
    while (!from.empty()) {
      int s = from.back();
      from.pop_back();
      for (int const* t = edges.begin(s); t != edges.end(s); ++t)
        if (!seen[size_t(*t)]) seen[size_t(*t)] = 1, from.push_back(*t);
    }
    return seen;
  };
  std::vector<int> start, finals;
  if (m->initial() >= 0) start.push_back(m->initial());
  for (int s = 0; s < p.states; ++s)
    if (m->is_final(s)) finals.push_back(s);
  std::vector<char> accessible = reach(start, next);
  std::vector<char> coaccessible = reach(finals, Reversed(next, p.states));
  for (int s = 0; s < p.states; ++s)
    if (!accessible[size_t(s)] || !coaccessible[size_t(s)]) p.trim = false;
  return p;
}

char const* yes_no(bool b) { return b ? "yes" : "no"; }

}  // namespace

int RunInfo(int argc, char** argv) {
  Arguments args(argc, argv);
  if (!args.ok || args.positional.size() > 1) return UsageError("info", "wrong arguments");
  FSTGeneric m = LoadInputOrModel("info", args.positional.empty() ? "" : args.positional[0]);
  if (!m) return 1;
  Properties p = Measure(m);
  // The order the arcs are kept in; a mapped file's is fixed when it is written.
  std::string order = "unknown";
  auto order_name = [](FSTArcOrder o) {
    return o == FSTArcOrderInput ? "input" : o == FSTArcOrderOutput ? "output" : "none";
  };
  if (auto basic = dynamic_cast<FSTBasicRep const*>(m.get())) order = order_name(basic->arc_order());
  if (auto binary = dynamic_cast<FSTBinaryRep const*>(m.get()))
    order = order_name(binary->arc_order());
  if (auto mapped = dynamic_cast<FSTMmapRep const*>(m.get()))
    order = std::string(order_name(mapped->compiled_order())) + " (compiled)";
  std::printf("representation    %s\n", m->name.c_str());
  std::printf("semiring          %s\n", m->semiring()->name);
  std::printf("states            %d\n", p.states);
  std::printf("arcs              %d\n", p.arcs);
  std::printf("initial state     %d\n", m->initial());
  std::printf("final states      %d\n", p.finals);
  std::printf("epsilon arcs      %d\n", p.epsilon_arcs);
  std::printf("input epsilons    %d\n", p.input_epsilons);
  std::printf("output epsilons   %d\n", p.output_epsilons);
  std::printf("arc order         %s\n", order.c_str());
  std::printf("deterministic     %s\n", yes_no(p.deterministic));
  std::printf("acyclic           %s\n", yes_no(p.acyclic));
  std::printf("trim              %s\n", yes_no(p.trim));
  return 0;
}
