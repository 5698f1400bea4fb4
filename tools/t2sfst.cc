// t2sfst: command-line front end of the toolkit.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "CommandSupport.h"
#include "Commands.h"

namespace {

Command const commands[] = {
    {"make-model", "[-I DIR]... [--allow-undefined] [--max-states N] GRAMMAR MODEL",
     "compile a JSGF grammar (imports from its folder and each -I DIR) into a packed T2S model; "
     "undefined rules and a grammar without a public rule fail",
     RunMakeModel},
    {"apply", "[--rewrite] [--sep S] [-j N] MODEL [TEXT...]",
     "one line of outputs for each TEXT (or line of standard input), empty where the model "
     "does not accept it; --rewrite replaces the longest accepted runs of words in each line; "
     "-j N decodes standard input in N threads (default: the cores available)",
     RunApply},
    {"compile-grammar",
     "GRAMMAR [-o OUT] [--format text|att|dot] [-I DIR]... [--max-states N] [--drop-tags] "
     "[--no-output] [--mark-rules] [--pauses] [--allow-undefined] [--no-optimize]",
     "compile a JSGF grammar (optimized as the model builder does, unless --no-optimize)",
     RunCompileGrammar},
    {"print", "[--no-header] [IN]", "write a machine (or a T2S model) in the text format",
     RunPrint},
    {"draw", "[--title TEXT] [--png FILE] [IN]",
     "draw a machine as Graphviz dot, or render it to PNG", RunDraw},
    {"info", "[IN]",
     "representation, size, labels and structural properties of a machine or a T2S model",
     RunInfo},
    {"convert",
     "--to att [--symbols FILE] [IN [OUT]] | --from att [--symbols FILE] [--acceptor] "
     "[--semiring NAME] [IN [OUT]] | --to binary [IN [OUT]] | --to mmap [--order "
     "any|input|output] [--labels FILE] IN OUT",
     "AT&T text with a symbol table, to and from the text format; the binary and memory-mapped "
     "formats (every command reads any format by its header)",
     RunConvert},
    {"rmepsilon", "[--acceptor] [--delta D] [--binary] [IN [OUT]]",
     "remove epsilon arcs (only epsilon:epsilon ones with --acceptor)", RunRmEpsilon},
    {"determinize", "[--acceptor] [--limit N] [--delta D] [--binary] [IN [OUT]]",
     "weighted subset construction; groups of more than N arcs with one label become one arc "
     "(default 1)",
     RunDeterminize},
    {"optimize", "[--pipeline default|2|A|2A] [--limit N] [--delta D] [--binary] [IN [OUT]]",
     "remove epsilons, push weights, determinize and minimize (A: as an acceptor)", RunOptimize},
    {"push", "[--binary] [IN [OUT]]", "push weights towards the initial state (the best path weighs one)",
     RunPush},
    {"minimize", "[--delta D] [--binary] [IN [OUT]]", "merge states with the same future", RunMinimize},
    {"trim", "[--binary] [IN [OUT]]", "remove states off every path from the initial to a final state",
     RunTrim},
    {"topsort", "[--binary] [IN [OUT]]", "renumber the states in topological order", RunTopsort},
    {"compose", "A B [-o OUT]", "the composition of two transducers (A's outputs read by B)",
     RunCompose},
    {"union", "A B... [-o OUT]", "the union of machines", RunUnion},
    {"concat", "A B... [-o OUT]", "the concatenation of machines", RunConcat},
    {"closure", "[--plus] [--binary] [IN [OUT]]", "the Kleene closure (--plus: one or more)", RunClosure},
    {"invert", "[--binary] [IN [OUT]]", "swap inputs and outputs (weights inverted)", RunInvert},
    {"project", "[--output] [--binary] [IN [OUT]]", "the input side (or the output side) as an acceptor",
     RunProject},
    {"reverse", "[--binary] [IN [OUT]]", "the reversed machine", RunReverse},
    {"shortestpath", "[-n N] [--binary] [IN [OUT]]",
     "the N best paths (1 by default) as a machine: what wins in a model or a composition",
     RunShortestPath},
    {"ngram-compile", "ARPA OUT", "compile an ARPA back-off model (order 2 or 3) into a model file",
     RunNgramCompile},
    {"ngram-score", "MODEL [TEXT...]",
     "the cost -ln P of \"<s> TEXT </s>\" for each TEXT (or line of standard input)",
     RunNgramScore},
    {"ngram-pack", "MODEL OUT", "the packed, quantized form of a model; prints its MD5 digest",
     RunNgramPack},
    {"labels", "[--file FILE] [TEXT...]",
     "print label ids (interning TEXTs), or the whole label table", RunLabels},
    {"demo", "", "build a small machine and print it", RunDemo},
};

void print_help(FILE* out) {
  std::fprintf(out,
               "usage: t2sfst COMMAND [ARGS...]\n"
               "       t2sfst --help | --version\n"
               "       t2sfst help COMMAND | expressions\n\n"
               "Weighted finite-state transducer toolkit and JSGF-to-T2S model builder.\n\n"
               "commands:\n");
  for (Command const& c : commands) std::fprintf(out, "  %-15s %s\n", c.name, c.summary);
  std::fprintf(out,
               "\nIN is a machine file of any format, or an expression over machine files (see\n"
               "'t2sfst help expressions'); standard input when absent or \"-\". The label\n"
               "alphabet can be preloaded from the file named by FST_LABELS_FILE.\n");
}

char const* const expressions_help =
    "Wherever a command reads a machine, an expression over machine files may stand instead\n"
    "(quote it for the shell). The result is lazy: states are computed as they are read.\n\n"
    "  a @ b           composition: a's outputs read by b (binds tighter than |)\n"
    "  a | b | c       union of all operands\n"
    "  <t> a | <u:v> b union with tags: <t> brackets a with <t> and </t> on both sides,\n"
    "                  <in:out> picks each side, <in:> the input side only, <:out> the output\n"
    "  ( e )           grouping\n"
    "  invert(e)       inputs and outputs swapped, weights inverted\n"
    "  det(e [, limit [, delta]])   determinization (limit 1, delta 0.001 by default)\n"
    "  re(e [, tolerance])          epsilon removal as an acceptor (tolerance 0.001)\n"
    "  cache(e)        keep the arcs computed;  lru(e, n)  keep those of the last n states\n"
    "  ngram_det(e), ngram_invert(e)  n-gram model determinization and inversion\n\n"
    "A file is a bare name of letters, digits and . _ - / + ~, or a double-quoted string\n"
    "(\\\" and \\\\ escaped). A text that is a readable file is read as that file.\n\n"
    "examples:\n"
    "  t2sfst print 'det(re(<a> a.fst | <b> b.fst)) @ lex.fst'\n"
    "  t2sfst shortestpath -n 3 'input.fst @ rules.fst @ lm.fst'\n"
    "  t2sfst info '\"my machine.fst\" @ cache(other.fst)'\n";

Command const* find_command(char const* name) {
  for (Command const& c : commands)
    if (std::strcmp(c.name, name) == 0) return &c;
  std::fprintf(stderr, "t2sfst: unknown command '%s' (see 't2sfst --help')\n", name);
  return nullptr;
}

void print_usage(Command const& c) {
  std::printf("usage: t2sfst %s %s\n%s\n", c.name, c.usage, c.summary);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    print_help(stderr);
    return 2;
  }
  char const* first = argv[1];
  if (!std::strcmp(first, "--help") || !std::strcmp(first, "-h")) {
    print_help(stdout);
    return 0;
  }
  if (!std::strcmp(first, "--version")) {
    std::printf("t2sfst %s\n", T2SFST_VERSION);
    return 0;
  }
  if (!std::strcmp(first, "help")) {
    if (argc < 3) {
      print_help(stdout);
      return 0;
    }
    if (!std::strcmp(argv[2], "expressions")) {
      std::fputs(expressions_help, stdout);
      return 0;
    }
    Command const* c = find_command(argv[2]);
    if (!c) return 2;
    print_usage(*c);
    return 0;
  }
  Command const* c = find_command(first);
  if (!c) return 2;
  for (int i = 2; i < argc; ++i)
    if (!std::strcmp(argv[i], "--help")) {
      print_usage(*c);
      return 0;
    }
  // The library's stops on bad files or arguments become one line and exit status 1.
  int status = 1;
  FSTStop stop;
  if (!FSTCatchStops([&] { status = c->run(argc - 1, argv + 1); }, stop)) {
    ReportStop(c->name, stop);
    // What the stop left half-built is not freed; the process ends here, without exit handlers
    // (the command's own temporary files went as the stop unwound).
    std::fflush(nullptr);
    std::_Exit(1);
  }
  return status;
}
