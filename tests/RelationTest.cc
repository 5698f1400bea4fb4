// Difference, equivalence and random paths, checked against brute-force languages of random
// machines.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "FST.h"
#include "Language.h"
#include "RandomMachine.h"
#include "TestUtil.h"

namespace {

size_t const bound = 6;  // longer than any path of an acyclic random machine

TEST(Difference, KeepsWhatTheSecondDoesNotAccept) {
  std::mt19937 rng(71);
  size_t kept = 0, taken_out = 0;
  for (int round = 0; round < 150; ++round) {
    RandomMachineOptions o;
    o.acyclic = true;
    o.n_labels = 2;
    FSTGeneric a = RandomMachine(rng, o);
    o.acceptor = true;
    FSTGeneric b = RandomMachine(rng, o);
    std::set<LabelString> taken;
    for (auto const& entry : Enumerate(b, bound)) taken.insert(entry.first.first);
    Language want;
    for (auto const& entry : Enumerate(a, bound))
      if (!taken.count(entry.first.first)) want.insert(entry);
      else ++taken_out;
    kept += want.size();
    // Also lazily, as the operand of a composition and of an inversion.
    FSTGeneric const difference = FSTDifference(a, b);
    EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(difference, bound), want))
        << Describe(a) << Describe(b);
    EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(FSTInvert(FSTInvert(difference)), bound), want));
  }
  EXPECT_GT(kept, 100u);
  EXPECT_GT(taken_out, 50u);
}

TEST(Equivalent, AgreesWithTheLanguages) {
  std::mt19937 rng(72);
  int equal = 0, unequal = 0;
  for (int round = 0; round < 200; ++round) {
    RandomMachineOptions o;
    o.acyclic = true;
    o.acceptor = true;
    o.n_labels = 2;
    FSTGeneric a = RandomMachine(rng, o);
    // The same language built differently, a changed weight or arc, or another machine.
    FSTGeneric b;
    switch (round % 3) {
      case 0:
        b = FSTMultiplyPaths(FSTOptimizeA(a, 1, 0.001f), FSTTotalWeight(a));
        break;
      case 1: {
        // An extra arc: a new string, or a second path for an old one (in MinPlus, only a
        // better weight changes the language).
        b = FSTMutableCopy(a);
        int const from = b->initial(), to = b->states().size() - 1;
        if (from >= 0 && to > from)
          b->add_arc(from, to, RandomLabel(round % 2), RandomLabel(round % 2), 0.5f * (round % 4));
        break;
      }
      default:
        b = RandomMachine(rng, o);
    }
    bool const same = SameLanguage(FSTMinPlus, Enumerate(a, bound), Enumerate(b, bound), 1e-3f);
    std::string why;
    EXPECT_EQ(FSTEquivalent(a, b, 1e-3f, &why), same) << why << "\n" << Describe(a) << Describe(b);
    EXPECT_EQ(why.empty(), same);
    (same ? equal : unequal)++;
  }
  EXPECT_GT(equal, 50);
  EXPECT_GT(unequal, 50);
}

TEST(RandomPaths, AreSuccessfulPathsAndRepeatable) {
  std::mt19937 rng(73);
  for (int round = 0; round < 60; ++round) {
    RandomMachineOptions o;
    o.n_labels = 2;
    FSTGeneric m = RandomMachine(rng, o);
    Language const language = Enumerate(m, 5);
    for (bool by_weight : {false, true}) {
      std::vector<FSTRandomPath> const paths = FSTRandomPaths(m, 20, uint64_t(round), by_weight, 5);
      for (FSTRandomPath const& path : paths) {
        // Each is a path of m: its strings are accepted, its weight no better than the best.
        StringPair strings;
        float weight = 0;
        int state = m->initial();
        for (FSTArc const& a : path.arcs) {
          if (a.input) strings.first.push_back(a.input);
          if (a.output) strings.second.push_back(a.output);
          weight += a.weight;
          state = a.to;
        }
        auto found = language.find(strings);
        ASSERT_NE(found, language.end()) << Describe(m);
        EXPECT_GE(path.weight + 1e-4f, found->second);
        EXPECT_NEAR(path.weight, weight + m->final_weight(state), 1e-4f);
      }
      // The seed decides the draw; the machine of the paths holds exactly them.
      std::vector<FSTRandomPath> const again = FSTRandomPaths(m, 20, uint64_t(round), by_weight, 5);
      ASSERT_EQ(again.size(), paths.size());
      for (size_t i = 0; i < paths.size(); ++i) EXPECT_EQ(again[i].weight, paths[i].weight);
      FSTGeneric tree = FSTPathsMachine(FSTMinPlus, paths);
      for (auto const& entry : Enumerate(tree, 5)) EXPECT_TRUE(language.count(entry.first));
    }
  }
}

}  // namespace
