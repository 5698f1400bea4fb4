#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <sstream>

#include "FST.h"
#include "Language.h"
#include "T2sBuilder.h"
#include "T2sModel.h"
#include "TestUtil.h"
#include "t2s_runtime.h"

namespace {

std::string ReadFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// What a model gives for some bytes: its outputs joined by "|", or "no match".
std::string Decode(t2s_model const* model, std::string const& bytes) {
  t2s_decoder* d = t2s_decoder_new(model);
  uint32_t const* outputs;
  size_t n;
  std::string result = "no match";
  if (t2s_decoder_feed(d, bytes.data(), bytes.size()) &&
      t2s_decoder_best(d, &outputs, &n, nullptr)) {
    result.clear();
    for (size_t i = 0; i < n; ++i)
      result += (i ? "|" : "") + std::string(t2s_model_string(model, outputs[i]));
  }
  t2s_decoder_free(d);
  return result;
}

// Every spoken string the grammar defines (up to max_tokens tokens) with its cheapest written
// form, from the compiled grammar itself: a token "spoken:written" spells spoken and writes
// written; a token without ':' writes itself. Spoken strings whose cheapest forms tie are left
// out.
std::map<std::string, std::string> Expected(std::string const& grammar, size_t max_tokens) {
  FSTGeneric m;
  std::string errors;
  EXPECT_TRUE(FSTJsgfParseString(m, errors, grammar.c_str(), false, false, false, false, true))
      << errors;
  std::map<std::string, std::pair<float, std::string>> best;
  std::set<std::string> tied;
  for (auto const& [key, w] : Enumerate(FSTBasic(FSTOptimizeA(m, 1, 0.001f)), max_tokens)) {
    std::string spoken, written;
    for (int label : key.first) {
      std::string token = FSTstring_map[label];
      size_t colon = token.rfind(':');
      spoken += colon == std::string::npos ? token : token.substr(0, colon);
      std::string out = colon == std::string::npos ? token : token.substr(colon + 1);
      if (!out.empty()) written += (written.empty() ? "" : "|") + out;
    }
    auto found = best.find(spoken);
    if (found == best.end() || w < found->second.first - 1e-4f) {
      best[spoken] = {w, written};
      tied.erase(spoken);
    } else if (w < found->second.first + 1e-4f && written != found->second.second) {
      tied.insert(spoken);
    }
  }
  std::map<std::string, std::string> expected;
  for (auto const& [spoken, entry] : best)
    if (!tied.count(spoken)) expected[spoken] = entry.second;
  return expected;
}

t2s_model* Build(std::string const& grammar_path, std::string const& model_path) {
  EXPECT_EQ(MakeT2sModel(grammar_path.c_str(), model_path.c_str()), 0);
  char error[256] = "";
  t2s_model* model = t2s_model_load(model_path.c_str(), error, sizeof error);
  EXPECT_NE(model, nullptr) << error;
  return model;
}

TEST(ModelEndToEnd, ExamplesReproduceEveryPairTheyDefine) {
  // wide: a start state of 52 arcs, which the runtime finds through its table of bytes.
  std::string wide = "public <w> = ";
  for (int i = 0; i < 52; ++i) {
    char letter = char(i < 26 ? 'a' + i : 'A' + i - 26);
    wide += std::string(i ? " | " : "") + letter + "qz:" + std::to_string(i) + " | " + letter +
            "x" + letter + ":w" + std::to_string(i);
  }
  std::string const wide_path = WriteTempFile("wide.gram", wide + ";\n");
  // weighted: "five million" ends where a cheaper path goes on; stopping there must still cost
  // what its own alternative weighs, though the packed model keeps no final weights.
  std::string const weighted_path = WriteTempFile(
      "weighted.gram", "public <t> = /1/ five million | /5/ five million:5000000 | /10/ five "
                       "million dollars | /2/ ten | /3/ ten:10 | /9/ ten four:10-4;\n");
  for (std::string name : {"times", "commands", "wide", "weighted"}) {
    SCOPED_TRACE(name);
    std::string grammar = name == "wide"       ? wide_path
                          : name == "weighted" ? weighted_path
                                               : std::string(T2SFST_EXAMPLES) + "/" + name + ".gram";
    std::string path = WriteTempFile(name + ".model", "");
    t2s_model* model = Build(grammar, path);
    ASSERT_NE(model, nullptr);
    std::map<std::string, std::string> expected = Expected(ReadFile(grammar), 6);
    EXPECT_GT(expected.size(), name == "weighted" ? 3u : 20u);
    for (auto const& [spoken, written] : expected) {
      EXPECT_EQ(Decode(model, spoken), written) << spoken;
      // Outside the language: a byte more, or a spoken string cut short that is not itself one.
      EXPECT_EQ(Decode(model, spoken + "x"), "no match");
      std::string cut = spoken.substr(0, spoken.size() - 1);
      if (!expected.count(cut) && !cut.empty()) {
        EXPECT_EQ(Decode(model, cut), "no match") << cut;
      }
    }
    t2s_model_free(model);
  }
}

TEST(ModelEndToEnd, WeightsTagsAndTheApplyCommand) {
  std::string grammar = WriteTempFile(
      "weights.gram",
      "public <a> = /1/ lights:LIGHT | /3/ lights:LIGHTS | /1/ x {t1} y | /1/ x {t2} z:Z | "
      "/1/ w {only};\n");
  t2s_model* model = Build(grammar, WriteTempFile("weights.model", ""));
  ASSERT_NE(model, nullptr);
  EXPECT_EQ(Decode(model, "lights"), "LIGHTS");  // the cheaper of two outputs
  EXPECT_EQ(Decode(model, "xy"), "x|y");         // tags vanish, their paths stay
  EXPECT_EQ(Decode(model, "xz"), "x|Z");
  EXPECT_EQ(Decode(model, "w"), "w");
  EXPECT_EQ(Decode(model, ""), "no match");
  t2s_model_free(model);

  std::string tool = T2SFST_TOOL;
  std::string time = WriteTempFile(
      "time.gram",
      "public <time> = at <hour> [<part>]; <hour> = one:1 | two:2; <part> = o'clock:h;");
  std::string path = WriteTempFile("time.model", "");
  CommandResult r = RunCommand(tool + " make-model " + time + " " + path);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find(" states, "), std::string::npos);
  r = RunCommand(tool + " apply --rewrite " + path + " \"meet me at one o'clock\"");
  EXPECT_EQ(r.out, "meet me at 1 h\n");
  // Any blanks around and between words; a word that starts no match is copied.
  r = RunCommand("printf ' at\\tat one  o\\047clock\\tat two at \\r\\n' | " + tool +
                 " apply --rewrite " + path);
  EXPECT_EQ(r.out, "at at 1 h at 2 at\n");
  // One output line per input line: a miss is an empty line, and named on standard error.
  r = RunCommand("printf 'at two\\nat three\\n at  one o\\047clock \\n' | " + tool +
                 " apply --sep + " + path);
  EXPECT_EQ(r.out, "at+2\n\nat+1+h\n");
  EXPECT_EQ(r.err, "t2sfst apply: line 2: no match\n");
  EXPECT_EQ(r.status, 1);
  // Batches of hundreds of lines, every one read, the last without a newline: joined in one loop.
  std::string lines, joined;
  for (int i = 0; i < 700; ++i) {
    lines += i % 3 ? "at two\n" : " at  one o'clock\n";
    joined += i % 3 ? "at+2\n" : "at+1+h\n";
  }
  r = RunCommand(tool + " apply --sep + " + path + " < " +
                 WriteTempFile("many.txt", lines + "at two"));
  EXPECT_EQ(r.out, joined + "at+2\n");
  EXPECT_EQ(r.status, 0);
  r = RunCommand(tool + " apply --sep ' ================ ' " + path + " \"at one o'clock\"");
  EXPECT_EQ(r.out, "at ================ 1 ================ h\n");  // pieces longer than 16 bytes
  r = RunCommand(tool + " make-model " + WriteTempFile("bad.gram", "public <a> = (x;") + " " +
                 path);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("syntax error"), std::string::npos);
}

