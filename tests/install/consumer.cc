#include <FST.h>

#include <cstdio>

int main() {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->add_arc(0, 1, FSTstring_map["hello"], FSTstring_map["world"], 1.5f);
  m->set_initial(0);
  m->set_final(1, 0);
  FSTGeneric r = FSTReverse(m);
  std::printf("%d %d %s\n", r->states().size(), r->initial(),
              FSTstring_map[(*r->arcs_out(1))->output]);
  return 0;
}
