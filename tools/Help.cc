// The help pages, laid out for an 80-column terminal: paragraphs wrapped at word boundaries,
// synopses broken only between bracketed groups, option texts in a column.
#include <string>
#include <vector>

#include "Commands.h"

namespace {

constexpr size_t kWidth = 80;
constexpr size_t kOptionColumn = 24;

// Splits text at blanks outside brackets: the units a synopsis may be broken between.
std::vector<std::string> Units(std::string const& text, bool keep_brackets_whole) {
  std::vector<std::string> units;
  std::string unit;
  int depth = 0;
  for (char c : text) {
    if (keep_brackets_whole && c == '[') ++depth;
    if (keep_brackets_whole && c == ']' && depth > 0) --depth;
    if (c == ' ' && depth == 0) {
      if (!unit.empty()) units.push_back(unit);
      unit.clear();
    } else {
      unit += c;
    }
  }
  if (!unit.empty()) units.push_back(unit);
  return units;
}

// Writes the units after prefix, continuing lines at column indent, none past kWidth unless a
// single unit is longer.
void Fill(FILE* out, std::string prefix, std::vector<std::string> const& units, size_t indent) {
  std::string line = prefix;
  bool line_has_unit = false;
  for (std::string const& unit : units) {
    if (line_has_unit && line.size() + 1 + unit.size() > kWidth) {
      std::fprintf(out, "%s\n", line.c_str());
      line.assign(indent, ' ');
      line_has_unit = false;
    }
    if (line_has_unit) line += ' ';
    line += unit;
    line_has_unit = true;
  }
  std::fprintf(out, "%s\n", line.c_str());
}

// Paragraphs separated by "\n\n", each filled from column indent.
void Paragraphs(FILE* out, std::string const& text, size_t indent) {
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find("\n\n", start);
    if (end == std::string::npos) end = text.size();
    if (start > 0) std::fprintf(out, "\n");
    Fill(out, std::string(indent, ' '), Units(text.substr(start, end - start), false), indent);
    start = end + 2;
  }
}

// "  --limit N           text ...", the text in its column, or on the next line when the
// option is too wide.
void Items(FILE* out, char const* title, std::vector<Option> const& items) {
  if (items.empty()) return;
  std::fprintf(out, "\n%s:\n", title);
  for (Option const& o : items) {
    std::string label = std::string("  ") + o.flag + (o.value ? std::string(" ") + o.value : "");
    if (label.size() + 2 > kOptionColumn) {
      std::fprintf(out, "%s\n", label.c_str());
      label.clear();
    }
    label.resize(kOptionColumn, ' ');
    Fill(out, label, Units(o.help, false), kOptionColumn);
  }
}

// "usage: t2sfst NAME ..." and a line of its own for each alternative ("\n" in the synopsis).
void Synopsis(FILE* out, Command const& c) {
  std::string const usage = c.usage;
  size_t start = 0;
  for (char const* head = "usage: "; start <= usage.size(); head = "       ") {
    size_t end = usage.find('\n', start);
    if (end == std::string::npos) end = usage.size();
    std::string const prefix = std::string(head) + "t2sfst " + c.name;
    std::vector<std::string> units = Units(usage.substr(start, end - start), true);
    units.insert(units.begin(), prefix);
    Fill(out, "", units, prefix.size() + 1 <= 40 ? prefix.size() + 1 : 8);
    start = end + 1;
  }
}

}  // namespace

void PrintOverview(FILE* out) {
  std::fprintf(out,
               "usage: t2sfst COMMAND [ARGS...]\n"
               "       t2sfst --help | --version\n"
               "       t2sfst help COMMAND | expressions | help\n\n"
               "Weighted finite-state transducer toolkit and JSGF-to-T2S model builder.\n\n"
               "commands:\n");
  for (Command const& c : AllCommands()) {
    std::string label = std::string("  ") + c.name;
    label.resize(18, ' ');
    Fill(out, label, Units(c.summary, false), 18);
  }
  std::fprintf(out, "\n");
  Paragraphs(out,
             "IN is a machine file of any format, or an expression over machine files (see "
             "'t2sfst help expressions'); standard input when absent or \"-\". The label "
             "alphabet can be preloaded from the file named by FST_LABELS_FILE.\n\n"
             "Options may be written \"--flag VALUE\" or \"--flag=VALUE\", before or after the "
             "arguments; \"--\" ends the options, so that an argument may start with \"-\".",
             0);
}

void PrintCommandHelp(Command const& c, FILE* out) {
  Synopsis(out, c);
  std::fprintf(out, "\n");
  Paragraphs(out, c.description, 0);
  Items(out, "arguments", c.arguments);
  Items(out, "options", c.options);
  if (!c.examples.empty()) {
    std::fprintf(out, "\nexample%s:\n", c.examples.size() > 1 ? "s" : "");
    for (char const* e : c.examples) std::fprintf(out, "  %s\n", e);
  }
}

void PrintExpressionsHelp(FILE* out) {
  std::fputs(
      "Wherever a command reads a machine, an expression over machine files may stand\n"
      "instead (quote it for the shell). The result is lazy: states are computed as\n"
      "they are read.\n\n"
      "  a @ b            composition: a's outputs read by b (binds tighter than |)\n"
      "  a | b | c        union of all operands\n"
      "  <t> a | <u:v> b  union with tags: <t> brackets a with <t> and </t> on both\n"
      "                   sides, <in:out> picks each side, <in:> the input side only,\n"
      "                   <:out> the output side only\n"
      "  ( e )            grouping\n"
      "  invert(e)        inputs and outputs swapped, weights inverted\n"
      "  det(e [, limit [, delta]])\n"
      "                   determinization (limit 1, delta 0.001 by default)\n"
      "  re(e [, tolerance])\n"
      "                   epsilon removal as an acceptor (tolerance 0.001)\n"
      "  cache(e)         keep the arcs computed\n"
      "  lru(e, n)        keep the arcs of the last n states\n"
      "  ngram_det(e)     n-gram model determinization\n"
      "  ngram_invert(e)  n-gram model inversion\n\n"
      "A file is a bare name of letters, digits and . _ - / + ~, or a double-quoted\n"
      "string (\\\" and \\\\ escaped). A text that is a readable file is read as that file.\n\n"
      "examples:\n"
      "  t2sfst print 'det(re(<a> a.fst | <b> b.fst)) @ lex.fst'\n"
      "  t2sfst shortestpath -n 3 'input.fst @ rules.fst @ lm.fst'\n"
      "  t2sfst info '\"my machine.fst\" @ cache(other.fst)'\n",
      out);
}

void PrintHelpHelp(FILE* out) {
  std::fputs(
    "usage: t2sfst help [COMMAND | expressions | help | --markdown]\n\n"
    "Without an argument, the list of commands. With a command's name, what it does, its\n"
    "arguments and options, and examples (the same as 't2sfst COMMAND --help'). With\n"
    "\"expressions\", the expression language that stands wherever a machine is read. With\n"
    "--markdown, every page as the README's command section.\n",
      out);
}

void PrintAllHelp(FILE* out) {
  std::fprintf(out, "```\n");
  PrintOverview(out);
  std::fprintf(out, "```\n");
  for (Command const& c : AllCommands()) {
    std::fprintf(out, "\n### %s\n\n```\n", c.name);
    PrintCommandHelp(c, out);
    std::fprintf(out, "```\n");
  }
  std::fprintf(out, "\n### expressions\n\n```\n");
  PrintExpressionsHelp(out);
  std::fprintf(out, "```\n");
}
