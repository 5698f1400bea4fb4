#include <gtest/gtest.h>
#include <utime.h>

#include <random>

#include "FST.h"
#include "Language.h"
#include "RandomMachine.h"
#include "TestUtil.h"

namespace {

using ::testing::KilledBySignal;

size_t const bound = 4;

// A machine accepting one word (a chain of labels) with a final weight.
FSTGeneric Word(std::vector<int> const& labels, float final_weight = 0,
                FSTSemiringBase const* s = FSTMinPlus) {
  FSTGeneric m = FSTBasic(s);
  m->set_initial(0);
  for (size_t i = 0; i < labels.size(); ++i)
    m->add_arc(int(i), int(i) + 1, labels[i], labels[i], 0);
  m->set_final(int(labels.size()), final_weight);
  return m;
}

// The language of L bracketed by tag arcs (an epsilon tag adds nothing).
Language Bracket(Language const& l, int in_open, int out_open, int in_close, int out_close) {
  Language result;
  for (auto const& [key, w] : l) {
    StringPair k;
    if (in_open) k.first.push_back(in_open);
    k.first.insert(k.first.end(), key.first.begin(), key.first.end());
    if (in_close) k.first.push_back(in_close);
    if (out_open) k.second.push_back(out_open);
    k.second.insert(k.second.end(), key.second.begin(), key.second.end());
    if (out_close) k.second.push_back(out_close);
    result[k] = w;
  }
  return result;
}

TEST(Union, LanguageIsTheBestOfTheWeightedOperands) {
  std::mt19937 rng(21);
  for (FSTSemiringBase const* s : {FSTMinPlus, FSTMaxPlus, FSTPlusTimes, FSTPlusTimesLog})
    for (int round = 0; round < 40; ++round) {
      RandomMachineOptions o;
      o.semiring = s;
      o.acyclic = !s->idempotent();  // path sums need no epsilon cycles
      fst::vector<FSTGeneric> operands;
      fst::vector<float> weights;
      Language want;
      int n = 1 + int(rng() % 3);
      for (int i = 0; i < n; ++i) {
        operands.push_back(RandomMachine(rng, o));
        if (i + 1 < n) weights.push_back(s == FSTPlusTimes ? 0.5f : s == FSTMaxPlus ? -1 : 1);
        float w = i + 1 < n ? weights.back() : s->one;  // a short list pads with one
        want = Plus(s, want, Scale(s, Enumerate(operands.back(), bound), w));
      }
      FSTGeneric u = FSTUnion(operands, weights);
      EXPECT_TRUE(SameLanguage(s, Enumerate(u, bound), want)) << s->name;
      // The lazy machine copied to a stored one is the same machine.
      EXPECT_EQ(Describe(FSTBasic(u)), Describe(u));
    }
}

TEST(Union, TagsBracketEachOperand) {
  std::mt19937 rng(22);
  int noun = FSTstring_map["noun"], verb = FSTstring_map["verb"];
  for (int round = 0; round < 30; ++round) {
    FSTGeneric a = RandomMachine(rng), b = RandomMachine(rng), c = RandomMachine(rng);
    FSTGeneric u = FSTUnion({a, b, c}, {1.0f}, {noun, 0, verb}, {verb, 0, 0});
    Language want =
        Plus(FSTMinPlus,
             Bracket(Scale(FSTMinPlus, Enumerate(a, bound), 1.0f), FSTstring_map["<noun>"],
                     FSTstring_map["<verb>"], FSTstring_map["</noun>"], FSTstring_map["</verb>"]),
             Enumerate(b, bound));
    want =
        Plus(FSTMinPlus, want,
             Bracket(Enumerate(c, bound), FSTstring_map["<verb>"], 0, FSTstring_map["</verb>"], 0));
    // Two tag labels more per string: compare up to the longer bound, then cut.
    Language got = Enumerate(u, bound + 2), cut;
    for (auto const& [key, w] : got)
      if (want.count(key) || (key.first.size() <= bound && key.second.size() <= bound))
        cut[key] = w;
    Language want_cut;
    for (auto const& [key, w] : want)
      if (got.count(key) || (key.first.size() <= bound && key.second.size() <= bound))
        want_cut[key] = w;
    EXPECT_TRUE(SameLanguage(FSTMinPlus, cut, want_cut));
  }
}

TEST(Union, StatesAlphabetsAndFinality) {
  int a = RandomLabel(0), b = RandomLabel(1), x = FSTstring_map["x"];
  FSTGeneric first = Word({a, b}, 0.5f);
  FSTGeneric second = FSTBasic(FSTMinPlus);
  second->set_initial(0);
  second->set_final(0, 0.25f);  // accepts the empty string
  second->add_arc(0, 0, x, 0, 1);
  FSTGeneric no_start = FSTBasic(FSTMinPlus);
  no_start->add_arc(0, 1, b, b, 0);

  FSTGeneric u = FSTUnion(first, no_start, second);
  EXPECT_EQ(u->name, "FSTUnion");
  EXPECT_EQ(u->initial(), 0);
  EXPECT_EQ(u->states().size(), 1);
  EXPECT_FALSE(u->is_final(0));
  EXPECT_EQ(u->final_weight(0), FSTMinPlus->zero);
  // Ids in order of discovery: operand 0's start, then operand 2's.
  EXPECT_EQ(DescribeArcs(u->arcs_out(0)), " 0:0/0>1 0:0/0>2");
  EXPECT_EQ(DescribeArcs(u->arcs_out(2)), " " + std::to_string(x) + ":0/1>2");
  EXPECT_TRUE(u->is_final(2));
  EXPECT_EQ(u->final_weight(2), 0.25f);
  EXPECT_EQ(u->potential(0), 0);  // better of the operands' potentials, as stored
  EXPECT_EQ(u->output_alphabet(), (fst::set<int>{0}));
  EXPECT_EQ(u->input_alphabet(), (fst::set<int>{0, a, b, x}));  // both sides of each operand

  // reset forgets the ids; asking in another order numbers differently.
  u->reset();
  EXPECT_EQ(u->states().size(), 1);
  u->force();
  EXPECT_EQ(u->states().size(), 1 + 3 + 2 + 1);
  EXPECT_EQ(FSTUnion(fst::vector<FSTGeneric>{})->states().size(), 1);
  EXPECT_TRUE(FSTUnion(fst::vector<FSTGeneric>{})->arcs_out(0).done());

  // With tags: the super-final state is 1, operand finals move onto closing arcs.
  FSTGeneric t = FSTUnion({first, second}, {0, x}, {0, 0});
  EXPECT_EQ(t->states().size(), 2);
  EXPECT_TRUE(t->is_final(1));
  EXPECT_EQ(t->final_weight(1), 0);
  int open = FSTstring_map["<x>"], close = FSTstring_map["</x>"];
  EXPECT_EQ(DescribeArcs(t->arcs_out(0)), " 0:0/0>2 " + std::to_string(open) + ":0/0>3");
  EXPECT_FALSE(t->is_final(3));
  EXPECT_EQ(DescribeArcs(t->arcs_out(3)),
            " " + std::to_string(x) + ":0/1>3 " + std::to_string(close) + ":0/0.25>1");
  // With an order the closing arc is sorted in.
  EXPECT_EQ(t->arcs_out(3, FSTArcOrderInput).size(), 2);
  EXPECT_EQ(t->input_alphabet().count(open), 1u);
}

TEST(Union, FilteredQueries) {
  int a = RandomLabel(0), b = RandomLabel(1);
  FSTGeneric first = Word({a}), second = Word({b});
  FSTGeneric u = FSTUnion(first, second);
  u->force();
  for (int p : u->states())
    for (int l : {0, a, b})
      for (int m : {0, 1, 2}) {
        std::string got = DescribeArcs(u->arcs_out_with_input(p, l, FSTArcMode(m)));
        std::string want;
        for (FSTArc* arc : u->arcs_out(p)) {
          // Operand arcs follow the usual modes, the union's own entry arcs the mirrored ones.
          bool own = p == 0;
          bool keep = own ? FSTLabelMatches(l, arc->input, FSTArcMode(m))
                          : FSTLabelMatches(arc->input, l, FSTArcMode(m));
          if (keep)
            want += " " + std::to_string(arc->input) + ":" + std::to_string(arc->output) + "/" +
                    "0>" + std::to_string(arc->to);
        }
        EXPECT_EQ(got, want) << p << " " << l << " " << m;
      }
  EXPECT_EQ(u->arcs_out_with_output(0, 0, FSTArcModeEqual).size(), 2);
  EXPECT_EQ(u->arcs_out_with_output(0, a, FSTArcModeLessEqual).size(), 0);
}

TEST(Union, OperandsLiveAsLongAsTheUnion) {
  bool first_gone = false, second_gone = false;
  FSTGeneric kept = new ChainRep(3, &second_gone);
  FSTGeneric u;
  {
    FSTGeneric temporary = new ChainRep(2, &first_gone);
    u = FSTUnion(temporary, kept);
  }
  EXPECT_FALSE(first_gone);  // the union still holds it
  u->force();
  EXPECT_EQ(u->states().size(), 1 + 2 + 3);
  u = FSTGeneric();
  EXPECT_TRUE(first_gone);
  EXPECT_FALSE(second_gone);  // somebody else still holds this one
}

TEST(UnionDeathTest, MismatchedSemiringsAndTags) {
  FSTGeneric a = Word({1}), b = Word({1}, 0, FSTMaxPlus);
  EXPECT_EXIT(FSTUnion(a, b), KilledBySignal(SIGABRT),
              "^FATAL: can't take union of different semirings: MinPlus and MaxPlus\n");
  EXPECT_EXIT(FSTUnion({a, a}, {1}, {1, 2}), KilledBySignal(SIGABRT),
              "Assertion `input_tags.size\\(\\) == output_tags.size\\(\\)' failed");
  EXPECT_EXIT(FSTUnion({a, a}, {1}, {1}), KilledBySignal(SIGABRT),
              "Assertion `input_tags.size\\(\\) == 0 \\|\\| input_tags.size\\(\\) == "
              "fsts.size\\(\\)' failed");
  EXPECT_EXIT(FSTUnion(a, a)->arcs_out(5), KilledBySignal(SIGABRT),
              "Assertion `\\(p\\) < _n_states' failed");
  EXPECT_EXIT(FSTConcatenate(a, b), KilledBySignal(SIGABRT),
              "^FATAL: can't concatenate different semirings: MinPlus and MaxPlus\n");
}

TEST(Concatenate, LanguageIsTheProductOfTheOperands) {
  std::mt19937 rng(23);
  for (FSTSemiringBase const* s : {FSTMinPlus, FSTPlusTimes})
    for (int round = 0; round < 50; ++round) {
      RandomMachineOptions o;
      o.semiring = s;
      o.acyclic = !s->idempotent();
      fst::vector<FSTGeneric> operands;
      Language want = {{{}, s->one}};
      int n = 1 + int(rng() % 3);
      for (int i = 0; i < n; ++i) {
        operands.push_back(RandomMachine(rng, o));
        want = Times(s, want, Enumerate(operands.back(), bound), bound);
      }
      FSTGeneric c = FSTConcatenate(operands);
      EXPECT_TRUE(SameLanguage(s, Enumerate(c, bound), want)) << s->name;
      EXPECT_EQ(Describe(FSTBasic(c)), Describe(c));
    }
}

TEST(Concatenate, EpsilonArcIntoTheNextOperandComesFirst) {
  int a = RandomLabel(0), b = RandomLabel(1);
  FSTGeneric first = Word({a}, 0.5f);
  first->add_arc(1, 0, b, b, 2);  // a final state with its own arcs
  FSTGeneric c = FSTConcatenate(first, Word({b}, 0.25f));
  EXPECT_EQ(c->name, "FSTConcatenate");
  EXPECT_EQ(c->initial(), 0);
  c->arcs_out(0);
  EXPECT_FALSE(c->is_final(1));  // final in a middle operand: not final here
  EXPECT_EQ(DescribeArcs(c->arcs_out(1)),
            " 0:0/0.5>2 " + std::to_string(b) + ":" + std::to_string(b) + "/2>0");
  EXPECT_EQ(c->arcs_out_with_input(1, b).size(), 1);
  EXPECT_EQ(c->arcs_out_with_input(1, 0).size(), 1);
  c->arcs_out(2);
  EXPECT_TRUE(c->is_final(3));
  EXPECT_EQ(c->final_weight(3), 0.25f);

  EXPECT_EQ(FSTConcatenate(fst::vector<FSTGeneric>{})->initial(), -1);
  FSTGeneric no_start = FSTBasic(FSTMinPlus);
  no_start->add_arc(0, 1, a, a, 0);
  EXPECT_EQ(FSTConcatenate(no_start, first)->initial(), -1);
  // A later operand without a start cannot be entered.
  FSTGeneric blocked = FSTConcatenate(first, no_start);
  blocked->force();
  EXPECT_EQ(blocked->states().size(), 2);
  EXPECT_TRUE(Enumerate(blocked, bound).empty());

  c->reset();
  EXPECT_EQ(c->states().size(), 1);
  c->force();
  EXPECT_EQ(c->states().size(), 4);
}

TEST(Closure, StarAndPlusRepeatTheLanguage) {
  std::mt19937 rng(24);
  for (int round = 0; round < 80; ++round) {
    RandomMachineOptions o;
    o.epsilon_input = 0.1;
    o.acceptor = true;  // repeated products of transducer languages grow too fast to check
    FSTGeneric m = RandomMachine(rng, o);
    Language l = Enumerate(m, bound);
    FSTGeneric star = new FSTClosureStarRep(m, false);
    FSTGeneric plus = new FSTClosurePlusRep(m, false);
    EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(star, bound), Closure(FSTMinPlus, l, false, bound)));
    EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(plus, bound), Closure(FSTMinPlus, l, true, bound)));
    EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(FSTClosure(m, false), bound),
                             Closure(FSTMinPlus, l, false, bound)));
    EXPECT_EQ(Describe(FSTBasic(star)), Describe(star));
    EXPECT_EQ(Describe(FSTBasic(plus)), Describe(plus));
  }
}

