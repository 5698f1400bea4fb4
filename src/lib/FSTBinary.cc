#include "FSTBinary.h"

#include <cstring>
#include <iostream>
#include <map>

#include "FSTLoad.h"
#include "FSTStringMap.h"
#include "FSTlib.h"

// ---- primitives ---------------------------------------------------------------------------------

namespace {

template <class T>
void dump_big_endian(std::ostream& os, T v) {
  static_assert(sizeof(T) <= 8, "");
  uint64_t bits = 0;
  std::memcpy(&bits, &v, sizeof v);
  char bytes[sizeof(T)];
  for (size_t i = 0; i < sizeof(T); ++i) bytes[i] = char(bits >> (8 * (sizeof(T) - 1 - i)));
  os.write(bytes, sizeof bytes);
}

template <class T>
T load_big_endian(std::istream& is) {
  unsigned char bytes[sizeof(T)] = {};
  is.read(reinterpret_cast<char*>(bytes), sizeof bytes);
  uint64_t bits = 0;
  for (size_t i = 0; i < sizeof(T); ++i) bits = bits << 8 | bytes[i];
  T v;
  std::memcpy(&v, &bits, sizeof v);
  return v;
}

// The count of bytes after the first of a compressed value whose value field needs `bits` bits.
int extra_bytes(int bits) { return bits <= 6 ? 0 : bits <= 14 ? 1 : bits <= 22 ? 2 : 3; }

void dump_compressed(std::ostream& os, uint32_t field, int n) {
  os.put(char(uint32_t(n) << 6 | (field >> (8 * n) & 0x3f)));
  for (int i = n - 1; i >= 0; --i) os.put(char(field >> (8 * i)));
}

// The value field and the count of bytes that followed.
uint32_t load_compressed(std::istream& is, int& n) {
  int first = is.get();
  n = (first >> 6) & 3;
  uint32_t field = uint32_t(first) & 0x3f;
  for (int i = 0; i < n; ++i) field = field << 8 | (uint32_t(is.get()) & 0xff);
  return field;
}

}  // namespace

void FSTDumpShort(std::ostream& os, short v) { dump_big_endian(os, v); }
void FSTDumpUnsignedShort(std::ostream& os, unsigned short v) { dump_big_endian(os, v); }
void FSTDumpInt(std::ostream& os, int v) { dump_big_endian(os, v); }
void FSTDumpUnsignedInt(std::ostream& os, unsigned int v) { dump_big_endian(os, v); }
void FSTDumpFloat(std::ostream& os, float v) { dump_big_endian(os, v); }
void FSTDumpDouble(std::ostream& os, double v) { dump_big_endian(os, v); }

void FSTDumpString(std::ostream& os, std::string const& s) {
  FSTDumpInt(os, int(s.size()));
  os.write(s.c_str(), std::streamsize(s.size() + 1));
}

void FSTDumpChars(std::ostream& os, char const* s) {
  if (!s) {
    FSTDumpInt(os, -1);
    return;
  }
  FSTDumpString(os, s);
}

void FSTDumpCompressedUnsigned(std::ostream& os, unsigned int v) {
  if (v >= 1u << 30) FSTFatal("FSTDumpCompressedUnsigned: %u too large", v);
  int bits = 0;
  while (bits < 32 && v >> bits) ++bits;
  dump_compressed(os, v, extra_bytes(bits));
  FST_ASSERT(!os.fail());
}

void FSTDumpCompressedInt(std::ostream& os, int v) {
  if (v < -(1 << 29)) FSTFatal("FSTDumpCompressedInt: %d too large", v);
  if (v >= 1 << 29) FSTFatal("FSTDumpCompressedInt: %u too large", unsigned(v));
  // Bits needed with the sign bit: the magnitude's bits plus one.
  uint32_t magnitude = v < 0 ? ~uint32_t(v) : uint32_t(v);
  int bits = 1;
  while (bits < 32 && magnitude >> (bits - 1)) ++bits;
  dump_compressed(os, uint32_t(v), extra_bytes(bits));
  FST_ASSERT(!os.fail());
}

short FSTLoadShort(std::istream& is) { return load_big_endian<short>(is); }
unsigned short FSTLoadUnsignedShort(std::istream& is) {
  return load_big_endian<unsigned short>(is);
}
int FSTLoadInt(std::istream& is) { return load_big_endian<int>(is); }
unsigned int FSTLoadUnsignedInt(std::istream& is) { return load_big_endian<unsigned int>(is); }
float FSTLoadFloat(std::istream& is) { return load_big_endian<float>(is); }
double FSTLoadDouble(std::istream& is) { return load_big_endian<double>(is); }

