#include <gtest/gtest.h>

#include <random>
#include <set>

#include "FST.h"
#include "Language.h"
#include "RandomMachine.h"
#include "TestUtil.h"

namespace {

using ::testing::KilledBySignal;

size_t const bound = 4;
FSTSemiringBase const* const semirings[] = {FSTMinPlus, FSTMaxPlus, FSTPlusTimes, FSTPlusTimesLog};

bool HasEpsilonEpsilonArc(FSTGeneric const& m) {
  for (int p : m->states())
    for (FSTArc* a : m->arcs_out(p))
      if (a->input == 0 && a->output == 0) return true;
  return false;
}

TEST(RemoveEpsilons, KeepsTheWeightedLanguage) {
  std::mt19937 rng(31);
  int checked = 0;
  for (FSTSemiringBase const* s : semirings)
    for (bool fsa : {false, true})
      for (int round = 0; round < 60; ++round) {
        if (!s->idempotent() && !fsa) continue;  // only acceptor mode there
        RandomMachineOptions o;
        o.semiring = s;
        o.acceptor = fsa;
        o.epsilon_input = 0.4;
        o.max_arcs = 10;
        o.acyclic = !s->idempotent();  // their epsilon cycles would need closures over cycles
        FSTGeneric m = RandomMachine(rng, o);
        FSTGeneric r = FSTBasic(FSTRemoveEpsilons(m, fsa, 0.0001f));
        SCOPED_TRACE(std::string(s->name) + (fsa ? " acceptor" : " transducer"));
        EXPECT_TRUE(SameLanguage(s, Enumerate(r, bound), Enumerate(m, bound), 1e-3f))
            << Describe(m) << Describe(r);
        EXPECT_FALSE(HasEpsilonEpsilonArc(r)) << Describe(r);
        ++checked;
      }
  EXPECT_GT(checked, 300);
}

TEST(RemoveEpsilons, PendingLabelsAndShapes) {
  // eps:a eps:b c:c with final states after b and after c.
  FSTGeneric m = Text("I 0\nT 0 1 , a\nT 1 2 , b 0.5\nT 2 3 c c\nF 2\nF 3 0.25\n");
  FSTGeneric r = FSTRemoveEpsilons(m, false, 0.001f);
  EXPECT_EQ(r->name, "FSTRemoveEpsilons");
  std::ostringstream os;
  FSTBasic(r)->dump_ascii(os, false);
  // The weight of eps:b travels with the arc that emits the pending a.
  EXPECT_EQ(os.str(), "I 0\nT 0 1 , a 0.5\nT 1 2 c b\nT 1 3 , b\nT 2 3 , c 0.25\nF 3\n");
  fst::set<int> states;
  FSTRemoveEpsilonsStateSet(r, 1, states);
  EXPECT_EQ(states, (fst::set<int>{2}));

  // Without epsilons: one result state per reachable state, the same arcs.
  FSTGeneric plain = Text("I 0\nT 0 1 a x 1\nT 1 0 b y 2\nT 1 2 c z\nF 2 3\n");
  EXPECT_EQ(Describe(FSTBasic(FSTRemoveEpsilons(plain, false, 0.001f))), Describe(plain));

  // Closures equal within delta are one state: two branches reach state 3 with costs 1 and
  // 1.0005.
  FSTGeneric close = Text("I 0\nT 0 1 a\nT 0 2 c\nT 1 3 , , 1\nT 2 3 , , 1.0005\nT 3 4 b\nF 4\n");
  EXPECT_EQ(FSTBasic(FSTRemoveEpsilons(close, false, 0.001f))->states().size(), 3);
  EXPECT_EQ(FSTBasic(FSTRemoveEpsilons(close, false, 0.0001f))->states().size(), 4);
}

TEST(RemoveEpsilons, CyclesByKind) {
  // A self-loop and a two-state cycle of non-negative costs: Dijkstra's closure.
  FSTGeneric cycle = Text("I 0\nT 0 0 , , 1\nT 0 1 , , 1\nT 1 0 , , 2\nT 1 2 a , 1\nF 2\n");
  FSTGeneric r = FSTBasic(FSTRemoveEpsilons(cycle, false, 0.001f));
  EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(r, bound), Enumerate(cycle, bound)));
  EXPECT_EQ(r->states().size(), 2);

  // A cycle that improves every time round: the warning, and the process goes on.
  FSTGeneric improving = Text("I 0\nT 0 1 , , -1\nT 1 0 , , 0.5\nT 1 2 a\nF 2\n");
  testing::internal::CaptureStderr();
  FSTBasic(FSTRemoveEpsilons(improving, false, 0.001f));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "WARNING: FSTRemoveEpsilons: epsilon cycle with weight better than semiring->one "
            "detected\n");

  // A negative cost that is no cycle goes through Bellman-Ford without a warning.
  FSTGeneric negative = Text("I 0\nT 0 1 , , -1\nT 1 0 , , 2\nT 1 2 a\nF 2\n");
  testing::internal::CaptureStderr();
  r = FSTBasic(FSTRemoveEpsilons(negative, false, 0.001f));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ((*r->arcs_out(0))->weight, -1);

  // Probabilities: a self-loop is summed through the closure, a longer cycle is refused.
  FSTGeneric loop = Text("#FSTBasic PlusTimes\nI 0\nT 0 0 , , 0.5\nT 0 1 a a 0.5\nF 1\n");
  r = FSTBasic(FSTRemoveEpsilonsA(loop, 0.001f));
  EXPECT_FLOAT_EQ((*r->arcs_out(0))->weight, 1.0f);  // 0.5 / (1 - 0.5)
  FSTGeneric two = Text("#FSTBasic PlusTimes\nI 0\nT 0 1 , , 0.5\nT 1 0 , , 0.5\nF 1\n");
  EXPECT_EXIT(FSTBasic(FSTRemoveEpsilonsA(two, 0.001f)), KilledBySignal(SIGABRT),
              "^FATAL: non-self-loop epsilon cycle detected: not yet supported\n");
  EXPECT_EXIT(FSTRemoveEpsilons(loop, false, 0.001f), KilledBySignal(SIGABRT),
              "Assertion `_semiring->idempotent\\(\\) \\|\\| _fsa' failed");
}

