#include "FSTTrain.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>

#include "FSTSemiring.h"
#include "FSTStringMap.h"
#include "FSTlib.h"

namespace {

// How one example's lattice is walked: which arcs stay at their position (they read nothing
// observed) and, for the others, where they lead.
class Lattice {
 public:
  explicit Lattice(FSTTrainData const& data) : _d(data) { _order_staying_arcs(); }

  bool stays(FSTArc const& a) const {
    return (!_d.input_observed || a.input == 0) && (!_d.output_observed || a.output == 0);
  }
  // The position an arc leads to from (i, j), or false when it does not fit the example there.
  bool advance(FSTArc const& a, int& i, int& j) const {
    if (_d.input_observed && a.input != 0) {
      if (i >= int(_d.input.size()) || _d.input[size_t(i)] != a.input) return false;
      ++i;
    }
    if (_d.output_observed && a.output != 0) {
      if (j >= int(_d.output.size()) || _d.output[size_t(j)] != a.output) return false;
      ++j;
    }
    return true;
  }

  void forward(fst::vector<double>& f) const {
    f.assign(_d.lattice_size(), 0.0);
    if (_d.initial < 0) return;
    f[_d.index(0, 0, _d.initial)] = 1;
    for (int i = 0; i < _d.input_positions(); ++i) {
      for (int j = 0; j < _d.output_positions(); ++j) {
        double* block = &f[_d.index(i, j, 0)];
        _close_forward(block);
        for (int q = 0; q < _d.n_states(); ++q) {
          if (block[q] == 0) continue;
          for (int n = _d.first_arc[size_t(q)]; n < _d.first_arc[size_t(q) + 1]; ++n) {
            FSTArc const& a = *_d.arc_map[size_t(n)];
            int i2 = i, j2 = j;
            if (stays(a) || !advance(a, i2, j2)) continue;
            f[_d.index(i2, j2, a.to)] += block[q] * _d.weights[size_t(n)];
          }
        }
      }
    }
  }

  void backward(fst::vector<double>& b) const {
    b.assign(_d.lattice_size(), 0.0);
    int const last_i = _d.input_positions() - 1, last_j = _d.output_positions() - 1;
    for (int i = last_i; i >= 0; --i) {
      for (int j = last_j; j >= 0; --j) {
        double* block = &b[_d.index(i, j, 0)];
        for (int q = 0; q < _d.n_states(); ++q) {
          double sum = i == last_i && j == last_j ? _d.final_weights[size_t(q)] : 0.0;
          for (int n = _d.first_arc[size_t(q)]; n < _d.first_arc[size_t(q) + 1]; ++n) {
            FSTArc const& a = *_d.arc_map[size_t(n)];
            int i2 = i, j2 = j;
            if (stays(a) || !advance(a, i2, j2)) continue;
            sum += _d.weights[size_t(n)] * b[_d.index(i2, j2, a.to)];
          }
          block[q] = sum;
        }
        _close_backward(block);
      }
    }
  }

 private:
  // Kahn's order of the states over the staying arcs; _cyclic when there is none.
  void _order_staying_arcs() {
    int const n_states = _d.n_states();
    std::vector<int> in_degree(size_t(n_states), 0);
    for (FSTArc* a : _d.arc_map)
      if (stays(*a)) ++in_degree[size_t(a->to)];
    for (int q = 0; q < n_states; ++q)
      if (in_degree[size_t(q)] == 0) _order.push_back(q);
    for (size_t k = 0; k < _order.size(); ++k) {
      int q = _order[k];
      for (int n = _d.first_arc[size_t(q)]; n < _d.first_arc[size_t(q) + 1]; ++n) {
        FSTArc const& a = *_d.arc_map[size_t(n)];
        if (stays(a) && --in_degree[size_t(a.to)] == 0) _order.push_back(a.to);
      }
    }
    _cyclic = int(_order.size()) < n_states;
  }

