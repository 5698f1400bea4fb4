#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <random>

#include "FST.h"
#include "RandomMachine.h"
#include "TestUtil.h"

namespace {

using ::testing::KilledBySignal;

struct Files {
  std::string a, b, c;
};

Files WriteFiles() {
  std::mt19937 rng(31);
  RandomMachineOptions o;
  o.max_states = 5;
  Files f{WriteTempFile("expr_a.fst", ""), WriteTempFile("expr_b.fst", ""),
          WriteTempFile("expr_c.fst", "")};
  for (std::string const& name : {f.a, f.b, f.c}) FSTBasic(RandomMachine(rng, o))->dump_ascii(name.c_str(), true);
  return f;
}

std::string Parsed(std::string const& text) {
  FSTGeneric m;
  std::string messages;
  if (!FSTExpression(text, m, messages)) return "error: " + messages;
  return Describe(FSTBasic(m));
}

// Each construct builds exactly the machine of the library calls it names.
TEST(Expression, ConstructsAreTheLibraryCalls) {
  Files f = WriteFiles();
  auto load = [](std::string const& name) { return FSTLoadFile(name.c_str()); };
  FSTGeneric a = load(f.a), b = load(f.b), c = load(f.c);
  auto same = [&](std::string const& text, FSTGeneric const& expected) {
    EXPECT_EQ(Parsed(text), Describe(FSTBasic(expected))) << text;
  };
  same(f.a, load(f.a));
  same(f.a + " @ " + f.b + " @ " + f.c, FSTCompose(FSTCompose(load(f.a), load(f.b)), load(f.c)));
  same(f.a + " @ " + f.b + " | " + f.c,  // @ binds tighter
       FSTUnion(fst::vector<FSTGeneric>{FSTCompose(load(f.a), load(f.b)), load(f.c)}));
  same(f.a + " @ (" + f.b + " | " + f.c + ")",
       FSTCompose(load(f.a), FSTUnion(fst::vector<FSTGeneric>{load(f.b), load(f.c)})));
  int x = FSTstring_map["x"], y = FSTstring_map["y"], z = FSTstring_map["z"];
  same("<x> " + f.a + " |\n <y:z> " + f.b + " | " + f.c + " | <x:> " + f.a + " | <:y> " + f.b,
       FSTUnion(fst::vector<FSTGeneric>{load(f.a), load(f.b), load(f.c), load(f.a), load(f.b)},
                fst::vector<int>{x, y, 0, x, 0}, fst::vector<int>{x, z, 0, 0, y}));
  same("invert(" + f.a + ")", FSTInvert(load(f.a)));
  same("det(" + f.a + ")", FSTDeterminize(load(f.a), 1, false, 0.001f, false));
  same("det(" + f.a + ", 2, 0.5)", FSTDeterminize(load(f.a), 2, false, 0.5f, false));
  same("re(" + f.a + ")", FSTRemoveEpsilonsA(load(f.a), 0.001f));
  same("re ( " + f.a + " , 0.25 )", FSTRemoveEpsilonsA(load(f.a), 0.25f));
  same("cache(" + f.a + ")", FSTCache(load(f.a)));
  same("lru(" + f.a + ", 3)", FSTCacheLRU(load(f.a), 3));

  // Quoted names may hold blanks; a text that parses never opens a file of that name.
  std::string spaced = WriteTempFile("expr spaced.fst", "");
  a->dump_ascii(spaced.c_str(), true);
  same("\"" + spaced + "\" @ " + f.b, FSTCompose(load(spaced), load(f.b)));
  {
    char buffer[4096];
    std::string const here = getcwd(buffer, sizeof buffer) ? buffer : ".";
    std::string dir = f.a.substr(0, f.a.rfind('/'));
    ASSERT_EQ(chdir(dir.c_str()), 0);
    std::string a_name = f.a.substr(dir.size() + 1), b_name = f.b.substr(dir.size() + 1);
    std::ofstream(a_name + " @ " + b_name) << "T 0 1 trap\n";
    EXPECT_EQ(Describe(FSTBasic(FSTLoad(a_name + " @ " + b_name))), Parsed(a_name + " @ " + b_name));
    std::remove((a_name + " @ " + b_name).c_str());
    ASSERT_EQ(chdir(here.c_str()), 0);
  }
  std::string header = WriteTempFile("expr_header.fst", "#FSTExpression " + f.a + " @ " + f.b + "\n");
  EXPECT_EQ(Describe(FSTBasic(FSTLoad(header))), Parsed(f.a + " @ " + f.b));
}

TEST(Expression, SyntaxErrors) {
  Files f = WriteFiles();
  EXPECT_EQ(Parsed(f.a + " @"), "error: syntax error before end of expression\n");
  EXPECT_EQ(Parsed(f.a + " @ @ " + f.b), "error: syntax error before @\n");
  EXPECT_EQ(Parsed("(" + f.a + " | " + f.b), "error: syntax error before end of expression\n");
  EXPECT_EQ(Parsed("det(" + f.a + ", x)"), "error: syntax error before x\n");
  EXPECT_EQ(Parsed("det(" + f.a + ", 1.5)"), "error: syntax error before 1.5\n");
  EXPECT_EQ(Parsed("frob(" + f.a + ")"), "error: syntax error before frob\n");
  EXPECT_EQ(Parsed(f.a + " = " + f.b), "error: syntax error before =\n");
  EXPECT_EQ(Parsed(""), "error: syntax error before end of expression\n");
  EXPECT_EQ(Parsed("missing.fst"), "error: can't read file missing.fst\n");
  EXPECT_EXIT(FSTLoad("missing.fst @ x"), KilledBySignal(SIGABRT),
              "^FATAL: can't read file missing.fst @ x or parse as expression\ncan't read file "
              "missing.fst\n");
}

}  // namespace
