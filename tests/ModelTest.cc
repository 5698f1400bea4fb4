#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <random>
#include <sstream>

#include "FST.h"
#include "T2sBuilder.h"
#include "TestUtil.h"

namespace {

int L(char const* text) { return FSTstring_map[text]; }

TEST(CharExpansion, ParseLineAndArcText) {
  Arc a = ParseLine("T 3 4 one:1 , 0.5");
  EXPECT_EQ(a.kind, 'T');
  EXPECT_EQ(a.from, 3u);
  EXPECT_EQ(a.to, 4u);
  EXPECT_EQ(a.input, "one");
  EXPECT_EQ(a.output, "1");
  EXPECT_EQ(a.weight, 0.5f);
  a = ParseLine("T 0 1 a:b:c ignored");
  EXPECT_EQ(a.input, "a:b");
  EXPECT_EQ(a.output, "c");
  EXPECT_EQ(a.weight, 0);
  a = ParseLine("T 0 1 word");
  EXPECT_EQ(a.input, "word");
  EXPECT_EQ(a.output, "word");
  a = ParseLine("F 7 2.5");
  EXPECT_EQ(a.kind, 'F');
  EXPECT_EQ(a.from, 7u);
  EXPECT_EQ(a.input, "");
  std::ostringstream os;
  os << ParseLine("T 1 2 x:y , 1.25") << "|" << ParseLine("F 9");
  EXPECT_EQ(os.str(), "T 1 2 x y 1.25|F 9");
}

TEST(CharExpansion, ExpandArcCases) {
  unsigned long next = 2;
  EXPECT_EQ(ExpandArc(ParseLine("T 0 1 ab ab"), &next), "T 0 2 97 , 0\nT 2 1 98 ab 0");
  EXPECT_EQ(next, 3u);
  EXPECT_EQ(ExpandArc(ParseLine("T 1 0 xyz:Z , 1.5"), &next),
            "T 1 3 120 , 0\nT 3 4 121 , 0\nT 4 0 122 Z 1.5");
  EXPECT_EQ(next, 5u);
  EXPECT_EQ(ExpandArc(ParseLine("T 0 1 , , 0.5"), &next), "T 0 1 , , 0.5");
  // A comma byte is 44 (the field "," would read back as epsilon); escapes are white space.
  EXPECT_EQ(ExpandArc(ParseLine("T 0 1 a,b:c"), &next), "T 0 5 97 , 0\nT 5 6 44 , 0\nT 6 1 98 c 0");
  EXPECT_EQ(ExpandArc(ParseLine("T 0 1 \xc3\xa9:e"), &next), "T 0 7 195 , 0\nT 7 1 169 e 0");
  // An arc with no label at all stays one epsilon arc; an empty output side is epsilon too.
  EXPECT_EQ(ExpandArc(ParseLine("T 4 5"), &next), "T 4 5 , , 0");
  EXPECT_EQ(ExpandArc(ParseLine("T 4 5 q:"), &next), "T 4 5 113 , 0");
  EXPECT_EQ(next, 8u);
  EXPECT_EQ(ExpandArc(ParseLine("T 0 1 a\\sb:A\\sB"), &next), "T 0 8 97 , 0\nT 8 9 32 , 0\nT 9 1 98 A\\sB 0");
  EXPECT_EQ(ExpandArc(ParseLine("T 0 1 \\,"), &next), "T 0 1 44 \\, 0");
}

TEST(CharExpansion, ConvertKeepsNonArcLinesFirst) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->add_arc(0, 1, L("ab"), L("ab"), 0);
  m->add_arc(1, 2, L("cd:x"), 0, 0.5f);
  m->add_arc(1, 2, 0, 0, 0);
  m->set_initial(0);
  m->set_final(1, 0);
  m->set_final(2, 0.25f);
  EXPECT_EQ(ConvertLabelToCharValue(m),
            "#FSTBasic MinPlus\nI 0\nF 1\nF 2 0.25\n"
            "T 0 3 97 , 0\nT 3 1 98 ab 0\n"
            "T 1 4 99 , 0\nT 4 2 100 x 0.5\n"
            "T 1 2 , , 0\n");
  EXPECT_EQ(FstDumpAscii(m).substr(0, 22), "#FSTBasic MinPlus\nI 0\n");
}