namespace {

// The characters and the terminating zero of a string whose length was read; read in pieces, so
// that a damaged length meets the end of the stream rather than a giant allocation.
void load_string_body(std::istream& is, int length, std::string& s) {
  s.clear();
  if (!is || length < 0) return;
  char buffer[4096];
  for (long left = long(length) + 1; left > 0 && is;) {
    std::streamsize n = std::streamsize(left < long(sizeof buffer) ? left : long(sizeof buffer));
    is.read(buffer, n);
    s.append(buffer, size_t(is.gcount()));
    left -= long(is.gcount());
  }
  if (!s.empty()) s.pop_back();  // the terminating zero
}

}  // namespace

void FSTLoadString(std::istream& is, std::string& s) { load_string_body(is, FSTLoadInt(is), s); }

std::string FSTLoadString(std::istream& is) {
  std::string s;
  FSTLoadString(is, s);
  return s;
}

// Reads the length once: a pipe cannot go back to read it again.
char* FSTLoadChars(std::istream& is) {
  int const length = FSTLoadInt(is);
  if (length == -1) return nullptr;
  std::string s;
  load_string_body(is, length, s);
  char* chars = new char[s.size() + 1];
  std::memcpy(chars, s.c_str(), s.size() + 1);
  return chars;
}

unsigned int FSTLoadCompressedUnsigned(std::istream& is) {
  int n;
  uint32_t field = load_compressed(is, n);
  FST_ASSERT(!is.fail());
  return field;
}

int FSTLoadCompressedInt(std::istream& is) {
  int n;
  uint32_t field = load_compressed(is, n);
  FST_ASSERT(!is.fail());
  int bits = 6 + 8 * n;
  if (field >> (bits - 1) & 1) field |= ~uint32_t(0) << bits;  // sign-extend
  return int(field);
}

std::ostream& FSTBinaryCout() { return std::cout; }

// ---- the writer ---------------------------------------------------------------------------------

namespace {

// Writes a label list and returns the table from label id to list position (-1: absent).
std::vector<int> dump_labels(std::ostream& os, fst::set<int> const& labels) {
  FSTDumpInt(os, int(labels.size()));
  std::vector<int> position(labels.empty() ? 0 : size_t(*labels.rbegin()) + 1, -1);
  int next = 0;
  for (int label : labels) {
    FSTDumpString(os, FSTstring_map[label]);
    position[size_t(label)] = next++;
  }
  return position;
}

int position_of(std::vector<int> const& position, int label) {
  return label >= 0 && size_t(label) < position.size() ? position[size_t(label)] : -1;
}

}  // namespace

void FSTGenericInt::dump_binary(std::ostream& os) const {
  os << "#FSTBinary " << _semiring->name << "\n" << std::flush;
  FSTDumpInt(os, 0);
  FSTDumpInt(os, initial());
  fst::set<int> input_labels, output_labels;
  int const arcs = _arc_labels(input_labels, output_labels, FSTArcOrderAny);
  std::vector<int> const inputs = dump_labels(os, input_labels);
  std::vector<int> const outputs = dump_labels(os, output_labels);
  FSTDumpInt(os, arcs);
  // Records go out through a buffer: one stream call per field would dominate.
  std::string buffer;
  auto put = [&buffer](uint32_t v) {
    char bytes[4] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
    buffer.append(bytes, 4);
  };
  auto put_float = [&put](float w) {
    uint32_t bits;
    std::memcpy(&bits, &w, 4);
    put(bits);
  };
  auto flush = [&buffer, &os](size_t at_least) {
    if (buffer.size() < at_least) return;
    os.write(buffer.data(), std::streamsize(buffer.size()));
    buffer.clear();
  };
  std::vector<std::pair<int, int>> ranges;
  int next = 0;
  for (int p : states()) {
    int first = next;
    for (FSTArc* a : arcs_out(p, FSTArcOrderAny)) {
      int input = position_of(inputs, a->input), output = position_of(outputs, a->output);
      FST_ASSERT(input >= 0);
      FST_ASSERT(output >= 0);
      put(uint32_t(p));
      put(uint32_t(a->to));
      put(uint32_t(input));
      put(uint32_t(output));
      put_float(a->weight);
      ++next;
      flush(1 << 16);
    }
    ranges.push_back({first, next});
  }
  flush(0);
  FSTDumpInt(os, int(ranges.size()));
  for (int p = 0; p < int(ranges.size()); ++p) {
    put_float(final_weight(p));
    put_float(potential(p));
    put(uint32_t(ranges[size_t(p)].first));
    put(uint32_t(ranges[size_t(p)].second));
    flush(1 << 16);
  }
  flush(0);
}

