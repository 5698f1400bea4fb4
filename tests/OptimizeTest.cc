#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <set>

#include "FST.h"
#include "Language.h"
#include "RandomMachine.h"
#include "TestUtil.h"

namespace {

using ::testing::KilledBySignal;

size_t const bound = 4;

// Best weight of a path from s to a final state, over simple paths (enough when cycles do not
// improve); zero when there is none.
float BestToFinal(FSTGeneric const& m, int s) {
  FSTSemiringBase const& sr = *m->semiring();
  float best = sr.zero;
  std::vector<bool> on_path(size_t(m->states().size()), false);
  std::function<void(int, float)> walk = [&](int p, float w) {
    if (m->is_final(p)) best = sr.better(best, sr.times(w, m->final_weight(p)));
    on_path[size_t(p)] = true;
    for (FSTArc* a : m->arcs_out(p))
      if (!on_path[size_t(a->to)]) walk(a->to, sr.times(w, a->weight));
    on_path[size_t(p)] = false;
  };
  walk(s, sr.one);
  return best;
}

TEST(Trim, DeadStatesAreThoseOffEveryAcceptingPath) {
  std::mt19937 rng(41);
  for (int round = 0; round < 200; ++round) {
    RandomMachineOptions o;
    o.acyclic = round % 2 == 0;
    o.max_states = 7;
    FSTGeneric m = RandomMachine(rng, o);
    int n = m->states().size();
    // Brute force: reachable from the start, and some final state reachable from it.
    std::vector<std::set<int>> reach(static_cast<size_t>(n));
    for (int s = 0; s < n; ++s) {
      std::vector<int> work{s};
      reach[size_t(s)].insert(s);
      while (!work.empty()) {
        int p = work.back();
        work.pop_back();
        for (FSTArc* a : m->arcs_out(p))
          if (reach[size_t(s)].insert(a->to).second) work.push_back(a->to);
      }
    }
    fst::vector<int> want;
    for (int s = 0; s < n; ++s) {
      bool to_final = false;
      for (int t : reach[size_t(s)]) to_final |= m->is_final(t);
      if (!reach[0].count(s) || !to_final) want.push_back(s);
    }
    fst::vector<int> dead;
    m->dead_states(dead);
    EXPECT_EQ(dead, want) << Describe(m);
    fst::vector<int> cyclic_way;
    m->_dead_states_cyclic(cyclic_way);
    EXPECT_EQ(cyclic_way, want);
    FSTGeneric trimmed = FSTTrim(FSTMutableCopy(m));
    EXPECT_EQ(trimmed->states().size(), n - int(want.size()));
    EXPECT_EQ(Enumerate(trimmed, bound), Enumerate(m, bound));
  }
  FSTGeneric none_final = Text("I 0\nT 0 1 a\nT 1 0 b\n");
  fst::vector<int> dead;
  none_final->dead_states(dead);
  EXPECT_EQ(dead, (fst::vector<int>{0, 1}));

  // A lazy machine trims into a stored copy; trimming it in place is refused.
  FSTGeneric lazy = FSTUnion(none_final, Text("I 0\nT 0 1 a\nF 1\n"));
  FSTGeneric copy = FSTTrim(lazy);
  EXPECT_EQ(copy->name, "FSTBasic");
  EXPECT_EQ(copy->states().size(), 3);
  EXPECT_EXIT(lazy->trim(), KilledBySignal(SIGABRT), "^FATAL: cannot trim immutable FST\n");
}

TEST(TopologicalSort, OrdersAndRenumbers) {
  FSTGeneric m = Text(
      "#FSTBasic PlusTimes\nI 2\nT 2 0 a a 0.5\nT 0 1 b b\nT 2 1 , c\nF 1\n"
      "T 1 1 x x 0.5\n");
  fst::vector<int> order;
  EXPECT_TRUE(FSTTopologicalSort(order, m));  // the self-loop is no cycle
  EXPECT_EQ(order, (fst::vector<int>{2, 0, 1}));
  FSTGeneric sorted = FSTTopologicalSort(m);
  std::ostringstream os;
  sorted->dump_ascii(os, true);
  EXPECT_EQ(os.str(),
            "#FSTBasic PlusTimes\nI 0\nT 0 1 a a 0.5\nT 0 2 , c\nT 1 2 b b\nF 2\nT 2 2 x x 0.5\n");

  // With a predicate only the chosen arcs order the states; every arc is still copied.
  FSTGeneric cyclic = Text("I 0\nT 0 1 a\nT 1 0 b\nT 1 2 , \nF 2\n");
  EXPECT_FALSE(FSTTopologicalSort(order, cyclic));
  EXPECT_TRUE(FSTTopologicalSort(order, cyclic, fst::set<int>{0}));
  EXPECT_EQ(FSTTopologicalSort(cyclic, fst::set<int>{0})->states().size(), 3);
  // A cyclic machine gives an empty MinPlus machine, whatever its semiring.
  FSTGeneric probabilities = Text("#FSTBasic PlusTimes\nI 0\nT 0 1 a\nT 1 0 b\n");
  FSTGeneric empty = FSTTopologicalSort(probabilities);
  EXPECT_EQ(empty->states().size(), 0);
  EXPECT_EQ(empty->semiring(), FSTMinPlus);
  EXPECT_TRUE(FSTTopologicalSortFromInitial(order, Text("T 0 1 a\n")));
  EXPECT_TRUE(order.empty());
}

TEST(Potential, BestWeightsToAFinalState) {
  std::mt19937 rng(42);
  for (FSTSemiringBase const* s : {FSTMinPlus, FSTMaxPlus, FSTPlusTimes})
    for (int round = 0; round < 80; ++round) {
      RandomMachineOptions o;
      o.semiring = s;
      o.max_states = 6;
      o.max_arcs = 10;
      FSTGeneric m = RandomMachine(rng, o);
      fst::vector<float> V;
      FSTPotential(V, m);
      ASSERT_EQ(int(V.size()), m->states().size());
      for (int p : m->states())
        EXPECT_TRUE(s->is_equal(V[size_t(p)], BestToFinal(m, p), 1e-4f))
            << s->name << " state " << p << ": " << V[size_t(p)] << "\n"
            << Describe(m);
      // Pushing in place writes what a pushed copy holds, and never into a shared machine.
      std::ostringstream copied, in_place, shared;
      FSTPushWeights(m)->dump_ascii(copied, true);
      m->dump_ascii(shared, true);
      FSTGeneric kept = m;
      FSTGeneric pushed = FSTPushWeightsInPlace(m);
      EXPECT_NE(pushed.get(), m.get());
      kept->dump_ascii(in_place, true);
      EXPECT_EQ(in_place.str(), shared.str());
      pushed = FSTPushWeightsInPlace(FSTBasic(m));
      in_place.str("");
      pushed->dump_ascii(in_place, true);
      EXPECT_EQ(in_place.str(), copied.str());

      // Pushing with the total put back keeps every path's weight (whether or not paths come
      // back to the initial state).
      if (s->idempotent()) {
        EXPECT_TRUE(SameLanguage(s, Enumerate(FSTMultiplyPaths(pushed, FSTTotalWeight(m)), 4),
                                 Enumerate(m, 4)))
            << s->name << "\n" << Describe(m);
      }

      FSTGeneric with = FSTPotential(m);
      EXPECT_EQ(with.get(), m.get());  // a mutable machine gets them in place
      for (int p : m->states()) EXPECT_EQ(m->potential(p), V[size_t(p)]);
    }
  EXPECT_NE(FSTPotential(FSTUnion(Text("I 0\nF 0\n"), Text("I 0\nF 0\n"))).get(), nullptr);
}

TEST(Potential, EdgeCases) {
  FSTGeneric chain = Text("I 0\nT 0 1 a , 1\nT 1 2 b , 2\nF 2 0.5\nT 0 3 c\n");
  fst::vector<float> V;
  FSTPotential(V, chain);
  EXPECT_EQ(V, (fst::vector<float>{3.5f, 2.5f, 0.5f, 1e30f}));
  FSTGeneric pushed = FSTPushWeights(chain);
  std::ostringstream os;
  pushed->dump_ascii(os, false);
  EXPECT_EQ(os.str().substr(0, 37), "I 0\nT 0 1 a\nT 0 3 c , 1e+30\nT 1 2 b\nF");
  EXPECT_EQ(pushed->final_weight(2), 0);

  // A negative cycle: the last pass warns once and keeps the values reached.
  testing::internal::CaptureStderr();
  FSTPotential(V, Text("I 0\nT 0 1 a , -1\nT 1 0 b , -1\nF 1\n"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "WARNING: FSTPotential: cycle with weight better than semiring->one detected\n");
  EXPECT_EXIT(FSTPotential(V, Text("I 0\nT 0 0 a , -1\nF 0\n")), KilledBySignal(SIGABRT),
              "^FATAL: FSTPotential: self loop weight better than 0\n");
}

// Every pipeline keeps the weighted language, up to the best path's weight, which weight
// pushing takes off the initial state.
TEST(Optimize, PipelinesKeepTheLanguage) {
  std::mt19937 rng(43);
  using Pipeline = FSTGeneric (*)(FSTGeneric const&, int, float);
  using Taking = FSTGeneric (*)(FSTGeneric&&, int, float);
  struct Case {
    char const* name;
    Pipeline run;
    Taking take;
    bool acceptor;
  } const cases[] = {{"default", FSTOptimize, FSTOptimize, false},
                     {"2", FSTOptimize2, FSTOptimize2, false},
                     {"A", FSTOptimizeA, FSTOptimizeA, true},
                     {"2A", FSTOptimize2A, FSTOptimize2A, true}};
  for (Case const& c : cases)
    for (int round = 0; round < 60; ++round) {
      RandomMachineOptions o;
      o.acceptor = c.acceptor;
      o.acyclic = round % 2 == 0;
      o.max_states = 6;
      o.max_arcs = 10;
      o.n_labels = 2;
      FSTGeneric m = RandomMachine(rng, o);
      if (!o.acyclic) m = FSTClearWeights(m);  // determinizable with cycles
      fst::vector<float> V;
      FSTPotential(V, m);
      FSTGeneric result = c.run(m, 1, 0.001f);
      Language want = Enumerate(m, bound);
      EXPECT_TRUE(SameLanguage(
          FSTMinPlus, Enumerate(FSTMultiplyPaths(FSTBasic(result), FSTTotalWeight(m)), bound),
          want, 2e-3f))
          << c.name << "\n"
          << Describe(m) << Describe(result);
      // The form that takes the handle gives the same machine and leaves the handle empty.
      FSTGeneric handed = FSTBasic(m);
      std::ostringstream kept_text, taken_text;
      result->dump_ascii(kept_text, true);
      c.take(std::move(handed), 1, 0.001f)->dump_ascii(taken_text, true);
      EXPECT_EQ(taken_text.str(), kept_text.str()) << c.name;
      EXPECT_FALSE(handed);
      // Delta 0 compares weights exactly, and ends wherever delta 0.001 does.
      FSTGeneric exact = c.run(m, 1, 0.0f);
      EXPECT_TRUE(
          SameLanguage(FSTMinPlus, Scale(FSTMinPlus, Enumerate(exact, bound), V[0]), want, 2e-3f))
          << c.name << " delta 0\n"
          << Describe(m) << Describe(exact);
      // Deterministic, and no larger than the determinized input.
      for (int p : result->states()) {
        std::set<std::pair<int, int>> seen;
        for (FSTArc* a : result->arcs_out(p)) {
          if (c.acceptor) {
            EXPECT_TRUE(seen.insert({a->input, a->output}).second) << c.name;
          }
          EXPECT_FALSE(a->input == 0 && a->output == 0);
        }
      }
      FSTGeneric determinized = FSTBasic(FSTDeterminize(
          FSTBasic(FSTRemoveEpsilons(m, c.acceptor, 0.001f)), 1, c.acceptor, 0.001f, false));
      EXPECT_LE(result->states().size(), determinized->states().size());
    }
  // Probabilities go through the acceptor pipelines.
  FSTGeneric p = Text("#FSTBasic PlusTimes\nI 0\nT 0 1 , , 0.5\nT 0 1 a a 0.25\nT 1 2 a a\nF 2\n");
  EXPECT_TRUE(SameLanguage(FSTPlusTimes, Enumerate(FSTOptimizeA(p, 1, 0.001f), bound),
                           Scale(FSTPlusTimes, Enumerate(p, bound), 2.0f)));
}

TEST(Minimize, MinimalEquivalentAndStable) {
  std::mt19937 rng(44);
  for (int round = 0; round < 150; ++round) {
    RandomMachineOptions o;
    o.acyclic = round % 3 != 0;
    o.acceptor = true;
    o.epsilon_input = 0;
    o.max_states = 7;
    o.max_arcs = 12;
    o.n_labels = 2;
    FSTGeneric m = RandomMachine(rng, o);
    FSTGeneric once = FSTMinimize(m, 0.001f);
    EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(once, bound), Enumerate(m, bound)))
        << Describe(m) << Describe(once);
    FSTGeneric twice = FSTMinimize(once, 0.001f);
    EXPECT_EQ(twice->states().size(), once->states().size());
    // A lazy machine, read once as it is computed, gives what its stored copy gives (acyclic:
    // a cyclic one need not determinize in finite time).
    if (o.acyclic) {
      FSTGeneric lazy = FSTDeterminize(m, 1, true, 0.001f, false);
      EXPECT_EQ(Describe(FSTMinimize(lazy, 0.001f)), Describe(FSTMinimize(FSTBasic(lazy), 0.001f)));
    }
    // At most one more state: a fresh start carrying the total weight, when paths return to the
    // start.
    EXPECT_LE(once->states().size(), m->states().size() + 1);
  }
  // Two suffixes that are the same future merge, cyclic or not.
  FSTGeneric m = Text("I 0\nT 0 1 a\nT 0 2 b\nT 1 3 c , 1\nT 2 4 c , 1\nF 3\nF 4\n");
  EXPECT_EQ(FSTMinimize(m, 0.001f)->states().size(), 3);
  FSTGeneric loops = Text("I 0\nT 0 1 a\nT 0 2 b\nT 1 1 c\nT 2 2 c\nT 1 3 d\nT 2 3 d\nF 3\n");
  EXPECT_EQ(FSTMinimize(loops, 0.001f)->states().size(), 3);
  // A constant difference is pushed away; relative weights that differ by more than delta
  // keep states apart.
  FSTGeneric pushed_away = Text("I 0\nT 0 1 a\nT 0 2 b\nT 1 3 c , 1\nT 2 3 c , 1.01\nF 3\n");
  EXPECT_EQ(FSTMinimize(pushed_away, 0.001f)->states().size(), 3);
  FSTGeneric apart = Text(
      "I 0\nT 0 1 a\nT 0 2 b\nT 1 3 c , 1\nT 1 3 d , 2\nT 2 3 c , 1\n"
      "T 2 3 d , 2.01\nF 3\n");
  EXPECT_EQ(FSTMinimize(apart, 0.001f)->states().size(), 4);
  EXPECT_EQ(FSTMinimize(apart, 0.1f)->states().size(), 3);
  // Weights within delta share a class even where a grid of width delta would part them.
  FSTGeneric near =
      Text("I 0\nT 0 1 a\nT 0 2 b\nT 1 3 c\nT 1 3 d , 0.00049\nT 2 3 c\nT 2 3 d , 0.00051\nF 3\n");
  EXPECT_EQ(FSTMinimize(near, 0.001f)->states().size(), 3);
  EXPECT_EQ(FSTMinimize(near, 0)->states().size(), 4);
  EXPECT_EQ(FSTMinimize(Text("T 0 1 a\n"), 0.001f)->states().size(), 0);
}