TEST(Determinize, KeepsTheWeightedLanguage) {
  std::mt19937 rng(32);
  int checked = 0;
  for (FSTSemiringBase const* s : semirings)
    for (bool fsa : {false, true})
      for (int limit : {1, 2, 0})
        for (int round = 0; round < 20; ++round) {
          RandomMachineOptions o;
          o.semiring = s;
          o.acyclic = true;  // always determinizable
          o.n_labels = 2;
          o.max_states = 7;
          o.max_arcs = 14;
          o.epsilon_input = 0.15;
          FSTGeneric m = RandomMachine(rng, o);
          FSTGeneric d = FSTBasic(FSTDeterminize(m, limit, fsa, 0.0001f, false));
          SCOPED_TRACE(std::string(s->name) + (fsa ? " acceptor" : " transducer") + " limit " +
                       std::to_string(limit));
          EXPECT_TRUE(SameLanguage(s, Enumerate(d, bound + 1), Enumerate(m, bound + 1), 1e-3f))
              << Describe(m) << Describe(d);
          ++checked;
        }
  EXPECT_GT(checked, 400);
  // Subsets of 1 to 40 states, across the storage chunks of 3 and 15 triples.
  for (int n : {1, 3, 4, 18, 19, 40}) {
    std::string text = "I 0\nF " + std::to_string(n + 1) + "\n";
    for (int i = 1; i <= n; ++i)
      text += "T 0 " + std::to_string(i) + " a\nT " + std::to_string(i) + " " +
              std::to_string(n + 1) + " " + (i % 2 ? "b" : "c") + " , " + std::to_string(i) + "\n";
    FSTGeneric m = Text(text);
    FSTGeneric d = FSTBasic(FSTDeterminize(m, 1, true, 0.001f, false));
    EXPECT_EQ(d->states().size(), 3);
    EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(d, 3), Enumerate(m, 3))) << Describe(d);
  }
}

