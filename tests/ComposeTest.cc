#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "FST.h"
#include "Language.h"
#include "RandomMachine.h"
#include "TestUtil.h"

namespace {

using ::testing::KilledBySignal;

RandomMachineOptions Options(FSTSemiringBase const* s, bool acyclic) {
  RandomMachineOptions o;
  o.semiring = s;
  o.acyclic = acyclic;
  o.max_states = 5;
  o.max_arcs = 9;
  o.n_labels = 2;
  o.epsilon_input = 0.3;
  o.epsilon_output = 0.3;
  return o;
}

TEST(Compose, BestWeightsInMinPlusOnCyclicOperands) {
  std::mt19937 rng(22);
  for (int round = 0; round < 100; ++round) {
    FSTGeneric a = RandomMachine(rng, Options(FSTMinPlus, false));
    FSTGeneric b = RandomMachine(rng, Options(FSTMinPlus, false));
    Language want = Compose(FSTMinPlus, Enumerate(a, 6), Enumerate(b, 6), 3);
    EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(FSTBasic(FSTCompose(a, b)), 3), want))
        << Describe(a) << Describe(b);
  }
}

TEST(Compose, EdgesAndStatePairs) {
  std::mt19937 rng(23);
  // With an identity on the other side, a machine's own language comes back.
  FSTGeneric m = RandomMachine(rng, Options(FSTMinPlus, false));
  FSTGeneric identity = FSTBasic(FSTMinPlus);
  identity->set_initial(0);
  identity->set_final(0, 0);
  for (int i = 0; i < 2; ++i) identity->add_arc(0, 0, RandomLabel(i), RandomLabel(i), 0);
  EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(FSTBasic(FSTCompose(m, identity)), 4),
                           Enumerate(m, 4)));
  EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(FSTBasic(FSTCompose(identity, m)), 4),
                           Enumerate(m, 4)));

  FSTGeneric c = FSTCompose(m, identity);
  c->force();
  FSTComposeInt const* view = FSTComposeCast(c);
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(view->state_pair(0), std::make_pair(m->initial(), 0));
  for (int p = 0; p < c->n_states(); ++p) {
    EXPECT_LT(view->state_pair(p).first, m->n_states());  // no filter bits
    EXPECT_EQ(view->state_pair(p).second, 0);
  }
  EXPECT_EQ(FSTComposeCast(m), nullptr);
  EXPECT_EXIT(view->state_pair(c->n_states()), KilledBySignal(SIGABRT),
              "Assertion `\\(state\\) < _n_states' failed");
  c->reset();
  EXPECT_EQ(c->n_states(), 1);

  FSTGeneric no_start = FSTBasic(FSTMinPlus);
  no_start->add_arc(0, 1, RandomLabel(0), RandomLabel(0), 0);
  FSTGeneric empty = FSTCompose(no_start, identity);
  EXPECT_EQ(empty->initial(), -1);
  EXPECT_EQ(empty->n_states(), 0);
  EXPECT_EXIT(FSTCompose(m, FSTBasic(FSTPlusTimes)), KilledBySignal(SIGABRT),
              "^FATAL: can't compose different semirings: MinPlus and PlusTimes\n");
}

// A lexicon (a word written on its first letter) composed with a back-off model: the model's
// lone back-off moves come just before a word is matched, never inside one. The result has a
// state per lexicon state and history: (0, h0), (1, hX), (2, hY), (3, hY), (0, hX), (0, hY), as
// the other toolkit's default gives; backing off inside a word would add three more.
TEST(Compose, LexiconWithBackOffLeavesNoDeadState) {
  FSTGeneric lexicon = Text("I 0\nF 0\nT 0 1 a X\nT 1 0 b\nT 0 2 a Y\nT 2 3 c\nT 3 0 c\n");
  FSTGeneric model = Text("I 0\nF 0\nF 1 1\nF 2 1\nT 0 1 X X 1\nT 0 2 Y Y 2\nT 1 2 Y Y 0.5\n"
                          "T 1 0 , , 0.5\nT 2 0 , , 0.25\n");
  FSTGeneric composed = FSTBasic(FSTCompose(lexicon, model));
  EXPECT_EQ(composed->states().size(), 6) << Describe(composed);
  EXPECT_EQ(FSTTrim(FSTBasic(composed))->states().size(), 6);
  EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(composed, 6),
                           Compose(FSTMinPlus, Enumerate(lexicon, 6), Enumerate(model, 6), 6)));
}