TEST(Closure, ChoiceNumberingAndBackArcs) {
  int a = RandomLabel(0);
  FSTGeneric accepts_empty = Word({a});
  accepts_empty->set_final(0, 0);
  FSTGeneric c = FSTClosure(accepts_empty, false);
  EXPECT_EQ(c->name, "FSTClosurePlus");  // already accepts the empty string at no cost
  EXPECT_EQ(c->states().size(), 2);
  EXPECT_EQ(c->initial(), 0);
  EXPECT_EQ(c->arcs_out(0).size(), 1);  // no epsilon self-loop at the initial state
  EXPECT_EQ(DescribeArcs(c->arcs_out(1)), " 0:0/0>0");
  EXPECT_EQ(c->arcs_out_with_input(1, a).size(), 0);
  EXPECT_EQ(c->arcs_out_with_input(1, a, FSTArcModeLessEqual).size(), 1);
  EXPECT_EQ(FSTClosure(Word({a}, 0.5f), false)->name, "FSTClosureStar");
  EXPECT_EQ(FSTClosure(Word({a}), true)->name, "FSTClosurePlus");

  // Star of a machine without final states: state 0 final, the operand shifted by one.
  FSTGeneric dead = FSTBasic(FSTMinPlus);
  dead->set_initial(0);
  dead->add_arc(0, 1, a, a, 1);
  FSTGeneric star = FSTClosure(dead, false);
  EXPECT_EQ(star->states().size(), 3);
  EXPECT_TRUE(star->is_final(0));
  EXPECT_EQ(star->final_weight(0), 0);
  EXPECT_EQ(star->potential(0), 0);
  EXPECT_EQ(DescribeArcs(star->arcs_out(0)), " 0:0/0>1");
  EXPECT_EQ(DescribeArcs(star->arcs_out(1)),
            " " + std::to_string(a) + ":" + std::to_string(a) + "/1>2");
  EXPECT_FALSE(star->is_final(2));
  EXPECT_EQ(star->input_alphabet(), (fst::set<int>{0, a}));

  // Over a lazy operand the count follows the operand as it grows.
  FSTGeneric lazy_star = FSTClosure(new ChainRep(4), false);
  EXPECT_EQ(lazy_star->states().size(), 2);
  EXPECT_EQ(Describe(FSTBasic(lazy_star)), Describe(lazy_star));
  EXPECT_EQ(lazy_star->states().size(), 5);
}

TEST(LazyOps, ReloadPicksUpChangedOperands) {
  std::string file = WriteTempFile("lazy.fst", "I 0\nT 0 1 a\nF 1\n");
  FSTGeneric loaded = FSTLoad(file);
  FSTGeneric u = FSTUnion(loaded, Word({RandomLabel(1)}));
  FSTGeneric c = FSTConcatenate(loaded, loaded);
  EXPECT_FALSE(u.reload());
  WriteTempFile("lazy.fst", "I 0\nT 0 1 zz\nF 1\n");
  long mtime = file_mtime(file.c_str());
  struct utimbuf times = {mtime + 7, mtime + 7};
  ASSERT_EQ(utime(file.c_str(), &times), 0);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(u.reload());
  EXPECT_TRUE(c.reload());
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(u->input_alphabet().count(FSTstring_map["zz"]), 1u);
  EXPECT_EQ(Enumerate(c, bound).count({{FSTstring_map["zz"], FSTstring_map["zz"]}, {}}), 1u);
}

}  // namespace
