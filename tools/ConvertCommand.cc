// AT&T text interop, the common text format of WFST toolkits: "src dst in out weight" arc lines
// and "state [weight]" final lines, the start state's lines first, labels by name with a symbol
// table beside them. A label with white space is written with the escapes of the text format
// (a symbol such as new\syork), so it stays one field and comes back byte for byte.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

#include "CommandSupport.h"
#include "Commands.h"

namespace {

char const* const epsilon_name = "<eps>";

std::string weight_text(float w) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.9g", double(w));  // enough digits to read back exactly
  return buffer;
}

}  // namespace

int WriteAtt(FSTGeneric const& m, std::ostream& os, std::string const& symbols_path) {
  float const one = m->semiring()->one;
  std::map<int, std::string> used{{0, epsilon_name}};
  auto name = [&](int label) -> std::string const& {
    auto found = used.find(label);
    if (found != used.end()) return found->second;
    return used[label] = FSTEscapeLabel(FSTstring_map[label]);
  };
  m->force();
  int const n = m->states().size();
  int const start = m->initial();
  // AT&T text names the start state by its first line. A start with no line of its own (no
  // arcs, not final) means an empty language, which is written as an empty file.
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
  if (!symbols_path.empty()) {
    std::ofstream symbols(symbols_path);
    for (auto const& [id, text] : used) symbols << text << "\t" << id << "\n";
  }
  return 0;
}

namespace {

FSTSemiringBase const* SemiringNamed(std::string const& name) {
  for (FSTSemiringBase const* s : {FSTMinPlus, FSTMaxPlus, FSTPlusTimes, FSTPlusTimesLog})
    if (name == s->name) return s;
  return nullptr;
}

int ReadAtt(std::istream& is, std::ostream& os, std::string const& symbols_path, bool acceptor,
            FSTSemiringBase const* semiring) {
  // With a symbol table, a field is a name in it or else an id of it; without one, a name.
  std::map<std::string, std::string> id_to_name;
  std::map<std::string, bool> names;
  if (!symbols_path.empty()) {
    std::ifstream symbols(symbols_path);
    if (!symbols) {
      std::fprintf(stderr, "t2sfst convert: cannot read %s\n", symbols_path.c_str());
      return 1;
    }
    std::string text, id;
    while (symbols >> text >> id) {
      id_to_name[id] = text;
      names[text] = true;
    }
  }
  auto label = [&](std::string const& field) {
    std::string text = field;
    if (!names.count(field) && id_to_name.count(field)) text = id_to_name[field];
    if (text == epsilon_name || (!id_to_name.empty() && id_to_name["0"] == text)) return 0;
    return FSTstring_map[FSTUnescapeLabel(text)];
  };
  FSTGeneric m = FSTBasic(semiring);
  std::string line;
  int line_number = 0;
  while (std::getline(is, line)) {
    ++line_number;
    std::istringstream fields(line);
    std::vector<std::string> f;
    for (std::string word; fields >> word;) f.push_back(word);
    if (f.empty()) continue;
    size_t const arc_fields = acceptor ? 3 : 4;
    int from = std::atoi(f[0].c_str());
    if (from < 0 || f.size() > arc_fields + 1) {
      std::fprintf(stderr, "t2sfst convert: line %d is not an AT&T line: %s\n", line_number,
                   line.c_str());
      return 1;
    }
    if (m->initial() < 0) m->set_initial(from);
    if (f.size() <= 2) {
      m->set_final(from, f.size() == 2 ? float(std::atof(f[1].c_str())) : semiring->one);
      continue;
    }
    int to = std::atoi(f[1].c_str());
    if (to < 0 || f.size() < arc_fields) {
      std::fprintf(stderr, "t2sfst convert: line %d is not an AT&T line: %s\n", line_number,
                   line.c_str());
      return 1;
    }
    int in = label(f[2]);
    int out = acceptor ? in : label(f[3]);
    float w = f.size() > arc_fields ? float(std::atof(f[arc_fields].c_str())) : semiring->one;
    m->add_arc(from, to, in, out, w);
  }
  m->dump_ascii(os, true);
  return 0;
}

}  // namespace

int RunConvert(int argc, char** argv) {
  Arguments args(argc, argv, {"--acceptor"}, {"--to", "--from", "--symbols", "--semiring"});
  bool to_att = args.value("--to") == "att", from_att = args.value("--from") == "att";
  if (!args.ok || to_att == from_att || args.positional.size() > 2)
    return UsageError("convert", "give --to att or --from att, then [IN [OUT]]");
  std::string in = args.positional.size() > 0 ? args.positional[0] : "";
  std::string out = args.positional.size() > 1 ? args.positional[1] : "";
  FSTSemiringBase const* semiring = SemiringNamed(args.value("--semiring", "MinPlus"));
  if (!semiring) return UsageError("convert", "unknown semiring");
  OutputFile output("convert", out);
  if (!output.ok()) return 1;
  int status;
  if (to_att) {
    FSTGeneric m = LoadInput("convert", in);
    if (!m) return 1;
    status = WriteAtt(m, output.stream(), args.value("--symbols"));
  } else if (in.empty() || in == "-") {
    status = ReadAtt(std::cin, output.stream(), args.value("--symbols"), args.has("--acceptor"),
                     semiring);
  } else {
    std::ifstream in_file(in);
    if (!in_file) {
      std::fprintf(stderr, "t2sfst convert: cannot read %s\n", in.c_str());
      return 1;
    }
    status = ReadAtt(in_file, output.stream(), args.value("--symbols"), args.has("--acceptor"),
                     semiring);
  }
  if (status != 0) return status;
  return output.commit() ? 0 : 1;
}
