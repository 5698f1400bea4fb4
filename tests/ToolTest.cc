#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>

#include "TestUtil.h"

namespace {

std::string const tool = T2SFST_TOOL;

TEST(Tool, DemoPrintsTheMachine) {
  CommandResult r = RunCommand(tool + " demo");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_NE(r.out.find("machine: MinPlus semiring, 3 states, 5 arcs, initial state 0\n"
                       "  0 -> 1  twenty:2  0.5\n"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("reversed: MinPlus semiring, 4 states, 6 arcs, initial state 3\n"),
            std::string::npos)
      << r.out;
}

}  // namespace

namespace {

std::string const machine_text =
    "#FSTBasic MinPlus\nI 0\nT 0 1 one 1 0.5\nT 0 1 two 2\nT 1 2 , , 0.25\nF 2\nF 1 1.5\n";

TEST(Tool, PrintAndDraw) {
  std::string file = WriteTempFile("tool.fst", machine_text);
  CommandResult r = RunCommand(tool + " print " + file);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out,
            "#FSTBasic MinPlus\nI 0\nT 0 1 one 1 0.5\nT 0 1 two 2\nF 1 1.5\n"
            "T 1 2 , , 0.25\nF 2\n");
  EXPECT_EQ(RunCommand(tool + " print --no-header <" + file).out, r.out.substr(18));

  // Any text is a title: quoted, never read as dot statements.
  r = RunCommand(tool + " draw --title 'L \"o\" G' " + file);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("digraph FST {\n\tlabel=\"L \\\"o\\\" G\"; labelloc=t;\n\t", 0), 0u)
      << r.out;
  EXPECT_NE(r.out.find("\t\t0 -> 1 [label=\"one:1/0.5\"];\n"), std::string::npos);

  std::string png = WriteTempFile("tool.png", "");
  r = RunCommand(tool + " draw --png " + png + " " + file);
  if (RunCommand("command -v dot").status == 0) {
    EXPECT_EQ(r.status, 0) << r.err;
    std::ifstream in(png, std::ios::binary);
    char magic[4] = {};
    in.read(magic, 4);
    EXPECT_EQ(std::string(magic + 1, 3), "PNG");
  } else {
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "t2sfst draw: Graphviz 'dot' is not installed (apt-get install graphviz)\n");
  }

  // Missing input: one line naming the file, before the library's loader could abort.
  for (char const* command : {"print", "draw", "info", "convert --to att"}) {
    r = RunCommand(tool + " " + command + " /nonexistent/m.fst");
    EXPECT_EQ(r.status, 1) << command;
    EXPECT_EQ(r.err, "t2sfst " + std::string(command).substr(0, std::string(command).find(' ')) +
                         ": cannot read /nonexistent/m.fst: No such file or directory\n");
  }
  EXPECT_EQ(RunCommand(tool + " print --bogus " + file).status, 2);
}