// ---- the reader ---------------------------------------------------------------------------------

namespace {

uint32_t big_endian_u32(unsigned char const* b) {
  return uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | uint32_t(b[3]);
}

// Reads through a stream and stops with a message naming the file at the first damage.
class Reader {
 public:
  Reader(std::istream& is, char const* file) : _is(is), _file(file ? file : "(stream)") {}
  int count(char const* what) {
    int n = integer(what);
    if (n < 0) fail("negative count of %s (%d)", what, n);
    return n;
  }
  int integer(char const* what) {
    int v = FSTLoadInt(_is);
    if (!_is) fail("truncated in %s", what);
    return v;
  }
  float real(char const* what) {
    float v = FSTLoadFloat(_is);
    if (!_is) fail("truncated in %s", what);
    return v;
  }
  // Reads n records of size bytes in blocks, handing each to take(record, index).
  template <class Take>
  void records(int n, int size, char const* what, Take take) {
    std::vector<unsigned char> block;
    for (int done = 0; done < n;) {
      int count = std::min(n - done, 4096);
      block.resize(size_t(count) * size_t(size));
      _is.read(reinterpret_cast<char*>(block.data()), std::streamsize(block.size()));
      if (!_is) fail("truncated in %s", what);
      for (int i = 0; i < count; ++i) take(block.data() + size_t(i) * size_t(size), done + i);
      done += count;
    }
  }
  std::string text(char const* what) {
    std::string s = FSTLoadString(_is);
    if (!_is) fail("truncated in %s", what);
    return s;
  }
  template <class... Args>
  [[noreturn]] void fail(char const* format, Args... args) {
    std::string message = "FSTBinary file %s: ";
    message += format;
    FSTFatal(message.c_str(), _file, args...);
  }

 private:
  std::istream& _is;
  char const* _file;
};

// Reads a label list into the table from list position to label id, and the label set.
std::vector<int> load_labels(Reader& in, char const* what, fst::set<int>& labels) {
  std::vector<int> ids;
  for (int i = 0, n = in.count(what); i < n; ++i) {
    std::string const name = in.text(what);
    // A label is a C string everywhere else: a NUL byte would silently shorten it.
    if (name.find('\0') != std::string::npos) in.fail("a name in %s holds a NUL byte", what);
    int id = FSTstring_map[name];
    ids.push_back(id);
    labels.insert(id);
  }
  return ids;
}

}  // namespace

FSTBinaryRep::FSTBinaryRep(std::istream& is, char const* header, char const* file) {
  if (!header) header = "";
  name = "FSTBinary";
  _semiring = FSTHeaderSemiring(header);
  float const scale = FSTHeaderValue(header, "WeightScale=", "WeightScale=%f", 1.0f);
  float const offset = FSTHeaderValue(header, "WeightOffset=", "WeightOffset=%f", 0.0f);
  auto transform = [&](float w) {
    return (scale == 1 && offset == 0) || w == _semiring->zero ? w : w * scale + offset;
  };
  Reader in(is, file);
  in.integer("the leading field");
  _initial = in.integer("the initial state");
  std::vector<int> const inputs = load_labels(in, "the input labels", _input_labels);
  std::vector<int> const outputs = load_labels(in, "the output labels", _output_labels);
  // Arrays grow as records arrive: a damaged count meets the end of the file, not the heap's.
  int const n_arcs = in.count("the arc count");
  _arcs.reserve(size_t(std::min(n_arcs, 1 << 20)));
  in.records(n_arcs, 20, "the arcs", [&](unsigned char const* r, int i) {
    FSTArc a;
    a.from = int(big_endian_u32(r));
    a.to = int(big_endian_u32(r + 4));
    int input = int(big_endian_u32(r + 8)), output = int(big_endian_u32(r + 12));
    uint32_t bits = big_endian_u32(r + 16);
    std::memcpy(&a.weight, &bits, 4);
    a.weight = transform(a.weight);
    if (input < 0 || size_t(input) >= inputs.size() || output < 0 ||
        size_t(output) >= outputs.size())
      in.fail("arc %d has a label outside the label lists", i);
    a.input = inputs[size_t(input)];
    a.output = outputs[size_t(output)];
    _arcs.push_back(a);
  });
  int const n_states = in.count("the state count");
  _states.reserve(size_t(std::min(n_states, 1 << 20)));
  in.records(n_states, 16, "the states", [&](unsigned char const* r, int p) {
    _State s;
    uint32_t bits = big_endian_u32(r);
    std::memcpy(&s.final, &bits, 4);
    bits = big_endian_u32(r + 4);
    std::memcpy(&s.potential, &bits, 4);
    s.final = transform(s.final);
    s.potential = transform(s.potential);
    s.first_arc = int(big_endian_u32(r + 8));
    s.end_arc = int(big_endian_u32(r + 12));
    if (s.first_arc < 0 || s.first_arc > s.end_arc || s.end_arc > n_arcs)
      in.fail("state %d has arcs %d to %d of %d", p, s.first_arc, s.end_arc, n_arcs);
    _states.push_back(s);
  });
  if (_initial < -1 || _initial >= n_states)
    in.fail("initial state %d of %d states", _initial, n_states);
  for (FSTArc const& a : _arcs)
    if (a.to < 0 || a.to >= n_states || a.from < 0 || a.from >= n_states)
      in.fail("arc from %d to %d of %d states", a.from, a.to, n_states);
  _n_states = n_states;
  _n_arcs = n_arcs;
  _arc_pointers.reserve(_arcs.size());
  for (FSTArc& a : _arcs) _arc_pointers.push_back(&a);
}

