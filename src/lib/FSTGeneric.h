// Every machine is reached through one abstract interface, FSTGenericInt, and held through one
// reference-counted handle, FSTGeneric.
#ifndef T2SFST_FSTGENERIC_H
#define T2SFST_FSTGENERIC_H

#include <iosfwd>
#include <string>
#include <utility>

#include "FSTAllocator.h"
#include "FSTSemiring.h"

// ---- reference counting -------------------------------------------------------------------------

class FSTReferenceCounted {
 public:
  FSTReferenceCounted() : _reference_count(0) {}
  FSTReferenceCounted(FSTReferenceCounted const&) : _reference_count(0) {}
  FSTReferenceCounted& operator=(FSTReferenceCounted const&) { return *this; }
  virtual ~FSTReferenceCounted() {}

  void incref() const { ++_reference_count; }
  // Destroys the object when the count drops to 0 or below; returns the new count.
  int decref() const {
    if (--_reference_count <= 0) {
      delete this;
      return 0;
    }
    return _reference_count;
  }
  int reference_count() const { return _reference_count; }

 private:
  mutable int _reference_count;
};

// Smart pointer over any counted object (null allowed).
template <class T>
class FSTReferenceCounter {
 public:
  FSTReferenceCounter(T* p = nullptr) : _p(p) {
    if (_p) _p->incref();
  }
  FSTReferenceCounter(FSTReferenceCounter const& other) : FSTReferenceCounter(other._p) {}
  FSTReferenceCounter& operator=(FSTReferenceCounter const& other) {
    if (other._p) other._p->incref();
    if (_p) _p->decref();
    _p = other._p;
    return *this;
  }
  ~FSTReferenceCounter() {
    if (_p) _p->decref();
  }
  T* get() const { return _p; }
  T* operator->() const { return _p; }
  T& operator*() const { return *_p; }
  explicit operator bool() const { return _p != nullptr; }

 private:
  T* _p;
};

// ---- arcs ---------------------------------------------------------------------------------------

// Field order is fixed: arcs are copied field-wise and sorted by field.
struct FSTArc {
  int input;   // 0 is epsilon
  int output;  // 0 is epsilon
  float weight;
  int to;
  int from;
};
static_assert(sizeof(FSTArc) == 20, "an arc has 20 bytes of payload");

// Arcs live in 24-byte (three-unit) allocator blocks.
constexpr size_t FSTArcUnits = 3;
inline FSTArc* FSTNewArc(int input, int output, float weight, int to, int from) {
  return new (FSTAllocator::_allocate(FSTArcUnits)) FSTArc{input, output, weight, to, from};
}
inline FSTArc* FSTNewArc(FSTArc const& arc) {
  return new (FSTAllocator::_allocate(FSTArcUnits)) FSTArc(arc);
}
inline void FSTDeleteArc(FSTArc* arc) { FSTAllocator::_deallocate(arc, FSTArcUnits); }

using FSTArcVector = fst::vector<FSTArc*>;

// How a state's outgoing arcs are sorted; the values are stored and printed.
enum FSTArcOrder { FSTArcOrderAny = 0, FSTArcOrderInput = 1, FSTArcOrderOutput = 2 };

// How a label is matched by arcs_out_with_input/output; other values select nothing.
enum FSTArcMode { FSTArcModeEqual = 0, FSTArcModeLessEqual = 1, FSTArcModeGreaterEqual = 2 };

// Shared body of iterators over computed arcs: owns the arcs and frees them with itself.
class FSTArcIterData : public FSTReferenceCounted {
 public:
  ~FSTArcIterData() override;
  FSTArcVector arcs;
};

// Iterator over an array of arc pointers. Over a stored machine the body is null and the
// iterator is valid only until the machine is modified or re-sorted.
class FSTArcIter {
 public:
  FSTArcIter() : _data(nullptr), _cursor(nullptr), _end(nullptr) {}
  FSTArcIter(FSTArc* const* begin, FSTArc* const* end, FSTArcIterData* data = nullptr);
  // Iterates over all of the body's arcs.
  explicit FSTArcIter(FSTArcIterData* data);
  FSTArcIter(FSTArcIter const& other);
  FSTArcIter& operator=(FSTArcIter const& other);
  ~FSTArcIter();

