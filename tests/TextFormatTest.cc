#include <gtest/gtest.h>
#include <utime.h>

#include <fstream>
#include <random>
#include <sstream>

#include "FST.h"
#include "TestUtil.h"

namespace {

using ::testing::KilledBySignal;

// The machine's text; Text(string) reads one.
std::string Text(FSTGeneric const& m, bool header = true) {
  std::ostringstream os;
  m->dump_ascii(os, header);
  return os.str();
}
using ::Text;

// Random machine over a small named alphabet (labels with white space, backslashes and a lone
// comma among them), weights exact in six digits.
FSTGeneric RandomNamedMachine(std::mt19937& rng, FSTSemiringBase const* s) {
  char const* names[] = {"a", "b", "one:1", "x-y", "é", "#", "new york:New York", "\\s\t\\",
                         ",", "\v \f\r\n", ",,"};
  int const n_names = int(sizeof names / sizeof *names);
  FSTGeneric m = FSTBasic(s);
  std::uniform_int_distribution<int> state(0, 5), label(0, n_names), weight(-8, 8);
  m->add_states(1 + int(rng() % 6));
  int n = m->states().size();
  for (int i = int(rng() % 14); i > 0; --i) {
    int in = label(rng), out = label(rng);
    m->add_arc(state(rng) % n, state(rng) % n, in == n_names ? 0 : FSTstring_map[names[in]],
               out == n_names ? 0 : FSTstring_map[names[out]],
               rng() % 3 ? s->one : float(weight(rng)) * 0.25f);
  }
  if (rng() % 4) m->set_initial(state(rng) % n);
  for (int p = 0; p < n; ++p) {
    if (rng() % 3 == 0) m->set_final(p, rng() % 2 ? s->one : float(weight(rng)) * 0.5f);
    if (rng() % 4 == 0) m->set_potential(p, float(weight(rng)) * 0.125f);
  }
  return m;
}

TEST(TextFormat, RoundTripIsTheIdentity) {
  std::mt19937 rng(3);
  for (FSTSemiringBase const* s : {FSTMinPlus, FSTMaxPlus, FSTPlusTimes, FSTPlusTimesLog})
    for (int round = 0; round < 60; ++round) {
      FSTGeneric m = RandomNamedMachine(rng, s);
      std::string text = Text(m);
      FSTGeneric back = Text(text);
      // States past the last one mentioned in the text cannot come back.
      int n = back->states().size();
      if (n < m->states().size()) back->add_states(m->states().size() - n);
      EXPECT_EQ(Describe(back), Describe(m)) << text;
      EXPECT_EQ(Text(back), text);
    }
  // Labels without white space or backslash are written as they are; the others escaped.
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->add_arc(0, 1, FSTstring_map["new york"], FSTstring_map[","], 0);
  m->add_arc(0, 1, FSTstring_map["a\\b\tc"], FSTstring_map["x:y"], 0);
  EXPECT_EQ(Text(m, false), "T 0 1 new\\syork \\,\nT 0 1 a\\\\b\\tc x:y\n");
}

TEST(TextFormat, WriterOmitsDefaults) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  int x = FSTstring_map["x"], a = FSTstring_map["a"];
  m->add_arc(0, 1, 0, x, 0);
  m->add_arc(0, 1, 0, 0, 2.5f);
  m->add_arc(0, 1, 0, 0, 0);
  m->add_arc(0, 1, a, 0, 0);
  m->add_arc(0, 1, a, 0, 1.25f);
  m->add_arc(1, 1, a, x, 0.1f);
  m->set_initial(1);
  m->set_final(1, 0);
  m->set_final(0, 3);
  m->set_potential(1, 4);
  EXPECT_EQ(Text(m),
            "#FSTBasic MinPlus\n"
            "I 1\n"
            "F 0 3\n"
            "T 0 1 , x\n"
            "T 0 1 , , 2.5\n"
            "T 0 1\n"
            "T 0 1 a\n"
            "T 0 1 a , 1.25\n"
            "F 1\n"
            "P 1 4\n"
            "T 1 1 a x 0.1\n");
  std::ostringstream os;
  os << m;  // the stream operator writes no header
  EXPECT_EQ(os.str(), Text(m, false));

  // An unknown label id fails the stream and stops the writer.
  FSTGeneric bad = FSTBasic(FSTMinPlus);
  bad->add_arc(0, 1, 1 << 30, 0, 0);
  bad->add_arc(1, 2, a, 0, 0);
  std::ostringstream failed;
  bad->dump_ascii(failed, false);
  EXPECT_TRUE(failed.fail());
  EXPECT_EQ(failed.str(), "T 0 1 ");
}

