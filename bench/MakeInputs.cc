// Writes the text machines that the comparison scripts feed to both toolkits.
//   t2sfst_bench_inputs DIR          words.fst (a union of 10,000 random words, epsilon arcs
//                                    from the union's start) and random.fst (a random acyclic
//                                    acceptor of 50,000 states, a fifth of its arcs epsilon)
//   t2sfst_bench_inputs DIR words N  words_N.fst: N random weighted words in the shape of a
//                                    union, written directly
//   t2sfst_bench_inputs DIR alternatives N   alternatives.gram: one public rule of N
//                                    alternatives of 1-4 words (from a 5,000-word vocabulary)
//   t2sfst_bench_inputs DIR rules N  rules.gram: N rules calling each other (see WriteRules)
//   t2sfst_bench_inputs DIR compose N  machines for composition, each as DIR/NAME.fst (our text)
//                                    and DIR/NAME.att (AT&T, numeric labels: letters 1-26,
//                                    words from 100): lexicon (a closure of N words, letters to
//                                    word), sentences (N/10 sentences of 1-5 of those words),
//                                    words (N words as letters), r1 (each letter to the next),
//                                    r2 (vowels deleted), r3 (a separator after each letter,
//                                    read from epsilon)
//   t2sfst_bench_inputs DIR lexicon|closure|cyclic N  DIR/FAMILY.fst and .att: the families
//                                    that the optimisation pipeline is measured on (see
//                                    WriteOptimizeFamily)
//   t2sfst_bench_inputs DIR phrases N  phrases.gram: N phrases of 1-4 "spoken:written" tokens;
//                                    phrases.txt: 200,000 lines, each one phrase (for whole-line
//                                    decoding); recognised.txt: 200,000 lines of phrases among
//                                    other words (for rewriting)
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

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

std::string Word(std::mt19937& rng) {
  unsigned w = rng() % 5000;
  std::string text;
  do {
    text += char('a' + w % 26);
    w /= 26;
  } while (w);
  return text;
}

void WriteAlternatives(std::string const& path, long n) {
  std::ofstream out(path);
  std::mt19937 rng(12);
  out << "#JSGF V1.0;\ngrammar alternatives;\npublic <all> =";
  for (long i = 0; i < n; ++i) {
    out << (i ? "\n  | " : " ");
    for (int k = 1 + int(rng() % 4); k > 0; --k) out << Word(rng) << (k > 1 ? " " : "");
  }
  out << ";\n";
}

// Rule i: a middle call to one of ten small shared rules, then a tail call to rule i + 1, or
// a tail call back to an earlier rule (so the rules form right-recursive cycles), or one word.
void WriteRules(std::string const& path, long n) {
  std::ofstream out(path);
  std::mt19937 rng(13);
  out << "#JSGF V1.0;\ngrammar rules;\npublic <top> = <r0>;\n";
  for (int k = 0; k < 10; ++k)
    out << "<leaf" << k << "> = " << Word(rng) << " | " << Word(rng) << " | " << Word(rng) << ";\n";
  for (long i = 0; i < n; ++i) {
    out << "<r" << i << "> = " << Word(rng);
    if (i + 1 < n) out << " | " << Word(rng) << " <leaf" << rng() % 10 << "> <r" << i + 1 << ">";
    if (i > 0) out << " | " << Word(rng) << " " << Word(rng) << " <r" << rng() % i << ">";
    out << ";\n";
  }
}

