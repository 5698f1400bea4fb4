// Random expressions of the lazy operations over random transducers, each result checked against
// brute force in PlusTimes, where a lost or doubled path changes a sum.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <streambuf>

#include "FST.h"
#include "Language.h"
#include "RandomMachine.h"
#include "TestUtil.h"

namespace {

FSTSemiringBase const* const s = FSTPlusTimes;
int const unbounded = 1000;
size_t const checked_length = 3;

// A subexpression: its machine, the longest strings it reads and writes (unbounded under a
// closure), whether it is an acceptor, and how the expected language is computed.
struct Node {
  FSTGeneric m;
  int in_bound, out_bound;
  bool acceptor;
  std::string text;  // the same machine in the expression language, where it has one
  std::function<Language(size_t)> want;
};
using NodePtr = std::shared_ptr<Node>;

// The stored inverse, arc by arc: what the inversion view must behave as.
FSTGeneric Inverse(FSTGeneric const& lazy) {
  FSTGeneric m = FSTBasic(lazy), inv = FSTBasic(s);
  inv->add_states(m->n_states());
  inv->set_initial(m->initial());
  for (int p = 0; p < m->n_states(); ++p) {
    if (m->is_final(p)) inv->set_final(p, s->invert(m->final_weight(p)));
    for (FSTArc* a : m->arcs_out(p))
      inv->add_arc(p, a->to, a->output, a->input, s->invert(a->weight));
  }
  return inv;
}

class Generator {
 public:
  explicit Generator(std::mt19937& rng) : _rng(rng) {}

  NodePtr Make(int depth, bool acceptor) {
    int kind = depth == 0 ? 0 : int(_rng() % 12);
    switch (kind) {
      case 1:
      case 2:
      case 11: {  // composition, in either association by nesting
        NodePtr a = Make(depth - 1, acceptor), b = Make(depth - 1, acceptor);
        // The strings between the operands must be bounded, and short enough to enumerate.
        int middle = std::min(a->out_bound, b->in_bound);
        if (middle > 6) return a;
        return Op(FSTCompose(a->m, b->m), a->in_bound, b->out_bound, acceptor, Join(a, " @ ", b),
                  [=](size_t n) {
                    size_t inner = std::max(n, size_t(middle));
                    return Compose(s, a->want(inner), b->want(inner), n);
                  });
      }
      case 3: {
        NodePtr a = Make(depth - 1, acceptor), b = Make(depth - 1, acceptor);
        return Op(FSTUnion(a->m, b->m), std::max(a->in_bound, b->in_bound),
                  std::max(a->out_bound, b->out_bound), acceptor, Join(a, " | ", b),
                  [=](size_t n) { return Plus(s, a->want(n), b->want(n)); });
      }
      case 4: {
        NodePtr a = Make(depth - 1, acceptor), b = Make(depth - 1, acceptor);
        return Op(FSTConcatenate(a->m, b->m), Add(a->in_bound, b->in_bound),
                  Add(a->out_bound, b->out_bound), acceptor, "",
                  [=](size_t n) { return Times(s, a->want(n), b->want(n), n); });
      }
      case 5: {
        NodePtr a = Make(depth - 1, acceptor);
        // A pair of empty strings would repeat without end.
        if (a->want(0).count({})) return a;
        bool plus = _rng() % 2;
        return Op(FSTClosure(a->m, plus), unbounded, unbounded, acceptor, "",
                  [=](size_t n) { return Closure(s, a->want(n), plus, n); });
      }
      case 6: {
        NodePtr a = Make(depth - 1, acceptor);
        return Op(FSTInvert(a->m), a->out_bound, a->in_bound, acceptor, Call("invert", a, ""),
                  [=](size_t n) { return Enumerate(Inverse(a->m), n); });
      }
      case 7:
      case 8: {  // determinization and epsilon removal, of acceptors
        NodePtr a = Make(depth - 1, true);
        bool det = kind == 7;
        FSTGeneric m =
            det ? FSTDeterminize(a->m, 1, false, 0.001f, false) : FSTRemoveEpsilonsA(a->m, 0.001f);
        return Op(m, a->in_bound, a->out_bound, true, Call(det ? "det" : "re", a, ""), a->want);
      }
      case 9:
      case 10: {
        NodePtr a = Make(depth - 1, acceptor);
        int size = 1 + int(_rng() % 3);
        bool lru = kind == 10;
        return Op(lru ? FSTCacheLRU(a->m, size) : FSTCache(a->m), a->in_bound, a->out_bound,
                  acceptor, Call(lru ? "lru" : "cache", a, lru ? ", " + std::to_string(size) : ""),
                  a->want);
      }
    }
    RandomMachineOptions o;
    o.semiring = s;
    o.acyclic = true;
    o.max_states = 4;
    o.max_arcs = 6;
    o.n_labels = 2;
    // Some leaves have no epsilon on a side: operations must not assume one is there.
    o.epsilon_input = 0.2 * double(_rng() % 3);
    o.epsilon_output = 0.2 * double(_rng() % 3);
    o.acceptor = acceptor || _rng() % 4 == 0;
    FSTGeneric m = RandomMachine(_rng, o);
    std::string file = WriteTempFile("leaf" + std::to_string(_leaves++) + ".fst", ToText(m));
    int n = m->n_states() - 1;
    return Op(m, n, n, o.acceptor, '"' + file + '"', [m](size_t k) { return Enumerate(m, k); });
  }