TEST(TextFormat, ReaderRecordsAndHeaders) {
  FSTGeneric m = Text("T 0 1 a\n");
  EXPECT_EQ(m->semiring(), FSTMinPlus);
  EXPECT_EQ(m->states().size(), 2);
  EXPECT_EQ(m->initial(), -1);
  EXPECT_EQ(DescribeArcs(m->arcs_out(0)), " " + std::to_string(FSTstring_map["a"]) + ":0/0>1");
  EXPECT_EQ(Text(m), "#FSTBasic MinPlus\nT 0 1 a\n");

  EXPECT_EQ(Text("#FSTBasic PlusTimesLog\n")->semiring(), FSTPlusTimesLog);
  EXPECT_EQ(Text("#FSTBasic PlusTimes\n")->semiring(), FSTPlusTimes);
  EXPECT_EQ(Text("#FSTBasic MaxPlus\n")->semiring(), FSTMaxPlus);
  EXPECT_EQ(Text("#FSTBasic\n")->semiring(), FSTMinPlus);
  EXPECT_EQ(Text("")->states().size(), 0);

  // Scale and offset apply to read and defaulted weights, but never to zero.
  m = Text(
      "#FSTBasic MinPlus WeightScale=2 WeightOffset=1\nF 3\nF 4 1e30\nF 5 0.5\nT 0 1 a\n"
      "P 2 3\n");
  EXPECT_EQ(m->final_weight(3), 1);
  EXPECT_EQ(m->final_weight(4), 1e30f);
  EXPECT_FALSE(m->is_final(4));
  EXPECT_EQ(m->final_weight(5), 2);
  EXPECT_EQ((*m->arcs_out(0))->weight, 1);
  EXPECT_EQ(m->potential(2), 7);

  // Epsilon fields, the output interned before the input, junk and skipped lines.
  m = Text(
      "XYZ\n# a comment\n T 9 9 indented\nFSTBasic MinPlus\n\nT 0 1 , , 0.5\n"
      "T 1 2 reader_in_new reader_out_new\nT 2 3 ,");
  EXPECT_EQ(m->states().size(), 4);
  EXPECT_EQ(DescribeArcs(m->arcs_out(0)), " 0:0/0.5>1");
  FSTArc* named = *m->arcs_out(1);
  EXPECT_EQ(named->output + 1, named->input);
  EXPECT_STREQ(FSTstring_map[named->input], "reader_in_new");
  EXPECT_EQ(DescribeArcs(m->arcs_out(2)), " 0:0/0>3");  // a last line without newline

  // Labels of up to 1023 characters.
  std::string long_label(1023, 'q');
  m = Text("T 0 1 " + long_label + " b\n");
  EXPECT_EQ(FSTstring_map[(*m->arcs_out(0))->input], long_label);
}

TEST(TextFormat, RepeatedInitialStateWarnsAndTheLastWins) {
  testing::internal::CaptureStderr();
  FSTGeneric m = Text("I 0\nI 0\nI 2\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "WARNING: file: changing initial state from 0 to 2 (only one allowed)\n");
  EXPECT_EQ(m->initial(), 2);
  EXPECT_EQ(m->states().size(), 3);
}

TEST(TextFormatDeathTest, MalformedRecordsAreFatal) {
  auto abort = KilledBySignal(SIGABRT);
  EXPECT_EXIT(Text("I\n"), abort, "^FATAL: file: usage: I <state>\n");
  EXPECT_EXIT(Text("I x\n"), abort, "^FATAL: file: usage: I <state>\n");
  EXPECT_EXIT(Text("F\n"), abort, "^FATAL: usage: F <state>\n");
  EXPECT_EXIT(Text("P 3\n"), abort, "^FATAL: usage: P <state>\n");
  EXPECT_EXIT(Text("T 0\n"), abort,
              "^FATAL: file: usage: T <from> <to> \\[<input> \\[<output> \\[<weight>\\]\\]\\]\n");
  // Numbers beyond int were wrapped (T 4294967297 read as T 1) or overflowed the state count.
  std::string const usage_t = "^FATAL: file: usage: T <from> <to> \\[<input> \\[<output> \\[<weight>\\]\\]\\]\n";
  EXPECT_EXIT(Text("T 4294967297 0 a\n"), abort, usage_t);
  EXPECT_EXIT(Text("T 0 2147483647\n"), abort, usage_t);
  EXPECT_EXIT(Text("I 4294967296\n"), abort, "^FATAL: file: usage: I <state>\n");
  EXPECT_EXIT(Text("F 99999999999 1\n"), abort, "^FATAL: usage: F <state>\n");
  EXPECT_EXIT(Text("P -9999999999 1\n"), abort, "^FATAL: usage: P <state>\n");
  // A count this machine cannot hold ends with a message, not an exception or the OOM killer.
  EXPECT_EXIT(Text("T 0 2147483646\n"), abort,
              "^FATAL: FSTBasicRep::add_states: 2147483647 states need [0-9]+ MB, more than this "
              "machine's [0-9]+ MB\n");
  EXPECT_EXIT(Text("T 0 -1 a\n"), abort, "Assertion `q >= 0' failed");
  EXPECT_EXIT(Text("I -2\n"), abort, "Assertion `p >= 0' failed");
  EXPECT_EXIT(Text("#FSTFoo bar\n"), abort, "^FATAL: don't understand header type FSTFoo\n");
  EXPECT_EXIT(Text("#FSTBinary\n"), abort,
              "^FATAL: FSTBinary file \\(stream\\): truncated in the leading field\n");
  EXPECT_EXIT(Text("#"), abort, "^FATAL: error reading from file \\(null\\) \\(no header\\?\\)\n");
}

TEST(DotWriter, Format) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->set_initial(0);
  std::ostringstream empty;
  m->dump_dot(empty, nullptr);
  EXPECT_EQ(empty.str(), "digraph FST {\n\t-1 [label=\"\",peripheries=0];\n\t\t-1 -> 0;\n}\n");

  m->add_arc(0, 1, FSTstring_map["a"], 0, 0);
  m->add_arc(1, 2, 0, FSTstring_map["say \"hi\"\n\\o/"], 1.5f);
  m->set_final(1, 0);
  m->set_final(2, 0.25f);
  std::ostringstream os;
  m->dump_dot(os, "rankdir=LR");
  EXPECT_EQ(os.str(),
            "digraph FST {\n"
            "\trankdir=LR;\n"
            "\t-1 [label=\"\",peripheries=0];\n"
            "\t\t-1 -> 0;\n"
            "\t\t0 -> 1 [label=\"a:@\"];\n"
            "\t1 [peripheries=2];\n"
            "\t\t1 -> 2 [label=\"@:say \\\"hi\\\"\\n\\\\o//1.5\"];\n"
            "\t2 [label=\"2/0.25\",peripheries=2];\n"
            "}\n");
}

