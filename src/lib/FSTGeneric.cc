#include "FSTGeneric.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <vector>

#include "FSTLoad.h"
#include "FSTOperand.h"
#include "FSTlib.h"

// ---- arcs and iterators -------------------------------------------------------------------------

FSTArcIterData::~FSTArcIterData() {
  for (FSTArc* arc : arcs)
    if (arc) FSTDeleteArc(arc);
}

FSTArcIter::FSTArcIter(FSTArc* const* begin, FSTArc* const* end, FSTArcIterData* data)
    : _data(data), _cursor(begin), _end(end) {
  if (_data) _data->incref();
}

FSTArcIter::FSTArcIter(FSTArcIterData* data)
    : FSTArcIter(data->arcs.data(), data->arcs.data() + data->arcs.size(), data) {}

FSTArcIter::FSTArcIter(FSTArcIter const& other)
    : _data(other._data), _cursor(other._cursor), _end(other._end) {
  if (_data) _data->incref();
}

FSTArcIter& FSTArcIter::operator=(FSTArcIter const& other) {
  if (other._data) other._data->incref();
  if (_data) _data->decref();
  _data = other._data;
  _cursor = other._cursor;
  _end = other._end;
  return *this;
}

FSTArcIter::~FSTArcIter() {
  if (_data) _data->decref();
}

// ---- the handle ---------------------------------------------------------------------------------

FSTGeneric::FSTGeneric(FSTGenericInt* machine) : _machine(machine) {
  if (_machine) _machine->incref();
}

FSTGeneric::FSTGeneric(FSTGeneric const& other) : FSTGeneric(other._machine) {}

FSTGeneric& FSTGeneric::operator=(FSTGeneric const& other) {
  if (other._machine) other._machine->incref();
  if (_machine) _machine->decref();
  _machine = other._machine;
  return *this;
}

FSTGeneric::~FSTGeneric() {
  if (_machine) _machine->decref();
}

bool FSTGeneric::reload() {
  if (!_machine) return false;
  bool changed = false;
  *this = _machine->reload(changed);
  return changed;
}

std::ostream& operator<<(std::ostream& os, FSTGeneric const& machine) {
  machine->dump_ascii(os, false);
  return os;
}

// ---- the interface defaults ---------------------------------------------------------------------

FSTGenericInt::FSTGenericInt()
    : name("FSTGeneric"),
      _semiring(nullptr),
      _n_states(0),
      _n_arcs(0),
      _initial(-1),
      _rep_flag{false, false},
      _reload_mtime(0) {}

FSTGenericInt::~FSTGenericInt() {}

void FSTGenericInt::_unsupported(char const* operation) const {
  FSTFatal("%s::%s not supported", name.c_str(), operation);
}

FSTStateRange FSTGenericInt::states() const { return FSTStateRange(0, &_n_states); }
int FSTGenericInt::initial() const { return _initial; }
int FSTGenericInt::n_arcs_out(int) const { return 2147483647; }
FSTArc FSTGenericInt::arc_out(int) const { _unsupported("arc_out()"); }

void FSTGenericInt::arcs_out(FSTArcVector& v, int p, FSTArcOrder o) const {
  FSTArcIter arcs = arcs_out(p, o);
  v.clear();
  if (v.capacity() < size_t(arcs.size())) {
    FSTArcVector exact;
    exact.reserve(size_t(arcs.size()));
    v.swap(exact);
  }
  for (FSTArc* arc : arcs) v.push_back(FSTNewArc(*arc));
}

int FSTGenericInt::_arc_labels(fst::set<int>& inputs, fst::set<int>& outputs, FSTArcOrder o) const {
  // Label ids are dense: marks by id, turned into sets at the end.
  std::vector<char> seen_input, seen_output;
  auto mark = [](std::vector<char>& seen, int label) {
    if (label < 0) return;
    if (size_t(label) >= seen.size()) seen.resize(size_t(label) * 2 + 16, 0);
    seen[size_t(label)] = 1;
  };
  int n_arcs = 0;
  for (int p : states()) {
    for (FSTArc* a : FSTOperandArcs(*this, p, o)) {
      mark(seen_input, a->input);
      mark(seen_output, a->output);
      ++n_arcs;
    }
  }
  inputs.clear();
  outputs.clear();
  for (size_t i = 0; i < seen_input.size(); ++i)
    if (seen_input[i]) inputs.insert(inputs.end(), int(i));
  for (size_t i = 0; i < seen_output.size(); ++i)
    if (seen_output[i]) outputs.insert(outputs.end(), int(i));
  return n_arcs;
}

FSTGeneric FSTGenericInt::reload(bool& changed) {
  if (_reload_mtime == 0) return FSTGeneric(this);
  long now = file_mtime(_reload_file.c_str());
  if (now == _reload_mtime) return FSTGeneric(this);
  std::cerr << "Reloading " << _reload_file << " because mtime " << now << " != " << _reload_mtime
            << "." << std::endl;
  changed = true;
  return FSTLoad(_reload_file);
}