// Weights within delta of each other at every step of a path must not add up: no path's weight
// moves by more than delta, though each merge alone is within it. Cycles repeat a difference as
// often as a path goes round, so the trees also get loops at their leaves or back to the root.
TEST(Minimize, NoPathDriftsByMoreThanDelta) {
  std::mt19937 rng(45);
  float const delta = 0.1f;
  int merged[3] = {0, 0, 0};
  auto step = [&] { return std::to_string(0.04 * double(rng() % 3)); };
  for (int round = 0; round < 150; ++round) {
    // Full binary trees of depth 4 (labels a and b, leaves final), weights in steps of 0.04:
    // every arc is within delta of its sibling subtree's, so merging arc by arc would let a
    // path drift by up to four steps.
    int const shape = round % 3;  // a tree, loops at the leaves, leaves back to the root
    std::string text = "I 0\n";
    int next = 1;
    std::vector<int> level{0};
    for (int depth = 0; depth < 4; ++depth) {
      std::vector<int> below;
      for (int p : level)
        for (char label : {'a', 'b'}) {
          text += "T " + std::to_string(p) + " " + std::to_string(next) + " " + label + " , " +
                  step() + "\n";
          below.push_back(next++);
        }
      level = below;
    }
    for (int p : level) {
      text += "F " + std::to_string(p) + "\n";
      if (shape)
        text += "T " + std::to_string(p) + " " + (shape == 1 ? std::to_string(p) : "0") +
                " c , " + step() + "\n";
    }
    FSTGeneric m = Text(text);
    FSTGeneric small = FSTMinimize(m, delta);
    size_t const length = shape ? 10 : 8;
    Language const want = Enumerate(m, length), got = Enumerate(small, length);
    ASSERT_EQ(got.size(), want.size()) << text;
    for (auto const& [strings, weight] : want) {
      ASSERT_TRUE(got.count(strings)) << text;
      ASSERT_LE(std::fabs(got.at(strings) - weight), delta * 1.0001f) << text << Describe(small);
    }
    merged[shape] += small->states().size() < FSTMinimize(m, 0)->states().size();
  }
  // Delta did merge states in every shape: the bound was put to the test.
  EXPECT_GT(merged[0], 40);
  EXPECT_GT(merged[1], 40);
  EXPECT_GT(merged[2], 8);
}

