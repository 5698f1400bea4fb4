// Conversions between the formats: AT&T text (written by the library, read here) and the
// toolkit's own.
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

#include "CommandSupport.h"
#include "Commands.h"

int WriteAtt(FSTGeneric const& m, std::ostream& os, std::string const& symbols_path) {
  if (symbols_path.empty()) {
    FSTDumpAtt(m, os, nullptr);
    return 0;
  }
  std::ofstream symbols(symbols_path);
  FSTDumpAtt(m, os, &symbols);
  return 0;
}

namespace {

char const* const epsilon_name = "<eps>";

FSTSemiringBase const* SemiringNamed(std::string const& name) {
  for (FSTSemiringBase const* s : {FSTMinPlus, FSTMaxPlus, FSTPlusTimes, FSTPlusTimesLog})
    if (name == s->name) return s;
  return nullptr;
}

// A symbol table read from a file: a field is a name in it or else one of its ids.
struct SymbolTable {
  std::map<std::string, std::string> id_to_name;
  std::map<std::string, bool> names;

  bool read(std::string const& path) {
    if (path.empty()) return true;
    std::ifstream symbols(path);
    if (!symbols) {
      std::fprintf(stderr, "t2sfst convert: cannot read %s: %s\n", path.c_str(), std::strerror(errno));
      return false;
    }
    std::string text, id;
    while (symbols >> text >> id) {
      id_to_name[id] = text;
      names[text] = true;
    }
    return true;
  }

  int label(std::string const& field) {
    std::string text = field;
    if (!names.count(field) && id_to_name.count(field)) text = id_to_name[field];
    if (text == epsilon_name || (!id_to_name.empty() && id_to_name["0"] == text)) return 0;
    return FSTstring_map[FSTUnescapeLabel(text)];
  }
};

int ReadAtt(std::istream& is, std::string const& name, std::ostream& os,
            std::string const& input_symbols, std::string const& output_symbols, bool acceptor,
            FSTSemiringBase const* semiring) {
  // Without a table, a field is a name.
  SymbolTable inputs, outputs;
  if (!inputs.read(input_symbols) || !outputs.read(output_symbols)) return 1;
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
    // A line is "STATE [WEIGHT]" or "FROM TO IN [OUT] [WEIGHT]", every number whole.
    double from = 0, to = 0, weight = semiring->one;
    auto state = [](std::string const& field, double& p) {
      return ParseNumber(field, 0, 2147483646, true, p);
    };
    auto weight_in = [&](size_t i) {
      return i >= f.size() || ParseNumber(f[i], -HUGE_VAL, HUGE_VAL, false, weight);
    };
    bool const final_line = f.size() <= 2;
    bool const ok = state(f[0], from) && f.size() <= arc_fields + 1 &&
                    (final_line ? weight_in(1)
                                : f.size() >= arc_fields && state(f[1], to) && weight_in(arc_fields));
    if (!ok) {
      std::fprintf(stderr, "t2sfst convert: %s, line %d is not an AT&T line: %s\n", name.c_str(),
                   line_number, line.c_str());
      return 1;
    }
    if (m->initial() < 0) m->set_initial(int(from));
    if (final_line) {
      m->set_final(int(from), float(weight));
      continue;
    }
    int in = inputs.label(f[2]);
    int out = acceptor ? in : outputs.label(f[3]);
    m->add_arc(int(from), int(to), in, out, float(weight));
  }
  m->dump_ascii(os, true);
  return 0;
}

}  // namespace

namespace {

// The label table of this process, ids 2 and up in order: preloaded through FST_LABELS_FILE, it
// numbers labels as this process did, which a memory-mapped file needs.
bool WriteLabels(std::string const& path) {
  OutputFile output("convert", path);
  if (!output.ok()) return false;
  for (int id = 2; id < FSTstring_map.size(); ++id) {
    if (FSTLabelNeedsEscape(FSTstring_map[id]) && std::strcmp(FSTstring_map[id], ",") != 0)
      std::fprintf(stderr, "t2sfst convert: label '%s' holds white space, which a labels file "
                           "cannot\n", FSTstring_map[id]);
    output.stream() << FSTstring_map[id] << "\n";
  }
  return output.commit();
}

}  // namespace

int RunConvert(int argc, char** argv) {
  Arguments args(argc, argv);
  std::string const to = args.value("--to"), from = args.value("--from");
  bool const to_att = to == "att", from_att = from == "att";
  bool const to_stored = to == "binary" || to == "mmap";
  std::string const order_name = args.value("--order", "any");
  FSTArcOrder order = order_name == "input" ? FSTArcOrderInput
                      : order_name == "output" ? FSTArcOrderOutput : FSTArcOrderAny;
  if (!args.ok || int(to_att) + int(from_att) + int(to_stored) != 1 || args.positional.size() > 2 ||
      (order == FSTArcOrderAny && order_name != "any"))
    return UsageError("convert",
                      "give --to att|binary|mmap or --from att, then [IN [OUT]]; --order is any, "
                      "input or output");
  std::string in = args.positional.size() > 0 ? args.positional[0] : "";
  std::string out = args.positional.size() > 1 ? args.positional[1] : "";
  if (to == "mmap" && (out.empty() || out == "-"))
    return UsageError("convert", "a memory-mapped machine needs an OUT file");
  // One table for both sides, or one for each (other toolkits keep them apart).
  std::string const isymbols = args.value("--isymbols", args.value("--symbols"));
  std::string const osymbols = args.value("--osymbols", args.value("--symbols"));
  FSTSemiringBase const* semiring = SemiringNamed(args.value("--semiring", "MinPlus"));
  if (!semiring) return UsageError("convert", "unknown semiring");
  OutputFile output("convert", out);
  if (!output.ok()) return 1;
  int status = 0;
  if (to_att || to_stored) {
    FSTGeneric m = LoadInput("convert", in);
    if (!m) return 1;
    if (to == "binary") m->dump_binary(output.stream());
    else if (to == "mmap") m->dump_mmap(output.temp_path().c_str(), order);
    else status = WriteAtt(m, output.stream(), isymbols.empty() ? osymbols : isymbols);
    // The table lists every label of both sides: it serves each side.
    if (status == 0 && !isymbols.empty() && !osymbols.empty() && osymbols != isymbols) {
      std::ifstream table(isymbols, std::ios::binary);
      std::ofstream copy(osymbols, std::ios::binary);
      copy << table.rdbuf();
      if (!copy) {
        std::fprintf(stderr, "t2sfst convert: cannot write %s\n", osymbols.c_str());
        status = 1;
      }
    }
  } else if (in.empty() || in == "-") {
    status = ReadAtt(std::cin, "standard input", output.stream(), isymbols, osymbols,
                     args.has("--acceptor"), semiring);
  } else {
    std::ifstream in_file(in);
    if (!in_file) {
      std::fprintf(stderr, "t2sfst convert: cannot read %s: %s\n", in.c_str(), std::strerror(errno));
      return 1;
    }
    status = ReadAtt(in_file, in, output.stream(), isymbols, osymbols, args.has("--acceptor"),
                     semiring);
  }
  if (status != 0) return status;
  if (args.has("--labels") && !WriteLabels(args.value("--labels"))) return 1;
  return output.commit() ? 0 : 1;
}
