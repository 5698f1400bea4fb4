#include <gtest/gtest.h>

#include "TestUtil.h"

namespace {

std::string const tool = T2SFST_TOOL;

TEST(Tool, HelpVersionAndDispatch) {
  CommandResult r = RunCommand(tool + " --version");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, std::string("t2sfst ") + T2SFST_VERSION + "\n");

  r = RunCommand(tool + " --help");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("usage: t2sfst COMMAND"), std::string::npos);
  EXPECT_NE(r.out.find("  labels "), std::string::npos);

  r = RunCommand(tool + " help labels");
  EXPECT_EQ(r.out.rfind("usage: t2sfst labels [--file FILE] [TEXT...]\n", 0), 0u);
  EXPECT_EQ(RunCommand(tool + " labels --help").out, r.out);

  r = RunCommand(tool + " frobnicate");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "t2sfst: unknown command 'frobnicate' (see 't2sfst --help')\n");
  EXPECT_EQ(RunCommand(tool).status, 2);
}

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