void FSTGenericInt::restore_input_output_index() { _unsupported("restore_input_output_index()"); }
void FSTGenericInt::set_initial(int) { _unsupported("set_initial"); }
void FSTGenericInt::set_final(int, float) { _unsupported("set_final"); }
void FSTGenericInt::set_potential(int, float) { _unsupported("set_potential"); }
int FSTGenericInt::add_states(int) { _unsupported("add_states"); }
void FSTGenericInt::add_arc(int, int, int, int, float) { _unsupported("add_arc"); }
void FSTGenericInt::add_arcs(int, FSTArcVector&, FSTArcOrder) { _unsupported("add_arcs"); }
void FSTGenericInt::set_arcs(int, FSTArcVector&, FSTArcOrder) { _unsupported("set_arcs"); }
void FSTGenericInt::delete_state(int) { _unsupported("delete_state"); }
void FSTGenericInt::delete_states(fst::vector<int> const&) { _unsupported("delete_states"); }
fst::vector<int> FSTGenericInt::final_states() const { _unsupported("final_states"); }
FSTArcIter FSTGenericInt::arcs_in(int, FSTArcOrder) const { _unsupported("arcs_in"); }
FSTArcIter FSTGenericInt::arcs_in_with_input(int, int, FSTArcMode) const {
  _unsupported("arcs_in_with_input");
}
FSTArcIter FSTGenericInt::arcs_in_with_output(int, int, FSTArcMode) const {
  _unsupported("arcs_in_with_output");
}
void FSTGenericInt::_train_begin() { _unsupported("_train_begin()"); }
void FSTGenericInt::_train_begin_left() { _unsupported("_train_begin_left()"); }
void FSTGenericInt::_train_begin_right() { _unsupported("_train_begin_right()"); }
void FSTGenericInt::_train_end() { _unsupported("_train_end()"); }
void FSTGenericInt::_train_normalize() { _unsupported("_train_normalize()"); }
void FSTGenericInt::_train_normalize_by_outputlabel() {
  _unsupported("_train_normalize_by_outputlabel()");
}
void FSTGenericInt::_train_update(fst::vector<double>&, fst::vector<double>&, double) {
  _unsupported("_train_update()");
}

// ---- file forms of the dumps
// ---------------------------------------------------------------------

namespace {

// Null, "" and "-" name standard output.
template <class Write>
void with_output_file(char const* file, Write write) {
  if (!file || !*file || std::string(file) == "-") {
    write(std::cout);
    std::cout.flush();
    return;
  }
  std::ofstream out(file);
  if (!out) FSTFatal("can't write file %s", file);
  write(out);
}

}  // namespace

void FSTGenericInt::dump_ascii(char const* file, bool header) const {
  with_output_file(file, [&](std::ostream& os) { dump_ascii(os, header); });
}
void FSTGenericInt::dump_ascii(std::string const& file, bool header) const {
  dump_ascii(file.c_str(), header);
}
void FSTGenericInt::dump_binary(char const* file) const {
  with_output_file(file, [&](std::ostream& os) { dump_binary(os); });
}
void FSTGenericInt::dump_binary(std::string const& file) const { dump_binary(file.c_str()); }
void FSTGenericInt::dump_mmap(std::string const& file, FSTArcOrder o) const {
  dump_mmap(file.c_str(), o);
}
void FSTGenericInt::dump_dot(char const* file, char const* title) const {
  with_output_file(file, [&](std::ostream& os) { dump_dot(os, title); });
}
void FSTGenericInt::dump_dot(std::string const& file, char const* title) const {
  dump_dot(file.c_str(), title);
}

void FSTGenericInt::enable_reload(char const* file, long mtime) {
  _reload_file = file ? file : "";
  _reload_mtime = mtime;
}

void FSTGenericInt::_sort_arcs(FSTArcVector& v, FSTArcOrder o) {
  _sort_arcs(v.data(), v.data() + v.size(), o);
}

void FSTGenericInt::_sort_arcs(FSTArc** begin, FSTArc** end, FSTArcOrder o) {
  if (o == FSTArcOrderInput)
    std::sort(begin, end, [](FSTArc* a, FSTArc* b) { return a->input < b->input; });
  else if (o == FSTArcOrderOutput)
    std::sort(begin, end, [](FSTArc* a, FSTArc* b) { return a->output < b->output; });
}

std::pair<FSTArc* const*, FSTArc* const*> FSTGenericInt::_select_sorted(FSTArc* const* begin,
                                                                        FSTArc* const* end,
                                                                        int label, FSTArcMode m,
                                                                        bool on_input) {
  auto field = [on_input](FSTArc const* a) { return on_input ? a->input : a->output; };
  auto below = [&](FSTArc const* arc, int l) { return field(arc) < l; };
  auto above = [&](int l, FSTArc const* arc) { return l < field(arc); };
  switch (m) {
    case FSTArcModeEqual:
      return {std::lower_bound(begin, end, label, below),
              std::upper_bound(begin, end, label, above)};
    case FSTArcModeLessEqual:
      return {begin, std::upper_bound(begin, end, label, above)};
    case FSTArcModeGreaterEqual:
      return {std::lower_bound(begin, end, label, below), end};
  }
  return {nullptr, nullptr};
}