TEST(Invert, SwapsSidesAndInvertsWeights) {
  std::mt19937 rng(24);
  for (FSTSemiringBase const* s : {FSTMinPlus, FSTPlusTimes})
    for (int round = 0; round < 20; ++round) {
      RandomMachineOptions o = Options(s, true);
      FSTGeneric m = RandomMachine(rng, o);
      FSTGeneric inverted = FSTBasic(FSTInvert(m));
      EXPECT_EQ(Describe(FSTBasic(FSTInvert(inverted))), Describe(FSTBasic(m)));
      FSTGeneric view = FSTInvert(m);
      for (int p = 0; p < m->n_states(); ++p) {
        FSTArcList swapped;
        for (FSTArc* a : m->arcs_out(p)) swapped.add(a->output, a->input, s->invert(a->weight), a->to, p);
        EXPECT_EQ(DescribeArcs(view->arcs_out(p)), DescribeArcs(swapped.iter()));
      }
      // Filtered before the swap: the label asked for as input comes back as output.
      for (int p = 0; p < m->n_states(); ++p)
        for (FSTArc* a : view->arcs_out_with_input(p, RandomLabel(0))) EXPECT_EQ(a->output, RandomLabel(0));
      EXPECT_EQ(&view->input_alphabet(), &m->input_alphabet());
    }
}

// 0 -a/1-> 1 (final 0.5), 0 -eps/2-> 2, 1 -eps/3-> 2, 2 -b/4-> 3, 2 -a/9-> 3, 2 -eps/5-> 4,
// 4 -c/6-> 3, 4 final 0.25: a back-off chain 0 -> 2 -> 4 and 1 -> 2 -> 4.
TEST(Backoff, DirectArcsAndChains) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  int a = FSTstring_map["a"], b = FSTstring_map["b"], c = FSTstring_map["c"];
  m->set_initial(0);
  m->add_arc(0, 1, a, a, 1);
  m->add_arc(0, 2, 0, 0, 2);
  m->add_arc(1, 2, 0, 0, 3);
  m->add_arc(2, 3, b, b, 4);
  m->add_arc(2, 3, a, a, 9);
  m->add_arc(2, 4, 0, 0, 5);
  m->add_arc(4, 3, c, c, 6);
  m->set_final(1, 0.5f);
  m->set_final(4, 0.25f);
  FSTGeneric view = FSTBackoff(m, false), inverted = FSTBackoff(m, true);
  auto arc = [](int label, float w, int to) {
    std::ostringstream os;
    os << " " << label << ":" << label << "/" << w << ">" << to;
    return os.str();
  };
  EXPECT_EQ(DescribeArcs(view->arcs_out_with_input(0, a)), arc(a, 1, 1));   // direct
  EXPECT_EQ(DescribeArcs(view->arcs_out_with_input(0, b)), arc(b, 6, 3));   // one level
  EXPECT_EQ(DescribeArcs(view->arcs_out_with_input(1, c)), arc(c, 14, 3));  // two levels
  EXPECT_EQ(DescribeArcs(inverted->arcs_out_with_input(1, c)), arc(c, -14, 3));
  EXPECT_EQ(view->arcs_out_with_input(0, FSTstring_map["unknown"]).size(), 0);
  EXPECT_EQ(view->arcs_out_with_input(0, 0).size(), 0);
  EXPECT_FLOAT_EQ(view->final_weight(1), 0.5f);
  EXPECT_FLOAT_EQ(view->final_weight(0), 7.25f);  // through 2 and 4
  // As the second operand of a composition the view is probed, never listed.
  Language words = Enumerate(FSTCompose(Text("I 0\nT 0 1 a a\nT 0 2 c c\nF 1\nF 2 1\n"), view), 2);
  EXPECT_TRUE(SameLanguage(FSTMinPlus, words, Language{{{{a}, {a}}, 1.5f}}));
  EXPECT_FLOAT_EQ(inverted->final_weight(0), -7.25f);
  EXPECT_TRUE(view->is_final(2));
  EXPECT_FALSE(view->is_final(3));
  auto abort = KilledBySignal(SIGABRT);
  EXPECT_EXIT(view->arcs_out(0), abort, "^FATAL: FSTBackoff::arcs_out not implemented\n");
  EXPECT_EXIT(view->arcs_out_with_output(0, a), abort,
              "^FATAL: FSTBackoff::arcs_out_with_output not implemented\n");
  EXPECT_EXIT(view->arcs_out_with_input(0, a, FSTArcModeLessEqual), abort,
              "Assertion `mode == FSTEqual' failed");
  m->add_arc(2, 4, b, b, 1);  // two arcs for b: not a back-off model
  EXPECT_EXIT(view->arcs_out_with_input(0, b), abort, "Assertion `a.n\\(\\) == 1' failed");
}

}  // namespace

