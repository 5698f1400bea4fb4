#include "FSTRandomPaths.h"

#include <cmath>
#include <random>

#include "FSTBasic.h"
#include "FSTPushWeights.h"

namespace {

// A choice's share: uniform, or the weight as a probability (costs as exp(-cost), scores as
// exp(score), probabilities as they are).
double share(FSTSemiringBase const& s, float w, bool by_weight) {
  if (!by_weight) return 1;
  std::string const name = s.name;
  if (name == "PlusTimes" || name == "MaxTimes") return std::max(0.0, double(w));
  if (name == "MaxPlus") return std::exp(double(w));
  return std::exp(-double(w));
}

}  // namespace

std::vector<FSTRandomPath> FSTRandomPaths(FSTGeneric const& m, int n, uint64_t seed,
                                          bool by_weight, int max_arcs) {
  std::vector<FSTRandomPath> paths;
  FSTGeneric const t = FSTBasic(m);
  FSTSemiringBase const& s = *t->semiring();
  // The states that reach a final state: their best weight to one is not zero.
  fst::vector<float> to_final;
  FSTPotential(to_final, t);
  auto alive = [&](int p) { return to_final[size_t(p)] != s.zero; };
  if (t->initial() < 0 || !alive(t->initial())) return paths;
  std::mt19937_64 rng(seed);
  for (int drawn = 0; int(paths.size()) < n && drawn < 100 * n; ++drawn) {
    FSTRandomPath path{{}, s.one};
    int p = t->initial();
    for (;;) {
      std::vector<FSTArc*> arcs;
      std::vector<double> shares;
      for (FSTArc* a : t->arcs_out(p, FSTArcOrderAny)) {
        if (!alive(a->to)) continue;
        arcs.push_back(a);
        shares.push_back(share(s, a->weight, by_weight));
      }
      if (t->is_final(p)) shares.push_back(share(s, t->final_weight(p), by_weight));
      double total = 0;
      for (double x : shares) total += x;
      size_t pick = shares.size() - 1;
      if (total > 0) {
        double r = std::uniform_real_distribution<double>(0, total)(rng);
        for (size_t i = 0; i < shares.size(); ++i)
          if ((r -= shares[i]) < 0) {
            pick = i;
            break;
          }
      }
      if (pick == arcs.size()) {  // stop here
        path.weight = s.times(path.weight, t->final_weight(p));
        paths.push_back(std::move(path));
        break;
      }
      if (int(path.arcs.size()) == max_arcs) break;  // too long: drawn again
      FSTArc const& a = *arcs[pick];
      path.arcs.push_back(a);
      path.weight = s.times(path.weight, a.weight);
      p = a.to;
    }
  }
  return paths;
}

FSTGeneric FSTPathsMachine(FSTSemiringBase const* semiring,
                           std::vector<FSTRandomPath> const& paths) {
  FSTGeneric out = FSTBasic(semiring);
  out->add_states(1);
  out->set_initial(0);
  for (FSTRandomPath const& path : paths) {
    int p = 0;
    for (FSTArc const& a : path.arcs) {
      int const q = out->add_states(1);
      out->add_arc(p, q, a.input, a.output, a.weight);
      p = q;
    }
    // The final weight is what the path's arcs leave of its weight.
    float arcs_weight = semiring->one;
    for (FSTArc const& a : path.arcs) arcs_weight = semiring->times(arcs_weight, a.weight);
    out->set_final(p, semiring->divide(path.weight, arcs_weight));
  }
  return out;
}
