#include "RandomMachine.h"

#include <string>

int RandomLabel(int i) { return FSTstring_map[std::string(1, char('a' + i))]; }

FSTGeneric RandomMachine(std::mt19937& rng, RandomMachineOptions const& o) {
  FSTSemiringBase const* s = o.semiring;
  std::uniform_real_distribution<double> chance(0, 1);
  auto pick = [&](int n) { return int(rng() % unsigned(n)); };
  auto weight = [&] {
    float k = float(pick(4));
    if (s == FSTMaxPlus) return -0.5f * k;
    if (s == FSTPlusTimes) return 0.125f * (k + 1);
    return 0.5f * k;
  };
  auto label = [&](double epsilon) {
    return chance(rng) < epsilon ? 0 : RandomLabel(pick(o.n_labels));
  };
  FSTGeneric m = FSTBasic(s);
  int n = 1 + pick(o.max_states);
  m->add_states(n);
  m->set_initial(0);
  int n_arcs = pick(o.max_arcs + 1);
  for (int i = 0; i < n_arcs; ++i) {
    int p = pick(n);
    if (o.acyclic && p == n - 1) continue;
    int q = o.acyclic ? p + 1 + pick(n - 1 - p) : pick(n);
    int in = label(o.epsilon_input);
    int out = o.acceptor ? in : label(o.epsilon_output);
    m->add_arc(p, q, in, out, weight());
  }
  for (int p = 0; p < n; ++p)
    if (chance(rng) < o.final_chance) m->set_final(p, weight());
  return m;
}
