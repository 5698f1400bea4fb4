// Writes the text machines that bench/compare_with_peer.sh feeds to both toolkits:
//   words.fst   a union of 10,000 random words (epsilon arcs from the union's start)
//   random.fst  a random acyclic acceptor of 50,000 states, a fifth of its arcs epsilon
#include <cstdio>
#include <random>
#include <string>

#include "FST.h"

int main(int argc, char** argv) {
  std::string dir = argc > 1 ? argv[1] : ".";
  std::mt19937 rng(7);
  int letters[26];
  for (int i = 0; i < 26; ++i) letters[i] = FSTstring_map[std::string(1, char('a' + i))];

  fst::vector<FSTGeneric> words;
  for (int w = 0; w < 10000; ++w) {
    FSTGeneric m = FSTBasic(FSTMinPlus);
    m->set_initial(0);
    int length = 3 + int(rng() % 6);
    for (int i = 0; i < length; ++i) {
      int l = letters[rng() % 26];
      m->add_arc(i, i + 1, l, l, float(rng() % 8) * 0.25f);
    }
    m->set_final(length, 0);
    words.push_back(m);
  }
  FSTBasic(FSTUnion(words))->dump_ascii(dir + "/words.fst", true);

  int const n = 50000;
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->add_states(n);
  m->set_initial(0);
  for (int p = 0; p + 1 < n; ++p) {
    for (int k = 0; k < 2; ++k) {
      int q = p + 1 + int(rng() % std::min(20u, unsigned(n - 1 - p)));
      int l = rng() % 5 == 0 ? 0 : letters[rng() % 26];
      m->add_arc(p, q, l, l, float(rng() % 8) * 0.25f);
    }
    if (rng() % 50 == 0) m->set_final(p, 0.5f);
  }
  m->set_final(n - 1, 0);
  m->dump_ascii(dir + "/random.fst", true);
  return 0;
}
