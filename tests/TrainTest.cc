#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <sstream>

#include "FST.h"
#include "RandomMachine.h"

namespace {

// A stochastic machine: each state's arcs and final weight sum to one, and every state ends with
// probability at least 0.2 (so that sampling stops). deterministic: the arcs of a state have
// distinct inputs.
FSTGeneric StochasticMachine(std::mt19937& rng, int n_states, bool deterministic,
                             double epsilon_input, bool unique_outputs) {
  FSTGeneric m = FSTBasic(FSTPlusTimes);
  m->add_states(n_states);
  m->set_initial(0);
  std::uniform_real_distribution<double> unit(0.2, 1.0);
  int next_output = 0;
  for (int p = 0; p < n_states; ++p) {
    int n_arcs = 1 + int(rng() % 3);
    std::vector<double> w(size_t(n_arcs) + 1);
    double sum = 0;
    for (double& x : w) sum += x = unit(rng);
    w.back() = std::max(w.back(), 0.25 * sum);
    sum = 0;
    for (double x : w) sum += x;
    for (int k = 0; k < n_arcs; ++k) {
      bool epsilon = !deterministic && std::bernoulli_distribution(epsilon_input)(rng);
      int input = epsilon ? 0 : RandomLabel(deterministic ? k : int(rng() % 2));
      int output = unique_outputs ? RandomLabel(3 + next_output++) : input;
      m->add_arc(p, int(rng() % unsigned(n_states)), input, output, float(w[size_t(k)] / sum));
    }
    m->set_final(p, float(w.back() / sum));
  }
  return m;
}

struct SampledPath {
  FSTTrainExample example;
  std::vector<FSTArc*> arcs;
};

SampledPath Sample(std::mt19937& rng, FSTGeneric const& m) {
  SampledPath path;
  int p = m->initial();
  for (;;) {
    std::uniform_real_distribution<double> unit(0, 1);
    double r = unit(rng) - m->final_weight(p);
    if (r < 0) return path;
    FSTArc* taken = nullptr;
    for (FSTArc* a : m->arcs_out(p)) {
      taken = a;
      if ((r -= a->weight) < 0) break;
    }
    if (taken->input) path.example.input.push_back(taken->input);
    if (taken->output) path.example.output.push_back(taken->output);
    path.arcs.push_back(taken);
    p = taken->to;
  }
}

std::vector<FSTGeneric> BothStoredForms(FSTGeneric const& m) {
  std::stringstream binary;
  m->dump_binary(binary);
  std::string header;
  std::getline(binary, header);
  return {FSTCopy(m), FSTLoadBinary(binary, header.c_str() + 1)};
}

}  // namespace

// With one path per example, one iteration gives the relative frequencies of the arcs taken.
TEST(Train, OneIterationOnAnUnambiguousMachineCountsRelativeFrequencies) {
  std::mt19937 rng(7);
  for (int trial = 0; trial < 6; ++trial) {
    FSTGeneric truth = StochasticMachine(rng, 4, true, 0, false);
    std::vector<FSTTrainExample> corpus;
    std::map<std::pair<int, int>, double> arc_count;  // (state, input) -> uses
    std::map<int, double> state_count, final_count;
    for (int k = 0; k < 300; ++k) {
      SampledPath path = Sample(rng, truth);
      corpus.push_back(path.example);
      int p = truth->initial();
      for (FSTArc* a : path.arcs) ++arc_count[{p, a->input}], ++state_count[p], p = a->to;
      ++final_count[p], ++state_count[p];
    }
    for (FSTGeneric m : BothStoredForms(truth)) {
      FSTTrainOptions options;
      options.iterations = 1;
      options.sides = trial % 2 ? FSTTrainData::inputs : FSTTrainData::pairs;
      FSTTrainEM(m, corpus, options);
      for (int p = 0; p < 4; ++p) {
        if (!state_count[p]) continue;
        for (FSTArc* a : m->arcs_out(p))
          EXPECT_NEAR(a->weight, (arc_count[{p, a->input}] / state_count[p]), 1e-6) << m->name;
        EXPECT_NEAR(m->final_weight(p), final_count[p] / state_count[p], 1e-6) << m->name;
      }
    }
  }
}