  bool done() const { return _cursor >= _end; }
  FSTArc* operator*() const { return *_cursor; }
  FSTArc* operator->() const { return *_cursor; }
  FSTArcIter& operator++() {
    ++_cursor;
    return *this;
  }
  int size() const { return int(_end - _cursor); }
  int n() const { return size(); }

  // Range-for support over the remaining arcs.
  FSTArc* const* begin() const { return _cursor; }
  FSTArc* const* end() const { return _end; }

  FSTArcIterData* data() const { return _data; }

 private:
  FSTArcIterData* _data;
  FSTArc* const* _cursor;
  FSTArc* const* _end;
};

// ---- the handle ---------------------------------------------------------------------------------

class FSTGenericInt;

class FSTGeneric {
 public:
  FSTGeneric() : _machine(nullptr) {}
  FSTGeneric(FSTGenericInt* machine);
  FSTGeneric(FSTGeneric const& other);
  FSTGeneric(FSTGeneric&& other) noexcept : _machine(other._machine) { other._machine = nullptr; }
  FSTGeneric& operator=(FSTGeneric const& other);
  ~FSTGeneric();

  FSTGenericInt* operator->() const { return _machine; }
  FSTGenericInt& operator*() const { return *_machine; }
  FSTGenericInt* get() const { return _machine; }
  bool null() const { return _machine == nullptr; }
  explicit operator bool() const { return _machine != nullptr; }

  // Replaces the machine by a fresh load when its file changed; returns whether it did.
  bool reload();

 private:
  FSTGenericInt* _machine;
};

// The text form of the machine (dump_ascii without header flag).
std::ostream& operator<<(std::ostream& os, FSTGeneric const& machine);

// ---- the interface ------------------------------------------------------------------------------

// The ids 0..n-1 of a machine's states. It reads the machine's count on every step, so a walk
// over a lazy machine also visits the states discovered while walking.
class FSTStateRange {
 public:
  struct End {};
  class Iterator {
   public:
    Iterator(int p, int const* n) : _p(p), _n(n) {}
    int operator*() const { return _p; }
    Iterator& operator++() {
      ++_p;
      return *this;
    }
    bool operator!=(End) const { return _p < *_n; }

   private:
    int _p;
    int const* _n;
  };

  FSTStateRange(int first, int const* n) : _first(first), _n(n) {}
  Iterator begin() const { return Iterator(_first, _n); }
  End end() const { return End(); }
  int first() const { return _first; }
  int size() const { return *_n - _first; }

 private:
  int _first;
  int const* _n;
};

class FSTGenericInt : public FSTReferenceCounted {
 public:
  FSTGenericInt();
  ~FSTGenericInt() override;

  // Slots 2-43, in this order. "unsupported" defaults stop with "<name>::<op> not supported".
  virtual fst::set<int> const& input_alphabet() const = 0;
  virtual fst::set<int> const& output_alphabet() const = 0;
  virtual FSTStateRange states() const;
  virtual int initial() const;
  // 2147483647 when the count is not known without expanding the state.
  virtual int n_arcs_out(int p) const;
  virtual FSTArcIter arcs_out(int p, FSTArcOrder o = FSTArcOrderAny) const = 0;
  virtual FSTArc arc_out(int p) const;
  virtual FSTArcIter arcs_out_with_input(int p, int label,
                                         FSTArcMode m = FSTArcModeEqual) const = 0;
  virtual FSTArcIter arcs_out_with_output(int p, int label,
                                          FSTArcMode m = FSTArcModeEqual) const = 0;
  // Copies of the arcs leaving p, owned by the caller (free them with FSTDeleteArc).
  virtual void arcs_out(FSTArcVector& v, int p, FSTArcOrder o = FSTArcOrderAny) const;
  virtual bool is_final(int p) const = 0;
  virtual float final_weight(int p) const = 0;
  virtual float potential(int p) const = 0;
  virtual void force() const = 0;
  virtual void reset() const = 0;
  virtual void dump_ascii(std::ostream& os, bool header = true) const;
  virtual void dump_binary(std::ostream& os) const;
  virtual void dump_mmap(char const* file, FSTArcOrder o) const;
  virtual void dump_dot(std::ostream& os, char const* title) const;
  // States not reachable from the initial state or that reach no final state, ascending.
  virtual void dead_states(fst::vector<int>& dead) const;
  virtual FSTGeneric reload(bool& changed);
  virtual void restore_input_output_index();
  virtual void set_initial(int p);
  virtual void set_final(int p, float w);
  virtual void set_potential(int p, float w);
  virtual int add_states(int n);
  virtual void add_arc(int p, int q, int input, int output, float weight);
  virtual void add_arcs(int p, FSTArcVector& v, FSTArcOrder o);
  virtual void set_arcs(int p, FSTArcVector& v, FSTArcOrder o);
  virtual void delete_state(int p);
  virtual void delete_states(fst::vector<int> const& states);
  virtual fst::vector<int> final_states() const;
  virtual FSTArcIter arcs_in(int p, FSTArcOrder o) const;
  virtual FSTArcIter arcs_in_with_input(int p, int label, FSTArcMode m) const;
  virtual FSTArcIter arcs_in_with_output(int p, int label, FSTArcMode m) const;
  virtual void _train_begin();
  virtual void _train_begin_left();
  virtual void _train_begin_right();
  virtual void _train_end();
  virtual void _train_normalize();
  virtual void _train_normalize_by_outputlabel();
  virtual void _train_update(fst::vector<double>& forward, fst::vector<double>& backward,
                             double scale);

