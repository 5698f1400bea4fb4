// The "#FSTMmap" machine format: a header and the label lists, then the arcs (sorted once, in the
// compiled order) and the state records in a page-aligned block that the loader maps read-only.
// Loading costs one pass over the labels and the state records and one pointer per arc; the
// arcs are read from the mapping when asked for. Values are in host byte order.
//
// State records are written 16 bytes each (final, potential, first and end arc as 32-bit ints);
// the reader also takes the 24-byte form (64-bit first and end), telling the two apart by the
// size of the state block, which the file's length fixes. A file is only valid with a label map
// that numbers its labels as the writer's did (FST_LABELS_FILE).
#ifndef T2SFST_FSTMMAP_H
#define T2SFST_FSTMMAP_H

#include <iosfwd>
#include <vector>

#include "FSTGeneric.h"

class FSTMmapRep : public FSTGenericInt {
 public:
  FSTMmapRep(std::istream& is, char const* header, char const* file);
  ~FSTMmapRep() override;

  fst::set<int> const& input_alphabet() const override { return _input_labels; }
  fst::set<int> const& output_alphabet() const override { return _output_labels; }
  int n_arcs_out(int p) const override;
  using FSTGenericInt::arcs_out;
  // Order 0 or the compiled order; any other is fatal.
  FSTArcIter arcs_out(int p, FSTArcOrder o = FSTArcOrderAny) const override;
  // Need compiled order 1 (input) or 2 (output).
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  bool is_final(int p) const override;
  float final_weight(int p) const override;
  float potential(int p) const override;
  void force() const override {}
  void reset() const override {}

  FSTArcOrder compiled_order() const { return _order; }
  // The size of the state records this file holds: 16 or 24 bytes.
  int state_record_bytes() const { return _record_bytes; }

 private:
  struct _State {
    float final;
    float potential;
    long long first_arc;
    long long end_arc;
  };
  _State _state(int p) const;
  // The arcs of p, each checked (once) to lead to a state and carry known labels.
  std::pair<FSTArc* const*, FSTArc* const*> _slice(int p) const;
  // The arcs of p with a label matching in mode m, by binary search in the compiled order.
  FSTArcIter _select(int p, int label, FSTArcMode m, bool on_input) const;

  FSTArcOrder _order;
  std::string _file;
  fst::set<int> _input_labels;
  fst::set<int> _output_labels;
  // The mapped block, unmapped when the machine goes: also when its constructor stops halfway
  // and a harness unwinds from the stop.
  struct _Mapping {
    void* address = nullptr;
    size_t bytes = 0;
    ~_Mapping();
  };
  _Mapping _mapping;
  std::vector<FSTArc*> _arcs;
  unsigned char const* _state_block = nullptr;
  int _record_bytes = 16;
  mutable std::vector<bool> _checked;
};

FSTGeneric FSTLoadMmap(std::istream& is, char const* header, char const* file);

#endif