TEST(Tool, AlgebraFlagsAndRefusals) {
  // topsort refuses a cycle and leaves OUT as it was.
  std::string const cyclic = WriteTempFile("cyclic.fst", "I 0\nT 0 1 a\nT 1 0 b\nF 1\n");
  std::string const out = WriteTempFile("kept.fst", "kept\n");
  CommandResult r = RunCommand(tool + " topsort " + cyclic + " " + out);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "t2sfst topsort: " + cyclic + ": the machine is cyclic; nothing written\n");
  EXPECT_EQ(RunCommand("cat " + out).out, "kept\n");

  // invert --keep-weights swaps the labels only; push and optimize --keep-total keep the best
  // path's weight (0.5 + 0.25 here), which they otherwise drop.
  std::string const m = WriteTempFile("weights.fst", "I 0\nT 0 1 a x 0.5\nT 1 2 b y 0.25\nF 2\n");
  r = RunCommand(tool + " invert --keep-weights " + m);
  EXPECT_EQ(r.out, "#FSTBasic MinPlus\nI 0\nT 0 1 x a 0.5\nT 1 2 y b 0.25\nF 2\n");
  EXPECT_EQ(RunCommand(tool + " invert " + m).out,
            "#FSTBasic MinPlus\nI 0\nT 0 1 x a -0.5\nT 1 2 y b -0.25\nF 2\n");
  for (char const* command : {"push", "optimize"}) {
    r = RunCommand(tool + " " + command + " --keep-total " + m + " | " + tool + " shortestpath | " + tool + " topsort");
    EXPECT_EQ(r.out, "#FSTBasic MinPlus\nI 0\nT 0 1 a x 0.75\nT 1 2 b y\nF 2\n") << command;
    r = RunCommand(tool + " " + command + " " + m + " | " + tool + " shortestpath | " + tool + " topsort");
    EXPECT_EQ(r.out, "#FSTBasic MinPlus\nI 0\nT 0 1 a x\nT 1 2 b y\nF 2\n") << command;
  }

  // A limit that leaves arcs apart is said.
  std::string const twice = WriteTempFile("twice.fst", "I 0\nT 0 1 a\nT 0 2 a\nF 1\nF 2\n");
  r = RunCommand(tool + " determinize --limit 2 " + twice);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "t2sfst determinize: warning: the result is not deterministic: 1 state keeps "
                   "arcs of one input label apart (--limit 2)\n");
  EXPECT_EQ(RunCommand(tool + " determinize " + twice).err, "");

  // Split tokens make a word-level transducer: "dim" reads as "DIM", "off:" writes nothing.
  std::string const grammar = WriteTempFile(
      "split.gram", "#JSGF V1.0;\ngrammar s;\npublic <a> = (dim:DIM | off: | on) [light];\n");
  std::string const words = WriteTempFile("split.fst", "I 0\nT 0 1 dim dim\nT 1 2 light light\nF 2\n");
  r = RunCommand(tool + " compile-grammar --split-tokens " + grammar + " -o " + out + " && " +
                 tool + " compose " + words + " " + out + " | " + tool + " project --output | " +
                 tool + " rmepsilon");
  EXPECT_EQ(r.out, "#FSTBasic MinPlus\nI 0\nT 0 1 DIM DIM\nT 1 2 light light\nF 2\n") << r.err;
}

TEST(Tool, RelationVerbs) {
  std::string const a = WriteTempFile("rel_a.fst", "I 0\nT 0 1 b b 1\nT 0 1 a a 2\nT 1 1 c c 0.5\nF 1\n");
  std::string const t = WriteTempFile("rel_t.fst", "I 0\nT 0 1 a x\nF 1\n");
  std::string const opt = WriteTempFile("rel_opt.fst", "");
  ASSERT_EQ(RunCommand(tool + " optimize --keep-total " + a + " " + opt).status, 0);
  CommandResult r = RunCommand(tool + " equivalent " + a + " " + opt);
  EXPECT_EQ(r.out, "equivalent\n");
  EXPECT_EQ(r.status, 0);
  r = RunCommand(tool + " equivalent " + a + " " + t);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out.rfind("not equivalent: ", 0), 0u);
  // intersect wants acceptors; arcsort orders each state's arcs.
  r = RunCommand(tool + " intersect " + a + " " + t);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "t2sfst intersect: " + t + " is not an acceptor (an arc reads 'a' and writes "
                   "'x'): use compose, or project it first\n");
  std::string const unsorted = WriteTempFile("rel_u.fst", "I 0\nT 1 2 w v\nT 0 1 x u\nT 0 1 w x\nF 2\n");
  EXPECT_EQ(RunCommand(tool + " arcsort " + unsorted).out,
            "#FSTBasic MinPlus\nI 0\nT 0 1 w x\nT 0 1 x u\nT 1 2 w v\nF 2\n");
  EXPECT_EQ(RunCommand(tool + " arcsort --sort=output " + unsorted).out,
            "#FSTBasic MinPlus\nI 0\nT 0 1 x u\nT 0 1 w x\nT 1 2 w v\nF 2\n");
  // randgen: sentences of a grammar in spoken words with their written forms; the seed decides.
  std::string const g = WriteTempFile("rel.gram", "#JSGF V1.0;\ngrammar g;\npublic <g> = (one:1 | "
                                                  "two:2) [and (three:3 | four:4)];\n");
  r = RunCommand(tool + " randgen -n 20 --seed 5 " + g);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(RunCommand(tool + " randgen -n 20 --seed 5 " + g).out, r.out);
  EXPECT_NE(RunCommand(tool + " randgen -n 20 --seed 6 " + g).out, r.out);
  std::set<std::string> lines;
  std::istringstream in(r.out);
  for (std::string line; std::getline(in, line);) lines.insert(line);
  std::set<std::string> const sentences = {"one\t1", "two\t2", "one and three\t1 and 3",
                                           "one and four\t1 and 4", "two and three\t2 and 3",
                                           "two and four\t2 and 4"};
  for (std::string const& line : lines) EXPECT_TRUE(sentences.count(line)) << line;
  EXPECT_GE(lines.size(), 4u);
}