namespace {

// Every complete path's weight, by depth-first search over an acyclic machine.
void PathWeights(FSTGeneric const& m, int p, float w, std::vector<float>& out) {
  FSTSemiringBase const* s = m->semiring();
  if (m->is_final(p)) out.push_back(s->times(w, m->final_weight(p)));
  for (FSTArc* a : m->arcs_out(p)) PathWeights(m, a->to, s->times(w, a->weight), out);
}

TEST(ShortestPath, TheNBestPathWeights) {
  std::mt19937 rng(25);
  for (FSTSemiringBase const* s : {FSTMinPlus, FSTMaxPlus})
    for (int round = 0; round < 60; ++round) {
      RandomMachineOptions o = Options(s, true);
      o.max_arcs = 12;
      FSTGeneric m = FSTBasic(RandomMachine(rng, o));
      std::vector<float> all, best;
      if (m->initial() >= 0) PathWeights(m, m->initial(), s->one, all);
      std::sort(all.begin(), all.end(), [s](float a, float b) { return s->is_better(a, b, 0); });
      int n = 1 + int(rng() % 4);
      FSTGeneric result = FSTShortestPath(m, n);
      if (result->initial() >= 0) PathWeights(result, result->initial(), s->one, best);
      std::sort(best.begin(), best.end(), [s](float a, float b) { return s->is_better(a, b, 0); });
      all.resize(std::min(all.size(), size_t(n)));
      EXPECT_EQ(best, all) << Describe(m) << Describe(result);
    }
  // A cycle whose weight improves without end has no best path.
  FSTGeneric loop = FSTBasic(FSTMinPlus);
  loop->set_initial(0);
  loop->set_final(1, 0);
  loop->add_arc(0, 1, 0, 0, 1);
  loop->add_arc(1, 0, 0, 0, -2);
  EXPECT_EXIT(FSTShortestPath(loop, 1), KilledBySignal(SIGABRT), "improves the weight without end");
}

// The algebra commands write what the library functions give (the same weighted language:
// another process numbers labels, and so sorts arcs, its own way).
TEST(AlgebraCommands, WriteTheLibraryResults) {
  std::mt19937 rng(26);
  std::string fa = WriteTempFile("alg_a.fst", ""), fb = WriteTempFile("alg_b.fst", "");
  FSTBasic(RandomMachine(rng, Options(FSTMinPlus, false)))->dump_ascii(fa.c_str(), true);
  FSTBasic(RandomMachine(rng, Options(FSTMinPlus, false)))->dump_ascii(fb.c_str(), true);
  auto a = [&] { return FSTLoadFile(fa.c_str()); };
  auto b = [&] { return FSTLoadFile(fb.c_str()); };
  std::string tool = T2SFST_TOOL;
  std::vector<std::pair<std::string, FSTGeneric>> cases = {
      {"compose " + fa + " " + fb + " -o", FSTCompose(a(), b())},
      {"union " + fa + " " + fb + " " + fa + " -o", FSTUnion(fst::vector<FSTGeneric>{a(), b(), a()})},
      {"concat " + fa + " " + fb + " -o", FSTConcatenate(a(), b())},
      {"closure --plus " + fa, FSTClosure(a(), true)},
      {"invert " + fa, FSTInvert(a())},
      {"project --output " + fa, FSTProject(a(), FSTArcOrderOutput, FSTArcOrderOutput)},
      {"reverse " + fa, FSTReverse(a())},
      {"shortestpath -n 2 " + fa, FSTShortestPath(a(), 2)},
  };  // each followed by the output file
  for (auto const& [command, expected] : cases) {
    std::string out = WriteTempFile("alg_out.fst", "");
    CommandResult r = RunCommand(tool + " " + command + " " + out);
    EXPECT_EQ(r.status, 0) << command << r.err;
    EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(FSTLoadFile(out.c_str()), 4), Enumerate(expected, 4)))
        << command;
  }
  EXPECT_EQ(RunCommand(tool + " compose " + fa).status, 2);
}

}  // namespace