// Several threads write what one writes, byte for byte, misses on standard error in place: over
// blocks of whole lines, a line longer than a block, and a last line without a newline.
TEST(ModelEndToEnd, ApplyInThreadsWritesWhatOneThreadWrites) {
  std::string tool = T2SFST_TOOL;
  std::string grammar = WriteTempFile(
      "jobs.gram", "public <time> = at <hour> [<part>]; <hour> = one:1 | two:2; <part> = o'clock:h;");
  std::string model = WriteTempFile("jobs.model", "");
  ASSERT_EQ(RunCommand(tool + " make-model " + grammar + " " + model).status, 0);
  char const* pieces[] = {"at one", "at two o'clock", "at", "one", "o'clock", "x", "at  two"};
  std::mt19937 random(7);
  std::string input;
  for (int line = 0; line < 150000; ++line) {
    for (int n = int(random() % 5); n > 0; --n) input += pieces[random() % 7] + std::string(" ");
    input += line == 70000 ? std::string(1 << 20, 'z') + "\n" : "\n";
  }
  std::string in = WriteTempFile("jobs.txt", input + "at two");
  for (std::string mode : {"", "--rewrite "}) {
    CommandResult one = RunCommand(tool + " apply -j 1 " + mode + model + " < " + in + " 2>&1");
    EXPECT_EQ(one.status, mode.empty() ? 1 : 0);
    EXPECT_GT(one.out.size(), input.size() / 3);
    for (char const* jobs : {"2", "3"}) {
      CommandResult many =
          RunCommand(tool + " apply -j " + jobs + " " + mode + model + " < " + in + " 2>&1");
      EXPECT_EQ(many.status, one.status);
      EXPECT_TRUE(many.out == one.out) << mode << jobs;
    }
  }
}

