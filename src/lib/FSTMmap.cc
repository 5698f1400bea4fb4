#include "FSTMmap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <istream>

#include "FSTLoad.h"
#include "FSTOperand.h"
#include "FSTStringMap.h"
#include "FSTlib.h"

namespace {

int const byte_order_mark = 0x12345678;
int const version = 1;
long long const block_alignment = 4096;

template <class T>
void put(std::ostream& os, T v) {
  os.write(reinterpret_cast<char const*>(&v), sizeof v);
}

void put_zeros(std::ostream& os, long long n) {
  static char const zeros[4096] = {};
  long long const chunk = static_cast<long long>(sizeof zeros);
  for (; n > 0; n -= chunk) os.write(zeros, std::streamsize(n < chunk ? n : chunk));
}

// Count, longest name with its zero (patched once known), then each name, its zero and its id.
void put_labels(std::ostream& os, fst::set<int> const& labels) {
  put(os, int(labels.size()));
  std::streampos longest_at = os.tellp();
  put(os, -1);
  int longest = 0;
  for (int label : labels) {
    char const* text = FSTstring_map[label];
    int bytes = int(std::strlen(text)) + 1;
    os.write(text, bytes);
    put(os, label);
    if (bytes > longest) longest = bytes;
  }
  std::streampos end = os.tellp();
  os.seekp(longest_at);
  put(os, longest);
  os.seekp(end);
}

}  // namespace

void FSTGenericInt::dump_mmap(char const* file, FSTArcOrder order) const {
  std::ofstream os;
  if (file) os.open(file, std::ios::binary | std::ios::trunc);
  if (!os) FSTFatal("can't write file %s", file ? file : "(null)");
  os << "#FSTMmap " << _semiring->name << "\n" << std::flush;
  put(os, byte_order_mark);
  put(os, version);
  put(os, int(order));
  put(os, initial());
  // Walking every state first also discovers the states of a lazy machine.
  fst::set<int> inputs, outputs;
  int const n_arcs = _arc_labels(inputs, outputs, order);
  int const n = states().size();
  put(os, n_arcs);
  put(os, n);
  put_labels(os, inputs);
  put_labels(os, outputs);
  long long position = static_cast<long long>(os.tellp()) + static_cast<long long>(sizeof(int));
  long long const block = (position + block_alignment - 1) / block_alignment * block_alignment;
  put(os, int(block));
  put_zeros(os, block - position);
  size_t const mmap_pos = size_t(block);
  std::vector<int> counts;
  for (int p = 0; p < n; ++p) {
    FSTArcIter arcs = FSTOperandArcs(*this, p, order);
    counts.push_back(arcs.size());
    for (FSTArc* a : arcs) os.write(reinterpret_cast<char const*>(a), sizeof(FSTArc));
  }
  put_zeros(os, ((long long)n_arcs * 20 + 15) / 16 * 16 - (long long)n_arcs * 20);
  // The assertion's text is its message: its spacing stays as it is.
  // clang-format off
  FST_ASSERT((size_t)os.tellp() - mmap_pos == ((n_arcs*sizeof(FSTArc) + 15) & ~15));
  // clang-format on
  int first = 0;
  for (int p = 0; p < n; ++p) {
    put(os, final_weight(p));
    put(os, potential(p));
    put(os, first);
    put(os, first + counts[size_t(p)]);
    first += counts[size_t(p)];
  }
  if (!os.flush()) FSTFatal("can't write file %s", file);
}

namespace {

// Reads the header part through the stream; damage stops with a message naming the file.
class Reader {
 public:
  Reader(std::istream& is, char const* file) : _is(is), _file(file ? file : "(stream)") {}
  int integer(char const* what) {
    int v = 0;
    _is.read(reinterpret_cast<char*>(&v), sizeof v);
    if (!_is) fail("truncated in %s", what);
    return v;
  }
  std::string name(int longest, char const* what) {
    std::string text;
    for (int c; (c = _is.get()) != 0;) {
      if (c == EOF) fail("truncated in %s", what);
      text += char(c);
      if (int(text.size()) >= longest) fail("a name in %s is longer than its list says", what);
    }
    return text;
  }
  template <class... Args>
  [[noreturn]] void fail(char const* format, Args... args) {
    std::string message = "FSTMmap file %s: ";
    message += format;
    FSTFatal(message.c_str(), _file, args...);
  }

