// Seeded random small machines for property tests.
#ifndef T2SFST_TESTS_RANDOMMACHINE_H
#define T2SFST_TESTS_RANDOMMACHINE_H

#include <random>

#include "FST.h"

struct RandomMachineOptions {
  int max_states = 5;
  int max_arcs = 8;
  int n_labels = 3;             // labels "a", "b", ...
  double epsilon_input = 0.2;   // chance of an epsilon input label
  double epsilon_output = 0.2;  // chance of an epsilon output label
  bool acceptor = false;        // output label = input label
  bool acyclic = false;         // arcs only go to higher state ids
  double final_chance = 0.4;
  FSTSemiringBase const* semiring = FSTMinPlus;
};

// Weights are small multiples of 0.5 (MinPlus, PlusTimesLog: non-negative costs; MaxPlus:
// non-positive scores; PlusTimes: probabilities up to 0.5), so no cycle improves a path.
FSTGeneric RandomMachine(std::mt19937& rng, RandomMachineOptions const& options = {});

// The label id of "a" + i.
int RandomLabel(int i);

#endif