  // block += what flows into each state over staying arcs, block holding the inflow from
  // earlier positions.
  void _close_forward(double* block) const {
    if (!_cyclic) {
      for (int q : _order) {
        if (block[q] == 0) continue;
        for (int n = _d.first_arc[size_t(q)]; n < _d.first_arc[size_t(q) + 1]; ++n) {
          FSTArc const& a = *_d.arc_map[size_t(n)];
          if (stays(a)) block[a.to] += block[q] * _d.weights[size_t(n)];
        }
      }
      return;
    }
    _iterate(block, [&](std::vector<double> const& x, std::vector<double>& y) {
      for (int q = 0; q < _d.n_states(); ++q) {
        if (x[size_t(q)] == 0) continue;
        for (int n = _d.first_arc[size_t(q)]; n < _d.first_arc[size_t(q) + 1]; ++n) {
          FSTArc const& a = *_d.arc_map[size_t(n)];
          if (stays(a)) y[size_t(a.to)] += x[size_t(q)] * _d.weights[size_t(n)];
        }
      }
    });
  }

  void _close_backward(double* block) const {
    if (!_cyclic) {
      for (auto q = _order.rbegin(); q != _order.rend(); ++q) {
        for (int n = _d.first_arc[size_t(*q)]; n < _d.first_arc[size_t(*q) + 1]; ++n) {
          FSTArc const& a = *_d.arc_map[size_t(n)];
          if (stays(a)) block[*q] += _d.weights[size_t(n)] * block[a.to];
        }
      }
      return;
    }
    _iterate(block, [&](std::vector<double> const& x, std::vector<double>& y) {
      for (int q = 0; q < _d.n_states(); ++q) {
        for (int n = _d.first_arc[size_t(q)]; n < _d.first_arc[size_t(q) + 1]; ++n) {
          FSTArc const& a = *_d.arc_map[size_t(n)];
          if (stays(a)) y[size_t(q)] += _d.weights[size_t(n)] * x[size_t(a.to)];
        }
      }
    });
  }

  // The fixed point x = base + step(x), by Jacobi sweeps from x = base: the sums of ever longer
  // paths, which converge where the weights of the cycles stay below one.
  template <class Step>
  void _iterate(double* block, Step const& step) const {
    size_t const n = size_t(_d.n_states());
    std::vector<double> base(block, block + n), x = base, y(n);
    for (int sweep = 0; sweep < 100000; ++sweep) {
      y = base;
      step(x, y);
      double change = 0;
      for (size_t q = 0; q < n; ++q)
        change = std::max(change, std::fabs(y[q] - x[q]) / std::max(1.0, std::fabs(y[q])));
      x.swap(y);
      if (change <= 1e-13) break;
    }
    std::copy(x.begin(), x.end(), block);
  }

  FSTTrainData const& _d;
  std::vector<int> _order;
  bool _cyclic = false;
};

}  // namespace

// ---- the protocol ----

FSTTrainableRep::~FSTTrainableRep() { delete _train_data; }

void FSTTrainableRep::_train_start(FSTTrainData::Sides sides) {
  FST_ASSERT(_semiring == FSTPlusTimes);
  FST_ASSERT(!_train_data);
  FSTTrainData* data = new FSTTrainData;
  data->sides = sides;
  data->initial = initial();
  for (int p = 0; p < _n_states; ++p) {
    data->first_arc.push_back(int(data->arc_map.size()));
    for (FSTArc* a : arcs_out(p)) {
      data->arc_map.push_back(a);
      data->weights.push_back(a->weight);
    }
    data->final_weights.push_back(final_weight(p));
  }
  data->first_arc.push_back(int(data->arc_map.size()));
  data->counts.assign(data->arc_map.size(), 0.0);
  data->final_counts.assign(size_t(_n_states), 0.0);
  _train_data = data;
}

FSTArc FSTTrainableRep::arc_out(int n) const {
  FST_ASSERT(_train_data);
  size_t const p = size_t(n);
  FST_ASSERT(p < (_train_data->arc_map).size());
  FSTArc arc = *_train_data->arc_map[p];
  arc.weight = float(_train_data->weights[p]);
  return arc;
}