 private:
  std::istream& _is;
  char const* _file;
};

void read_labels(Reader& in, char const* what, fst::set<int>& labels) {
  int const count = in.integer(what);
  int const longest = in.integer(what);
  if (count < 0 || (count > 0 && longest < 1))
    in.fail("bad sizes of %s (%d, %d)", what, count, longest);
  for (int i = 0; i < count; ++i) {
    std::string text = in.name(longest, what);
    int stored = in.integer(what);
    int id = FSTstring_map[text];
    if (id != stored) FSTFatal("FSTMmap: label `%s' != %d", text.c_str(), stored);
    labels.insert(id);
  }
}

}  // namespace

FSTMmapRep::FSTMmapRep(std::istream& is, char const* header, char const* file)
    : _file(file ? file : "(null)") {
  if (!header) header = "";
  name = "FSTMmap";
  _semiring = FSTHeaderSemiring(header);
  if (std::strstr(header, "WeightScale=")) FSTWarn("WeightScale not supported for FSTMmap");
  if (std::strstr(header, "WeightOffset=")) FSTWarn("WeightOffset not supported for FSTMmap");
  Reader in(is, file);
  int mark = in.integer("the byte-order mark");
  if (mark != byte_order_mark) FSTFatal("Incorrect byte order for FSTMmap (%x)", mark);
  int file_version = in.integer("the version");
  if (file_version != version) FSTFatal("Bad file version for FSTMmap (%d)", file_version);
  int order = in.integer("the compiled order");
  if (order < 0 || order > 2) in.fail("compiled order %d", order);
  _order = FSTArcOrder(order);
  _initial = in.integer("the initial state");
  int const n_arcs = in.integer("the arc count");
  int const n = in.integer("the state count");
  if (n_arcs < 0 || n < 0) in.fail("negative counts (%d arcs, %d states)", n_arcs, n);
  if (_initial < -1 || _initial >= n) in.fail("initial state %d of %d states", _initial, n);
  read_labels(in, "the input labels", _input_labels);
  read_labels(in, "the output labels", _output_labels);
  long long const block = in.integer("the arc block offset");
  long long const here = (long long)is.tellg();
  is.seekg(0, std::ios::end);
  long long const length = (long long)is.tellg();
  if (block < here || block % block_alignment != 0)
    in.fail("arc block offset %lld (the labels end at %lld)", block, here);
  // The state block follows the arcs, padded to 16 bytes; its size tells the record layout.
  long long const arc_bytes = ((long long)n_arcs * 20 + 15) / 16 * 16;
  long long const state_bytes = length - block - arc_bytes;
  if (state_bytes < 0)  // checked before anything is sized by the arc count
    in.fail("%d arcs need %lld bytes; the file has %lld after the arc block offset", n_arcs,
            arc_bytes, length - block);
  if (n == 0 || state_bytes == 16LL * n)
    _record_bytes = 16;
  else if (state_bytes == 24LL * n)
    _record_bytes = 24;
  else
    in.fail("%lld bytes after the %d arcs for %d state records of 16 or 24 bytes", state_bytes,
            n_arcs, n);
  _n_states = n;
  _n_arcs = n_arcs;
  if (n_arcs == 0 && n == 0) return;  // nothing to map

  int fd = ::open(file ? file : "", O_RDONLY);
  if (fd < 0) FSTFatal("can't read file %s", _file.c_str());
  size_t const bytes = size_t(length - block);
  void* mapping = mmap(nullptr, bytes, PROT_READ, MAP_PRIVATE, fd, off_t(block));
  int error = errno;
  ::close(fd);
  if (mapping == MAP_FAILED)
    FSTFatal("can't mmap file %s (%s)", _file.c_str(), std::strerror(error));
  _mapping.address = mapping;
  _mapping.bytes = bytes;
  FSTArc* arcs = static_cast<FSTArc*>(mapping);
  _arcs.resize(size_t(n_arcs));
  for (int i = 0; i < n_arcs; ++i) _arcs[size_t(i)] = arcs + i;
  _state_block = static_cast<unsigned char const*>(mapping) + arc_bytes;
  for (int p = 0; p < n; ++p) {
    _State s = _state(p);
    if (s.first_arc < 0 || s.first_arc > s.end_arc || s.end_arc > n_arcs)
      in.fail("state %d has arcs %lld to %lld of %d", p, s.first_arc, s.end_arc, n_arcs);
  }
  _checked.assign(size_t(n), false);
}