// train: pairs tell the two "a" arcs apart; the weights start even (4 log 1/3), become the
// relative frequencies (2 log 1/2 + 2 log 1/4), written back as costs.
TEST(Tool, TrainWeightsFromExamples) {
  std::string const m = WriteTempFile("train.fst", "I 0\nT 0 1 a x 1\nT 0 1 a y 1\nT 1 2 b b\nT 0 2 c c 1\nF 2\n");
  std::string const corpus = WriteTempFile("train.tsv", "a b\tx b\na b\ty b\na b\tx b\nc\tc\n");
  std::string const out = WriteTempFile("train.out", "");
  CommandResult r = RunCommand(tool + " train --pairs --iterations 2 " + m + " " + corpus + " " + out);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "iteration 1: log-likelihood -4.394449\niteration 2: log-likelihood -4.158883\n"
                   "trained: log-likelihood -4.158883\n");
  EXPECT_EQ(RunCommand(tool + " print " + out).out, RunCommand(tool + " print " + WriteTempFile(
      "train.want", "I 0\nT 0 1 a x 0.693147\nT 0 1 a y 1.386294\nT 0 2 c c 1.386294\nT 1 2 b b\nF 2\n")).out);
  r = RunCommand(tool + " train --pairs " + m + " " + m + " " + out);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "t2sfst train: " + m + ", line 1: expected the input, a tab and the output\n");
}

TEST(Tool, InfoReportsStructure) {
  std::string file = WriteTempFile("info.fst", machine_text);
  CommandResult r = RunCommand(tool + " info " + file);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out,
            "representation    FSTBasic\n"
            "semiring          MinPlus\n"
            "states            3\n"
            "arcs              3\n"
            "initial state     0\n"
            "final states      2\n"
            "epsilon arcs      1\n"
            "input epsilons    1\n"
            "output epsilons   1\n"
            "arc order         none\n"
            "deterministic     no\n"
            "acyclic           yes\n"
            "trim              yes\n");
  // A cycle, a dead state and an input-deterministic machine.
  file = WriteTempFile("info2.fst", "I 0\nT 0 1 a\nT 1 0 b\nT 1 2 c\nT 0 3 d\nF 2\n");
  r = RunCommand(tool + " info " + file);
  EXPECT_NE(r.out.find("deterministic     yes\nacyclic           no\ntrim              no\n"),
            std::string::npos)
      << r.out;

  // Binary and mapped copies print as the same machine; info names their representation, and
  // a mapped file's compiled order. A directory is no machine.
  std::string const printed = RunCommand(tool + " print " + file).out;
  for (std::string format : {"binary", "mmap"}) {
    std::string out = WriteTempFile("info." + format, "");
    r = RunCommand(tool + " convert --to " + format + " --order input " + file + " " + out);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(RunCommand(tool + " print " + out).out, printed) << format;
    r = RunCommand(tool + " info " + out);
    EXPECT_NE(r.out.find(format == "mmap" ? "representation    FSTMmap"
                                          : "representation    FSTBinary"),
              std::string::npos);
    if (format == "mmap") {
      EXPECT_NE(r.out.find("arc order         input (compiled)"), std::string::npos);
    }
  }
  r = RunCommand(tool + " info /tmp");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "t2sfst info: cannot read /tmp: it is a directory\n");

  // A packed T2S model, read through the runtime's loader.
  std::string model = WriteTempFile("info.model", "");
  ASSERT_EQ(RunCommand(tool + " make-model " +
                       WriteTempFile("info.gram", "public <a> = \"a b:X Y\";") + " " + model)
                .status,
            0);
  r = RunCommand(tool + " print " + model);
  EXPECT_EQ(r.out, "#FSTBasic MinPlus\nI 0\nT 0 1 a\nT 1 2 \\s\nT 2 3 b X\\sY\nF 3\n");
  EXPECT_NE(RunCommand(tool + " info " + model).out.find("representation    T2SModel"),
            std::string::npos);
}

