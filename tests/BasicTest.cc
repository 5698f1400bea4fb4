#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "FST.h"
#include "TestUtil.h"

namespace {

using ::testing::ExitedWithCode;
using ::testing::KilledBySignal;

// 0 -a:x/1-> 1 -b:y/2-> 2 (final 0.5), 0 -eps:z/3-> 2, state 3 final 0.25 and unreachable.
FSTGeneric SmallMachine(FSTSemiringBase const* s = FSTMinPlus) {
  FSTGeneric m = FSTBasic(s);
  m->add_arc(0, 1, 2, 5, 1);
  m->add_arc(1, 2, 3, 6, 2);
  m->add_arc(0, 2, 0, 7, 3);
  m->set_initial(0);
  m->set_final(2, 0.5f);
  m->set_final(3, 0.25f);
  return m;
}

FSTGeneric RandomMachine(std::mt19937& rng, int n_states, int n_arcs) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  std::uniform_int_distribution<int> state(0, n_states - 1), label(0, 6);
  m->add_states(n_states);
  for (int i = 0; i < n_arcs; ++i)
    m->add_arc(state(rng), state(rng), label(rng), label(rng), float(i));
  m->set_initial(state(rng));
  m->set_final(state(rng), 1.5f);
  return m;
}

TEST(Basic, EmptyMachineAndGrowth) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  EXPECT_EQ(m->name, "FSTBasic");
  EXPECT_EQ(m->states().size(), 0);
  EXPECT_EQ(m->initial(), -1);
  EXPECT_EQ(m->add_states(0), -1);
  EXPECT_EQ(m->states().size(), 0);

  m->set_final(7, 2.0f);
  EXPECT_EQ(m->states().size(), 8);
  for (int p = 0; p < 7; ++p) {
    EXPECT_FALSE(m->is_final(p));
    EXPECT_EQ(m->final_weight(p), FSTMinPlus->zero);
    EXPECT_EQ(m->potential(p), FSTMinPlus->one);
    EXPECT_EQ(m->n_arcs_out(p), 0);
    EXPECT_TRUE(m->arcs_out(p).begin() == nullptr);  // an empty list is the all-null iterator
  }
  EXPECT_TRUE(m->is_final(7));
  EXPECT_EQ(m->add_states(2), 8);
  m->add_arc(3, 12, 1, 1, 0);  // grows to the destination
  EXPECT_EQ(m->states().size(), 13);
  m->set_potential(4, 9.0f);
  EXPECT_EQ(m->potential(4), 9.0f);
  m->set_initial(5);
  EXPECT_EQ(m->initial(), 5);
}

TEST(Basic, SortedInsertionAndResorting) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->add_states(2);
  m->arcs_out(0, FSTArcOrderInput);  // sort the (empty) machine by input: silent
  for (int in : {5, 3, 5}) m->add_arc(0, 1, in, 10 - in, float(m->n_arcs_out(0)));
  // New arcs go before existing ones with the same label.
  EXPECT_EQ(DescribeArcs(m->arcs_out(0)), " 3:7/1>1 5:5/2>1 5:5/0>1");
  m->add_arc(1, 0, 4, 1, 0);
  m->add_arc(1, 0, 2, 2, 0);

  testing::internal::CaptureStderr();
  std::vector<int> outputs;
  for (FSTArc* a : m->arcs_out(0, FSTArcOrderOutput)) outputs.push_back(a->output);
  EXPECT_EQ(outputs, (std::vector<int>{5, 5, 7}));
  EXPECT_EQ(DescribeArcs(m->arcs_out(1)), " 4:1/0>0 2:2/0>0");  // every state re-sorted
  m->arcs_out(0, FSTArcOrderOutput);
  m->arcs_out(1, FSTArcOrderAny);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "WARNING: FSTBasic: resorting arcs from order 1 to order 2 is inefficient\n");
  EXPECT_EQ(static_cast<FSTBasicRep*>(m.get())->arc_order(), FSTArcOrderOutput);
}

