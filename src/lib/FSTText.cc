// The "#FSTBasic" text format (a generic writer and the reader that builds a mutable machine)
// and the Graphviz dot writer.
#include <cctype>
#include <cerrno>
#include <climits>
#include <new>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <ostream>
#include <string>

#include "FSTBasic.h"
#include "FSTStringMap.h"
#include "FSTLoad.h"
#include "FSTlib.h"

namespace {

// Writes a label's name as one field (escaped where it holds white space); an id the label map does not know fails the stream, so nothing more
// gets written.
bool write_label(std::ostream& os, int id, char const* epsilon) {
  if (id == 0) {
    os << epsilon;
  } else if (id < 0 || id >= FSTstring_map.size()) {
    os.setstate(std::ios::failbit);
  } else if (FSTLabelNeedsEscape(FSTstring_map[id])) {
    os << FSTEscapeLabel(FSTstring_map[id]);
  } else {
    os << FSTstring_map[id];
  }
  return bool(os);
}

}  // namespace

void FSTGenericInt::dump_ascii(std::ostream& os, bool header) const {
  float const one = _semiring->one;
  if (header) os << "#FSTBasic " << _semiring->name << "\n" << std::flush;
  if (initial() >= 0) os << "I " << initial() << "\n";
  // The count is re-read on every pass: a lazy machine expands while it is written.
  FSTStateRange const all = states();
  for (int s = 0; s < all.size() && os; ++s) {
    if (is_final(s)) {
      os << "F " << s;
      if (final_weight(s) != one) os << " " << final_weight(s);
      os << "\n";
    }
    if (potential(s) != one) os << "P " << s << " " << potential(s) << "\n";
    for (FSTArc* a : arcs_out(s, FSTArcOrderAny)) {
      os << "T " << s << " " << a->to;
      if (a->input != 0 || a->output != 0 || a->weight != one) {
        os << " ";
        if (!write_label(os, a->input, ",")) return;
        if (a->output != 0 || a->weight != one) {
          os << " ";
          if (!write_label(os, a->output, ",")) return;
          if (a->weight != one) os << " " << a->weight;
        }
      }
      os << "\n";
    }
  }
}

namespace {

// Dot strings are quoted: a quote or backslash inside a label must not end them, and a line
// break is drawn as one.
void write_dot_text(std::ostream& os, char const* text) {
  for (char const* c = text; *c; ++c) {
    if (*c == '\n' || *c == '\r') {
      os << "\\n";
      continue;
    }
    if (*c == '"' || *c == '\\') os << '\\';
    os << *c;
  }
}

std::string format_g(float w) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%g", double(w));
  return buffer;
}

}  // namespace

void FSTGenericInt::dump_dot(std::ostream& os, char const* title) const {
  float const one = _semiring->one;
  os << "digraph FST {\n";
  if (title) os << "\t" << title << ";\n";
  if (initial() >= 0) {
    os << "\t-1 [label=\"\",peripheries=0];\n";
    os << "\t\t-1 -> " << initial() << ";\n";
  }
  FSTStateRange const all = states();
  for (int s = 0; s < all.size(); ++s) {
    if (is_final(s)) {
      if (final_weight(s) == one)
        os << "\t" << s << " [peripheries=2];\n";
      else
        os << "\t" << s << " [label=\"" << s << "/" << format_g(final_weight(s))
           << "\",peripheries=2];\n";
    }
    for (FSTArc* a : arcs_out(s, FSTArcOrderAny)) {
      os << "\t\t" << s << " -> " << a->to << " [label=\"";
      write_dot_text(os, a->input ? FSTstring_map[a->input] : "@");
      os << ":";
      write_dot_text(os, a->output ? FSTstring_map[a->output] : "@");
      if (a->weight != one) os << "/" << format_g(a->weight);
      os << "\"];\n";
    }
  }
  os << "}\n";
}

// ---- the reader ---------------------------------------------------------------------------------