void WritePhrases(std::string const& dir, long n) {
  std::mt19937 rng(14);
  std::vector<std::vector<std::string>> phrases;
  std::ofstream gram(dir + "/phrases.gram");
  gram << "#JSGF V1.0;\ngrammar phrases;\npublic <phrase> =";
  for (long i = 0; i < n; ++i) {
    std::vector<std::string> words;
    gram << (i ? "\n  | " : " ");
    for (int k = 1 + int(rng() % 4); k > 0; --k) {
      words.push_back(Word(rng));
      gram << words.back() << ":" << words.back().size() << (k > 1 ? " " : "");
    }
    phrases.push_back(words);
  }
  gram << ";\n";
  std::ofstream whole(dir + "/phrases.txt"), recognised(dir + "/recognised.txt");
  for (int line = 0; line < 200000; ++line) {
    auto const& p = phrases[rng() % phrases.size()];
    for (size_t k = 0; k < p.size(); ++k) whole << (k ? " " : "") << p[k];
    whole << "\n";
    for (int piece = 0; piece < 6; ++piece) {
      if (piece) recognised << " ";
      if (rng() % 2) {
        auto const& q = phrases[rng() % phrases.size()];
        for (size_t k = 0; k < q.size(); ++k) recognised << (k ? " " : "") << q[k];
      } else {
        recognised << "the" << rng() % 1000;
      }
    }
    recognised << "\n";
  }
}

// A machine written twice, as our text and as AT&T text with the same numeric labels.
struct TwoFormats {
  TwoFormats(std::string const& dir, std::string const& name)
      : text(dir + "/" + name + ".fst"), att(dir + "/" + name + ".att") {
    text << "#FSTBasic MinPlus\nI 0\n";
  }
  void arc(long from, long to, int in, int out, float w = 0) {
    text << "T " << from << " " << to << " " << label(in) << " " << label(out);
    if (w != 0) text << " " << w;
    text << "\n";
    att << from << "\t" << to << "\t" << in << "\t" << out << "\t" << w << "\n";
  }
  // AT&T text names the start state by its first line: final lines go last.
  void final(long p) {
    text << "F " << p << "\n";
    finals.push_back(p);
  }
  ~TwoFormats() {
    for (long p : finals) att << p << "\n";
  }
  static std::string label(int l) { return l ? std::to_string(l) : ","; }
  std::ofstream text, att;
  std::vector<long> finals;
};

// Pseudo-words of 1-4 consonant-vowel syllables, as AT&T labels 1-26 (a-z); the same n words
// for every family of one size.
std::vector<std::vector<int>> PseudoWords(long n) {
  std::mt19937 rng(16);
  static int const consonants[] = {2, 3, 4, 6, 7, 8, 10, 11, 12, 13, 14, 16, 18, 19, 20, 22, 26};
  static int const vowels[] = {1, 5, 9, 15, 21};
  std::vector<std::vector<int>> words(static_cast<size_t>(n));
  for (auto& w : words)
    for (int k = 1 + int(rng() % 4); k > 0; --k) {
      w.push_back(consonants[rng() % 17]);
      w.push_back(vowels[rng() % 5]);
    }
  return words;
}

// Zipf costs: the word of rank r costs ln r (in the first arc).
float ZipfCost(long rank) { return float(std::log(double(rank + 1))); }

// lexicon: the union of n pseudo-words as chains leaving state 0, no epsilon arc.
// closure: the Kleene closure of the union of the n words, each followed by a separator (label
// 27): an epsilon arc into every word, all words ending in one state that returns to the start.
// cyclic: a random deterministic acceptor of n states (alphabet 26, 3 arcs a state, random
// costs) blown up into an equivalent nondeterministic one: two copies of each state, each arc
// to a random copy (sometimes to both), epsilon arcs from one copy to the other.
void WriteOptimizeFamily(std::string const& dir, std::string const& family, long n) {
  TwoFormats out(dir, family);
  if (family == "lexicon" || family == "closure") {
    auto const words = PseudoWords(n);
    bool const closure = family == "closure";
    // The closure's words all end in state 1, which returns to 0 by an epsilon arc.
    long next = closure ? 2 : 1;
    for (long i = 0; i < n; ++i) {
      auto const& w = words[size_t(i)];
      long from = 0;
      if (closure) out.arc(0, next, 0, 0, ZipfCost(i)), from = next++;
      for (size_t k = 0; k < w.size(); ++k) {
        out.arc(from, next, w[k], w[k], k || closure ? 0 : ZipfCost(i));
        from = next++;
      }
      if (closure)
        out.arc(from, 1, 27, 27);
      else
        out.final(from);
    }
    if (closure) out.arc(1, 0, 0, 0), out.final(0);
    return;
  }
  std::mt19937 rng(17);
  auto copy = [&](long q) { return 2 * q + long(rng() % 2); };
  for (long p = 0; p < n; ++p) {
    int labels[3];
    for (int k = 0; k < 3; ++k) {
      do labels[k] = 1 + int(rng() % 26);
      while (std::count(labels, labels + k, labels[k]));
      long q = long(rng() % unsigned(n));
      float w = float(rng() % 16) * 0.25f;
      for (long c = 0; c < 2; ++c) {
        long const to = copy(q);
        out.arc(2 * p + c, to, labels[k], labels[k], w);
        if (rng() % 4 == 0) out.arc(2 * p + c, to ^ 1, labels[k], labels[k], w);
      }
    }
    if (rng() % 3 == 0) out.arc(2 * p, 2 * p + 1, 0, 0);
    if (rng() % 8 == 0) out.final(2 * p), out.final(2 * p + 1);
  }
}

