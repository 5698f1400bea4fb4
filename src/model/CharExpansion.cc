#include <cstdio>
#include <sstream>
#include <vector>

#include "FSTJsgfImport.h"
#include "FSTStringMap.h"
#include "T2sBuilder.h"

std::ostream& operator<<(std::ostream& os, Arc const& arc) {
  os << arc.kind << " " << arc.from;
  if (arc.kind == 'T')
    os << " " << arc.to << " " << arc.input << " " << arc.output << " " << double(arc.weight);
  return os;
}

std::string FstDumpAscii(FSTGeneric const& machine) {
  std::ostringstream os;
  machine->dump_ascii(os, true);
  return os.str();
}

Arc ParseLine(std::string const& line) {
  std::istringstream is(line);
  Arc arc;
  std::string first_label, second_label;
  is >> arc.kind >> arc.from >> arc.to >> first_label >> second_label >> arc.weight;
  if (arc.kind == 'T') {
    FSTJsgfTokenSides(first_label, arc.input, arc.output);
  }
  return arc;
}

namespace {

// The text format writes epsilon as ","; an empty label field would shift the fields after it.
std::string label_field(std::string const& text) { return text.empty() ? "," : text; }

// A byte as the decimal label the packed model reads. A comma is 44 like any other byte: the
// field "," would read back as epsilon.
std::string byte_label(unsigned char byte) { return std::to_string(unsigned(byte)); }

}  // namespace

std::string ExpandArc(Arc const& arc, unsigned long* next_state) {
  // Labels are fields of the text format: "," is epsilon, escapes stand for white space.
  std::string const text = arc.input == "," ? std::string() : FSTUnescapeLabel(arc.input);
  Arc piece = arc;
  piece.output = label_field(arc.output);
  std::ostringstream os;
  if (text.size() <= 1) {
    // No label at all is an epsilon arc: it must survive, or tags would cut paths.
    piece.input = text.empty() ? "," : byte_label(static_cast<unsigned char>(text[0]));
    os << piece;
    return os.str();
  }
  uint64_t from = arc.from;
  for (size_t i = 0; i < text.size(); ++i) {
    bool last = i + 1 == text.size();
    piece.from = from;
    piece.to = last ? arc.to : (*next_state)++;
    piece.input = byte_label(static_cast<unsigned char>(text[i]));
    piece.output = last ? label_field(arc.output) : ",";
    piece.weight = last ? arc.weight : 0.0f;
    if (i) os << "\n";
    os << piece;
    from = piece.to;
  }
  return os.str();
}

std::string ConvertLabelToCharValue(FSTGeneric const& machine) {
  std::istringstream text(FstDumpAscii(machine));
  unsigned long next_state = static_cast<unsigned long>(machine->states().size());
  std::string out;
  std::vector<Arc> arcs;
  for (std::string line; std::getline(text, line);) {
    size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos) continue;  // dumps have no blank lines
    if (line[first] != 'T') {
      out += line;
      out += "\n";
    } else {
      arcs.push_back(ParseLine(line));
    }
  }
  for (Arc const& arc : arcs) {
    out += ExpandArc(arc, &next_state);
    out += "\n";
  }
  return out;
}