 private:
  static NodePtr Op(FSTGeneric m, int in, int out, bool acceptor, std::string text,
                    std::function<Language(size_t)> want) {
    return std::make_shared<Node>(Node{m, in, out, acceptor, std::move(text), std::move(want)});
  }
  static int Add(int a, int b) { return std::min(a + b, unbounded); }
  static std::string Join(NodePtr const& a, char const* op, NodePtr const& b) {
    return a->text.empty() || b->text.empty() ? "" : "(" + a->text + op + b->text + ")";
  }
  static std::string Call(char const* f, NodePtr const& a, std::string const& args) {
    return a->text.empty() ? "" : std::string(f) + "(" + a->text + args + ")";
  }
  static std::string ToText(FSTGeneric const& m) {
    std::ostringstream os;
    m->dump_ascii(os, true);
    return os.str();
  }

  std::mt19937& _rng;
  int _leaves = 0;
};

// Arc lists compared as multisets.
std::vector<std::string> Items(FSTArcIter arcs) {
  std::vector<std::string> items;
  for (FSTArc* a : arcs)
    items.push_back(std::to_string(a->input) + ":" + std::to_string(a->output) + ">" +
                    std::to_string(a->to));
  std::sort(items.begin(), items.end());
  return items;
}

void CheckQueries(FSTGeneric const& m) {
  for (int p = 0; p < m->n_states(); ++p) {
    std::vector<FSTArc> arcs;
    for (FSTArc* a : m->arcs_out(p)) arcs.push_back(*a);
    for (int label : {0, RandomLabel(0), RandomLabel(1)}) {
      FSTArcList in, out;
      for (FSTArc const& a : arcs) {
        if (a.input == label) in.add(a.input, a.output, a.weight, a.to, p);
        if (a.output >= label) out.add(a.input, a.output, a.weight, a.to, p);
      }
      EXPECT_EQ(Items(FSTOperandArcsWithInput(*m, p, label)), Items(in.iter()));
      EXPECT_EQ(Items(FSTOperandArcsWithOutput(*m, p, label, FSTArcModeGreaterEqual)),
                Items(out.iter()));
    }
    FSTArcIter sorted = FSTOperandArcs(*m, p, FSTArcOrderOutput);
    EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end(),
                               [](FSTArc* a, FSTArc* b) { return a->output < b->output; }));
  }
}

TEST(Algebra, RandomExpressionsGiveTheBruteForceRelation) {
  std::mt19937 rng(27);
  std::string const mmap_file = WriteTempFile("result.mmap", "");
  for (int round = 0; round < 1000; ++round) {
    Generator generate(rng);
    NodePtr e = generate.Make(1 + round % 3, false);
    SCOPED_TRACE("round " + std::to_string(round) + ": " + e->text);
    Language const want = e->want(checked_length);
    EXPECT_TRUE(SameLanguage(s, Enumerate(e->m, checked_length), want));
    FSTGeneric copy = FSTBasic(e->m);
    EXPECT_TRUE(SameLanguage(s, Enumerate(copy, checked_length), want));
    CheckQueries(e->m);
    if (!e->text.empty()) {
      EXPECT_TRUE(SameLanguage(s, Enumerate(FSTExpression(e->text), checked_length), want));
    }

    // Round trips through every format.
    std::stringstream binary, text;
    e->m->dump_binary(binary);
    EXPECT_TRUE(SameLanguage(s, Enumerate(FSTLoadStream(binary), checked_length), want));
    e->m->dump_mmap(mmap_file.c_str(), FSTArcOrderInput);
    EXPECT_TRUE(SameLanguage(s, Enumerate(FSTLoadFile(mmap_file.c_str()), checked_length), want));
    e->m->dump_ascii(text, true);
    EXPECT_TRUE(SameLanguage(s, Enumerate(FSTLoadStream(text), checked_length), want));

    // Expanding a fresh build discovers every state its arcs reach.
    if (!e->text.empty()) {
      FSTGeneric again = FSTExpression(e->text);
      FSTOperandForce(*again);
      int n = again->n_states();
      for (int p = 0; p < n; ++p)
        for (FSTArc* a : again->arcs_out(p)) EXPECT_LT(a->to, n);
      EXPECT_GE(n, FSTBasic(FSTExpression(e->text))->n_states());
    }
  }
}