void WriteCompose(std::string const& dir, long n) {
  std::mt19937 rng(15);
  std::vector<std::vector<int>> words(static_cast<size_t>(n));
  for (auto& w : words)
    for (int k = 3 + int(rng() % 6); k > 0; --k) w.push_back(1 + int(rng() % 26));
  {
    TwoFormats lexicon(dir, "lexicon");
    lexicon.final(0);
    long next = 1;
    for (long i = 0; i < n; ++i) {
      auto const& w = words[size_t(i)];
      for (size_t k = 0; k < w.size(); ++k) {
        long from = k ? next - 1 : 0, to = k + 1 == w.size() ? 0 : next++;
        lexicon.arc(from, to, w[k], k ? 0 : int(100 + i), k ? 0 : float(rng() % 4) * 0.5f);
      }
    }
  }
  {
    TwoFormats sentences(dir, "sentences");
    sentences.final(1);
    long next = 2;
    for (long s = 0; s < n / 10; ++s) {
      long from = 0;
      for (int k = 1 + int(rng() % 5); k > 0; --k) {
        long to = k == 1 ? 1 : next++;
        int word = int(100 + rng() % unsigned(n));
        sentences.arc(from, to, word, word, float(rng() % 4) * 0.5f);
        from = to;
      }
    }
  }
  {
    TwoFormats all(dir, "words");
    all.final(1);
    long next = 2;
    for (auto const& w : words)
      for (size_t k = 0; k < w.size(); ++k) {
        long from = k ? next - 1 : 0, to = k + 1 == w.size() ? 1 : next++;
        all.arc(from, to, w[k], w[k], float(rng() % 4) * 0.5f);
      }
  }
  TwoFormats r1(dir, "r1"), r2(dir, "r2"), r3(dir, "r3");
  r1.final(0), r2.final(0), r3.final(0);
  for (int l = 1; l <= 26; ++l) {
    r1.arc(0, 0, l, l % 26 + 1);
    bool vowel = l == 1 || l == 5 || l == 9 || l == 15 || l == 21;
    r2.arc(0, 0, l, vowel ? 0 : l);
    r3.arc(0, 1, l, l);
  }
  r3.arc(1, 0, 0, 27);
}

}  // namespace

int main(int argc, char** argv) {
  std::string dir = argc > 1 ? argv[1] : ".";
  std::string what = argc > 3 ? argv[2] : "";
  if (what == "words") {
    WriteWordUnion(dir + "/words_" + argv[3] + ".fst", std::stol(argv[3]));
    return 0;
  }
  if (what == "alternatives") {
    WriteAlternatives(dir + "/alternatives.gram", std::stol(argv[3]));
    return 0;
  }
  if (what == "phrases") {
    WritePhrases(dir, std::stol(argv[3]));
    return 0;
  }
  if (what == "compose") {
    WriteCompose(dir, std::stol(argv[3]));
    return 0;
  }
  if (what == "lexicon" || what == "closure" || what == "cyclic") {
    WriteOptimizeFamily(dir, what, std::stol(argv[3]));
    return 0;
  }
  if (what == "rules") {
    WriteRules(dir + "/rules.gram", std::stol(argv[3]));
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