void FSTTrainableRep::_train_update(fst::vector<double>& forward, fst::vector<double>& backward,
                                    double total) {
  FST_ASSERT(_train_data);
  FSTTrainAccumulate(*_train_data, forward, backward, total);
}

void FSTTrainableRep::_train_normalize() {
  FST_ASSERT(_train_data);
  FSTTrainNormalize(*_train_data, false);
}

void FSTTrainableRep::_train_normalize_by_outputlabel() {
  FST_ASSERT(_train_data);
  FSTTrainNormalize(*_train_data, true);
}

void FSTTrainableRep::_train_end() {
  FST_ASSERT(_train_data);
  FSTTrainData* data = _train_data;
  for (size_t n = 0; n < data->arc_map.size(); ++n) data->arc_map[n]->weight = float(data->weights[n]);
  // The setters of a representation may check that it is not frozen.
  _train_data = nullptr;
  for (int p = 0; p < _n_states; ++p) _set_trained_final(p, float(data->final_weights[size_t(p)]));
  delete data;
}

FSTTrainData* FSTTrainDataOf(FSTGeneric const& m) {
  auto const* trainable = dynamic_cast<FSTTrainableRep const*>(m.get());
  return trainable ? trainable->train_data() : nullptr;
}

void FSTTrainObserve(FSTGeneric const& m, std::vector<int> const& input,
                     std::vector<int> const& output) {
  FSTTrainData* data = FSTTrainDataOf(m);
  if (!data) FSTFatal("FSTTrainObserve: %s is not in training", m->name.c_str());
  data->input_observed = data->sides != FSTTrainData::outputs;
  data->output_observed = data->sides != FSTTrainData::inputs;
  data->input = data->input_observed ? input : std::vector<int>();
  data->output = data->output_observed ? output : std::vector<int>();
}

double FSTTrainForwardBackward(FSTTrainData const& data, fst::vector<double>& forward,
                               fst::vector<double>& backward) {
  Lattice lattice(data);
  lattice.forward(forward);
  lattice.backward(backward);
  return data.initial < 0 ? 0.0 : backward[data.index(0, 0, data.initial)];
}

void FSTTrainAccumulate(FSTTrainData& data, fst::vector<double> const& forward,
                        fst::vector<double> const& backward, double total) {
  FST_ASSERT(forward.size() == data.lattice_size());
  FST_ASSERT(backward.size() == data.lattice_size());
  if (!(total > 0)) return;
  Lattice lattice(data);
  int const last_i = data.input_positions() - 1, last_j = data.output_positions() - 1;
  for (int i = 0; i <= last_i; ++i) {
    for (int j = 0; j <= last_j; ++j) {
      for (int q = 0; q < data.n_states(); ++q) {
        double const f = forward[data.index(i, j, q)];
        if (f == 0) continue;
        if (i == last_i && j == last_j)
          data.final_counts[size_t(q)] += f * data.final_weights[size_t(q)] / total;
        for (int n = data.first_arc[size_t(q)]; n < data.first_arc[size_t(q) + 1]; ++n) {
          FSTArc const& a = *data.arc_map[size_t(n)];
          int i2 = i, j2 = j;
          if (!lattice.stays(a) && !lattice.advance(a, i2, j2)) continue;
          data.counts[size_t(n)] += f * data.weights[size_t(n)] * backward[data.index(i2, j2, a.to)] /
                                    total;
        }
      }
    }
  }
}