TEST(Tool, AttRoundTripIsTheIdentity) {
  std::string file = WriteTempFile("att.fst",
                                   "#FSTBasic MinPlus\nI 2\nT 0 1 one 1 0.123456791\nT 1 2 , x\n"
                                   "F 0 0.5\nT 2 0 two , -3\nT 2 2 a b\nT 2 1 new\\syork \\,\nF 1\n");
  std::string att = WriteTempFile("m.att", ""), syms = WriteTempFile("m.syms", "");
  CommandResult r =
      RunCommand(tool + " convert --to att --symbols " + syms + " " + file + " " + att);
  ASSERT_EQ(r.status, 0) << r.err;
  std::ifstream att_in(att);
  std::string first_line;
  std::getline(att_in, first_line);
  EXPECT_EQ(first_line.substr(0, 2), "2\t");  // the start state's lines come first
  r = RunCommand(tool + " convert --from att --symbols " + syms + " " + att);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, RunCommand(tool + " print " + file).out);

  // Numeric labels resolve through the symbol table; "<eps>" is epsilon.
  std::string numeric = WriteTempFile("n.att", "0\t1\t5\t0\t0.5\n1\n");
  std::string table = WriteTempFile("n.syms", "<eps>\t0\nfive\t5\n");
  r = RunCommand(tool + " convert --from att --symbols " + table + " " + numeric);
  EXPECT_EQ(r.out, "#FSTBasic MinPlus\nI 0\nT 0 1 five , 0.5\nF 1\n");
  // Each side through its own table, as other toolkits write them; written tables serve both.
  std::string const pair = WriteTempFile("p.att", "0\t1\t1\t1\n1\n");
  std::string const in_table = WriteTempFile("i.syms", "<eps> 0\nhello 1\n");
  std::string const out_table = WriteTempFile("o.syms", "<eps> 0\nworld 1\n");
  r = RunCommand(tool + " convert --from att --isymbols " + in_table + " --osymbols=" + out_table +
                 " " + pair);
  EXPECT_EQ(r.out, "#FSTBasic MinPlus\nI 0\nT 0 1 hello world\nF 1\n");
  r = RunCommand(tool + " convert --to att --isymbols " + in_table + " --osymbols " + out_table +
                 " " + file + " " + att + " && " + tool + " convert --from att --isymbols " +
                 in_table + " --osymbols " + out_table + " " + att);
  EXPECT_EQ(r.out, RunCommand(tool + " print " + file).out) << r.err;
  r = RunCommand(tool + " convert --from att --acceptor --semiring MaxPlus " +
                 WriteTempFile("a.att", "0 1 x 2\n1\n"));
  EXPECT_EQ(r.out, "#FSTBasic MaxPlus\nI 0\nT 0 1 x x 2\nF 1\n");
}

}  // namespace

namespace {

// Through a general-purpose peer toolkit and back, when its tools are installed.
TEST(Tool, AttInteropWithPeerToolkit) {
  if (RunCommand("command -v fstcompile && command -v fstprint").status != 0)
    GTEST_SKIP() << "fstcompile/fstprint not installed (Debian package libfst-tools)";
  // States numbered in order of appearance from the start, as the peer numbers them.
  std::string file = WriteTempFile("peer.fst",
                                   "#FSTBasic MinPlus\nI 0\nT 0 1 hello world 0.5\nT 1 2 , x\n"
                                   "T 2 1 a , 1.25\nF 2 0.75\n");
  std::string att = WriteTempFile("peer.att", ""), syms = WriteTempFile("peer.syms", "");
  std::string compiled = WriteTempFile("peer.bin", ""), back = WriteTempFile("peer2.att", "");
  ASSERT_EQ(
      RunCommand(tool + " convert --to att --symbols " + syms + " " + file + " " + att).status, 0);
  CommandResult r = RunCommand("fstcompile --isymbols=" + syms + " --osymbols=" + syms + " " + att +
                               " " + compiled + " && fstprint --isymbols=" + syms +
                               " --osymbols=" + syms + " " + compiled + " " + back);
  ASSERT_EQ(r.status, 0) << r.err;
  r = RunCommand(tool + " convert --from att --symbols " + syms + " " + back);
  EXPECT_EQ(r.out, RunCommand(tool + " print " + file).out);
}

}  // namespace

