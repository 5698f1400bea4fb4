// A small tour of the toolkit: build a weighted transducer, print it, then copy and reverse it.
#include <cstdio>

#include "Commands.h"
#include "FST.h"

namespace {

void print_machine(char const* title, FSTGeneric const& m) {
  int n_arcs = 0;
  for (int p : m->states()) n_arcs += m->n_arcs_out(p);
  std::printf("%s: %s semiring, %d states, %d arcs, initial state %d\n", title, m->semiring()->name,
              m->states().size(), n_arcs, m->initial());
  for (int p : m->states()) {
    for (FSTArc* a : m->arcs_out(p))
      std::printf("  %d -> %d  %s:%s  %g\n", a->from, a->to,
                  a->input ? FSTstring_map[a->input] : "<eps>",
                  a->output ? FSTstring_map[a->output] : "<eps>", double(a->weight));
    if (m->is_final(p)) std::printf("  %d final  %g\n", p, double(m->final_weight(p)));
  }
}

}  // namespace

int RunDemo(int, char**) {
  // Spoken numbers to digits, in the tropical semiring: "twenty one" -> "21".
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->add_arc(0, 1, FSTstring_map["twenty"], FSTstring_map["2"], 0.5f);
  m->add_arc(0, 1, FSTstring_map["thirty"], FSTstring_map["3"], 0.7f);
  m->add_arc(1, 2, FSTstring_map["one"], FSTstring_map["1"], 0.0f);
  m->add_arc(1, 2, FSTstring_map["two"], FSTstring_map["2"], 0.0f);
  m->add_arc(1, 2, 0, FSTstring_map["0"], 1.0f);
  m->set_initial(0);
  m->set_final(2, 0.0f);
  print_machine("machine", m);
  print_machine("input projection", FSTProject(m, FSTArcOrderInput, FSTArcOrderInput));
  print_machine("reversed", FSTReverse(m));
  return 0;
}
