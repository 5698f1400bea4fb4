// The expression reader on any text, and what it builds evaluated: operands named a, b, c and d
// are small fixed machines (cyclic, with epsilons on either side, an acceptor, an empty one), so
// inputs reach every operation and every combination of them. A result is expanded (up to a
// bound: determinization need not terminate), probed by label, written in the binary format and
// read back, and printed.
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include "FST.h"
#include "FuzzTarget.h"

namespace {

char const* const machines[][2] = {
    {"a", "I 0\nT 0 1 a x 0.5\nT 1 0 , y 1\nT 1 2 b ,\nT 0 2 , , 0.25\nF 2\n"},
    {"b", "I 0\nT 0 1 x x\nT 1 1 y y 0.5\nT 1 2 , ,\nF 2 0.5\n"},
    {"c", "I 0\nT 0 0 a , 1\nT 0 1 x b\nT 1 0 , x\nF 1\n"},
    {"d", ""},
};
int const max_states = 4000;

// The folder holding the operands, made once; operands are named relative to it.
std::string const& operand_folder() {
  static std::string folder = [] {
    char name[] = "/tmp/t2sfst_expression_fuzz_XXXXXX";
    std::string made = mkdtemp(name) ? name : "/tmp";
    for (auto const& machine : machines) std::ofstream(made + "/" + machine[0]) << machine[1];
    return made;
  }();
  return folder;
}

// Works inside the operand folder and returns to where it was, also when a stop unwinds.
struct InFolder {
  InFolder() : _back(open(".", O_RDONLY)) {
    if (chdir(operand_folder().c_str()) != 0) abort();
  }
  ~InFolder() {
    if (_back >= 0 && fchdir(_back) != 0) abort();
    if (_back >= 0) close(_back);
  }
  int _back;
};

void evaluate(FSTGeneric const& m) {
  int const x = FSTstring_map["x"];
  for (int p = 0; p < m->states().size(); ++p) {
    if (p >= max_states) return;
    for (FSTArc* a : m->arcs_out(p)) (void)a;
    FSTOperandArcsWithInput(*m, p, 0);
    FSTOperandArcsWithOutput(*m, p, x, FSTArcModeLessEqual);
  }
  FSTOperandForce(*m);
  std::stringstream binary;
  m->dump_binary(binary);
  FSTGeneric back = FSTLoadStream(binary);
  if (back->states().size() != m->states().size()) abort();
  std::ostringstream text;
  m->dump_ascii(text, true);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string text(reinterpret_cast<char const*>(data), size);
  InFolder in_folder;
  RunStoppable([&] {
    FSTGeneric m;
    std::string messages;
    if (FSTExpression(text, m, messages)) evaluate(m);
  });
  return 0;
}