namespace {

// OUT that is not a regular file is written through and stays what it is; a link is followed
// and its target replaced; a regular file is replaced whole.
TEST(Tool, SpecialOutputFilesAreWrittenThrough) {
  std::string dir = WriteTempFile("special", "");
  std::remove(dir.c_str());
  ASSERT_EQ(RunCommand("mkdir " + dir + " && mkfifo " + dir + "/fifo").status, 0);
  std::string const in = WriteTempFile("special/in.fst", "I 0\nT 0 1 a b\nF 1\n");
  WriteTempFile("special/target.fst", "old\n");
  ASSERT_EQ(RunCommand("ln -s target.fst " + dir + "/link").status, 0);
  std::string const type = "stat -c %F ";
  std::string const invert = tool + " invert " + in + " ";

  CommandResult r = RunCommand("cat " + dir + "/fifo > " + dir + "/fifo.out & " + invert + dir +
                               "/fifo; wait; " + type + dir + "/fifo; cat " + dir + "/fifo.out");
  EXPECT_EQ(r.out, "fifo\n#FSTBasic MinPlus\nI 0\nT 0 1 b a\nF 1\n") << r.err;
  r = RunCommand(invert + dir + "/link && " + type + dir + "/link && cat " + dir + "/target.fst");
  EXPECT_EQ(r.out, "symbolic link\n#FSTBasic MinPlus\nI 0\nT 0 1 b a\nF 1\n") << r.err;
  r = RunCommand(invert + "/dev/stdout");
  EXPECT_EQ(r.out, "#FSTBasic MinPlus\nI 0\nT 0 1 b a\nF 1\n") << r.err;
  r = RunCommand("ls -a " + dir);
  EXPECT_EQ(r.out.find(".target"), std::string::npos) << "a temporary file was left: " << r.out;

  if (geteuid() != 0) GTEST_SKIP() << "device nodes need root";
  ASSERT_EQ(RunCommand("mknod " + dir + "/null c 1 3 && mknod " + dir + "/full c 1 7").status, 0);
  r = RunCommand(invert + dir + "/null && " + type + dir + "/null");
  EXPECT_EQ(r.out, "character special file\n") << r.err;
  r = RunCommand(invert + dir + "/full; echo $?; " + type + dir + "/full");
  EXPECT_EQ(r.out, "1\ncharacter special file\n");
  EXPECT_EQ(r.err, "t2sfst invert: cannot write " + dir + "/full: No space left on device\n");
}

}  // namespace

