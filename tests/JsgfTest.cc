#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <set>
#include <sstream>

#include "FST.h"
#include "Language.h"
#include "TestUtil.h"

namespace {


std::string Words(LabelString const& s) {
  std::string text;
  for (int l : s) text += (text.empty() ? "" : " ") + std::string(FSTstring_map[l]);
  return text;
}

// "input words => output words" for every accepted pair, up to max_words on each side.
std::set<std::string> Pairs(FSTGeneric const& m, size_t max_words = 6) {
  std::set<std::string> out;
  for (auto const& [key, w] : Enumerate(FSTBasic(m), max_words))
    out.insert(Words(key.first) + " => " + Words(key.second));
  return out;
}

std::set<std::string> Inputs(FSTGeneric const& m, size_t max_words = 6) {
  std::set<std::string> out;
  for (auto const& [key, w] : Enumerate(FSTBasic(m), max_words)) out.insert(Words(key.first));
  return out;
}

struct Compiled {
  bool ok;
  FSTGeneric machine;
  std::string errors;
};

Compiled Compile(std::string const& text, bool b1 = false, bool b2 = false, bool b3 = false,
                 bool b4 = false, bool b5 = false) {
  Compiled c;
  c.ok = FSTJsgfParseString(c.machine, c.errors, text.c_str(), b1, b2, b3, b4, b5);
  return c;
}


// Keywords as tokens, a rule reached only through an import, and recursion nested inside an
// optional group, as grammars written for recognisers use them.
TEST(Jsgf, KeywordsImportedRulesAndNestedRecursion) {
  EXPECT_EQ(Inputs(Compile("#JSGF V1.0;\ngrammar k;\npublic <w> = grammar | import | public;\n")
                       .machine),
            (std::set<std::string>{"grammar", "import", "public"}));
  std::string const with_import =
      "#JSGF V1.0;\ngrammar g;\nimport <polite.*>;\npublic <command> = <startPolite> go;\n";
  Compiled strict = Compile(with_import);
  EXPECT_FALSE(strict.ok);
  EXPECT_NE(strict.errors.find("warning: import not implemented"), std::string::npos);
  EXPECT_NE(strict.errors.find("warning: rule <command> refers to undefined rule <startPolite>"),
            std::string::npos);
  EXPECT_TRUE(Compile(with_import, false, false, false, false, true).ok);

  Compiled nested = Compile("public <n> = <act> [and <n>] | <act> then (<act> | <n>);"
                            "<act> = go | stop;");
  ASSERT_TRUE(nested.ok) << nested.errors;
  std::set<std::string> inputs = Inputs(nested.machine, 3);
  EXPECT_EQ(inputs, (std::set<std::string>{"go", "stop", "go and go", "go and stop",
                                           "stop and go", "stop and stop", "go then go",
                                           "go then stop", "stop then go", "stop then stop"}));
}

TEST(Jsgf, WhatPeopleWrite) {
  Compiled c = Compile(
      "#JSGF V1.0 UTF-8 en;\n"
      "grammar my.time.grammar;\n"
      "import <other.rule>;\n"
      "import <other.*>;\n"
      "/* block\n comment */ // line comment\n"
      "public <time> = at <hour> [<part>] {TIME} | \"half \\\"past\\\"\" <my.time.grammar.hour>;\n"
      "<hour> = one:1 | two:2 | ten-o'clock | caf\xc3\xa9 | 3.5;\n"
      "<part> = o'clock:h {\\{x\\}};\n");
  ASSERT_TRUE(c.ok) << c.errors;  // both import forms scan (the library leaves them unresolved)
  std::set<std::string> pairs = Pairs(c.machine);
  EXPECT_TRUE(pairs.count("at one:1 => at one:1 TIME"));
  EXPECT_TRUE(pairs.count("at two:2 o'clock:h => at two:2 o'clock:h {x} TIME"));
  EXPECT_TRUE(pairs.count("half \"past\" caf\xc3\xa9 => half \"past\" caf\xc3\xa9"));
  EXPECT_TRUE(pairs.count("at 3.5 => at 3.5 TIME"));
  EXPECT_TRUE(pairs.count("at ten-o'clock => at ten-o'clock TIME"));
  EXPECT_EQ(pairs.size(), 5u * 2 + 5);  // at <hour> [<part>], half "past" <hour>

  // A bare expansion compiles too; <NULL> and <VOID>, groups, optionals, repetition.
  Compiled e = Compile("(a | b) [c] <NULL> d+ | <VOID> x | e*");
  ASSERT_TRUE(e.ok) << e.errors;
  std::set<std::string> inputs = Inputs(e.machine, 4);
  EXPECT_TRUE(inputs.count("a c d d") && inputs.count("b d") && inputs.count("") &&
              inputs.count("e e e e"));
  EXPECT_FALSE(inputs.count("x") || inputs.count("a c"));
}

TEST(Jsgf, WeightsAndFlags) {
  // Weights become costs log(sum) - log(w); a single weighted alternative ignores its weight.
  Compiled w = Compile("public <a> = /3/ x | /1/ y; public <b> = /5/ z;");
  ASSERT_TRUE(w.ok);
  Language l = Enumerate(FSTBasic(w.machine), 2);
  auto cost = [&l](char const* word) {
    int label = FSTstring_map[word];
    return l[StringPair{{label}, {label}}];
  };
  // The rule is optimised as a whole, so its best alternative costs nothing.
  EXPECT_NEAR(cost("y") - cost("x"), std::log(3.0), 1e-3);
  EXPECT_EQ(cost("z"), 0);
  EXPECT_TRUE(Inputs(Compile("public <a> = /0/ x | /0/ y;").machine).empty());
  Compiled mixed = Compile("public <a> = /3/ x | y;");
  l = Enumerate(FSTBasic(mixed.machine), 2);
  EXPECT_EQ(cost("x"), cost("y"));  // one unweighted: none weighted

  std::string g = "public <a> = hello {greet} <b>; <b> = world;";
  EXPECT_EQ(Pairs(Compile(g).machine), (std::set<std::string>{"hello world => hello greet world"}));
  EXPECT_EQ(Pairs(Compile(g, true).machine), (std::set<std::string>{"hello world => hello world"}));
  EXPECT_EQ(Pairs(Compile(g, false, true).machine),
            (std::set<std::string>{"hello world => greet"}));
  EXPECT_EQ(Pairs(Compile(g, false, false, true).machine, 8),
            (std::set<std::string>{"hello world => <a> hello greet <b> world </b> </a>"}));
  EXPECT_EQ(Pairs(Compile(g, false, false, false, true).machine),
            (std::set<std::string>{
                "<pause1> hello world <pause2> => <pause1> hello greet world <pause2>"}));
  EXPECT_TRUE(Inputs(Compile("<a> = x;").machine).empty());  // no public rule: nothing
}

TEST(Jsgf, RecursionDefinitionsAndErrors) {
  Compiled list = Compile("public <list> = <item> | <item> and <list>; <item> = a | b;");
  ASSERT_TRUE(list.ok);
  std::set<std::string> inputs = Inputs(list.machine, 7);
  EXPECT_EQ(inputs.size(), 2u + 4 + 8 + 16);  // 1 to 4 items
  EXPECT_TRUE(inputs.count("a and b and a and b"));
  EXPECT_NE(list.errors, "x");

  // Left recursion, mutual too, is regular: its whole language, without a warning; recursion
  // in the middle is not: warned and expanded to a bounded depth.
  testing::internal::CaptureStderr();
  Compiled left = Compile("public <l> = <l> x | y;");
  Compiled mutual = Compile("public <a> = <b> x | y; <b> = <a> z | w;");
  Compiled mutual_unrolled = Compile("public <a> = (w x | y) (z x)*;");
  std::string warnings = testing::internal::GetCapturedStderr();
  ASSERT_TRUE(left.ok && mutual.ok && mutual_unrolled.ok);
  EXPECT_EQ(warnings, "");
  EXPECT_EQ(Inputs(left.machine, 20).count("y x x x x x x x x x x x x x x x x x"), 1u);
  EXPECT_LT(FSTBasic(left.machine)->states().size(), 10);
  EXPECT_EQ(Inputs(mutual.machine, 9), Inputs(mutual_unrolled.machine, 9));
  testing::internal::CaptureStderr();
  Compiled center = Compile("public <c> = x <c> y | z;");
  bool cut = center.ok && Inputs(center.machine, 40).size() == 17;  // x^n z y^n, n to 16
  warnings = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(cut);
  EXPECT_NE(warnings.find("WARNING: recursion involving <c> is not regular: it is expanded to 16 "
                          "nested calls\n"),
            std::string::npos)
      << warnings;
  EXPECT_NE(warnings.find("WARNING: FSTRtn: calls nested deeper than 16 are not expanded\n"),
            std::string::npos);

  // Recursion that is not regular grows exponentially with the depth: the state budget cuts
  // it, with a warning, and the expansion up to the budget is kept.
  int const old_budget = FSTRtnSetMaxStates(500);
  testing::internal::CaptureStderr();
  Compiled wide = Compile("public <s> = x <s> <s> <s> y | z ;");
  FSTGeneric wide_copy = wide.ok ? FSTBasic(wide.machine) : FSTGeneric();
  warnings = testing::internal::GetCapturedStderr();
  EXPECT_EQ(FSTRtnSetMaxStates(old_budget), 500);
  ASSERT_TRUE(wide.ok);
  EXPECT_LT(wide_copy->states().size(), 4 * 500);  // past it, only arcs and returns
  EXPECT_TRUE(Inputs(wide.machine, 5).count("x z z z y"));
  EXPECT_NE(warnings.find("WARNING: FSTRtn: the network has 500 states; calls beyond are not "
                          "expanded"),
            std::string::npos)
      << warnings;

  // Rules nested deeper than the network's stack bound lose nothing when none is recursive.
  std::string nested;
  for (int i = 0; i < 20; ++i)
    nested += "<r" + std::to_string(i) + "> = a <r" + std::to_string(i + 1) + "> b;\n";
  Compiled deep = Compile("public <top> = <r0>;\n" + nested + "<r20> = c;\n");
  ASSERT_TRUE(deep.ok) << deep.errors;
  std::string sentence;
  for (int i = 0; i < 20; ++i) sentence += "a ";
  sentence += "c";
  for (int i = 0; i < 20; ++i) sentence += " b";
  EXPECT_EQ(Inputs(deep.machine, 41), (std::set<std::string>{sentence}));

  // Two definitions are one rule with both bodies, after a warning.
  FSTGeneric m;
  std::string messages;
  std::string file = WriteTempFile("merge.gram", "public <a> = x;\n<a> = y;\n");
  ASSERT_TRUE(FSTJsgfParseFile(m, messages, file, false, false, false, false, false));
  EXPECT_EQ(messages, "warning: merging extra definition of rule <a>, line 2\n");
  EXPECT_EQ(Inputs(m), (std::set<std::string>{"x", "y"}));

  Compiled bad = Compile("public <a> = x\n  | (y;\n");
  EXPECT_FALSE(bad.ok);
  EXPECT_EQ(bad.errors, "line, line 2: syntax error\n");
  EXPECT_FALSE(Compile("").ok);
  Compiled undefined = Compile("public <a> = x <nope>;");
  EXPECT_FALSE(undefined.ok);
  EXPECT_EQ(undefined.errors, "warning: rule <a> refers to undefined rule <nope>, line 1\n");
  // Reported at the line of the reference, not where parsing ended.
  EXPECT_EQ(Compile("public <a> = x\n  <nope>;\n<b> = y;\n").errors,
            "warning: rule <a> refers to undefined rule <nope>, line 2\n");
  Compiled tolerated = Compile("public <a> = x <nope>;", false, false, false, false, true);
  EXPECT_EQ(Inputs(tolerated.machine), (std::set<std::string>{"x <nope>"}));
  EXPECT_EXIT(FSTJsgfParseFile(m, "/nonexistent.gram", false, false, false, false, false),
              testing::KilledBySignal(SIGABRT), "^FATAL: can't read file `/nonexistent.gram'\n");
}

TEST(Jsgf, CompileGrammarCommand) {
  std::string tool = T2SFST_TOOL;
  std::string g = WriteTempFile("cmd.gram", "public <t> = at <h>; <h> = one:1 | two:2;\n");
  CommandResult r = RunCommand(tool + " compile-grammar " + g);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Inputs(FSTLoad(WriteTempFile("cmd.fst", r.out))),
            (std::set<std::string>{"at one:1", "at two:2"}));
  EXPECT_EQ(RunCommand(tool + " compile-grammar --format dot " + g).out.substr(0, 13),
            "digraph FST {");
  // The network file keeps <h> a machine of its own; read back, the same sentences.
  std::string const rtn = WriteTempFile("cmd.rtn", "");
  ASSERT_EQ(RunCommand(tool + " compile-grammar --format rtn -o " + rtn + " " + g).status, 0);
  std::ostringstream text;
  text << std::ifstream(rtn).rdbuf();
  EXPECT_NE(text.str().find("\n<h> "), std::string::npos);
  EXPECT_EQ(Inputs(FSTLoad(rtn)), (std::set<std::string>{"at one:1", "at two:2"}));
  r = RunCommand(tool + " compile-grammar " + WriteTempFile("bad.gram", "public <a> = (x;"));
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(": syntax error"), std::string::npos);
}

}  // namespace