TEST(Basic, LabelQueriesMatchABruteForceFilter) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> label(0, 9);
  for (int round = 0; round < 50; ++round) {
    FSTGeneric m = FSTBasic(FSTMinPlus);
    std::vector<std::pair<int, int>> labels;
    int n = round % 12;
    for (int i = 0; i < n; ++i) {
      labels.push_back({label(rng), label(rng)});
      m->add_arc(0, 1, labels.back().first, labels.back().second, float(i));
    }
    m->add_states(1);
    testing::internal::CaptureStderr();  // alternating orders warn
    for (int l = -1; l <= 10; ++l)
      for (int mode = 0; mode <= 3; ++mode)
        for (bool on_input : {true, false}) {
          FSTArcIter it = on_input ? m->arcs_out_with_input(0, l, FSTArcMode(mode))
                                   : m->arcs_out_with_output(0, l, FSTArcMode(mode));
          std::multiset<float> got, want;
          for (FSTArc* a : it) {
            got.insert(a->weight);
            EXPECT_EQ(a->from, 0);
          }
          for (int i = 0; i < n; ++i) {
            int v = on_input ? labels[size_t(i)].first : labels[size_t(i)].second;
            if ((mode == 0 && v == l) || (mode == 1 && v <= l) || (mode == 2 && v >= l))
              want.insert(float(i));
          }
          EXPECT_EQ(got, want) << "label " << l << " mode " << mode;
          if (want.empty()) {
            EXPECT_EQ(it.begin(), nullptr);
            EXPECT_EQ(it.end(), nullptr);
            EXPECT_EQ(it.data(), nullptr);
          }
        }
    testing::internal::GetCapturedStderr();
  }
}

TEST(Basic, AddArcsAndSetArcsKeepOrderCountsAndOwnership) {
  FSTAllocator::gc();
  long arcs_before = FSTAllocator::usage(FSTArcUnits).used;
  {
    FSTGeneric m = FSTBasic(FSTMinPlus);
    m->add_states(3);
    m->add_arc(0, 1, 2, 0, 0);
    m->add_arc(0, 1, 6, 0, 0);
    m->arcs_out(0, FSTArcOrderInput);
    FSTArcVector sorted_run{FSTNewArc(2, 1, 1, 2, 9), FSTNewArc(4, 1, 1, 2, 9)};
    m->add_arcs(0, sorted_run, FSTArcOrderInput);
    EXPECT_TRUE(sorted_run.empty());
    EXPECT_EQ(DescribeArcs(m->arcs_out(0)), " 2:0/0>1 2:1/1>2 4:1/1>2 6:0/0>1");
    FSTArcVector unsorted{FSTNewArc(9, 3, 1, 0, 9), FSTNewArc(1, 3, 1, 0, 9),
                          FSTNewArc(5, 3, 1, 0, 9)};
    m->add_arcs(0, unsorted, FSTArcOrderAny);
    EXPECT_EQ(DescribeArcs(m->arcs_out(0)),
              " 1:3/1>0 2:0/0>1 2:1/1>2 4:1/1>2 5:3/1>0 6:0/0>1 9:3/1>0");
    for (FSTArc* a : m->arcs_out(0)) EXPECT_EQ(a->from, 0);
    EXPECT_EQ(m->input_alphabet(), (fst::set<int>{1, 2, 4, 5, 6, 9}));
    EXPECT_EQ(m->output_alphabet(), (fst::set<int>{0, 1, 3}));

    FSTArcVector replacement{FSTNewArc(8, 8, 2, 2, 0), FSTNewArc(7, 7, 2, 1, 0)};
    m->set_arcs(0, replacement, FSTArcOrderAny);
    EXPECT_EQ(DescribeArcs(m->arcs_out(0)), " 7:7/2>1 8:8/2>2");

    // An unsorted machine appends.
    FSTGeneric u = FSTBasic(FSTMinPlus);
    u->add_states(2);
    u->add_arc(0, 1, 5, 5, 0);
    FSTArcVector more{FSTNewArc(1, 1, 0, 1, 0)};
    u->add_arcs(0, more, FSTArcOrderInput);
    EXPECT_EQ(DescribeArcs(u->arcs_out(0)), " 5:5/0>1 1:1/0>1");
  }
  // The machine freed every arc it owned, including those set_arcs replaced.
  EXPECT_EQ(FSTAllocator::usage(FSTArcUnits).used, arcs_before);
}