TEST(Determinize, ResultsAreDeterministic) {
  std::mt19937 rng(33);
  for (int round = 0; round < 150; ++round) {
    RandomMachineOptions o;
    o.acyclic = round % 2 == 0;
    o.n_labels = 2;
    o.max_arcs = 12;
    o.epsilon_input = o.acyclic ? 0.15 : 0;
    o.acceptor = round % 3 == 0;
    FSTGeneric m = RandomMachine(rng, o);
    if (!o.acyclic) {
      // Cyclic inputs whose cycles weigh one are determinizable too.
      FSTGeneric unweighted = FSTClearWeights(m);
      m = unweighted;
    }
    // Acceptor mode: no two arcs of a state with the same (input, output).
    FSTGeneric d = FSTBasic(FSTDeterminize(m, 1, true, 0.001f, false));
    for (int p : d->states()) {
      std::set<std::pair<int, int>> seen;
      for (FSTArc* a : d->arcs_out(p)) EXPECT_TRUE(seen.insert({a->input, a->output}).second);
    }
    EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(d, bound), Enumerate(m, bound)));
    // Outside acceptor mode, on acceptors without input epsilons: one arc per input label.
    if (o.acceptor && o.epsilon_input == 0) {
      FSTGeneric t = FSTBasic(FSTDeterminize(m, 1, false, 0.001f, false));
      for (int p : t->states()) {
        std::set<int> seen;
        for (FSTArc* a : t->arcs_out(p)) EXPECT_TRUE(seen.insert(a->input).second);
      }
    }
  }
}

TEST(Determinize, GroupsLimitsAndPendingLabels) {
  FSTGeneric m = Text("I 0\nT 0 1 a x 1\nT 0 2 a y 2\nF 1\nF 2\n");
  FSTGeneric d = FSTDeterminize(m, 1, false, 0.001f, false);
  EXPECT_EQ(d->name, "FSTDeterminize");
  int a = FSTstring_map["a"], x = FSTstring_map["x"], y = FSTstring_map["y"];
  EXPECT_EQ(DescribeArcs(d->arcs_out(0)), " " + std::to_string(a) + ":0/1>1");
  auto rep = static_cast<FSTDeterminizeRep const*>(d.get());
  EXPECT_EQ(rep->describe(1), "{(1,x,0),(2,y,1)}");
  fst::set<int> states;
  FSTDeterminizeStateSet(d, 1, states);
  EXPECT_EQ(states, (fst::set<int>{1, 2}));
  // The pending labels leave by epsilon arcs into the final pseudo state.
  EXPECT_EQ(DescribeArcs(d->arcs_out(1)),
            " 0:" + std::to_string(x) + "/0>2 0:" + std::to_string(y) + "/1>2");
  EXPECT_TRUE(d->is_final(2));
  EXPECT_TRUE(d->arcs_out(2).done());

  // Acceptor mode: (a, x) and (a, y) are different symbols.
  EXPECT_EQ(FSTDeterminizeA(m, 1, 0.001f, false)->arcs_out(0).size(), 2);
  // No limit: the group stays two arcs; full overrides the limit.
  EXPECT_EQ(FSTDeterminize(m, 0, false, 0.001f, false)->arcs_out(0).size(), 2);
  EXPECT_EQ(FSTDeterminize(m, 5, false, 0.001f, true)->arcs_out(0).size(), 1);
  // A deterministic machine keeps its shape (states are numbered as they are discovered).
  FSTGeneric plain = Text("I 0\nT 0 1 a x 1\nT 0 2 b y 2\nT 1 2 c , 0.5\nF 2 0.25\n");
  FSTGeneric same = FSTBasic(FSTDeterminize(plain, 1, false, 0.001f, false));
  EXPECT_EQ(same->states().size(), 3);
  EXPECT_EQ(same->n_arcs_out(0) + same->n_arcs_out(1) + same->n_arcs_out(2), 3);
  EXPECT_EQ(Enumerate(same, 3), Enumerate(plain, 3));

  EXPECT_EQ(FSTDeterminize(Text("T 0 1 a\n"), 1, false, 0.001f, false)->initial(), -1);
  auto abort = KilledBySignal(SIGABRT);
  EXPECT_EXIT(d->arcs_out_with_input(0, a), abort,
              "^FATAL: FSTDeterminizeRep::arcs_out_with_input: not implemented\n");
  EXPECT_EXIT(d->arcs_out_with_output(0, a), abort,
              "^FATAL: FSTDeterminizeRep::arcs_out_with_output: not implemented\n");
  EXPECT_EXIT(d->force(), abort, "^FATAL: FSTDeterminizeRep::force not implemented\n");
  EXPECT_EXIT(d->final_weight(9), abort, "Assertion `\\(p\\) < _n_states' failed");
}