// The commands check what the entry point tolerates, show every message at its line, resolve
// imports, and never leave a new empty file or lose an existing model.
TEST(ModelEndToEnd, CommandsCheckGrammarsAndKeepModels) {
  std::string tool = std::string(T2SFST_TOOL) + " make-model ";
  std::string model = WriteTempFile("checked.model", "an existing model");
  auto make = [&](std::string const& grammar, std::string const& options = "") {
    return RunCommand(tool + options + WriteTempFile("checked.gram", grammar) + " " + model);
  };
  CommandResult r = make("public <s> = a <nmae>;\n\n<name> = x;\n<t> = <s>\n | <zz>;\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(".gram:1:16: error: rule <s> refers to undefined rule <nmae>\n"),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find(".gram:5:4: error: rule <t> refers to undefined rule <zz>\n"),
            std::string::npos);
  r = make("public <s> = a <nmae>;", "--allow-undefined ");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.err.find(".gram:1:16: warning: rule <s> refers to undefined rule <nmae>\n"),
            std::string::npos);
  r = make("<s> = x;");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("no public rule"), std::string::npos);
  r = make("public <s> = (/3/ a:A\n | b:B);");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.err.find(".gram:2:7: warning: weights ignored"), std::string::npos) << r.err;
  EXPECT_EQ(make("public <s> = (x;").status, 1);
  std::string const built = ReadFile(model);
  EXPECT_EQ(RunCommand(tool + " /tmp " + model).status, 1);  // a directory as grammar
  EXPECT_EQ(ReadFile(model), built);
  EXPECT_EQ(MakeT2sModel("/tmp", model.c_str()), 1);
  EXPECT_EQ(RunCommand(tool + WriteTempFile("g.gram", "public <s> = x;") + " -").status, 2);
  std::string fresh = WriteTempFile("fresh.model", "");
  std::remove(fresh.c_str());
  EXPECT_EQ(RunCommand(tool + WriteTempFile("bad.gram", "x |;") + " " + fresh).status, 1);
  EXPECT_FALSE(std::ifstream(fresh).good());

  // Imports from -I folders: <pkg.*> and <pkg.rule>, short and full names, private rules kept.
  std::string lib = WriteTempFile("lib", "");
  std::remove(lib.c_str());
  RunCommand("mkdir -p " + lib);
  std::ofstream(lib + "/places.gram")
      << "grammar places;\npublic <city> = \"new york:NYC\" | <pa>;\n<pa> = paris:PAR;\n"
      << "public <port> = dover;\n";
  EXPECT_EQ(make("import <places.*>;\npublic <t> = to <city> | from <places.city> | by <port>;",
                 "-I " + lib + " ")
                .status,
            0);
  t2s_model* m = t2s_model_load(model.c_str(), nullptr, 0);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(Decode(m, "to new york"), "to|NYC");
  EXPECT_EQ(Decode(m, "from paris"), "from|PAR");
  EXPECT_EQ(Decode(m, "by dover"), "by|dover");
  EXPECT_EQ(Decode(m, "new york"), "no match");  // imported rules are not public here
  t2s_model_free(m);
  r = make("import <places.city>;\npublic <t> = <city> | <port>;", "-I " + lib + " ");
  EXPECT_EQ(r.status, 1);  // only <city> was imported
  EXPECT_NE(r.err.find("refers to undefined rule <port>"), std::string::npos) << r.err;
  r = make("import <places.nope>;\npublic <t> = x;", "-I " + lib + " ");
  EXPECT_NE(r.err.find(".gram:1:8: error: import <places.nope>: grammar places has no public "
                       "rule <nope>"),
            std::string::npos)
      << r.err;
  r = make("import <nowhere.x>;\npublic <t> = x;");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("cannot find nowhere.gram or nowhere.jsgf"), std::string::npos);
}

