// Helpers shared by the tests.
#ifndef T2SFST_TESTS_TESTUTIL_H
#define T2SFST_TESTS_TESTUTIL_H

#include <string>

#include "FST.h"

// Every state (final weight, potential) and every arc in stored order, one per line: two
// machines are equal exactly when their descriptions are.
std::string Describe(FSTGeneric const& m);

// Arcs of one state as "in:out/weight>to" items in stored order.
std::string DescribeArcs(FSTArcIter arcs);

// A lazy machine for tests: a chain 0 -> 1 -> ... -> n-1 whose states are discovered only when
// the arcs of their predecessor are asked for. Arc i carries labels i+2:i+2 and weight i; the
// last state is final with weight 0.5. Its body is computed and owned by the iterator.
class ChainRep : public FSTGenericInt {
 public:
  explicit ChainRep(int n, bool* destroyed = nullptr);
  ~ChainRep() override;
  fst::set<int> const& input_alphabet() const override { return _labels; }
  fst::set<int> const& output_alphabet() const override { return _labels; }
  using FSTGenericInt::arcs_out;
  FSTArcIter arcs_out(int p, FSTArcOrder o = FSTArcOrderAny) const override;
  FSTArcIter arcs_out_with_input(int p, int label, FSTArcMode m) const override;
  FSTArcIter arcs_out_with_output(int p, int label, FSTArcMode m) const override;
  bool is_final(int p) const override { return p == _length - 1; }
  float final_weight(int p) const override { return is_final(p) ? 0.5f : _semiring->zero; }
  float potential(int) const override { return _semiring->one; }
  void force() const override;
  void reset() const override;

 private:
  int _length;
  bool* _destroyed;
  fst::set<int> _labels;
};

struct CommandResult {
  int status;  // exit status, or -1 when the command did not exit normally
  std::string out;
  std::string err;
};
// Runs a shell command line, capturing both output streams.
CommandResult RunCommand(std::string const& command_line);

// A machine read from text in any format the loader knows (a header first).
FSTGeneric Text(std::string const& text);

// A file in the test's temporary directory, with the given contents.
std::string WriteTempFile(std::string const& name, std::string const& contents);

#endif