TEST(Basic, DeleteStatesAgreesWithRebuildingFromScratch) {
  std::mt19937 rng(11);
  for (int round = 0; round < 40; ++round) {
    FSTGeneric m = RandomMachine(rng, 8, 20);
    std::vector<bool> gone(8, false);
    fst::vector<int> doomed;
    for (int p = 0; p < 8; ++p)
      if (rng() % 3 == 0) {
        doomed.push_back(p);
        gone[size_t(p)] = true;
      }
    // The expected machine, built directly with the surviving states renumbered.
    std::vector<int> renumbered(8, -1);
    int n = 0;
    for (int p = 0; p < 8; ++p)
      if (!gone[size_t(p)]) renumbered[size_t(p)] = n++;
    FSTGeneric expected = FSTBasic(FSTMinPlus);
    if (n) expected->add_states(n);
    for (int p = 0; p < 8; ++p) {
      if (gone[size_t(p)]) continue;
      if (m->is_final(p)) expected->set_final(renumbered[size_t(p)], m->final_weight(p));
      for (FSTArc* a : m->arcs_out(p))
        if (!gone[size_t(a->to)])
          expected->add_arc(renumbered[size_t(p)], renumbered[size_t(a->to)], a->input, a->output,
                            a->weight);
    }
    int initial = m->initial();
    if (!gone[size_t(initial)]) expected->set_initial(renumbered[size_t(initial)]);
    m->delete_states(doomed);
    EXPECT_EQ(Describe(m), Describe(expected));
    EXPECT_EQ(m->input_alphabet(), expected->input_alphabet());
  }
  // Deleting the initial state leaves none; an empty machine's list is not examined.
  FSTGeneric m = Text("I 0\nT 0 1 a\nF 1 1\n");
  m->delete_state(0);
  EXPECT_EQ(m->initial(), -1);
  EXPECT_EQ(Describe(m), "MinPlus initial -1\n0 final 1 potential 0 |\n");
  FSTGeneric empty = FSTBasic(FSTMinPlus);
  empty->delete_states({-4, 99});
  EXPECT_EQ(empty->states().size(), 0);
}

TEST(Basic, CopiesProjectionsAndClearedWeights) {
  FSTGeneric m = SmallMachine();
  m->set_potential(1, 4.0f);
  for (FSTGeneric copy : {FSTBasic(m), FSTCopy(m), FSTMutableCopy(m), FSTBasicRep::copy(m)}) {
    EXPECT_NE(copy.get(), m.get());
    EXPECT_EQ(Describe(copy), Describe(m));
  }
  EXPECT_EQ(Describe(FSTProject(m, FSTArcOrderInput, FSTArcOrderInput)),
            "MinPlus initial 0\n"
            "0 potential 0 | 2:2/1>1 0:0/3>2\n"
            "1 potential 4 | 3:3/2>2\n"
            "2 final 0.5 potential 0 |\n"
            "3 final 0.25 potential 0 |\n");
  EXPECT_EQ(DescribeArcs(FSTProject(m, FSTArcOrderOutput, FSTArcOrderAny)->arcs_out(0)),
            " 5:0/1>1 7:0/3>2");
  EXPECT_EQ(Describe(FSTClearWeights(m)),
            "MinPlus initial 0\n"
            "0 potential 0 | 2:5/0>1 0:7/0>2\n"
            "1 potential 0 | 3:6/0>2\n"
            "2 final 0 potential 0 |\n"
            "3 final 0 potential 0 |\n");

  // An edited copy leaves the original alone.
  FSTGeneric copy = FSTMutableCopy(m);
  copy->add_arc(3, 0, 1, 1, 1);
  EXPECT_EQ(m->n_arcs_out(3), 0);

  // A machine without an initial state copies to one without.
  FSTGeneric no_start = FSTBasic(FSTMinPlus);
  no_start->add_arc(0, 1, 2, 2, 0);
  EXPECT_EQ(FSTBasic(no_start)->initial(), -1);
  EXPECT_EQ(FSTBasic(FSTBasic(FSTMinPlus))->states().size(), 0);
}

TEST(Basic, CopyWalksALazyMachineAsItGrows) {
  bool destroyed = false;
  FSTGeneric lazy = new ChainRep(6, &destroyed);
  FSTGeneric copy = FSTBasic(lazy);
  EXPECT_EQ(Describe(copy),
            "MinPlus initial 0\n"
            "0 potential 0 | 2:2/0>1\n"
            "1 potential 0 | 3:3/1>2\n"
            "2 potential 0 | 4:4/2>3\n"
            "3 potential 0 | 5:5/3>4\n"
            "4 potential 0 | 6:6/4>5\n"
            "5 final 0.5 potential 0 |\n");
  lazy = FSTGeneric();
  EXPECT_TRUE(destroyed);
}

