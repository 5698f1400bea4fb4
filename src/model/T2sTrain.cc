// Weights of a grammar's alternatives from examples of recognised text and the written form
// wanted. The token machine A (the optimized grammar) is read as a model of both sides at once:
// a token reads its spoken words and writes its written side the way the runtime joins outputs
// (a blank between outputs, none beside an attach mark "@@"). For each example, the paths of A
// that read the spoken words and write exactly the written text form a lattice over (words read,
// bytes written, state of A, whether a blank is due before the next output), explored from the
// start only where the example allows; expectation-maximisation then re-estimates each state's
// arcs and final weight. Time per iteration: the lattices' sizes; memory: one lattice at a time.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <unordered_map>

#include "FSTBasic.h"
#include "FSTJsgfImport.h"
#include "FSTSemiring.h"
#include "FSTStringMap.h"
#include "FSTlib.h"
#include "T2sBuilder.h"

namespace {

struct Token {
  std::vector<int> spoken;  // word ids
  std::string written;      // without its marks
  bool attach_previous = false, attach_next = false;
};

std::vector<int> Words(std::string const& text) {
  std::vector<int> ids;
  std::istringstream in(text);
  for (std::string word; in >> word;) ids.push_back(FSTstring_map[word]);
  return ids;
}

Token ParseToken(int label) {
  Token token;
  std::string spoken, written;
  FSTJsgfTokenSides(FSTstring_map[label], spoken, written);
  token.spoken = Words(spoken);
  if (written == "@@") {
    token.attach_previous = token.attach_next = true;
    return token;
  }
  if (written.compare(0, 2, "@@") == 0) token.attach_previous = true, written.erase(0, 2);
  if (written.size() >= 2 && written.compare(written.size() - 2, 2, "@@") == 0 &&
      !(written.size() >= 3 && written[written.size() - 3] == '\\')) {
    token.attach_next = true;
    written.erase(written.size() - 2);
  }
  for (size_t at; (at = written.find("\\@@")) != std::string::npos;) written.erase(at, 1);
  token.written = written;
  return token;
}

struct Example {
  std::vector<int> spoken;
  std::string written;  // blanks collapsed, trimmed
};

// A lattice node: words read, bytes written, state, blank due.
struct Node {
  int i, j, q;
  bool blank;
  bool operator==(Node const& o) const { return i == o.i && j == o.j && q == o.q && blank == o.blank; }
};
struct NodeHash {
  size_t operator()(Node const& n) const {
    return (size_t(n.i) * 1000003u + size_t(n.j)) * 2654435761u + size_t(n.q) * 2 + n.blank;
  }
};

class Trainer {
 public:
  explicit Trainer(FSTGeneric const& a) : _a(a) {
    FSTSemiringBase const& s = *a->semiring();
    for (int p : a->states()) {
      _first.push_back(int(_arcs.size()));
      double sum = 0;
      for (FSTArc* arc : a->arcs_out(p)) {
        _arcs.push_back(arc);
        _tokens.push_back(ParseToken(arc->input));
        _weights.push_back(std::exp(-double(arc->weight)));
        sum += _weights.back();
      }
      _finals.push_back(a->is_final(p) ? std::exp(-double(a->final_weight(p))) : 0.0);
      sum += _finals.back();
      for (size_t n = size_t(_first.back()); n < _arcs.size(); ++n) _weights[n] /= sum > 0 ? sum : 1;
      if (sum > 0) _finals.back() /= sum;
    }
    _first.push_back(int(_arcs.size()));
    (void)s;
  }

  // Adds the example's expected counts; false when no path explains it.
  bool count(Example const& e, double& log_likelihood) {
    std::vector<Node> order;  // topological: every arc goes to a later node
    std::unordered_map<Node, size_t, NodeHash> index;
    std::vector<std::vector<std::pair<size_t, int>>> out;  // (node, arc)
    auto node_of = [&](Node const& n) {
      auto found = index.find(n);
      if (found != index.end()) return found->second;
      index.emplace(n, order.size());
      order.push_back(n);
      out.emplace_back();
      return order.size() - 1;
    };
    if (_a->initial() < 0) return false;
    node_of({0, 0, _a->initial(), false});
    // Nodes are found in breadth-first order of (words + bytes) consumed; arcs that consume
    // nothing are followed too, and a cycle of them is not (it would read and write nothing).
    for (size_t k = 0; k < order.size() && order.size() < 2000000; ++k) {
      Node const n = order[k];
      for (int arc = _first[size_t(n.q)]; arc < _first[size_t(n.q) + 1]; ++arc) {
        Node next;
        if (!advance(e, n, arc, next)) continue;
        if (next.i == n.i && next.j == n.j) {
          auto found = index.find(next);
          if (found != index.end() && found->second <= k) continue;
        }
        size_t to = node_of(next);
        out[k].push_back({to, arc});
      }
    }
    // Breadth-first discovery with growing (i + j) keeps arcs that consume going forward, but
    // a node found early may lead to one found earlier; order by consumption, then discovery.
    std::vector<size_t> by_progress(order.size());
    for (size_t k = 0; k < order.size(); ++k) by_progress[k] = k;
    std::stable_sort(by_progress.begin(), by_progress.end(), [&](size_t x, size_t y) {
      return order[x].i + order[x].j < order[y].i + order[y].j;
    });
    std::vector<double> alpha(order.size(), 0.0), beta(order.size(), 0.0);
    alpha[0] = 1;
    for (size_t k : by_progress)
      for (auto const& [to, arc] : out[k]) alpha[to] += alpha[k] * _weights[size_t(arc)];
    int const end_i = int(e.spoken.size()), end_j = int(e.written.size());
    for (auto k = by_progress.rbegin(); k != by_progress.rend(); ++k) {
      Node const& n = order[*k];
      double b = n.i == end_i && n.j == end_j ? _finals[size_t(n.q)] : 0.0;
      for (auto const& [to, arc] : out[*k]) b += _weights[size_t(arc)] * beta[to];
      beta[*k] = b;
    }
    double const total = beta[0];
    if (!(total > 0)) return false;
    log_likelihood += std::log(total);
    for (size_t k = 0; k < order.size(); ++k) {
      if (alpha[k] == 0) continue;
      Node const& n = order[k];
      if (n.i == end_i && n.j == end_j) _final_counts[size_t(n.q)] += alpha[k] * _finals[size_t(n.q)] / total;
      for (auto const& [to, arc] : out[k])
        _counts[size_t(arc)] += alpha[k] * _weights[size_t(arc)] * beta[to] / total;
    }
    return true;
  }