// Every path of an acyclic machine as (input bytes, outputs joined by '|', weight).
using Language = std::multimap<std::string, std::pair<std::string, float>>;
void Paths(FSTGeneric const& m, int s, std::string in, std::string out, float w, Language& l,
           bool split_words) {
  if (m->is_final(s)) l.insert({in, {out, w + m->final_weight(s)}});
  for (FSTArc* a : m->arcs_out(s)) {
    std::string text = a->input ? FSTstring_map[a->input] : "";
    std::string output = a->output ? FSTstring_map[a->output] : "";
    std::string bytes;
    if (split_words) {
      // The word "in:out" spells its input side; a word without ':' is its own output.
      std::string::size_type colon = text.rfind(':');
      bytes = colon == std::string::npos ? text : text.substr(0, colon);
      output = colon == std::string::npos ? text : text.substr(colon + 1);
    } else if (!text.empty()) {
      bytes = std::string(1, char(std::stoi(text)));
    }
    Paths(m, a->to, in + bytes, output.empty() ? out : out + "|" + output, w + a->weight, l,
          split_words);
  }
}

TEST(CharExpansion, ExpandedMachineSpellsTheSameLanguage) {
  std::mt19937 rng(9);
  char const* words[] = {"one:1", "two:2", "three", "a", "\xc3\xa9t\xc3\xa9:summer", "x:", "ab"};
  for (int round = 0; round < 80; ++round) {
    FSTGeneric m = FSTBasic(FSTMinPlus);
    int n = 2 + int(rng() % 5);
    m->add_states(n);
    m->set_initial(0);
    for (int i = 0; i < 2 * n; ++i) {
      int p = int(rng() % unsigned(n - 1));
      int q = p + 1 + int(rng() % unsigned(n - 1 - p));
      int word = int(rng() % 8);
      m->add_arc(p, q, word == 7 ? 0 : L(words[word]), 0, float(rng() % 4) * 0.5f);
    }
    m->set_final(n - 1, 0.25f);
    if (rng() % 2) m->set_final(int(rng() % unsigned(n)), 0);
    FSTGeneric projected = FSTProject(m, FSTArcOrderInput, FSTArcOrderAny);
    std::istringstream text(ConvertLabelToCharValue(projected));
    FSTGeneric expanded = FSTLoadStream(text);
    Language want, got;
    Paths(m, 0, "", "", 0, want, true);
    Paths(expanded, 0, "", "", 0, got, false);
    EXPECT_EQ(got, want) << ConvertLabelToCharValue(projected);
  }
}

// Little-endian bytes, written out by hand in the expectations below.
std::string Bytes(std::initializer_list<int> values) {
  std::string s;
  for (int v : values) s += char(v);
  return s;
}

std::string ReadFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

TEST(PackedModel, BytesOfASmallModel) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->add_arc(0, 1, L("97"), L("b"), 0.5f);
  m->add_arc(1, 2, L("228"), L("a"), 1.0f);
  m->add_arc(1, 2, L("300"), L("ab"), 0);
  m->add_arc(0, 2, 0, 0, 2.0f);
  m->set_initial(0);
  m->set_final(2, 0);
  FstModel* model = FstDumpBinary(m);
  EXPECT_EQ(model->num_strings, 4u);
  EXPECT_EQ(model->pool_size, 8u);  // "" "a" "ab" "b", each with its zero byte
  std::string path = WriteTempFile("model.bin", "previous contents, to be truncated");
  SaveModel(path.c_str(), model);
  delete model;
  std::string expected =
      Bytes({0, 0, 0, 0}) + Bytes({3, 0, 0, 0}) +                        // start 0, three states
      Bytes({0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0}) +                      // state 0: arcs [0, 2)
      Bytes({2, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0}) +                      // state 1: arcs [2, 4)
      Bytes({4, 0, 0, 0, 4, 0, 0, 0, 1, 0, 0, 0}) +                      // state 2: final, no arcs
      Bytes({4, 0, 0, 0}) +                                              // four arcs
      Bytes({97, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0x3f}) +      // 97:"b" -> 1, 0.5
      Bytes({0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0x40}) +       // eps -> 2, 2.0
      Bytes({228, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0x80, 0x3f}) +  // 228:"a" -> 2, 1.0
      Bytes({44, 0, 0, 0, 2, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0}) +         // 300 keeps 44: "ab"
      Bytes({4, 0, 0, 0, 8, 0, 0, 0}) + Bytes({0, 'a', 0, 'a', 'b', 0, 'b', 0});
  EXPECT_EQ(ReadFile(path), expected);

  // No arcs and no initial state: start -1, a pool of one zero byte.
  FSTGeneric bare = FSTBasic(FSTMinPlus);
  bare->set_final(1, 0);
  model = FstDumpBinary(bare);
  SaveModel(path.c_str(), model);
  delete model;
  EXPECT_EQ(ReadFile(path), Bytes({0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0}) +
                                Bytes({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}) +
                                Bytes({0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}) +
                                Bytes({0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0}));
}

}  // namespace