namespace {

// Bad files and library stops: one line naming the file (and the line where there is one),
// exit status 1, never an abort.
TEST(Tool, BadInputGivesOneLineAndStatusOne) {
  std::string const good = WriteTempFile("good.fst", "I 0\nT 0 1 a b\nF 1\n");
  std::string const self = WriteTempFile("self.fst", "");
  std::ofstream(self) << "#FSTExpression " << self << "\n";
  std::string const binary = WriteTempFile("binary.dat", std::string("\x7f" "ELF\0\0\1", 7));
  std::string const grammar = WriteTempFile("g.gram", "#JSGF V1.0;\ngrammar g;\npublic <a> = a;\n");
  std::string const model = WriteTempFile("g.model", "");
  std::string const mmap = WriteTempFile("g.mmap", "");
  std::string const cycle = WriteTempFile("cycle.fst", "I 0\nT 0 1 , , -1\nT 1 0 , , -1\nF 1\n");
  ASSERT_EQ(RunCommand(tool + " make-model " + grammar + " " + model).status, 0);
  // Label "a" is numbered by the writer but not written: a reader numbers "b" differently.
  std::string const qa = WriteTempFile("qa.fst", "I 0\nT 0 1 q a\nF 1\n");
  ASSERT_EQ(RunCommand(tool + " convert --to mmap '" + qa + " @ " + good + "' " + mmap).status, 0);
  struct Case {
    std::string command, error;
  } const cases[] = {
      {"print " + binary, "t2sfst print: " + binary + " holds binary data without a header, not a machine"},
      {"printf 'I 0\\nT 0\\n' | " + tool + " print", "t2sfst print: standard input, line 2: usage: T <from> <to> [<input> [<output> [<weight>]]]"},
      {"print " + self, "t2sfst print: expression file " + self + " refers to itself: " + self + " -> " + self},
      {"shortestpath " + cycle, "t2sfst shortestpath: " + cycle + ": FSTShortestPath: a cycle through state 0 improves the weight without end"},
      {"compose " + good + " " + model, "t2sfst compose: " + model + " is a T2S model: print, draw and info read it as a machine, other commands do not"},
      {"apply " + grammar + " a", "t2sfst apply: " + grammar + " is a JSGF grammar, not a model: build one with t2sfst make-model"},
      {"apply " + good + " a", "t2sfst apply: " + good + " is a text machine, not a model: build one with t2sfst make-model"},
      {"apply /nonexistent a", "t2sfst apply: /nonexistent: No such file or directory"},
      {"compile-grammar " + good, "t2sfst compile-grammar: " + good + " is a text machine, not a grammar"},
      {"make-model " + model + " " + WriteTempFile("g2.model", ""), "t2sfst make-model: " + model + " is a T2S model, not a grammar"},
  };
  for (Case const& c : cases) {
    std::string line = c.command.find('|') == std::string::npos ? tool + " " + c.command : c.command;
    CommandResult r = RunCommand(line);
    EXPECT_EQ(r.status, 1) << c.command;
    EXPECT_EQ(r.err, c.error + "\n") << c.command;
  }
  CommandResult r = RunCommand(tool + " info " + mmap);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err.rfind("t2sfst info: " + mmap + ": FSTMmap: label `", 0), 0u) << r.err;
}

}  // namespace

namespace {

// Nothing is read as something else: a line or a number is taken whole or refused.
TEST(Tool, GarbageIsRefused) {
  for (std::string line : {"xyz", "hello world", "0 1 a b zz", "0 1 a b 0.5abc", "0 zz", "-1 2 a b",
                           "0 1 a", "0 1.5 a b", "4294967297 1 a b", "0 1 a b 1 2"}) {
    CommandResult r = RunCommand("printf '%s\\n' '" + line + "' | " + tool + " convert --from att");
    EXPECT_EQ(r.status, 1) << line;
    EXPECT_EQ(r.err, "t2sfst convert: standard input, line 1 is not an AT&T line: " + line + "\n");
  }
  CommandResult r = RunCommand("printf '0 1 a b 0.5\\n1 inf\\n2\\n' | " + tool + " convert --from att");
  EXPECT_EQ(r.status, 0) << r.err;

  std::string const m = WriteTempFile("numbers.fst", "I 0\nT 0 1 a b\nF 1\n");
  struct Case {
    std::string arguments, option, takes, value;
  } const cases[] = {
      {"shortestpath -n 2x", "-n", "a whole number from 1 to 2147483647", "2x"},
      {"shortestpath -n 4294967298", "-n", "a whole number from 1 to 2147483647", "4294967298"},
      {"shortestpath -n 0", "-n", "a whole number from 1 to 2147483647", "0"},
      {"determinize --delta abc", "--delta", "a number from 0", "abc"},
      {"minimize --delta -1", "--delta", "a number from 0", "-1"},
      {"optimize --limit x", "--limit", "a whole number from -2147483648 to 2147483647", "x"},
      {"make-model --max-states -5", "--max-states", "a whole number from 1 to 2147483647", "-5"},
  };
  for (Case const& c : cases) {
    std::string const command = c.arguments.substr(0, c.arguments.find(' '));
    r = RunCommand(tool + " " + c.arguments + " " + m + " " + WriteTempFile("numbers.out", ""));
    EXPECT_NE(r.status, 0) << c.arguments;
    EXPECT_EQ(r.err, "t2sfst " + command + ": " + c.option + " takes " + c.takes + ", not '" +
                         c.value + "' (see 't2sfst help " + command + "')\n");
  }
  r = RunCommand(tool + " labels --file /nonexistent");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "t2sfst labels: /nonexistent: No such file or directory\n");
}

}  // namespace
