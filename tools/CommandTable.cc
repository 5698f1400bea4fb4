// The command table: what each command takes and the help that explains it.
#include <cstring>

#include "Commands.h"

namespace {

// Options that several commands share, explained once.
Option const binary{"--binary", nullptr,
                    "write the binary format instead of text (faster to read back, and what "
                    "other commands read as well)"};
Option const in_arg{"IN",
                    nullptr,
                    "the input machine: a file of any format, or an expression over files (see "
                    "'t2sfst help expressions'); standard input when absent or \"-\""};
Option const out_arg{"OUT", nullptr,
                     "where the result goes; standard output when absent or \"-\""};
Option const out_option{"-o", "OUT", "where the result goes; standard output by default"};
Option const delta{"--delta", "D",
                   "weights closer than D are taken as equal (default 0.001)"};
Option const limit{"--limit", "N",
                   "a label that leaves a state on at most N arcs keeps them apart; larger "
                   "groups are merged into one arc (default 1: determinize fully; 0: no limit, "
                   "so nothing is merged)"};
Option const keep_total{"--keep-total", nullptr,
                        "keep the total weight of the paths (the weight pushing divides out) on "
                        "the initial state, so that paths weigh what they weighed"};
Option const quiet{"--quiet", nullptr,
                   "no progress line (shown on a terminal while long work runs)"};
Option const allow_undefined{"--allow-undefined", nullptr,
                             "a reference to a rule that is not defined matches nothing instead "
                             "of failing the build"};
Option const include_dir{"-I", "DIR",
                         "also look for imported grammars in DIR (after the grammar's own "
                         "folder; may be given more than once)"};
Option const max_states{"--max-states", "N",
                        "stop expanding recursive rules once the network has N states "
                        "(default 200000)"};
Option const grammar_arg{"GRAMMAR", nullptr, "a JSGF grammar file (\"#JSGF V1.0;\" ...)"};

std::vector<Command> const table = {
    {"make-model", RunMakeModel,
     "[-I DIR]... [--class NAME=FILE]... [--train CORPUS [--iterations N]] "
     "[--allow-undefined] [--max-states N] [--quiet] GRAMMAR MODEL",
     "compile a JSGF grammar into a packed T2S model",
     "Compiles GRAMMAR with its imports, optimizes it, expands its labels to one byte per arc, "
     "optimizes again and writes the packed model that 'apply' and the C runtime read. Every "
     "message of the compiler is shown; a reference to an undefined rule and a grammar without "
     "a public rule fail. The model is written beside MODEL and renamed into place, so a "
     "failure leaves an existing model as it was. A one-line summary (states, arcs, output "
     "strings, bytes, seconds) goes to standard output.\n\n"
     "A token \"spoken:written\" is matched by its spoken side and writes its written side "
     "(split at the last ':'); a plain token writes itself; tags vanish; weights /w/ on "
     "alternatives choose among outputs over the same words.",
     {grammar_arg, {"MODEL", nullptr, "the model file to write"}},
     {include_dir,
      {"--class", "NAME=FILE",
       "the rule <NAME>, which the grammar uses and does not define, is the phrases of FILE: "
       "one a line, \"spoken\" or \"spoken:written\" as a quoted token reads (a contact list, "
       "say, kept apart from the grammar)"},
      {"--train", "CORPUS",
       "weight the grammar's alternatives from examples, one a line: the recognised text, a "
       "tab and the written form wanted; where several readings fit a text, the model then "
       "prefers the one the examples use (each iteration's log-likelihood is printed)"},
      {"--iterations", "N", "iterations of the training (default 5)"},
      allow_undefined, max_states,
      {"--quiet", nullptr,
       "no progress line (shown on a terminal while the build runs) and no summary"}},
     {"t2sfst make-model examples/times.gram times.t2s",
      "t2sfst make-model --train examples/times.tsv examples/times.gram times.t2s",
      "t2sfst make-model --class contacts=contacts.txt examples/phone.gram phone.t2s"}},
    {"apply", RunApply,
     "[--rewrite] [--ignore-case] [--sep S] [-j N] [--line-buffered] MODEL [TEXT...]",
     "apply a T2S model to texts or lines of standard input",
     "Writes one line for each TEXT, or for each line of standard input: the outputs of the "
     "best path through the model, joined by S, except where an output attaches to its "
     "neighbour (a written form that begins or ends with \"@@\"). A line the model does not "
     "accept gives an empty line and \"t2sfst apply: line N: no match\" on standard error, "
     "and the exit status is then 1.",
     {{"MODEL", nullptr, "a model built by make-model"},
      {"TEXT", nullptr, "texts to apply the model to; the lines of standard input when absent"}},
     {{"--rewrite", nullptr,
       "replace, from the left, each longest run of words that the model accepts by its "
       "outputs, and copy the other words: a line is never a miss"},
      {"--ignore-case", nullptr,
       "match ASCII letters whatever their case (\"Two P M\" reads as \"two p m\"); copied "
       "words keep theirs, and with --rewrite a run spoken with a capital first letter gets "
       "its first output capitalised (\"Mister smith\" -> \"Mr. smith\")"},
      {"--sep", "S", "the text between two outputs (default one blank; \"\" joins them)"},
      {"-j", "N",
       "decode standard input in N threads (default: the cores available); the output is the "
       "same as with one"},
      {"--line-buffered", nullptr,
       "read a line at a time and write each answer at once, for a program that waits for "
       "it (the default when standard input is a terminal)"}},
     {"t2sfst apply times.t2s 'twenty five past nine'",
      "t2sfst apply --rewrite -j 2 times.t2s < recognised.txt > written.txt"}},
    {"try", RunTry, "[--ignore-case] [--sep S] MODEL", "try a model line by line, seeing the path taken",
     "Reads lines (typed, or from standard input) and answers each at once: the output, as "
     "'apply' writes it, then the path that gave it, as pieces of the spoken line and what each "
     "wrote, and the path's weight. A line the model does not read gives \"(no match)\".",
     {{"MODEL", nullptr, "a model built by make-model"}},
     {{"--ignore-case", nullptr, "match ASCII letters whatever their case"},
      {"--sep", "S", "the text between two outputs (default one blank)"}},
     {"t2sfst try times.t2s"}},
    {"compile-grammar", RunCompileGrammar,
     "[-o OUT] [--format text|att|dot|rtn] [-I DIR]... [--max-states N] [--drop-tags] "
     "[--no-output] [--mark-rules] [--pauses] [--split-tokens] [--allow-undefined] "
     "[--no-optimize] GRAMMAR",
     "compile a JSGF grammar into a machine",
     "Compiles GRAMMAR into a word-level transducer, optimized as the model builder does "
     "(epsilons removed, determinized and minimized as an acceptor) unless --no-optimize. "
     "Messages of the compiler go to standard error.",
     {grammar_arg},
     {out_option,
      {"--format", "F",
       "text (the default), att (AT&T text), dot (Graphviz), or rtn: a network file that keeps "
       "each rule a machine of its own, called by name (see the README's file formats)"},
      include_dir, max_states,
      {"--drop-tags", nullptr, "leave tags {...} out of the output"},
      {"--no-output", nullptr, "words write nothing: an acceptor of the grammar's sentences"},
      {"--mark-rules", nullptr,
       "bracket each rule's output with \"<name>\" and \"</name>\", to see which rules fired"},
      {"--pauses", nullptr, "wrap the sentences in \"<pause1>\" ... \"<pause2>\""},
      {"--split-tokens", nullptr,
       "a token \"spoken:written\" reads spoken and writes written, as in a model (without "
       "it, the token is one label on both sides)"},
      allow_undefined,
      {"--no-optimize", nullptr, "write the machine as compiled"}},
     {"t2sfst compile-grammar --format dot examples/commands.gram -o commands.dot",
      "t2sfst compile-grammar --format rtn examples/commands.gram -o commands.rtn"}},
    {"print", RunPrint, "[--no-header] [IN]", "write a machine (or a T2S model) in the text format",
     "Writes IN in the text format: a header line, then a line per arc and per final state. A "
     "packed T2S model is shown as a machine over its bytes.",
     {in_arg},
     {{"--no-header", nullptr, "leave out the header line"}},
     {"t2sfst print 'lexicon.fst @ grammar.fst'"}},
    {"draw", RunDraw, "[--title TEXT] [--png FILE] [IN]", "draw a machine as Graphviz dot, or as a PNG",
     "Writes IN as a Graphviz dot graph on standard output, or renders it to a PNG file "
     "through the 'dot' program (package graphviz).",
     {in_arg},
     {{"--title", "TEXT", "a title above the graph"},
      {"--png", "FILE", "render to FILE instead of writing dot text"}},
     {"t2sfst draw --title 'L o G' --png lg.png 'L.fst @ G.fst'"}},
    {"info", RunInfo, "[IN]", "size, labels and structural properties of a machine or a T2S model",
     "Prints the representation, semiring, numbers of states, arcs, final states and epsilon "
     "arcs, the arc order, and whether IN is deterministic, acyclic and trim.",
     {in_arg},
     {},
     {"t2sfst info lexicon.fst"}},
    {"convert", RunConvert,
     "--to att [--symbols FILE | --isymbols FILE --osymbols FILE] [IN [OUT]]\n"
     "--from att [--symbols FILE | --isymbols FILE --osymbols FILE] [--acceptor] "
     "[--semiring NAME] [IN [OUT]]\n"
     "--to binary [IN [OUT]]\n"
     "--to mmap [--order any|input|output] [--labels FILE] IN OUT",
     "AT&T text to and from the text format; the binary and memory-mapped formats",
     "Converts between this toolkit's formats and the AT&T text format that other WFST "
     "toolkits read and write (\"src dst in out [weight]\" and \"state [weight]\" lines, with a "
     "symbol table of \"label id\" lines). Every command reads the text, binary and "
     "memory-mapped formats by their headers, so only AT&T text needs converting in.",
     {in_arg, out_arg},
     {{"--to", "FORMAT", "att, binary or mmap"},
      {"--from", "FORMAT", "att: read AT&T text"},
      {"--symbols", "FILE",
       "the symbol table of both sides: written with --to att, read with --from att "
       "(without one, the fields are the labels' names)"},
      {"--isymbols", "FILE",
       "the input side's table, as other toolkits keep it apart (written: the table of every "
       "label used, which serves both sides)"},
      {"--osymbols", "FILE", "the output side's table"},
      {"--acceptor", nullptr, "--from att: the arcs have one label, for both sides"},
      {"--semiring", "NAME", "--from att: MinPlus (the default), PlusTimes, MaxTimes or MinMax"},
      {"--order", "ORDER",
       "--to mmap: keep the arcs sorted by input or output label, or in any order (default)"},
      {"--labels", "FILE",
       "--to mmap: write the label table the file needs (give it as FST_LABELS_FILE when "
       "loading)"}},
     {"t2sfst convert --to att --symbols words.syms lexicon.fst lexicon.att",
      "t2sfst convert --from att --symbols words.syms lexicon.att lexicon.fst"}},
    {"rmepsilon", RunRmEpsilon, "[--acceptor] [--delta D] [--binary] [IN [OUT]]", "remove epsilon arcs",
     "Writes an equivalent machine without epsilon arcs.",
     {in_arg, out_arg},
     {{"--acceptor", nullptr,
       "remove only arcs that are epsilon on both sides (the machine is read as an acceptor "
       "of label pairs)"},
      delta, binary},
     {"t2sfst rmepsilon grammar.fst grammar.noeps.fst"}},
    {"determinize", RunDeterminize, "[--acceptor] [--limit N] [--delta D] [--binary] [IN [OUT]]",
     "weighted subset construction",
     "Writes an equivalent machine in which no state has two arcs with the same input label "
     "(with --acceptor: the same label pair). Outputs that cannot be decided yet are delayed. "
     "When --limit leaves arcs apart, a warning on standard error says how many states are "
     "not deterministic.",
     {in_arg, out_arg},
     {{"--acceptor", nullptr, "determinize label pairs, as an acceptor"}, limit, delta, binary},
     {"t2sfst determinize --acceptor lexicon.fst lexicon.det.fst"}},
    {"optimize", RunOptimize,
     "[--pipeline default|2|A|2A] [--limit N] [--delta D] [--keep-total] [--quiet] [--binary] "
     "[IN [OUT]]",
     "remove epsilons, push weights, determinize and minimize",
     "Runs an optimization pipeline and writes an epsilon-free, pushed, deterministic, minimal "
     "machine. Pushing leaves the best path (in MinPlus) weighing nothing, unless "
     "--keep-total.",
     {in_arg, out_arg},
     {{"--pipeline", "P",
       "default: remove epsilons, push, determinize, minimize; 2: push before removing "
       "epsilons; A and 2A: the same with epsilon removal and determinization done as an "
       "acceptor of label pairs (what the model builder does)"},
      limit, delta, keep_total, quiet, binary},
     {"t2sfst optimize --pipeline A grammar.fst grammar.opt.fst"}},
    {"push", RunPush, "[--keep-total] [--binary] [IN [OUT]]",
     "push weights towards the initial state",
     "Moves weights as far towards the initial state as they go; the best path from each "
     "state then weighs one (0 in MinPlus), and the total weight of the machine is dropped "
     "unless --keep-total.",
     {in_arg, out_arg},
     {keep_total, binary},
     {"t2sfst push lexicon.fst lexicon.pushed.fst"}},
    {"minimize", RunMinimize, "[--delta D] [--binary] [IN [OUT]]", "merge states with the same future",
     "Merges the states of a deterministic machine that accept the same weighted futures.",
     {in_arg, out_arg},
     {delta, binary},
     {"t2sfst minimize lexicon.det.fst lexicon.min.fst"}},
    {"trim", RunTrim, "[--binary] [IN [OUT]]", "remove states off every successful path",
     "Removes the states that are not on a path from the initial state to a final state.",
     {in_arg, out_arg},
     {binary},
     {"t2sfst trim 'a.fst @ b.fst' ab.fst"}},
    {"topsort", RunTopsort, "[--binary] [IN [OUT]]", "renumber the states in topological order",
     "Renumbers the states so that every arc goes from a lower to a higher number. A cyclic "
     "machine has no such order: it is refused with exit status 1, and OUT is left as it was.",
     {in_arg, out_arg},
     {binary},
     {"t2sfst topsort lattice.fst lattice.sorted.fst"}},
    {"compose", RunCompose, "[-o OUT] [--quiet] A B", "the composition of two transducers",
     "The machine that reads A's inputs and writes B's outputs where B reads A's outputs, with "
     "weights multiplied.",
     {{"A", nullptr, "the first machine (any format or an expression)"},
      {"B", nullptr, "the second machine"}},
     {out_option, quiet},
     {"t2sfst compose -o LG.fst L.fst G.fst"}},
    {"union", RunUnion, "[-o OUT] A B...", "the union of machines",
     "A machine that accepts what any of the machines accepts.",
     {{"A B...", nullptr, "the machines"}},
     {out_option},
     {"t2sfst union -o all.fst dates.fst times.fst"}},
    {"concat", RunConcat, "[-o OUT] A B...", "the concatenation of machines",
     "A machine whose paths are a path of A followed by one of B, and so on.",
     {{"A B...", nullptr, "the machines, in order"}},
     {out_option},
     {"t2sfst concat -o sentence.fst prefix.fst body.fst"}},
    {"intersect", RunIntersect, "[-o OUT] A B", "the intersection of two acceptors",
     "The acceptor of the strings that both A and B accept, with weights multiplied (their "
     "composition, for machines whose arcs have one label for both sides).",
     {{"A", nullptr, "the first acceptor"}, {"B", nullptr, "the second acceptor"}},
     {out_option},
     {"t2sfst intersect -o both.fst names.fst words.fst"}},
    {"difference", RunDifference, "[-o OUT] A B", "what A accepts and the acceptor B does not",
     "A's paths whose input string B does not accept, with A's weights and outputs. B is read "
     "as an unweighted acceptor and complemented over the labels of both: its determinized "
     "form gets an arc for every state and label, so B should be small or its alphabet "
     "moderate.",
     {{"A", nullptr, "a machine (a transducer is filtered on its inputs)"},
      {"B", nullptr, "an acceptor of the strings to take out"}},
     {out_option},
     {"t2sfst difference -o rest.fst words.fst stopwords.fst"}},
    {"closure", RunClosure, "[--plus] [--binary] [IN [OUT]]", "the Kleene closure",
     "A machine whose paths are zero or more paths of IN in a row.",
     {in_arg, out_arg},
     {{"--plus", nullptr, "one or more times instead of zero or more"}, binary},
     {"t2sfst closure --plus word.fst words.fst"}},
    {"invert", RunInvert, "[--keep-weights] [--binary] [IN [OUT]]",
     "swap inputs and outputs (weights inverted)",
     "Swaps the input and output labels of every arc and inverts every weight (in MinPlus, "
     "w becomes -w), so that composing a machine with its inverse cancels its weights. "
     "Toolkits that only swap labels do what --keep-weights does: the inverse of a lexicon "
     "for shortestpath wants it.",
     {in_arg, out_arg},
     {{"--keep-weights", nullptr, "swap the labels only; the weights stay as they are"}, binary},
     {"t2sfst invert --keep-weights lexicon.fst lexicon.inv.fst"}},
    {"project", RunProject, "[--output] [--binary] [IN [OUT]]", "one side as an acceptor",
     "Copies each arc's input label to its output side, giving the acceptor of IN's inputs.",
     {in_arg, out_arg},
     {{"--output", nullptr, "keep the output side instead"}, binary},
     {"t2sfst project --output lexicon.fst words.fst"}},
    {"reverse", RunReverse, "[--binary] [IN [OUT]]", "the reversed machine",
     "A machine whose paths are IN's paths read backwards.",
     {in_arg, out_arg},
     {binary},
     {"t2sfst reverse words.fst words.rev.fst"}},
    {"shortestpath", RunShortestPath, "[-n N] [--binary] [IN [OUT]]", "the N best paths as a machine",
     "The N paths of lowest cost (MinPlus) or highest weight as a machine: what wins in a model "
     "or a composition.",
     {in_arg, out_arg},
     {{"-n", "N", "how many paths (default 1)"}, binary},
     {"t2sfst shortestpath -n 3 'input.fst @ rules.fst'"}},
    {"arcsort", RunArcSort, "[--sort input|output] [--binary] [IN [OUT]]",
     "sort each state's arcs by label",
     "Writes IN with each state's arcs sorted by input label (then output label), or by output "
     "label, as other toolkits expect of a composition's operands. Labels sort by their "
     "numbers, which follow the order the labels were first met (see 't2sfst help labels').",
     {in_arg, out_arg},
     {{"--sort", "SIDE", "input (the default) or output"}, binary},
     {"t2sfst arcsort --sort output L.fst L.sorted.fst"}},
    {"equivalent", RunEquivalent, "[--delta D] A B", "whether two machines are equivalent",
     "Prints \"equivalent\" (exit status 0) when A and B give every pair of input and output "
     "strings the same weight within D, else \"not equivalent:\" and a string where they "
     "differ (exit status 1). Both are read as acceptors of label pairs, so two transducers "
     "that place their outputs differently are not equivalent; both must be determinizable.",
     {{"A", nullptr, "the first machine"}, {"B", nullptr, "the second machine"}},
     {delta},
     {"t2sfst equivalent lexicon.fst lexicon.opt.fst"}},
    {"randgen", RunRandGen,
     "[-n N] [--seed S] [--by-weight] [--max-length L] [--machine] [-I DIR]... [IN]",
     "random paths of a machine, or sentences of a grammar",
     "Draws N random successful paths of IN and prints each as a line: its input labels, then, "
     "when the outputs differ, a tab and its output labels. IN may be a JSGF grammar: its "
     "sentences are printed in spoken words, with their written forms after the tab. At each "
     "state the walk stops (where the state is final) or takes an arc, each choice equally "
     "likely unless --by-weight.",
     {in_arg},
     {{"-n", "N", "how many paths (default 1)"},
      {"--seed", "S", "the random generator's seed (default 1): the same seed, the same paths"},
      {"--by-weight", nullptr,
       "choose in proportion to the weights, read as probabilities (costs as exp(-cost))"},
      {"--max-length", "L", "draw again a path longer than L arcs (default 1000)"},
      {"--machine", nullptr, "write the paths as a machine instead of lines"},
      include_dir},
     {"t2sfst randgen -n 10 --seed 7 examples/times.gram"}},
    {"train", RunTrain,
     "[--iterations N] [--pairs] [--outputs] [--by-output-label] [--smoothing S] [--binary] "
     "MACHINE CORPUS OUT",
     "estimate a machine's weights from examples",
     "Re-estimates the weights of MACHINE by expectation-maximisation so that the examples of "
     "CORPUS become likely, and writes the result to OUT in MACHINE's semiring. Each iteration "
     "counts how often each arc and final weight is used on the examples' paths, in proportion "
     "to the paths' probabilities (costs are read as exp(-cost)), and makes the counts "
     "probabilities: at each state the arcs and the final weight sum to one. The corpus "
     "log-likelihood of each iteration is printed (on standard error when OUT is standard "
     "output); it never decreases. Examples the machine cannot produce are left out and "
     "counted.",
     {{"MACHINE", nullptr, "the machine to train; its arcs and states stay as they are"},
      {"CORPUS", nullptr,
       "one example a line: blank-separated input labels, or with --pairs the input, a tab and "
       "the output"},
      {"OUT", nullptr, "the trained machine"}},
     {{"--iterations", "N", "how many iterations (default 10)"},
      {"--pairs", nullptr, "examples are input-output pairs"},
      {"--outputs", nullptr, "examples are strings of the output side"},
      {"--by-output-label", nullptr,
       "make arcs sum to one per state and output label instead of per state"},
      {"--smoothing", "S",
       "add S to every count of a visited state, so that no arc's weight becomes zero "
       "(default 0)"},
      binary},
     {"t2sfst train --pairs --iterations 5 lexicon.fst pairs.tsv lexicon.trained.fst"}},
    {"ngram-compile", RunNgramCompile, "[--binary] ARPA OUT",
     "compile an ARPA back-off model into a model file",
     "Reads an ARPA back-off model of order 2 or 3 and writes it as an n-gram model file, "
     "which every command reads as a machine: a state per history, an arc per n-gram, an "
     "epsilon arc per history with its back-off cost.",
     {{"ARPA", nullptr, "the ARPA text file"}, {"OUT", nullptr, "the model file to write"}},
     {{"--binary", nullptr,
       "write the compiled binary form instead of text: sorted arrays that ngram-score maps "
       "and uses in place, about 8 bytes a trigram"}},
     {"t2sfst ngram-compile lm.arpa lm.ngram", "t2sfst ngram-compile --binary lm.arpa lm.bin"}},
    {"ngram-score", RunNgramScore, "[--perplexity] MODEL [TEXT...]",
     "the cost of sentences under an n-gram model, or their perplexity",
     "Prints, for each TEXT or line of standard input, the cost -ln P of \"<s> TEXT </s>\" "
     "with 4 decimals. A word outside the vocabulary is the model's unknown word (\"<unk>\"); "
     "without one, the line costs \"inf\" and the exit status is 1.",
     {{"MODEL", nullptr, "an n-gram model file: text, compiled binary or packed"},
      {"TEXT", nullptr, "sentences of blank-separated words; standard input when absent"}},
     {{"--perplexity", nullptr,
       "print one line for all the sentences instead: their number, the words scored "
       "(\"</s>\" included), the words outside the vocabulary (left out, and the next word "
       "scored as if a sentence began there, unless the model has \"<unk>\"), the total cost "
       "and the perplexity exp(cost / words)"}},
     {"t2sfst ngram-score lm.ngram 'the cat sat'",
      "t2sfst ngram-score --perplexity lm.ngram < test.txt"}},
    {"ngram-pack", RunNgramPack, "MODEL OUT", "the packed, quantized form of an n-gram model",
     "Writes the packed form of MODEL, costs and back-off costs quantized to 256 levels each, "
     "and prints the file's MD5 digest.",
     {{"MODEL", nullptr, "an n-gram model file"}, {"OUT", nullptr, "the packed file to write"}},
     {},
     {"t2sfst ngram-pack lm.ngram lm.packed"}},
    {"labels", RunLabels, "[--file FILE] [TEXT...]", "label ids, or the whole label table",
     "Prints the id of each TEXT (interning it), or every label of the table with its id. "
     "Id 0 is epsilon (the empty text) and id 1 is \"#\".",
     {{"TEXT", nullptr, "labels to look up"}},
     {{"--file", "FILE", "first load the labels of FILE (blank-separated words, in order)"}},
     {"t2sfst labels --file words.txt hello"}},
    {"demo", RunDemo, "", "build a small machine and print it",
     "Builds a small weighted transducer from spoken numbers to digits and prints it, its "
     "input projection and its reverse.",
     {},
     {},
     {"t2sfst demo"}},
};

}  // namespace

std::vector<Command> const& AllCommands() { return table; }

Command const* FindCommand(char const* name) {
  for (Command const& c : table)
    if (std::strcmp(c.name, name) == 0) return &c;
  return nullptr;
}