FSTMmapRep::~FSTMmapRep() {}

FSTMmapRep::_Mapping::~_Mapping() {
  if (address) munmap(address, bytes);
}

FSTMmapRep::_State FSTMmapRep::_state(int p) const {
  FST_ASSERT_STATE(p);
  unsigned char const* record = _state_block + size_t(p) * size_t(_record_bytes);
  _State s;
  std::memcpy(&s.final, record, 4);
  std::memcpy(&s.potential, record + 4, 4);
  if (_record_bytes == 16) {
    int first, end;
    std::memcpy(&first, record + 8, 4);
    std::memcpy(&end, record + 12, 4);
    s.first_arc = first, s.end_arc = end;
  } else {
    int64_t first, end;
    std::memcpy(&first, record + 8, 8);
    std::memcpy(&end, record + 16, 8);
    s.first_arc = first, s.end_arc = end;
  }
  return s;
}

std::pair<FSTArc* const*, FSTArc* const*> FSTMmapRep::_slice(int p) const {
  _State s = _state(p);
  FSTArc* const* begin = _arcs.data() + s.first_arc;
  FSTArc* const* end = _arcs.data() + s.end_arc;
  if (!_checked[size_t(p)]) {
    int const labels = FSTstring_map.size();
    for (FSTArc* const* a = begin; a != end; ++a)
      if ((*a)->to < 0 || (*a)->to >= _n_states || (*a)->input < 0 || (*a)->input >= labels ||
          (*a)->output < 0 || (*a)->output >= labels)
        FSTFatal("FSTMmap file %s: arc %lld of state %d leads to state %d with labels %d:%d",
                 _file.c_str(), (long long)(a - _arcs.data()), p, (*a)->to, (*a)->input,
                 (*a)->output);
    _checked[size_t(p)] = true;
  }
  return {begin, end};
}

int FSTMmapRep::n_arcs_out(int p) const {
  _State s = _state(p);
  return int(s.end_arc - s.first_arc);
}

FSTArcIter FSTMmapRep::arcs_out(int p, FSTArcOrder o) const {
  if (o != FSTArcOrderAny && o != _order)
    FSTFatal("FSTMmap: asking for order %d, but compiled with order %d", int(o), int(_order));
  auto slice = _slice(p);
  return _iterate(slice);
}

FSTArcIter FSTMmapRep::_select(int p, int label, FSTArcMode m, bool on_input) const {
  FSTArcOrder const needed = on_input ? FSTArcOrderInput : FSTArcOrderOutput;
  if (_order != needed)
    FSTFatal("FSTMmap: need order %d, but compiled with order %d", int(needed), int(_order));
  auto slice = _slice(p);
  auto range = _select_sorted(slice.first, slice.second, label, m, on_input);
  return _iterate(range);
}

FSTArcIter FSTMmapRep::arcs_out_with_input(int p, int label, FSTArcMode m) const {
  return _select(p, label, m, true);
}

FSTArcIter FSTMmapRep::arcs_out_with_output(int p, int label, FSTArcMode m) const {
  return _select(p, label, m, false);
}

bool FSTMmapRep::is_final(int p) const { return _state(p).final != _semiring->zero; }
float FSTMmapRep::final_weight(int p) const { return _state(p).final; }
float FSTMmapRep::potential(int p) const { return _state(p).potential; }

FSTGeneric FSTLoadMmap(std::istream& is, char const* header, char const* file) {
  return new FSTMmapRep(is, header, file);
}