namespace {



// Reads "T from to [input [output [weight]]]" as sscanf's "T %d %d %1023s %1023s %f" would
// (a longer label is cut after 1023 bytes and its rest read as the next field), without the
// cost of interpreting a format for every line. Returns the number of fields read.
// Reads a state number after blanks. Numbers that do not fit, and INT_MAX (whose state count
// would not), are refused like a missing number rather than wrapped.
bool read_state(char const*& c, int& p) {
  char* end;
  errno = 0;
  long long value = std::strtoll(c, &end, 10);
  if (end == c || errno == ERANGE || value < INT_MIN || value >= INT_MAX) return false;
  p = int(value);
  c = end;
  return true;
}

// A weight after blanks, if there is one.
bool read_weight(char const* c, float& w) {
  char* end;
  float value = std::strtof(c, &end);
  if (end == c) return false;
  w = value;
  return true;
}

int parse_arc_line(char const* text, int& p, int& q, char* input, char* output, float& w) {
  char const* c = text + 1;
  char* end;
  if (!read_state(c, p)) return 0;
  if (!read_state(c, q)) return 1;
  auto token = [&c](char* to) {
    while (std::isspace(static_cast<unsigned char>(*c))) ++c;
    int n = 0;
    while (*c && !std::isspace(static_cast<unsigned char>(*c)) && n < 1023) to[n++] = *c++;
    to[n] = '\0';
    return n > 0;
  };
  if (!token(input)) return 2;
  if (!token(output)) return 3;
  (void)end;
  return read_weight(c, w) ? 5 : 4;
}

// The id of a label field: "," is epsilon, escapes give back the label's own bytes.
int label_id(char const* field) {
  if (field[0] == ',' && field[1] == 0) return 0;
  if (!std::strchr(field, '\\')) return FSTstring_map[field];
  return FSTstring_map[FSTUnescapeLabel(field)];
}

}  // namespace

FSTBasicRep::FSTBasicRep(std::istream& is, char const* header) {
  if (!header) header = "";
  _init(FSTHeaderSemiring(header));
  float const scale = FSTHeaderValue(header, "WeightScale=", "WeightScale=%f", 1.0f);
  float const offset = FSTHeaderValue(header, "WeightOffset=", "WeightOffset=%f", 0.0f);
  float const zero = _semiring->zero, one = _semiring->one;
  long const first_line = *header ? 1 : 0;  // the loader has read the header line
  auto transform = [&](float w) { return w == zero ? w : w * scale + offset; };
  auto grow_to = [&](int p) {
    if (p >= _n_states) add_states(p - _n_states + 1);
  };

  std::string line;
  char input[1024], output[1024];
  int line_number = 0;
  // A machine too large for memory ends with a message, never with an exception.
  try {
  while (std::getline(is, line)) {
    ++line_number;
    FSTReadingPlace::at_line(line_number + first_line);
    if (line.compare(0, 8, "FSTBasic") == 0) continue;
    char const* text = line.c_str();
    char const* c = text + 1;
    int p = 0, q = 0;
    float w = 0;
    switch (text[0]) {
      case 'I': {
        if (!read_state(c, p)) FSTFatal("file: usage: I <state>");
        grow_to(p);
        if (_initial >= 0 && _initial != p)
          FSTWarn("file: changing initial state from %d to %d (only one allowed)", _initial, p);
        set_initial(p);
        break;
      }
      case 'F': {
        if (!read_state(c, p)) FSTFatal("usage: F <state>");
        grow_to(p);
        set_final(p, transform(read_weight(c, w) ? w : one));
        break;
      }
      case 'P': {
        if (!read_state(c, p) || !read_weight(c, w)) FSTFatal("usage: P <state>");
        grow_to(p);
        set_potential(p, transform(w));
        break;
      }
      case 'T': {
        int n = parse_arc_line(text, p, q, input, output, w);
        if (n < 2) FSTFatal("file: usage: T <from> <to> [<input> [<output> [<weight>]]]");
        grow_to(p > q ? p : q);
        if (n < 3) std::strcpy(input, ",");
        if (n < 4) std::strcpy(output, ",");
        if (n < 5) w = one;
        // The output is interned first: with two new names it gets the smaller id.
        int out = label_id(output);
        int in = label_id(input);
        add_arc(p, q, in, out, transform(w));
        break;
      }
      default:
        break;
    }
  }
  } catch (std::bad_alloc const&) {
    FSTFatal("FSTBasicRep: out of memory reading a text machine at line %d (%d states)",
             line_number, _n_states);
  }
}

FSTGeneric FSTLoadBasic(std::istream& is, char const* header) {
  return new FSTBasicRep(is, header);
}
