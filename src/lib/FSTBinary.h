// Binary primitives (big-endian whatever the host) and the "#FSTBinary" machine format: a snapshot
// of any machine, loaded back as FSTBinaryRep, a read-only machine whose states and arcs live in a
// few large arrays. Writing and loading are linear in states + arcs; a loaded machine costs 36
// bytes per arc and 16 per state. A truncated or damaged file stops with a message naming it.
#ifndef T2SFST_FSTBINARY_H
#define T2SFST_FSTBINARY_H

#include <iosfwd>
#include <string>
#include <vector>

#include "FSTGeneric.h"
#include "FSTTrain.h"

// ---- primitives ----

void FSTDumpShort(std::ostream& os, short v);
void FSTDumpUnsignedShort(std::ostream& os, unsigned short v);
void FSTDumpInt(std::ostream& os, int v);
void FSTDumpUnsignedInt(std::ostream& os, unsigned int v);
void FSTDumpFloat(std::ostream& os, float v);
void FSTDumpDouble(std::ostream& os, double v);
// Int length L, then the L characters and a zero byte.
void FSTDumpString(std::ostream& os, std::string const& s);
// As a string; null is the length -1 alone.
void FSTDumpChars(std::ostream& os, char const* s);
// 1 to 4 bytes: the two top bits of the first byte count the bytes that follow. Unsigned values
// up to 2^30 - 1, signed ones from -2^29 to 2^29 - 1; beyond that the writers are fatal.
void FSTDumpCompressedUnsigned(std::ostream& os, unsigned int v);
void FSTDumpCompressedInt(std::ostream& os, int v);

// The readers leave the stream failed at its end; what they return then is unspecified.
short FSTLoadShort(std::istream& is);
unsigned short FSTLoadUnsignedShort(std::istream& is);
int FSTLoadInt(std::istream& is);
unsigned int FSTLoadUnsignedInt(std::istream& is);
float FSTLoadFloat(std::istream& is);
double FSTLoadDouble(std::istream& is);
void FSTLoadString(std::istream& is, std::string& s);
std::string FSTLoadString(std::istream& is);
// A new[] array owned by the caller, or null for the length -1.
char* FSTLoadChars(std::istream& is);
unsigned int FSTLoadCompressedUnsigned(std::istream& is);
int FSTLoadCompressedInt(std::istream& is);

// The standard streams, for binary data.
std::ostream& FSTBinaryCout();
std::istream& FSTBinaryCin();

// ---- the stored representation ----

class FSTBinaryRep : public FSTTrainableRep {
 public:
  // Reads the format after its header line; file names the source in messages (may be null).
  FSTBinaryRep(std::istream& is, char const* header, char const* file = nullptr);

  fst::set<int> const& input_alphabet() const override { return _input_labels; }
  fst::set<int> const& output_alphabet() const override { return _output_labels; }
  int n_arcs_out(int p) const override;
  using FSTGenericInt::arcs_out;
  FSTArcIter arcs_out(int p, FSTArcOrder o = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m = FSTArcModeEqual) const override;
  bool is_final(int p) const override;
  float final_weight(int p) const override;
  float potential(int p) const override;
  void force() const override {}
  void reset() const override {}
  // Both refuse a machine in training.
  using FSTGenericInt::dump_ascii;
  using FSTGenericInt::dump_binary;
  void dump_ascii(std::ostream& os, bool header = true) const override;
  void dump_binary(std::ostream& os) const override;

  FSTArcOrder arc_order() const { return _arc_order; }
  using FSTGenericInt::_sort_arcs;

 private:
  void _set_trained_final(int p, float w) override { _states[size_t(p)].final = w; }
  struct _State {
    float final;
    float potential;
    int first_arc;
    int end_arc;
  };

  // Re-sorts every state's arcs (a warning when they were sorted the other way).
  void _sort_arcs(FSTArcOrder order) const;
  FSTArcIter _arcs_with_label(int p, int label, FSTArcMode m, bool on_input) const;
  _State const& _state(int p) const;
  using FSTGenericInt::_iterate;
  FSTArcIter _iterate(_State const& s) const;

  std::vector<FSTArc> _arcs;
  mutable std::vector<FSTArc*> _arc_pointers;
  std::vector<_State> _states;
  mutable FSTArcOrder _arc_order = FSTArcOrderAny;
  fst::set<int> _input_labels;
  fst::set<int> _output_labels;
};

FSTGeneric FSTLoadBinary(std::istream& is, char const* header);
// The same, naming the file in messages.
FSTGeneric FSTLoadBinary(std::istream& is, char const* header, char const* file);

#endif
