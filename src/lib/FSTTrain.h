// Weight training by expectation-maximisation, in PlusTimes, on the stored machines (FSTBasicRep,
// FSTBinaryRep). An example is a string of the machine's input side, of its output side, or a
// pair; its lattice is the product of the machine with the example's positions, walked in place
// (no machine is built). One update costs O((|x|+1)(|y|+1)(states + arcs)) time and memory; a
// cycle of arcs that read none of the observed labels is solved by iteration.
//
// The protocol of the training slots:
//   _train_begin()        freezes the machine and numbers its arcs (arc_out(n) is arc n): examples
//                         are pairs, or nothing (the machine is its own lattice);
//   _train_begin_left()   the same, examples are input strings;
//   _train_begin_right()  the same, examples are output strings;
//   FSTTrainObserve       sets the example that the next update is about;
//   _train_update(forward, backward, total)
//                         adds each arc's expected count, forward(from) weight backward(to)
//                         / total, summed over the example's lattice (vectors indexed as
//                         FSTTrainData::index says), and the final weights' counts likewise;
//   _train_normalize()    makes the counts probabilities per state (arcs out and final weight
//                         sum to one) and clears them; a state never visited keeps its weights;
//   _train_normalize_by_outputlabel()
//                         the same per state and output label (the final weight in the group of
//                         epsilon);
//   _train_end()          writes the weights into the machine and unfreezes it.
#ifndef T2SFST_FSTTRAIN_H
#define T2SFST_FSTTRAIN_H

#include <functional>
#include <string>
#include <vector>

#include "FSTGeneric.h"

// The training record of a frozen machine.
struct FSTTrainData {
  enum Sides { pairs, inputs, outputs };

  // Arc n is arc_map[n]: the arcs of state 0, then of state 1, ...; first_arc[p] is the index
  // of p's first arc and first_arc[n_states] the number of arcs.
  fst::vector<FSTArc*> arc_map;
  std::vector<int> first_arc;
  Sides sides = pairs;
  int initial = -1;
  // The weights in training (written into the machine at the end) and their counts.
  std::vector<double> weights, final_weights;
  std::vector<double> counts, final_counts;
  // Added to every arc's (and final weight's) count when normalising: 0 is plain EM.
  double smoothing = 0;
  // The example of the next update; an empty side not observed counts every path.
  std::vector<int> input, output;
  bool input_observed = false, output_observed = false;

  int n_states() const { return int(first_arc.size()) - 1; }
  // The lattice: (i, j, q) for q having read input[0, i) and written output[0, j).
  int input_positions() const { return input_observed ? int(input.size()) + 1 : 1; }
  int output_positions() const { return output_observed ? int(output.size()) + 1 : 1; }
  size_t lattice_size() const {
    return size_t(input_positions()) * size_t(output_positions()) * size_t(n_states());
  }
  size_t index(int i, int j, int q) const {
    return (size_t(i) * size_t(output_positions()) + size_t(j)) * size_t(n_states()) + size_t(q);
  }
};

// The stored machines that train: the training slots over a record of their arcs. A
// representation gives its final weights back through _set_trained_final.
class FSTTrainableRep : public FSTGenericInt {
 public:
  FSTArc arc_out(int p) const override;
  void _train_begin() override { _train_start(FSTTrainData::pairs); }
  void _train_begin_left() override { _train_start(FSTTrainData::inputs); }
  void _train_begin_right() override { _train_start(FSTTrainData::outputs); }
  void _train_end() override;
  void _train_normalize() override;
  void _train_normalize_by_outputlabel() override;
  void _train_update(fst::vector<double>& forward, fst::vector<double>& backward,
                     double total) override;
  // Null unless in training.
  FSTTrainData* train_data() const { return _train_data; }

 protected:
  ~FSTTrainableRep() override;
  virtual void _set_trained_final(int p, float w) = 0;
  FSTTrainData* _train_data = nullptr;

 private:
  void _train_start(FSTTrainData::Sides sides);
};

// The record of m in training (a stored machine after one of the _train_begin calls), or null.
FSTTrainData* FSTTrainDataOf(FSTGeneric const& m);
// The example of the next update: the sides that the training observes are taken from it.
void FSTTrainObserve(FSTGeneric const& m, std::vector<int> const& input,
                     std::vector<int> const& output);
// The forward and backward weights of the example set last, and its total weight (the
// backward weight of the initial state), from the weights in training.
double FSTTrainForwardBackward(FSTTrainData const& data, fst::vector<double>& forward,
                               fst::vector<double>& backward);
void FSTTrainAccumulate(FSTTrainData& data, fst::vector<double> const& forward,
                        fst::vector<double> const& backward, double total);
void FSTTrainNormalize(FSTTrainData& data, bool by_output_label);

// ---- expectation-maximisation over a corpus ----

struct FSTTrainExample {
  std::vector<int> input, output;
  double count = 1;
};

struct FSTTrainOptions {
  int iterations = 10;
  FSTTrainData::Sides sides = FSTTrainData::pairs;
  bool by_output_label = false;
  double smoothing = 0;
  // Hears each iteration's corpus log-likelihood (natural log, before its re-estimation) and
  // the number of examples the machine cannot produce.
  std::function<void(int iteration, double log_likelihood, size_t impossible)> report;
};

// Trains m in place (a stored machine in PlusTimes) and returns the log-likelihood of the
// corpus under the trained weights. Examples the machine cannot produce are left out.
double FSTTrainEM(FSTGeneric const& m, std::vector<FSTTrainExample> const& corpus,
                  FSTTrainOptions const& options);

// A corpus file: one example a line, labels separated by blanks; with pairs, the input, a tab
// and the output. Sides picks what a line holds (pairs: both, inputs or outputs: one string).
// Stops naming the file and line on a pair line without a tab.
std::vector<FSTTrainExample> FSTTrainReadCorpus(std::string const& file,
                                                FSTTrainData::Sides sides);

#endif
