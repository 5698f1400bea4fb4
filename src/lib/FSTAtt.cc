#include "FSTAtt.h"

#include <cstdio>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "FSTOperand.h"
#include "FSTStringMap.h"

namespace {

std::string weight_text(float w) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.9g", double(w));  // enough digits to read back exactly
  return buffer;
}

}  // namespace

void FSTDumpAtt(FSTGeneric const& m, std::ostream& os, std::ostream* symbols) {
  float const one = m->semiring()->one;
  std::map<int, std::string> used{{0, "<eps>"}};
  auto name = [&](int label) -> std::string const& {
    auto found = used.find(label);
    if (found != used.end()) return found->second;
    return used[label] = FSTEscapeLabel(FSTstring_map[label]);
  };
  FSTOperandForce(*m);
  int const n = m->states().size();
  int const start = m->initial();
  // AT&T text names the start state by its first line.
  std::vector<int> order;
  if (start >= 0 && (m->is_final(start) || !m->arcs_out(start).done())) {
    order.push_back(start);
    for (int s = 0; s < n; ++s)
      if (s != start) order.push_back(s);
  }
  for (int s : order) {
    for (FSTArc* a : m->arcs_out(s)) {
      os << s << "\t" << a->to << "\t" << name(a->input) << "\t" << name(a->output) << "\t"
         << weight_text(a->weight) << "\n";
    }
    if (m->is_final(s)) {
      os << s;
      if (m->final_weight(s) != one) os << "\t" << weight_text(m->final_weight(s));
      os << "\n";
    }
  }
  if (symbols)
    for (auto const& [id, text] : used) *symbols << text << "\t" << id << "\n";
}