TEST(Basic, CopyingALongLazyChainStaysLinear) {
  // The copy discovers one state at a time; growing the state array by exactly that much each
  // time made this quadratic (minutes instead of a fraction of a second).
  int const n = 200000;
  FSTGeneric copy = FSTBasic(FSTGeneric(new ChainRep(n)));
  EXPECT_EQ(copy->states().size(), n);
  EXPECT_TRUE(copy->is_final(n - 1));
  EXPECT_EQ((*copy->arcs_out(n - 2))->to, n - 1);
}

TEST(Basic, ReverseAddsAStartStateForTheFinalStates) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->add_arc(0, 1, 2, 3, 1);
  m->add_arc(1, 2, 4, 5, 2);
  m->add_arc(1, 3, 6, 7, 3);
  m->set_initial(0);
  m->set_final(2, 0.75f);
  m->set_final(3, 0.25f);
  FSTGeneric r = FSTReverse(m);
  EXPECT_EQ(Describe(r),
            "MinPlus initial 4\n"
            "0 final 0 potential 0 |\n"
            "1 potential 0 | 2:3/1>0\n"
            "2 potential 0 | 4:5/2>1\n"
            "3 potential 0 | 6:7/3>1\n"
            "4 potential 0.25 | 0:0/0.75>2 0:0/0.25>3\n");
  // In MaxPlus the start state's potential is the larger final weight.
  FSTGeneric x = FSTBasic(FSTMaxPlus);
  x->set_initial(0);
  x->set_final(1, 2);
  x->set_final(2, 5);
  EXPECT_EQ(FSTReverse(x)->potential(3), 5);
}

TEST(Basic, SemiringConversions) {
  FSTGeneric m = SmallMachine();
  FSTGeneric p = FSTConvert_to_PlusTimes(m);
  EXPECT_EQ(p->semiring(), FSTPlusTimes);
  EXPECT_FLOAT_EQ(p->final_weight(2), std::exp(-0.5f));
  EXPECT_FLOAT_EQ((*p->arcs_out(1))->weight, std::exp(-2.0f));
  EXPECT_EQ(p->potential(0), 1.0f);

  FSTGeneric x = FSTConvert_to_MaxPlus(m);
  EXPECT_EQ(x->semiring(), FSTMaxPlus);
  EXPECT_EQ(x->final_weight(2), -0.5f);
  EXPECT_EQ((*x->arcs_out(0))->weight, -1.0f);
  FSTGeneric back = FSTConvert_to_MinPlus(x);
  EXPECT_EQ(Describe(back), Describe(m));

  // MinPlus to PlusTimes by semiring maps every ordinary cost to 0, dropping final states.
  FSTGeneric zeroed =
      new FSTBasicRep(m, FSTArcOrderInput, FSTArcOrderOutput, false, false, FSTPlusTimes);
  EXPECT_FALSE(zeroed->is_final(2));
  EXPECT_EQ((*zeroed->arcs_out(0))->weight, 0.0f);

  FSTGeneric probabilities = FSTBasic(FSTPlusTimes);
  probabilities->add_arc(0, 1, 1, 1, 0.5f);
  probabilities->add_arc(0, 1, 2, 2, 0.0f);
  probabilities->set_final(1, 1.0f);
  FSTGeneric costs = FSTConvert_to_MinPlus(probabilities);
  EXPECT_FLOAT_EQ((*costs->arcs_out(0))->weight, std::log(2.0f));
  EXPECT_EQ((*++costs->arcs_out(0))->weight, 1e30f);
  EXPECT_EQ(costs->final_weight(1), 0.0f);

  // Any other source semiring passes weights through.
  FSTGeneric log = SmallMachine(FSTPlusTimesLog);
  EXPECT_EQ(Describe(FSTConvert_to_MinPlus(log)).substr(7), Describe(log).substr(12));
}