TEST(ModelEndToEnd, FailuresKeepAnExistingModel) {
  std::string path = WriteTempFile("kept.model", "an existing model");
  EXPECT_EQ(MakeT2sModel("/nonexistent/grammar.gram", path.c_str()), 1);
  EXPECT_EQ(MakeT2sModel(WriteTempFile("syntax.gram", "public <a> = x |;;").c_str(), path.c_str()),
            1);
  EXPECT_EQ(MakeT2sModel(WriteTempFile("empty.gram", "").c_str(), path.c_str()), 1);
  EXPECT_EQ(ReadFile(path), "an existing model");
  // After a success the file holds only the packed model, which loads.
  t2s_model* model = Build(WriteTempFile("ok.gram", "public <a> = hello:hi;"), path);
  ASSERT_NE(model, nullptr);
  EXPECT_EQ(Decode(model, "hello"), "hi");
  t2s_model_free(model);
}

TEST(ModelRuntime, RefusesDamagedFiles) {
  std::string path = WriteTempFile("damage.model", "");
  t2s_model* model = Build(WriteTempFile("damage.gram", "public <a> = ab:x | c;"), path);
  ASSERT_NE(model, nullptr);
  t2s_model_free(model);
  std::string good = ReadFile(path);
  char error[256];
  auto refused = [&](std::string const& bytes, char const* reason) {
    t2s_model* m = t2s_model_from_memory(bytes.data(), bytes.size(), error, sizeof error);
    if (m) t2s_model_free(m);
    return m == nullptr && std::string(error).find(reason) != std::string::npos;
  };
  t2s_model* intact = t2s_model_from_memory(good.data(), good.size(), error, sizeof error);
  ASSERT_NE(intact, nullptr) << error;
  t2s_model_free(intact);
  for (size_t n = 0; n < good.size(); ++n)
    EXPECT_TRUE(refused(good.substr(0, n), "truncated")) << n;
  EXPECT_TRUE(refused(good + "x", "bytes after"));
  auto with_u32 = [&](size_t at, uint32_t v) {
    std::string bytes = good;
    for (int i = 0; i < 4; ++i) bytes[at + size_t(i)] = char(v >> (8 * i));
    return bytes;
  };
  uint32_t n_states = uint32_t(uint8_t(good[4])) | uint32_t(uint8_t(good[5])) << 8;
  size_t arcs_at = 8 + 12 * n_states + 4;
  EXPECT_TRUE(refused(with_u32(4, 0x40000000u), "truncated"));  // states count too large
  EXPECT_TRUE(refused(with_u32(0, n_states), "start state"));   // start out of range
  EXPECT_TRUE(refused(with_u32(8 + 4, 1000), "arc range"));     // end_arc past the arcs
  // Ranges that overlap let a small file ask for blocks of gigabytes.
  EXPECT_TRUE(refused(with_u32(8 + 12, 0), "do not follow"));
  EXPECT_TRUE(refused(with_u32(arcs_at + 8, n_states), "arc to a state"));  // next out of range
  EXPECT_TRUE(refused(with_u32(arcs_at + 4, 99), "output string"));         // output out of range
  std::string no_terminator = good;
  no_terminator.back() = 'x';
  EXPECT_TRUE(refused(no_terminator, "string pool"));
  EXPECT_EQ(t2s_model_load("/nonexistent/model", error, sizeof error), nullptr);
  EXPECT_EQ(std::string(error), "cannot open /nonexistent/model");
  // What is not a regular file (a pipe here) is read, not mapped.
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  ASSERT_EQ(write(pipe_ends[1], good.data(), good.size()), ssize_t(good.size()));
  close(pipe_ends[1]);
  std::string const pipe_path = "/dev/fd/" + std::to_string(pipe_ends[0]);
  t2s_model* piped = t2s_model_load(pipe_path.c_str(), error, sizeof error);
  close(pipe_ends[0]);
  ASSERT_NE(piped, nullptr) << error;
  EXPECT_EQ(Decode(piped, "ab"), "x");
  t2s_model_free(piped);

  // A string count that wrapped a 32-bit size product wrote out of bounds.
  std::string const wrapped("\xff\xff\xff\xff\0\0\0\0\0\0\0\0\0\0\0\x40\x01\0\0\0\0", 21);
  EXPECT_TRUE(refused(wrapped, "more strings than bytes"));
  // One state with an epsilon self-loop: negative or NaN, the decoder could loop without end.
  auto loop_model = [](float weight) {
    std::string bytes;
    auto u32 = [&bytes](uint32_t v) {
      for (int i = 0; i < 4; ++i) bytes += char(v >> (8 * i));
    };
    uint32_t bits;
    std::memcpy(&bits, &weight, 4);
    u32(0), u32(1), u32(0), u32(1), u32(1);     // start, one final state with arc 0
    u32(1), u32(0), u32(0), u32(0), u32(bits);  // the arc: epsilon, no output, to 0
    u32(1), u32(1), bytes += '\0';              // the empty string
    return bytes;
  };
  EXPECT_TRUE(refused(loop_model(-1.0f), "epsilon cycle of negative weight through state 0"));
  EXPECT_TRUE(refused(loop_model(std::nanf("")), "not a number"));
  std::string const zero = loop_model(0.0f);
  std::string unowned = zero;
  unowned[12] = 0;  // the one state's arc range ends before its arc
  EXPECT_TRUE(refused(unowned, "arcs that belong to no state"));
  t2s_model* zero_loop = t2s_model_from_memory(zero.data(), zero.size(), error, sizeof error);
  ASSERT_NE(zero_loop, nullptr) << error;
  EXPECT_EQ(Decode(zero_loop, ""), "");
  t2s_model_free(zero_loop);
}

