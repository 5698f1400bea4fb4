// The subcommands of the t2sfst command, with the texts that `t2sfst help` shows: the option
// parser reads its options from the same table, so a command accepts what its help explains and
// nothing else.
#ifndef T2SFST_TOOLS_COMMANDS_H
#define T2SFST_TOOLS_COMMANDS_H

#include <cstdio>
#include <vector>

// An option ("--limit", value "N") or a flag (value nullptr), or a positional argument (flag
// "IN", value nullptr), with the sentence or two that explain it.
struct Option {
  char const* flag;
  char const* value;
  char const* help;
};

struct Command {
  char const* name;
  // argv[0] is the command's name; returns the exit status.
  int (*run)(int argc, char** argv);
  char const* usage;        // the synopsis after "t2sfst NAME"
  char const* summary;      // one line for the command list
  char const* description;  // what it does, exactly; paragraphs separated by "\n\n"
  std::vector<Option> arguments;
  std::vector<Option> options;
  std::vector<char const*> examples;  // command lines, each under 78 columns
};

// Every command, in the order of the command list.
std::vector<Command> const& AllCommands();
// The command of that name, or nullptr.
Command const* FindCommand(char const* name);

// The help texts, wrapped at 80 columns: the overview with the command list, one command's
// page, the expression language, help itself, and every page in turn as Markdown (the
// README's command section).
void PrintOverview(FILE* out);
void PrintCommandHelp(Command const& command, FILE* out);
void PrintExpressionsHelp(FILE* out);
void PrintHelpHelp(FILE* out);
void PrintAllHelp(FILE* out);

int RunDemo(int argc, char** argv);
int RunLabels(int argc, char** argv);
int RunPrint(int argc, char** argv);
int RunDraw(int argc, char** argv);
int RunInfo(int argc, char** argv);
int RunConvert(int argc, char** argv);
int RunRmEpsilon(int argc, char** argv);
int RunDeterminize(int argc, char** argv);
int RunOptimize(int argc, char** argv);
int RunPush(int argc, char** argv);
int RunMinimize(int argc, char** argv);
int RunTrim(int argc, char** argv);
int RunTopsort(int argc, char** argv);
int RunCompileGrammar(int argc, char** argv);
int RunMakeModel(int argc, char** argv);
int RunApply(int argc, char** argv);
int RunCompose(int argc, char** argv);
int RunUnion(int argc, char** argv);
int RunConcat(int argc, char** argv);
int RunInvert(int argc, char** argv);
int RunProject(int argc, char** argv);
int RunReverse(int argc, char** argv);
int RunClosure(int argc, char** argv);
int RunShortestPath(int argc, char** argv);
int RunNgramCompile(int argc, char** argv);
int RunNgramScore(int argc, char** argv);
int RunNgramPack(int argc, char** argv);
int RunArcSort(int argc, char** argv);
int RunIntersect(int argc, char** argv);
int RunDifference(int argc, char** argv);
int RunEquivalent(int argc, char** argv);
int RunRandGen(int argc, char** argv);
int RunTrain(int argc, char** argv);
int RunTry(int argc, char** argv);

#endif