void FSTTrainNormalize(FSTTrainData& data, bool by_output_label) {
  double const s = data.smoothing;
  for (int q = 0; q < data.n_states(); ++q) {
    int const begin = data.first_arc[size_t(q)], end = data.first_arc[size_t(q) + 1];
    bool const final = data.final_weights[size_t(q)] > 0 || data.final_counts[size_t(q)] > 0;
    // The sum of the counts of each group: all the state's, or those of one output label.
    std::map<int, double> sums;
    auto group = [&](int n) { return by_output_label ? data.arc_map[size_t(n)]->output : 0; };
    double seen = data.final_counts[size_t(q)];
    for (int n = begin; n < end; ++n) seen += data.counts[size_t(n)];
    if (seen > 0) {
      for (int n = begin; n < end; ++n) sums[group(n)] += data.counts[size_t(n)] + s;
      if (final) sums[0] += data.final_counts[size_t(q)] + s;
      for (int n = begin; n < end; ++n) {
        double sum = sums[group(n)];
        if (sum > 0) data.weights[size_t(n)] = (data.counts[size_t(n)] + s) / sum;
      }
      if (final && sums[0] > 0)
        data.final_weights[size_t(q)] = (data.final_counts[size_t(q)] + s) / sums[0];
    }
    for (int n = begin; n < end; ++n) data.counts[size_t(n)] = 0;
    data.final_counts[size_t(q)] = 0;
  }
}

// ---- expectation-maximisation ----

namespace {

double corpus_log_likelihood(FSTGeneric const& m, FSTTrainData& data,
                             std::vector<FSTTrainExample> const& corpus, bool update,
                             size_t& impossible) {
  fst::vector<double> forward, backward;
  double log_likelihood = 0;
  impossible = 0;
  for (FSTTrainExample const& example : corpus) {
    FSTTrainObserve(m, example.input, example.output);
    double total = FSTTrainForwardBackward(data, forward, backward);
    if (!(total > 0)) {
      ++impossible;
      continue;
    }
    log_likelihood += example.count * std::log(total);
    if (update) m->_train_update(forward, backward, total / example.count);
  }
  return log_likelihood;
}

}  // namespace

double FSTTrainEM(FSTGeneric const& m, std::vector<FSTTrainExample> const& corpus,
                  FSTTrainOptions const& options) {
  switch (options.sides) {
    case FSTTrainData::pairs: m->_train_begin(); break;
    case FSTTrainData::inputs: m->_train_begin_left(); break;
    case FSTTrainData::outputs: m->_train_begin_right(); break;
  }
  FSTTrainData& data = *FSTTrainDataOf(m);
  // The first iteration starts from probabilities too: the weights made to sum to one as the
  // iterations will make them, so that no iteration's figure is above the reach of the model.
  data.counts = data.weights;
  data.final_counts = data.final_weights;
  FSTTrainNormalize(data, options.by_output_label);
  data.smoothing = options.smoothing;
  size_t impossible = 0;
  for (int iteration = 1; iteration <= options.iterations; ++iteration) {
    double log_likelihood = corpus_log_likelihood(m, data, corpus, true, impossible);
    if (options.report) options.report(iteration, log_likelihood, impossible);
    if (options.by_output_label)
      m->_train_normalize_by_outputlabel();
    else
      m->_train_normalize();
  }
  double log_likelihood = corpus_log_likelihood(m, data, corpus, false, impossible);
  m->_train_end();
  return log_likelihood;
}

std::vector<FSTTrainExample> FSTTrainReadCorpus(std::string const& file,
                                                FSTTrainData::Sides sides) {
  std::ifstream in(file);
  if (!in) FSTFatal("can't read file %s", file.c_str());
  auto labels = [](std::string const& text) {
    std::vector<int> result;
    std::istringstream words(text);
    std::string word;
    while (words >> word) result.push_back(FSTstring_map[word]);
    return result;
  };
  FSTReadingPlace place(file.c_str());
  std::vector<FSTTrainExample> corpus;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    FSTReadingPlace::at_line(number);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    FSTTrainExample example;
    if (sides == FSTTrainData::pairs) {
      size_t tab = line.find('\t');
      if (tab == std::string::npos)
        FSTFatal("file: expected the input, a tab and the output");
      example.input = labels(line.substr(0, tab));
      example.output = labels(line.substr(tab + 1));
    } else if (sides == FSTTrainData::inputs) {
      example.input = labels(line);
    } else {
      example.output = labels(line);
    }
    corpus.push_back(std::move(example));
  }
  return corpus;
}