// Blanks between words: read as one blank byte of a token, or skipped; the path that writes
// fewest outputs inside a word wins, then the lowest weight.
TEST(ModelRuntime, WordBoundaries) {
  t2s_model* model =
      Build(WriteTempFile("b.gram", "public <s> = <n>+; <n> = ab:X | cde:Y | abc:Z | de:W;"),
            WriteTempFile("b.model", ""));
  ASSERT_NE(model, nullptr);
  EXPECT_EQ(Decode(model, "ab cde"), "X|Y");
  EXPECT_EQ(Decode(model, "abc de"), "Z|W");
  EXPECT_EQ(Decode(model, " \tab   cde \r\n"), "X|Y");
  EXPECT_EQ(Decode(model, "abcde ab"), Decode(model, "abcde") + "|X");
  t2s_model_free(model);

  model = Build(WriteTempFile("q.gram", "public <c> = \"new york:New York\" | \"la:Los Angeles\";"),
                WriteTempFile("q.model", ""));
  ASSERT_NE(model, nullptr);
  EXPECT_EQ(Decode(model, "new york"), "New York");
  EXPECT_EQ(Decode(model, "new \t york"), "New York");
  EXPECT_EQ(Decode(model, "la"), "Los Angeles");
  EXPECT_EQ(Decode(model, "newyork"), "no match");
  // Fed in pieces, a word split across calls is still one word.
  t2s_decoder* d = t2s_decoder_new(model);
  EXPECT_TRUE(t2s_decoder_feed(d, "ne", 2) && t2s_decoder_feed(d, "w y", 3));
  EXPECT_FALSE(t2s_decoder_accepts(d));
  EXPECT_TRUE(t2s_decoder_feed(d, "ork", 3));
  EXPECT_TRUE(t2s_decoder_accepts(d));
  EXPECT_FALSE(t2s_decoder_feed(d, "x", 1));
  t2s_decoder_free(d);
  t2s_model_free(model);
}

// Grammars of multi-word quoted tokens with blanks inside the written sides: the compiled
// machine survives its text dump, and the model maps each phrase, typed with any blanks between
// its words, to its written form.
TEST(ModelEndToEnd, MultiWordTokensProperty) {
  std::mt19937 rng(11);
  char const blanks[] = {' ', '\t', '\v', '\f'};
  for (int round = 0; round < 12; ++round) {
    // Three-letter words, so no phrase is another with its blanks skipped.
    auto word = [&rng]() {
      std::string w;
      for (int i = 0; i < 3; ++i) w += char('a' + rng() % 6);
      return w;
    };
    std::map<std::vector<std::string>, std::string> phrases;
    std::string grammar = "public <p> = ";
    for (int i = 0, n = 2 + int(rng() % 6); i < n; ++i) {
      std::vector<std::string> words(1 + rng() % 3);
      for (std::string& w : words) w = word();
      if (phrases.count(words)) continue;
      std::string written = "W" + std::to_string(i);
      for (int k = int(rng() % 3); k > 0; --k) written += blanks[rng() % 4] + std::string("w");
      phrases[words] = written;
      std::string spoken;
      for (std::string const& w : words) spoken += (spoken.empty() ? "" : " ") + w;
      grammar += std::string(i ? " | " : "") + "\"" + spoken + ":" + written + "\"";
    }
    grammar += ";\n";
    FSTGeneric m;
    std::string errors;
    ASSERT_TRUE(FSTJsgfParseString(m, errors, grammar.c_str(), false, false, false, false, false))
        << errors;
    m = FSTBasic(FSTOptimizeA(m, 1, 0.001f));
    std::ostringstream text;
    m->dump_ascii(text, true);
    std::istringstream in(text.str());
    EXPECT_EQ(Describe(FSTLoadStream(in)), Describe(m)) << text.str();

    t2s_model* model = Build(WriteTempFile("p.gram", grammar), WriteTempFile("p.model", ""));
    ASSERT_NE(model, nullptr);
    for (auto const& [words, written] : phrases) {
      std::string typed;
      for (std::string const& w : words)
        typed += (typed.empty() ? "" : std::string(1 + rng() % 3, rng() % 2 ? ' ' : '\t')) + w;
      EXPECT_EQ(Decode(model, typed), written) << grammar << typed;
    }
    t2s_model_free(model);
  }
}

