#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <random>
#include <sstream>

#include "FST.h"
#include "TestUtil.h"

namespace {

using ::testing::KilledBySignal;

FSTGeneric SmallModel() {
  std::ifstream in(std::string(T2SFST_TESTS_DATA) + "/small.arpa");
  FSTGeneric model;
  std::string error;
  EXPECT_TRUE(FSTNgramReadArpa(in, "small.arpa", model, error)) << error;
  return model;
}

std::vector<int> Ids(std::string const& text) {
  std::istringstream in(text);
  std::vector<int> ids;
  for (std::string w; in >> w;) ids.push_back(FSTstring_map[w]);
  return ids;
}

// The cost of "<s> words </s>" from the tables, from a walk through a machine's word queries.
float TableCost(FSTNgramRep const& m, std::string const& words) {
  std::vector<int> history = Ids("<s>");
  float total = 0;
  for (int w : Ids(words)) total += m.cost(history, w), history.push_back(w);
  return total + m.cost(history, FSTstring_map["</s>"]);
}

float WalkCost(FSTGeneric const& view, std::string const& words) {
  int state = view->initial();
  float total = 0;
  for (int w : Ids(words)) {
    FSTArcIter arcs = view->arcs_out_with_input(state, w);
    if (arcs.done()) return 1e30f;
    total += (*arcs)->weight;
    state = (*arcs)->to;
  }
  return total + view->final_weight(state);
}

TEST(Ngram, HandComputedScoresAndViews) {
  FSTGeneric model = SmallModel();
  FSTNgramRep const* m = FSTNgramCast(model);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(model->name, "FSTNgram3");
  EXPECT_EQ(m->order(), 3);
  float const ln10 = float(std::log(10.0));
  struct Case {
    char const* words;
    float log10;
  } const cases[] = {
      {"a b", -0.3f - 0.2f - 0.1f},                  // every step a full n-gram
      {"b a", (-0.5f - 0.8f) + (-0.2f - 0.6f) + (-0.3f - 1.0f)},  // back-offs at every level
      {"a a b", -0.3f + (-0.1f - 0.7f) - 0.4f - 0.1f},  // trigram missing, bigram present
      {"<unk>", (-0.5f - 1.2f) - 1.0f},
  };
  for (Case const& c : cases) {
    float want = -c.log10 * ln10;
    EXPECT_NEAR(TableCost(*m, c.words), want, 1e-4) << c.words;
    EXPECT_NEAR(WalkCost(FSTBackoff(model, false), c.words), want, 1e-4) << c.words;
    EXPECT_NEAR(WalkCost(FSTNgramDeterminize(model), c.words), want, 1e-4) << c.words;
  }
  EXPECT_GT(m->cost(Ids("<s>"), FSTstring_map["unseen"]), 1e29f);

  // Random sentences: the tables, the back-off view and the epsilon-free view agree.
  std::mt19937 rng(41);
  std::vector<std::string> vocabulary{"a", "b", "<unk>"};
  for (int round = 0; round < 200; ++round) {
    std::string words;
    for (int k = int(rng() % 6); k > 0; --k) words += vocabulary[rng() % 3] + " ";
    float want = TableCost(*m, words);
    EXPECT_NEAR(WalkCost(FSTBackoff(model, false), words), want, 1e-3) << words;
    EXPECT_NEAR(WalkCost(FSTNgramDeterminize(model), words), want, 1e-3) << words;
    EXPECT_NEAR(TableCost(*FSTNgramCast(FSTNgramInvert(model)), words), -want, 1e-3) << words;
  }
  // No epsilon arc left in the determinized view, one arc per word.
  FSTGeneric det = FSTBasic(FSTNgramDeterminize(model));
  for (int p : det->states()) {
    std::set<int> seen;
    for (FSTArc* a : det->arcs_out(p)) EXPECT_TRUE(a->input != 0 && seen.insert(a->input).second);
  }
}

TEST(Ngram, TextFormatSubtractAndClassedWords) {
  FSTGeneric model = SmallModel();
  std::ostringstream text;
  FSTNgramCast(model)->dump_ngram(text);
  EXPECT_EQ(text.str().substr(0, 28), "#FSTNgram3 Version=2\norder 3");
  std::istringstream in(text.str());
  FSTGeneric back = FSTLoadStream(in);
  ASSERT_NE(FSTNgramCast(back), nullptr);
  std::ostringstream again;
  FSTNgramCast(back)->dump_ngram(again);
  EXPECT_EQ(again.str(), text.str());
  EXPECT_EQ(Describe(back), Describe(model));

  // A model minus itself costs nothing on its own n-grams.
  FSTGeneric difference = FSTNgramSubtract(model, model);
  FSTNgramRep const* zero = FSTNgramCast(difference);
  for (char const* words : {"a b", "a a b"}) EXPECT_NEAR(TableCost(*zero, words), 0, 1e-4) << words;

  // A word added to a class goes where the class goes, at the class's cost plus its own.
  FSTGeneric classed = FSTNgramAddClassedWord(model, "<unk>", "zorro", 2.0f);
  EXPECT_NEAR(TableCost(*FSTNgramCast(classed), "zorro"),
              TableCost(*FSTNgramCast(model), "<unk>") + 2.0f, 1e-4);
  EXPECT_NEAR(WalkCost(FSTBackoff(classed, false), "zorro"),
              TableCost(*FSTNgramCast(model), "<unk>") + 2.0f, 1e-4);

  std::istringstream bad("order 3\nngrams 1 1\n-1 a\nngrams 2 x\n");
  EXPECT_EXIT(FSTNgramReadText(bad, "FSTNgram3 Version=2", 3), KilledBySignal(SIGABRT),
              "^FATAL: FSTNgram3 file, line 5: expected \"ngrams K COUNT\"\n");
}

TEST(Ngram, ArpaErrorsNameTheLine) {
  auto error_of = [](std::string const& text) {
    std::istringstream in(text);
    FSTGeneric m;
    std::string error;
    return FSTNgramReadArpa(in, "m.arpa", m, error) ? std::string("ok") : error;
  };
  EXPECT_EQ(error_of("\\data\\\nngram 1=1\n\n\\1-grams:\n-1 a\n\\end\\\n"),
            "m.arpa, line 3: unigram-only models are not supported (orders 2 and 3 are)");
  EXPECT_EQ(error_of("\\data\\\nngram 1=1\nngram 2=1\nngram 3=1\nngram 4=1\n"),
            "m.arpa, line 6: 4-gram models are not supported (orders 2 and 3 are)");
  EXPECT_EQ(error_of("\\data\\\nngram 1=1\nngram 2=1\n\n\\1-grams:\n-1 a\n\n\\2-grams:\n-1 a b\n"),
            "m.arpa, line 9: an n-gram whose history or suffix is not in the model: -1 a b");
  EXPECT_EQ(error_of("\\data\\\nngram 1=2\nngram 2=0\n\n\\1-grams:\n-1 a\nx b\n"),
            "m.arpa, line 7: expected 1 words between a log10 probability and an optional back-off");
  EXPECT_EQ(error_of("hello\n"), "m.arpa, line 2: no \\data\\ section");
  EXPECT_EQ(error_of("\\data\\\nngram 1=1\nngram 2=0\n\n\\1-grams:\n-1 a" + std::string(1, '\0') + "b\n"),
            "m.arpa, line 6: a word holds a NUL byte");
  EXPECT_EQ(error_of("\\data\\\nngram 1=1\nngram 2=0\n\n\\1-grams:\n-1 a\n\n\\2-grams:\n\\end\\\n"), "ok");
}

TEST(ScalarQuantizer, LevelsOnKnownDistributions) {
  std::vector<double> uniform;
  for (int i = 0; i < 10000; ++i) uniform.push_back((i + 0.5) / 10000);
  double previous_error = 1e9;
  for (unsigned bits = 1; bits <= 5; ++bits) {
    sq_trainer* t = sq_trainer_lloyd_max_new(bits);
    sq_trainer_incorporate_sequence(t, uniform.data(), uniform.size());
    sq_quantizer* q = sq_trainer_train(t);
    unsigned n = sq_quantizer_n_levels(q);
    EXPECT_EQ(n, 1u << bits);
    double error = 0;
    for (unsigned i = 0; i < n; ++i) {
      // Uniform data: the optimal levels are the cell centres.
      EXPECT_NEAR(sq_quantizer_level(q, i), (i + 0.5) / n, 2e-3) << bits;
      if (i) {
        EXPECT_LT(sq_quantizer_level(q, i - 1), sq_quantizer_level(q, i));
      }
    }
    for (double v : uniform) {
      double d = v - sq_quantizer_level(q, sq_quantize(q, v));
      error += d * d;
    }
    EXPECT_LT(error, previous_error);
    previous_error = error;
    sq_quantizer_delete(q);
    sq_trainer_delete(t);
  }
  // Two clusters and two levels: one level each.
  sq_trainer* t = sq_trainer_lloyd_max_new(1);
  for (int i = 0; i < 100; ++i) sq_trainer_incorporate(t, i % 2 ? 10.0 + i * 1e-3 : -5.0);
  sq_quantizer* q = sq_trainer_train(t);
  EXPECT_NEAR(sq_quantizer_level(q, 0), -5.0, 1e-9);
  EXPECT_NEAR(sq_quantizer_level(q, 1), 10.05, 1e-9);
  EXPECT_EQ(sq_quantize(q, -100), 0u);
  EXPECT_EQ(sq_quantize(q, 100), 1u);
  sq_quantizer_delete(q);
  EXPECT_EQ(sq_trainer_train(nullptr), nullptr);
  sq_trainer_delete(t);
  EXPECT_EQ(sq_trainer_lloyd_max_new(0), nullptr);
}

TEST(Md5, Rfc1321TestVectors) {
  EXPECT_EQ(FSTMd5Hex(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(FSTMd5Hex("a"), "0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(FSTMd5Hex("abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(FSTMd5Hex("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(FSTMd5Hex("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
  EXPECT_EQ(FSTMd5Hex("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
            "d174ab98d277d9f5a5611c2c9f419d9f");
  std::string digits;
  for (int i = 0; i < 8; ++i) digits += "1234567890";
  EXPECT_EQ(FSTMd5Hex(digits), "57edf4a22be3c955ac49da2e2107b67a");
  FSTMd5 pieces;  // the same bytes in uneven pieces
  for (size_t i = 0; i < digits.size(); i += 7) pieces.update(digits.data() + i, std::min<size_t>(7, digits.size() - i));
  EXPECT_EQ(pieces.hex(), "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Ngram, PackedFileAndCommands) {
  std::string tool = T2SFST_TOOL, arpa = std::string(T2SFST_TESTS_DATA) + "/small.arpa";
  std::string model = WriteTempFile("small.ngram", ""), packed = WriteTempFile("small.packed", "");
  CommandResult r = RunCommand(tool + " ngram-compile " + arpa + " " + model);
  ASSERT_EQ(r.status, 0) << r.err;
  r = RunCommand(tool + " ngram-score " + model + " 'a b' 'b a' 'c'");
  EXPECT_EQ(r.out, "1.3816\n7.8288\n6.2170\n");  // c is <unk>
  // Perplexity: exp of those costs over the 8 words scored ("</s>" included).
  r = RunCommand(tool + " ngram-score --perplexity " + model + " 'a b' 'b a' 'c'");
  EXPECT_EQ(r.out, "sentences 3, words 8, out of vocabulary 1, cost 15.4273, perplexity 6.8786\n");
  r = RunCommand(tool + " ngram-pack " + model + " " + packed);
  ASSERT_EQ(r.status, 0) << r.err;
  std::ifstream in(packed, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(bytes.substr(0, 8), "T2SNGRAM");
  EXPECT_EQ(r.out, "MD5 (" + packed + ") = " + FSTMd5Hex(bytes) + "\n");
  // Read back, the packed file is the model (this one has fewer values than levels: exact),
  // for the library and for every command.
  std::istringstream packed_in(bytes);
  FSTGeneric unpacked = FSTNgramLoadPacked(packed_in, packed);
  FSTGeneric original = FSTLoad(model);
  FSTNgramTables const &u = FSTNgramCast(unpacked)->tables(), &o = FSTNgramCast(original)->tables();
  ASSERT_EQ(u.entries.size(), o.entries.size());
  for (auto const& [key, entry] : o.entries) {
    ASSERT_TRUE(u.entries.count(key));
    EXPECT_NEAR(u.entries.at(key).cost, entry.cost, 1e-5f);
    EXPECT_NEAR(u.entries.at(key).backoff, entry.backoff, 1e-5f);
  }
  EXPECT_EQ(RunCommand(tool + " ngram-score " + packed + " 'a b' 'b a' 'c'").out,
            "1.3816\n7.8288\n6.2170\n");
  EXPECT_NE(RunCommand(tool + " info " + packed).out.find("representation    FSTNgram"),
            std::string::npos);
  r = RunCommand(tool + " ngram-score " + WriteTempFile("cut.packed", bytes.substr(0, 40)) + " a");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("cut.packed is truncated"), std::string::npos) << r.err;
  r = RunCommand(tool + " ngram-compile " + WriteTempFile("bad.arpa", "\\data\\\nngram 1=1\n") + " " + model);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("line 3: unigram-only"), std::string::npos) << r.err;
  // Without an unknown-word token, a word outside the vocabulary is named and costs inf.
  std::string no_unk = WriteTempFile("nounk.arpa", "\\data\\\nngram 1=3\nngram 2=1\n\n\\1-grams:\n"
                                                   "-1 </s>\n-99 <s> -0.5\n-0.5 a\n\n\\2-grams:\n-0.2 <s> a\n\n\\end\\\n");
  RunCommand(tool + " ngram-compile " + no_unk + " " + model);
  r = RunCommand(tool + " ngram-score " + model + " 'a zz'");
  EXPECT_EQ(r.out, "inf\n");
  EXPECT_EQ(r.err, "t2sfst ngram-score: line 1: word 'zz' is not in the vocabulary\n");
  EXPECT_EQ(r.status, 1);
  // For perplexity it is counted and left out: "a" after "<s>", then "</s>" as if it began.
  r = RunCommand(tool + " ngram-score --perplexity " + model + " 'a zz' 'a'");
  EXPECT_EQ(r.out.substr(0, r.out.find(", cost")), "sentences 2, words 4, out of vocabulary 1")
      << r.out;
  EXPECT_EQ(r.status, 0);
  // ngram_det and ngram_invert in expressions.
  r = RunCommand(tool + " info 'ngram_invert(" + model + ")'");
  EXPECT_NE(r.out.find("representation    FSTNgram2"), std::string::npos) << r.err;
  r = RunCommand(tool + " info 'ngram_det(" + model + ")'");
  EXPECT_NE(r.out.find("representation    FSTNgramDeterminize"), std::string::npos) << r.err;
}

}  // namespace

namespace {

// A pruned model keeps the trigram "a b c" without the bigram "b c": after it the history is
// "c", and "b c" backs off at no cost.
TEST(Ngram, PrunedTrigramsBackOffThroughTheLongestHistory) {
  std::istringstream in(
      "\\data\\\nngram 1=5\nngram 2=3\nngram 3=2\n\n\\1-grams:\n-1 <s> -0.5\n-1 </s>\n"
      "-0.7 a -0.2\n-0.8 b -0.3\n-0.9 c -0.1\n\n\\2-grams:\n-0.3 <s> a -0.25\n-0.4 a b -0.15\n"
      "-0.5 c </s>\n\n\\3-grams:\n-0.2 <s> a b\n-0.1 a b c\n\\end\\\n");
  FSTGeneric model;
  std::string error;
  ASSERT_TRUE(FSTNgramReadArpa(in, "pruned.arpa", model, error)) << error;
  std::stringstream text;
  FSTNgramCast(model)->dump_ngram(text);
  FSTGeneric reloaded = FSTLoadStream(text);
  ASSERT_NE(FSTNgramCast(reloaded), nullptr);
  float const ln10 = float(std::log(10.0));
  for (FSTGeneric const& m : {model, reloaded}) {
    EXPECT_NEAR(TableCost(*FSTNgramCast(m), "a b c"), 1.1f * ln10, 1e-4);
    EXPECT_NEAR(WalkCost(FSTBackoff(m, false), "a b c"), 1.1f * ln10, 1e-4);
    // P(c | b c) backs off to P(c | c), then to P(c) with c's back-off; P(</s> | c c) is c </s>.
    float const cc = (0.3f + 0.2f + 0.1f + 0.1f + 0.9f + 0.5f) * ln10;
    EXPECT_NEAR(TableCost(*FSTNgramCast(m), "a b c c"), cc, 1e-4);
    EXPECT_NEAR(WalkCost(FSTBackoff(m, false), "a b c c"), cc, 1e-4);
  }
}

}  // namespace

namespace {

// A random back-off model of order 2 or 3 over a few words: every history present (as the
// readers require), some trigrams without their suffix bigram, maybe an unknown-word token.
FSTGeneric RandomModel(std::mt19937& rng, int order, bool with_unknown) {
  std::uniform_real_distribution<float> cost(0.1f, 6.0f);
  std::vector<std::string> words{"<s>", "</s>", "a", "b", "c", "d", "e"};
  if (with_unknown) words.push_back("<unk>");
  FSTNgramTables tables;
  tables.order = order;
  std::vector<std::vector<int>> bigrams;
  for (std::string const& w : words) tables.add({FSTstring_map[w]}, cost(rng), cost(rng) - 3);
  for (std::string const& x : words)
    for (std::string const& y : words)
      if (y != "<s>" && x != "</s>" && rng() % 2) {
        std::vector<int> key{FSTstring_map[x], FSTstring_map[y]};
        tables.add(key, cost(rng), rng() % 3 ? cost(rng) - 3 : 0.0f);
        bigrams.push_back(key);
      }
  if (order == 3)
    for (std::vector<int> const& h : bigrams)
      for (std::string const& z : words)
        if (z != "<s>" && h[1] != FSTstring_map["</s>"] && rng() % 3 == 0)
          tables.add({h[0], h[1], FSTstring_map[z]}, cost(rng), 0);
  FSTGeneric model = FSTNgramFromTables(std::move(tables));
  return rng() % 2 ? FSTNgramAddClassedWord(model, "e", "zed", cost(rng)) : model;
}

std::string CompiledBytes(FSTGeneric const& model) {
  std::ostringstream out;
  FSTNgramDumpBinary(model, out);
  return out.str();
}

// The compiled file scores every sentence exactly as the model it was compiled from, and reads
// back as that model; a damaged file stops with a message naming it.
TEST(Ngram, CompiledFileScoresAsTheModel) {
  std::mt19937 rng(7);
  std::vector<std::string> const tokens{"a", "b", "c", "d", "e", "zed", "<unk>", "oov", "<s>"};
  for (int round = 0; round < 24; ++round) {
    FSTGeneric model = RandomModel(rng, 2 + round % 2, round % 3 != 0);
    FSTNgramRep const* m = FSTNgramCast(model);
    std::string const bytes = CompiledBytes(model);
    std::unique_ptr<FSTNgramBinary> compiled = FSTNgramBinary::FromBytes(bytes, "random");
    EXPECT_EQ(compiled->ngrams(), m->tables().entries.size());
    FSTGeneric back = FSTNgramFromTables(compiled->tables());
    for (int s = 0; s < 60; ++s) {
      std::string sentence;
      for (int k = int(rng() % 7); k > 0; --k) sentence += tokens[rng() % tokens.size()] + "  ";
      FSTNgramSentenceScore const want = m->score(sentence), got = compiled->score(sentence),
                                  again = FSTNgramCast(back)->score(sentence);
      for (FSTNgramSentenceScore const& x : {got, again}) {
        EXPECT_EQ(x.cost, want.cost) << sentence;
        EXPECT_EQ(x.words, want.words);
        EXPECT_EQ(x.oov, want.oov);
        EXPECT_EQ(x.first_oov, want.first_oov);
      }
    }
    EXPECT_EQ(CompiledBytes(back), bytes);  // compiling is a function of the model alone
  }
  std::string const bytes = CompiledBytes(SmallModel());
  EXPECT_EXIT(FSTNgramBinary::FromBytes(bytes.substr(0, bytes.size() - 1), "cut"),
              KilledBySignal(SIGABRT), "^FATAL: FSTNgramLoadBinary: cut is truncated\n");
  std::string odd = bytes;
  odd[24] = 3, odd[25] = odd[26] = odd[27] = 0;  // hash slots: not a power of two
  EXPECT_EXIT(FSTNgramBinary::FromBytes(odd, "odd"), KilledBySignal(SIGABRT),
              "^FATAL: FSTNgramLoadBinary: odd is inconsistent: a hash table too small\n");
  std::string tool = T2SFST_TOOL, arpa = std::string(T2SFST_TESTS_DATA) + "/small.arpa";
  std::string file = WriteTempFile("small.bin", "");
  CommandResult r = RunCommand(tool + " ngram-compile --binary " + arpa + " " + file);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(RunCommand(tool + " ngram-score " + file + " 'a b' 'b a' 'c'").out,
            "1.3816\n7.8288\n6.2170\n");
  EXPECT_NE(RunCommand(tool + " info " + file).out.find("representation    FSTNgram3"),
            std::string::npos);
  std::string const cut = WriteTempFile("cut.bin", bytes.substr(0, 60));
  r = RunCommand(tool + " ngram-score " + cut + " a");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "t2sfst ngram-score: FSTNgramLoadBinary: " + cut + " is truncated\n");
}

}  // namespace