FSTBinaryRep::_State const& FSTBinaryRep::_state(int p) const {
  FST_ASSERT_STATE(p);
  return _states[size_t(p)];
}

FSTArcIter FSTBinaryRep::_iterate(_State const& s) const {
  FSTArc* const* arcs = _arc_pointers.data();
  return FSTGenericInt::_iterate(arcs + s.first_arc, arcs + s.end_arc);
}

int FSTBinaryRep::n_arcs_out(int p) const {
  _State const& s = _state(p);
  return s.end_arc - s.first_arc;
}

FSTArcIter FSTBinaryRep::arcs_out(int p, FSTArcOrder o) const {
  _State const& s = _state(p);
  if (o != FSTArcOrderAny) _sort_arcs(o);
  return _iterate(s);
}

FSTArcIter FSTBinaryRep::arcs_out_with_input(int p, int label, FSTArcMode m) const {
  return _arcs_with_label(p, label, m, true);
}

FSTArcIter FSTBinaryRep::arcs_out_with_output(int p, int label, FSTArcMode m) const {
  return _arcs_with_label(p, label, m, false);
}

// The arcs sorted on the queried side, then the run whose label matches.
FSTArcIter FSTBinaryRep::_arcs_with_label(int p, int label, FSTArcMode m, bool on_input) const {
  _State const& s = _state(p);
  _sort_arcs(on_input ? FSTArcOrderInput : FSTArcOrderOutput);
  FSTArc* const* arcs = _arc_pointers.data();
  return _iterate(_select_sorted(arcs + s.first_arc, arcs + s.end_arc, label, m, on_input));
}

bool FSTBinaryRep::is_final(int p) const { return _state(p).final != _semiring->zero; }
float FSTBinaryRep::final_weight(int p) const { return _state(p).final; }
float FSTBinaryRep::potential(int p) const { return _state(p).potential; }

void FSTBinaryRep::_sort_arcs(FSTArcOrder order) const {
  if (order == _arc_order || order == FSTArcOrderAny) return;
  if (_arc_order != FSTArcOrderAny)
    FSTWarn("FSTBinary: resorting arcs from order %d to order %d is inefficient", int(_arc_order),
            int(order));
  _arc_order = order;
  FSTArc** arcs = _arc_pointers.data();
  for (_State const& s : _states) _sort_arcs(arcs + s.first_arc, arcs + s.end_arc, order);
}

FSTGeneric FSTLoadBinary(std::istream& is, char const* header) {
  return new FSTBinaryRep(is, header);
}

FSTGeneric FSTLoadBinary(std::istream& is, char const* header, char const* file) {
  return new FSTBinaryRep(is, header, file);
}

void FSTBinaryRep::dump_ascii(std::ostream& os, bool header) const {
  if (_train_data) FSTFatal("FSTBinaryRep::dump_ascii: can't dump when in training mode");
  FSTGenericInt::dump_ascii(os, header);
}

void FSTBinaryRep::dump_binary(std::ostream& os) const {
  if (_train_data) FSTFatal("FSTBinaryRep::dump_binary: can't dump when in training mode");
  FSTGenericInt::dump_binary(os);
}