// The combinations first reported wrong, each against the brute-force relation.
TEST(Algebra, ReportedCombinations) {
  FSTGeneric x = Text("I 0\nT 0 1 x a\nF 1\n"), a = Text("I 0\nT 0 1 a b\nF 1\n"),
             b = Text("I 0\nT 0 1 , y\nT 1 2 b z\nF 2\n");
  Language want = Enumerate(FSTCompose(FSTCompose(x, a), b), 4);
  EXPECT_EQ(want.size(), 1u);
  EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(FSTCompose(x, FSTCompose(a, b)), 4), want));

  FSTGeneric m = Text("I 0\nT 0 1 a x 1\nT 1 2 b , 2\nF 2\n");
  EXPECT_FALSE(Enumerate(FSTCompose(FSTInvert(m), m), 4).empty());
  Language ab = Enumerate(FSTCompose(m, FSTBasic(FSTInvert(m))), 4);
  EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(FSTCompose(m, FSTInvert(m)), 4), ab));
  EXPECT_TRUE(ab.count({{RandomLabel(0), RandomLabel(1)}, {RandomLabel(0), RandomLabel(1)}}));

  // One machine composed with itself is sorted once, not twice per state.
  FSTGeneric chain = FSTBasic(FSTMinPlus);
  chain->add_states(2001);
  chain->set_initial(0);
  chain->set_final(2000, 0);
  for (int p = 0; p < 2000; ++p) {
    chain->add_arc(p, p + 1, RandomLabel(p % 2), RandomLabel(0), 0);
    chain->add_arc(p, p + 1, RandomLabel(1), RandomLabel(1), 0);
  }
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(FSTBasic(FSTCompose(chain, chain))->n_states(), 2001);
  EXPECT_EQ(::testing::internal::GetCapturedStderr().find("resorting"), std::string::npos);
}

// A stream that cannot seek, as a pipe.
class PipeBuffer : public std::streambuf {
 public:
  explicit PipeBuffer(std::string data) : _data(std::move(data)) {
    setg(&_data[0], &_data[0], &_data[0] + _data.size());
  }

 private:
  std::string _data;
};

TEST(Algebra, LoadingFromPipesAndExpressionFiles) {
  std::ostringstream os;
  FSTDumpChars(os, "abc");
  FSTDumpChars(os, nullptr);
  FSTDumpChars(os, "");
  PipeBuffer pipe(os.str());
  std::istream is(&pipe);
  char* chars[3] = {FSTLoadChars(is), FSTLoadChars(is), FSTLoadChars(is)};
  EXPECT_STREQ(chars[0], "abc");
  EXPECT_EQ(chars[1], nullptr);
  EXPECT_STREQ(chars[2], "");
  delete[] chars[0];
  delete[] chars[2];

  // "-" is standard input even beside a file of that name; expression files that name
  // themselves are refused with the cycle; determinized operands are composed and measured.
  std::string dir = WriteTempFile("dash", "");
  std::string const tool = T2SFST_TOOL;
  std::remove(dir.c_str());
  ASSERT_EQ(RunCommand("mkdir " + dir).status, 0);
  WriteTempFile("dash/-", "I 0\n");
  WriteTempFile("dash/a.fst", "I 0\nT 0 1 a x 1\nT 1 2 b , 2\nF 2\n");
  std::string const at = "cd " + dir + " && ";
  CommandResult r = RunCommand(at + "printf 'I 0\\nT 0 1 q q\\nF 1\\n' | " + tool + " print -");
  EXPECT_NE(r.out.find("T 0 1 q q"), std::string::npos) << r.out << r.err;
  r = RunCommand(at + tool + " print 'det(a.fst) @ det(invert(a.fst))' && " + tool +
                 " info 'det(a.fst)'");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("T 0 1 a a"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("states            3"), std::string::npos) << r.out;
  WriteTempFile("dash/self.fst", "#FSTExpression other.fst\n");
  WriteTempFile("dash/other.fst", "#FSTExpression a.fst @ self.fst\n");
  r = RunCommand(at + tool + " print self.fst");
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("expression file self.fst refers to itself: " + dir + "/self.fst -> " + dir +
                       "/other.fst -> " + dir + "/self.fst"),
            std::string::npos)
      << r.err;
}

}  // namespace
