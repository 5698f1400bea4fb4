#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "FST.h"
#include "Language.h"
#include "TestUtil.h"

namespace {

int L(char const* text) { return FSTstring_map[text]; }

// One arc per item "from to label weight" (label:label), then the final states with weights.
FSTGeneric Machine(std::vector<std::tuple<int, int, char const*, float>> const& arcs,
                   std::vector<std::pair<int, float>> const& finals) {
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->set_initial(0);
  for (auto const& [from, to, label, weight] : arcs) m->add_arc(from, to, L(label), L(label), weight);
  for (auto const& [state, weight] : finals) m->set_final(state, weight);
  return m;
}

LabelString Labels(std::string const& words) {
  LabelString labels;
  std::istringstream in(words);
  for (std::string w; in >> w;) labels.push_back(L(w.c_str()));
  return labels;
}

// The rule calls vanish from the output: "<a>" reads and writes nothing.
Language Without(Language const& l, char const* label) {
  Language result;
  for (auto const& [key, w] : l) {
    StringPair k = key;
    k.second.erase(std::remove(k.second.begin(), k.second.end(), L(label)), k.second.end());
    result[k] = w;
  }
  return result;
}

struct Compiled {
  FSTGeneric expanded, network;
};

Compiled CompileBoth(std::string const& grammar) {
  std::string const file = WriteTempFile("rtn.gram", grammar);
  Compiled c;
  std::string messages;
  FSTJsgfOptions options;
  EXPECT_TRUE(FSTJsgfCompileFile(c.expanded, messages, file, options)) << messages;
  options.keep_rules = true;
  EXPECT_TRUE(FSTJsgfCompileFile(c.network, messages, file, options)) << messages;
  return c;
}

}  // namespace

// Left-linear recursion, weights included, gives its whole language with a finite machine, also
// as the operand of epsilon removal and determinization.
TEST(Rtn, WeightedLeftRecursionIsExact) {
  // <a> = <a> x | y, the call costing 0.5, x 0.25, the end 0.125, y 1.
  FSTGeneric a = Machine({{0, 1, "<a>", 0.5f}, {1, 2, "x", 0.25f}, {0, 2, "y", 1}}, {{2, 0.125f}});
  FSTGeneric top = Machine({{0, 1, "<a>", 0}}, {{1, 0}});
  FSTGeneric rtn = FSTRtn(top, {"<a>"}, {a}, false);
  Language want;
  std::string words = "y";
  for (int n = 0; n <= 6; ++n, words += " x") {
    LabelString s = Labels(words);
    want[{s, s}] = 1 + 0.125f + float(n) * (0.5f + 0.25f + 0.125f);
  }
  EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(rtn, 7), want));
  EXPECT_LT(FSTBasic(rtn)->states().size(), 8);
  EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(FSTDeterminizeA(FSTRemoveEpsilonsA(rtn, 0.001f), 0, 0.001f, true), 7), want));
}

