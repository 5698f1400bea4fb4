#include "FSTEquivalent.h"

#include <cstdio>
#include <map>
#include <queue>
#include <vector>

#include "FSTBasic.h"
#include "FSTOptimize.h"
#include "FSTPushWeights.h"
#include "FSTStringMap.h"
#include "FSTTopologicalSort.h"

namespace {

// The path's label pairs as text: "a:x b" (a pair with equal sides once).
std::string spell(std::vector<std::pair<int, int>> const& path) {
  std::string text;
  for (auto const& [in, out] : path) {
    if (!text.empty()) text += ' ';
    text += in ? FSTstring_map[in] : "<eps>";
    if (out != in) text += std::string(":") + (out ? FSTstring_map[out] : "<eps>");
  }
  return text.empty() ? "the empty string" : "\"" + text + "\"";
}

std::string number(float w) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", double(w));
  return text;
}

}  // namespace

bool FSTEquivalent(FSTGeneric const& a, FSTGeneric const& b, float delta, std::string* difference) {
  FSTSemiringBase const& s = *a->semiring();
  auto say = [difference](std::string const& text) {
    if (difference) *difference = text;
    return false;
  };
  if (b->semiring() != a->semiring()) return say("the machines are in different semirings");
  FSTGeneric const x = FSTTrim(FSTBasic(a)), y = FSTTrim(FSTBasic(b));
  float const total_x = FSTTotalWeight(x), total_y = FSTTotalWeight(y);
  bool const x_empty = x->states().size() == 0 || x->initial() < 0;
  bool const y_empty = y->states().size() == 0 || y->initial() < 0;
  if (x_empty || y_empty) {
    if (x_empty && y_empty) return true;
    return say(std::string(x_empty ? "the first" : "the second") + " machine accepts nothing");
  }
  if (!s.is_equal(total_x, total_y, delta))
    return say("the total weights differ: " + number(total_x) + " and " + number(total_y));
  FSTGeneric const p = FSTOptimizeA(x, 1, delta), q = FSTOptimizeA(y, 1, delta);
  // Both canonical: equivalent exactly when a walk in step finds the same final weights and
  // the same arcs (label pairs and weights) at every pair of states it reaches.
  std::map<std::pair<int, int>, std::vector<std::pair<int, int>>> seen;  // pair -> a path to it
  std::queue<std::pair<int, int>> next;
  auto visit = [&](int u, int v, std::vector<std::pair<int, int>> path) {
    if (seen.emplace(std::make_pair(u, v), std::move(path)).second) next.push({u, v});
  };
  visit(p->initial(), q->initial(), {});
  while (!next.empty()) {
    auto const [u, v] = next.front();
    next.pop();
    std::vector<std::pair<int, int>> const& path = seen[{u, v}];
    if (p->is_final(u) != q->is_final(v))
      return say(spell(path) + " is accepted by the " + (p->is_final(u) ? "first" : "second") +
                 " machine only");
    if (p->is_final(u) && !s.is_equal(p->final_weight(u), q->final_weight(v), delta))
      return say(spell(path) + " ends with different weights");
    std::map<std::pair<int, int>, FSTArc> arcs_of_q;
    for (FSTArc* arc : q->arcs_out(v, FSTArcOrderAny)) arcs_of_q[{arc->input, arc->output}] = *arc;
    if (int(arcs_of_q.size()) != q->n_arcs_out(v) || p->n_arcs_out(u) != q->n_arcs_out(v)) {
      for (FSTArc* arc : p->arcs_out(u, FSTArcOrderAny)) arcs_of_q.erase({arc->input, arc->output});
      std::vector<std::pair<int, int>> longer = path;
      if (!arcs_of_q.empty()) longer.push_back(arcs_of_q.begin()->first);
      return say("after " + spell(path) + " the machines read different labels" +
                 (arcs_of_q.empty() ? "" : ": " + spell(longer) + " is read by the second only"));
    }
    for (FSTArc* arc : p->arcs_out(u, FSTArcOrderAny)) {
      auto other = arcs_of_q.find({arc->input, arc->output});
      std::vector<std::pair<int, int>> longer = path;
      longer.push_back({arc->input, arc->output});
      if (other == arcs_of_q.end())
        return say(spell(longer) + " is read by the first machine only");
      if (!s.is_equal(arc->weight, other->second.weight, delta))
        return say(spell(longer) + " weighs " + number(arc->weight) + " in the first machine and " +
                   number(other->second.weight) + " in the second (after pushing)");
      visit(arc->to, other->second.to, std::move(longer));
    }
  }
  return true;
}