// The model as the builder's stages make it one after the other, without its shortcuts.
std::string StagesModel(std::string const& grammar, std::string const& path) {
  FSTGeneric m;
  std::string errors;
  EXPECT_TRUE(FSTJsgfParseString(m, errors, grammar.c_str(), false, false, false, false, true));
  m = FSTProject(FSTOptimizeA(m, 1, 0.001f), FSTArcOrderInput, FSTArcOrderAny);
  std::istringstream text(ConvertLabelToCharValue(m));
  m = T2sFinalWeightsOnArcs(FSTOptimizeA(FSTLoadStream(text), 1, 0.001f));
  std::unique_ptr<FstModel> model(FstDumpBinary(m));
  T2sCanonicalOrder(*model);
  SaveModel(path.c_str(), model.get());
  return ReadFile(path);
}

// Where paths tie the runtime keeps the earlier arc, so the model's order must not follow the
// label numbers a process happened to give: built after the alphabet has seen the grammar's
// strings in another order, the model is the command's byte for byte, and the stages' model
// (the builder leaves out steps that would change nothing); a spoken word with several written
// forms at one cost gets the first of them in byte order.
TEST(ModelEndToEnd, SameModelInAnyProcessAndTiesByByteOrder) {
  std::mt19937 rng(12);
  std::string const tool = T2SFST_TOOL;
  for (int round = 0; round < 12; ++round) {
    bool const weighted = round % 2, tagged = round % 3 == 0, silent = round % 4 == 3;
    std::vector<std::string> strings;  // the grammar's, to be met in a scrambled order
    for (int byte = 0; byte < 256; ++byte) strings.push_back(std::to_string(byte));
    std::map<std::string, std::string> least_written;
    std::string grammar = "public <p> = ";
    for (int i = 0, n = 4 + int(rng() % 12); i < n; ++i) {
      std::string alternative = weighted ? "/" + std::to_string(1 + rng() % 3) + "/ " : "";
      bool const optional = rng() % 4 == 0;
      for (int k = 0, tokens = rng() % 3 ? 1 : 2; k < tokens; ++k) {
        // Spoken sides of one or two letters, and in some grammars empty written sides: at the
        // byte level "a:" then "b:W" reads as "ab:W" does.
        std::string spoken(1 + rng() % 2, 'a');
        for (char& c : spoken) c = char('a' + rng() % 3);
        std::string written = silent && rng() % 3 == 0 ? "" : "W" + std::to_string(rng() % 1000);
        std::string const token = spoken + ":" + written;
        alternative += k == 0 ? token : optional ? " [" + token + "]" : " " + token;
        if (tagged && rng() % 2) alternative += " {t" + std::to_string(k) + "}";
        strings.insert(strings.end(), {written, token});
        if ((tokens == 1 || optional) && k == 0 &&
            (!least_written.count(spoken) || written < least_written[spoken]))
          least_written[spoken] = written;
      }
      grammar += (i ? " | " : "") + alternative;
    }
    grammar += ";\n";
    std::shuffle(strings.begin(), strings.end(), rng);
    for (std::string const& text : strings) (void)FSTstring_map[text];
    std::string const path = WriteTempFile("tie.gram", grammar);
    std::string const here = WriteTempFile("tie_library.t2s", ""),
                      fresh = WriteTempFile("tie_command.t2s", "");
    ASSERT_EQ(RunCommand(tool + " make-model --quiet " + path + " " + fresh).status, 0);
    t2s_model* model = Build(path, here);
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(ReadFile(here), ReadFile(fresh)) << grammar;
    EXPECT_EQ(StagesModel(grammar, WriteTempFile("tie_stages.t2s", "")), ReadFile(here)) << grammar;
    for (auto const& [spoken, written] : least_written) {
      std::string const got = Decode(model, spoken);
      // A two-token alternative may spell the same bytes with the same cost: only a single
      // alternative's forms compete when it does not (and writes something).
      if (!weighted && !silent && got.find('|') == std::string::npos) {
        EXPECT_EQ(got, written) << grammar << spoken;
      }
    }
    t2s_model_free(model);
  }
}

}  // namespace