  void start_iteration() {
    _counts.assign(_arcs.size(), 0.0);
    _final_counts.assign(_finals.size(), 0.0);
  }

  // Counts to probabilities per state; smoothing keeps unseen alternatives of a visited state.
  void normalize(double smoothing) {
    for (size_t p = 0; p + 1 < _first.size(); ++p) {
      double seen = _final_counts[p], sum = 0;
      for (int n = _first[p]; n < _first[p + 1]; ++n) seen += _counts[size_t(n)];
      if (!(seen > 0)) continue;
      for (int n = _first[p]; n < _first[p + 1]; ++n) sum += _counts[size_t(n)] + smoothing;
      bool const final = _finals[p] > 0;
      if (final) sum += _final_counts[p] + smoothing;
      for (int n = _first[p]; n < _first[p + 1]; ++n)
        _weights[size_t(n)] = (_counts[size_t(n)] + smoothing) / sum;
      if (final) _finals[p] = (_final_counts[p] + smoothing) / sum;
    }
  }

  FSTGeneric result() const {
    FSTGeneric m = FSTMutableCopy(_a);
    FSTSemiringBase const& s = *m->semiring();
    for (int p : m->states()) {
      int n = _first[size_t(p)];
      for (FSTArc* arc : m->arcs_out(p)) arc->weight = cost(_weights[size_t(n++)], s);
      if (m->is_final(p)) m->set_final(p, cost(_finals[size_t(p)], s));
    }
    return m;
  }

 private:
  static float cost(double p, FSTSemiringBase const& s) {
    return p > 0 ? float(-std::log(p)) : s.zero;
  }

  bool advance(Example const& e, Node const& n, int arc, Node& next) const {
    Token const& t = _tokens[size_t(arc)];
    next = {n.i, n.j, _arcs[size_t(arc)]->to, n.blank};
    if (size_t(n.i) + t.spoken.size() > e.spoken.size()) return false;
    if (!std::equal(t.spoken.begin(), t.spoken.end(), e.spoken.begin() + n.i)) return false;
    next.i += int(t.spoken.size());
    if (t.written.empty() && !t.attach_previous && !t.attach_next) return true;
    std::string piece = (n.blank && !t.attach_previous && !t.written.empty() ? " " : "") + t.written;
    if (e.written.compare(size_t(n.j), piece.size(), piece) != 0) return false;
    next.j += int(piece.size());
    next.blank = !t.attach_next && (!t.written.empty() || n.blank);
    if (t.attach_previous && t.written.empty()) next.blank = false;
    return true;
  }

  FSTGeneric _a;
  std::vector<FSTArc*> _arcs;
  std::vector<Token> _tokens;
  std::vector<int> _first;
  std::vector<double> _weights, _finals, _counts, _final_counts;
};

}  // namespace

FSTGeneric T2sTrainWeights(FSTGeneric const& optimized, std::string const& corpus_file,
                           int iterations,
                           std::function<void(int, double, size_t, size_t)> const& report) {
  std::ifstream in(corpus_file);
  if (!in) FSTFatal("can't read file %s", corpus_file.c_str());
  FSTReadingPlace place(corpus_file.c_str());
  std::vector<Example> corpus;
  std::string line;
  for (long number = 1; std::getline(in, line); ++number) {
    FSTReadingPlace::at_line(number);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.find_first_not_of(" \t") == std::string::npos) continue;
    size_t const tab = line.find('\t');
    if (tab == std::string::npos) FSTFatal("file: expected the spoken text, a tab and the written text");
    Example e;
    e.spoken = Words(line.substr(0, tab));
    std::istringstream words(line.substr(tab + 1));
    for (std::string w; words >> w;) e.written += (e.written.empty() ? "" : " ") + w;
    corpus.push_back(std::move(e));
  }
  Trainer trainer(optimized);
  for (int iteration = 1; iteration <= iterations; ++iteration) {
    trainer.start_iteration();
    double log_likelihood = 0;
    size_t unexplained = 0;
    for (Example const& e : corpus)
      if (!trainer.count(e, log_likelihood)) ++unexplained;
    if (report) report(iteration, log_likelihood, unexplained, corpus.size());
    trainer.normalize(0.5);
  }
  return trainer.result();
}