TEST(BasicDeathTest, RefusedCopiesExitWithSuccess) {
  FSTGeneric min_plus = SmallMachine();
  EXPECT_EXIT(FSTConvert_to_MinPlus(min_plus), ExitedWithCode(0),
              "^semiring of x 0x[0-9a-f]+ and convert_to_semiring 0x[0-9a-f]+ pair not "
              "implemented\n");
  EXPECT_EXIT(FSTConvert_to_MaxPlus(FSTConvert_to_MaxPlus(min_plus)), ExitedWithCode(0),
              "pair not implemented");
  EXPECT_EXIT(FSTConvert_to_MaxPlus(SmallMachine(FSTPlusTimes)), ExitedWithCode(0),
              "pair not implemented");
  EXPECT_EXIT(FSTBasicRep(min_plus, FSTArcOrderInput, FSTArcOrderOutput, true, false, true),
              ExitedWithCode(0), "^reverse and convert_to_PlusTimes both true not implemented\n");
  FSTGeneric log = SmallMachine(FSTPlusTimesLog);
  EXPECT_EXIT(FSTBasicRep(log, FSTArcOrderInput, FSTArcOrderOutput, true, false, FSTMinPlus),
              ExitedWithCode(0), "^reverse and convert_to_semiring both true not implemented\n");
  // Same semiring: allowed, and the same as FSTReverse.
  FSTGeneric reversed(
      new FSTBasicRep(log, FSTArcOrderInput, FSTArcOrderOutput, true, false, FSTPlusTimesLog));
  EXPECT_EQ(Describe(reversed), Describe(FSTReverse(log)));
}

TEST(BasicDeathTest, BadStateIdsStopWithTheCondition) {
  FSTGeneric m = SmallMachine();
  auto abort = KilledBySignal(SIGABRT);
  EXPECT_EXIT(m->add_arc(-1, 0, 0, 0, 0), abort, "Assertion `p >= 0' failed");
  EXPECT_EXIT(m->add_arc(0, -2, 0, 0, 0), abort, "Assertion `q >= 0' failed");
  EXPECT_EXIT(m->set_final(-1, 0), abort, "Assertion `p >= 0' failed");
  EXPECT_EXIT(m->set_initial(-3), abort, "Assertion `p >= 0' failed");
  EXPECT_EXIT(m->add_states(-1), abort, "Assertion `n >= 0' failed");
  EXPECT_EXIT(m->final_weight(4), abort, "Assertion `\\(p\\) < _n_states' failed");
  EXPECT_EXIT(m->is_final(-1), abort, "Assertion `\\(p\\) >= 0' failed");
  EXPECT_EXIT(m->arcs_out(99), abort, "Assertion `\\(p\\) < _n_states' failed");
  EXPECT_EXIT(m->arcs_out_with_input(-5, 0), abort, "Assertion `\\(p\\) >= 0' failed");
  EXPECT_EXIT(m->delete_state(4), abort, "Assertion `\\(p\\) < _n_states' failed");
  EXPECT_EXIT(m->delete_states({0, 7}), abort, "Assertion `\\(\\*i\\) < _n_states' failed");
  EXPECT_EXIT(m->delete_states({-1}), abort, "Assertion `\\(\\*i\\) >= 0' failed");
  EXPECT_EXIT(
      {
        FSTArcVector v{FSTNewArc(1, 1, 0, 9, 0)};
        m->add_arcs(0, v, FSTArcOrderAny);
      },
      abort, "Assertion `\\(q\\) < _n_states' failed");
  EXPECT_EXIT(
      {
        FSTArcVector v;
        m->set_arcs(12, v, FSTArcOrderAny);
      },
      abort, "Assertion `\\(p\\) < _n_states' failed");
  // The message names the source and the function, like the C library's assertions.
  EXPECT_EXIT(m->add_states(-1), abort,
              "src/lib/FSTBasic.cc:[0-9]+: virtual int FSTBasicRep::add_states\\(int\\)");
  EXPECT_EXIT(m->final_states(), abort, "^FATAL: FSTBasic::final_states not supported\n");
}

TEST(Basic, RestoreInputOutputIndex) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->add_arc(0, 1, FSTstring_map["42"], FSTstring_map["abc"], 0);
  m->add_arc(1, 2, FSTstring_map["-7"], 0, 0);
  m->restore_input_output_index();
  EXPECT_EQ(DescribeArcs(m->arcs_out(0)), " 42:0/0>1");
  EXPECT_EQ(DescribeArcs(m->arcs_out(1)), " -7:0/0>2");
  EXPECT_EQ(m->input_alphabet().count(FSTstring_map["42"]), 1u);  // the sets are left alone
}

}  // namespace