namespace {

// Outputs that attach ("@@" at either end) join without a separator, in every way of applying
// a model; "\@@" is a literal mark; a model loaded to ignore case reads any capitals.
TEST(ModelEndToEnd, AttachedOutputsAndCase) {
  std::string const grammar = WriteTempFile(
      "attach.gram",
      "#JSGF V1.0;\ngrammar a;\n"
      "public <m> = :$@@ <n> dollars: [and: <cents> cents:] | <n> percent:@@% | x:@@"
      " | \"at sign:\\\\@@\" | mister:mr. | NASA;\n"
      "<n> = four:4 | twelve:12;\n<cents> = sixty:@@.6 nine:@@9;\n");
  std::string const path = WriteTempFile("attach.t2s", "");
  t2s_model* model = Build(grammar, path);
  ASSERT_NE(model, nullptr);
  // The texts and marks of the strings.
  std::map<std::string, std::pair<std::string, int>> strings;
  for (uint32_t i = 0; i < t2s_model_num_strings(model); ++i) {
    size_t length;
    int attach;
    char const* text = t2s_model_text(model, i, &length, &attach);
    strings[t2s_model_string(model, i)] = {std::string(text, length), attach};
  }
  EXPECT_EQ(strings["$@@"], std::make_pair(std::string("$"), T2S_ATTACH_NEXT));
  EXPECT_EQ(strings["@@.6"], std::make_pair(std::string(".6"), T2S_ATTACH_PREVIOUS));
  EXPECT_EQ(strings["@@"], std::make_pair(std::string(""), T2S_ATTACH_PREVIOUS | T2S_ATTACH_NEXT));
  EXPECT_EQ(strings["\\@@"], std::make_pair(std::string("@@"), 0));
  // t2s_model_join, as a C host joins them (with a buffer too small first).
  t2s_decoder* d = t2s_decoder_new(model);
  uint32_t const* outputs;
  size_t n;
  std::string const spoken = "four dollars and sixty nine cents";
  ASSERT_TRUE(t2s_decoder_decode(d, spoken.data(), spoken.size(), &outputs, &n, nullptr));
  char small[3];
  EXPECT_EQ(t2s_model_join(model, outputs, n, " ", small, sizeof small), 5u);
  EXPECT_STREQ(small, "$4");
  t2s_decoder_free(d);
  t2s_model_free(model);

  std::string const tool = T2SFST_TOOL;
  CommandResult r = RunCommand(tool + " apply " + path + " '" + spoken +
                               "' 'twelve percent' 'at sign' 'Mister'");
  EXPECT_EQ(r.out, "$4.69\n12%\n@@\n\n");
  // Rewriting: outputs attach inside their replacement, never to a copied word.
  std::string const text = "it was four dollars and sixty nine cents x today, twelve percent";
  for (char const* jobs : {"-j 1", "-j 2"}) {
    r = RunCommand("echo '" + text + "' | " + tool + " apply --rewrite " + jobs + " " + path);
    EXPECT_EQ(r.out, "it was $4.69 today, 12%\n") << jobs;
  }
  // Case: matched whatever it is; copied words keep theirs; a capital first letter carries
  // over to a written word, not to a sign.
  r = RunCommand(tool + " apply --rewrite --ignore-case " + path +
                 " 'Mister Smith paid Four Dollars to nasa' 'MISTER x'");
  EXPECT_EQ(r.out, "Mr. Smith paid $4 to NASA\nMr.\n");
  EXPECT_EQ(RunCommand(tool + " apply --ignore-case " + path + " 'TWELVE Percent'").out, "12%\n");
  EXPECT_EQ(RunCommand(tool + " apply " + path + " 'TWELVE Percent'").status, 1);
}

}  // namespace