// Ambiguous machines, epsilon cycles included: the corpus log-likelihood never decreases, in
// every observation mode and in both normalisations; and a machine that is its own lattice
// counts each arc's expected uses over its paths.
TEST(Train, LogLikelihoodNeverDecreasesAndSelfCountsAreExpectedUses) {
  std::mt19937 rng(11);
  for (int trial = 0; trial < 12; ++trial) {
    FSTGeneric truth = StochasticMachine(rng, 2 + trial % 4, false, 0.3, trial % 3 == 0);
    std::vector<FSTTrainExample> corpus;
    for (int k = 0; k < 60; ++k) corpus.push_back(Sample(rng, truth).example);
    FSTGeneric m = FSTCopy(truth);
    for (int p = 0; p < m->n_states(); ++p) {  // start away from the truth, still stochastic
      float sum = m->final_weight(p);
      for (FSTArc* a : m->arcs_out(p)) sum += a->weight *= float(0.5 + (rng() % 100) / 100.0);
      for (FSTArc* a : m->arcs_out(p)) a->weight /= sum;
      m->set_final(p, m->final_weight(p) / sum);
    }
    std::vector<double> history;
    FSTTrainOptions options;
    options.iterations = 8;
    options.sides = FSTTrainData::Sides(trial % 3);
    options.by_output_label = trial % 2;
    options.report = [&](int, double ll, size_t impossible) {
      history.push_back(ll);
      EXPECT_EQ(impossible, 0u);
    };
    history.push_back(FSTTrainEM(m, corpus, options));
    for (size_t k = 1; k < history.size(); ++k)
      EXPECT_GE(history[k], history[k - 1] - 1e-7 * std::fabs(history[k - 1])) << trial;
  }

  RandomMachineOptions acyclic;
  acyclic.semiring = FSTPlusTimes;
  acyclic.acyclic = true;
  for (int trial = 0; trial < 10; ++trial) {
    FSTGeneric m = FSTCopy(RandomMachine(rng, acyclic));
    if (m->initial() < 0) continue;
    // Brute force: every path with its weight, and the arcs it uses.
    std::map<FSTArc const*, double> uses;
    double total = 0;
    std::function<void(int, double, std::vector<FSTArc const*>&)> walk =
        [&](int p, double w, std::vector<FSTArc const*>& taken) {
          if (m->is_final(p)) {
            double path = w * m->final_weight(p);
            total += path;
            for (FSTArc const* a : taken) uses[a] += path;
          }
          for (FSTArc* a : m->arcs_out(p)) {
            taken.push_back(a);
            walk(a->to, w * a->weight, taken);
            taken.pop_back();
          }
        };
    std::vector<FSTArc const*> taken;
    walk(m->initial(), 1, taken);
    m->_train_begin();
    FSTTrainData& data = *FSTTrainDataOf(m);
    fst::vector<double> forward, backward;
    EXPECT_NEAR(FSTTrainForwardBackward(data, forward, backward), total, 1e-9);
    m->_train_update(forward, backward, total);
    for (size_t n = 0; n < data.arc_map.size(); ++n)
      EXPECT_NEAR(data.counts[n], total > 0 ? uses[data.arc_map[n]] / total : 0, 1e-9);
    m->_train_end();
  }
}

// Many paths drawn from a known machine, whose inputs alone do not tell the arcs (epsilons,
// shared labels): training from even weights recovers the weights.
TEST(Train, RecoversTheWeightsOfTheMachineThatDrewTheSample) {
  std::mt19937 rng(3);
  FSTGeneric truth = StochasticMachine(rng, 3, false, 0.3, true);
  std::vector<FSTTrainExample> corpus;
  for (int k = 0; k < 20000; ++k) corpus.push_back(Sample(rng, truth).example);
  FSTGeneric m = FSTCopy(truth);
  for (int p = 0; p < 3; ++p) {
    float even = 1.0f / float(m->n_arcs_out(p) + 1);
    for (FSTArc* a : m->arcs_out(p)) a->weight = even;
    m->set_final(p, even);
  }
  FSTTrainOptions options;
  options.iterations = 40;
  options.sides = FSTTrainData::outputs;  // each output is one arc's
  FSTTrainEM(m, corpus, options);
  for (int p = 0; p < 3; ++p) {
    FSTArcIter want = truth->arcs_out(p);
    for (FSTArc* a : m->arcs_out(p)) {
      EXPECT_NEAR(a->weight, (*want)->weight, 0.02);
      ++want;
    }
    EXPECT_NEAR(m->final_weight(p), truth->final_weight(p), 0.02);
  }
}

TEST(TrainDeathTest, TheProtocolGuardsTheMachine) {
  FSTGeneric min_plus = FSTBasic(FSTMinPlus);
  EXPECT_DEATH(min_plus->_train_begin(), "_semiring == FSTPlusTimes");
  FSTGeneric m = FSTBasic(FSTPlusTimes);
  m->add_states(2);
  m->set_initial(0);
  m->add_arc(0, 1, 1, 1, 0.5f);
  m->_train_begin();
  EXPECT_DEATH(m->add_arc(0, 1, 1, 1, 0.5f), "!_train_data");
  EXPECT_DEATH(m->arc_out(1), "p < \\(_train_data->arc_map\\).size\\(\\)");
  EXPECT_DEATH(m->dump_ascii(std::cout), "FSTBasicRep::dump_ascii: can't dump when in training mode");
  EXPECT_EQ(m->arc_out(0).weight, 0.5f);
  m->_train_end();
  m->add_arc(0, 1, 1, 1, 0.5f);  // unfrozen
}
