#include "Language.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <functional>
#include <sstream>

namespace {

struct Config {
  int state;
  LabelString in, out;
  bool operator<(Config const& o) const {
    if (state != o.state) return state < o.state;
    if (in != o.in) return in < o.in;
    return out < o.out;
  }
};

bool Extend(LabelString& s, int label, size_t max_length) {
  if (label == 0) return true;
  if (s.size() >= max_length) return false;
  s.push_back(label);
  return true;
}

void AddTo(FSTSemiringBase const* s, Language& l, StringPair const& key, float w) {
  auto found = l.find(key);
  if (found == l.end())
    l[key] = w;
  else
    found->second = s->plus(found->second, w);
}

Language Relax(FSTGeneric const& m, size_t max_length) {
  FSTSemiringBase const* s = m->semiring();
  std::map<Config, float> best;
  std::deque<Config> queue;
  Config start{m->initial(), {}, {}};
  best[start] = s->one;
  queue.push_back(start);
  for (long steps = 0; !queue.empty(); ++steps) {
    if (steps > 2000000) ADD_FAILURE() << "relaxation does not converge";
    if (steps > 2000000) break;
    Config c = queue.front();
    queue.pop_front();
    float w = best[c];
    for (FSTArc* a : m->arcs_out(c.state)) {
      Config next{a->to, c.in, c.out};
      if (!Extend(next.in, a->input, max_length) || !Extend(next.out, a->output, max_length))
        continue;
      float v = s->times(w, a->weight);
      auto found = best.find(next);
      if (found == best.end() || s->is_better(v, found->second, 1e-6f)) {
        best[next] = v;
        queue.push_back(next);
      }
    }
  }
  Language l;
  for (auto const& [c, w] : best)
    if (m->is_final(c.state)) AddTo(s, l, {c.in, c.out}, s->times(w, m->final_weight(c.state)));
  return l;
}

Language EnumeratePaths(FSTGeneric const& m, size_t max_length) {
  FSTSemiringBase const* s = m->semiring();
  Language l;
  long paths = 0;
  std::function<void(Config const&, float, int)> walk = [&](Config const& c, float w, int depth) {
    if (++paths > 2000000 || depth > 200) {
      ADD_FAILURE() << "too many paths: an epsilon cycle in a non-idempotent semiring?";
      return;
    }
    if (m->is_final(c.state)) AddTo(s, l, {c.in, c.out}, s->times(w, m->final_weight(c.state)));
    // Copied: the walk below asks for other states, which may evict these from an LRU cache.
    std::vector<FSTArc> arcs;
    for (FSTArc* a : m->arcs_out(c.state)) arcs.push_back(*a);
    for (FSTArc const* a = arcs.data(); a != arcs.data() + arcs.size(); ++a) {
      Config next{a->to, c.in, c.out};
      if (!Extend(next.in, a->input, max_length) || !Extend(next.out, a->output, max_length))
        continue;
      walk(next, s->times(w, a->weight), depth + 1);
    }
  };
  walk({m->initial(), {}, {}}, s->one, 0);
  return l;
}

}  // namespace

Language Enumerate(FSTGeneric const& m, size_t max_length) {
  if (m->initial() < 0) return {};
  return m->semiring()->idempotent() ? Relax(m, max_length) : EnumeratePaths(m, max_length);
}

Language Plus(FSTSemiringBase const* s, Language const& a, Language const& b) {
  Language l = a;
  for (auto const& [key, w] : b) AddTo(s, l, key, w);
  return l;
}

Language Times(FSTSemiringBase const* s, Language const& a, Language const& b, size_t max_length) {
  Language l;
  for (auto const& [x, v] : a)
    for (auto const& [y, w] : b) {
      StringPair key = x;
      key.first.insert(key.first.end(), y.first.begin(), y.first.end());
      key.second.insert(key.second.end(), y.second.begin(), y.second.end());
      if (key.first.size() <= max_length && key.second.size() <= max_length)
        AddTo(s, l, key, s->times(v, w));
    }
  return l;
}

Language Compose(FSTSemiringBase const* s, Language const& a, Language const& b,
                  size_t max_length) {
  std::map<LabelString, std::vector<std::pair<LabelString, float>>> reads;  // b by its input
  for (auto const& [y, w] : b) reads[y.first].push_back({y.second, w});
  Language l;
  for (auto const& [x, v] : a) {
    auto found = reads.find(x.second);
    if (found == reads.end() || x.first.size() > max_length) continue;
    for (auto const& [z, w] : found->second)
      if (z.size() <= max_length) AddTo(s, l, {x.first, z}, s->times(v, w));
  }
  return l;
}

Language Scale(FSTSemiringBase const* s, Language const& a, float w) {
  Language l;
  for (auto const& [key, v] : a) l[key] = s->times(w, v);
  return l;
}

Language Closure(FSTSemiringBase const* s, Language const& a, bool plus, size_t max_length) {
  // Each factor adds a label to one side at least: 2 * max_length factors reach every pair.
  Language power = {{{}, s->one}}, result = plus ? Language() : power;
  for (size_t k = 0; k < 2 * max_length + 1; ++k)
    result = Plus(s, result, power = Times(s, power, a, max_length));
  return result;
}

std::string Show(Language const& l) {
  std::ostringstream os;
  for (auto const& [key, w] : l) {
    os << "[";
    for (int x : key.first) os << " " << FSTstring_map[x];
    os << " :";
    for (int x : key.second) os << " " << FSTstring_map[x];
    os << " ] " << w << "\n";
  }
  return os.str();
}

::testing::AssertionResult SameLanguage(FSTSemiringBase const* s, Language const& got,
                                        Language const& want, float tolerance) {
  for (auto const& [key, w] : want) {
    auto found = got.find(key);
    if (found == got.end())
      return ::testing::AssertionFailure() << "missing " << Show({{key, w}}) << "got:\n"
                                           << Show(got) << "want:\n"
                                           << Show(want);
    float scale = std::max(1.0f, std::max(std::fabs(w), std::fabs(found->second)));
    if (!s->is_equal(found->second, w, tolerance * scale))
      return ::testing::AssertionFailure()
             << "weight " << found->second << " instead of " << w << " for " << Show({{key, w}});
  }
  for (auto const& [key, w] : got)
    if (!want.count(key)) return ::testing::AssertionFailure() << "extra " << Show({{key, w}});
  return ::testing::AssertionSuccess();
}