namespace {

// A contact list of 10^5 distinct names fills the rule <contacts> of a command grammar; the
// library call builds the model the command builds.
TEST(ModelEndToEnd, ClassesFillRulesFromPhraseFiles) {
  std::string const tool = T2SFST_TOOL;
  char const* syllables[] = {"ka", "lo", "mi", "ra", "ten", "so", "ve", "lin", "da", "mor",
                             "jo", "an", "el", "ric", "ta", "be", "no", "sha", "gu", "pe"};
  std::ostringstream contacts, few;
  int n = 0;
  for (int a = 0; a < 400 && n < 100000; ++a)
    for (int b = 0; b < 250 && n < 100000; ++b, ++n) {
      std::string first = std::string(syllables[a % 20]) + syllables[a / 20];
      std::string last = std::string(syllables[b % 20]) + syllables[(b / 20) % 20] + "s";
      std::string line = first + " " + last + ":" + char(first[0] - 32) + first.substr(1) + " " +
                         char(last[0] - 32) + last.substr(1) + "\n";
      contacts << line;
      if (n % 100 == 0) few << line;
    }
  std::string const grammar = WriteTempFile(
      "phone.gram", "#JSGF V1.0;\ngrammar phone;\npublic <command> = (call:CALL | text:TEXT) "
                    "<contacts> [on mobile:MOBILE];\n");
  std::string const all = WriteTempFile("contacts.txt", contacts.str());
  std::string const model = WriteTempFile("phone.t2s", "");
  CommandResult r = RunCommand(tool + " make-model --quiet --class contacts=" + all + " " +
                               grammar + " " + model);
  ASSERT_EQ(r.status, 0) << r.err;
  r = RunCommand(tool + " apply " + model + " 'call kalo kalos' 'text tape peves on mobile'");
  EXPECT_EQ(r.out, "CALL Kalo Kalos\nTEXT Tape Peves on MOBILE\n") << r.err;

  std::string const some = WriteTempFile("few.txt", few.str());
  std::string const by_command = WriteTempFile("few_command.t2s", ""),
                    by_library = WriteTempFile("few_library.t2s", "");
  ASSERT_EQ(RunCommand(tool + " make-model --quiet --class '<contacts>=" + some + "' " + grammar +
                       " " + by_command).status,
            0);
  char const* names[] = {"contacts"};
  char const* files[] = {some.c_str()};
  EXPECT_EQ(MakeT2sModelWithClasses(grammar.c_str(), by_library.c_str(), 1, names, files), 0);
  auto bytes = [](std::string const& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
  };
  EXPECT_EQ(bytes(by_library), bytes(by_command));
  char const* missing[] = {"/nonexistent/contacts.txt"};
  EXPECT_EQ(MakeT2sModelWithClasses(grammar.c_str(), by_library.c_str(), 1, names, missing), 1);
}

}  // namespace

namespace {

// "twenty five" is "25" or "20 5" at equal cost: examples decide, and the log-likelihood of the
// examples never falls from one iteration to the next.
TEST(ModelEndToEnd, TrainingFollowsTheExamples) {
  std::string const tool = T2SFST_TOOL;
  std::string const grammar = WriteTempFile(
      "amb.gram", "public <n> = (twenty:20 | thirty:30) [five:5 | six:6] | \"twenty five:25\" | "
                  "\"thirty six:36\" | :$@@ \"two dollars:@@2\";\n");
  std::string const model = WriteTempFile("amb.t2s", "");
  for (auto const& [examples, want] :
       {std::pair<std::string, std::string>{"twenty five\t25\nthirty six\t36\ntwo dollars\t$2\n",
                                            "25\n36\n30 5\n"},
        {"twenty five\t20 5\nthirty six\t30 6\n", "20 5\n30 6\n30 5\n"}}) {
    std::string const corpus = WriteTempFile("amb.tsv", examples);
    CommandResult r = RunCommand(tool + " make-model --iterations 3 --train " + corpus + " " +
                                 grammar + " " + model);
    ASSERT_EQ(r.status, 0) << r.err;
    std::istringstream lines(r.out);
    double previous = -1e300;
    int iterations = 0;
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind("training: iteration ", 0) != 0) continue;
      double ll = std::stod(line.substr(line.find("log-likelihood ") + 15));
      EXPECT_GE(ll, previous - 1e-9) << r.out;
      EXPECT_EQ(line.find("explains"), std::string::npos) << line;  // every example explained
      previous = ll;
      ++iterations;
    }
    EXPECT_EQ(iterations, 3);
    EXPECT_EQ(RunCommand(tool + " apply " + model + " 'twenty five' 'thirty six' 'thirty five'").out,
              want);
  }
  CommandResult r = RunCommand(tool + " make-model --train " + grammar + " " + grammar + " " + model);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "t2sfst make-model: " + grammar + ", line 1: expected the spoken text, a tab and "
                   "the written text\n");
}

}  // namespace