  // File forms of the dumps: open the file and call the stream form.
  void dump_ascii(char const* file, bool header = true) const;
  void dump_ascii(std::string const& file, bool header = true) const;
  void dump_binary(char const* file) const;
  void dump_binary(std::string const& file) const;
  void dump_mmap(std::string const& file, FSTArcOrder o) const;
  void dump_dot(char const* file, char const* title) const;
  void dump_dot(std::string const& file, char const* title) const;

  // Walks the arcs of every state (discovering those of a lazy machine), in order o as
  // FSTOperandArcs gives it, and returns their count with the labels they carry on each side:
  // what the binary writers list, whatever the machine reports as its alphabets.
  int _arc_labels(fst::set<int>& inputs, fst::set<int>& outputs, FSTArcOrder o) const;

  // Deletes the dead states of a mutable machine (fatal for any other).
  void trim();
  void _dead_states_acyclic(fst::vector<int>& dead, fst::vector<int> const& order) const;
  void _dead_states_cyclic(fst::vector<int>& dead) const;

  int n_states() const { return _n_states; }
  // Whether the machine is the editable stored representation.
  bool is_mutable() const { return _rep_flag[0]; }
  void set_semiring(FSTSemiringBase const* semiring) { _semiring = semiring; }
  FSTSemiringBase const* semiring() const { return _semiring; }
  // Remembers the file a machine was loaded from and its modification time (0 disables).
  void enable_reload(char const* file, long mtime);

  // Sorts arc pointers by input (order 1) or output (order 2); other orders leave v as it is.
  static void _sort_arcs(FSTArcVector& v, FSTArcOrder o);
  static void _sort_arcs(FSTArc** begin, FSTArc** end, FSTArcOrder o);
  // An iterator over stored arcs; an empty range is the all-null iterator.
  static FSTArcIter _iterate(FSTArc* const* begin, FSTArc* const* end) {
    return begin == end ? FSTArcIter() : FSTArcIter(begin, end);
  }
  static FSTArcIter _iterate(std::pair<FSTArc* const*, FSTArc* const*> range) {
    return _iterate(range.first, range.second);
  }
  // The sub-range of arcs sorted on their input (or output) label that mode m selects.
  static std::pair<FSTArc* const*, FSTArc* const*> _select_sorted(FSTArc* const* begin,
                                                                  FSTArc* const* end, int label,
                                                                  FSTArcMode m, bool on_input);

  std::string name;  // the representation's class name, as named in diagnostics

 protected:
  [[noreturn]] void _unsupported(char const* operation) const;

  FSTSemiringBase const* _semiring;
  // Lazy machines discover states and arcs inside const queries.
  mutable int _n_states;
  mutable int _n_arcs;
  mutable int _initial;
  bool _rep_flag[2];  // meaning owned by the representation
  std::string _reload_file;
  long _reload_mtime;
};

#endif