namespace {

// A grammar file's messages say where the mistake is, what was found and what was expected,
// quote the line with a caret under the place, and suggest the usual fix.
TEST(Jsgf, MessagesPointAtTheMistake) {
  struct Case {
    std::string grammar, messages;
  } const cases[] = {
      {"public <a> = hello world\npublic <b> = x;\n",
       ":2:25: error: syntax error: expected ';' at the end of the rule, found '=' on line 3\n"
       " public <a> = hello world\n"
       "                         ^\n"},
      {"public <m> = january:/1 | x;\n",
       ":2:22: error: syntax error: found '/', expected ';' or '|'\n"
       " public <m> = january:/1 | x;\n"
       "                      ^\n"
       "@:2:22: note: '/' starts a weight such as /2.5/; a word that holds '/' must be quoted, "
       "as in \"january:/1\"\n"},
      {"public a = x;\n",
       ":2:8: error: syntax error: found word 'a', expected rule name\n"
       " public a = x;\n"
       "        ^\n"
       "@:2:8: note: rule names are written in angle brackets: <a>\n"},
      {"public <a> = (x |\ty",
       ":2:20: error: syntax error: found the end of the input, expected '|' or ')'\n"
       " public <a> = (x |\ty\n"
       "                  \t ^\n"},
      {"public <a> = x <b>;\n",
       ":2:16: error: rule <a> refers to undefined rule <b>\n"
       " public <a> = x <b>;\n"
       "                ^\n"
       "@:2:16: note: define <b>, or import the grammar that defines it\n"},
  };
  for (Case const& c : cases) {
    std::string const file = WriteTempFile("mistake.gram", "#JSGF V1.0; grammar g;\n" + c.grammar);
    std::string expected = file + c.messages;
    for (size_t at; (at = expected.find('@')) != std::string::npos;) expected.replace(at, 1, file);
    FSTGeneric m;
    std::string messages;
    EXPECT_FALSE(FSTJsgfCompileFile(m, messages, file, FSTJsgfOptions()));
    EXPECT_EQ(messages, expected);
  }
  // Without a file, the messages keep their short form.
  FSTGeneric m;
  std::string errors;
  EXPECT_FALSE(FSTJsgfParseString(m, errors, "public <a> = (x;", false, false, false, false, false));
  EXPECT_EQ(errors, "line, line 1: syntax error\n");
}

}  // namespace
