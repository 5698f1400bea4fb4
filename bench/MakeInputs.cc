// Writes the text machines that the comparison scripts feed to both toolkits.
//   t2sfst_bench_inputs DIR          words.fst (a union of 10,000 random words, epsilon arcs
//                                    from the union's start) and random.fst (a random acyclic
//                                    acceptor of 50,000 states, a fifth of its arcs epsilon)
//   t2sfst_bench_inputs DIR words N  words_N.fst: N random weighted words in the shape of a
//                                    union, written directly
#include <cstdio>
#include <fstream>
#include <random>
#include <string>

#include "FST.h"

namespace {

void WriteWordUnion(std::string const& path, long n) {
  std::ofstream out(path);
  std::mt19937 rng(11);
  out << "#FSTBasic MinPlus\nI 0\n";
  long next = 1;
  for (long w = 0; w < n; ++w) {
    int length = 3 + int(rng() % 6);
    out << "T 0 " << next << "\n";  // the union's epsilon arc into the word
    for (int i = 0; i < length; ++i) {
      char letter = char('a' + rng() % 26);
      out << "T " << next + i << " " << next + i + 1 << " " << letter << " " << letter << " "
          << float(rng() % 8) * 0.25f << "\n";
    }
    out << "F " << next + length << "\n";
    next += length + 1;
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::string dir = argc > 1 ? argv[1] : ".";
  if (argc > 3 && std::string(argv[2]) == "words") {
    WriteWordUnion(dir + "/words_" + argv[3] + ".fst", std::stol(argv[3]));
    return 0;
  }
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