// State counts against the peer's fstdeterminize | fstminimize | fstconnect.
TEST(Minimize, AsSmallAsPeerToolkit) {
  if (RunCommand("command -v fstcompile && command -v fstminimize").status != 0)
    GTEST_SKIP() << "fstcompile/fstminimize not installed (Debian package libfst-tools)";
  std::mt19937 rng(45);
  std::string const tool = T2SFST_TOOL;
  std::string symbols = WriteTempFile("min.syms", "<eps>\t0\n");
  for (int i = 0; i < 3; ++i)
    RunCommand("printf '" + std::string(1, char('a' + i)) + "\\t" + std::to_string(RandomLabel(i)) +
               "\\n' >> " + symbols);
  for (int round = 0; round < 25; ++round) {
    RandomMachineOptions o;
    o.acceptor = true;
    o.epsilon_input = 0;
    o.acyclic = round % 2 == 0;
    o.max_states = 8;
    o.max_arcs = 14;
    FSTGeneric m = RandomMachine(rng, o);
    if (!o.acyclic) m = FSTClearWeights(m);
    FSTGeneric ours = FSTOptimizeA(m, 1, 0.001f);
    std::ostringstream text;
    m->dump_ascii(text, true);
    std::string in = WriteTempFile("min.fst", text.str()), att = WriteTempFile("min.att", "");
    RunCommand(tool + " convert --to att " + in + " " + att);
    CommandResult r =
        RunCommand("fstcompile --isymbols=" + symbols + " --osymbols=" + symbols + " " + att +
                   " | fstdeterminize | fstminimize | fstconnect | "
                   "fstinfo | grep '# of states'");
    ASSERT_EQ(r.status, 0) << r.err;
    int peer_states = std::stoi(r.out.substr(r.out.rfind(' ') + 1));
    EXPECT_EQ(ours->states().size(), peer_states) << text.str() << Describe(ours);
  }
}

}  // namespace