TEST(Dumps, FileFormsAndStandardOutput) {
  FSTGeneric m = Text("I 0\nT 0 1 a\nF 1\n");
  std::string file = WriteTempFile("dump.fst", "");
  m->dump_ascii(file);
  std::ifstream in(file);
  std::stringstream written;
  written << in.rdbuf();
  EXPECT_EQ(written.str(), "#FSTBasic MinPlus\nI 0\nT 0 1 a\nF 1\n");
  m->dump_dot(file, "t");
  EXPECT_EQ(Describe(FSTLoadFile(WriteTempFile("d.fst", written.str()).c_str())), Describe(m));

  testing::internal::CaptureStdout();
  m->dump_ascii("-", false);
  m->dump_ascii(static_cast<char const*>(nullptr), false);
  m->dump_dot("", nullptr);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.substr(0, 22), "I 0\nT 0 1 a\nF 1\nI 0\nT ");
  EXPECT_NE(out.find("digraph FST {"), std::string::npos);
  EXPECT_EXIT(m->dump_ascii("/nonexistent/dir/x.fst"), KilledBySignal(SIGABRT),
              "^FATAL: can't write file /nonexistent/dir/x.fst\n");
  EXPECT_EXIT(m->dump_dot(std::string("/nonexistent/x.dot"), nullptr), KilledBySignal(SIGABRT),
              "^FATAL: can't write file /nonexistent/x.dot\n");
}

TEST(Load, FilesStandardInputAndReload) {
  std::string file = WriteTempFile("load.fst", "#FSTBasic MaxPlus\nI 0\nT 0 1 a , 2\nF 1\n");
  FSTGeneric m = FSTLoad(file);
  EXPECT_EQ(m->semiring(), FSTMaxPlus);
  EXPECT_EQ(Describe(FSTLoadFile(file.c_str())), Describe(m));
  EXPECT_EQ(Describe(FSTLoadFile(file)), Describe(m));
  std::ifstream in(file);
  EXPECT_EQ(Describe(FSTLoadStream(in)), Describe(m));

  // The file's time is remembered: unchanged, the same machine; rewritten, a fresh load.
  FSTGenericInt* before = m.get();
  EXPECT_FALSE(m.reload());
  EXPECT_EQ(m.get(), before);
  long mtime = file_mtime(file.c_str());
  WriteTempFile("load.fst", "#FSTBasic MaxPlus\nI 0\nT 0 1 b , 3\nF 1\n");
  struct utimbuf times = {mtime + 5, mtime + 5};
  ASSERT_EQ(utime(file.c_str(), &times), 0);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(m.reload());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Reloading " + file + " because mtime " +
                                                        std::to_string(mtime + 5) +
                                                        " != " + std::to_string(mtime) + ".\n");
  EXPECT_NE(m.get(), before);
  EXPECT_EQ((*m->arcs_out(0))->weight, 3);
  EXPECT_FALSE(m.reload());  // the fresh machine carries the new time

  // Standard input for null, "" and "-".
  CommandResult r = RunCommand(std::string("printf 'T 0 1 a\\n' | ") + T2SFST_TOOL + " print -");
  EXPECT_EQ(r.out, "#FSTBasic MinPlus\nT 0 1 a\n");

  EXPECT_EXIT(FSTLoadFile("/nonexistent/m.fst"), KilledBySignal(SIGABRT),
              "^FATAL: can't read file /nonexistent/m.fst\n");
  EXPECT_EXIT(FSTLoad("/nonexistent/m.fst"), KilledBySignal(SIGABRT),
              "^FATAL: can't read file /nonexistent/m.fst or parse as expression\n");
}

}  // namespace