// Compiled with every rule kept apart, written as a network file and read back: the language of
// the grammar compiled as one machine. FSTRtnSet then swaps a rule, after states were computed.
TEST(Rtn, FileRoundTripAndSet) {
  Compiled c = CompileBoth(
      "#JSGF V1.0;\ngrammar g;\npublic <s> = <greet> <name> | <list>;\n"
      "<greet> = hello | hi;\n<name> = anna | bob;\n"
      "<list> = <list> and <name> | <name>;\n<tail> = <name> [<tail>];\n");
  std::stringstream file;
  FSTDumpRtn(c.network, file);
  EXPECT_EQ(file.str().rfind("#FSTRtn Version=1\ntop ", 0), 0u);
  std::string const path = WriteTempFile("round.rtn", file.str());
  FSTGeneric loaded = FSTLoad(path);
  EXPECT_EQ(loaded->name, "FSTRtn");
  EXPECT_TRUE(SameLanguage(FSTMinPlus, Enumerate(loaded, 6), Enumerate(c.expanded, 6)));

  FSTBasic(loaded);  // every state computed from the old <name>
  FSTRtnSet(loaded, "<name>", Machine({{0, 1, "carl", 0}}, {{1, 0}}));
  Language const after = Enumerate(loaded, 4);
  EXPECT_TRUE(after.count({Labels("hi carl"), Labels("hi carl")}));
  EXPECT_TRUE(after.count({Labels("carl and carl"), Labels("carl and carl")}));
  EXPECT_FALSE(after.count({Labels("hi bob"), Labels("hi bob")}));

  // Entries naming a file beside the network and an expression.
  std::string const beside = WriteTempFile("rtn_name.fst", "I 0\nT 0 1 dora dora\nF 1\n");
  std::string const named = WriteTempFile(
      "named.rtn", "#FSTRtn Version=1\ntop 3\nI 0\nT 0 1 <greet> <greet>\nF 1\n<greet> = " +
                       beside.substr(beside.rfind('/') + 1) + "\n");
  Language const greet = Without(Enumerate(FSTLoad(named), 3), "<greet>");
  EXPECT_EQ(greet.size(), 1u);
  EXPECT_TRUE(greet.count({Labels("dora"), Labels("dora")}));

  // A broken file stops with the line at fault.
  std::string const truncated =
      WriteTempFile("bad.rtn", "#FSTRtn Version=1\ntop 2\nI 0\nF 0\n<x> 5\nI 0\n");
  EXPECT_DEATH(FSTLoad(truncated), "^FATAL: file: the machine of <x> ends after 1 of its 5 lines\n");
  std::string const bad_arc = WriteTempFile("bad2.rtn", "#FSTRtn Version=1\ntop 2\nI 0\nT 0\n");
  CommandResult r = RunCommand(std::string(T2SFST_TOOL) + " print " + bad_arc);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err.rfind("t2sfst print: " + bad_arc + ", line 4: usage: T <from> <to>", 0), 0u) << r.err;
}

// "$name" arcs call the class's current machine; a class not set matches nothing; a reset
// view reads the table again; a "#FSTDynamic" file sets its classes and names its base.
TEST(Dynamic, ClassesFollowTheTable) {
  FSTGeneric base = Machine({{0, 1, "call", 0}, {1, 2, "$contacts", 0.5f}, {0, 2, "help", 0}},
                            {{2, 0}});
  FSTDynamicSet("contacts", FSTGeneric());
  FSTGeneric view = FSTDynamic(base);
  auto sentences = [](FSTGeneric const& m) {
    std::set<std::string> out;
    for (auto const& [key, w] : Enumerate(m, 4)) {
      std::string text;
      for (int l : key.first) text += (text.empty() ? "" : " ") + std::string(FSTstring_map[l]);
      out.insert(text + "/" + std::to_string(w).substr(0, 3));
    }
    return out;
  };
  EXPECT_EQ(sentences(view), (std::set<std::string>{"help/0.0"}));
  FSTDynamicSet("$contacts", Machine({{0, 1, "anna", 0.25f}, {0, 1, "$family", 0}}, {{1, 0}}));
  FSTDynamicSet("family", Machine({{0, 1, "mum", 0}}, {{1, 1}}));
  EXPECT_EQ(sentences(view), (std::set<std::string>{"help/0.0"}));  // until reset
  view->reset();
  EXPECT_EQ(sentences(view), (std::set<std::string>{"help/0.0", "call anna/0.7", "call mum/1.5"}));
  EXPECT_EQ(FSTDynamicGet("contacts")->name, "FSTBasic");

  auto name = [](std::string const& path) { return path.substr(path.rfind('/') + 1); };
  std::string const base_file =
      WriteTempFile("dyn_base.fst", "I 0\nT 0 1 call call\nT 1 2 $contacts $contacts\nF 2\n");
  std::string const contacts = WriteTempFile("dyn_contacts.fst", "I 0\nT 0 1 zoe zoe\nF 1\n");
  std::string const file =
      WriteTempFile("contacts.dyn", "#FSTDynamic " + name(base_file) +
                                        "\n# the phone book\ncontacts = " + name(contacts) + "\n");
  FSTGeneric loaded = FSTLoad(file);
  EXPECT_EQ(loaded->name, "FSTDynamic");
  EXPECT_EQ(sentences(loaded), (std::set<std::string>{"call zoe/0.0"}));
  FSTDynamicSet("contacts", FSTGeneric());
  FSTDynamicSet("family", FSTGeneric());
  EXPECT_FALSE(FSTDynamicGet("contacts"));
}
