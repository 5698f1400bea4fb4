// The command line as people meet it: help pages that explain every option in 80 columns and
// agree with the parser and the README, and the option syntax.
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

#include "TestUtil.h"

namespace {

std::string const tool = T2SFST_TOOL;

std::vector<std::string> Lines(std::string const& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The words of text that start with "-": the options a synopsis names.
std::set<std::string> Flags(std::string const& text) {
  std::set<std::string> flags;
  std::string word;
  std::istringstream in(text);
  while (in >> word) {
    size_t const start = word.find_first_not_of("[|");
    if (start == std::string::npos || word[start] != '-' || word.size() - start < 2) continue;
    word = word.substr(start);
    flags.insert(word.substr(0, word.find_first_of("]|")));
  }
  return flags;
}

TEST(CommandLine, EveryCommandExplainsItselfInEightyColumns) {
  CommandResult const overview = RunCommand(tool + " help");
  ASSERT_EQ(overview.status, 0);
  EXPECT_EQ(RunCommand(tool + " --help").out, overview.out);
  std::vector<std::string> commands;
  bool in_list = false;
  for (std::string const& line : Lines(overview.out)) {
    EXPECT_LE(line.size(), 80u) << line;
    if (line == "commands:") in_list = true;
    else if (line.empty()) in_list = false;
    else if (in_list && line[2] != ' ') commands.push_back(line.substr(2, line.find(' ', 2) - 2));
  }
  ASSERT_GT(commands.size(), 20u);
  for (std::string const& name : commands) {
    CommandResult const page = RunCommand(tool + " help " + name);
    ASSERT_EQ(page.status, 0) << name;
    EXPECT_EQ(RunCommand(tool + " " + name + " --help").out, page.out) << name;
    // The synopsis names exactly the options that the page explains.
    std::string synopsis, section = "usage";
    std::set<std::string> explained;
    for (std::string const& line : Lines(page.out)) {
      EXPECT_LE(line.size(), 80u) << name << ": " << line;
      if (line.empty() || (line[0] != ' ' && line.back() == ':')) section = line;
      if (section == "usage") synopsis += line + " ";
      if (section == "options:" && line.size() > 2 && line[2] == '-')
        explained.insert(line.substr(2, line.find(' ', 2) - 2));
    }
    EXPECT_EQ(synopsis.rfind("usage: t2sfst " + name, 0), 0u) << name;
    EXPECT_EQ(Flags(synopsis), explained) << name;
    EXPECT_NE(page.out.find("\nexample"), std::string::npos) << name;
    EXPECT_NE(page.out.find("\n  t2sfst " + name), std::string::npos) << name;
  }
  CommandResult r = RunCommand(tool + " help help");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("usage: t2sfst help", 0), 0u);
  r = RunCommand(tool + " help frobnicate");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "t2sfst: unknown command 'frobnicate' (see 't2sfst --help')\n");
  EXPECT_EQ(RunCommand(tool + " frobnicate").err, r.err);
  EXPECT_EQ(RunCommand(tool).status, 2);
  r = RunCommand(tool + " --version");
  EXPECT_EQ(r.out, std::string("t2sfst ") + T2SFST_VERSION + "\n");
}

TEST(CommandLine, ReadmeShowsTheHelpPages) {
  std::ifstream in(T2SFST_SOURCE "/README.md");
  std::string readme((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::string const begin = "<!-- commands: generated", end = "<!-- end of commands -->";
  size_t const from = readme.find('\n', readme.find(begin)) + 1, to = readme.find(end);
  ASSERT_NE(readme.find(begin), std::string::npos);
  ASSERT_NE(to, std::string::npos);
  // Compared whole, reported short: the pages run to a thousand lines.
  EXPECT_TRUE(readme.substr(from, to - from) == RunCommand(tool + " help --markdown").out)
      << "the README's command section differs from the help pages: run 'make readme'";
}

TEST(CommandLine, OptionSyntax) {
  std::string const m = WriteTempFile("syntax.fst", "I 0\nT 0 1 a x 1\nT 0 2 a y 2\nF 1\nF 2\n");
  CommandResult const spaced = RunCommand(tool + " determinize --delta 0.5 " + m);
  ASSERT_EQ(spaced.status, 0) << spaced.err;
  EXPECT_EQ(RunCommand(tool + " determinize --delta=0.5 " + m).out, spaced.out);
  EXPECT_EQ(RunCommand(tool + " determinize " + m + " --delta=0.5").out, spaced.out);
  // "--" ends the options: what follows is a text, even "--help".
  CommandResult r = RunCommand(tool + " labels -- -x --help");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("\t-x\n"), std::string::npos);
  EXPECT_NE(r.out.find("\t--help\n"), std::string::npos);
  struct Case {
    std::string arguments, message;
  } const cases[] = {
      {"print --frob", "unknown option --frob"},
      {"print --no-header=yes", "--no-header takes no value"},
      {"determinize --delta", "--delta needs a value (D)"},
  };
  for (Case const& c : cases) {
    std::string const command = c.arguments.substr(0, c.arguments.find(' '));
    r = RunCommand(tool + " " + c.arguments);
    EXPECT_EQ(r.status, 2) << c.arguments;
    EXPECT_EQ(r.err.substr(0, r.err.find('\n') + 1),
              "t2sfst " + command + ": " + c.message + " (see 't2sfst help " + command + "')\n");
  }
}

}  // namespace

namespace {

// A program that waits for each answer gets it before it writes the next line.
TEST(CommandLine, ApplyAnswersEachLineAtOnce) {
  std::string const grammar =
      WriteTempFile("answer.gram", "#JSGF V1.0;\ngrammar g;\npublic <g> = hello:hi world;\n");
  std::string const model = WriteTempFile("answer.t2s", "");
  ASSERT_EQ(RunCommand(tool + " make-model " + grammar + " " + model).status, 0);
  CommandResult r = RunCommand("(echo 'hello world'; sleep 1.5; echo hello) | timeout 1 " + tool +
                               " apply --line-buffered " + model);
  EXPECT_EQ(r.out, "hi world\n");
  r = RunCommand("printf 'hello world\\nhello\\n' | " + tool + " apply --line-buffered " + model);
  EXPECT_EQ(r.out, "hi world\n\n");
  EXPECT_EQ(r.err, "t2sfst apply: line 2: no match\n");
  // try shows each answer with the pieces of the line that wrote it.
  std::string const spoken = WriteTempFile(
      "try.gram", "#JSGF V1.0;\ngrammar t;\npublic <t> = \"new york:NY\" | (off: | to:2) city;\n");
  ASSERT_EQ(RunCommand(tool + " make-model " + spoken + " " + model).status, 0);
  r = RunCommand("printf 'new  york\\noff city\\nx\\n' | " + tool + " try " + model);
  EXPECT_EQ(r.out,
            "NY\n  new york                       -> NY\n  weight 0\n"
            "city\n  off city                       -> city\n  weight 0\n"
            "(no match)\n");
}

}  // namespace
