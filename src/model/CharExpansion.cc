#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "FSTBasic.h"
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

namespace {

// A weight as the text form carries it: six significant digits, as the stream writes a float,
// and the value the field is absent for read as 0.
float as_in_text(float w, float one) {
  if (w == one) return 0.0f;
  char text[32];
  std::snprintf(text, sizeof text, "%g", double(w));
  return std::strtof(text, nullptr);
}

// A token label's byte string and output label, as the text form splits and reads them back.
struct TokenSides {
  std::string bytes;
  int output = 0;
};

TokenSides token_sides(int label) {
  TokenSides sides;
  if (label == 0) return sides;
  char const* text = FSTstring_map[label];
  std::string const field = FSTLabelNeedsEscape(text) ? FSTEscapeLabel(text) : std::string(text);
  std::string spoken, written;
  FSTJsgfTokenSides(field, spoken, written);
  if (spoken != ",") sides.bytes = FSTUnescapeLabel(spoken);
  if (!written.empty() && written != ",") sides.output = FSTstring_map[FSTUnescapeLabel(written)];
  return sides;
}

}  // namespace

FSTGeneric T2sExpandSharingPrefixes(FSTGeneric const& machine) {
  FSTSemiringBase const* const s = machine->semiring();
  FSTGeneric out = FSTBasic(s);
  int const n = machine->states().size();
  if (n) out->add_states(n);
  if (machine->initial() >= 0) out->set_initial(machine->initial());
  int byte_label[256];
  for (int b = 0; b < 256; ++b) byte_label[b] = FSTstring_map[std::to_string(b)];
  std::vector<int> path;  // the internal states of the previous token's bytes
  struct Piece {
    TokenSides sides;
    int to;
    float weight;
  };
  std::vector<Piece> pieces;
  for (int p = 0; p < n; ++p) {
    if (machine->is_final(p)) {
      float const w = machine->final_weight(p);
      out->set_final(p, w == s->one ? w : as_in_text(w, s->one));
    }
    if (machine->potential(p) != s->one)
      out->set_potential(p, as_in_text(machine->potential(p), s->one));
    pieces.clear();
    for (FSTArc* a : machine->arcs_out(p, FSTArcOrderAny))
      pieces.push_back({token_sides(a->input), a->to, as_in_text(a->weight, s->one)});
    // In byte order, a token's bytes share the internal states of the previous token's common
    // prefix; its last byte carries its output and weight to its destination.
    std::stable_sort(pieces.begin(), pieces.end(), [](Piece const& a, Piece const& b) {
      return a.sides.bytes < b.sides.bytes;
    });
    std::string const* previous = nullptr;
    path.clear();
    for (Piece const& piece : pieces) {
      std::string const& bytes = piece.sides.bytes;
      if (bytes.size() <= 1) {
        out->add_arc(p, piece.to, bytes.empty() ? 0 : byte_label[uint8_t(bytes[0])],
                     piece.sides.output, piece.weight);
        continue;
      }
      size_t shared = 0;
      if (previous)
        while (shared < path.size() && shared + 1 < bytes.size() &&
               (*previous)[shared] == bytes[shared])
          ++shared;
      path.resize(shared);
      int from = shared ? path[shared - 1] : p;
      for (size_t i = shared; i + 1 < bytes.size(); ++i) {
        int const next = out->add_states(1);
        out->add_arc(from, next, byte_label[uint8_t(bytes[i])], 0, 0.0f);
        path.push_back(next);
        from = next;
      }
      out->add_arc(from, piece.to, byte_label[uint8_t(bytes.back())], piece.sides.output,
                   piece.weight);
      previous = &bytes;
    }
  }
  return out;
}