TEST(Determinize, StopsOnMachinesThatCannotBeDeterminized) {
  // a* with two different weights per step: the residuals would grow without end.
  FSTGeneric m = Text(
      "I 0\nT 0 1 a , 1\nT 0 2 a , 2\nT 1 1 a , 1\nT 2 2 a , 3\nT 1 3 b\n"
      "T 2 3 c\nF 3\n");
  FSTGeneric d = FSTBasic(FSTDeterminize(m, 1, false, 0.001f, false));
  EXPECT_LT(d->states().size(), 10);
  EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(d, 6), Enumerate(m, 6)));
}

// Our epsilon removal and determinization against the peer's, compared by its fstequivalent.
TEST(Determinize, AgreesWithPeerToolkit) {
  if (RunCommand("command -v fstcompile && command -v fstequivalent").status != 0)
    GTEST_SKIP() << "fstcompile/fstequivalent not installed (Debian package libfst-tools)";
  std::mt19937 rng(34);
  std::string const tool = T2SFST_TOOL;
  for (int round = 0; round < 20; ++round) {
    RandomMachineOptions o;
    o.acceptor = true;
    o.acyclic = true;
    o.max_arcs = 10;
    FSTGeneric m = RandomMachine(rng, o);
    std::ostringstream text;
    m->dump_ascii(text, true);
    std::string in = WriteTempFile("peer_in.fst", text.str());
    std::string ours = WriteTempFile("peer_ours.fst", ""), syms = WriteTempFile("peer.syms", "");
    std::string a = WriteTempFile("peer_a.att", ""), b = WriteTempFile("peer_b.att", "");
    ASSERT_EQ(RunCommand(tool + " rmepsilon --acceptor --binary " + in + " | " + tool +
                         " determinize --acceptor - " + ours)
                  .status,
              0);
    std::string symbols = WriteTempFile("peer_all.syms", "<eps>\t0\n");
    for (int i = 0; i < o.n_labels; ++i)
      RunCommand("printf '" + std::string(1, char('a' + i)) + "\\t" +
                 std::to_string(RandomLabel(i)) + "\\n' >> " + symbols);
    RunCommand(tool + " convert --to att " + in + " " + a);
    RunCommand(tool + " convert --to att " + ours + " " + b);
    std::string compile =
        "fstcompile --acceptor=false --isymbols=" + symbols + " --osymbols=" + symbols + " ";
    CommandResult r = RunCommand(compile + a + " | fstrmepsilon | fstdeterminize > " + a +
                                 ".bin && " + compile + b + " > " + b +
                                 ".bin && fstequivalent --delta=0.001 " + a + ".bin " + b + ".bin");
    EXPECT_EQ(r.status, 0) << r.out << r.err << text.str();
  }
}

}  // namespace
